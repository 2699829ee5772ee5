// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/recordmaker.h"
#include "tools/zmvutil/archive/src/csvformat.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace archive {
namespace {

TEST(CsvCell, IsNoFormula)
{
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"plain 1-2=3", "plain 1-2=3"},
        {"=1+1", "'=1+1"},
        {"+1", "'+1"},
        {"-1", "'-1"},
        {"@SUM(A1)", "'@SUM(A1)"},
        {"\t=1", "\"'\t=1\""},
        {"\r=1", "\"'\r=1\""},
        {"\xef\xbc\x9d"
         "1",
         "'\xef\xbc\x9d"
         "1"},
        {"=a,\"b\"", "\"'=a,\"\"b\"\"\""},
        {"a;=1", "\"a;=1\""},
        {" a", "\" a\""},
    };
    for (const auto& [text, cell] : rows)
        EXPECT_EQ(csvCell(text), cell);
}

/// The lines of a CSV text as RFC 4180 has them.
std::vector<std::vector<std::string>> linesIn(const std::string& text)
{
    std::vector<std::vector<std::string>> lines;
    std::vector<std::string> cells(1);
    bool isQuoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"' && isQuoted && text[i + 1] == '"')
            cells.back() += text[++i];
        else if (text[i] == '"')
            isQuoted = !isQuoted;
        else if (text[i] == ',' && !isQuoted)
            cells.emplace_back();
        else if (text.compare(i, 2, "\r\n") == 0 && !isQuoted) {
            lines.push_back(std::move(cells));
            cells.assign(1, {});
            ++i;
        } else
            cells.back() += text[i];
    }
    EXPECT_EQ(cells, std::vector<std::string>(1)) << "the last line has no end";
    return lines;
}

TEST(CsvLines, HoldEachFinding)
{
    const std::vector<std::string> names = linesIn(csvHeader()).at(0);
    const auto column = [&](const char* name) {
        return static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
    };
    RecordMaker maker(1);
    for (int i = 0; i < 1000; ++i) {
        InputRecord record = maker.record();
        if (maker.below(4) == 0)
            record.report.path = "=" + record.report.path;
        const auto& findings = record.report.findings;
        const auto lines = linesIn(csvLines(record));
        ASSERT_EQ(lines.size(), std::max<std::size_t>(findings.size(), 1));
        for (std::size_t k = 0; k < lines.size(); ++k) {
            ASSERT_EQ(lines[k].size(), names.size());
            std::string path = lines[k][column("path")];
            EXPECT_EQ(path.starts_with("'"), record.report.path.starts_with("="));
            EXPECT_EQ(path.substr(path.starts_with("'") ? 1 : 0), escaped(record.report.path));
            EXPECT_EQ(lines[k][column("bytes")],
                      record.report.size ? std::to_string(*record.report.size) : "");
            if (k >= findings.size())
                continue;
            EXPECT_EQ(lines[k][column("number")],
                      findings[k].number == 0 ? "" : std::to_string(findings[k].number));
            EXPECT_EQ(lines[k][column("text")], escaped(findings[k].text));
            EXPECT_EQ(lines[k][column("errno")], findings[k].systemError == 0 ? "" : "5");
        }
    }
}

}  // namespace
}  // namespace archive
