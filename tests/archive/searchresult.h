// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/search.h"

#include <algorithm>
#include <string>
#include <sys/types.h>
#include <vector>

namespace krx::test {

using Names = std::vector<std::string>;

/// What a test program puts between the search and the system.
struct SystemHooks
{
    bool hidesKinds = false;  ///< folders do not say what their entries are
    bool putsFoldersFirst = false;
    std::string unreadable;  ///< name of what cannot be opened or asked about: EIO
    ino_t brokenAtEnd = 0;   ///< a folder whose reading ends with EIO
    ino_t foreign = 0;       ///< a folder on another file system
    ino_t looped = 0;        ///< a folder that is the one with the inode loopsTo
    ino_t loopsTo = 0;
    Names asked;  ///< names that the system was asked about
};
extern SystemHooks g_hooks;

/// All that a search gives.
struct SearchResult
{
    explicit SearchResult(const archive::SearchOptions& options)
    {
        archive::Search search(options, [this](const std::string& text) { sentences.push_back(text); });
        search.setSkipped([this](const std::string&, const std::string& name) { skipped.push_back(name); });
        for (archive::FoundInput found; search.next(found);)
            inputs.push_back(found);
        counts = search.counts();
        isComplete = options.roots.empty() || search.isComplete(options.roots.front().label);
    }
    /// One text of each input, sorted.
    Names sorted(std::string archive::FoundInput::*text = &archive::FoundInput::name) const
    {
        Names all;
        for (const archive::FoundInput& input : inputs)
            all.push_back(input.*text);
        std::sort(all.begin(), all.end());
        return all;
    }

    std::vector<archive::FoundInput> inputs;
    Names sentences;
    Names skipped;
    archive::SearchCounts counts;
    bool isComplete = true;  ///< below the first root
};

/// Options for these roots, which are their own labels.
inline archive::SearchOptions below(const Names& roots)
{
    archive::SearchOptions options;
    for (const std::string& root : roots)
        options.roots.push_back({root, root});
    return options;
}

}  // namespace krx::test
