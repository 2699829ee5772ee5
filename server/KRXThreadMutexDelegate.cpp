// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/KRXThreadMutexDelegate.h"

KRXThreadMutexDelegate& KRXThreadMutexDelegate::current()
{
    thread_local KRXThreadMutexDelegate delegate;
    return delegate;
}

void KRXThreadMutexDelegate::suspend(const bool& done)
{
    std::unique_lock lock(m_mutex);
    m_signal.wait(lock, [&done] { return done; });
}

void KRXThreadMutexDelegate::resume(bool& done)
{
    // Signalled under the mutex: the owner cannot go on, and end, before the signal is given.
    const std::lock_guard lock(m_mutex);
    done = true;
    m_signal.notify_one();
}
