// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawSegment.h"

#include "util/messagerecord.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace krx::raw {
namespace {

using namespace krx::streams;

constexpr unsigned char kReservedFlag = 0x80;
constexpr unsigned char kMaxType = 23;

/// Video bodies below it have frame type 0: they are no pictures.
constexpr unsigned char kFirstFrameType = 0x10;

bool isTypeValid(unsigned char type)
{
    return (type & kReservedFlag) == 0 && (type & kTypeMask) <= kMaxType;
}

bool isDelivered(const util::MessageRecord& record)
{
    return (record.header.type & kTypeMask) != kMsgVideo || record.header.length == 0 ||
           record.body[0] >= kFirstFrameType;
}

}  // namespace

bool PendingAggregate::append(unsigned char* record, unsigned length, unsigned time)
{
    if (length > kMaxMessageLength - m_length)
        return false;
    if (m_length == 0) {
        m_data = record;
        m_time = time;
    } else if (!m_copy.empty() || m_data + m_length != record) {
        if (m_copy.empty())
            m_copy.assign(m_data, m_data + m_length);
        m_copy.insert(m_copy.end(), record, record + length);
    }
    m_length += length;
    return true;
}

void PendingAggregate::clear()
{
    m_copy.clear();
    m_length = 0;
}

SegmentReader::SegmentReader(const RawConfigStruct& config, const SegmentBounds& bounds,
                             const SRString& fileName, ISegmentHolder& holder, SegmentWarnings& warnings)
    : m_config(config),
      m_bounds(bounds),
      m_fileName(fileName),
      m_holder(holder),
      m_warnings(warnings),
      m_minTime(std::max(bounds.startTime, 1U) - 1)
{
}

void SegmentReader::read(unsigned char* data, unsigned length)
{
    for (m_offset = 0; m_offset < length;)
        m_offset += readRecord(data + m_offset, length - m_offset);
    if (m_aggregate.length() != 0)
        deliverAggregate();

    // In 64 bits neither the number of messages nor the time after the last one can overflow.
    const unsigned long long expected =
        static_cast<unsigned long long>(m_bounds.end) - static_cast<unsigned long long>(m_bounds.start) + 1;
    if (m_count != expected || m_maxTime + 1ULL != m_bounds.endTime)
        throw fault(kSegmentMismatch, kNoTime);
}

/// Returns the length of the record.
unsigned SegmentReader::readRecord(unsigned char* record, unsigned remaining)
{
    util::MessageRecord found;
    const util::RecordState state = util::readRecord(record, remaining, found);
    if (remaining < util::RecordHeader::kSize)
        throw fault(kSegmentTruncatedMessage, kNoTime);
    const util::RecordHeader& header = found.header;
    if (!isTypeValid(header.type))
        throw fault(kSegmentUnrecognizedType, header.timestamp);
    if (header.timestamp < m_minTime)
        warnBackwardTime(header.timestamp);
    if (state == util::RecordState::kCutShort)
        throw fault(kSegmentTruncatedMessage, header.timestamp);
    if (state == util::RecordState::kWrongSize)
        throw fault(kSegmentInvalidFooter, header.timestamp);

    if (isDelivered(found)) {
        // A message at time 0 does not wait: it overtakes the aggregate that is pending.
        if (m_config.EnableAggMsgs && header.timestamp != 0)
            aggregate(record, header);
        else
            deliver(header.type, record + util::RecordHeader::kSize, header.length, header.timestamp);
    }
    m_maxTime = std::max(m_maxTime, header.timestamp);
    m_minTime = header.timestamp;
    ++m_count;
    return found.size();
}

void SegmentReader::aggregate(unsigned char* record, const util::RecordHeader& header)
{
    const unsigned length = header.length + util::kRecordOverhead;
    if (!m_aggregate.append(record, length, header.timestamp)) {
        if (m_aggregate.length() != 0)
            deliverAggregate();
        if (!m_aggregate.append(record, length, header.timestamp)) {
            // Its body fits a message, but not with header and footer.
            deliver(header.type, record + util::RecordHeader::kSize, header.length, header.timestamp);
            return;
        }
    }
    if (m_aggregate.length() >= m_config.MaxAggMsgSize)
        deliverAggregate();
}

void SegmentReader::deliverAggregate()
{
    deliver(kMsgAggregate, m_aggregate.data(), m_aggregate.length(), m_aggregate.time());
    m_aggregate.clear();
}

void SegmentReader::deliver(unsigned char type, unsigned char* data, unsigned length, unsigned time)
{
    if (!m_holder.add(type, data, length, time))
        throw fault(kUnknownError, time);
}

void SegmentReader::warnBackwardTime(unsigned time)
{
    if (!m_warnings.admits())
        return;
    // A file may have millions: text and file name are made once.
    if (m_backwardTime)
        setPlace(m_backwardTime->place(), time);
    else
        m_backwardTime = fault(kSegmentBackwardTimestamp, time);
    m_warnings.take(*m_backwardTime);
}

StreamParseError SegmentReader::fault(ParseStatus status, long long time) const
{
    StreamParseError error = makeParseError(status, m_fileName);
    const SRMBString path = m_fileName.toMultiByte();
    error.place().file = path.view().substr(path.view().rfind('/') + 1);
    setPlace(error.place(), time);
    return error;
}

void SegmentReader::setPlace(Place& place, long long time) const
{
    // The bounds are the file's, and a file has less than 2^32 records.
    const auto count = static_cast<long long>(m_count);
    const bool isPosition =
        m_bounds.start >= 0 && m_bounds.start <= std::numeric_limits<long long>::max() - count;
    place.offset = m_offset;
    place.message = isPosition ? m_bounds.start + count : -1;
    place.time = time;
}

}  // namespace krx::raw
