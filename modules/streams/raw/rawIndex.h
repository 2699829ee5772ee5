// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/ISegmentHolder.h"

#include <cstddef>
#include <vector>

namespace krx::util {
class AutoFileLoad;
class ISerialize;
}  // namespace krx::util

namespace krx::raw {

/// What the index file of a recorded stream holds. All integers of the file are big-endian:
///
///     version (4)  type flags (1)  size (8, signed)  number of segments (4)
///     for each segment: start (8, signed)  end (8, signed)  startTime (4)  endTime (4)
struct RawIndex
{
    static constexpr unsigned kVersion = 0x10000;
    static constexpr unsigned kHeaderSize = 17;
    static constexpr unsigned kRecordSize = 24;

    unsigned version = kVersion;
    unsigned char type = 0;               ///< kinds of messages: 1 video, 4 audio with a body, 8 others
    long long size = 0;                   ///< bytes of the stream
    std::vector<SegmentBounds> segments;  ///< in stream order, without gaps between them

    /// Takes everything from a file, which must end after the last record. Throws StreamParseError for
    /// another version, FileReadException for a file that is too short or too long and for segments that do
    /// not line up; the object then holds what was read before. Both have the offset of the record, or of the
    /// end of what could be read.
    void read(krx::util::AutoFileLoad& loader);
    void write(krx::util::ISerialize& out) const;
    /// Bytes that write() writes.
    unsigned long long getSerializedIndexSize() const;

    /// Milliseconds.
    unsigned getDuration() const { return segments.empty() ? 0 : segments.back().endTime; }
    /// The position after the last message.
    long long getEndPosition() const { return segments.empty() ? 0 : segments.back().end + 1; }

    /// Orders two bounds: a lies wholly before b.
    using Comparator = bool (*)(const SegmentBounds& a, const SegmentBounds& b);
    static bool locComparator(const SegmentBounds& a, const SegmentBounds& b);
    static bool timeComparator(const SegmentBounds& a, const SegmentBounds& b);

    /// The segment that holds the key; null when there is none. A time where one segment ends and the next
    /// one starts is found in the earlier one.
    const SegmentBounds* findSegment(const SegmentBounds& key, Comparator comparator) const;

private:
    void readSegBounds(krx::util::AutoFileLoad& loader);
};

}  // namespace krx::raw
