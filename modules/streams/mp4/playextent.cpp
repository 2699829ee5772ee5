// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/playextent.h"

#include "modules/streams/mp4/mp4.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "modules/streams/mp4/trackcursor.h"
#include "modules/streams/mp4/walkbudget.h"
#include "util/fileholes.h"

#include <limits>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;
using krx::util::FileHoles;

constexpr unsigned long long kEverywhere = std::numeric_limits<unsigned long long>::max();
constexpr unsigned kAnySize = std::numeric_limits<unsigned>::max();

/// Samples that are passed before the next look at whether to go on. Their bytes are below kAnyBytes.
constexpr unsigned kWalkBatch = 8192;
constexpr unsigned long long kAnyBytes = 1ULL << 62;

/// Steps through one track.
class ExtentWalk
{
public:
    /// holes: null for none.
    ExtentWalk(TrackInfo& track, long long fileSize, FileHoles* holes, WalkBudget& budget)
        : m_cursor(track),
          m_delay(m_cursor.delay()),
          m_isEmpty(m_cursor.atEndOfTrack()),
          m_firstMillis(m_cursor.getTimeMillis()),
          m_fileSize(static_cast<unsigned long long>(fileSize)),
          m_holes(holes),
          m_budget(budget)
    {
    }
    ~ExtentWalk() { m_cursor.releaseFragment(); }
    ExtentWalk(const ExtentWalk&) = delete;
    ExtentWalk& operator=(const ExtentWalk&) = delete;

    bool atEnd() const { return m_cursor.atEndOfTrack(); }
    /// Passes a stretch of samples, or makes one step.
    void step()
    {
        const bool looksAtEach = m_holes && !m_playsUntil;
        if (!looksAtEach && passStretch())
            return;
        m_budget.charge();
        const bool isSample = !m_cursor.isHeader() && !m_cursor.isEnder();
        if (isSample && !m_playsUntil && isMissing())
            m_playsUntil = passedMillis();
        // A header comes after the gap that delays its sample.
        if (!m_cursor.isHeader())
            m_delay = m_cursor.delay();
        m_cursor.advance();
    }
    /// Also after a step has failed.
    void tell(TrackExtent& extent) const
    {
        extent.samples = m_cursor.passedSamples();
        if (m_isEmpty)
            return;
        extent.firstTime = m_firstMillis;
        if (extent.samples != 0)
            extent.lastTime = passedMillis();
        if (makesMessages(m_cursor.track()))
            extent.playsUntil = m_playsUntil.value_or(passedMillis());
    }

private:
    bool passStretch()
    {
        const WalkLimits limits{m_playsUntil ? kEverywhere : m_fileSize, kAnySize};
        const unsigned long long most = std::min<unsigned long long>(m_budget.left(), kWalkBatch);
        WalkTally tally{0, kAnyBytes, most};
        if (m_cursor.walkStretch(limits, tally, kEverywhere) == 0)
            return false;
        m_budget.charge(most - tally.stepsLeft);
        m_delay = m_cursor.delay();
        return true;
    }
    bool isMissing()
    {
        if (m_cursor.sampleType() == kSampleUnsupported)
            return false;
        const unsigned long long offset = m_cursor.getFileOffset();
        const unsigned size = m_cursor.getSampleSize();
        if (offset > m_fileSize || size > m_fileSize - offset)
            return true;
        return m_holes && !m_holes->isData(static_cast<long long>(offset), size);
    }
    /// End of the samples that are passed, without a gap after them.
    unsigned passedMillis() const
    {
        return toMillis(m_cursor.decodeTime() - m_cursor.delay() + m_delay, m_cursor.track().timescale);
    }

    TrackCursor m_cursor;
    unsigned long long m_delay;  ///< of the sample before the current one
    bool m_isEmpty;
    unsigned m_firstMillis;
    std::optional<unsigned> m_playsUntil;  ///< none until a sample is missing
    unsigned long long m_fileSize;
    FileHoles* m_holes;
    WalkBudget& m_budget;
};

}  // namespace

bool makesMessages(const TrackInfo& track)
{
    const SampleDescriptions& entries = track.sampleDescriptions;
    for (std::size_t i = 0; i < entries.size(); ++i)
        if (playedTypeOf(track, entries[i]) != kSampleUnsupported)
            return true;
    return false;
}

PlayExtent::PlayExtent(Mp4FileIO& file, const Mp4Config& config, FileHoles* holes)
    : m_file(file), m_config(config), m_holes(holes && holes->hasHole() ? holes : nullptr)
{
}

std::vector<TrackExtent> PlayExtent::find()
{
    MP4File movie(m_config, nullptr);
    movie.memory().setQuota(m_quota);
    movie.setIO(&m_file);
    try {
        movie.parse(0);
    } catch (const StreamParseError&) {
        // The tracks before the fault are whole.
    }
    WalkBudget budget(m_file.Size());
    std::vector<TrackExtent> extents;
    for (TrackInfo* track : movie.getTrackVec())
        if (track->isValid())
            extents.push_back(findOf(*track, budget));
    return extents;
}

TrackExtent PlayExtent::findOf(TrackInfo& track, WalkBudget& budget) const
{
    TrackExtent extent;
    extent.trackId = track.trackId;
    try {
        ExtentWalk walk(track, m_file.Size(), m_holes, budget);
        try {
            while (!walk.atEnd()) {
                if (m_cancel && m_cancel->load(std::memory_order_relaxed))
                    throw krx::util::Cancelled();
                walk.step();
            }
        } catch (const StreamParseError&) {
            // What was passed is known.
        }
        walk.tell(extent);
    } catch (const StreamParseError&) {
        // The track has no first sample.
    }
    return extent;
}

}  // namespace krx::mp4
