// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/recordingcontext.h"
#include "util/streamconfigutil.h"

#include <gtest/gtest.h>

#include <string>

namespace krx::test {
namespace {

TEST(StreamConfig, NumbersChangeOnlyWithinTheirRange)
{
    const std::string zeros200 = std::string(198, '0') + "42";
    const struct
    {
        const char* text;
        unsigned min, max, expected;
    } cases[] = {
        {"1", 1, 100, 1},
        {"100", 1, 100, 100},
        {"250", 1, 100, 7},
        {"-5", 0, 100, 0},
        {"4294967295", 1024, 0xFFFFFFFF, 0xFFFFFFFF},
        {"4294967296", 0, 0xFFFFFFFF, 7},
        {"99999999999999999999999", 0, 0xFFFFFFFF, 7},
        {" +12kB", 0, 100, 12},
        {"kB", 0, 100, 0},
        {"", 1, 100, 7},
        {zeros200.c_str(), 0, 100, 42},
    };
    for (const auto& c : cases) {
        RecordingContext context(nullptr, {{"k", c.text}});
        unsigned value = 7;
        EXPECT_TRUE(util::StreamConfig::readConfigUnsigned(&context, "k", value, c.min, c.max)) << c.text;
        EXPECT_EQ(value, c.expected) << c.text;
    }
}

}  // namespace
}  // namespace krx::test
