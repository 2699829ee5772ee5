// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/watchedfileio.h"

#include <cerrno>
#include <fcntl.h>
#include <utility>

WatchedFileIo::WatchedFileIo(IKrxFileIo& io, const std::atomic<bool>* cancel, Progress progress)
    : m_io(io), m_cancel(cancel), m_progress(std::move(progress))
{
}

bool WatchedFileIo::isCancelled()
{
    if (!m_cancel || !m_cancel->load(std::memory_order_relaxed))
        return false;
    m_wasCancelled = true;
    errno = ECANCELED;
    return true;
}

int WatchedFileIo::record(int result)
{
    if (result < 0 && m_failure == 0)
        m_failure = errno;
    return result;
}

// errno is cleared before each call, so that it tells a system call that failed from a refusal.

int WatchedFileIo::open(const SRString& path, int flags, int mode, struct stat64* st)
{
    if (isCancelled())
        return -1;
    if ((flags & O_ACCMODE) == O_RDONLY) {
        errno = 0;
        const int fd = m_io.open(path, flags | O_NOATIME, mode, st);
        // Only the owner may leave the time of access alone.
        if (fd >= 0 || errno != EPERM)
            return record(fd);
    }
    errno = 0;
    return record(m_io.open(path, flags, mode, st));
}

int WatchedFileIo::close(int fd, bool wait)
{
    return m_io.close(fd, wait);
}

int WatchedFileIo::read(int fd, long long offset, void* buf, unsigned n)
{
    if (isCancelled())
        return -1;
    errno = 0;
    const int got = record(m_io.read(fd, offset, buf, n));
    if (got >= 0 && m_progress)
        m_progress(got, offset + got);
    return got;
}

int WatchedFileIo::write(int fd, long long offset, void* buf, unsigned n)
{
    return m_io.write(fd, offset, buf, n);
}

int WatchedFileIo::fstat(int fd, struct stat64* st, Mode mode)
{
    errno = 0;
    return record(m_io.fstat(fd, st, mode));
}

int WatchedFileIo::stat(const SRString& path, struct stat64* st, Mode mode)
{
    errno = 0;
    if (!m_statPath || *m_statPath != path) {
        const int result = record(m_io.stat(path, st, mode));
        m_statPath.reset();
        if (result >= 0) {
            m_status = *st;
            m_statPath = path;
        }
        return result;
    }
    if (mode != kAny && (mode == kDirectory) != S_ISDIR(m_status.st_mode))
        return -1;
    *st = m_status;
    return 0;
}

int WatchedFileIo::remove(const SRString& path, IKrxFileAdaptor::RemoveFlags flags, bool wait)
{
    return m_io.remove(path, flags, wait);
}

int WatchedFileIo::createDir(const SRString& path)
{
    return m_io.createDir(path);
}

int WatchedFileIo::readDir(const SRString& pattern, std::vector<SRString>& names)
{
    return m_io.readDir(pattern, names);
}
