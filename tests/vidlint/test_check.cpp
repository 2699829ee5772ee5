// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/streamparseerror.h"
#include "tests/support/failingallocations.h"
#include "tests/support/mp4samples.h"
#include "tests/support/propertysettings.h"
#include "tests/support/rawsamples.h"
#include "tests/support/reporttext.h"
#include "tests/support/zmvbuilder.h"
#include "tests/support/zmvsamples.h"
#include "tests/vidlint/inputrunner.h"
#include "tests/vidlint/sampleinputs.h"
#include "util/SRFileUtil.h"
#include "vidlint/check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <memory>
#include <new>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace krx::test {
namespace {

namespace fs = std::filesystem;
using vidlint::Cause;
using vidlint::InputReport;
using vidlint::Settings;
using vidlint::Verdict;

/// Errors and, where vidlint shows them, warnings: a line each as in its report.
std::string numbersOf(const InputReport& report)
{
    std::string lines;
    for (const vidlint::Finding& finding : report.findings) {
        const bool isError = finding.level == vidlint::FindingLevel::kError;
        if (finding.number != 0 && (isError || report.kind != vidlint::InputKind::kMp4))
            lines += (isError ? "\tError:\t" : "Warning:\t") + std::to_string(finding.number) + "\t" +
                     finding.text + "\n";
    }
    return lines;
}

/// The same from the report of the program, and whether the input passed.
std::string numbersInReport(const std::string& path, std::string_view options, bool& passed)
{
    ReportCapture capture;
    VideoValidationJob job(capture.writer());
    job.parameters = parametersFor(options);
    job.files = {path};
    passed = job.validateAllFiles() == 0;
    static const std::regex line("(?:TIME)?(\tError:|Warning:)(\t-\\d+\t[^\t\n]*)\t[^\n]*\n");
    return [&, text = capture.text()] {
        std::string lines;
        for (std::sregex_iterator it(text.begin(), text.end(), line), end; it != end; ++it)
            lines += it->str(1) + it->str(2) + "\n";
        return lines;
    }();
}

TEST(Check, SaysWhatTheProgramSays)
{
    SampleInputs samples;
    samples.damage(static_cast<unsigned>(propertyCases(800)));
    for (const std::string& path : samples.paths) {
        const bool strict = path.find('5') != std::string::npos;
        Settings settings;
        settings.warningsAsErrors = strict;
        const InputReport report = vidlint::check(path, settings);
        bool passed = false;
        const std::string expected = numbersInReport(path, strict ? "wW" : "w", passed);
        // The library writes no copy, so none can fail.
        if (expected.find("\tError:\t-6\t") != std::string::npos)
            continue;
        EXPECT_EQ(numbersOf(report), expected) << path;
        EXPECT_EQ(report.verdict == Verdict::kValid, passed) << path;
        EXPECT_TRUE(passed || report.cause != Cause::kNone) << path;
        fs::remove_all(path + ".new");
    }
}

TEST(Check, EightThreadsFindWhatOneFinds)
{
    SampleInputs samples;
    samples.damage(200);
    Settings settings;
    settings.fixMetaData = settings.fixVideoStall = true;
    std::vector<std::string> expected;
    for (const std::string& path : samples.paths)
        expected.push_back(reportText(vidlint::check(path, settings)));
    std::vector<std::string> found[8];
    {
        std::vector<std::jthread> threads;
        for (auto& mine : found) {
            threads.emplace_back([&] {
                for (const std::string& path : samples.paths)
                    mine.push_back(reportText(vidlint::check(path, settings)));
            });
        }
    }
    for (const auto& mine : found)
        EXPECT_EQ(mine, expected);
}

/// What has no place: a file that is not there, or what is missing stands nowhere.
bool hasNoOffset(const vidlint::Finding& finding)
{
    switch (-finding.number) {
        case streams::kCannotOpenFile:
        case streams::kNoMovieBox:
        case streams::kNoValidTracks:
        case streams::kMissingMetadata:
            return true;
        case streams::kUnparsableDataMessage:
            return finding.place.file == "contexts";
        default:
            return finding.systemError != 0;
    }
}

TEST(Check, FindingsHaveTheirPlace)
{
    const SampleInputs samples;
    for (const std::string& path : samples.paths) {
        const InputReport report = vidlint::check(path);
        for (const vidlint::Finding& finding : report.findings) {
            if (finding.number == 0 || hasNoOffset(finding))
                continue;
            EXPECT_GE(finding.place.offset, 0) << path << ": " << findingText(finding);
            EXPECT_LE(finding.place.offset, report.size.value_or(0)) << path << ": " << findingText(finding);
            EXPECT_EQ(finding.place.file.empty(), report.kind != vidlint::InputKind::kRecording)
                << path << ": " << findingText(finding);
        }
    }
}

const std::string& sampleBytes(const std::string& name)
{
    static const std::vector<Mp4Sample> samples = mp4Samples();
    for (const Mp4Sample& sample : samples)
        if (sample.name == name)
            return sample.bytes;
    throw std::out_of_range(name);
}

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
        text.replace(at, from.size(), to);
    return text;
}

TEST(Check, NamesWhatToDo)
{
    const TempDir dir;
    const std::string movie = sampleBytes("sound.mp4");
    const std::string movieAtEnd = sampleBytes("sound-end.mp4");
    const std::string stream = ZmvBuilder().data(0, metaData(0.04)).video(0).audio(40).bytes();
    const struct
    {
        const char* name;
        std::string bytes;
        Verdict verdict;
        Cause cause;
        const char* format;
    } cases[] = {
        {"sound.mp4", movie, Verdict::kValid, Cause::kNone, ""},
        {"sound.zmv", stream, Verdict::kValid, Cause::kNone, ""},
        {"empty.mp4", "", Verdict::kInvalid, Cause::kEmpty, ""},
        {"empty.zmv", "", Verdict::kInvalid, Cause::kEmpty, ""},
        {"cut.mp4", movie.substr(0, movie.size() - 10), Verdict::kValid, Cause::kCutShort, ""},
        {"cut-in-movie.mp4", movie.substr(0, 100), Verdict::kInvalid, Cause::kCutShort, ""},
        {"cut-end.mp4", movieAtEnd.substr(0, movieAtEnd.size() / 2), Verdict::kInvalid, Cause::kCutShort, ""},
        {"cut.zmv", stream.substr(0, stream.size() - 3), Verdict::kInvalid, Cause::kCutShort, ""},
        {"page.mp4", "<!DOCTYPE html>\n<html><head><title>404</title></head></html>", Verdict::kInvalid,
         Cause::kOtherFormat, "HTML"},
        {"film.mp4", std::string("\x1A\x45\xDF\xA3\x93\x42\x82\x88matroska", 16) + std::string(200, '\0'),
         Verdict::kInvalid, Cause::kOtherFormat, "Matroska"},
        {"zmv.mp4", stream, Verdict::kInvalid, Cause::kOtherFormat, "ZMV"},
        {"movie.zmv", movie, Verdict::kInvalid, Cause::kOtherFormat, "MP4"},
        {"codec.mp4", replaced(replaced(movie, "avc1", "hev1"), "mp4a", "alac"), Verdict::kInvalid,
         Cause::kUnsupported, ""},
        {"order.mp4", sampleBytes("faults/30-order.mp4"), Verdict::kInvalid, Cause::kDamaged, ""},
        {"stub.zmv", stream.substr(0, 10), Verdict::kInvalid, Cause::kCutShort, ""},
        {"bytes.zmv", "\x01\x02", Verdict::kInvalid, Cause::kDamaged, ""},
        {"image.mp4", replaced(replaced(movie, "avc1", "png "), "mp4a", "alac"), Verdict::kInvalid,
         Cause::kUnsupported, ""},
        {"noise.zmv", stream.substr(0, 13) + std::string(100, '\x7F'), Verdict::kInvalid, Cause::kDamaged,
         ""},
    };
    for (const auto& c : cases) {
        dir.write(c.name, c.bytes);
        const InputReport report = vidlint::check(dir.bytes(c.name));
        EXPECT_EQ(nameOf(report.verdict), nameOf(c.verdict)) << reportText(report);
        EXPECT_STREQ(nameOf(report.cause), nameOf(c.cause)) << c.name << ": " << reportText(report);
        EXPECT_EQ(report.otherFormat, c.format) << c.name;
    }
    EXPECT_EQ(vidlint::check("/dev/null").cause, Cause::kUnsupported);
    const InputReport missing = vidlint::check(dir.bytes("missing.mp4"));
    EXPECT_EQ(missing.cause, Cause::kUnreadable);
    ASSERT_EQ(missing.findings.size(), 1U);
    EXPECT_EQ(findingText(missing.findings[0]),
              "error -3 File not found. () errno " + std::to_string(ENOENT));
}

TEST(Check, SaysUntilWhenAStreamPlays)
{
    const TempDir dir;
    const std::string bytes =
        ZmvBuilder().data(0, metaData(2)).video(0).audio(0).video(1000).audio(1500).video(2000).bytes();
    const struct
    {
        std::size_t size;
        const char* report;
    } cases[] = {
        {bytes.size(), "until 1500"},
        {bytes.size() - 1, "until 1000"},
        {bytes.size() - 40, "until 0"},
    };
    for (const auto& c : cases) {
        dir.write("in.zmv", std::string_view(bytes).substr(0, c.size));
        const std::string text = reportText(vidlint::check(dir.bytes("in.zmv")));
        EXPECT_NE(text.substr(0, text.find('\n')).find(c.report), std::string::npos) << c.size << text;
    }

    // The payload of the message at 1000 ms has not arrived: a hole, though all headers are there.
    constexpr std::size_t kPayload = 1 << 20;
    const auto large = [](unsigned time) {
        return ZmvBuilder::Message{ZmvBuilder::kVideo, time, std::string(kPayload, '\x17')};
    };
    const std::string sound =
        ZmvBuilder().data(0, metaData(2)).message(large(0)).message(large(1000)).message(large(2000)).bytes();
    dir.write("holes.zmv", sound);
    EXPECT_EQ(vidlint::check(dir.bytes("holes.zmv")).cause, Cause::kNone);
    const util::SRAutoFile file(::open(dir.bytes("holes.zmv").c_str(), O_WRONLY));
    if (::fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, kPayload + kPayload / 4,
                    kPayload / 2) != 0)
        return;  // the file system has no holes
    const InputReport report = vidlint::check(dir.bytes("holes.zmv"));
    EXPECT_EQ(report.verdict, Verdict::kValid);
    EXPECT_EQ(report.cause, Cause::kCutShort);
    EXPECT_EQ(report.playsUntil, 0) << reportText(report);
    EXPECT_EQ(report.duration, 2000);
}

TEST(Check, KeepsToItsLimits)
{
    const TempDir dir;
    constexpr unsigned kBoxes = 20000;
    std::string boxes = sampleBytes("sound.mp4");
    for (unsigned i = 0; i < kBoxes; ++i)
        boxes += std::string("\0\0\0\x08none", 8);
    dir.write("warnings.mp4", boxes);
    Settings settings;
    settings.maxFindings = 100;
    const InputReport report = vidlint::check(dir.bytes("warnings.mp4"), settings);
    EXPECT_EQ(report.findings.size(), 100U);
    EXPECT_EQ(report.findingsOmitted, kBoxes - 100);

    dir.write("movie.mp4", sampleBytes("sound.mp4"));
    Settings small;
    small.memory = std::make_shared<vidlint::MemoryQuota>(1);
    EXPECT_EQ(vidlint::check(dir.bytes("movie.mp4"), small).cause, Cause::kResources);
    EXPECT_EQ(small.memory->used(), 0U);

    std::atomic<bool> cancel{true};
    Settings cancelled;
    cancelled.cancel = &cancel;
    EXPECT_TRUE(vidlint::check(dir.bytes("movie.mp4"), cancelled).cancelled);
    cancel = false;
    EXPECT_FALSE(vidlint::check(dir.bytes("movie.mp4"), cancelled).cancelled);

    long long last = 0;
    long long total = 0;
    Settings watched;
    watched.progress = [&](long long done, long long all) {
        EXPECT_GE(done, last);
        EXPECT_LE(done, all);
        last = done;
        total = all;
    };
    (void)vidlint::check(dir.bytes("movie.mp4"), watched);
    EXPECT_EQ(last, total);
    EXPECT_EQ(total, static_cast<long long>(sampleBytes("sound.mp4").size()));
}

TEST(Check, SurvivesWithoutMemory)
{
    const SampleInputs samples;
    for (const char* const name : {"/sound.zmv", "/fragments.mp4", "/recording", "/faults/18-cut.mp4"}) {
        const std::string path = samples.dir.path() + name;
        const std::string sound = reportText(vidlint::check(path));
        InputReport report;
        withEachAllocationFailing(
            [&] {
                report = InputReport();
                try {
                    report = vidlint::check(path);
                } catch (const std::bad_alloc&) {
                    report.cause = Cause::kResources;
                }
            },
            [&](unsigned failed) {
                EXPECT_TRUE(reportText(report) == sound ||
                            (failed != 0 && (report.cause == Cause::kResources ||
                                             report.verdict == Verdict::kInvalid || !report.size)))
                    << name << ", allocation " << failed << ": " << reportText(report);
            });
    }
}

TEST(Check, TakesTheSettingsOfTheServer)
{
    Settings settings;
    EXPECT_THROW(settings.set("Mp4/Playback/Unknown", "1"), std::invalid_argument);
    EXPECT_THROW(settings.set("Mp4/Playback/MaxTracks", "many"), std::invalid_argument);
    settings.set("Mp4/Playback/MaxTracks", "0");
    const TempDir dir;
    dir.write("movie.mp4", sampleBytes("sound.mp4"));
    EXPECT_EQ(vidlint::check(dir.bytes("movie.mp4")).verdict, Verdict::kValid);
    EXPECT_EQ(vidlint::check(dir.bytes("movie.mp4"), settings).verdict, Verdict::kInvalid);
}

TEST(Check, ARepairIsThatOfTheProgram)
{
    const TempDir dir;
    ZmvGenerator generator(propertySeed());
    unsigned copies = 0;
    for (unsigned i = 0; i < 300; ++i) {
        dir.write("in.zmv", generator.file());
        ReportCapture capture;
        VideoValidationJob job(capture.writer());
        job.parameters = parametersFor("ms");
        job.files = {dir.bytes("in.zmv")};
        const bool passed = job.validateAllFiles() == 0;
        Settings settings;
        settings.fixMetaData = settings.fixVideoStall = true;
        const InputReport report = vidlint::check(dir.bytes("in.zmv"), settings);
        ASSERT_EQ(report.verdict == Verdict::kValid, passed);
        EXPECT_EQ(!report.fixes.empty(), fs::exists(dir.bytes("in.zmv.new"))) << reportText(report);
        if (report.fixes.empty())
            continue;
        ++copies;
        EXPECT_FALSE(vidlint::repair(report, dir.bytes("mine")));
        EXPECT_EQ(dir.read("mine"), dir.read("in.zmv.new"));
        fs::remove(dir.bytes("in.zmv.new"));
        fs::remove(dir.bytes("mine"));
        const auto refused = vidlint::repair(report, dir.bytes("in.zmv"));
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->number, -streams::kCannotCreateFile);
        dir.write("in.zmv", "another file");
        ASSERT_TRUE(vidlint::repair(report, dir.bytes("mine")));
    }
    EXPECT_GT(copies, 20U);
}

}  // namespace
}  // namespace krx::test
