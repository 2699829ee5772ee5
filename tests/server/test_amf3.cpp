// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/server/serializerfixture.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace krx::test {
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

TEST(Amf3, ReadsAndWritesEveryMarker)
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
        {"09 05 03 'x' 04 01 01 04 07 04 08", kArrayType, "{0: 7, 1: 8, x: 1}",
         "09 01 03 '0' 04 07 03 '1' 04 08 03 'x' 04 01 01"},
        // A class with a sealed and a dynamic member, the same class again, and an anonymous sealed object.
        {"09 07 01 0A 1B 03 'C' 03 'm' 04 01 03 'd' 04 02 01 0A 01 04 03 01 0A 13 01 02 04 04", kArrayType,
         "{0: {constructor: C, m: 1, d: 2}, 1: {constructor: C, m: 3}, 2: {constructor: , C: 4}}",
         "09 01 03 '0' 0A 0B 03 'C' 03 'm' 04 01 03 'd' 04 02 01 03 '1' 0A 0B 04 06 04 03 01 "
         "03 '2' 0A 0B 01 04 04 04 01 01"},
        // A date, XML, bytes, an object, an array, a vector and a dictionary, then each again.
        {"09 1D 01 08 01 3FF0000000000000 07 03 'x' 0C 03 FF 0A 0B 01 01 09 01 01 0D 01 00 11 01 00 "
         "08 04 0B 06 0C 08 0A 0A 09 0C 0D 0E 11 10",
         kArrayType,
         "{0: , 1: x, 2: , 3: {constructor: }, 4: {}, 5: {size: 0, fixed: false}, 6: {size: 0, weak: false}, "
         "7: , 8: x, 9: , 10: {constructor: }, 11: {}, 12: {size: 0, fixed: false}, 13: {size: 0, weak: "
         "false}}",
         "09 01 03 '0' 08 01 3FF0000000000000 03 '1' 07 03 'x' 03 '2' 0C 03 FF 03 '3' 0A 0B 01 01 03 '4' 09 "
         "01 01 "
         "03 '5' 0D 01 00 03 '6' 11 01 00 03 '7' 08 04 03 '8' 0B 06 03 '9' 0C 03 FF 05 '10' 0A 0A 05 '11' 09 "
         "0C "
         "05 '12' 0D 0E 05 '13' 11 10 01"},
        {"0D 05 01 FFFFFFFF 00000002", kAvmPlusObjectType, "{size: 2, fixed: true, value: -1, value: 2}",
         nullptr},
        {"0E 03 00 FFFFFFFF", kAvmPlusObjectType, "{size: 1, fixed: false, value: 4294967295}", nullptr},
        {"0F 03 00 3FF8000000000000", kAvmPlusObjectType, "{size: 1, fixed: false, value: 1.5}", nullptr},
        {"10 05 00 03 'C' 04 01 06 00", kAvmPlusObjectType,
         "{size: 2, fixed: false, closure: C, value: 1, value: a}", nullptr},
        {"11 03 01 06 03 'k' 04 01", kAvmPlusObjectType, "{size: 1, weak: true, key: k, value: 1}", nullptr},
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
        EXPECT_TRUE(reader->atEnd() && !reader->isBad());
        EXPECT_EQ(encoded(array, SRDataParser::kAMF3), c.again ? insideArray(c.again) : toHex(bytes));
    }
}

TEST(Amf3, NumbersWithoutHintBecomeIntegersWhereTheyFit)
{
    const std::pair<double, const char*> cases[] = {
        {-1, "04 FFFFFFFF"},          {268435455, "04 BFFFFFFF"},         {-268435456, "04 C0808000"},
        {3.5, "05 400C000000000000"}, {268435456, "05 41B0000000000000"}, {-268435457, "05 C1B0000001000000"},
        {-0.0, "05 8000000000000000"}};
    for (const auto& [value, bytes] : cases)
        EXPECT_EQ(encodedAMF3(SRData(value)), insideArray(bytes)) << value;
    // A 64-bit integer has no AMF3 form.
    EXPECT_EQ(encodedAMF3(SRData(5LL)), insideArray("00"));
    // XML that comes from AMF0 is an XML document.
    SRData xml;
    xml.initText("<a/>", 4, kXMLType);
    EXPECT_EQ(encodedAMF3(xml), insideArray("07 09 '<a/>'"));
}

/// Documents of every value that both encodings have. Some arrays occur more than once.
class RandomDocument
{
public:
    explicit RandomDocument(unsigned seed) : m_random(seed) {}

    SRData value(unsigned depth)
    {
        static const double kNumbers[] = {0,   -0.0,      1.5,       -1,         127,
                                          128, 268435455, 268435456, -268435457, 1e300};
        static const char* const kTexts[] = {"", "a", "b", "key", "h\xC3\xA9"};
        SRData made;
        switch (below(depth == 0 ? 6 : 9)) {
            case 0:
                made.initNull();
                return made;
            case 1:
                return SRData(below(2) == 0);
            case 2:
                return SRData(kNumbers[below(std::size(kNumbers))]);
            case 3:
                return SRData(std::string(below(30) * 10, 'x').c_str());
            case 4:
                made.setDate(below(1000), 0);
                return made;
            case 5:
                return m_arrays.empty() ? SRData(kTexts[below(5)]) : m_arrays[below(m_arrays.size())];
            default:
                return array(depth);
        }
    }

private:
    unsigned below(std::size_t n) { return static_cast<unsigned>(m_random() % n); }
    SRData array(unsigned depth)
    {
        static const int kKinds[] = {kObjectType, kArrayType, kStrictArrayType, kTypedObjectType};
        const SRData made = makeArray(kKinds[below(4)]);
        for (unsigned i = 0, n = below(5); i < n; ++i)
            arrayOf(made).setValue(static_cast<int>(i), std::to_string(i).c_str(), value(depth - 1));
        m_arrays.push_back(made);
        return made;
    }

    std::mt19937 m_random;
    std::vector<SRData> m_arrays;
};

TEST(Amf, RandomDocumentsComeBackAsTheyWent)
{
    for (unsigned seed = 0; seed < 500; ++seed) {
        const SRData value = RandomDocument(seed).value(4);
        for (const int encoding : {SRDataParser::kAMF0, SRDataParser::kAMF3}) {
            SRCSerializer writer;
            writer.setEncoding(encoding);
            ASSERT_TRUE(writer.PutVar(&value, true)) << seed;
            Reader reader(written(writer));
            // An object comes back with its class.
            static const std::regex className("constructor: (Object)?(, )?");
            EXPECT_EQ(std::regex_replace(textOf(reader.get()), className, ""), textOf(value)) << seed;
            EXPECT_TRUE(reader->atEnd() && !reader->isBad()) << seed;
            if (encoding == SRDataParser::kAMF0) {
                Reader skipper(written(writer) + '\x05');
                skipper->skipVar();
                EXPECT_EQ(skipper->skipVar(), kNullType) << seed;
            }
        }
    }
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
    // An entry without a name would end the list.
    arrayOf(array).setValue(1, "", SRData(true));
    EXPECT_EQ(encoded(array, SRDataParser::kAMF3), "failed");
    EXPECT_NE(encoded(array, SRDataParser::kAMF0), "failed");
}

TEST(Amf3, WritesReferencesHoweverManyThereAre)
{
    constexpr int kEach = 1000;
    const SRData all = makeArray(kArrayType);
    SRDataArray& array = arrayOf(all);
    for (int i = 0; i < kEach; ++i) {
        const std::string name = "n" + std::to_string(i);
        const SRData object = makeArray(kArrayType);
        arrayOf(object).setValue(0, SRMBString(name), SRData(name.c_str()));
        SRData date;
        date.setDate(i, 0);
        SRData xml;
        xml.initText(name.data(), name.size(), kXMLType);
        for (const SRData& value : {object, date, xml})
            array.setValue(array.getSize(), "v", value);
    }
    const std::string once = encoded(all, SRDataParser::kAMF3);
    for (int i = 0; i < 3 * kEach; ++i)
        array.setValue(3 * kEach + i, "v", array.getPropertyValueConst(i));
    SRCSerializer writer;
    writer.setEncoding(SRDataParser::kAMF3);
    ASSERT_TRUE(writer.PutVar(&all, true));
    // A name, a marker and an index each.
    EXPECT_LE(writer.getPosition(), (once.size() + 1) / 3 + 3 * kEach * 4);
    EXPECT_EQ(textOf(Reader(written(writer)).get()), textOf(all));
}

}  // namespace
}  // namespace krx::test
