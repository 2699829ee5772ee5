// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdio>
#include <string>
#include <string_view>

/// Returns the text with its control characters, except tabs, as in "\x1b": names and texts of a file may
/// hold any bytes, and a terminal would obey them. Other UTF-8 stays as it is.
inline std::string printable(std::string_view text)
{
    std::string shown;
    unsigned char last = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        // In UTF-8 the control characters from U+0080 on are 0xC2 and a byte below 0xA0.
        const bool isControl = byte < 0x20 || byte == 0x7F || (last == 0xC2 && byte >= 0x80 && byte < 0xA0);
        if (isControl && c != '\t') {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(byte));
            shown += code;
        } else {
            shown += c;
        }
        last = byte;
    }
    return shown;
}
