// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRStrUtil.h"

#include <algorithm>
#include <string>
#include <string_view>

SRStringPool& SRStrUtil::poolInstance()
{
    // Never destroyed: strings in static objects release their blocks after every exit handler of ours.
    static SRStringPool* const pool = [] {
        SRStringPool::s_maxPoolStringSize = SRStringPool::parseLimit(std::getenv("KRX_STRING_POOL"));
        return new SRStringPool(SRStringPool::s_maxPoolStringSize);
    }();
    return *pool;
}

int SRStrUtil::collectGarbage()
{
    return poolInstance().collectGarbage();
}

void SRStrUtil::shutdown()
{
    poolInstance().term();
}

SRString SRStrUtil::formatBuffer(const unsigned char* bytes, std::size_t n, std::size_t maxBytes)
{
    static constexpr wchar_t kDigits[] = L"0123456789abcdef";
    const std::size_t shown = std::min(n, maxBytes);
    std::wstring text;
    text.reserve(shown * 3 + 3);
    for (std::size_t i = 0; i < shown; ++i) {
        if (i > 0)
            text += L' ';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    if (shown < n)
        text += L"...";
    return SRString(std::wstring_view(text));
}
