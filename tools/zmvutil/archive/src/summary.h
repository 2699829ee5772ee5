// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <array>
#include <cstdint>
#include <map>

namespace archive {

/// Totals of a run or of a state.
struct Summary
{
    std::uint64_t inputs = 0;
    std::uint64_t bytes = 0;
    std::uint64_t valid = 0;
    std::uint64_t invalid = 0;
    std::uint64_t unreadable = 0;
    std::uint64_t crashed = 0;
    std::uint64_t failing = 0;    ///< that match what a run fails on
    std::uint64_t unchanged = 0;  ///< whose result is that of an earlier run
    std::uint64_t changed = 0;    ///< that changed while they were checked, and have no result
    std::uint64_t young = 0;      ///< files that were too young
    std::uint64_t excluded = 0;
    std::map<vidlint::Cause, std::uint64_t> causes;
    std::map<int, std::uint64_t> numbers;  ///< inputs with a finding of that number
    std::map<Change, std::uint64_t> changes;

    void add(const InputRecord& record);
};

}  // namespace archive
