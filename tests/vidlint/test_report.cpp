// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/vidlint/inputrunner.h"
#include "util/SRException.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <new>
#include <string>

namespace krx::test {
namespace {

using streams::StreamParseError;

TEST(Report, TextPassesThroughTheBufferUnchanged)
{
    std::string out;
    ReportWriter writer([&](std::string_view text) {
        out += text;
        return true;
    });
    std::string expected;
    for (const std::size_t n : {1U, 65535U, 65536U, 65537U, 200000U}) {
        expected += std::string(n, static_cast<char>('a' + n % 26));
        writer.write(std::string(n, static_cast<char>('a' + n % 26)));
    }
    writer.writeMessageRow(LLONG_MIN, UINT_MAX, UINT_MAX, "ENCRYPTED UNKNOWN");
    writer.flush();
    EXPECT_EQ(out, expected + "-9223372036854775808\t4294967295\t4294967295\tENCRYPTED UNKNOWN\n");
}

TEST(Job, WhateverLeavesAnInputEndsThatInputOnly)
{
    const struct
    {
        std::function<void()> steps;
        const char* report;
    } cases[] = {
        {[] { throw StreamParseError(streams::kInvalidZmvSignature); },
         "TIME\tError:\t-7\tInvalid ZMV signature.\tin\n\n"},
        {[] { throw util::FileReadException(SRString(L"gone")); },
         "TIME\tError:\t-5\tFile read error.\tin\n\n"},
        {[] { throw SRException(SRString(L"other")); }, "TIME\tError:\t-1\tUnknown Error.\tin\n\n"},
        {[] { throw SROutOfMemory(); }, "TIME\tError:\t-1\tUnknown Error.\tin\n\n"},
        {[] { throw std::bad_alloc(); }, ""},
        {[] { throw 1; }, ""},
    };
    for (const auto& c : cases) {
        ReportCapture capture;
        EXPECT_FALSE(runInput(SRString(L"in"), c.steps)) << c.report;
        EXPECT_EQ(capture.text(), c.report);
        EXPECT_TRUE(runInput(SRString(L"in"), [] {}));
    }
}

}  // namespace
}  // namespace krx::test
