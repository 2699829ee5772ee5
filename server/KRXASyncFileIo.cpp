// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/KRXASyncFileIo.h"

#include "server/KRXThreadMutexDelegate.h"
#include "util/SRException.h"
#include "util/SRString.h"

#include <cerrno>
#include <cstdio>
#include <utility>

namespace {

// One call on its way: made on a pool thread for the thread that waits for it.
class KrxASyncIoHandler
{
public:
    explicit KrxASyncIoHandler(const std::function<int()>& call) : m_call(call) {}

    void run()
    {
        m_result = m_call();
        m_error = errno;
        // The waiting thread owns this object: it may be gone after this.
        m_waiter.resume(m_done);
    }
    int wait()
    {
        m_waiter.suspend(m_done);
        errno = m_error;
        return m_result;
    }

private:
    const std::function<int()>& m_call;
    KRXThreadMutexDelegate& m_waiter = KRXThreadMutexDelegate::current();
    int m_result = -1;
    int m_error = 0;
    bool m_done = false;
};

}  // namespace

SimpleKrxASyncFileIo::SimpleKrxASyncFileIo(SRThreadPool* pool, krx::util::VerboseLevel_ verbose)
    : m_pool(pool), m_verbose(verbose)
{
}

int SimpleKrxASyncFileIo::runInPool(const char* operation, const std::function<int()>& call)
{
    int result = -1;
    if (m_pool->isPoolThread()) {
        // Waiting for another pool thread could wait for ever.
        result = call();
    } else {
        KrxASyncIoHandler handler(call);
        const auto post = [&] { return m_pool->post([&handler] { handler.run(); }); };
        if (krx::util::unlessOutOfMemory(post, [] { return false; }))
            result = handler.wait();
    }
    if (result < 0 && m_verbose >= krx::util::kVerboseFailures)
        std::fprintf(stderr, "%s failed: %d\n", operation, result);
    return result;
}

int SimpleKrxASyncFileIo::open(const SRString& path, int flags, int mode, struct stat64* st)
{
    return run("open", [&] { return m_io.open(path, flags, mode, st); });
}

int SimpleKrxASyncFileIo::close(int fd, bool wait)
{
    return run("close", [&] { return m_io.close(fd, wait); });
}

int SimpleKrxASyncFileIo::read(int fd, long long offset, void* buf, unsigned n)
{
    return run("read", [&] { return m_io.read(fd, offset, buf, n); });
}

int SimpleKrxASyncFileIo::write(int fd, long long offset, void* buf, unsigned n)
{
    return run("write", [&] { return m_io.write(fd, offset, buf, n); });
}

int SimpleKrxASyncFileIo::fstat(int fd, struct stat64* st, Mode mode)
{
    return run("fstat", [&] { return m_io.fstat(fd, st, mode); });
}

int SimpleKrxASyncFileIo::stat(const SRString& path, struct stat64* st, Mode mode)
{
    return run("stat", [&] { return m_io.stat(path, st, mode); });
}

int SimpleKrxASyncFileIo::remove(const SRString& path, IKrxFileAdaptor::RemoveFlags flags, bool wait)
{
    return run("remove", [&] { return m_io.remove(path, flags, wait); });
}

int SimpleKrxASyncFileIo::createDir(const SRString& path)
{
    return run("createDir", [&] { return m_io.createDir(path); });
}

int SimpleKrxASyncFileIo::readDir(const SRString& pattern, std::vector<SRString>& names)
{
    return run("readDir", [&] { return m_io.readDir(pattern, names); });
}
