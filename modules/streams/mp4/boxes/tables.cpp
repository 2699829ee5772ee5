// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/boxreader.h"
#include "modules/streams/mp4/trackinfo.h"

#include <algorithm>
#include <cstring>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;
using krx::util::FilePos;

constexpr unsigned kTopBit = 0x80000000U;

/// Makes the table of count entries at the position, loaded. entrySize is that of the file, in bytes.
template <typename T>
void loadTable(BoxReader& in, PageableArray<T>& table, unsigned count, unsigned entrySize)
{
    in.memory().charge(static_cast<unsigned long long>(count) * sizeof(T));
    table.init(count, in.position(), in.file(), entrySize);
}

/// The same, with the count at the position.
template <typename T>
void readTable(BoxReader& in, PageableArray<T>& table, unsigned entrySize)
{
    const unsigned count = in.readU32();
    loadTable(in, table, count, entrySize);
}

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

/// The first of count numbers that is at least least; count when there is none.
unsigned firstFrom(const WordColumn& numbers, unsigned count, unsigned long long least)
{
    unsigned i = 0;
    while (i < count && numbers[i] < least)
        ++i;
    return i;
}

/// at: of the bytes that are not supported.
[[noreturn]] void refuseEditList(const BoxReader& in, FilePos at)
{
    in.failAt(at, krx::streams::kUnsupportedEditList);
}

/// Supports only lists where gaps and media alternate, media comes last, and no media time decreases.
void readEditListEntries(BoxReader& in, EditList& list, MemoryCharge& charge)
{
    const FilePos start = in.position();
    const unsigned version = in.readU8();
    in.skip(3);  // flags
    if (version > 1)
        refuseEditList(in, start);
    const unsigned count = in.readU32();
    const unsigned entrySize = version == 1 ? 20 : 12;
    if (count > in.bytesLeft(in.fileSize()) / entrySize)
        refuseEditList(in, start + 4);
    charge.add(in.memory(), static_cast<unsigned long long>(count) * sizeof(EditListEntry));
    list.entries.reserve(count);

    long long mediaTime = 0;
    for (unsigned i = 0; i < count; ++i) {
        const FilePos entryStart = in.position();
        EditListEntry entry;
        entry.duration = version == 1 ? in.readU64() : in.readU32();
        entry.mediaTime =
            version == 1 ? static_cast<long long>(in.readU64()) : static_cast<int>(in.readU32());
        if (EditList::isGapEntry(i, count)) {
            if (entry.mediaTime != -1)
                refuseEditList(in, entryStart);
        } else {
            if (entry.mediaTime < mediaTime)
                refuseEditList(in, entryStart);
            mediaTime = entry.mediaTime;
        }
        entry.rate = in.readU32();
        if (entry.rate == 0)
            refuseEditList(in, entryStart);
        list.entries.push_back(entry);
    }
}

}  // namespace

void readTimeToSample(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    constexpr unsigned kEntrySize = 8;
    constexpr unsigned kDelta = 4;  // after the count
    PageableArray<TimeToSample>& table = track.timeToSample;
    readTable(in, table, kEntrySize);
    if (table.size() == 0 || (unionOf<kEntrySize>(table.at(0) + kDelta, table.size()) & kTopBit) == 0)
        return;
    const unsigned first = firstFrom({table.at(0) + kDelta, kEntrySize}, table.size(), kTopBit);
    in.warnAt(in.position() + FilePos{first} * kEntrySize, krx::streams::kInvalidSampleDuration);
}

void readCompositionToSample(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    readTable(in, track.compositionOffsets, 8);
}

void readSampleToChunk(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    readTable(in, track.sampleToChunk, 12);
}

void readChunkOffset(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    readTable(in, track.chunkOffsets, box.type == fourCC("stco") ? 4 : 8);
}

void readSyncSample(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    if (const unsigned count = in.readU32())
        loadTable(in, track.syncSamples, count, 4);
}

void readSampleSize(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    constexpr unsigned kEntrySize = 4;
    const FilePos constantPos = in.position();
    track.constantSampleSize = in.readU32();
    track.sampleCount = in.readU32();
    const auto limit =
        static_cast<unsigned long long>(std::min<long long>(in.fileSize(), in.config().MaxSampleSize));
    if (track.constantSampleSize != 0) {
        if (track.constantSampleSize >= limit)
            in.failAt(constantPos, krx::streams::kInvalidSampleSize);
        return;
    }
    const unsigned tableSize = track.sampleCount * kEntrySize;  // wraps; the table's own check is exact
    if (in.bytesLeft(box.end) < tableSize)
        throw StreamParseError(krx::streams::kInvalidEntryCount);
    loadTable(in, track.sampleSizes, track.sampleCount, kEntrySize);
    // No size exceeds the union of their bits, which mostly shows that none is too large.
    if (track.sampleCount == 0 || unionOf<kEntrySize>(track.sampleSizes.at(0), track.sampleCount) < limit)
        return;
    const unsigned first = firstFrom(track.sampleSizes.words(0), track.sampleCount, limit);
    if (first < track.sampleCount)
        in.failAt(in.position() + FilePos{first} * kEntrySize, krx::streams::kInvalidSampleSize);
}

void readSampleFlags(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    if (track.sampleCount == 0) {
        in.warn(krx::streams::kUnsupportedSampleFlags);
        return;
    }
    if (in.bytesLeft(box.end) < track.sampleCount)
        throw StreamParseError(krx::streams::kInvalidEntryCount);
    loadTable(in, track.sampleFlags, track.sampleCount, 1);
}

void readEditList(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    auto list = std::make_shared<EditList>();
    list->filePos = box.start;
    MemoryCharge charge;
    FilePos refused = box.start;
    try {
        readEditListEntries(in, *list, charge);
        list->freeSize = readReservedRoom(in, box).value_or(0);
        charge.keep();
    } catch (const MemoryLimitError&) {
        throw;
    } catch (const StreamParseError& error) {
        list.reset();
        if (error.hasPlace())
            refused = error.place().offset;
    }
    track.editList = list;
    if (!list)
        in.warnAt(refused, krx::streams::kUnsupportedEditList);
}

std::optional<long long> readReservedRoom(BoxReader& in, const BoxHeader& parent)
{
    if (in.bytesLeft(parent.end) <= kBoxHeaderSize)
        return std::nullopt;
    const BoxHeader box = in.readHeader(parent);
    return box.isFreeBox() ? std::optional(box.size - kBoxHeaderSize) : std::nullopt;
}

}  // namespace krx::mp4
