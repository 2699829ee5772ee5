// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <string>
#include <string_view>

namespace archive {

/// The record as one line of JSON without a line end, "type": "input", as docs/archive-schema.json describes
/// it. Fields that are not known are absent. Bytes that are no UTF-8 are replaced in "path" and given whole
/// in "path_base64".
std::string toJson(const InputRecord& record);
/// The same back; unknown fields are passed over. Throws std::runtime_error for text that is no such record.
InputRecord fromJson(std::string_view line);

}  // namespace archive
