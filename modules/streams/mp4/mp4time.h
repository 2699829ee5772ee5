// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <algorithm>
#include <limits>

namespace krx::mp4 {

/// The nearest integer, ties to even, like std::nearbyint; inline, since every sample needs one.
inline double roundToEven(double value)
{
    // Doubles from kWhole on have no fraction: the addition rounds it away, and the subtraction is exact.
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

/// The same for a track's time; a value beyond 32 bits becomes the largest one. Takes the timescale as a
/// double, so that a walk does not convert it for each sample.
inline unsigned toMillis(unsigned long long time, double timescale)
{
    constexpr unsigned kMax = std::numeric_limits<unsigned>::max();
    if (timescale == 0)
        return 0;
    // Small times, which nearly all are, convert faster as signed numbers.
    const auto signedTime = static_cast<long long>(time);
    const double units = signedTime >= 0 ? static_cast<double>(signedTime) : static_cast<double>(time);
    const double millis = 1000.0 * units / timescale;
    return millis < kMax ? static_cast<unsigned>(static_cast<long long>(roundToEven(millis))) : kMax;
}

/// The smallest time that is millis or later; the largest possible time when there is none, such as at a
/// timescale of 0.
inline unsigned long long firstTimeOf(unsigned long long millis, double timescale)
{
    constexpr unsigned long long kNever = ~0ULL;
    if (millis == 0)
        return 0;
    if (timescale == 0 || millis > std::numeric_limits<unsigned>::max())
        return kNever;
    // A guess that rounding may have moved by a few units.
    auto time = static_cast<unsigned long long>((static_cast<double>(millis) - 0.5) * timescale / 1000.0);
    while (time != 0 && toMillis(time - 1, timescale) >= millis)
        --time;
    while (toMillis(time, timescale) < millis)
        ++time;
    return time;
}

/// Milliseconds from time to time + offset, each taken to the nearest integer; cut to 32 bits.
inline int offsetMillis(unsigned long long time, int offset, unsigned timescale)
{
    // From here on both times exceed 32 bits; below, their sum cannot overflow.
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
