// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/streamparseerror.h"

#include <algorithm>

namespace krx::mp4 {

/// What a walk over samples may cost, in steps. With constant sizes, shared chunks and runs a few bytes of a
/// table can claim any number of samples, so the steps of a walk are limited. Sizes do not count: samples may
/// share their bytes, such as those of a still picture or of silence.
class WalkBudget
{
public:
    /// Ten hours of sound are 2 million samples. A plain step takes at most 37 ns, so this many take 0.3 s.
    static constexpr unsigned long long kFloor = 8'000'000;
    /// A sample with a size of its own takes 4 bytes in the tables.
    static constexpr unsigned long long kPerFileByte = 8;

    /// Samples that are looked at one by one, wherever they stand: those that make no message (images, and
    /// what was encrypted from an unknown format), and those at times beyond 49 days.
    static constexpr unsigned kSingleSample = 4;
    /// A sample of which bytes are read. Those at time 0 are read to find the time coordination.
    static constexpr unsigned kProbe = 64;

    /// fileSize in bytes.
    explicit WalkBudget(long long fileSize)
        : m_left(std::max(kFloor, static_cast<unsigned long long>(fileSize) * kPerFileByte))
    {
    }

    /// Steps that can still be paid for.
    unsigned long long left() const { return m_left; }
    /// Pays for steps of the walk. Throws kTableReadError when the walk has cost too much.
    void charge(unsigned long long steps = 1)
    {
        if (steps > m_left)
            throw krx::streams::StreamParseError(krx::streams::kTableReadError);
        m_left -= steps;
    }

private:
    unsigned long long m_left;
};

}  // namespace krx::mp4
