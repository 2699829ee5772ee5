// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/faultspage.h"
#include "tools/zmvutil/archive/src/textcolor.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <set>
#include <vector>

using vidlint::Finding;
using vidlint::FindingLevel;
using vidlint::InputReport;

namespace archive {
namespace {

constexpr std::size_t kLineWidth = 96;

/// The words in lines that begin with indent spaces; the first line begins with the label.
std::string wrapped(std::string_view label, std::string_view words, std::size_t indent)
{
    std::string text;
    std::string line(label);
    line.resize(std::max(line.size(), indent), ' ');
    bool isEmpty = true;
    while (!words.empty()) {
        const std::size_t end = std::min(words.find(' '), words.size());
        if (!isEmpty && line.size() + 1 + end > kLineWidth) {
            text += line + "\n";
            line.assign(indent, ' ');
            isEmpty = true;
        }
        line.append(isEmpty ? "" : " ").append(words.substr(0, end));
        isEmpty = false;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return text + line + "\n";
}

std::string headOf(const InputRecord& record, bool color)
{
    const InputReport& report = record.report;
    std::string head = tinted(escaped(report.path), Tint::kStrong, color) + "\n";
    if (record.crashed)
        return head + "  crashed: its check ended the process twice\n";
    const bool isValid = report.verdict == vidlint::Verdict::kValid;
    head += "  " + (report.cancelled
                        ? "no verdict"
                        : tinted(nameOf(report.verdict), isValid ? Tint::kStrong : Tint::kError, color));
    head += fmt::format(", {}", nameOf(report.kind));
    if (report.size)
        head += fmt::format(", {} bytes", *report.size);
    if (record.change)
        head += fmt::format(", {}", nameOf(*record.change));
    head += "\n";
    if (const std::string cause = causeText(report); !cause.empty())
        head += "  " + tinted(cause, Tint::kStrong, color) + ": " + remedyOf(report) + "\n";
    return head;
}

std::string timesOf(const InputReport& report)
{
    std::string times;
    const auto add = [&](const char* label, std::optional<long long> ms) {
        if (ms)
            times += fmt::format("  {:<12}{}\n", label, timeText(*ms));
    };
    add("announced", report.announcedDuration);
    add("duration", report.duration);
    add("plays until", report.playsUntil);
    if (report.messages)
        times += fmt::format("  {:<12}{}\n", "messages", *report.messages);
    return times;
}

std::string describeTracks(const InputReport& report, bool color)
{
    if (report.tracks.empty())
        return {};
    using Cells = std::array<std::string, 5>;
    std::vector<Cells> rows;
    Cells::size_type widths[std::tuple_size_v<Cells>] = {};
    for (const vidlint::Track& track : report.tracks) {
        rows.push_back({track.id == 0 ? "-" : std::to_string(track.id), nameOf(track.kind), codecText(track),
                        playText(track), trackText(track)});
        for (std::size_t i = 0; i < std::size(widths); ++i)
            widths[i] = std::max(widths[i], rows.back()[i].size());
    }
    std::string text = "\n" + tinted("Tracks", Tint::kStrong, color) + "\n";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::string line = " ";
        for (std::size_t k = 0; k < std::size(widths); ++k)
            line += fmt::format(" {:<{}} ", rows[i][k], widths[k]);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
        if (const auto& dropped = report.tracks[i].droppedBy)
            text += wrapped("", fmt::format("left out by {} {}", dropped->number, escaped(dropped->text)), 6);
    }
    return text;
}

std::string describeFindings(const InputReport& report, bool color)
{
    if (report.findings.empty())
        return {};
    std::string text = "\n" + tinted("Findings", Tint::kStrong, color) + "\n";
    std::set<int> explained;
    for (const Finding& finding : report.findings) {
        const Tint tint = finding.level == FindingLevel::kError ? Tint::kError : Tint::kWarning;
        text += "  " + tinted(vidlint::nameOf(finding.level), tint, color);
        text += finding.number != 0 ? fmt::format(" {} ", finding.number) : " ";
        text += escaped(finding.text) + "\n";
        if (const std::string place = placeText(finding); !place.empty())
            text += "      where   " + place + "\n";
        const FaultPage* const page = finding.number != 0 ? faultPage(finding.number) : nullptr;
        if (page && explained.insert(finding.number).second) {
            text += wrapped("      means", plainText(page->field("Means")), 14);
            text += wrapped("      plays", plainText(page->field("What a player does")), 14);
            text += wrapped("      to do", plainText(page->field("Repair")), 14);
        }
    }
    if (report.findingsOmitted > 0)
        text += fmt::format("  and {} more warnings\n", report.findingsOmitted);
    return text;
}

std::string describeFixes(const InputReport& report, bool color)
{
    if (report.fixes.empty())
        return {};
    std::string text = "\n" + tinted("What a repair changes", Tint::kStrong, color) + "\n";
    for (const vidlint::Fix& fix : report.fixes)
        text += fmt::format("  at {}: {}\n", fix.position, escaped(fix.description));
    return text;
}

}  // namespace

std::string describe(const InputRecord& record, bool color)
{
    const InputReport& report = record.report;
    if (record.crashed)
        return headOf(record, color);
    return headOf(record, color) + timesOf(report) + describeTracks(report, color) +
           describeFindings(report, color) + describeFixes(report, color);
}

std::string explain(int number, bool color)
{
    const FaultPage* const page = faultPage(number);
    if (!page)
        return {};
    std::string text =
        tinted(fmt::format("{} {}", number, plainText(page->field("Text"))), Tint::kStrong, color);
    text += "\n" + tinted("  " + page->group, Tint::kQuiet, color) + "\n";
    for (const auto& [name, words] : page->fields)
        if (name != "Text")
            text += wrapped("  " + name, plainText(words), 22);
    return text;
}

}  // namespace archive
