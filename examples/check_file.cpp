// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks inputs and prints what was found, as people read it:
//
//     check_file INPUT...
//
// The exit status is the number of inputs that are invalid or cut short, at most 255.

#include "printable.h"

#include <vidlint/check.h>

#include <algorithm>
#include <cstdio>

namespace {

void print(const char* label, const vidlint::Finding& finding)
{
    const vidlint::Place& place = finding.place;
    std::printf("  %s %d %s", label, finding.number, printable(finding.text).c_str());
    for (const std::string& where : {place.file, place.path})
        std::printf("%s%s", where.empty() ? "" : " in ", printable(where).c_str());
    if (place.offset >= 0)
        std::printf(" at byte %lld", place.offset);
    if (place.track != 0)
        std::printf(", track %u", place.track);
    if (place.time >= 0)
        std::printf(", %lld ms", place.time);
    std::puts("");
}

void print(const vidlint::Track& track)
{
    const std::string& codec = track.rfc6381.empty() ? track.codec : track.rfc6381;
    std::printf("  track %u: %s, ", track.id, nameOf(track.kind));
    if (!codec.empty())
        std::printf("%s, ", printable(codec).c_str());
    if (track.plays && track.playsUntil)
        std::printf("plays until %lld of %lld ms\n", *track.playsUntil, track.lastTime.value_or(0));
    else
        std::puts(track.plays ? "plays" : "does not play");
    if (track.droppedBy)
        print("because of", *track.droppedBy);
}

}  // namespace

int main(int argc, char** argv)
{
    int bad = 0;
    for (int i = 1; i < argc; ++i) {
        const vidlint::InputReport report = vidlint::check(argv[i]);
        std::printf("%s: %s, %s\n", printable(argv[i]).c_str(), nameOf(report.verdict), nameOf(report.cause));
        for (const vidlint::Finding& finding : report.findings)
            print(vidlint::nameOf(finding.level), finding);
        for (const vidlint::Track& track : report.tracks)
            print(track);
        bad += report.verdict == vidlint::Verdict::kValid && report.cause == vidlint::Cause::kNone ? 0 : 1;
    }
    return std::min(bad, 255);
}
