// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <vector>

namespace archive {

// What the program returns.
inline constexpr int kStatusFine = 0;
inline constexpr int kStatusFound = 1;  ///< something that the run was to fail on
inline constexpr int kStatusUsage = 2;  ///< also for states and output
inline constexpr int kStatusUnreadable = 3;

// The commands. Each takes the arguments after its name, writes to the standard output, and returns the exit
// status. They throw UsageError and StateError.

int runCheck(const std::vector<std::string>& arguments);
int runList(const std::vector<std::string>& arguments);
int runReport(const std::vector<std::string>& arguments);
int runWhy(const std::vector<std::string>& arguments);
int runExplain(const std::vector<std::string>& arguments);

}  // namespace archive
