// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxreader.h"
#include "modules/streams/mp4/movie.h"

namespace krx::mp4 {

struct BoxRule;
class FragmentLoader;

/// Walks the boxes of a file: finds the rule of each, checks what it asks for, and calls its handler. The
/// walk knows which track is current: the one that the last track header named.
class BoxWalk
{
public:
    /// None is owned.
    BoxWalk(BoxReader& reader, Movie& movie, FragmentLoader& fragments)
        : m_reader(reader), m_movie(movie), m_fragments(fragments)
    {
    }

    BoxReader& reader() { return m_reader; }
    Movie& movie() { return m_movie; }
    FragmentLoader& fragments() { return m_fragments; }

    /// The current track, or null.
    TrackInfo* track() const { return m_track; }
    /// The current track; without one throws kBadBoxHierarchy.
    TrackInfo& needTrack() const;
    /// In a box: a current track that is not complete yet is dropped, since no box will complete it.
    void setTrack(TrackInfo* track);

    // The track box that is being read.

    void startTrackBox(const BoxHeader& box);
    /// What it says. The record of the track gets it when the box ends.
    TrackFacts& trackFacts() { return m_trackFacts; }
    void endTrackBox();
    /// Keeps the finding as the reason why the track of the box does not play; error gets its place. A record
    /// keeps its first reason. Reports nothing.
    void dropTrack(krx::streams::StreamParseError& error, krx::streams::FindingLevel level);
    /// The same with a warning, which is made only if it is kept.
    void dropTrack(krx::streams::ParseStatus status);

    /// Reads the boxes from the position to the end of parent.
    void readChildren(const BoxHeader& parent);
    /// Reads the first box of that type between the position and the end of parent, if there is one.
    void readFirstChild(const BoxHeader& parent, unsigned type);

private:
    void readBox(const BoxRule* rule, const BoxHeader& box, unsigned number);
    void applyRule(const BoxRule& rule, BoxHeader box);
    bool isRepeated(const BoxRule& rule) const;
    bool hasOwnRecord() const;
    bool isTrackUnfinished() const;
    bool hasRoomForDropped() const;

    BoxReader& m_reader;
    Movie& m_movie;
    FragmentLoader& m_fragments;
    TrackInfo* m_track = nullptr;
    TrackFacts m_trackFacts;
};

}  // namespace krx::mp4
