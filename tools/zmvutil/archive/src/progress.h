// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace archive {

/// What the workers are doing. Safe from any thread.
class Progress
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Progress(unsigned workers);

    /// A worker begins an input, and ends it.
    void begin(unsigned worker, const std::string& path);
    void end(unsigned worker);
    /// An input needs no check.
    void skip(std::uint64_t bytes);
    /// Bytes of the current input of a worker that are done.
    void advance(unsigned worker, long long done);
    /// Totals of an earlier run, for the time that is left.
    void expect(std::uint64_t inputs, std::uint64_t bytes);

    /// One line without a line end: inputs, bytes, rate, what is being checked, and the time left where it
    /// can be told. Inputs without progress for a while are named as stalled. Escaped, and cut to width
    /// columns.
    std::string line(std::size_t width) const;

private:
    struct Worker
    {
        bool isBusy = false;
        std::string path;
        long long done = 0;
        Clock::time_point moved;
    };

    const Clock::time_point m_start = Clock::now();
    mutable std::mutex m_mutex;
    std::vector<Worker> m_workers;
    std::uint64_t m_inputs = 0;
    std::uint64_t m_bytes = 0;  ///< of what was checked
    std::uint64_t m_skippedBytes = 0;
    std::uint64_t m_expectedInputs = 0;
    std::uint64_t m_expectedBytes = 0;
};

}  // namespace archive
