// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Plays an MP4 file: opens it, looks segments up and loads them. The first byte chooses the options, the rest
// is the file. Besides crashes, it checks that a file opens or stands for one status message, segments are
// contiguous, each load that succeeds delivers no more messages than positions, and the contexts survive
// their file form.

#include "fuzz/fuzzing.h"
#include "modules/streams/mp4/mp4Data.h"
#include "tests/support/memoryfileio.h"
#include "util/messagerecord.h"

#include <string>

namespace {

using krx::mp4::Mp4Config;
using krx::mp4::Mp4Data;

/// Memory that stays with a file for each of its bytes.
constexpr std::size_t kMemoryPerByte = 64;
constexpr std::size_t kMemoryFloor = 400'000;

/// Tables can claim many samples; a few segments show what there is.
constexpr int kMaxLoads = 12;
constexpr long long kMaxMessages = 100000;

/// Counts positions, and reads every byte.
class CountingHolder : public ISegmentHolder
{
public:
    bool add(unsigned char type, void* data, unsigned length, unsigned) override
    {
        const auto* bytes = static_cast<const unsigned char*>(data);
        for (unsigned i = 0; i < length; ++i)
            sum += bytes[i];
        if (type != kMsgAggregate) {
            ++messages;
            return true;
        }
        krx::util::MessageRecord record;
        for (unsigned at = 0; at < length; at += record.size()) {
            require(krx::util::readRecord(bytes + at, length - at, record) == krx::util::RecordState::kWhole);
            ++messages;
        }
        return true;
    }
    void addDep(unsigned, unsigned) override {}

    long long messages = 0;
    unsigned sum = 0;
};

class ContextsHolder : public IAllContextHolder
{
public:
    void add(void* data, unsigned length) override { bytes.assign(static_cast<char*>(data), length); }
    std::string bytes;
};

void load(Mp4Data& data)
{
    SegmentBounds before;
    SegmentBounds bounds;
    int loads = 0;
    for (long long i = 0; i < data.getEndPosition() && loads < kMaxLoads; i = bounds.end + 1, ++loads) {
        require(data.findSegmentByPos(i, &bounds) && bounds.start == i && bounds.end >= i);
        require(i == 0 || bounds.startTime == before.endTime);
        require(bounds.startTime <= bounds.endTime);
        // Segments without duration may come before this one and start at the same time.
        SegmentBounds byTime;
        if (bounds.startTime < bounds.endTime) {
            require(data.findSegmentByTime(bounds.startTime, &byTime));
            require(byTime == bounds || (byTime.startTime == bounds.startTime &&
                                         byTime.endTime == bounds.startTime && byTime.start < bounds.start));
        }
        CountingHolder holder;
        // Time coordination is left out of a segment. Millions of empty messages are not worth their time.
        if (bounds.end - bounds.start < kMaxMessages && data.loadSegment(&bounds, &holder))
            require(holder.messages <= bounds.end - bounds.start + 1);
        before = bounds;
    }
    require(loads == kMaxLoads || !data.findSegmentByPos(data.getEndPosition(), &bounds));
}

void checkContexts(const Mp4Data& data)
{
    ContextsHolder holder;
    if (!data.getAllMediaContexts(&holder))
        return;
    SRBuffer buffer(static_cast<unsigned>(holder.bytes.size()));
    std::copy(holder.bytes.begin(), holder.bytes.end(), buffer.base());
    buffer.setEnd(static_cast<unsigned>(holder.bytes.size()));
    krx::MediaContexts again;
    require(again.importContexts(buffer));
    SRBuffer exported;
    require(again.exportContexts(exported) && exported.length() == buffer.length());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        return 0;
    Mp4Config config;
    config.EnableAggMsgs = (bytes[0] & 1) != 0;
    config.MaxAggMsgSize = (bytes[0] & 2) != 0 ? 100 : 65536;
    config.MaxTracks = (bytes[0] & 4) != 0 ? 2 : 64;
    krx::test::MemoryFileIo io(std::string(bytes + 1, bytes + size));
    Mp4Data data(SRMBString("movie.mp4"), nullptr, &io, 0, config);
    data.getFile().setWarningsAsErrors((bytes[0] & 8) != 0);
    const auto status = data.init();
    require(status != krx::mp4::kLoadCannotOpen);
    if (status == krx::mp4::kLoadFailed)
        return 0;
    require(data.getMemoryOverhead() <= size * kMemoryPerByte + kMemoryFloor);
    load(data);
    checkContexts(data);
    require(!io.isOpen());
    return 0;
}
