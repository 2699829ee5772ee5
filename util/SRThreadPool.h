// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// A fixed number of threads that run jobs in the order in which they came.
class SRThreadPool
{
public:
    using Job = std::function<void()>;

    /// At least one thread.
    explicit SRThreadPool(unsigned threads);
    /// Runs what was posted, then ends the threads. Not from a pool thread.
    ~SRThreadPool();
    SRThreadPool(const SRThreadPool&) = delete;
    SRThreadPool& operator=(const SRThreadPool&) = delete;

    /// Hands over a job, which must not throw. False when the pool is closed.
    bool post(Job job);
    /// Takes no more jobs; those posted still run.
    void close();
    /// The calling thread is one of the pool's.
    bool isPoolThread() const;

private:
    void work();
    void end();

    std::mutex m_mutex;
    std::condition_variable m_signal;
    std::deque<Job> m_jobs;
    bool m_closed = false;
    std::vector<std::thread> m_threads;
};
