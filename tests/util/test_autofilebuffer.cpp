// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/faultyfileio.h"
#include "tests/support/tempdir.h"
#include "util/SRException.h"
#include "util/autofilebuffer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace krx::util {
namespace {

using Range = AutoFileBuffer::Range;
using Reads = std::vector<unsigned>;

constexpr FilePos kMaxPos = std::numeric_limits<FilePos>::max();

std::string pattern(std::size_t n)
{
    std::mt19937 random(7);
    std::string text(n, '\0');
    for (char& c : text)
        c = static_cast<char>(random() & 0xFF);
    return text;
}

class AutoFileBufferTest : public testing::Test
{
protected:
    void open(std::size_t size)
    {
        m_content = pattern(size);
        m_file.reset(SRFileUtil::open(m_dir.write("f", m_content), O_RDONLY));
        ASSERT_GE(fd(), 0);
    }
    int fd() const { return m_file.get(); }
    /// What a quiet read gives.
    std::string read(AutoFileBuffer& buffer, FilePos pos, unsigned n)
    {
        std::string out(n, '\0');
        out.resize(buffer.indexedRead(fd(), pos, out.data(), n, true, 0, "", true));
        return out;
    }

    const test::TempDir m_dir;
    test::FaultyFileIo m_io;
    std::string m_content;
    SRAutoFile m_file;
};

TEST_F(AutoFileBufferTest, RefillsWithOneReadAndPassesLargeRequestsThrough)
{
    open(1000);
    AutoFileBuffer buffer(100, &m_io);
    EXPECT_EQ(buffer.reportMemorySize(), 0U);
    for (unsigned pos = 0; pos < 200; pos += 10)
        EXPECT_EQ(read(buffer, pos, 10), m_content.substr(pos, 10));
    EXPECT_EQ(m_io.reads, (Reads{100, 100}));
    EXPECT_EQ(buffer.tell(), 200);
    EXPECT_EQ(buffer.reportMemorySize(), 100U);

    m_io.reads.clear();
    EXPECT_EQ(read(buffer, 150, 250), m_content.substr(150, 250));
    EXPECT_EQ(m_io.reads, (Reads{200}));  // 50 cached bytes, the rest without a copy

    m_io.reads.clear();
    std::string out(30, '\0');
    EXPECT_EQ(buffer.directRead(fd(), 500, out.data(), 30), 30U);
    EXPECT_EQ(out, m_content.substr(500, 30));
    EXPECT_EQ(m_io.reads, Reads{30});
    EXPECT_EQ(buffer.tell(), 400);

    // The window belongs to one descriptor.
    const SRAutoFile other(SRFileUtil::open(m_dir.write("other", "another file"), O_RDONLY));
    EXPECT_EQ(read(buffer, 0, 7), m_content.substr(0, 7));
    EXPECT_EQ(buffer.indexedRead(other.get(), 0, out.data(), 7, false, 0, ""), 7U);
    EXPECT_EQ(out.substr(0, 7), "another");

    buffer.setDirectRead(true);
    m_io.reads.clear();
    EXPECT_EQ(read(buffer, 0, 5) + read(buffer, 5, 5), m_content.substr(0, 10));
    EXPECT_EQ(m_io.reads, (Reads{5, 5}));
    buffer.release();
    EXPECT_EQ(buffer.reportMemorySize(), 0U);
}

TEST_F(AutoFileBufferTest, GivesWhatTheFileHoldsWhateverTheCache)
{
    open(300000);
    std::mt19937 random(11);
    AutoFileBuffer parent(1000, &m_io);
    for (const unsigned cacheSize : {0U, 1U, 7U, 1024U, 153600U, 0xFFFFFFFFU}) {
        for (const unsigned maxRead : {4000000U, 777U}) {
            for (AutoFileBuffer* above : {static_cast<AutoFileBuffer*>(nullptr), &parent}) {
                m_io.maxRead = maxRead;
                AutoFileBuffer buffer(cacheSize, &m_io, above);
                for (unsigned i = 0; i < 60; ++i) {
                    const std::size_t pos = random() % 301000;
                    const auto n = static_cast<unsigned>(random() % (i % 4 == 0 ? 5000 : 50));
                    const std::string expected = pos < m_content.size() ? m_content.substr(pos, n) : "";
                    EXPECT_EQ(read(buffer, static_cast<FilePos>(pos), n), expected)
                        << cacheSize << ' ' << pos;
                }
                EXPECT_LE(buffer.reportMemorySize(), 600000U);
            }
        }
    }
}

TEST_F(AutoFileBufferTest, TakesMemoryForWhatTheFileHolds)
{
    open(10);
    AutoFileBuffer buffer(0xFFFFFFFF, &m_io);
    EXPECT_EQ(read(buffer, 0, 20), m_content);
    EXPECT_LE(buffer.reportMemorySize(), 65536U);
}

TEST_F(AutoFileBufferTest, PlacesASpanAgainstTheWindow)
{
    open(1000);
    AutoFileBuffer buffer(100, &m_io);
    EXPECT_EQ(buffer.isInRange(0, 1), Range::kAfter);
    read(buffer, 200, 1);
    const struct
    {
        FilePos pos;
        unsigned n;
        Range expected;
    } cases[] = {
        {200, 100, Range::kInside},       {299, 1, Range::kInside},
        {200, 101, Range::kPartlyInside}, {190, 10, Range::kBefore},
        {190, 11, Range::kPartlyInside},  {100, 0xFFFFFFFF, Range::kPartlyInside},
        {300, 1, Range::kAfter},          {kMaxPos, 0xFFFFFFFF, Range::kAfter},
        {-1, 5, Range::kBefore},          {std::numeric_limits<FilePos>::min(), 0xFFFFFFFF, Range::kBefore},
    };
    for (const auto& c : cases)
        EXPECT_EQ(buffer.isInRange(c.pos, c.n), c.expected) << c.pos << ' ' << c.n;

    buffer.seek(fd(), 250);  // inside: the window stays
    EXPECT_EQ(buffer.isInRange(200, 100), Range::kInside);
    buffer.seek(fd(), 300);
    EXPECT_EQ(buffer.isInRange(200, 100), Range::kAfter);
    read(buffer, 200, 1);
    buffer.flush();
    EXPECT_EQ(buffer.isInRange(200, 1), Range::kAfter);
}

TEST_F(AutoFileBufferTest, ReportsShortReadsOfLoudCallers)
{
    open(10);
    AutoFileBuffer buffer(4, &m_io);
    char out[20];
    const std::string tail = " file descriptor " + std::to_string(fd()) + " in file mp4 line 7";
    const struct
    {
        FilePos pos;
        std::string text;
    } cases[] = {
        {4, "ZMV file read underrun, wanted 20 bytes, got 6" + tail},
        {10, "ZMV file read failed, wanted 20 bytes, got 0" + tail},
        {kMaxPos, "ZMV file read failed, wanted 20 bytes, got 0" + tail},
    };
    for (const auto& c : cases) {
        testing::internal::CaptureStderr();
        try {
            buffer.indexedRead(fd(), c.pos, out, 20, false, 7, "mp4");
            ADD_FAILURE() << c.text;
        } catch (const FileReadException& e) {
            EXPECT_EQ(e.getMessage().toMultiByte().view(), c.text);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr().rfind(c.text + ": ", 0), 0U) << c.text;
    }

    testing::internal::CaptureStderr();
    EXPECT_EQ(buffer.indexedRead(fd(), 4, out, 20, true, 7, "mp4"), 6U);
    EXPECT_EQ(buffer.indexedRead(fd(), 4, out, 20, false, 7, "mp4", true), 6U);
    EXPECT_EQ(buffer.indexedRead(fd(), -1, out, 20, false, 7, "mp4", true), 0U);
    EXPECT_THROW(buffer.seek(fd(), -1), FileReadException);
    EXPECT_THROW(buffer.directRead(fd(), 10, out, 1), FileReadException);
    EXPECT_THROW(AutoFileBuffer(4, &m_io).sequentialRead(nullptr, 1, false, 1, nullptr, false),
                 FileReadException);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

/// Whatever operation fails, a read gives the right bytes, fewer of them, or the failure; later reads are
/// sound.
TEST_F(AutoFileBufferTest, SurvivesEveryFailingOperation)
{
    open(5000);
    for (unsigned failAt = 1;; ++failAt) {
        test::FaultyFileIo io;
        io.failAt = failAt;
        AutoFileBuffer buffer(128, &io);
        unsigned shortReads = 0;
        for (unsigned pos = 0; pos < 4000; pos += 200) {
            const unsigned n = pos % 3 == 0 ? 300 : 40;
            const std::string got = read(buffer, pos, n);
            EXPECT_EQ(got, m_content.substr(pos, got.size()));
            shortReads += got.size() == n ? 0 : 1;
        }
        EXPECT_EQ(shortReads, io.operations >= failAt ? 1U : 0U) << failAt;
        if (failAt > 60)
            break;
    }
}

}  // namespace
}  // namespace krx::util
