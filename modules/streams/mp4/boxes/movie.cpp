// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/boxwalk.h"
#include "modules/streams/mp4/mp4errors.h"

#include <utility>

namespace krx::mp4 {
namespace {

using krx::streams::FindingLevel;
using krx::streams::StreamParseError;

/// Creation and modification time, by version.
constexpr unsigned timesSize(unsigned version)
{
    return version == 0 ? 8 : 16;
}

void checkChapters(const Movie& movie)
{
    krx::streams::Place place = movie.firstChapterPlace;
    for (const ChapterEntry& chapter : movie.chapters) {
        if (chapter.time > movie.duration) {
            StreamParseError error(krx::streams::kInvalidChapterTime);
            error.setPlace(std::move(place));
            throw error;
        }
        place.offset += ChapterEntry::kPrefix + static_cast<krx::util::FilePos>(chapter.title.size());
    }
}

/// Returns false when the box names no track.
bool readTrackBoxes(BoxWalk& walk, const BoxHeader& box)
{
    // The header may come after the media that it is needed for.
    BoxReader& in = walk.reader();
    const krx::util::FilePos payload = in.position();
    walk.readFirstChild(box, fourCC("tkhd"));
    in.skipTo(payload);
    walk.readChildren(box);
    if (walk.track())
        validateTrack(in, *walk.track());
    return walk.track() != nullptr;
}

}  // namespace

void readFileType(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    if (movie.brand == 0 && in.parentType() == 0 && in.bytesLeft(box.end) >= 4)
        movie.brand = in.readU32();
}

void readMovie(BoxWalk& walk, const BoxHeader& box)
{
    walk.movie().payload = walk.reader().position();
    walk.movie().seen = true;
    walk.readChildren(box);
    checkChapters(walk.movie());
}

void readMovieHeader(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    movie.headerPos = box.start;
    in.skip(timesSize(box.version));
    movie.timescale = in.readU32();
    movie.duration = box.version == 0 ? in.readU32() : in.readU64();
    if (movie.timescale == 0)
        throw StreamParseError(krx::streams::kInvalidTimescale);
}

void readTrack(BoxWalk& walk, const BoxHeader& box)
{
    BoxReader& in = walk.reader();
    if (walk.movie().tracks.size() >= in.config().MaxTracks)
        throw StreamParseError(krx::streams::kTooManyTracks);
    walk.startTrackBox(box);
    bool isNamed = true;
    try {
        isNamed = readTrackBoxes(walk, box);
    } catch (Mp4TrackError& error) {
        if (walk.track())
            walk.track()->valid = false;
        walk.dropTrack(error, FindingLevel::kWarning);
        in.logWarning(error);
    } catch (StreamParseError& error) {
        walk.dropTrack(error, FindingLevel::kError);
        throw;
    }
    if (!isNamed) {
        walk.dropTrack(krx::streams::kIncompleteTrack);
        in.warn(krx::streams::kIncompleteTrack);
    }
    walk.endTrackBox();
}

void validateTrack(BoxReader& in, TrackInfo& track)
{
    const bool complete = track.timescale != 0 && track.hasSampleDescription &&
                          track.sampleToChunk.isInit() && track.chunkOffsets.isInit() &&
                          track.timeToSample.isInit() &&
                          (track.sampleSizes.isInit() || track.constantSampleSize != 0);
    if (!complete)
        throw Mp4TrackError(krx::streams::kIncompleteTrack);
    if (track.isVideo && !track.hasTrackExtends && !track.syncSamples.isInit())
        in.warn(krx::streams::kNoSyncSamples);
    track.valid = true;
}

TrackInfo* readTrackHeader(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    in.skip(timesSize(box.version));
    TrackInfo* track = movie.provideTrack(in.readU32(), in.config().MaxTracks, in.memory());
    if (!track)
        return nullptr;
    track->tkhdStartPos = box.start;
    // Reserved, duration, reserved, layer, alternate group, volume, reserved.
    in.skip(box.version == 0 ? 24 : 28);
    VideoTransform& transform = track->transform;
    transform.a = static_cast<int>(in.readU32());
    transform.b = static_cast<int>(in.readU32());
    in.skip(4);
    transform.c = static_cast<int>(in.readU32());
    transform.d = static_cast<int>(in.readU32());
    return track;
}

void readMediaHeader(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    track.setMdhdStartPos(box.start);
    in.skip(timesSize(box.version));
    track.timescale = in.readU32();
    track.duration = box.version == 0 ? in.readU32() : in.readU64();
    track.language = in.readU16();
    if (track.timescale == 0)
        throw StreamParseError(krx::streams::kInvalidTimescale);
}

void readFreeSpace(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    if (in.parentType() != fourCC("moov"))
        return;
    in.memory().charge(kDequeElement<FreeSpace>);
    movie.freeBoxes.push_back({box.start, box.size});
}

}  // namespace krx::mp4
