// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/compositemessage.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/hextext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace krx::test {

namespace {

SRMemoryPtr memoryOf(const std::string& bytes)
{
    SRMemoryPtr memory(new SRMemory(static_cast<unsigned>(bytes.size())));
    std::copy(bytes.begin(), bytes.end(), memory->data());
    return memory;
}

CompositeMessagePtr aggregateOf(const std::string& bytes)
{
    return CompositeMessagePtr(new CompositeMessage(memoryOf(bytes), static_cast<unsigned>(bytes.size())));
}

// Audio (0xAF) at 100 ms, encrypted video (0x17) at 200, data at 0x01000000, audio without a body at the same
// time.
const char kBody[] =
    "08 000004 000064 00 000001  AF010203  0000000F"
    "29 000005 0000C8 00 000001  1700000000  00000010"
    "12 000001 000000 01 000000  05  0000000C"
    "08 000000 000000 01 000000  0000000B";

TEST(Aggregate, ListsItsRecordsWithoutCopying)
{
    const SRMemoryPtr memory = memoryOf(hexText(kBody));
    const CompositeMessagePtr aggregate(new CompositeMessage(memory, memory->capacity()));
    EXPECT_EQ(aggregate->getType(), kMsgAggregate);
    EXPECT_EQ(aggregate->getTime(), 100U);
    EXPECT_EQ(aggregate->getMsgLen(), memory->capacity());
    ASSERT_EQ(aggregate->getMessageCount(), 4U);
    EXPECT_EQ(aggregate->getMessage(1)->getOffset(), 19U);
    EXPECT_EQ(aggregate->getMessage(1)->getType(), kMsgVideo);
    EXPECT_EQ(aggregate->getMessage(1)->getFlag(0), 0x20);
    EXPECT_EQ(aggregate->getMessage(1)->getStreamId(), 1U);
    EXPECT_EQ(aggregate->getMessage(1)->getBody(), memory->data() + 30);
    EXPECT_EQ(aggregate->getMessage(1)->getBodyLength(), 5U);
    EXPECT_EQ(aggregate->getMessage(4), nullptr);
    EXPECT_EQ(aggregate->getLastMsgTime(), 0x01000000U);
    EXPECT_EQ(aggregate->getAudioFormats(), 1 << 10);
    EXPECT_EQ(aggregate->getVideoCodecs(), 1 << 7);
    EXPECT_EQ(aggregate->getDataKinds(), CompositeMessage::kHasData);
    EXPECT_EQ(aggregate->getCounter().getCount(kMsgAudio), 2U);

    // Parts share the memory of the whole, and keep it alive.
    CompositeMessagePtr first;
    CompositeMessagePtr second;
    aggregate->splitByTime(0x01000000, first, second);
    EXPECT_EQ(second->getBody(), memory->data() + 39);
    EXPECT_EQ(second->getMessageCount(), 2U);
}

/// However an aggregate is cut, each part reports what a walk over its records finds. The cost of taking off
/// one record does not grow with their number.
TEST(Aggregate, PartsTellOfTheirRecords)
{
    std::mt19937 random(1);
    std::string body;
    for (unsigned i = 0; i < 100000; ++i) {
        const char* const records[] = {
            "08 000001 %06X 00 000000 AF 0000000C", "29 000001 %06X 00 000000 27 0000000C",
            "12 000000 %06X 00 000000    0000000B", "0F 000001 %06X 00 000000 00 0000000C"};
        std::array<char, 60> record{};
        std::snprintf(record.data(), record.size(), records[std::min<std::size_t>(random() % 40, 3)], i);
        body += hexText(record.data());
    }
    const auto check = [](const CompositeMessage& part) {
        MultiMsgCounter counter;
        for (unsigned i = 0; i < part.getMessageCount(); ++i)
            counter.addOne(static_cast<char>(part.getMessage(i)->getType()));
        for (char type = 0; type < 24; ++type)
            ASSERT_EQ(part.getCounter().getCount(type), counter.getCount(type));
        EXPECT_EQ(part.getAudioFormats(), counter.getCount(kMsgAudio) != 0 ? 1 << 10 : 0);
        EXPECT_EQ(part.getVideoCodecs(), counter.getCount(kMsgVideo) != 0 ? 1 << 7 : 0);
        EXPECT_EQ(part.getTime(), part.getMessage(0)->getTime());
        EXPECT_EQ(part.getBody() + SRMessageHeader::kSize, part.getMessage(0)->getBody());
    };
    const CompositeMessagePtr aggregate = aggregateOf(body);
    for (int i = 0; i < 300; ++i) {
        CompositeMessagePtr part = aggregate;
        while (part && part->getMessageCount() > 1) {
            const unsigned count = part->getMessageCount();
            const auto at = static_cast<unsigned>(random() % (count + 2));
            CompositeMessagePtr first;
            CompositeMessagePtr second;
            if (random() % 2 != 0)
                part->splitByIndex(at, first, second);
            else
                part->splitByTime(part->getTime() + at, first, second);
            ASSERT_EQ(first ? first->getMessageCount() : 0, std::min(at, count));
            ASSERT_EQ(second ? second->getMessageCount() : 0, count - std::min(at, count));
            for (const CompositeMessagePtr& one : {first, second, part->getPrev(), part->getNext()})
                if (one && one->getMessageCount() < 50)
                    check(*one);
            part = random() % 2 != 0 ? first : second;
        }
    }

    CompositeMessagePtr rest = aggregate;
    CompositeMessagePtr first;
    unsigned count = 0;
    for (; rest; ++count) {
        rest->splitByIndex(1, first, rest);
        ASSERT_EQ(first->getMessage(0)->getTime(), count);
        rest = count % 2 != 0 ? rest : first->getNext();
    }
    EXPECT_EQ(count, aggregate->getMessageCount());
}

}  // namespace
}  // namespace krx::test
