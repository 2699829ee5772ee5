// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxheader.h"

namespace krx::mp4 {

class BoxReader;
class BoxWalk;
class TrackInfo;
struct Movie;

/// What the walk does with a box of one type; a row of the table in boxtable.cpp. The walk checks what the
/// row asks for in the order of the fields, then calls the handler. A row without handler and children is for
/// a box that is known but passed over.
///
/// A handler starts after the bytes that the walk has read: the header, and version and flags if the row has
/// a version. It may leave the position anywhere. A row has at most one handler.
struct BoxRule
{
    /// Reads a box into the facts of the movie.
    using MovieHandler = void (*)(BoxReader& in, const BoxHeader& box, Movie& movie);
    /// Reads a box into the facts of the current track.
    using TrackHandler = void (*)(BoxReader& in, const BoxHeader& box, TrackInfo& track);
    /// Reads a box that names a track. Returns the one that is current from there on, or null.
    using TrackSelector = TrackInfo* (*)(BoxReader& in, const BoxHeader& box, Movie& movie);
    /// Reads a box that decides by itself what of its content is walked.
    using WalkHandler = void (*)(BoxWalk& walk, const BoxHeader& box);

    static constexpr int kNoVersion = -1;
    static constexpr unsigned kNotNumbered = ~0U;

    unsigned type = 0;
    bool needsTrack = false;                       ///< else kBadBoxHierarchy
    bool (*trackHas)(const TrackInfo&) = nullptr;  ///< kDuplicateBox when the track has the box's facts
    bool (*movieHas)(const Movie&) = nullptr;      ///< the same of the movie
    unsigned smallestPayload = 0;                  ///< bytes after the header, else kTruncatedBox
    int highestVersion = kNoVersion;               ///< above it the box is passed over, with a warning
    MovieHandler movieHandler = nullptr;
    TrackHandler trackHandler = nullptr;
    TrackSelector trackSelector = nullptr;
    WalkHandler walkHandler = nullptr;
    bool hasChildren = false;            ///< walked after the handler
    unsigned childOffset = 0;            ///< bytes passed over before the children
    unsigned numberSlot = kNotNumbered;  ///< below kNumberedTypes, see numbered

    // For writing a row.

    /// After a box of the type has given its facts, another one is an error.
    constexpr BoxRule once(bool (*has)(const TrackInfo&)) const
    {
        BoxRule rule = inTrack();
        rule.trackHas = has;
        return rule;
    }
    constexpr BoxRule once(bool (*has)(const Movie&)) const
    {
        BoxRule rule = *this;
        rule.movieHas = has;
        return rule;
    }
    constexpr BoxRule inTrack() const
    {
        BoxRule rule = *this;
        rule.needsTrack = true;
        return rule;
    }
    constexpr BoxRule atLeast(unsigned bytes) const
    {
        BoxRule rule = *this;
        rule.smallestPayload = bytes;
        return rule;
    }
    /// The box starts with a version, at most highest, and flags.
    constexpr BoxRule version(int highest) const
    {
        BoxRule rule = *this;
        rule.highestVersion = highest;
        return rule;
    }
    constexpr BoxRule reads(MovieHandler handler) const
    {
        BoxRule rule = *this;
        rule.movieHandler = handler;
        return rule;
    }
    constexpr BoxRule reads(TrackHandler handler) const
    {
        BoxRule rule = inTrack();
        rule.trackHandler = handler;
        return rule;
    }
    constexpr BoxRule reads(TrackSelector handler) const
    {
        BoxRule rule = *this;
        rule.trackSelector = handler;
        return rule;
    }
    constexpr BoxRule reads(WalkHandler handler) const
    {
        BoxRule rule = *this;
        rule.walkHandler = handler;
        return rule;
    }
    /// Children follow offset bytes after the place where the handler, if any, stops.
    constexpr BoxRule children(unsigned offset = 0) const
    {
        BoxRule rule = *this;
        rule.hasChildren = true;
        rule.childOffset = offset;
        return rule;
    }
    /// A parent may have several boxes of the type: places show which one it is.
    constexpr BoxRule numbered() const
    {
        BoxRule rule = *this;
        rule.numberSlot = 0;  // the table counts them
        return rule;
    }

    bool isPassedOver() const
    {
        return !movieHandler && !trackHandler && !trackSelector && !walkHandler && !hasChildren;
    }
};

/// How many types are numbered.
constexpr unsigned kNumberedTypes = 4;

/// The row of the type, or null.
const BoxRule* findBoxRule(unsigned type);

}  // namespace krx::mp4
