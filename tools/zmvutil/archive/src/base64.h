// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace archive {

/// Base64 with padding, of the usual alphabet ("+" and "/").
std::string toBase64(std::string_view bytes);
/// The bytes back; nothing for text that toBase64 does not make.
std::optional<std::string> fromBase64(std::string_view text);

}  // namespace archive
