// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <sys/stat.h>
#include <vector>

/// A pluggable file adaptor that works asynchronously. Paths are bytes.
///
/// Every operation returns whether it accepted the request. An accepted request completes exactly once, on
/// any thread, perhaps before the operation returns; what the arguments point to must live until then. A
/// refused request never completes.
class IKrxFileAdaptor
{
public:
    /// What to remove.
    enum RemoveFlags
    {
        kRemoveFile = 0,          ///< a file
        kRemoveEmptyDir = 1,      ///< a directory that is empty
        kRemoveDirRecursive = 3,  ///< a directory and its contents
    };

    /// Receives the end of one request.
    class ICompletion
    {
    public:
        /// result: descriptor, byte count or 0, negative on failure. error: 0, or the adaptor's error code.
        virtual void complete(long long result, unsigned error) = 0;

    protected:
        ~ICompletion() = default;
    };

    virtual ~IKrxFileAdaptor() = default;

    /// flags and mode as IKrxFileIo::open; status is filled when it is not null.
    virtual bool open(const char* path, int flags, int mode, struct stat64* status, ICompletion& done) = 0;
    virtual bool close(int fd, bool wait, ICompletion& done) = 0;
    virtual bool read(int fd, long long offset, void* buffer, unsigned n, ICompletion& done) = 0;
    virtual bool write(int fd, long long offset, const void* buffer, unsigned n, ICompletion& done) = 0;
    virtual bool fstat(int fd, struct stat64* status, ICompletion& done) = 0;
    virtual bool stat(const char* path, struct stat64* status, ICompletion& done) = 0;
    virtual bool remove(const char* path, RemoveFlags flags, bool wait, ICompletion& done) = 0;
    virtual bool createDir(const char* path, ICompletion& done) = 0;
    /// Appends to names every name that matches the pattern's last component.
    virtual bool readDir(const char* pattern, std::vector<std::string>& names, ICompletion& done) = 0;
};
