// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRException.h"
#include "util/SRStrUtil.h"
#include "util/SRString.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <locale>
#include <map>
#include <random>
#include <string>
#include <tuple>

namespace krx::test {

using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

struct Utf8Case
{
    std::string_view bytes;
    std::wstring_view wide;
};

// Groups digits and writes a decimal comma, as many locales do.
struct CommaPunct : std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

}  // namespace

TEST(StringConversion, DecodesStrictly)
{
    const Utf8Case cases[] = {
        {"", L""},
        {"a\0b"sv, L"a\0b"sv},
        {"\x7F", L"\x7F"},
        {"\xC2\x80", L"\x80"},
        {"\xDF\xBF", L"\x7FF"},
        {"\xE0\xA0\x80", L"\x800"},
        {"\xED\x9F\xBF", L"\xD7FF"},
        {"\xEE\x80\x80", L"\xE000"},
        {"\xEF\xBF\xBF", L"\xFFFF"},
        {"\xF0\x90\x80\x80", L"\U00010000"},
        {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
        {"\x80", L"\xDC80"},                      // continuation without a lead
        {"\xC0\x80", L"\xDCC0\xDC80"},            // overlong zero
        {"\xC1\xBF", L"\xDCC1\xDCBF"},            // overlong in two bytes
        {"\xE0\x9F\xBF", L"\xDCE0\xDC9F\xDCBF"},  // overlong in three
        {"\xF0\x8F\xBF\xBF", L"\xDCF0\xDC8F\xDCBF\xDCBF"},
        {"\xED\xA0\x80", L"\xDCED\xDCA0\xDC80"},  // surrogate
        {"\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},  // the surrogate that stands for a byte
        {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},
        {"\xF5\xFE\xFF", L"\xDCF5\xDCFE\xDCFF"},
        {"a\xC3", L"a\xDCC3"},  // cut off at the end
        {"\xE2\x82", L"\xDCE2\xDC82"},
        {"\xE2\x82z", L"\xDCE2\xDC82z"},  // cut off in the middle
        {"\xC3\xC3\xA9", L"\xDCC3\xE9"},  // resumes at the next lead
        {"\xF0\x9F\x98\x80", L"\U0001F600"},
    };
    for (const Utf8Case& c : cases) {
        const SRString wide = SRString::fromMultiByte(c.bytes);
        EXPECT_EQ(wide, c.wide) << SRStrUtil::formatBuffer(
            reinterpret_cast<const unsigned char*>(c.bytes.data()), c.bytes.size());
        EXPECT_EQ(wide.toMultiByte(), c.bytes);
    }
}

TEST(StringConversion, AnyBytesSurviveTheWayThereAndBack)
{
    // Bytes near the borders of the encoding are often adjacent.
    static constexpr unsigned char kPalette[] = {0,    'a',  0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xB2, 0xBF,
                                                 0xC0, 0xC2, 0xDC, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
    std::mt19937 random(20260101);
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 12, '\0');
        for (char& c : bytes)
            c = static_cast<char>(kPalette[random() % std::size(kPalette)]);
        const SRString wide = SRString::fromMultiByte(bytes);
        ASSERT_EQ(wide.toMultiByte(), std::string_view(bytes));
        ASSERT_EQ(std::string(SRLocaleString(wide).c_str()), bytes.c_str());
    }
}

TEST(StringConversion, WhatCannotBeEncodedIsReplaced)
{
    const wchar_t unencodable[] = {wchar_t(0xD800), wchar_t(0xDBFF),   wchar_t(0xDC7F), wchar_t(0xDD00),
                                   wchar_t(0xDFFF), wchar_t(0x110000), wchar_t(-1)};
    for (const wchar_t c : unencodable)
        EXPECT_EQ(SRString(&c, 1).toMultiByte(), "\xEF\xBF\xBD") << std::hex << static_cast<std::uint32_t>(c);
}

TEST(String, TextBeyondTheLongestIsRefused)
{
    const std::string longest(SRStringPool::kMaxLength, 'x');
    SRMBString text(longest);
    EXPECT_EQ(text.size(), SRStringPool::kMaxLength);
    EXPECT_THROW(text += 'y', SROutOfMemory);
    EXPECT_EQ(text.size(), SRStringPool::kMaxLength);
    EXPECT_THROW(SRMBString(longest + "x"), SROutOfMemory);
    EXPECT_THROW(SRMBString("", std::size_t{1} << 32), SROutOfMemory);
    EXPECT_THROW(SRString::fromMultiByte(longest + "x"), SROutOfMemory);
}

TEST(String, IgnoresCaseOfAsciiLettersOnly)
{
    const std::tuple<const char*, const char*, int> cases[] = {
        {"", "", 0},    {".ZMV", ".zmv", 0},          {"a", "B", -1},   {"B", "a", 1},   {"ab", "abc", -1},
        {"[", "{", -1}, {"\xC3\x89", "\xC3\xA9", -1}, {"\xE9", "z", 1}, {nullptr, "", 0}};
    for (const auto& [a, b, sign] : cases) {
        const int order = SRStrUtil::compareNoCase(a, b);
        EXPECT_EQ((order > 0) - (order < 0), sign) << (a ? a : "null") << " " << b;
    }
    EXPECT_TRUE(SRMBString("onMetaData").equalsIgnoreCase("ONMETADATA"));
}

TEST(String, NumbersReadBackAsTheSameDouble)
{
    using Limits = std::numeric_limits<double>;
    const std::pair<double, const char*> cases[] = {{0, "0"},
                                                    {-0.0, "0"},
                                                    {30, "30"},
                                                    {-5, "-5"},
                                                    {5000000000, "5000000000"},
                                                    {1e15, "1e+15"},
                                                    {0.1, "0.1"},
                                                    {29.97, "29.97"},
                                                    {-2.5e-7, "-2.5e-07"},
                                                    {1.0 / 3, "0.3333333333333333"},
                                                    {1e300, "1e+300"},
                                                    {5e-324, "5e-324"},
                                                    {999999999999999, "999999999999999"},
                                                    {-Limits::quiet_NaN(), "nan"},
                                                    {Limits::infinity(), "inf"},
                                                    {-Limits::infinity(), "-inf"}};
    for (const auto& [value, text] : cases)
        EXPECT_EQ(SRMBString::toString(value), text);
}

TEST(StringFormat, TakesEveryKindOfValue)
{
    const unsigned char byte = 200;
    const signed char small = -3;
    const SRString wide(L"w\xE9");
    const SRMBString narrow("n\xC3\xA9");
    const std::pair<SRMBString, const char*> cases[] = {
        {SRMBString::format("%d %d %d", -1, 2U, -5000000000LL), "-1 2 -5000000000"},
        {SRMBString::format("%u %x %lld %ld %llu", 7U, 255, 1LL << 40, 3L, ~0ULL),
         "7 ff 1099511627776 3 18446744073709551615"},
        {SRMBString::format("%d %u %x %d", byte, byte, byte, small), "200 200 c8 -3"},
        {SRMBString::format("%.3f %5.1f|%g", 1.0005, 2.25, 0.5), "1.000   2.2|0.5"},
        {SRMBString::format("%016X %04d %-4d|", 0xABCDEFULL, 42, 7), "0000000000ABCDEF 0042 7   |"},
        {SRMBString::format("100%% %s", "x"), "100% x"},
        {SRMBString::format("%S|%s|%S|%s", wide, narrow, L"lit", "lit"), "w\xC3\xA9|n\xC3\xA9|lit|lit"},
        {SRMBString::format("%s %s %5s|", "std"s, "view"sv, "r"), "std view     r|"},
        {SRMBString::format("%s|%S|%c|%s", static_cast<const char*>(nullptr),
                            static_cast<const wchar_t*>(nullptr), 'c', true),
         "||c|1"},
        {SRString::format(L"\x20AC %S %s %d", wide, narrow, byte).toMultiByte(),
         "\xE2\x82\xAC w\xC3\xA9 n\xC3\xA9 200"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(text, expected);
}

TEST(StringFormat, WrongCountsAndPatternsNeverThrow)
{
    EXPECT_EQ(SRMBString::format("%d %s.", 1), "1 .");
    EXPECT_EQ(SRMBString::format("%d", 1, "surplus", L"too"), "1");
    EXPECT_EQ(SRMBString::format("none"), "none");
    EXPECT_EQ(SRString::format(L"%s"), L"");
    for (const char* pattern : {"%", "%d%", "%q", "%1$", "%.", "%*d", "%-"})
        EXPECT_NO_THROW(SRMBString::format(pattern, 1)) << pattern;
}

TEST(StringFormat, LocaleHasNoSay)
{
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaPunct));
    EXPECT_EQ(SRMBString::format("%d %.2f", 1234567, 1.5), "1234567 1.50");
    EXPECT_EQ(SRMBString::toString(1234.5), "1234.5");
    std::locale::global(before);
}

}  // namespace krx::test
