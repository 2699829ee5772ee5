// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRData.h"
#include "util/krxassert.h"
#include "util/typeconvertor.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace {

constexpr char kSourceFile[] = "server/SRCSerializer";
constexpr int kCapacityLine = 2581;

const SRMBString& emptyName()
{
    static const SRMBString name;
    return name;
}

// Arrays that wait to be deleted on this thread. Deleting an array releases the arrays inside it; these join
// the list instead of being deleted within, so that the stack stays flat however deep they are nested.
thread_local const SRDataArray* t_firstToFree = nullptr;
thread_local bool t_freeing = false;

// Renders values as a text of bounded length.
class ArrayText
{
public:
    using Write = std::function<void(std::string_view piece)>;

    ArrayText(std::size_t maxBytes, const Write& write) : m_room(maxBytes), m_write(write) {}

    void render(const SRDataArray& array)
    {
        if (m_open.size() >= SRData::kMaxTextDepth ||
            std::find(m_open.begin(), m_open.end(), &array) != m_open.end()) {
            append("{...}");
            return;
        }
        m_open.push_back(&array);
        append("{");
        for (int i = 0; i < array.getSize() && !m_full; ++i) {
            if (i > 0)
                append(", ");
            append(array.getPropertyNameConst(i).view());
            append(": ");
            render(array.getPropertyValueConst(i));
        }
        append("}");
        m_open.pop_back();
    }

private:
    void render(const SRData& value)
    {
        if (value.isArrayKind())
            render(*value.payload.array);
        else if (value.isTextKind())
            append(value.textView());
        else
            append(value.toText().view());
    }

    void append(std::string_view piece)
    {
        if (m_full)
            return;
        if (piece.size() <= m_room) {
            m_write(piece);
            m_room -= piece.size();
            return;
        }
        // The cut must not split a character.
        std::size_t n = m_room;
        while (n > 0 && (static_cast<unsigned char>(piece[n]) & 0xC0) == 0x80)
            --n;
        m_write(piece.substr(0, n));
        m_write("...");
        m_full = true;
    }

    std::size_t m_room;
    const Write& m_write;
    bool m_full = false;
    std::vector<const SRDataArray*> m_open;
};

}  // namespace

SRDataArray::SRDataArray(int capacity)
{
    if (capacity < 1)
        krx::util::assertFailed(kSourceFile, kCapacityLine);
    reserve(capacity);
}

SRDataArray::SRDataArray(const SRDataArray& other)
    : SRObject(other), m_names(other.m_names), m_values(other.m_values), m_kind(other.m_kind)
{
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
    m_nextToFree = std::exchange(t_firstToFree, this);
    if (t_freeing)
        return 0;
    t_freeing = true;
    while (const SRDataArray* array = t_firstToFree) {
        t_firstToFree = array->m_nextToFree;
        delete array;
    }
    t_freeing = false;
    return 0;
}

void SRDataArray::reserve(int n)
{
    if (n < 1)
        return;
    m_names.reserve(static_cast<std::size_t>(n));
    m_values.reserve(static_cast<std::size_t>(n));
}

int SRDataArray::getSize() const
{
    return krx::util::convertInteger<int>(m_values.size());
}

int SRDataArray::indexOf(const char* name, int start) const
{
    if (!name)
        return -1;
    for (auto i = static_cast<std::size_t>(std::max(start, 0)); i < m_names.size(); ++i) {
        if (m_names[i].equalsIgnoreCase(name))
            return static_cast<int>(i);
    }
    return -1;
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
        return m_values[static_cast<std::size_t>(i)];
    m_undefined.clear();
    return m_undefined;
}

bool SRDataArray::growTo(int i)
{
    if (i < 0)
        return false;
    const auto needed = static_cast<std::size_t>(i) + 1;
    const std::size_t size = m_values.size();
    if (needed <= size)
        return true;
    m_values.resize(needed);
    try {
        m_names.resize(needed);
    } catch (...) {
        m_values.resize(size);
        throw;
    }
    return true;
}

SRMBString& SRDataArray::getPropertyName(int i)
{
    if (growTo(i))
        return m_names[static_cast<std::size_t>(i)];
    m_noName.clear();
    return m_noName;
}

SRData& SRDataArray::getPropertyValue(int i)
{
    growTo(i);
    return getPropertyOrUndefined(i);
}

const SRMBString& SRDataArray::getPropertyNameConst(int i) const
{
    return isEntry(i) ? m_names[static_cast<std::size_t>(i)] : emptyName();
}

const SRData& SRDataArray::getPropertyValueConst(int i) const
{
    static const SRData undefined;
    return isEntry(i) ? m_values[static_cast<std::size_t>(i)] : undefined;
}

int SRDataArray::setValue(int i, const SRMBString& name, const SRData& value)
{
    // Copies first: both may lie in this array, which may grow.
    SRMBString newName(name);
    SRData newValue(value);
    if (growTo(i)) {
        std::swap(m_names[static_cast<std::size_t>(i)], newName);
        m_values[static_cast<std::size_t>(i)].swap(newValue);
    }
    return 1;
}

void SRDataArray::append(SRMBString&& name, SRData&& value)
{
    m_values.push_back(std::move(value));
    try {
        m_names.push_back(std::move(name));
    } catch (...) {
        m_values.pop_back();
        throw;
    }
}

void SRDataArray::erase(int i)
{
    if (!isEntry(i))
        return;
    m_names.erase(m_names.begin() + i);
    m_values.erase(m_values.begin() + i);
}

bool SRDataArray::equals(const SRDataArray& other) const
{
    return m_kind == other.m_kind && m_names == other.m_names;
}

SRMBString SRDataArray::toText(std::size_t maxBytes) const
{
    std::string text;
    writeText(maxBytes, [&text](std::string_view piece) { text.append(piece); });
    return SRMBString(text.data(), text.size());
}

void SRDataArray::writeText(std::size_t maxBytes,
                            const std::function<void(std::string_view piece)>& write) const
{
    ArrayText(maxBytes, write).render(*this);
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
