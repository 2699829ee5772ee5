// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/assertrecorder.h"
#include "tests/support/faultyfileio.h"
#include "tests/support/tempdir.h"
#include "util/SRException.h"
#include "util/autofile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace krx::util {
namespace {

using test::FaultyFileIo;
using test::TempDir;

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

std::string loadMessage(const SRString& path, FaultyFileIo& io)
{
    return messageOf([&] { AutoFileLoad(path, &io); });
}

TEST(AutoFileLoad, GivesTheWholeFile)
{
    const TempDir dir;
    FaultyFileIo io;
    const SRString path = dir.write("f", "0123456789");
    for (const unsigned maxRead : {100U, 3U}) {
        io.maxRead = maxRead;
        AutoFileLoad load(path, &io);
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

    AutoFileLoad empty(dir.write("empty", ""), &io);
    EXPECT_EQ(empty.getBuffer().length(), 0U);
    EXPECT_EQ(messageOf([&] { empty.readU8(); }), "Failed to read file buffer, bytesRead = 0");
    EXPECT_EQ(io.openFiles, 0);
}

TEST(AutoFileLoad, RefusesWhatIsNoReadableFile)
{
    const TempDir dir;
    FaultyFileIo io;
    dir.makeDir("dir");
    ASSERT_EQ(::mkfifo(dir.bytes("pipe").c_str(), 0600), 0);
    for (const std::string& path :
         {dir.bytes("missing"), dir.bytes("dir"), dir.bytes("pipe"), std::string("/dev/zero")})
        EXPECT_EQ(loadMessage(SRString::fromMultiByte(path), io), "Could not open file:" + path);
    EXPECT_EQ(io.openFiles, 0);

    test::AssertRecorder asserts;
    EXPECT_EQ(messageOf([&] { AutoFileLoad(dir.file("f"), nullptr); }),
              "Could not open file:" + dir.bytes("f"));
    EXPECT_EQ(asserts.take().size(), 1U);
}

TEST(AutoFileLoad, MeasuresByWhatIsReallyThere)
{
    const TempDir dir;
    FaultyFileIo io;
    const SRString path = dir.write("f", "abc");
    io.pretendedSize = 10;  // the file shrinks between the status and the read
    EXPECT_EQ(textOf(AutoFileLoad(path, &io).getBuffer()), "abc");
    std::filesystem::resize_file(dir.bytes("f"), 0x100000000ULL);
    io.pretendedSize = -1;
    io.reads.clear();
    EXPECT_EQ(loadMessage(path, io), "Read buffer size too large to initialize, size = 4294967296");
    EXPECT_TRUE(io.reads.empty());
}

TEST(AutoFileSave, WritesWhatWasCollected)
{
    const TempDir dir;
    FaultyFileIo io;
    for (const unsigned capacity : {0U, 1U, 100U}) {
        AutoFileSave save(dir.write("f", "longer than what comes"), &io, capacity);
        save.write("abc", 3);
        save.writeU32(0x64656667);
        save.write(save.getBuffer().data(), save.getBuffer().length());
        EXPECT_EQ(textOf(save.getBuffer()), "abcdefgabcdefg");
        save.flush();
        EXPECT_EQ(dir.read("f"), "abcdefgabcdefg");
    }
    AutoFileSave(dir.file("new/dir/empty"), &io, 0).flush();
    EXPECT_TRUE(SRFileUtil::isRegularFile(dir.file("new/dir/empty")));
    EXPECT_EQ(io.openFiles, 0);
}

TEST(AutoFileSave, WritesInPiecesThatOneCallCanCount)
{
    struct CountingIo : FaultyFileIo
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
    const TempDir dir;
    SRBuffer large(0xC0000000);  // never touched, so it takes no memory
    large.setEnd(0xBFFFFFFF);
    EXPECT_EQ(messageOf([&] { AutoFileSave(dir.file("f"), &io, large).flush(); }), "");
    EXPECT_EQ(io.written, 0xBFFFFFFFLL);
}

TEST(AutoFileSave, LeavesAGivenBufferToItsOwner)
{
    const TempDir dir;
    FaultyFileIo io;
    SRBuffer given(16);
    std::memcpy(given.base(), "0123456789ABCDEF", 16);
    given.setEnd(6);
    given.setStart(2);
    AutoFileSave save(dir.file("f"), &io, given);
    save.write("xy", 2);
    save.flush();
    EXPECT_EQ(dir.read("f"), "2345xy");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(given.base()), 16), "0123456789ABCDEF");
}

TEST(AutoFileSave, TellsWhyTheFileIsNotWritten)
{
    const TempDir dir;
    FaultyFileIo io;
    AutoFileSave intoDir(dir.makeDir("dir"), &io, 0);
    EXPECT_EQ(messageOf([&] { intoDir.flush(); }), "FileIO write failed, errorCode = -1");
    io.maxWrite = 2;
    AutoFileSave shortWrite(dir.file("f"), &io, 0);
    shortWrite.write("abc", 3);
    EXPECT_EQ(messageOf([&] { shortWrite.flush(); }), "FileIO write failed, bytesWritten = 2");
    AutoFileSave full(SRString(L"/dev/full"), &io, 0);
    full.write("abc", 3);
    EXPECT_EQ(messageOf([&] { full.flush(); }), "FileIO write failed, errorCode = -1");
}

/// Whatever operation fails, the outcome is the whole content or an exception, and no file stays open.
TEST(AutoFile, EveryFailureIsReported)
{
    const TempDir dir;
    const SRString path = dir.write("source", "content");
    for (unsigned failAt = 1, failures = 0;; ++failAt) {
        FaultyFileIo io;
        io.failAt = failAt;
        std::string loaded;
        const std::string message = messageOf([&] { loaded = textOf(AutoFileLoad(path, &io).getBuffer()); });
        EXPECT_EQ(io.openFiles, 0);
        EXPECT_TRUE(!message.empty() || loaded == "content") << failAt;
        failures += message.empty() ? 0 : 1;
        if (io.operations < failAt) {
            EXPECT_EQ(failures, 3U);  // open, fstat, read
            break;
        }
    }
    for (unsigned failAt = 1, failures = 0;; ++failAt) {
        FaultyFileIo io;
        io.failAt = failAt;
        const std::string name = std::to_string(failAt) + "/target";
        AutoFileSave save(dir.file(name), &io, 0);
        save.write("content", 7);
        const std::string message = messageOf([&] { save.flush(); });
        EXPECT_EQ(io.openFiles, 0);
        EXPECT_TRUE(!message.empty() || dir.read(name) == "content") << failAt;
        failures += message.empty() ? 0 : 1;
        if (io.operations < failAt) {
            EXPECT_EQ(failures, 4U);  // createDir, open, write, close
            break;
        }
    }
}

}  // namespace
}  // namespace krx::util
