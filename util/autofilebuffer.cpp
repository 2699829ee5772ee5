// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/autofilebuffer.h"

#include "interfaces/IKrxFileIo.h"
#include "util/SRException.h"
#include "util/krxassert.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace krx::util {

namespace {

constexpr const char* kAutoFileBufferPlace = "util/autofilebuffer";
constexpr int kNoIoLine = 58;

/// Initial size of a larger cache, which doubles when a refill fills it.
constexpr unsigned kFirstMemory = 64 * 1024;

/// Bytes asked of one read: the count must fit what a read returns.
constexpr unsigned kMaxRead = 0x40000000;

}  // namespace

AutoFileBuffer::AutoFileBuffer(unsigned cacheSize, IKrxFileIo* io, AutoFileBuffer* parent)
    : m_cacheSize(std::min(cacheSize, kMaxRead)), m_parent(parent), m_io(io)
{
    if (!m_io && !m_parent)
        assertFailed(kAutoFileBufferPlace, kNoIoLine);
}

void AutoFileBuffer::seek(int fd, FilePos pos)
{
    sanityCheck(pos, false);
    seekChecked(fd, pos);
}

void AutoFileBuffer::seekChecked(int fd, FilePos pos)
{
    m_pos = pos;
    const bool inside = fd == m_fd && pos >= m_cacheStart && pos - m_cacheStart < m_cacheLength;
    if (inside && !m_directRead)
        return;
    m_fd = fd;
    m_cacheStart = pos;
    m_cacheLength = 0;
}

unsigned AutoFileBuffer::sequentialRead(void* buf, unsigned n, bool allowShort, unsigned line,
                                        const char* file, bool quiet)
{
    auto* out = static_cast<unsigned char*>(buf);
    unsigned done = 0;
    errno = 0;
    while (done < n) {
        unsigned got = std::min(available(), n - done);
        if (got != 0) {
            std::memcpy(out + done, m_memory.get() + (m_pos - m_cacheStart), got);
        } else if (m_directRead || n - done >= m_cacheSize || !provideMemory()) {
            got = readAt(m_fd, m_pos, out + done, n - done);
            if (got == 0)
                break;
        } else if (loadBuffer() == 0) {
            break;
        }
        m_pos += got;
        done += got;
    }
    if (done == n || allowShort || quiet)
        return done;

    const SRMBString text =
        SRMBString::format("ZMV file read %s, wanted %u bytes, got %u file descriptor %d in file %s line %u",
                           done != 0 ? "underrun" : "failed", n, done, m_fd, file ? file : "", line);
    std::perror(text.c_str());
    throw FileReadException(SRString(text));
}

unsigned AutoFileBuffer::indexedRead(int fd, FilePos pos, void* buf, unsigned n, bool allowShort,
                                     unsigned line, const char* file, bool quiet)
{
    if (!sanityCheck(pos, quiet))
        return 0;
    seekChecked(fd, pos);
    return sequentialRead(buf, n, allowShort, line, file, quiet);
}

unsigned AutoFileBuffer::directRead(int fd, FilePos pos, void* buf, unsigned n)
{
    sanityCheck(pos, false);
    if (m_parent)
        return m_parent->directRead(fd, pos, buf, n);
    auto* out = static_cast<unsigned char*>(buf);
    unsigned done = 0;
    while (done < n) {
        const unsigned got = readAt(fd, pos + done, out + done, n - done);
        if (got == 0)
            break;
        done += got;
    }
    if (done == 0 && n != 0)
        throw FileReadException(
            SRString::format(L"ZMV file read failed, wanted %u bytes, got 0 file descriptor %d", n, fd));
    return done;
}

void AutoFileBuffer::setDirectRead(bool direct)
{
    m_directRead = direct;
    if (direct)
        m_cacheLength = 0;
}

AutoFileBuffer::Range AutoFileBuffer::isInRange(FilePos pos, unsigned n) const
{
    if (m_cacheLength == 0)
        return Range::kAfter;
    // Distances, not sums: a position may be as large as its type allows.
    if (pos >= m_cacheStart) {
        const FilePos offset = pos - m_cacheStart;
        if (offset >= m_cacheLength)
            return Range::kAfter;
        return n <= m_cacheLength - offset ? Range::kInside : Range::kPartlyInside;
    }
    const auto gap = static_cast<unsigned long long>(m_cacheStart) - static_cast<unsigned long long>(pos);
    return n > gap ? Range::kPartlyInside : Range::kBefore;
}

bool AutoFileBuffer::sanityCheck(FilePos pos, bool quiet)
{
    if (pos >= 0)
        return true;
    if (quiet)
        return false;
    throw FileReadException(SRString::format(L"Invalid file position %lld", pos));
}

unsigned AutoFileBuffer::loadBuffer()
{
    m_cacheStart = m_pos;
    m_cacheLength = 0;
    if (!m_directRead && provideMemory()) {
        m_cacheLength = readAt(m_fd, m_pos, m_memory.get(), m_memorySize);
        m_memoryWasFilled = m_cacheLength == m_memorySize;
    }
    return m_cacheLength;
}

void AutoFileBuffer::flush()
{
    m_fd = -1;
    m_cacheStart = m_pos;
    m_cacheLength = 0;
}

void AutoFileBuffer::release()
{
    flush();
    m_memory.reset();
    m_memorySize = 0;
    m_memoryWasFilled = false;
}

unsigned AutoFileBuffer::available() const
{
    const FilePos offset = m_pos - m_cacheStart;
    return offset >= 0 && offset < m_cacheLength ? m_cacheLength - static_cast<unsigned>(offset) : 0;
}

/// One positional read, through the parent where there is one; 0 at the end of the file and on failure.
unsigned AutoFileBuffer::readAt(int fd, FilePos pos, void* buf, unsigned n)
{
    const FilePos room = std::numeric_limits<FilePos>::max() - pos;
    n = static_cast<unsigned>(std::min<FilePos>(std::min(n, kMaxRead), room));
    if (m_parent)
        return m_parent->indexedRead(fd, pos, buf, n, true, 0, kAutoFileBufferPlace, true);
    if (!m_io || fd < 0)
        return 0;
    const int got = m_io->read(fd, pos, buf, n);
    return got > 0 ? std::min(static_cast<unsigned>(got), n) : 0;
}

/// Provides memory, and more of it after a refill that used all. Growing loses the window, so this is called
/// only when the position has left it.
bool AutoFileBuffer::provideMemory()
{
    unsigned wanted = std::min(m_cacheSize, kFirstMemory);
    if (m_memory)
        wanted = m_memoryWasFilled ? std::min(m_cacheSize, m_memorySize * 2) : m_memorySize;
    if (wanted <= m_memorySize)
        return m_memory != nullptr;

    std::unique_ptr<unsigned char[]> larger(new (std::nothrow) unsigned char[wanted]);
    if (!larger)
        return m_memory != nullptr;
    m_memory = std::move(larger);
    m_memorySize = wanted;
    m_memoryWasFilled = false;
    m_cacheLength = 0;
    return true;
}

}  // namespace krx::util
