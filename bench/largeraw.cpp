// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/largeraw.h"

#include "bench/bulkmessages.h"
#include "bench/bulkwriter.h"
#include "util/messagerecord.h"

#include <array>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

namespace krx::bench {
namespace {

constexpr std::uint64_t kIndexOnlyMessages = 100;  ///< in each segment without a file

/// One record of the index.
struct Bounds
{
    std::uint64_t start;
    std::uint64_t end;
    std::uint32_t startTime;
    std::uint32_t endTime;
};

std::uint32_t timeOf(std::uint64_t message)
{
    const std::uint64_t time = message * kMessageSpacing;
    if (time >= std::numeric_limits<std::uint32_t>::max())
        throw std::runtime_error("too many messages for times of 32 bits");
    return static_cast<std::uint32_t>(time);
}

/// Ends a segment after the messages below end.
void addBounds(std::vector<Bounds>& bounds, std::uint64_t end)
{
    const Bounds last = bounds.empty() ? Bounds{0, 0, 0, 0} : bounds.back();
    bounds.push_back({bounds.empty() ? 0 : last.end + 1, end - 1, last.endTime, timeOf(end - 1) + 1});
}

std::uint64_t writeIndex(const std::string& directory, const std::vector<Bounds>& bounds, std::uint64_t size)
{
    BulkWriter out(directory + "/index");
    out.u32(0x10000);
    out.u8(5);
    out.u64(size);
    out.u32(static_cast<std::uint32_t>(bounds.size()));
    for (const Bounds& segment : bounds) {
        out.u64(segment.start);
        out.u64(segment.end);
        out.u32(segment.startTime);
        out.u32(segment.endTime);
    }
    const std::uint64_t bytes = out.position();
    out.finish();
    return bytes;
}

void putName(BulkWriter& out, std::string_view name)
{
    out.u16(static_cast<std::uint16_t>(name.size()));
    out.bytes(name.data(), name.size());
}

void putNumber(BulkWriter& out, std::string_view name, double value)
{
    putName(out, name);
    out.u8(0);
    out.u64(std::bit_cast<std::uint64_t>(value));
}

/// One context: the metadata of the stream.
std::uint64_t writeContexts(const std::string& directory, double duration)
{
    const std::string body = metadataBody(duration);
    BulkWriter out(directory + "/contexts");
    out.u8(8);
    out.u32(0);
    putName(out, "");
    out.u8(3);
    putNumber(out, "messageType", 18);
    putNumber(out, "time", 0);
    putName(out, "buffer");
    out.u8(32);
    out.u32(static_cast<std::uint32_t>(body.size()));
    out.bytes(body.data(), body.size());
    putNumber(out, "position", -2);
    putNumber(out, "trackID", 2);
    putNumber(out, "contextType", 1);
    for (int end = 0; end < 2; ++end) {  // of the object and of the array
        putName(out, "");
        out.u8(9);
    }
    const std::uint64_t bytes = out.position();
    out.finish();
    return bytes;
}

std::string segmentPath(const std::string& directory, std::uint64_t start)
{
    std::array<char, 18> name{};
    std::snprintf(name.data(), name.size(), "/%016X", static_cast<unsigned>(start));
    return directory + name.data();
}

/// Writes the segment files and adds them to facts.
std::vector<Bounds> writeSegments(const std::string& directory, const LargeRaw& wanted, LargeRawFacts& facts)
{
    std::vector<Bounds> bounds;
    MessageLengths lengths(wanted.minLength, wanted.maxLength);
    for (std::uint64_t k = 1; k <= wanted.segments; ++k) {
        // A segment ends with the message that reaches its share of the bytes, and has at least one.
        const std::uint64_t share = wanted.targetBytes / wanted.segments * k;
        BulkWriter out(segmentPath(directory, facts.messages));
        do {
            const std::uint32_t length = lengths.next();
            const bool video = facts.messages % 2 != 0;
            putMessage(out, video ? 9 : 8, length, timeOf(facts.messages), video ? "\x27" : "\xAF");
            ++facts.messages;
            facts.bytes += length + krx::util::kRecordOverhead;
        } while (facts.bytes < share);
        out.finish();
        addBounds(bounds, facts.messages);
    }
    return bounds;
}

}  // namespace

LargeRawFacts writeLargeRaw(const std::string& directory, const LargeRaw& wanted)
{
    if (wanted.minLength == 0 || wanted.minLength > wanted.maxLength || wanted.maxLength > 0xFFFFFF ||
        wanted.segments == 0 || wanted.segments > std::numeric_limits<std::uint32_t>::max())
        throw std::runtime_error("a length range and a number of segments are needed");
    std::error_code failure;
    std::filesystem::create_directories(directory, failure);
    if (failure)
        throw std::runtime_error("cannot create " + directory);

    LargeRawFacts facts;
    std::vector<Bounds> bounds;
    if (wanted.targetBytes != 0) {
        bounds = writeSegments(directory, wanted, facts);
    } else {
        for (std::uint64_t k = 1; k <= wanted.segments; ++k)
            addBounds(bounds, k * kIndexOnlyMessages);
        facts.messages = wanted.segments * kIndexOnlyMessages;
    }
    facts.bytes += writeIndex(directory, bounds, facts.bytes);
    facts.bytes += writeContexts(directory, bounds.back().endTime / 1000.0);
    return facts;
}

}  // namespace krx::bench
