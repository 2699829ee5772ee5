// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/csvformat.h"

#include "tools/zmvutil/archive/src/textformat.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <vector>

namespace archive {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

/// Text of a file or a name as a cell.
std::string cellOfBytes(std::string_view bytes)
{
    return csvCell(escaped(bytes));
}

template <typename T>
std::string cellOf(const std::optional<T>& number)
{
    return number ? std::to_string(*number) : std::string();
}

/// Numbers with a value that stands for "not known".
template <typename T>
std::string cellUnless(T unknown, T number)
{
    return number == unknown ? std::string() : std::to_string(number);
}

/// The columns of the input, the same on each of its lines.
std::string inputCells(const InputRecord& record)
{
    const vidlint::InputReport& report = record.report;
    const bool hasResult = !record.crashed && !report.cancelled;
    const std::vector<std::string> cells = {
        cellOfBytes(report.path),
        cellOfBytes(record.root),
        cellOfBytes(record.name),
        nameOf(report.kind),
        record.crashed ? "crashed" : (hasResult ? nameOf(report.verdict) : ""),
        hasResult ? nameOf(report.cause) : "",
        cellOfBytes(report.otherFormat),
        record.change ? nameOf(*record.change) : "",
        cellOf(report.size),
        cellOf(report.announcedDuration),
        cellOf(report.duration),
        cellOf(report.playsUntil),
        record.crashed ? "" : std::to_string(report.findings.size() + report.findingsOmitted),
    };
    return fmt::format("{}", fmt::join(cells, ","));
}

std::string findingCells(const vidlint::Finding& finding)
{
    const vidlint::Place& place = finding.place;
    const std::vector<std::string> cells = {
        vidlint::nameOf(finding.level),
        cellUnless(0, finding.number),
        cellOfBytes(finding.text),
        cellOfBytes(place.file),
        cellOfBytes(place.path),
        cellUnless(-1LL, place.offset),
        cellUnless(0U, place.track),
        cellUnless(0LL, place.sample),
        cellUnless(-1LL, place.message),
        cellUnless(-1LL, place.time),
        cellUnless(0, finding.systemError),
    };
    return fmt::format("{}", fmt::join(cells, ","));
}

}  // namespace

std::string csvHeader()
{
    return "path,root,name,kind,verdict,cause,other_format,change,bytes,announced_duration_ms,duration_ms,"
           "plays_until_ms,findings,level,number,text,file,box,offset,track,sample,message,time_ms,errno\r\n";
}

std::string csvLines(const InputRecord& record)
{
    constexpr std::string_view kNoFinding = ",,,,,,,,,,";
    const std::string input = inputCells(record);
    std::string lines;
    for (const vidlint::Finding& finding : record.report.findings)
        lines.append(input).append(",").append(findingCells(finding)).append(kLineEnd);
    if (lines.empty())
        lines.append(input).append(",").append(kNoFinding).append(kLineEnd);
    return lines;
}

std::string csvCell(std::string_view text)
{
    // The last four are the wide forms, which some spreadsheets take for the same.
    static constexpr std::array<std::string_view, 11> kFormulaStarts = {
        "=", "+", "-", "@", "\t", "\r", "\n", "\uFF1D", "\uFF0B", "\uFF0D", "\uFF20"};
    const bool isFormula = std::any_of(kFormulaStarts.begin(), kFormulaStarts.end(),
                                       [&](std::string_view start) { return text.starts_with(start); });
    // Spreadsheets of some languages cut at semicolons; a space at an end is lost by some readers.
    const bool needsQuotes = text.find_first_of(",;\"\t\r\n") != std::string_view::npos ||
                             text.starts_with(' ') || text.ends_with(' ');
    std::string cell = needsQuotes ? "\"" : "";
    cell += isFormula ? "'" : "";
    for (const char c : text)
        cell.append(c == '"' ? 2 : 1, c);
    return needsQuotes ? cell + '"' : cell;
}

}  // namespace archive
