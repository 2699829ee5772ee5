// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCSerializer.h"

#include <algorithm>

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
    writeVar(*value, nullptr);
    if (reset)
        CleanDirtyFlags();
    return !m_writeBroken;
}

int SRCSerializer::ProcessScriptVar(SRData* value, SRMBString* name)
{
    return isWriter() ? writeVar(*value, name) : readVar(*value, name);
}

// Tables.

void SRCSerializer::CleanDirtyFlags()
{
    m_objects.clear();
    m_nextObject = 0;
    m_traits.clear();
    m_objectIndex.clear();
    m_dateIndex.clear();
    m_xmlIndex.clear();
}

void SRCSerializer::AddObjectToTable(SRDataArray* array, unsigned index)
{
    constexpr std::size_t kSpare = 11;
    if (index >= m_objects.size()) {
        if (index >= m_objects.capacity())
            m_objects.reserve(std::max(index + kSpare, m_objects.capacity() * 2));
        m_objects.resize(std::size_t{index} + 1);
    }
    TableEntry& entry = m_objects[index];
    if (isWriter()) {
        const auto old = m_objectIndex.find(entry.array.get());
        if (old != m_objectIndex.end() && old->second == index)
            m_objectIndex.erase(old);
        unsigned& first = m_objectIndex.emplace(array, index).first->second;
        first = std::min(first, index);
    }
    entry = TableEntry{SRDataArrayPtr(array), false};
}

unsigned SRCSerializer::joinTable(SRDataArray* array)
{
    AddObjectToTable(array, m_nextObject);
    return m_nextObject++;
}

int SRCSerializer::findInTable(const SRDataArray* array) const
{
    const auto found = m_objectIndex.find(array);
    return found == m_objectIndex.end() ? -1 : static_cast<int>(found->second);
}

void SRCSerializer::shrinkTable(unsigned size)
{
    const auto forget = [](auto& index, const auto& key, unsigned at) {
        const auto found = index.find(key);
        if (found != index.end() && found->second == at)
            index.erase(found);
    };
    while (m_nextObject > size) {
        const SRDataArray* const array = m_objects[--m_nextObject].array.get();
        const SRData& first = array->getPropertyValueConst(0);
        forget(m_objectIndex, array, m_nextObject);
        if (first.kind == kDateType)
            forget(m_dateIndex, dateKey(first), m_nextObject);
        else if (first.kind == kXMLType)
            forget(m_xmlIndex, std::string(first.textView()), m_nextObject);
        m_objects.pop_back();
    }
}

void SRCSerializer::shareTableEntry(SRData& value, unsigned index, int kind)
{
    SRDataArray* const array = m_objects[index].array.get();
    if (m_objects[index].reading && m_circles.emplace(m_open.back(), array).second) {
        m_circleParts.emplace_back(m_open.back());
        m_circleParts.emplace_back(array);
    }
    value.init(array, kind);
}

void SRCSerializer::openCircles() noexcept
{
    auto circle = m_circles.cbegin();
    while (circle != m_circles.cend()) {
        SRDataArray* const holder = circle->first;
        for (int i = 0; i < holder->getSize(); ++i) {
            SRData& value = holder->getPropertyValue(i);
            if (value.isArrayKind() && m_circles.count({holder, value.payload.array}) > 0)
                value.clear();
        }
        while (circle != m_circles.cend() && circle->first == holder)
            ++circle;
    }
}

void SRCSerializer::readWith(const MarkerRow& row, SRData& value, int marker)
{
    const TraceScope scope(*this, row.trace);
    (this->*row.read)(value, marker);
}
