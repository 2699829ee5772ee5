// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdint>
#include <string_view>

namespace archive {

/// FNV-1a of 64 bits over the bytes; hash is that of bytes in front of them.
inline std::uint64_t fnv1a(std::string_view bytes, std::uint64_t hash = 0xCBF29CE484222325)
{
    for (const char byte : bytes)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return hash;
}

}  // namespace archive
