// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace archive {

inline constexpr const char* kVersion = VIDLINT_VERSION;

}  // namespace archive
