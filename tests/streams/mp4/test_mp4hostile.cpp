// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

// Files made to cost more than they are. The limits on memory are checked; those on time by the suite's
// time-out.

namespace krx::test {
namespace {

std::string repeated(const std::string& bytes, int n)
{
    std::string all;
    for (int i = 0; i < n; ++i)
        all += bytes;
    return all;
}

TEST(Mp4Hostile, TablesThatShareTheirBytes)
{
    // Each table claims all that stands behind it.
    const std::string rest(400000, '\0');
    std::string tracks;
    for (std::uint32_t id = 1; id <= 64; ++id) {
        std::string tables;
        for (const char* type : {"stts", "ctts", "stco", "stss"})
            tables += tableBox(type, static_cast<std::uint32_t>(rest.size() / 8), {});
        tracks += box("trak", tkhd(id) + tables);
    }
    const auto parsed = parseFile(movieFile(tracks, box("mdat", rest)));
    EXPECT_EQ(parsed->error, 28);
    EXPECT_LT(parsed->mp4.reportMemorySize(), 5 * parsed->io.bytes().size());
}

TEST(Mp4Hostile, RunsThatShareTheirBytes)
{
    const std::string rest(400000, '\0');
    const std::string run = fullBox("trun", Fields().u32(rest.size() / 16), 0, 0xF00);
    const std::string traf = box("traf", fullBox("tfhd", Fields().u32(1)) + repeated(run, 64));
    const std::string moof = box("moof", fullBox("mfhd", Fields().u32(1)) + traf);
    const auto parsed = parseFile(movieFile(TrackBoxes().bytes() + box("mvex"), moof + box("mdat", rest)));
    EXPECT_EQ(parsed->error, 28);
    EXPECT_LT(parsed->mp4.reportMemorySize(), 5 * parsed->io.bytes().size());
}

TEST(Mp4Hostile, EditListsThatReadEachOther)
{
    // Read as entries, the boxes are media and gaps by turns, so that every list goes on to the end of the
    // file.
    const std::string list = box("elst", Fields().u8(0).u24(1).u32(20000).u32(0xFFFFFFFFU).u32(1));
    const auto parsed = parseFile(movieFile(box("trak", tkhd(1) + repeated(list, 10000))));
    EXPECT_EQ(parsed->error, 0);
    EXPECT_EQ(parsed->warnings.size(), 10001U);
}

TEST(Mp4Hostile, ManySmallThings)
{
    const std::string extends = TrackBoxes().bytes() + box("mvex");
    const std::string mfhd = fullBox("mfhd", Fields().u32(1));
    const std::string tfhd = fullBox("tfhd", Fields().u32(1));
    const std::string run = fullBox("trun", Fields().u32(0xFFFFFFFFU));
    struct
    {
        const char* name;
        std::string bytes;
    } const cases[] = {
        {"empty boxes", movieFile({}, repeated(box("free"), 100000))},
        {"free boxes of the movie", movieFile(repeated(box("free"), 100000))},
        {"unknown boxes", movieFile(repeated(box("abcd"), 50000))},
        {"runs without fields",
         movieFile(extends, box("moof", mfhd + box("traf", tfhd + repeated(run, 50000))))},
        {"fragments", movieFile(extends, box("moof", mfhd + repeated(box("traf", tfhd + run), 30000)))},
        {"incomplete tracks", movieFile(repeated(box("trak"), 50000))},
        {"entries", movieFile(box("trak", tkhd(1) + stsd(std::vector<std::string>(50000, box("text")))))},
        {"tags", movieFile(box("ilst", box("abcd", repeated(box("data", std::string(8, 0)), 50000))))},
        {"chapters", movieFile(fullBox("chpl", repeated(std::string(9, '\0'), 50000) + '\0'))},
    };
    for (const auto& c : cases) {
        mp4::Mp4Config config;
        MemoryFileIo io(c.bytes);
        mp4::Mp4FileIO file("movie.mp4", &io, 0, config);
        mp4::MP4File mp4(config, nullptr);
        mp4.setIO(&file);
        file.Open();
        EXPECT_NO_THROW(mp4.parse(0)) << c.name;
        EXPECT_LT(mp4.reportMemorySize(), 40 * c.bytes.size() + 100000) << c.name;
    }
}

TEST(Mp4Hostile, DamagedMovies)
{
    // Cut at every place, and with every byte changed: a finding of the catalogue, or none. A file that is
    // cut before the movie box is complete has an error.
    for (Movie movie : {soundMovie(), fragmentedMovie()}) {
        movie.tracks[0].samples.resize(12);
        movie.tracks[1].samples.resize(12);
        const std::string whole = buildMovie(movie).bytes;
        const std::size_t movieEnd = whole.find(movie.samplesPerFragment ? "moof" : "mdat") - 4;
        for (std::size_t i = 0; i < whole.find("mdat"); ++i) {
            const auto cut = parseFile(whole.substr(0, i));
            EXPECT_NE(streams::catalogueText(static_cast<streams::ParseStatus>(cut->error)), nullptr);
            EXPECT_TRUE(cut->error != 0 || i >= movieEnd) << i;
            for (const int change : {0x01, 0x80, 0xFF}) {
                std::string damaged = whole;
                damaged[i] = static_cast<char>(damaged[i] ^ change);
                const auto parsed = parseFile(damaged);
                EXPECT_NE(streams::catalogueText(static_cast<streams::ParseStatus>(parsed->error)), nullptr);
                for (mp4::TrackInfo* track : parsed->mp4.getTrackVec())
                    EXPECT_GT(track->reportMemorySize(), 0U);
            }
        }
    }
}

}  // namespace
}  // namespace krx::test
