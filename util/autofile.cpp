// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/autofile.h"

#include "interfaces/IKrxFileIo.h"
#include "util/SRException.h"
#include "util/SRFileUtil.h"
#include "util/krxassert.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <utility>

namespace {

constexpr const char* kAutoFilePlace = "util/autofile";
constexpr int kNoIoLine = 34;

}  // namespace

IoAutoFile::IoAutoFile(IKrxFileIo* io, const SRString& path, int flags, int mode, struct stat64* st)
    : m_io(io)
{
    if (m_io)
        m_fd = m_io->open(path, flags, mode, st);
    else
        krx::util::assertFailed(kAutoFilePlace, kNoIoLine);
}

int IoAutoFile::release()
{
    return std::exchange(m_fd, -1);
}

int IoAutoFile::close()
{
    const int fd = release();
    return fd < 0 ? 0 : m_io->close(fd, true);
}

namespace krx::util {

namespace {

constexpr int kReadWrite = 0600;

/// Bytes asked of one call: the count must fit what the call returns.
constexpr unsigned kMaxTransfer = 0x40000000;

/// The text is left out where there is no memory for it.
template <typename Value>
[[noreturn]] void fail(const wchar_t* pattern, const Value& value, long long offset = -1)
{
    throw FileReadException(
        unlessOutOfMemory([&] { return SRString::format(pattern, value); }, [] { return SRString(); }),
        offset);
}

[[noreturn]] void throwNotOpened(const SRString& path)
{
    fail(L"Could not open file:%s", path);
}

[[noreturn]] void throwTooLarge(unsigned long long size)
{
    fail(L"Read buffer size too large to initialize, size = %llu", size);
}

[[noreturn]] void throwReadFailed(unsigned bytesRead, long long offset)
{
    fail(L"Failed to read file buffer, bytesRead = %u", bytesRead, offset);
}

[[noreturn]] void throwWriteFailed(int errorCode)
{
    fail(L"FileIO write failed, errorCode = %d", errorCode);
}

SRBuffer makeBuffer(unsigned size)
{
    return unlessOutOfMemory([&] { return SRBuffer(size); }, [&]() -> SRBuffer { throwTooLarge(size); });
}

SRString copyOf(const SRString& path)
{
    return unlessOutOfMemory([&] { return path; }, []() -> SRString { throw FileReadException(); });
}

/// The directory of a path; empty when it has none.
SRString directoryOf(const SRString& path)
{
    SRString dir;
    SRString name;
    SRFileUtil::splitPath(path, dir, name);
    return dir;
}

}  // namespace

// AutoFileLoad.

AutoFileLoad::AutoFileLoad(const SRString& path, IKrxFileIo* io, SRBuffer room)
{
    // Opening a pipe would wait for its other end, so only regular files are opened.
    struct ::stat64 st = {};
    if (io && io->stat(path, &st, IKrxFileIo::kFile) == 0 && !S_ISREG(st.st_mode))
        throwNotOpened(path);

    const IoAutoFile file(io, path, O_RDONLY, kReadWrite, nullptr);
    if (file.get() < 0 || io->fstat(file.get(), &st, IKrxFileIo::kFile) < 0 || !S_ISREG(st.st_mode))
        throwNotOpened(path);
    const auto size = static_cast<unsigned long long>(std::max<FilePos>(st.st_size, 0));
    if (size > std::numeric_limits<unsigned>::max())
        throwTooLarge(size);
    if (size == 0)
        return;

    if (room.capacity() < size) {
        room = SRBuffer();  // freed before the next one is made
        room = makeBuffer(static_cast<unsigned>(size));
    }
    m_buffer = SRBuffer(room.memory(), 0, 0);
    unsigned done = 0;
    while (done < size) {
        const unsigned wanted = std::min(static_cast<unsigned>(size) - done, kMaxTransfer);
        const int got = io->read(file.get(), done, m_buffer.base() + done, wanted);
        if (got < 0)
            throwReadFailed(done, done);
        if (got == 0)
            break;
        done += std::min(static_cast<unsigned>(got), wanted);
    }
    m_buffer.setEnd(done);
}

void AutoFileLoad::read(void* out, unsigned n)
{
    const unsigned count = std::min(n, remaining());
    if (count != 0)
        std::memcpy(out, m_buffer.data() + m_pos, count);
    m_pos += count;
    if (count < n)
        throwReadFailed(count, m_pos);
}

// AutoFileSave.

AutoFileSave::AutoFileSave(const SRString& path, IKrxFileIo* io, unsigned capacity)
    : m_path(copyOf(path)), m_io(io), m_buffer(makeBuffer(capacity))
{
}

AutoFileSave::AutoFileSave(const SRString& path, IKrxFileIo* io, const SRBuffer& buffer)
    : m_path(copyOf(path)), m_io(io), m_buffer(buffer), m_shared(true)
{
}

void AutoFileSave::write(const void* bytes, unsigned n)
{
    if (n == 0)
        return;
    const unsigned length = m_buffer.length();
    const unsigned long long needed = static_cast<unsigned long long>(length) + n;
    const SRBuffer old = m_buffer;  // bytes may lie in it
    if (needed > m_buffer.capacity() - m_buffer.getStart() || m_shared) {
        unsigned long long capacity = std::max(m_buffer.capacity(), 1U);
        while (capacity < needed)
            capacity *= 2;
        if (needed > std::numeric_limits<unsigned>::max())
            throwTooLarge(needed);
        SRBuffer larger = makeBuffer(static_cast<unsigned>(
            std::min<unsigned long long>(capacity, std::numeric_limits<unsigned>::max())));
        if (length != 0)
            std::memcpy(larger.base(), old.data(), length);
        larger.setEnd(length);
        m_buffer = larger;
        m_shared = false;
    }
    std::memcpy(m_buffer.data() + length, bytes, n);
    m_buffer.setEnd(m_buffer.getEnd() + n);
}

void AutoFileSave::flush()
{
    struct ::stat64 st = {};
    if (m_io && m_io->stat(m_path, &st, IKrxFileIo::kFile) < 0) {
        const SRString dir =
            unlessOutOfMemory([&] { return directoryOf(m_path); }, [] { return SRString(); });
        if (!dir.empty())
            m_io->createDir(dir);  // a failure shows when the file is opened
    }

    IoAutoFile file(m_io, m_path, O_WRONLY | O_CREAT | O_TRUNC, kReadWrite, nullptr);
    if (file.get() < 0)
        throwWriteFailed(file.get());
    const unsigned length = m_buffer.length();
    for (unsigned done = 0; done < length;) {
        const unsigned wanted = std::min(length - done, kMaxTransfer);
        const int written = m_io->write(file.get(), done, m_buffer.data() + done, wanted);
        if (written < 0)
            throwWriteFailed(written);
        done += std::min(static_cast<unsigned>(written), wanted);
        if (static_cast<unsigned>(written) != wanted)
            fail(L"FileIO write failed, bytesWritten = %u", done);
    }
    // What the system could not store may show only now.
    const int closed = file.close();
    if (closed < 0)
        throwWriteFailed(closed);
}

}  // namespace krx::util
