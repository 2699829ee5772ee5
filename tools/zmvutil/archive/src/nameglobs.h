// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <vector>

namespace archive {

/// Shell patterns for names of files and folders: *, ?, [...] and a backslash in front of what is meant
/// literally. A byte is a character, whatever the locale; a dot in front is nothing special. May be used by
/// any number of threads.
class NameGlobs
{
public:
    enum class Case
    {
        kExact,
        kAny,  ///< of ASCII letters
    };
    /// Throws std::invalid_argument for a pattern that no name can match: an empty one, or one with a slash.
    explicit NameGlobs(std::vector<std::string> patterns, Case letters = Case::kExact);

    /// Whether one of the patterns matches the whole name.
    bool matches(const char* name) const;

private:
    std::vector<std::string> m_patterns;
    int m_flags;
};

/// Which names a search takes.
struct NameFilter
{
    NameGlobs include;  ///< of files
    NameGlobs exclude;  ///< of files and folders; stronger than include
};

/// An empty include stands for the usual names of media files, in any case. usesDefaults: exclude is added to
/// what is no input by custom, as half a download and the snapshots of a file server. Throws as NameGlobs.
NameFilter makeNameFilter(const std::vector<std::string>& include, std::vector<std::string> exclude,
                          bool usesDefaults);

}  // namespace archive
