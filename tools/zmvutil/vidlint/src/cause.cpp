// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/cause.h"

#include "modules/streams/streamparseerror.h"
#include "tools/zmvutil/vidlint/src/knownformats.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

using namespace krx::streams;
using vidlint::Cause;
using vidlint::InputKind;
using vidlint::InputReport;

namespace {

/// The status of the finding that ended the check; kSuccess for none.
ParseStatus lastError(const InputReport& report)
{
    const auto isNumbered = [](const Finding& finding) {
        return finding.level == FindingLevel::kError && finding.number != 0;
    };
    const auto found = std::find_if(report.findings.rbegin(), report.findings.rend(), isNumbered);
    return found == report.findings.rend() ? kSuccess : static_cast<ParseStatus>(-found->number);
}

/// A file that is missing in a recording leaves the recording readable.
bool isUnreadable(const InputReport& report, int systemError)
{
    const bool isMissing = systemError == ENOENT || systemError == ENOTDIR;
    return systemError != 0 &&
           !(isMissing && report.kind == InputKind::kRecording && lastError(report) != kFileNotFound);
}

bool isOtherFormat(const InputReport& report, std::string_view format)
{
    return !format.empty() && report.kind != InputKind::kRecording &&
           format != (report.kind == InputKind::kZmv ? "ZMV" : "MP4");
}

/// Whether a finding says that the end is missing.
bool saysCutShort(const InputReport& report, const CauseFacts& facts)
{
    const auto says = [](const Finding& finding) {
        return finding.number == -kTruncatedFile || finding.number == -kSegmentTruncatedMessage ||
               (finding.number == -kTruncatedBox && finding.level == FindingLevel::kWarning);
    };
    if (std::any_of(report.findings.begin(), report.findings.end(), says))
        return true;
    return report.kind == InputKind::kRecording && facts.systemError == ENOENT;
}

/// Whether nothing is wrong with the track itself.
bool isSoundTrack(const vidlint::Track& track)
{
    if (!track.droppedBy)
        return true;
    switch (-track.droppedBy->number) {
        case kUnsupportedSampleType:
        case kInvalidVideoCodec:
        case kInvalidAudioCodec:
        case kOneSampleTypePerTrack:
        case kDuplicateVideoTrack:
        case kDuplicateAudioTrack:
        case kDuplicateDataTrack:
            return true;
        default:
            return false;
    }
}

bool isUnsupported(const InputReport& report)
{
    switch (lastError(report)) {
        case kTooManyTracks:
        case kOneSampleTypePerTrack:
        case kUnsupportedDrmScheme:
        case kIndexVersionNotSupported:
            return true;
        case kNoValidTracks:
            return std::all_of(report.tracks.begin(), report.tracks.end(), isSoundTrack);
        default:
            return false;
    }
}

}  // namespace

void settleCause(InputReport& report, const CauseFacts& facts)
{
    const bool isCutShort = report.cause == Cause::kCutShort || saysCutShort(report, facts);
    if (facts.outOfMemory) {
        report.cause = Cause::kResources;
        return;
    }
    report.unreadable = isUnreadable(report, facts.systemError);
    const std::string_view format = vidlint::formatOf(facts.firstBytes);
    if (report.unreadable) {
        report.cause = Cause::kUnreadable;
    } else if (report.verdict == vidlint::Verdict::kValid) {
        report.cause = isCutShort ? Cause::kCutShort : Cause::kNone;
    } else if (lastError(report) == kCannotOpenFile) {
        report.cause = Cause::kUnsupported;  // no regular file, as no call has failed
    } else if (report.size == 0) {
        report.cause = Cause::kEmpty;
    } else if (isOtherFormat(report, format)) {
        report.cause = Cause::kOtherFormat;
        report.otherFormat = format;
    } else if (isCutShort) {
        report.cause = Cause::kCutShort;
    } else {
        report.cause = isUnsupported(report) ? Cause::kUnsupported : Cause::kDamaged;
    }
}
