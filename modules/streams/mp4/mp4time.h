// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <algorithm>
#include <limits>

namespace krx::mp4 {

/// The nearest integer, ties to even, as std::nearbyint gives it; inline, since every sample needs one.
inline double roundToEven(double value)
{
    // Doubles from there on have no fraction: what is added to reach them is rounded away, and the rest is
    // exact.
    constexpr double kWhole = 4503599627370496.0;
    if (value >= 0)
        return value < kWhole ? (value + kWhole) - kWhole : value;
    return value > -kWhole ? (value - kWhole) + kWhole : value;
}

/// Milliseconds of a time of timescale units a second, in double precision, to the nearest integer (ties to
/// even). 0 without a timescale.
inline double toMillisExact(double time, unsigned timescale)
{
    return timescale == 0 ? 0 : roundToEven(1000.0 * time / timescale);
}

/// The same of a track's time; what 32 bits cannot hold becomes the largest value.
inline unsigned toMillis(unsigned long long time, unsigned timescale)
{
    constexpr double kMax = std::numeric_limits<unsigned>::max();
    return static_cast<unsigned>(std::min(toMillisExact(static_cast<double>(time), timescale), kMax));
}

/// Milliseconds from time to time + offset, each taken to the nearest integer; cut to 32 bits.
inline int offsetMillis(unsigned long long time, int offset, unsigned timescale)
{
    // From there on both times are beyond what 32 bits hold; below, their sum is far from overflow.
    constexpr unsigned long long kFarTime = 1ULL << 62;
    if (offset == 0 || time >= kFarTime)
        return 0;
    constexpr double kMaxTime = std::numeric_limits<unsigned>::max();
    constexpr double kMax = std::numeric_limits<int>::max();
    const auto composed = static_cast<double>(static_cast<long long>(time) + offset);
    const double sum = std::min(toMillisExact(composed, timescale), kMaxTime);
    return static_cast<int>(std::clamp(sum - toMillis(time, timescale), -kMax - 1, kMax));
}

}  // namespace krx::mp4
