// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4cursor.h"

#include "modules/streams/mp4/mp4.h"
#include "util/krxassert.h"

#include <algorithm>
#include <bit>

namespace krx::mp4 {
namespace {

constexpr char kMp4CursorPlace[] = "modules/streams/mp4/mp4Data";
constexpr int kTrackCountLine = 1130;

}  // namespace

Mp4Cursor::Mp4Cursor(MP4File& file)
{
    for (TrackInfo* track : file.getTrackVec()) {
        try {
            m_tracks.emplace_back(*track);
        } catch (krx::streams::StreamParseError& fault) {
            fault.place().track = track->trackId;
            fault.place().sample = 1;
            throw;
        }
    }
    findNextSample();
    m_time = 0;
}

Mp4Cursor::Mp4Cursor(MP4File& file, const CursorState& state)
    : m_index(state.index), m_time(state.time), m_tablePage(state.tablePage)
{
    const std::vector<TrackInfo*> tracks = file.getTrackVec();
    if (tracks.size() != state.tracks.size())
        krx::util::assertFailed(kMp4CursorPlace, kTrackCountLine);
    for (std::size_t i = 0; i < std::min(tracks.size(), state.tracks.size()); ++i)
        m_tracks.emplace_back(*tracks[i], state.tracks[i]);
    findNextSample();
}

void Mp4Cursor::save(CursorState& state)
{
    state.index = m_index;
    state.time = m_time;
    state.tablePage = m_tablePage;
    state.tracks.resize(m_tracks.size());
    for (std::size_t i = 0; i < m_tracks.size(); ++i)
        m_tracks[i].savePosition(state.tracks[i]);
}

CursorState Mp4Cursor::save()
{
    CursorState state;
    save(state);
    return state;
}

void Mp4Cursor::addPlace(krx::streams::StreamParseError& fault) const
{
    if (m_active < 0)
        return;
    // The reader of a fragment may not have come to its track.
    fault.place().track = 0;
    m_tracks[static_cast<std::size_t>(m_active)].addPlace(fault.place());
    if (fault.place().message < 0)
        fault.place().message = m_index;
}

void Mp4Cursor::takeWinner(Key winner)
{
    if (winner == kEnded) {
        m_active = -1;
        for (const TrackCursor& track : m_tracks)
            m_time = std::max(m_time, track.getTimeMillis());
        return;
    }
    m_active = static_cast<int>(winner & kTrackMask);
    m_time = std::max(m_time, static_cast<unsigned>(winner >> kTimeShift));
}

void Mp4Cursor::findNextSample()
{
    m_leaves = std::bit_ceil(std::max<std::size_t>(m_tracks.size(), 1));
    m_tree.assign(2 * m_leaves, kEnded);
    for (std::size_t i = 0; i < m_tracks.size(); ++i)
        m_tree[m_leaves + i] = keyOf(i);
    for (std::size_t node = m_leaves - 1; node > 0; --node)
        m_tree[node] = std::min(m_tree[2 * node], m_tree[2 * node + 1]);
    takeWinner(m_tree[1]);
}

/// Brings the tree up to date after the track has moved.
inline void Mp4Cursor::updateTrack(std::size_t track)
{
    Key* const tree = m_tree.data();
    Key key = keyOf(track);
    std::size_t node = m_leaves + track;
    tree[node] = key;
    for (; node > 1; node /= 2) {
        key = std::min(key, tree[node ^ 1]);
        tree[node / 2] = key;
    }
    takeWinner(key);
}

void Mp4Cursor::advance()
{
    if (m_active < 0)
        throw krx::streams::StreamParseError(krx::streams::kTableReadError);
    const auto track = static_cast<std::size_t>(m_active);
    const unsigned passed = m_tracks[track].passedSamples();
    try {
        m_tracks[track].advance();
    } catch (krx::streams::StreamParseError& fault) {
        // The fault is in a sample whose message is counted.
        if (m_tracks[track].passedSamples() == passed && m_index != 0)
            fault.place().message = m_index - 1;
        throw;
    }
    updateTrack(track);
}

bool Mp4Cursor::walk(const WalkLimits& limits, WalkTally& tally)
{
    bool walked = false;
    while (m_active >= 0 && tally.bytes <= tally.maxBytes) {
        // Where tracks take turns, one step is all there is.
        const auto track = static_cast<std::size_t>(m_active);
        if (!m_tracks[track].walkStep(limits, tally))
            break;
        walked = true;
        ++m_index;
        updateTrack(track);
        if (m_active == static_cast<int>(track))
            walkOn(track, limits, tally);
    }
    return walked;
}

/// Walks the track that goes first until another one goes first.
void Mp4Cursor::walkOn(std::size_t track, const WalkLimits& limits, WalkTally& tally)
{
    // Mostly that is soon: a stretch is not worth preparing.
    constexpr int kSteps = 3;
    const Key rival = rivalOf(track);
    TrackCursor& cursor = m_tracks[track];
    for (int i = 0; i < kSteps && rival != kEnded && tally.bytes <= tally.maxBytes; ++i) {
        if (!cursor.walkStep(limits, tally))
            break;
        ++m_index;
        if (keyOf(track) > rival) {
            updateTrack(track);
            return;
        }
    }
    // Where both stand at the same time, the track of the smaller number goes first.
    const unsigned long long endMillis =
        rival == kEnded ? kEnded : (rival >> kTimeShift) + ((rival & kTrackMask) > track ? 1 : 0);
    m_index += cursor.walkStretch(limits, tally, endMillis);
    updateTrack(track);
}

/// The smallest key of the other tracks.
Mp4Cursor::Key Mp4Cursor::rivalOf(std::size_t track) const
{
    Key rival = kEnded;
    for (std::size_t node = m_leaves + track; node > 1; node /= 2)
        rival = std::min(rival, m_tree[node ^ 1]);
    return rival;
}

void Mp4Cursor::setLimit(const CursorState& end)
{
    if (end.tracks.size() != m_tracks.size()) {
        krx::util::assertFailed(kMp4CursorPlace, kTrackCountLine);
        return;
    }
    for (std::size_t i = 0; i < m_tracks.size(); ++i)
        m_tracks[i].setLimit(end.tracks[i]);
    findNextSample();
}

void Mp4Cursor::loadTables()
{
    for (TrackCursor& cursor : m_tracks)
        if (cursor.track().isValid())
            applyTables(cursor.track(), [&](auto& table) { table.setCurPage(m_tablePage); });
}

std::size_t Mp4Cursor::getSegSize() const
{
    std::size_t bytes = 0;
    for (const TrackCursor& cursor : m_tracks)
        if (cursor.track().isValid())
            applyTables(cursor.track(), [&](auto& table) { bytes += table.getPageSize(m_tablePage); });
    return bytes;
}

unsigned long long Mp4Cursor::getTableSizeRead()
{
    unsigned long long bytes = 0;
    for (TrackCursor& cursor : m_tracks)
        bytes += cursor.getTableSizeRead();
    return bytes;
}

}  // namespace krx::mp4
