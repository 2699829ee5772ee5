// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// What the fuzz targets share.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Ends the run unless holds is true; the input is then a find.
inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
