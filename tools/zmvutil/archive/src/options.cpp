// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <iostream>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>

namespace archive {
namespace {

using Words = std::vector<std::string>;

/// The parts of a list that stands in one argument.
Words split(const std::string& text, char separator)
{
    Words parts;
    std::size_t start = 0;
    for (std::size_t end = 0; end != std::string::npos; start = end + 1) {
        end = text.find(separator, start);
        std::string part = text.substr(start, end == std::string::npos ? end : end - start);
        if (!part.empty())
            parts.push_back(std::move(part));
    }
    return parts;
}

/// A number that is all of the text.
template <typename Number>
std::optional<Number> numberIn(std::string_view text)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// A number with the unit that its last character names; units are pairs of a character and a factor.
template <std::size_t N>
std::uint64_t withUnit(const std::string& text, const char* what,
                       const std::pair<char, std::uint64_t> (&units)[N])
{
    std::string_view digits = text;
    std::uint64_t factor = 1;
    for (const auto& [letter, unit] : units) {
        if (!digits.empty() && digits.back() == letter) {
            digits.remove_suffix(1);
            factor = unit;
            break;
        }
    }
    const std::optional<std::uint64_t> number = numberIn<std::uint64_t>(digits);
    if (!number || *number > static_cast<std::uint64_t>(INT64_MAX) / factor)
        throw UsageError("'" + text + "' is no " + what);
    return *number * factor;
}

When parseWhen(const std::string& text)
{
    if (text == "auto")
        return When::kAuto;
    if (text == "always")
        return When::kAlways;
    if (text == "never")
        return When::kNever;
    throw UsageError("'" + text + "' is none of auto, always, never");
}

bool isWanted(When when, int descriptor)
{
    return when == When::kAlways || (when == When::kAuto && ::isatty(descriptor) != 0);
}

void parseShard(const std::string& text, SearchOptions& search)
{
    const std::size_t slash = text.find('/');
    const std::string_view all = text;
    const auto shard = numberIn<unsigned>(all.substr(0, slash));
    const auto shards = slash == std::string::npos ? std::nullopt : numberIn<unsigned>(all.substr(slash + 1));
    if (!shard || !shards || *shard < 1 || *shard > *shards)
        throw UsageError("'" + text + "' is no shard K/N with K from 1 to N");
    search.shard = *shard;
    search.shards = *shards;
}

/// Half of the memory of the machine.
std::uint64_t usualMemory()
{
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGE_SIZE);
    return pages > 0 && pageSize > 0
               ? static_cast<std::uint64_t>(pages) / 2 * static_cast<std::uint64_t>(pageSize)
               : std::uint64_t{1} << 30;
}

void applySettings(const Words& pairs, CheckOptions& options)
{
    for (const std::string& pair : pairs) {
        const std::size_t equals = pair.find('=');
        if (equals == std::string::npos)
            throw UsageError("'" + pair + "' is no KEY=VALUE");
        try {
            options.settings.set(pair.substr(0, equals), pair.substr(equals + 1));
        } catch (const std::invalid_argument& error) {
            throw UsageError(error.what());
        }
    }
}

std::string canonical(const vidlint::Settings& settings)
{
    std::string text = "duration-margin=" + std::to_string(settings.durationMargin) +
                       "\nwarnings-as-errors=" + (settings.warningsAsErrors ? "true" : "false");
    for (const auto& [key, value] : settings.serverSettings())
        text.append("\n").append(key).append("=").append(value);
    return text;
}

/// Parses into an app that knows its options. False when help was asked for.
bool parse(CLI::App& app, const Words& arguments)
{
    // The library takes them from the last to the first.
    Words reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(std::move(reversed));
        return true;
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return false;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
}

vidlint::Cause parseCause(const std::string& word)
{
    for (int i = 1; *vidlint::nameOf(static_cast<vidlint::Cause>(i)) != '\0'; ++i)
        if (word == vidlint::nameOf(static_cast<vidlint::Cause>(i)))
            return static_cast<vidlint::Cause>(i);
    throw UsageError("'" + word + "' is no cause and no number of a finding");
}

/// Slashes at the end do not make another folder.
std::string labelOf(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

}  // namespace

std::chrono::seconds parseDuration(const std::string& text)
{
    constexpr std::pair<char, std::uint64_t> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    return std::chrono::seconds(withUnit(text, "time (as in 30s, 10m, 2h, 90d)", kUnits));
}

std::uint64_t parseSize(const std::string& text)
{
    constexpr std::pair<char, std::uint64_t> kUnits[] = {
        {'K', 1U << 10}, {'M', 1U << 20}, {'G', 1U << 30}, {'T', std::uint64_t{1} << 40}};
    return withUnit(text, "size (as in 512M, 2G)", kUnits);
}

FailOn parseSelection(const std::string& text)
{
    FailOn selection;
    for (const std::string& word : split(text, ',')) {
        if (word == "error")
            selection.errors = true;
        else if (word == "warning")
            selection.warnings = true;
        else if (word == "dropped-track")
            selection.droppedTracks = true;
        else if (const auto number = numberIn<int>(word))
            selection.numbers.insert(-std::abs(*number));
        else if (word != "none")
            selection.causes.insert(parseCause(word));
    }
    return selection;
}

bool CheckOptions::showsProgress() const
{
    return isWanted(isQuiet && progress == When::kAuto ? When::kNever : progress, STDERR_FILENO);
}

bool CheckOptions::showsColor() const
{
    return !isJson && isWanted(color, STDOUT_FILENO);
}

bool FailOn::matches(const InputRecord& record) const
{
    const vidlint::InputReport& report = record.report;
    const bool isInvalid = report.verdict == vidlint::Verdict::kInvalid && !report.unreadable;
    if (causes.contains(report.cause) || (errors && (record.crashed || isInvalid)))
        return true;
    if (droppedTracks && std::any_of(report.tracks.begin(), report.tracks.end(),
                                     [](const vidlint::Track& track) { return track.droppedBy.has_value(); }))
        return true;
    return std::any_of(report.findings.begin(), report.findings.end(),
                       [this](const vidlint::Finding& finding) {
                           return numbers.contains(finding.number) ||
                                  (warnings && finding.level == vidlint::FindingLevel::kWarning);
                       });
}

std::optional<CheckOptions> parseCheck(const Words& arguments)
{
    CheckOptions options;
    Words paths;
    Words pairs;
    std::string label, include, exclude, memory, format = "text", progress = "auto", color = "auto";
    std::string failOn = kUsualSelection, minAge = "10m", shard = "1/1";
    std::string recheckOlder, maxTime;
    bool noDefaultExcludes = false;
    options.threads = std::max(1U, std::thread::hardware_concurrency());

    CLI::App app("Searches folders for media files, checks them, and prints what is wrong.",
                 "vidlint-archive check");
    app.add_option("PATH", paths, "files and folders");
    app.add_option("-j,--jobs", options.threads, "checks at a time (default: processors)")
        ->check(CLI::Range(1, 1024));
    app.add_option("--io", options.openInputs, "inputs opened at a time (default: 1 on disks that turn)");
    app.add_option("--memory", memory, "memory of all checks together, as in 2G (default: half of it)");
    app.add_option("--state", options.state, "file that keeps the results");
    app.add_option("--label", label, "name of the PATH in the state (default: the PATH)");
    app.add_option("--include", include, "names of files, as in '*.mp4,*.mov'");
    app.add_option("--exclude", exclude, "names of files and folders that are left out");
    app.add_option("--files0-from", options.search.filesFrom,
                   "file of paths ended by zeros; - for standard input");
    app.add_flag("--one-file-system", options.search.staysOnFileSystem,
                 "stay on the file system of each PATH");
    app.add_flag("--no-default-excludes", noDefaultExcludes,
                 "search ._* *.part .snapshot ~snapshot .zfs too");
    app.add_option("--min-age", minAge, "skip files younger than this (default: 10m)");
    app.add_option("--shard", shard, "take the inputs of shard K of N only, as in 1/8");
    app.add_option("--format", format, "text or jsonl")->check(CLI::IsMember({"text", "jsonl"}));
    app.add_flag("--new", options.onlyNew, "print only what is new since the last run");
    app.add_option("--fail-on", failOn,
                   "causes, numbers, error, warning, dropped-track or none that give status 1");
    app.add_option("--set", pairs, "KEY=VALUE, a setting of the server")
        ->expected(1)
        ->allow_extra_args(false);
    app.add_option("--duration-margin", options.settings.durationMargin,
                   "seconds by which metadata may be wrong");
    app.add_flag("--warnings-as-errors", options.settings.warningsAsErrors,
                 "warnings make ZMV files and recordings invalid");
    app.add_flag("--recheck", options.rechecksAll, "check unchanged inputs too");
    app.add_option("--recheck-older", recheckOlder, "check unchanged inputs whose check is older, as in 90d");
    app.add_option("--max-time", maxTime, "begin no check after this time, as in 2h");
    app.add_option("--progress", progress, "auto, always or never");
    app.add_option("--color", color, "auto, always or never");
    app.add_flag("-q,--quiet", options.isQuiet, "print no findings, only the status tells");
    if (!parse(app, arguments))
        return std::nullopt;

    if (paths.empty() && options.search.filesFrom.empty())
        throw UsageError("no PATH was given");
    if (!label.empty() && paths.size() != 1)
        throw UsageError("--label needs exactly one PATH");
    std::set<std::string> labels;
    for (const std::string& path : paths)
        if (labels.insert(labelOf(path)).second)
            options.search.roots.push_back({path, label.empty() ? labelOf(path) : label});
    options.search.include = split(include, ',');
    options.search.exclude = split(exclude, ',');
    options.search.usesDefaultExcludes = !noDefaultExcludes;
    options.search.minAgeNs = parseDuration(minAge).count() * 1'000'000'000LL;
    parseShard(shard, options.search);
    options.memory = memory.empty() ? usualMemory() : parseSize(memory);
    options.isJson = format == "jsonl";
    options.progress = parseWhen(progress);
    options.color = parseWhen(color);
    options.failOn = parseSelection(failOn);
    if (!recheckOlder.empty())
        options.recheckOlder = parseDuration(recheckOlder);
    if (!maxTime.empty())
        options.maxTime = parseDuration(maxTime);
    if (options.state.empty() && (options.onlyNew || options.recheckOlder))
        throw UsageError("--new and --recheck-older need a --state");
    applySettings(pairs, options);
    options.settingsText = canonical(options.settings);
    return options;
}

std::optional<ListOptions> parseList(const Words& arguments)
{
    ListOptions options;
    std::string selection = kUsualSelection;
    CLI::App app("Prints the paths of inputs in states.", "vidlint-archive list");
    app.add_option("STATE", options.states, "state files")->required();
    app.add_option("--cause", selection,
                   "causes, numbers, error, warning, dropped-track (default: error,cut-short,dropped-track)");
    app.add_flag("--new", options.onlyNew, "only what is new since the run before");
    app.add_flag("-0,--null", options.endsWithZero, "end each path with a zero byte, unescaped");
    if (!parse(app, arguments))
        return std::nullopt;
    options.selection = parseSelection(selection);
    return options;
}

std::optional<ReportOptions> parseReport(const Words& arguments)
{
    ReportOptions options;
    CLI::App app("Prints the results in states.", "vidlint-archive report");
    app.add_option("STATE", options.states, "state files")->required();
    app.add_option("--format", options.format, "text, jsonl, csv or html")
        ->check(CLI::IsMember({"text", "jsonl", "csv", "html"}));
    if (!parse(app, arguments))
        return std::nullopt;
    return options;
}

std::optional<Words> parseWords(const std::string& command, const std::string& word, std::size_t least,
                                const Words& arguments)
{
    Words words;
    CLI::App app("", "vidlint-archive " + command);
    app.add_option(word, words);
    if (!parse(app, arguments))
        return std::nullopt;
    if (words.size() < least)
        throw UsageError("no " + word + " was given");
    return words;
}

}  // namespace archive
