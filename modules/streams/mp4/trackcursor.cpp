// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/trackcursor.h"

#include "modules/streams/finding.h"
#include "util/krxassert.h"

#include <algorithm>
#include <utility>

namespace krx::mp4 {
namespace {

constexpr char kTrackCursorPlace[] = "modules/streams/mp4/mp4Data";
constexpr int kLimitLine = 486;

constexpr unsigned long long kFarTime = 1ULL << 62;

/// Samples that are passed together.
constexpr unsigned kSampleBatch = 4;

/// Samples whose times are looked at before their sizes. A run may have millions of samples and segments.
constexpr unsigned long long kMostAhead = 4096;

}  // namespace

SampleType playedTypeOf(const TrackInfo& track, const SampleEntry& entry)
{
    const auto isEncryptedType = [](SampleType type) {
        return type == kSampleEncryptedVideo || type == kSampleEncryptedAudio;
    };
    SampleType type = sampleTypeOf(entry.type);
    if (isEncryptedType(type))
        type = sampleTypeOf(track.drm.originalFormat);
    return isEncryptedType(type) ? kSampleUnsupported : type;
}

void TrackCursor::throwTableError()
{
    throw krx::streams::StreamParseError(krx::streams::kTableReadError);
}

TrackCursor::TrackCursor(TrackInfo& track) : m_track(&track)
{
    if (!track.isValid()) {
        m_inMovieBox = false;
        m_runs.leaveAll();
        return;
    }
    m_decodeTime = m_delay = m_edits.begin();
    if (m_chunks.atEnd())
        finishMoov();
    else {
        m_chunks.begin();
        m_fileOffset = m_chunks.offset();
        updateSampleEntry();
    }
    updateMillis();
}

TrackCursor::TrackCursor(TrackInfo& track, const TrackPosition& position) : m_track(&track)
{
    restore(position);
    updateMillis();
}

void TrackCursor::restore(const TrackPosition& position)
{
    m_stretch = Stretch();
    m_decodeTime = position.decodeTime;
    m_delay = position.delay;
    m_fileOffset = position.fileOffset;
    m_stepCount = position.stepCount;
    m_sampleNumber = position.sampleNumber;
    m_inMovieBox = position.inMovieBox;
    m_chunks.restore(position.chunk);
    m_times.restore(position.time);
    m_compositions.restore(position.composition);
    m_syncs.restore(position.sync);
    m_runs.restore(position.run);
    m_edits.restore(position.edit);
    m_description = position.description;
}

void TrackCursor::savePosition(TrackPosition& position)
{
    settle();
    position.decodeTime = m_decodeTime;
    position.delay = m_delay;
    position.fileOffset = m_fileOffset;
    position.stepCount = m_stepCount;
    position.sampleNumber = m_sampleNumber;
    position.inMovieBox = m_inMovieBox;
    position.chunk = m_chunks.state();
    position.time = m_times.state();
    position.composition = m_compositions.state();
    position.sync = m_syncs.state();
    position.run = m_runs.state();
    position.edit = m_edits.state();
    position.description = m_description;
}

TrackPosition TrackCursor::position()
{
    TrackPosition position;
    savePosition(position);
    return position;
}

/// Brings the steppers to where offset and time are.
void TrackCursor::settle()
{
    const unsigned steps = std::exchange(m_stretch.taken, 0);
    if (steps == 0)
        return;
    m_stepCount += steps;
    if (!m_inMovieBox) {
        m_runs.skip(steps);
        return;
    }
    m_syncs.skip(m_sampleNumber, steps);
    m_times.skip(steps);
    m_compositions.skip(steps);
    m_sampleNumber += steps;
    passChunk();
}

/// Brings the stepper of the chunks to where the others are.
void TrackCursor::passChunk()
{
    const unsigned steps = m_stretch.prepared - m_stretch.left;
    m_stretch.prepared = m_stretch.left;
    m_stretch.ahead -= steps;
    if (m_chunks.skip(steps))
        m_fileOffset = m_chunks.offset();
}

/// The next chunk of a stretch for which the other tables are prepared. False when there is none.
bool TrackCursor::prepareChunk()
{
    passChunk();
    m_stretch.left = std::min(m_chunks.stretch(), m_stretch.ahead);
    m_stretch.prepared = m_stretch.left;
    return m_stretch.left != 0;
}

/// Prepares the plain steps from here on. False when the next step is not plain.
bool TrackCursor::prepareStretch()
{
    if (m_inMovieBox && m_stretch.ahead != 0 && prepareChunk())
        return true;
    settle();
    m_stretch.ahead = 0;
    // Times are so small that no sum of a stretch overflows.
    if (sampleType() == kSampleUnsupported || isHeader() || isEnder() || atEndOfTrack() ||
        m_decodeTime >= kFarTime || mediaTime() >= kFarTime)
        return false;
    unsigned steps = m_inMovieBox ? prepareTables() : prepareRun();
    if (m_limited)
        steps = std::min(steps, m_limit - m_stepCount);
    const unsigned left = m_inMovieBox ? std::min(steps, m_chunks.stretch()) : steps;
    if (left == 0)
        return false;
    m_stretch.headerBytes = getHeaderBytes();
    m_stretch.ahead = steps;
    m_stretch.prepared = m_stretch.left = left;
    return true;
}

unsigned TrackCursor::prepareTables()
{
    unsigned steps = std::min({m_times.stretch(), m_compositions.stretch(), m_syncs.stretch(m_sampleNumber)});
    m_stretch.size = m_track->constantSampleSize;
    m_stretch.sizes = WordColumn();
    if (m_stretch.size == 0) {
        steps = std::min(steps, m_track->sampleSizes.entriesFrom(m_sampleNumber));
        if (steps == 0)
            return 0;
        m_stretch.sizes = m_track->sampleSizes.words(m_sampleNumber);
    }
    if (m_track->sampleFlags.isInit())
        steps = std::min(steps, m_track->sampleFlags.entriesFrom(m_sampleNumber));
    if (steps == 0)
        return 0;
    m_stretch.durations = WordColumn();
    m_stretch.duration = m_times.delta();
    return std::min(steps, m_edits.stretch(mediaTime(), m_stretch.duration));
}

unsigned TrackCursor::prepareRun()
{
    const TrackFragmentRun& run = m_runs.run();
    const unsigned sample = m_runs.state().sampleInRun;
    m_stretch.sizes = run.column(TrackFragmentRun::kSize);
    m_stretch.sizes.advance(sample);
    m_stretch.size = m_runs.header().defaultSize;
    m_stretch.durations = run.column(TrackFragmentRun::kDuration);
    m_stretch.durations.advance(sample);
    m_stretch.duration = m_runs.duration();
    unsigned steps = m_runs.stretch();
    // Where durations differ, only a look at each shows when a gap is reached.
    if (m_stretch.durations && m_edits.gapStart() != EditStepper::kNoGap)
        steps = std::min(steps, 1U);
    return std::min(steps, m_edits.stretch(mediaTime(), m_stretch.duration));
}

unsigned TrackCursor::walkStretch(const WalkLimits& limits, WalkTally& tally, unsigned long long endMillis)
{
    const unsigned long long endTime = firstTimeOf(endMillis, m_timescale);
    unsigned walked = 0;
    while (m_decodeTime < endTime && tally.bytes <= tally.maxBytes &&
           (m_stretch.left != 0 || prepareStretch())) {
        const unsigned steps = plainSteps(endTime, std::min(tally.stepsLeft, kMostAhead));
        const unsigned passed = passSamples(steps, limits, tally);
        walked += passed;
        if (passed != steps || steps == 0)
            break;
    }
    m_passedSamples += walked;
    updateMillis();
    return walked;
}

/// Steps of the stretch that begin before endTime.
unsigned TrackCursor::plainSteps(unsigned long long endTime, unsigned long long most) const
{
    auto steps = static_cast<unsigned>(std::min<unsigned long long>(m_stretch.left, most));
    if (!m_stretch.durations) {
        if (m_stretch.duration != 0 && endTime - m_decodeTime < 1ULL * steps * m_stretch.duration)
            steps = static_cast<unsigned>((endTime - m_decodeTime - 1) / m_stretch.duration + 1);
        return steps;
    }
    unsigned long long time = m_decodeTime;
    for (unsigned i = 0; i < steps; ++i) {
        if (time >= endTime)
            return i;
        time += m_stretch.durations[i];
    }
    return steps;
}

/// Passes samples of the stretch, at most steps, and returns how many.
unsigned TrackCursor::passSamples(unsigned steps, const WalkLimits& limits, WalkTally& tally)
{
    if (m_fileOffset > limits.fileSize)
        return 0;
    const unsigned long long room = limits.fileSize - m_fileOffset;
    const unsigned long long roomInTally = tally.maxBytes - tally.bytes;
    unsigned long long bytes = 0;
    unsigned passed = 0;
    if (m_stretch.sizes) {
        passed = countSizes(steps, limits.maxSampleSize, room, roomInTally, bytes);
        m_stretch.sizes.advance(passed);
    } else if (m_stretch.size <= limits.maxSampleSize) {
        passed = steps;
        if (m_stretch.size != 0)
            passed = static_cast<unsigned>(std::min<unsigned long long>(passed, room / m_stretch.size));
        if (const unsigned message = m_stretch.size + m_stretch.headerBytes)
            passed = static_cast<unsigned>(std::min<unsigned long long>(passed, roomInTally / message + 1));
        bytes = 1ULL * passed * m_stretch.size;
    }
    m_fileOffset += bytes;
    tally.bytes += bytes + 1ULL * passed * m_stretch.headerBytes;
    tally.stepsLeft -= passed;
    takeSteps(passed);
    return passed;
}

/// Counts the next samples that are no larger than maxSize and fit into room bytes, up to the one whose
/// message exceeds the room in the tally. bytes becomes the sum of their sizes.
unsigned TrackCursor::countSizes(unsigned steps, unsigned maxSize, unsigned long long room,
                                 unsigned long long roomInTally, unsigned long long& bytes) const
{
    WordColumn sizes = m_stretch.sizes;
    const unsigned headerBytes = m_stretch.headerBytes;
    unsigned passed = 0;
    unsigned long long messages = 0;
    // Samples that fit together are not looked at one by one.
    for (; steps - passed >= kSampleBatch; passed += kSampleBatch) {
        unsigned long long batch = 0;
        for (unsigned i = 0; i < kSampleBatch; ++i)
            batch += sizes[i];
        const unsigned long long after = messages + batch + 1ULL * kSampleBatch * headerBytes;
        if (batch > maxSize || batch > room - bytes || after > roomInTally)
            break;
        bytes += batch;
        messages = after;
        sizes.advance(kSampleBatch);
    }
    for (; passed != steps && messages <= roomInTally; ++passed) {
        const unsigned size = sizes[0];
        if (size > maxSize || size > room - bytes)
            break;
        bytes += size;
        messages += size + headerBytes;
        sizes.advance(1);
    }
    return passed;
}

/// Moves the time, and counts the steps.
void TrackCursor::takeSteps(unsigned steps)
{
    if (m_stretch.durations) {
        for (unsigned i = 0; i < steps; ++i)
            m_decodeTime += m_stretch.durations[i];
        m_stretch.durations.advance(steps);
    } else
        m_decodeTime += 1ULL * steps * m_stretch.duration;
    m_stretch.left -= steps;
    m_stretch.taken += steps;
}

void TrackCursor::advance()
{
    if (atEndOfSegment())
        throwTableError();
    if (m_stretch.left != 0 || prepareStretch()) {
        passSample(m_stretch.sizes ? m_stretch.sizes[0] : m_stretch.size);
        ++m_passedSamples;
        return;
    }
    ++m_stepCount;
    // The walk ends here, and the step may need tables of the next page.
    if (atLimit())
        return;
    if (isHeader())
        m_description.headerPending = false;
    else
        advanceSlowly();
}

/// A step after which the description may be closed. Then the ender comes first, and stands at the sample
/// before it.
void TrackCursor::advanceSlowly()
{
    if (isEnder()) {
        m_description.enderPending = false;
        subAdvance();
        m_description.enderPending = false;
    } else {
        const TrackPosition before = position();
        subAdvance();
        if (isEnder()) {
            restore(before);
            --m_passedSamples;
            m_description.enderPending = true;
        }
    }
    updateMillis();
}

void TrackCursor::subAdvance()
{
    m_fileOffset += getSampleSize();
    m_inMovieBox ? stepTables() : stepRun();
    checkForGap();
}

void TrackCursor::stepTables()
{
    m_syncs.step(m_sampleNumber);
    m_compositions.step();
    m_decodeTime += m_times.delta();
    m_times.step();
    ++m_sampleNumber;
    ++m_passedSamples;
    switch (m_chunks.step()) {
        case ChunkStepper::kSameChunk:
            return;
        case ChunkStepper::kEnd:
            finishMoov();
            return;
        case ChunkStepper::kNextChunk:
            m_fileOffset = m_chunks.offset();
            return;
        case ChunkStepper::kNextRun:
            m_fileOffset = m_chunks.offset();
            updateSampleEntry();
    }
}

void TrackCursor::stepRun()
{
    m_decodeTime += m_runs.duration();
    m_runs.step();
    ++m_passedSamples;
    enterFragment(m_runs.findSample());
}

/// From the tables of the movie box to the fragments.
void TrackCursor::finishMoov()
{
    m_inMovieBox = false;
    enterFragment(m_runs.findSample());
}

void TrackCursor::enterFragment(FragmentStepper::Arrival arrival)
{
    if (arrival == FragmentStepper::kSameRun || arrival == FragmentStepper::kEnd)
        return;
    m_fileOffset = m_runs.offset();
    if (arrival == FragmentStepper::kNextFragment)
        updateSampleEntry();
}

/// Takes the description of the current sample again. Where it changes, or must be sent anew after a gap, the
/// old one is closed and the new one opened by steps of their own.
void TrackCursor::updateSampleEntry()
{
    const unsigned index = m_inMovieBox ? m_chunks.descriptionIndex() : m_runs.header().descriptionIndex;
    if (index < 1 || index > m_track->sampleDescriptions.size())
        throwTableError();
    if (m_description.typeValid && index == m_description.descriptionIndex)
        return;
    if (isEnderType())
        m_description.enderPending = true;

    m_description.descriptionIndex = index;
    const SampleType type = playedTypeOf(*m_track, sampleEntry());
    const SampleType entryType = sampleTypeOf(sampleEntry().type);
    m_description.encrypted = entryType == kSampleEncryptedVideo || entryType == kSampleEncryptedAudio;
    m_description.sampleType = type;
    m_description.headerPending = hasDecoderHeader(type);
    m_description.typeValid = true;
}

/// Closes the description at the end of the track and where a gap of the edit list begins. The gap delays the
/// samples after it.
void TrackCursor::checkForGap()
{
    if (atEndOfTrack()) {
        if (m_edits.hasFurtherGap())
            throwTableError();
        if (!m_track->last && isEnderType())
            m_description.enderPending = true;
        return;
    }
    if (mediaTime() < m_edits.gapStart() || !m_edits.hasFurtherGap())
        return;
    if (isEnderType())
        m_description.enderPending = true;
    const unsigned long long delay = m_edits.pass(mediaTime());
    m_decodeTime += delay;
    m_delay += delay;
    m_description.typeValid = false;
    updateSampleEntry();
}

void TrackCursor::addPlace(krx::streams::Place& place) const
{
    if (place.track == 0)
        place.track = m_track->trackId;
    if (place.sample == 0)
        place.sample = static_cast<long long>(m_passedSamples) + (atEndOfTrack() ? 0 : 1);
    if (place.time < 0)
        place.time = toMillis(m_decodeTime, m_timescale);
}

void TrackCursor::setLimit(const TrackPosition& end)
{
    settle();
    m_stretch = Stretch();
    if (m_stepCount > end.stepCount)
        krx::util::assertFailed(kTrackCursorPlace, kLimitLine);
    m_limited = true;
    m_limit = end.stepCount;
}

int TrackCursor::getCompTimeMillis()
{
    settle();
    const int offset = m_inMovieBox ? m_compositions.offset() : m_runs.compositionOffset();
    return offsetMillis(m_decodeTime, offset, m_track->timescale);
}

unsigned long long TrackCursor::getFileOffset()
{
    settle();
    return m_fileOffset;
}

unsigned TrackCursor::getSampleSize()
{
    settle();
    if (!m_inMovieBox)
        return m_runs.size();
    return m_track->constantSampleSize != 0 ? m_track->constantSampleSize
                                            : m_track->sampleSizes[m_sampleNumber];
}

unsigned TrackCursor::getSampleFlags()
{
    // Of the flags in a run only these count.
    constexpr unsigned kFragmentFlags = 0xFFFF0000U;
    settle();
    if (m_inMovieBox)
        return m_track->sampleFlags.isInit() ? unsigned{m_track->sampleFlags[m_sampleNumber]} << 20 : 0;
    const TrackFragmentRun& run = m_runs.run();
    return run.column(TrackFragmentRun::kFlags) ? m_runs.flags() & kFragmentFlags : m_runs.flags();
}

bool TrackCursor::atSyncSample()
{
    settle();
    if (m_inMovieBox)
        return m_syncs.isSync(m_sampleNumber);
    constexpr unsigned kIsNonSyncSample = 0x10000;
    return (getSampleFlags() & kIsNonSyncSample) == 0;
}

unsigned long long TrackCursor::getTableSizeRead()
{
    settle();
    unsigned long long bytes = 12ULL * m_chunks.state().sampleToChunkIndex +
                               8ULL * m_chunks.state().chunkIndex + 8ULL * m_times.state().index +
                               8ULL * m_compositions.state().index + 4ULL * m_syncs.state().index;
    if (m_track->sampleSizes.isInit())
        bytes += 4ULL * m_sampleNumber;
    if (m_track->sampleFlags.isInit())
        bytes += m_sampleNumber;
    return bytes;
}

TrackFragment* TrackCursor::getCurFrag()
{
    settle();
    return m_runs.currentFragment();
}

const TrackFragmentRun* TrackCursor::getCurRun()
{
    settle();
    return m_runs.currentRun();
}

void TrackCursor::releaseFragment()
{
    settle();
    m_runs.release();
}

}  // namespace krx::mp4
