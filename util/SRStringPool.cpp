// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRStringPool.h"

#include "util/SRException.h"
#include "util/SRString.h"
#include "util/krxassert.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

constexpr const char* kAssertFile = "util/SRStringPool";
constexpr int kReleaseUnknownLine = 310;

constexpr std::size_t kHeaderSize = 4;

constexpr std::array<unsigned char, kHeaderSize> kEmptyHeader{0, 0, 0, SRStringPool::kEmpty};

// The empty blocks, header included. Constant-initialised: strings in static objects need them at once.
constinit char g_emptyNarrow[] = {0, 0, 0, SRStringPool::kEmpty, 0};
constinit wchar_t g_emptyWide[] = {std::bit_cast<wchar_t>(kEmptyHeader), 0};

template <typename CharT>
using View = std::basic_string_view<CharT>;

template <typename CharT>
using Traits = std::char_traits<CharT>;

template <typename CharT>
CharT* emptyPoolBlock()
{
    if constexpr (std::is_same_v<CharT, char>)
        return SRStringPool::g_chNull;
    else
        return SRStringPool::g_wchNull;
}

template <typename CharT>
unsigned char* headerOf(CharT* block)
{
    return reinterpret_cast<unsigned char*>(block) - kHeaderSize;
}

template <typename CharT>
std::size_t blockLength(const CharT* block)
{
    return static_cast<std::size_t>(SRStringPool::length(block));
}

// Also sets the terminating zero.
template <typename CharT>
void setBlockLength(CharT* block, std::size_t length)
{
    unsigned char* header = headerOf(block);
    krx::util::storeBig24(header, static_cast<unsigned>(length));
    block[length] = CharT();
}

template <typename CharT>
View<CharT> textOf(const CharT* block)
{
    return View<CharT>(block, blockLength(block));
}

// The room of a block follows from the length of its text alone. A text that filled all of it would imply
// more room, so the last character of the room stays unused.
template <typename CharT>
bool fits(const CharT* block, std::size_t length)
{
    return length + 1 < SRStringPool::room(blockLength(block));
}

template <typename CharT>
std::size_t givenLength(const CharT* text, int n)
{
    if (text == nullptr)
        return 0;
    const std::size_t length = n < 0 ? Traits<CharT>::length(text) : static_cast<std::size_t>(n);
    if (length > SRStringPool::kMaxLength)
        throw SROutOfMemory();
    return length;
}

// A block with its header set and room for characters (terminator included); the caller writes the text.
// previous is an old private block to enlarge, or null.
template <typename CharT>
CharT* allocateBlock(std::size_t characters, SRStringPool::BlockType type, CharT* previous = nullptr)
{
    void* raw =
        std::realloc(previous ? headerOf(previous) : nullptr, kHeaderSize + characters * sizeof(CharT));
    if (raw == nullptr)
        throw SROutOfMemory();
    auto* header = static_cast<unsigned char*>(raw);
    header[3] = type;
    return reinterpret_cast<CharT*>(header + kHeaderSize);
}

template <typename CharT>
void freeBlock(CharT* block)
{
    std::free(headerOf(block));
}

template <typename CharT>
CharT* makePrivate(View<CharT> text)
{
    CharT* block = allocateBlock<CharT>(SRStringPool::room(text.size()), SRStringPool::kPrivate);
    Traits<CharT>::copy(block, text.data(), text.size());
    setBlockLength(block, text.size());
    return block;
}

// In front of a counted block's header.
using HolderCount = std::atomic<std::uint32_t>;

template <typename CharT>
HolderCount* countOf(CharT* block)
{
    return reinterpret_cast<HolderCount*>(headerOf(block) - sizeof(HolderCount));
}

template <typename CharT>
CharT* makeCounted(View<CharT> text)
{
    void* const raw = std::malloc(sizeof(HolderCount) + kHeaderSize + (text.size() + 1) * sizeof(CharT));
    if (raw == nullptr)
        throw SROutOfMemory();
    auto* const header = reinterpret_cast<unsigned char*>(new (raw) HolderCount(1)) + sizeof(HolderCount);
    header[3] = SRStringPool::kCounted;
    auto* const block = reinterpret_cast<CharT*>(header + kHeaderSize);
    Traits<CharT>::copy(block, text.data(), text.size());
    setBlockLength(block, text.size());
    return block;
}

template <typename CharT>
void dropCounted(CharT* block)
{
    // Release what this holder read, acquire what the others read before the block goes.
    HolderCount* const count = countOf(block);
    if (count->fetch_sub(1, std::memory_order_acq_rel) == 1)
        std::free(count);
}

// The interned texts of one character width, one bucket per length. A bucket is made with its first text, as
// the limit may be millions.
template <typename CharT>
class Store
{
public:
    explicit Store(std::size_t limit) : m_limit(limit), m_groups(limit == 0 ? 0 : limit / kGroup + 1) {}
    ~Store()
    {
        clear();
        for (auto& group : m_groups) {
            if (Group* owned = group.load(std::memory_order_relaxed)) {
                for (auto& bucket : *owned)
                    delete bucket.load(std::memory_order_relaxed);
                delete owned;
            }
        }
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    std::size_t limit() const { return m_limit; }

    CharT* intern(View<CharT> text)
    {
        Bucket& bucket = bucketFor(text.size());
        const std::lock_guard lock(bucket.mutex);
        ++bucket.requests;
        auto at = bucket.texts.lower_bound(text);
        if (at != bucket.texts.end() && at->first == text) {
            ++at->second.uses;
            return at->second.block;
        }
        CharT* block = allocateBlock<CharT>(text.size() + 1, SRStringPool::kInterned);
        Traits<CharT>::copy(block, text.data(), text.size());
        setBlockLength(block, text.size());
        try {
            bucket.texts.emplace_hint(at, textOf<CharT>(block), Entry{block, 1});
        } catch (...) {
            freeBlock(block);
            throw;
        }
        return block;
    }

    // False when the text is not in use here.
    bool drop(View<CharT> text)
    {
        Bucket* bucket = findBucket(text.size());
        if (bucket == nullptr)
            return false;
        const std::lock_guard lock(bucket->mutex);
        const auto at = bucket->texts.find(text);
        if (at == bucket->texts.end() || at->second.uses == 0)
            return false;
        --at->second.uses;
        return true;
    }

    int uses(View<CharT> text) const
    {
        const Bucket* bucket = findBucket(text.size());
        if (bucket == nullptr)
            return 0;
        const std::lock_guard lock(bucket->mutex);
        const auto at = bucket->texts.find(text);
        return at == bucket->texts.end() ? 0 : at->second.uses;
    }

    int collect()
    {
        return eraseIf([](const Entry& entry) { return entry.uses == 0; });
    }

    void clear()
    {
        eraseIf([](const Entry&) { return true; });
    }

    void dumpStats(std::ostream& out, const char* name) const
    {
        forEachBucket([&](std::size_t length, const Bucket& bucket) {
            std::unique_lock lock(bucket.mutex);
            const std::size_t texts = bucket.texts.size();
            const unsigned long long requests = bucket.requests;
            lock.unlock();  // the stream may do anything
            out << name << " length " << length << ": " << texts << " texts, " << requests << " requests\n";
        });
    }

private:
    struct Entry
    {
        CharT* block;
        int uses;
    };

    struct Bucket
    {
        mutable std::mutex mutex;
        std::map<View<CharT>, Entry> texts;  // the keys are the blocks' own characters
        unsigned long long requests = 0;
    };

    static constexpr std::size_t kGroup = 4096;
    using Group = std::array<std::atomic<Bucket*>, kGroup>;

    template <typename T>
    static T& getOrCreate(std::atomic<T*>& slot)
    {
        T* present = slot.load(std::memory_order_acquire);
        if (present == nullptr) {
            auto created = std::make_unique<T>();
            if (slot.compare_exchange_strong(present, created.get(), std::memory_order_acq_rel))
                present = created.release();
        }
        return *present;
    }

    Bucket& bucketFor(std::size_t length)
    {
        return getOrCreate(getOrCreate(m_groups[length / kGroup])[length % kGroup]);
    }

    Bucket* findBucket(std::size_t length) const
    {
        if (length > m_limit || m_groups.empty())
            return nullptr;
        const Group* group = m_groups[length / kGroup].load(std::memory_order_acquire);
        return group ? (*group)[length % kGroup].load(std::memory_order_acquire) : nullptr;
    }

    template <typename Visitor>
    void forEachBucket(Visitor visit) const
    {
        for (std::size_t g = 0; g < m_groups.size(); ++g) {
            const Group* group = m_groups[g].load(std::memory_order_acquire);
            if (group == nullptr)
                continue;
            for (std::size_t i = 0; i < kGroup; ++i) {
                if (Bucket* bucket = (*group)[i].load(std::memory_order_acquire))
                    visit(g * kGroup + i, *bucket);
            }
        }
    }

    template <typename Predicate>
    int eraseIf(Predicate predicate)
    {
        int erased = 0;
        forEachBucket([&](std::size_t, Bucket& bucket) {
            const std::lock_guard lock(bucket.mutex);
            for (auto at = bucket.texts.begin(); at != bucket.texts.end();) {
                if (predicate(at->second)) {
                    CharT* block = at->second.block;
                    at = bucket.texts.erase(at);
                    freeBlock(block);
                    ++erased;
                } else {
                    ++at;
                }
            }
        });
        return erased;
    }

    const std::size_t m_limit;
    std::vector<std::atomic<Group*>> m_groups;
};

template <typename CharT>
CharT* getBlock(Store<CharT>& store, View<CharT> text, CharT* (*make)(View<CharT>) = makePrivate<CharT>)
{
    if (text.empty())
        return emptyPoolBlock<CharT>();
    if (text.size() > store.limit())
        return make(text);
    try {
        return store.intern(text);
    } catch (const std::bad_alloc&) {
        throw SROutOfMemory();
    }
}

template <typename CharT>
CharT* shareBlock(Store<CharT>& store, CharT* block)
{
    if (SRStringPool::type(block) != SRStringPool::kCounted)
        return getBlock(store, textOf<CharT>(block));
    countOf(block)->fetch_add(1, std::memory_order_relaxed);
    return block;
}

template <typename CharT>
void releaseBlock(Store<CharT>& store, CharT* block)
{
    switch (SRStringPool::type(block)) {
        case SRStringPool::kPrivate:
            freeBlock(block);
            break;
        case SRStringPool::kCounted:
            dropCounted(block);
            break;
        case SRStringPool::kInterned:
            if (!store.drop(textOf<CharT>(block)))
                krx::util::assertFailed(kAssertFile, kReleaseUnknownLine);
            break;
        case SRStringPool::kEmpty:
            break;
    }
}

template <typename CharT>
CharT* copyBlock(Store<CharT>& store, CharT* block, View<CharT> text)
{
    if (SRStringPool::type(block) == SRStringPool::kPrivate && !text.empty() && fits(block, text.size())) {
        Traits<CharT>::move(block, text.data(), text.size());
        setBlockLength(block, text.size());
        return block;
    }
    CharT* result = getBlock(store, text);
    releaseBlock(store, block);
    return result;
}

template <typename CharT>
CharT* appendToBlock(Store<CharT>& store, CharT* block, View<CharT> text)
{
    if (text.empty())
        return block;
    const std::size_t oldLength = blockLength(block);
    const std::size_t newLength = oldLength + text.size();
    if (newLength > SRStringPool::kMaxLength)
        throw SROutOfMemory();

    if (SRStringPool::type(block) != SRStringPool::kPrivate) {
        CharT* result = allocateBlock<CharT>(SRStringPool::room(newLength), SRStringPool::kPrivate);
        Traits<CharT>::copy(result, block, oldLength);
        Traits<CharT>::copy(result + oldLength, text.data(), text.size());
        setBlockLength(result, newLength);
        releaseBlock(store, block);
        return result;
    }
    if (!fits(block, newLength)) {
        // Text of the block itself moves along with it.
        const std::less_equal<const CharT*> notAfter;
        const bool own = notAfter(block, text.data()) && notAfter(text.data(), block + oldLength);
        const std::size_t offset = own ? static_cast<std::size_t>(text.data() - block) : 0;
        block = allocateBlock(SRStringPool::room(newLength), SRStringPool::kPrivate, block);
        if (own)
            text = View<CharT>(block + offset, text.size());
    }
    Traits<CharT>::move(block + oldLength, text.data(), text.size());
    setBlockLength(block, newLength);
    return block;
}

template <typename CharT>
CharT* mutableBlock(Store<CharT>& store, CharT* block)
{
    if (SRStringPool::type(block) == SRStringPool::kPrivate)
        return block;
    CharT* result = makePrivate(textOf<CharT>(block));
    releaseBlock(store, block);
    return result;
}

template <typename CharT>
void updateBlockLength(CharT* block)
{
    if (SRStringPool::type(block) != SRStringPool::kPrivate)
        return;
    const std::size_t longest = SRStringPool::room(blockLength(block)) - 2;
    const CharT* end = Traits<CharT>::find(block, longest, CharT());
    setBlockLength(block, end ? static_cast<std::size_t>(end - block) : longest);
}

}  // namespace

constinit char* const SRStringPool::g_chNull = g_emptyNarrow + kHeaderSize;
constinit wchar_t* const SRStringPool::g_wchNull = g_emptyWide + 1;

int SRStringPool::s_maxPoolStringSize = 0;

struct SRStringPool::Impl
{
    explicit Impl(std::size_t limit) : narrow(limit), wide(limit) {}

    Store<char> narrow;
    Store<wchar_t> wide;
    std::atomic<int> collections{0};
};

SRStringPool::SRStringPool(int maxPoolStringSize)
    : m_impl(std::make_unique<Impl>(
          std::min(static_cast<std::size_t>(std::max(maxPoolStringSize, 0)), kMaxLength)))
{
}

SRStringPool::~SRStringPool() = default;

int SRStringPool::parseLimit(const char* text)
{
    if (text == nullptr)
        return 0;
    const std::string_view digits(text);
    unsigned long long value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::invalid_argument || end != digits.data() + digits.size())
        return 0;
    if (error == std::errc::result_out_of_range || value > kMaxLength)
        return static_cast<int>(kMaxLength);
    return static_cast<int>(value);
}

char* SRStringPool::get(const char* text, int n)
{
    return getBlock(m_impl->narrow, View<char>(text, givenLength(text, n)));
}

wchar_t* SRStringPool::get(const wchar_t* text, int n)
{
    return getBlock(m_impl->wide, View<wchar_t>(text, givenLength(text, n)));
}

char* SRStringPool::getCounted(const char* text, int n)
{
    return getBlock(m_impl->narrow, View<char>(text, givenLength(text, n)), makeCounted<char>);
}

char* SRStringPool::share(char* block)
{
    return shareBlock(m_impl->narrow, block);
}

wchar_t* SRStringPool::share(wchar_t* block)
{
    return shareBlock(m_impl->wide, block);
}

void SRStringPool::release(char* block) noexcept
{
    releaseBlock(m_impl->narrow, block);
}

void SRStringPool::release(wchar_t* block) noexcept
{
    releaseBlock(m_impl->wide, block);
}

char* SRStringPool::copy(char* block, const char* text, int n)
{
    return copyBlock(m_impl->narrow, block, View<char>(text, givenLength(text, n)));
}

wchar_t* SRStringPool::copy(wchar_t* block, const wchar_t* text, int n)
{
    return copyBlock(m_impl->wide, block, View<wchar_t>(text, givenLength(text, n)));
}

char* SRStringPool::append(char* block, const char* text, int n)
{
    return appendToBlock(m_impl->narrow, block, View<char>(text, givenLength(text, n)));
}

wchar_t* SRStringPool::append(wchar_t* block, const wchar_t* text, int n)
{
    return appendToBlock(m_impl->wide, block, View<wchar_t>(text, givenLength(text, n)));
}

char* SRStringPool::toMutable(char* block)
{
    return mutableBlock(m_impl->narrow, block);
}

wchar_t* SRStringPool::toMutable(wchar_t* block)
{
    return mutableBlock(m_impl->wide, block);
}

void SRStringPool::updateLength(char* block)
{
    updateBlockLength(block);
}

void SRStringPool::updateLength(wchar_t* block)
{
    updateBlockLength(block);
}

int SRStringPool::useCount(const char* text) const
{
    return m_impl->narrow.uses(View<char>(text, givenLength(text, -1)));
}

int SRStringPool::useCount(const wchar_t* text) const
{
    return m_impl->wide.uses(View<wchar_t>(text, givenLength(text, -1)));
}

int SRStringPool::collectGarbage()
{
    int collected = 0;
    if (m_impl->collections.fetch_add(1, std::memory_order_acquire) == 0) {
        collected = m_impl->narrow.collect();
        collected += m_impl->wide.collect();
    }
    m_impl->collections.fetch_sub(1, std::memory_order_release);
    return collected;
}

void SRStringPool::term()
{
    m_impl->narrow.clear();
    m_impl->wide.clear();
}

void SRStringPool::dumpStats(std::ostream& out) const
{
    m_impl->narrow.dumpStats(out, "narrow");
    m_impl->wide.dumpStats(out, "wide");
}
