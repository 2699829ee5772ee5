// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRMessage.h"
#include "server/messagedump.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/hextext.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace krx::test {
namespace {

const char kTooLong[] = "Assert failed in server/compositemessage line 251";

std::string bodyOf(const SRMessage& message)
{
    return {reinterpret_cast<const char*>(message.getBody()), message.getBodyLength()};
}

SRMessagePtr messageOf(unsigned char type, const std::string& body)
{
    SRMessagePtr message(new SRMessage(0));
    message->setType(type);
    message->write(body.data(), static_cast<unsigned>(body.size()));
    return message;
}

TEST(Message, RefusesLengthsBeyond24Bits)
{
    AssertRecorder asserts;
    unsigned char bytes[SRMessageHeader::kSize];
    SRMessageHeader{9, 0x1000005, 0, 0}.serialize(bytes);
    EXPECT_EQ(asserts.take(), std::vector<std::string>{kTooLong});
    EXPECT_EQ(SRMessageHeader::parse(bytes).length, 5U);
    SRMessage message(0);
    EXPECT_FALSE(message.setSize(0x1000000));
    EXPECT_FALSE(message.setMsgLen(0x1000000, true));
    EXPECT_EQ(message.getMsgLen(), 0U);
    EXPECT_EQ(message.getMemory()->capacity(), 4U);
    EXPECT_EQ(asserts.take().size(), 2U);
    ASSERT_TRUE(message.setSize(kMaxMessageLength));
    EXPECT_FALSE(message.writeU8(1));
    EXPECT_EQ(message.getMsgLen(), kMaxMessageLength);
    // A length that the memory does not hold is cut where bytes are read.
    SRMessage small(0);
    EXPECT_TRUE(small.setMsgLen(100, false));
    EXPECT_EQ(small.getBodyLength(), 4U);
}

TEST(Message, ReallocKeepsWhatFitsAndLeavesSharedBodies)
{
    const SRMessagePtr message = messageOf(kMsgData, "abcdefgh");
    const unsigned char* const data = message->getBody();
    EXPECT_TRUE(message->reallocBuffer(message->getMemory()->capacity() - 4));
    EXPECT_EQ(message->getBody(), data);
    const SRBuffer holder(message->getMemory(), 0, 8);
    EXPECT_TRUE(message->setSize(10000));
    EXPECT_EQ(holder.data(), data);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(holder.data()), 8), "abcdefgh");
    EXPECT_EQ(bodyOf(*message).substr(0, 8), "abcdefgh");
    EXPECT_TRUE(message->reallocBuffer(2));
    EXPECT_EQ(bodyOf(*message), "abcd");
    for (const unsigned size : {0xFFFFFFFCU, 0xFFFFFFFFU}) {
        EXPECT_FALSE(message->reallocBuffer(size));
        EXPECT_THROW(SRMessage::create(size), SROutOfMemory);
    }
    EXPECT_EQ(bodyOf(*message), "abcd");

    const SRMessagePtr copy = messageOf(kMsgAudio, "body")->clone(false);
    EXPECT_EQ(bodyOf(*copy), "body");
    EXPECT_EQ(copy->getType(), kMsgAudio);
}

TEST(MessageDump, ShowsValuesOfEachKind)
{
    const SRMessagePtr message = messageOf(
        18, hexText("02 0001 'm' 08 00000000 0001 'a' 00 3FF8000000000000 0001 'o' "
                    "0A 00000002 02 0001 'x' 05 0000 09 22 0000000000000009 0B C097700000000000 0000"));
    message->setStreamId(7);
    message->setTime(0xFFFFFFFE);
    EXPECT_EQ(util::messageToString(message),
              "dataType=kMsgData idByte=18 streamId=7 time=-2 trxId=0 encoding=kEncodingAMF0 "
              "cmdData=(dataType=kUndefinedType) arg0=(dataType=kArrayType {a: dataType=kNumberType 1, "
              "o: dataType=kArrayType {0: dataType=kStringType \"x\", 1: dataType=kNullType}}) "
              "arg1=(dataType=kInt64Type 9) arg2=(dataType=kDateType -1500)");
}

}  // namespace
}  // namespace krx::test
