// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boundary.h"

#include <algorithm>
#include <vector>

namespace krx::mp4 {
namespace {

/// Calls field with every number of a position, in the order in which they are stored.
template <typename Position, typename Field>
void forEachField(Position& position, Field field)
{
    field(position.decodeTime);
    field(position.mediaTime);
    field(position.fileOffset);
    field(position.stepCount);
    field(position.descriptionIndex);
    field(position.timeToSampleIndex);
    field(position.timeToSampleCount);
    field(position.compositionIndex);
    field(position.compositionCount);
    field(position.syncIndex);
    field(position.sampleToChunkIndex);
    field(position.samplesPerChunk);
    field(position.chunkIndex);
    field(position.sampleInChunk);
    field(position.sampleNumber);
    field(position.fragmentIndex);
    field(position.runIndex);
    field(position.sampleInRun);
    field(position.editIndex);
    field(position.sampleType);
    field(position.typeValid);
    field(position.encrypted);
    field(position.inMovieBox);
    field(position.headerPending);
    field(position.enderPending);
}

/// Seven bits a byte, the low ones first; the high bit tells that more follow.
void putNumber(unsigned char*& out, unsigned long long value)
{
    for (; value >= 0x80; value >>= 7)
        *out++ = static_cast<unsigned char>(value | 0x80);
    *out++ = static_cast<unsigned char>(value);
}

unsigned long long takeNumber(const unsigned char*& in)
{
    unsigned long long value = 0;
    for (int shift = 0;; shift += 7) {
        const unsigned char byte = *in++;
        value |= static_cast<unsigned long long>(byte & 0x7F) << shift;
        if (byte < 0x80)
            return value;
    }
}

/// The two times of a track differ by its gaps alone, so that one of them is stored as a difference. The
/// exchange is its own reverse.
void exchangeMediaTime(TrackPosition& position)
{
    position.mediaTime = position.decodeTime - position.mediaTime;
}

}  // namespace

Boundary::Boundary(const CursorState& state)
    : m_index(state.index),
      m_time(state.time),
      m_tablePage(state.tablePage),
      m_trackCount(static_cast<unsigned>(state.tracks.size()))
{
    // A number of n bytes becomes at most 2 n.
    const std::unique_ptr<unsigned char[]> room(
        new unsigned char[state.tracks.size() * 2 * sizeof(TrackPosition)]);
    unsigned char* out = room.get();
    for (TrackPosition position : state.tracks) {
        exchangeMediaTime(position);
        ++position.editIndex;  // from -1 on
        forEachField(position, [&](auto number) { putNumber(out, static_cast<unsigned long long>(number)); });
    }
    m_size = static_cast<unsigned>(out - room.get());
    m_tracks.reset(new unsigned char[m_size]);
    std::copy_n(room.get(), m_size, m_tracks.get());
}

CursorState Boundary::unpack() const
{
    CursorState state{m_index, m_time, m_tablePage, std::vector<TrackPosition>(m_trackCount)};
    const unsigned char* in = m_tracks.get();
    for (TrackPosition& position : state.tracks) {
        forEachField(position, [&](auto& number) {
            number = static_cast<std::remove_reference_t<decltype(number)>>(takeNumber(in));
        });
        --position.editIndex;
        exchangeMediaTime(position);
    }
    return state;
}

}  // namespace krx::mp4
