// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace krx::util {

/// Order of two texts ignoring the case of ASCII letters only, whatever the locale: negative, 0 or positive.
/// A null text is empty.
inline int compareNoCase(const char* a, const char* b)
{
    const auto lower = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : +byte;
    };
    a = a ? a : "";
    b = b ? b : "";
    while (*a != '\0' && lower(*a) == lower(*b)) {
        ++a;
        ++b;
    }
    return lower(*a) - lower(*b);
}

}  // namespace krx::util
