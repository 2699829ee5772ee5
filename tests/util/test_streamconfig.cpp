// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/recordingcontext.h"
#include "util/streamconfigutil.h"

#include <gtest/gtest.h>

#include <string>

namespace krx::util {
namespace {

/// Answers the key "k" with the text, when it is not refusing.
class Context : public test::RecordingContext
{
public:
    explicit Context(const char* text) : RecordingContext(nullptr, {{"k", text}}) {}
    int getConfig(const char* key, char** value, int size) override
    {
        ++calls;
        return RecordingContext::getConfig(key, value, refuses ? 0 : size);
    }

    bool refuses = false;
    unsigned calls = 0;
};

TEST(StreamConfig, NumbersChangeOnlyWithinTheirRange)
{
    const std::string zeros64 = std::string(62, '0') + "42";
    const std::string zeros200 = std::string(198, '0') + "42";
    const struct
    {
        const char* text;
        unsigned min, max, expected;
    } cases[] = {
        {"50", 1, 100, 50},
        {"1", 1, 100, 1},
        {"100", 1, 100, 100},
        {"250", 1, 100, 7},
        {"0", 1, 100, 7},
        {"-5", 1, 100, 7},
        {"-5", 0, 100, 0},
        {"4294967295", 1024, 0xFFFFFFFF, 0xFFFFFFFF},
        {"4294967296", 0, 0xFFFFFFFF, 7},
        {"99999999999999999999999", 0, 0xFFFFFFFF, 7},
        {" +12kB", 0, 100, 12},
        {"kB", 0, 100, 0},
        {"", 0, 100, 0},
        {"", 1, 100, 7},
        {zeros64.c_str(), 0, 100, 42},
        {zeros200.c_str(), 0, 100, 42},
    };
    for (const auto& c : cases) {
        Context context(c.text);
        unsigned value = 7;
        EXPECT_TRUE(StreamConfig::readConfigUnsigned(&context, "k", value, c.min, c.max)) << c.text;
        EXPECT_EQ(value, c.expected) << c.text;
    }
}

TEST(StreamConfig, SwitchesChangeOnlyOnTheExactTexts)
{
    const struct
    {
        const char* text;
        bool before, after;
    } cases[] = {
        {"true", false, true},  {"true", true, true},   {"false", true, false},    {"false", false, false},
        {"TRUE", false, false}, {"True", false, false}, {"FALSE", true, true},     {"true ", false, false},
        {"1", false, false},    {"", true, true},       {"truefalse", true, true},
    };
    for (const auto& c : cases) {
        Context context(c.text);
        bool value = c.before;
        EXPECT_TRUE(StreamConfig::readConfigBool(&context, "k", value)) << c.text;
        EXPECT_EQ(value, c.after) << c.text;
    }
}

TEST(StreamConfig, TellsWhenAKeyIsNotConfigured)
{
    Context none("text");
    none.settings.clear();
    Context refusing("text");
    refusing.refuses = true;
    unsigned number = 7;
    bool flag = true;
    for (IQVStreamContext* context :
         {static_cast<IQVStreamContext*>(&none), static_cast<IQVStreamContext*>(&refusing),
          static_cast<IQVStreamContext*>(nullptr)})
    {
        EXPECT_FALSE(StreamConfig::readConfigUnsigned(context, "k", number, 0, 100));
        EXPECT_FALSE(StreamConfig::readConfigBool(context, "k", flag));
    }
    EXPECT_EQ(number, 7U);
    EXPECT_TRUE(flag);
    EXPECT_EQ(none.calls, 2U);
    EXPECT_EQ(refusing.calls, 4U);  // asked once more with the size needed
}

}  // namespace
}  // namespace krx::util
