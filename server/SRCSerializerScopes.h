// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRCSerializer.h"

// What the sources of SRCSerializer share.

/// One level of nested values.
class SRCSerializer::Nesting
{
public:
    explicit Nesting(SRCSerializer& serializer) : m_depth(serializer.m_depth) { ++m_depth; }
    ~Nesting() { --m_depth; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

    bool isTooDeep() const { return m_depth > kMaxNesting; }

private:
    unsigned& m_depth;
};

/// The time during which an array's values are read.
class SRCSerializer::Building
{
public:
    enum class Table
    {
        kJoin,
        kLeave,
    };

    Building(SRCSerializer& serializer, SRDataArray* array, Table table)
        : m_serializer(serializer), m_joined(table == Table::kJoin)
    {
        m_serializer.m_open.push_back(array);
        if (m_joined) {
            m_index = m_serializer.joinTable(array);
            m_serializer.m_objects[m_index].reading = true;
        }
    }
    ~Building()
    {
        if (m_joined)
            m_serializer.m_objects[m_index].reading = false;
        m_serializer.m_open.pop_back();
    }
    Building(const Building&) = delete;
    Building& operator=(const Building&) = delete;

private:
    SRCSerializer& m_serializer;
    const bool m_joined;
    unsigned m_index = 0;
};
