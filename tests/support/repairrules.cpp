// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/repairrules.h"

#include "modules/streams/streamparseerror.h"
#include "server/SRDataParser.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"

#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace krx::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kQuietPlace = "quiet";
constexpr const char* kTracedPlace = "traced";
constexpr const char* kTraceFile = "logs/cmdParsingLog.log";

/// The number of the line that rejects an input, which is the last one of its report.
int rejection(std::string_view report)
{
    constexpr std::string_view kLabel = "\tError:\t-";
    const std::size_t at = report.rfind(kLabel);
    return at == std::string_view::npos ? -1 : std::atoi(report.data() + at + kLabel.size());
}

/// The lines of warnings, in their order.
std::string warningsOf(std::string_view report)
{
    constexpr std::string_view kLabel = "Warning:\t-";
    std::string lines;
    for (std::size_t at = report.find(kLabel); at != std::string_view::npos; at = report.find(kLabel, at + 1))
        lines.append(report.substr(at, report.find('\n', at) - at)).append("\n");
    return lines;
}

}  // namespace

RepairRules::RepairRules()
    : m_writer([this](std::string_view text) {
          m_report += text;
          return true;
      })
{
    SRDataParser::setErrorTrace(true);
    m_dir.makeDir(kQuietPlace);
    m_dir.makeDir(std::string(kTracedPlace) + "/logs");
}

RepairRules::Outcome RepairRules::check(const std::string& file,
                                        const streams::VideoValidationParameters& parameters, Shown shown)
{
    const std::string place = shown == Shown::kAll ? kTracedPlace : kQuietPlace;
    const std::string name = place + "/in.zmv";
    fs::remove(m_dir.bytes(name));  // overwriting a file can wait for the disk
    m_dir.write(name, file);
    m_report.clear();
    VideoValidationJob job(m_writer);
    job.parameters = parameters;
    job.parameters.logLevel = shown == Shown::kAll ? streams::LOG_INFO : streams::LOG_WARNING;
    job.files = {"in.zmv"};

    const fs::path before = fs::current_path();
    fs::current_path(m_dir.bytes(place));
    const bool passed = job.validateAllFiles() == 0;
    fs::current_path(before);

    Outcome outcome;
    outcome.number = passed ? 0 : rejection(m_report);
    outcome.warnings = warningsOf(m_report);
    outcome.hasCopy = fs::exists(m_dir.bytes(name + ".new"));
    outcome.copy = m_dir.read(name + ".new");
    fs::remove(m_dir.bytes(name + ".new"));
    if (m_dir.read(name) != file)
        m_problem = "the input was written to";
    if (passed && outcome.hasCopy != (m_report.find("in.zmv.new passed\n") != std::string::npos))
        m_problem = "the passed line names another file";

    // At most one trace per message, each in proportion to its size.
    const std::string trace = m_dir.bytes(place + '/' + kTraceFile);
    constexpr std::size_t kLeastMessage = 15;
    if (fs::exists(trace) && fs::file_size(trace) > 4096 * (file.size() / kLeastMessage) + 32 * file.size())
        m_problem = "the trace is out of proportion";
    fs::remove(trace);
    return outcome;
}

std::string RepairRules::broken(const std::string& file, streams::VideoValidationParameters parameters)
{
    m_problem.clear();
    const Outcome outcome = check(file, parameters, Shown::kLittle);
    if (check(file, parameters, Shown::kAll) != outcome)
        return "what is shown changes the findings";
    if (outcome.number == 0 && outcome.hasCopy) {
        if (std::string problem = brokenByCopy(outcome.copy, parameters); !problem.empty())
            return problem;
    }
    parameters.fixMetaData = parameters.fixVideoStall = false;
    const bool cannotWrite =
        outcome.number == streams::kCannotCreateFile || outcome.number == streams::kBoxTooLarge;
    if (outcome.number != 0 && !cannotWrite && check(file, parameters, Shown::kLittle).number == 0)
        return "a repair option rejects what passes, -" + std::to_string(outcome.number);
    return m_problem;
}

std::string RepairRules::brokenByCopy(const std::string& copy, streams::VideoValidationParameters parameters)
{
    ++copies;
    const auto asked = parameters;
    for (const unsigned repairs : {0U, 1U, 2U, 3U}) {
        parameters.fixMetaData = (repairs & 1) != 0;
        parameters.fixVideoStall = (repairs & 2) != 0;
        const bool isAsked =
            parameters.fixMetaData == asked.fixMetaData && parameters.fixVideoStall == asked.fixVideoStall;
        const Outcome again = check(copy, parameters, Shown::kLittle);
        if (again.number != 0)
            return "a passed copy fails, -" + std::to_string(again.number);
        if (again.hasCopy && isAsked)
            return "a passed copy needs another repair";
        parameters.fixMetaData = parameters.fixVideoStall = false;
        if (again.hasCopy && check(again.copy, parameters, Shown::kLittle).number != 0)
            return "the copy of a passed copy fails";
    }
    return {};
}

}  // namespace krx::test
