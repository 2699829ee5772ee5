// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKrxFileIo.h"

#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <string>

/// File access through another object, watched for the length of one check: what failed first, how far reads
/// have come, and whether the check is to end. For one thread.
class WatchedFileIo : public IKrxFileIo
{
public:
    /// A system call that failed.
    struct Failure
    {
        int error = 0;     ///< errno
        std::string file;  ///< the path as it was opened, in bytes; empty when there was no memory for it
        long long offset = -1;  ///< of a read
    };

    /// Called after each read that succeeds, with the bytes that it gave and the offset of their end in the
    /// file. Must not throw.
    using Progress = std::function<void(long long bytesRead, long long endOfRead)>;

    /// io and cancel (which may be null) must outlive the object; progress may be empty. Once *cancel is
    /// true, open and read fail with ECANCELED.
    WatchedFileIo(IKrxFileIo& io, const std::atomic<bool>* cancel, Progress progress);

    /// The first open, stat, fstat or read since the last clear() that a system call failed; null when none
    /// did. Those are left out that fail without an errno, such as a stat of another kind of file, and those
    /// that were cancelled.
    const Failure* failure() const { return m_failure ? &*m_failure : nullptr; }
    void clear() { m_failure.reset(); }
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
    /// Records a failure if it is the first one and errno is set. Leaves errno as it is. name() returns the
    /// path.
    template <typename Name>
    void record(long long offset, Name name);
    std::string nameOf(int fd) const;

    IKrxFileIo& m_io;
    const std::atomic<bool>* const m_cancel;
    const Progress m_progress;
    std::map<int, std::string> m_names;  ///< of the open files
    std::optional<Failure> m_failure;
    bool m_wasCancelled = false;
};
