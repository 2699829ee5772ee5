// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/rawsamples.h"

#include "tests/support/rawbuilder.h"

namespace krx::test {
namespace {

/// Segments of audio and video every 40 ms, and metadata.
RawBuilder recording()
{
    RawBuilder raw;
    for (unsigned start : {0U, 240U}) {
        std::vector<RawMessage> messages;
        for (unsigned time = start; time < start + 240; time += 40) {
            messages.push_back(rawVideo(time));
            messages.push_back(rawAudio(time));
        }
        raw.segment(messages);
    }
    raw.metadata(metaData(0.48));
    return raw;
}

/// The sound recording with its second segment changed.
template <typename Change>
RawSample secondSegment(const std::string& name, Change change)
{
    RawBuilder raw = recording();
    change(raw.segments[RawBuilder::fileName(raw.bounds[1].start)], raw.bounds[1]);
    return {name, raw.files()};
}

}  // namespace

std::vector<RawSample> rawSamples()
{
    constexpr std::size_t kAudioRecord = 11 + 4 + 4;  // the last one of a segment
    std::vector<RawSample> samples;

    RawBuilder sound = recording();
    samples.push_back({"recording", sound.files()});
    samples.push_back({"recording-empty", RawBuilder().files()});

    RawBuilder version = recording();
    version.version = 0x20000;
    samples.push_back({"faults/33-version", version.files()});

    RawBuilder gap = recording();
    ++gap.bounds[1].start;
    samples.push_back({"faults/32-gap", gap.files()});

    RawSample noContexts{"faults/32-no-contexts", sound.files()};
    noContexts.files.erase("contexts");
    samples.push_back(noContexts);

    RawSample noSegment{"faults/34-no-segment", sound.files()};
    noSegment.files.erase(RawBuilder::fileName(sound.bounds[1].start));
    samples.push_back(noSegment);

    RawBuilder badMetaData = recording();
    badMetaData.contexts.clear();
    badMetaData.metadata("\x02");
    samples.push_back({"faults/12-bad-metadata", badMetaData.files()});

    samples.push_back(secondSegment("faults/35-truncated",
                                    [](std::string& file, SegmentBounds&) { file.resize(file.size() - 1); }));
    samples.push_back(
        secondSegment("faults/36-type", [](std::string& file, SegmentBounds&) { file[0] = 24; }));
    samples.push_back(
        secondSegment("faults/37-footer", [](std::string& file, SegmentBounds&) { ++file.back(); }));
    samples.push_back(secondSegment("faults/38-mismatch", [](std::string& file, SegmentBounds&) {
        file.resize(file.size() - kAudioRecord);
    }));
    samples.push_back(secondSegment("faults/126-backward", [](std::string& file, SegmentBounds&) {
        // The first message of the segment lies before the segment.
        file[6] = 0;
    }));
    return samples;
}

}  // namespace krx::test
