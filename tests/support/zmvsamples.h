// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <vector>

namespace krx::test {

/// A small ZMV file. samples/README.md tells what each one has.
struct ZmvSample
{
    std::string name;
    std::string bytes;
};

std::vector<ZmvSample> zmvSamples();

}  // namespace krx::test
