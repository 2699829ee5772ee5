// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks inputs and prints what was found, as people read it:
//
//     check_file FILE...
//
// The exit status is the number of inputs that are invalid or cut short, at most 255.

#include <algorithm>
#include <cstdio>
#include <vidlint/check.h>

namespace {

void print(const char* label, const vidlint::Finding& finding)
{
    std::printf("  %s %d %s", label, finding.number, finding.text.c_str());
    const vidlint::Place& place = finding.place;
    if (!place.file.empty())
        std::printf(" in %s", place.file.c_str());
    if (!place.path.empty())
        std::printf(" in %s", place.path.c_str());
    if (place.offset >= 0)
        std::printf(" at %lld", place.offset);
    if (place.track != 0)
        std::printf(", track %u", place.track);
    if (place.time >= 0)
        std::printf(", %lld ms", place.time);
    std::printf("\n");
}

void print(const vidlint::Track& track)
{
    const std::string& codec = track.rfc6381.empty() ? track.codec : track.rfc6381;
    std::printf("  track %u: %s %s", track.id, vidlint::nameOf(track.kind), codec.c_str());
    if (track.width != 0)
        std::printf(" %dx%d", track.width, track.height);
    if (track.samples)
        std::printf(", %lld samples", *track.samples);
    if (track.playsUntil)
        std::printf(", plays until %lld ms", *track.playsUntil);
    std::printf("%s\n", track.plays ? "" : ", does not play");
    if (track.droppedBy)
        print("  because of", *track.droppedBy);
}

bool isGood(const vidlint::InputReport& report)
{
    return report.verdict == vidlint::Verdict::kValid && report.cause == vidlint::Cause::kNone;
}

}  // namespace

int main(int argc, char** argv)
{
    int bad = 0;
    for (int i = 1; i < argc; ++i) {
        const vidlint::InputReport report = vidlint::check(argv[i]);
        std::printf("%s: %s, %s\n", argv[i], vidlint::nameOf(report.verdict), vidlint::nameOf(report.cause));
        for (const vidlint::Finding& finding : report.findings)
            print(vidlint::nameOf(finding.level), finding);
        for (const vidlint::Track& track : report.tracks)
            print(track);
        bad += isGood(report) ? 0 : 1;
    }
    return std::min(bad, 255);
}
