// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKRXLog.h"
#include "interfaces/IKrxFileIo.h"

/// File access by plain system calls on the calling thread. Where open, read, write, fstat or stat fails,
/// errno is that of the system call, or 0 when none failed.
class SimpleKrxSyncFileIo : public IKrxFileIo
{
public:
    int open(const SRString& path, int flags, int mode, struct stat64* st) override;
    int close(int fd, bool wait) override;
    int read(int fd, long long offset, void* buf, unsigned n) override;
    int write(int fd, long long offset, void* buf, unsigned n) override;
    int fstat(int fd, struct stat64* st, Mode mode) override;
    int stat(const SRString& path, struct stat64* st, Mode mode) override;
    int remove(const SRString& path, IKrxFileAdaptor::RemoveFlags flags, bool wait) override;
    int createDir(const SRString& path) override;
    int readDir(const SRString& pattern, std::vector<SRString>& names) override;

    /// Whether a status is of the kind that mode expects.
    static bool isOfKind(const struct stat64& st, Mode mode);
};

/// What CustomKrxSyncFileIo writes to its log.
struct CustomKrxSyncFileIoConfig
{
    bool logFailures = true;
    bool logWarnings = true;
};

/// File access through a pluggable asynchronous adaptor: each call waits until the adaptor has completed it.
/// A request that the adaptor refuses or completes with an error code gives -1. Safe from any thread.
class CustomKrxSyncFileIo : public IKrxFileIo
{
public:
    /// adaptor and log (which may be null) must outlive the object.
    CustomKrxSyncFileIo(IKrxFileAdaptor* adaptor, IKRXLog* log, const CustomKrxSyncFileIoConfig& config);

    int open(const SRString& path, int flags, int mode, struct stat64* st) override;
    int close(int fd, bool wait) override;
    int read(int fd, long long offset, void* buf, unsigned n) override;
    int write(int fd, long long offset, void* buf, unsigned n) override;
    int fstat(int fd, struct stat64* st, Mode mode) override;
    int stat(const SRString& path, struct stat64* st, Mode mode) override;
    int remove(const SRString& path, IKrxFileAdaptor::RemoveFlags flags, bool wait) override;
    int createDir(const SRString& path) override;
    int readDir(const SRString& pattern, std::vector<SRString>& names) override;

private:
    class RequestContext;

    /// Waits until the request is completed.
    static void suspend(RequestContext& context);
    /// Reads or writes; name is the operation's in the log.
    template <typename Operation>
    int transfer(Operation operation, const wchar_t* name, int fd, long long offset, void* buf, unsigned n);
    template <typename... Args>
    void log(IKRXLog::Level level, const wchar_t* pattern, const Args&... args) const;
    template <typename... Args>
    void logFailure(const wchar_t* pattern, const Args&... args) const;
    template <typename... Args>
    void logWarning(const wchar_t* pattern, const Args&... args) const;

    IKrxFileAdaptor* const m_adaptor;
    IKRXLog* const m_log;
    const CustomKrxSyncFileIoConfig m_config;
};
