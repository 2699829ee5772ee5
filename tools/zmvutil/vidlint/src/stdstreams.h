// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string_view>

/// Makes the process safe for opening files. Closed descriptors from 0 to 2 become the null device: no file
/// that is opened can take the place of standard output. A closed pipe or a file size limit becomes a failed
/// write instead of a deadly signal.
void prepareStandardStreams() noexcept;

/// Gives up standard output: readers of it see its end, and its descriptor stays occupied.
void closeStandardOutput() noexcept;

/// Writes all of the text to standard output; false when that failed.
bool writeStandardOutput(std::string_view text) noexcept;
/// The same for standard error.
bool writeStandardError(std::string_view text) noexcept;
