// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <string>
#include <string_view>

namespace archive {

/// Verdict, cause and the numbers of the findings, each with how often it was found, in rising order. Equal
/// texts are equal outcomes.
std::string outcomeOf(const InputRecord& record);

/// The change between two outcomes: kSame when they are equal. kFixed when the input passes now, and did not
/// before or has lost warnings without getting others. Else kNew. A text that is no outcome is one that did
/// not pass.
Change changeBetween(std::string_view before, std::string_view now);

}  // namespace archive
