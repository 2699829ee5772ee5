// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

/// Loads and stores of big-endian integers, the byte order of every format that this project reads or writes.
/// A function touches only the bytes that its name or its width states; they need no alignment.
namespace krx::util {

/// Native to big-endian, and back.
constexpr unsigned short fromBigEndian(unsigned short value)
{
    return std::endian::native == std::endian::big ? value : __builtin_bswap16(value);
}

constexpr unsigned fromBigEndian(unsigned value)
{
    return std::endian::native == std::endian::big ? value : __builtin_bswap32(value);
}

constexpr unsigned long long fromBigEndian(unsigned long long value)
{
    return std::endian::native == std::endian::big ? value : __builtin_bswap64(value);
}

/// Returns the integer in the sizeof(T) bytes at p.
template <typename T>
T loadBigEndian(const unsigned char* p)
{
    T value;
    std::memcpy(&value, p, sizeof(T));
    return fromBigEndian(value);
}

/// Writes the sizeof(T) bytes of value at p.
template <typename T>
void storeBigEndian(unsigned char* p, T value)
{
    value = fromBigEndian(value);
    std::memcpy(p, &value, sizeof(T));
}

inline unsigned short loadBig16(const unsigned char* p)
{
    return loadBigEndian<unsigned short>(p);
}

inline unsigned loadBig24(const unsigned char* p)
{
    return unsigned{loadBig16(p)} << 8 | p[2];
}

inline unsigned loadBig32(const unsigned char* p)
{
    return loadBigEndian<unsigned>(p);
}

inline unsigned long long loadBig64(const unsigned char* p)
{
    return loadBigEndian<unsigned long long>(p);
}

inline void storeBig16(unsigned char* p, unsigned short value)
{
    storeBigEndian(p, value);
}

/// Writes the low 24 bits.
inline void storeBig24(unsigned char* p, unsigned value)
{
    storeBig16(p, static_cast<unsigned short>(value >> 8));
    p[2] = static_cast<unsigned char>(value);
}

inline void storeBig32(unsigned char* p, unsigned value)
{
    storeBigEndian(p, value);
}

inline void storeBig64(unsigned char* p, unsigned long long value)
{
    storeBigEndian(p, value);
}

/// Returns the integer in the width bytes at p; width is at most 8, and 0 gives 0.
inline unsigned long long loadBigEndian(const unsigned char* p, unsigned width)
{
    unsigned long long value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = value << 8 | p[i];
    return value;
}

/// Writes the low width bytes of value at p; width is at most 8.
inline void storeBigEndian(unsigned char* p, unsigned long long value, unsigned width)
{
    for (unsigned i = width; i-- > 0; value >>= 8)
        p[i] = static_cast<unsigned char>(value);
}

}  // namespace krx::util
