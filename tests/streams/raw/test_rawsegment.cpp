// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/raw/rawfixture.h"

#include <gtest/gtest.h>

#include <random>

namespace krx::test {
namespace {

using Lines = std::vector<RecordingContext::Line>;
using Messages = std::vector<RecordingHolder::Message>;

const std::string kPath = "rec/0000000000000000";

/// The result of loading one segment.
struct Loaded
{
    bool result = false;
    Lines findings;
    Messages messages;
};

Loaded load(const std::string& content, const SegmentBounds& bounds, const raw::RawConfigStruct& config = {},
            std::size_t refuseAt = 0)
{
    RawFixture raw({{RawBuilder::fileName(bounds.start), content}}, config);
    raw.holder.refuseAt = refuseAt;
    Loaded loaded;
    loaded.result = raw.data.loadSegment(&raw.context, &bounds, &raw.holder);
    loaded.findings = raw.context.takeFindings();
    loaded.messages = raw.holder.messages;
    return loaded;
}

raw::RawConfigStruct singly()
{
    raw::RawConfigStruct config;
    config.EnableAggMsgs = false;
    return config;
}

std::string records(const std::vector<RawMessage>& messages)
{
    std::string out;
    for (const RawMessage& message : messages)
        out += messageBytes(message);
    return out;
}

RawMessage ofType(std::uint8_t type, std::uint32_t time = 5)
{
    RawMessage message = rawAudio(time);
    message.type = type;
    return message;
}

TEST(RawSegmentTest, RecordsAreChecked)
{
    const std::string truncated = "-35\tTruncated message in segment file " + kPath + ".";
    const std::string badType = "-36\tUnrecognized message type in segment file " + kPath + ".";
    const std::string badFooter = "-37\tInvalid message footer in segment file " + kPath + ".";
    const std::string mismatch = "-38\tSegment file " + kPath + " does not match index file.";
    const std::string good = messageBytes(rawAudio(5));
    RawMessage bodyAsFooter = rawAudio(5);
    bodyAsFooter.footer = 4;
    RawMessage tooLong = rawAudio(5);
    tooLong.length = 0xFFFFFF;
    RawMessage late = rawAudio(0xFFFFFFFF);
    const long long most = std::numeric_limits<long long>::max();
    const struct
    {
        std::string content;
        SegmentBounds bounds;
        std::string fault;  ///< empty: none
        std::size_t delivered;
    } cases[] = {
        {good, {0, 0, 5, 6}, "", 1},
        {"", {0, 0, 0, 0}, mismatch, 0},
        {"", {0, 0, 0, 1}, mismatch, 0},
        {good, {0, 1, 5, 6}, mismatch, 1},
        {good + good, {0, 0, 5, 6}, mismatch, 2},
        {good, {0, 0, 5, 5}, mismatch, 1},
        {good, {0, 0, 5, 7}, mismatch, 1},
        {good, {0, most - 1, 5, 6}, mismatch, 1},
        {good, {std::numeric_limits<long long>::min(), most - 1, 5, 6}, mismatch, 1},
        {messageBytes(late), {0, 0, 5, 0}, mismatch, 1},
        {messageBytes(rawAudio(0xFFFFFFFE)), {0, 0, 5, 0xFFFFFFFF}, "", 1},
        {records({rawAudio(5), rawAudio(9), rawAudio(8)}), {0, 2, 5, 10}, "", 3},  // the largest time counts
        {good + "x", {0, 0, 5, 6}, truncated, 1},
        {good + good.substr(0, 10), {0, 1, 5, 6}, truncated, 1},
        {good + good.substr(0, 11), {0, 1, 5, 6}, truncated, 1},
        {good.substr(0, good.size() - 1), {0, 0, 5, 6}, truncated, 0},
        {messageBytes(tooLong), {0, 0, 5, 6}, truncated, 0},
        {good + messageBytes(bodyAsFooter), {0, 1, 5, 6}, badFooter, 1},
        {messageBytes(ofType(0)), {0, 0, 5, 6}, "", 1},
        {messageBytes(ofType(23)), {0, 0, 5, 6}, "", 1},
        {messageBytes(ofType(0x37)), {0, 0, 5, 6}, "", 1},
        {messageBytes(ofType(24)), {0, 0, 5, 6}, badType, 0},
        {messageBytes(ofType(0x3F)), {0, 0, 5, 6}, badType, 0},
        {messageBytes(ofType(0x48)), {0, 0, 5, 6}, badType, 0},
        {messageBytes(ofType(0x88)), {0, 0, 5, 6}, badType, 0},
        {std::string(11, '\xFF'), {0, 0, 5, 6}, badType, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        Loaded loaded = load(c.content, c.bounds, singly());
        EXPECT_EQ(loaded.result, c.fault.empty());
        std::erase_if(loaded.findings, [](const auto& line) { return line.level == 3; });
        EXPECT_EQ(loaded.findings, c.fault.empty() ? Lines() : Lines{errorLine(c.fault)});
        EXPECT_EQ(loaded.messages.size(), c.delivered);
    }
}

TEST(RawSegmentTest, SegmentsOfAnySizeFollowEachOther)
{
    RawBuilder builder;
    for (const std::size_t length : {30U, 3000U, 0U, 300U, 30000U})
        builder.segment({rawAudio(5, std::string(length, static_cast<char>('a' + builder.bounds.size())))});
    RawFixture raw(builder.files(), singly());
    for (const SegmentBounds& bounds : builder.bounds)
        raw.data.loadSegment(&raw.context, &bounds, &raw.holder);
    EXPECT_EQ(raw.holder.messages, (Messages{{8, std::string(30, 'a'), 5},
                                             {8, std::string(3000, 'b'), 5},
                                             {8, "", 5},
                                             {8, std::string(300, 'd'), 5},
                                             {8, std::string(30000, 'e'), 5}}));
}

TEST(RawSegmentTest, BackwardTimes)
{
    const std::string text = "-126\tFound backward timestamp in segment file " + kPath + ".";
    raw::RawConfigStruct strict = singly();
    strict.WarningsAsErrors = true;
    const struct
    {
        unsigned startTime;
        std::vector<std::uint32_t> times;
        std::size_t warnings;
        std::size_t deliveredBefore;  ///< the first one
    } cases[] = {
        {10, {9, 10, 20}, 0, 3}, {10, {8, 10, 20}, 1, 0},
        {0, {0, 20}, 0, 2},      {0, {20, 19, 19, 18, 20}, 2, 1},  // each is compared with the one before it
        {1, {0, 20}, 0, 2},
    };
    for (const auto& c : cases) {
        std::string content;
        for (const std::uint32_t time : c.times)
            content += messageBytes(rawAudio(time));
        const SegmentBounds bounds{0, static_cast<long long>(c.times.size()) - 1, c.startTime, 21};
        const Loaded loaded = load(content, bounds, singly());
        EXPECT_TRUE(loaded.result);
        EXPECT_EQ(loaded.findings, Lines(c.warnings, {3, text + "\trec"}));
        EXPECT_EQ(loaded.messages.size(), c.times.size());

        const Loaded refused = load(content, bounds, strict);
        EXPECT_EQ(refused.result, c.warnings == 0);
        EXPECT_EQ(refused.findings, c.warnings == 0 ? Lines() : Lines{errorLine(text)});
        EXPECT_EQ(refused.messages.size(), c.deliveredBefore);
    }
}

/// What aggregation has to deliver, put together by copying.
Messages aggregated(const std::vector<RawMessage>& messages, unsigned maxSize)
{
    Messages out;
    RecordingHolder::Message pending{22, "", 0};
    const auto flush = [&] {
        if (!pending.bytes.empty())
            out.push_back(std::exchange(pending, {22, "", 0}));
    };
    for (const RawMessage& message : messages) {
        if ((message.type & 0x5F) == 9 && !message.payload.empty() && (message.payload[0] & 0xF0) == 0)
            continue;
        if (message.time == 0) {
            out.push_back({message.type, message.payload, 0});
            continue;
        }
        const std::string record = messageBytes(message);
        if (pending.bytes.size() + record.size() > 0xFFFFFF)
            flush();
        if (record.size() > 0xFFFFFF) {
            out.push_back({message.type, message.payload, message.time});
            continue;
        }
        if (pending.bytes.empty())
            pending.time = message.time;
        pending.bytes += record;
        if (pending.bytes.size() >= maxSize)
            flush();
    }
    flush();
    return out;
}

void expectAggregates(const std::vector<RawMessage>& row, const std::vector<unsigned>& maxSizes)
{
    const std::string content = records(row);
    SegmentBounds bounds{0, static_cast<long long>(row.size()) - 1, 0, 0};
    for (const RawMessage& message : row)
        bounds.endTime = std::max(bounds.endTime, message.time + 1);
    for (const unsigned maxSize : maxSizes) {
        raw::RawConfigStruct config;
        config.MaxAggMsgSize = maxSize;
        const Loaded loaded = load(content, bounds, config);
        EXPECT_EQ(loaded.result, !row.empty());
        EXPECT_TRUE(loaded.messages == aggregated(row, maxSize)) << row.size() << " messages, " << maxSize;
    }
}

TEST(RawSegmentTest, Aggregates)
{
    const unsigned one = 19;  // bytes of the record of rawAudio
    const std::vector<std::vector<RawMessage>> rows = {
        {},
        {rawAudio(5), rawAudio(5), rawAudio(6), rawAudio(6), rawAudio(7)},
        {rawAudio(5), rawAudio(0), rawAudio(6), rawAudio(6)},          // overtakes, and leaves a gap
        {rawAudio(5), rawVideo(5, "\x05"), rawAudio(6), rawAudio(6)},  // skipped, and leaves a gap
        {rawAudio(5), rawAudio(6), rawVideo(5, "\x05"), rawAudio(0)},
        {rawAudio(0), rawAudio(0)},
    };
    std::vector<std::vector<RawMessage>> all = rows;
    std::mt19937 random(1);
    for (int i = 0; i < 300; ++i) {
        std::vector<RawMessage> row(random() % 12);
        for (RawMessage& message : row) {
            message = random() % 3 ? rawAudio(5, std::string(random() % 30, 'a'))
                                   : rawVideo(5, std::string(random() % 3, random() % 2 ? '\x05' : '\x15'));
            message.time = random() % 4 ? 5 : 0;
        }
        all.push_back(row);
    }
    const std::vector<unsigned> sizes = {0, 1, 2 * one - 1, 2 * one, 2 * one + 1, 65536, 0xFFFFFFFF};
    for (const auto& row : all)
        expectAggregates(row, sizes);
}

TEST(RawSegmentTest, AnAggregateIsNoLargerThanAMessage)
{
    const RawMessage half = rawAudio(5, std::string(0x800000 - 15, 'h'));  // its record has 2^23 bytes
    const RawMessage whole = rawAudio(5, std::string(0xFFFFFF, 'w'));
    expectAggregates({half, rawVideo(5, "\x05"), half, rawAudio(0), whole, rawAudio(6), whole}, {0xFFFFFFFF});
}

}  // namespace
}  // namespace krx::test
