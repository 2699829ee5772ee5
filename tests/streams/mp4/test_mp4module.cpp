// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4module.h"
#include "tests/support/recordingcontext.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

namespace krx::test {
namespace {

using mp4::Mp4Config;
using mp4::Mp4Module;

Mp4Config configOf(std::map<std::string, std::string> settings)
{
    RecordingContext context;
    context.settings = std::move(settings);
    return Mp4Module(&context).getConfig();
}

}  // namespace

TEST(Mp4Module, GivesEachSettingItsField)
{
    const std::pair<const char*, unsigned Mp4Config::*> numbers[] = {
        {"Playback/VideoAutoBufferReadSize", &Mp4Config::videoReadAheadSize},
        {"Playback/AudioAutoBufferReadSize", &Mp4Config::audioReadAheadSize},
        {"Playback/OtherAutoBufferReadSize", &Mp4Config::otherReadAheadSize},
        {"Playback/MaxAggMsgSize", &Mp4Config::MaxAggMsgSize},
        {"Playback/MaxTracks", &Mp4Config::MaxTracks},
        {"Playback/MaxSampleSize", &Mp4Config::MaxSampleSize},
        {"Recording/MaxELSTEntries", &Mp4Config::MaxELSTEntries},
        {"Recording/MaxDataSampleDescriptions", &Mp4Config::MaxDataSampleDescriptions},
        {"Recording/MaxAudioSampleDescriptions", &Mp4Config::MaxAudioSampleDescriptions},
        {"Recording/MaxVideoSampleDescriptions", &Mp4Config::MaxVideoSampleDescriptions},
    };
    for (const auto& [key, field] : numbers)
        EXPECT_EQ(configOf({{std::string("Mp4/") + key, "7654321"}}).*field, 7654321U) << key;
    EXPECT_EQ(configOf({{"Mp4/Playback/VideoAutoBufferReadSize", "1023"}}).videoReadAheadSize, 153600U);
    EXPECT_EQ(configOf({{"Mp4/Playback/MaxSampleSize", "16777217"}}).MaxSampleSize, 4194304U);
    const std::pair<const char*, bool Mp4Config::*> switches[] = {
        {"Mp4/Playback/EnableAggMsgs", &Mp4Config::EnableAggMsgs},
        {"Mp4/Playback/AllowAnyAVCProfile", &Mp4Config::AllowAnyAVCProfile},
        {"Mp4/Playback/AllowAnyAACProfile", &Mp4Config::AllowAnyAACProfile}};
    for (const auto& [key, field] : switches)
        EXPECT_NE(configOf({{key, "true"}}).*field, configOf({{key, "false"}}).*field) << key;
}

TEST(Mp4Module, TakesTheDeprecatedReadAheadSize)
{
    RecordingContext context;
    context.settings = {{"Mp4AutoBufferReadSize", "3002"}, {"Mp4/Playback/VideoAutoBufferReadSize", "9999"}};
    const Mp4Config config = Mp4Module(&context).getConfig();
    EXPECT_EQ(config.videoReadAheadSize, 1000U);
    EXPECT_EQ(config.audioReadAheadSize, 1000U);
    EXPECT_EQ(config.otherReadAheadSize, 1000U);
    EXPECT_EQ(
        context.lines,
        (std::vector<RecordingContext::Line>{
            {3,
             "Using deprecated Mp4AutoBufferReadSize.  Use instead specific video/audio/other configs.  "
             "Splitting evenly into vid/aud/other auto buffers."}}));
    for (const char* ignored : {"1024", "1023", "4294967296"})
        EXPECT_EQ(
            configOf({{"Mp4AutoBufferReadSize", ignored}, {"Mp4/Playback/VideoAutoBufferReadSize", "9999"}})
                .videoReadAheadSize,
            9999U);
}

}  // namespace krx::test
