// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace krx {

/// Finds entries of a list by a hash: a table of their indices with linear probing and slots of 4 bytes, at
/// most three quarters of them used. The list is kept elsewhere. Entries at its end may be dropped and
/// replaced: every candidate is compared with the list. The list has fewer than 2^31 entries. For one thread.
class HashIndex
{
public:
    /// The first entry added with that hash for which isSame(index) is true; -1 when there is none. isSame
    /// must be false for an index past the end of the list.
    template <typename IsSame>
    int find(std::uint64_t hash, IsSame isSame) const
    {
        if (m_slots.empty())
            return -1;
        for (std::size_t slot = slotOf(hash); m_slots[slot] != 0; slot = next(slot)) {
            if (isSame(m_slots[slot] - 1))
                return static_cast<int>(m_slots[slot] - 1);
        }
        return -1;
    }

    /// Adds entry index of a list of count entries. hashOf(i): the hash of any of them. Throws
    /// std::bad_alloc.
    template <typename HashOf>
    void add(std::size_t index, std::size_t count, HashOf hashOf)
    {
        if ((m_used + 1) * 4 <= m_slots.size() * 3) {
            put(hashOf(index), index);
            return;
        }
        std::vector<std::uint32_t>(std::max(kLeast, std::bit_ceil(count * 2))).swap(m_slots);
        m_used = 0;
        for (std::size_t i = 0; i < count; ++i)
            put(hashOf(i), i);
    }

    void clear()
    {
        m_slots.clear();
        m_used = 0;
    }

private:
    static constexpr std::size_t kLeast = 16;

    std::size_t next(std::size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }

    // The table's own address, which no input knows, decides which hashes get in each other's way.
    std::size_t slotOf(std::uint64_t hash) const
    {
        hash ^= reinterpret_cast<std::uintptr_t>(m_slots.data());
        hash = (hash ^ hash >> 30) * 0xBF58476D1CE4E5B9;
        hash = (hash ^ hash >> 27) * 0x94D049BB133111EB;
        return static_cast<std::size_t>(hash ^ hash >> 31) & (m_slots.size() - 1);
    }

    void put(std::uint64_t hash, std::size_t index)
    {
        std::size_t slot = slotOf(hash);
        while (m_slots[slot] != 0)
            slot = next(slot);
        m_slots[slot] = static_cast<std::uint32_t>(index + 1);
        ++m_used;
    }

    std::vector<std::uint32_t> m_slots;
    std::size_t m_used = 0;
};

}  // namespace krx
