// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCSerializer.h"

#include "server/SRCSerializerScopes.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <utility>

namespace {

// A writer may refer to the values of these kinds once more.
bool isSearched(const SRData& value)
{
    return value.isArrayKind() || value.kind == kDateType || value.kind == kXMLType;
}

std::uint64_t hashOf(const SRData& value)
{
    if (value.isArrayKind())
        return reinterpret_cast<std::uintptr_t>(value.payload.array);
    if (value.kind == kDateType)
        return std::bit_cast<std::uint64_t>(value.getDate()) ^ static_cast<unsigned>(value.getTimeZone());
    return std::hash<std::string_view>()(value.textView());
}

// Whether two values are written as one: the same array, dates equal to the bit, equal XML.
bool isSame(const SRData& a, const SRData& b)
{
    if (a.isArrayKind())
        return b.isArrayKind() && a.payload.array == b.payload.array;
    if (a.kind != b.kind)
        return false;
    if (a.kind != kDateType)
        return a.textView() == b.textView();
    return a.getTimeZone() == b.getTimeZone() &&
           std::bit_cast<std::uint64_t>(a.getDate()) == std::bit_cast<std::uint64_t>(b.getDate());
}

}  // namespace

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
    std::string_view text = name ? name->view() : std::string_view();
    if (isWriter())
        return writeVar(*value, name ? &text : nullptr);
    const int marker = readVar(*value, name ? &text : nullptr);
    if (name)
        *name = SRMBString(text);
    return marker;
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
    m_objectIndex.clear();
}

void SRCSerializer::AddObjectToTable(SRDataArray* array, unsigned index)
{
    putInTable(SRData(SRDataArrayPtr(array), kAvmPlusObjectType), index);
}

void SRCSerializer::putInTable(SRData&& value, unsigned index)
{
    while (m_objects.size() <= index) {
        m_objects.push_back(SRData());
        charge(sizeof(SRData) + (isWriter() ? kIndexBytes : 0));
    }
    m_objects[index] = std::move(value);
    if (isWriter()) {
        m_objectIndex.add(index, m_objects.size(), [this](std::size_t i) {
            // An entry that is never looked up may have any hash.
            return isSearched(m_objects[i]) ? hashOf(m_objects[i]) : i;
        });
    }
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

int SRCSerializer::findInTable(const SRData& value) const
{
    return m_objectIndex.find(hashOf(value), [&](unsigned index) {
        return index < m_objects.size() && isSame(m_objects[index], value);
    });
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
