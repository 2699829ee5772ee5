// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <string>
#include <string_view>

namespace archive {

/// Text for a terminal or a file of lines. Control characters, bidirectional marks, what has no shape, and
/// bytes that are no UTF-8 are shown escaped, as \n, \x1b or \u202e; a backslash as two. The result is UTF-8.
std::string escaped(std::string_view bytes);
/// The same of the first maxBytes bytes or a little less, and "..." for the rest.
std::string escapedStart(std::string_view bytes, std::size_t maxBytes);
bool isUtf8(std::string_view bytes);

/// Milliseconds as in "0:07.250" or "1:02:03.004".
std::string timeText(long long ms);
/// Where a finding was made, and the failed system call, as in "moov/trak[1]/mdia at 1234, track 1,
/// 0:07.250"; empty when nothing is known. Escaped.
std::string placeText(const vidlint::Finding& finding);
/// What to do about an input, as in "fetch the rest"; empty for kNone.
const char* remedyOf(vidlint::Cause cause);
/// The same, by all that the report knows.
const char* remedyOf(const vidlint::InputReport& report);
/// The cause and what belongs to it, as in "cut-short, plays until 0:00.442 of 0:00.482"; empty for kNone.
std::string causeText(const vidlint::InputReport& report);
/// Pixels, rate, channels, language and samples of a track, as in "640x360, 12 samples". Escaped.
std::string trackText(const vidlint::Track& track);
/// The words of RFC 6381 where they are known, else the code of the description. Escaped.
std::string codecText(const vidlint::Track& track);
/// When a track plays, as in "plays until 0:00.442 of 0:00.482".
std::string playText(const vidlint::Track& track);

/// One line for each finding of the record, "PATH: error -18 Truncated box. (moov/trak[1] at 1234)
/// cut-short\n". The cause stands on the line of the finding that says so, and on a line of its own when
/// none does; "dropped-track" on that of a finding for which a track is left out. Nothing for an input
/// without findings and cause.
std::string linesOf(const InputRecord& record, bool color);

/// Everything about one input, for people: tracks, what plays until when, each finding with its place and
/// what to do. Ends with a line end.
std::string describe(const InputRecord& record, bool color);
/// What docs/faults.md says of a number, as plain text; empty for a number that the page does not have.
std::string explain(int number, bool color);

}  // namespace archive
