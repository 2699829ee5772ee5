// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKrxFileIo.h"
#include "util/SRString.h"

#include <algorithm>
#include <climits>
#include <map>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace krx::test {

/// Read access to files in memory. A path is a directory when others begin with it and a '/'. Reads are
/// counted, can be short, and can fail.
class MemoryFileIo : public IKrxFileIo
{
public:
    MemoryFileIo() = default;
    /// One file under any path.
    explicit MemoryFileIo(std::string bytes) : files{{kAnyPath, std::move(bytes)}} {}

    std::map<std::string, std::string> files;              ///< content by path
    std::map<std::string, struct timespec> modifiedTimes;  ///< by path; others have 1 s
    std::vector<std::string> opened;                       ///< the paths that were opened, in order
    std::vector<unsigned> reads;                           ///< the bytes asked of each read
    unsigned maxRead = INT_MAX;                            ///< most bytes that one read returns
    long long pretendedSize = -1;                          ///< the size of every file; negative: the true one

    /// The file under any path.
    std::string& bytes() { return files.at(kAnyPath); }
    bool isOpen() const { return m_openFiles != 0; }
    /// The n-th read from now on (1-based) fails with -1, as do all after it.
    void failReadsFrom(std::size_t n) { m_failFrom = reads.size() + n; }
    /// Sets whether files can be opened from now on.
    void allowOpen(bool allowed) { m_mayOpen = allowed; }

    int open(const SRString& path, int, int, struct stat64* st) override
    {
        const auto file = find(path);
        if (file == files.end() || !m_mayOpen)
            return -1;
        ++m_openFiles;
        opened.push_back(file->first);
        if (st)
            (void)stat(path, st, kAny);
        return static_cast<int>(opened.size()) - 1;
    }
    int close(int, bool) override
    {
        --m_openFiles;
        return 0;
    }
    int read(int fd, long long offset, void* buf, unsigned n) override
    {
        reads.push_back(n);
        if (offset < 0 || (m_failFrom != 0 && reads.size() >= m_failFrom))
            return -1;
        const std::string& content = files.at(opened.at(static_cast<std::size_t>(fd)));
        const std::size_t from = std::min(static_cast<std::size_t>(offset), content.size());
        return static_cast<int>(content.copy(static_cast<char*>(buf), std::min(n, maxRead), from));
    }
    int fstat(int fd, struct stat64* st, Mode mode) override
    {
        return stat(SRString::fromMultiByte(opened.at(static_cast<std::size_t>(fd))), st, mode);
    }
    int stat(const SRString& path, struct stat64* st, Mode mode) override
    {
        const std::string name(path.toMultiByte().view());
        const auto file = find(path);
        const auto entry = files.lower_bound(name + '/');
        const bool isDirectory = entry != files.end() && entry->first.starts_with(name + '/');
        if ((file == files.end() && !isDirectory) || (mode != kAny && isDirectory != (mode == kDirectory)))
            return -1;
        *st = {};
        st->st_mode = isDirectory ? S_IFDIR : S_IFREG;
        st->st_size = isDirectory          ? 0
                      : pretendedSize >= 0 ? pretendedSize
                                           : static_cast<off64_t>(file->second.size());
        const auto time = modifiedTimes.find(name);
        st->st_mtim = time == modifiedTimes.end() ? timespec{1, 0} : time->second;
        return 0;
    }
    int write(int, long long, void*, unsigned) override { return -1; }
    int remove(const SRString&, IKrxFileAdaptor::RemoveFlags, bool) override { return -1; }
    int createDir(const SRString&) override { return 0; }
    int readDir(const SRString&, std::vector<SRString>&) override { return -1; }

private:
    static constexpr const char* kAnyPath = "";

    std::map<std::string, std::string>::iterator find(const SRString& path)
    {
        const auto file = files.find(std::string(path.toMultiByte().view()));
        return file == files.end() ? files.find(kAnyPath) : file;
    }

    int m_openFiles = 0;
    std::size_t m_failFrom = 0;
    bool m_mayOpen = true;
};

}  // namespace krx::test
