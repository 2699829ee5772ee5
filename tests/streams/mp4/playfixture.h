// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4Data.h"
#include "tests/support/findingcollector.h"
#include "tests/support/memoryfileio.h"
#include "tests/support/mp4builder.h"
#include "tests/support/recordingcontext.h"

#include <memory>
#include <string>
#include <vector>

namespace krx::test {

/// A file in memory, opened for playback.
class PlayedFile
{
public:
    explicit PlayedFile(std::string bytes, bool aggregates = false, unsigned maxAggregate = 65536);

    /// The segments as lookups by position return them.
    std::vector<SegmentBounds> segments() const;
    /// All messages of all segments; loads must succeed.
    std::vector<RecordingHolder::Message> messages();
    /// The segment's messages; loaded: what loadSegment must return.
    std::vector<RecordingHolder::Message> load(const SegmentBounds& bounds, bool loaded = true);
    /// The bodies of the contexts of a track.
    std::vector<std::string> contexts(unsigned track) const;
    std::string metadata() const;

    MemoryFileIo io;
    RecordingContext context;
    mp4::Mp4Data data;
    mp4::StreamLoadStatus status;
    FindingCollector sink;
    std::vector<int> warnings;           ///< that opening met
    std::vector<streams::Place> places;  ///< of these
};

/// A track of samples that all have the size and duration given.
MovieTrack plainTrack(const std::string& entry, std::size_t samples, std::uint32_t size = 10,
                      std::uint32_t duration = 10);
/// A file of one plain track.
std::string plainFile(const MovieTrack& track);

}  // namespace krx::test
