// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

/// Returns the text with its control characters, except tabs, as in "\x1b": names and texts of a file may
/// hold any bytes, and a terminal would obey them. Other UTF-8 stays as it is.
inline std::string printable(std::string_view text)
{
    const auto byteAt = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    // In UTF-8 the control characters from U+0080 on are 0xC2 and a byte below 0xA0.
    const auto isPair = [&](std::size_t i) { return byteAt(i) == 0xC2 && byteAt(i + 1) - 0x80 < 0x20; };
    std::string shown;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isControl = (byteAt(i) < 0x20 && text[i] != '\t') || byteAt(i) == 0x7F;
        if (isControl || isPair(i) || (i > 0 && isPair(i - 1))) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", byteAt(i));
            shown += code;
        } else {
            shown += text[i];
        }
    }
    return shown;
}
