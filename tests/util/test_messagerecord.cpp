// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/bigendian.h"
#include "util/messagerecord.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace krx::test {

using namespace util;

namespace {

TEST(BigEndian, LoadsWhatItStoresInTheBytesOfItsWidthAlone)
{
    constexpr unsigned long long kValue = 0x8091A2B3C4D5E6F7;
    for (unsigned width = 0; width <= 8; ++width) {
        unsigned char bytes[10];
        std::fill(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(0x55));
        storeBigEndian(bytes + 1, kValue, width);
        const unsigned long long expected = width == 0 ? 0 : kValue & (~0ULL >> (64 - 8 * width));
        EXPECT_EQ(loadBigEndian(bytes + 1, width), expected) << width;
        EXPECT_EQ(bytes[0], 0x55);
        EXPECT_EQ(bytes[width + 1], 0x55);
        const unsigned long long fixed = width == 2   ? loadBig16(bytes + 1)
                                         : width == 3 ? loadBig24(bytes + 1)
                                         : width == 4 ? loadBig32(bytes + 1)
                                         : width == 8 ? loadBig64(bytes + 1)
                                                      : expected;
        EXPECT_EQ(fixed, expected) << width;
    }
    unsigned char bytes[4] = {};
    storeBig24(bytes, 0xFF123456);
    EXPECT_EQ(loadBig32(bytes), 0x12345600U);
}

TEST(MessageRecord, IsWholeCutShortOrOfWrongSize)
{
    const std::string body = "body";
    const RecordHeader header{kMsgVideo | kEncryptedFlag, 4, 0x81020304, 0xABCDEF};
    std::vector<unsigned char> bytes(header.length + kRecordOverhead);
    writeRecord(bytes.data(), header, body.data());
    const std::vector<unsigned char> expected{0x29, 0,   0,   4,   2,   3, 4, 0x81, 0xAB, 0xCD,
                                              0xEF, 'b', 'o', 'd', 'y', 0, 0, 0,    15};
    EXPECT_EQ(bytes, expected);

    MessageRecord record;
    for (std::size_t available = 0; available <= bytes.size(); ++available) {
        // Memory of that size alone, so that a read beyond it shows.
        const std::vector<unsigned char> part(bytes.begin(), bytes.begin() + static_cast<long>(available));
        const RecordState state = readRecord(part.data(), part.size(), record);
        EXPECT_EQ(state, available == bytes.size() ? RecordState::kWhole : RecordState::kCutShort);
        EXPECT_EQ(record.header.timestamp, available < RecordHeader::kSize ? 0 : header.timestamp);
        EXPECT_EQ(record.body != nullptr, available >= RecordHeader::kSize + 4) << available;
    }
    EXPECT_EQ(record.header.type, header.type);
    EXPECT_EQ(record.header.streamId, header.streamId);
    EXPECT_EQ(record.size(), bytes.size());
    for (std::size_t i = bytes.size() - kBackPointerSize; i < bytes.size(); ++i) {
        ++bytes[i];
        EXPECT_EQ(readRecord(bytes.data(), bytes.size(), record), RecordState::kWrongSize);
        --bytes[i];
    }
}

}  // namespace
}  // namespace krx::test
