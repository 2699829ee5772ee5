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
    void setTrack(TrackInfo* track);

    /// Reads the boxes from the position to the end of parent.
    void readChildren(const BoxHeader& parent);
    /// Reads the first box of that type between the position and the end of parent, if there is one.
    void readFirstChild(const BoxHeader& parent, unsigned type);

private:
    void readBox(const BoxRule* rule, const BoxHeader& box, unsigned number);
    void applyRule(const BoxRule& rule, BoxHeader box);
    bool isRepeated(const BoxRule& rule) const;

    BoxReader& m_reader;
    Movie& m_movie;
    FragmentLoader& m_fragments;
    TrackInfo* m_track = nullptr;
};

}  // namespace krx::mp4
