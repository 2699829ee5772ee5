// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/steppers/runlength.h"

namespace krx::mp4 {

/// Steps through 'stss', which lists the samples that a player can start at. Its numbers should rise; one
/// that does not is never met, and neither are those after it.
class SyncStepper
{
public:
    struct State
    {
        unsigned index = 0;

        template <typename Self, typename Other, typename Function>
        static void visit(Self& self, Other& other, Function function)
        {
            function(self.index, other.index);
        }
        friend bool operator==(const State&, const State&) = default;
    };

    explicit SyncStepper(const PageableArray<unsigned>& table) : m_table(&table) {}

    const State& state() const { return m_state; }
    void restore(const State& state) { m_state = state; }

    /// Whether the current sample, whose number (0-based) is given, is in the table.
    bool isSync(unsigned sample) const
    {
        return m_state.index < m_table->size() && sampleOf(m_state.index) == sample;
    }
    void step(unsigned sample)
    {
        if (isSync(sample))
            ++m_state.index;
    }
    /// From the sample on.
    unsigned stretch(unsigned sample) const
    {
        const unsigned end = m_table->curEnd();
        if (m_state.index >= m_table->size())
            return kAnySteps;
        if (m_table->entriesFrom(m_state.index) == 0)
            return 0;
        // Once the page's last entry is met, the entry after it is needed.
        const unsigned last = sampleOf(end - 1);
        return end == m_table->size() || last < sample || last - sample == kAnySteps ? kAnySteps
                                                                                     : last - sample + 1;
    }
    void skip(unsigned sample, unsigned steps)
    {
        while (m_table->entriesFrom(m_state.index) != 0) {
            const unsigned distance = sampleOf(m_state.index) - sample;
            if (distance >= steps)
                return;
            ++m_state.index;
            sample += distance + 1;
            steps -= distance + 1;
        }
    }

private:
    /// Entries are 1-based.
    unsigned sampleOf(unsigned index) const { return (*m_table)[index] - 1; }

    const PageableArray<unsigned>* m_table;
    State m_state;
};

}  // namespace krx::mp4
