// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/database.h"
#include "tools/zmvutil/archive/src/inputrecord.h"

#include <functional>

namespace archive {

/// Calls function with each input of the last run that ended, ordered by root and name, until it returns
/// false. One input at a time is in memory. Throws StateError.
void listInputs(const Database& database, const std::function<bool(const InputRecord&)>& function);

}  // namespace archive
