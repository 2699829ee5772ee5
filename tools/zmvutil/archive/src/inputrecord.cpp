// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <array>
#include <cstddef>

namespace archive {

const char* nameOf(Change change)
{
    static constexpr std::array kNames = {"new", "same", "fixed", "gone"};
    const auto i = static_cast<std::size_t>(change);
    return i < kNames.size() ? kNames[i] : "";
}

}  // namespace archive
