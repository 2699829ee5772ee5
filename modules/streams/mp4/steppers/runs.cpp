// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/steppers/runs.h"

#include "util/krxassert.h"

namespace krx::mp4 {
namespace {

constexpr char kFragmentStepperPlace[] = "modules/streams/mp4/mp4Data";
constexpr int kFragmentLine = 512;
constexpr int kRunLine = 525;

}  // namespace

FragmentStepper::Arrival FragmentStepper::findSample()
{
    Arrival arrival = m_state.sampleInRun != 0 ? kSameRun : m_state.runIndex != 0 ? kNextRun : kNextFragment;
    for (; !atEnd(); ++m_state.fragmentIndex) {
        TrackFragment& fragment = (*m_fragments)[m_state.fragmentIndex];
        if (findRun(fragment)) {
            if (m_state.sampleInRun != 0)
                return kSameRun;
            return arrival == kNextFragment ? kNextFragment : kNextRun;
        }
        fragment.unload();
        m_state.runIndex = 0;
        arrival = kNextFragment;
    }
    return kEnd;
}

/// False when the fragment has no sample left.
bool FragmentStepper::findRun(TrackFragment& fragment)
{
    const std::size_t runs = fragment.getRunCount();
    for (; m_state.runIndex < runs; ++m_state.runIndex) {
        if (m_state.sampleInRun < fragment.getRun(m_state.runIndex).sampleCount)
            return true;
        m_state.sampleInRun = 0;
    }
    return false;
}

unsigned long long FragmentStepper::offset() const
{
    return (*m_fragments)[m_state.fragmentIndex].dataBase() +
           static_cast<unsigned long long>(run().dataOffset);
}

TrackFragment* FragmentStepper::currentFragment() const
{
    if (!atEnd())
        return &(*m_fragments)[m_state.fragmentIndex];
    krx::util::assertFailed(kFragmentStepperPlace, kFragmentLine);
    return nullptr;
}

const TrackFragmentRun* FragmentStepper::currentRun() const
{
    TrackFragment* fragment = currentFragment();
    if (fragment && m_state.runIndex < fragment->getRunCount())
        return &fragment->getRun(m_state.runIndex);
    krx::util::assertFailed(kFragmentStepperPlace, kRunLine);
    return nullptr;
}

void FragmentStepper::takeRun() const
{
    const TrackFragmentRun* current = currentRun();
    if (!current || m_state.sampleInRun >= current->sampleCount)
        throw krx::streams::StreamParseError(krx::streams::kTableReadError);
    m_run = *current;
    m_runFragment = m_state.fragmentIndex;
    m_runIndex = m_state.runIndex;
}

void FragmentStepper::release()
{
    if (!atEnd())
        (*m_fragments)[m_state.fragmentIndex].unload();
}

}  // namespace krx::mp4
