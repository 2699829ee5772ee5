// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "vidlint/inputreport.h"

#include <string>

namespace krx::test {

/// "error -18 Truncated box. (moov/trak[1] at 12, track 1)"; what is not known is left out.
std::string findingText(const vidlint::Finding& finding);
/// All of a report but the path, a line each for the input, its findings, tracks and fixes.
std::string reportText(const vidlint::InputReport& report);

}  // namespace krx::test
