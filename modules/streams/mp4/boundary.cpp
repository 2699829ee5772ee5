// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boundary.h"

#include "modules/streams/mp4/memorybudget.h"

#include <algorithm>
#include <utility>

namespace krx::mp4 {
namespace {

/// Calls field with every number of a position and its counterpart in another one. Those that change from
/// boundary to boundary come first, so that the differences take one byte or two.
template <typename Position, typename Field>
void forEachField(Position& position, TrackPosition& other, Field field)
{
    field(position.decodeTime, other.decodeTime);
    field(position.stepCount, other.stepCount);
    field(position.sampleNumber, other.sampleNumber);
    field(position.fileOffset, other.fileOffset);
    field(position.chunkIndex, other.chunkIndex);
    field(position.sampleInChunk, other.sampleInChunk);
    field(position.timeToSampleCount, other.timeToSampleCount);
    field(position.timeToSampleIndex, other.timeToSampleIndex);
    field(position.compositionIndex, other.compositionIndex);
    field(position.compositionCount, other.compositionCount);
    field(position.syncIndex, other.syncIndex);
    field(position.fragmentIndex, other.fragmentIndex);
    field(position.sampleInRun, other.sampleInRun);
    field(position.runIndex, other.runIndex);
    field(position.sampleToChunkIndex, other.sampleToChunkIndex);
    field(position.samplesPerChunk, other.samplesPerChunk);
    field(position.mediaTime, other.mediaTime);
    field(position.editIndex, other.editIndex);
    field(position.descriptionIndex, other.descriptionIndex);
    field(position.sampleType, other.sampleType);
    field(position.typeValid, other.typeValid);
    field(position.encrypted, other.encrypted);
    field(position.inMovieBox, other.inMovieBox);
    field(position.headerPending, other.headerPending);
    field(position.enderPending, other.enderPending);
}

/// The two times of a track differ by its gaps alone, so that one of them is stored as a difference. The
/// exchange is its own reverse.
void exchangeMediaTime(TrackPosition& position)
{
    position.mediaTime = position.decodeTime - position.mediaTime;
}

/// Seven bits a byte, the low ones first; the high bit is set where more follow.
void putNumber(std::vector<unsigned char>& out, unsigned long long value)
{
    for (; value >= 0x80; value >>= 7)
        out.push_back(static_cast<unsigned char>(value | 0x80));
    out.push_back(static_cast<unsigned char>(value));
}

/// The way from one number to another, which may be backward: the sign is the lowest bit. Differences wrap.
template <typename Number>
void putStep(std::vector<unsigned char>& out, Number from, Number to)
{
    const unsigned long long step =
        static_cast<unsigned long long>(to) - static_cast<unsigned long long>(from);
    putNumber(out, step << 1 ^ (0 - (step >> 63)));
}

void putPosition(std::vector<unsigned char>& out, const TrackPosition& to, TrackPosition& from)
{
    unsigned changed = 0;
    unsigned bit = 1;
    forEachField(to, from, [&](auto number, auto& former) {
        changed |= number != former ? bit : 0;
        bit <<= 1;
    });
    putNumber(out, changed);
    forEachField(to, from, [&](auto number, auto& former) {
        if (number != former)
            putStep(out, former, number);
    });
    from = to;
}

}  // namespace

/// Goes through the boundaries of a block.
class BoundaryList::Reader
{
public:
    Reader(const unsigned char* bytes, CursorState start) : m_in(bytes), m_state(std::move(start)) {}

    const CursorState& state() const { return m_state; }
    void next()
    {
        takeStep(m_state.index);
        takeStep(m_state.time);
        takeStep(m_state.tablePage);
        std::size_t track = 0;
        while (const auto distance = static_cast<std::size_t>(takeNumber())) {
            track += distance;
            const unsigned long long changed = takeNumber();
            unsigned long long bit = 1;
            TrackPosition& position = m_state.tracks[track - 1];
            forEachField(position, position, [&](auto& number, auto&) {
                if (changed & bit)
                    takeStep(number);
                bit <<= 1;
            });
        }
    }

private:
    unsigned long long takeNumber()
    {
        unsigned long long value = 0;
        for (int shift = 0;; shift += 7) {
            const unsigned char byte = *m_in++;
            value |= static_cast<unsigned long long>(byte & 0x7F) << shift;
            if (byte < 0x80)
                return value;
        }
    }

    template <typename Number>
    void takeStep(Number& number)
    {
        const unsigned long long coded = takeNumber();
        number =
            static_cast<Number>(static_cast<unsigned long long>(number) + (coded >> 1 ^ (0 - (coded & 1))));
    }

    const unsigned char* m_in;
    CursorState m_state;
};

std::size_t BoundaryList::append(const CursorState& state)
{
    std::size_t bytes = 0;
    if (m_size % kBlockSize == 0) {
        if (!m_blocks.empty()) {
            Block& full = m_blocks.back();
            full.size = static_cast<unsigned>(m_open.size());
            full.bytes = std::make_unique_for_overwrite<unsigned char[]>(m_open.size());
            std::copy(m_open.begin(), m_open.end(), full.bytes.get());
            m_bytes += full.size;
        }
        m_open.clear();
        m_blocks.push_back({{state.index, state.time}, 0, nullptr});
        m_last.tracks.resize(state.tracks.size());
        m_last = emptyState();
        bytes = kDequeElement<Block> + kBlockOverhead;
    }
    const std::size_t before = m_open.size();
    putStep(m_open, std::exchange(m_last.index, state.index), state.index);
    putStep(m_open, std::exchange(m_last.time, state.time), state.time);
    putStep(m_open, std::exchange(m_last.tablePage, state.tablePage), state.tablePage);
    std::size_t written = 0;
    for (std::size_t i = 0; i < state.tracks.size(); ++i) {
        TrackPosition position = state.tracks[i];
        exchangeMediaTime(position);
        if (position == m_last.tracks[i])
            continue;
        putNumber(m_open, i + 1 - written);
        written = i + 1;
        putPosition(m_open, position, m_last.tracks[i]);
    }
    putNumber(m_open, 0);
    ++m_size;
    return bytes + m_open.size() - before;
}

BoundaryList::Reader BoundaryList::readerAt(std::size_t block) const
{
    const bool isLast = block + 1 == m_blocks.size();
    return {isLast ? m_open.data() : m_blocks[block].bytes.get(), emptyState()};
}

CursorState BoundaryList::state(std::size_t i) const
{
    Reader reader = readerAt(i / kBlockSize);
    for (std::size_t left = i % kBlockSize + 1; left != 0; --left)
        reader.next();
    CursorState state = reader.state();
    for (TrackPosition& position : state.tracks)
        exchangeMediaTime(position);
    if (m_onePage)
        state.tablePage = 0;
    return state;
}

BoundaryPoint BoundaryList::point(std::size_t i) const
{
    if (i % kBlockSize == 0)
        return m_blocks[i / kBlockSize].first;
    if (i + 1 == m_size)
        return back();
    const CursorState found = state(i);
    return {found.index, found.time};
}

template <typename Value>
std::size_t BoundaryList::lowerBound(Value BoundaryPoint::*field, Value value) const
{
    const auto after = std::partition_point(m_blocks.begin(), m_blocks.end(),
                                            [&](const Block& block) { return block.first.*field < value; });
    if (after == m_blocks.begin())
        return 0;
    const auto block = static_cast<std::size_t>(after - m_blocks.begin()) - 1;
    const std::size_t end = std::min(m_size, (block + 1) * kBlockSize);
    Reader reader = readerAt(block);
    for (std::size_t i = block * kBlockSize; i < end; ++i) {
        reader.next();
        if (BoundaryPoint{reader.state().index, reader.state().time}.*field >= value)
            return i;
    }
    return end;
}

template std::size_t BoundaryList::lowerBound(long long BoundaryPoint::*, long long) const;
template std::size_t BoundaryList::lowerBound(unsigned BoundaryPoint::*, unsigned) const;

std::size_t BoundaryList::reportMemorySize() const
{
    return m_bytes + m_blocks.size() * (kDequeElement<Block> + kBlockOverhead) + m_open.capacity() +
           m_last.tracks.capacity() * sizeof(TrackPosition);
}

}  // namespace krx::mp4
