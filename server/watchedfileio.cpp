// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/watchedfileio.h"

#include "util/SRException.h"
#include "util/SRString.h"

#include <cerrno>
#include <utility>

namespace {

constexpr long long kNoOffset = -1;

std::string bytesOf(const SRString& path)
{
    return std::string(path.toMultiByte().view());
}

}  // namespace

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

template <typename Name>
void WatchedFileIo::record(long long offset, Name name)
{
    const int error = errno;
    if (error == 0 || m_failure)
        return;
    std::string file = krx::util::unlessOutOfMemory(name, [] { return std::string(); });
    m_failure = Failure{error, std::move(file), offset};
    errno = error;
}

std::string WatchedFileIo::nameOf(int fd) const
{
    const auto found = m_names.find(fd);
    return found == m_names.end() ? std::string() : found->second;
}

// errno is cleared before each call, so that it tells a system call that failed from a refusal.

int WatchedFileIo::open(const SRString& path, int flags, int mode, struct stat64* st)
{
    if (isCancelled())
        return -1;
    errno = 0;
    const int fd = m_io.open(path, flags, mode, st);
    if (fd < 0) {
        record(kNoOffset, [&] { return bytesOf(path); });
        return fd;
    }
    const auto keepName = [&] {
        m_names.insert_or_assign(fd, bytesOf(path));
        return true;
    };
    krx::util::unlessOutOfMemory(keepName, [] { return false; });
    return fd;
}

int WatchedFileIo::close(int fd, bool wait)
{
    m_names.erase(fd);
    return m_io.close(fd, wait);
}

int WatchedFileIo::read(int fd, long long offset, void* buf, unsigned n)
{
    if (isCancelled())
        return -1;
    errno = 0;
    const int got = m_io.read(fd, offset, buf, n);
    if (got < 0)
        record(offset, [&] { return nameOf(fd); });
    else if (m_progress)
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
    const int result = m_io.fstat(fd, st, mode);
    if (result < 0)
        record(kNoOffset, [&] { return nameOf(fd); });
    return result;
}

int WatchedFileIo::stat(const SRString& path, struct stat64* st, Mode mode)
{
    errno = 0;
    const int result = m_io.stat(path, st, mode);
    if (result < 0)
        record(kNoOffset, [&] { return bytesOf(path); });
    return result;
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
