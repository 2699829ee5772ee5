// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Checks an input with all settings of the library. The first byte chooses the kind and the settings, the
// rest is the file; of a recording, index, contexts and one segment, each after its length of 2 bytes.

#include "fuzz/fuzzing.h"
#include "tests/support/reporttext.h"
#include "tests/support/tempdir.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"
#include "util/bigendian.h"
#include "vidlint/check.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>

namespace {

namespace fs = std::filesystem;
using krx::test::TempDir;
using vidlint::InputReport;
using vidlint::Settings;
using vidlint::Verdict;

constexpr unsigned kKinds = 3;
constexpr const char* kSegment = "0000000000000000";

/// Writes the input of that kind and returns its path.
std::string writeInput(const TempDir& dir, unsigned kind, std::string_view bytes)
{
    static constexpr const char* kNames[kKinds] = {"in.mp4", "in.zmv", "in"};
    const char* const name = kNames[kind];
    if (kind < 2) {
        dir.write(name, bytes);
        return dir.bytes(name);
    }
    dir.makeDir(name);
    for (const char* const file : {"index", "contexts", kSegment}) {
        std::size_t size = bytes.size();
        if (size >= 2) {
            const auto* const length = reinterpret_cast<const unsigned char*>(bytes.data());
            size = std::min<std::size_t>(krx::util::loadBigEndian<unsigned short>(length), size - 2);
            bytes.remove_prefix(2);
        }
        dir.write(std::string(name) + '/' + file, bytes.substr(0, size));
        bytes.remove_prefix(size);
    }
    return dir.bytes(name);
}

Settings settingsOf(unsigned choice)
{
    Settings settings;
    settings.warningsAsErrors = (choice & 1) != 0;
    settings.fixMetaData = (choice & 2) != 0;
    settings.fixVideoStall = (choice & 4) != 0;
    settings.durationMargin = choice >> 3 & 3;
    settings.maxFindings = (choice & 32) != 0 ? 2 : 1000;
    if ((choice & 64) != 0) {
        settings.set("Mp4/Playback/AllowAnyAVCProfile", "true");
        settings.set("Mp4/Playback/AllowAnyAACProfile", "true");
        settings.set("Mp4/Playback/MaxSampleSize", "100000");
    }
    return settings;
}

/// The same for the program; it writes no copy, since its repair is of no interest here.
bool passesInProgram(const std::string& path, const Settings& settings)
{
    ReportWriter nobody([](std::string_view) { return true; });
    VideoValidationJob job(nobody);
    job.parameters.warningsAsErrors = settings.warningsAsErrors;
    job.parameters.fixMetaData = settings.fixMetaData;
    job.parameters.fixVideoStall = settings.fixVideoStall;
    job.parameters.durationMargin = settings.durationMargin;
    job.files = {path};
    return job.validateAllFiles() == 0;
}

void checkTimes(const InputReport& report)
{
    for (const vidlint::Track& track : report.tracks) {
        require(!track.playsUntil || (track.plays && *track.playsUntil >= 0));
        require(!track.droppedBy || !track.plays);
        require(!track.playsUntil || !track.lastTime || *track.playsUntil <= *track.lastTime);
    }
    require(!report.otherFormat.empty() == (report.cause == vidlint::Cause::kOtherFormat));
    require(report.verdict == Verdict::kValid || report.cause != vidlint::Cause::kNone);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TempDir dir;
    if (size == 0)
        return 0;
    const std::string path =
        writeInput(dir, data[0] % kKinds, {reinterpret_cast<const char*>(data) + 1, size - 1});
    const unsigned choice = data[0] / kKinds;
    Settings settings = settingsOf(choice);
    const InputReport report = vidlint::check(path, settings);
    checkTimes(report);
    require(report.findings.size() <= settings.maxFindings + 2);
    if (settings.serverSettings().empty())
        require((report.verdict == Verdict::kValid) == passesInProgram(path, settings));
    fs::remove(path + ".new");

    const std::string text = krx::test::reportText(report);
    if (krx::test::reportText(vidlint::check(path, settings)) != text) {
        std::cerr << text;
        require(false);
    }
    settings.memory = std::make_shared<vidlint::MemoryQuota>(size * 4);
    (void)vidlint::check(path, settings);
    require(settings.memory->used() == 0);

    if (report.verdict == Verdict::kValid && !report.fixes.empty()) {
        const std::string copy = dir.bytes("copy.zmv");
        require(!vidlint::repair(report, copy));
        require(vidlint::check(copy).verdict == Verdict::kValid);
        fs::remove(copy);
    }
    fs::remove_all(path);
    return 0;
}
