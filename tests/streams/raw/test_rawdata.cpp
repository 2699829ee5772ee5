// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/KRXSyncFileIo.h"
#include "tests/streams/raw/rawfixture.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace krx::test {
namespace {

using raw::RawData;
using Files = std::map<std::string, std::string>;
using Lines = std::vector<RecordingContext::Line>;

constexpr const char* kCorrupted = "-32\tIndex or Contexts file missing or corrupted.";
constexpr const char* kUnparsed = "Failed to deserialize contexts vector from the buffer.";
constexpr long long kMost = std::numeric_limits<long long>::max();

/// An index of the given records.
std::string indexOf(const std::vector<SegmentBounds>& bounds)
{
    RawBuilder builder;
    builder.bounds = bounds;
    return builder.index();
}

std::string sound(std::size_t length = std::string::npos)
{
    return smallRecording().index().substr(0, length);
}

/// The index of the small recording that claims n segments.
std::string claiming(const std::string& n)
{
    return sound().replace(13, 4, n);
}

TEST(RawDataTest, FaultyFilesAreReportedAndLeaveTheStreamEmpty)
{
    const std::string shortRead = "Failed to read file buffer, bytesRead = ";
    const std::string bounds = "Found invalid segment bounds while reading index file: ";
    const std::string lineUp = "Segment bounds do not line up with previous bounds: segment start";
    const std::string element = RawBuilder::contextBytes({});
    const struct
    {
        std::string file;
        std::string content;
        std::string text;
        long long offset;
    } cases[] = {
        {"index", "", shortRead + "0", 0},
        {"index", sound(3), shortRead + "3", 3},
        {"index", sound(15), shortRead + "2", 15},
        {"index", sound(17 + 24), shortRead + "0", 41},
        {"index", sound(17 + 24 + 7), shortRead + "7", 48},
        {"index", sound(17 + 24 + 8 + 5), shortRead + "5", 54},
        {"index", sound(17 + 24 + 16 + 3), shortRead + "3", 60},
        {"index", sound(17 + 24 + 20 + 1), shortRead + "1", 62},
        {"index", claiming("\xFF\xFF\xFF\xFF"), shortRead + "0", 65},
        {"index", sound() + "x", "Failed to read index file successfully.", 65},
        {"index", indexOf({{5, 4, 0, 1}}), bounds + "start = 5, end = 4", 17},
        {"index", indexOf({{0, kMost, 0, 1}}), bounds + "start = 0, end = 9223372036854775807", 17},
        {"index", indexOf({{0, 9, 0, 10}, {10, 19, 11, 20}}),
         lineUp + " time = 11, previous segment end time = 10", 41},
        {"index", indexOf({{0, 9, 0, 10}, {11, 19, 10, 20}}), lineUp + " = 11, previous segment end = 9", 41},
        {"index", indexOf({{0, 9, 0, 10}, {-11, 19, 11, 20}}),
         lineUp + " time = 11, previous segment end time = 10", 41},
        {"index", indexOf({{-5, -1, 0, 4294967295}, {-2, 19, 4294967295, 20}}),
         lineUp + " = -2, previous segment end = -1", 41},
        {"contexts", "\x02", kUnparsed, 1},
        {"contexts", Amf().string("text").bytes(), kUnparsed, 7},
        {"contexts", RawBuilder::contextsFile({element}).substr(0, 40), kUnparsed, 37},
        {"contexts", RawBuilder::contextsFile({element, Amf().number(1).bytes()}), kUnparsed, 134},
        {"contexts", std::string("\x0A\xFF\xFF\xFF\xFF", 5) + element, kUnparsed, 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text + " in " + c.file);
        Files files = smallRecording().files();
        files[c.file] = c.content;
        RawFixture raw(files);
        EXPECT_FALSE(raw.data.load());
        EXPECT_EQ(raw.context.takeFindings(), (Lines{errorLine(c.text), errorLine(kCorrupted)}));
        EXPECT_EQ(raw.data.getEndPosition(), 0);
        EXPECT_EQ(raw.data.getDuration(), 0U);
        EXPECT_EQ(raw.data.getContexts()->numContexts(), 0U);

        KeptFindings sink;
        raw.data.setFindingSink(&sink);
        EXPECT_FALSE(raw.data.load());
        EXPECT_EQ(raw.context.takeFindings(), Lines());
        ASSERT_EQ(sink.findings.size(), 2U);
        EXPECT_EQ(sink.findings[0].text, c.text);
        EXPECT_EQ(sink.findings[1].number, -32);
        for (const streams::Finding& finding : sink.findings) {
            EXPECT_EQ(finding.place.file, c.file);
            EXPECT_EQ(finding.place.offset, c.offset);
        }
    }
}

TEST(RawDataTest, FindsSegments)
{
    RawFixture raw(
        {{"index", indexOf({{10, 10, 100, 200}, {11, 19, 200, 200}, {20, 39, 200, 300}, {40, 41, 300, 301}})},
         {"contexts", ""}});
    ASSERT_TRUE(raw.data.load());
    const long long none = -1;
    const std::pair<long long, long long> byLoc[] = {{-1, none}, {0, none}, {9, none}, {10, 10}, {11, 11},
                                                     {19, 11},   {20, 20},  {39, 20},  {41, 40}, {42, none}};
    const std::pair<unsigned, long long> byTime[] = {{0, none}, {99, none}, {100, 10}, {200, 10},
                                                     {201, 20}, {300, 20},  {301, 40}, {302, none}};
    const auto startOf = [&](bool found, const SegmentBounds& bounds) { return found ? bounds.start : none; };
    SegmentBounds bounds;
    for (const auto& [position, start] : byLoc)
        EXPECT_EQ(startOf(raw.data.findByLoc(position, &bounds), bounds), start) << position;
    for (const auto& [time, start] : byTime)
        EXPECT_EQ(startOf(raw.data.findByTime(time, &bounds), bounds), start) << time;
    EXPECT_TRUE(raw.data.findByLoc(30, &bounds));
    EXPECT_EQ(bounds, (SegmentBounds{20, 39, 200, 300}));

    // Times that fall make lookups meaningless but harmless.
    RawFixture falling({{"index", indexOf({{0, 0, 9, 3}, {1, 1, 3, 5}, {2, 2, 5, 1}})}, {"contexts", ""}});
    ASSERT_TRUE(falling.data.load());
    for (unsigned time = 0; time < 12; ++time)
        falling.data.findByTime(time, &bounds);
    EXPECT_FALSE(RawFixture(Files{}).data.findByLoc(0, &bounds));
}

TEST(RawDataTest, SaveWritesWhatWasLoaded)
{
    RawBuilder builder = smallRecording();
    builder.context({9, 500, "header", 3, 1, 1}).context({8, 60, "", 5, 7, 2});
    const Files files = builder.files();
    const TempDir temp;
    RawBuilder::write(files, temp.bytes("rec"));
    SimpleKrxSyncFileIo io;
    RecordingContext context(&io);
    RawData data(temp.file("rec"), {}, &context, &io);
    ASSERT_TRUE(data.load());
    ::unlink(temp.bytes("rec/index").c_str());
    ::unlink(temp.bytes("rec/contexts").c_str());
    EXPECT_TRUE(data.save());
    EXPECT_EQ(temp.read("rec/index"), files.at("index"));
    EXPECT_EQ(temp.read("rec/contexts"), files.at("contexts"));
    EXPECT_TRUE(data.load());

    // Saving an empty stream creates the directory, an index without segments, and empty contexts.
    RawData fresh(temp.file("new/rec"), {}, &context, &io);
    EXPECT_TRUE(fresh.save());
    EXPECT_EQ(temp.read("new/rec/index"), std::string("\0\1\0\0", 4) + std::string(13, '\0'));
    EXPECT_TRUE(fresh.load());
    EXPECT_EQ(context.takeFindings(), Lines());

    const std::string blocked = temp.bytes("new/rec/index/x");
    RawData failing(SRString::fromMultiByte(blocked), {}, &context, &io);
    EXPECT_FALSE(failing.save());
    EXPECT_EQ(context.takeFindings(), (Lines{{2, "FileIO write failed, errorCode = -1\t" + blocked},
                                             {2, "Couldn't write Index or Contexts file.\t" + blocked}}));
}

}  // namespace
}  // namespace krx::test
