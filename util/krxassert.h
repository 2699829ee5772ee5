// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <functional>

class SRString;

namespace krx::util {

/// Reports that an assumption did not hold and returns: the caller goes on with a neutral result. file and
/// line are a stable name that operators know (for example "server/SRCommand"), not the source line. The
/// report "Assert failed in FILE line N" goes to the sink, if there is one; what the sink throws is
/// swallowed.
void assertFailed(const char* file, int line) noexcept;

/// Builds the same text with "Ensure" and throws it as an SRException.
[[noreturn]] void ensureFailed(const char* file, int line);

using AssertSink = std::function<void(const SRString& text)>;

/// Installs the receiver of assertion reports for the whole process and returns the one before. An empty
/// function silences them. The sink may be called from any thread.
AssertSink setAssertSink(AssertSink sink);

}  // namespace krx::util
