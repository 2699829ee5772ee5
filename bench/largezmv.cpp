// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/largezmv.h"

#include "bench/bulkmessages.h"
#include "bench/bulkwriter.h"
#include "util/messagerecord.h"

#include <stdexcept>

namespace krx::bench {

LargeZmvFacts writeLargeZmv(const std::string& path, const LargeZmv& wanted)
{
    if (wanted.minLength > wanted.maxLength || wanted.maxLength > 0xFFFFFF ||
        (wanted.targetBytes == 0 && wanted.targetMessages == 0))
        throw std::runtime_error("a length range and a size or a number of messages are needed");

    const std::size_t metadataLength = metadataBody(0).size();
    LargeZmvFacts facts;
    facts.bytes = 9 + 4 + metadataLength + krx::util::kRecordOverhead;
    const auto done = [&wanted](const LargeZmvFacts& now) {
        return (wanted.targetBytes && now.bytes >= wanted.targetBytes) ||
               (wanted.targetMessages && now.messages >= wanted.targetMessages);
    };

    // The metadata at the front states the duration, which the number of messages decides.
    for (MessageLengths lengths(wanted.minLength, wanted.maxLength); !done(facts); ++facts.messages)
        facts.bytes += lengths.next() + krx::util::kRecordOverhead;
    const double duration =
        facts.messages ? static_cast<double>(facts.messages - 1) * kMessageSpacing / 1000.0 : 0;

    BulkWriter out(path);
    out.bytes("ZMV\x01\x05", 5);
    out.u32(9);
    out.u32(0);
    putMessage(out, 18, static_cast<std::uint32_t>(metadataLength), 0, metadataBody(duration));
    MessageLengths lengths(wanted.minLength, wanted.maxLength);
    for (std::uint64_t i = 0; i < facts.messages; ++i)
        putMessage(out, i % 2 ? 9 : 8, lengths.next(), static_cast<std::uint32_t>(i * kMessageSpacing));
    out.finish();
    return facts;
}

}  // namespace krx::bench
