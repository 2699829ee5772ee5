// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4time.h"
#include "modules/streams/mp4/sampletype.h"
#include "modules/streams/mp4/steppers/chunks.h"
#include "modules/streams/mp4/steppers/edits.h"
#include "modules/streams/mp4/steppers/runlength.h"
#include "modules/streams/mp4/steppers/runs.h"
#include "modules/streams/mp4/steppers/syncs.h"
#include "modules/streams/mp4/trackinfo.h"

namespace krx::streams {
struct Place;
}

namespace krx::mp4 {

/// The type that samples of the entry have in messages: of encrypted ones, that of what was encrypted.
/// kSampleUnsupported for those that make no messages.
SampleType playedTypeOf(const TrackInfo& track, const SampleEntry& entry);

/// The description of the samples at a position, and which header or ender step comes before the next one.
struct DescriptionState
{
    unsigned descriptionIndex = 0;  ///< 1-based
    SampleType sampleType = kSampleUnsupported;
    bool typeValid = false;
    bool encrypted = false;
    bool headerPending = false;  ///< the step is the decoder configuration
    bool enderPending = false;   ///< the step is the end-of-sequence message

    template <typename Self, typename Other, typename Function>
    static void visit(Self& self, Other& other, Function function)
    {
        function(self.descriptionIndex, other.descriptionIndex);
        function(self.sampleType, other.sampleType);
        function(self.typeValid, other.typeValid);
        function(self.encrypted, other.encrypted);
        function(self.headerPending, other.headerPending);
        function(self.enderPending, other.enderPending);
    }
    friend bool operator==(const DescriptionState&, const DescriptionState&) = default;
};

/// Where a track cursor stands: the states of its steppers. Plain and compact, so that the boundaries between
/// segments can be kept. Times are in the track's timescale. sampleNumber counts the samples of the movie
/// box; later ones are named by fragment, run and sample in the run.
struct TrackPosition
{
    unsigned long long decodeTime = 0;  ///< with the delay
    unsigned long long delay = 0;       ///< by the gaps of the edit list so far; may wrap
    unsigned long long fileOffset = 0;  ///< of the current sample
    unsigned stepCount = 0;             ///< samples, headers and enders so far
    unsigned sampleNumber = 0;
    bool inMovieBox = true;
    ChunkStepper::State chunk;
    TimeStepper::State time;
    CompositionStepper::State composition;
    SyncStepper::State sync;
    FragmentStepper::State run;
    EditStepper::State edit;
    DescriptionState description;

    /// Without the delay.
    unsigned long long mediaTime() const { return decodeTime - delay; }

    /// Calls function with every number and its counterpart in another position, those that change from
    /// boundary to boundary first.
    template <typename Self, typename Other, typename Function>
    static void visit(Self& self, Other& other, Function function)
    {
        function(self.decodeTime, other.decodeTime);
        function(self.stepCount, other.stepCount);
        function(self.sampleNumber, other.sampleNumber);
        function(self.fileOffset, other.fileOffset);
        ChunkStepper::State::visit(self.chunk, other.chunk, function);
        TimeStepper::State::visit(self.time, other.time, function);
        CompositionStepper::State::visit(self.composition, other.composition, function);
        SyncStepper::State::visit(self.sync, other.sync, function);
        FragmentStepper::State::visit(self.run, other.run, function);
        function(self.delay, other.delay);
        function(self.inMovieBox, other.inMovieBox);
        EditStepper::State::visit(self.edit, other.edit, function);
        DescriptionState::visit(self.description, other.description, function);
    }
    friend bool operator==(const TrackPosition&, const TrackPosition&) = default;
};

/// What samples must keep to in order to be passed without making messages.
struct WalkLimits
{
    unsigned long long fileSize = 0;  ///< samples end before or at it
    unsigned maxSampleSize = 0;
};

/// What a walk has passed, and how far it may go.
struct WalkTally
{
    unsigned long long bytes = 0;      ///< of messages
    unsigned long long maxBytes = 0;   ///< the walk ends after the sample that exceeds them
    unsigned long long stepsLeft = 0;  ///< that the walk may take
};

/// Walks the samples of one track in decode order: those of the movie box's tables, then those of the
/// fragments. Where the codec needs them, a header step comes before the samples of a description and an
/// ender step after them. A track that is not valid has no steps.
///
/// Contradictions throw StreamParseError kTableReadError; the cursor is of no use afterwards. For samples in
/// fragments the file must be open: runs are loaded while the cursor stands in them.
///
/// Most steps are plain: samples in a row, whose number the tables give at once. They are prepared as a
/// stretch. During a stretch only offset and time move; the steppers follow at its end, or when their state
/// is needed.
class TrackCursor
{
public:
    /// At the start of the track.
    explicit TrackCursor(TrackInfo& track);
    /// Where another cursor of the track stood.
    TrackCursor(TrackInfo& track, const TrackPosition& position);

    TrackInfo& track() const { return *m_track; }
    TrackPosition position();
    void savePosition(TrackPosition& position);
    bool isHeader() const { return m_description.headerPending; }
    bool isEnder() const { return m_description.enderPending; }
    SampleType sampleType() const { return m_description.sampleType; }
    bool isEncrypted() const { return m_description.encrypted; }
    unsigned descriptionIndex() const { return m_description.descriptionIndex; }
    /// The description of the current sample.
    const SampleEntry& sampleEntry() const
    {
        return m_track->sampleDescriptions[m_description.descriptionIndex - 1];
    }

    /// To the next step.
    void advance();
    /// Passes one sample if the step is plain and the sample keeps to the limits. Else returns false: the
    /// step, with its faults, is left to advance().
    bool walkStep(const WalkLimits& limits, WalkTally& tally);
    /// The same for all samples up to the first one at endMillis or later. Returns how many it passed.
    unsigned walkStretch(const WalkLimits& limits, WalkTally& tally, unsigned long long endMillis);
    /// Samples that this cursor has passed, those in fragments included.
    unsigned passedSamples() const { return m_passedSamples; }
    /// Adds track, sample and time of the current step to the place, unless they are set. After a failure,
    /// these are those of the sample at which the step failed.
    void addPlace(krx::streams::Place& place) const;

    /// Time of the current step.
    unsigned getTimeMillis() const { return m_millis; }
    /// Decode time of the current sample, and how much of it is delay by the gaps of the edit list; may wrap.
    unsigned long long decodeTime() const { return m_decodeTime; }
    unsigned long long delay() const { return m_delay; }
    /// Composition time of the current sample less its decode time.
    int getCompTimeMillis();
    /// Where the current sample lies in the file.
    unsigned long long getFileOffset();
    /// Bytes of the current sample.
    unsigned getSampleSize();
    /// Sample flags in the layout of ISO/IEC 14496-12.
    unsigned getSampleFlags();
    bool atSyncSample();
    /// Bytes that the current sample's message has in front of the payload, at most.
    unsigned getHeaderBytes() const
    {
        const unsigned bytes = kSampleTypes[sampleType()].headerSize;
        return isEncrypted() ? bytes + kPreambleRoom + m_track->drm.ivLength : bytes;
    }
    /// The current type is closed by an ender.
    bool isEnderType() const { return m_description.typeValid && hasEnder(sampleType()); }

    bool atEndOfSegment() const { return atLimit() || atEndOfTrack(); }
    bool atEndOfTrack() const
    {
        // No step of a stretch leads there.
        if (m_stretch.taken != 0 || isHeader() || isEnder())
            return false;
        return m_inMovieBox ? m_chunks.atEnd() : m_runs.atEnd();
    }
    /// The segment ends at end, a later position in the same track. The last step is counted but not made,
    /// since what it may read belongs to the next segment. At the limit only the count of the position has a
    /// meaning.
    void setLimit(const TrackPosition& end);

    /// Bytes of the table entries that the cursor has passed.
    unsigned long long getTableSizeRead();

    /// The fragment and the run that the cursor stands in; reported when there is none.
    TrackFragment* getCurFrag();
    const TrackFragmentRun* getCurRun();
    /// Releases the runs of the fragment that the cursor stands in.
    void releaseFragment();

private:
    /// Steps that are prepared.
    struct Stretch
    {
        unsigned left = 0;   ///< of these, up to the end of the chunk
        unsigned ahead = 0;  ///< that all tables but those of the chunks allow, from where left was prepared
        unsigned prepared = 0;  ///< what left was then
        unsigned taken = 0;     ///< which the steppers do not know of
        WordColumn sizes;       ///< of the samples that are left; none where all have the same
        WordColumn durations;   ///< likewise
        unsigned size = 0;
        unsigned duration = 0;
        unsigned headerBytes = 0;
    };

    bool atLimit() const { return m_limited && m_stepCount + m_stretch.taken == m_limit; }
    void restore(const TrackPosition& position);
    bool prepareStretch();
    bool prepareChunk();
    void passChunk();
    unsigned prepareTables();
    unsigned prepareRun();
    void passSample(unsigned size);
    unsigned plainSteps(unsigned long long endTime, unsigned long long most) const;
    unsigned passSamples(unsigned steps, const WalkLimits& limits, WalkTally& tally);
    unsigned countSizes(unsigned steps, unsigned maxSize, unsigned long long room,
                        unsigned long long roomInTally, unsigned long long& bytes) const;
    void takeSteps(unsigned steps);
    void settle();
    void advanceSlowly();
    void subAdvance();
    void stepTables();
    void stepRun();
    void finishMoov();
    void enterFragment(FragmentStepper::Arrival arrival);
    void updateSampleEntry();
    void checkForGap();
    unsigned long long mediaTime() const { return m_decodeTime - m_delay; }
    void updateMillis() { m_millis = toMillis(m_decodeTime, m_timescale); }
    [[noreturn]] static void throwTableError();

    TrackInfo* m_track;

    // What a plain step reads and writes stands together.
    Stretch m_stretch;
    unsigned long long m_decodeTime = 0;
    unsigned long long m_delay = 0;
    unsigned long long m_fileOffset = 0;  ///< stale at the end of a stretch, until it is settled
    double m_timescale = m_track->timescale;
    unsigned m_millis = 0;
    unsigned m_stepCount = 0;
    unsigned m_sampleNumber = 0;
    unsigned m_passedSamples = 0;
    unsigned m_limit = 0;
    bool m_limited = false;
    bool m_inMovieBox = true;

    DescriptionState m_description;
    ChunkStepper m_chunks{*m_track};
    TimeStepper m_times{m_track->timeToSample};
    CompositionStepper m_compositions{m_track->compositionOffsets};
    SyncStepper m_syncs{m_track->syncSamples};
    FragmentStepper m_runs{m_track->fragments};
    EditStepper m_edits{m_track->editList.get()};
};

/// A plain step.
inline void TrackCursor::passSample(unsigned size)
{
    m_fileOffset += size;
    m_decodeTime += m_stretch.durations ? m_stretch.durations[0] : m_stretch.duration;
    m_stretch.durations.advance(1);
    m_stretch.sizes.advance(1);
    --m_stretch.left;
    ++m_stretch.taken;
    updateMillis();
}

inline bool TrackCursor::walkStep(const WalkLimits& limits, WalkTally& tally)
{
    if (m_stretch.left == 0 && !prepareStretch())
        return false;
    const unsigned size = m_stretch.sizes ? m_stretch.sizes[0] : m_stretch.size;
    if (tally.stepsLeft == 0 || size > limits.maxSampleSize || m_fileOffset > limits.fileSize ||
        size > limits.fileSize - m_fileOffset)
        return false;
    passSample(size);
    tally.bytes += size + m_stretch.headerBytes;
    --tally.stepsLeft;
    ++m_passedSamples;
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
