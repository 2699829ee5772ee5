// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <cstdint>
#include <optional>
#include <random>
#include <string>

namespace archive {

/// Makes records of every kind with names that mislead programs. The same seed gives the same records.
class RecordMaker
{
public:
    explicit RecordMaker(unsigned seed) : m_random(seed) {}

    InputRecord record();
    /// A name: markup, formulas, codes of terminals, bytes that are no UTF-8, or a harmless one.
    std::string name();
    std::uint64_t below(std::uint64_t n) { return m_random() % n; }

private:
    bool oneIn(unsigned n) { return below(n) == 0; }
    std::optional<long long> maybe(std::uint64_t n);
    vidlint::Finding finding();
    vidlint::Track track(long long end);

    std::mt19937_64 m_random;
};

}  // namespace archive
