// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/options.h"
#include "tools/zmvutil/archive/src/progress.h"
#include "tools/zmvutil/archive/src/state.h"
#include "tools/zmvutil/archive/src/summary.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>

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
    /// Ends the run soon; for any thread.
    void stop() { m_cancel = true; }
    std::string progressLine(std::size_t width) const { return m_progress.line(width); }

private:
    void work(unsigned worker);
    bool takeInput(FoundInput& found);
    void checkInput(unsigned worker, const FoundInput& found);
    bool takeStored(const FoundInput& found);
    bool checkOpen(unsigned worker, const FoundInput& found, InputRecord& record);
    bool isDue(const FoundInput& found);
    void finish(const InputRecord& record);
    void print(const std::string& text);
    void warn(const std::string& sentence);
    int endRun();

    const CheckOptions m_options;
    const bool m_hasColor;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::atomic<bool> m_cancel{false};
    std::atomic<bool> m_isOutOfTime{false};
    std::atomic<bool> m_hasFailed{false};  ///< the state cannot be used any more
    std::string m_failure;
    std::mutex m_searchMutex;
    Search m_search;
    std::unique_ptr<State> m_state;
    Progress m_progress;
    std::counting_semaphore<> m_openInputs;
    std::mutex m_outputMutex;
    Summary m_summary;
    bool m_problems = false;  ///< with paths or roots
};

}  // namespace archive
