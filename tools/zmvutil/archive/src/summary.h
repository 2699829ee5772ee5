// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"
#include "tools/zmvutil/archive/src/search.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>

namespace archive {

/// Number of enumerators of vidlint::Cause.
inline constexpr std::size_t kCauses = 8;

/// Whether the server leaves out a track of the input, for a reason that a finding says.
bool hasDroppedTrack(const vidlint::InputReport& report);

/// What a run, or a state, comes to. Inputs that are gone count as that alone. For one thread at a time.
struct Summary
{
    std::uint64_t inputs = 0;
    std::uint64_t valid = 0;
    std::uint64_t invalid = 0;
    std::uint64_t crashed = 0;  ///< neither valid nor invalid
    std::uint64_t unreadable = 0;
    std::uint64_t droppedTrack = 0;                   ///< inputs with one
    std::array<std::uint64_t, kCauses> byCause = {};  ///< inputs
    std::map<int, std::uint64_t> byNumber;            ///< inputs with a finding of that number; without 0
    std::uint64_t bytes = 0;

    bool hasChanges = false;  ///< there was something to compare with
    std::array<std::uint64_t, 4> byChange = {};

    // Set by who makes the run; absent in a report from a state.

    std::optional<SearchCounts> search;
    std::optional<std::uint64_t> changing;  ///< inputs that changed while they were checked
    std::optional<std::uint64_t> failed;    ///< inputs with something that lets the run fail
    bool complete = true;                   ///< no signal and no limit ended the run before its end

    void add(const InputRecord& record);
    std::uint64_t of(vidlint::Cause cause) const { return byCause[static_cast<std::size_t>(cause)]; }
    std::uint64_t of(Change change) const { return byChange[static_cast<std::size_t>(change)]; }
};

}  // namespace archive
