// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <vector>

namespace krx::test {

/// A small MP4 file.
struct Mp4Sample
{
    std::string name;
    std::string bytes;
    std::string note;  ///< what it has
    int error = 0;     ///< the finding that rejects it, or 0
};

std::vector<Mp4Sample> mp4Samples();

}  // namespace krx::test
