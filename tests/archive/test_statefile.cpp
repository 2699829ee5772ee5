// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/statefixture.h"
#include "tests/support/propertysettings.h"
#include "tools/zmvutil/archive/src/database.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <random>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

// The marks of the calling thread are written slowly, and then not, while it is set.
thread_local bool t_losesMarks = false;

// Linked in place of the functions of these names, see CMakeLists.txt.
extern "C" {
ssize_t __real_pwrite64(int, const void*, std::size_t, off64_t);

ssize_t __wrap_pwrite64(int fd, const void* bytes, std::size_t size, off64_t offset)
{
    if (!t_losesMarks)
        return __real_pwrite64(fd, bytes, size, offset);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    errno = EIO;
    return -1;
}
}

namespace krx::test {
namespace {

namespace fs = std::filesystem;
using archive::Database;
using archive::State;
using Clock = std::chrono::steady_clock;

void change(const std::string& path, const char* sql)
{
    Database(path, Database::Access::kWrite).execute(sql);
}

std::vector<std::string> filesIn(const TempDir& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir.path()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string swapped(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos;)
        text.replace(at, from.size(), to);
    return text;
}

TEST(State, RefusesWhatIsNoState)
{
    const TempDir dir;
    const std::string path = dir.bytes("state");
    struct Row
    {
        const char* name;
        std::function<void()> spoil;
        const char* toRead;
        const char* toWrite;  // null when it can be used
    };
    const char* const kNone = "this is no state";
    const char* const kDamaged = "the state is damaged";
    for (const Row& row : std::vector<Row>{
             {"missing", [&] { fs::remove(path); }, "No such file or directory", nullptr},
             {"folder", [&] { fs::remove(path), fs::create_directory(path); }, "no regular file",
              "no regular file"},
             {"empty", [&] { fs::resize_file(path, 0); }, kNone, nullptr},
             {"text", [&] { dir.write("state", std::string(5000, 'x')); }, kNone, kNone},
             {"other", [&] { change(path, "PRAGMA application_id = 5"); }, kNone, kNone},
             {"version", [&] { change(path, "PRAGMA user_version = 2"); }, "of version 2", "of version 2"},
             {"schema", [&] { change(path, "CREATE VIEW v AS SELECT 1"); }, kDamaged, kDamaged},
             {"cut", [&] { fs::resize_file(path, 40'000); }, kDamaged, kDamaged},
             {"result", [&] { change(path, "DELETE FROM result"); }, kDamaged, nullptr},
             {"record", [&] { change(path, "UPDATE result SET record = '{'"); }, kDamaged, nullptr},
             {"order", [&] { dir.write("state", swapped(dir.read("state"), "input-0", "input-9")); },
              kDamaged, nullptr},
         })
    {
        SCOPED_TRACE(row.name);
        fs::remove_all(path);
        makeState(path, 3);
        row.spoil();
        const bool isFile = fs::is_regular_file(path);
        const std::string before = isFile ? dir.read("state") : "";
        const std::string error = stateError([&] { countInputs(path); });
        EXPECT_EQ(error.rfind(path + ": ", 0), 0U) << error;
        EXPECT_NE(error.find(row.toRead), std::string::npos) << error;
        const std::string written = stateError([&] {
            State state(path, State::Mode::kWrite);
            state.beginRun(makeRun({"a"}));
            EXPECT_FALSE(state.reuse("a", "input-1", "x", {1, 1, 1}));
            auto record = makeRecord("a", "input-1", kSound);
            state.store(record, {1, 1, 1});
        });
        EXPECT_NE(written.find(row.toWrite ? row.toWrite : ""), std::string::npos) << written;
        EXPECT_EQ(written.empty(), !row.toWrite) << written;
        EXPECT_TRUE(!row.toWrite || !isFile || dir.read("state") == before);
        EXPECT_LE(filesIn(dir).size(), 1U);
    }
    const std::string error = stateError([&] { State(dir.bytes("no/folder"), State::Mode::kWrite); });
    EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;
    // What SQLite would take for something else than a file.
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    for (const char* const name : {":memory:", "file:x?mode=memory", "%41"}) {
        makeState(name, 1);
        EXPECT_TRUE(fs::exists(dir.bytes(name))) << name;
    }
    fs::current_path(before);
}

TEST(State, IsLockedAndPlainAfterwards)
{
    const TempDir dir;
    const std::string path = dir.bytes("state");
    makeState(path, 5);
    EXPECT_EQ(filesIn(dir), std::vector<std::string>{"state"});
    EXPECT_EQ(dir.read("state").substr(18, 2), "\1\1");  // no log of its own
    fs::create_symlink("state", dir.bytes("link"));
    {
        State state(path, State::Mode::kWrite);
        for (const char* const name : {"state", "link"}) {
            EXPECT_EQ(stateError([&] { State(dir.bytes(name), State::Mode::kWrite); }),
                      dir.bytes(name) + ": the state is in use by another process");
        }
        state.beginRun(makeRun({"a"}));
        auto record = makeRecord("a", "new", kSound);
        state.store(record, {1, 2, 3});
        // Others see the last run that ended.
        EXPECT_EQ(countInputs(path), 5);
    }
    EXPECT_EQ(filesIn(dir), (std::vector<std::string>{"link", "state"}));
    EXPECT_EQ(dir.read("state").substr(18, 2), "\1\1");
}

TEST(State, IsReadFromWhatCannotBeWritten)
{
    const TempDir dir;
    makeState(dir.bytes("plain"), 5);
    makeState(dir.bytes("log"), 5);
    change(dir.bytes("log"), "PRAGMA journal_mode = WAL");
    fs::copy_file(dir.bytes("log"), dir.bytes("open"));
    dir.write("open-wal", "x");
    ::chmod(dir.path().c_str(), 0555);
    EXPECT_EQ(
        inChild([&] {
            if (::geteuid() == 0 && ::setuid(65534) != 0)
                return 1;
            if (countInputs(dir.bytes("plain")) != 5 || countInputs(dir.bytes("log")) != 5)
                return 2;
            if (stateError([&] { countInputs(dir.bytes("open")); }).find("not saved") == std::string::npos)
                return 3;
            if (stateError([&] {
                    State(dir.bytes("plain"), State::Mode::kWrite);
                }).find("cannot be written") == std::string::npos)
                return 4;
            return 0;
        }),
        0);
    ::chmod(dir.path().c_str(), 0755);
}

TEST(State, SaysWhenTheDiskIsFull)
{
    const TempDir dir;
    const std::string path = dir.bytes("state");
    makeState(path, 5);
    EXPECT_EQ(inChild([&] {
                  std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{300'000, 300'000};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  const std::string error = stateError([&] {
                      State state(path, State::Mode::kWrite);
                      state.beginRun(makeRun({"a"}));
                      for (int i = 0; i < 100'000; ++i) {
                          auto record = makeRecord("a", std::to_string(i), kCut);
                          state.store(record, {i, 7, 0});
                      }
                      state.endRun({});
                  });
                  return error.find("cannot be ") == std::string::npos ? 1 : 0;
              }),
              0);
    EXPECT_EQ(countInputs(path), 5);
    makeState(path, 7);
    EXPECT_EQ(countInputs(path), 7);
}

constexpr int kThreads = 3;
using Counts = std::array<std::atomic<int>, kThreads>;

/// Each thread t stores the inputs "t-0", "t-1" and so on until it is killed; stored counts the calls that
/// have returned.
void storeForEver(const std::string& path, Counts& stored)
{
    State state(path, State::Mode::kWrite);
    state.beginRun(makeRun({"a"}));
    const auto work = [&](std::size_t thread) {
        for (int i = 0;; stored[thread] = ++i) {
            auto record = makeRecord("a", std::to_string(thread) + '-' + std::to_string(i), kSound);
            if (state.reuse("a", record.name, record.report.path, {i, i, 0}))
                continue;
            state.beginInput("a", record.name, {i, i, 0});
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            state.store(record, {i, i, 0});
        }
    };
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
}

TEST(State, LosesASecondAtMostWhenKilled)
{
    const TempDir dir;
    const std::string path = dir.bytes("state");
    auto& stored = *new (
        ::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Counts;
    std::mt19937 random(propertySeed());
    for (unsigned long i = 0; i < propertyCases(3); ++i) {
        const pid_t child = ::fork();
        if (child == 0)
            storeForEver(path, stored);
        std::this_thread::sleep_for(std::chrono::milliseconds(300 + random() % 700));
        const std::array<int, kThreads> before = {stored[0], stored[1], stored[2]};
        std::this_thread::sleep_for(std::chrono::seconds(1));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        State state(path, State::Mode::kWrite);
        EXPECT_TRUE(state.hasUnfinishedRun());
        state.beginRun(makeRun({"a"}));
        for (int thread = 0; thread < kThreads; ++thread) {
            const int count = before[static_cast<std::size_t>(thread)];
            EXPECT_GT(count, 0);
            for (int n = 0; n < count; ++n)
                ASSERT_TRUE(
                    state.reuse("a", std::to_string(thread) + '-' + std::to_string(n), "x", {n, n, 0}));
        }
    }
    ::munmap(&stored, sizeof stored);
}

/// Begins to check inputs, and dies.
void dieWith(const std::string& path, const std::vector<const char*>& names)
{
    EXPECT_EQ(inChild([&] {
                  State state(path, State::Mode::kWrite);
                  state.beginRun(makeRun({"a"}));
                  for (const char* const name : names)
                      state.beginInput("a", name, {});
                  ::_exit(0);
                  return 0;
              }),
              0);
}

TEST(State, SkipsWhatEndedTheProcessTwice)
{
    const TempDir dir;
    const std::string path = dir.bytes("state");
    auto sound = makeRecord("a", "1", kSound);
    dieWith(path, {"1", "2"});
    {
        // Of the two, one is checked at a time.
        State state(path, State::Mode::kWrite);
        state.beginRun(makeRun({"a"}));
        EXPECT_TRUE(state.beginInput("a", "1", {}));
        EXPECT_TRUE(state.beginInput("a", "3", {}));
        std::atomic<bool> hasBegun = false;
        std::jthread second([&] {
            EXPECT_TRUE(state.beginInput("a", "2", {}));
            hasBegun = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(hasBegun);
        state.store(sound, {});
        second.join();
    }
    // "1" was checked, and "2" and "3" did not end that process.
    dieWith(path, {"1", "3"});
    dieWith(path, {"2"});
    for (const bool ends : {false, true}) {
        const auto begins = [&](const char* name, const archive::InputStamp& stamp, unsigned revision) {
            State state(path, State::Mode::kWrite);
            auto run = makeRun({"a"});
            run.revision = revision;
            state.beginRun(run);
            const bool mayBegin = state.beginInput("a", name, stamp);
            auto record = makeRecord("a", name, kCrashed);
            state.store(record, stamp);
            if (ends)
                state.endRun({});
            return mayBegin;
        };
        EXPECT_FALSE(begins("2", {}, 1));
        EXPECT_TRUE(begins("2", {1, 0, 0}, 1));
        EXPECT_TRUE(begins("2", {}, 2));
        EXPECT_TRUE(begins("1", {}, 1));
        EXPECT_TRUE(begins("3", {}, 1));
    }
}

TEST(State, HoldsASuspectBackUntilTheOneBeforeHasNoMark)
{
    const TempDir dir;
    const std::string path = dir.bytes("state");
    dieWith(path, {"1", "2"});
    State state(path, State::Mode::kWrite);
    state.beginRun(makeRun({"a"}));
    EXPECT_TRUE(state.beginInput("a", "1", {}));
    std::string error;
    std::jthread second([&] { error = stateError([&] { state.beginInput("a", "2", {}); }); });
    auto sound = makeRecord("a", "1", kSound);
    t_losesMarks = true;
    EXPECT_NE(stateError([&] { state.store(sound, {}); }), "");
    t_losesMarks = false;
    second.join();
    EXPECT_NE(error, "");
}

}  // namespace
}  // namespace krx::test
