// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/memoryfileio.h"
#include "util/SRException.h"
#include "util/autofile.h"

#include <gtest/gtest.h>

#include <string>

namespace krx::util {
namespace {

std::string textOf(const SRBuffer& buffer)
{
    return buffer.length() == 0 ? ""
                                : std::string(reinterpret_cast<const char*>(buffer.data()), buffer.length());
}

/// The message of the exception that call throws; empty when it throws none.
template <typename Call>
std::string messageOf(Call call)
{
    try {
        call();
    } catch (const FileReadException& e) {
        return std::string(e.getMessage().toMultiByte().view());
    }
    return "";
}

TEST(AutoFileLoad, GivesTheWholeFile)
{
    test::MemoryFileIo io("0123456789");
    for (const unsigned maxRead : {100U, 3U}) {
        io.maxRead = maxRead;
        AutoFileLoad load(SRString(L"f"), &io);
        EXPECT_EQ(textOf(load.getBuffer()), "0123456789");
        char part[20] = {};
        load.read(part, 4);
        EXPECT_STREQ(part, "0123");
        EXPECT_EQ(load.remaining(), 6U);
        EXPECT_EQ(load.readU16(), 0x3435);
        EXPECT_EQ(messageOf([&] { load.read(part, 5); }), "Failed to read file buffer, bytesRead = 4");
        EXPECT_STREQ(part, "6789");
        EXPECT_EQ(load.remaining(), 0U);
    }

    io.bytes().clear();
    AutoFileLoad empty(SRString(L"f"), &io);
    EXPECT_EQ(empty.getBuffer().length(), 0U);
    EXPECT_EQ(messageOf([&] { empty.readU8(); }), "Failed to read file buffer, bytesRead = 0");
    EXPECT_FALSE(io.isOpen());
}

TEST(AutoFileLoad, MeasuresByWhatIsReallyThere)
{
    test::MemoryFileIo io("abc");
    io.pretendedSize = 10;  // the file shrinks between the status and the read
    EXPECT_EQ(textOf(AutoFileLoad(SRString(L"f"), &io).getBuffer()), "abc");
    io.pretendedSize = 0x100000000LL;
    io.reads.clear();
    EXPECT_EQ(messageOf([&] { AutoFileLoad(SRString(L"f"), &io); }),
              "Read buffer size too large to initialize, size = 4294967296");
    EXPECT_TRUE(io.reads.empty());
    io.pretendedSize = -1;
    io.failReadsFrom(1);
    EXPECT_NE(messageOf([&] { AutoFileLoad(SRString(L"f"), &io); }), "");
    EXPECT_FALSE(io.isOpen());
}

TEST(AutoFileSave, WritesInPiecesThatOneCallCanCount)
{
    struct CountingIo : test::MemoryFileIo
    {
        long long written = 0;
        int write(int, long long offset, void*, unsigned n) override
        {
            EXPECT_EQ(offset, written);
            EXPECT_LE(n, static_cast<unsigned>(INT_MAX));
            written += n;
            return static_cast<int>(n);
        }
    } io;
    const SRString path(L"f");
    io.files["f"] = {};
    SRBuffer large(0xC0000000);  // never touched, so it takes no memory
    large.setEnd(0xBFFFFFFF);
    EXPECT_EQ(messageOf([&] { AutoFileSave(path, &io, large).flush(); }), "");
    EXPECT_EQ(io.written, 0xBFFFFFFFLL);
}

}  // namespace
}  // namespace krx::util
