// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <vector>

namespace archive {

// The commands. Each takes the arguments after its name, writes to the standard output, and returns the exit
// status. They throw UsageError and StateError.

int runCheck(const std::vector<std::string>& arguments);
int runList(const std::vector<std::string>& arguments);
int runReport(const std::vector<std::string>& arguments);
int runWhy(const std::vector<std::string>& arguments);
int runExplain(const std::vector<std::string>& arguments);

}  // namespace archive
