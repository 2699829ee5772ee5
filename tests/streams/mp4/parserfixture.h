// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "tests/support/findingcollector.h"
#include "tests/support/memoryfileio.h"
#include "tests/support/mp4builder.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace krx::test {

/// A file as parsed: the error that ended the parse (0: none), the warnings, and the parser itself.
class ParsedFile
{
public:
    explicit ParsedFile(std::string bytes, const mp4::Mp4Config& config = {}, long long start = 0)
        : io(std::move(bytes)), file("movie.mp4", &io, 0, config), mp4(config, nullptr)
    {
        mp4.setIO(&file);
        mp4.setFindingSink(&sink);
        file.Open();
        try {
            mp4.parse(start);
        } catch (const streams::StreamParseError& e) {
            error = e.getStatus();
            errorPlace = e.place();
        }
        warnings = sink.statuses();
    }

    mp4::TrackInfo* track(unsigned id = 1) { return mp4.getTrack(id); }

    MemoryFileIo io;
    mp4::Mp4FileIO file;
    mp4::MP4File mp4;
    int error = 0;
    FindingCollector sink;
    std::vector<int> warnings;  ///< the statuses of what the sink got
    streams::Place errorPlace;
};

inline std::unique_ptr<ParsedFile> parseFile(std::string bytes, const mp4::Mp4Config& config = {})
{
    return std::make_unique<ParsedFile>(std::move(bytes), config);
}

/// A file and what its parse must find.
struct FaultCase
{
    const char* name;
    std::string bytes;
    int error = 0;
    std::vector<int> warnings = {};
    mp4::Mp4Config config = {};
};

inline void PrintTo(const FaultCase& c, std::ostream* out)
{
    *out << c.name;
}

/// Parses every file and compares error and warnings.
void expectFaults(const std::vector<FaultCase>& cases);

/// The boxes of an audio track with one sample of 10 bytes. A test may replace each.
struct TrackBoxes
{
    std::string header = tkhd(1);
    std::string mediaHeader = mdhd(1000, 1000);
    std::string description = stsd({audioEntry(".mp3")});
    std::string times = tableBox("stts", 1, {1, 1000});
    std::string chunks = tableBox("stsc", 1, {1, 1, 1});
    std::string sizes = stsz(10, 1);
    std::string offsets = tableBox("stco", 1, {100});
    std::string more;     ///< in 'stbl'
    std::string inTrack;  ///< after the track header

    std::string bytes() const;
};

/// 'ftyp', 'moov' with a movie header of 1,000 units a second and the tracks given, and an 'mdat'.
std::string movieFile(const std::string& inMovie, const std::string& behind = {});
/// The file with the one track.
std::string trackFile(const TrackBoxes& track);

}  // namespace krx::test
