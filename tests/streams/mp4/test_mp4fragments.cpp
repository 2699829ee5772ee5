// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

namespace krx::test {
namespace {

std::string trex(std::uint32_t id)
{
    return fullBox("trex", Fields().u32(id).u32(1).u32(2).u32(3).u32(4));
}

std::string mfhd(std::uint32_t number)
{
    return fullBox("mfhd", Fields().u32(number));
}

std::string tfhd(std::uint32_t id, unsigned flags = 0, const Fields& fields = {})
{
    return fullBox("tfhd", Fields().u32(id).raw(fields), 0, flags);
}

std::string trun(std::uint32_t count, unsigned flags = 0, const Fields& fields = {})
{
    return fullBox("trun", Fields().u32(count).raw(fields), 0, flags);
}

/// A movie with one track of an audio entry followed by fragments.
std::string fragmentFile(const std::string& behind, const std::string& inExtends = trex(1))
{
    return movieFile(TrackBoxes().bytes() + box("mvex", inExtends), behind);
}

std::string withFragment(const std::string& inFragment)
{
    return fragmentFile(box("moof", mfhd(1) + box("traf", inFragment)));
}

TEST(Mp4Fragments, Faults)
{
    const std::string traf = box("traf", tfhd(1) + trun(1));
    const auto moof = [&](std::uint32_t number) { return box("moof", mfhd(number) + traf); };
    mp4::Mp4Config one;
    one.MaxTracks = 1;
    expectFaults({
        {"three", fragmentFile(moof(1) + moof(2) + moof(3))},
        {"unannounced", movieFile(TrackBoxes().bytes(), moof(1)), 29},
        {"before the movie", box("moof") + fragmentFile(""), 29},
        {"first is 2", fragmentFile(moof(2)), 30},
        {"gap", fragmentFile(moof(1) + moof(3)), 30},
        {"repeated", fragmentFile(moof(1) + moof(1)), 30},
        {"defaults of track 0", fragmentFile("", trex(0)), 0, {121}},
        {"defaults of an unknown track, all records in use", fragmentFile("", trex(9)), 0, {121}, one},
        {"fragment of track 0", withFragment(tfhd(0)), 31},
        {"fragment of an unknown track, all records in use", withFragment(tfhd(9)), 31, {}, one},
        {"no header", withFragment(""), 31},
        {"run first", withFragment(trun(1) + tfhd(1)), 31},
        {"bytes after the header", withFragment(tfhd(1) + "1234567"), 0, {112}},
        {"bytes instead of a header", withFragment("1234567"), 31, {112}},
        {"other boxes", withFragment(tfhd(1) + box("tfdt", "x") + box("sdtp") + trun(1) + box("abcd"))},
        {"box beyond the fragment", withFragment(tfhd(1) + sizedBox(100, "trun")), 18},
        {"header cut off by the end", fragmentFile(box("moof", mfhd(1) + box("traf", box("tfhd")))), 117},
        {"run that the file cannot hold", withFragment(tfhd(1) + trun(0xFFFFFFFFU, 0x100)), 28},
        {"run without fields", withFragment(tfhd(1) + trun(0xFFFFFFFFU))},
    });
}

TEST(Mp4Fragments, Runs)
{
    Fields all;
    Fields longRun;
    for (std::uint32_t i = 0; i < 3; ++i)
        all.u32(100 + i).u32(200 + i).u32(0x12340000U * i + 0xFFFF).u32(0xFFFFFFFFU - i);
    for (std::uint32_t i = 0; i < 10000; ++i)
        longRun.u32(i).u32(i * 3);
    const auto parsed =
        parseFile(withFragment(tfhd(1) + trun(3, 0xF00, all) +
                               trun(1, 0x605, Fields().u32(0xFFFFFFF8U).u32(7).u32(50).u32(0x10000)) +
                               trun(0, 0xF01, Fields().u32(9)) + trun(10000, 0xA00, longRun)));
    ASSERT_EQ(parsed->error, 0);
    mp4::TrackFragment& fragment = parsed->track()->fragments.at(0);
    ASSERT_EQ(fragment.getRunCount(), 4U);
    using Run = mp4::TrackFragmentRun;
    const Run& full = fragment.getRun(0);
    EXPECT_EQ(full.column(Run::kDuration)[2], 102U);
    EXPECT_EQ(full.column(Run::kSize)[2], 202U);
    EXPECT_EQ(full.column(Run::kFlags)[1], 0x1234FFFFU);
    EXPECT_EQ(full.column(Run::kCompositionOffset)[2], 0xFFFFFFFDU);
    const Run& some = fragment.getRun(1);
    EXPECT_EQ(some.dataOffset, -8);
    EXPECT_EQ(some.column(Run::kSize)[0], 50U);
    EXPECT_EQ(some.column(Run::kFlags)[0], 0x10000U);
    EXPECT_FALSE(some.column(Run::kDuration) || some.column(Run::kCompositionOffset));
    const Run& none = fragment.getRun(2);
    EXPECT_EQ(none.dataOffset, 9);
    for (const auto field : {Run::kDuration, Run::kSize, Run::kFlags, Run::kCompositionOffset})
        EXPECT_FALSE(none.column(field));
    EXPECT_EQ(fragment.getRun(3).column(Run::kSize)[9999], 9999U);
    EXPECT_EQ(fragment.getRun(3).column(Run::kCompositionOffset)[9999], 29997U);
    EXPECT_THROW(fragment.getRun(4), streams::StreamParseError);

    EXPECT_GT(fragment.reportMemorySize(), 80000U);
    fragment.unload();
    EXPECT_EQ(fragment.reportMemorySize(), sizeof(fragment));
    EXPECT_EQ(fragment.getRunCount(), 4U);
}

TEST(Mp4Fragments, LoadingRepeatsNoWarning)
{
    // The parse has already reported the warning.
    for (const std::string& behind : {std::string("1234567"), sizedBox(100, "mdat")}) {
        const auto odd = parseFile(withFragment(tfhd(1) + trun(1) + behind));
        ASSERT_EQ(odd->warnings.size(), 1U);
        odd->track()->fragments.at(0).load();
        EXPECT_EQ(odd->warnings.size(), 1U);
    }
}

}  // namespace
}  // namespace krx::test
