// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boundary.h"
#include "modules/streams/mp4/mp4cursor.h"
#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <sstream>
#include <tuple>
#include <type_traits>
#include <utility>

namespace krx::test {
namespace {

using namespace krx::mp4;

/// Walks by stretches of one or more samples where possible, and in parallel by single steps. Both must be at
/// the same place at the end of every stretch.
void expectStretchesAreSteps(TrackInfo& track)
{
    constexpr WalkLimits kNoLimits{~0ULL, ~0U};
    TrackCursor stretched(track);
    TrackCursor single(track);
    unsigned most = 0;
    try {
        while (!stretched.atEndOfTrack()) {
            most = most % 7 + 1;
            WalkTally tally{0, ~0ULL >> 1, most};
            unsigned walked = stretched.walkStep(kNoLimits, tally) ? 1 : 0;
            if (walked != 0)
                walked += stretched.walkStretch(kNoLimits, tally, ~0ULL);
            else
                stretched.advance();
            EXPECT_EQ(tally.stepsLeft, most - walked);
            unsigned long long bytes = 0;
            for (unsigned left = std::max(walked, 1U); left != 0; --left) {
                const bool isSample = !single.isHeader() && !single.isEnder();
                EXPECT_TRUE(isSample || walked == 0);
                bytes += walked != 0 ? single.getSampleSize() + single.getHeaderBytes() : 0;
                single.advance();
            }
            EXPECT_EQ(tally.bytes, bytes);
            ASSERT_TRUE(stretched.position() == single.position());
            ASSERT_EQ(stretched.getTimeMillis(), single.getTimeMillis());
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
        expectStretchesAreSteps(track);
        for (TrackCursor cursor(track); !cursor.atEndOfTrack(); cursor.advance()) {
            if (cursor.isHeader())
                text << 'h';
            else if (cursor.isEnder())
                text << 'e';
            else {
                const unsigned size = cursor.getSampleSize();
                text << cursor.getFileOffset() << '+' << size;
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

/// 'mvex' and the fragments, each the boxes of a 'traf'.
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
    constexpr auto kMost = std::numeric_limits<unsigned long long>::max();
    const std::tuple<unsigned long long, unsigned, unsigned> cases[] = {
        {1024, 44100, 23},
        {1, 2000, 0},  // ties go to the even neighbour
        {3, 2000, 2},
        {2, 3, 667},
        {5, 0, 0},
        {4294967296, 1000, 4294967295},
        {kMost, 4294967295, 4294967295},
    };
    for (const auto& [time, timescale, millis] : cases)
        EXPECT_EQ(toMillis(time, timescale), millis) << time << '/' << timescale;
    EXPECT_EQ(offsetMillis(1, 1, 3), 334);  // 667 - 333
    EXPECT_EQ(offsetMillis(1000, -1001, 1000), -1001);
    EXPECT_EQ(offsetMillis(0, std::numeric_limits<int>::min(), 1), std::numeric_limits<int>::min());
    EXPECT_EQ(offsetMillis(0, std::numeric_limits<int>::max(), 1), std::numeric_limits<int>::max());
    EXPECT_EQ(offsetMillis(4294967295, 1, 1000), 0);
    EXPECT_EQ(offsetMillis(5, 5, 0), 0);
}

/// Against the milliseconds of the time itself and of the one before it, at times of all sizes.
TEST(Mp4Time, FindsTheFirstTimeOfAMillisecond)
{
    constexpr auto kNever = ~0ULL;
    std::mt19937_64 random(1);
    for (int i = 0; i < 20'000; ++i) {
        const auto timescale = static_cast<unsigned>(random() >> (32 + random() % 32)) + 1;
        const auto millis = static_cast<unsigned>(random() >> (32 + random() % 32));
        const unsigned long long time = firstTimeOf(millis, timescale);
        ASSERT_GE(toMillis(time, timescale), millis) << timescale;
        ASSERT_TRUE(time == 0 || toMillis(time - 1, timescale) < millis) << millis << ' ' << timescale;
    }
    EXPECT_EQ(firstTimeOf(1, 0), kNever);
    EXPECT_EQ(firstTimeOf(1ULL << 32, 1000), kNever);
}

TEST(TrackCursor, WalksTheTables)
{
    using Change = std::pair<std::string TrackBoxes::*, std::string>;
    struct Case
    {
        const char* name;
        std::vector<Change> changes;
        const char* steps;
    };
    const auto times = [](std::uint32_t count, const std::vector<std::uint32_t>& words) {
        return Change{&TrackBoxes::times, tableBox("stts", count, words)};
    };
    const auto chunks = [](std::uint32_t count, const std::vector<std::uint32_t>& words) {
        return Change{&TrackBoxes::chunks, tableBox("stsc", count, words)};
    };
    const Change twoOffsets{&TrackBoxes::offsets, tableBox("stco", 2, {500, 400})};
    const Case cases[] = {
        {"one entry holds for all samples, whatever its count",
         {times(1, {1, 5})},
         "100+10@0 110+20@5 130+30@10 160+40@15 e@15 "},
        {"an entry that counts no sample still serves one",
         {times(4, {2, 5, 0, 100, 0, 1000, 9, 1})},
         "100+10@0 110+20@5 130+30@10 160+40@110 e@110 "},
        {"a negative delta counts as 0",
         {times(2, {2, 0xFFFFFFFF, 2, 5})},
         "100+10@0 110+20@0 130+30@0 160+40@5 e@5 "},
        {"too few times", {times(2, {1, 5, 1, 5})}, "100+10@0 110+20@5 130+30@10 error 28"},
        {"too few composition offsets",
         {{&TrackBoxes::more, tableBox("ctts", 1, {2, 1})}},
         "100+10@0 110+20@5 130+30@10 error 28"},
        {"too few sizes", {{&TrackBoxes::sizes, stsz(0, 2, {10, 20})}}, "100+10@0 110+20@5 error 28"},
        {"the last of several entries for a chunk counts",
         {chunks(3, {1, 1, 1, 2, 9, 1, 2, 3, 1}), twoOffsets},
         "500+10@0 400+20@5 420+30@10 450+40@15 e@15 "},
        {"a chunk of no samples gives one", {chunks(1, {1, 0, 1}), twoOffsets}, "500+10@0 400+20@5 e@5 "},
        {"no entry for the chunks", {chunks(0, {})}, "error 28"},
        {"a description that is not there", {chunks(1, {1, 4, 2})}, "error 28"},
        {"description 0", {chunks(1, {1, 4, 0})}, "error 28"},
        {"a gap that nothing follows",
         {{&TrackBoxes::inTrack, box("edts", elst({{20, 0}, {100, -1}, {12, 20}}))}},
         "100+10@0 110+20@5 130+30@10 160+40@15 error 28"},
    };
    for (const Case& c : cases) {
        TrackBoxes boxes;
        boxes.sizes = stsz(0, 4, {10, 20, 30, 40});
        boxes.chunks = tableBox("stsc", 1, {1, 4, 1});
        boxes.times = tableBox("stts", 1, {4, 5});
        for (const auto& [field, bytes] : c.changes)
            boxes.*field = bytes;
        EXPECT_EQ(steps(boxes), c.steps) << c.name;
    }
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
        {"after the tables", TrackBoxes(), {based + run(2, 5)}, "100+10@0 1005+3@1000 1008+3@1007 e@1007 "},
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

/// Sets some numbers of a position to random values and keeps the rest.
TrackPosition movedAnywhere(TrackPosition position, std::mt19937_64& random)
{
    TrackPosition::visit(position, position, [&](auto& number, auto&) {
        if (random() % 3 == 0)
            number = static_cast<std::decay_t<decltype(number)>>(random() >> random() % 64);
    });
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
        ++moving.stepCount;
        ++moving.sampleNumber;
        moving.fileOffset += 300'000;
    }
    EXPECT_LT(list.reportMemorySize(), 30 * 10'000U);
    EXPECT_GE(charged + 64 * sizeof(TrackPosition) + 4096, list.reportMemorySize());
}

}  // namespace krx::test
