// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/pagerow.h"

#include "tools/zmvutil/archive/src/jsonwriter.h"
#include "tools/zmvutil/archive/src/summary.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <algorithm>
#include <set>
#include <span>

using vidlint::Finding;
using vidlint::InputReport;
using vidlint::Track;

namespace archive {
namespace {

constexpr std::size_t kMaxFindings = 20;
constexpr std::size_t kMaxTracks = 64;
constexpr std::size_t kMaxNumbers = 100;
constexpr std::size_t kMaxTextBytes = 400;

void writeShortFinding(JsonWriter& out, const Finding& finding)
{
    out.field("number", finding.number);
    out.field("level", vidlint::nameOf(finding.level));
    out.field("text", escapedStart(finding.text, kMaxTextBytes));
    if (const std::string place = placeText(finding); !place.empty())
        out.field("place", place);
    if (finding.place.time >= 0)
        out.field("time", finding.place.time);
}

void writeShortTrack(JsonWriter& out, const Track& track)
{
    out.field("id", track.id);
    out.field("kind", nameOf(track.kind));
    out.field("codec", codecText(track));
    out.field("detail", trackText(track));
    out.field("play", playText(track));
    out.field("plays", track.plays);
    out.field("first", track.firstTime);
    out.field("last", track.lastTime);
    out.field("until", track.playsUntil);
    if (track.droppedBy) {
        out.key("dropped");
        out.openObject();
        writeShortFinding(out, *track.droppedBy);
        out.closeObject();
    }
}

/// Each number of the findings once, for the filter.
void writeNumbers(JsonWriter& out, const InputReport& report)
{
    std::set<int> numbers;
    for (const Finding& finding : report.findings)
        if (finding.number != 0 && numbers.size() < kMaxNumbers)
            numbers.insert(finding.number);
    out.key("numbers");
    out.openList();
    for (const int number : numbers)
        out.value(number);
    out.closeList();
}

void writeLists(JsonWriter& out, const InputReport& report)
{
    const std::span findings(report.findings.data(), std::min(report.findings.size(), kMaxFindings));
    const std::span tracks(report.tracks.data(), std::min(report.tracks.size(), kMaxTracks));
    writeNumbers(out, report);
    out.list("findings", findings, [&](const Finding& finding) { writeShortFinding(out, finding); });
    if (const auto omitted = report.findings.size() - findings.size() + report.findingsOmitted; omitted > 0)
        out.field("omitted", omitted);
    out.list("tracks", tracks, [&](const Track& track) { writeShortTrack(out, track); });
}

}  // namespace

std::optional<PageRank> pageRankOf(const InputRecord& record)
{
    const InputReport& report = record.report;
    if (record.change == Change::kGone || report.cancelled)
        return std::nullopt;
    const bool isFaulty = record.crashed || report.verdict == vidlint::Verdict::kInvalid ||
                          report.cause != vidlint::Cause::kNone || hasDroppedTrack(report);
    if (isFaulty)
        return record.change == Change::kNew ? PageRank::kNewFault : PageRank::kFault;
    if (report.findings.empty() && report.findingsOmitted == 0)
        return std::nullopt;
    return PageRank::kWarning;
}

std::string pageRow(const InputRecord& record)
{
    const InputReport& report = record.report;
    JsonWriter out;
    out.openObject();
    out.field("path", escaped(report.path));
    out.field("kind", nameOf(report.kind));
    out.field("verdict", record.crashed ? "crashed" : nameOf(report.verdict));
    out.field("cause", record.crashed ? "crashed" : nameOf(report.cause));
    out.field("hint", record.crashed ? "its check ended the process twice" : remedyOf(report));
    if (const std::string cause = causeText(report); !cause.empty())
        out.field("causeText", cause);
    if (record.change)
        out.field("change", nameOf(*record.change));
    out.field("bytes", report.size);
    out.field("announced", report.announcedDuration);
    out.field("duration", report.duration);
    out.field("until", report.playsUntil);
    writeLists(out, report);
    out.closeObject();

    // Nothing in a name can end the script element that the row stands in.
    std::string json;
    for (const char c : out.text())
        if (c == '<' || c == '>' || c == '&')
            json += c == '<' ? "\\u003c" : (c == '>' ? "\\u003e" : "\\u0026");
        else
            json += c;
    return json;
}

}  // namespace archive
