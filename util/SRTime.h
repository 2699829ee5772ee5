// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

/// A point in time: seconds since the beginning of 1970 (UTC).
class SRTime
{
public:
    SRTime() = default;
    explicit SRTime(double seconds) : m_seconds(seconds) {}

    double getSeconds() const { return m_seconds; }

private:
    double m_seconds = 0;
};
