// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdint>
#include <string>

namespace krx::bench {

/// A sound ZMV file of any size: one onMetaData message, then audio and video messages in turn. Their lengths
/// are spread evenly over [minLength, maxLength] by a fixed sequence; the same arguments give the same file.
struct LargeZmv
{
    std::uint64_t targetBytes = 0;     ///< stop at the first message at or past this size; 0: no such end
    std::uint64_t targetMessages = 0;  ///< stop after this many messages; 0: no such end
    std::uint32_t minLength = 200;
    std::uint32_t maxLength = 40960;
};

/// What was written.
struct LargeZmvFacts
{
    std::uint64_t bytes = 0;
    std::uint64_t messages = 0;
};

/// Writes the file in pieces. Throws std::runtime_error when it cannot be written.
LargeZmvFacts writeLargeZmv(const std::string& path, const LargeZmv& wanted);

}  // namespace krx::bench
