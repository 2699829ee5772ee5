// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/faultyfileio.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <ctime>
#include <limits>
#include <sys/stat.h>

namespace krx::test {
namespace {

using mp4::Mp4FileIO;

/// 4,000 bytes that tell their place, behind small buffers.
class Mp4FileIOTest : public testing::Test
{
protected:
    static mp4::Mp4Config config()
    {
        mp4::Mp4Config c;
        c.videoReadAheadSize = 300;
        c.audioReadAheadSize = 200;
        c.otherReadAheadSize = 100;
        return c;
    }
    static std::string bytes()
    {
        Fields fields;
        for (unsigned i = 0; i < 1000; ++i)
            fields.u32(i);
        return fields.bytes();
    }

    template <typename Action>
    static int statusOf(Action action)
    {
        try {
            action();
        } catch (const streams::StreamParseError& e) {
            return e.getStatus();
        }
        return 0;
    }

    MemoryFileIo io{bytes()};
    Mp4FileIO file{"movie.mp4", &io, 7, config()};
    char buffer[4096];
};

TEST_F(Mp4FileIOTest, OpenAndClose)
{
    EXPECT_EQ(file.Seek(0, Mp4FileIO::kFromStart), -1);
    EXPECT_EQ(file.Read(buffer, 4), 0U);
    EXPECT_EQ(file.ReadMessage(buffer, 4, 0, 9), 0U);
    EXPECT_EQ(file.Size(true), 0);
    {
        const mp4::AutoMp4Open outer(&file);
        EXPECT_TRUE(outer.isOpen());
        {
            const mp4::AutoMp4Open inner(&file);
            EXPECT_TRUE(inner.isOpen());
        }
        EXPECT_TRUE(outer.isOpen());
        EXPECT_EQ(file.Size(), 4000);
    }
    EXPECT_FALSE(file.isOpen());
    EXPECT_FALSE(io.isOpen());
    EXPECT_EQ(file.getOpenFlags(), 7);
    EXPECT_EQ(file.GetFileName(), "movie.mp4");
    EXPECT_FALSE(mp4::AutoMp4Open(nullptr).isOpen());
}

TEST_F(Mp4FileIOTest, SizeIsKeptUntilForced)
{
    file.Open();
    EXPECT_EQ(file.Size(), 4000);
    io.bytes().resize(5000);
    EXPECT_EQ(file.Size(), 4000);
    EXPECT_EQ(file.Size(true), 5000);
}

TEST_F(Mp4FileIOTest, Seek)
{
    constexpr auto kLowest = std::numeric_limits<long long>::min();
    constexpr auto kHighest = std::numeric_limits<long long>::max();
    struct
    {
        long long offset;
        Mp4FileIO::Origin origin;
        long long position;
    } const cases[] = {
        {10, Mp4FileIO::kFromStart, 10},       {5, Mp4FileIO::kFromCurrent, 105},
        {-5, Mp4FileIO::kFromEnd, 3995},       {-200, Mp4FileIO::kFromCurrent, 0},
        {4001, Mp4FileIO::kFromStart, 4000},   {kHighest, Mp4FileIO::kFromCurrent, 4000},
        {kLowest, Mp4FileIO::kFromCurrent, 0}, {kHighest, Mp4FileIO::kFromEnd, 4000},
        {kLowest, Mp4FileIO::kFromEnd, 0},     {0, static_cast<Mp4FileIO::Origin>(3), -1},
    };
    file.Open();
    for (const auto& c : cases) {
        file.Seek(100, Mp4FileIO::kFromStart);
        EXPECT_EQ(file.Seek(c.offset, c.origin), c.position);
        EXPECT_EQ(file.Tell(), c.position < 0 ? 100 : c.position);
    }
}

TEST_F(Mp4FileIOTest, Reading)
{
    file.Open();
    file.Seek(4 * 258, Mp4FileIO::kFromStart);
    EXPECT_EQ(file.readInt(4), 258U);
    EXPECT_EQ(file.readInt(8), 259ULL << 32 | 260U);
    EXPECT_EQ(file.readInt(3), 1U);
    EXPECT_EQ(file.readInt(0), 0U);
    EXPECT_EQ(file.readInt(1), 5U);
    AssertRecorder asserts;
    EXPECT_EQ(file.readInt(9), 0U);
    EXPECT_EQ(asserts.take().size(), 1U);

    file.Seek(3997, Mp4FileIO::kFromStart);
    EXPECT_EQ(statusOf([&] { file.readInt(4); }), 5);
    EXPECT_EQ(file.Tell(), 4000);
    EXPECT_EQ(file.Read(buffer, 1), 0U);
    EXPECT_THROW(file.readInt(1), mp4::TruncatedStreamError);
    EXPECT_EQ(statusOf([&] { file.readInt(1); }), 117);
    EXPECT_EQ(statusOf([&] { file.Read(buffer, 0x80000001ULL); }), 17);
    EXPECT_EQ(statusOf([&] { file.Read(buffer, 0x80000000ULL); }), 0);

    file.Seek(0, Mp4FileIO::kFromStart);
    file.FlushMemory();
    io.failReadsFrom(1);
    EXPECT_EQ(statusOf([&] { file.readInt(4); }), 5);
}

TEST_F(Mp4FileIOTest, MessagesGoThroughTheirBuffers)
{
    file.Open();
    file.Seek(40, Mp4FileIO::kFromStart);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 0, 9), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 1000, 8), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 2000, 41), 10U);
    EXPECT_EQ(io.readCount(), 3);
    // Whatever the type, a buffer that holds the range serves it.
    EXPECT_EQ(file.ReadMessage(buffer, 10, 290, 18), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 1190, 9), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 4, 2096, 8), 4U);
    EXPECT_EQ(std::string(buffer, 4), bytes().substr(2096, 4));
    EXPECT_EQ(io.readCount(), 3);
    EXPECT_EQ(file.Tell(), 40);

    EXPECT_EQ(file.ReadMessage(buffer, 10, 3995, 9), 5U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 4000, 9), 0U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, -1, 9), 0U);
    EXPECT_GE(file.reportMemorySize(), 600U);
}

TEST(Mp4FileIOOnDisk, OnlyRegularFilesOpen)
{
    const TempDir dir;
    dir.makeDir("directory.mp4");
    ASSERT_EQ(::mkfifo(dir.bytes("pipe.mp4").c_str(), 0600), 0);
    dir.write("file.mp4", "content");
    FaultyFileIo io;
    for (const char* name : {"missing.mp4", "directory.mp4", "pipe.mp4"}) {
        Mp4FileIO file(SRMBString(dir.bytes(name).c_str()), &io, 0, {});
        EXPECT_LT(file.Open(), 0) << name;
        EXPECT_FALSE(mp4::AutoMp4Open(&file).isOpen()) << name;
    }
    Mp4FileIO file(SRMBString(dir.bytes("file.mp4").c_str()), &io, 0, {});
    const int handle = file.Open();
    EXPECT_GE(handle, 0);
    EXPECT_EQ(file.Open(), handle);
    EXPECT_EQ(file.readInt(2), 0x636FU);
    EXPECT_NEAR(file.GetModifiedTime(), static_cast<double>(std::time(nullptr)), 60);
    EXPECT_TRUE(file.Unlink());
    EXPECT_EQ(file.GetModifiedTime(), 0U);
    file.Close();
    EXPECT_EQ(io.openFiles, 0);
}

}  // namespace
}  // namespace krx::test
