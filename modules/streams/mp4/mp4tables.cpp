// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4.h"
#include "modules/streams/mp4/mp4fileio.h"

#include <algorithm>
#include <cstring>
#include <optional>

// The sample tables and the edit list of a track. A table counts as present once it has entries, so a box
// that repeats an empty one is no duplicate.

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

constexpr unsigned kTopBit = 0x80000000U;

/// The bits of count 32-bit numbers, kStride bytes from one to the next.
template <std::size_t kStride>
unsigned unionOf(const unsigned char* p, std::size_t count)
{
    unsigned bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        unsigned word;
        std::memcpy(&word, p + i * kStride, sizeof(word));
        bits |= word;
    }
    return krx::util::fromBigEndian(bits);
}

unsigned largestSize(const WordColumn& sizes, unsigned count)
{
    unsigned largest = 0;
    for (unsigned i = 0; i < count; ++i)
        largest = std::max(largest, sizes[i]);
    return largest;
}

[[noreturn]] void refuseEditList()
{
    throw StreamParseError(krx::streams::kUnsupportedEditList);
}

}  // namespace

/// Makes the table of count entries at the position, loaded, and leaves the position where it is.
template <typename T>
void MP4File::initTable(PageableArray<T>& table, unsigned count, unsigned entrySize)
{
    m_memory.charge(static_cast<unsigned long long>(count) * sizeof(T));
    table.init(count, curPos(), m_io, entrySize);
}

unsigned MP4File::parseNumEntries(bool zeroAllowed)
{
    const unsigned count = readU32();
    if (count == 0 && !zeroAllowed)
        throw StreamParseError(krx::streams::kInvalidEntryCount);
    return count;
}

void MP4File::parseTimeToSample(const BoxHeader& box)
{
    PageableArray<TimeToSample>& table = m_curTrack->timeToSample;
    verifyUniqueBox(table.size() != 0);
    parseVersion(box);
    initTable(table, parseNumEntries(true), 8);
    if (unionOf<8>(table.at(0) + 4, table.size()) & kTopBit)
        warn(krx::streams::kInvalidSampleDuration);
}

void MP4File::parseCompositionToSample(const BoxHeader& box)
{
    verifyUniqueBox(m_curTrack->compositionOffsets.size() != 0);
    parseVersion(box);
    initTable(m_curTrack->compositionOffsets, parseNumEntries(true), 8);
}

void MP4File::parseSampleToChunk(const BoxHeader& box)
{
    verifyUniqueBox(m_curTrack->sampleToChunk.size() != 0);
    parseVersion(box);
    initTable(m_curTrack->sampleToChunk, parseNumEntries(true), 12);
}

void MP4File::parseChunkOffset(const BoxHeader& box)
{
    verifyUniqueBox(m_curTrack->chunkOffsets.size() != 0);
    parseVersion(box);
    initTable(m_curTrack->chunkOffsets, parseNumEntries(true), box.type == fourCC("stco") ? 4 : 8);
}

void MP4File::parseSyncSample(const BoxHeader& box)
{
    verifyUniqueBox(m_curTrack->syncSamples.size() != 0);
    parseVersion(box);
    if (const unsigned count = parseNumEntries(true))
        initTable(m_curTrack->syncSamples, count, 4);
}

void MP4File::parseSampleSize(const BoxHeader& box)
{
    TrackInfo& track = *m_curTrack;
    verifyUniqueBox(track.sampleSizes.size() != 0);
    parseVersion(box);
    track.constantSampleSize = readU32();
    track.sampleCount = readU32();
    const long long limit = std::min<long long>(m_io->Size(), m_config.MaxSampleSize);
    unsigned largest = track.constantSampleSize;
    if (largest == 0) {
        const unsigned tableSize = track.sampleCount * 4;  // wraps; the table's own check is exact
        if (bytesLeft(box.end) < tableSize)
            throw StreamParseError(krx::streams::kInvalidEntryCount);
        initTable(track.sampleSizes, track.sampleCount, 4);
        if (track.sampleCount == 0)
            return;
        // No size is larger than the bits of all together: mostly they show that none is too large.
        largest = unionOf<4>(track.sampleSizes.at(0), track.sampleCount);
        if (largest >= limit)
            largest = largestSize(track.sampleSizes.words(0), track.sampleCount);
    }
    if (largest >= limit)
        throw StreamParseError(krx::streams::kInvalidSampleSize);
}

void MP4File::parseSampleFlags(const BoxHeader& box)
{
    TrackInfo& track = *m_curTrack;
    verifyUniqueBox(track.sampleFlags.size() != 0);
    parseVersion(box);
    if (track.sampleCount == 0) {
        warn(krx::streams::kUnsupportedSampleFlags);
        return;
    }
    if (bytesLeft(box.end) < track.sampleCount)
        throw StreamParseError(krx::streams::kInvalidEntryCount);
    initTable(track.sampleFlags, track.sampleCount, 1);
}

void MP4File::parseEditList(const BoxHeader& box)
{
    verifyUniqueBox(m_curTrack->editList != nullptr);
    auto list = std::make_shared<EditList>();
    list->filePos = box.start;
    MemoryCharge charge;
    try {
        parseEditListEntries(*list, charge);
        list->freeSize = parseTrailingFreeBox(box).value_or(0);
        charge.keep();
    } catch (const MemoryLimitError&) {
        throw;
    } catch (const StreamParseError&) {
        list.reset();
    }
    m_curTrack->editList = list;
    if (!list)
        warn(krx::streams::kUnsupportedEditList);
}

/// Supported are gaps and media by turns, media last, and no media time before the one of an earlier entry.
void MP4File::parseEditListEntries(EditList& list, MemoryCharge& charge)
{
    const unsigned version = readU8();
    skip(3);
    if (version > 1)
        refuseEditList();
    const unsigned count = readU32();
    const unsigned entrySize = version == 1 ? 20 : 12;
    if (count > bytesLeft(m_io->Size()) / entrySize)
        refuseEditList();
    charge.add(m_memory, static_cast<unsigned long long>(count) * sizeof(EditListEntry));
    list.entries.reserve(count);

    long long mediaTime = 0;
    for (unsigned i = 0; i < count; ++i) {
        EditListEntry entry;
        entry.duration = version == 1 ? readU64() : readU32();
        entry.mediaTime = version == 1 ? static_cast<long long>(readU64()) : static_cast<int>(readU32());
        if (EditList::isGapEntry(i, count)) {
            if (entry.mediaTime != -1)
                refuseEditList();
        } else {
            if (entry.mediaTime < mediaTime)
                refuseEditList();
            mediaTime = entry.mediaTime;
        }
        entry.rate = readU32();
        if (entry.rate == 0)
            refuseEditList();
        list.entries.push_back(entry);
    }
}

/// The room in a free box that follows what was read of its parent.
std::optional<long long> MP4File::parseTrailingFreeBox(const BoxHeader& parent)
{
    if (bytesLeft(parent.end) <= 8)
        return std::nullopt;
    const BoxHeader box = parseBoxHeader(parent);
    return box.isFreeBox() ? std::optional(box.size - 8) : std::nullopt;
}

}  // namespace krx::mp4
