// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/summary.h"

#include "tools/zmvutil/archive/src/base64.h"
#include "tools/zmvutil/archive/src/jsonwriter.h"
#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/state.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <algorithm>
#include <set>

namespace archive {
namespace {

void writeCauses(JsonWriter& out, const Summary& summary)
{
    out.key("causes");
    out.openObject();
    for (std::size_t i = 0; i < kCauses; ++i)
        if (summary.byCause[i] > 0)
            out.field(nameOf(static_cast<vidlint::Cause>(i)), summary.byCause[i]);
    out.closeObject();
}

void writeNumbers(JsonWriter& out, const Summary& summary)
{
    out.key("numbers");
    out.openObject();
    for (const auto& [number, inputs] : summary.byNumber)
        out.field(std::to_string(number), inputs);
    out.closeObject();
}

void writeChanges(JsonWriter& out, const Summary& summary)
{
    if (!summary.hasChanges)
        return;
    out.key("changes");
    out.openObject();
    for (std::size_t i = 0; i < summary.byChange.size(); ++i)
        out.field(nameOf(static_cast<Change>(i)), summary.byChange[i]);
    out.closeObject();
}

void writeSkipped(JsonWriter& out, const Summary& summary)
{
    if (!summary.search && !summary.changing)
        return;
    out.key("skipped");
    out.openObject();
    if (summary.search) {
        out.field("excluded", summary.search->excluded);
        out.field("young", summary.search->young);
        out.field("other_shards", summary.search->otherShards);
        out.field("repeated", summary.search->repeated);
        out.field("unreadable_folders", summary.search->unreadable);
    }
    out.field("changing", summary.changing);
    out.closeObject();
}

/// The labels, and their bytes where one of them is no UTF-8.
void writeRoots(JsonWriter& out, const std::vector<std::string>& roots)
{
    const auto write = [&](const char* name, auto textOf) {
        out.key(name);
        out.openList();
        for (const std::string& root : roots)
            out.value(textOf(root));
        out.closeList();
    };
    write("roots", [](const std::string& root) { return std::string_view(root); });
    if (!std::all_of(roots.begin(), roots.end(), isUtf8))
        write("roots_base64", [](const std::string& root) { return toBase64(root); });
}

}  // namespace

bool hasDroppedTrack(const vidlint::InputReport& report)
{
    return std::any_of(report.tracks.begin(), report.tracks.end(),
                       [](const vidlint::Track& track) { return track.droppedBy.has_value(); });
}

void Summary::add(const InputRecord& record)
{
    if (record.change) {
        hasChanges = true;
        ++byChange[static_cast<std::size_t>(*record.change)];
        if (*record.change == Change::kGone)
            return;
    }
    const vidlint::InputReport& report = record.report;
    ++inputs;
    bytes += static_cast<std::uint64_t>(std::max(report.size.value_or(0), 0LL));
    if (record.crashed) {
        ++crashed;
        return;
    }
    ++(report.verdict == vidlint::Verdict::kValid ? valid : invalid);
    ++byCause[static_cast<std::size_t>(report.cause)];
    unreadable += report.unreadable ? 1 : 0;
    droppedTrack += hasDroppedTrack(report) ? 1 : 0;
    std::set<int> numbers;
    for (const vidlint::Finding& finding : report.findings)
        if (finding.number != 0 && numbers.insert(finding.number).second)
            ++byNumber[finding.number];
}

std::string runJson(const RunInfo& run, std::string_view version)
{
    JsonWriter out;
    out.openObject();
    out.field("type", "run");
    out.field("schema", kRecordSchema);
    out.field("version", version);
    out.bytes("settings", run.settings);
    out.field("revision", run.revision);
    out.field("shard", run.shard);
    out.field("shards", run.shards);
    out.field("started_s", run.startedAt);
    out.field("ended_s", run.endedAt);
    writeRoots(out, run.roots);
    out.closeObject();
    return out.take();
}

std::string summaryJson(const Summary& summary)
{
    JsonWriter out;
    out.openObject();
    out.field("type", "summary");
    out.field("complete", summary.complete);
    out.field("inputs", summary.inputs);
    out.field("valid", summary.valid);
    out.field("invalid", summary.invalid);
    out.field("crashed", summary.crashed);
    out.field("unreadable", summary.unreadable);
    out.field("dropped_track", summary.droppedTrack);
    out.field("failed", summary.failed);
    out.field("bytes", summary.bytes);
    writeCauses(out, summary);
    writeNumbers(out, summary);
    writeChanges(out, summary);
    writeSkipped(out, summary);
    out.closeObject();
    return out.take();
}

}  // namespace archive
