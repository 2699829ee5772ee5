// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRCSerializer.h"

#include <algorithm>
#include <cstdint>

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
        : m_serializer(serializer),
          m_joined(table == Table::kJoin),
          m_index(m_joined ? serializer.joinTable(array) : 0)
    {
        m_serializer.m_open.push_back(array);
        if (m_joined)
            m_serializer.m_objects[m_index].amf3Hint = kBeingRead;
    }
    ~Building()
    {
        if (m_joined)
            m_serializer.m_objects[m_index].amf3Hint = SRData::kNoHint;
        m_serializer.m_open.pop_back();
    }
    Building(const Building&) = delete;
    Building& operator=(const Building&) = delete;

private:
    SRCSerializer& m_serializer;
    const bool m_joined;
    const unsigned m_index;
};

/// A count of elements yet to be read. Each takes at least one byte.
class SRCSerializer::Promise
{
public:
    Promise(SRCSerializer& serializer, unsigned count)
        : m_serializer(serializer), m_credible(credible(serializer, count)), m_left(count)
    {
        m_serializer.m_promised += count;
    }
    ~Promise() { m_serializer.m_promised -= m_left; }
    Promise(const Promise&) = delete;
    Promise& operator=(const Promise&) = delete;

    /// The elements that fit in the bytes that no other promise needs.
    int room() const { return m_credible; }
    /// Counts one element as read. False when all are.
    bool takeOne()
    {
        if (m_left == 0)
            return false;
        --m_left;
        --m_serializer.m_promised;
        return true;
    }

private:
    static int credible(const SRCSerializer& serializer, unsigned count)
    {
        const std::uint64_t left = serializer.getRemaining();
        return static_cast<int>(std::min<std::uint64_t>(count, left - std::min(left, serializer.m_promised)));
    }

    SRCSerializer& m_serializer;
    const int m_credible;
    unsigned m_left;
};

/// Where writing a value began, to go back there.
class SRCSerializer::WriteMark
{
public:
    explicit WriteMark(SRCSerializer& serializer)
        : m_serializer(serializer),
          m_position(serializer.getPosition()),
          m_objects(serializer.m_nextObject),
          m_strings(serializer.stringTableSize())
    {
    }

    int goBack()
    {
        m_serializer.rewindTo(m_position);
        m_serializer.shrinkTable(m_objects);
        m_serializer.shrinkStringTable(m_strings);
        m_serializer.m_writeFailed = true;
        m_serializer.m_writeBroken = true;
        return kObjectEndType;
    }

private:
    SRCSerializer& m_serializer;
    const unsigned m_position;
    const unsigned m_objects;
    const std::size_t m_strings;
};

// Array kinds of the carriers of values that are no objects.
inline constexpr int kArrayCarrier = 9;
inline constexpr int kObjectCarrier = 10;
inline constexpr int kDateCarrier = 11;
inline constexpr int kByteArrayCarrier = 12;
inline constexpr int kXMLCarrier = 15;
