// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/movie.h"

#include "util/SRBuffer.h"

namespace krx::mp4 {
namespace {

/// What a record is charged. A number, so that a field of it does not move the limits of files.
constexpr unsigned long long kTrackRecord = 1088;

}  // namespace

unsigned TagEntry::integerCount() const
{
    return integerSize == 0 ? 0 : static_cast<unsigned>((content.size() + integerSize - 1) / integerSize);
}

unsigned TagEntry::integer(unsigned i) const
{
    unsigned value = 0;
    for (const char byte : content.substr(std::size_t{i} * integerSize, integerSize))
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

Movie::Movie() = default;
Movie::~Movie() = default;

TrackInfo* Movie::findTrack(unsigned id) const
{
    const auto found = tracksById.find(id);
    return found == tracksById.end() ? nullptr : found->second;
}

TrackInfo* Movie::provideTrack(unsigned id, unsigned maxTracks, MemoryBudget& memory)
{
    TrackInfo* track = id == 0 ? nullptr : findTrack(id);
    if (track || id == 0 || tracks.size() >= maxTracks)
        return track;
    memory.charge(kTrackRecord + kBlockOverhead);
    tracks.push_back(std::make_unique<TrackInfo>());
    track = tracks.back().get();
    track->trackId = id;
    tracksById.emplace(id, track);
    return track;
}

std::size_t Movie::reportMemorySize() const
{
    std::size_t bytes = freeBoxes.size() * kDequeElement<FreeSpace> + tags.size() * kDequeElement<TagEntry> +
                        chapters.size() * kDequeElement<ChapterEntry> + texts.reportMemorySize() +
                        progressive.capacity() * sizeof(ProgressiveEntry) +
                        tracks.capacity() * sizeof(tracks[0]) +
                        droppedTracks.capacity() * sizeof(DroppedTrack) +
                        tracksById.size() * sizeof(decltype(tracksById)::value_type);
    for (const auto& track : tracks)
        bytes += track->reportMemorySize();
    for (const DroppedTrack& track : droppedTracks)
        bytes += memoryOf(*track.droppedBy);
    return bytes + (xmp ? sizeof(SRMemory) + xmp->capacity() : 0);
}

}  // namespace krx::mp4
