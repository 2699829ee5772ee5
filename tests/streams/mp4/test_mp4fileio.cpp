// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"
#include "tests/support/assertrecorder.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace krx::test {
namespace {

using mp4::Mp4FileIO;

/// 4,000 bytes that differ by place, read through small buffers.
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

/// The window shows the file's bytes, whatever the steps and portions of reading.
TEST_F(Mp4FileIOTest, LookingAnywhere)
{
    const std::string expected = bytes();
    file.Open();
    io.maxRead = 7;
    std::minstd_rand random(1);
    std::uniform_int_distribution<long long> distance(1, 600);
    for (long long pos = 0, n = 1; pos < 100000; pos += distance(random), n = distance(random) / 2 + 1) {
        const long long at = pos % 4000;
        const auto size = static_cast<unsigned>(n);
        if (at + n > 4000)
            EXPECT_EQ(statusOf([&] { file.look(at, size); }), 5);
        else
            ASSERT_EQ(std::string(reinterpret_cast<const char*>(file.look(at, size)), size),
                      expected.substr(static_cast<std::size_t>(at), size));
        EXPECT_EQ(file.Tell(), 0);
    }
    EXPECT_EQ(statusOf([&] { file.look(4000, 1); }), 117);
    file.Close();
    EXPECT_EQ(statusOf([&] { file.look(0, 1); }), 117);
}

/// A hop costs one read, whatever is looked at there. Sequential looks cause ever larger reads.
TEST_F(Mp4FileIOTest, LookingAhead)
{
    file.Open();
    for (unsigned hop = 0; hop < 8; ++hop)
        for (unsigned i = 0; i < 200; i += 4)
            file.look(hop * 500 + i, 4);
    EXPECT_EQ(io.reads.size(), 8U + 1U);
    io.reads.clear();
    for (unsigned i = 0; i < 4000; i += 4)
        file.look(i, 4);
    EXPECT_LE(io.reads.size(), 5U);
}

TEST_F(Mp4FileIOTest, MessagesGoThroughTheirBuffers)
{
    file.Open();
    file.Seek(40, Mp4FileIO::kFromStart);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 0, 9), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 1000, 8), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 2000, 41), 10U);
    EXPECT_EQ(io.reads.size(), 3U);
    // Whatever the type, a buffer that holds the range serves it.
    EXPECT_EQ(file.ReadMessage(buffer, 10, 290, 18), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 1190, 9), 10U);
    EXPECT_EQ(file.ReadMessage(buffer, 4, 2096, 8), 4U);
    EXPECT_EQ(std::string(buffer, 4), bytes().substr(2096, 4));
    EXPECT_EQ(io.reads.size(), 3U);
    EXPECT_EQ(file.Tell(), 40);

    EXPECT_EQ(file.ReadMessage(buffer, 10, 3995, 9), 5U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, 4000, 9), 0U);
    EXPECT_EQ(file.ReadMessage(buffer, 10, -1, 9), 0U);
    EXPECT_GE(file.reportMemorySize(), 600U);
}

}  // namespace
}  // namespace krx::test
