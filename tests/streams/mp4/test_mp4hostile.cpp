// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

// Files made to cost more than their size. The limits on memory are checked here and, for the whole program,
// in tests/faults/test_mp4memory.cpp; those on time by the suite's time-out.

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
    // Each table claims all bytes after it.
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
    EXPECT_LT(parsed->mp4.reportMemorySize(), (10U << 20) + 6 * parsed->io.bytes().size());
}

TEST(Mp4Hostile, EditListsThatReadEachOther)
{
    // Read as entries, the boxes alternate between media and gaps, so every list extends to the end of the
    // file.
    const std::string list = box("elst", Fields().u8(0).u24(1).u32(20000).u32(0xFFFFFFFFU).u32(1));
    const auto parsed = parseFile(movieFile(box("trak", tkhd(1) + repeated(list, 10000))));
    EXPECT_EQ(parsed->error, 0);
    EXPECT_EQ(parsed->warnings.size(), 10001U);
}

TEST(Mp4Hostile, DamagedMovies)
{
    // Cut at any place, or with any byte changed, a file has an error of the catalogue or none. A file cut
    // before the end of the movie box has one.
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
