// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <string_view>

namespace archive {

/// UTF-8 text as the content of an element or of an attribute in quotes.
std::string htmlEscaped(std::string_view text);
/// Bytes from a file or a file name for the same places: what could mislead is shown escaped too.
std::string htmlOfBytes(std::string_view bytes);

}  // namespace archive
