// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"
#include "tools/zmvutil/archive/src/runinfo.h"
#include "tools/zmvutil/archive/src/search.h"
#include "tools/zmvutil/archive/src/stateerror.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace archive {

/// The results of runs in one file (SQLite). One process writes at a time and holds a lock as long as the
/// object lives; the functions may be called from any thread. What is stored outlives the process after at
/// most a second. Everything throws StateError; once a function that writes has thrown, all others that write
/// do too.
///
/// While a run goes on there are files beside the state, "-wal" and "-shm" or "-journal", and "-running" as
/// long as the object lives. Afterwards the state is one plain file, unless another process reads it just
/// then.
class State
{
public:
    enum class Mode
    {
        kRead,   ///< also from media that cannot be written, and on local file systems while a run goes on
        kWrite,  ///< created when it is not there
    };
    State(const std::string& path, Mode mode);
    /// Keeps what was stored. Inputs whose check has begun count as given up, not as crashed.
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    // Writing, between beginRun and endRun.

    /// Takes up the results of a run that did not end.
    void beginRun(const RunInfo& run);
    /// The result that is stored for the input, if stamp, settings and revision are those of the run and it
    /// is none that is never used again (unreadable, resources, crashed). Its path is the given one, its
    /// change that against the last run that ended. The input then counts as seen in this run.
    std::optional<InputRecord> reuse(const std::string& root, const std::string& name,
                                     const std::string& path, const InputStamp& stamp);
    /// Whether the latest result of the input is of a run that has ended and was made before that time,
    /// seconds since 1970.
    bool isOlder(const std::string& root, const std::string& name, std::int64_t time);
    /// The next one of the inputs that reuse returned and that are older than that time, the oldest first;
    /// absent at the end. The first call makes the list, which leaves out what is reused afterwards.
    /// isRotational is not known.
    std::optional<FoundInput> nextDue(std::int64_t time);
    /// Notes that the check of an input begins; store or dropInput has to follow, whatever happens. False
    /// when earlier checks of it with the same stamp, settings and revision ended the process twice: it is to
    /// be recorded as crashed.
    ///
    /// Of inputs that were being checked when a process died, one is checked at a time, so that one of them
    /// cannot make the others seem faulty: the call waits for the one before.
    bool beginInput(const std::string& root, const std::string& name, const InputStamp& stamp);
    /// Stores the result and sets its change.
    void store(InputRecord& record, const InputStamp& stamp);
    /// The input has no result in this run (it changed while it was checked). It is not gone, and its next
    /// result is compared with its last one.
    void dropInput(const std::string& root, const std::string& name);
    /// Number of inputs that the last run that ended had below the root; of the shard of the run if there is
    /// one.
    std::uint64_t knownBelow(const std::string& root);
    /// Ends the run: inputs below its roots and of its shard that were not seen are gone. Those below
    /// keptRoots are left as they are. Returns how many are gone.
    std::uint64_t endRun(const std::vector<std::string>& keptRoots);

    // Reading: the last run that ended, and whether another one is unfinished.

    /// Throws when no run has ended.
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
    /// have the change kGone and their last result, those that were dropped are left out. Stops when function
    /// returns false. It must not call the state.
    void forEach(const std::function<bool(const InputRecord&)>& function);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace archive
