// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/streamparseerror.h"

#include <algorithm>

namespace krx::mp4 {

/// What a walk over samples may cost. The samples of a sound file do not overlap, so that their sizes stay
/// below the file's. Tables can claim samples without end in a few bytes, by constant sizes and shared
/// chunks: a walk is given up when it has passed that many bytes.
class WalkBudget
{
public:
    static constexpr unsigned long long kFactor = 8;
    static constexpr unsigned long long kFloor = 1'000'000;

    explicit WalkBudget(long long fileSize)
        : m_left(static_cast<unsigned long long>(fileSize) * kFactor + kFloor)
    {
    }

    /// Pays for one step of the walk. Throws kTableReadError when the walk has cost too much.
    void charge(unsigned sampleSize)
    {
        const unsigned cost = std::max(sampleSize, 1U);
        if (cost > m_left)
            throw krx::streams::StreamParseError(krx::streams::kTableReadError);
        m_left -= cost;
    }

private:
    unsigned long long m_left;
};

}  // namespace krx::mp4
