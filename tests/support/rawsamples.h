// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <map>
#include <string>
#include <vector>

namespace krx::test {

/// A small recorded stream. samples/README.md tells what each one has.
struct RawSample
{
    std::string name;                          ///< of the directory
    std::map<std::string, std::string> files;  ///< content by file name
};

std::vector<RawSample> rawSamples();

}  // namespace krx::test
