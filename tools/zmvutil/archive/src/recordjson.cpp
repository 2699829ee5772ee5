// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/recordjson.h"

#include "tools/zmvutil/archive/src/jsonreader.h"
#include "tools/zmvutil/archive/src/jsonwriter.h"

#include <cmath>
#include <stdexcept>

using vidlint::Finding;
using vidlint::InputReport;
using vidlint::Track;

namespace archive {
namespace {

void writeFinding(JsonWriter& out, const Finding& finding)
{
    out.field("number", finding.number);
    out.field("level", vidlint::nameOf(finding.level));
    out.bytes("text", finding.text);
    const vidlint::Place& place = finding.place;
    if (!place.file.empty())
        out.bytes("file", place.file);
    if (place.offset >= 0)
        out.field("offset", place.offset);
    if (!place.path.empty())
        out.bytes("box", place.path);
    if (place.track != 0)
        out.field("track", place.track);
    if (place.sample != 0)
        out.field("sample", place.sample);
    if (place.message >= 0)
        out.field("message", place.message);
    if (place.time >= 0)
        out.field("time_ms", place.time);
    if (finding.systemError != 0)
        out.field("errno", finding.systemError);
}

void writeTrack(JsonWriter& out, const Track& track)
{
    const auto writeText = [&](std::string_view name, const std::string& text) {
        if (!text.empty())
            out.bytes(name, text);
    };
    const auto writeUnlessZero = [&](std::string_view name, auto number) {
        if (number != 0)
            out.field(name, number);
    };
    writeUnlessZero("id", track.id);
    out.field("kind", nameOf(track.kind));
    writeText("codec", track.codec);
    writeText("rfc6381", track.rfc6381);
    writeText("language", track.language);
    writeUnlessZero("width", track.width);
    writeUnlessZero("height", track.height);
    if (std::isfinite(track.sampleRate))
        writeUnlessZero("sample_rate", track.sampleRate);
    writeUnlessZero("channels", track.channels);
    out.field("samples", track.samples);
    out.field("first_ms", track.firstTime);
    out.field("last_ms", track.lastTime);
    out.field("plays", track.plays);
    out.field("plays_until_ms", track.playsUntil);
    if (track.droppedBy) {
        out.key("dropped_by");
        out.openObject();
        writeFinding(out, *track.droppedBy);
        out.closeObject();
    }
}

void writeFix(JsonWriter& out, const vidlint::Fix& fix)
{
    out.field("position", fix.position);
    out.field("replace", fix.replaceLength);
    out.field("size", fix.size);
    out.bytes("description", fix.description);
}

void writeIdentity(JsonWriter& out, const vidlint::FileIdentity& identity)
{
    if (identity.inode == 0 && identity.device == 0 && identity.modifiedSeconds == 0 &&
        identity.modifiedNanoseconds == 0)
        return;
    out.key("identity");
    out.openObject();
    out.field("device", identity.device);
    out.field("inode", identity.inode);
    out.field("modified_s", identity.modifiedSeconds);
    out.field("modified_ns", identity.modifiedNanoseconds);
    out.closeObject();
}

void writeReport(JsonWriter& out, const InputReport& report)
{
    if (report.cancelled)
        out.field("cancelled", true);
    else
        out.field("verdict", nameOf(report.verdict));
    out.field("unreadable", report.unreadable);
    out.field("cause", nameOf(report.cause));
    if (!report.otherFormat.empty())
        out.bytes("other_format", report.otherFormat);
    out.field("bytes", report.size);
    out.field("announced_duration_ms", report.announcedDuration);
    out.field("duration_ms", report.duration);
    out.field("plays_until_ms", report.playsUntil);
    out.field("messages", report.messages);
    out.list("tracks", report.tracks, [&](const Track& track) { writeTrack(out, track); });
    out.list("findings", report.findings, [&](const Finding& finding) { writeFinding(out, finding); });
    out.field("findings_omitted", report.findingsOmitted);
    if (!report.fixes.empty())
        out.list("fixes", report.fixes, [&](const vidlint::Fix& fix) { writeFix(out, fix); });
    writeIdentity(out, report.identity);
}

void writeResult(JsonWriter& out, const InputRecord& record)
{
    out.field("kind", nameOf(record.report.kind));
    if (record.crashed)
        out.field("crashed", true);
    else
        writeReport(out, record.report);
}

Finding findingOf(const JsonReader& in)
{
    Finding finding;
    finding.number = in.integer<int>("number").value_or(0);
    finding.level = in.name<vidlint::FindingLevel>("level");
    finding.text = in.bytes("text");
    vidlint::Place& place = finding.place;
    place.file = in.bytes("file");
    place.offset = in.integer<long long>("offset").value_or(place.offset);
    place.path = in.bytes("box");
    place.track = in.integer<unsigned>("track").value_or(place.track);
    place.sample = in.integer<long long>("sample").value_or(place.sample);
    place.message = in.integer<long long>("message").value_or(place.message);
    place.time = in.integer<long long>("time_ms").value_or(place.time);
    finding.systemError = in.integer<int>("errno").value_or(0);
    return finding;
}

Track trackOf(const JsonReader& in)
{
    Track track;
    track.id = in.integer<unsigned>("id").value_or(0);
    track.kind = in.name<vidlint::TrackKind>("kind");
    track.codec = in.bytes("codec");
    track.rfc6381 = in.bytes("rfc6381");
    track.language = in.bytes("language");
    track.width = in.integer<int>("width").value_or(0);
    track.height = in.integer<int>("height").value_or(0);
    track.sampleRate = in.real("sample_rate");
    track.channels = in.integer<unsigned>("channels").value_or(0);
    track.samples = in.integer<long long>("samples");
    track.firstTime = in.integer<long long>("first_ms");
    track.lastTime = in.integer<long long>("last_ms");
    track.plays = in.flag("plays");
    track.playsUntil = in.integer<long long>("plays_until_ms");
    if (const auto dropped = in.object("dropped_by"))
        track.droppedBy = findingOf(*dropped);
    return track;
}

vidlint::Fix fixOf(const JsonReader& in)
{
    vidlint::Fix fix;
    fix.position = in.integer<long long>("position").value_or(0);
    fix.replaceLength = in.integer<long long>("replace").value_or(0);
    fix.size = in.integer<unsigned>("size").value_or(0);
    fix.description = in.bytes("description");
    return fix;
}

void readReport(const JsonReader& in, InputReport& report)
{
    report.cancelled = in.flag("cancelled");
    if (!report.cancelled)
        report.verdict = in.name<vidlint::Verdict>("verdict");
    report.unreadable = in.flag("unreadable");
    report.cause = in.name<vidlint::Cause>("cause");
    report.otherFormat = in.bytes("other_format");
    report.size = in.integer<long long>("bytes");
    report.announcedDuration = in.integer<long long>("announced_duration_ms");
    report.duration = in.integer<long long>("duration_ms");
    report.playsUntil = in.integer<long long>("plays_until_ms");
    report.messages = in.integer<long long>("messages");
    in.forEach("tracks", [&](const JsonReader& item) { report.tracks.push_back(trackOf(item)); });
    in.forEach("findings", [&](const JsonReader& item) { report.findings.push_back(findingOf(item)); });
    report.findingsOmitted = in.integer<unsigned long long>("findings_omitted").value_or(0);
    in.forEach("fixes", [&](const JsonReader& item) { report.fixes.push_back(fixOf(item)); });
    if (const auto identity = in.object("identity")) {
        report.identity.device = identity->integer<std::uint64_t>("device").value_or(0);
        report.identity.inode = identity->integer<std::uint64_t>("inode").value_or(0);
        report.identity.modifiedSeconds = identity->integer<std::int64_t>("modified_s").value_or(0);
        report.identity.modifiedNanoseconds = identity->integer<std::int64_t>("modified_ns").value_or(0);
    }
}

}  // namespace

std::string toJson(const InputRecord& record)
{
    JsonWriter out;
    out.openObject();
    out.field("type", "input");
    out.bytes("path", record.report.path);
    out.bytes("root", record.root);
    out.bytes("name", record.name);
    if (record.change)
        out.field("change", nameOf(*record.change));
    writeResult(out, record);
    out.closeObject();
    return out.take();
}

std::string resultJson(const InputRecord& record)
{
    JsonWriter out;
    out.openObject();
    out.field("type", "input");
    writeResult(out, record);
    out.closeObject();
    return out.take();
}

InputRecord fromJson(std::string_view line)
{
    const JsonReader in(line);
    if (in.bytes("type") != "input")
        throw std::runtime_error("A record is not that of an input.");
    InputRecord record;
    record.report.path = in.bytes("path");
    record.root = in.bytes("root");
    record.name = in.bytes("name");
    record.report.kind = in.name<vidlint::InputKind>("kind");
    if (in.has("change"))
        record.change = in.name<Change>("change");
    record.crashed = in.flag("crashed");
    if (!record.crashed)
        readReport(in, record.report);
    return record;
}

}  // namespace archive
