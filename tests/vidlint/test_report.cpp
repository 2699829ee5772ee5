// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/streamparseerror.h"
#include "tests/vidlint/inputrunner.h"
#include "tools/zmvutil/vidlint/src/inputfactory.h"
#include "tools/zmvutil/vidlint/src/textreport.h"
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
        InputEnd end;
    } cases[] = {
        {[] { throw StreamParseError(streams::kInvalidZmvSignature); },
         "TIME\tError:\t-7\tInvalid ZMV signature.\tin\n\n", InputEnd::kRefused},
        {[] { throw util::FileReadException(SRString(L"gone")); },
         "TIME\tError:\t-5\tFile read error.\tin\n\n", InputEnd::kRefused},
        {[] { throw SRException(SRString(L"other")); }, "TIME\tError:\t-1\tUnknown Error.\tin\n\n",
         InputEnd::kRefused},
        {[] { throw SROutOfMemory(); }, "TIME\tError:\t-1\tUnknown Error.\tin\n\n", InputEnd::kOutOfMemory},
        {[] { throw std::bad_alloc(); }, "", InputEnd::kOutOfMemory},
        {[] { throw util::Cancelled(); }, "", InputEnd::kCancelled},
        {[] { throw 1; }, "", InputEnd::kRefused},
    };
    for (const auto& c : cases) {
        ReportCapture capture;
        TextReport text(capture.writer(), streams::LOG_ERROR, SRString(L"in"));
        EXPECT_EQ(runInput(text, c.steps), c.end) << c.report;
        EXPECT_EQ(capture.text(), c.report);
        EXPECT_EQ(runInput(text, [] {}), InputEnd::kPassed);
    }
}

}  // namespace
}  // namespace krx::test
