// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <vector>

namespace krx::test {

/// A small ZMV file. One that shows a finding is named "faults/", its number, and what it has. docs/faults.md
/// describes these, samples/README.md the sound ones.
struct ZmvSample
{
    std::string name;
    std::string bytes;
};

std::vector<ZmvSample> zmvSamples();

}  // namespace krx::test
