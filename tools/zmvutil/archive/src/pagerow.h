// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <cstddef>
#include <optional>
#include <string>

namespace archive {

/// What an input of the HTML page is kept for, the most important first.
enum class PageRank
{
    kNewFault,
    kFault,    ///< invalid, has a cause, crashed, or lacks a track
    kWarning,  ///< has findings only
};
inline constexpr std::size_t kPageRanks = 3;

/// Nothing for an input that the page does not list: one without findings, or one that is gone.
std::optional<PageRank> pageRankOf(const InputRecord& record);

/// The input as page.js reads it, as an object of JSON that can stand in a script element. All texts are
/// escaped as for a terminal. Of a long list of findings only the first are in it.
std::string pageRow(const InputRecord& record);

}  // namespace archive
