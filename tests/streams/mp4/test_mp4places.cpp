// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"
#include "tests/support/mp4samples.h"
#include "util/bigendian.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

namespace krx::test {
namespace {

std::string lineOf(int status, const streams::Place& place)
{
    std::ostringstream line;
    line << status << " at " << place.offset << " in '" << place.path << "' of " << place.track;
    return line.str();
}

/// One line per finding of the parse.
std::vector<std::string> placesOf(const ParsedFile& parsed)
{
    std::vector<std::string> lines;
    for (const streams::Finding& warning : parsed.sink.findings)
        lines.push_back(lineOf(-warning.number, warning.place));
    if (parsed.error != 0)
        lines.push_back(lineOf(parsed.error, parsed.errorPlace));
    return lines;
}

/// The innermost box of the path is at the offset or, for a fault in its content, around it; and the track is
/// the one in the path. In the samples the n-th track has the ID n.
void expectConsistent(const std::string& bytes, int status, const streams::Place& place)
{
    ASSERT_GE(place.offset, 0);
    if (place.path.empty())
        return;
    const std::string innermost = place.path.substr(place.path.rfind('/') + 1);
    const auto offset = static_cast<std::size_t>(place.offset);
    const std::set<int> inContent = {streams::kInvalidSampleSize, streams::kInvalidChapterTime,
                                     streams::kUnsupportedEditList, streams::kInvalidSampleDuration};
    if (status == streams::kExtraneousBytes) {
        EXPECT_EQ(bytes.substr(offset, 4), std::string(4, '\0'));
    } else if (inContent.count(status) == 0) {
        EXPECT_EQ(bytes.substr(offset + 4, 4), innermost.substr(0, 4));
    } else {
        const std::size_t type = bytes.rfind(innermost.substr(0, 4), offset);
        ASSERT_NE(type, std::string::npos);
        const auto* size = reinterpret_cast<const unsigned char*>(bytes.data()) + type - 4;
        EXPECT_LT(offset, type - 4 + util::loadBig32(size));
    }
    const bool inTrack = place.path.starts_with("moov/trak[") && status != streams::kTooManyTracks;
    EXPECT_EQ(place.track, inTrack ? std::stoul(place.path.substr(10)) : 0U);
}

TEST(Mp4Places, EveryFindingOfTheSamplesHasOne)
{
    std::size_t findings = 0;
    for (const Mp4Sample& sample : mp4Samples()) {
        SCOPED_TRACE(sample.name);
        const auto parsed = parseFile(sample.bytes);
        findings += parsed->warnings.size();
        for (const streams::Finding& warning : parsed->sink.findings)
            expectConsistent(sample.bytes, -warning.number, warning.place);
        // A missing box has no place.
        if (parsed->error == streams::kNoMovieBox)
            EXPECT_EQ(parsed->errorPlace.offset, -1);
        else if (parsed->error != 0)
            expectConsistent(sample.bytes, parsed->error, parsed->errorPlace);
    }
    EXPECT_GT(findings, 80U);
}

TEST(Mp4Places, Table)
{
    TrackBoxes second;
    second.header = tkhd(7);
    second.description = stsd({videoEntry("VP62"), audioEntry("alac")});
    TrackBoxes oldDescriptor;
    oldDescriptor.description = stsd({audioEntry("mp4a", fullBox("esds", "", 1))});
    TrackBoxes durations;
    durations.times = tableBox("stts", 3, {1, 5, 1, 5, 1, 0x80000000U});
    TrackBoxes sizes;
    sizes.sizes = stsz(0, 2, {10, 1U << 30});
    TrackBoxes constantSize;
    constantSize.sizes = stsz(1U << 30, 2);
    TrackBoxes edits;
    edits.inTrack = box("edts", elst({{0, -1}, {5, 0}, {5, -1}, {5, 0, 0}}));
    const std::string extends = box("mvex", fullBox("trex", Fields().u32(1).zeros(16)));
    const std::string moof =
        box("moof", fullBox("mfhd", Fields().u32(1)) + box("traf", fullBox("tfhd", Fields().u32(1))));
    const std::string movie = trackFile({});
    const struct
    {
        const char* name;
        std::string bytes;
        std::vector<std::string> lines;
    } cases[] = {
        {"second entry of the second track",
         movieFile(TrackBoxes().bytes() + second.bytes()),
         {"107 at 698 in 'moov/trak[2]/mdia/minf/stbl/stsd/alac[2]' of 7"}},
        {"descriptor",
         trackFile(oldDescriptor),
         {"123 at 348 in 'moov/trak[1]/mdia/minf/stbl/stsd/mp4a[1]/esds' of 1",
          "103 at 140 in 'moov/trak[1]' of 1"}},
        {"unknown name",
         box(std::string_view("\xA9\0ab", 4)) + movie,
         {"102 at 0 in '\xC2\xA9"
          ".ab' of 0"}},
        {"header in a container",
         movieFile(box("udta", sizedBox(7, "free"))),
         {"18 at 148 in 'moov/udta' of 0"}},
        {"header at the top", movie + sizedBox(100, "free"), {"18 at 548 in '' of 0"}},
        {"end of the file in a header", movie + sizedBox(1, "free", "abcd"), {"5 at 556 in '' of 0"}},
        {"no fragment header",
         movieFile(TrackBoxes().bytes() + extends) + moof + box("moof", box("traf") + box("traf")),
         {"31 at 644 in 'moof[2]/traf[1]' of 0"}},
        {"cut fragment header",
         movieFile(TrackBoxes().bytes() + extends) +
             box("moof", box("traf", fullBox("tfhd", Fields().u32(1), 0, 1))),
         {"117 at 604 in 'moof[1]/traf[1]/tfhd' of 1"}},
        {"run without its samples",
         movieFile(TrackBoxes().bytes() + extends) +
             box("moof",
                 box("traf", fullBox("tfhd", Fields().u32(1)) + fullBox("trun", Fields().u32(9), 0, 0x100))),
         {"28 at 620 in 'moof[1]/traf[1]/trun' of 1"}},
        {"third duration", trackFile(durations), {"125 at 380 in 'moov/trak[1]/mdia/minf/stbl/stts' of 1"}},
        {"second size", trackFile(sizes), {"23 at 424 in 'moov/trak[1]/mdia/minf/stbl/stsz' of 1"}},
        {"constant size", trackFile(constantSize), {"23 at 412 in 'moov/trak[1]/mdia/minf/stbl/stsz' of 1"}},
        {"fourth edit", trackFile(edits), {"118 at 300 in 'moov/trak[1]/edts/elst' of 1"}},
        {"second chapter",
         movieFile(box("udta", fullBox("chpl", Fields().u8(2).u64(1).u8(3).raw("one").u64(2001).u8(0)))),
         {"24 at 173 in 'moov/udta/chpl' of 0"}},
        {"item",
         movieFile(box("udta", fullBox("meta", box("ilst", box("\xA9nam", sizedBox(4, "data")))))),
         {"18 at 176 in 'moov/udta/meta/ilst/\xC2\xA9"
          "nam' of 0"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(placesOf(*parseFile(c.bytes)), c.lines) << c.name;
}

}  // namespace
}  // namespace krx::test
