// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/options.h"
#include "tools/zmvutil/archive/src/progress.h"
#include "tools/zmvutil/archive/src/state.h"
#include "tools/zmvutil/archive/src/summary.h"
#include "tools/zmvutil/archive/src/turnstile.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <vector>

namespace archive {

/// One `check`: searches, checks on several threads, keeps the results in the state, and prints them as
/// inputs finish.
class CheckRun
{
public:
    explicit CheckRun(const CheckOptions& options);
    ~CheckRun();
    CheckRun(const CheckRun&) = delete;
    CheckRun& operator=(const CheckRun&) = delete;

    /// Returns the exit status. Throws StateError.
    int run();

    // For any thread.

    /// Ends the run soon.
    void stop() { m_cancel = true; }
    std::string progressLine(std::size_t width) const { return m_progress.line(width); }
    // These two wait for nobody.

    /// Writes to the standard error, between what the run writes.
    void show(const std::string& text);
    /// Passes on the results that are there.
    void flush();

private:
    using Step = bool (CheckRun::*)(unsigned worker);

    void beginState(const RunInfo& info);
    // Phases of the run: every thread repeats its step until it returns false.
    void onAllThreads(Step step);
    void repeat(Step step, unsigned worker);
    bool checkFound(unsigned worker);
    bool checkDue(unsigned worker);

    bool isTimeUp() const;
    bool takeStored(const FoundInput& found);
    void checkInput(unsigned worker, const FoundInput& found);
    bool checkOpen(unsigned worker, const FoundInput& found, InputRecord& record);
    vidlint::InputReport check(unsigned worker, const FoundInput& found);
    void finish(const InputRecord& record);
    void finishUnchecked(const InputRecord& record, const FoundInput& found);
    void print(const std::string& text);
    void write(const std::string& text);
    void warn(const std::string& sentence);
    std::vector<std::string> keptRoots();
    int endRun();

    const CheckOptions m_options;
    const bool m_hasColor;
    const char* const m_lineStart;  ///< clears the progress in front of what is written to the terminal
    const bool m_isOutputBesideProgress;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::atomic<bool> m_cancel{false};
    std::atomic<bool> m_isCutOff{false};   ///< no time was left to search everything
    std::atomic<bool> m_hasDue{false};     ///< checks of unchanged inputs wait for the end of the search
    std::atomic<bool> m_hasFailed{false};  ///< the state cannot be used any more
    std::string m_failure;
    std::int64_t m_dueBefore = 0;  ///< checks that are older are due, seconds since 1970
    std::mutex m_searchMutex;
    Search m_search;
    std::unique_ptr<State> m_state;
    Progress m_progress;
    std::counting_semaphore<> m_openInputs;
    Turnstile m_memory;
    std::mutex m_outputMutex;
    Summary m_summary;
    bool m_hasLastRun = false;  ///< to compare with
    bool m_hasLostRoot = false;
};

}  // namespace archive
