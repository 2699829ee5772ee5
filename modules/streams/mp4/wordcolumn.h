// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/bigendian.h"

#include <cstddef>

namespace krx::mp4 {

/// Big-endian 32-bit numbers at equal distances, as in the entries of a table. The bytes are not owned.
class WordColumn
{
public:
    WordColumn() = default;
    /// first: the bytes of the first number; stride: bytes from one to the next.
    WordColumn(const unsigned char* first, unsigned stride) : m_first(first), m_stride(stride) {}

    /// Whether there is a column at all.
    explicit operator bool() const { return m_first != nullptr; }
    unsigned operator[](std::size_t i) const { return krx::util::loadBig32(m_first + i * m_stride); }
    /// Number 0 becomes what number n was; nothing without a column.
    void advance(std::size_t n) { m_first += n * m_stride; }

private:
    const unsigned char* m_first = nullptr;
    unsigned m_stride = 0;
};

}  // namespace krx::mp4
