// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/reporttext.h"

#include <optional>
#include <sstream>

namespace krx::test {
namespace {

void put(std::ostream& out, const char* name, const std::optional<long long>& value)
{
    if (value)
        out << ' ' << name << ' ' << *value;
}

void put(std::ostream& out, const char* name, const std::string& value)
{
    if (!value.empty())
        out << ' ' << name << ' ' << value;
}

void putTrack(std::ostream& out, const vidlint::Track& track)
{
    out << "track " << track.id << ' ' << nameOf(track.kind) << (track.plays ? " plays" : "");
    put(out, "codec", track.codec);
    put(out, "as", track.rfc6381);
    put(out, "language", track.language);
    if (track.width != 0 || track.height != 0)
        out << ' ' << track.width << 'x' << track.height;
    if (track.sampleRate != 0)
        out << ' ' << track.sampleRate << " Hz " << track.channels;
    put(out, "samples", track.samples);
    put(out, "from", track.firstTime);
    put(out, "to", track.lastTime);
    put(out, "until", track.playsUntil);
    if (track.droppedBy)
        out << " dropped by " << track.droppedBy->number;
    out << '\n';
}

}  // namespace

std::string findingText(const vidlint::Finding& finding)
{
    const vidlint::Place& place = finding.place;
    std::ostringstream out;
    out << vidlint::nameOf(finding.level) << ' ' << finding.number << ' ' << finding.text << " ("
        << place.file << place.path;
    if (place.offset >= 0)
        out << " at " << place.offset;
    if (place.track != 0)
        out << " track " << place.track;
    if (place.sample != 0)
        out << " sample " << place.sample;
    if (place.message >= 0)
        out << " message " << place.message;
    if (place.time >= 0)
        out << ' ' << place.time << " ms";
    out << ')';
    if (finding.systemError != 0)
        out << " errno " << finding.systemError;
    return out.str();
}

std::string reportText(const vidlint::InputReport& report)
{
    std::ostringstream out;
    out << nameOf(report.kind) << ' ' << nameOf(report.verdict) << ' ' << nameOf(report.cause);
    put(out, "format", report.otherFormat);
    out << (report.unreadable ? " unreadable" : "") << (report.cancelled ? " cancelled" : "");
    put(out, "bytes", report.size);
    put(out, "announced", report.announcedDuration);
    put(out, "duration", report.duration);
    put(out, "until", report.playsUntil);
    put(out, "messages", report.messages);
    if (report.findingsOmitted != 0)
        out << " omitted " << report.findingsOmitted;
    out << '\n';
    for (const vidlint::Finding& finding : report.findings)
        out << findingText(finding) << '\n';
    for (const vidlint::Track& track : report.tracks)
        putTrack(out, track);
    for (const vidlint::Fix& fix : report.fixes)
        out << fix.description << " at " << fix.position << ": " << fix.replaceLength << " to " << fix.size
            << '\n';
    return out.str();
}

}  // namespace krx::test
