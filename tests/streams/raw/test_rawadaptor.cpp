// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawModule.h"
#include "tests/streams/raw/rawfixture.h"
#include "tests/support/assertrecorder.h"

#include <gtest/gtest.h>

#include <cstring>

namespace krx::test {
namespace {

using raw::RawAdaptor;

/// The adaptor with one open stream in memory.
struct OpenStream
{
    explicit OpenStream(const RawBuilder& builder, const RecordingContext::Settings& settings = {})
        : context(&io, settings)
    {
        for (const auto& [name, content] : builder.files())
            io.files["rec/" + name] = content;
        result = adaptor.open(nullptr, "rec", 0, nullptr, handle);
    }
    ~OpenStream() { adaptor.close(handle); }
    OpenStream(const OpenStream&) = delete;
    OpenStream& operator=(const OpenStream&) = delete;

    /// An attribute as bytes; what is left of room when there is none.
    std::pair<std::string, unsigned> attribute(unsigned type, unsigned room)
    {
        std::string out(room, '?');
        unsigned size = room;
        if (!adaptor.getAttribute(handle, static_cast<AttrType_t>(type), out.data(), size))
            return {"none", size};
        return {out.substr(0, size), size};
    }

    MemoryDirIo io;
    RecordingContext context;
    RawAdaptor adaptor{&context};
    void* handle = nullptr;
    int result = -1;
};

template <typename T>
std::string bytesOf(T value)
{
    std::string bytes(sizeof(T), '\0');
    std::memcpy(bytes.data(), &value, sizeof(T));
    return bytes;
}

struct ContextRecorder : IContextHolder, IAllContextHolder
{
    std::vector<std::string> seen;
    void add(unsigned char type, void* data, unsigned length, unsigned time, long long position,
             unsigned trackId, ContextType_t contextType) override
    {
        const std::string body(static_cast<const char*>(data), length);
        seen.push_back(std::to_string(type) + ' ' + body + ' ' + std::to_string(time) + ' ' +
                       std::to_string(position) + ' ' + std::to_string(trackId) + ' ' +
                       std::to_string(contextType));
    }
    void add(void* data, unsigned length) override
    {
        seen.emplace_back(static_cast<const char*>(data), length);
    }
};

TEST(RawAdaptorTest, ADerivedAdaptorMayTakeOtherSettings)
{
    struct Derived : RawAdaptor
    {
        using RawAdaptor::RawAdaptor;
        bool readConfigUnsigned(const char*, unsigned& value, unsigned, unsigned max) override
        {
            value = max;
            return true;
        }
    } derived(nullptr);
    RawAdaptor& adaptor = derived;
    EXPECT_EQ(adaptor.getConfig().MaxAggMsgSize, 65536U);
    adaptor.config();
    EXPECT_EQ(adaptor.getConfig().MaxAggMsgSize, 0xFFFFFFFFU);
}

TEST(RawAdaptorTest, Configuration)
{
    const struct
    {
        RecordingContext::Settings settings;
        raw::RawConfigStruct expected;
    } cases[] = {
        {{}, {true, 65536, false, 2}},
        {{{"Raw/WarningsAsErrors", "true"}, {"Raw/EnableAggMsgs", "false"}}, {false, 65536, true, 2}},
        {{{"Raw/WarningsAsErrors", "TRUE"}, {"Raw/EnableAggMsgs", "False"}}, {true, 65536, false, 2}},
        {{{"Raw/MaxAggMsgSize", "0"}, {"Raw/MaxEraseRetries", "4294967295"}}, {true, 0, false, 4294967295}},
        {{{"Raw/MaxAggMsgSize", "4294967296"}, {"Raw/MaxEraseRetries", "-7"}}, {true, 65536, false, 0}},
        {{{"Raw/MaxAggMsgSize", std::string(80, '0') + "12"}}, {true, 12, false, 2}},
    };
    for (const auto& c : cases) {
        RecordingContext context(nullptr, c.settings);
        const RawAdaptor adaptor(&context);
        const raw::RawConfigStruct& got = adaptor.getConfig();
        EXPECT_EQ(std::tie(got.EnableAggMsgs, got.MaxAggMsgSize, got.WarningsAsErrors, got.MaxEraseRetries),
                  std::tie(c.expected.EnableAggMsgs, c.expected.MaxAggMsgSize, c.expected.WarningsAsErrors,
                           c.expected.MaxEraseRetries));
        EXPECT_EQ(context.asked, (std::vector<std::string>{"Raw/WarningsAsErrors", "Raw/EnableAggMsgs",
                                                           "Raw/MaxAggMsgSize", "Raw/MaxEraseRetries"}));
    }
}

TEST(RawAdaptorTest, WalksAStream)
{
    for (const bool aggregates : {true, false}) {
        OpenStream stream(smallRecording(), {{"Raw/EnableAggMsgs", aggregates ? "true" : "false"}});
        ASSERT_EQ(stream.result, 0);
        EXPECT_EQ(stream.adaptor.getDuration(stream.handle), 61U);
        EXPECT_EQ(stream.adaptor.getSize(stream.handle), 120);
        EXPECT_EQ(stream.adaptor.getType(stream.handle), 5U);
        RecordingHolder holder;
        const long long end = stream.adaptor.getEndPosition(stream.handle);
        ASSERT_EQ(end, 6);
        for (long long i = 0; i < end;) {
            SegmentBounds bounds;
            ASSERT_TRUE(stream.adaptor.findSegmentByIndex(stream.handle, i, &bounds));
            SegmentBounds again;
            EXPECT_TRUE(stream.adaptor.findSegmentByTime(stream.handle, bounds.endTime - 1, &again));
            EXPECT_EQ(bounds, again);
            ASSERT_TRUE(stream.adaptor.loadSegment(stream.handle, &bounds, &holder));
            i = bounds.end + 1;
        }
        EXPECT_EQ(holder.messages.size(), aggregates ? 4U : 6U);
        EXPECT_TRUE(stream.context.takeFindings().empty());
        EXPECT_GT(stream.adaptor.getMemoryOverhead(stream.handle), 0U);
    }
}

TEST(RawAdaptorTest, Attributes)
{
    const std::string body = metaData(0.1);
    const auto length = static_cast<unsigned>(body.size());
    OpenStream stream(smallRecording());
    stream.io.modifiedTimes["rec/index"] = {77, 5};
    const struct
    {
        unsigned type;
        unsigned room;
        std::string bytes;
        unsigned size;
    } cases[] = {
        {1, 4, bytesOf(77U), 4},    {1, 3, "none", 4},   {2, 9, bytesOf(61U), 4},  {2, 2, "none", 4},
        {3, 8, bytesOf(120LL), 8},  {3, 7, "none", 8},   {4, 16384, body, length}, {4, length, body, length},
        {4, length - 1, "none", 0}, {5, 16, "none", 16}, {0, 16, "none", 16},
    };
    for (const auto& c : cases)
        EXPECT_EQ(stream.attribute(c.type, c.room), std::make_pair(c.bytes, c.size))
            << c.type << ' ' << c.room;
}

TEST(RawAdaptorTest, TheMetadataStandsInFrontOfThePositionsOnTrackTwo)
{
    const std::pair<std::vector<RawContext>, std::string> cases[] = {
        {{}, "none"},
        {{{18, 0, "a", -1, 2, 1}}, "none"},
        {{{18, 0, "a", -2, 3, 1}}, "none"},
        {{{18, 0, "a", -2, 2, 2}}, "none"},
        {{{18, 0, "a", -2, 2, 1}, {18, 9, "b", -1, 2, 1}}, "a"},
        {{{18, 0, "a", -2, 3, 1}, {8, 9, "b", -7, 2, 1}, {8, 9, "", 4, 1, 1}}, "b"},
        {{{18, 0, std::string(16385, 'x'), -2, 2, 1}}, "none"},
    };
    for (const auto& [contexts, expected] : cases) {
        RawBuilder builder = smallRecording();
        builder.contexts = contexts;
        OpenStream stream(builder);
        EXPECT_EQ(stream.attribute(4, 16384).first, expected);
    }
}

TEST(RawAdaptorTest, MediaContexts)
{
    RawBuilder builder = smallRecording();
    builder.contexts = {{9, 1, "h0", 0, 1, 1}, {9, 2, "h3", 3, 1, 1}, {8, 3, "e5", 5, 2, 2}};
    OpenStream stream(builder);
    const auto ask = [&stream](ContextType_t type, long long position, bool atPosition) {
        ContextRecorder recorder;
        const bool found =
            stream.adaptor.getMediaContexts(stream.handle, type, position, &recorder, atPosition);
        EXPECT_EQ(found, !recorder.seen.empty());
        return recorder.seen;
    };
    using Seen = std::vector<std::string>;
    EXPECT_EQ(ask(kContextHeader, 3, false), Seen{"9 h0 1 0 1 1"});
    EXPECT_EQ(ask(kContextHeader, 3, true), Seen{"9 h3 2 3 1 1"});
    EXPECT_EQ(ask(kContextEnder, 4, false), Seen{"8 e5 3 5 2 2"});
    EXPECT_EQ(ask(kContextEnder, 5, false), Seen());

    ContextRecorder all;
    EXPECT_TRUE(stream.adaptor.getAllMediaContexts(stream.handle, &all));
    EXPECT_EQ(all.seen, Seen{builder.contextsFile()});
    OpenStream without(RawBuilder().segment({rawAudio(0)}));
    EXPECT_FALSE(without.adaptor.getAllMediaContexts(without.handle, &all));
    EXPECT_EQ(all.seen.size(), 1U);

    AssertRecorder reports;
    EXPECT_FALSE(stream.adaptor.getMediaContexts(stream.handle, kContextHeader, 3, nullptr, false));
    EXPECT_FALSE(stream.adaptor.getAllMediaContexts(stream.handle, nullptr));
    SegmentBounds bounds;
    EXPECT_FALSE(stream.adaptor.findSegmentByIndex(stream.handle, 0, nullptr));
    EXPECT_FALSE(stream.adaptor.loadSegment(stream.handle, &bounds, nullptr));
    EXPECT_EQ(reports.take().size(), 4U);
}

TEST(RawAdaptorTest, OpenFailsAndCloseTakesNothing)
{
    RawBuilder faulty = smallRecording();
    faulty.version = 7;
    EXPECT_EQ(OpenStream(faulty).result, 1);
    EXPECT_EQ(OpenStream(faulty).handle, nullptr);

    OpenStream stream(smallRecording());
    void* handle = nullptr;
    EXPECT_EQ(stream.adaptor.open(nullptr, "rec", raw::RawData::kRecordFlag, nullptr, handle), 1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(RawAdaptor(nullptr).open(nullptr, "rec", 0, nullptr, handle), 1);
    EXPECT_EQ(stream.adaptor.getVersion(), 256U);
    EXPECT_EQ(stream.adaptor.getPermission(), 6U);
}

}  // namespace
}  // namespace krx::test
