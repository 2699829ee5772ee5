// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/recordmaker.h"
#include "tools/zmvutil/archive/src/htmlreport.h"
#include "tools/zmvutil/archive/src/pageassets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

namespace archive {
namespace {

std::string pageOf(const HtmlReport& report, const std::string& root = "archive")
{
    RunInfo run;
    run.roots = {root};
    std::ostringstream out;
    report.write(out, {run});
    return out.str();
}

nlohmann::json rowsOf(const std::string& page)
{
    const std::string start = "<script type=\"application/json\" id=\"rows\">";
    const std::size_t begin = page.find(start) + start.size();
    return nlohmann::json::parse(page.substr(begin, page.find("</script>", begin) - begin));
}

std::vector<std::string> elementsOf(std::string page)
{
    for (const PageAsset& asset : {styleAsset(), scriptAsset()})
        page.erase(page.find(asset.text), asset.text.size());
    std::vector<std::string> names;
    static const std::regex element("<([a-z0-9]+)");
    for (std::sregex_iterator it(page.begin(), page.end(), element), end; it != end; ++it)
        names.push_back((*it)[1]);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

TEST(HtmlReport, HoldsNamesAsTextAlone)
{
    RecordMaker maker(1);
    HtmlReport report;
    for (int i = 0; i < 2000; ++i)
        report.add(maker.record());
    const std::string page = pageOf(report, "</code><script>alert(1)</script>");
    for (const char* part : {"<script>alert", "<img", "http:", "https:", "//", "\x1b", "\x7f", "\xe2\x80\xae",
                             "\xe9", "unsafe-inline", " style=", " onerror=\""})
    {
        std::string searched = page;
        searched.erase(searched.find(scriptAsset().text), scriptAsset().text.size());
        EXPECT_EQ(searched.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(page.find("http"), page.find("http-equiv"));
    EXPECT_EQ(page.find("http", page.find("http-equiv") + 1), std::string::npos);
    EXPECT_EQ(scriptAsset().text.find("innerHTML"), std::string::npos);
    const std::vector<std::string> expected = {
        "a",      "body",    "button", "caption", "code",     "dd",      "defs",    "details",
        "div",    "dl",      "dt",     "h1",      "h2",       "head",    "header",  "html",
        "li",     "line",    "main",   "meta",    "noscript", "p",       "pattern", "rect",
        "script", "section", "span",   "strong",  "style",    "summary", "svg",     "table",
        "tbody",  "td",      "th",     "thead",   "title",    "tr",      "ul"};
    EXPECT_EQ(elementsOf(page), expected);
}

TEST(HtmlReport, KeepsWhatMattersMost)
{
    HtmlReport report(3);
    InputRecord record;
    record.report.verdict = vidlint::Verdict::kValid;
    const auto add = [&](const std::string& path) {
        record.report.path = path;
        report.add(record);
    };
    add("sound");
    record.report.findings.resize(1);
    add("warning 1");
    record.report.cause = vidlint::Cause::kCutShort;
    record.report.findings.resize(1000);
    add("cut");
    record.change = Change::kGone;
    add("gone");
    record.change = Change::kNew;
    add("new 1");
    record.crashed = true;
    add("new 2");
    record = {};
    record.report.findings.resize(1);
    record.report.verdict = vidlint::Verdict::kValid;
    add("warning 2");
    const std::string page = pageOf(report);
    const nlohmann::json rows = rowsOf(page);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0]["path"], "cut");
    EXPECT_EQ(rows[1]["path"], "new 1");
    EXPECT_EQ(rows[2]["cause"], "crashed");
    EXPECT_EQ(rows[0]["findings"].size() + rows[0]["omitted"].get<std::size_t>(), 1000U);
    EXPECT_LT(rows[0]["findings"].size(), 100U);
    for (const char* part : {"3 of 5 inputs", "<dd>6</dd>", "2 with new faults", "<code>gone</code>"})
        EXPECT_NE(page.find(part), std::string::npos) << part;
}

TEST(HtmlReport, ExplainsItsNumbers)
{
    HtmlReport report;
    InputRecord record;
    record.report.findings.resize(1);
    record.report.findings[0].number = -18;
    report.add(record);
    const std::string page = pageOf(report);
    EXPECT_NE(page.find("<dd>A box does not fit its container.</dd>"), std::string::npos);
    EXPECT_EQ(page.find("A box that may occur once stands twice"), std::string::npos);
    EXPECT_NE(pageOf(HtmlReport()).find("There is no finding."), std::string::npos);
}

}  // namespace
}  // namespace archive
