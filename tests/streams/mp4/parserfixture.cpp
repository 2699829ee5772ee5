// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

namespace krx::test {

void expectFaults(const std::vector<FaultCase>& cases)
{
    for (const FaultCase& c : cases) {
        const auto parsed = parseFile(c.bytes, c.config);
        EXPECT_EQ(parsed->error, c.error) << c.name;
        EXPECT_EQ(parsed->warnings, c.warnings) << c.name;
        for (const streams::Finding& finding : parsed->sink.findings)
            EXPECT_GE(finding.place.offset, 0) << c.name << ": " << finding.number;
        // A box that is missing in the whole file is nowhere.
        const bool isSomewhere = c.error != 0 && c.error != streams::kNoMovieBox;
        EXPECT_EQ(parsed->errorPlace.offset >= 0, isSomewhere) << c.name;
    }
}

std::string TrackBoxes::bytes() const
{
    const std::string table = box("stbl", description + times + chunks + sizes + offsets + more);
    return box("trak", header + inTrack + box("mdia", mediaHeader + box("minf", table)));
}

std::string movieFile(const std::string& inMovie, const std::string& behind)
{
    return ftyp() + box("moov", mvhd(1000, 2000) + inMovie) + box("mdat", std::string(100, 'x')) + behind;
}

std::string trackFile(const TrackBoxes& track)
{
    return movieFile(track.bytes());
}

}  // namespace krx::test
