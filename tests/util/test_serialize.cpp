// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/assertrecorder.h"
#include "util/messagebuffer.h"
#include "util/serializeutil.h"
#include "util/typeconvertor.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace krx::util {
namespace {

using Texts = std::vector<std::string>;

class Bytes : public ISerialize, public IDeserialize
{
public:
    void write(const void* bytes, unsigned n) override
    {
        content.append(static_cast<const char*>(bytes), n);
        ++calls;
    }
    void read(void* bytes, unsigned n) override
    {
        ASSERT_LE(n, content.size());
        std::memcpy(bytes, content.data(), n);
        content.erase(0, n);
        ++calls;
    }

    std::string content;
    unsigned calls = 0;
};

TEST(Serialize, IntegersAreBigEndianInOneCall)
{
    Bytes bytes;
    bytes.writeU8(0xFE);
    bytes.writeU16(0x1234);
    bytes.writeU32(0x80000001);
    bytes.writeI32(-2);
    bytes.writeU64(0x0102030405060708);
    bytes.writeI64(LLONG_MIN);
    bytes.writeInt(3, 0xAABBCCDD);
    bytes.writeInt(0, 1);
    const unsigned char expected[] = {0xFE, 0x12, 0x34, 0x80, 0, 0, 1, 0xFF, 0xFF, 0xFF,
                                      0xFE, 1,    2,    3,    4, 5, 6, 7,    8,    0x80,
                                      0,    0,    0,    0,    0, 0, 0, 0xBB, 0xCC, 0xDD};
    EXPECT_EQ(bytes.content, std::string(std::begin(expected), std::end(expected)));
    EXPECT_EQ(bytes.calls, 7U);

    bytes.calls = 0;
    EXPECT_EQ(bytes.readU8(), 0xFE);
    EXPECT_EQ(bytes.readU16(), 0x1234);
    EXPECT_EQ(bytes.readU32(), 0x80000001U);
    EXPECT_EQ(bytes.readI32(), -2);
    EXPECT_EQ(bytes.readU64(), 0x0102030405060708U);
    EXPECT_EQ(bytes.readI64(), LLONG_MIN);
    EXPECT_EQ(bytes.readInt(3), 0xBBCCDDU);
    EXPECT_EQ(bytes.calls, 7U);
}

TEST(Serialize, RefusesWidthsThatNoIntegerHas)
{
    test::AssertRecorder asserts;
    Bytes bytes;
    bytes.writeInt(9, 1);
    EXPECT_EQ(bytes.readInt(9), 0U);
    EXPECT_EQ(bytes.calls, 0U);
    EXPECT_EQ(asserts.take(), (Texts{"Assert failed in util/serializeutil line 83",
                                     "Assert failed in util/serializeutil line 131"}));
}

std::string packed(const MessageBuffer& buffer)
{
    const SRBuffer span = buffer.getBuffer();
    return span.length() == 0 ? "" : std::string(reinterpret_cast<const char*>(span.data()), span.length());
}

TEST(MessageBuffer, PacksRecordsAndSumsThemUp)
{
    MessageBuffer buffer(20);  // grows on the way
    buffer.addMessage(8, "0123456789", 10, 500);
    const unsigned char first[] = {8,   0,   0,   10,  0,   1,   0xF4, 0,   0, 0, 0, '0', '1',
                                   '2', '3', '4', '5', '6', '7', '8',  '9', 0, 0, 0, 0x15};
    EXPECT_EQ(packed(buffer), std::string(std::begin(first), std::end(first)));
    EXPECT_EQ(buffer.getFlags(), 0x04U);
    EXPECT_EQ(buffer.getStartTime(), 500U);
    EXPECT_EQ(buffer.getEndTime(), 500U);
    EXPECT_EQ(buffer.getNumMsgs(), 1U);
    EXPECT_EQ(buffer.getFirstMsgLen(), 25U);

    const SRBuffer before = buffer.getBuffer();
    const std::string large(0x10000, 'x');
    buffer.addMessage(9, large.data(), 0x10000, 0x12345678);
    buffer.addMessage(18, nullptr, 0, 100);
    EXPECT_EQ(packed(buffer).substr(25, 11), std::string("\x09\x01\x00\x00\x34\x56\x78\x12\x00\x00\x00", 11));
    EXPECT_EQ(
        packed(buffer).substr(25 + 11 + 0x10000),
        std::string("\x00\x01\x00\x0B\x12\x00\x00\x00\x00\x00\x64\x00\x00\x00\x00\x00\x00\x00\x0B", 19));
    EXPECT_EQ(buffer.getFlags(), 0x0DU);
    EXPECT_EQ(buffer.getStartTime(), 500U);
    EXPECT_EQ(buffer.getEndTime(), 0x12345678U);
    EXPECT_EQ(buffer.getNumMsgs(), 3U);
    EXPECT_EQ(buffer.getFirstMsgLen(), 25U);
    EXPECT_EQ(std::memcmp(before.data(), first, sizeof first), 0);  // growing left it alone

    buffer.clear();
    EXPECT_EQ(packed(buffer), "");
    EXPECT_EQ(buffer.getFlags() + buffer.getNumMsgs() + buffer.getEndTime() + buffer.getFirstMsgLen(), 0U);
    buffer.addMessage(8 | 0x20, nullptr, 0, 7);  // audio without a body sets no flag
    EXPECT_EQ(buffer.getFlags(), 0U);
    EXPECT_EQ(buffer.getStartTime(), 7U);
}

TEST(MessageBuffer, AddsNothingWithoutRoom)
{
    test::AssertRecorder asserts;
    MessageBuffer none{SRMemoryPtr()};
    none.addMessage(8, "x", 1, 1);
    EXPECT_EQ(none.getNumMsgs(), 0U);
    EXPECT_EQ(none.getBuffer().length(), 0U);
    EXPECT_EQ(asserts.take(), Texts{"Assert failed in util/messagebuffer line 104"});

    MessageBuffer small(16);
    small.addMessage(8, "x", 0x1000000, 1);
    small.addMessage(8, nullptr, 1, 1);
    EXPECT_EQ(small.getUsed(), 0U);
    EXPECT_EQ(asserts.take().size(), 2U);
}

TEST(TypeConvertor, ReportsWhatDoesNotFitAndKeepsTheLowBits)
{
    const struct
    {
        long long value;
        int expected;
        const char* direction;
    } cases[] = {
        {0, 0, nullptr},
        {INT_MAX, INT_MAX, nullptr},
        {INT_MIN, INT_MIN, nullptr},
        {INT_MAX + 1LL, INT_MIN, " Positive "},
        {INT_MIN - 1LL, INT_MAX, " Negative "},
        {0x123456789LL, 0x23456789, " Positive "},
        {LLONG_MIN, 0, " Negative "},
    };
    test::AssertRecorder asserts;
    for (const auto& c : cases) {
        EXPECT_EQ((convertInteger<int>(c.value)), c.expected) << c.value;
        EXPECT_EQ(asserts.take(),
                  c.direction ? Texts{"Assert failed in util/typeconvertor line 62"} : Texts{});
        EXPECT_STREQ(ConversionOverflow::direction(),
                     c.direction ? c.direction : ConversionOverflow::direction());
    }
    EXPECT_EQ((convertInteger<unsigned>(-1LL)), UINT_MAX);
    EXPECT_EQ((convertInteger<int>(std::size_t{0x80000000})), INT_MIN);
    EXPECT_EQ((convertInteger<long long>(UINT_MAX)), 0xFFFFFFFFLL);
    EXPECT_EQ(asserts.take().size(), 2U);
}

}  // namespace
}  // namespace krx::util
