// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

/// One segment of a stream. Positions count messages; end is inclusive. Times are in milliseconds; endTime is
/// the start time of the next segment.
struct SegmentBounds
{
    long long start = 0;
    long long end = 0;
    unsigned startTime = 0;
    unsigned endTime = 0;

    friend bool operator==(const SegmentBounds&, const SegmentBounds&) = default;
};

/// Receives the messages of a segment while it is loaded.
class ISegmentHolder
{
public:
    /// One message: type byte, body of length bytes (the caller's, valid for the call only), time in ms.
    /// False refuses the message and ends the load.
    virtual bool add(unsigned char type, void* data, unsigned length, unsigned time) = 0;
    /// The table page that the load uses and the bytes that it occupies.
    virtual void addDep(unsigned tablePage, unsigned bytes) = 0;

protected:
    ~ISegmentHolder() = default;
};
