// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <vidlint/inputreport.h>

#include <cstdint>
#include <optional>
#include <string>

namespace archive {

/// Against the last run that ended.
enum class Change
{
    kNew,    ///< was not there, or passed and does not pass any more
    kSame,   ///< has the same verdict, cause and numbers
    kFixed,  ///< passes, and did not
    kGone,   ///< is not there any more
};

/// What tells whether a stored result still stands for the input.
struct InputStamp
{
    long long size = 0;        ///< bytes; of a recording, of all its files
    long long modifiedNs = 0;  ///< nanoseconds since 1970
    /// Of a recording: a hash over the names, sizes and times of its files. 0 for files.
    std::uint64_t members = 0;

    friend bool operator==(const InputStamp&, const InputStamp&) = default;
};

/// One input of a run and what became of it. Paths are bytes.
struct InputRecord
{
    std::string root;  ///< label of the PATH that it was found below
    std::string name;  ///< path below that PATH, without a slash in front; empty when the PATH is the input
    vidlint::InputReport report;   ///< its path is the one that is opened and shown
    bool crashed = false;          ///< checking it ended the process twice; the report has path and kind only
    std::optional<Change> change;  ///< absent without a state
};

/// "new", "same", "fixed", "gone".
const char* nameOf(Change change);

}  // namespace archive
