// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <locale.h>

namespace krx::util {

/// The "C" locale for the calling thread while it lives. Every byte is one character there: names that are no
/// text in the process's encoding match like others.
class ByteLocale
{
public:
    ByteLocale() : m_old(::uselocale(locale())) {}
    ~ByteLocale() { ::uselocale(m_old); }
    ByteLocale(const ByteLocale&) = delete;
    ByteLocale& operator=(const ByteLocale&) = delete;

private:
    static locale_t locale()
    {
        static const locale_t bytes = ::newlocale(LC_ALL_MASK, "C", nullptr);
        return bytes;
    }

    locale_t m_old;
};

}  // namespace krx::util
