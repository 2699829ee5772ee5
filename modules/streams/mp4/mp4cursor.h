// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4time.h"
#include "modules/streams/mp4/sampletype.h"
#include "modules/streams/mp4/trackinfo.h"

#include <cstddef>
#include <vector>

namespace krx::mp4 {

class MP4File;

/// Where a track cursor stands. Plain and compact, so that the boundaries between segments can be kept; times
/// are in the track's timescale. A sample after the movie box's tables is named by fragment, run and sample
/// in the run.
struct TrackPosition
{
    unsigned long long decodeTime = 0;  ///< shifted by the gaps of the edit list
    unsigned long long mediaTime = 0;   ///< without these shifts
    unsigned long long fileOffset = 0;  ///< of the current sample
    unsigned stepCount = 0;             ///< samples, headers and enders so far
    unsigned descriptionIndex = 0;      ///< 1-based
    unsigned timeToSampleIndex = 0;
    unsigned timeToSampleCount = 0;  ///< samples used of that entry
    unsigned compositionIndex = 0;
    unsigned compositionCount = 0;  ///< samples used of that entry
    unsigned syncIndex = 0;
    unsigned sampleToChunkIndex = 0;
    unsigned samplesPerChunk = 0;
    unsigned chunkIndex = 0;
    unsigned sampleInChunk = 0;
    unsigned sampleNumber = 0;  ///< 0-based over the movie box's tables
    unsigned fragmentIndex = 0;
    unsigned runIndex = 0;
    unsigned sampleInRun = 0;
    int editIndex = -1;
    SampleType sampleType = kSampleUnsupported;
    bool typeValid = false;
    bool encrypted = false;
    bool inMovieBox = true;
    bool headerPending = false;  ///< the step is the decoder configuration
    bool enderPending = false;   ///< the step is the end-of-sequence message

    friend bool operator==(const TrackPosition&, const TrackPosition&) = default;
};

/// What the samples of a stretch must keep to, so that they can be walked without a look at each.
struct StretchLimits
{
    unsigned long long fileSize = 0;  ///< samples lie in front of it
    unsigned maxSampleSize = 0;
    unsigned long long endMillis = 0;  ///< the walk ends at the first step of this time or a later one
};

/// Walks the samples of one track in decode order: those of the movie box's tables, then those of the
/// fragments. In front of the samples of a description stands a header step where the codec needs one, and
/// after them an ender step. A track that is not valid has no steps.
///
/// What contradicts itself throws StreamParseError kTableReadError; the cursor is of no use afterwards. The
/// file must be open where samples lie in fragments, whose runs are loaded while the cursor stands in them.
class TrackCursor
{
public:
    /// At the start of the track.
    explicit TrackCursor(TrackInfo& track);
    /// Where another cursor of the track stood.
    TrackCursor(TrackInfo& track, const TrackPosition& position);

    TrackInfo& track() const { return *m_track; }
    const TrackPosition& position() const { return m_pos; }
    bool isHeader() const { return m_pos.headerPending; }
    bool isEnder() const { return m_pos.enderPending; }
    /// The description of the current sample.
    const SampleEntry& sampleEntry() const { return m_track->sampleDescriptions[m_pos.descriptionIndex - 1]; }

    /// To the next step.
    void advance();
    /// Advances over samples for as long as the steps are plain ones: within a chunk or a run, far from a
    /// gap, and within the limits. take(bytes of the sample) is called for each sample that is passed; false
    /// ends the walk after that sample. What is not plain is left to advance(), with all that it finds;
    /// false when that is the very first step.
    template <typename Take>
    bool walkStretch(const StretchLimits& limits, Take take);

    /// Time of the current step.
    unsigned getTimeMillis() const { return m_millis; }
    /// Composition time of the current sample less its decode time.
    int getCompTimeMillis() const
    {
        return offsetMillis(m_pos.decodeTime, compositionOffset(), m_track->timescale);
    }
    /// Bytes of the current sample.
    unsigned getSampleSize() const;
    /// Sample flags in the layout of ISO/IEC 14496-12.
    unsigned getSampleFlags() const;
    bool atSyncSample() const;
    /// Bytes that the current sample's message has in front of the payload, at most.
    unsigned getHeaderBytes() const
    {
        const unsigned bytes = kSampleTypes[m_pos.sampleType].headerSize;
        return m_pos.encrypted ? bytes + kPreambleRoom + m_track->drm.ivLength : bytes;
    }
    /// The current type is closed by an ender.
    bool isEnderType() const { return m_pos.typeValid && hasEnder(m_pos.sampleType); }

    bool atEndOfSegment() const { return atLimit() || atEndOfTrack(); }
    bool atEndOfTrack() const
    {
        if (m_pos.headerPending || m_pos.enderPending)
            return false;
        return m_pos.inMovieBox ? m_pos.chunkIndex >= m_track->chunkOffsets.size()
                                : m_pos.fragmentIndex >= m_track->fragments.size();
    }
    /// The segment ends where end stands, a later position in the same track. The step that ends it is
    /// counted but not looked at, as only the next segment has what that may read: at the limit the position
    /// means no more than the count.
    void setLimit(const TrackPosition& end);

    /// Bytes of the table entries that the cursor has passed.
    unsigned long long getTableSizeRead() const;

    /// The fragment and the run that the cursor stands in; reported when there is none.
    TrackFragment* getCurFrag() const;
    const TrackFragmentRun* getCurRun() const;
    /// Releases the runs of the fragment that the cursor stands in.
    void releaseFragment();

private:
    bool atLimit() const { return m_limited && m_pos.stepCount == m_limit; }
    unsigned stepsInStretch() const;
    template <bool kHasExtras, typename Take>
    void walkTables(unsigned steps, const StretchLimits& limits, Take& take);
    template <typename Take>
    void walkRun(unsigned steps, const StretchLimits& limits, Take& take);
    void advanceSlowly();
    void subAdvance();
    unsigned timeToSampleDelta() const;
    unsigned runDelta(const TrackFragmentRun& current) const;
    void stepTimeToSample(unsigned delta);
    void stepComposition();
    void stepSample();
    void finishMoov();
    void correctCursorToValidSample();
    bool correctToNextPopulatedRun(TrackFragment& fragment);
    void updateSampleEntry();
    void initEditEntry();
    bool hasFurtherGap() const;
    void findNextGap();
    void checkForGap();
    void updateMillis() { m_millis = toMillis(m_pos.decodeTime, m_track->timescale); }
    int compositionOffset() const;
    const TrackFragmentRun& run() const
    {
        if (m_runFragment != m_pos.fragmentIndex || m_runIndex != m_pos.runIndex)
            takeRun();
        return m_run;
    }
    void takeRun() const;
    [[noreturn]] static void throwTableError();

    static constexpr unsigned long long kNoGap = ~0ULL;
    static constexpr unsigned kNegativeDelta = 0x80000000U;  ///< from there on a delta counts as 0
    static constexpr long long kGapMediaTime = -1;
    /// Of the flags in a run only these count.
    static constexpr unsigned kFragmentFlags = 0xFFFF0000U;

    TrackPosition m_pos;
    TrackInfo* m_track;
    unsigned m_millis = 0;
    bool m_limited = false;
    unsigned m_limit = 0;
    unsigned long long m_gapStart = kNoGap;  ///< media time of the next gap

    // The run that is walked. Its arrays are shared, so that they outlive the fragment's release.
    mutable TrackFragmentRun m_run;
    mutable unsigned m_runFragment = ~0U;  ///< fragment and index of m_run
    mutable unsigned m_runIndex = 0;
};

/// A kept Mp4Cursor: the boundary between two segments.
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

    CursorState save() const;

    /// Null at the end.
    TrackCursor* getActiveTrack()
    {
        return m_active < 0 ? nullptr : &m_tracks[static_cast<std::size_t>(m_active)];
    }
    /// Moves the active track on. At the end throws kTableReadError.
    void advance();
    /// Walks a stretch of the active track, up to where another track goes first. The limits' time is set
    /// here. False when the active track's next step is none of a stretch.
    template <typename Take>
    bool walkStretch(StretchLimits limits, Take take);
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
    unsigned long long getTableSizeRead() const;

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

    Key keyOf(std::size_t track) const;
    Key rivalOf(std::size_t track) const;
    void updateTrack(std::size_t track);
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

inline unsigned TrackCursor::getSampleSize() const
{
    if (m_pos.inMovieBox)
        return m_track->constantSampleSize != 0 ? m_track->constantSampleSize
                                                : m_track->sampleSizes[m_pos.sampleNumber];
    const TrackFragmentRun& current = run();
    const unsigned* sizes = current.column(TrackFragmentRun::kSize);
    return sizes ? sizes[m_pos.sampleInRun] : m_track->fragments[m_pos.fragmentIndex].header().defaultSize;
}

inline unsigned TrackCursor::getSampleFlags() const
{
    if (m_pos.inMovieBox)
        return m_track->sampleFlags.isInit() ? unsigned{m_track->sampleFlags[m_pos.sampleNumber]} << 20 : 0;
    const TrackFragmentRun& current = run();
    const unsigned* flags = current.column(TrackFragmentRun::kFlags);
    return flags ? flags[m_pos.sampleInRun] & kFragmentFlags
                 : m_track->fragments[m_pos.fragmentIndex].header().defaultFlags;
}

inline bool TrackCursor::atSyncSample() const
{
    if (m_pos.inMovieBox)
        return m_pos.syncIndex < m_track->syncSamples.size() &&
               m_track->syncSamples[m_pos.syncIndex] - 1 == m_pos.sampleNumber;
    constexpr unsigned kIsNonSyncSample = 0x10000;
    return (getSampleFlags() & kIsNonSyncSample) == 0;
}

inline int TrackCursor::compositionOffset() const
{
    if (m_pos.inMovieBox)
        return m_track->compositionOffsets.size() == 0
                   ? 0
                   : static_cast<int>(m_track->compositionOffsets[m_pos.compositionIndex].offset);
    const TrackFragmentRun& current = run();
    const unsigned* offsets = current.column(TrackFragmentRun::kCompositionOffset);
    return offsets ? static_cast<int>(offsets[m_pos.sampleInRun]) : 0;
}

template <typename Take>
bool TrackCursor::walkStretch(const StretchLimits& limits, Take take)
{
    const unsigned steps = stepsInStretch();
    if (steps == 0)
        return false;
    const unsigned before = m_pos.stepCount;
    if (m_pos.inMovieBox) {
        const bool hasExtras =
            m_track->compositionOffsets.size() != 0 || m_pos.syncIndex < m_track->syncSamples.size();
        hasExtras ? walkTables<true>(steps, limits, take) : walkTables<false>(steps, limits, take);
    } else
        walkRun(steps, limits, take);
    return m_pos.stepCount != before;
}

/// The tables are read past their range checks: each index is compared with what the current page holds.
/// Extras are composition offsets and sync samples, which most tracks do not have; where tracks take turns,
/// all that is made ready for a single step counts.
template <bool kHasExtras, typename Take>
void TrackCursor::walkTables(unsigned steps, const StretchLimits& limits, Take& take)
{
    const TableView<TimeToSample> times(m_track->timeToSample);
    const TableView<CompositionOffset> offsets(m_track->compositionOffsets);
    const TableView<unsigned> syncs(m_track->syncSamples);
    const TableView<unsigned> sizes(m_track->sampleSizes);
    const unsigned constantSize = m_track->constantSampleSize;
    const bool oneTime = m_track->timeToSample.size() == 1;
    const bool hasOffsets = kHasExtras && m_track->compositionOffsets.size() != 0;
    const unsigned timescale = m_track->timescale;

    TrackPosition& pos = m_pos;
    for (bool more = true; more && steps > 0; --steps) {
        if (!times.holds(pos.timeToSampleIndex) || (hasOffsets && !offsets.holds(pos.compositionIndex)) ||
            (kHasExtras && pos.syncIndex < m_track->syncSamples.size() && !syncs.holds(pos.syncIndex)))
            break;
        const TimeToSample& time = times[pos.timeToSampleIndex];
        const unsigned delta = time.delta < kNegativeDelta ? time.delta : 0;
        const unsigned size = constantSize != 0 ? constantSize : sizes[pos.sampleNumber];
        if (pos.mediaTime + delta >= m_gapStart || pos.fileOffset > limits.fileSize ||
            size > limits.fileSize - pos.fileOffset || size > limits.maxSampleSize)
            break;
        more = take(size);

        pos.fileOffset += size;
        if (kHasExtras && syncs.holds(pos.syncIndex) && syncs[pos.syncIndex] - 1 == pos.sampleNumber)
            ++pos.syncIndex;
        pos.decodeTime += delta;
        pos.mediaTime += delta;
        if (!oneTime && ++pos.timeToSampleCount >= time.count) {
            ++pos.timeToSampleIndex;
            pos.timeToSampleCount = 0;
        }
        if (hasOffsets && ++pos.compositionCount >= offsets[pos.compositionIndex].count) {
            ++pos.compositionIndex;
            pos.compositionCount = 0;
        }
        ++pos.sampleNumber;
        ++pos.sampleInChunk;
        ++pos.stepCount;
        m_millis = toMillis(pos.decodeTime, timescale);
        more = more && m_millis < limits.endMillis;
    }
}

template <typename Take>
void TrackCursor::walkRun(unsigned steps, const StretchLimits& limits, Take& take)
{
    const TrackFragmentRun& current = run();
    const TrackFragmentHeader& header = m_track->fragments[m_pos.fragmentIndex].header();
    const unsigned* const durations = current.column(TrackFragmentRun::kDuration);
    const unsigned* const sizes = current.column(TrackFragmentRun::kSize);
    const unsigned timescale = m_track->timescale;

    TrackPosition& pos = m_pos;
    for (bool more = true; more && steps > 0; --steps) {
        const unsigned delta = durations ? durations[pos.sampleInRun] : header.defaultDuration;
        const unsigned size = sizes ? sizes[pos.sampleInRun] : header.defaultSize;
        if (pos.mediaTime + delta >= m_gapStart || pos.fileOffset > limits.fileSize ||
            size > limits.fileSize - pos.fileOffset || size > limits.maxSampleSize)
            break;
        more = take(size);

        pos.fileOffset += size;
        pos.decodeTime += delta;
        pos.mediaTime += delta;
        ++pos.sampleInRun;
        ++pos.stepCount;
        m_millis = toMillis(pos.decodeTime, timescale);
        more = more && m_millis < limits.endMillis;
    }
}

template <typename Take>
bool Mp4Cursor::walkStretch(StretchLimits limits, Take take)
{
    if (m_active < 0)
        return false;
    const auto track = static_cast<std::size_t>(m_active);
    bool more = true;
    const auto takeOne = [&](unsigned size) { return more = take(size); };
    // Where tracks take turns, one step is all there is.
    limits.endMillis = 0;
    if (!m_tracks[track].walkStretch(limits, takeOne))
        return false;
    updateTrack(track);
    if (more && m_active == static_cast<int>(track)) {
        // Where both stand at the same time, the track of the smaller number goes first.
        const Key rival = rivalOf(track);
        limits.endMillis =
            rival == kEnded ? kEnded : (rival >> kTimeShift) + ((rival & kTrackMask) > track ? 1 : 0);
        if (m_tracks[track].walkStretch(limits, takeOne))
            updateTrack(track);
    }
    return true;
}

/// Calls function with the seven tables of a track.
template <typename Function>
void applyTables(TrackInfo& track, Function function)
{
    function(track.sampleToChunk);
    function(track.sampleSizes);
    function(track.chunkOffsets);
    function(track.timeToSample);
    function(track.compositionOffsets);
    function(track.syncSamples);
    function(track.sampleFlags);
}

}  // namespace krx::mp4
