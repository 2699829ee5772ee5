// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Runs that are killed: the state can be read, and the next run ends as if nothing had happened.

#include "tests/archive/childprocess.h"
#include "tests/support/propertysettings.h"
#include "tests/support/tempdir.h"
#include "tests/support/writesamples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <random>
#include <sstream>
#include <thread>
#include <utility>

namespace krx::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::duration_cast;
using std::chrono::microseconds;

/// A tree of many names for a few samples, and runs over it.
class Tree
{
public:
    explicit Tree(unsigned inputs, const std::vector<std::string>& names)
    {
        writeSamples(dir.bytes("samples"));
        dir.makeDir("in");
        for (unsigned i = 0; i < inputs; ++i) {
            const std::string& name = names[i % names.size()];
            if (i % 500 == 0)
                dir.makeDir("in/" + std::to_string(i / 500));
            fs::create_hard_link(dir.bytes("samples/" + name),
                                 dir.bytes("in/" + std::to_string(i / 500) + "/" + std::to_string(i) +
                                           fs::path(name).extension().string()));
        }
    }

    std::vector<std::string> command(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> words = {ARCHIVE_PROGRAM, "check",        "--min-age", "0",
                                          "--state",       dir.bytes("s"), "--quiet",   "-j2",
                                          dir.bytes("in")};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    /// The results in the state; status is 2 when no run has ended.
    std::string report(int* status = nullptr) const
    {
        return outputOf({ARCHIVE_PROGRAM, "report", "--format", "csv", dir.bytes("s")}, status);
    }
    void removeState() const
    {
        for (const char* end : {"", "-wal", "-shm", "-journal", "-running"})
            fs::remove(dir.bytes("s") + end);
    }
    /// Whether the state is one file again.
    bool isPlain() const
    {
        return std::count_if(
                   fs::directory_iterator(dir.path()), fs::directory_iterator(),
                   [](const auto& entry) { return entry.path().filename().string().starts_with("s-"); }) == 0;
    }

    const TempDir dir;
};

/// The reports of a first run and of one that finds nothing else.
struct Reports
{
    std::string first;
    std::string second;
};

/// Makes a state of the first run, "old", and both reports.
Reports learn(const Tree& tree)
{
    Reports reports;
    (void)outputOf(tree.command());
    reports.first = tree.report();
    fs::copy(tree.dir.bytes("s"), tree.dir.bytes("old"));
    (void)outputOf(tree.command({"--recheck"}));
    reports.second = tree.report();
    EXPECT_NE(reports.first, reports.second);
    return reports;
}

/// A state as before a first or a second run.
void reset(const Tree& tree, bool isSecond)
{
    tree.removeState();
    if (isSecond)
        fs::copy(tree.dir.bytes("old"), tree.dir.bytes("s"));
}

/// Checks what holds after a kill, whenever it was: the state has the results of the last run that ended, and
/// the next run ends with those that it would have had.
void expectRecovery(const Tree& tree, const Reports& reports, bool isSecond)
{
    int status = 0;
    const std::string left = tree.report(&status);
    const bool hasEnded = status == 0;
    EXPECT_TRUE(left == reports.first || (isSecond && left == reports.second) ||
                (!isSecond && !hasEnded && left.empty()))
        << left.substr(0, 1000);
    (void)outputOf(tree.command(), &status);
    EXPECT_EQ(status, 1);
    const bool isThird = isSecond || hasEnded;
    EXPECT_TRUE(tree.report(&status) == (isThird ? reports.second : reports.first));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(tree.isPlain());
}

const std::vector<std::string> kMixed = {"sound.mp4", "faults/18-cut.mp4", "sound.zmv",
                                         "faults/110-stall.zmv"};

TEST(Killed, AtAnyMoment)
{
    const Tree tree(1000, kMixed);
    const Reports reports = learn(tree);
    const auto start = Clock::now();
    (void)outputOf(tree.command({"--recheck"}));
    const auto whole = duration_cast<microseconds>(Clock::now() - start).count();

    std::mt19937 random(propertySeed());
    for (unsigned long i = 0; i < propertyCases(20) && !HasFailure(); ++i) {
        const bool isSecond = i % 2 == 1;
        const auto moment = static_cast<long>(random() % static_cast<unsigned long>(whole * 6 / 5));
        SCOPED_TRACE("case " + std::to_string(i) + ", after " + std::to_string(moment) + " us");
        reset(tree, isSecond);
        ChildProcess child(tree.command({"--recheck"}));
        std::this_thread::sleep_for(microseconds(moment));
        child.signal(SIGKILL);
        (void)child.wait();
        expectRecovery(tree, reports, isSecond);
    }
}

TEST(Killed, AtEachCallThatConcernsTheState)
{
    const Tree tree(20, kMixed);
    const Reports reports = learn(tree);
    const unsigned step = propertyCases(0) != 0 ? 1 : 11;
    for (const bool isSecond : {false, true}) {
        int status = 128 + SIGKILL;
        for (unsigned call = 1; status == 128 + SIGKILL && !HasFailure(); call += step) {
            SCOPED_TRACE(call);
            reset(tree, isSecond);
            const ChildProcess::Variables variables = {{"LD_PRELOAD", FAULTS_PRELOAD},
                                                       {"FAULT", "any:" + std::to_string(call) + ":SIG9"},
                                                       {"FAULT_FILE", fs::canonical(tree.dir.path()) / "s"}};
            (void)outputOf(tree.command({"--recheck"}), &status, variables);
            if (status == 128 + SIGKILL)
                expectRecovery(tree, reports, isSecond);
        }
        EXPECT_EQ(status, 1);
    }
}

/// How often a run opens a file of the tree.
unsigned long opens(const Tree& tree, const std::vector<std::string>& more)
{
    std::vector<std::string> command = tree.command(more);
    std::replace(command.begin(), command.end(), std::string("-j2"), std::string("-j1"));
    (void)outputOf(command, nullptr,
                   {{"LD_PRELOAD", FAULTS_PRELOAD},
                    {"FAULT_FILE", tree.dir.bytes("in/")},
                    {"FAULT_COUNT", tree.dir.bytes("calls")}});
    std::istringstream calls(tree.dir.read("calls"));
    std::string name;
    for (unsigned long n = 0; calls >> name >> n;)
        if (name == "open")
            return n;
    return 0;
}

TEST(Killed, RepeatsASecondOfWorkAtMost)
{
    constexpr unsigned kInputs = 2000;
    const Tree tree(kInputs, {"faults/18-cut.mp4"});
    const unsigned long all = opens(tree, {});
    tree.removeState();
    ASSERT_GE(all, kInputs);

    // A reader that is slow makes the run last.
    std::vector<std::string> command = tree.command();
    std::replace(command.begin(), command.end(), std::string("--quiet"), std::string("--format=jsonl"));
    ChildProcess child(command);
    std::deque<std::pair<Clock::time_point, long>> printed;  // lines by when they were read
    const auto end = Clock::now() + std::chrono::milliseconds(2500);
    std::string text;
    long lines = 0;
    while (Clock::now() < end && child.read(text)) {
        lines += std::count(text.begin(), text.end(), '\n');
        text.clear();
        printed.emplace_back(Clock::now(), lines);
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
    }
    child.signal(SIGKILL);
    ASSERT_EQ(child.wait(), 128 + SIGKILL);
    const auto lastSafe = Clock::now() - std::chrono::seconds(1);
    while (!printed.empty() && printed.back().first > lastSafe)
        printed.pop_back();
    ASSERT_FALSE(printed.empty());
    const long safe = printed.back().second - 1;  // without the line about the run
    ASSERT_GT(safe, 0);
    EXPECT_LE(opens(tree, {}), all / kInputs * static_cast<unsigned long>(kInputs - safe));
    EXPECT_EQ(opens(tree, {}), 0U);
}

}  // namespace
}  // namespace krx::test
