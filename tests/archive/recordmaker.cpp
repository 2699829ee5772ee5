// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/recordmaker.h"

#include <fmt/format.h>
#include <iterator>

using namespace vidlint;

namespace archive {

std::string RecordMaker::name()
{
    static constexpr const char* kNames[] = {
        "</script><script>alert(1)</script>",
        "<img src=x onerror=alert(1)>",
        "\" onmouseover=\"alert(1)",
        "&lt;b&gt;'",
        "=HYPERLINK(\"x\")",
        "@sum, with; \"quotes\"",
        "two\nlines\r\n",
        "\x1b[31mred\x07\x7f",
        "\u202egpj.4pm",
        "caf\xe9 \xff\xc0\xaf",
        "\xe6\x98\xa0\xe5\x83\x8f \xf0\x9f\x8e\xac",
        "back\\slash",
    };
    const std::string word = below(4) > 0 ? "clip" : kNames[below(std::size(kNames))];
    return fmt::format("archive/{}/{}-{}.mp4", 2000 + below(26), word, below(100'000));
}

std::optional<long long> RecordMaker::maybe(std::uint64_t n)
{
    return oneIn(4) ? std::nullopt : std::optional(static_cast<long long>(below(n)));
}

Finding RecordMaker::finding()
{
    static constexpr int kNumbers[] = {0, -9, -18, -28, -100, -102, -107, -110, -117, -123, -999};
    Finding made;
    made.number = kNumbers[below(std::size(kNumbers))];
    made.level = static_cast<FindingLevel>(below(3));
    made.text = oneIn(4) ? "Segment file " + name() : "Truncated box.";
    made.place.offset = maybe(1ULL << 62).value_or(-1);
    made.place.path = oneIn(2) ? "moov/trak[2]/mdia/minf/stbl/stsz" : "";
    made.place.track = static_cast<unsigned>(below(3));
    made.place.file = oneIn(5) ? name() : "";
    made.place.sample = maybe(1000).value_or(0);
    made.place.message = maybe(1000).value_or(-1);
    made.place.time = maybe(600'000).value_or(-1);
    made.systemError = oneIn(9) ? 5 : 0;
    return made;
}

Track RecordMaker::track(long long end)
{
    Track made;
    made.id = static_cast<unsigned>(below(5));
    made.kind = static_cast<TrackKind>(below(5));
    made.codec = oneIn(9) ? "\xa9"
                            "xyz"
                          : "avc1";
    made.rfc6381 = oneIn(3) ? "" : "avc1.64001F";
    made.language = oneIn(2) ? "" : "deu";
    made.width = static_cast<int>(below(2) * 1920);
    made.height = static_cast<int>(below(2) * 1080);
    made.sampleRate = oneIn(2) ? 0 : 1.0 / static_cast<double>(1 + below(100));
    made.channels = static_cast<unsigned>(below(3));
    made.samples = maybe(1ULL << 40);
    made.firstTime = oneIn(3) ? 0 : static_cast<long long>(below(60'000));
    made.lastTime = end;
    made.plays = !oneIn(4);
    if (made.plays)
        made.playsUntil = oneIn(2) ? end : static_cast<long long>(below(static_cast<std::uint64_t>(end)));
    else if (oneIn(2))
        made.droppedBy = finding();
    return made;
}

InputRecord RecordMaker::record()
{
    InputRecord made;
    made.root = oneIn(9) ? name() : "archive";
    made.name = name();
    made.crashed = oneIn(50);
    if (oneIn(2))
        made.change = static_cast<Change>(below(4));
    InputReport& report = made.report;
    report.path = name();
    report.kind = static_cast<InputKind>(below(3));
    if (made.crashed)
        return made;
    report.cancelled = oneIn(50);
    report.verdict = report.cancelled ? Verdict::kInvalid : static_cast<Verdict>(below(2));
    report.cause = static_cast<Cause>(below(8));
    report.otherFormat = report.cause == Cause::kOtherFormat ? "Matroska" : "";
    report.unreadable = report.cause == Cause::kUnreadable;
    report.size = maybe(1ULL << 40);
    report.announcedDuration = maybe(3'600'000);
    report.duration = maybe(3'600'000);
    report.playsUntil = maybe(3'600'000);
    report.messages = maybe(1ULL << 62);
    report.findingsOmitted = oneIn(9) ? below(~0ULL) : 0;
    for (auto i = below(4); i > 0; --i)
        report.findings.push_back(finding());
    for (auto i = below(4); i > 0; --i)
        report.tracks.push_back(track(1 + static_cast<long long>(below(3'600'000))));
    if (oneIn(9))
        report.fixes.push_back(
            {static_cast<long long>(below(1ULL << 62)), 7, nullptr, 9, "replace " + name()});
    report.identity = {below(9), m_random(), static_cast<std::int64_t>(m_random()), -1};
    return made;
}

}  // namespace archive
