// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

#include <cstddef>
#include <memory>

class IKrxFileIo;

namespace krx::mp4 {

/// A window of a file's bytes at the place of reading, for a reader that takes a few at a time, and jumps.
///
/// A read that continues from the window doubles it. After a jump the window is twice what was used since the
/// previous jump: a reader that hops from fragment to fragment needs one file read per fragment.
class FileWindow
{
public:
    /// Bytes that a window holds at most.
    static constexpr unsigned kLargest = 65536;

    /// io is not owned. smallest is the size of the window after a jump, in bytes, at most kLargest.
    FileWindow(IKrxFileIo* io, unsigned smallest);

    /// The n bytes at pos if the window has them, else null. Valid until the next call of load or release.
    const unsigned char* at(krx::util::FilePos pos, unsigned n)
    {
        const auto offset = static_cast<unsigned long long>(pos) - static_cast<unsigned long long>(m_start);
        if (offset > m_length || n > m_length - offset)
            return nullptr;
        m_used = static_cast<unsigned>(offset) + n;
        return m_bytes.get() + offset;
    }
    /// Moves the window to pos (not negative) and reads. Returns the n bytes there (at most kLargest), or
    /// null when the file ends before or cannot be read.
    const unsigned char* load(int handle, krx::util::FilePos pos, unsigned n);
    /// Forgets the bytes and gives back their memory.
    void release();
    /// Bytes held.
    std::size_t reportMemorySize() const { return m_capacity; }

private:
    IKrxFileIo* m_io;
    unsigned m_smallest;
    std::unique_ptr<unsigned char[]> m_bytes;
    unsigned m_capacity = 0;
    krx::util::FilePos m_start = 0;
    unsigned m_length = 0;             ///< bytes read, from m_start on
    unsigned m_used = 0;               ///< bytes from m_start to the end of the last ones asked for
    unsigned m_size = 0;               ///< bytes that the last load asked for
    krx::util::FilePos m_stretch = 0;  ///< where the last jump went
};

}  // namespace krx::mp4
