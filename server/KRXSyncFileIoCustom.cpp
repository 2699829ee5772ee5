// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/KRXSyncFileIo.h"
#include "server/KRXThreadMutexDelegate.h"
#include "util/SRException.h"
#include "util/SRString.h"
#include "util/krxassert.h"

#include <string>

namespace {

constexpr char kCustomFileIoPlace[] = "server/KRXSyncFileIo";
constexpr int kBufferLine = 233;

/// False where there is no memory for the bytes.
bool toBytes(const SRString& path, SRMBString& bytes)
{
    const auto convert = [&] {
        bytes = path.toMultiByte();
        return true;
    };
    return krx::util::unlessOutOfMemory(convert, [] { return false; });
}

}  // namespace

/// One request under way, made by the thread that waits for it.
class CustomKrxSyncFileIo::RequestContext : public IKrxFileAdaptor::ICompletion
{
public:
    void complete(long long result, unsigned error) override
    {
        m_result = result;
        m_error = error;
        // The waiting thread owns this object: it may be gone after this.
        m_waiter.resume(m_done);
    }
    void wait() { m_waiter.suspend(m_done); }

    /// The request's result, -1 when it failed.
    int result() const { return m_error != 0 ? -1 : static_cast<int>(m_result); }
    unsigned error() const { return m_error; }
    struct stat64& status() { return m_status; }

private:
    long long m_result = 0;
    struct stat64 m_status
    {
    };
    unsigned m_error = 0;
    KRXThreadMutexDelegate& m_waiter = KRXThreadMutexDelegate::current();
    bool m_done = false;
};

CustomKrxSyncFileIo::CustomKrxSyncFileIo(IKrxFileAdaptor* adaptor, IKRXLog* log,
                                         const CustomKrxSyncFileIoConfig& config)
    : m_adaptor(adaptor), m_log(log), m_config(config)
{
}

void CustomKrxSyncFileIo::suspend(RequestContext& context)
{
    context.wait();
}

template <typename... Args>
void CustomKrxSyncFileIo::log(IKRXLog::Level level, const wchar_t* pattern, const Args&... args) const
{
    // Without memory the line is missing.
    krx::util::unlessOutOfMemory([&] { m_log->log(level, SRString::format(pattern, args...)); }, [] {});
}

template <typename... Args>
void CustomKrxSyncFileIo::logFailure(const wchar_t* pattern, const Args&... args) const
{
    if (m_log && m_config.logFailures)
        log(IKRXLog::kFailure, pattern, args...);
}

template <typename... Args>
void CustomKrxSyncFileIo::logWarning(const wchar_t* pattern, const Args&... args) const
{
    if (m_log && m_config.logWarnings)
        log(IKRXLog::kWarning, pattern, args...);
}

int CustomKrxSyncFileIo::open(const SRString& path, int flags, int mode, struct stat64* st)
{
    RequestContext context;
    SRMBString bytes;
    if (!toBytes(path, bytes) ||
        !m_adaptor->open(bytes.c_str(), flags, mode, st ? &context.status() : nullptr, context))
    {
        logFailure(L"OPEN failed file=%S, flags=%d, mode=%d", path, flags, mode);
        return -1;
    }
    suspend(context);
    if (context.error() != 0)
        logFailure(L"OPEN failed file=%S, flags=%d, mode=%d, err=%u", path, flags, mode, context.error());
    else if (context.result() < 0)
        logWarning(L"OPEN warning file=%S, flags=%d, mode=%d err=%d", path, flags, mode, context.result());
    else if (st)
        *st = context.status();
    return context.result();
}

int CustomKrxSyncFileIo::close(int fd, bool wait)
{
    RequestContext context;
    if (!m_adaptor->close(fd, wait, context)) {
        logFailure(L"CLOSE failed fd=%d, err=%u", fd, context.error());
        return -1;
    }
    suspend(context);
    if (context.error() != 0)
        logFailure(L"CLOSE failed fd=%d, err=%u", fd, context.error());
    return context.result();
}

int CustomKrxSyncFileIo::read(int fd, long long offset, void* buf, unsigned n)
{
    return transfer(&IKrxFileAdaptor::read, L"READ", fd, offset, buf, n);
}

int CustomKrxSyncFileIo::write(int fd, long long offset, void* buf, unsigned n)
{
    return transfer(&IKrxFileAdaptor::write, L"WRITE", fd, offset, buf, n);
}

template <typename Operation>
int CustomKrxSyncFileIo::transfer(Operation operation, const wchar_t* name, int fd, long long offset,
                                  void* buf, unsigned n)
{
    if (!buf) {
        krx::util::assertFailed(kCustomFileIoPlace, kBufferLine);
        return -1;
    }
    if (fd < 0)
        return fd;
    RequestContext context;
    if (!(m_adaptor->*operation)(fd, offset, buf, n, context)) {
        logFailure(L"%S failed fd=%d, len=%u, uOffset=%lld", name, fd, n, offset);
        return -1;
    }
    suspend(context);
    if (context.error() != 0)
        logFailure(L"%S failed fd=%d, len=%u, uOffset=%lld, err=%u", name, fd, n, offset, context.error());
    else if (context.result() != static_cast<long long>(n))
        logWarning(L"%S warning fd=%d, req=%u rec=%d uOffset=%lld", name, fd, n, context.result(), offset);
    return context.result();
}

int CustomKrxSyncFileIo::fstat(int fd, struct stat64* st, Mode mode)
{
    if (!st) {
        krx::util::assertFailed(kCustomFileIoPlace, kBufferLine);
        return -1;
    }
    if (fd < 0)
        return fd;
    RequestContext context;
    if (!m_adaptor->fstat(fd, &context.status(), context)) {
        logFailure(L"FSTAT failed fd=%d", fd);
        return -1;
    }
    suspend(context);
    if (context.error() != 0)
        logFailure(L"FSTAT failed fd=%d, err=%u", fd, context.error());
    if (context.result() != 0)
        return context.result();
    *st = context.status();
    if (SimpleKrxSyncFileIo::isOfKind(*st, mode))
        return 0;
    logFailure(L"Incorrect st_mode in FSTAT returned: st_mode=%llx fhandle=%d", st->st_mode, fd);
    return -1;
}

int CustomKrxSyncFileIo::stat(const SRString& path, struct stat64* st, Mode mode)
{
    if (!st) {
        krx::util::assertFailed(kCustomFileIoPlace, kBufferLine);
        return -1;
    }
    RequestContext context;
    SRMBString bytes;
    if (!toBytes(path, bytes) || !m_adaptor->stat(bytes.c_str(), &context.status(), context))
        return -1;
    // A file that does not exist is an ordinary answer: it is not logged.
    suspend(context);
    if (context.result() != 0)
        return context.result();
    *st = context.status();
    if (SimpleKrxSyncFileIo::isOfKind(*st, mode))
        return 0;
    logFailure(L"Incorrect st_mode in STAT returned: st_mode=%llx fname=%S", st->st_mode, path);
    return -1;
}

int CustomKrxSyncFileIo::remove(const SRString& path, IKrxFileAdaptor::RemoveFlags flags, bool wait)
{
    RequestContext context;
    SRMBString bytes;
    if (!toBytes(path, bytes) || !m_adaptor->remove(bytes.c_str(), flags, wait, context)) {
        logFailure(L"REMOVE error file=%S", path);
        return -1;
    }
    suspend(context);
    if (context.error() != 0)
        logFailure(L"REMOVE error file=%S, err=%u", path, context.error());
    return context.result();
}

int CustomKrxSyncFileIo::createDir(const SRString& path)
{
    RequestContext context;
    SRMBString bytes;
    if (!toBytes(path, bytes) || !m_adaptor->createDir(bytes.c_str(), context)) {
        logFailure(L"CREATEDIR failed file=%S", path);
        return -1;
    }
    suspend(context);
    if (context.error() != 0)
        logFailure(L"CREATEDIR failed file=%S, err=%u", path, context.error());
    return context.result();
}

int CustomKrxSyncFileIo::readDir(const SRString& pattern, std::vector<SRString>& names)
{
    RequestContext context;
    std::vector<std::string> found;
    SRMBString bytes;
    if (!toBytes(pattern, bytes) || !m_adaptor->readDir(bytes.c_str(), found, context))
        return -1;
    suspend(context);
    if (context.result() < 0)
        return context.result();
    const auto hand = [&] {
        for (const std::string& name : found) {
            if (!name.empty())
                names.push_back(SRString::fromMultiByte(name));
        }
        return context.result();
    };
    return krx::util::unlessOutOfMemory(hand, [] { return -1; });
}
