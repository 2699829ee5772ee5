// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRThreadPool.h"

#include <algorithm>
#include <utility>

SRThreadPool::SRThreadPool(unsigned threads)
{
    const unsigned count = std::max(threads, 1U);
    m_threads.reserve(count);
    try {
        for (unsigned i = 0; i < count; ++i)
            m_threads.emplace_back([this] { work(); });
    } catch (...) {
        end();
        throw;
    }
}

SRThreadPool::~SRThreadPool()
{
    end();
}

bool SRThreadPool::post(Job job)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed)
            return false;
        m_jobs.push_back(std::move(job));
    }
    m_signal.notify_one();
    return true;
}

void SRThreadPool::close()
{
    {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
    }
    m_signal.notify_all();
}

bool SRThreadPool::isPoolThread() const
{
    return std::any_of(m_threads.begin(), m_threads.end(), [](const std::thread& thread) {
        return thread.get_id() == std::this_thread::get_id();
    });
}

void SRThreadPool::work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_signal.wait(lock, [this] { return m_closed || !m_jobs.empty(); });
        if (m_jobs.empty())
            return;
        const Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job();
        lock.lock();
    }
}

void SRThreadPool::end()
{
    close();
    for (std::thread& thread : m_threads)
        thread.join();
}
