// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKrxFileAdaptor.h"

#include <sys/stat.h>
#include <vector>

class SRString;

/// File access as the stream modules see it. Descriptors are plain ints; a negative result is a failure.
/// No operation throws.
class IKrxFileIo
{
public:
    /// The kind of file that a caller of fstat and stat expects. Another kind fails with -1.
    enum Mode
    {
        kAny = -1,
        kFile = 0,  ///< anything but a directory
        kDirectory = 1,
    };

    virtual ~IKrxFileIo() = default;

    /// Opens path with the flags of open(2). mode: bit 0x80 creates with 0666, else bit 0x100 with 0444, else
    /// mode itself is the permission. Fills *st when given. Returns the descriptor, negative on failure.
    virtual int open(const SRString& path, int flags, int mode, struct stat64* st) = 0;
    virtual int close(int fd, bool wait) = 0;
    /// One read of up to n bytes at the absolute offset. Returns the count, 0 at the end of the file.
    virtual int read(int fd, long long offset, void* buf, unsigned n) = 0;
    /// One write of n bytes at the absolute offset. Returns the count.
    virtual int write(int fd, long long offset, void* buf, unsigned n) = 0;
    virtual int fstat(int fd, struct stat64* st, Mode mode) = 0;
    virtual int stat(const SRString& path, struct stat64* st, Mode mode) = 0;
    virtual int remove(const SRString& path, IKrxFileAdaptor::RemoveFlags flags, bool wait) = 0;
    /// Creates a directory with its missing parents; 0 on success.
    virtual int createDir(const SRString& path) = 0;
    /// Appends to names every name that matches the pattern's last component ('*' and '?'). After a failure
    /// some may be missing.
    virtual int readDir(const SRString& pattern, std::vector<SRString>& names) = 0;
};
