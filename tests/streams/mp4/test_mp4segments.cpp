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

const std::string kMp3Entry = audioEntry(".mp3");
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
    MovieTrack audio = plainTrack(kMp3Entry, 20'000, 20, 1);
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

TEST(Mp4Segments, AreFoundByPositionAndTime)
{
    // 262,144 bytes are not too much for a segment; the ender counts 1 byte, too.
    EXPECT_EQ(tuplesOf(PlayedFile(plainFile(plainTrack(kMp3Entry, 4, 65535))).segments()), "0-4 0-40; ");
    PlayedFile file(plainFile(plainTrack(kMp3Entry, 4, 131072)));
    EXPECT_EQ(tuplesOf(file.segments()), "0-1 0-20; 2-3 20-30; 4-4 30-40; ");
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
    PlayedFile still(plainFile(plainTrack(kMp3Entry, 3, 300'000)));
    ASSERT_TRUE(still.data.findSegmentByTime(20, &bounds));
    EXPECT_EQ(bounds.start, 2);
    ASSERT_TRUE(still.data.findSegmentByTime(21, &bounds));
    EXPECT_EQ(bounds.start, 3);
    EXPECT_FALSE(still.data.findSegmentByPos(0, nullptr));
    EXPECT_FALSE(still.data.findSegmentByTime(0, nullptr));
}

TEST(Mp4Segments, ReportBadSamplesOnceAndEveryEarlyEnd)
{
    const std::string start =
        "KRX detected a bad message in : movie.mp4 Playback may have incomplete content : ";
    const auto line = [&](const char* text) { return RecordingContext::Line{3, start + text}; };
    for (const bool aggregates : {false, true}) {
        // Nellymoser without a rate: each sample is skipped, and counts. The next file has its own line.
        PlayedFile bad(plainFile(plainTrack(audioEntry("nmos", {}, 0), 3)), aggregates);
        for (const bool again : {false, true}) {
            EXPECT_EQ(bad.load(bad.segments().at(0)).size(), 1U) << again;
            EXPECT_EQ(bad.context.lines, std::vector<RecordingContext::Line>{
                                             line("-120\tBad NellyMoser Frequency.  Sample(s) skipped....")});
        }

        // Each ends the load, and is reported each time. What came before it is delivered; an aggregate that
        // is refused is not offered again.
        PlayedFile file(plainFile(plainTrack(kMp3Entry, 3)), aggregates);
        const SegmentBounds bounds = file.segments().at(0);
        RecordingHolder holder;
        holder.refuseAt = aggregates ? 1 : 2;
        EXPECT_FALSE(file.data.loadSegment(&bounds, &holder));
        EXPECT_EQ(holder.messages.size(), holder.refuseAt);
        EXPECT_FALSE(file.io.isOpen());
        file.io.allowOpen(false);
        EXPECT_TRUE(file.load(bounds, false).empty());
        file.io.allowOpen(true);
        file.io.bytes().resize(file.io.bytes().size() - 5);
        const auto messages = file.load(bounds, false);
        ASSERT_EQ(messages.size(), aggregates ? 1U : 2U);
        EXPECT_EQ(messages[0].bytes.size(), aggregates ? 2 * 26U : 11U);
        file.io.failReadsFrom(1);
        EXPECT_TRUE(file.load(bounds, false).empty());
        EXPECT_EQ(file.context.lines,
                  (std::vector{line("-1\tUnknown Error."), line("-4\tCannot open file."),
                               line("-5\tFile read error."), line("-5\tFile read error.")}));
    }
}

TEST(Mp4Segments, UseOneTablePageEach)
{
    PlayedFile file(buildMovie(pagedMovie()).bytes);
    ASSERT_EQ(file.status, kLoadOk);
    const auto segments = file.segments();
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
    }
    EXPECT_TRUE(std::is_sorted(pages.begin(), pages.end()));
    EXPECT_GE(pages.back(), 2U);

    const unsigned held = file.data.getMemoryOverhead();
    file.data.clearTableSegment(pages.back());
    EXPECT_LT(file.data.getMemoryOverhead(), held);
    file.data.clearTableSegment(4'000'000);  // does not exist
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

    // With warnings as errors, even the report of what is wrong fails.
    MemoryFileIo io{ftyp()};
    Mp4Data strict("movie.mp4", nullptr, &io, 0, {});
    strict.getFile().setWarningsAsErrors(true);
    EXPECT_EQ(strict.init(), kLoadFailed);
    EXPECT_EQ(strict.initPlayback(1), kLoadFailed);
}

TEST(Mp4Segments, EndWhereTheFileIsTruncated)
{
    Movie movie;
    movie.tracks = {plainTrack(kMp3Entry, 20, 100'000)};
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

    // Not on the first page of the tables.
    MovieTrack still = plainTrack(kAmf0, 70'000, 5, 0);
    still.samplesPerChunk = 1;
    still.samples[60'000].size = static_cast<std::uint32_t>(info.size());
    Movie movie;
    movie.tracks = {still};
    BuiltMovie built = buildMovie(movie);
    built.bytes.replace(built.samples[0][60'000].offset, info.size(), info);
    PlayedFile file(built.bytes);
    EXPECT_EQ(file.status, kLoadOk);
    EXPECT_EQ(file.messages().size(), 69'999U);
    EXPECT_EQ(file.contexts(64 + 5).size(), 1U);
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

    // The numbers from 64 on are the file's own.
    struct Case
    {
        std::uint32_t ids[2];
        unsigned numbers[2];
    };
    const Case cases[] = {{{63, 5}, {63, 5}},
                          {{64, 2}, {0, 2}},
                          {{66, 0xFFFFFFFF}, {0, 1}},
                          {{1, 68}, {1, 0}},
                          {{69, 1}, {0, 1}}};
    for (const Case& c : cases) {
        Movie numbered = soundMovie();
        numbered.tracks[0].id = c.ids[0];
        numbered.tracks[1].id = c.ids[1];
        PlayedFile played(buildMovie(numbered).bytes);
        ASSERT_EQ(played.status, kLoadOk) << c.ids[0];
        EXPECT_EQ(played.contexts(c.numbers[0]), (std::vector<std::string>{avcHeader, hexText("1702000000")}))
            << c.ids[0];
        EXPECT_EQ(played.contexts(c.numbers[1]), (std::vector<std::string>{aacHeaders[0], ""})) << c.ids[1];
        EXPECT_EQ(played.contexts(64 + 2).size(), 1U) << c.ids[0];
    }
}

/// A file of one track whose chunks all have the same samples, of one size.
std::string sharedChunks(const std::string& entry, std::uint32_t chunks, std::uint32_t perChunk,
                         std::uint32_t size)
{
    TrackBoxes boxes;
    boxes.description = stsd({entry});
    boxes.chunks = tableBox("stsc", 1, {1, perChunk, 1});
    boxes.sizes = stsz(size, chunks * perChunk);
    boxes.offsets = tableBox("stco", chunks, std::vector<std::uint32_t>(chunks, 8));
    return trackFile(boxes) + box("mdat", std::string(std::size_t{perChunk} * size, 'x'));
}

TEST(Mp4Segments, GiveUpAWalkThatCostsTooMuch)
{
    for (const auto& [size, steps] : {std::pair{1, 8'000'000U}, std::pair{2'000'000, 16'000'000U}}) {
        WalkBudget budget(size);
        budget.charge(steps);
        EXPECT_THROW(budget.charge(), streams::StreamParseError);
    }

    // Empty samples cost nothing in the file.
    TrackBoxes tables;
    const auto extends = [](unsigned track) {
        return box("mvex", fullBox("trex", Fields().u32(track).u32(1).zeros(12)));
    };
    const auto endless = [](unsigned track) {
        return box("moof", fullBox("mfhd", Fields().u32(1)) +
                               box("traf", fullBox("tfhd", Fields().u32(track)) +
                                               fullBox("trun", Fields().u32(0xFFFFFFFF))));
    };
    // The walk ends at the first track's sample; the second track's are all at time 0.
    TrackBoxes cut;
    cut.offsets = tableBox("stco", 1, {0xFFFFFFFF});
    TrackBoxes still;
    still.header = tkhd(2);
    still.description = stsd({kAmf0});
    still.times = tableBox("stts", 1, {1, 0});
    // Silence is the same few bytes again and again, and so is a picture that stands still.
    const std::string aac = aacEntry();
    struct Case
    {
        const char* name;
        std::string bytes;
        std::vector<int> warnings;
    };
    const Case cases[] = {
        {"a picture of 50 KB for 30 s", sharedChunks(avcEntry(), 30, 1, 50'000), {124}},
        {"a frame of 50 KB, 25 times a second for ten minutes", sharedChunks(aac, 15'000, 1, 50'000), {}},
        {"ten hours of silence in one chunk", sharedChunks(aac, 1688, 1000, 6), {}},
        {"four hours of a picture of 300 KB, 25 times a second",
         sharedChunks(avcEntry(), 360'000, 1, 300'000),
         {124}},
        {"chunks shared without end", sharedChunks(aac, 81, 100'000, 1), {28}},
        {"empty samples", movieFile(tables.bytes() + extends(1), endless(1)), {28}},
        {"the search for the time coordination",
         movieFile(cut.bytes() + still.bytes() + extends(2), endless(2)),
         {117, 28}},
        {"after the end", trackFile(cut), {117}}};
    for (const Case& c : cases) {
        PlayedFile file(c.bytes);
        EXPECT_EQ(file.warnings, c.warnings) << c.name;
        const bool refused = !c.warnings.empty() && c.warnings.back() == 28;
        EXPECT_EQ(file.status, refused ? kLoadNotPlayable : kLoadOk) << c.name;
    }
}

TEST(Mp4Segments, RefuseWhatPassesTheBudgetOfMemory)
{
    // The messages of the file are charged before they are made: here the fonts of text descriptions, a font
    // of 3 bytes with an object of 34.
    TrackBoxes boxes;
    constexpr unsigned kFonts = 60'000;
    std::string fonts;
    for (unsigned i = 0; i < kFonts; ++i)
        fonts += std::string("\0\1\0", 3);
    const std::string entry =
        box("tx3g", std::string(38, '\0') + box("ftab", Fields().u16(kFonts).raw(fonts)));
    for (const auto& [count, refused] : {std::pair{4, false}, std::pair{9, true}}) {
        boxes.description = stsd(std::vector<std::string>(static_cast<std::size_t>(count), entry));
        PlayedFile file(trackFile(boxes));
        EXPECT_EQ(file.warnings, refused ? std::vector{28} : std::vector<int>{});
        EXPECT_EQ(file.metadata().empty(), refused);
    }
}

}  // namespace krx::test
