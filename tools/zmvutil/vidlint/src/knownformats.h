// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <span>
#include <string_view>

namespace vidlint {

/// The name of the format that the first bytes of a file show, for example "Matroska" or "plain text"; empty
/// when they show none. 512 bytes suffice for most formats; more than 4 KiB are not looked at.
std::string_view formatOf(std::span<const unsigned char> firstBytes);

}  // namespace vidlint
