// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>

namespace archive {

struct Summary;

/// The totals for people, in a few lines.
std::string summaryText(const Summary& summary);

}  // namespace archive
