// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/memoryfileio.h"
#include "util/SRException.h"
#include "util/autofile.h"

#include <gtest/gtest.h>

#include <string>

namespace krx::test {
namespace {

using namespace util;

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

TEST(AutoFileLoad, MeasuresByWhatIsReallyThere)
{
    MemoryFileIo io("abc");
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
    struct CountingIo : MemoryFileIo
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
}  // namespace krx::test
