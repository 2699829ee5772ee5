// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

#include <limits>

namespace krx::test {
namespace {

std::string nest(std::string_view type, int levels)
{
    std::string bytes;
    for (int left = levels; left > 0; --left)
        bytes += sizedBox(static_cast<std::uint32_t>(left) * 8, type);
    return bytes;
}

TrackBoxes trackWithId(std::uint32_t id)
{
    TrackBoxes track;
    track.header = tkhd(id);
    track.description = stsd({videoEntry("VP62")});
    track.more = tableBox("stss", 1, {1});
    return track;
}

TEST(Mp4Walk, Faults)
{
    const std::string moov = box("moov", mvhd(1000, 2000));
    expectFaults({
        {"nothing", "", 117},
        {"two bytes", "ab", 5},
        {"three bytes", "abc", 13, {112}},
        {"other signature", "ZMV\1\5", 26},
        {"no movie", ftyp() + box("mdat"), 13},
        {"movie", moov},
        {"second movie", moov + moov, 19},
        {"seven bytes after it", moov + std::string(7, '\0'), 0, {112}},
        {"seven bytes in a container", movieFile(box("udta", std::string(7, '\0'))), 0, {112}},
        {"unknown boxes", box("wide") + moov + box("\xA9nam"), 0, {102, 102}},
        {"size 0 runs to the end", moov + sizedBox(0, "mdat", "abc")},
        {"size 0 after which the parent ends", movieFile(sizedBox(0, "udta")), 18},
        {"64-bit size", largeBox("mdat", "abc") + moov},
        {"smaller than its header", sizedBox(7, "free") + moov, 18},
        {"smaller than its large header", sizedLargeBox(15, "free") + moov, 18},
        {"2^31", sizedBox(0x80000000U, "free"), 18},
        {"2^32 - 1", sizedBox(0xFFFFFFFFU, "free"), 18},
        {"2^32", sizedLargeBox(1ULL << 32, "free"), 18},
        {"largest end", sizedLargeBox(std::numeric_limits<long long>::max(), "free"), 18},
        {"2^63", sizedLargeBox(1ULL << 63, "mdat") + moov, 18},
        {"2^64 - 1", sizedLargeBox(~0ULL, "mdat") + moov, 18},
        {"truncated media data", moov + sizedBox(100, "mdat", "abc"), 0, {18}},
        {"endless media data", moov + sizedLargeBox(1ULL << 62, "mdat"), 0, {18}},
        {"media data over a parent that ends early", movieFile(sizedBox(500, "mdat")), 18},
        {"truncated other box", moov + sizedBox(100, "free", "abc"), 18},
        {"header cut in its large size", moov + sizedBox(1, "mdat", "abcd"), 5},
        {"128 containers", nest("udta", 128) + moov},
        {"129 containers", nest("udta", 129) + moov, 18},
        {"deep nest", nest("udta", 100000), 18},
        {"deep nest of tracks", movieFile(nest("trak", 100000)), 18},
    });
}

TEST(Mp4Walk, WarningNamesTheBox)
{
    const auto parsed =
        parseFile(box("\xA9nam") + box("moov", mvhd(1, 1, 2)) + box(std::string_view("\0a\0b", 4)));
    ASSERT_EQ(parsed->warnings, (std::vector<int>{102, 123, 102}));
    EXPECT_EQ(parsed->sink.findings[0].text, "Unrecognized box: \xC2\xA9nam");
    EXPECT_EQ(parsed->sink.findings[1].text, "Unrecognized box version: mvhd");
    EXPECT_EQ(parsed->sink.findings[2].text, "Unrecognized box: .a.b");
}

/// Counts what it is asked and given, and takes no more than it was told to.
class CountingSink : public streams::FindingSink
{
public:
    explicit CountingSink(unsigned room) : m_room(room) {}
    bool admitsWarning() override { return ++asked <= m_room; }
    void add(const streams::Finding& finding) override
    {
        EXPECT_EQ(finding.level, streams::FindingLevel::kWarning);
        ++added;
    }

    unsigned asked = 0;
    unsigned added = 0;

private:
    unsigned m_room;
};

TEST(Mp4Walk, AsksOnceForEachWarning)
{
    // With the name of a box, at an offset, about the open box, and of a fault that was thrown.
    const std::string bytes =
        movieFile(box("what") + box("udta", "1234") + box("trak") + box("trak", tkhd(1)));
    const std::string line = "Warning:\t-102\tUnrecognized box: what\tmovie.mp4\n\n";
    const struct
    {
        unsigned room;
        int logLevel;
        bool asErrors;
        unsigned asked;
        unsigned added;
        std::size_t lines;
    } cases[] = {
        {9, 2, false, 4, 4, 0}, {2, 2, false, 4, 2, 0}, {0, 3, false, 4, 0, 4}, {0, 3, true, 1, 0, 0}};
    for (const auto& c : cases) {
        MemoryFileIo io(bytes);
        mp4::Mp4FileIO file("movie.mp4", &io, 0, {});
        mp4::MP4File mp4({}, nullptr);
        mp4.setIO(&file);
        CountingSink sink(c.room);
        mp4.setFindingSink(&sink);
        std::vector<std::string> lines;
        mp4.setLineSink([&](std::string_view text) { lines.emplace_back(text); });
        mp4.setLogLevel(c.logLevel);
        mp4.setWarningsAsErrors(c.asErrors);
        file.Open();
        if (c.asErrors)
            EXPECT_THROW(mp4.parse(0), streams::StreamParseError);
        else
            mp4.parse(0);
        EXPECT_EQ(sink.asked, c.asked);
        EXPECT_EQ(sink.added, c.added);
        ASSERT_EQ(lines.size(), c.lines);
        EXPECT_TRUE(lines.empty() || lines[0] == line) << lines[0];
    }
}

TEST(Mp4Movie, Tracks)
{
    const auto with = [](auto change) {
        TrackBoxes track;
        change(track);
        return trackFile(track);
    };
    std::string full;
    for (std::uint32_t id = 1; id <= 64; ++id)
        full += trackWithId(id).bytes();
    std::string dropped;
    for (int i = 0; i < 100; ++i)
        dropped += box("trak");
    mp4::Mp4Config none;
    none.MaxTracks = 0;
    expectFaults({
        {"complete", with([](TrackBoxes&) {})},
        {"no media timescale", with([](TrackBoxes& t) { t.mediaHeader = mdhd(0, 1); }), 21},
        {"no media header", with([](TrackBoxes& t) { t.mediaHeader.clear(); }), 0, {103}},
        {"no description", with([](TrackBoxes& t) { t.description.clear(); }), 0, {103}},
        {"no times", with([](TrackBoxes& t) { t.times.clear(); }), 0, {103}},
        {"no chunks", with([](TrackBoxes& t) { t.chunks.clear(); }), 0, {103}},
        {"no sizes", with([](TrackBoxes& t) { t.sizes.clear(); }), 0, {103}},
        {"no offsets", with([](TrackBoxes& t) { t.offsets.clear(); }), 0, {103}},
        {"second media header", with([](TrackBoxes& t) { t.mediaHeader += mdhd(1, 1); }), 19},
        {"media header of version 2",
         with([](TrackBoxes& t) { t.mediaHeader = mdhd(1, 1, 2); }),
         0,
         {123, 103}},
        {"header after the media", with([](TrackBoxes& t) {
             t.inTrack = box("udta", mdhd(1000, 1000)) + t.header;
             t.mediaHeader.clear();
             t.header.clear();
         })},
        {"ID 0", movieFile(box("trak", tkhd(0))), 0, {103}},
        {"no header", movieFile(box("trak")), 0, {103}},
        {"header of version 2", movieFile(box("trak", tkhd(1, 2))), 0, {123, 123, 103}},
        {"no header, but media", with([](TrackBoxes& t) { t.header.clear(); }), 31},
        {"sync-less video",
         with([](TrackBoxes& t) { t.description = stsd({videoEntry("VP62")}); }),
         0,
         {124}},
        {"none allowed", trackFile({}), 15, {}, none},
        {"64 tracks", movieFile(full + box("udta")), 0, std::vector<int>(63, 104)},
        {"65 tracks", movieFile(full + box("trak")), 15, std::vector<int>(63, 104)},
        {"tracks dropped before they have a record", movieFile(dropped), 0, std::vector<int>(100, 103)},
    });
}

/// "1 video avc1 640x480 0/0", and the finding that dropped it.
std::string lineOf(const mp4::TrackFacts& facts, unsigned id, const streams::Finding* finding)
{
    static constexpr const char* kKinds[] = {"other", "video", "audio", "text", "data"};
    std::string line = std::to_string(id) + ' ' + kKinds[static_cast<int>(facts.kind)] + ' ';
    for (int shift = 24; facts.codec != 0 && shift >= 0; shift -= 8)
        line += static_cast<char>(facts.codec >> shift & 0xFF);
    line += ' ' + std::to_string(facts.width) + 'x' + std::to_string(facts.height) + ' ' +
            std::to_string(static_cast<int>(facts.sampleRate)) + '/' + std::to_string(facts.channels);
    if (finding)
        line += ": " + std::to_string(finding->number) + " in " + finding->place.path + " of " +
                std::to_string(finding->place.track);
    return line;
}

TEST(Mp4Movie, TellsWhyTracksDoNotPlay)
{
    const auto handler = [](const char* type) {
        return fullBox("hdlr", Fields().u32(0).raw(type).zeros(13));
    };
    const auto track = [](unsigned id, const std::string& entry, const std::string& inMedia = {}) {
        TrackBoxes boxes = trackWithId(id);
        boxes.description = stsd({entry});
        boxes.mediaHeader += inMedia;
        boxes.more = tableBox("stss", 1, {1});
        return boxes;
    };
    TrackBoxes twice = track(2, audioEntry(".mp3"));
    twice.header = tkhd(3) + tkhd(2);
    TrackBoxes broken = track(2, audioEntry(".mp3"));
    broken.times = fullBox("stts", Fields().u32(1000000));
    const std::string video = track(1, videoEntry("VP62", {}, 64, 48)).bytes();
    const std::string shortAgain = box("trak", tkhd(1) + box("mdia", handler("vide")));
    const std::string extends = box("mvex", fullBox("trex", Fields().u32(9).zeros(16)));
    const struct
    {
        const char* name;
        std::string bytes;
        std::vector<std::string> lines;  ///< of the records, then of the boxes without one
    } cases[] = {
        {"unsupported video",
         track(1, videoEntry("hev1", {}, 64, 48), handler("vide")).bytes(),
         {"1 video hev1 64x48 0/0: -107 in moov/trak[1]/mdia/minf/stbl/stsd/hev1[1] of 1"}},
        {"short entry",
         track(1, box("alac")).bytes(),
         {"1 other alac 0x0 0/0: -107 in moov/trak[1]/mdia/minf/stbl/stsd/alac[1] of 1"}},
        {"no description",
         box("trak", tkhd(1) + box("mdia", handler("sbtl"))),
         {"1 text  0x0 0/0: -103 in moov/trak[1] of 1"}},
        {"second video",
         video + track(2, videoEntry("VP62", {}, 32, 24)).bytes(),
         {"1 video VP62 64x48 0/0",
          "2 video VP62 32x24 0/0: -104 in moov/trak[2]/mdia/minf/stbl/stsd/VP62[1] of 2"}},
        {"header of no track",
         box("trak", tkhd(0)) + video,
         {"1 video VP62 64x48 0/0", "0 other  0x0 0/0: -103 in moov/trak[1] of 0"}},
        {"track again", video + shortAgain, {"1 video VP62 64x48 0/0"}},
        {"dropped, and again",
         shortAgain + shortAgain,
         {"1 video  0x0 0/0: -103 in moov/trak[1] of 1", "1 video  0x0 0/0: -103 in moov/trak[2] of 1"}},
        {"dropped, and complete later", shortAgain + video, {"1 video VP62 64x48 0/0"}},
        {"two headers",
         twice.bytes(),
         {"3 other  0x0 0/0: -103 in moov/trak[1]/tkhd of 3", "2 audio .mp3 0x0 44100/2"}},
        {"error in a track",
         video + broken.bytes(),
         {"1 video VP62 64x48 0/0",
          "2 audio .mp3 0x0 44100/2: -28 in moov/trak[2]/mdia/minf/stbl/stts of 2"}},
        {"configuration of another rate",
         track(1, aacEntry("\x11\x88")).bytes(),
         {"1 audio mp4a 0x0 48000/1"}},
        {"fragments of no track", extends, {"9 other  0x0 0/0"}},
    };
    for (const auto& c : cases) {
        const auto parsed = parseFile(movieFile(c.bytes));
        std::vector<std::string> lines;
        for (const auto& record : parsed->mp4.movie().tracks) {
            lines.push_back(lineOf(*record, record->trackId, record->droppedBy.get()));
            EXPECT_FALSE(record->isValid() && record->droppedBy) << c.name;
        }
        for (const mp4::DroppedTrack& dropped : parsed->mp4.movie().droppedTracks)
            lines.push_back(lineOf(dropped, dropped.id, dropped.droppedBy.get()));
        EXPECT_EQ(lines, c.lines) << c.name;
        EXPECT_EQ(parsed->mp4.movie().brand, mp4::fourCC("isom"));
    }
    std::string nameless;
    for (int i = 0; i < 100; ++i)
        nameless += box("trak");
    EXPECT_EQ(parseFile(movieFile(nameless))->mp4.movie().droppedTracks.size(), 64U);
}

TEST(Mp4Movie, TrackFacts)
{
    TrackBoxes boxes;
    boxes.header = tkhd(7, 1, 0, 0x10000, 0xFFFF0000U, 0);
    boxes.mediaHeader = mdhd(44100, 1ULL << 33, 1, 0x15C7);
    boxes.description = stsd({videoEntry("VP62", {}, 640, 480)});
    boxes.more = tableBox("stss", 1, {1});
    const auto parsed = parseFile(trackFile(boxes));
    ASSERT_EQ(parsed->mp4.getTrackCount(), 1U);
    const mp4::TrackInfo& track = *parsed->track(7);
    EXPECT_EQ(parsed->mp4.getTrackVec()[0], &track);
    EXPECT_TRUE(track.isValid());
    EXPECT_EQ(track.timescale, 44100U);
    EXPECT_EQ(track.duration, 1ULL << 33);
    EXPECT_EQ(track.language, 0x15C7);
    EXPECT_EQ(track.tkhdStartPos, static_cast<long long>(ftyp().size() + 8 + mvhd(1, 1).size() + 8));
    EXPECT_EQ(track.sampleDescriptions[0].width, -480);
    EXPECT_EQ(track.sampleDescriptions[0].height, 640);
    EXPECT_EQ(parsed->mp4.getCurTrack(), nullptr);
}

TEST(Mp4Movie, FreeBoxes)
{
    const auto parsed =
        parseFile(box("moov", mvhd(1, 1) + box("free", std::string(92, 0)) + box("skip", std::string(42, 0)) +
                                  box("udta", box("free", std::string(22, 0)))));
    const long long first = 8 + 108;
    long long pos = 0;
    long long remaining = -1;
    EXPECT_TRUE(parsed->mp4.consumeFreeBoxInMoov(30, pos, remaining));
    EXPECT_EQ(pos, first + 100);
    EXPECT_EQ(remaining, 20);
    EXPECT_TRUE(parsed->mp4.consumeFreeBoxInMoov(20, pos, remaining));
    EXPECT_EQ(pos, first + 130);
    EXPECT_EQ(remaining, 0);
    EXPECT_FALSE(parsed->mp4.consumeFreeBoxInMoov(93, pos, remaining));
    EXPECT_TRUE(parsed->mp4.consumeFreeBoxInMoov(92, pos, remaining));
    EXPECT_EQ(pos, first);
    EXPECT_EQ(remaining, 8);
    for (int again = 0; again < 2; ++again) {
        EXPECT_TRUE(parsed->mp4.consumeFreeBoxInMoov(0, pos, remaining));
        EXPECT_EQ(pos, first + 92);
        EXPECT_EQ(remaining, 8);
    }
    EXPECT_FALSE(parsed->mp4.consumeFreeBoxInMoov(-1, pos, remaining));
}

}  // namespace
}  // namespace krx::test
