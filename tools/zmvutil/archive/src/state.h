// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace archive {

/// A state file cannot be used: locked, damaged, of another version, read-only, or the disk is full. The text
/// is a sentence for people.
class StateError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// One run, as the state and the JSON lines have it.
struct RunInfo
{
    std::int64_t startedAt = 0;  ///< seconds since 1970
    std::optional<std::int64_t> endedAt;
    std::string settings;   ///< canonical text of all settings that change results
    unsigned revision = 0;  ///< of the checks
    unsigned shard = 1;
    unsigned shards = 1;
    std::vector<std::string> roots;  ///< labels
};

/// The results of runs in one file (SQLite). One process writes at a time and holds a lock as long as the
/// object lives; the functions may be called from any thread. What is stored is on the disk after at most a
/// second. Everything throws StateError.
class State
{
public:
    enum class Mode
    {
        kRead,   ///< also from media that cannot be written
        kWrite,  ///< created when it is not there
    };
    State(const std::string& path, Mode mode);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    // Writing, between beginRun and endRun.

    void beginRun(const RunInfo& run);
    /// The result that is stored for the input, if stamp, settings and revision are those of the run and it
    /// is none that is never used again (unreadable, resources). Its change is that against the last run that
    /// ended. The input then counts as seen in this run.
    std::optional<InputRecord> reuse(const std::string& root, const std::string& name,
                                     const InputStamp& stamp);
    /// When the input was checked last, seconds since 1970; absent when it is not known.
    std::optional<std::int64_t> checkedAt(const std::string& root, const std::string& name);
    /// Notes that the check of an input begins. False when earlier checks of it with the same stamp ended the
    /// process twice: it is to be recorded as crashed.
    bool beginInput(const std::string& root, const std::string& name, const InputStamp& stamp);
    /// Stores the result and sets its change.
    void store(InputRecord& record, const InputStamp& stamp);
    /// The input has no result in this run (it changed while it was checked).
    void dropInput(const std::string& root, const std::string& name);
    /// Number of inputs that the last run that ended had below the root.
    std::uint64_t knownBelow(const std::string& root);
    /// Ends the run: inputs below the roots that were not seen are gone. goneRoots are left as they are.
    /// Leaves one plain file.
    void endRun(const std::vector<std::string>& keptRoots);

    // Reading: the last run that ended, and whether another one is unfinished.

    RunInfo lastRun();
    bool hasUnfinishedRun();
    /// Totals of the last run that ended, for an estimate of the time left; absent without one.
    struct Totals
    {
        std::uint64_t inputs = 0;
        std::uint64_t bytes = 0;
    };
    std::optional<Totals> totals();
    /// Calls function with each input, ordered by root and name; inputs that are gone since the run before
    /// have the change kGone and their last result. Stops when function returns false.
    void forEach(const std::function<bool(const InputRecord&)>& function);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace archive
