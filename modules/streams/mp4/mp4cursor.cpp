// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4cursor.h"

#include "modules/streams/mp4/mp4.h"
#include "util/krxassert.h"

#include <algorithm>
#include <bit>

namespace krx::mp4 {
namespace {

constexpr char kAssertPlace[] = "modules/streams/mp4/mp4Data";
constexpr int kLimitLine = 486;
constexpr int kFragmentLine = 512;
constexpr int kRunLine = 525;
constexpr int kTrackCountLine = 1130;

/// Steps through a table of (count, ...) entries. An entry that counts no sample is left after one.
template <typename Entry>
void stepRunLength(const PageableArray<Entry>& table, unsigned& index, unsigned& count)
{
    if (++count >= table[index].count) {
        ++index;
        count = 0;
    }
}

}  // namespace

void TrackCursor::throwTableError()
{
    throw krx::streams::StreamParseError(krx::streams::kTableReadError);
}

TrackCursor::TrackCursor(TrackInfo& track) : m_track(&track)
{
    if (!track.isValid()) {
        m_pos.inMovieBox = false;
        m_pos.fragmentIndex = static_cast<unsigned>(track.fragments.size());
        return;
    }
    initEditEntry();
    if (track.chunkOffsets.size() == 0)
        finishMoov();
    else {
        m_pos.fileOffset = track.chunkOffsets[0];
        m_pos.samplesPerChunk = track.sampleToChunk[0].samplesPerChunk;
        updateSampleEntry();
    }
    updateMillis();
}

TrackCursor::TrackCursor(TrackInfo& track, const TrackPosition& position) : m_pos(position), m_track(&track)
{
    findNextGap();
    updateMillis();
}

void TrackCursor::advance()
{
    if (atEndOfSegment())
        throwTableError();
    // Most steps stay within a chunk or a run and far from a gap, so that no ender can come of them.
    constexpr StretchLimits kNoLimits{~0ULL, ~0U, ~0ULL};
    if (walkStretch(kNoLimits, [](unsigned) { return false; }))
        return;
    ++m_pos.stepCount;
    // Nobody goes on from here, and the tables that the step needs may be those of the next page.
    if (atLimit())
        return;
    if (m_pos.headerPending)
        m_pos.headerPending = false;
    else
        advanceSlowly();
}

/// How many steps from here on make messages of samples and stay within the chunk or the run, as far as the
/// tables of single samples are at hand and times are so small that no sum of them overflows.
unsigned TrackCursor::stepsInStretch() const
{
    constexpr unsigned long long kFarTime = 1ULL << 62;
    if (m_pos.sampleType == kSampleUnsupported || m_pos.headerPending || m_pos.enderPending ||
        atEndOfTrack() || m_pos.decodeTime >= kFarTime || m_pos.mediaTime >= kFarTime)
        return 0;
    unsigned steps = 0;
    if (m_pos.inMovieBox) {
        if (m_pos.sampleInChunk >= m_pos.samplesPerChunk)
            return 0;
        steps = m_pos.samplesPerChunk - m_pos.sampleInChunk - 1;
        if (m_track->constantSampleSize == 0)
            steps = std::min(steps, m_track->sampleSizes.entriesFrom(m_pos.sampleNumber));
        if (m_track->sampleFlags.isInit())
            steps = std::min(steps, m_track->sampleFlags.entriesFrom(m_pos.sampleNumber));
    } else
        steps = run().sampleCount - m_pos.sampleInRun - 1;
    return m_limited ? std::min(steps, m_limit - m_pos.stepCount) : steps;
}

/// A step that may end a stretch. When it does, the ender comes first, and stands at the sample before
/// it.
void TrackCursor::advanceSlowly()
{
    if (m_pos.enderPending) {
        m_pos.enderPending = false;
        subAdvance();
        m_pos.enderPending = false;
    } else {
        const TrackPosition before = m_pos;
        subAdvance();
        if (m_pos.enderPending) {
            m_pos = before;
            m_pos.enderPending = true;
            findNextGap();
        }
    }
    updateMillis();
}

void TrackCursor::subAdvance()
{
    m_pos.fileOffset += getSampleSize();
    if (m_pos.inMovieBox) {
        if (atSyncSample())
            ++m_pos.syncIndex;
        stepTimeToSample(timeToSampleDelta());
        stepComposition();
        stepSample();
    } else {
        const unsigned delta = runDelta(run());
        m_pos.decodeTime += delta;
        m_pos.mediaTime += delta;
        ++m_pos.sampleInRun;
        correctCursorToValidSample();
    }
    checkForGap();
}

/// The current sample's duration.
unsigned TrackCursor::timeToSampleDelta() const
{
    const unsigned delta = m_track->timeToSample[m_pos.timeToSampleIndex].delta;
    return delta < kNegativeDelta ? delta : 0;
}

unsigned TrackCursor::runDelta(const TrackFragmentRun& current) const
{
    const unsigned* durations = current.column(TrackFragmentRun::kDuration);
    return durations ? durations[m_pos.sampleInRun]
                     : m_track->fragments[m_pos.fragmentIndex].header().defaultDuration;
}

/// A table of one entry holds for all samples, whatever its count.
void TrackCursor::stepTimeToSample(unsigned delta)
{
    m_pos.decodeTime += delta;
    m_pos.mediaTime += delta;
    if (m_track->timeToSample.size() != 1)
        stepRunLength(m_track->timeToSample, m_pos.timeToSampleIndex, m_pos.timeToSampleCount);
}

void TrackCursor::stepComposition()
{
    if (m_track->compositionOffsets.size() != 0)
        stepRunLength(m_track->compositionOffsets, m_pos.compositionIndex, m_pos.compositionCount);
}

void TrackCursor::stepSample()
{
    ++m_pos.sampleNumber;
    if (++m_pos.sampleInChunk < m_pos.samplesPerChunk)
        return;
    m_pos.sampleInChunk = 0;
    if (++m_pos.chunkIndex >= m_track->chunkOffsets.size()) {
        finishMoov();
        return;
    }
    m_pos.fileOffset = m_track->chunkOffsets[m_pos.chunkIndex];

    const PageableArray<SampleToChunk>& table = m_track->sampleToChunk;
    const unsigned before = m_pos.sampleToChunkIndex;
    while (table.size() - m_pos.sampleToChunkIndex > 1 &&
           table[m_pos.sampleToChunkIndex + 1].firstChunk == m_pos.chunkIndex + 1)
        ++m_pos.sampleToChunkIndex;
    if (m_pos.sampleToChunkIndex != before) {
        m_pos.samplesPerChunk = table[m_pos.sampleToChunkIndex].samplesPerChunk;
        updateSampleEntry();
    }
}

/// From the tables of the movie box to the fragments.
void TrackCursor::finishMoov()
{
    m_pos.inMovieBox = false;
    correctCursorToValidSample();
}

/// From the end of a run to the next sample: past empty runs and finished fragments.
void TrackCursor::correctCursorToValidSample()
{
    std::deque<TrackFragment>& fragments = m_track->fragments;
    bool entered = m_pos.runIndex == 0 && m_pos.sampleInRun == 0;
    while (m_pos.fragmentIndex < fragments.size() &&
           !correctToNextPopulatedRun(fragments[m_pos.fragmentIndex])) {
        fragments[m_pos.fragmentIndex].unload();
        ++m_pos.fragmentIndex;
        m_pos.runIndex = 0;
        entered = true;
    }
    if (m_pos.fragmentIndex >= fragments.size() || m_pos.sampleInRun != 0)
        return;
    TrackFragment& fragment = fragments[m_pos.fragmentIndex];
    m_pos.fileOffset = fragment.dataBase() + static_cast<unsigned long long>(run().dataOffset);
    if (entered)
        updateSampleEntry();
}

/// False when the fragment has no sample left.
bool TrackCursor::correctToNextPopulatedRun(TrackFragment& fragment)
{
    const std::size_t runs = fragment.getRunCount();
    while (m_pos.runIndex < runs) {
        if (m_pos.sampleInRun < fragment.getRun(m_pos.runIndex).sampleCount)
            return true;
        ++m_pos.runIndex;
        m_pos.sampleInRun = 0;
    }
    return false;
}

/// Takes the description of the current sample again. Where it changes, or must be sent anew after a gap, the
/// old one is closed and the new one opened by steps of their own.
void TrackCursor::updateSampleEntry()
{
    const unsigned index = m_pos.inMovieBox
                               ? m_track->sampleToChunk[m_pos.sampleToChunkIndex].descriptionIndex
                               : m_track->fragments[m_pos.fragmentIndex].header().descriptionIndex;
    if (index < 1 || index > m_track->sampleDescriptions.size())
        throwTableError();
    if (m_pos.typeValid && index == m_pos.descriptionIndex)
        return;
    if (isEnderType())
        m_pos.enderPending = true;

    m_pos.descriptionIndex = index;
    SampleType type = sampleTypeOf(sampleEntry().type);
    m_pos.encrypted = type == kSampleEncryptedVideo || type == kSampleEncryptedAudio;
    if (m_pos.encrypted) {
        type = sampleTypeOf(m_track->drm.originalFormat);
        if (type == kSampleEncryptedVideo || type == kSampleEncryptedAudio)
            type = kSampleUnsupported;
    }
    m_pos.sampleType = type;
    m_pos.headerPending = hasDecoderHeader(type);
    m_pos.typeValid = true;
}

/// A leading gap of the edit list delays the track.
void TrackCursor::initEditEntry()
{
    m_pos.editIndex = 0;
    const EditList* list = m_track->editList.get();
    if (list && !list->entries.empty() && list->entries[0].mediaTime == kGapMediaTime) {
        m_pos.decodeTime = list->entries[0].duration;
        m_pos.editIndex = 1;
    }
    findNextGap();
}

bool TrackCursor::hasFurtherGap() const
{
    return m_track->editList && m_pos.editIndex >= 0 &&
           static_cast<std::size_t>(m_pos.editIndex) + 2 <= m_track->editList->entries.size();
}

void TrackCursor::findNextGap()
{
    m_gapStart = kNoGap;
    if (!hasFurtherGap())
        return;
    const auto index = static_cast<std::size_t>(m_pos.editIndex);
    const EditListEntry& media = m_track->editList->entries[index];
    if (media.mediaTime < 0 || m_track->editList->entries[index + 1].mediaTime != kGapMediaTime)
        throwTableError();
    m_gapStart = static_cast<unsigned long long>(media.mediaTime) + media.duration;
}

/// Closes the stretch at the end of the track and where a gap of the edit list begins; the gap shifts what
/// follows.
void TrackCursor::checkForGap()
{
    if (atEndOfTrack()) {
        if (hasFurtherGap())
            throwTableError();
        if (!m_track->last && isEnderType())
            m_pos.enderPending = true;
        return;
    }
    if (m_pos.mediaTime < m_gapStart || !hasFurtherGap())
        return;
    if (isEnderType())
        m_pos.enderPending = true;
    const EditListEntry& gap = m_track->editList->entries[static_cast<std::size_t>(m_pos.editIndex) + 1];
    m_pos.decodeTime += gap.duration - (m_pos.mediaTime - m_gapStart);
    m_pos.typeValid = false;
    m_pos.editIndex += 2;
    findNextGap();
    updateSampleEntry();
}

void TrackCursor::setLimit(const TrackPosition& end)
{
    if (m_pos.stepCount > end.stepCount)
        krx::util::assertFailed(kAssertPlace, kLimitLine);
    m_limited = true;
    m_limit = end.stepCount;
}

unsigned long long TrackCursor::getTableSizeRead() const
{
    unsigned long long bytes = 12ULL * m_pos.sampleToChunkIndex + 8ULL * m_pos.chunkIndex +
                               8ULL * m_pos.timeToSampleIndex + 8ULL * m_pos.compositionIndex +
                               4ULL * m_pos.syncIndex;
    if (m_track->sampleSizes.isInit())
        bytes += 4ULL * m_pos.sampleNumber;
    if (m_track->sampleFlags.isInit())
        bytes += m_pos.sampleNumber;
    return bytes;
}

TrackFragment* TrackCursor::getCurFrag() const
{
    if (m_pos.fragmentIndex < m_track->fragments.size())
        return &m_track->fragments[m_pos.fragmentIndex];
    krx::util::assertFailed(kAssertPlace, kFragmentLine);
    return nullptr;
}

const TrackFragmentRun* TrackCursor::getCurRun() const
{
    TrackFragment* fragment = getCurFrag();
    if (fragment && m_pos.runIndex < fragment->getRunCount())
        return &fragment->getRun(m_pos.runIndex);
    krx::util::assertFailed(kAssertPlace, kRunLine);
    return nullptr;
}

void TrackCursor::takeRun() const
{
    const TrackFragmentRun* current = getCurRun();
    if (!current || m_pos.sampleInRun >= current->sampleCount)
        throwTableError();
    m_run = *current;
    m_runFragment = m_pos.fragmentIndex;
    m_runIndex = m_pos.runIndex;
}

void TrackCursor::releaseFragment()
{
    if (m_pos.fragmentIndex < m_track->fragments.size())
        m_track->fragments[m_pos.fragmentIndex].unload();
}

Mp4Cursor::Mp4Cursor(MP4File& file)
{
    for (TrackInfo* track : file.getTrackVec())
        m_tracks.emplace_back(*track);
    findNextSample();
    m_time = 0;
}

Mp4Cursor::Mp4Cursor(MP4File& file, const CursorState& state)
    : m_index(state.index), m_time(state.time), m_tablePage(state.tablePage)
{
    const std::vector<TrackInfo*> tracks = file.getTrackVec();
    if (tracks.size() != state.tracks.size())
        krx::util::assertFailed(kAssertPlace, kTrackCountLine);
    for (std::size_t i = 0; i < std::min(tracks.size(), state.tracks.size()); ++i)
        m_tracks.emplace_back(*tracks[i], state.tracks[i]);
    findNextSample();
}

CursorState Mp4Cursor::save() const
{
    CursorState state{m_index, m_time, m_tablePage, {}};
    state.tracks.reserve(m_tracks.size());
    for (const TrackCursor& track : m_tracks)
        state.tracks.push_back(track.position());
    return state;
}

Mp4Cursor::Key Mp4Cursor::keyOf(std::size_t track) const
{
    const TrackCursor& cursor = m_tracks[track];
    return cursor.atEndOfSegment() ? kEnded : Key{cursor.getTimeMillis()} << kTimeShift | track;
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

void Mp4Cursor::advance()
{
    if (m_active < 0)
        throw krx::streams::StreamParseError(krx::streams::kTableReadError);
    const auto track = static_cast<std::size_t>(m_active);
    m_tracks[track].advance();
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

/// Brings the tree up to date after the track has moved.
void Mp4Cursor::updateTrack(std::size_t track)
{
    Key key = keyOf(track);
    std::size_t node = m_leaves + track;
    m_tree[node] = key;
    for (; node > 1; node /= 2) {
        key = std::min(key, m_tree[node ^ 1]);
        m_tree[node / 2] = key;
    }
    takeWinner(key);
}

void Mp4Cursor::setLimit(const CursorState& end)
{
    if (end.tracks.size() != m_tracks.size()) {
        krx::util::assertFailed(kAssertPlace, kTrackCountLine);
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

unsigned long long Mp4Cursor::getTableSizeRead() const
{
    unsigned long long bytes = 0;
    for (const TrackCursor& cursor : m_tracks)
        bytes += cursor.getTableSizeRead();
    return bytes;
}

}  // namespace krx::mp4
