// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/server/serializerfixture.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

using namespace krx::test;

namespace {

// A value as AMF3 writes it: the only entry, "a", of an array.
std::string encodedAMF3(const SRData& value)
{
    const SRData array = makeArray(kArrayType);
    arrayOf(array).setValue(0, "a", value);
    return encoded(array, SRDataParser::kAMF3);
}

std::string insideArray(const char* bytes)
{
    return toHex(hexText(std::string("11 09 01 03 'a' ") + bytes + " 01"));
}

TEST(Amf3, Uint29)
{
    const struct
    {
        unsigned value;
        const char* bytes;
    } cases[] = {
        {0, "00"},
        {0x7F, "7F"},
        {0x80, "81 00"},
        {0x3FFF, "FF 7F"},
        {0x4000, "81 80 00"},
        {0x1FFFFF, "FF FF 7F"},
        {0x200000, "80 C0 80 00"},
        {0x1FFFFFFF, "FF FF FF FF"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        SRCSerializer writer;
        writer.WriteUint29(c.value);
        EXPECT_EQ(toHex(written(writer)), c.bytes);
        Reader reader(hexText(c.bytes));
        EXPECT_EQ(reader->ReadUint29(), c.value);
        EXPECT_TRUE(reader->atEnd());
    }
    for (const unsigned tooLarge : {0x40000000U, UINT_MAX}) {
        SRCSerializer writer;
        writer.WriteUint29(tooLarge);
        EXPECT_EQ(toHex(written(writer)), "00");
    }
}

TEST(Amf3, ReadsAndWritesPlainValues)
{
    const struct
    {
        const char* bytes;
        int kind;
        const char* text;
        const char* again;  ///< null: the same
    } cases[] = {
        {"00", kUndefinedType, "", nullptr},
        {"01", kNullType, "", nullptr},
        {"02", kBoolType, "false", nullptr},
        {"03", kBoolType, "true", nullptr},
        {"04 03", kNumberType, "3", nullptr},
        {"04 FFFFFFFF", kNumberType, "-1", nullptr},
        {"04 BFFFFFFF", kNumberType, "268435455", nullptr},
        {"04 C0808000", kNumberType, "-268435456", nullptr},
        {"05 4008000000000000", kNumberType, "3", nullptr},
        {"06 01", kStringType, "", nullptr},
        {"06 05 'hi'", kStringType, "hi", nullptr},
        {"06 00", kStringType, "a", nullptr},
        {"06 07 'h' 00 'i'", kStringType, "h", "06 03 'h'"},
        {"07 09 '<a/>'", kXMLType, "<a/>", nullptr},
        {"0B 09 '<a/>'", kXMLType, "<a/>", nullptr},
        {"08 01 4097700000000000", kDateType, "", nullptr},
        {"0C 05 FF00", kBlobType, "", nullptr},
        {"0C 01", kBlobType, "", nullptr},
        {"12", kUndefinedType, "", "00"},
        {"FF", kUndefinedType, "", "00"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        const std::string bytes = hexText(std::string("11 09 01 03 'a' ") + c.bytes + " 01");
        Reader reader(bytes);
        const SRData array = reader.get();
        ASSERT_EQ(arrayOf(array).getSize(), 1);
        const SRData& value = arrayOf(array).getPropertyValueConst(0);
        EXPECT_EQ(value.kind, c.kind);
        EXPECT_EQ(textOf(value), c.text);
        EXPECT_TRUE(reader->atEnd());
        EXPECT_EQ(encoded(array, SRDataParser::kAMF3), c.again ? insideArray(c.again) : toHex(bytes));
    }
}

/// A count or length that is just what the message holds is sound.
TEST(Amf3, ValuesMayEndWithTheMessage)
{
    for (const char* bytes : {"11 06 03 'x'", "11 07 03 'x'", "11 0C 03 FF", "11 09 07 01 01 02 03",
                              "11 0D 05 00 00000001 00000002", "11 10 05 00 01 01 01", "11 11 03 00 01 01"})
    {
        Reader reader(hexText(bytes));
        reader.get();
        EXPECT_FALSE(reader->isBad()) << bytes;
        EXPECT_TRUE(reader->atEnd()) << bytes;
    }
}

TEST(Amf3, NumbersWithoutHintBecomeIntegersWhereTheyFit)
{
    const struct
    {
        double value;
        const char* bytes;
    } cases[] = {
        {3, "04 03"},
        {-1, "04 FFFFFFFF"},
        {268435455, "04 BFFFFFFF"},
        {-268435456, "04 C0808000"},
        {3.5, "05 400C000000000000"},
        {268435456, "05 41B0000000000000"},
        {-268435457, "05 C1B0000001000000"},
        {-0.0, "05 8000000000000000"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(encodedAMF3(SRData(c.value)), insideArray(c.bytes)) << c.value;
    // A 64-bit integer has no AMF3 form.
    EXPECT_EQ(encodedAMF3(SRData(5LL)), insideArray("00"));
    // XML that comes from AMF0 is an XML document.
    SRData xml;
    xml.initText("<a/>", 4, kXMLType);
    EXPECT_EQ(encodedAMF3(xml), insideArray("07 09 '<a/>'"));
}

TEST(Amf3, OnlySomeKindsSwitchTheEncoding)
{
    const struct
    {
        const char* bytes;  ///< AMF0
        const char* again;
    } cases[] = {
        {"00 3FF0000000000000", "00 3FF0000000000000"},
        {"02 0001 'x'", "02 0001 'x'"},
        {"03 0001 'd' 0B 4097700000000000 0000 0000 09", "03 0001 'd' 11 08 01 4097700000000000 0000 09"},
        {"0F 00000001 'x'", "11 07 03 'x'"},
        {"20 00000001 FF", "11 0C 03 FF"},
        {"0A 00000001 03 0000 09", "11 09 01 03 '0' 0A 0B 01 01 01"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(encoded(Reader(hexText(c.bytes)).get(), SRDataParser::kAMF3), toHex(hexText(c.again)))
            << c.bytes;
}

TEST(Amf3, ArraysListTheirDensePartFirst)
{
    const SRData value = Reader(hexText("11 09 05 03 'x' 04 01 01 04 07 04 08")).get();
    EXPECT_EQ(value.kind, kArrayType);
    EXPECT_EQ(arrayOf(value).getKind(), 9);
    EXPECT_EQ(textOf(value), "{0: 7, 1: 8, x: 1}");
    EXPECT_EQ(encoded(value, SRDataParser::kAMF3),
              toHex(hexText("11 09 01 03 '0' 04 07 03 '1' 04 08 03 'x' 04 01 01")));
    EXPECT_EQ(textOf(Reader(hexText("11 09 05 03 'x' 04 01 01 04 07 05 40")).get()), "{0: 7, x: 1}");
}

TEST(Amf3, ObjectsHaveTraits)
{
    // An array of: class "C" with sealed m, and dynamic; the same class again; an anonymous sealed object.
    Reader reader(
        hexText("11 09 07 01"
                "0A 1B 03 'C' 03 'm' 04 01 03 'd' 04 02 01"
                "0A 01 04 03 01"
                "0A 13 01 00 04 04"));
    const SRData value = reader.get();
    EXPECT_TRUE(reader->atEnd());
    EXPECT_EQ(textOf(value),
              "{0: {constructor: C, m: 1, d: 2}, 1: {constructor: C, m: 3}, 2: {constructor: , C: 4}}");
    const SRData& object = arrayOf(value).getPropertyValueConst(0);
    EXPECT_EQ(object.kind, kAvmPlusObjectType);
    EXPECT_EQ(object.amf3Hint, 10);
    EXPECT_EQ(arrayOf(object).getKind(), 10);
    EXPECT_EQ(encoded(object), toHex(hexText("11 0A 0B 03 'C' 03 'm' 04 01 03 'd' 04 02 01")));

    const SRData plain = makeArray(kObjectType);
    arrayOf(plain).setValue(0, "constructor", SRData("Object"));
    EXPECT_EQ(encodedAMF3(plain), insideArray("0A 0B 01 01"));
    // A class description lasts as long as the object table.
    Reader second(hexText("11 0A 03 03 'C' 11 0A 01"));
    SRData first;
    second->GetVar(&first, true);
    second.get();
    EXPECT_TRUE(second->isBad());
}

TEST(Amf3, ReferencesShareValues)
{
    // Table: 0 the array, 1 the date, 2 the XML, 3 the bytes, 4 the object, 5 the inner array, 6 the vector,
    // 7 the dictionary; then each again.
    Reader reader(
        hexText("11 09 1D 01"
                "08 01 3FF0000000000000  07 03 'x'  0C 03 FF  0A 0B 01 01  09 01 01  0D 01 00  11 01 00"
                "08 02  0B 04  0C 06  0A 08  09 0A  0D 0C  11 0E"));
    const SRData value = reader.get();
    EXPECT_FALSE(reader->isBad());
    EXPECT_TRUE(reader->atEnd());
    const SRDataArray& array = arrayOf(value);
    ASSERT_EQ(array.getSize(), 14);
    for (int i = 0; i < 7; ++i) {
        const SRData& first = array.getPropertyValueConst(i);
        const SRData& again = array.getPropertyValueConst(i + 7);
        EXPECT_EQ(again.kind, first.kind) << i;
        if (first.kind == kBlobType)
            EXPECT_EQ(SRBuffer(again).memory(), SRBuffer(first).memory());
        else
            EXPECT_EQ(SRData::compare(first, again), 0) << i;
    }
    // The writer finds the same references, but never one to bytes.
    SRCSerializer writer;
    writer.setEncoding(SRDataParser::kAMF3);
    ASSERT_TRUE(writer.PutVar(&value, true));
    const SRData back = Reader(written(writer)).get();
    EXPECT_EQ(textOf(back), textOf(value));
    EXPECT_EQ(back.payload.array->getPropertyValueConst(11).payload.array,
              back.payload.array->getPropertyValueConst(4).payload.array);
    EXPECT_LT(writer.getPosition(), 100U);

    // A reference to a value of another sort gives nothing.
    EXPECT_EQ(textOf(Reader(hexText("11 09 05 01 0A 0B 01 01 08 02")).get()), "{0: {constructor: }, 1: }");
}

TEST(Amf3, VectorsAndDictionaries)
{
    const struct
    {
        const char* bytes;
        const char* text;
    } cases[] = {
        {"0D 05 01 FFFFFFFF 00000002", "{size: 2, fixed: true, value: -1, value: 2}"},
        {"0E 03 00 FFFFFFFF", "{size: 1, fixed: false, value: 4294967295}"},
        {"0F 03 00 3FF8000000000000", "{size: 1, fixed: false, value: 1.5}"},
        {"10 05 00 03 'C' 04 01 06 00", "{size: 2, fixed: false, closure: C, value: 1, value: a}"},
        {"11 03 01 06 03 'k' 04 01", "{size: 1, weak: true, key: k, value: 1}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        const SRData array = Reader(hexText(std::string("11 09 01 03 'a' ") + c.bytes + " 01")).get();
        const SRData& value = arrayOf(array).getPropertyValueConst(0);
        EXPECT_EQ(textOf(value), c.text);
        EXPECT_EQ(value.kind, kAvmPlusObjectType);
        EXPECT_EQ(toHex(std::string(1, static_cast<char>(value.amf3Hint))), std::string(c.bytes, 2));
        EXPECT_EQ(encoded(array, SRDataParser::kAMF3), insideArray(c.bytes));
        // A size that the array does not keep to is not written.
        arrayOf(value).setValue(0, "size", SRData(1e9));
        EXPECT_EQ(encoded(array, SRDataParser::kAMF3), insideArray(c.bytes));
    }
    EXPECT_EQ(encodedAMF3(Reader(hexText("11 0D 03 02 00000001")).get()), insideArray("0D 03 00 00000001"));
}

TEST(Amf3, StringTableLastsAsLongAsTheSerializer)
{
    SRCSerializer writer;
    writer.setEncoding(SRDataParser::kAMF3);
    const SRData array = makeArray(kArrayType);
    arrayOf(array).setValue(0, "key", SRData("key"));
    EXPECT_TRUE(writer.PutVar(&array, true));
    EXPECT_TRUE(writer.PutVar(&array, true));
    EXPECT_EQ(toHex(written(writer)), toHex(hexText("11 09 01 07 'key' 06 00 01 11 09 01 00 06 00 01")));
    Reader reader(written(writer));
    SRData value;
    for (int i = 0; i < 2; ++i) {
        reader->GetVar(&value, true);
        EXPECT_EQ(textOf(value), "{key: key}");
    }
    // An inline text whose first byte is zero reads as empty, yet has its place.
    EXPECT_EQ(textOf(Reader(hexText("11 09 05 01 06 05 00 'x' 06 00")).get()), "{0: , 1: }");
    // Where a value could not be written, its texts leave the table again.
    SRCSerializer failing;
    failing.setEncoding(SRDataParser::kAMF3);
    failing.setOutputLimit(600);
    // So do its dates and its XML.
    SRData date;
    date.setDate(1, 0);
    SRData xml;
    xml.initText("x", 1, kXMLType);
    const SRData referred = makeArray(kArrayType);
    arrayOf(referred).setValue(0, "key", date);
    arrayOf(referred).setValue(1, "key", xml);
    for (int i = 0; i < 2; ++i)
        arrayOf(array).setValue(1 + i, "a", arrayOf(referred).getPropertyValueConst(i));
    arrayOf(array).setValue(3, "long", SRData(std::string(1000, 'x').c_str()));
    EXPECT_FALSE(failing.PutVar(&array, false));
    EXPECT_TRUE(failing.PutVar(&referred, false));
    EXPECT_EQ(toHex(written(failing)),
              toHex(hexText("11 09 01 07 'key' 08 01 3FF0000000000000 00 07 03 'x' 01")));
    while (arrayOf(array).getSize() > 1)
        arrayOf(array).erase(1);
    // An entry without a name would end the list.
    arrayOf(array).setValue(1, "", SRData(true));
    EXPECT_EQ(encoded(array, SRDataParser::kAMF3), "failed");
    EXPECT_NE(encoded(array, SRDataParser::kAMF0), "failed");
}

}  // namespace
