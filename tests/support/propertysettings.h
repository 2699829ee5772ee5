// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdlib>

namespace krx::test {

/// A number in the environment; usual when there is none.
inline unsigned long setting(const char* name, unsigned long usual)
{
    const char* const value = std::getenv(name);
    return value ? std::strtoul(value, nullptr, 10) : usual;
}

/// The number of cases of a property test.
inline unsigned long propertyCases(unsigned long usual)
{
    return setting("VIDLINT_PROPERTY_CASES", usual);
}

inline unsigned propertySeed()
{
    return static_cast<unsigned>(setting("VIDLINT_PROPERTY_SEED", 1));
}

}  // namespace krx::test
