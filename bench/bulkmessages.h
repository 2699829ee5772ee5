// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace krx::bench {

class BulkWriter;

constexpr std::uint32_t kMessageSpacing = 20;  ///< ms between two messages

/// Lengths that are spread evenly over [min, max]; the same arguments give the same sequence.
class MessageLengths
{
public:
    MessageLengths(std::uint32_t min, std::uint32_t max) : m_min(min), m_range(max - min + 1) {}

    std::uint32_t next()
    {
        m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
        return m_min + static_cast<std::uint32_t>((m_state >> 33) % m_range);
    }

private:
    std::uint32_t m_min;
    std::uint32_t m_range;
    std::uint64_t m_state = 1;
};

/// The body of an "onMetaData" message; duration in seconds.
std::string metadataBody(double duration);

/// Writes a message with header and back-pointer. Its body is the given bytes (at most length) and filler.
/// time in ms.
void putMessage(BulkWriter& out, std::uint8_t type, std::uint32_t length, std::uint32_t time,
                std::string_view body = {});

}  // namespace krx::bench
