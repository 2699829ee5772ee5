// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/recordingcontext.h"
#include "util/streamconfigutil.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

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

TEST(StreamConfig, AValidValueIsReadAsItStands)
{
    using util::SettingKey;
    const SettingKey flag{"k", SettingKey::Kind::kBool, 0, 0};
    const SettingKey number{"k", SettingKey::Kind::kNumber, 5, 0xFFFFFFFF};
    const struct
    {
        const char* text;
        bool isFlag, isNumber;
    } cases[] = {
        {"true", true, false},        {"false", true, false}, {"True", false, false}, {"true ", false, false},
        {"", false, false},           {"5", false, true},     {"4", false, false},    {"0005", false, true},
        {"4294967295", false, true},  {"-5", false, false},   {"+5", false, false},   {" 5", false, false},
        {"4294967296", false, false}, {"5 ", false, false},   {"0x5", false, false},  {"5.0", false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(isValidSetting(flag, c.text), c.isFlag);
        EXPECT_EQ(isValidSetting(number, c.text), c.isNumber);
        RecordingContext context(nullptr, {{"k", c.text}});
        unsigned value = 7;
        util::StreamConfig::readConfigUnsigned(&context, "k", value, number.min, number.max);
        if (c.isNumber) {
            const std::string text = c.text;
            EXPECT_EQ(std::to_string(value), text.substr(text.find_first_not_of('0')));
        }
    }
    EXPECT_FALSE(isValidSetting(number, std::string_view("5\0", 2)));
}

}  // namespace
}  // namespace krx::test
