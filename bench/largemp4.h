// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace krx::bench {

/// One track of a generated movie. Sample sizes are spread evenly over [minSize, maxSize] by a fixed
/// sequence.
struct LargeTrack
{
    bool video = true;  ///< AVC, else AAC
    bool data = false;  ///< script data instead of either
    std::uint32_t samples = 0;
    std::uint32_t timescale = 1000;
    std::uint32_t delta = 40;  ///< a sample's duration; alternates with delta + 1 when timingPerSample
    std::uint32_t minSize = 100;
    std::uint32_t maxSize = 100;
    std::uint32_t samplesPerChunk = 1;
    std::uint32_t syncEvery = 0;      ///< every n-th sample is a sync sample; 0: no table
    bool compositionOffsets = false;  ///< one entry per sample
    bool timingPerSample = false;     ///< one time-to-sample entry per sample, else one for all
    bool chunkRunPerChunk = false;    ///< one sample-to-chunk entry per chunk, else one for all
    bool sampleFlags = false;         ///< one flags byte per sample
};

/// A movie. Unless mediaWritten is set, its media data is a hole in the file: only boxes and tables take
/// space on the disk.
struct LargeMp4
{
    std::vector<LargeTrack> tracks;
    bool mediaWritten = false;    ///< the media is written, not left as a hole
    std::uint32_t fragments = 0;  ///< movie fragments after the movie box, one run each, the tracks in turn
    std::uint32_t samplesPerFragment = 0;
};

struct LargeMp4Facts
{
    std::uint64_t bytes = 0;       ///< length of the file
    std::uint64_t tableBytes = 0;  ///< sample tables in it
    std::uint64_t samples = 0;
};

/// Writes the file in pieces. Throws std::runtime_error when it cannot be written.
LargeMp4Facts writeLargeMp4(const std::string& path, const LargeMp4& wanted);

/// The movies that the benchmarks share, by name: "hour" (1 h of 60 fps video and 48 kHz audio), "lowrate" (1
/// h of 25 fps video and 22 kHz audio in 12 MB, media and all), "clip" (a sixth of that), "samples" (10
/// million samples in one track), "tracks" (64 tracks), "fragments" (100,000 fragments), "pages" (tables that
/// playback cuts into 20,000 pages). Throws std::runtime_error for another name.
LargeMp4 largeMp4(const std::string& name);

}  // namespace krx::bench
