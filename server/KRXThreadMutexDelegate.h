// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <condition_variable>
#include <mutex>

/// What a thread waits on while others work for it. Each thread has one, made at its first request and
/// destroyed at its end.
class KRXThreadMutexDelegate
{
public:
    /// The calling thread's.
    static KRXThreadMutexDelegate& current();

    KRXThreadMutexDelegate(const KRXThreadMutexDelegate&) = delete;
    KRXThreadMutexDelegate& operator=(const KRXThreadMutexDelegate&) = delete;

    /// Waits until done is set by resume(). Only for the owning thread.
    void suspend(const bool& done);
    /// Sets done and wakes the owner. The owner and all it owns may be gone when this returns.
    void resume(bool& done);

private:
    KRXThreadMutexDelegate() = default;
    ~KRXThreadMutexDelegate() = default;

    std::mutex m_mutex;
    std::condition_variable m_signal;
};
