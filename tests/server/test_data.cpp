// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRData.h"
#include "tests/server/serializerfixture.h"
#include "tests/support/assertrecorder.h"
#include "util/SRStrUtil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace krx::test {
namespace {

SRData dateOf(double ms, int timeZone = 0)
{
    SRData value;
    value.setDate(ms, timeZone);
    return value;
}

SRData nullValue()
{
    SRData value;
    value.initNull();
    return value;
}

TEST(Data, ConvertsWithinTheRangeOfEachType)
{
    constexpr int kMin = std::numeric_limits<int>::min();
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr long long kMinLong = std::numeric_limits<long long>::min();
    const struct
    {
        SRData value;
        double asDouble;
        int asInt;
        unsigned asUnsigned;
        long long asLong;
    } cases[] = {
        {nullValue(), 0, 0, 0, 0},
        {SRData(true), 1, 1, 1, 1},
        {SRData(-2.9), -2.9, -2, 0xFFFFFFFE, -2},
        {SRData(4294967297.5), 4294967297.5, kMax, 1, 4294967297},
        {SRData(-1e30), -1e30, kMin, 0, kMinLong},
        {SRData(" -1.5x"), -1.5, -1, 0xFFFFFFFF, -1},
        {dateOf(1500), 1.5, 0, 0, 0},
        {SRData(5000000000LL), 5e9, 705032704, 705032704, 5000000000},
    };
    AssertRecorder asserts;
    for (const auto& c : cases) {
        EXPECT_EQ(static_cast<double>(c.value), c.asDouble);
        EXPECT_EQ(static_cast<int>(c.value), c.asInt) << c.asDouble;
        EXPECT_EQ(static_cast<unsigned>(c.value), c.asUnsigned) << c.asDouble;
        EXPECT_EQ(static_cast<long long>(c.value), c.asLong) << c.asDouble;
    }
    EXPECT_EQ(static_cast<int>(SRData(std::nan(""))), 0);
    // The large integer is neither an int nor an unsigned.
    EXPECT_EQ(asserts.take(), std::vector<std::string>(2, "Assert failed in util/typeconvertor line 62"));
}

TEST(Data, CopiesShareArraysAndBlobsOnly)
{
    const SRMemoryPtr memory(new SRMemory(10));
    const SRDataArrayPtr array(new SRDataArray);
    {
        SRData values[] = {SRData(SRBuffer(memory, 2, 5)), SRData(array, kObjectType), SRData("text"),
                           dateOf(7, 8)};
        for (SRData& value : values) {
            value.amf3Hint = 12;
            SRData copy(value);
            EXPECT_EQ(copy.amf3Hint, 12);
            const SRData& itself = copy;
            copy = itself;
            EXPECT_EQ(textOf(copy), textOf(value));
            const SRData moved(std::move(copy));
            EXPECT_EQ(copy.kind, kUndefinedType);
            EXPECT_EQ(copy.amf3Hint, SRData::kNoHint);
            EXPECT_EQ(moved.kind, value.kind);
        }
        EXPECT_EQ(memory->_get(), 2);
        EXPECT_EQ(array->_get(), 2);
        const SRBuffer blob(values[0]);
        EXPECT_EQ(blob.getStart(), 2U);
        EXPECT_EQ(blob.length(), 3U);
        values[0].init(static_cast<const char*>(nullptr));
        EXPECT_EQ(values[0].kind, kStringType);
        EXPECT_EQ(textOf(values[0]), "");
    }
    EXPECT_EQ(memory->_get(), 1);
    EXPECT_EQ(array->_get(), 1);
}

/// With default names and given ones, an array is the list of its entries.
TEST(DataArray, AgreesWithAListOfItsEntries)
{
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        SRDataArray array;
        std::vector<std::pair<std::string, std::string>> list;
        for (unsigned step = 0; step < 12; ++step) {
            const char* const names[] = {"0", "1", "2", "02", "n", "N", ""};
            const std::string name = names[random() % std::size(names)];
            const std::string text = std::to_string(step);
            const SRData value(text.c_str());
            const auto i = random() % (list.size() + 2);
            const auto index = static_cast<int>(i);
            switch (random() % 6) {
                case 0:
                    array.setValue(index, SRMBString(name), value);
                    list.resize(std::max(list.size(), i + 1));
                    list[i] = {name, text};
                    break;
                case 1:
                    array.erase(index);
                    if (i < list.size())
                        list.erase(list.begin() + index);
                    break;
                case 2:
                    array.getPropertyName(index) = SRMBString(name);
                    list.resize(std::max(list.size(), i + 1));
                    list[i].first = name;
                    break;
                case 3:
                    array.append(SRMBString(name), SRData(value));
                    list.emplace_back(name, text);
                    break;
                default:
                    array.append(SRData(value));
                    list.emplace_back(std::to_string(list.size()), text);
                    break;
            }
            std::string expected;
            for (const auto& [entry, content] : list)
                expected += (expected.empty() ? "" : ", ") + entry + ": " + content;
            ASSERT_EQ(array.toText(), '{' + expected + '}');
            const SRDataArray copy(array);
            ASSERT_TRUE(copy.equals(array));
            ASSERT_EQ(copy.toText(), array.toText());
            for (const char* const wanted : names) {
                const auto found = std::find_if(
                    list.begin() + std::min(index, array.getSize()), list.end(), [&](const auto& entry) {
                        return SRStrUtil::compareNoCase(entry.first.c_str(), wanted) == 0;
                    });
                const int expectedIndex = found == list.end() ? -1 : static_cast<int>(found - list.begin());
                ASSERT_EQ(array.indexOf(wanted, index), expectedIndex) << wanted;
            }
        }
    }
    SRDataArray array;
    EXPECT_EQ(array.indexOf(nullptr), -1);
    array["absent"].init(5.0);
    EXPECT_EQ(array["absent"].kind, kUndefinedType);
}

TEST(DataArray, ThreadsMayReadTogether)
{
    // The object has no entry of its own, only what its class gives it.
    const SRData object = Reader(hexText("11 0A 03 03 'C'")).get();
    SRDataArray& array = arrayOf(object);
    SRData* missed = nullptr;
    std::thread other([&] {
        missed = &array["absent"];
        EXPECT_STREQ(static_cast<const char*>(array["constructor"]), "C");
    });
    EXPECT_STREQ(static_cast<const char*>(array.getPropertyValue(0)), "C");
    SRData& here = array["absent"];
    other.join();
    EXPECT_NE(&here, missed) << "two threads were given the same value to write to";
}

TEST(DataArray, CutsItsTextBetweenCharacters)
{
    SRDataArray array;
    array.setValue(0, "n", SRData("h\xC3\xA9llo"));
    EXPECT_EQ(array.toText(6), "{n: h...");
    EXPECT_EQ(array.toText(7), "{n: h\xC3\xA9...");
    EXPECT_EQ(array.toText(11), "{n: h\xC3\xA9llo}");
}

}  // namespace
}  // namespace krx::test
