// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"
#include "util/SRBuffer.h"

#include <gtest/gtest.h>

namespace krx::test {
namespace {

using Tags = std::deque<mp4::MP4File::TagEntry>;

std::string dataBox(std::uint32_t type, std::string_view payload)
{
    return box("data", Fields().u32(type).u32(0).raw(payload));
}

std::string metaWith(const std::string& items)
{
    return movieFile(box("udta", fullBox("meta", fullBox("hdlr") + box("ilst", items))));
}

std::string chpl(const std::string& entries, unsigned version = 0)
{
    return fullBox("chpl", std::string(version == 0 ? 1 : 5, '\xFF') + entries, version);
}

std::string chapter(std::uint64_t time, std::string_view title)
{
    return Fields().u64(time).u8(title.size()).raw(title).bytes();
}

std::string xmp(std::string_view text, std::uint64_t low = 0x9C71999491E3AFACULL)
{
    return box("uuid", Fields().u64(0xBE7ACFCB97A942E8ULL).u64(low).raw(text));
}

TEST(Mp4Metadata, Faults)
{
    const std::string text = dataBox(1, "x");
    expectFaults({
        {"version and flags missing", movieFile(box("meta", fullBox("hdlr") + box("ilst"))), 0, {111}},
        {"nothing in it", movieFile(fullBox("meta") + box("udta")), 0, {111}},
        {"nothing in it, at the end", ftyp() + box("moov", mvhd(1, 1)) + box("meta"), 0, {111}},
        {"unknown child", movieFile(fullBox("meta", box("abcd"))), 0, {102}},
        {"large first child", movieFile(fullBox("meta", largeBox("hdlr")))},
        {"item of negative size", metaWith(sizedLargeBox(1ULL << 63, "abcd", text)), 22},
        {"item of size 0", metaWith(sizedLargeBox(0, "abcd", text)), 22},
        {"item of size 7", metaWith(sizedBox(7, "abcd", text)), 18},
        {"item beyond the list", metaWith(sizedBox(100, "abcd", text)), 18},
        {"data beyond the item", metaWith(box("abcd", sizedBox(100, "data"))), 18},
        {"seven bytes after the items", metaWith("1234567")},
        {"string tag of five bytes", movieFile(box("cprt", "12345")), 18},
        {"string tag of five bytes and another version",
         movieFile(box("cprt",
                       "\1"
                       "2345")),
         18},
        {"string tag of version 1", movieFile(fullBox("titl", "en", 1)), 0, {123}},
        {"second chapter list", movieFile(chpl(chapter(0, "")) + chpl(chapter(0, ""))), 19},
        {"second chapter list after an empty one", movieFile(chpl("") + chpl(chapter(0, "")))},
        {"chapter list of version 2", movieFile(chpl("", 2)), 0, {123}},
        {"chapter at the end of the movie", movieFile(chpl(chapter(2000, "")))},
        {"chapter after the movie", movieFile(chpl(chapter(2001, ""))), 24},
        {"second 'pdin'", movieFile({}, fullBox("pdin", Fields().u64(1)) + fullBox("pdin", Fields().u64(1))),
         19},
        {"empty 'pdin'", movieFile({}, fullBox("pdin")), 22},
        {"'pdin' of version 1", movieFile({}, fullBox("pdin", {}, 1)), 0, {123}},
        {"'uuid' cut off by the end", movieFile({}, box("uuid", "0123456789")), 5},
    });
}

TEST(Mp4Metadata, ItemTags)
{
    const std::string longText(70000, 't');
    const auto parsed = parseFile(metaWith(
        box("\xA9nam", dataBox(1, "Name")) + box("free", dataBox(1, "x")) +
        box("trkn", dataBox(0, Fields().u16(0).u16(3).u16(12).u16(0))) + box("tmpo", dataBox(21, "\1\2")) +
        box("gnre", dataBox(0, "\1\2\3\4\5")) + box("covr", dataBox(13, "jpeg") + dataBox(14, "png")) +
        box("purl", dataBox(0, "url")) + box("misc", dataBox(77, "?")) +
        box("----", box("mean", "12345678") + dataBox(1, "free form")) + box("abcd", box("data", "1234567")) +
        box("long", dataBox(1, longText)) + box("ints", dataBox(0, longText))));
    ASSERT_EQ(parsed->error, 0);
    const Tags& tags = parsed->mp4.getTags();
    ASSERT_EQ(tags.size(), 11U);
    EXPECT_EQ(tags[0].itemType, mp4::fourCC("\xA9nam"));
    EXPECT_EQ(tags[0].dataType, 1U);
    EXPECT_EQ(tags[0].content, "Name");
    ASSERT_EQ(tags[1].integerCount(), 4U);
    EXPECT_EQ(tags[1].integer(2), 12U);
    ASSERT_EQ(tags[2].integerCount(), 1U);
    EXPECT_EQ(tags[2].integer(0), 0x102U);
    ASSERT_EQ(tags[3].integerCount(), 2U);
    EXPECT_EQ(tags[3].integer(0), 0x01020304U);
    EXPECT_EQ(tags[3].integer(1), 5U);
    EXPECT_EQ(tags[4].content, "jpeg");
    EXPECT_EQ(tags[5].dataType, 14U);
    EXPECT_EQ(tags[5].itemType, mp4::fourCC("covr"));
    EXPECT_EQ(tags[6].content, "url");
    EXPECT_EQ(tags[6].dataType, 1U);
    EXPECT_EQ(tags[7].dataType, 77U);
    EXPECT_TRUE(tags[7].content.empty());
    EXPECT_EQ(tags[8].content, "free form");
    EXPECT_EQ(tags[9].content, longText.substr(0, 65535));
    EXPECT_EQ(tags[10].integerCount(), 1024U);
}

TEST(Mp4Metadata, Xmp)
{
    struct
    {
        const char* name;
        std::string boxes;
        const char* text;  ///< null: none
    } const cases[] = {
        {"one", xmp("<x/>"), "<x/>"},
        {"shorter one after it", xmp("<long/>") + xmp("<x/>"), "<x/>"},
        {"longer one after it", xmp("<x/>") + xmp("<long/>"), "<long/>"},
        {"other identifier", xmp("<x/>", 1), nullptr},
        {"other identifier after it", xmp("<x/>") + xmp("<long/>", 1), "<x/>"},
        {"no packet", xmp(""), nullptr},
        {"large header",
         largeBox("uuid", Fields().u64(0xBE7ACFCB97A942E8ULL).u64(0x9C71999491E3AFACULL).raw("<x/>")),
         nullptr},
    };
    for (const auto& c : cases) {
        const auto parsed = parseFile(movieFile({}, c.boxes));
        EXPECT_EQ(parsed->error, 0) << c.name;
        ASSERT_EQ(parsed->mp4.hasXMPData(), c.text != nullptr) << c.name;
        if (c.text) {
            EXPECT_STREQ(reinterpret_cast<const char*>(parsed->mp4.getXMP()->data()), c.text) << c.name;
            EXPECT_EQ(parsed->mp4.getXMP()->getUsed(), std::string(c.text).size()) << c.name;
        }
    }
}

}  // namespace
}  // namespace krx::test
