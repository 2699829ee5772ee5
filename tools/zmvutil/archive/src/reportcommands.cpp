// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/commands.h"
#include "tools/zmvutil/archive/src/csvformat.h"
#include "tools/zmvutil/archive/src/faultspage.h"
#include "tools/zmvutil/archive/src/folder.h"
#include "tools/zmvutil/archive/src/htmlreport.h"
#include "tools/zmvutil/archive/src/options.h"
#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/stateset.h"
#include "tools/zmvutil/archive/src/summary.h"
#include "tools/zmvutil/archive/src/summarytext.h"
#include "tools/zmvutil/archive/src/textformat.h"
#include "tools/zmvutil/archive/src/version.h"

#include <vidlint/check.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace archive {
namespace {

void put(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

/// Ends the output. Returns the status.
int finish(const std::vector<std::string>& problems)
{
    std::cout.flush();
    // A write that failed earlier leaves nothing to flush.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout)
        throw StateError("the results cannot be written");
    for (const std::string& problem : problems) {
        const std::string line = "vidlint-archive: " + escaped(problem) + "\n";
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
    return problems.empty() ? kStatusFine : kStatusUsage;
}

/// Whether the path is a folder that vidlint would take for a recording, and that looks like none.
bool isOtherFolder(const std::string& path)
{
    Folder folder;
    return folder.open(AT_FDCWD, path.c_str(), true) && folder.read(makeNameFilter({}, {}, true)) == 0 &&
           !folder.isRecording();
}

bool isOnTerminal()
{
    return ::isatty(STDOUT_FILENO) != 0;
}

void reportAsLines(StateSet& states, bool isCsv)
{
    if (isCsv)
        put(csvHeader());
    else
        for (const RunInfo& run : states.runs())
            put(runJson(run, kVersion) + "\n");
    Summary summary;
    states.forEach([&](const InputRecord& record) {
        summary.add(record);
        put(isCsv ? csvLines(record) : toJson(record) + "\n");
        return true;
    });
    if (!isCsv)
        put(summaryJson(summary) + "\n");
}

void reportAsText(StateSet& states)
{
    Summary summary;
    const bool color = isOnTerminal();
    states.forEach([&](const InputRecord& record) {
        summary.add(record);
        put(linesOf(record, color));
        return true;
    });
    put(summaryText(summary));
}

void reportAsPage(StateSet& states)
{
    HtmlReport page;
    states.forEach([&](const InputRecord& record) {
        page.add(record);
        return true;
    });
    page.write(std::cout, states.runs());
}

}  // namespace

int runList(const std::vector<std::string>& arguments)
{
    const auto options = parseList(arguments);
    if (!options)
        return 0;
    StateSet states(options->states);
    states.forEach([&](const InputRecord& record) {
        const bool isListed = record.change != Change::kGone && options->selection.matches(record) &&
                              (!options->onlyNew || record.change == Change::kNew);
        const std::string& path = record.report.path;
        if (isListed)
            put(options->endsWithZero ? path + '\0' : escaped(path) + "\n");
        return true;
    });
    return finish(states.problems());
}

int runReport(const std::vector<std::string>& arguments)
{
    const auto options = parseReport(arguments);
    if (!options)
        return 0;
    StateSet states(options->states);
    if (options->format == "html")
        reportAsPage(states);
    else if (options->format == "text")
        reportAsText(states);
    else
        reportAsLines(states, options->format == "csv");
    return finish(states.problems());
}

int runWhy(const std::vector<std::string>& arguments)
{
    const auto paths = parseFiles(arguments);
    if (!paths)
        return 0;
    const FailOn failOn = parseSelection(kUsualSelection);
    std::vector<std::string> problems;
    bool isFound = false;
    bool isUnreadable = false;
    for (const std::string& path : *paths) {
        if (isOtherFolder(path)) {
            problems.push_back(path + ": the folder is no recording; vidlint-archive check searches folders");
            continue;
        }
        InputRecord record;
        record.root = record.report.path = path;
        record.report = vidlint::check(path);
        isFound |= failOn.matches(record);
        isUnreadable |= record.report.unreadable;
        put(describe(record, isOnTerminal()));
    }
    if (const int status = finish(problems); status != kStatusFine)
        return status;
    if (isFound)
        return kStatusFound;
    return isUnreadable ? kStatusUnreadable : kStatusFine;
}

int runExplain(const std::vector<std::string>& arguments)
{
    // A number may be written as reports show it, with its sign.
    std::vector<std::string> words = arguments;
    for (std::string& word : words)
        if (word.size() > 1 && word[0] == '-' && word.find_first_not_of("0123456789", 1) == std::string::npos)
            word.erase(0, 1);
    const bool color = isOnTerminal();
    const auto numbers = parseNumbers(words);
    if (!numbers)
        return 0;
    if (numbers->empty()) {
        for (const FaultRow& row : faultRows())
            put(explain(row.number, color) + "\n");
        return finish({});
    }
    for (const std::string& word : *numbers) {
        char* end = nullptr;
        const long number = std::strtol(word.c_str(), &end, 10);
        if (*end != '\0' || number < 0 || number > 1000 || !faultPage(-static_cast<int>(number)))
            throw UsageError("there is no finding '" + word + "'");
        put(explain(-static_cast<int>(number), color));
    }
    return finish({});
}

}  // namespace archive
