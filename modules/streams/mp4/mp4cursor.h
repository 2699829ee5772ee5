// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/trackcursor.h"

#include <cstddef>
#include <vector>

namespace krx::mp4 {

class MP4File;

/// The saved state of an Mp4Cursor: the boundary between two segments.
struct CursorState
{
    long long index = 0;     ///< of the next message
    unsigned time = 0;       ///< ms
    unsigned tablePage = 0;  ///< that a segment from here on needs
    std::vector<TrackPosition> tracks;
};

/// Walks all tracks of a file together: it stands at the track whose step is the earliest, and among equal
/// times at the first one in the order of the tracks.
class Mp4Cursor
{
public:
    /// At the start of the file.
    explicit Mp4Cursor(MP4File& file);
    /// Where another cursor of the file stood.
    Mp4Cursor(MP4File& file, const CursorState& state);
    Mp4Cursor(const Mp4Cursor&) = delete;
    Mp4Cursor& operator=(const Mp4Cursor&) = delete;

    CursorState save();
    /// The same into an existing state, whose memory is reused.
    void save(CursorState& state);

    /// Adds to the fault, which a step has thrown, the place of the active track as far as it has none.
    void addPlace(krx::streams::StreamParseError& fault) const;

    /// Null at the end.
    TrackCursor* getActiveTrack()
    {
        return m_active < 0 ? nullptr : &m_tracks[static_cast<std::size_t>(m_active)];
    }
    /// Moves the active track on, whose message is counted. At the end throws kTableReadError.
    void advance();
    /// Passes samples of all tracks in their order and counts them as messages, while the steps are plain,
    /// the samples keep to the limits, and the tally allows it. False when it passed none.
    bool walk(const WalkLimits& limits, WalkTally& tally);
    /// Chooses the active track anew, after limits or tables changed.
    void findNextSample();
    /// The segment ends where end stands.
    void setLimit(const CursorState& end);

    long long getIndex() const { return m_index; }
    void countMessage() { ++m_index; }
    /// The latest time so far, ms.
    unsigned getTime() const { return m_time; }
    unsigned getTablePage() const { return m_tablePage; }
    void setTablePage(unsigned page) { m_tablePage = page; }

    /// Makes the table page current in every table, loading it when needed.
    void loadTables();
    /// Bytes of the table page over all tracks.
    std::size_t getSegSize() const;
    /// Bytes of the table entries that the cursor has passed.
    unsigned long long getTableSizeRead();

    /// Calls function with every track cursor.
    template <typename Function>
    void applyTracks(Function function)
    {
        for (TrackCursor& track : m_tracks)
            function(track);
    }

private:
    /// Time and number of a track in one: a smaller key goes first. kEnded for a track at its end.
    using Key = unsigned long long;
    static constexpr Key kEnded = ~0ULL;
    static constexpr unsigned kTimeShift = 32;
    static constexpr Key kTrackMask = 0xFFFFFFFF;

    Key keyOf(std::size_t track) const
    {
        const TrackCursor& cursor = m_tracks[track];
        return cursor.atEndOfSegment() ? kEnded : Key{cursor.getTimeMillis()} << kTimeShift | track;
    }
    Key rivalOf(std::size_t track) const;
    void updateTrack(std::size_t track);
    void walkOn(std::size_t track, const WalkLimits& limits, WalkTally& tally);
    void takeWinner(Key winner);

    long long m_index = 0;
    unsigned m_time = 0;
    unsigned m_tablePage = 0;
    int m_active = -1;
    std::vector<TrackCursor> m_tracks;

    // A tournament: node n holds the smaller key of the nodes 2n and 2n + 1, the tracks' own keys are the
    // leaves, and m_tree[1] has the earliest track.
    std::size_t m_leaves = 1;
    std::vector<Key> m_tree;
};

}  // namespace krx::mp4
