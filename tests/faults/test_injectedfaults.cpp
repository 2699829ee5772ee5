// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Every call that the program makes on an input or its copy fails in turn, and so does every allocation.

#include "tests/faults/faultrunner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <set>
#include <string>

namespace krx::test {
namespace {

#ifdef FAULTS_SANITIZED
constexpr unsigned long kMostRuns = 8;  // a sanitized process takes long to start
#else
constexpr unsigned long kMostRuns = 40;
#endif

/// The step that makes at most kMostRuns of n.
unsigned long stepFor(unsigned long n)
{
    return std::max(1UL, (n + kMostRuns - 1) / kMostRuns);
}

std::string faultAt(const char* call, unsigned long n, const std::string& action)
{
    return std::string(call) + ":" + std::to_string(n) + ":" + action;
}

enum class Expected
{
    kPasses,
    kFails,
    kEither  ///< some of the calls are not needed, or come when all is done
};

struct Row
{
    const char* name;
    Victim victim;
    const char* call;
    std::string action;
    Expected expected;
    std::set<int> numbers;         ///< that may reject the victim; -1: none does
    const char* target = nullptr;  ///< what is changed instead of the usual file, relative to the inputs
};

std::string error(int number)
{
    return std::to_string(number);
}

const Row kRows[] = {
    {"FilmReadError", Victim::kFilm, "read", error(EIO), Expected::kFails, {5}},
    {"FilmShortMoves", Victim::kFilm, "any", "short", Expected::kPasses, {}},
    {"FilmInterrupted", Victim::kFilm, "any", "interrupt", Expected::kPasses, {}},
    {"FilmStopped", Victim::kFilm, "any", "stop", Expected::kPasses, {}},
    // Cut before it is opened, it is another file: its last message has no end.
    {"FilmShrinks", Victim::kFilm, "any", "shrink", Expected::kEither, {5, 9}},
    {"FilmGrows", Victim::kFilm, "any", "grow", Expected::kEither, {5}},
    {"FilmVanishes", Victim::kFilm, "any", "vanish", Expected::kEither, {3, 4}},
    {"FilmNoDescriptor", Victim::kFilm, "open", error(EMFILE), Expected::kFails, {4, 6}},
    {"FilmNoStatus", Victim::kFilm, "stat", error(EIO), Expected::kFails, {2, 3, 4, 6}},
    {"CopyDiskFull", Victim::kFilm, "write", error(ENOSPC), Expected::kFails, {6}},
    {"CopyWriteError", Victim::kFilm, "write", error(EIO), Expected::kFails, {6}},
    {"CopyLockedByAnother", Victim::kFilm, "lock", error(EWOULDBLOCK), Expected::kFails, {6}},
    {"CopyWithoutLock", Victim::kFilm, "lock", error(ENOLCK), Expected::kPasses, {}},
    {"CopyNotEmptied", Victim::kFilm, "truncate", error(EIO), Expected::kFails, {6}},
    {"CopyNotClosed", Victim::kFilm, "close", error(EIO), Expected::kEither, {6}},
    {"MovieReadError", Victim::kMovie, "read", error(EIO), Expected::kFails, {5}},
    {"MovieShortMoves", Victim::kMovie, "any", "short", Expected::kPasses, {}},
    {"MovieInterrupted", Victim::kMovie, "any", "interrupt", Expected::kPasses, {}},
    {"MovieShrinks", Victim::kMovie, "any", "shrink", Expected::kEither, {5, 18}},
    {"MovieGrows", Victim::kMovie, "any", "grow", Expected::kPasses, {}},
    {"MovieVanishes", Victim::kMovie, "any", "vanish", Expected::kEither, {3, 4}},
    {"MovieNoDescriptor", Victim::kMovie, "open", error(EMFILE), Expected::kFails, {4}},
    {"MovieNoStatus", Victim::kMovie, "stat", error(EIO), Expected::kEither, {2, 3, 4}},
    {"RecordingReadError", Victim::kRecording, "read", error(EIO), Expected::kFails, {32, 34}},
    {"RecordingShortMoves", Victim::kRecording, "any", "short", Expected::kPasses, {}},
    {"RecordingInterrupted", Victim::kRecording, "any", "interrupt", Expected::kPasses, {}},
    {"RecordingShrinks", Victim::kRecording, "any", "shrink", Expected::kEither, {35}},
    {"RecordingIndexShrinks", Victim::kRecording, "any", "shrink", Expected::kEither, {32}, "victim/index"},
    {"RecordingGrows", Victim::kRecording, "any", "grow", Expected::kEither, {35, 36, 37}},
    {"RecordingSegmentVanishes", Victim::kRecording, "any", "vanish", Expected::kEither, {34}},
    // A directory that is not there yet is no fault of a stream, and has no line.
    {"RecordingVanishes", Victim::kRecording, "any", "vanish", Expected::kEither, {-1, 3, 34}, "victim"},
    {"RecordingNoDescriptor", Victim::kRecording, "open", error(EMFILE), Expected::kFails, {32, 34}},
    {"RecordingNoStatus", Victim::kRecording, "stat", error(EIO), Expected::kEither, {2, 3, 32, 34}},
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

/// A run without a fault: shows which copy is to be made, and counts the calls.
Outcome undisturbed(FaultRunner& runner)
{
    Outcome outcome = runner.run({});
    runner.setCopy(runner.dir.read("in/victim.zmv.new"));
    EXPECT_EQ(runner.verdict(outcome), 0) << outcome.report;
    EXPECT_EQ(runner.hasWholeCopy(), true);
    return outcome;
}

class InjectedFault : public testing::TestWithParam<Row>
{
};

TEST_P(InjectedFault, EndsInTheDocumentedError)
{
    const Row& row = GetParam();
    FaultRunner runner(row.victim);
    const unsigned long calls = undisturbed(runner).calls[row.call];
    ASSERT_GT(calls, 0U);
    if (row.target)
        runner.target = runner.dir.bytes(std::string("in/") + row.target);
    const bool changes = row.action == "shrink" || row.action == "grow" || row.action == "vanish";

    unsigned failures = 0;
    for (unsigned long n = 1; n <= calls; n += stepFor(calls)) {
        SCOPED_TRACE(faultAt(row.call, n, row.action));
        runner.restore();
        const int number = runner.verdict(runner.run({faultAt(row.call, n, row.action)}));
        EXPECT_TRUE(number == 0 || row.numbers.count(number) == 1) << number;
        EXPECT_TRUE(number != 0 || row.expected != Expected::kFails);
        failures += number != 0 ? 1 : 0;
        if (!changes)
            runner.expectNoHarm();
    }
    EXPECT_EQ(failures > 0, row.expected != Expected::kPasses);

    // At every call.
    if (row.expected != Expected::kEither) {
        runner.restore();
        const Outcome always = runner.run({std::string(row.call) + ":*:" + row.action});
        EXPECT_EQ(runner.verdict(always) == 0, row.expected == Expected::kPasses) << always.report;
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, InjectedFault, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

class DeadlySignal : public testing::TestWithParam<int>
{
};

TEST_P(DeadlySignal, LeavesTheInputAndNoHalfCopyThatLooksWhole)
{
    const std::string action = "SIG" + std::to_string(GetParam());
    FaultRunner runner(Victim::kFilm);
    const unsigned long calls = undisturbed(runner).calls["any"];
    bool hasPart = false;
    for (unsigned long n = 1; n <= calls; n += stepFor(calls)) {
        SCOPED_TRACE(faultAt("any", n, action));
        runner.restore();
        EXPECT_EQ(runner.run({faultAt("any", n, action)}).signal, GetParam());
        runner.expectNoHarm();
        hasPart |= !runner.dir.read("in/victim.zmv.new").empty() && !runner.hasWholeCopy();
    }
    EXPECT_TRUE(hasPart);
}

INSTANTIATE_TEST_SUITE_P(Faults, DeadlySignal, testing::Values(SIGINT, SIGTERM, SIGKILL),
                         [](const auto& number) { return std::string(::sigabbrev_np(number.param)); });

class Allocations : public testing::TestWithParam<Victim>
{
};

TEST_P(Allocations, ThatFailEndOneInput)
{
#ifdef FAULTS_SANITIZED
    GTEST_SKIP() << "the sanitizers bring an allocator of their own";
#endif
    FaultRunner runner(GetParam());
    const unsigned long calls = undisturbed(runner).calls["malloc"];
    ASSERT_GT(calls, 100U);
    unsigned failures = 0;
    // One that fails, and all from one on.
    for (const char* kindOfFault : {":", "+:"}) {
        unsigned long step = 0;
        for (unsigned long n = 1; n <= calls; n += step) {
            const std::string fault = "malloc:" + std::to_string(n) + kindOfFault + error(ENOMEM);
            SCOPED_TRACE(fault);
            std::filesystem::remove(runner.path + ".new");
            const Outcome outcome = runner.run({fault});
            EXPECT_EQ(outcome.signal, 0) << outcome.errors;
            runner.expectNoHarm();
            if (outcome.status == 255) {  // not even the options could be read
                step = 20;
                continue;
            }
            step = *kindOfFault == ':' ? 1 : 20;
            EXPECT_EQ(runner.passed(outcome) + outcome.status, 2) << outcome.report;
            EXPECT_EQ(outcome.errors, "");
            // The other input needs no repair, whatever was read of it.
            EXPECT_FALSE(std::filesystem::exists(runner.dir.bytes("in/other.zmv.new")));
            failures += outcome.status != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(failures, 10U);
}

INSTANTIATE_TEST_SUITE_P(Faults, Allocations,
                         testing::Values(Victim::kFilm, Victim::kMovie, Victim::kRecording),
                         [](const auto& victim) {
                             return std::string(victim.param == Victim::kFilm    ? "Film"
                                                : victim.param == Victim::kMovie ? "Movie"
                                                                                 : "Recording");
                         });

}  // namespace
}  // namespace krx::test
