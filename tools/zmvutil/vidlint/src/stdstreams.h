// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string_view>

/// Makes the process's surroundings safe for a program that opens files: descriptors 0 to 2 that are closed
/// become the null device, so that no file can stand where standard output is expected, and a closed pipe or
/// a file size limit is a failed write instead of a deadly signal.
void prepareStandardStreams() noexcept;

/// Gives up standard output: readers of it see its end, and its descriptor stays occupied.
void closeStandardOutput() noexcept;

/// Writes all of the text to standard output; false when that failed.
bool writeStandardOutput(std::string_view text) noexcept;
/// The same for standard error.
bool writeStandardError(std::string_view text) noexcept;
