// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// What the surroundings refuse: a report that nobody takes, and the limits of a process.

#include "tests/faults/faultrunner.h"
#include "tests/support/zmvbuilder.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/resource.h>

namespace krx::test {
namespace {

/// Learns from a run without a fault what the copy has to be.
void learnCopy(FaultRunner& runner)
{
    const Outcome usual = runner.run({});
    runner.setCopy(runner.dir.read("in/victim.zmv.new"));
    ASSERT_EQ(runner.verdict(usual), 0);
}

TEST(Surroundings, UnwritableReportChangesNothingElse)
{
    FaultRunner runner(Victim::kFilm);
    learnCopy(runner);
    const struct
    {
        const char* name;
        FaultRun how;
    } cases[] = {{"full disk", {"", "/dev/full"}},
                 {"pipe without a reader", {"", "", true}},
                 {"no standard output", {"", "", false, true}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (const bool isBroken : {false, true}) {
            runner.restore();
            if (isBroken)
                runner.dir.write("in/other.zmv", "no film");
            // Verbose: the report is longer than two buffers.
            const Outcome outcome = runner.run(c.how, {"-vms"});
            EXPECT_EQ(outcome.signal, 0);
            EXPECT_EQ(outcome.status, isBroken ? 1 : 0);
            EXPECT_EQ(outcome.report, "");
            EXPECT_EQ(outcome.errors, "");
            EXPECT_TRUE(runner.hasWholeCopy());
        }
    }
}

TEST(Surroundings, LimitsOfTheProcess)
{
    FaultRunner runner(Victim::kFilm);
    learnCopy(runner);
    const struct
    {
        const char* name;
        FaultRun how;
        int number;
    } cases[] = {
#ifndef FAULTS_SANITIZED
        // One descriptor beside the standard ones: enough for an input, not for its copy. A sanitizer needs
        // some for itself.
        {"descriptors", {"", "", false, false, {{RLIMIT_NOFILE, 4}}}, 6},
#endif
        {"size of a file", {"", "", false, false, {{RLIMIT_FSIZE, 300000}}}, 6},
        {"size of a file, nothing at all", {"", "/dev/null", false, false, {{RLIMIT_FSIZE, 0}}}, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        runner.restore();
        const Outcome outcome = runner.run(c.how);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.signal, 0);
        EXPECT_TRUE(c.number < 0 || runner.verdict(outcome) == c.number) << outcome.report;
        runner.expectNoHarm();
    }
}

TEST(Surroundings, AddressSpaceEndsTheLargeInputOnly)
{
#ifdef FAULTS_SANITIZED
    GTEST_SKIP() << "the sanitizers reserve terabytes of addresses";
#endif
    FaultRunner runner(Victim::kFilm);
    const auto limited = [&](rlim_t megabytes) {
        return runner.run({"", "", false, false, {{RLIMIT_AS, megabytes << 20}}});
    };
    // The least that is enough for an input of usual size.
    runner.setCopy((runner.run({}), runner.dir.read("in/victim.zmv.new")));
    rlim_t enough = 8;
    while (enough < 1024 && limited(enough).status != 0)
        enough += 4;
    ASSERT_LT(enough, 1024U);

    Amf metadata = Amf().string("onMetaData").object();
    for (int i = 0; i < 240; ++i)
        metadata.name("text" + std::to_string(i)).string(std::string(65000, 'x'));
    metadata.end();
    const std::string large = ZmvBuilder().data(0, metadata).audio(0).video(1000).bytes();
    runner.dir.write("in/victim.zmv", large);
    const Outcome outcome = limited(enough + 8);
    EXPECT_NE(runner.verdict(outcome), 0);
    EXPECT_EQ(runner.dir.read("in/victim.zmv"), large);
    // It lacks only memory.
    const Outcome unlimited = runner.run({});
    EXPECT_EQ(unlimited.status, 0) << unlimited.report;
}

}  // namespace
}  // namespace krx::test
