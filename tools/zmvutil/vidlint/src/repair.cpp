// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/streamparseerror.h"
#include "server/KRXSyncFileIo.h"
#include "server/watchedfileio.h"
#include "tools/zmvutil/vidlint/src/correctedcopy.h"
#include "tools/zmvutil/vidlint/src/inputfactory.h"
#include "tools/zmvutil/vidlint/src/reportcollector.h"
#include "tools/zmvutil/vidlint/src/zmvreader.h"
#include "vidlint/check.h"

#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

namespace vidlint {
namespace {

bool isSame(const InputReport& report, const struct stat64& status)
{
    const FileIdentity& identity = report.identity;
    return identity.device == status.st_dev && identity.inode == status.st_ino &&
           identity.modifiedSeconds == status.st_mtim.tv_sec &&
           identity.modifiedNanoseconds == status.st_mtim.tv_nsec && report.size == status.st_size;
}

std::vector<FileFix> toFileFixes(const std::vector<Fix>& fixes)
{
    std::vector<FileFix> result;
    result.reserve(fixes.size());
    for (const Fix& fix : fixes) {
        result.emplace_back(fix.position, fix.replaceLength, fix.size);
        result.back().write(fix.bytes.get(), fix.size);
    }
    return result;
}

}  // namespace

std::optional<Finding> repair(const InputReport& report, const std::string& target)
{
    if (report.kind != InputKind::kZmv || report.verdict != Verdict::kValid)
        throw std::invalid_argument("a repair needs the report of a ZMV file that passed");
    SimpleKrxSyncFileIo systemIo;
    WatchedFileIo io(systemIo, nullptr, {});
    InputReport outcome;
    ReportCollector sink(outcome, std::numeric_limits<std::size_t>::max(), io);
    const InputEnd end = runInput(sink, [&] {
        ZmvReader input(io, SRString::fromMultiByte(report.path));
        if (!isSame(report, input.status()))
            throw krx::streams::StreamParseError(krx::streams::kFileReadError);
        std::vector<FileFix> fixes = toFileFixes(report.fixes);
        CorrectedCopy copy(SRString::fromMultiByte(target), input);
        copy.splice(input, fixes);
    });
    if (end == InputEnd::kPassed)
        return std::nullopt;
    if (outcome.findings.empty())
        throw std::bad_alloc();
    return outcome.findings.front();
}

}  // namespace vidlint
