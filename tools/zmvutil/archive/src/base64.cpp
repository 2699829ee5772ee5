// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/base64.h"

#include <algorithm>
#include <cstddef>

namespace archive {
namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string toBase64(std::string_view bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned group = 0;
        for (std::size_t k = i; k < i + 3; ++k)
            group = group << 8 | (k < bytes.size() ? static_cast<unsigned char>(bytes[k]) : 0U);
        const std::size_t digits = std::min<std::size_t>(bytes.size() - i, 3) + 1;
        for (std::size_t k = 0; k < 4; ++k)
            text += k < digits ? kDigits[group >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

std::optional<std::string> fromBase64(std::string_view text)
{
    std::string bytes;
    unsigned group = 0;
    unsigned bits = 0;
    for (const char c : text.substr(0, std::min(text.find('='), text.size()))) {
        const std::size_t digit = kDigits.find(c);
        if (digit == std::string_view::npos)
            return std::nullopt;
        group = (group << 6 | static_cast<unsigned>(digit)) & 0xFFFF;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits & 0xFF);
        }
    }
    // Each sequence of bytes has one text, so this also finds wrong padding and bits that are left over.
    if (toBase64(bytes) != text)
        return std::nullopt;
    return bytes;
}

}  // namespace archive
