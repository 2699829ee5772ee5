// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/server/serializerfixture.h"
#include "util/SRException.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace krx::test {
namespace {

const char kVar[] = "while processing script variable";

// Each line: the bytes, the detail ('~' for a line end in it), and the trace lines after it up to the
// outermost.
const char kBadMessages[] = R"(
|Message data is not complete
00 0000|Message data is not complete|while reading number type
01|Message data is not complete|while reading boolean type
22 00|Message data is not complete|while reading 64 bit integer type
0B 00|Message data is not complete|while processing date type
07 00|Message data is not complete|while processing reference type
02 00|Message data is not complete|while processing string type
02 0005 'abc'|Length of string 5 is found greater than remaining bytes. Message data is not complete|while processing string type
0F FFFFFFFF|Length of string 4294967295 is found greater than remaining bytes. Message data is not complete|while processing xml type
20 00000003 0000|while serializing the blob type,length of blob data is found longer than remaining bytes|while processing blob data type
0A FFFFFFFF 0505|while serializing the array length,length of array is found longer than remaining bytes|while processing strict array type
08 00000000|Message data is not complete|while processing name|while processing script variable|while processing array type
10 0001 'C' 0001 'a' 00|Message data is not complete|while reading number type|while processing script variable|while processing object data type
11 04 FF|Message data is not complete|while processing integer data atom|while processing AMF3 object data type
11 05 00|Message data is not complete|while processing double data atom|while processing AMF3 object data type
11 06 02|While reading the AMF3 string, index of string 1 is found greater than sting reference table length |while processing string data atom|while processing AMF3 object data type
11 06 00|While reading the AMF3 string, index of string 0 is found greater than sting reference table length |while processing string data atom|while processing AMF3 object data type
11 06 07 'x'|Length of string 3 is found greater than remaining bytes. Message data is not complete|while processing string data atom|while processing AMF3 object data type
11 07 07 'x'|While reading the XML string, length 3 of string is found greater than remaining bytes |while processing xml string|while processing XML data atom|while processing AMF3 object data type
11 0B 00|While serializing the XML atom, the object index 0 is found greater than refTable size |while processing XML data atom|while processing AMF3 object data type
11 08 02|While serializing the date atom, the object index 1 is found greater than refTable size |while processing date atom|while processing AMF3 object data type
11 09 04|While serializing the array atom, the object index 2 is found greater than refTable size |while processing array atom|while processing AMF3 object data type
11 09 07 01|while serializing the array atom,array length found greater than remaining bytes|while processing array atom|while processing AMF3 object data type
11 0A 00|While serializing the object atom, the object index 0 is found greater than refTable size |while processing object atom|while processing AMF3 object data type
11 0A 05|While serializing the object atom, class info index 1 is found greater than class reference table size |while processing object atom|while processing AMF3 object data type
11 0A 17 03 'x'|While serializing the object atom, the property index count 1 externalizable flag is found on ( last 3 bits of value 23). Server doesn't has support for IExternalizable yet.|while processing object atom|while processing AMF3 object data type
11 0A 83 23 01|While serializing the object atom, the property index count 26 is found greater than remaining bytes |while processing object atom|while processing AMF3 object data type
11 0C 00|While serializing the byte array atom, the object index 0 is found greater than refTable size |while processing byte array|while processing AMF3 object data type
11 0C 07 FF|while serializing the byte array atom,length of data is found greater than remaining bytes~|while processing byte array|while processing AMF3 object data type
11 0E 02|While reading the object from reference table, the object index 1 is found greater than refTable size |while processing vector object atom|while processing AMF3 object data type
11 0F 05 00 0000000000000000|while serializing the vector atom,length of vector is found greater than remaining bytes|while processing vector object atom|while processing AMF3 object data type
11 11 05 00 01|while serializing the dictionary atom,length of dictionary is found greater than remaining bytes|while processing dictionary atom|while processing AMF3 object data type
11 09 03 01 0A 0B 01 03 'a'|Message data is not complete|while processing object atom|while processing array atom|while processing AMF3 object data type
)";

TEST(BadData, IsTracedFromTheInside)
{
    std::istringstream lines(kBadMessages + 1);
    for (std::string line; std::getline(lines, line);) {
        SCOPED_TRACE(line);
        std::vector<std::string> expected;
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, '|');)
            expected.push_back(field);
        const std::string bytes = hexText(expected.front());
        expected.erase(expected.begin());
        std::replace(expected.front().begin(), expected.front().end(), '~', '\n');
        expected.emplace_back(kVar);

        Reader strict(bytes, true);
        SRData value;
        try {
            strict->GetVar(&value, true);
            ADD_FAILURE() << "nothing thrown";
        } catch (const SRBreakConnection& e) {
            EXPECT_EQ(e.getCode(), 1029);
        }
        std::vector<std::string> trace = strict.trace();
        ASSERT_FALSE(trace.empty());
        EXPECT_EQ(trace.front().rfind("Error occured in serializing message buffer at position ", 0), 0U);
        trace.erase(trace.begin());
        EXPECT_EQ(trace, expected);

        // Without the flag the reader goes bad, jumps to its end and keeps two lines.
        Reader lenient(bytes);
        EXPECT_EQ(lenient->GetVar(&value, true), 9);
        EXPECT_TRUE(lenient->isBad() && lenient->atEnd());
        EXPECT_EQ(lenient.get().kind, kUndefinedType);
        EXPECT_EQ(lenient.trace().size(), 2U);
    }
}

TEST(BadData, UnknownMarkersThrowWhateverTheFlag)
{
    for (const char* bytes : {"0E", "12", "1F", "21", "23", "FF"}) {
        for (const bool throwOnBad : {false, true}) {
            SCOPED_TRACE(bytes);
            Reader reader(hexText(bytes), throwOnBad);
            SRData value;
            EXPECT_THROW(reader->GetVar(&value, true), SRBreakConnection);
            EXPECT_EQ(reader.trace(), std::vector<std::string>{kVar});
            Reader skipper(hexText(bytes), throwOnBad);
            EXPECT_THROW(skipper->skipVar(), SRBreakConnection);
        }
    }
    Reader nested(hexText("03 0001 'a' 0E"));
    EXPECT_THROW(nested.get(), SRBreakConnection);
    EXPECT_EQ(nested.trace(), (std::vector<std::string>{kVar, "while processing object data type", kVar}));
}

TEST(BadData, SkippingRefusesLengthsBehindTheEnd)
{
    for (const char* bytes : {"0C 00000009 'abc'", "0A 00000009 0505", "03 0009 'abc'", "00 00"}) {
        Reader reader(hexText(bytes));
        EXPECT_EQ(reader->skipVar(), 9) << bytes;
        EXPECT_TRUE(reader->isBad()) << bytes;
    }
}

TEST(BadData, SkippedValuesKeepTheirPlacesInTheTables)
{
    const struct
    {
        const char* skipped;
        int marker;
        const char* next;  ///< refers to what stands in the tables
        const char* text;
    } cases[] = {
        {"11 06 03 'a'", 17, "11 06 00", "a"},
        {"03 0001 'a' 05 0000 09", 3, "11 0A 00", "{}"},
        {"10 0001 'C' 0000 09", 16, "0A 00000001 07 0000", "{0: {}}"},
        {"0A 00000002 05 0A 00000000", 10, "0A 00000002 07 0001 07 0002", "{0: {}, 1: {...}}"},
        {"08 00000000 0001 'a' 03 0000 09 0000 09", 8, "11 09 05 01 0A 00 09 02", "{0: {}, 1: {...}}"},
        {"11 09 03 01 08 01 3FF0000000000000", 17, "11 09 05 01 0A 02 08 02", "{0: {time: }, 1: }"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.skipped);
        Reader reader(hexText(std::string(c.skipped) + c.next), true);
        EXPECT_EQ(reader->skipVar(), c.marker);
        EXPECT_EQ(textOf(reader.get()), c.text);
        EXPECT_TRUE(reader->atEnd());
    }
}

}  // namespace
}  // namespace krx::test
