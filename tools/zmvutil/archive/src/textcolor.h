// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string>
#include <string_view>

namespace archive {

/// How a terminal shows a stretch of text.
enum class Tint
{
    kError,
    kWarning,
    kStrong,
    kQuiet,
};

/// The text between two codes of a terminal, or as it is without color.
inline std::string tinted(std::string_view text, Tint tint, bool color)
{
    static constexpr const char* kCodes[] = {"\x1b[1;31m", "\x1b[33m", "\x1b[1m", "\x1b[2m"};
    if (!color || text.empty())
        return std::string(text);
    std::string shown = kCodes[static_cast<int>(tint)];
    return shown.append(text).append("\x1b[0m");
}

}  // namespace archive
