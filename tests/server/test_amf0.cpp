// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/server/serializerfixture.h"

#include <gtest/gtest.h>

#include <string>

namespace krx::test {
namespace {

struct ValueCase
{
    const char* bytes;
    int marker;
    int kind;
    const char* text;
    const char* again = nullptr;  ///< written form where it is not the one that was read
};

TEST(Amf0, ReadsEveryMarkerAndWritesItAgain)
{
    const ValueCase cases[] = {
        {"00 3FF8000000000000", 0, kNumberType, "1.5"},
        {"01 01", 1, kBoolType, "true"},
        {"01 00", 1, kBoolType, "false"},
        {"01 02", 1, kBoolType, "false", "01 00"},
        {"02 0003 'abc'", 2, kStringType, "abc"},
        {"02 0000", 2, kStringType, ""},
        {"02 0004 61 62 00 63", 2, kStringType, "ab", "02 0002 'ab'"},
        {"03 0001 'a' 05 0000 09", 3, kObjectType, "{a: }"},
        {"04 0002 'mc'", 4, kStringType, "mc", "02 0002 'mc'"},
        {"05", 5, kNullType, ""},
        {"06", 6, kUndefinedType, ""},
        {"07 0000", 7, kUndefinedType, "", "06"},
        {"08 00000007 0001 'a' 00 4000000000000000 0001 'a' 01 01 0000 09", 8, kArrayType, "{a: 2, a: true}",
         "08 00000000 0001 'a' 00 4000000000000000 0001 'a' 01 01 0000 09"},
        {"08 00000000 0000 05 0004 'name' 09", 8, kArrayType, "{: }", "08 00000000 0000 05 0000 09"},
        {"0A 00000002 05 02 0001 'x'", 10, kArrayType, "{0: , 1: x}",
         "08 00000000 0001 '0' 05 0001 '1' 02 0001 'x' 0000 09"},
        // The ECMA array is no entry of the table of references.
        {"0A 00000004 03 0001 'a' 05 0000 09 08 00000000 0000 09 10 0001 'C' 0000 09 07 0002", 10, kArrayType,
         "{0: {a: }, 1: {}, 2: {constructor: C}, 3: {constructor: C}}",
         "08 00000000 0001 '0' 03 0001 'a' 05 0000 09 0001 '1' 08 00000000 0000 09 "
         "0001 '2' 10 0001 'C' 0000 09 0001 '3' 07 0001 0000 09"},
        {"07 0005", 7, kUndefinedType, "", "06"},
        {"0B 4097700000000000 FFC4", 11, kDateType, ""},
        {"0C 00000003 'abc'", 12, kStringType, "abc", "02 0003 'abc'"},
        {"0D", 13, kUndefinedType, "", "06"},
        {"0F 00000004 '<a/>'", 15, kXMLType, "<a/>"},
        {"10 0003 'Cls' 0001 'a' 06 0000 09", 16, kTypedObjectType, "{constructor: Cls, a: }"},
        {"11 06 07 'abc'", 17, kStringType, "abc", "02 0003 'abc'"},
        {"20 00000002 FF 00", 32, kBlobType, ""},
        {"20 00000000", 32, kBlobType, ""},
        {"22 000000012A05F200", 34, kInt64Type, "5000000000", "00 41F2A05F20000000"},
    };
    for (const ValueCase& c : cases) {
        SCOPED_TRACE(c.bytes);
        Reader reader(hexText(c.bytes));
        SRData value;
        EXPECT_EQ(reader->GetVar(&value, false), c.marker);
        EXPECT_EQ(value.kind, c.kind);
        EXPECT_EQ(textOf(value), c.text);
        EXPECT_TRUE(reader->atEnd());
        EXPECT_FALSE(reader->isBad());
        EXPECT_EQ(encoded(value), toHex(hexText(c.again ? c.again : c.bytes)));

        // Skipping ends where reading ends: in front of a null.
        Reader skipper(hexText(c.bytes) + '\x05');
        EXPECT_EQ(skipper->skipVar(), c.marker);
        EXPECT_EQ(skipper->skipVar(), 5);
        EXPECT_TRUE(skipper->atEnd());
        EXPECT_EQ(skipper->skipVar(), 9);
        EXPECT_FALSE(skipper->isBad());
    }
}

TEST(Amf0, WriterGoesBackBeforeWhatDoesNotFitItsLimit)
{
    const SRData outer = makeArray(kObjectType);
    arrayOf(outer).setValue(0, "small", SRData(true));
    arrayOf(outer).setValue(1, "large", SRData(std::string(1000, 'x').c_str()));
    arrayOf(outer).setValue(2, "never", SRData(true));
    SRCSerializer writer;
    writer.setOutputLimit(300);
    writer.PutByte(kNullType);
    EXPECT_FALSE(writer.PutVar(&outer, false));
    EXPECT_TRUE(writer.hasWriteFailed());
    EXPECT_FALSE(writer.hasWriteStarved());
    EXPECT_EQ(toHex(written(writer)), "05");
    // Written as one of several values, the object ends early.
    SRData value(outer);
    EXPECT_EQ(writer.ProcessScriptVar(&value), 3);
    EXPECT_EQ(toHex(written(writer)), toHex(hexText("05 03 0005 'small' 01 01 0000 09")));

    // The count of a strict array comes first, so the whole array is dropped, and its table entry too.
    const SRData strict = makeArray(kStrictArrayType);
    arrayOf(strict).setValue(0, "", SRData(std::string(1000, 'x').c_str()));
    SRCSerializer second;
    second.setOutputLimit(300);
    EXPECT_FALSE(second.PutVar(&strict, false));
    EXPECT_EQ(second.getPosition(), 0U);
    arrayOf(strict).setValue(0, "", SRData(true));
    EXPECT_TRUE(second.PutVar(&strict, false));
    EXPECT_TRUE(second.PutVar(&strict, false));
    EXPECT_EQ(toHex(written(second)), toHex(hexText("0A 00000001 01 01 07 0000")));
    EXPECT_TRUE(second.hasWriteFailed());
}

}  // namespace
}  // namespace krx::test
