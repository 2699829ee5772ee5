// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// A run on several threads, in this process, so that a sanitizer of threads sees all of it.

#include "tests/support/tempdir.h"
#include "tests/support/writesamples.h"
#include "tools/zmvutil/archive/src/checkrun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <locale>
#include <memory>
#include <thread>

namespace krx::test {
namespace {

using archive::CheckRun;

/// Runs while another thread asks for the progress, and ends the run after stopAfter milliseconds unless that
/// is 0. Returns what is printed.
std::string run(const TempDir& dir, const std::vector<std::string>& more, unsigned stopAfter = 0)
{
    std::vector<std::string> arguments = {"--format=jsonl", "--min-age=0",  "-j4",          "--memory=64M",
                                          "--state",        dir.bytes("s"), dir.bytes("in")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    auto options = archive::parseCheck(arguments);
    options->settings.memory = std::make_shared<vidlint::MemoryQuota>(options->memory);
    testing::internal::CaptureStdout();
    {
        CheckRun check(*options);
        const std::jthread attendant([&](const std::stop_token& stop) {
            for (unsigned ms = 0; !stop.stop_requested(); ++ms) {
                EXPECT_LE(check.progressLine(80).size(), 80U);
                if (ms == stopAfter && ms != 0)
                    check.stop();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        const int status = check.run();
        EXPECT_TRUE(status == 1 || stopAfter != 0) << status;
    }
    return testing::internal::GetCapturedStdout();
}

/// The standard library fills a table of characters when it first needs them: every thread writes the same,
/// which a sanitizer does not know.
void fillCharacterTable()
{
    const auto& characters = std::use_facet<std::ctype<char>>(std::locale());
    for (int c = 0; c < 256; ++c)
        (void)characters.narrow(static_cast<char>(c), '\0');
}

TEST(CheckRun, OnFourThreadsWithAState)
{
    fillCharacterTable();
    const TempDir dir;
    for (const char* const copy : {"in/1", "in/2", "in/3"})
        writeSamples((dir.makeDir(copy), dir.bytes(copy)));
    const std::string stopped = run(dir, {}, 3);
    const std::string first = run(dir, {"--io=2"});
    EXPECT_LE(stopped.size(), first.size());
    const std::string second = run(dir, {});
    const auto lines = std::count(first.begin(), first.end(), '\n');
    EXPECT_GT(lines, 250);
    EXPECT_EQ(std::count(second.begin(), second.end(), '\n'), lines);
    const std::string third = run(dir, {"--recheck"});
    EXPECT_EQ(third.size(), second.size());
}

}  // namespace
}  // namespace krx::test
