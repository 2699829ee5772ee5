// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <string>
#include <string_view>

namespace archive {

// Lines of CSV as in RFC 4180, in UTF-8, with \r\n after each. No cell holds a line end: what could mislead
// is shown escaped, as in the text report.

/// The names of the columns.
std::string csvHeader();
/// One line for each finding of the record, and one for a record without findings.
std::string csvLines(const InputRecord& record);
/// Text as a cell. A spreadsheet takes none for a formula: an apostrophe stands before what would begin one.
std::string csvCell(std::string_view text);

}  // namespace archive
