// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>

namespace vidlint {

/// Throws std::invalid_argument, with a sentence that names key and value, when no stream module has a
/// setting of that key, spelled exactly so, or when the value is not one of its kind and range.
void checkServerSetting(const std::string& key, const std::string& value);

}  // namespace vidlint
