// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/steppers/runlength.h"

namespace krx::mp4 {

struct EditList;

/// Steps through the gaps of an edit list, each of which delays the samples after it.
class EditStepper
{
public:
    struct State
    {
        int editIndex = -1;  ///< of the media entry that is played

        template <typename Self, typename Other, typename Function>
        static void visit(Self& self, Other& other, Function function)
        {
            function(self.editIndex, other.editIndex);
        }
        friend bool operator==(const State&, const State&) = default;
    };

    /// No further gap.
    static constexpr unsigned long long kNoGap = ~0ULL;

    /// list may be null.
    explicit EditStepper(const EditList* list) : m_list(list) {}

    const State& state() const { return m_state; }
    void restore(const State& state);

    /// Moves to the first media entry. Returns the delay by a gap before it. This and pass() throw
    /// kTableReadError where the next two entries are not media and a gap.
    unsigned long long begin();
    /// Media time at which the next gap begins.
    unsigned long long gapStart() const { return m_gapStart; }
    bool hasFurtherGap() const;
    /// Passes the gap that the media time has reached. Returns its duration less the time already beyond its
    /// start.
    unsigned long long pass(unsigned long long mediaTime);
    /// How many steps of delta stay before the gap.
    unsigned stretch(unsigned long long mediaTime, unsigned delta) const;

private:
    void findNextGap();

    const EditList* m_list;
    State m_state;
    unsigned long long m_gapStart = kNoGap;
};

}  // namespace krx::mp4
