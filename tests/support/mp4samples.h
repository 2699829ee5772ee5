// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <vector>

namespace krx::test {

/// A small MP4 file. One that shows a finding is named "faults/", its number, and what it has. docs/faults.md
/// describes these, samples/README.md the sound ones.
struct Mp4Sample
{
    std::string name;
    std::string bytes;
};

std::vector<Mp4Sample> mp4Samples();

}  // namespace krx::test
