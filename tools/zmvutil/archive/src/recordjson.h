// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <string>
#include <string_view>

namespace archive {

struct RunInfo;
struct Summary;

/// Raised when a reader of the records must know of a change; new fields alone do not raise it.
inline constexpr int kRecordSchema = 1;

// Records are lines of JSON without a line end, as docs/archive-schema.json describes them. They are ASCII,
// so that no terminal obeys a name in them. Fields that are not known are absent. Where bytes are no UTF-8,
// "path" has them replaced and "path_base64" whole, and so has each other text.

/// "type": "input". A fix is without the bytes that it writes.
std::string toJson(const InputRecord& record);
/// The same without path, root, name and change.
std::string resultJson(const InputRecord& record);
/// Reads both; unknown fields are passed over. The line may come from anywhere: throws std::runtime_error
/// for text that is no such record, with a sentence that holds nothing of it.
InputRecord fromJson(std::string_view line);

/// "type": "run"; version is that of the program.
std::string runJson(const RunInfo& run, std::string_view version);
/// "type": "summary".
std::string summaryJson(const Summary& summary);

}  // namespace archive
