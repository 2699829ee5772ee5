// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4cursor.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

namespace krx::mp4 {

/// Where a boundary stands in the stream.
struct BoundaryPoint
{
    long long index = 0;  ///< of the next message
    unsigned time = 0;    ///< ms
};

/// The boundaries between the segments of a file, in order of both index and time. A file has one for every
/// 256 KiB of messages or for each larger message, with a position in every track. Only the difference to the
/// previous boundary is kept: some 10 to 15 bytes per track that moved, nothing for the others. Every 16th
/// boundary is whole, so at most 16 are read to find one.
class BoundaryList
{
public:
    /// Appends a state with as many tracks as the previous ones. Returns the bytes that it takes.
    std::size_t append(const CursorState& state);

    bool empty() const { return m_size == 0; }
    std::size_t size() const { return m_size; }
    /// The last one; 0 when there is none.
    BoundaryPoint back() const { return {m_last.index, m_last.time}; }
    /// Boundary i, which is below size().
    BoundaryPoint point(std::size_t i) const;
    CursorState state(std::size_t i) const;
    /// The first boundary whose index or time is not below value; size() when there is none.
    template <typename Value>
    std::size_t lowerBound(Value BoundaryPoint::*field, Value value) const;

    /// From now on the table page of every state is 0.
    void forgetTablePages() { m_onePage = true; }
    void clear() { *this = BoundaryList(); }
    /// Bytes held.
    std::size_t reportMemorySize() const;

private:
    static constexpr std::size_t kBlockSize = 16;

    /// kBlockSize boundaries.
    struct Block
    {
        BoundaryPoint first;
        unsigned size = 0;                       ///< of bytes
        std::unique_ptr<unsigned char[]> bytes;  ///< null in the last block, whose bytes are m_open
    };
    class Reader;

    CursorState emptyState() const { return {0, 0, 0, std::vector<TrackPosition>(m_last.tracks.size())}; }
    Reader readerAt(std::size_t block) const;

    std::deque<Block> m_blocks;
    std::vector<unsigned char> m_open;
    CursorState m_last;  ///< as it is stored
    std::size_t m_size = 0;
    std::size_t m_bytes = 0;  ///< of full blocks
    bool m_onePage = false;
};

}  // namespace krx::mp4
