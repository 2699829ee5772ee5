// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRStringPool.h"
#include "util/comparenocase.h"

#include <boost/format.hpp>

#include <compare>
#include <locale>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

/// What the wide and the multibyte string share: one pointer to the characters of a pool block. Copies are
/// deep, or one more use of an interned or counted block.
template <typename CharT>
class SRPooledText
{
public:
    using View = std::basic_string_view<CharT>;

    SRPooledText() noexcept;
    SRPooledText(const CharT* text);  ///< null is the empty text
    SRPooledText(const CharT* text, std::size_t n);
    SRPooledText(View text) : SRPooledText(text.data(), text.size()) {}
    SRPooledText(const SRPooledText& other);
    SRPooledText(SRPooledText&& other) noexcept;
    ~SRPooledText();
    SRPooledText& operator=(const SRPooledText& other);
    SRPooledText& operator=(SRPooledText&& other) noexcept;

    const CharT* c_str() const { return m_text; }
    int length() const { return SRStringPool::length(m_text); }
    std::size_t size() const { return static_cast<std::size_t>(length()); }
    bool empty() const { return length() == 0; }
    View view() const { return View(m_text, size()); }
    operator View() const { return view(); }
    CharT operator[](std::size_t i) const { return m_text[i]; }
    const CharT* begin() const { return m_text; }
    const CharT* end() const { return m_text + size(); }

    void clear() noexcept;
    /// text may be part of this string.
    SRPooledText& append(View text);
    SRPooledText& operator+=(View text) { return append(text); }
    SRPooledText& operator+=(CharT c) { return append(View(&c, 1)); }

    friend bool operator==(const SRPooledText& a, const SRPooledText& b) { return a.view() == b.view(); }
    friend bool operator==(const SRPooledText& a, View b) { return a.view() == b; }
    /// Null equals the empty text.
    friend bool operator==(const SRPooledText& a, const CharT* b)
    {
        return a.view() == (b ? View(b) : View());
    }
    friend std::strong_ordering operator<=>(const SRPooledText& a, const SRPooledText& b)
    {
        return a.view().compare(b.view()) <=> 0;
    }
    friend std::strong_ordering operator<=>(const SRPooledText& a, View b)
    {
        return a.view().compare(b) <=> 0;
    }

protected:
    struct Adopted
    {
        CharT* block;
    };
    /// Takes over one use of a block.
    explicit SRPooledText(Adopted adopted) noexcept : m_text(adopted.block) {}

private:
    CharT* m_text;
};

extern template class SRPooledText<char>;
extern template class SRPooledText<wchar_t>;

class SRDataArray;
class SRMBString;

/// The wide string: paths, report texts, exception messages.
///
/// Multibyte text is UTF-8 whatever the locale. Every byte outside well-formed UTF-8 becomes a lone surrogate
/// (U+DC00 + byte) and turns back into that byte, so any path survives the round trip.
class SRString : public SRPooledText<wchar_t>
{
public:
    using SRPooledText::SRPooledText;
    SRString() = default;
    explicit SRString(const SRMBString& text);

    static SRString fromMultiByte(std::string_view bytes);
    SRMBString toMultiByte() const;

    /// Fills a printf-style pattern. %s and %S take strings of either width; integers and floating-point
    /// numbers are taken by their own type, so length modifiers have no effect; unsigned and signed char are
    /// numbers. Missing values give no text; surplus ones are ignored. The locale has no effect.
    template <typename... Args>
    static SRString format(const wchar_t* pattern, const Args&... args);
};

/// The multibyte (UTF-8) string: AMF names and texts, everything that is printed.
class SRMBString : public SRPooledText<char>
{
public:
    using SRPooledText::SRPooledText;
    SRMBString() = default;
    explicit SRMBString(const SRString& text) : SRMBString(text.toMultiByte()) {}

    /// A text whose copies take no memory.
    static SRMBString counted(std::string_view text);

    bool equalsIgnoreCase(const char* other) const { return krx::util::compareNoCase(c_str(), other) == 0; }

    /// As SRString::format.
    template <typename... Args>
    static SRMBString format(const char* pattern, const Args&... args);

    /// Shortest decimal text that reads back as the same double: "30", "0.1", "1e+300", "nan", "inf".
    static SRMBString toString(double value);
};

/// The form of a path that is handed to system calls: its bytes.
class SRLocaleString
{
public:
    explicit SRLocaleString(const SRString& path) : m_bytes(path.toMultiByte()) {}
    const char* c_str() const { return m_bytes.c_str(); }

private:
    SRMBString m_bytes;
};

inline std::ostream& operator<<(std::ostream& out, const SRMBString& text)
{
    return out << text.view();
}
inline std::ostream& operator<<(std::ostream& out, const SRString& text)
{
    return out << text.toMultiByte().view();
}

inline SRString operator+(SRString a, std::wstring_view b)
{
    a += b;
    return a;
}
inline SRMBString operator+(SRMBString a, std::string_view b)
{
    a += b;
    return a;
}

namespace krx::util::detail {

// Values as the byte formatter takes them: text of either width becomes bytes, a byte is a number and no
// character, the rest stays as it is.
inline std::string_view formatArg(const SRMBString& text)
{
    return text.view();
}
inline SRMBString formatArg(const SRString& text)
{
    return text.toMultiByte();
}
inline SRMBString formatArg(const wchar_t* text)
{
    return SRString(text).toMultiByte();
}
inline std::string_view formatArg(const char* text)
{
    return text ? std::string_view(text) : std::string_view();
}
inline unsigned formatArg(unsigned char value)
{
    return value;
}
inline int formatArg(signed char value)
{
    return value;
}
template <typename T>
concept FormattedAsIs =
    !std::is_convertible_v<const T&, const wchar_t*> && !std::is_convertible_v<const T&, const char*> &&
    !std::is_base_of_v<SRPooledText<char>, T> && !std::is_base_of_v<SRPooledText<wchar_t>, T> &&
    !std::is_same_v<T, unsigned char> && !std::is_same_v<T, signed char>;
template <FormattedAsIs T>
const T& formatArg(const T& value)
{
    return value;
}

/// A value to write to a formatter's stream. Without memory a stream drops the text silently, unless it is
/// asked to pass the exception on.
template <typename T>
struct StreamedArg
{
    const T& value;

    friend std::ostream& operator<<(std::ostream& out, const StreamedArg& arg)
    {
        out.exceptions(std::ios_base::badbit);
        return out << arg.value;
    }
};
template <typename T>
StreamedArg<T> streamed(const T& value)
{
    return {value};
}

template <typename... Args>
std::string formatBytes(const char* pattern, const Args&... args)
{
    boost::format format(nullptr, std::locale::classic());
    format.exceptions(boost::io::no_error_bits);
    format.parse(pattern);
    (void)(format % ... % streamed(formatArg(args)));
    return format.str();
}

}  // namespace krx::util::detail

template <typename... Args>
SRString SRString::format(const wchar_t* pattern, const Args&... args)
{
    return fromMultiByte(krx::util::detail::formatBytes(SRString(pattern).toMultiByte().c_str(), args...));
}

template <typename... Args>
SRMBString SRMBString::format(const char* pattern, const Args&... args)
{
    return SRMBString(std::string_view(krx::util::detail::formatBytes(pattern, args...)));
}
