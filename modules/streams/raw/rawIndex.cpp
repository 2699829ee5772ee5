// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawIndex.h"

#include "modules/streams/streamparseerror.h"
#include "util/SRException.h"
#include "util/autofile.h"
#include "util/serializeutil.h"

#include <algorithm>
#include <limits>

namespace krx::raw {
namespace {

using krx::util::FileReadException;

template <typename... Args>
[[noreturn]] void throwReadError(unsigned offset, const wchar_t* pattern, const Args&... args)
{
    throw FileReadException(SRString::format(pattern, args...), offset);
}

}  // namespace

void RawIndex::read(krx::util::AutoFileLoad& loader)
{
    version = loader.readU32();
    if (version != kVersion) {
        auto error = krx::streams::makeParseError(krx::streams::kIndexVersionNotSupported, version, kVersion);
        error.place().offset = 0;
        throw krx::streams::StreamParseError(error);
    }
    type = loader.readU8();
    size = loader.readI64();
    const unsigned count = loader.readU32();

    segments.clear();
    segments.reserve(std::min(count, loader.remaining() / kRecordSize));
    for (unsigned i = 0; i < count; ++i)
        readSegBounds(loader);
    if (loader.remaining() != 0)
        throwReadError(loader.position(), L"Failed to read index file successfully.");
}

void RawIndex::readSegBounds(krx::util::AutoFileLoad& loader)
{
    const unsigned offset = loader.position();
    SegmentBounds bounds;
    bounds.start = loader.readI64();
    bounds.end = loader.readI64();
    bounds.startTime = loader.readU32();
    bounds.endTime = loader.readU32();

    // The largest position has no end position after it.
    if (bounds.end < bounds.start || bounds.end == std::numeric_limits<long long>::max()) {
        throwReadError(offset,
                       L"Found invalid segment bounds while reading index file: start = %lld, end = %lld",
                       bounds.start, bounds.end);
    }
    if (!segments.empty()) {
        const SegmentBounds& last = segments.back();
        if (bounds.startTime != last.endTime) {
            throwReadError(
                offset,
                L"Segment bounds do not line up with previous bounds: segment start time = %u, previous "
                L"segment "
                L"end time = %u",
                bounds.startTime, last.endTime);
        }
        if (bounds.start != last.end + 1) {
            throwReadError(
                offset,
                L"Segment bounds do not line up with previous bounds: segment start = %lld, previous segment "
                L"end "
                L"= %lld",
                bounds.start, last.end);
        }
    }
    segments.push_back(bounds);
}

void RawIndex::write(krx::util::ISerialize& out) const
{
    out.writeU32(version);
    out.writeU8(type);
    out.writeI64(size);
    out.writeU32(static_cast<unsigned>(segments.size()));
    for (const SegmentBounds& bounds : segments) {
        out.writeI64(bounds.start);
        out.writeI64(bounds.end);
        out.writeU32(bounds.startTime);
        out.writeU32(bounds.endTime);
    }
}

unsigned long long RawIndex::getSerializedIndexSize() const
{
    return kHeaderSize + static_cast<unsigned long long>(segments.size()) * kRecordSize;
}

bool RawIndex::locComparator(const SegmentBounds& a, const SegmentBounds& b)
{
    return a.start < b.start && a.end < b.end;
}

bool RawIndex::timeComparator(const SegmentBounds& a, const SegmentBounds& b)
{
    return a.startTime < b.startTime && a.endTime < b.endTime;
}

const SegmentBounds* RawIndex::findSegment(const SegmentBounds& key, Comparator comparator) const
{
    if (segments.empty() || comparator(key, segments.front()) || comparator(segments.back(), key))
        return nullptr;

    // The first segment that is not before the key. The standard algorithm demands an order that the times of
    // a file need not have.
    std::size_t first = 0;
    for (std::size_t count = segments.size(); count > 0;) {
        const std::size_t half = count / 2;
        if (comparator(segments[first + half], key)) {
            first += half + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    if (first == segments.size())
        return nullptr;
    if (!comparator(key, segments[first]))
        return &segments[first];
    if (first == 0 || comparator(segments[first - 1], key))
        return nullptr;
    return &segments[first - 1];
}

}  // namespace krx::raw
