// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/walkbudget.h"
#include "tests/streams/mp4/parserfixture.h"
#include "tests/streams/mp4/playfixture.h"
#include "tests/support/hextext.h"

#include <gtest/gtest.h>

#include <tuple>

namespace krx::test {
namespace {

using namespace krx::mp4;
using Message = RecordingHolder::Message;

const std::string kMp3 = audioEntry(".mp3");
const std::string kAmf0 = box("amf0", Fields().zeros(6).u16(1));

std::string tuplesOf(const std::vector<SegmentBounds>& segments)
{
    std::string text;
    for (const SegmentBounds& s : segments)
        text += std::to_string(s.start) + '-' + std::to_string(s.end) + ' ' + std::to_string(s.startTime) +
                '-' + std::to_string(s.endTime) + "; ";
    return text;
}

/// Three tracks of small samples whose tables fill several pages.
Movie pagedMovie()
{
    Movie movie;
    MovieTrack video = plainTrack(avcEntry(), 30'000, 60, 1);
    video.compositionTable = video.syncTable = true;
    MovieTrack audio = plainTrack(kMp3, 20'000, 20, 1);
    audio.entries.push_back(audioEntry(".mp3", {}, 22050));
    audio.id = 2;
    MovieTrack late = plainTrack(kAmf0, 100, 9, 3);
    late.id = 3;
    late.edits = {{25'000, -1}, {300, 0}};
    for (std::size_t i = 0; i < video.samples.size(); ++i) {
        video.samples[i].duration = i % 3 == 0 ? 2 : 1;
        video.samples[i].compositionOffset = i % 2 == 0 ? 1 : 3;
        video.samples[i].sync = i % 25 == 0;
    }
    for (std::size_t i = 0; i < audio.samples.size(); ++i) {
        audio.samples[i].duration = 1 + i % 2;
        audio.samples[i].description = 1 + i / 1000 % 2;
    }
    audio.extraInTable = fullBox("sdtp", std::string(audio.samples.size(), '\x20'));
    movie.tracks = {video, audio, late};
    return movie;
}

/// Counts pages and their bytes.
class DepHolder : public RecordingHolder
{
public:
    void addDep(unsigned tablePage, unsigned bytes) override { deps.emplace_back(tablePage, bytes); }
    std::vector<std::pair<unsigned, unsigned>> deps;
};

}  // namespace

TEST(Mp4Segments, CloseBehindTheMessageThatIsTooMuch)
{
    struct Case
    {
        const char* name;
        std::size_t samples;
        std::uint32_t size;  ///< 1 byte less than its message
        const char* segments;
    };
    // 262,144 bytes are not too much yet; the ender counts 1 byte, too.
    const Case cases[] = {
        {"one segment", 3, 87380, "0-3 0-30; "},
        {"exactly full", 4, 65535, "0-4 0-40; "},
        {"one byte more", 4, 65536, "0-3 0-30; 4-4 30-40; "},
        {"two segments of two", 4, 131072, "0-1 0-20; 2-3 20-30; 4-4 30-40; "},
        {"one message each", 3, 300'000, "0-0 0-10; 1-1 10-20; 2-2 20-20; 3-3 20-30; "},
    };
    for (const Case& c : cases) {
        PlayedFile file(plainFile(plainTrack(kMp3, c.samples, c.size)));
        EXPECT_EQ(tuplesOf(file.segments()), c.segments) << c.name;
        EXPECT_EQ(file.messages().size(), c.samples + 1) << c.name;
        EXPECT_EQ(file.data.getEndPosition(), static_cast<long long>(c.samples) + 1) << c.name;
        EXPECT_EQ(file.data.getDuration(), c.samples * 10) << c.name;
    }
}

TEST(Mp4Segments, AreFoundByPositionAndTime)
{
    // Segments 0-1 0-20, 2-3 20-30, 4-4 30-40 as above.
    PlayedFile file(plainFile(plainTrack(kMp3, 4, 131072)));
    SegmentBounds bounds;
    const auto startOf = [&](bool found) { return found ? bounds.start : -7; };
    const long long byPosition[] = {0, 0, 2, 2, 4, -7};
    for (int i = -1; i < 6; ++i)
        EXPECT_EQ(startOf(file.data.findSegmentByPos(i, &bounds)), i < 0 ? -7 : byPosition[i]) << i;
    const std::pair<unsigned, long long> times[] = {{0, 0},  {19, 0}, {20, 2},  {29, 2},
                                                    {30, 4}, {39, 4}, {40, -7}, {4294967295, -7}};
    for (const auto& [time, start] : times)
        EXPECT_EQ(startOf(file.data.findSegmentByTime(time, &bounds)), start) << time;

    // Segments 0-0 0-10, 1-1 10-20, 2-2 20-20, 3-3 20-30: one without length is found at its time.
    PlayedFile still(plainFile(plainTrack(kMp3, 3, 300'000)));
    ASSERT_TRUE(still.data.findSegmentByTime(20, &bounds));
    EXPECT_EQ(bounds.start, 2);
    ASSERT_TRUE(still.data.findSegmentByTime(21, &bounds));
    EXPECT_EQ(bounds.start, 3);
    EXPECT_FALSE(still.data.findSegmentByPos(0, nullptr));
    EXPECT_FALSE(still.data.findSegmentByTime(0, nullptr));
}

TEST(Mp4Segments, ReportOneBadMessageAProcess)
{
    const std::string expected =
        "KRX detected a bad message in : movie.mp4 Playback may have incomplete content : ";
    for (const bool aggregates : {false, true}) {
        // Nellymoser without a rate: each sample is skipped, and counts.
        PlayedFile file(plainFile(plainTrack(audioEntry("nmos", {}, 0), 3)), aggregates);
        EXPECT_EQ(file.load(file.segments().at(0)).size(), 1U);
        ASSERT_EQ(file.context.lines.size(), 1U);
        EXPECT_EQ(file.context.lines[0].level, 3);
        EXPECT_EQ(file.context.lines[0].text,
                  expected + "-120\tBad NellyMoser Frequency.  Sample(s) skipped....");
        file.load(file.segments().at(0));
        EXPECT_EQ(file.context.lines.size(), 1U);
    }

    // A holder that refuses, and a read that fails, end the load; the position tells that it is not whole.
    PlayedFile file(plainFile(plainTrack(kMp3, 3)));
    RecordingHolder holder;
    holder.refuseAt = 2;
    const SegmentBounds bounds = file.segments().at(0);
    EXPECT_FALSE(file.data.loadSegment(&bounds, &holder));
    EXPECT_EQ(holder.messages.size(), 2U);
    ASSERT_EQ(file.context.lines.size(), 1U);
    EXPECT_EQ(file.context.lines[0].text, expected + "-1\tUnknown Error.");
    EXPECT_FALSE(file.io.isOpen());

    Mp4Data::resetBadSampleLog();
    file.io.failReadsFrom(1);
    file.load(bounds, false);
    ASSERT_EQ(file.context.lines.size(), 2U);

    // Cut off after it was opened.
    PlayedFile cut(plainFile(plainTrack(kMp3, 3)));
    cut.io.bytes().resize(cut.io.bytes().size() - 5);
    EXPECT_EQ(cut.load(cut.segments().at(0), false).size(), 2U);
    ASSERT_EQ(cut.context.lines.size(), 1U);
    EXPECT_EQ(cut.context.lines[0].text, expected + "-5\tFile read error.");
}

TEST(Mp4Segments, UseOneTablePageEach)
{
    PlayedFile file(buildMovie(pagedMovie()).bytes);
    ASSERT_EQ(file.status, kLoadOk);
    const auto segments = file.segments();
    std::vector<Message> all;
    std::vector<unsigned> pages;
    const unsigned opened = file.data.getMemoryOverhead();
    for (const SegmentBounds& bounds : segments) {
        DepHolder holder;
        ASSERT_TRUE(file.data.loadSegment(&bounds, &holder)) << bounds.start;
        ASSERT_EQ(holder.deps.size(), 1U);
        pages.push_back(holder.deps[0].first);
        EXPECT_LT(holder.deps[0].second, 2 * Mp4Data::kTablePageSize + 100'000);
        // Only this page is held, besides the read-ahead.
        EXPECT_LT(file.data.getMemoryOverhead() - opened, holder.deps[0].second + 210'000);
        EXPECT_EQ(static_cast<long long>(holder.messages.size()), bounds.end - bounds.start + 1);
        std::move(holder.messages.begin(), holder.messages.end(), std::back_inserter(all));
    }
    EXPECT_TRUE(std::is_sorted(pages.begin(), pages.end()));
    EXPECT_GE(pages.back(), 2U);

    // The same messages as from a file whose tables are one page: as from one in fragments, which has none.
    Movie fragmented = pagedMovie();
    fragmented.samplesPerFragment = 1000;
    fragmented.tracks[1].extraInTable.clear();
    PlayedFile other(buildMovie(fragmented).bytes);
    const std::vector<Message> same = other.messages();
    ASSERT_EQ(all.size(), same.size());
    for (std::size_t i = 0; i < all.size(); ++i)
        ASSERT_EQ(all[i], same[i]) << i;

    // In another order, with pages dropped between, and one that does not exist.
    for (const std::size_t i : {segments.size() - 1, std::size_t{0}, segments.size() / 2}) {
        const auto part = file.load(segments[i]);
        EXPECT_EQ(part.front(), all[static_cast<std::size_t>(segments[i].start)]);
        EXPECT_EQ(part.back(), all[static_cast<std::size_t>(segments[i].end)]);
        const unsigned held = file.data.getMemoryOverhead();
        file.data.clearTableSegment(pages[i]);
        EXPECT_LT(file.data.getMemoryOverhead(), held);
        file.data.clearTableSegment(4'000'000);
        EXPECT_EQ(file.load(segments[i]).size(), part.size());
    }
}

TEST(Mp4Segments, StandForAFileThatCannotBePlayed)
{
    const auto status = [](const char* code) {
        return hexText("02 0008 'onStatus' 00 0000000000000000 06 03 0004 'code' 02") +
               Fields().u16(std::strlen(code)).raw(code).bytes() +
               hexText("0005 'level' 02 0006 'status' 000009");
    };
    struct Case
    {
        const char* name;
        std::string bytes;
        std::vector<int> warnings;
        std::string message;
    };
    TrackBoxes image;
    image.description = stsd({box("jpeg", Fields().zeros(8))});
    TrackBoxes missingEntry;
    missingEntry.chunks = tableBox("stsc", 0, {});
    const Case cases[] = {
        {"images only", trackFile(image), {14}, status("NetStream.Play.NoSupportedTrackFound")},
        {"no tracks", movieFile(""), {14}, status("NetStream.Play.NoSupportedTrackFound")},
        {"tables that disagree",
         trackFile(missingEntry),
         {28},
         status("NetStream.Play.FileStructureInvalid")},
        {"no movie box", ftyp(), {13}, status("NetStream.Play.FileStructureInvalid")},
        {"empty file", "", {117}, status("NetStream.Play.FileStructureInvalid")},
    };
    for (const Case& c : cases) {
        PlayedFile file(c.bytes);
        EXPECT_EQ(file.status, kLoadNotPlayable) << c.name;
        EXPECT_EQ(file.warnings, c.warnings) << c.name;
        EXPECT_EQ(tuplesOf(file.segments()), "0-0 0-0; ") << c.name;
        const auto messages = file.messages();
        ASSERT_EQ(messages.size(), 1U) << c.name;
        EXPECT_EQ(messages[0].type, 20U) << c.name;
        EXPECT_EQ(toHex(messages[0].bytes), toHex(c.message)) << c.name;
        EXPECT_EQ(file.data.getType(), 0) << c.name;
        RecordingHolder refusing;
        refusing.refuseAt = 1;
        const SegmentBounds bounds = file.segments()[0];
        EXPECT_FALSE(file.data.loadSegment(&bounds, &refusing)) << c.name;
    }

    // With warnings as errors, even telling what is wrong fails.
    MemoryFileIo io{ftyp()};
    Mp4Data strict("movie.mp4", nullptr, &io, 0, {});
    strict.getFile().setWarningsAsErrors(true);
    EXPECT_EQ(strict.init(), kLoadFailed);
    EXPECT_EQ(strict.initPlayback(1), kLoadFailed);
}

TEST(Mp4Segments, EndWhereTheFileIsTruncated)
{
    Movie movie;
    movie.tracks = {plainTrack(kMp3, 20, 100'000)};
    const BuiltMovie built = buildMovie(movie);
    struct Case
    {
        std::size_t wholeSamples;
        const char* segments;
    };
    const Case cases[] = {
        {20, "0-2 0-30; 3-5 30-60; 6-8 60-90; 9-11 90-120; 12-14 120-150; 15-17 150-180; 18-20 180-200; "},
        {19, "0-2 0-30; 3-5 30-60; 6-8 60-90; 9-11 90-120; 12-14 120-150; 15-17 150-180; "},
        {4, "0-2 0-30; "},
        {2, ""},
    };
    for (const Case& c : cases) {
        const auto& place = built.samples[0][c.wholeSamples - 1];
        PlayedFile file(built.bytes.substr(0, place.offset + place.size));
        EXPECT_EQ(file.status, kLoadOk) << c.wholeSamples;
        EXPECT_EQ(tuplesOf(file.segments()), c.segments) << c.wholeSamples;
        EXPECT_EQ(file.warnings, c.wholeSamples < 20 ? (std::vector<int>{18, 117}) : std::vector<int>())
            << c.wholeSamples;
        const auto segments = file.segments();
        EXPECT_EQ(file.messages().size(),
                  segments.empty() ? 0U : static_cast<std::size_t>(segments.back().end + 1));
        EXPECT_EQ(file.data.getDuration(), segments.empty() ? 0 : segments.back().endTime);
        EXPECT_EQ(file.data.getEndPosition(), static_cast<long long>(file.messages().size()));
    }

    // Pages were begun, but the tables are not cut: the segments still load.
    const BuiltMovie paged = buildMovie(pagedMovie());
    const auto& place = paged.samples[0][28'000];
    PlayedFile file(paged.bytes.substr(0, place.offset));
    EXPECT_EQ(file.status, kLoadOk);
    EXPECT_GE(file.segments().size(), 3U);
    EXPECT_EQ(file.messages().size(), static_cast<std::size_t>(file.data.getEndPosition()));
}

TEST(Mp4Segments, LeaveTheTimeCoordinationToTheContexts)
{
    struct Case
    {
        const char* name;
        std::string first;  ///< first and second sample, at time 0
        std::string second;
        unsigned duration;  ///< of the first
        const char* entry;
        std::size_t skipped;
        std::size_t contexts;
    };
    const std::string info = hexText("02 000F 'onTimeCoordInfo' 05");
    const std::string longName = hexText("0C 0000000F 'onTimeCoordInfo'");
    const std::string amf3Name = hexText("11 06 1F 'onTimeCoordInfo'");
    const std::string other = hexText("02 000F 'onTimeCoordinfo' 05");
    const std::string longer = hexText("02 0010 'onTimeCoordInfo2'");
    const std::string cut = hexText("02 000F 'onTimeCoord'");
    const Case cases[] = {
        {"first sample", info, other, 10, "amf0", 1, 1},
        {"second sample at time 0", other, info, 0, "amf0", 1, 1},
        {"both", info, longName, 0, "amf0", 2, 1},
        {"second sample, later", other, info, 10, "amf0", 0, 0},
        {"other forms of the name", amf3Name, longer, 0, "amf0", 1, 1},
        {"as a movie clip, and by a reference", hexText("04 000F 'onTimeCoordInfo'"), hexText("11 06 1E"), 0,
         "amf0", 1, 1},
        {"none", cut, "", 0, "amf0", 0, 0},
        {"AMF3 data has a byte in front", info, other, 0, "amf3", 1, 1},
        {"AMF3 data as it is", std::string(1, '\0') + info, other, 0, "amf3", 0, 0},
    };
    for (const Case& c : cases) {
        MovieTrack data = plainTrack(box(c.entry, Fields().zeros(6).u16(1)), 3, 5);
        data.samples[0].size = static_cast<std::uint32_t>(c.first.size());
        data.samples[0].duration = c.duration;
        data.samples[1].size = static_cast<std::uint32_t>(c.second.size());
        Movie movie;
        movie.tracks = {data};
        BuiltMovie built = buildMovie(movie);
        built.bytes.replace(built.samples[0][0].offset, c.first.size(), c.first);
        built.bytes.replace(built.samples[0][1].offset, c.second.size(), c.second);
        for (const bool aggregates : {false, true}) {
            PlayedFile file(built.bytes, aggregates);
            ASSERT_EQ(file.status, kLoadOk) << c.name;
            EXPECT_EQ(file.data.getEndPosition(), 3) << c.name;
            std::size_t records = 0;
            for (const Message& message : file.messages())
                for (std::size_t at = 0; at < message.bytes.size() && aggregates; ++records)
                    at += 15 + static_cast<unsigned char>(message.bytes[at + 3]);
            EXPECT_EQ(aggregates ? records : file.messages().size(), 3 - c.skipped) << c.name;
            EXPECT_EQ(file.contexts(64 + 5).size(), c.contexts) << c.name;
        }
    }
}

TEST(Mp4Segments, KeepHeadersAndEndersAsContexts)
{
    Movie movie = soundMovie();
    movie.tracks[1].entries.push_back(aacEntry(std::string_view("\x12\x08", 2)));
    for (std::size_t i = 16; i < 32; ++i)
        movie.tracks[1].samples[i].description = 2;
    PlayedFile file(buildMovie(movie).bytes);
    const std::string avcHeader = hexText("1700000000") + avcConfiguration();
    EXPECT_EQ(file.contexts(1), (std::vector<std::string>{avcHeader, hexText("1702000000")}));
    const std::string aacHeaders[] = {hexText("AF001210"), hexText("AF001208")};
    EXPECT_EQ(file.contexts(2),
              (std::vector<std::string>{aacHeaders[0], "", aacHeaders[1], "", aacHeaders[0], ""}));
    ASSERT_EQ(file.contexts(64 + 2).size(), 1U);
    EXPECT_EQ(file.contexts(64 + 2)[0], file.metadata());
    EXPECT_EQ(file.data.getType(), Mp4Data::kHasVideo | Mp4Data::kHasAudio);
}

TEST(Mp4Segments, GiveUpAWalkThatCostsTooMuch)
{
    WalkBudget budget(1);
    budget.charge(1'000'000);
    for (int i = 0; i < 8; ++i)
        budget.charge(0);
    EXPECT_THROW(budget.charge(0), streams::StreamParseError);

    // 80,000 bytes of samples, again and again: 20 times are below 8 times the file and 1,000,000, 25 times
    // are not.
    const auto chunks = [](std::uint32_t count) {
        TrackBoxes boxes;
        boxes.sizes = stsz(40, 2000 * count);
        boxes.chunks = tableBox("stsc", 1, {1, 2000, 1});
        boxes.offsets = tableBox("stco", count, std::vector<std::uint32_t>(count, 8));
        return trackFile(boxes) + box("mdat", std::string(80'000, 'x'));
    };
    // Empty samples cost nothing in the file.
    TrackBoxes tables;
    const std::string extends = box("mvex", fullBox("trex", Fields().u32(1).u32(1).zeros(12)));
    const std::string run = fullBox("trun", Fields().u32(0xFFFFFFFF));
    const std::string emptySamples = movieFile(
        tables.bytes() + extends,
        box("moof", fullBox("mfhd", Fields().u32(1)) + box("traf", fullBox("tfhd", Fields().u32(1)) + run)));
    // The walk ends at the first track's sample; the second track's are all at time 0.
    TrackBoxes cut;
    cut.offsets = tableBox("stco", 1, {0xFFFFFFFF});
    TrackBoxes still;
    still.header = tkhd(2);
    still.description = stsd({kAmf0});
    still.times = tableBox("stts", 1, {1, 0});
    const std::string stillSamples = movieFile(
        cut.bytes() + still.bytes() + box("mvex", fullBox("trex", Fields().u32(2).u32(1).zeros(12))),
        box("moof", fullBox("mfhd", Fields().u32(1)) + box("traf", fullBox("tfhd", Fields().u32(2)) + run)));
    struct Case
    {
        const char* name;
        std::string bytes;
        std::vector<int> warnings;
    };
    const Case cases[] = {{"just in time", chunks(20), {}},
                          {"overlapping chunks", chunks(25), {28}},
                          {"empty samples", emptySamples, {28}},
                          {"the search for the time coordination", stillSamples, {117, 28}},
                          {"behind the end", trackFile(cut), {117}}};
    for (const Case& c : cases)
        EXPECT_EQ(PlayedFile(c.bytes).warnings, c.warnings) << c.name;
}

TEST(Mp4Segments, KeepLittleOfAFileWithoutEnd)
{
    // A new description with each sample, and a header and an ender kept for each.
    constexpr std::uint32_t kSamples = 300'000;
    std::vector<std::uint32_t> chunks;
    for (std::uint32_t i = 0; i < kSamples; ++i)
        chunks.insert(chunks.end(), {i + 1, 1, 1 + i % 2});
    TrackBoxes boxes;
    boxes.description = stsd({aacEntry(), aacEntry()});
    boxes.sizes = stsz(1, kSamples);
    boxes.chunks = tableBox("stsc", kSamples, chunks);
    boxes.offsets = tableBox("stco", kSamples, std::vector<std::uint32_t>(kSamples, 8));
    PlayedFile file(trackFile(boxes));
    EXPECT_EQ(file.warnings, std::vector<int>{28});
    EXPECT_LT(file.data.getMemoryOverhead(), 64U << 20);
}

}  // namespace krx::test
