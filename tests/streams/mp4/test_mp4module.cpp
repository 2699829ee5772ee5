// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4module.h"
#include "tests/support/memoryfileio.h"
#include "tests/support/mp4builder.h"
#include "tests/support/recordingcontext.h"

#include <gtest/gtest.h>

#include <cstring>

namespace krx::test {
namespace {

using krx::mp4::Mp4Config;
using krx::mp4::Mp4Module;

Mp4Config configOf(std::map<std::string, std::string> settings)
{
    RecordingContext context;
    context.settings = std::move(settings);
    return Mp4Module(&context).getConfig();
}

/// Counts what lookups and exports hand over.
class CountingHolder : public IContextHolder, public IAllContextHolder
{
public:
    void add(unsigned char, void*, unsigned, unsigned, long long, unsigned, ContextType_t) override
    {
        ++contexts;
    }
    void add(void*, unsigned length) override { bytes += length; }
    unsigned contexts = 0;
    unsigned bytes = 0;
};

}  // namespace

TEST(Mp4Module, ReadsItsConfiguration)
{
    struct Case
    {
        const char* key;
        unsigned Mp4Config::*field;
        unsigned standard;
        unsigned min;
        unsigned max;
    };
    const Case cases[] = {
        {"Mp4/Playback/VideoAutoBufferReadSize", &Mp4Config::videoReadAheadSize, 153600, 1024, 4294967295U},
        {"Mp4/Playback/AudioAutoBufferReadSize", &Mp4Config::audioReadAheadSize, 51200, 1024, 4294967295U},
        {"Mp4/Playback/OtherAutoBufferReadSize", &Mp4Config::otherReadAheadSize, 1024, 1024, 4294967295U},
        {"Mp4/Playback/MaxAggMsgSize", &Mp4Config::MaxAggMsgSize, 65536, 0, 4294967295U},
        {"Mp4/Playback/MaxTracks", &Mp4Config::MaxTracks, 64, 0, 4294967295U},
        {"Mp4/Playback/MaxSampleSize", &Mp4Config::MaxSampleSize, 4194304, 0, 16777216},
        {"Mp4/Recording/MaxELSTEntries", &Mp4Config::MaxELSTEntries, 100, 0, 4294967295U},
        {"Mp4/Recording/MaxDataSampleDescriptions", &Mp4Config::MaxDataSampleDescriptions, 10, 0,
         4294967295U},
        {"Mp4/Recording/MaxAudioSampleDescriptions", &Mp4Config::MaxAudioSampleDescriptions, 10, 0,
         4294967295U},
        {"Mp4/Recording/MaxVideoSampleDescriptions", &Mp4Config::MaxVideoSampleDescriptions, 10, 0,
         4294967295U},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(configOf({}).*c.field, c.standard) << c.key;
        const long long values[] = {c.min - 1LL, c.min, c.min + 1LL, c.max - 1LL, c.max, c.max + 1LL};
        for (const long long value : values) {
            const long long counted = std::max(value, 0LL);
            const bool inRange = counted >= c.min && counted <= c.max;
            EXPECT_EQ(configOf({{c.key, std::to_string(value)}}).*c.field,
                      inRange ? static_cast<unsigned>(counted) : c.standard)
                << c.key << ' ' << value;
        }
    }

    const std::pair<const char*, bool Mp4Config::*> switches[] = {
        {"Mp4/Playback/EnableAggMsgs", &Mp4Config::EnableAggMsgs},
        {"Mp4/Playback/AllowAnyAVCProfile", &Mp4Config::AllowAnyAVCProfile},
        {"Mp4/Playback/AllowAnyAACProfile", &Mp4Config::AllowAnyAACProfile}};
    for (const auto& [key, field] : switches) {
        const bool standard = Mp4Config().*field;
        EXPECT_EQ(configOf({{key, "true"}}).*field, true) << key;
        EXPECT_EQ(configOf({{key, "false"}}).*field, false) << key;
        EXPECT_EQ(configOf({{key, standard ? "FALSE" : "TRUE"}}).*field, standard) << key;
    }
    EXPECT_EQ(Mp4Module(nullptr).getConfig().MaxTracks, 64U);
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

TEST(Mp4Module, AnswersForAnOpenFile)
{
    const std::string bytes = buildMovie(soundMovie()).bytes;
    MemoryFileIo io(bytes);
    RecordingContext context(&io);
    Mp4Module module(&context);
    EXPECT_EQ(module.getVersion(), 256U);
    EXPECT_EQ(module.getPermission(), 22U);
    void* handle = nullptr;
    ASSERT_EQ(module.open(nullptr, "movie.mp4", 0, nullptr, handle), 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_FALSE(io.isOpen());
    EXPECT_EQ(module.getDuration(handle), 2002U);
    EXPECT_EQ(module.getSize(handle), static_cast<long long>(bytes.size()));
    EXPECT_EQ(module.getEndPosition(handle), 140);
    EXPECT_EQ(module.getType(handle), 5);
    EXPECT_GT(module.getMemoryOverhead(handle), 1000U);

    SegmentBounds bounds;
    ASSERT_TRUE(module.findSegmentByIndex(handle, 5, &bounds));
    EXPECT_EQ(bounds, (SegmentBounds{0, 139, 0, 2002}));
    bounds = {};
    ASSERT_TRUE(module.findSegmentByTime(handle, 2001, &bounds));
    RecordingHolder holder;
    EXPECT_TRUE(module.loadSegment(handle, &bounds, &holder));
    EXPECT_EQ(holder.messages.size(), 1U);  // one aggregate
    module.onFreeSegment(handle, 0);
    EXPECT_TRUE(module.loadSegment(handle, &bounds, &holder));

    CountingHolder contexts;
    EXPECT_TRUE(module.getMediaContexts(handle, kContextHeader, 70, &contexts, false));
    EXPECT_EQ(contexts.contexts, 3U);  // both tracks and the metadata
    EXPECT_TRUE(module.getMediaContexts(handle, kContextHeader, -1, &contexts, true));
    EXPECT_EQ(contexts.contexts, 4U);
    EXPECT_TRUE(module.getAllMediaContexts(handle, &contexts));
    EXPECT_GT(contexts.bytes, 500U);

    EXPECT_FALSE(module.erase(handle));
    EXPECT_FALSE(module.record(handle, 8, "x", 1, 0));
    EXPECT_FALSE(module.flushSegment(handle, &bounds));
    EXPECT_FALSE(module.stopRecord(handle));
    EXPECT_FALSE(module.updateMediaContext(handle, kContextHeader, 8, 0, nullptr, 0));
    module.close(handle);
}

TEST(Mp4Module, GivesAttributes)
{
    const std::string bytes = buildMovie(soundMovie()).bytes;
    MemoryFileIo io(bytes);
    RecordingContext context(&io);
    Mp4Module module(&context);
    void* handle = nullptr;
    ASSERT_EQ(module.open(nullptr, "movie.mp4", 0, nullptr, handle), 0);
    struct Case
    {
        unsigned type;
        unsigned width;
        unsigned long long value;
    };
    const Case cases[] = {{kAttrModifiedTime, 4, 0}, {kAttrDuration, 4, 2002}, {kAttrSize, 8, bytes.size()}};
    for (const Case& c : cases) {
        for (const unsigned room : {c.width - 2, c.width, c.width + 10}) {
            unsigned long long value = 0;
            unsigned size = room;
            const bool fits = room >= c.width;
            EXPECT_EQ(module.getAttribute(handle, static_cast<AttrType_t>(c.type), &value, size), fits)
                << c.type;
            EXPECT_EQ(size, c.width) << c.type;
            EXPECT_EQ(value, fits ? c.value : 0) << c.type;
        }
    }
    char body[4096];
    unsigned size = sizeof(body);
    ASSERT_TRUE(module.getAttribute(handle, kAttrMetadata, body, size));
    EXPECT_EQ(std::memcmp(body, "\x02\0\x0AonMetaData\x08", 14), 0);
    const unsigned whole = size;
    EXPECT_TRUE(module.getAttribute(handle, kAttrMetadata, body, size));
    size = whole - 1;
    EXPECT_FALSE(module.getAttribute(handle, kAttrMetadata, body, size));
    EXPECT_EQ(size, 0U);
    size = sizeof(body);
    EXPECT_FALSE(module.getAttribute(handle, static_cast<AttrType_t>(5), body, size));
    module.close(handle);
}

TEST(Mp4Module, OpensOnlyWhatItCanPlay)
{
    MemoryFileIo io("no movie");
    RecordingContext context(&io);
    Mp4Module module(&context);
    void* handle = nullptr;
    EXPECT_EQ(module.open(nullptr, "movie.mp4", 0, nullptr, handle), 5);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(Mp4Module(nullptr).open(nullptr, "movie.mp4", 0, nullptr, handle), 2);
    EXPECT_EQ(handle, nullptr);

    // Without a handle every answer is nothing.
    SegmentBounds bounds;
    RecordingHolder holder;
    char out[64];
    unsigned size = sizeof(out);
    EXPECT_EQ(module.getMemoryOverhead(nullptr), 0U);
    EXPECT_FALSE(module.loadSegment(nullptr, &bounds, &holder));
    EXPECT_FALSE(module.getAttribute(nullptr, kAttrDuration, out, size));
    module.close(nullptr);
}

}  // namespace krx::test
