// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <map>
#include <string>
#include <vector>

namespace krx::test {

/// A small recorded stream. One that shows a finding is named "faults/", its number, and what it has.
/// docs/faults.md describes these, samples/README.md the sound ones.
struct RawSample
{
    std::string name;                          ///< of the directory
    std::map<std::string, std::string> files;  ///< content by file name
};

std::vector<RawSample> rawSamples();

}  // namespace krx::test
