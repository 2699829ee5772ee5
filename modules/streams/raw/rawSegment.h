// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/ISegmentHolder.h"
#include "modules/streams/raw/rawConfig.h"
#include "modules/streams/streamparseerror.h"

#include <optional>
#include <vector>

namespace krx::util {
struct RecordHeader;
}

namespace krx::raw {

/// A run of records on its way to the holder. While the records are contiguous it is a span of their bytes;
/// only a run with a gap is copied.
class PendingAggregate
{
public:
    /// Appends a record. The bytes must stay until clear(). False, and unchanged, when the records would be
    /// too many bytes for one message.
    bool append(unsigned char* record, unsigned length, unsigned time);
    void clear();

    unsigned char* data() { return m_copy.empty() ? m_data : m_copy.data(); }
    unsigned length() const { return m_length; }
    /// Time of the first record, ms.
    unsigned time() const { return m_time; }

private:
    unsigned char* m_data = nullptr;
    unsigned m_length = 0;
    unsigned m_time = 0;
    std::vector<unsigned char> m_copy;
};

/// Where the warnings of a segment go.
class SegmentWarnings
{
public:
    /// Asked before a warning is made. False when it is not wanted.
    virtual bool admits() = 0;
    /// May throw the warning.
    virtual void take(const krx::streams::StreamParseError& warning) = 0;

protected:
    ~SegmentWarnings() = default;
};

/// Checks the bytes of one segment file against the layout of records and against the index, and delivers the
/// messages on the way.
///
/// A record is a stored message, see util::RecordHeader.
class SegmentReader
{
public:
    /// fileName, a path, appears in fault texts. The arguments taken by reference must outlive the reader.
    SegmentReader(const RawConfigStruct& config, const SegmentBounds& bounds, const SRString& fileName,
                  ISegmentHolder& holder, SegmentWarnings& warnings);

    /// Reads the whole file, once. The holder gets parts of data. Throws StreamParseError for a fault and
    /// when the holder refuses a message; what was delivered before stays delivered. A fault has the offset
    /// and the position of its record; where file and index do not match, those after the last record.
    void read(unsigned char* data, unsigned length);

private:
    /// A time that is not known.
    static constexpr long long kNoTime = -1;

    unsigned readRecord(unsigned char* record, unsigned remaining);
    void aggregate(unsigned char* record, const util::RecordHeader& header);
    void deliverAggregate();
    void deliver(unsigned char type, unsigned char* data, unsigned length, unsigned time);
    void warnBackwardTime(unsigned time);
    /// A fault of the present record; time in ms.
    krx::streams::StreamParseError fault(krx::streams::ParseStatus status, long long time) const;
    /// Fills in all of a place but the file.
    void setPlace(krx::streams::Place& place, long long time) const;

    const RawConfigStruct& m_config;
    const SegmentBounds& m_bounds;
    const SRString& m_fileName;
    ISegmentHolder& m_holder;
    SegmentWarnings& m_warnings;
    std::optional<krx::streams::StreamParseError>
        m_backwardTime;  ///< built for the first, used for every one

    PendingAggregate m_aggregate;
    unsigned m_minTime;  ///< a record below it goes backward
    unsigned m_maxTime = 0;
    unsigned m_offset = 0;  ///< of the present record
    unsigned long long m_count = 0;
};

}  // namespace krx::raw
