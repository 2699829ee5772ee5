// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/steppers/runlength.h"
#include "modules/streams/mp4/trackfragment.h"

#include <deque>

namespace krx::mp4 {

/// Steps through the samples of a track's fragments, run by run. Fragments are loaded when they are entered
/// and released when they are left: the file must be open. Throws what loading throws.
class FragmentStepper
{
public:
    struct State
    {
        unsigned fragmentIndex = 0;
        unsigned sampleInRun = 0;
        unsigned runIndex = 0;

        template <typename Self, typename Other, typename Function>
        static void visit(Self& self, Other& other, Function function)
        {
            function(self.fragmentIndex, other.fragmentIndex);
            function(self.sampleInRun, other.sampleInRun);
            function(self.runIndex, other.runIndex);
        }
        friend bool operator==(const State&, const State&) = default;
    };

    explicit FragmentStepper(std::deque<TrackFragment>& fragments) : m_fragments(&fragments) {}

    const State& state() const { return m_state; }
    void restore(const State& state) { m_state = state; }

    bool atEnd() const { return m_state.fragmentIndex >= m_fragments->size(); }
    /// Moves past all fragments without loading them.
    void leaveAll() { m_state.fragmentIndex = static_cast<unsigned>(m_fragments->size()); }
    /// Where findSample arrived.
    enum Arrival
    {
        kSameRun,
        kNextRun,
        kNextFragment,
        kEnd,
    };
    /// Moves past empty runs and finished fragments to the next sample.
    Arrival findSample();
    /// To the next sample of the run or to its end, where findSample goes on.
    void step() { ++m_state.sampleInRun; }
    /// Within the run.
    unsigned stretch() const { return run().sampleCount - m_state.sampleInRun - 1; }
    void skip(unsigned steps) { m_state.sampleInRun += steps; }

    /// Where the samples of the current run begin in the file.
    unsigned long long offset() const;
    const TrackFragmentHeader& header() const { return (*m_fragments)[m_state.fragmentIndex].header(); }
    /// Throws kTableReadError when the position is at no sample of a run.
    const TrackFragmentRun& run() const
    {
        if (m_runFragment != m_state.fragmentIndex || m_runIndex != m_state.runIndex)
            takeRun();
        return m_run;
    }

    // Of the current sample.
    unsigned duration() const { return valueOf(TrackFragmentRun::kDuration, header().defaultDuration); }
    unsigned size() const { return valueOf(TrackFragmentRun::kSize, header().defaultSize); }
    unsigned flags() const { return valueOf(TrackFragmentRun::kFlags, header().defaultFlags); }
    /// Media timescale units.
    int compositionOffset() const
    {
        return static_cast<int>(valueOf(TrackFragmentRun::kCompositionOffset, 0));
    }

    /// The fragment and the run at the position; reported when there is none.
    TrackFragment* currentFragment() const;
    const TrackFragmentRun* currentRun() const;
    /// Releases the runs of the fragment at the position.
    void release();

private:
    bool findRun(TrackFragment& fragment);
    void takeRun() const;
    unsigned valueOf(TrackFragmentRun::Field field, unsigned otherwise) const
    {
        const WordColumn values = run().column(field);
        return values ? values[m_state.sampleInRun] : otherwise;
    }

    std::deque<TrackFragment>* m_fragments;
    State m_state;

    // The run at the position. Its arrays are shared, so that they outlive the fragment's release.
    mutable TrackFragmentRun m_run;
    mutable unsigned m_runFragment = ~0U;  ///< fragment and index of m_run
    mutable unsigned m_runIndex = 0;
};

}  // namespace krx::mp4
