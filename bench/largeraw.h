// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdint>
#include <string>

namespace krx::bench {

/// A sound recording: audio and video messages in turn, in segments of about the same size, and metadata.
/// Message lengths are spread evenly over [minLength, maxLength] by a fixed sequence; the same arguments give
/// the same files.
struct LargeRaw
{
    std::uint64_t segments = 0;
    std::uint64_t targetBytes = 0;  ///< of all segment files; 0: only the index and the contexts are written
    std::uint32_t minLength = 200;
    std::uint32_t maxLength = 40960;
};

/// What was written.
struct LargeRawFacts
{
    std::uint64_t bytes = 0;  ///< of all files
    std::uint64_t messages = 0;
};

/// Writes the recording to a directory, which is created. Without segment files the index lists segments
/// of 100 messages. Throws std::runtime_error when a file cannot be written.
LargeRawFacts writeLargeRaw(const std::string& directory, const LargeRaw& wanted);

}  // namespace krx::bench
