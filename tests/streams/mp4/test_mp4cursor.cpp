// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boundary.h"
#include "modules/streams/mp4/mp4cursor.h"
#include "tests/streams/mp4/parserfixture.h"
#include "tests/support/assertrecorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <random>
#include <sstream>

namespace krx::test {
namespace {

using namespace krx::mp4;

/// Walks by stretches wherever there are some, never more than three samples at a time, and by single steps
/// beside it: both must stand at the same place whenever a stretch ends. Works on a track and on the tracks
/// of a file.
template <typename Cursor, typename Track>
void expectStretchesAreSteps(Cursor& stretched, Cursor& single, Track trackOf)
{
    constexpr StretchLimits kNoLimits{~0ULL, ~0U, ~0ULL};
    try {
        while (trackOf(stretched) && !trackOf(stretched)->atEndOfTrack()) {
            std::vector<unsigned> sizes;
            const bool walked = stretched.walkStretch(kNoLimits, [&](unsigned size) {
                sizes.push_back(size);
                return sizes.size() < 3;
            });
            EXPECT_EQ(walked, !sizes.empty());
            if (!walked) {
                stretched.advance();
                single.advance();
            }
            for (const unsigned size : sizes) {
                EXPECT_FALSE(trackOf(single)->isHeader() || trackOf(single)->isEnder());
                EXPECT_EQ(trackOf(single)->getSampleSize(), size);
                single.advance();
            }
            TrackCursor* const there = trackOf(stretched);
            TrackCursor* const here = trackOf(single);
            ASSERT_EQ(there == nullptr, here == nullptr);
            if (!here)
                return;
            ASSERT_EQ(&there->track(), &here->track());
            ASSERT_TRUE(there->position() == here->position());
            ASSERT_EQ(there->getTimeMillis(), here->getTimeMillis());
        }
    } catch (const streams::StreamParseError&) {
        EXPECT_THROW(single.advance(), streams::StreamParseError);
    }
}

/// The steps of a track: 'h', 'e' or the sample's offset, and '@' with the time; an error ends the text.
std::string steps(TrackInfo& track)
{
    std::ostringstream text;
    try {
        TrackCursor stretched(track);
        TrackCursor single(track);
        expectStretchesAreSteps(stretched, single, [](TrackCursor& cursor) { return &cursor; });
        for (TrackCursor cursor(track); !cursor.atEndOfTrack(); cursor.advance()) {
            if (cursor.isHeader())
                text << 'h';
            else if (cursor.isEnder())
                text << 'e';
            else {
                const unsigned size = cursor.getSampleSize();
                text << cursor.position().fileOffset << '+' << size;
            }
            text << '@' << cursor.getTimeMillis() << ' ';
        }
    } catch (const streams::StreamParseError& error) {
        text << "error " << error.getStatus();
    }
    return text.str();
}

std::string steps(const TrackBoxes& boxes)
{
    const auto parsed = parseFile(trackFile(boxes));
    return parsed->track() ? steps(*parsed->track()) : "no track";
}

/// 'mvex' and the fragments, each the boxes of a 'traf' behind its 'tfhd'.
std::string fragmentedFile(const TrackBoxes& boxes, const std::vector<std::string>& fragments)
{
    std::string behind;
    unsigned number = 0;
    for (const std::string& fragment : fragments)
        behind += box("moof", fullBox("mfhd", Fields().u32(++number)) + box("traf", fragment));
    const std::string extends = box("mvex", fullBox("trex", Fields().u32(1).u32(1).u32(7).u32(3).u32(0)));
    return movieFile(boxes.bytes() + extends, behind);
}

std::string run(std::uint32_t count, std::int32_t dataOffset)
{
    return fullBox("trun", Fields().u32(count).u32(static_cast<std::uint32_t>(dataOffset)), 0, 1);
}

/// A track of one chunk.
std::string chunkTrack(unsigned id, unsigned samples, unsigned delta, unsigned timescale)
{
    TrackBoxes boxes;
    boxes.header = tkhd(id);
    boxes.mediaHeader = mdhd(timescale, 1);
    boxes.description = stsd({box("amf0", Fields().zeros(8))});
    boxes.times = tableBox("stts", 1, {samples, delta});
    boxes.chunks = tableBox("stsc", 1, {1, samples, 1});
    return boxes.bytes();
}

TrackBoxes emptyTables()
{
    TrackBoxes boxes;
    boxes.times = tableBox("stts", 0, {});
    boxes.chunks = tableBox("stsc", 0, {});
    boxes.sizes = stsz(0, 0);
    boxes.offsets = tableBox("stco", 0, {});
    return boxes;
}

}  // namespace

TEST(Mp4Time, RoundsToTheNearestMillisecond)
{
    struct Case
    {
        unsigned long long time;
        unsigned timescale;
        unsigned millis;
    };
    const Case cases[] = {
        {0, 44100, 0},
        {1024, 44100, 23},
        {1, 2000, 0},  // ties go to the even neighbour
        {3, 2000, 2},
        {5, 2000, 2},
        {7, 2000, 4},
        {1, 3, 333},
        {2, 3, 667},
        {5, 0, 0},
        {4294967295, 1000, 4294967295},
        {4294967296, 1000, 4294967295},
        {std::numeric_limits<unsigned long long>::max(), 1, 4294967295},
        {std::numeric_limits<unsigned long long>::max(), 4294967295, 4294967295},
    };
    for (const Case& c : cases)
        EXPECT_EQ(toMillis(c.time, c.timescale), c.millis) << c.time << '/' << c.timescale;

    struct OffsetCase
    {
        unsigned long long time;
        int offset;
        unsigned timescale;
        int millis;
    };
    const OffsetCase offsets[] = {
        {0, 40, 1000, 40},
        {1, 1, 3, 334},  // 667 - 333
        {0, -40, 1000, -40},
        {1000, -1001, 1000, -1001},
        {0, std::numeric_limits<int>::min(), 1, std::numeric_limits<int>::min()},
        {0, std::numeric_limits<int>::max(), 1, std::numeric_limits<int>::max()},
        {4294967295, 1, 1000, 0},
        {1ULL << 63, -1, 1, 0},
        {5, 5, 0, 0},
    };
    for (const OffsetCase& c : offsets)
        EXPECT_EQ(offsetMillis(c.time, c.offset, c.timescale), c.millis) << c.time << ' ' << c.offset;
}

TEST(TrackCursor, WalksTheTables)
{
    const auto mp3 = [](const std::function<void(TrackBoxes&)>& change) {
        TrackBoxes boxes;
        boxes.sizes = stsz(0, 4, {10, 20, 30, 40});
        boxes.chunks = tableBox("stsc", 1, {1, 4, 1});
        boxes.times = tableBox("stts", 1, {4, 5});
        change(boxes);
        return boxes;
    };
    struct Case
    {
        const char* name;
        TrackBoxes boxes;
        const char* steps;
    };
    const Case cases[] = {
        {"one entry holds for all samples, whatever its count", mp3([](TrackBoxes& b) {
             b.times = tableBox("stts", 1, {1, 5});
         }),
         "100+10@0 110+20@5 130+30@10 160+40@15 e@15 "},
        {"an entry that counts no sample still serves one", mp3([](TrackBoxes& b) {
             b.times = tableBox("stts", 4, {2, 5, 0, 100, 0, 1000, 9, 1});
         }),
         "100+10@0 110+20@5 130+30@10 160+40@110 e@110 "},
        {"a negative delta counts as 0", mp3([](TrackBoxes& b) {
             b.times = tableBox("stts", 2, {2, 0xFFFFFFFF, 2, 5});
         }),
         "100+10@0 110+20@0 130+30@0 160+40@5 e@5 "},
        {"too few times", mp3([](TrackBoxes& b) {
             b.times = tableBox("stts", 2, {1, 5, 1, 5});
         }),
         "100+10@0 110+20@5 130+30@10 error 28"},
        {"too few composition offsets", mp3([](TrackBoxes& b) {
             b.more = tableBox("ctts", 1, {2, 1});
         }),
         "100+10@0 110+20@5 130+30@10 error 28"},
        {"too few sizes", mp3([](TrackBoxes& b) {
             b.sizes = stsz(0, 2, {10, 20});
         }),
         "100+10@0 110+20@5 error 28"},
        {"chunks of one, two and one samples", mp3([](TrackBoxes& b) {
             b.chunks = tableBox("stsc", 3, {1, 1, 1, 2, 2, 1, 3, 1, 1});
             b.offsets = tableBox("stco", 3, {500, 400, 300});
         }),
         "500+10@0 400+20@5 420+30@10 300+40@15 e@15 "},
        {"the last of several entries for a chunk counts", mp3([](TrackBoxes& b) {
             b.chunks = tableBox("stsc", 3, {1, 1, 1, 2, 9, 1, 2, 3, 1});
             b.offsets = tableBox("stco", 2, {500, 400});
         }),
         "500+10@0 400+20@5 420+30@10 450+40@15 e@15 "},
        {"a chunk of no samples gives one", mp3([](TrackBoxes& b) {
             b.chunks = tableBox("stsc", 1, {1, 0, 1});
             b.offsets = tableBox("stco", 2, {500, 400});
         }),
         "500+10@0 400+20@5 e@5 "},
        {"no entry for the chunks", mp3([](TrackBoxes& b) { b.chunks = tableBox("stsc", 0, {}); }),
         "error 28"},
        {"a description that is not there", mp3([](TrackBoxes& b) {
             b.chunks = tableBox("stsc", 1, {1, 4, 2});
         }),
         "error 28"},
        {"description 0", mp3([](TrackBoxes& b) {
             b.chunks = tableBox("stsc", 1, {1, 4, 0});
         }),
         "error 28"},
        {"another description from chunk 2 on", mp3([](TrackBoxes& b) {
             b.description = stsd({audioEntry(".mp3"), aacEntry()});
             b.chunks = tableBox("stsc", 2, {1, 2, 1, 2, 2, 2});
             b.offsets = tableBox("stco", 2, {500, 400});
         }),
         "500+10@0 510+20@5 e@5 h@10 400+30@10 430+40@15 e@15 "},
        {"a late start", mp3([](TrackBoxes& b) {
             b.inTrack = box("edts", elst({{3, -1}, {20, 0}}));
         }),
         "100+10@3 110+20@8 130+30@13 160+40@18 e@18 "},
        {"a gap after 8 units", mp3([](TrackBoxes& b) {
             b.description = stsd({aacEntry()});
             b.inTrack = box("edts", elst({{8, 0}, {100, -1}, {12, 8}}));
         }),
         "h@0 100+10@0 110+20@5 e@5 h@108 130+30@108 160+40@113 e@113 "},
        {"a gap that nothing follows", mp3([](TrackBoxes& b) {
             b.inTrack = box("edts", elst({{20, 0}, {100, -1}, {12, 20}}));
         }),
         "100+10@0 110+20@5 130+30@10 160+40@15 error 28"},
        {"a track without chunks", emptyTables(), ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(steps(c.boxes), c.steps) << c.name;
}

TEST(TrackCursor, WalksFragments)
{
    const std::string tfhd = fullBox("tfhd", Fields().u32(1));
    const std::string based = fullBox("tfhd", Fields().u32(1).u64(1000), 0, 1);
    const std::string defaults = fullBox("tfhd", Fields().u32(1).u64(1000).u32(2).u32(9), 0, 0x19);
    const std::string otherDescription = fullBox("tfhd", Fields().u32(1).u64(1000).u32(2), 0, 3);
    const std::string badDescription = fullBox("tfhd", Fields().u32(1).u64(1000).u32(3), 0, 3);
    TrackBoxes twoDescriptions = emptyTables();
    twoDescriptions.description = stsd({audioEntry(".mp3"), aacEntry()});
    struct Case
    {
        const char* name;
        TrackBoxes boxes;
        std::vector<std::string> fragments;
        const char* steps;
    };
    const Case cases[] = {
        {"behind the tables", TrackBoxes(), {based + run(2, 5)}, "100+10@0 1005+3@1000 1008+3@1007 e@1007 "},
        {"two runs and two fragments",
         emptyTables(),
         {based + run(2, 5) + run(1, -4), based + run(1, 0)},
         "1005+3@0 1008+3@7 996+3@14 1000+3@21 e@21 "},
        {"empty runs and fragments",
         emptyTables(),
         {based + run(0, 5), based, based + run(0, 1) + run(1, 2) + run(0, 3), based + run(0, 9)},
         "1002+3@0 e@0 "},
        {"defaults of the header", emptyTables(), {defaults + run(2, 0)}, "1000+9@0 1009+9@2 e@2 "},
        {"another description",
         twoDescriptions,
         {based + run(1, 0), otherDescription + run(0, 0) + run(1, 0)},
         "1000+3@0 e@0 h@7 1000+3@7 e@7 "},
        {"a description that is not there",
         twoDescriptions,
         {based + run(1, 0), badDescription + run(1, 0)},
         "1000+3@0 error 28"},
        {"nothing at all", emptyTables(), {}, ""},
    };
    for (const Case& c : cases) {
        const auto parsed = parseFile(fragmentedFile(c.boxes, c.fragments));
        ASSERT_EQ(parsed->error, 0) << c.name;
        EXPECT_EQ(steps(*parsed->track()), c.steps) << c.name;
        const bool whole = std::string_view(c.steps).find("error") == std::string_view::npos;
        for (const TrackFragment& fragment : parsed->track()->fragments)
            EXPECT_FALSE(whole && fragment.isLoaded()) << c.name;
    }

    // Without a base data offset, offsets count from the 'moof'.
    const auto parsed = parseFile(fragmentedFile(emptyTables(), {tfhd + run(1, 20)}));
    const auto moof = static_cast<unsigned long long>(parsed->track()->fragments[0].moofStart());
    EXPECT_GT(moof, 100U);
    EXPECT_EQ(steps(*parsed->track()), std::to_string(moof + 20) + "+3@0 e@0 ");
}

TEST(TrackCursor, TellsFlagsAndSyncSamples)
{
    TrackBoxes boxes;
    boxes.description = stsd({videoEntry("H263")});
    boxes.sizes = stsz(10, 3);
    boxes.chunks = tableBox("stsc", 1, {1, 3, 1});
    boxes.more = tableBox("stss", 2, {1, 3}) + fullBox("sdtp", Fields().u8(0x20).u8(0x18).u8(0));
    const std::string flagged =
        fullBox("trun", Fields().u32(2).u32(0).u32(0x00010000).u32(0x01000000), 0, 0x401);
    const std::string defaulted = fullBox("tfhd", Fields().u32(1).u32(0x02810000), 0, 0x20) + run(1, 0);
    const auto parsed =
        parseFile(fragmentedFile(boxes, {fullBox("tfhd", Fields().u32(1)) + flagged, defaulted}));
    ASSERT_EQ(parsed->error, 0);
    const std::pair<unsigned, bool> expected[] = {{0x02000000, true}, {0x01800000, false},
                                                  {0, true},          {0x00010000, false},
                                                  {0x01000000, true}, {0x02810000, false}};
    TrackCursor cursor(*parsed->track());
    for (const auto& [flags, sync] : expected) {
        EXPECT_EQ(cursor.getSampleFlags(), flags);
        EXPECT_EQ(cursor.atSyncSample(), sync);
        cursor.advance();
    }
    EXPECT_TRUE(cursor.atEndOfTrack());
    EXPECT_THROW(cursor.advance(), streams::StreamParseError);
}

TEST(TrackCursor, CountsTheTablesBehindIt)
{
    TrackBoxes boxes;
    boxes.sizes = stsz(0, 4, {1, 1, 1, 1});
    boxes.chunks = tableBox("stsc", 3, {1, 1, 1, 2, 2, 1, 3, 1, 1});
    boxes.offsets = tableBox("stco", 3, {500, 400, 300});
    boxes.times = tableBox("stts", 2, {3, 1, 1, 1});
    boxes.more = tableBox("ctts", 4, {1, 1, 1, 1, 1, 1, 1, 1}) + tableBox("stss", 1, {1}) +
                 fullBox("sdtp", "\1\1\1\1");
    const auto parsed = parseFile(trackFile(boxes));
    TrackCursor cursor(*parsed->track());
    EXPECT_EQ(cursor.getTableSizeRead(), 0U);
    for (int i = 0; i < 3; ++i)
        cursor.advance();
    EXPECT_EQ(cursor.getTableSizeRead(), 2 * 12U + 2 * 8 + 1 * 8 + 3 * 8 + 1 * 4 + 3 * 4 + 3);
}

TEST(TrackCursor, StopsAtItsLimit)
{
    TrackBoxes boxes;
    boxes.sizes = stsz(10, 4);
    boxes.chunks = tableBox("stsc", 1, {1, 4, 1});
    const auto parsed = parseFile(trackFile(boxes));
    TrackCursor cursor(*parsed->track());
    TrackPosition end = cursor.position();
    end.stepCount = 2;
    cursor.setLimit(end);
    EXPECT_FALSE(cursor.atEndOfSegment());
    cursor.advance();
    cursor.advance();
    EXPECT_TRUE(cursor.atEndOfSegment());
    EXPECT_FALSE(cursor.atEndOfTrack());
    EXPECT_THROW(cursor.advance(), streams::StreamParseError);

    AssertRecorder asserts;
    end.stepCount = 1;
    cursor.setLimit(end);
    EXPECT_EQ(asserts.take(),
              std::vector<std::string>{"Assert failed in modules/streams/mp4/mp4Data line 486"});
}

TEST(Mp4Cursor, TakesTheEarliestTrackAndAmongEqualsTheFirst)
{
    // Times: track 1 at 0 10 20, track 2 at 0 5 10, track 3 (another timescale) at 0 10.
    const auto parsed = parseFile(
        movieFile(chunkTrack(5, 3, 10, 1000) + chunkTrack(4, 3, 5, 1000) + chunkTrack(9, 2, 1, 100)));
    ASSERT_EQ(parsed->error, 0);
    Mp4Cursor cursor(parsed->mp4);
    std::ostringstream order;
    CursorState middle;
    for (unsigned n = 0; cursor.getActiveTrack(); cursor.advance(), ++n) {
        if (n == 4)
            middle = cursor.save();
        order << cursor.getActiveTrack()->track().trackId << '@' << cursor.getTime() << ' ';
        cursor.countMessage();
    }
    EXPECT_EQ(order.str(), "5@0 4@0 9@0 4@5 5@10 4@10 9@10 5@20 ");
    EXPECT_EQ(cursor.getTime(), 30U);  // where the longest track ends
    EXPECT_EQ(cursor.getIndex(), 8);
    EXPECT_THROW(cursor.advance(), streams::StreamParseError);

    Mp4Cursor again(parsed->mp4, middle);
    EXPECT_EQ(again.getIndex(), 4);
    EXPECT_EQ(again.getActiveTrack()->track().trackId, 5U);
    CursorState end = cursor.save();
    end.tracks[0].stepCount = 1;
    again.setLimit(end);
    EXPECT_EQ(again.getActiveTrack()->track().trackId, 4U);
}

TEST(Mp4Cursor, EndsStretchesWhereAnotherTrackGoesFirst)
{
    const std::string dense = chunkTrack(1, 16, 2, 1000);
    const std::string sparse = chunkTrack(2, 3, 10, 1000);
    for (const std::string& tracks : {dense + sparse, sparse + dense, dense + dense + sparse}) {
        const auto parsed = parseFile(movieFile(tracks));
        Mp4Cursor stretched(parsed->mp4);
        Mp4Cursor single(parsed->mp4);
        expectStretchesAreSteps(stretched, single, [](Mp4Cursor& all) { return all.getActiveTrack(); });
        EXPECT_EQ(single.getActiveTrack(), nullptr);
        EXPECT_EQ(stretched.getTime(), single.getTime());
    }
}

/// Moves some numbers of a position anywhere, and the rest nowhere.
TrackPosition movedAnywhere(TrackPosition position, std::mt19937_64& random)
{
    constexpr unsigned TrackPosition::*kFields[] = {
        &TrackPosition::stepCount,         &TrackPosition::descriptionIndex,
        &TrackPosition::timeToSampleIndex, &TrackPosition::timeToSampleCount,
        &TrackPosition::compositionIndex,  &TrackPosition::compositionCount,
        &TrackPosition::syncIndex,         &TrackPosition::sampleToChunkIndex,
        &TrackPosition::samplesPerChunk,   &TrackPosition::chunkIndex,
        &TrackPosition::sampleInChunk,     &TrackPosition::sampleNumber,
        &TrackPosition::fragmentIndex,     &TrackPosition::runIndex,
        &TrackPosition::sampleInRun};
    const auto anything = [&] { return random() >> random() % 64; };
    for (unsigned TrackPosition::*field : kFields)
        if (random() % 3 == 0)
            position.*field = static_cast<unsigned>(anything());
    for (unsigned long long TrackPosition::*field :
         {&TrackPosition::decodeTime, &TrackPosition::mediaTime, &TrackPosition::fileOffset})
        if (random() % 2 == 0)
            position.*field = anything();
    position.editIndex = static_cast<int>(random() % 300) - 1;
    position.sampleType = static_cast<SampleType>(random() % kSampleTypeCount);
    for (bool TrackPosition::*field :
         {&TrackPosition::typeValid, &TrackPosition::encrypted, &TrackPosition::inMovieBox,
          &TrackPosition::headerPending, &TrackPosition::enderPending})
        position.*field = random() % 2 == 0;
    return position;
}

TEST(Boundaries, GiveBackEveryState)
{
    std::mt19937_64 random(1);
    std::vector<CursorState> states{{-2, 0, 0, std::vector<TrackPosition>(5)}};
    while (states.size() < 100) {
        CursorState next = states.back();
        next.index += static_cast<long long>(random() % 3);  // some segments are empty
        next.time += static_cast<unsigned>(random() % 3) * 40'000'000U;
        next.tablePage += static_cast<unsigned>(random() % 2);
        for (TrackPosition& position : next.tracks)
            if (random() % 2 == 0)
                position = movedAnywhere(position, random);
        states.push_back(next);
    }
    BoundaryList list;
    for (std::size_t count = 1; count <= states.size(); ++count) {
        list.append(states[count - 1]);
        ASSERT_EQ(list.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            const CursorState state = list.state(i);
            EXPECT_EQ(list.point(i).index, states[i].index);
            EXPECT_EQ(list.point(i).time, states[i].time);
            EXPECT_EQ(state.index, states[i].index);
            EXPECT_EQ(state.time, states[i].time);
            EXPECT_EQ(state.tablePage, states[i].tablePage);
            ASSERT_EQ(state.tracks, states[i].tracks) << i << " of " << count;
            for (const long long off : {-1, 0, 1}) {
                const auto place =
                    std::find_if(states.begin(), states.begin() + static_cast<std::ptrdiff_t>(count),
                                 [&](const CursorState& s) { return s.index >= states[i].index + off; });
                EXPECT_EQ(list.lowerBound(&BoundaryPoint::index, states[i].index + off),
                          static_cast<std::size_t>(place - states.begin()));
            }
        }
    }
    list.forgetTablePages();
    EXPECT_EQ(list.state(99).tablePage, 0U);
}

TEST(Boundaries, TakeNothingForTracksThatStandStill)
{
    BoundaryList list;
    CursorState state{0, 0, 0, std::vector<TrackPosition>(64)};
    std::size_t charged = 0;
    for (unsigned i = 0; i < 10'000; ++i) {
        charged += list.append(state);
        state.time += 40;
        ++state.index;
        TrackPosition& moving = state.tracks[i / 1000];
        moving.decodeTime += 40;
        moving.mediaTime += 40;
        ++moving.stepCount;
        ++moving.sampleNumber;
        moving.fileOffset += 300'000;
    }
    EXPECT_LT(list.reportMemorySize(), 30 * 10'000U);
    EXPECT_GE(charged + 64 * sizeof(TrackPosition) + 4096, list.reportMemorySize());
}

}  // namespace krx::test
