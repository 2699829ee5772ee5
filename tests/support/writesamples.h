// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>

namespace krx::test {

/// Writes all samples to a directory, which is created. Those in its folder "faults" show a finding; their
/// names begin with its number.
void writeSamples(const std::string& directory);

}  // namespace krx::test
