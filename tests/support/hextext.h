// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace krx::test {

/// Bytes from readable text: pairs of hexadecimal digits, and 'text' for itself. Blanks separate.
inline std::string hexText(std::string_view text)
{
    const auto digit = [](char c) {
        const auto at = std::string_view("0123456789ABCDEF").find(c);
        if (at == std::string_view::npos)
            throw std::invalid_argument("not a hexadecimal digit");
        return static_cast<unsigned>(at);
    };
    std::string bytes;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == ' ' || text[i] == '\n') {
            ++i;
        } else if (text[i] == '\'') {
            const std::size_t end = text.find('\'', i + 1);
            bytes += text.substr(i + 1, end - i - 1);
            i = end + 1;
        } else {
            bytes += static_cast<char>(digit(text.at(i)) << 4 | digit(text.at(i + 1)));
            i += 2;
        }
    }
    return bytes;
}

/// The bytes in hexadecimal, separated by blanks.
inline std::string toHex(std::string_view bytes)
{
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (!text.empty())
            text += ' ';
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
    }
    return text;
}

}  // namespace krx::test
