// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/memoryfileio.h"
#include "util/autofilebuffer.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace krx::test {
namespace {

using namespace util;

using Reads = std::vector<unsigned>;

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
        m_io.files = {{"f", m_content}, {"other", "another file"}};
        m_fd = m_io.open(SRString(L"f"), 0, 0, nullptr);
    }
    /// What a quiet read returns.
    std::string read(AutoFileBuffer& buffer, FilePos pos, unsigned n)
    {
        std::string out(n, '\0');
        out.resize(buffer.indexedRead(m_fd, pos, out.data(), n, true, 0, "", true));
        return out;
    }

    MemoryFileIo m_io;
    std::string m_content;
    int m_fd = -1;
};

TEST_F(AutoFileBufferTest, RefillsWithOneReadAndPassesLargeRequestsThrough)
{
    open(1000);
    AutoFileBuffer large(0xFFFFFFFF, &m_io);
    EXPECT_EQ(read(large, 0, 1001), m_content);
    EXPECT_LE(large.reportMemorySize(), 65536U);
    m_io.reads.clear();
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
    EXPECT_EQ(buffer.directRead(m_fd, 500, out.data(), 30), 30U);
    EXPECT_EQ(out, m_content.substr(500, 30));
    EXPECT_EQ(m_io.reads, Reads{30});
    EXPECT_EQ(buffer.tell(), 400);

    // The window belongs to one descriptor.
    const int other = m_io.open(SRString(L"other"), 0, 0, nullptr);
    EXPECT_EQ(read(buffer, 0, 7), m_content.substr(0, 7));
    EXPECT_EQ(buffer.indexedRead(other, 0, out.data(), 7, false, 0, ""), 7U);
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

}  // namespace
}  // namespace krx::test
