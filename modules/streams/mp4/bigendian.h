// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

// Integers of a file (big-endian) in memory. The loops over tables are plain enough for compilers to
// vectorise.

namespace krx::mp4 {

constexpr unsigned fromBigEndian(unsigned value)
{
    return std::endian::native == std::endian::big ? value : __builtin_bswap32(value);
}

constexpr unsigned long long fromBigEndian(unsigned long long value)
{
    return std::endian::native == std::endian::big ? value : __builtin_bswap64(value);
}

/// The integer in the sizeof(T) bytes at p.
template <typename T>
T loadBigEndian(const unsigned char* p)
{
    T value;
    std::memcpy(&value, p, sizeof(T));
    return fromBigEndian(value);
}

/// Turns count integers of type T at p into native byte order.
template <typename T>
void toNativeInPlace(unsigned char* p, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const T value = loadBigEndian<T>(p + i * sizeof(T));
        std::memcpy(p + i * sizeof(T), &value, sizeof(T));
    }
}

}  // namespace krx::mp4
