// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRData.h"
#include "tests/server/serializerfixture.h"
#include "tests/support/assertrecorder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

using namespace krx::test;

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
        SRData values[] = {SRData(SRBuffer(memory, 2, 5)),
                           SRData(array, kObjectType),
                           SRData("text"),
                           SRData(1.5),
                           dateOf(7, 8),
                           SRData(9LL),
                           SRData(true),
                           nullValue()};
        EXPECT_EQ(memory->_get(), 2);
        EXPECT_EQ(array->_get(), 2);
        for (SRData& value : values) {
            value.amf3Hint = 12;
            SRData copy;
            copy.copy(value);
            EXPECT_EQ(copy.kind, value.kind);
            EXPECT_EQ(copy.amf3Hint, 12);
            EXPECT_EQ(textOf(copy), textOf(value));
            const SRData& itself = copy;
            copy = itself;
            SRData moved(std::move(copy));
            EXPECT_EQ(copy.kind, kUndefinedType);
            EXPECT_EQ(copy.amf3Hint, SRData::kNoHint);
            moved = value;
            EXPECT_EQ(textOf(moved), textOf(value));
        }
        EXPECT_EQ(memory->_get(), 2);
        const SRData blob(values[0]);
        EXPECT_EQ(SRBuffer(blob).getStart(), 2U);
        EXPECT_EQ(SRBuffer(blob).length(), 3U);
        const SRData text(values[2]);
        EXPECT_EQ(text.payload.text, values[2].payload.text);
        // Every initialisation releases what was there.
        values[0].init(static_cast<const char*>(nullptr));
        values[1].setDate(1, 1);
        EXPECT_EQ(textOf(values[0]), "");
        EXPECT_EQ(values[0].kind, kStringType);
    }
    EXPECT_EQ(memory->_get(), 1);
    EXPECT_EQ(array->_get(), 1);
}

TEST(DataArray, FindsNamesIgnoringCase)
{
    SRDataArray array;
    array.setValue(0, "Duration", SRData(1.0));
    array.setValue(1, "x", SRData(2.0));
    array.setValue(2, "DURATION", SRData(3.0));
    const struct
    {
        const char* name;
        int start, index;
    } cases[] = {
        {"duration", 0, 0}, {"duration", -5, 0}, {"duration", 1, 2}, {"duration", 3, -1},
        {"X", 0, 1},        {"", 0, -1},         {"dur", 0, -1},     {nullptr, 0, -1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(array.indexOf(c.name, c.start), c.index);
    EXPECT_EQ(textOf(array["duration"]), "1");
    array["absent"].init(5.0);
    EXPECT_EQ(array["absent"].kind, kUndefinedType);
}

TEST(DataArray, ImpliedNamesAreLikeGivenOnes)
{
    // "0", "1", "2" without and with a name of their own.
    SRDataArray implied;
    SRDataArray given;
    for (int i = 0; i < 3; ++i) {
        implied.append(SRData(double(i)));
        given.append("x", SRData(double(i)));
        given.getPropertyName(i) = SRMBString(std::to_string(i).c_str());
    }
    EXPECT_TRUE(implied.equals(given));
    const struct
    {
        void (*change)(SRDataArray&);
        const char* text;
    } cases[] = {
        {[](SRDataArray& a) { a.setValue(1, "1", SRData(5.0)); }, "{0: 0, 1: 5, 2: 2}"},
        {[](SRDataArray& a) { a.setValue(1, "n", SRData(5.0)); }, "{0: 0, n: 5, 2: 2}"},
        {[](SRDataArray& a) { a.getPropertyName(0) = SRMBString("n"); }, "{n: 0, 1: 1, 2: 2}"},
        {[](SRDataArray& a) { a.erase(2); }, "{0: 0, 1: 1}"},
        {[](SRDataArray& a) { a.erase(0); }, "{1: 1, 2: 2}"},
        {[](SRDataArray& a) { a.append("n", SRData(3.0)), a.erase(2), a.erase(2); }, "{0: 0, 1: 1}"},
        {[](SRDataArray& a) { a.append("n", SRData()), a.append("4", SRData()); },
         "{0: 0, 1: 1, 2: 2, n: , 4: }"},
        {[](SRDataArray& a) { a.getPropertyValue(4).init(true); }, "{0: 0, 1: 1, 2: 2, : , : true}"},
        {[](SRDataArray& a) { a.reserve(100), a.append(SRData()); }, "{0: 0, 1: 1, 2: 2, 3: }"},
        {[](SRDataArray& a) { a = SRDataArray(a), a["2"].init(9.0); }, "{0: 0, 1: 1, 2: 9}"},
    };
    for (const auto& c : cases) {
        for (const SRDataArray* const array : {&implied, &given}) {
            SRDataArray changed(*array);
            c.change(changed);
            EXPECT_EQ(changed.toText(), c.text);
            for (int i = 0; i < changed.getSize(); ++i)
                EXPECT_EQ(changed.indexOf(changed.getPropertyNameConst(i).c_str(), i), i) << c.text;
        }
    }
    EXPECT_EQ(implied.indexOf("02"), -1);
    EXPECT_EQ(implied.indexOf("0", 1), -1);
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
