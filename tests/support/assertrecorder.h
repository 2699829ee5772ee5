// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRString.h"
#include "util/krxassert.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace krx::test {

/// Collects the assertion reports that are made while it lives.
class AssertRecorder
{
public:
    AssertRecorder()
        : m_before(util::setAssertSink([this](const SRString& text) {
              const std::lock_guard lock(m_mutex);
              m_texts.emplace_back(text.toMultiByte().view());
          }))
    {
    }
    ~AssertRecorder() { util::setAssertSink(m_before); }
    AssertRecorder(const AssertRecorder&) = delete;
    AssertRecorder& operator=(const AssertRecorder&) = delete;

    /// The reports since the last call.
    std::vector<std::string> take()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_texts, {});
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_texts;
    util::AssertSink m_before;
};

}  // namespace krx::test
