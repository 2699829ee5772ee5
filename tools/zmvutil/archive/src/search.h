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

/// Where inputs are looked for, and which. A root that is a file or a recording is an input whatever its
/// name; so is a path of the list. Other roots and listed folders are searched.
struct SearchOptions
{
    struct Root
    {
        std::string path;   ///< as given
        std::string label;  ///< path unless one was given
    };
    std::vector<Root> roots;
    std::string filesFrom;  ///< a file of paths ended by zeros, "-" for the standard input; empty for none
    /// Globs of the names of files, whose case counts; empty for the usual extensions in any case. Recordings
    /// are taken whatever their names.
    std::vector<std::string> include;
    std::vector<std::string> exclude;  ///< globs of names, of files and folders
    bool usesDefaultExcludes = true;
    bool staysOnFileSystem = false;  ///< folders on other file systems than their root are passed over
    /// Inputs that changed later than this before now, or will in less than this from now, are skipped. Those
    /// of a clock that is further ahead are not, since they would be for years.
    long long minAgeNs = 0;
    unsigned shard = 1;  ///< K of N, from 1 on
    unsigned shards = 1;
};

/// An input that is to be checked.
struct FoundInput
{
    std::string root;  ///< label; empty when the list led to it
    std::string name;  ///< path below the root, empty when that is the input; of the list, the path as listed
    std::string path;
    vidlint::InputKind kind = vidlint::InputKind::kMp4;
    InputStamp stamp;           ///< zeros when the system does not tell; a check will say why
    bool isRotational = false;  ///< it lies on a disk that turns, as far as the system tells
};

/// What a search passed over.
struct SearchCounts
{
    std::uint64_t found = 0;
    std::uint64_t excluded = 0;  ///< entries of folders, by a glob, usual or given; folders count once
    std::uint64_t young = 0;     ///< younger than minAge
    std::uint64_t otherShards = 0;
    /// Paths that were reached twice; folders count once, and what is below them not. What is below a root is
    /// left to it where it is inside of another root.
    std::uint64_t repeated = 0;
    std::uint64_t unreadable = 0;  ///< roots and folders that could not be read, and paths that are too long
};

/// Searches folders for inputs, one after the other. Memory stays flat, whatever is found: only the way from
/// the root to the current folder is kept, with the names in it that matter. Links to folders are not
/// followed, except those that are roots or listed; links to files are. A file has as many inputs as names.
///
/// Whether an input belongs to the shard is decided by its name alone, before the system is asked about it.
/// Only for what may be a folder it is asked first: roots, listed paths whose names include does not take,
/// and entries of folders that do not say what they are.
class Search
{
public:
    /// warn is called, on the thread that searches, with a sentence for each path that cannot be read. The
    /// sentence has bytes of names in it. Throws std::invalid_argument for a glob that matches no name, and
    /// std::runtime_error with a sentence when the list cannot be opened.
    Search(SearchOptions options, std::function<void(const std::string& sentence)> warn);
    ~Search();
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    /// skipped is called, on the thread that searches, for each input that is there without being found: it
    /// is too young, or its path too long. To be set before the search begins.
    void setSkipped(std::function<void(const std::string& root, const std::string& name)> skipped);

    /// The next input; false at the end. For one thread at a time. Throws std::bad_alloc; the search can go
    /// on then, but may have lost a folder.
    bool next(FoundInput& found);
    const SearchCounts& counts() const;
    /// Inputs found below the root of that label so far.
    std::uint64_t foundBelow(const std::string& label) const;
    /// False once something below the root of that label could not be read: inputs that were not found may
    /// still be there.
    bool isComplete(const std::string& label) const;
    /// Whether the path lies on a disk that turns, as far as the system tells. For the thread that searches.
    bool isRotational(const std::string& path);
    /// Looks again at an input that was found: its stamp now. False when it cannot be read. For any thread.
    static bool stampOf(const FoundInput& found, InputStamp& stamp);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/// The shard of a path below its root, from 1 to shards: FNV-1a of 64 bits over its bytes, modulo shards,
/// plus 1.
unsigned shardOf(const std::string& name, unsigned shards);

}  // namespace archive
