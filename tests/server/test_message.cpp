// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCommand.h"
#include "server/SRMessage.h"
#include "server/messagedump.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/hextext.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using krx::test::AssertRecorder;
using krx::test::hexText;
using krx::test::toHex;

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

TEST(MessageHeader, EncodesAndDecodes)
{
    const SRMessageHeader header{9, 0x010203, 0x12345678, 0xFF0A0B0C};
    unsigned char bytes[SRMessageHeader::kSize];
    header.serialize(bytes);
    EXPECT_EQ(toHex({reinterpret_cast<char*>(bytes), sizeof bytes}), "09 01 02 03 34 56 78 12 0A 0B 0C");
    const SRMessageHeader back = SRMessageHeader::parse(bytes);
    EXPECT_EQ(back.type, 9);
    EXPECT_EQ(back.length, 0x010203U);
    EXPECT_EQ(back.timestamp, 0x12345678U);
    EXPECT_EQ(back.streamId, 0x0A0B0CU);

    AssertRecorder asserts;
    SRMessageHeader{9, 0x1000005, 0, 0}.serialize(bytes);
    EXPECT_EQ(asserts.take(), std::vector<std::string>{kTooLong});
    EXPECT_EQ(SRMessageHeader::parse(bytes).length, 5U);
}

TEST(MessageHeader, NamesTypesAndClearsTheFlag)
{
    const struct
    {
        unsigned char type;
        const char* name;
        unsigned char after;
    } cases[] = {
        {8, "AUDIO", 8},
        {9, "VIDEO", 9},
        {15, "DATA", 15},
        {18, "DATA", 18},
        {20, "UNKNOWN", 20},
        {40, "ENCRYPTED AUDIO", 8},
        {41, "ENCRYPTED VIDEO", 9},
        {47, "ENCRYPTED DATA", 15},
        {50, "ENCRYPTED DATA", 18},
        {52, "ENCRYPTED UNKNOWN", 20},
        {0x88, "UNKNOWN", 0x88},
    };
    for (const auto& c : cases) {
        SRMessageHeader header{c.type, 0, 0, 0};
        EXPECT_STREQ(header.getTypeAsString(), c.name);
        EXPECT_EQ(header.type, c.after);
    }
}

TEST(Message, BodyGrowsWithAppends)
{
    EXPECT_EQ(SRMessage(10).getMemory()->capacity(), 12U);
    EXPECT_EQ(SRMessage(12).getMemory()->capacity(), 16U);
    SRMessage message(0);
    EXPECT_TRUE(message.writeU32(0x01020304));
    EXPECT_EQ(message.getMsgLen(), 4U);
    EXPECT_EQ(message.getMemory()->getUsed(), 4U);
    EXPECT_TRUE(message.writeU8(5) && message.writeU16(0x0607) && message.writeI64(-2) &&
                message.write("x", 1));
    EXPECT_TRUE(message.writeLenPrefixString(L"h\u00E9"));
    EXPECT_EQ(toHex(bodyOf(message)), "01 02 03 04 05 06 07 FF FF FF FF FF FF FF FE 78 00 00 00 03 68 C3 A9");
    unsigned char* cursor = message.getBody() + 16;
    EXPECT_EQ(message.getLenPrefixString(cursor), SRString(L"h\u00E9"));
    EXPECT_EQ(cursor, message.getBody() + 23);
    // Texts that do not end inside the body.
    for (const unsigned start : {4U, 20U, 21U, 23U}) {
        cursor = message.getBody() + start;
        EXPECT_TRUE(message.getLenPrefixString(cursor).empty());
        EXPECT_EQ(cursor, message.getBody() + 23);
    }
}

TEST(Message, RefusesLengthsBeyond24Bits)
{
    AssertRecorder asserts;
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

TEST(Message, KindsByTypeAndFirstByte)
{
    const struct
    {
        unsigned char type;
        const char* body;
        int slot;
        bool sync, droppable, critical;
    } cases[] = {
        {kMsgVideo, "17", 1, true, false, false},        {kMsgVideo, "37", 1, false, true, false},
        {kMsgVideo, "52", 1, false, false, true},        {kMsgVideo, "", 1, false, false, false},
        {kMsgVideo | 0x20, "17", 1, true, false, false}, {kMsgAudio, "17", 0, false, false, true},
        {kMsgContainer, "", 3, false, false, true},      {kMsgContainerEx | 0x80, "", 3, false, false, true},
        {kMsgData, "17", 2, false, false, true},
    };
    for (const auto& c : cases) {
        const SRMessagePtr message = messageOf(c.type, hexText(c.body));
        EXPECT_EQ(message->getMsgSlot(), c.slot);
        EXPECT_EQ(message->isSyncPoint(), c.sync);
        EXPECT_EQ(message->isDroppable(), c.droppable);
        EXPECT_EQ(message->isCritical(), c.critical);
    }
    EXPECT_EQ(messageOf(kMsgUserCtrl, hexText("03"))->getCtrlMsgType(), 0);
    EXPECT_EQ(messageOf(kMsgUserCtrl, hexText("FFFE"))->getCtrlMsgType(), -2);
    krx::MultiMsgCounter counter;
    messageOf(kMsgVideo | 0x20, "x")->addToMsgCount(counter);
    counter.addOne(30);
    EXPECT_EQ(counter.getCount(kMsgVideo), 1U);
    EXPECT_EQ(counter.getCount(30), 0U);
    EXPECT_EQ(counter.getTotal(), 1U);
}

TEST(Message, LengthPrefixedBuffers)
{
    const SRMessagePtr message(new SRMessage(0));
    const SRBuffer bytes(SRMemoryPtr(new SRMemory(8)), 2, 5);
    std::copy_n("12345678", 8, bytes.base());
    EXPECT_TRUE(krx::util::writeLenPrefixBuffer(message, bytes));
    EXPECT_TRUE(krx::util::writeLenPrefixBuffer(message, SRBuffer()));
    EXPECT_EQ(toHex(bodyOf(*message)), "00 00 00 03 33 34 35 00 00 00 00");
    unsigned char* cursor = message->getBody();
    const SRBuffer back = krx::util::readLenPrefixBuffer(cursor);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(back.data()), back.length()), "345");
    EXPECT_EQ(krx::util::readLenPrefixBuffer(cursor).memory(), nullptr);
    EXPECT_EQ(cursor, message->getBody() + 11);
}

TEST(MessagePool, RecyclesMessagesWithoutTheirContents)
{
    const SRMessage* first = nullptr;
    {
        const SRMessagePtr message = SRMessage::create();
        EXPECT_EQ(message->getMemory()->capacity(), 260U);
        EXPECT_EQ(message->getMemory()->pool(), SRMessage::m_defaultMemPool.load());
        message->setType(kMsgVideo);
        message->setFlag(0, 1);
        message->ownerRef(0) = new SRMessage(0);
        message->writeU32(1);
        EXPECT_EQ(message->pooledBytes(), 260U + 112);
        first = message.get();
    }
    const SRMessagePtr again = SRMessage::create(1000);
    EXPECT_EQ(again.get(), first);
    EXPECT_EQ(again->getType(), 0);
    EXPECT_EQ(again->getMsgLen(), 0U);
    EXPECT_EQ(again->getFlag(0), 0);
    EXPECT_EQ(again->ownerRef(0), nullptr);
    EXPECT_GE(again->getMemory()->capacity(), 1004U);
    EXPECT_EQ(again->clone()->pool(), again->pool());
}

TEST(MessagePool, ServesThreadsThatHandMessagesOn)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (unsigned i = 0; i < 200; ++i) {
                SRMessagePtr message = SRMessage::create(i);
                message->writeU32(i);
                std::thread([moved = std::move(message), i] {
                    const SRMessagePtr copy = moved->clone();
                    EXPECT_EQ(copy->getMsgLen(), 4U) << i;
                }).join();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(MessageDump, TellsEachSort)
{
    const struct
    {
        unsigned char type;
        const char* body;
        const char* text;
    } cases[] = {
        {8, "AF 00",
         "dataType=kMsgAudio idByte=8 streamId=7 time=5 codec=kSndCompressAAC format=kSnd44K16Stereo"},
        {8, "00", "dataType=kMsgAudio idByte=8 streamId=7 time=5 codec=kSndCompressNone format=kSnd5K8Mono"},
        {8, "C0", "dataType=kMsgAudio idByte=8 streamId=7 time=5 codec=unknown format=kSnd5K8Mono"},
        {41, "17", "dataType=kMsgVideo idByte=41 streamId=7 time=5 codec=kVideoCodecH264"},
        {9, "", "dataType=kMsgVideo idByte=9 streamId=7 time=5"},
        {9, "18", "dataType=kMsgVideo idByte=9 streamId=7 time=5 codec=unknown"},
        {4, "0029 01",
         "dataType=kMsgUserCtrl idByte=4 streamId=7 time=5 ctrlMsgType=kMsgRtmfpSetKeepalives 00 29 01"},
        {7, "0006",
         "dataType=kMsgVirtualUserControl idByte=7 streamId=7 time=5 ctrlMsgType=kMsgPingRequest 00 06"},
        {4, "00", "dataType=kMsgUserCtrl idByte=4 streamId=7 time=5 ctrlMsgType=unknown 00"},
        {8, "", "dataType=kMsgAudio idByte=8 streamId=7 time=5"},
        {22, "", "dataType=kMsgAggregate idByte=22 streamId=7 time=5"},
        {15, "00 05", "dataType=kMsgDataEx  idByte=15 streamId=7 time=5"},
        {20, "02 0004 'play' 00 4000000000000000 05 02 0001 'x' 01 01",
         "dataType=kMsgCmd idByte=20 streamId=7 time=5 trxId=2 encoding=kEncodingAMF0 "
         "cmdData=(dataType=kNullType) "
         "arg0=(dataType=kStringType \"x\") arg1=(dataType=kboolType true)"},
        {18,
         "02 0001 'm' 08 00000000 0001 'a' 00 3FF8000000000000 0001 'o' 0A 00000002 02 0001 'x' 05 0000 09 "
         "22 0000000000000009 0B C097700000000000 0000",
         "dataType=kMsgData idByte=18 streamId=7 time=5 trxId=0 encoding=kEncodingAMF0 "
         "cmdData=(dataType=kUndefinedType) arg0=(dataType=kArrayType {a: dataType=kNumberType 1, "
         "o: dataType=kArrayType {0: dataType=kStringType \"x\", 1: dataType=kNullType}}) "
         "arg1=(dataType=kInt64Type 9) arg2=(dataType=kDateType -1500)"},
        {49, "00 02 0001 'm' 00 0000000000000000 06",
         "dataType=kMsgCmdEx idByte=49 streamId=7 time=5 trxId=0 encoding=kEncodingAMF3 "
         "cmdData=(dataType=kUndefinedType)"},
        {18, "02 0009 'm'", "dataType=kMsgData idByte=18 streamId=7 time=5 BAD_PARSE"},
    };
    for (const auto& c : cases) {
        const SRMessagePtr message = messageOf(c.type, hexText(c.body));
        message->setStreamId(7);
        message->setTime(5);
        EXPECT_EQ(krx::util::messageToString(message), c.text);
    }
    const SRMessagePtr early = messageOf(9, "");
    early->setTime(0xFFFFFFFE);
    EXPECT_EQ(krx::util::messageToString(early), "dataType=kMsgVideo idByte=9 streamId=0 time=-2");
}

}  // namespace
