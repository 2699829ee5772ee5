// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/search.h"

#include <vidlint/check.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace archive {

/// The command line is wrong; the text is a sentence for people.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What makes a run fail.
struct FailOn
{
    std::set<vidlint::Cause> causes;
    std::set<int> numbers;  ///< as reports show them, for example -18
    bool errors = false;
    bool warnings = false;
    bool droppedTracks = false;

    bool matches(const InputRecord& record) const;
};

enum class When
{
    kAuto,  ///< on a terminal
    kAlways,
    kNever,
};

inline constexpr const char* kUsualSelection = "error,cut-short,dropped-track";

/// What `vidlint-archive check` is told.
struct CheckOptions
{
    SearchOptions search;
    vidlint::Settings settings;
    std::string settingsText;  ///< canonical text of what changes results
    unsigned threads = 1;
    unsigned openInputs = 0;   ///< inputs opened at a time; 0 for one on disks that turn
    std::uint64_t memory = 0;  ///< bytes that all checks may take together
    std::string state;         ///< path; empty for none
    bool isJson = false;
    bool onlyNew = false;
    bool isQuiet = false;
    When progress = When::kAuto;
    When color = When::kAuto;
    FailOn failOn;
    bool rechecksAll = false;
    std::optional<std::chrono::seconds> recheckOlder;
    std::optional<std::chrono::seconds> maxTime;

    bool showsProgress() const;  ///< on the standard error
    bool showsColor() const;     ///< on the standard output
};

/// What `vidlint-archive list` is told.
struct ListOptions
{
    std::vector<std::string> states;
    FailOn selection;  ///< inputs that it matches; all causes but none where nothing is given
    bool onlyNew = false;
    bool endsWithZero = false;
};

/// What `vidlint-archive report` is told.
struct ReportOptions
{
    std::vector<std::string> states;
    std::string format = "text";  ///< "text", "jsonl", "csv" or "html"
};

// Parse the arguments after the command. Throw UsageError; empty when help was asked for and printed.

std::optional<CheckOptions> parseCheck(const std::vector<std::string>& arguments);
std::optional<ListOptions> parseList(const std::vector<std::string>& arguments);
std::optional<ReportOptions> parseReport(const std::vector<std::string>& arguments);
/// The files of `why`, at least one.
std::optional<std::vector<std::string>> parseFiles(const std::vector<std::string>& arguments);
/// The words of `explain`, which may be none.
std::optional<std::vector<std::string>> parseNumbers(const std::vector<std::string>& arguments);

/// "error,cut-short,-18" as a set. Throws UsageError.
FailOn parseSelection(const std::string& text);
/// "90d", "10m", "2h", "30s", "5" (seconds). Throws UsageError.
std::chrono::seconds parseDuration(const std::string& text);
/// "512M", "2G", "1000000". Throws UsageError.
std::uint64_t parseSize(const std::string& text);

}  // namespace archive
