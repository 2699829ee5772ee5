// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/serversettings.h"
#include "vidlint/check.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace krx::test {
namespace {

TEST(ServerSettings, AreThoseOfTheModules)
{
    const struct
    {
        std::string key, value, fault;
    } cases[] = {
        {"Mp4/Playback/AllowAnyAVCProfile", "true", ""},
        {"Mp4/Playback/AllowAnyAACProfile", "false", ""},
        {"Mp4/Playback/MaxSampleSize", "16777216", ""},
        {"Mp4/Recording/MaxVideoSampleDescriptions", "4294967295", ""},
        {"Mp4AutoBufferReadSize", "1024", ""},
        {"Raw/WarningsAsErrors", "true", ""},
        {"Raw/MaxAggMsgSize", "0", ""},
        {"Raw/MaxAggMsgSize", "abc", "'abc' is no value of Raw/MaxAggMsgSize (0 to 4294967295)"},
        {"Mp4AutoBufferReadSize", "1023", "'1023' is no value of Mp4AutoBufferReadSize (1024 to 4294967295)"},
        {"Mp4/Playback/MaxSampleSize", "16777217",
         "'16777217' is no value of Mp4/Playback/MaxSampleSize (0 to 16777216)"},
        {"Raw/EnableAggMsgs", "1", "'1' is no value of Raw/EnableAggMsgs (true or false)"},
        {"raw/enableaggmsgs", "true", "unknown setting 'raw/enableaggmsgs'"},
        {"", "", "unknown setting ''"},
    };
    vidlint::Settings settings;
    for (const auto& c : cases) {
        const auto before = settings.serverSettings();
        std::string fault;
        try {
            settings.set(c.key, c.value);
            EXPECT_EQ(settings.serverSettings().at(c.key), c.value);
        } catch (const std::invalid_argument& e) {
            fault = e.what();
            EXPECT_EQ(settings.serverSettings(), before) << c.key;
        }
        EXPECT_EQ(fault, c.fault);
    }
}

}  // namespace
}  // namespace krx::test
