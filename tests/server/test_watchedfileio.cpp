// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/KRXSyncFileIo.h"
#include "server/watchedfileio.h"
#include "tests/support/memoryfileio.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace krx::test {
namespace {

TEST(WatchedFileIo, TellsWhyTheFirstSystemCallFailed)
{
    const TempDir dir;
    const SRString present = dir.write("present", "text");
    const SRString absent = dir.file("absent");
    const SRString below = dir.file("present/below");
    SimpleKrxSyncFileIo system;
    WatchedFileIo io(system, nullptr, {});
    struct stat64 st;
    std::array<char, 8> buffer;
    const int file = io.open(present, O_RDONLY, 0, nullptr);
    const int folder = io.open(dir.file(""), O_RDONLY, 0, nullptr);
    const int closed = io.open(present, O_RDONLY, 0, nullptr);
    ASSERT_GE(closed, 0);
    io.close(closed, false);
    const struct
    {
        std::function<int()> call;
        int error;  ///< 0: no failure of the system
    } cases[] = {
        {[&] { return io.stat(present, &st, IKrxFileIo::kFile); }, 0},
        {[&] { return io.stat(present, &st, IKrxFileIo::kDirectory); }, 0},
        {[&] { return io.fstat(file, &st, IKrxFileIo::kDirectory); }, 0},
        {[&] { return io.read(file, 2, buffer.data(), 8); }, 0},
        {[&] { return io.read(-1, 0, buffer.data(), 8); }, 0},
        {[&] { return io.stat(absent, &st, IKrxFileIo::kAny); }, ENOENT},
        {[&] { return io.stat(below, &st, IKrxFileIo::kAny); }, ENOTDIR},
        {[&] { return io.open(absent, O_RDONLY, 0, &st); }, ENOENT},
        {[&] { return io.read(folder, 3, buffer.data(), 8); }, EISDIR},
        {[&] { return io.read(file, -5, buffer.data(), 8); }, EINVAL},
        {[&] { return io.fstat(closed, &st, IKrxFileIo::kAny); }, EBADF},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        io.clear();
        errno = EIO;  // of another call
        const int result = c.call();
        const int left = errno;
        ASSERT_EQ(io.failure(), c.error);
        if (c.error == 0)
            continue;
        EXPECT_LT(result, 0);
        EXPECT_EQ(left, c.error);
        io.stat(below, &st, IKrxFileIo::kAny);  // a later one does not count
        EXPECT_EQ(io.failure(), c.error);
    }
    io.close(file, false);
    io.close(folder, false);
}

// Refuses as the system does for a file of somebody else.
struct ForeignFile : MemoryFileIo
{
    using MemoryFileIo::MemoryFileIo;

    int open(const SRString& path, int flags, int mode, struct stat64* st) override
    {
        asked.push_back(flags);
        if ((flags & O_NOATIME) == 0)
            return MemoryFileIo::open(path, flags, mode, st);
        errno = EPERM;
        return -1;
    }
    std::vector<int> asked;
};

TEST(WatchedFileIo, LeavesTimesOfAccessAloneWhereItMay)
{
    ForeignFile foreign("text");
    WatchedFileIo io(foreign, nullptr, {});
    for (const int flags : {O_RDONLY, O_RDWR}) {
        const int fd = io.open(SRString(L"f"), flags, 0, nullptr);
        EXPECT_GE(fd, 0);
        io.close(fd, false);
    }
    EXPECT_EQ(foreign.asked, (std::vector{O_RDONLY | O_NOATIME, O_RDONLY, O_RDWR}));
    EXPECT_EQ(io.failure(), 0);

    const TempDir dir;
    const SRString path = dir.write("old", "text");
    const timespec times[] = {{1'000'000'000, 0}, {1'500'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, dir.bytes("old").c_str(), times, 0), 0);
    SimpleKrxSyncFileIo system;
    WatchedFileIo own(system, nullptr, {});
    struct stat64 st = {};
    std::array<char, 8> buffer;
    const int fd = own.open(path, O_RDONLY, 0, nullptr);
    EXPECT_EQ(own.read(fd, 0, buffer.data(), 8), 4);
    EXPECT_EQ(own.close(fd, false), 0);
    ASSERT_EQ(own.stat(path, &st, IKrxFileIo::kFile), 0);
    EXPECT_EQ(st.st_atim.tv_sec, times[0].tv_sec);
}

TEST(WatchedFileIo, AsksOnceForTheStatusOfAPath)
{
    const TempDir dir;
    const SRString path = dir.write("file", "text");
    SimpleKrxSyncFileIo system;
    WatchedFileIo io(system, nullptr, {});
    struct stat64 st = {};
    ASSERT_EQ(io.stat(path, &st, IKrxFileIo::kFile), 0);
    dir.write("file", "longer text");
    st = {};
    EXPECT_LT(io.stat(path, &st, IKrxFileIo::kDirectory), 0);
    EXPECT_EQ(io.stat(path, &st, IKrxFileIo::kAny), 0);
    EXPECT_EQ(st.st_size, 4);
    EXPECT_LT(io.stat(dir.file("absent"), &st, IKrxFileIo::kAny), 0);
    EXPECT_EQ(io.stat(path, &st, IKrxFileIo::kAny), 0);
    EXPECT_EQ(st.st_size, 11);
}

TEST(WatchedFileIo, TellsProgressAndEndsOnRequest)
{
    MemoryFileIo memory("0123456789");
    memory.maxRead = 4;
    std::atomic<bool> cancel = false;
    std::vector<std::pair<long long, long long>> progress;
    WatchedFileIo io(memory, &cancel,
                     [&](long long bytes, long long end) { progress.emplace_back(bytes, end); });
    const SRString path(L"f");
    const int fd = io.open(path, O_RDONLY, 0, nullptr);
    std::array<char, 8> buffer;
    EXPECT_EQ(io.read(fd, 0, buffer.data(), 8), 4);
    EXPECT_EQ(io.read(fd, 7, buffer.data(), 8), 3);
    EXPECT_EQ(io.read(fd, 10, buffer.data(), 8), 0);
    EXPECT_LT(io.read(fd, -1, buffer.data(), 8), 0);
    using Progress = decltype(progress);
    EXPECT_EQ(progress, (Progress{{4, 4}, {3, 10}, {0, 10}}));
    EXPECT_FALSE(io.wasCancelled());

    cancel = true;
    struct stat64 st;
    EXPECT_EQ(io.stat(path, &st, IKrxFileIo::kFile), 0);
    EXPECT_FALSE(io.wasCancelled());
    const std::size_t reads = memory.reads.size();
    for (const int result : {io.read(fd, 0, buffer.data(), 8), io.open(path, O_RDONLY, 0, nullptr)}) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errno, ECANCELED);
    }
    EXPECT_TRUE(io.wasCancelled());
    EXPECT_EQ(io.failure(), 0);
    EXPECT_EQ(memory.reads.size(), reads);
    EXPECT_EQ(io.close(fd, false), 0);
    EXPECT_FALSE(memory.isOpen());
}

}  // namespace
}  // namespace krx::test
