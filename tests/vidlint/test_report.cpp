// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/vidlint/inputrunner.h"
#include "tools/zmvutil/vidlint/src/videofile.h"
#include "util/SRException.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <ctime>
#include <functional>
#include <new>
#include <string>

namespace {

using krx::streams::LogLevel_t;
using krx::streams::StreamParseError;
using krx::test::parametersFor;
using krx::test::ReportCapture;
using krx::test::TempDir;

TEST(Report, TextPassesThroughTheBufferUnchanged)
{
    std::string out;
    ReportWriter writer([&](std::string_view text) {
        out += text;
        return true;
    });
    std::string expected;
    for (const std::size_t n : {1U, 65535U, 65536U, 65537U, 200000U}) {
        expected += std::string(n, static_cast<char>('a' + n % 26));
        writer.write(std::string(n, static_cast<char>('a' + n % 26)));
    }
    writer.writeMessageRow(LLONG_MIN, UINT_MAX, UINT_MAX, "ENCRYPTED UNKNOWN");
    writer.flush();
    EXPECT_EQ(out, expected + "-9223372036854775808\t4294967295\t4294967295\tENCRYPTED UNKNOWN\n");
}

TEST(Report, StaysSilentAfterAFailureAndAfterSilence)
{
    int calls = 0;
    ReportWriter writer([&](std::string_view) {
        ++calls;
        return false;
    });
    writer.write("a");
    writer.flush();
    writer.write(std::string(100000, 'b'));
    writer.flush();
    EXPECT_EQ(calls, 1);

    std::string out;
    writer.setSink([&](std::string_view text) {
        out += text;
        return true;
    });
    writer.write("heard");
    writer.flush();
    writer.write("pending");
    writer.silence();
    writer.write("late");
    writer.flush();
    EXPECT_EQ(out, "heard");
}

TEST(Report, TimeStampIsLocalTimeWithATwoDigitYear)
{
    std::array<char, 32> before{};
    std::array<char, 32> after{};
    const auto now = [](std::array<char, 32>& text) {
        const std::time_t seconds = std::time(nullptr);
        std::strftime(text.data(), text.size(), "%y-%m-%d %H:%M:%S", std::localtime(&seconds));
    };
    now(before);
    const std::string stamp = ReportWriter::logTime();
    now(after);
    EXPECT_LE(before.data(), stamp);
    EXPECT_LE(stamp, after.data());
}

/// An input whose parse does as it is told.
class Probe : public VideoFile
{
public:
    using VideoFile::logAlert;
    using VideoFile::logInfo;
    using VideoFile::logWarning;
    using VideoFile::VideoFile;
};

TEST(Report, LevelsAndForms)
{
    const TempDir dir;
    const SRString path = dir.makeDir("in");
    const std::string name = dir.bytes("in");
    const std::string warning =
        "Warning:\t-101\tMetadata field 'canSeekToEnd' is either missing or set to false\t" + name + "\n\n";
    const struct
    {
        const char* options;
        std::string expected;
    } cases[] = {
        {"", "TIME alert\nTIME\tError:\terror\n\n"},
        {"w", "TIME alert\nTIME\tError:\terror\n\nWarning:\twarning\n\n" + warning},
        {"v", "\n\nFile: " + name + "\nTIME alert\nTIME\tError:\terror\n\nWarning:\twarning\n\ninfo\n" +
                  warning + "I"},
    };
    for (const auto& c : cases) {
        ReportCapture capture;
        Probe probe(path, parametersFor(c.options));
        probe.log("alert\n", krx::streams::LOG_ALERT, false);
        probe.log("error", krx::streams::LOG_ERROR, true);
        probe.log("warning", krx::streams::LOG_WARNING, true);
        probe.log("no form", 4, true);
        probe.log("no level", 0, true);
        probe.log("info\n", krx::streams::LOG_INFO, true);
        probe.logWarning(StreamParseError(krx::streams::kMetadataCanSeekToEnd));
        probe.logInfo("I");
        EXPECT_EQ(capture.text(), c.expected) << c.options;
    }

    Probe strict(path, parametersFor("W"));
    try {
        strict.logWarning(StreamParseError(krx::streams::kVideoStall));
        FAIL() << "the warning is an error";
    } catch (const StreamParseError& e) {
        EXPECT_EQ(e.getStatus(), krx::streams::kVideoStall);
    }
}

TEST(VideoFile, AnswersAsAStreamContext)
{
    const TempDir dir;
    const SRString path = dir.makeDir("in");
    Probe plain(path, parametersFor(""));
    Probe strict(path, parametersFor("W"));
    std::array<char, 8> buffer{};
    char* value = buffer.data();
    EXPECT_EQ(strict.getVersion(), 1U);
    EXPECT_EQ(strict.getFileIo(), strict.getFileIo());
    EXPECT_TRUE(strict.add(9, nullptr, 0, 0));
    EXPECT_EQ(plain.getConfig("Raw/WarningsAsErrors", &value, 8), -1);
    EXPECT_EQ(strict.getConfig("Raw/Other", &value, 8), -1);
    EXPECT_EQ(strict.getConfig("raw/warningsaserrors", &value, 3), 4);
    EXPECT_EQ(std::string(buffer.data()), "");
    std::memset(buffer.data(), '#', 7);
    EXPECT_EQ(strict.getConfig("raw/warningsaserrors", &value, 4), 0);
    EXPECT_EQ(std::string(buffer.data()), "true###");
}

TEST(Job, ChoosesTheInputAndCountsTheInvalidOnes)
{
    const TempDir dir;
    dir.makeDir("folder.zmv");
    for (const char* name : {"a.zmv", "a.ZMV", ".Zmv", "a.zmv.bak", "a.mp4", "a", "folder.zmv/a"})
        dir.write(name, "ZMV\1");
    const std::string folder = dir.bytes("folder.zmv");
    const struct
    {
        std::string name;
        std::string error;
    } cases[] = {
        {"a.zmv", "-5\tFile read error."},
        {"a.ZMV", "-5\tFile read error."},
        {".Zmv", "-5\tFile read error."},
        {"a.zmv.bak", "-26\tFile appears to be ZMV with wrong extension."},
        {"a.mp4", "-26\tFile appears to be ZMV with wrong extension."},
        {"a", "-26\tFile appears to be ZMV with wrong extension."},
        {"folder.zmv", "Could not open file:" + folder + "/index\t" + folder +
                           "\n\nTIME\tError:\t-32\tIndex or Contexts file missing or corrupted."},
        {"folder.zmv/a", "-26\tFile appears to be ZMV with wrong extension."},
        {"missing.zmv", "-3\tFile not found."},
        {"a/missing", "-3\tFile not found."},
        {std::string(300, 'n') + ".zmv", "-2\tInvalid file system path specified."},
    };
    VideoValidationJob job;
    std::string expected;
    for (const auto& c : cases) {
        job.files.push_back(dir.bytes(c.name));
        expected.append("TIME\tError:\t")
            .append(c.error)
            .append("\t")
            .append(dir.bytes(c.name))
            .append("\n\n");
    }
    ReportCapture capture;
    EXPECT_EQ(job.validateAllFiles(), static_cast<int>(job.files.size()));
    EXPECT_EQ(capture.text(), expected);
    EXPECT_EQ(VideoValidationJob().validateAllFiles(), 0);
}

TEST(Job, WhateverLeavesAnInputEndsThatInputOnly)
{
    const struct
    {
        std::function<void()> steps;
        const char* report;
    } cases[] = {
        {[] { throw StreamParseError(krx::streams::kInvalidZmvSignature); },
         "TIME\tError:\t-7\tInvalid ZMV signature.\tin\n\n"},
        {[] { throw krx::util::FileReadException(SRString(L"gone")); },
         "TIME\tError:\t-5\tFile read error.\tin\n\n"},
        {[] { throw SRException(SRString(L"other")); }, "TIME\tError:\t-1\tUnknown Error.\tin\n\n"},
        {[] { throw SROutOfMemory(); }, "TIME\tError:\t-1\tUnknown Error.\tin\n\n"},
        {[] { throw std::bad_alloc(); }, ""},
        {[] { throw 1; }, ""},
    };
    for (const auto& c : cases) {
        ReportCapture capture;
        EXPECT_FALSE(runInput(SRString(L"in"), c.steps)) << c.report;
        EXPECT_EQ(capture.text(), c.report);
        EXPECT_TRUE(runInput(SRString(L"in"), [] {}));
    }
}

}  // namespace
