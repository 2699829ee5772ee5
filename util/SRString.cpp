// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRString.h"

#include "util/SRException.h"
#include "util/SRStrUtil.h"

#include <charconv>
#include <cmath>

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kLastCodePoint = 0x10FFFF;

// A byte b that is no part of well-formed UTF-8 is kept as kByteBase + b.
constexpr char32_t kByteBase = 0xDC00;

int checkedLength(std::size_t n)
{
    if (n > SRStringPool::kMaxLength)
        throw SROutOfMemory();
    return static_cast<int>(n);
}

struct Decoded
{
    char32_t codePoint;
    std::size_t length;  // bytes; 0: the first byte begins no well-formed sequence
};

Decoded decodeSequence(std::string_view bytes)
{
    const auto byteAt = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byteAt(0);
    if (lead < 0x80)
        return {lead, 1};

    // Bounds of the second byte exclude overlong forms, surrogates and what lies above the last code point.
    std::size_t length = 0;
    char32_t codePoint = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        codePoint = lead & 0x1FU;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        codePoint = lead & 0x0FU;
        low = lead == 0xE0 ? 0xA0 : low;
        high = lead == 0xED ? 0x9F : high;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        codePoint = lead & 0x07U;
        low = lead == 0xF0 ? 0x90 : low;
        high = lead == 0xF4 ? 0x8F : high;
    }
    if (length == 0 || bytes.size() < length || byteAt(1) < low || byteAt(1) > high)
        return {0, 0};
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned char next = byteAt(i);
        if ((next & 0xC0) != 0x80)
            return {0, 0};
        codePoint = codePoint << 6 | (next & 0x3FU);
    }
    return {codePoint, length};
}

void appendEncoded(std::string& out, wchar_t character)
{
    auto codePoint = static_cast<char32_t>(character);
    const auto put = [&out](char32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };

    if (codePoint >= kByteBase + 0x80 && codePoint <= kByteBase + 0xFF) {
        put(codePoint - kByteBase);
        return;
    }
    if (codePoint > kLastCodePoint || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
        codePoint = kReplacement;

    if (codePoint < 0x80) {
        put(codePoint);
    } else if (codePoint < 0x800) {
        put(0xC0 | codePoint >> 6);
        put(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        put(0xE0 | codePoint >> 12);
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    } else {
        put(0xF0 | codePoint >> 18);
        put(0x80 | (codePoint >> 12 & 0x3F));
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    }
}

template <typename CharT>
CharT* emptyBlock() noexcept
{
    if constexpr (std::is_same_v<CharT, char>)
        return SRStringPool::g_chNull;
    else
        return SRStringPool::g_wchNull;
}

}  // namespace

template <typename CharT>
SRPooledText<CharT>::SRPooledText() noexcept : m_text(emptyBlock<CharT>())
{
}

template <typename CharT>
SRPooledText<CharT>::SRPooledText(const CharT* text) : m_text(SRStrUtil::poolInstance().get(text))
{
}

template <typename CharT>
SRPooledText<CharT>::SRPooledText(const CharT* text, std::size_t n)
    : m_text(SRStrUtil::poolInstance().get(text, checkedLength(n)))
{
}

template <typename CharT>
SRPooledText<CharT>::SRPooledText(const SRPooledText& other)
    : m_text(SRStrUtil::poolInstance().share(other.m_text))
{
}

template <typename CharT>
SRPooledText<CharT>::SRPooledText(SRPooledText&& other) noexcept
    : m_text(std::exchange(other.m_text, emptyBlock<CharT>()))
{
}

template <typename CharT>
SRPooledText<CharT>::~SRPooledText()
{
    clear();
}

template <typename CharT>
SRPooledText<CharT>& SRPooledText<CharT>::operator=(const SRPooledText& other)
{
    if (this == &other)
        return *this;
    if (SRStringPool::type(other.m_text) == SRStringPool::kCounted)
        return *this = SRPooledText(other);
    m_text = SRStrUtil::poolInstance().copy(m_text, other.m_text, other.length());
    return *this;
}

template <typename CharT>
SRPooledText<CharT>& SRPooledText<CharT>::operator=(SRPooledText&& other) noexcept
{
    std::swap(m_text, other.m_text);
    return *this;
}

template <typename CharT>
void SRPooledText<CharT>::clear() noexcept
{
    CharT* text = std::exchange(m_text, emptyBlock<CharT>());
    if (SRStringPool::type(text) != SRStringPool::kEmpty)
        SRStrUtil::poolInstance().release(text);
}

template <typename CharT>
SRPooledText<CharT>& SRPooledText<CharT>::append(View text)
{
    m_text = SRStrUtil::poolInstance().append(m_text, text.data(), checkedLength(text.size()));
    return *this;
}

template class SRPooledText<char>;
template class SRPooledText<wchar_t>;

SRString::SRString(const SRMBString& text) : SRString(fromMultiByte(text.view())) {}

SRString SRString::fromMultiByte(std::string_view bytes)
{
    std::wstring text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Decoded decoded = decodeSequence(bytes);
        text += static_cast<wchar_t>(
            decoded.length > 0 ? decoded.codePoint : kByteBase + static_cast<unsigned char>(bytes.front()));
        bytes.remove_prefix(std::max<std::size_t>(decoded.length, 1));
    }
    return SRString(View(text));
}

SRMBString SRString::toMultiByte() const
{
    std::string bytes;
    bytes.reserve(size());
    for (const wchar_t character : view())
        appendEncoded(bytes, character);
    return SRMBString(std::string_view(bytes));
}

SRMBString SRMBString::counted(std::string_view text)
{
    return SRMBString(Adopted{SRStrUtil::poolInstance().getCounted(text.data(), checkedLength(text.size()))});
}

SRMBString SRMBString::toString(double value)
{
    constexpr double kWholeLimit = 1e15;  // whole numbers below it are written without an exponent

    if (value == 0)
        return SRMBString("0");  // whatever its sign
    if (std::isnan(value))
        return SRMBString("nan");
    char text[32];
    const bool whole = std::fabs(value) < kWholeLimit && value == std::trunc(value);
    const auto result = whole ? std::to_chars(std::begin(text), std::end(text), static_cast<long long>(value))
                              : std::to_chars(std::begin(text), std::end(text), value);
    return SRMBString(text, static_cast<std::size_t>(result.ptr - text));
}
