// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <mutex>
#include <shared_mutex>

namespace archive {

/// Lets any number of threads work together, or one alone, in the order in which they come: who wants to be
/// alone does not wait for those that come later.
class Turnstile
{
public:
    [[nodiscard]] std::shared_lock<std::shared_mutex> together()
    {
        const std::lock_guard lock(m_entrance);
        return std::shared_lock(m_inside);
    }
    [[nodiscard]] std::unique_lock<std::shared_mutex> alone()
    {
        const std::lock_guard lock(m_entrance);
        return std::unique_lock(m_inside);
    }

private:
    std::mutex m_entrance;
    std::shared_mutex m_inside;
};

}  // namespace archive
