// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKrxFileIo.h"
#include "util/SRFileUtil.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <unistd.h>
#include <vector>

namespace krx::test {

/// File access to the real files that counts its operations, fails a chosen one with EIO and can make reads
/// short.
class FaultyFileIo : public IKrxFileIo
{
public:
    unsigned failAt = 0;            ///< the number of the operation that fails, from 1; 0: none
    unsigned maxRead = INT_MAX;     ///< bytes that one read gives at most
    unsigned maxWrite = INT_MAX;    ///< bytes that one write takes at most
    long long pretendedSize = -1;   ///< what fstat tells as the size; negative: the truth
    unsigned operations = 0;        ///< operations so far
    std::vector<unsigned> reads{};  ///< the bytes asked of each read
    int openFiles = 0;

    int open(const SRString& path, int flags, int mode, struct stat64*) override
    {
        if (fails())
            return -1;
        const int fd = util::SRFileUtil::open(path, flags, mode);
        openFiles += fd >= 0 ? 1 : 0;
        return fd;
    }
    int close(int fd, bool) override
    {
        // A close that fails has closed all the same.
        const bool failure = fails();
        --openFiles;
        return util::SRFileUtil::close(fd) == 0 && !failure ? 0 : -1;
    }
    int read(int fd, long long offset, void* buf, unsigned n) override
    {
        reads.push_back(n);
        return fails() ? -1 : static_cast<int>(::pread64(fd, buf, std::min(n, maxRead), offset));
    }
    int write(int fd, long long offset, void* buf, unsigned n) override
    {
        return fails() ? -1 : static_cast<int>(::pwrite64(fd, buf, std::min(n, maxWrite), offset));
    }
    int fstat(int fd, struct stat64* st, Mode mode) override
    {
        if (fails() || ::fstat64(fd, st) != 0 || !matches(*st, mode))
            return -1;
        if (pretendedSize >= 0)
            st->st_size = pretendedSize;
        return 0;
    }
    int stat(const SRString& path, struct stat64* st, Mode mode) override
    {
        return fails() || util::SRFileUtil::stat64(path, st) != 0 || !matches(*st, mode) ? -1 : 0;
    }
    int remove(const SRString& path, IKrxFileAdaptor::RemoveFlags, bool) override
    {
        return fails() ? -1 : util::SRFileUtil::remove(path);
    }
    int createDir(const SRString& path) override
    {
        return !fails() && util::SRFileUtil::createDir(path) ? 0 : -1;
    }
    int readDir(const SRString&, std::vector<SRString>&) override { return -1; }

private:
    static bool matches(const struct stat64& st, Mode mode)
    {
        return mode == kAny || S_ISDIR(st.st_mode) == (mode == kDirectory);
    }
    bool fails()
    {
        if (++operations != failAt)
            return false;
        errno = EIO;
        return true;
    }
};

}  // namespace krx::test
