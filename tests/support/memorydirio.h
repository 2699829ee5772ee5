// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKrxFileIo.h"
#include "util/SRString.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace krx::test {

/// Reading access to files that lie in memory, each under its own path. A path that others begin with, up to
/// a '/', is a directory.
class MemoryDirIo : public IKrxFileIo
{
public:
    std::map<std::string, std::string> files;              ///< content by path
    std::map<std::string, struct timespec> modifiedTimes;  ///< by path; others have 1 s
    std::vector<std::string> opened;                       ///< the paths that were opened, in order

    int open(const SRString& path, int, int, struct stat64*) override
    {
        const std::string name(path.toMultiByte().view());
        if (files.count(name) == 0)
            return -1;
        opened.push_back(name);
        return static_cast<int>(opened.size()) - 1;
    }
    int close(int, bool) override { return 0; }
    int read(int fd, long long offset, void* buf, unsigned n) override
    {
        const std::string& content = files.at(opened.at(static_cast<std::size_t>(fd)));
        const std::size_t from = std::min(static_cast<std::size_t>(offset), content.size());
        return static_cast<int>(content.copy(static_cast<char*>(buf), n, from));
    }
    int fstat(int fd, struct stat64* st, Mode mode) override
    {
        return stat(SRString::fromMultiByte(opened.at(static_cast<std::size_t>(fd))), st, mode);
    }
    int stat(const SRString& path, struct stat64* st, Mode mode) override
    {
        const std::string name(path.toMultiByte().view());
        const auto file = files.find(name);
        const auto entry = files.lower_bound(name + '/');
        const bool isDirectory =
            entry != files.end() && entry->first.compare(0, name.size() + 1, name + '/') == 0;
        if ((file == files.end() && !isDirectory) || (mode != kAny && isDirectory != (mode == kDirectory)))
            return -1;
        *st = {};
        st->st_mode = isDirectory ? S_IFDIR : S_IFREG;
        st->st_size = isDirectory ? 0 : static_cast<off64_t>(file->second.size());
        const auto time = modifiedTimes.find(name);
        st->st_mtim = time == modifiedTimes.end() ? timespec{1, 0} : time->second;
        return 0;
    }
    int write(int, long long, void*, unsigned) override { return -1; }
    int remove(const SRString&, IKrxFileAdaptor::RemoveFlags, bool) override { return -1; }
    int createDir(const SRString&) override { return -1; }
    int readDir(const SRString&, std::vector<SRString>&) override { return -1; }
};

}  // namespace krx::test
