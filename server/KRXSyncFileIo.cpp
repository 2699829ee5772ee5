// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/KRXSyncFileIo.h"

#include "util/SRException.h"
#include "util/SRFileUtil.h"
#include "util/SRString.h"
#include "util/findfile.h"
#include "util/krxassert.h"

#include <cerrno>
#include <sys/types.h>
#include <unistd.h>

using krx::util::SRFileUtil;

namespace {

constexpr char kSyncFileIoPlace[] = "server/KRXSyncFileIo";
constexpr int kReadBufferLine = 61;
constexpr int kWriteBufferLine = 82;
constexpr int kStatBufferLine = 118;
constexpr int kRemoveFlagsLine = 149;

// Repeats a call that a signal broke off.
template <typename Call>
int uninterrupted(Call call)
{
    ssize_t result = 0;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    // One call moves less than 2 GiB.
    return static_cast<int>(result);
}

/// The result of a call that fails by itself, and not in the system.
int withoutSystemError(int result)
{
    errno = 0;
    return result;
}

}  // namespace

bool SimpleKrxSyncFileIo::isOfKind(const struct stat64& st, Mode mode)
{
    switch (mode) {
        case kAny:
            return true;
        case kFile:
            return !S_ISDIR(st.st_mode);
        case kDirectory:
            return S_ISDIR(st.st_mode);
        default:
            return false;
    }
}

int SimpleKrxSyncFileIo::open(const SRString& path, int flags, int mode, struct stat64* st)
{
    const int fd = SRFileUtil::open(path, flags, mode);
    if (fd >= 0 && st && ::fstat64(fd, st) != 0) {
        const int error = errno;
        close(fd, false);
        errno = error;
        return -1;
    }
    return fd;
}

int SimpleKrxSyncFileIo::close(int fd, bool)
{
    return SRFileUtil::close(fd);
}

// Positional calls: the result of a seek and a call, with one system call.

int SimpleKrxSyncFileIo::read(int fd, long long offset, void* buf, unsigned n)
{
    if (!buf) {
        krx::util::assertFailed(kSyncFileIoPlace, kReadBufferLine);
        return withoutSystemError(-1);
    }
    if (fd < 0)
        return withoutSystemError(fd);
    return uninterrupted([&] { return ::pread64(fd, buf, n, offset); });
}

int SimpleKrxSyncFileIo::write(int fd, long long offset, void* buf, unsigned n)
{
    if (!buf) {
        krx::util::assertFailed(kSyncFileIoPlace, kWriteBufferLine);
        return withoutSystemError(-1);
    }
    if (fd < 0)
        return withoutSystemError(fd);
    return uninterrupted([&] { return ::pwrite64(fd, buf, n, offset); });
}

int SimpleKrxSyncFileIo::fstat(int fd, struct stat64* st, Mode mode)
{
    if (!st) {
        krx::util::assertFailed(kSyncFileIoPlace, kStatBufferLine);
        return withoutSystemError(-1);
    }
    if (fd < 0)
        return withoutSystemError(fd);
    const int result = ::fstat64(fd, st);
    return result == 0 && !isOfKind(*st, mode) ? withoutSystemError(-1) : result;
}

int SimpleKrxSyncFileIo::stat(const SRString& path, struct stat64* st, Mode mode)
{
    if (!st) {
        krx::util::assertFailed(kSyncFileIoPlace, kStatBufferLine);
        return withoutSystemError(-1);
    }
    const int result = SRFileUtil::stat64(path, st);
    return result == 0 && !isOfKind(*st, mode) ? withoutSystemError(-1) : result;
}

int SimpleKrxSyncFileIo::remove(const SRString& path, IKrxFileAdaptor::RemoveFlags flags, bool)
{
    bool removed = false;
    switch (flags) {
        case IKrxFileAdaptor::kRemoveFile:
            removed = SRFileUtil::removeFile(path);
            break;
        case IKrxFileAdaptor::kRemoveEmptyDir:
            removed = SRFileUtil::removeDir(path);
            break;
        case IKrxFileAdaptor::kRemoveDirRecursive:
            removed = SRFileUtil::removeDirRecursive(path);
            break;
        default:
            krx::util::assertFailed(kSyncFileIoPlace, kRemoveFlagsLine);
            break;
    }
    return removed ? 0 : -1;
}

int SimpleKrxSyncFileIo::createDir(const SRString& path)
{
    return SRFileUtil::createDir(path) ? 0 : -1;
}

int SimpleKrxSyncFileIo::readDir(const SRString& pattern, std::vector<SRString>& names)
{
    const auto list = [&] {
        krx::util::FindData data;
        const krx::util::FindHandle listing = krx::util::FindFirstFile(pattern, data);
        if (!listing)
            return -1;
        do {
            if (!data.name.empty())
                names.push_back(data.name);
        } while (krx::util::FindNextFile(listing, data));
        return 0;
    };
    return krx::util::unlessOutOfMemory(list, [] { return -1; });
}
