// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/tempdir.h"
#include "util/SRFileUtil.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <signal.h>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace krx::test {
namespace {

namespace fs = std::filesystem;
using util::SRAutoFile;
using util::SRFileUtil;

mode_t permissionOf(const SRString& path)
{
    struct ::stat64 st = {};
    return SRFileUtil::stat64(path, &st) == 0 ? st.st_mode & 07777 : 0;
}

TEST(SRFileUtil, OpenCreatesWithThePermissionOfTheModeBits)
{
    const TempDir dir;
    const mode_t before = ::umask(0);
    const struct
    {
        int mode;
        mode_t permission;
    } cases[] = {{0x80, 0666}, {0600, 0666}, {0x100, 0444}, {0x45, 0105}};
    for (const auto& c : cases) {
        const SRString path = dir.file(std::to_string(c.mode));
        const SRAutoFile file(SRFileUtil::open(path, O_WRONLY | O_CREAT, c.mode));
        EXPECT_GE(file.get(), 0);
        EXPECT_EQ(permissionOf(path), c.permission) << c.mode;
        EXPECT_EQ(SRFileUtil::isReadOnly(path), c.mode != 0x80 && c.mode != 0600);
    }
    ::umask(before);
    EXPECT_LT(SRFileUtil::open(dir.file("missing"), O_RDONLY), 0);
    EXPECT_EQ(errno, ENOENT);
}

/// No byte is lost when bytes come in pieces and signals interrupt every call.
TEST(SRFileUtil, UntilDoneSurvivesPiecesAndSignals)
{
    struct sigaction interrupting = {};
    struct sigaction before = {};
    interrupting.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &interrupting, &before);
    const struct itimerval often = {{0, 500}, {0, 500}};
    ::setitimer(ITIMER_REAL, &often, nullptr);

    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const std::string sent(1000000, 'x');
    std::thread writer([&] {
        for (std::size_t done = 0; done < sent.size(); done += 100000) {
            ::usleep(2000);  // the reader waits
            EXPECT_EQ(SRFileUtil::writeUntilDone(ends[1], sent.data() + done, 100000), 100000);
        }
        SRFileUtil::close(ends[1]);
    });
    std::string received(sent.size() + 1, '\0');
    EXPECT_EQ(SRFileUtil::readUntilDone(ends[0], received.data(), received.size()), 1000000);
    writer.join();
    received.pop_back();
    EXPECT_EQ(received, sent);
    EXPECT_LT(SRFileUtil::writeUntilDone(ends[0], "x", 1), 0);
    SRFileUtil::close(ends[0]);

    const struct itimerval never = {};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
}

TEST(SRFileUtil, RemovesATreeWithoutFollowingLinks)
{
    const TempDir dir;
    dir.makeDir("tree/a/b");
    dir.makeDir("outside");
    dir.write("outside/kept", "kept");
    for (const char* name : {"tree/f", "tree/a/f", "tree/a/b/bytes\xFF"})
        dir.write(name, "x");
    ASSERT_EQ(::mkfifo(dir.bytes("tree/a/pipe").c_str(), 0600), 0);
    fs::create_directory_symlink(dir.bytes("outside"), dir.bytes("tree/a/link"));
    fs::create_directory_symlink(dir.bytes("outside"), dir.bytes("link"));

    for (const char* name : {"link", "link/", "outside/kept", "missing"})
        EXPECT_FALSE(SRFileUtil::removeDirRecursive(dir.file(name))) << name;
    EXPECT_FALSE(SRFileUtil::removeDir(dir.file("tree")));
    EXPECT_FALSE(SRFileUtil::removeFile(dir.file("tree")));
    EXPECT_TRUE(SRFileUtil::removeDirRecursive(dir.file("tree//")));
    EXPECT_FALSE(SRFileUtil::fileExists(dir.file("tree")));
    EXPECT_EQ(dir.read("link/kept"), "kept");
    EXPECT_TRUE(SRFileUtil::removeFile(dir.file("link")));
}

}  // namespace
}  // namespace krx::test
