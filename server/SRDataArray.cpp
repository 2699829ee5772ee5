// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRData.h"
#include "server/SRNameList.h"
#include "server/datatext.h"
#include "util/SRException.h"
#include "util/SRStrUtil.h"
#include "util/krxassert.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

static_assert(sizeof(SRDataArray) == 40);

namespace {

constexpr char kDataArrayPlace[] = "server/SRCSerializer";
constexpr int kCapacityLine = 2581;

// Arrays that wait to be deleted on this thread. Deleting an array releases the arrays inside it; these join
// the list instead of being deleted recursively: the stack stays flat at any depth.
thread_local const SRDataArray* t_firstToFree = nullptr;
thread_local bool t_freeing = false;

}  // namespace

SRDataArray::SRDataArray(int capacity)
{
    if (capacity < 1)
        krx::util::assertFailed(kDataArrayPlace, kCapacityLine);
    reserve(capacity);
}

SRDataArray::SRDataArray(const SRNameListPtr& names) : m_link{names.get()}
{
    if (!m_link.names)
        return;
    m_link.names->_use();
    m_size = m_implied = m_link.names->hasFirstValue() ? 1 : 0;
}

SRDataArray::SRDataArray(const SRDataArray& other)
    : SRObject(other), m_kind(other.m_kind), m_link(other.m_link)
{
    if (m_link.names)
        m_link.names->_use();
    try {
        reserve(other.getSize());
        for (unsigned i = 0; i < other.m_size; ++i) {
            if (i < other.m_implied)
                append(SRData(other.valueAt(i)));
            else
                append(other.getPropertyNameConst(static_cast<int>(i)), SRData(other.valueAt(i)));
        }
    } catch (...) {
        releaseEntries();
        throw;
    }
}

SRDataArray::~SRDataArray()
{
    releaseEntries();
}

SRDataArray& SRDataArray::operator=(const SRDataArray& other)
{
    if (this == &other)
        return *this;
    m_kind = other.m_kind;
    for (int i = 0; i < other.getSize(); ++i)
        setValue(i, other.getPropertyNameConst(i), other.getPropertyValueConst(i));
    return *this;
}

int SRDataArray::_release() const
{
    const int count = m_count.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (count != 0)
        return count;
    dropNames();
    m_link.nextToFree = std::exchange(t_firstToFree, this);
    if (t_freeing)
        return 0;
    t_freeing = true;
    while (const SRDataArray* array = t_firstToFree) {
        t_firstToFree = array->m_link.nextToFree;
        array->m_link.names = nullptr;
        delete array;
    }
    t_freeing = false;
    return 0;
}

void SRDataArray::dropNames() const noexcept
{
    if (SRNameList* const names = std::exchange(m_link.names, nullptr))
        names->_release();
}

void SRDataArray::releaseEntries() noexcept
{
    if (Block* const block = m_block.exchange(nullptr, std::memory_order_relaxed)) {
        std::destroy_n(block->values(), m_size);
        if (block->names)
            std::destroy(block->nameSlots() + m_implied, block->nameSlots() + m_size);
        std::free(block);
    }
    dropNames();
}

// Room.

SRDataArray::Block& SRDataArray::makeRoom(unsigned capacity, bool names)
{
    Block* const old = block();
    if (old && old->capacity >= capacity && (old->names || !names))
        return *old;
    const unsigned oldCapacity = old ? old->capacity : 0;
    const bool hadNames = old && old->names;
    capacity = std::max(capacity, oldCapacity);
    SRData first(!old && m_size > 0 ? m_link.names->firstValue() : SRData());
    const std::size_t bytes =
        sizeof(Block) + capacity * (sizeof(SRData) + (names || hadNames ? sizeof(SRMBString) : 0));
    // Values and names may be moved byte by byte: nothing points to them, nor they to themselves.
    void* const grown = std::realloc(static_cast<void*>(old), bytes);
    if (!grown)
        throw SROutOfMemory();
    auto* const block = static_cast<Block*>(grown);
    block->capacity = capacity;
    block->names = names || hadNames;
    if (hadNames) {
        const void* const from = block->values() + oldCapacity;
        std::memmove(static_cast<void*>(block->nameSlots()), from, m_size * sizeof(SRMBString));
    }
    if (!old && m_size > 0)
        new (block->values()) SRData(std::move(first));
    setBlock(block);
    return *block;
}

SRDataArray::Block& SRDataArray::makeRoomFor(unsigned size, bool names)
{
    constexpr unsigned kFirst = 2;
    if (size > static_cast<unsigned>(INT_MAX))
        throw SROutOfMemory();
    const unsigned present = block() ? block()->capacity : 0;
    return makeRoom(size <= present ? present : std::max({size, present + present / 2, kFirst}), names);
}

// The array's own values. While it has none but the one that its list gives, several threads may ask at once.
SRDataArray::Block& SRDataArray::ownBlock()
{
    if (Block* const present = block())
        return *present;
    constexpr unsigned kCapacity = 1;
    SRData first(m_link.names->firstValue());
    void* const raw = std::malloc(sizeof(Block) + kCapacity * sizeof(SRData));
    if (!raw)
        throw SROutOfMemory();
    auto* const created = new (raw) Block{kCapacity, false};
    Block* present = nullptr;
    new (created->values()) SRData(std::move(first));
    if (m_block.compare_exchange_strong(present, created, std::memory_order_acq_rel))
        return *created;
    std::destroy_at(created->values());
    std::free(created);
    return *present;
}

void SRDataArray::reserve(int n)
{
    if (n > getSize())
        makeRoom(static_cast<unsigned>(n), false);
}

// Names.

std::string_view SRDataArray::impliedName(unsigned i, NameBuffer& buffer) const
{
    if (m_link.names)
        return m_link.names->name(i);
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), i).ptr;
    return {buffer.data(), static_cast<std::size_t>(end - buffer.data())};
}

bool SRDataArray::isImpliedName(unsigned i, std::string_view name) const
{
    NameBuffer buffer;
    return !name.empty() && (m_link.names || (name[0] >= '0' && name[0] <= '9')) &&
           impliedName(i, buffer) == name;
}

std::string_view SRDataArray::getNameView(int i, NameBuffer& buffer) const
{
    if (!isEntry(i))
        return {};
    const auto index = static_cast<unsigned>(i);
    return index < m_implied ? impliedName(index, buffer) : block()->nameSlots()[index].view();
}

SRMBString SRDataArray::getPropertyNameConst(int i) const
{
    NameBuffer buffer;
    if (!isEntry(i) || static_cast<unsigned>(i) < m_implied)
        return SRMBString(getNameView(i, buffer));
    return block()->nameSlots()[i];
}

void SRDataArray::makeNamesExplicit()
{
    if (m_implied == 0)
        return;
    SRMBString* const slots = makeRoom(m_size, true).nameSlots();
    // From the last on, so that the implied ones stay the first.
    while (m_implied > 0) {
        NameBuffer buffer;
        new (slots + m_implied - 1) SRMBString(SRMBString::counted(impliedName(m_implied - 1, buffer)));
        --m_implied;
    }
    dropNames();
}

int SRDataArray::indexOf(const char* name, int start) const
{
    if (!name)
        return -1;
    NameBuffer buffer;
    auto i = static_cast<unsigned>(std::max(start, 0));
    if (!m_link.names && i < m_implied) {
        // A decimal name means that index only.
        unsigned wanted = 0;
        const auto parsed = std::from_chars(name, name + std::strlen(name), wanted);
        if (parsed.ec == std::errc() && wanted >= i && wanted < m_implied && isImpliedName(wanted, name))
            return static_cast<int>(wanted);
        i = m_implied;
    }
    for (; i < m_size; ++i) {
        // All names but those of indices end with a zero character.
        if (SRStrUtil::compareNoCase(getNameView(static_cast<int>(i), buffer).data(), name) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

// Entries.

const SRData& SRDataArray::valueAt(unsigned i) const
{
    Block* const own = block();
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): without a block the one entry is the list's
    return own ? own->values()[i] : m_link.names->firstValue();
}

SRData& SRDataArray::operator[](const char* name)
{
    return getPropertyOrUndefined(indexOf(name));
}

const SRData& SRDataArray::operator[](const char* name) const
{
    return getPropertyValueConst(indexOf(name));
}

SRData& SRDataArray::getPropertyOrUndefined(int i)
{
    if (isEntry(i))
        return ownBlock().values()[i];
    thread_local SRData undefined;
    undefined.clear();
    return undefined;
}

bool SRDataArray::growTo(int i)
{
    if (i < 0)
        return false;
    const auto needed = static_cast<unsigned>(i) + 1;
    if (needed <= m_size)
        return true;
    Block& own = makeRoomFor(needed, true);
    for (; m_size < needed; ++m_size) {
        new (own.values() + m_size) SRData;
        new (own.nameSlots() + m_size) SRMBString;
    }
    return true;
}

SRMBString& SRDataArray::getPropertyName(int i)
{
    if (growTo(i)) {
        if (static_cast<unsigned>(i) < m_implied)
            makeNamesExplicit();
        return block()->nameSlots()[i];
    }
    thread_local SRMBString noName;
    noName.clear();
    return noName;
}

SRData& SRDataArray::getPropertyValue(int i)
{
    growTo(i);
    return getPropertyOrUndefined(i);
}

const SRData& SRDataArray::getPropertyValueConst(int i) const
{
    static const SRData undefined{};
    return isEntry(i) ? valueAt(static_cast<unsigned>(i)) : undefined;
}

int SRDataArray::setValue(int i, const SRMBString& name, const SRData& value)
{
    if (i < 0)
        return 1;
    // Copies first: both may lie in this array, which may grow.
    SRMBString newName(name);
    SRData newValue(value);
    if (i == getSize()) {
        append(std::move(newName), std::move(newValue));
        return 1;
    }
    if (!isEntry(i) || static_cast<unsigned>(i) >= m_implied ||
        !isImpliedName(static_cast<unsigned>(i), newName.view()))
        std::swap(getPropertyName(i), newName);
    getPropertyValue(i).swap(newValue);
    return 1;
}

void SRDataArray::append(SRMBString&& name, SRData&& value)
{
    if (impliesNext(name.view())) {
        append(std::move(value));
        return;
    }
    // Out of this array first, which may grow.
    SRMBString newName(std::move(name));
    SRData newValue(std::move(value));
    Block& own = makeRoomFor(m_size + 1, true);
    new (own.values() + m_size) SRData(std::move(newValue));
    new (own.nameSlots() + m_size) SRMBString(std::move(newName));
    ++m_size;
}

void SRDataArray::append(SRData&& value)
{
    if (m_implied < m_size) {
        NameBuffer buffer;
        append(SRMBString::counted(impliedName(m_size, buffer)), std::move(value));
        return;
    }
    SRData newValue(std::move(value));
    Block& own = makeRoomFor(m_size + 1, false);
    new (own.values() + m_size) SRData(std::move(newValue));
    m_implied = ++m_size;
}

void SRDataArray::erase(int i)
{
    if (!isEntry(i))
        return;
    const auto at = static_cast<unsigned>(i);
    if (at < m_implied && at + 1 < m_size)
        makeNamesExplicit();
    Block& own = ownBlock();
    const auto eraseFrom = [&](auto* all) {
        std::rotate(all + at, all + at + 1, all + m_size);
        std::destroy_at(all + m_size - 1);
    };
    eraseFrom(own.values());
    if (at >= m_implied)
        eraseFrom(own.nameSlots());
    --m_size;
    m_implied = std::min(m_implied, m_size);
}

bool SRDataArray::equals(const SRDataArray& other) const
{
    if (m_kind != other.m_kind || m_size != other.m_size)
        return false;
    NameBuffer buffer;
    NameBuffer otherBuffer;
    for (int i = 0; i < getSize(); ++i) {
        if (getNameView(i, buffer) != other.getNameView(i, otherBuffer))
            return false;
    }
    return true;
}

SRMBString SRDataArray::toText(std::size_t maxBytes) const
{
    std::string text;
    krx::DataText(maxBytes, krx::DataText::into(text)).add(*this);
    return SRMBString(text);
}

void SRDataArray::writeText(std::size_t maxBytes,
                            const std::function<void(std::string_view piece)>& write) const
{
    krx::DataText(maxBytes, write).add(*this);
}

bool SRDataArray::containsCircle() const
{
    struct Step
    {
        const SRDataArray* array;
        int next;
    };
    enum class State
    {
        kOnPath,
        kDone,
    };
    std::unordered_map<const SRDataArray*, State> seen{{this, State::kOnPath}};
    std::vector<Step> path{{this, 0}};
    while (!path.empty()) {
        Step& step = path.back();
        if (step.next >= step.array->getSize()) {
            seen[step.array] = State::kDone;
            path.pop_back();
            continue;
        }
        const SRData& value = step.array->getPropertyValueConst(step.next++);
        if (!value.isArrayKind())
            continue;
        const auto [found, isNew] = seen.emplace(value.payload.array, State::kOnPath);
        if (isNew)
            path.push_back({value.payload.array, 0});
        else if (found->second == State::kOnPath)
            return true;
    }
    return false;
}
