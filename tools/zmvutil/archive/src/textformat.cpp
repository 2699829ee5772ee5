// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/textformat.h"

#include "modules/streams/streamparseerror.h"
#include "tools/zmvutil/archive/src/textcolor.h"
#include "util/SRString.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <iterator>
#include <system_error>
#include <vector>

using vidlint::Cause;
using vidlint::Finding;
using vidlint::FindingLevel;
using vidlint::InputReport;

namespace archive {
namespace {

/// SRString decodes a byte that is no UTF-8 to this and the byte.
constexpr wchar_t kByteBase = 0xDC00;

constexpr bool isStrayByte(wchar_t c)
{
    return c >= kByteBase + 0x80 && c <= kByteBase + 0xFF;
}

/// Characters that a terminal or a browser obeys, or that make one text look like another.
bool isHidden(wchar_t c)
{
    struct Range
    {
        wchar_t first;
        wchar_t last;
    };
    static constexpr Range kRanges[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C},
                                        {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x206F},
                                        {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
    return std::any_of(std::begin(kRanges), std::end(kRanges),
                       [&](const Range& range) { return c >= range.first && c <= range.last; });
}

bool isPlainText(std::string_view bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c >= ' ' && c <= '~' && c != '\\'; });
}

void appendEscaped(fmt::memory_buffer& out, wchar_t c)
{
    const auto code = std::bit_cast<std::uint32_t>(c);
    const auto to = std::back_inserter(out);
    if (c == L'\\')
        fmt::format_to(to, "\\\\");
    else if (c == L'\n')
        fmt::format_to(to, "\\n");
    else if (c == L'\r')
        fmt::format_to(to, "\\r");
    else if (c == L'\t')
        fmt::format_to(to, "\\t");
    else if (isStrayByte(c))
        fmt::format_to(to, "\\x{:02x}", code & 0xFF);
    else if (code < 0x80)
        fmt::format_to(to, "\\x{:02x}", code);
    else if (code <= 0xFFFF)
        fmt::format_to(to, "\\u{:04x}", code);
    else
        fmt::format_to(to, "\\U{:08x}", code);
}

/// Whether a warning of that number says that the end of the input is missing.
bool saysCutShort(int number)
{
    using namespace krx::streams;
    return number == -kTruncatedFile || number == -kTruncatedBox || number == -kSegmentTruncatedMessage;
}

/// The finding that the cause of the report comes from; null when there is none.
const Finding* findingOfCause(const InputReport& report)
{
    if (report.cause == Cause::kNone)
        return nullptr;
    const auto last = [&](auto isIt) -> const Finding* {
        const auto found = std::find_if(report.findings.rbegin(), report.findings.rend(), isIt);
        return found == report.findings.rend() ? nullptr : &*found;
    };
    const Finding* const error =
        last([](const Finding& f) { return f.level == FindingLevel::kError && f.number != 0; });
    if (error || report.cause != Cause::kCutShort)
        return error;
    return last([](const Finding& f) { return saysCutShort(f.number); });
}

/// Whether a track is left out because of the finding.
bool dropsTrack(const InputReport& report, const Finding& finding)
{
    return std::any_of(report.tracks.begin(), report.tracks.end(), [&](const vidlint::Track& track) {
        return track.droppedBy && track.droppedBy->number == finding.number &&
               track.droppedBy->place.track == finding.place.track &&
               track.droppedBy->place.offset == finding.place.offset;
    });
}

/// "plays until X of Y", with what is known of it; empty without a time.
std::string untilText(std::optional<long long> until, std::optional<long long> end)
{
    if (!until)
        return {};
    if (end && *end > *until)
        return fmt::format("plays until {} of {}", timeText(*until), timeText(*end));
    return fmt::format("plays until {}", timeText(*until));
}

std::string lineOf(const std::string& path, const Finding& finding, const std::string& tail, bool color)
{
    const Tint tint = finding.level == FindingLevel::kError ? Tint::kError : Tint::kWarning;
    std::string line = path + ": " + tinted(vidlint::nameOf(finding.level), tint, color);
    if (finding.number != 0)
        line += fmt::format(" {}", finding.number);
    line += " " + escaped(finding.text);
    if (const std::string place = placeText(finding); !place.empty())
        line += " (" + place + ")";
    if (!tail.empty())
        line += " " + tinted(tail, Tint::kStrong, color);
    return line + "\n";
}

}  // namespace

std::string escaped(std::string_view bytes)
{
    if (isPlainText(bytes))
        return std::string(bytes);
    fmt::memory_buffer shown;
    const SRString decoded = SRString::fromMultiByte(bytes);
    for (const wchar_t c : decoded) {
        if (c == L'\\' || isHidden(c) || isStrayByte(c))
            appendEscaped(shown, c);
        else if (c < 0x80)
            shown.push_back(static_cast<char>(c));
        else
            fmt::format_to(std::back_inserter(shown), "{}", SRString(&c, 1).toMultiByte().view());
    }
    return fmt::to_string(shown);
}

std::string escapedStart(std::string_view bytes, std::size_t maxBytes)
{
    if (bytes.size() <= maxBytes)
        return escaped(bytes);
    // A character of UTF-8 is not cut: its bytes after the first are 0x80 to 0xBF.
    std::size_t end = maxBytes;
    while (end > 0 && maxBytes - end < 3 && (static_cast<unsigned char>(bytes[end]) & 0xC0) == 0x80)
        --end;
    return escaped(bytes.substr(0, end)) + "...";
}

bool isUtf8(std::string_view bytes)
{
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
        return true;
    const SRString decoded = SRString::fromMultiByte(bytes);
    return std::none_of(decoded.begin(), decoded.end(), isStrayByte);
}

std::string timeText(long long ms)
{
    const auto distance =
        ms < 0 ? 0ULL - static_cast<unsigned long long>(ms) : static_cast<unsigned long long>(ms);
    const char* const sign = ms < 0 ? "-" : "";
    const auto seconds = distance / 1000;
    if (seconds < 3600)
        return fmt::format("{}{}:{:02}.{:03}", sign, seconds / 60, seconds % 60, distance % 1000);
    return fmt::format("{}{}:{:02}:{:02}.{:03}", sign, seconds / 3600, seconds / 60 % 60, seconds % 60,
                       distance % 1000);
}

std::string placeText(const Finding& finding)
{
    const vidlint::Place& place = finding.place;
    std::vector<std::string> words;
    for (const std::string& name : {place.file, place.path})
        if (!name.empty())
            words.push_back(escaped(name));
    if (place.offset >= 0)
        words.push_back(fmt::format("at {}", place.offset));
    std::vector<std::string> parts;
    if (!words.empty())
        parts.push_back(fmt::format("{}", fmt::join(words, " ")));
    if (place.track != 0)
        parts.push_back(fmt::format("track {}", place.track));
    if (place.sample != 0)
        parts.push_back(fmt::format("sample {}", place.sample));
    if (place.message >= 0)
        parts.push_back(fmt::format("message {}", place.message));
    if (place.time >= 0)
        parts.push_back(timeText(place.time));
    if (finding.systemError != 0)
        parts.push_back(std::generic_category().message(finding.systemError));
    return fmt::format("{}", fmt::join(parts, ", "));
}

const char* remedyOf(Cause cause)
{
    switch (cause) {
        case Cause::kNone:
            return "";
        case Cause::kCutShort:
            return "fetch the rest";
        case Cause::kOtherFormat:
            return "rename or convert";
        case Cause::kEmpty:
            return "fetch it anew";
        case Cause::kDamaged:
            return "repair it or fetch it anew";
        case Cause::kUnsupported:
            return "convert it";
        case Cause::kUnreadable:
            return "look at the disk and the rights";
        case Cause::kResources:
            return "check it again with more memory";
    }
    return "";
}

const char* remedyOf(const InputReport& report)
{
    // A server's answer in the place of a file.
    if (report.cause == Cause::kOtherFormat && report.otherFormat == "HTML")
        return "fetch it anew";
    return remedyOf(report.cause);
}

std::string causeText(const InputReport& report)
{
    if (report.cause == Cause::kNone)
        return {};
    std::string text = nameOf(report.cause);
    std::string more;
    if (report.cause == Cause::kCutShort)
        more = untilText(report.playsUntil, std::max(report.duration, report.announcedDuration));
    else if (report.cause == Cause::kOtherFormat)
        more = escaped(report.otherFormat);
    return more.empty() ? text : text + ", " + more;
}

std::string codecText(const vidlint::Track& track)
{
    return escaped(track.rfc6381.empty() ? track.codec : track.rfc6381);
}

std::string trackText(const vidlint::Track& track)
{
    std::vector<std::string> parts;
    if (track.width != 0 && track.height != 0)
        parts.push_back(fmt::format("{}x{}", track.width, track.height));
    if (track.sampleRate != 0)
        parts.push_back(fmt::format("{:g} Hz", track.sampleRate));
    if (track.channels != 0)
        parts.push_back(fmt::format("{} channel{}", track.channels, track.channels == 1 ? "" : "s"));
    if (!track.language.empty() && track.language != "und")
        parts.push_back(escaped(track.language));
    if (track.samples)
        parts.push_back(fmt::format("{} sample{}", *track.samples, *track.samples == 1 ? "" : "s"));
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string playText(const vidlint::Track& track)
{
    if (!track.plays)
        return track.droppedBy ? "left out" : "does not play";
    const std::string text = untilText(track.playsUntil, track.lastTime);
    return text.empty() ? "plays" : text;
}

std::string linesOf(const InputRecord& record, bool color)
{
    const InputReport& report = record.report;
    const std::string path = escaped(report.path);
    if (record.crashed)
        return path + ": " + tinted("crashed", Tint::kStrong, color) + "\n";
    if (record.change == Change::kGone)
        return path + ": " + tinted(nameOf(Change::kGone), Tint::kStrong, color) + "\n";
    const Finding* const causeFinding = findingOfCause(report);
    std::string lines;
    for (const Finding& finding : report.findings) {
        std::string tail = &finding == causeFinding ? causeText(report) : std::string();
        if (dropsTrack(report, finding))
            tail += tail.empty() ? "dropped-track" : ", dropped-track";
        lines += lineOf(path, finding, tail, color);
    }
    if (report.findingsOmitted > 0)
        lines += path + fmt::format(": {} more warnings\n", report.findingsOmitted);
    if (report.cause != Cause::kNone && !causeFinding)
        lines += path + ": " + tinted(causeText(report), Tint::kStrong, color) + "\n";
    return lines;
}

}  // namespace archive
