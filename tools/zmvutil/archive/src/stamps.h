// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <dirent.h>
#include <sys/stat.h>

namespace archive {

InputStamp stampOfFile(const struct stat& status);
/// Reads the folder from its start. The stamp has the sum of the sizes, the latest time and the hash of all
/// regular files in it, in whatever order they come; links count as what they lead to. False when the folder
/// cannot be read.
bool stampOfRecording(DIR* folder, InputStamp& stamp);

}  // namespace archive
