// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCSerializer.h"

#include "server/SRCSerializerScopes.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <utility>

SRCSerializer::~SRCSerializer()
{
    openCircles();
}

int SRCSerializer::GetVar(SRData* value, bool reset)
{
    const int marker = ProcessScriptVar(value);
    if (reset)
        CleanDirtyFlags();
    return marker;
}

bool SRCSerializer::PutVar(const SRData* value, bool reset)
{
    WriteMark mark(*this);
    writeVar(*value, nullptr);
    if (m_writeBroken)
        mark.goBack();
    if (reset)
        CleanDirtyFlags();
    return !m_writeBroken;
}

int SRCSerializer::ProcessScriptVar(SRData* value, SRMBString* name)
{
    if (!isWriter())
        return readVar(*value, name);
    const std::string_view text = name ? name->view() : std::string_view();
    return writeVar(*value, name ? &text : nullptr);
}

SRDataArrayPtr SRCSerializer::newArray(int kind, const SRNameListPtr& names)
{
    chargeAllocated(sizeof(SRDataArray));
    SRDataArrayPtr array(names ? new SRDataArray(names) : new SRDataArray);
    array->setKind(kind);
    return array;
}

// Tables.

void SRCSerializer::CleanDirtyFlags()
{
    m_objects.clear();
    m_nextObject = 0;
    m_traits.clear();
    m_slots.clear();
    m_usedSlots = 0;
}

void SRCSerializer::AddObjectToTable(SRDataArray* array, unsigned index)
{
    putInTable(SRData(SRDataArrayPtr(array), kAvmPlusObjectType), index);
}

void SRCSerializer::putInTable(SRData&& value, unsigned index)
{
    while (m_objects.size() <= index) {
        m_objects.push_back(SRData());
        charge(sizeof(SRData));
    }
    m_objects[index] = std::move(value);
    if (isWriter())
        indexEntry(index);
}

unsigned SRCSerializer::joinTable(SRData&& value)
{
    putInTable(std::move(value), m_nextObject);
    return m_nextObject++;
}

unsigned SRCSerializer::joinTable(SRDataArray* array)
{
    return joinTable(SRData(SRDataArrayPtr(array), kAvmPlusObjectType));
}

unsigned SRCSerializer::joinTableEmpty(int kind)
{
    SRData skipped;
    skipped.initNull();
    skipped.timeZone = kind;
    return joinTable(std::move(skipped));
}

// The array of an entry that is not empty; made now when the entry is a value that an array carries.
SRDataArray* SRCSerializer::tableArray(unsigned index)
{
    static const SRNameListPtr kDateNames(new SRNameList({"time"}, 0));
    static const SRNameListPtr kXMLNames(new SRNameList({"xml"}, 0));
    static const SRNameListPtr kByteArrayNames(new SRNameList({"bytes"}, 0));
    SRData& entry = m_objects[index];
    if (entry.isArrayKind())
        return entry.payload.array;
    SRDataArrayPtr array;
    if (entry.kind == kNullType) {
        array = newArray(entry.timeZone);
    } else {
        const bool isDate = entry.kind == kDateType;
        const bool isXML = entry.kind == kXMLType;
        array = newArray(isDate  ? kDateCarrier
                         : isXML ? kXMLCarrier
                                 : kByteArrayCarrier,
                         isDate  ? kDateNames
                         : isXML ? kXMLNames
                                 : kByteArrayNames);
        array->append(SRData(entry));
        charge(kEntriesBytes);
    }
    entry.init(array.get(), kAvmPlusObjectType);
    return entry.payload.array;
}

std::size_t SRCSerializer::slotOf(const SRData& value) const
{
    std::uint64_t key = 0;
    if (value.isArrayKind())
        key = reinterpret_cast<std::uintptr_t>(value.payload.array) >> 3;
    else if (value.kind == kDateType)
        key = std::bit_cast<std::uint64_t>(value.getDate()) ^ static_cast<unsigned>(value.getTimeZone());
    else
        key = std::hash<std::string_view>()(value.textView());
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;  // Fibonacci hashing: the high bits depend on all
    return static_cast<std::size_t>((key * kSpread) >> 32) & (m_slots.size() - 1);
}

void SRCSerializer::indexEntry(unsigned index)
{
    const SRData& value = m_objects[index];
    if (!value.isArrayKind() && value.kind != kDateType && value.kind != kXMLType)
        return;
    // At most three quarters of the slots are used.
    if ((m_usedSlots + 1) * 4 > m_slots.size() * 3) {
        indexTable();
        return;
    }
    std::size_t slot = slotOf(value);
    while (m_slots[slot] != 0)
        slot = (slot + 1) & (m_slots.size() - 1);
    m_slots[slot] = index + 1;
    ++m_usedSlots;
}

void SRCSerializer::indexTable()
{
    constexpr std::size_t kLeast = 16;
    std::vector<unsigned> slots(std::max(kLeast, std::bit_ceil(m_objects.size() * 2)));
    m_slots.swap(slots);
    m_usedSlots = 0;
    for (unsigned i = 0; i < m_objects.size(); ++i)
        indexEntry(i);
}

int SRCSerializer::findInTable(const SRData& value) const
{
    const auto isSame = [&value](const SRData& entry) {
        if (value.isArrayKind())
            return entry.isArrayKind() && entry.payload.array == value.payload.array;
        if (entry.kind != value.kind)
            return false;
        if (value.kind != kDateType)
            return entry.textView() == value.textView();
        return entry.getTimeZone() == value.getTimeZone() &&
               std::bit_cast<std::uint64_t>(entry.getDate()) == std::bit_cast<std::uint64_t>(value.getDate());
    };
    if (m_slots.empty())
        return -1;
    for (std::size_t slot = slotOf(value); m_slots[slot] != 0; slot = (slot + 1) & (m_slots.size() - 1)) {
        const unsigned index = m_slots[slot] - 1;
        if (index < m_objects.size() && isSame(m_objects[index]))
            return static_cast<int>(index);
    }
    return -1;
}

int SRCSerializer::findInTable(SRDataArray* array) const
{
    SRData key;
    key.kind = kAvmPlusObjectType;
    key.payload.array = array;
    const int index = findInTable(key);
    key.fieldInit();
    return index;
}

void SRCSerializer::shrinkTable(unsigned size)
{
    while (m_nextObject > size) {
        --m_nextObject;
        m_objects.pop_back();
    }
}

void SRCSerializer::shareTableEntry(SRData& value, unsigned index, int kind)
{
    SRDataArray* const array = tableArray(index);
    if (m_objects[index].amf3Hint == kBeingRead) {
        Circle circle{m_open.back(), array};
        if (m_circles.empty() || m_circles.back() < circle || circle < m_circles.back())
            m_circles.push_back(std::move(circle));
        charge(2 * sizeof(Circle));
    }
    value.init(array, kind);
}

bool SRCSerializer::Circle::operator<(const Circle& other) const
{
    const std::less<> before;
    if (holder != other.holder)
        return before(holder.get(), other.holder.get());
    return before(target.get(), other.target.get());
}

void SRCSerializer::openCircles() noexcept
{
    std::sort(m_circles.begin(), m_circles.end());
    const auto isBelow = [](const Circle& circle, const SRDataArray* target) {
        return std::less<>()(circle.target.get(), target);
    };
    for (auto first = m_circles.cbegin(); first != m_circles.cend();) {
        SRDataArray& holder = *first->holder;
        const auto end = std::find_if(first, m_circles.cend(),
                                      [&](const Circle& circle) { return circle.holder.get() != &holder; });
        for (int i = 0; i < holder.getSize(); ++i) {
            if (!holder.getPropertyValueConst(i).isArrayKind())
                continue;
            SRData& value = holder.getPropertyValue(i);
            const auto found = std::lower_bound(first, end, value.payload.array, isBelow);
            if (found != end && found->target.get() == value.payload.array)
                value.clear();
        }
        first = end;
    }
}

void SRCSerializer::readWith(const MarkerRow& row, SRData& value, int marker)
{
    const TraceScope scope(*this, row.trace);
    (this->*row.read)(value, marker);
}
