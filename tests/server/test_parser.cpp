// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/server/serializerfixture.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/tempdir.h"
#include "util/SRException.h"
#include "util/SRFileUtil.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace krx::test;

namespace {

TEST(Parser, PrimitivesAreBigEndian)
{
    SRDataParser writer;
    writer.PutByte(0x01);
    writer.PutWord(0x0203);
    writer.PutDWord(0x04050607);
    writer.PutINT64(-2);
    writer.PutDouble(-1.5);
    writer.PutString("ab", SRDataParser::kShortText);
    writer.PutString("cd", SRDataParser::kLongText);
    writer.PutData("ef", 2);
    EXPECT_EQ(toHex(written(writer)),
              toHex(hexText("01 0203 04050607 FFFFFFFFFFFFFFFE BFF8000000000000 0002 'ab' "
                            "00000002 'cd' 'ef'")));
    Reader reader(written(writer));
    EXPECT_EQ(reader->GetByte(), 1);
    EXPECT_EQ(reader->GetWord(), 0x0203);
    EXPECT_EQ(reader->GetDWord(), 0x04050607U);
    EXPECT_EQ(reader->GetINT64(), -2);
    EXPECT_EQ(reader->GetDouble(), -1.5);
    EXPECT_STREQ(std::unique_ptr<char[]>(reader->GetString(2)).get(), "ab");
    EXPECT_STREQ(std::unique_ptr<char[]>(reader->GetString(12)).get(), "cd");
    EXPECT_EQ(reader->GetData(2)[1], 'f');
    EXPECT_TRUE(reader->atEnd());
    EXPECT_EQ(reader->GetString(2), nullptr);
    EXPECT_TRUE(reader->isBad());
    EXPECT_EQ(reader->GetDWord(), 0U);
    EXPECT_EQ(reader.trace().size(), 2U);
}

TEST(Parser, MisuseIsReportedAndDoesNothing)
{
    AssertRecorder asserts;
    SRDataParser writer;
    writer.PutByte(7);
    EXPECT_EQ(writer.GetByte(), 0);
    EXPECT_EQ(writer.GetDouble(), 0);
    EXPECT_EQ(writer.GetString(2), nullptr);
    EXPECT_EQ(writer.GetData(1), nullptr);
    EXPECT_EQ(asserts.take().size(), 4U);
    Reader reader("xyz");
    reader->PutDWord(1);
    reader->PutString("abc", SRDataParser::kShortText);
    EXPECT_EQ(reader->getPosition(), 0U);
    EXPECT_EQ(reader->GetString(3), nullptr);
    EXPECT_FALSE(asserts.take().empty());
    EXPECT_FALSE(reader->isBad());
    writer.PutString("abc", 3);
    writer.PutString(std::string(65536, 'x'), SRDataParser::kShortText);
    EXPECT_EQ(written(writer), "\x07");
    EXPECT_EQ(asserts.take().size(), 2U);
    EXPECT_TRUE(SRDataParser(nullptr, 5, false).atEnd());
    EXPECT_TRUE(SRDataParser(reader->getBuffer(), -5, false).atEnd());
}

TEST(Parser, BufferGrowsInSteps)
{
    const struct
    {
        unsigned fill, more, capacity;
    } cases[] = {
        {0, 1, 256},     {256, 1, 512},       {65536, 1, 131072},      {131072, 1, 196608},
        {0, 5000, 6024}, {300, 10000, 11324}, {131072, 70000, 202096},
    };
    for (const auto& c : cases) {
        SRDataParser writer;
        for (unsigned i = 0; i < c.fill; ++i)
            writer.PutByte(static_cast<unsigned char>(i));
        writer.CheckBufferSize(c.more);
        EXPECT_EQ(writer.getLimit(), c.capacity) << c.fill << " " << c.more;
        for (unsigned i = 0; i < c.fill; i += 1000)
            EXPECT_EQ(writer.getBuffer()[i], static_cast<unsigned char>(i));
    }
    SRDataParser limited;
    limited.setOutputLimit(300);
    limited.PutData(std::string(300, 'x').data(), 300);
    EXPECT_THROW(limited.CheckBufferSize(100000), SROutOfMemory);
    EXPECT_THROW(SRDataParser().CheckBufferSize(0xFFFFFFFF), SROutOfMemory);
}

TEST(Parser, TagsFrameRecords)
{
    AssertRecorder asserts;
    SRDataParser writer;
    writer.StartTag(9, false);
    writer.PutWord(0xABCD);
    writer.FinishTag();
    writer.StartTag(1, true);
    writer.StartTag(2, true);
    writer.PutByte(0xFF);
    writer.FinishTag();
    EXPECT_EQ(asserts.take().size(), 1U);
    EXPECT_EQ(toHex(written(writer)), "02 42 AB CD 00 7F 00 00 00 01 FF");
    writer.FinishTag();
    EXPECT_EQ(asserts.take().size(), 1U);
    for (const unsigned length : {62U, 63U}) {
        SRDataParser record;
        record.StartTag(1, false);
        record.PutData(std::string(length, 'x').data(), length);
        record.FinishTag();
        EXPECT_EQ(asserts.take().size(), length == 62 ? 0U : 1U);
        EXPECT_EQ(record.getBuffer()[1], length == 62 ? 64 + 62 : 0);
    }
}

TEST(Parser, MessagesOfAMF3TypesHaveALeadingByte)
{
    const struct
    {
        unsigned char type;
        unsigned start;
    } cases[] = {{15, 1}, {16, 1}, {17, 1}, {17 | 0xA0, 1}, {18, 0}, {19, 0}, {20, 0}, {9, 0}};
    for (const auto& c : cases) {
        const SRMessagePtr message(new SRMessage(0));
        message->setType(c.type);
        EXPECT_TRUE(SRDataParser(krx::SingleMessagePtr(message), false).atEnd());
        message->write("\x05\x06", 2);
        const SRDataParser reader(krx::SingleMessagePtr(message), false);
        EXPECT_EQ(reader.getPosition(), c.start) << int{c.type};
        EXPECT_EQ(reader.getLimit(), 2U);
        EXPECT_EQ(message->_get(), 2);
    }
}

/// Makes a directory the current one for a while.
class InDirectory
{
public:
    explicit InDirectory(const std::string& path) : m_before(std::filesystem::current_path())
    {
        std::filesystem::current_path(path);
    }
    ~InDirectory() { std::filesystem::current_path(m_before); }
    InDirectory(const InDirectory&) = delete;
    InDirectory& operator=(const InDirectory&) = delete;

private:
    std::filesystem::path m_before;
};

TEST(ErrorTrace, IsAppendedWhereTheDirectoryExists)
{
    const TempDir dir;
    const std::string expected =
        "Error occured in serializing message buffer at position 1:\nMessage Buffer: (00 41)\n"
        "Message data is not complete\n";
    const std::string strange = "a\\b%s";
    dir.makeDir(strange + "/sub");
    const InDirectory in(dir.bytes(strange));
    Reader(hexText("00 41")).get();
    EXPECT_FALSE(std::filesystem::exists("logs"));
    dir.makeDir(strange + "/logs");
    for (int i = 1; i <= 2; ++i) {
        Reader(hexText("00 41")).get();
        std::string all;
        for (int n = 0; n < i; ++n)
            all += expected;
        EXPECT_EQ(dir.read(strange + "/logs/cmdParsingLog.log"), all);
    }
    // In a reader that throws it is for the caller to write it.
    EXPECT_THROW(Reader(hexText("00 41"), true).get(), SRBreakConnection);
    EXPECT_EQ(dir.read(strange + "/logs/cmdParsingLog.log"), expected + expected);
}

TEST(ErrorTrace, NeverWaitsForAnybody)
{
    const TempDir dir;
    const InDirectory in(dir.path());
    dir.makeDir("logs");
    ASSERT_EQ(::mkfifo("logs/cmdParsingLog.log", 0600), 0);
    Reader reader(hexText("00"));
    reader.get();
    EXPECT_TRUE(reader->isBad());
}

}  // namespace
