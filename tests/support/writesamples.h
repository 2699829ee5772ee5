// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>

namespace krx::test {

/// Writes all samples to a directory, which is created: the sound ones, and in its folder "faults" those that
/// show a finding, whose names begin with the finding's number.
void writeSamples(const std::string& directory);

}  // namespace krx::test
