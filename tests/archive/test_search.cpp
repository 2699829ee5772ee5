// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/searchresult.h"
#include "tests/support/tempdir.h"
#include "tools/zmvutil/archive/src/reachedpaths.h"
#include "tools/zmvutil/archive/src/rotationaldisks.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace krx::test {

SystemHooks g_hooks;

namespace {

int ioError()
{
    errno = EIO;
    return -1;
}

}  // namespace
}  // namespace krx::test

// The linker gives the search these functions in the place of the C library's.
extern "C" {

using krx::test::g_hooks;

int __real_fstatat64(int, const char*, struct stat64*, int);
int __real_fstat64(int, struct stat64*);
int __real_openat64(int, const char*, int, ...);
int __real___openat64_2(int, const char*, int);
dirent64* __real_readdir64(DIR*);

int __wrap_fstatat64(int folder, const char* name, struct stat64* status, int flags)
{
    g_hooks.asked.emplace_back(name);
    return name == g_hooks.unreadable ? krx::test::ioError() : __real_fstatat64(folder, name, status, flags);
}

int __wrap_fstat64(int fd, struct stat64* status)
{
    const int result = __real_fstat64(fd, status);
    if (status->st_ino == g_hooks.foreign)
        ++status->st_dev;
    if (status->st_ino == g_hooks.looped)
        status->st_ino = g_hooks.loopsTo;
    return result;
}

int __wrap_openat64(int folder, const char* name, int flags, ...)
{
    return name == g_hooks.unreadable ? krx::test::ioError() : __real_openat64(folder, name, flags, 0600);
}

// Its name where the C library checks its callers.
int __wrap___openat64_2(int folder, const char* name, int flags)
{
    return name == g_hooks.unreadable ? krx::test::ioError() : __real___openat64_2(folder, name, flags);
}

dirent64* __wrap_readdir64(DIR* folder)
{
    dirent64* const entry = __real_readdir64(folder);
    struct stat64 status = {};
    if (entry && g_hooks.putsFoldersFirst)
        entry->d_ino = entry->d_type == DT_DIR ? 1 : 2;
    if (entry && g_hooks.hidesKinds)
        entry->d_type = DT_UNKNOWN;
    if (!entry && __real_fstat64(::dirfd(folder), &status) == 0 && status.st_ino == g_hooks.brokenAtEnd)
        krx::test::ioError();
    return entry;
}
}

namespace krx::test {
namespace {

using archive::FoundInput;
using archive::InputStamp;
using archive::Search;
using archive::SearchOptions;

class SearchTest : public ::testing::Test
{
protected:
    SearchTest()
    {
        g_hooks = {};
        std::filesystem::current_path(m_dir.path());
    }
    ~SearchTest() override
    {
        g_hooks = {};
        std::filesystem::current_path(m_old);
    }

    /// Makes files and the folders around them.
    void write(const Names& names, const std::string& content = "") const
    {
        for (const std::string& name : names) {
            m_dir.makeDir(std::filesystem::path(name).parent_path().string());
            m_dir.write(name, content);
        }
    }
    /// Sets the time of the last change to seconds from now.
    static void setTime(const char* name, long seconds)
    {
        const timespec times[2] = {{0, UTIME_OMIT}, {std::time(nullptr) + seconds, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, name, times, 0), 0);
    }
    static ino_t inodeOf(const char* name)
    {
        struct stat status = {};
        EXPECT_EQ(::stat(name, &status), 0);
        return status.st_ino;
    }

    const std::filesystem::path m_old = std::filesystem::current_path();
    const TempDir m_dir;
};

TEST_F(SearchTest, RootsOfAllSpellings)
{
    write({"films/sub/x.mp4", "films/odd", "live/index", "live/0123456789ABCDEF"});
    std::filesystem::create_directory_symlink("films", "link");
    const struct
    {
        std::string root;
        Names names;
        Names paths;
    } cases[] = {
        {".", {"films/sub/x.mp4", "live"}, {"./films/sub/x.mp4", "./live"}},
        {"films", {"sub/x.mp4"}, {"films/sub/x.mp4"}},
        {"./films//", {"sub/x.mp4"}, {"./films/sub/x.mp4"}},
        {"films/sub/..", {"sub/x.mp4"}, {"films/sub/../sub/x.mp4"}},
        {m_dir.bytes("films/"), {"sub/x.mp4"}, {m_dir.bytes("films/sub/x.mp4")}},
        {"link", {"sub/x.mp4"}, {"link/sub/x.mp4"}},
        {"films/odd", {""}, {"films/odd"}},
        {"live/", {""}, {"live"}},
        {"none", {}, {}},
        {"/dev/null", {}, {}},
    };
    for (const auto& c : cases) {
        const SearchResult result(below({c.root}));
        EXPECT_EQ(result.sorted(), c.names) << c.root;
        EXPECT_EQ(result.sorted(&FoundInput::path), c.paths) << c.root;
        EXPECT_EQ(result.sentences.size(), c.names.empty() ? 1U : 0U) << c.root;
        EXPECT_EQ(result.isComplete, !c.names.empty()) << c.root;
    }
}

TEST_F(SearchTest, GlobsOfTheUser)
{
    write({"a.mkv", "b.MKV", "c.mp4", "trash/d.mkv", "x\xFF.mkv", "_.mkv"});
    SearchOptions options = below({"."});
    options.include = {"*.mkv", "c.*"};
    options.exclude = {"tr?sh", "[_]*"};
    const SearchResult result(options);
    EXPECT_EQ(result.sorted(), (Names{"a.mkv", "c.mp4", "x\xFF.mkv"}));
    EXPECT_EQ(result.counts.excluded, 2U);
    for (const char* const glob : {"", "a/b", "trash/"}) {
        options.exclude = {glob};
        EXPECT_THROW(SearchResult{options}, std::invalid_argument) << glob;
    }
}

TEST_F(SearchTest, ShardsAskAboutTheirOwnFilesOnly)
{
    for (int i = 0; i < 100; ++i)
        write({std::to_string(i) + ".mp4"});
    SearchOptions options = below({m_dir.path()});
    options.shard = 2;
    options.shards = 3;
    g_hooks.asked.clear();
    const SearchResult result(options);
    EXPECT_GT(result.inputs.size(), 20U);
    g_hooks.asked.erase(g_hooks.asked.begin());  // the root
    std::sort(g_hooks.asked.begin(), g_hooks.asked.end());
    EXPECT_EQ(g_hooks.asked, result.sorted());
    // Other programs compute the same.
    EXPECT_EQ(archive::shardOf("", 1000), 0xCBF29CE484222325 % 1000 + 1);
    EXPECT_EQ(archive::shardOf("foobar", 1000), 0x85944171F73967E8 % 1000 + 1);
}

TEST_F(SearchTest, YoungFilesAreSkipped)
{
    constexpr long kMinute = 60;
    write({"live/index", "live/contexts", "old.mp4", "now.mp4", "ahead.mp4", "wrong.mp4"});
    setTime("live/index", -20 * kMinute);
    setTime("old.mp4", -11 * kMinute);
    setTime("ahead.mp4", 9 * kMinute);
    setTime("wrong.mp4", 1000 * kMinute);
    SearchOptions options = below({"."});
    options.minAgeNs = 10 * kMinute * 1'000'000'000;
    SearchResult result(options);
    EXPECT_EQ(result.sorted(), (Names{"old.mp4", "wrong.mp4"}));
    std::sort(result.skipped.begin(), result.skipped.end());
    EXPECT_EQ(result.skipped, (Names{"ahead.mp4", "live", "now.mp4"}));
    EXPECT_EQ(result.counts.young, 3U);
    setTime("live/contexts", -20 * kMinute);
    EXPECT_EQ(SearchResult(options).sorted(), (Names{"live", "old.mp4", "wrong.mp4"}));
    options.minAgeNs = LLONG_MAX;
    EXPECT_EQ(SearchResult(options).counts.young, 5U);
}

TEST_F(SearchTest, StampsTellChanges)
{
    write({"live/index", "live/contexts", "live/other"}, "12345");
    write({"a.zmv"}, "123");
    for (const bool isFile : {false, true}) {
        const FoundInput input = SearchResult(below({isFile ? "a.zmv" : "live"})).inputs.at(0);
        EXPECT_EQ(input.stamp.size, isFile ? 3 : 15);
        EXPECT_EQ(input.stamp.members == 0, isFile);
        InputStamp last = input.stamp;
        const auto expectChange = [&](bool isExpected) {
            const InputStamp before = last;
            EXPECT_TRUE(Search::stampOf(input, last));
            EXPECT_EQ(last != before, isExpected) << input.path;
        };
        expectChange(false);
        setTime(isFile ? "a.zmv" : "live/index", -100);  // the latest time in the folder stays
        expectChange(true);
        std::filesystem::rename(isFile ? "live/new" : "live/other", isFile ? "live/other" : "live/new");
        expectChange(!isFile);
        std::filesystem::rename(input.path, "away");
        EXPECT_FALSE(Search::stampOf(input, last));
        std::filesystem::rename("away", input.path);
    }
}

TEST_F(SearchTest, WhatCannotBeReadIsSaidAndTheRestGoesOn)
{
    write({"bad/x.mp4", "broken/x.mp4", "good/x.mp4", "torn.mp4"});
    g_hooks.unreadable = "bad";
    g_hooks.brokenAtEnd = inodeOf("broken");
    const SearchResult result(below({"."}));
    EXPECT_EQ(result.sorted(), (Names{"broken/x.mp4", "good/x.mp4", "torn.mp4"}));
    EXPECT_EQ(result.counts.unreadable, 2U);
    EXPECT_FALSE(result.isComplete);
    EXPECT_EQ(result.sentences.size(), 2U);
    for (const std::string& sentence : result.sentences)
        EXPECT_TRUE(sentence.starts_with("./b") && sentence.ends_with("(Input/output error)")) << sentence;

    // A file that cannot be asked about is an input: its check says what is wrong.
    g_hooks.unreadable = "torn.mp4";
    for (const FoundInput& input : SearchResult(below({"."})).inputs)
        EXPECT_EQ(input.stamp == InputStamp(), input.name == "torn.mp4") << input.name;

    g_hooks = {};
    g_hooks.foreign = inodeOf("good");
    SearchOptions options = below({"."});
    EXPECT_EQ(SearchResult(options).inputs.size(), 4U);
    options.staysOnFileSystem = true;
    EXPECT_EQ(SearchResult(options).sorted(), (Names{"bad/x.mp4", "broken/x.mp4", "torn.mp4"}));

    g_hooks = {};
    g_hooks.looped = inodeOf("good");
    g_hooks.loopsTo = inodeOf(".");
    const SearchResult loop(below({"."}));
    EXPECT_EQ(loop.sorted(), (Names{"bad/x.mp4", "broken/x.mp4", "torn.mp4"}));
    EXPECT_EQ(loop.sentences, Names{"./good: the folder lies in itself"});
}

TEST_F(SearchTest, PathsThatAreTooLongToOpen)
{
    constexpr std::size_t kDepth = 120;
    const std::string name(39, 'd');
    int folder = ::open(".", O_RDONLY | O_DIRECTORY);
    for (std::size_t i = 0; i < kDepth; ++i) {
        ASSERT_EQ(::mkdirat(folder, name.c_str(), 0700), 0);
        const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(folder);
        folder = next;
        ::close(::openat(folder, "ten-letter.mp4", O_CREAT | O_WRONLY, 0600));
    }
    ::close(folder);
    const SearchResult result(below({"."}));
    // "." and 101 folders of 40 bytes with their slashes leave room for 15 bytes and a zero; one more folder
    // would leave it for 14 and none.
    static_assert(PATH_MAX == 4096);
    EXPECT_EQ(result.inputs.size(), 101U);
    EXPECT_EQ(result.sentences.size(), kDepth - result.inputs.size());
    EXPECT_EQ(result.skipped.size(), result.sentences.size());
}

TEST_F(SearchTest, FoldersThatVanish)
{
    for (int i = 0; i < 10; ++i)
        write({"tree/" + std::to_string(i) + "/x.mp4"});
    Names sentences;
    Search search(below({"tree"}), [&](const std::string& text) { sentences.push_back(text); });
    FoundInput found;
    ASSERT_TRUE(search.next(found));
    std::filesystem::remove_all("tree");
    EXPECT_FALSE(search.next(found));
    EXPECT_EQ(sentences.size(), 9U);
    EXPECT_EQ(search.foundBelow("tree"), 1U);
}

TEST_F(SearchTest, FoldersThatAreMovedAway)
{
    Names folders = {"tree"};
    for (int i = 1; i < 60; ++i)
        folders.push_back(folders.back() + "/d");
    write({folders[59] + "/x.mp4", folders[30] + "/x.mp4", folders[5] + "/x.mp4", "tree/x.mp4"});
    g_hooks.putsFoldersFirst = true;
    for (const bool isLost : {false, true}) {
        Names sentences;
        Search search(below({"tree"}), [&](const std::string& text) { sentences.push_back(text); });
        // The search stands in the lowest folder and has closed the upper ones.
        FoundInput found;
        ASSERT_TRUE(search.next(found));
        std::filesystem::rename(folders[9], "low");
        if (isLost)
            std::filesystem::rename(folders[2], "high");
        while (search.next(found)) {
        }
        EXPECT_EQ(search.foundBelow("tree"), isLost ? 3U : 4U);
        EXPECT_EQ(sentences.size(), isLost ? 7U : 0U);  // of the folders from 8 to 2
        if (!isLost)
            std::filesystem::rename("low", folders[9]);
    }
}

TEST_F(SearchTest, Lists)
{
    write({"live.mp4/index", "live.mp4/contexts", "folder.mp4/x.mp4", "folder.mp4/y.mp4", "odd"});
    std::filesystem::create_directory_symlink("folder.mp4", "link");
    const std::string list = std::string("odd\0\0folder.mp4\0missing\0link\0", 29) + std::string(5000, 'x') +
                             '\0' + "odd" + '\0' + "live.mp4";
    write({"list"}, list);
    SearchOptions options;
    options.filesFrom = "list";
    const SearchResult result(options);
    EXPECT_EQ(result.sorted(), (Names{"folder.mp4/x.mp4", "folder.mp4/y.mp4", "live.mp4", "missing", "odd"}));
    EXPECT_EQ(result.sentences.size(), 2U);
    for (const std::string& sentence : result.sentences)
        EXPECT_TRUE(sentence.starts_with("list: ")) << sentence;
    EXPECT_EQ(result.counts.repeated, 2U);
    std::uint64_t found = 0;
    options.shards = 3;
    for (options.shard = 1; options.shard <= 3; ++options.shard)
        found += SearchResult(options).counts.found;
    EXPECT_EQ(found, result.counts.found);
    options.filesFrom = ".";
    EXPECT_EQ(SearchResult(options).sentences.size(), 1U);
    options.filesFrom = "none";
    EXPECT_THROW(SearchResult{options}, std::runtime_error);
}

TEST(ReachedPaths, BelowTheRootOfTheSystem)
{
    archive::ReachedPaths paths({"/", "/dev/"}, false, [](const std::string&) {});
    EXPECT_FALSE(paths.reach(paths.realPathOf("/", true), "/dev", 0));
    EXPECT_TRUE(paths.reach(paths.realPathOf("/dev", true), "", 1));
    EXPECT_TRUE(paths.reach(paths.realPathOf("/dev", true), "/null", 1));
}

TEST_F(SearchTest, DisksThatTurn)
{
    write({"devices/disk/queue/rotational"}, "1\n");
    write({"devices/chip/queue/rotational"}, "0\n");
    const char* const devices[] = {"disk", "disk/partition", "chip", "chip/partition"};
    for (unsigned i = 0; i < 4; ++i) {
        const std::string folder = m_dir.bytes("devices/") + devices[i];
        std::filesystem::create_directory(folder);
        std::filesystem::create_directory_symlink(folder, "8:" + std::to_string(i));
    }
    archive::RotationalDisks disks(".");
    for (unsigned i = 0; i < 5; ++i)
        EXPECT_EQ(disks.isRotational(::makedev(8, i)), i < 2) << i;
}

}  // namespace
}  // namespace krx::test
