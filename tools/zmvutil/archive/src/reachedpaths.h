// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/seenpaths.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace archive {

/// The path without slashes at its end; "/" stays.
std::string withoutSlashesAtEnd(std::string path);

/// Tells which paths a search reaches twice. It begins at several starts: at roots, which are known from the
/// beginning, and at paths of a list. The way from a start follows no link to a folder, so that the real path
/// of the start and the names below it tell a path. Without a list a path is reached twice only where a
/// root is, or is inside of, another one: the roots alone are kept then. For one thread at a time.
class ReachedPaths
{
public:
    /// The start number of a listed path.
    static constexpr std::size_t kListed = static_cast<std::size_t>(-1);

    /// warn is called with a sentence when there is no more room to note paths; some may be told to be new
    /// from then on that are not.
    ReachedPaths(const std::vector<std::string>& roots, bool hasList,
                 std::function<void(const std::string& sentence)> warn);

    /// The path with all links followed, but not that of a file. It is the path itself when that leads
    /// nowhere.
    std::string realPathOf(const std::string& path, bool isFolder);

    /// Notes a path; false when it is not the start's to take: it was reached before, or it is another root.
    /// realStart: real path of the start; below: what follows, empty or with a slash in front. root: the
    /// number of the root that is the start, or kListed.
    bool reach(const std::string& realStart, std::string_view below, std::size_t root);

private:
    const std::function<void(const std::string&)> m_warn;
    std::map<std::string, std::size_t, std::less<>> m_roots;  ///< number of the first one, by real path
    std::optional<SeenPaths> m_seen;                          ///< with a list
    bool m_isNeeded;
    // The folder that was resolved last: the files of a list mostly lie in one after the other.
    std::string m_folder;
    std::string m_realFolder;
};

}  // namespace archive
