// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace archive {

/// Reads a list of paths, each ended by a zero byte; the last one may lack it. Memory is bounded by the
/// longest path that the system opens. For one thread at a time.
class PathList
{
public:
    enum class Got
    {
        kPath,
        kEmpty,    ///< nothing between two zeros
        kTooLong,  ///< an entry that no system call takes; it was passed over
        kFailed,   ///< the list cannot be read; errno says why. The end is next
        kEnd,
    };

    /// file: "-" is the standard input. Throws std::runtime_error, with a sentence, when it cannot be opened.
    explicit PathList(const std::string& file);

    /// Reads the next entry; path is set with kPath only.
    Got next(std::string& path);

private:
    struct Closer
    {
        void operator()(std::FILE* file) const;
    };

    std::unique_ptr<std::FILE, Closer> m_file;
    bool m_hasFailed = false;
};

}  // namespace archive
