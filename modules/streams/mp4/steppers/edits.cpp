// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/steppers/edits.h"

#include "modules/streams/mp4/trackinfo.h"

namespace krx::mp4 {
namespace {

constexpr long long kGapMediaTime = -1;

}  // namespace

void EditStepper::restore(const State& state)
{
    m_state = state;
    findNextGap();
}

unsigned long long EditStepper::begin()
{
    unsigned long long delay = 0;
    m_state.editIndex = 0;
    if (m_list && !m_list->entries.empty() && m_list->entries[0].mediaTime == kGapMediaTime) {
        delay = m_list->entries[0].duration;
        m_state.editIndex = 1;
    }
    findNextGap();
    return delay;
}

bool EditStepper::hasFurtherGap() const
{
    return m_list && m_state.editIndex >= 0 &&
           static_cast<std::size_t>(m_state.editIndex) + 2 <= m_list->entries.size();
}

void EditStepper::findNextGap()
{
    m_gapStart = kNoGap;
    if (!hasFurtherGap())
        return;
    const auto index = static_cast<std::size_t>(m_state.editIndex);
    const EditListEntry& media = m_list->entries[index];
    if (media.mediaTime < 0 || m_list->entries[index + 1].mediaTime != kGapMediaTime)
        throw krx::streams::StreamParseError(krx::streams::kTableReadError);
    m_gapStart = static_cast<unsigned long long>(media.mediaTime) + media.duration;
}

unsigned long long EditStepper::pass(unsigned long long mediaTime)
{
    const EditListEntry& gap = m_list->entries[static_cast<std::size_t>(m_state.editIndex) + 1];
    const unsigned long long delay = gap.duration - (mediaTime - m_gapStart);
    m_state.editIndex += 2;
    findNextGap();
    return delay;
}

unsigned EditStepper::stretch(unsigned long long mediaTime, unsigned delta) const
{
    if (m_gapStart == kNoGap)
        return kAnySteps;
    if (mediaTime >= m_gapStart)
        return 0;
    if (delta == 0)
        return kAnySteps;
    return static_cast<unsigned>(
        std::min<unsigned long long>((m_gapStart - 1 - mediaTime) / delta, kAnySteps));
}

}  // namespace krx::mp4
