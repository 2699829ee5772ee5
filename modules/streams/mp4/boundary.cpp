// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boundary.h"

#include "modules/streams/mp4/memorybudget.h"

#include <algorithm>
#include <array>
#include <utility>

namespace krx::mp4 {
namespace {

/// Bytes that a number takes at most.
constexpr std::size_t kMaxNumber = 10;

/// Seven bits a byte, the low ones first; the high bit is set where more follow. Returns the end of what was
/// written.
unsigned char* putNumber(unsigned char* out, unsigned long long value)
{
    for (; value >= 0x80; value >>= 7)
        *out++ = static_cast<unsigned char>(value | 0x80);
    *out++ = static_cast<unsigned char>(value);
    return out;
}

/// Writes the difference of two numbers, with its sign in the lowest bit. Differences wrap.
template <typename Number>
unsigned char* putStep(unsigned char* out, Number from, Number to)
{
    const unsigned long long step =
        static_cast<unsigned long long>(to) - static_cast<unsigned long long>(from);
    return putNumber(out, step << 1 ^ (0 - (step >> 63)));
}

/// Appends the distance from the track written before, a mask of the numbers that changed, and their
/// differences. Appends nothing and returns false when none changed.
bool putPosition(std::vector<unsigned char>& out, unsigned long long distance, const TrackPosition& to,
                 TrackPosition& from)
{
    constexpr std::size_t kFields = 25;
    constexpr std::size_t kHead = 2 * kMaxNumber;
    std::array<unsigned char, kHead + kFields * kMaxNumber> bytes;
    unsigned char* const steps = bytes.data() + kHead;
    unsigned char* end = steps;
    unsigned changed = 0;
    unsigned bit = 1;
    TrackPosition::visit(to, from, [&](const auto& number, auto& former) {
        if (number != former) {
            changed |= bit;
            end = putStep(end, former, number);
            former = number;
        }
        bit <<= 1;
    });
    if (changed == 0)
        return false;
    // The head is known only now; it is placed directly before the differences.
    std::array<unsigned char, kHead> head;
    unsigned char* const headEnd = putNumber(putNumber(head.data(), distance), changed);
    out.insert(out.end(), std::copy_backward(head.data(), headEnd, steps), end);
    return true;
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
            TrackPosition::visit(position, position, [&](auto& number, auto&) {
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
    std::array<unsigned char, 3 * kMaxNumber> head;
    unsigned char* end = putStep(head.data(), std::exchange(m_last.index, state.index), state.index);
    end = putStep(end, std::exchange(m_last.time, state.time), state.time);
    end = putStep(end, std::exchange(m_last.tablePage, state.tablePage), state.tablePage);
    m_open.insert(m_open.end(), head.data(), end);
    std::size_t written = 0;
    for (std::size_t i = 0; i < state.tracks.size(); ++i) {
        if (putPosition(m_open, i + 1 - written, state.tracks[i], m_last.tracks[i]))
            written = i + 1;
    }
    m_open.push_back(0);
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
