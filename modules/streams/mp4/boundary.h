// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4cursor.h"

#include <cstddef>
#include <memory>

namespace krx::mp4 {

/// The boundary between two segments as it is kept. A file has one for every 256 KiB of messages, each with a
/// position in every track, so these are stored as numbers of variable length: about a third of their size.
class Boundary
{
public:
    Boundary() = default;
    explicit Boundary(const CursorState& state);

    CursorState unpack() const;

    long long getIndex() const { return m_index; }
    unsigned getTime() const { return m_time; }  ///< ms
    void setIndex(long long index) { m_index = index; }
    void setTime(unsigned time) { m_time = time; }
    void setTablePage(unsigned page) { m_tablePage = page; }
    /// Bytes held.
    std::size_t reportMemorySize() const { return sizeof(*this) + m_size; }

private:
    long long m_index = 0;
    unsigned m_time = 0;
    unsigned m_tablePage = 0;
    unsigned m_trackCount = 0;
    unsigned m_size = 0;  ///< of m_tracks
    std::unique_ptr<unsigned char[]> m_tracks;
};

}  // namespace krx::mp4
