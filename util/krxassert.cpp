// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/krxassert.h"

#include "util/SRException.h"
#include "util/SRString.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace krx::util {

namespace {

struct SinkState
{
    std::mutex mutex;
    std::shared_ptr<const AssertSink> sink;
};

// A report without a sink costs one load: a damaged file can fail an assumption at every message.
std::atomic<bool> g_hasSink{false};

// Never destroyed, because destructors of static objects may still report.
SinkState& sinkState()
{
    static auto* const state = new SinkState;
    return *state;
}

SRString failureText(const char* kind, const char* file, int line)
{
    return SRString::format(L"%s failed in %s line %d", kind, file, line);
}

}  // namespace

void assertFailed(const char* file, int line) noexcept
{
    if (!g_hasSink.load(std::memory_order_acquire))
        return;
    try {
        std::shared_ptr<const AssertSink> sink;
        {
            SinkState& state = sinkState();
            const std::lock_guard lock(state.mutex);
            sink = state.sink;
        }
        // Called outside the lock: the sink may itself install another one, or fail an assumption.
        if (sink)
            (*sink)(failureText("Assert", file, line));
    } catch (...) {
        // Neither a failed assumption nor a failed report stops the caller.
    }
}

void ensureFailed(const char* file, int line)
{
    throw SRException(failureText("Ensure", file, line));
}

AssertSink setAssertSink(AssertSink sink)
{
    std::shared_ptr<const AssertSink> next;
    if (sink)
        next = std::make_shared<const AssertSink>(std::move(sink));
    SinkState& state = sinkState();
    {
        const std::lock_guard lock(state.mutex);
        g_hasSink.store(next != nullptr, std::memory_order_release);
        state.sink.swap(next);
    }
    return next ? *next : AssertSink();
}

}  // namespace krx::util
