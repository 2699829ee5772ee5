// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"
#include "util/autofile.h"

#include <cstddef>
#include <memory>
#include <span>
#include <sys/stat.h>

class IKrxFileIo;

/// Reads a file through a window that moves forward with large positional reads. What it hands out points
/// into the window and is valid until the next operation. The file's length is taken once, at construction; a
/// file that has become shorter since is a read error.
///
/// Throws StreamParseError: kCannotOpenFile at construction, kFileReadError for bytes that are not there.
class ZmvReader
{
public:
    /// Opens a regular file; anything else is refused without waiting for it. io must outlive the reader.
    ZmvReader(IKrxFileIo& io, const SRString& path);

    krx::util::FilePos length() const { return m_length; }
    krx::util::FilePos position() const { return m_base + static_cast<krx::util::FilePos>(m_cursor); }
    /// The status that the file had when it was opened.
    const struct stat64& status() const { return m_status; }
    int descriptor() const { return m_file.get(); }
    /// Bytes held.
    std::size_t memory() const { return m_capacity; }
    /// Whether st is the status of the very file that is read.
    bool isSameFile(const struct stat64& st) const;

    /// False, and nothing changes, for a negative offset. An offset beyond the end is accepted; reading there
    /// fails.
    bool seek(krx::util::FilePos offset);
    /// The next n bytes, in one piece.
    const unsigned char* take(std::size_t n)
    {
        if (n > m_filled - m_cursor)
            fetch(n);
        const unsigned char* bytes = m_window + m_cursor;
        m_cursor += n;
        return bytes;
    }
    /// The next bytes as far as the window holds them. Nothing is read.
    std::span<const unsigned char> ahead() const { return {m_window + m_cursor, m_filled - m_cursor}; }
    /// At least one and at most max of the next bytes, as many as come at once.
    std::span<const unsigned char> takeSome(krx::util::FilePos max);
    /// Reads n bytes and drops them.
    void pass(std::size_t n)
    {
        if (n <= m_filled - m_cursor)
            m_cursor += n;
        else
            passWindows(n);
    }

private:
    void fetch(std::size_t n);
    /// Makes the window begin at start, the current position, with room for size bytes; what it holds from
    /// there on stays.
    void moveWindow(krx::util::FilePos start, std::size_t size);
    void passWindows(std::size_t n);
    /// Throws when fewer than n bytes are left.
    void require(std::size_t n) const;

    IKrxFileIo& m_io;
    struct stat64 m_status
    {
    };
    IoAutoFile m_file;
    krx::util::FilePos m_length = 0;
    std::unique_ptr<unsigned char[]> m_memory;
    std::size_t m_capacity = 0;         ///< bytes of the memory
    unsigned char* m_window = nullptr;  ///< in the memory
    krx::util::FilePos m_base = 0;      ///< file offset of the window's first byte
    std::size_t m_cursor = 0;           ///< next byte, as an offset in the window
    std::size_t m_filled = 0;           ///< bytes that the window holds
};
