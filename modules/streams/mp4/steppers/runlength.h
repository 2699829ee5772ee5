// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/pageablearray.h"

#include <algorithm>

// A stepper keeps the place of a track in one table. All have these in common:
//
//   State         what is saved and restored; visit() calls a function with each of its numbers
//   step()        to the next sample; throws kTableReadError where the table does not say what is asked
//   stretch()     how many steps from here on cannot fail, as far as a look at the tables' pages shows
//   skip(n)       n steps at once, at most as many as stretch() said
//
// The table outlives the stepper. Its entries may come and go with their pages, but do not change.

namespace krx::mp4 {

/// As many steps as there may be.
constexpr unsigned kAnySteps = ~0U;

/// Steps through a table whose entries each serve a number of samples. An entry with the count 0 serves one.
template <typename Entry>
class RunLengthStepper
{
public:
    struct State
    {
        unsigned index = 0;
        unsigned used = 0;  ///< samples of that entry that are passed

        template <typename Self, typename Other, typename Function>
        static void visit(Self& self, Other& other, Function function)
        {
            function(self.index, other.index);
            function(self.used, other.used);
        }
        friend bool operator==(const State&, const State&) = default;
    };

    explicit RunLengthStepper(const PageableArray<Entry>& table) : m_table(&table) {}

    const State& state() const { return m_state; }
    void restore(const State& state) { m_state = state; }

    /// Of the current sample. Throws kTableReadError when it is not at hand.
    Entry entry() const { return (*m_table)[m_state.index]; }
    /// How many samples from the current one on have its entry; 0 when the entry is not at hand.
    unsigned entryStretch() const { return isAtHand() ? left(entry().count) : 0; }

    void step()
    {
        entry();
        skip(1);
    }
    unsigned stretch() const
    {
        // Each entry serves at least one sample.
        const unsigned held = m_table->entriesFrom(m_state.index);
        return held == 0 ? 0 : std::max(left(entry().count), held);
    }
    void skip(unsigned steps)
    {
        const unsigned char* at = m_table->at(m_state.index);
        const unsigned end = m_table->curEnd();
        // Without a page stretch() is 0.
        while (at && steps != 0) {
            if (steps >= kBatch && end - m_state.index >= kBatch && m_state.used == 0 && eachServesOne(at)) {
                steps -= kBatch;
                m_state.index += kBatch;
                at += kBatch * sizeof(Entry);
                continue;
            }
            const unsigned here = left(krx::util::loadBig32(at));
            if (steps < here) {
                m_state.used += steps;
                return;
            }
            steps -= here;
            ++m_state.index;
            m_state.used = 0;
            at += sizeof(Entry);
        }
    }

private:
    bool isAtHand() const { return m_table->entriesFrom(m_state.index) != 0; }
    /// Whether each of the next kBatch entries serves one sample: many tables have an entry per sample.
    static bool eachServesOne(const unsigned char* at)
    {
        unsigned counts = 0;
        for (unsigned i = 0; i < kBatch; ++i)
            counts |= krx::util::loadBig32(at + i * sizeof(Entry));
        return counts <= 1;
    }
    unsigned left(unsigned count) const { return count > m_state.used ? count - m_state.used : 1; }

    static constexpr unsigned kBatch = 4;

    const PageableArray<Entry>* m_table;
    State m_state;
};

/// Steps through 'stts', which gives each sample its duration.
class TimeStepper
{
public:
    using State = RunLengthStepper<TimeToSample>::State;

    explicit TimeStepper(const PageableArray<TimeToSample>& table)
        : m_entries(table), m_holdsForAll(table.size() == 1)
    {
    }

    const State& state() const { return m_entries.state(); }
    void restore(const State& state) { m_entries.restore(state); }

    /// The current sample's duration in media timescale units.
    unsigned delta() const
    {
        // What is negative as a signed number counts as 0.
        constexpr unsigned kNegative = 0x80000000U;
        const unsigned delta = m_entries.entry().delta;
        return delta < kNegative ? delta : 0;
    }

    void step()
    {
        if (!m_holdsForAll)
            m_entries.step();
    }
    /// The steps for which delta() stays the same.
    unsigned stretch() const
    {
        const unsigned steps = m_entries.entryStretch();
        return m_holdsForAll && steps != 0 ? kAnySteps : steps;
    }
    void skip(unsigned steps)
    {
        if (!m_holdsForAll)
            m_entries.skip(steps);
    }

private:
    RunLengthStepper<TimeToSample> m_entries;
    bool m_holdsForAll;  ///< a table of one entry does, whatever its count
};

/// Steps through 'ctts', which most tracks do not have.
class CompositionStepper
{
public:
    using State = RunLengthStepper<CompositionOffset>::State;

    explicit CompositionStepper(const PageableArray<CompositionOffset>& table)
        : m_entries(table), m_isEmpty(table.size() == 0)
    {
    }

    const State& state() const { return m_entries.state(); }
    void restore(const State& state) { m_entries.restore(state); }

    /// The current sample's composition time less its decode time, in media timescale units.
    int offset() const { return m_isEmpty ? 0 : static_cast<int>(m_entries.entry().offset); }

    void step()
    {
        if (!m_isEmpty)
            m_entries.step();
    }
    unsigned stretch() const { return m_isEmpty ? kAnySteps : m_entries.stretch(); }
    void skip(unsigned steps)
    {
        if (!m_isEmpty)
            m_entries.skip(steps);
    }

private:
    RunLengthStepper<CompositionOffset> m_entries;
    bool m_isEmpty;
};

}  // namespace krx::mp4
