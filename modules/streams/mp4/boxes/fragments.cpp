// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/boxwalk.h"
#include "modules/streams/mp4/fragmentloader.h"

#include <utility>

namespace krx::mp4 {

using krx::streams::StreamParseError;

void readMovieExtends(BoxReader&, const BoxHeader& box, Movie& movie)
{
    movie.extendsSeen = true;
    movie.extendsPos = box.start;
}

/// No track is current after it.
TrackInfo* readTrackExtends(BoxReader& in, const BoxHeader&, Movie& movie)
{
    in.skip(4);  // version, flags
    TrackInfo* track = movie.provideTrack(in.readU32(), in.config().MaxTracks, in.memory());
    if (!track) {
        in.warn(krx::streams::kInvalidTrackExtends);
        return nullptr;
    }
    track->hasTrackExtends = true;
    track->defaultDescriptionIndex = in.readU32();
    track->defaultSampleDuration = in.readU32();
    track->defaultSampleSize = in.readU32();
    track->defaultSampleFlags = in.readU32();
    // Fragments kept from before this box were read with other defaults.
    for (TrackFragment& fragment : track->fragments)
        fragment.unload();
    return nullptr;
}

void readMovieFragment(BoxReader&, const BoxHeader& box, Movie& movie)
{
    if (!movie.extendsSeen)
        throw StreamParseError(krx::streams::kUnexpectedFragments);
    movie.moofStart = box.start;
}

void readMovieFragmentHeader(BoxReader& in, const BoxHeader&, Movie& movie)
{
    in.skip(4);  // version, flags
    const unsigned number = in.readU32();
    if (number != movie.lastSequenceNumber + 1)
        throw StreamParseError(krx::streams::kOutOfOrderFragments);
    movie.lastSequenceNumber = number;
}

/// The fragment is read to check it. No track is current after it.
void readTrackFragment(BoxWalk& walk, const BoxHeader& box)
{
    BoxReader& in = walk.reader();
    FragmentLoader& loader = walk.fragments();
    TrackFragment fragment(&loader, box, in.position(), walk.movie().moofStart);
    TrackInfo& track = loader.read(fragment, box.end);
    if (!loader.keep(fragment))
        fragment.unload();
    in.memory().charge(kDequeElement<TrackFragment>);
    track.fragments.push_back(std::move(fragment));
    walk.setTrack(nullptr);
}

}  // namespace krx::mp4
