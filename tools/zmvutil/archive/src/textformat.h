// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <string>
#include <string_view>

namespace archive {

/// Text for a terminal or a file of lines. Control characters, bidirectional marks and bytes that are no
/// UTF-8 are shown escaped, as \n, \x1b or \u202e; a backslash as two.
std::string escaped(std::string_view bytes);

/// One line for each finding of the record, "PATH: error -18 Truncated box. (moov/trak[1] at 1234)
/// cut-short\n", and one for an input that has a cause without a finding that says so. Nothing for an input
/// without either.
std::string linesOf(const InputRecord& record, bool color);

/// Everything about one input, for people: tracks, what plays until when, each finding with its place and
/// what to do. explain returns the text of a number for that; it may be empty.
std::string describe(const InputRecord& record, bool color);

}  // namespace archive
