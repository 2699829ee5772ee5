// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/zmvreader.h"

#include "interfaces/IKrxFileIo.h"
#include "modules/streams/streamparseerror.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fcntl.h>

using krx::streams::StreamParseError;
using krx::util::FilePos;

namespace {

/// Large enough that the reads cost as little as those of a plain copy, small enough to stay in the
/// processor's cache between the read and the check.
constexpr std::size_t kWindowSize = std::size_t{1} << 20;

/// A byte has the same place in a page of memory as in a page of the file. Where the two are a few bytes
/// apart, processors copy several times slower.
constexpr std::size_t kPageSize = 4096;

}  // namespace

ZmvReader::ZmvReader(IKrxFileIo& io, const SRString& path)
    : m_io(io), m_file(&io, path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0, nullptr)
{
    if (m_io.fstat(m_file.get(), &m_status, IKrxFileIo::kFile) < 0 || !S_ISREG(m_status.st_mode))
        throw StreamParseError(krx::streams::kCannotOpenFile);
    m_length = m_status.st_size;
    (void)::posix_fadvise(m_file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

bool ZmvReader::isSameFile(const struct stat64& st) const
{
    return st.st_dev == m_status.st_dev && st.st_ino == m_status.st_ino;
}

bool ZmvReader::seek(FilePos offset)
{
    if (offset < 0)
        return false;
    if (offset >= m_base && offset - m_base <= static_cast<FilePos>(m_filled)) {
        m_cursor = static_cast<std::size_t>(offset - m_base);
    } else {
        m_base = offset;
        m_cursor = 0;
        m_filled = 0;
    }
    return true;
}

std::span<const unsigned char> ZmvReader::takeSome(FilePos max)
{
    if (m_cursor == m_filled)
        fetch(1);
    const auto available = static_cast<FilePos>(m_filled - m_cursor);
    const auto n = static_cast<std::size_t>(std::min(max, available));
    return {take(n), n};
}

void ZmvReader::passWindows(std::size_t n)
{
    require(n);
    while (n > 0)
        n -= takeSome(static_cast<FilePos>(n)).size();
}

void ZmvReader::require(std::size_t n) const
{
    const FilePos rest = m_length - position();
    if (rest < 0 || n > static_cast<std::size_t>(rest))
        throw StreamParseError(krx::streams::kFileReadError);
}

void ZmvReader::moveWindow(FilePos start, std::size_t size)
{
    const unsigned char* const kept = m_window + m_cursor;
    const std::size_t keptSize = m_filled - m_cursor;
    std::unique_ptr<unsigned char[]> former;  // has what is kept until it is moved
    if (size + kPageSize > m_capacity) {
        former.reset(new unsigned char[size + kPageSize]);
        former.swap(m_memory);
        m_capacity = size + kPageSize;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(m_memory.get());
    m_window = m_memory.get() + (static_cast<std::uintptr_t>(start) - address) % kPageSize;
    if (keptSize > 0)
        std::memmove(m_window, kept, keptSize);
    m_base = start;
    m_cursor = 0;
    m_filled = keptSize;
}

void ZmvReader::fetch(std::size_t n)
{
    // So the window never grows beyond what the file holds.
    require(n);
    const FilePos start = position();
    const auto rest = static_cast<std::size_t>(m_length - start);
    const std::size_t toPageEnd = kWindowSize - static_cast<std::size_t>(start) % kPageSize;
    const std::size_t wanted = std::max(n, std::min(rest, toPageEnd));
    moveWindow(start, wanted);
    while (m_filled < n) {
        const int got = m_io.read(m_file.get(), m_base + static_cast<FilePos>(m_filled), m_window + m_filled,
                                  static_cast<unsigned>(wanted - m_filled));
        if (got <= 0)
            throw StreamParseError(krx::streams::kFileReadError);
        m_filled += static_cast<std::size_t>(got);
    }
}
