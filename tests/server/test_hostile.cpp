// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Data made to be costly: nesting, counts, references, circles. The sanitizers find leaks and stack
// overflows.

#include "server/SRCommand.h"
#include "server/messagedump.h"
#include "tests/server/serializerfixture.h"
#include "util/SRException.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <utility>

namespace krx::test {
namespace {

std::string repeated(const std::string& text, unsigned n)
{
    std::string all;
    for (unsigned i = 0; i < n; ++i)
        all += text;
    return all;
}

// Most memory that the process has had.
long peakKilobytes()
{
    struct rusage usage
    {
    };
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(Nesting, IsBoundedInReadingSkippingAndWriting)
{
    const std::pair<const char*, const char*> cases[] = {
        // one level in AMF0, and its end
        {"03 0001 'a'", "0000 09"},
        {"08 00000000 0001 'a'", "0000 09"},
        {"0A 00000001", ""},
        {"10 0000 0001 'a'", "0000 09"},
    };
    for (const auto& [start, close] : cases) {
        SCOPED_TRACE(start);
        const std::string level = hexText(start);
        const std::string end = hexText(close);
        const unsigned most = SRCSerializer::kMaxNesting - 1;
        Reader fits(repeated(level, most) + '\x05' + repeated(end, most));
        const SRData value = fits.get();
        EXPECT_FALSE(fits->isBad());
        EXPECT_NE(encoded(value), "failed");
        Reader skips(repeated(level, most) + '\x05' + repeated(end, most));
        skips->skipVar();
        EXPECT_FALSE(skips->isBad());
        EXPECT_TRUE(skips->atEnd());

        Reader deep(repeated(level, 100000));
        deep.get();
        EXPECT_EQ(deep.trace().at(1), "while processing script variable,values are found nested too deep");
        Reader skipsDeep(repeated(level, 100000));
        EXPECT_EQ(skipsDeep->skipVar(), 9);
        EXPECT_TRUE(skipsDeep->isBad());
        Reader throws(repeated(level, 100000), true);
        EXPECT_THROW(throws.get(), SRBreakConnection);
        EXPECT_LT(throws.trace().size(), 4U * SRCSerializer::kMaxNesting);
    }
    for (const char* level : {"09 03 01", "0A 0B 01 03 'a'", "10 03 00 01", "11 03 00 01"}) {
        SCOPED_TRACE(level);
        Reader deep('\x11' + repeated(hexText(level), 100000));
        deep.get();
        EXPECT_EQ(deep.trace().at(1),
                  "while processing AMF3 object data type,values are found nested too deep");
    }
    SRData value(true);
    for (unsigned i = 0; i < SRCSerializer::kMaxNesting; ++i) {
        const SRData outer = makeArray(i % 2 == 0 ? kStrictArrayType : kArrayType);
        arrayOf(outer).setValue(0, "a", value);
        value = outer;
    }
    EXPECT_EQ(encoded(value, SRDataParser::kAMF3), "failed");
    SRCSerializer writer;
    EXPECT_FALSE(writer.PutVar(&value, true));
}

TEST(Nesting, LongChainsAreReleasedFlat)
{
    // Each array refers to the one before it, far deeper than nesting can go.
    constexpr unsigned kLinks = 60000;
    std::string bytes = hexText("0A 0000EA60");
    for (unsigned i = 0; i < kLinks; ++i) {
        bytes += hexText("03 0001 'a' 07");
        bytes += static_cast<char>(i >> 8);
        bytes += static_cast<char>(i & 0xFF);
        bytes += hexText("0000 09");
    }
    auto reader = std::make_unique<Reader>(bytes);
    SRData value = arrayOf(reader->get()).getPropertyValueConst(kLinks - 1);
    EXPECT_FALSE((*reader)->isBad());
    reader.reset();
    EXPECT_FALSE(arrayOf(value).containsCircle());
    EXPECT_NE(textOf(value).find("{...}"), std::string::npos);
    value.clear();
}

TEST(Counts, CostNoMoreThanTheBytesThatAreThere)
{
    // 200 nested arrays: each claims a million elements and holds a bad one.
    const std::string nested = repeated(hexText("09 80 C0 80 01 03 'a'"), 200) + hexText("06 FF 7E");
    const long before = peakKilobytes();
    Reader reader('\x11' + nested + std::string(1 << 20, '\x01'));
    reader.get();
    EXPECT_TRUE(reader->isBad());
    EXPECT_LT(peakKilobytes() - before, 100 * 1024);
    for (const char* bytes : {"0A FFFFFFFF", "11 09 FFFFFFFF 01", "11 0A FFFFFFF3 01", "11 0D FFFFFFFF 00",
                              "11 10 FFFFFFFF 00", "11 11 FFFFFFFF 00", "0C FFFFFFFF", "20 FFFFFFFF"})
    {
        Reader huge(hexText(bytes));
        huge.get();
        EXPECT_TRUE(huge->isBad()) << bytes;
    }
}

TEST(References, ShareTextsAndBytes)
{
    constexpr unsigned kLength = 16000;
    const std::string text = hexText("81 FA 01") + std::string(kLength, 'x');
    // Repeated by reference 50,000 times: as values, as names, as class and member names, as XML, as bytes.
    const struct
    {
        std::string first;
        const char* again;
    } cases[] = {
        {hexText("11 09 01 03 'a' 06") + text, "03 'b' 06 02"},
        {hexText("11 09 01 03 'a' 06") + text, "02 01"},
        {hexText("11 09 01 03 'a' 06") + text + hexText("03 'o' 0A 13 01 02 01"), "03 'o' 0A 01 01"},
        {hexText("11 09 01 03 'a' 06") + text + hexText("03 'o' 0A 03 02"), "03 'o' 0A 01"},
        {hexText("11 09 01 03 'a' 07") + text, "03 'b' 07 02"},
        {hexText("11 09 01 03 'a' 0C") + text, "03 'b' 0C 02"},
    };
    const long before = peakKilobytes();
    for (const auto& c : cases) {
        Reader reader(c.first + repeated(hexText(c.again), 50000) + '\x01');
        const SRData value = reader.get();
        ASSERT_FALSE(reader->isBad()) << c.again;
        EXPECT_GE(arrayOf(value).getSize(), 50001);
    }
    EXPECT_LT(peakKilobytes() - before, 100 * 1024);
}

// Bytes that the process has allocated; 0 where the allocator does not count them.
std::size_t allocatedBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST(Memory, StaysInProportionToTheBytes)
{
    // Items of an array: what to read once, then as often as it fits. AMF0 in a strict array, AMF3 in a dense
    // one.
    const struct
    {
        const char* first;
        const char* item;
    } cases[] = {
        {nullptr, "05"},
        {nullptr, "02 0000"},
        {nullptr, "03 0000 09"},
        {nullptr, "08 00000000 0000 05 0000 09"},
        {nullptr, "0A 00000001 05"},
        {nullptr, "07 0000"},
        {"", "00"},
        {"", "06 03 'a'"},
        {"", "07 03 'a'"},
        {"", "09 01 01"},
        {"", "0A 00"},
        {"", "0A 03 01"},
        {"", "0C 03 'a'"},
        {"", "0D 01 00"},
        {"", "11 01 00"},
        {"08 01 3FF0000000000000", "08 02"},
        {"0A 03 03 'C'", "0A 01"},
        {"0A 13 03 'C' 03 'm' 00", "0A 01 00"},
        {"0A 13 03 'C' 03 'm' 00", "0A 01 0A 00"},
        {"0A 0B 03 'C' 03 'd' 00 01", "0A 01 02 00 01"},
    };
    constexpr unsigned kItems = 100000;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.item);
        const bool isAMF3 = c.first != nullptr;
        const std::string first = hexText(isAMF3 ? c.first : "");
        SRCSerializer count;
        if (isAMF3)
            count.WriteUint29((kItems + (first.empty() ? 0 : 1)) * 2 + 1);
        else
            count.PutDWord(kItems);
        const std::string bytes = hexText(isAMF3 ? "11 09" : "0A") + written(count) + (isAMF3 ? "\x01" : "") +
                                  first + repeated(hexText(c.item), kItems);
        const std::size_t before = allocatedBytes();
        SRCSerializer reader(reinterpret_cast<const unsigned char*>(bytes.data()),
                             static_cast<int>(bytes.size()), true);
        SRData value;
        reader.GetVar(&value, false);
        EXPECT_TRUE(reader.atEnd());
        EXPECT_LE(allocatedBytes() - before, 45 * bytes.size());
    }
    // What would take more is refused.
    const std::string chain = repeated(hexText("0A 01"), 100) + '\0';
    SRCSerializer count;
    count.WriteUint29(20001 * 2 + 1);
    Reader refused(hexText("11 09") + written(count) + hexText("01 0A 13 03 'C' 03 'm' 00") +
                   repeated(chain, 20000));
    refused.get();
    EXPECT_TRUE(refused->isBad());
    EXPECT_EQ(refused.trace().at(1),
              "while processing script variable,values are found to take more memory than they may");
}

TEST(References, DumpsAreBoundedHoweverTheyMultiply)
{
    // 40 levels of two references each to the level below.
    std::string bytes = hexText("0A 00000028 03 0000 09");
    for (unsigned i = 1; i < 40; ++i) {
        const std::string index = {'\x07', '\0', static_cast<char>(i)};
        bytes += hexText("03 0001 'a'") + index + hexText("0001 'b'") + index + hexText("0000 09");
    }
    Reader reader(bytes);
    const SRData value = reader.get();
    ASSERT_FALSE(reader->isBad());
    EXPECT_FALSE(arrayOf(value).containsCircle());
    EXPECT_LE(textOf(value).size(), SRData::kMaxTextBytes + 3);
    EXPECT_EQ(textOf(value).substr(textOf(value).size() - 3), "...");
    EXPECT_EQ(std::string(value.toText(10).view()), "{0: {}, 1:...");
    const std::string body = hexText("02 0001 'm'") + bytes;
    const SRCommand command(kMsgData, reinterpret_cast<const unsigned char*>(body.data()),
                            static_cast<int>(body.size()), false);
    for (const SRMBString& dump : {dumpCommand(command), stringizeSRCommand(command)}) {
        EXPECT_EQ(dump.size(), SRData::kMaxTextBytes + 3);
        EXPECT_EQ(dump.view().substr(dump.size() - 3), "...");
    }

    // As ECMA arrays, which have no references in AMF0, they would exhaust any memory.
    SRData doubled = makeArray(kArrayType);
    for (int i = 0; i < 40; ++i) {
        const SRData outer = makeArray(kArrayType);
        arrayOf(outer).setValue(0, "a", doubled);
        arrayOf(outer).setValue(1, "b", doubled);
        doubled = outer;
    }
    SRCSerializer writer;
    writer.setOutputLimit(1 << 20);
    EXPECT_FALSE(writer.PutVar(&doubled, true));
}

TEST(Circles, AreReadShownWrittenAndFreed)
{
    const struct
    {
        const char* bytes;
        const char* text;
        const char* opened;  ///< text of a copy after the reader is gone
        const char* again;   ///< written form; null: the same
    } cases[] = {
        {"03 0001 'a' 07 0000 0000 09", "{a: {...}}", "{a: }", nullptr},
        {"03 0001 'a' 03 0001 'b' 07 0000 0001 'c' 07 0001 0000 09 0001 'd' 07 0001 0000 09",
         "{a: {b: {...}, c: {...}}, d: {b: {...}, c: {...}}}", "{a: {b: , c: }, d: {b: , c: }}", nullptr},
        {"03 0001 'e' 08 00000000 0001 'b' 07 0000 0000 09 0001 'x' 05 0000 09", "{e: {b: {...}}, x: }",
         "{e: {b: }, x: }", nullptr},
        {"11 0A 0B 01 03 'a' 09 03 01 0A 00 01", "{constructor: , a: {0: {...}}}",
         "{constructor: , a: {0: }}", "11 0A 0B 01 03 'a' 09 01 03 '0' 0A 00 01 01"},
        {"11 0A 0B 01 03 'v' 10 03 00 01 0A 00 01",
         "{constructor: , v: {size: 1, fixed: false, closure: , value: {...}}}",
         "{constructor: , v: {size: 1, fixed: false, closure: , value: }}", nullptr},
        {"11 0A 0B 01 03 'd' 11 03 00 0A 00 11 02 01",
         "{constructor: , d: {size: 1, weak: false, key: {...}, value: {...}}}",
         "{constructor: , d: {size: 1, weak: false, key: , value: }}", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        SRData copy;
        {
            Reader reader(hexText(c.bytes));
            const SRData value = reader.get();
            EXPECT_FALSE(reader->isBad());
            EXPECT_EQ(textOf(value), c.text);
            EXPECT_TRUE(arrayOf(value).containsCircle());
            EXPECT_TRUE(SRDataArray(arrayOf(value)).containsCircle());
            EXPECT_EQ(SRData::compare(value, SRData(value)), 0);
            EXPECT_TRUE(arrayOf(value).equals(SRDataArray(arrayOf(value))));
            EXPECT_EQ(encoded(value), toHex(hexText(c.again ? c.again : c.bytes)));
            copy = value;
        }
        EXPECT_EQ(textOf(copy), c.opened);
        EXPECT_FALSE(arrayOf(copy).containsCircle());
    }
}

TEST(Circles, OfEcmaArraysCannotBeWritten)
{
    const SRData first = makeArray(kArrayType);
    const SRData second = makeArray(kArrayType);
    arrayOf(first).setValue(0, "second", second);
    EXPECT_FALSE(arrayOf(first).containsCircle());
    arrayOf(second).setValue(0, "first", first);
    EXPECT_TRUE(arrayOf(first).containsCircle());
    EXPECT_EQ(encoded(first), "failed");
    // AMF3 has references for them.
    EXPECT_EQ(encoded(first, SRDataParser::kAMF3),
              toHex(hexText("11 09 01 0D 'second' 09 01 0B 'first' 09 00 01 01")));
    SRCommand command;
    command.setMethodName("m");
    command.setUserArg(first);
    EXPECT_EQ(command.getDataResponse(), nullptr);
    arrayOf(second).erase(0);
    EXPECT_NE(command.getDataResponse(), nullptr);
}

}  // namespace
}  // namespace krx::test
