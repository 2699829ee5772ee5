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

SRData xmlOf(const char* text)
{
    SRData value;
    value.initText(text, std::string(text).size(), kXMLType);
    return value;
}

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

TEST(Data, ConvertsToEveryType)
{
    const double kInf = std::numeric_limits<double>::infinity();
    const long long kMax = std::numeric_limits<long long>::max();
    const long long kMin = std::numeric_limits<long long>::min();
    const struct
    {
        SRData value;
        bool asBool;
        double asDouble;
        int asInt;
        unsigned asUnsigned;
        long long asLong;
        const char* asText;
        const char* readable;
    } cases[] = {
        {SRData(), false, 0, 0, 0, 0, "", ""},
        {nullValue(), false, 0, 0, 0, 0, "", ""},
        {SRData(true), true, 1, 1, 1, 1, "", "true"},
        {SRData(false), false, 0, 0, 0, 0, "", "false"},
        {SRData(-2.9), false, -2.9, -2, 0xFFFFFFFE, -2, "", "-2.9"},
        {SRData(4294967297.5), false, 4294967297.5, 2147483647, 1, 4294967297, "", "4294967297.5"},
        {SRData(-1e30), false, -1e30, -2147483647 - 1, 0, kMin, "", "-1e+30"},
        {SRData(kInf), false, kInf, 2147483647, 0xFFFFFFFF, kMax, "", "inf"},
        {SRData(3000000000U), false, 3e9, 2147483647, 3000000000U, 3000000000, "", "3000000000"},
        {SRData("12abc"), false, 12, 12, 12, 12, "12abc", "12abc"},
        {SRData("-1.5"), false, -1.5, -1, 0xFFFFFFFF, -1, "-1.5", "-1.5"},
        {SRData(L"h\u00E9"), false, 0, 0, 0, 0, "h\xC3\xA9", "h\xC3\xA9"},
        {xmlOf("7"), false, 0, 0, 0, 0, "7", "7"},
        {dateOf(1500), false, 1.5, 0, 0, 0, "", ""},
        {SRData(SRTime(1.5), 60), false, 1.5, 0, 0, 0, "", ""},
        {SRData(-7LL), false, -7, -7, 0xFFFFFFF9, -7, "", "-7"},
        {SRData(5000000000LL), false, 5e9, 705032704, 705032704, 5000000000, "", "5000000000"},
        {SRData(SRBuffer()), false, 0, 0, 0, 0, "", ""},
        {makeArray(kObjectType), false, 0, 0, 0, 0, "", "{}"},
    };
    AssertRecorder asserts;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.readable);
        EXPECT_EQ(static_cast<bool>(c.value), c.asBool);
        EXPECT_EQ(static_cast<double>(c.value), c.asDouble);
        EXPECT_EQ(static_cast<float>(c.value), static_cast<float>(c.asDouble));
        EXPECT_EQ(static_cast<int>(c.value), c.asInt);
        EXPECT_EQ(static_cast<short>(c.value), static_cast<short>(c.asInt));
        EXPECT_EQ(static_cast<unsigned>(c.value), c.asUnsigned);
        EXPECT_EQ(static_cast<long long>(c.value), c.asLong);
        EXPECT_STREQ(static_cast<const char*>(c.value), c.asText);
        SRData text(5.0);
        c.value.toString(text);
        EXPECT_EQ(text.kind, kStringType);
        EXPECT_STREQ(static_cast<const char*>(text), c.readable);
    }
    // The negative integer is outside the range of unsigned, and the large one outside those of all three.
    EXPECT_EQ(asserts.take(), std::vector<std::string>(4, "Assert failed in util/typeconvertor line 62"));
    EXPECT_EQ(static_cast<int>(SRData(std::nan(""))), 0);
    EXPECT_EQ(static_cast<float>(SRData(-1e300)), -kInf);
}

TEST(Data, OtherQueriesByKind)
{
    EXPECT_EQ(SRData("abc").stringLen(), 3);
    EXPECT_EQ(xmlOf("abc").stringLen(), -1);
    EXPECT_EQ(dateOf(1500, 3).getDate(), 1500);
    EXPECT_EQ(dateOf(1500, 3).getTimeZone(), 3);
    EXPECT_EQ(SRData(1500.0).getDate(), 0);
    EXPECT_EQ(static_cast<SRDataArray*>(SRData(1.0)), nullptr);
    AssertRecorder asserts;
    EXPECT_EQ(SRBuffer(SRData(1.0)).memory(), nullptr);
    EXPECT_EQ(asserts.take(), std::vector<std::string>{"Assert failed in server/SRCSerializer line 2372"});
    // A kind that no value has.
    EXPECT_EQ(SRData(SRDataArrayPtr(new SRDataArray), kDateType).kind, kUndefinedType);
    EXPECT_EQ(asserts.take().size(), 1U);
    EXPECT_EQ(SRData(SRDataArrayPtr(), kObjectType).kind, kUndefinedType);
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
        EXPECT_EQ(SRBuffer(blob).memory(), memory);
        EXPECT_EQ(SRBuffer(blob).getStart(), 2U);
        EXPECT_EQ(SRBuffer(blob).length(), 3U);
        const SRData object(values[1]);
        static_cast<SRDataArray*>(object)->setValue(0, "a", SRData(1.0));
        EXPECT_EQ(textOf(values[1]), "{a: 1}");
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
    SRData eaten;
    char* text = new char[4]{'a', 'b', 'c', '\0'};
    eaten.setAndEatString(text);
    EXPECT_EQ(textOf(eaten), "abc");
    eaten.init(static_cast<const char*>(eaten) + 1);
    EXPECT_EQ(textOf(eaten), "bc");
    eaten.toString(eaten);
    EXPECT_EQ(textOf(eaten), "bc");
}

TEST(Data, Compares)
{
    const SRData array = makeArray(kObjectType);
    const SRData other = makeArray(kObjectType);
    const SRData blob{SRBuffer()};
    const struct
    {
        SRData a, b;
        int order;
    } cases[] = {
        {SRData("a"), SRData("b"), -1},
        {SRData("b"), SRData("ab"), 1},
        {SRData("a"), SRData("a"), 0},
        {SRData("a"), xmlOf("a"), 2},
        {SRData(1.0), SRData(2.0), -1},
        {SRData(1.0), SRData(1LL), 2},
        {SRData(-1LL), SRData(1LL), -1},
        {SRData(true), SRData(false), 1},
        {SRData(), SRData(), 0},
        {nullValue(), nullValue(), 0},
        {nullValue(), SRData(), 2},
        {dateOf(1), dateOf(2), -1},
        {dateOf(1), dateOf(1), 0},
        {dateOf(1, 1), dateOf(1, 2), 2},
        {blob, blob, 2},
        {array, array, 0},
        {array, other, array.payload.array < other.payload.array ? -1 : 1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(SRData::compare(c.a, c.b), c.order) << textOf(c.a) << " " << textOf(c.b);
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
    EXPECT_EQ(static_cast<const SRDataArray&>(array)["absent"].kind, kUndefinedType);
    EXPECT_EQ(array.getSize(), 3);
}

TEST(DataArray, GrowsWhereItIsAsked)
{
    SRDataArray array;
    EXPECT_EQ(array.getKind(), 6);
    array.getPropertyValue(3).init(true);
    EXPECT_EQ(array.getSize(), 4);
    EXPECT_EQ(array.toText(), "{: , : , : , : true}");
    array.getPropertyName(4) = SRMBString("n");
    EXPECT_EQ(array.setValue(6, "m", SRData(1.0)), 1);
    EXPECT_EQ(array.toText(), "{: , : , : , : true, n: , : , m: 1}");
    EXPECT_TRUE(array.getPropertyNameConst(7).empty());
    EXPECT_EQ(array.getPropertyValueConst(-1).kind, kUndefinedType);
    EXPECT_EQ(array.getPropertyValue(-1).kind, kUndefinedType);
    EXPECT_TRUE(array.getPropertyName(-1).empty());
    array.setValue(-1, "m", SRData(1.0));
    array.erase(7);
    array.erase(-1);
    EXPECT_EQ(array.getSize(), 7);
    array.erase(3);
    EXPECT_EQ(array.toText(), "{: , : , : , n: , : , m: 1}");
    // Its own entries as arguments, while it grows.
    for (int i = 0; i < 20; ++i)
        array.setValue(array.getSize(), array.getPropertyNameConst(5), array.getPropertyValueConst(5));
    EXPECT_EQ(array.getSize(), 26);
    EXPECT_EQ(array.getPropertyNameConst(25), "m");
    AssertRecorder asserts;
    EXPECT_TRUE(SRDataArray(0).empty());
    EXPECT_EQ(asserts.take(), std::vector<std::string>{"Assert failed in server/SRCSerializer line 2581"});
}

TEST(DataArray, CopiesAndCompares)
{
    SRDataArray array;
    array.setKind(kObjectType);
    array.setValue(0, "a", SRData(1.0));
    array.setValue(1, "b", makeArray(kArrayType));
    SRDataArray copy(array);
    EXPECT_TRUE(copy.equals(array));
    copy.setValue(0, "a", SRData(2.0));
    EXPECT_TRUE(copy.equals(array));
    EXPECT_EQ(array.toText(), "{a: 1, b: {}}");
    arrayOf(copy.getPropertyValueConst(1)).setValue(0, "shared", SRData(true));
    EXPECT_EQ(array.toText(), "{a: 1, b: {shared: true}}");
    copy.setKind(kArrayType);
    EXPECT_FALSE(copy.equals(array));
    SRDataArray longer;
    longer.setValue(2, "c", SRData(3.0));
    longer = array;
    EXPECT_EQ(longer.toText(), "{a: 1, b: {shared: true}, c: 3}");
    EXPECT_EQ(longer.getKind(), kObjectType);
    EXPECT_FALSE(longer.equals(array));
    longer.erase(2);
    longer.getPropertyName(0) = SRMBString("A");
    EXPECT_FALSE(longer.equals(array));
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
