// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/memorybudget.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace krx::mp4 {

/// Texts and other bytes of a file that stay as long as the file is open: many short ones share a block.
class ByteStore
{
public:
    /// Room for n bytes, valid as long as the store. Charges the budget; throws MemoryLimitError.
    char* add(std::size_t n, MemoryBudget& budget)
    {
        if (n > kOwnBlock)
            return makeBlock(n, budget);
        if (n > m_left) {
            m_at = makeBlock(kBlock, budget);
            m_left = kBlock;
        }
        m_left -= n;
        return std::exchange(m_at, m_at + n);
    }
    std::size_t reportMemorySize() const { return m_bytes + m_blocks.capacity() * sizeof(m_blocks[0]); }

private:
    static constexpr std::size_t kBlock = 65536;
    /// More bytes than this get their own block, so that little of a shared block stays unused.
    static constexpr std::size_t kOwnBlock = kBlock / 8;

    char* makeBlock(std::size_t n, MemoryBudget& budget)
    {
        budget.charge(n + kBlockOverhead);
        m_blocks.push_back(std::unique_ptr<char[]>(new char[n]));
        m_bytes += n;
        return m_blocks.back().get();
    }

    std::vector<std::unique_ptr<char[]>> m_blocks;
    std::size_t m_bytes = 0;
    char* m_at = nullptr;
    std::size_t m_left = 0;
};

}  // namespace krx::mp4
