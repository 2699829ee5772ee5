// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/recordmaker.h"
#include "tools/zmvutil/archive/src/faultspage.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <regex>

namespace archive {
namespace {

using namespace vidlint;

TEST(Escaped, ShowsWhatMisleads)
{
    const std::tuple<std::string, std::string, bool> rows[] = {
        {"a b~", "a b~", true},
        {"\\", "\\\\", true},
        {"\n\r\t", "\\n\\r\\t", true},
        {std::string("\0\x1b\x7f", 3), "\\x00\\x1b\\x7f", true},
        {"\xc2\x85", "\\u0085", true},
        {"\x85", "\\x85", false},
        {"\xe2\x80\xae\xe2\x81\xa6\xd8\x9c", "\\u202e\\u2066\\u061c", true},
        {"\xe2\x80\xa8\xef\xbb\xbf\xf3\xa0\x81\x81", "\\u2028\\ufeff\\U000e0041", true},
        {"\xc3\xa9\xe6\x98\xa0\xf0\x9f\x8e\xac", "\xc3\xa9\xe6\x98\xa0\xf0\x9f\x8e\xac", true},
        {"\xed\xa0\x80\xc0\xaf\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xc0\\xaf\\xf4\\x90\\x80\\x80", false},
        {"\xe6\x98", "\\xe6\\x98", false},
    };
    for (const auto& [bytes, text, isText] : rows) {
        EXPECT_EQ(escaped(bytes), text);
        EXPECT_EQ(isUtf8(bytes), isText) << text;
    }
    EXPECT_EQ(escapedStart("ab\xe6\x98\xa0", 4), "ab...");
    EXPECT_EQ(escapedStart("ab\xe6\x98\xa0", 5), "ab\xe6\x98\xa0");
}

Finding finding(FindingLevel level, int number, const char* text)
{
    Finding made;
    made.level = level;
    made.number = number;
    made.text = text;
    return made;
}

InputRecord cutRecord()
{
    InputRecord record;
    InputReport& report = record.report;
    report.path = "a\n.mp4";
    report.verdict = Verdict::kValid;
    report.cause = Cause::kCutShort;
    report.duration = 3'723'004;
    report.playsUntil = 7250;
    report.findings = {finding(FindingLevel::kWarning, -102, "Unrecognized box: x\x1b"),
                       finding(FindingLevel::kWarning, -107, "Unsupported."),
                       finding(FindingLevel::kWarning, -117, "Truncated.")};
    report.findings[0].place.path = "moov/trak[1]";
    report.findings[0].place.offset = 40;
    report.findings[1].place.offset = 50;
    report.findings[1].place.track = 2;
    report.findings[2].place.track = 1;
    report.findings[2].place.sample = 5;
    report.findings[2].place.time = 7250;
    report.tracks.resize(2);
    report.tracks[1].droppedBy = report.findings[1];
    return record;
}

TEST(LinesOf, EachKindOfInput)
{
    InputRecord cut = cutRecord();
    InputRecord color = cut;
    color.report.findings.resize(1);
    InputRecord crashed = cut;
    crashed.crashed = true;
    InputRecord unreadable;
    unreadable.report.path = "b";
    unreadable.report.cause = Cause::kUnreadable;
    unreadable.report.findingsOmitted = 5;
    Finding error = finding(FindingLevel::kError, -5, "File read error.");
    error.place.file = "00\x7f";
    error.place.offset = 9;
    error.place.message = 3;
    error.systemError = EIO;
    unreadable.report.findings = {finding(FindingLevel::kError, 0, "Cannot load index."), error};
    InputRecord other;
    other.report.path = "c";
    other.report.cause = Cause::kOtherFormat;
    other.report.otherFormat = "Matroska";
    const std::tuple<InputRecord, bool, std::string> rows[] = {
        {cut, false,
         "a\\n.mp4: warning -102 Unrecognized box: x\\x1b (moov/trak[1] at 40)\n"
         "a\\n.mp4: warning -107 Unsupported. (at 50, track 2) dropped-track\n"
         "a\\n.mp4: warning -117 Truncated. (track 1, sample 5, 0:07.250) "
         "cut-short, plays until 0:07.250 of 1:02:03.004\n"},
        {color, true,
         "a\\n.mp4: \x1b[33mwarning\x1b[0m -102 Unrecognized box: x\\x1b (moov/trak[1] at 40)\n"
         "a\\n.mp4: \x1b[1mcut-short, plays until 0:07.250 of 1:02:03.004\x1b[0m\n"},
        {crashed, false, "a\\n.mp4: crashed\n"},
        {unreadable, false,
         "b: error Cannot load index.\n"
         "b: error -5 File read error. (00\\x7f at 9, message 3, Input/output error) unreadable\n"
         "b: 5 more warnings\n"},
        {other, false, "c: other-format, Matroska\n"},
        {InputRecord(), false, ""},
    };
    for (const auto& [record, hasColor, expected] : rows)
        EXPECT_EQ(linesOf(record, hasColor), expected);
}

/// Texts for a terminal have no byte that it obeys, but the codes of colors that were asked for.
TEST(Texts, ObeyNoName)
{
    static const std::regex codes("\x1b\\[[0-9;]+m");
    RecordMaker maker(1);
    for (int i = 0; i < 1000; ++i) {
        const InputRecord record = maker.record();
        for (const std::string& text :
             {linesOf(record, false), describe(record, false),
              std::regex_replace(linesOf(record, true) + describe(record, true), codes, "")})
        {
            ASSERT_TRUE(isUtf8(text));
            ASSERT_TRUE(std::none_of(text.begin(), text.end(), [](unsigned char c) {
                return (c < ' ' && c != '\n') || c == 0x7F;
            })) << text;
            ASSERT_EQ(text.find("\xe2\x80\xae"), std::string::npos);
        }
    }
}

TEST(Describe, SaysWhatToDo)
{
    const std::string text = describe(cutRecord(), false);
    for (const char* part :
         {"a\\n.mp4\n  valid, mp4\n", "cut-short, plays until 0:07.250 of 1:02:03.004: fetch the rest",
          "left out by -107 Unsupported.", "where   moov/trak[1] at 40", "to do   By hand: fetch the file"})
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
}

std::string withoutSpace(std::string text)
{
    text.erase(
        std::remove_if(text.begin(), text.end(), [](unsigned char c) { return c == ' ' || c == '\n'; }),
        text.end());
    return text;
}

/// The page, number by number, is what explain prints, but for marks, headings and line ends.
TEST(Explain, IsThePage)
{
    static const std::regex mark(R"(\]\([^)]*\)|:?\*\*|[`\[]|\n- )");
    std::ifstream in(FAULTS_PAGE);
    const std::string page{std::istreambuf_iterator<char>(in), {}};
    std::size_t sections = 0;
    for (std::size_t at = page.find("\n### "); at != std::string::npos; ++sections) {
        const std::size_t body = page.find('\n', at + 1);
        const int number = std::stoi(page.substr(at + 5, body - at - 5));
        const std::size_t next = page.find("\n### ", body);
        std::string section = page.substr(body, std::min(next, page.find("\n## ", body)) - body);
        std::string told = explain(number, false);
        ASSERT_NE(faultPage(number), nullptr) << number;
        told.erase(told.find("  " + faultPage(number)->group), faultPage(number)->group.size() + 2);
        // The sentence is the title and no field.
        const std::size_t text = section.find("- **Text:** ");
        const std::string title = section.substr(text + 12, section.find('\n', text) - text - 12);
        section.erase(text, section.find('\n', text) - text);
        const std::string named = std::regex_replace(title, std::regex("%s"), "NAME");
        section = std::to_string(number) + std::regex_replace(named, std::regex("%x"), "N") + section;
        section = std::regex_replace(section, mark, "");
        EXPECT_EQ(withoutSpace(told), withoutSpace(section));
        at = next;
    }
    EXPECT_EQ(sections, faultPages().size());
    EXPECT_GT(sections, 60U);
    EXPECT_EQ(explain(-999, false), "");
    EXPECT_EQ(htmlText("a < `b&c` [-9](#-9)"), "a &lt; <code>b&amp;c</code> -9");
}

}  // namespace
}  // namespace archive
