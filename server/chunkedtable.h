// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace krx {

/// A growing list whose entries never move: growing takes no more memory than the result. Unlike a std::deque
/// it allocates nothing before its first entry, as most messages have none. An index must be below size().
/// push_back throws std::bad_alloc and then changes nothing. For one thread.
template <typename T>
class ChunkedTable
{
public:
    std::size_t size() const { return m_size; }
    T& operator[](std::size_t i) { return m_chunks[i / kChunk][i % kChunk]; }
    const T& operator[](std::size_t i) const { return m_chunks[i / kChunk][i % kChunk]; }

    void push_back(T&& entry)
    {
        if (m_size == m_chunks.size() * kChunk) {
            std::vector<T> chunk;
            chunk.reserve(kChunk);
            m_chunks.push_back(std::move(chunk));
        }
        m_chunks.back().push_back(std::move(entry));
        ++m_size;
    }
    void pop_back()
    {
        m_chunks.back().pop_back();
        if (--m_size % kChunk == 0)
            m_chunks.pop_back();
    }
    void clear()
    {
        m_chunks.clear();
        m_size = 0;
    }

private:
    static constexpr std::size_t kChunk = 64;

    std::vector<std::vector<T>> m_chunks;
    std::size_t m_size = 0;
};

}  // namespace krx
