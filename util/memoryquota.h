// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace krx::util {

/// A number of bytes that several users share. Safe from any thread.
class MemoryQuota
{
public:
    explicit MemoryQuota(std::uint64_t limit) : m_limit(limit) {}
    MemoryQuota(const MemoryQuota&) = delete;
    MemoryQuota& operator=(const MemoryQuota&) = delete;

    std::uint64_t limit() const { return m_limit; }
    std::uint64_t used() const { return m_used.load(std::memory_order_relaxed); }

    /// False, and nothing changes, when fewer than n bytes are left.
    bool take(std::uint64_t n)
    {
        std::uint64_t used = m_used.load(std::memory_order_relaxed);
        do
            if (n > m_limit - used)
                return false;
        while (!m_used.compare_exchange_weak(used, used + n, std::memory_order_relaxed));
        return true;
    }
    /// Gives back what was taken.
    void give(std::uint64_t n) { m_used.fetch_sub(n, std::memory_order_relaxed); }

private:
    const std::uint64_t m_limit;
    std::atomic<std::uint64_t> m_used{0};
};

/// What one user has taken of a quota; gives it back at its end.
class QuotaShare
{
public:
    /// quota may be null: then everything is granted.
    explicit QuotaShare(MemoryQuota* quota) : m_quota(quota) {}
    ~QuotaShare() { resize(0); }
    QuotaShare(const QuotaShare&) = delete;
    QuotaShare& operator=(const QuotaShare&) = delete;

    std::uint64_t size() const { return m_size; }
    /// Makes the share n bytes. False, and nothing changes, when the quota has not so many.
    bool resize(std::uint64_t n)
    {
        if (m_quota) {
            if (n > m_size && !m_quota->take(n - m_size))
                return false;
            if (n < m_size)
                m_quota->give(m_size - n);
        }
        m_size = n;
        return true;
    }

private:
    MemoryQuota* m_quota;
    std::uint64_t m_size = 0;
};

}  // namespace krx::util
