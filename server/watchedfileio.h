// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKrxFileIo.h"
#include "util/SRString.h"

#include <atomic>
#include <functional>
#include <optional>
#include <sys/stat.h>

/// File access through another object, watched for the length of one check: what failed first, how far reads
/// have come, and whether the check is to end. Files that are only read keep their time of access where the
/// system allows it. A stat of the path that the last stat was of tells what that one told. For one thread.
class WatchedFileIo : public IKrxFileIo
{
public:
    /// Called after each read that succeeds, with the bytes that it gave and the offset of their end in the
    /// file. Must not throw.
    using Progress = std::function<void(long long bytesRead, long long endOfRead)>;

    /// io and cancel (which may be null) must outlive the object; progress may be empty. Once *cancel is
    /// true, open and read fail with ECANCELED.
    WatchedFileIo(IKrxFileIo& io, const std::atomic<bool>* cancel, Progress progress);

    /// The errno of the first open, stat, fstat or read since the last clear() that a system call failed; 0
    /// when none did. Those are left out that fail without an errno, such as a stat of another kind of file,
    /// and those that were cancelled.
    int failure() const { return m_failure; }
    void clear() { m_failure = 0; }
    /// Whether a call was refused because the check is to end.
    bool wasCancelled() const { return m_wasCancelled; }

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
    bool isCancelled();
    /// Returns the result of a call. Records errno when the call failed, it is the first one that did, and
    /// errno is set.
    int record(int result);

    IKrxFileIo& m_io;
    const std::atomic<bool>* const m_cancel;
    const Progress m_progress;
    int m_failure = 0;
    std::optional<SRString> m_statPath;
    struct stat64 m_status = {};
    bool m_wasCancelled = false;
};
