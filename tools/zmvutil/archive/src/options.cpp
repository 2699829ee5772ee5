// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <initializer_list>
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
std::uint64_t withUnit(const std::string& text, const char* what, std::uint64_t most,
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
    if (!number || *number > most / factor)
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

/// The help of the library, with the usage as it is.
void printHelp(const CLI::App& app, const std::string& usage)
{
    const CLI::Formatter& formatter = dynamic_cast<const CLI::Formatter&>(*app.get_formatter());
    std::cout << "Usage: vidlint-archive " << usage << "\n"
              << app.get_description() << "\n"
              << formatter.make_positionals(&app) << formatter.make_groups(&app, CLI::AppFormatMode::Normal);
}

/// Parses into an app that knows its options. False when help was asked for.
bool parse(CLI::App& app, const std::string& usage, const Words& arguments)
{
    constexpr std::size_t kColumn = 28;
    app.set_help_flag("-h,--help", "show this help");
    app.get_formatter()->column_width(kColumn);
    app.get_formatter()->label("Positionals", "Arguments");
    // The library takes them from the last to the first.
    Words reversed(arguments.rbegin(), arguments.rend());
    // It would also take a path in brackets for a list of several. No argument has a zero byte of its own.
    for (std::string& word : reversed)
        if (word.size() > 1 && word.front() == '[' && word.back() == ']')
            word += '\0';
    const auto restore = [](std::string word) {
        if (!word.empty() && word.back() == '\0')
            word.pop_back();
        return word;
    };
    for (CLI::Option* const option : app.get_options())
        option->transform(restore, "", "");
    try {
        app.parse(std::move(reversed));
        for (const CLI::Option* const option : app.get_options())
            if (const Words values = option->results();
                std::find(values.begin(), values.end(), "") != values.end())
                throw UsageError(option->get_name() + ": the value is empty");
        return true;
    } catch (const CLI::CallForHelp&) {
        printHelp(app, usage);
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

/// Arguments of check that are read after all are known.
struct CheckWords
{
    Words paths;
    Words pairs;
    std::string label, include, exclude, memory;
    std::string format = "text", progress = "auto", color = "auto";
    std::string failOn = kUsualSelection, minAge = "10m", shard = "1/1";
    std::string recheckOlder, maxTime;
    bool noDefaultExcludes = false;
};

/// An option with a value, which the help calls by that name.
template <typename Value>
CLI::Option* addText(CLI::App& app, const char* names, const char* valueName, Value& value, const char* help)
{
    return app.add_option(names, value, help)->type_name(valueName);
}

/// What stands on the command line without an option.
void addArguments(CLI::App& app, const char* name, Words& words, const char* help)
{
    app.add_option(name, words, help)->type_name("");
}

void addSearchOptions(CLI::App& app, CheckOptions& options, CheckWords& words)
{
    addArguments(app, "PATH", words.paths, "files and folders");
    addText(app, "--include", "GLOBS", words.include, "names of files, as in '*.mp4,*.mov'");
    addText(app, "--exclude", "GLOBS", words.exclude, "names of files and folders that are left out");
    app.add_flag("--no-default-excludes", words.noDefaultExcludes,
                 "search ._* *.part .snapshot ~snapshot .zfs too");
    addText(app, "--files0-from", "FILE", options.search.filesFrom,
            "take paths from FILE, each ended by a zero byte; - for the standard input");
    app.add_flag("--one-file-system", options.search.staysOnFileSystem,
                 "stay on the file system of each PATH");
    addText(app, "--min-age", "TIME", words.minAge,
            "skip what has changed in the last TIME, as in 30s, 10m, 2h (default: 10m)");
    addText(app, "--shard", "K/N", words.shard, "take the inputs of shard K of N only, as in 1/8");
}

void addStateOptions(CLI::App& app, CheckOptions& options, CheckWords& words)
{
    addText(app, "--state", "FILE", options.state,
            "keep the results in FILE, and check only what has changed");
    addText(app, "--label", "NAME", words.label, "name of the PATH in the state (default: the PATH)");
    app.add_flag("--recheck", options.rechecksAll, "check unchanged inputs too");
    addText(app, "--recheck-older", "TIME", words.recheckOlder,
            "check unchanged inputs too whose last check is older, as in 90d");
    addText(app, "--max-time", "TIME", words.maxTime,
            "begin no check after TIME, as in 2h; the oldest results are renewed first");
}

void addOutputOptions(CLI::App& app, CheckOptions& options, CheckWords& words)
{
    addText(app, "--format", "FORMAT", words.format, "text or jsonl (default: text)");
    app.add_flag("--new", options.onlyNew, "print only what is new since the last run");
    app.add_flag("-q,--quiet", options.isQuiet, "print no results");
    addText(app, "--fail-on", "SET", words.failOn,
            "what gives status 1: causes, numbers, error, warning, dropped-track or none");
    addText(app, "--progress", "WHEN", words.progress, "auto (on a terminal), always or never");
    addText(app, "--color", "WHEN", words.color, "auto (on a terminal), always or never");
}

void addSettings(CLI::App& app, CheckOptions& options, CheckWords& words)
{
    addText(app, "-j,--jobs", "N", options.threads, "checks at a time, 1 to 1024 (default: processors)");
    addText(app, "--io", "N", options.openInputs,
            "inputs opened at a time (default: 1 on disks that turn, else as --jobs)");
    addText(app, "--memory", "SIZE", words.memory,
            "what all checks may take together, as in 512M, 2G (default: half of the machine's)");
    addText(app, "--set", "KEY=VALUE", words.pairs, "a setting of the server; may be given several times")
        ->expected(1)
        ->allow_extra_args(false);
    addText(app, "--duration-margin", "SECONDS", options.settings.durationMargin,
            "by which metadata may be wrong (default: 2)");
    app.add_flag("--warnings-as-errors", options.settings.warningsAsErrors,
                 "warnings make ZMV files and recordings invalid");
}

void checkWord(const std::string& word, std::initializer_list<const char*> allowed)
{
    if (std::find(allowed.begin(), allowed.end(), word) != allowed.end())
        return;
    std::string text = "'" + word + "' is none of";
    for (const char* const each : allowed)
        text += std::string(each == *allowed.begin() ? " " : ", ") + each;
    throw UsageError(text);
}

void applyPaths(const CheckWords& words, CheckOptions& options)
{
    constexpr unsigned kMostJobs = 1024;
    if (words.paths.empty() && options.search.filesFrom.empty())
        throw UsageError("no PATH was given");
    if (!words.label.empty() && words.paths.size() != 1)
        throw UsageError("--label needs exactly one PATH");
    if (options.threads < 1 || options.threads > kMostJobs)
        throw UsageError("--jobs is a number from 1 to " + std::to_string(kMostJobs));
    checkWord(words.format, {"text", "jsonl"});
    std::set<std::string> labels;
    for (const std::string& path : words.paths)
        if (labels.insert(labelOf(path)).second)
            options.search.roots.push_back({path, words.label.empty() ? labelOf(path) : words.label});
}

}  // namespace

std::chrono::seconds parseDuration(const std::string& text)
{
    constexpr std::pair<char, std::uint64_t> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    // A hundred years, which nanoseconds can count.
    constexpr std::uint64_t kMost = std::uint64_t{36525} * 86400;
    return std::chrono::seconds(withUnit(text, "time (as in 30s, 10m, 2h, 90d)", kMost, kUnits));
}

std::uint64_t parseSize(const std::string& text)
{
    constexpr std::pair<char, std::uint64_t> kUnits[] = {
        {'K', 1U << 10}, {'M', 1U << 20}, {'G', 1U << 30}, {'T', std::uint64_t{1} << 40}};
    return withUnit(text, "size (as in 512M, 2G)", INT64_MAX, kUnits);
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
    CheckWords words;
    options.threads = std::max(1U, std::thread::hardware_concurrency());
    CLI::App app("Searches folders for media files, checks them, and prints what is wrong.");
    addSearchOptions(app, options, words);
    addStateOptions(app, options, words);
    addOutputOptions(app, options, words);
    addSettings(app, options, words);
    if (!parse(app, "check [OPTION]... PATH...", arguments))
        return std::nullopt;
    applyPaths(words, options);
    options.search.include = split(words.include, ',');
    options.search.exclude = split(words.exclude, ',');
    options.search.usesDefaultExcludes = !words.noDefaultExcludes;
    options.search.minAgeNs = std::chrono::nanoseconds(parseDuration(words.minAge)).count();
    parseShard(words.shard, options.search);
    options.memory = words.memory.empty() ? usualMemory() : parseSize(words.memory);
    options.isJson = words.format == "jsonl";
    options.progress = parseWhen(words.progress);
    options.color = parseWhen(words.color);
    options.failOn = parseSelection(words.failOn);
    if (!words.recheckOlder.empty())
        options.recheckOlder = parseDuration(words.recheckOlder);
    if (!words.maxTime.empty())
        options.maxTime = parseDuration(words.maxTime);
    if (options.state.empty() && (options.onlyNew || options.recheckOlder))
        throw UsageError("--new and --recheck-older need a --state");
    applySettings(words.pairs, options);
    options.settingsText = canonical(options.settings);
    return options;
}

std::optional<ListOptions> parseList(const Words& arguments)
{
    ListOptions options;
    std::string selection = kUsualSelection;
    CLI::App app("Prints the paths of inputs that have something wrong, from the states of check.");
    addArguments(app, "STATE", options.states, "files that check --state made");
    addText(app, "--cause", "SET", selection,
            "causes, numbers, error, warning, dropped-track (default: as check --fail-on)");
    app.add_flag("--new", options.onlyNew, "only what is new since the run before");
    app.add_flag("-0,--null", options.endsWithZero, "end each path with a zero byte, unescaped");
    if (!parse(app, "list [OPTION]... STATE...", arguments))
        return std::nullopt;
    if (options.states.empty())
        throw UsageError("no STATE was given");
    options.selection = parseSelection(selection);
    return options;
}

std::optional<ReportOptions> parseReport(const Words& arguments)
{
    ReportOptions options;
    CLI::App app("Prints the results that the states of check hold.");
    addArguments(app, "STATE", options.states, "files that check --state made");
    addText(app, "--format", "FORMAT", options.format, "text, jsonl, csv or html (default: text)");
    if (!parse(app, "report [OPTION]... STATE...", arguments))
        return std::nullopt;
    if (options.states.empty())
        throw UsageError("no STATE was given");
    checkWord(options.format, {"text", "jsonl", "csv", "html"});
    return options;
}

std::optional<Words> parseFiles(const Words& arguments)
{
    Words files;
    CLI::App app(
        "Tells all about single inputs: tracks, what plays until when, each finding and its remedy.");
    addArguments(app, "FILE", files, "media files and folders with recordings");
    if (!parse(app, "why FILE...", arguments))
        return std::nullopt;
    if (files.empty())
        throw UsageError("no FILE was given");
    return files;
}

std::optional<Words> parseNumbers(const Words& arguments)
{
    Words numbers;
    CLI::App app("Tells what findings mean, what a player does then, and how to repair it.");
    addArguments(app, "NUMBER", numbers, "numbers as reports show them; all when none is given");
    if (!parse(app, "explain [NUMBER]...", arguments))
        return std::nullopt;
    return numbers;
}

}  // namespace archive
