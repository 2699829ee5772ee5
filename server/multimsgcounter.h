// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <array>
#include <cstddef>

namespace krx {

/// Counts messages by type, a MessageType without flags. Types above 23 are not counted. For one thread.
class MultiMsgCounter
{
public:
    static constexpr std::size_t kTypes = 24;

    void addOne(char type)
    {
        if (slot(type) < kTypes)
            ++m_counts[slot(type)];
    }
    /// Adds all counters of other.
    void add(const MultiMsgCounter& other)
    {
        for (std::size_t i = 0; i < kTypes; ++i)
            m_counts[i] += other.m_counts[i];
    }
    /// Takes off all counters of other, which must not be larger.
    void subtract(const MultiMsgCounter& other)
    {
        for (std::size_t i = 0; i < kTypes; ++i)
            m_counts[i] -= other.m_counts[i];
    }
    unsigned long long getCount(char type) const { return slot(type) < kTypes ? m_counts[slot(type)] : 0; }
    unsigned long long getTotal() const
    {
        unsigned long long total = 0;
        for (const unsigned long long count : m_counts)
            total += count;
        return total;
    }
    void clear() { m_counts.fill(0); }

private:
    static std::size_t slot(char type) { return static_cast<unsigned char>(type); }

    std::array<unsigned long long, kTypes> m_counts{};
};

}  // namespace krx
