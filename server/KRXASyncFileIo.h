// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/KRXSyncFileIo.h"
#include "util/SRThreadPool.h"

#include <functional>

namespace krx::util {

/// How much a service prints to the standard error.
enum VerboseLevel_
{
    kVerboseNone = 0,
    kVerboseFailures = 1,  ///< calls that fail
};

}  // namespace krx::util

/// The calls of SimpleKrxSyncFileIo, made on the threads of a pool while the caller waits. A call from one of
/// the pool's own threads is made at once; a call after the pool is closed gives -1. Safe from any thread.
class SimpleKrxASyncFileIo : public IKrxFileIo
{
public:
    /// The pool must outlive the object.
    SimpleKrxASyncFileIo(SRThreadPool* pool, krx::util::VerboseLevel_ verbose);

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
    template <typename Call>
    int run(const char* operation, const Call& call)
    {
        return runInPool(operation, std::cref(call));  // a reference, since a copy could need memory
    }
    int runInPool(const char* operation, const std::function<int()>& call);

    SRThreadPool* const m_pool;
    const krx::util::VerboseLevel_ m_verbose;
    SimpleKrxSyncFileIo m_io;
};
