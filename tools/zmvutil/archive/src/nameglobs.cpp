// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/nameglobs.h"

#include "util/bytelocale.h"

#include <algorithm>
#include <fnmatch.h>
#include <stdexcept>
#include <utility>

namespace archive {
namespace {

constexpr const char* kUsualNames[] = {"*.mp4", "*.zmv", "*.m4v", "*.m4a", "*.mov", "*.3gp"};
constexpr const char* kUsualExcludes[] = {"._*", "*.part", ".snapshot", "~snapshot", ".zfs"};

}  // namespace

NameGlobs::NameGlobs(std::vector<std::string> patterns, Case letters)
    : m_patterns(std::move(patterns)), m_flags(letters == Case::kAny ? FNM_CASEFOLD : 0)
{
    for (const std::string& pattern : m_patterns) {
        if (pattern.empty() || pattern.find('/') != std::string::npos)
            throw std::invalid_argument("no name matches the pattern \"" + pattern + "\"");
    }
}

bool NameGlobs::matches(const char* name) const
{
    const krx::util::ByteLocale bytes;
    return std::any_of(m_patterns.begin(), m_patterns.end(), [&](const std::string& pattern) {
        return ::fnmatch(pattern.c_str(), name, m_flags) == 0;
    });
}

NameFilter makeNameFilter(const std::vector<std::string>& include, std::vector<std::string> exclude,
                          bool usesDefaults)
{
    if (usesDefaults)
        exclude.insert(exclude.end(), std::begin(kUsualExcludes), std::end(kUsualExcludes));
    NameGlobs files = include.empty()
                          ? NameGlobs({std::begin(kUsualNames), std::end(kUsualNames)}, NameGlobs::Case::kAny)
                          : NameGlobs(include);
    return {std::move(files), NameGlobs(std::move(exclude))};
}

}  // namespace archive
