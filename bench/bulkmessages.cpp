// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/bulkmessages.h"

#include "bench/bulkwriter.h"
#include "util/messagerecord.h"

#include <bit>

namespace krx::bench {
namespace {

std::string text(std::string_view value)
{
    std::string out;
    out += static_cast<char>(value.size() >> 8);
    out += static_cast<char>(value.size());
    return out.append(value);
}

}  // namespace

std::string metadataBody(double duration)
{
    std::string out = '\x02' + text("onMetaData") + '\x08' + std::string(4, '\0') + text("duration") + '\0';
    const auto bits = std::bit_cast<std::uint64_t>(duration);
    for (int shift = 56; shift >= 0; shift -= 8)
        out += static_cast<char>(bits >> shift);
    return out + text("canSeekToEnd") + '\x01' + '\x01' + text("") + '\x09';
}

void putMessage(BulkWriter& out, std::uint8_t type, std::uint32_t length, std::uint32_t time,
                std::string_view body)
{
    unsigned char header[krx::util::RecordHeader::kSize];
    krx::util::RecordHeader{type, length, time, 0}.store(header);
    out.bytes(header, sizeof header);
    out.bytes(body.data(), body.size());
    out.fill(length - body.size());
    out.u32(krx::util::backPointerOf(length));
}

}  // namespace krx::bench
