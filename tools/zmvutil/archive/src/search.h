// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace archive {

/// Where inputs are looked for, and which.
struct SearchOptions
{
    struct Root
    {
        std::string path;   ///< as given
        std::string label;  ///< path unless one was given
    };
    std::vector<Root> roots;
    std::string filesFrom;  ///< a file of paths ended by zeros, "-" for the standard input; empty for none
    std::vector<std::string> include;  ///< globs of names; empty for the usual extensions
    std::vector<std::string> exclude;  ///< globs of names, of files and folders
    bool usesDefaultExcludes = true;
    bool staysOnFileSystem = false;
    long long minAgeNs = 0;  ///< files that are younger are skipped
    unsigned shard = 1;      ///< K of N, from 1 on
    unsigned shards = 1;
};

/// An input that is to be checked.
struct FoundInput
{
    std::string root;  ///< label
    std::string name;  ///< path below the root
    std::string path;
    vidlint::InputKind kind = vidlint::InputKind::kMp4;
    InputStamp stamp;
    bool isRotational = false;  ///< it lies on a disk that turns, as far as the system tells
};

/// What a search passed over.
struct SearchCounts
{
    std::uint64_t found = 0;
    std::uint64_t excluded = 0;  ///< by a glob, usual or given; folders count once
    std::uint64_t young = 0;     ///< younger than minAge
    std::uint64_t otherShards = 0;
    std::uint64_t repeated = 0;    ///< paths that were reached twice
    std::uint64_t unreadable = 0;  ///< folders that could not be read
};

/// Searches folders for inputs, one after the other. Memory stays flat, whatever is found: only the way from
/// the root to the current folder is kept, with the names in it.
class Search
{
public:
    /// warn is called with a sentence for each folder or path that cannot be read.
    Search(SearchOptions options, std::function<void(const std::string& sentence)> warn);
    ~Search();
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    /// The next input; false at the end. For one thread at a time.
    bool next(FoundInput& found);
    const SearchCounts& counts() const;
    /// Inputs found below the root of that label so far.
    std::uint64_t foundBelow(const std::string& label) const;
    /// Looks again at an input that was found: its stamp now. False when it cannot be read.
    static bool stampOf(const FoundInput& found, InputStamp& stamp);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/// The shard of a path below its root, from 1 to shards: FNV-1a of 64 bits over its bytes, modulo shards,
/// plus 1.
unsigned shardOf(const std::string& name, unsigned shards);

}  // namespace archive
