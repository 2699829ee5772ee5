// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks inputs on all processors and lists those that need a look:
//
//     check_many INPUT...
//
// After SIGINT it stops soon; the list then has the inputs that were checked. The exit status is 1 when it
// names an input or is not whole.

#include "printable.h"

#include <vidlint/check.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

std::atomic<bool> cancelled{false};

/// Checks the inputs and returns their reports in the same order.
std::vector<vidlint::InputReport> checkAll(const std::vector<std::string>& paths)
{
    vidlint::Settings settings;
    settings.memory = std::make_shared<vidlint::MemoryQuota>(std::uint64_t{1} << 30);
    settings.cancel = &cancelled;
    settings.set("Mp4/Playback/AllowAnyAVCProfile", "true");

    std::vector<vidlint::InputReport> reports(paths.size());
    std::atomic<std::size_t> next{0};
    std::atomic<long long> bytes{0};
    const auto work = [&] {
        for (std::size_t i = next++; i < paths.size(); i = next++) {
            vidlint::Settings own = settings;
            own.progress = [&bytes, before = 0LL](long long done, long long) mutable {
                bytes += done - before;
                before = done;
            };
            reports[i] = vidlint::check(paths[i], own);
            std::fprintf(stderr, "%zu of %zu, %lld MB\n", i + 1, paths.size(), bytes.load() / 1000000);
        }
    };
    {
        std::vector<std::jthread> threads;
        for (unsigned n = std::max(1U, std::thread::hardware_concurrency()); n > 0; --n)
            threads.emplace_back(work);
    }
    return reports;
}

}  // namespace

int main(int argc, char** argv)
{
    std::signal(SIGINT, [](int) { cancelled = true; });
    bool isGood = true;
    for (const vidlint::InputReport& report : checkAll({argv + 1, argv + argc})) {
        if (report.cancelled || report.cause != vidlint::Cause::kNone) {
            const char* const word = report.cancelled ? "not checked" : nameOf(report.cause);
            std::printf("%s: %s\n", printable(report.path).c_str(), word);
            isGood = false;
        }
    }
    return isGood ? 0 : 1;
}
