// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "interfaces/IQVStreamContext.h"
#include "modules/streams/mp4/mp4Data.h"
#include "server/SRMessage.h"
#include "util/krxassert.h"

#include <algorithm>
#include <utility>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

constexpr char kMp4SegmentsPlace[] = "modules/streams/mp4/mp4Data";
constexpr int kBoundsLine = 3086;
constexpr int kNoHolderLine = 3079;

void deliver(ISegmentHolder& holder, unsigned char type, void* data, unsigned length, unsigned time)
{
    if (!holder.add(type, data, length, time))
        throw StreamParseError(krx::streams::kUnknownError);
}

/// Delivers and empties the aggregate; does nothing if it is empty.
void deliverAggregate(ISegmentHolder& holder, AggMsg& aggregate)
{
    const unsigned size = aggregate.size();
    aggregate.clear();  // the bytes stay, and what is refused is not offered again
    if (size != 0)
        deliver(holder, kMsgAggregate, aggregate.data(), size, aggregate.getTime());
}

}  // namespace

/// The segment that holds the index or the time.
template <typename Value>
bool Mp4Data::findSegment(Value BoundaryPoint::*field, Value value, std::size_t& segment) const
{
    const std::size_t count = m_boundaries.size();
    std::size_t end = m_boundaries.lowerBound(field, value);
    if (end == count || m_boundaries.back().*field <= value)
        return false;
    if (m_boundaries.point(end).*field == value)
        ++end;
    if (end == 0)
        return false;
    while (end + 1 != count && m_boundaries.point(end - 1).index == m_boundaries.point(end).index)
        ++end;
    segment = end - 1;
    return true;
}

SegmentBounds Mp4Data::toBounds(std::size_t segment) const
{
    const BoundaryPoint start = m_boundaries.point(segment);
    const BoundaryPoint end = m_boundaries.point(segment + 1);
    return {start.index, end.index - 1, start.time, end.time};
}

bool Mp4Data::findSegmentByPos(long long index, SegmentBounds* bounds) const
{
    std::size_t segment;
    if (!bounds || !findSegment(&BoundaryPoint::index, index, segment))
        return false;
    const SegmentBounds found = toBounds(segment);
    if (found.start > index || index > found.end)
        return false;
    *bounds = found;
    return true;
}

bool Mp4Data::findSegmentByTime(unsigned time, SegmentBounds* bounds) const
{
    std::size_t segment;
    if (!bounds || !findSegment(&BoundaryPoint::time, time, segment))
        return false;
    const SegmentBounds found = toBounds(segment);
    const bool inside = found.startTime <= time && time < found.endTime;
    if (!inside && !(time == found.startTime && time == found.endTime))
        return false;
    *bounds = found;
    return true;
}

bool Mp4Data::loadSegment(const SegmentBounds* bounds, ISegmentHolder* holder)
{
    if (!bounds || !holder) {
        krx::util::assertFailed(kMp4SegmentsPlace, kNoHolderLine);
        return false;
    }
    std::size_t segment;
    if (!findSegment(&BoundaryPoint::index, bounds->start, segment) || toBounds(segment) != *bounds) {
        krx::util::assertFailed(kMp4SegmentsPlace, kBoundsLine);
        return false;
    }
    if (!m_statusMessage.isEmpty()) {
        const bool taken = holder->add(m_statusMessage.getMessageType(), m_statusMessage.data(),
                                       m_statusMessage.getActualMsgSize(), m_statusMessage.getTime());
        if (!taken)
            logLoss(StreamParseError(krx::streams::kUnknownError));
        return taken;
    }

    const CursorState start = m_boundaries.state(segment);
    const CursorState end = m_boundaries.state(segment + 1);
    const AutoMp4Open open(&m_io);
    if (!open.isOpen()) {
        logLoss(StreamParseError(krx::streams::kCannotOpenFile));
        return false;
    }
    Mp4Cursor cursor(m_file, start);
    keepFragments(start);
    bool complete = false;
    try {
        if (cursor.getTablePage() != m_tablePage)
            clearTableSegment(m_tablePage);
        m_tablePage = cursor.getTablePage();
        cursor.loadTables();
        holder->addDep(m_tablePage, static_cast<unsigned>(cursor.getSegSize()));
        cursor.setLimit(end);
        deliverSegment(cursor, *holder);
        complete = cursor.getIndex() == end.index;
    } catch (const StreamParseError& error) {
        logLoss(error);
    }
    m_standingFragments.clear();
    cursor.applyTracks(
        [&](TrackCursor& track) { m_standingFragments.push_back(track.position().run.fragmentIndex); });
    return complete;
}

void Mp4Data::deliverSegment(Mp4Cursor& cursor, ISegmentHolder& holder)
{
    AggMsg aggregate(m_config.MaxAggMsgSize);
    try {
        deliverMessages(cursor, holder, aggregate);
    } catch (const StreamParseError&) {
        // What came before the fault is sound.
        deliverAggregate(holder, aggregate);
        throw;
    }
    deliverAggregate(holder, aggregate);
}

void Mp4Data::deliverMessages(Mp4Cursor& cursor, ISegmentHolder& holder, AggMsg& aggregate)
{
    Seekable message;
    for (; cursor.getActiveTrack(); cursor.advance()) {
        try {
            if (!message.initFromCursor(cursor, m_io))
                continue;
            if (!isToSkipLoad(message))
                deliverMessage(message, holder, aggregate);
        } catch (const BadSampleError& error) {
            logBadSample(error);
        }
        cursor.countMessage();
    }
}

/// Delivers the message, or appends it to the aggregate. One that no aggregate has room for goes alone.
void Mp4Data::deliverMessage(Seekable& message, ISegmentHolder& holder, AggMsg& aggregate)
{
    if (m_config.EnableAggMsgs) {
        bool appended = aggregate.appendSeekable(m_io, message);
        if (!appended && aggregate.size() != 0) {
            deliverAggregate(holder, aggregate);
            appended = aggregate.appendSeekable(m_io, message);
        }
        if (aggregate.size() > m_config.MaxAggMsgSize)
            deliverAggregate(holder, aggregate);
        if (appended)
            return;
    }
    message.readPayload(m_io);
    deliver(holder, message.getMessageType(), message.data(), message.getActualMsgSize(), message.getTime());
}

/// The file's time coordination is delivered with its contexts.
bool Mp4Data::isToSkipLoad(const Seekable& message)
{
    return message.getTrack()->isData && message.getTime() == 0 && isTimeCoordInfo(message);
}

/// Releases the fragments that the last load left, except those in which state continues.
void Mp4Data::keepFragments(const CursorState& state)
{
    const std::vector<TrackInfo*> tracks = m_file.getTrackVec();
    for (std::size_t i = 0; i < m_standingFragments.size(); ++i) {
        const unsigned standing = m_standingFragments[i];
        if (standing < tracks[i]->fragments.size() && standing != state.tracks[i].run.fragmentIndex)
            tracks[i]->fragments[standing].unload();
    }
}

/// Where one sample is bad, mostly all are.
void Mp4Data::logBadSample(const StreamParseError& error)
{
    if (!std::exchange(m_badSampleLogged, true))
        logLoss(error);
}

void Mp4Data::logLoss(const StreamParseError& error) const
{
    if (!m_context)
        return;
    const std::string_view path = m_path.view();
    const SRString name = SRString::fromMultiByte(path.substr(path.rfind('/') + 1));
    const SRString line =
        SRString::format(L"KRX detected a bad message in : %S Playback may have incomplete content : %S",
                         name, error.getMessage());
    m_context->log(line.toMultiByte().c_str(), krx::streams::LOG_WARNING, false);
}

}  // namespace krx::mp4
