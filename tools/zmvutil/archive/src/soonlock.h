// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <mutex>
#include <thread>

namespace archive {

/// Locks a mutex that others hold for a few microseconds only. A thread that sleeps for it costs more than
/// the work that it protects, so it is asked for a while first.
inline std::unique_lock<std::mutex> lockSoon(std::mutex& mutex)
{
    constexpr int kAttempts = 200;
    for (int i = 0; i < kAttempts; ++i) {
        if (mutex.try_lock())
            return {mutex, std::adopt_lock};
        std::this_thread::yield();
    }
    return std::unique_lock(mutex);
}

}  // namespace archive
