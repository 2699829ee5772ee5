// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/outcome.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace archive {
namespace {

constexpr std::string_view kValid = "valid";

struct Outcome
{
    std::string verdict;
    std::string cause;
    unsigned long long omitted = 0;  ///< findings that were counted only
    std::map<int, unsigned long long> numbers;

    bool passes() const { return verdict == kValid; }
};

Outcome parse(std::string_view text)
{
    Outcome outcome;
    std::istringstream in{std::string(text)};
    in >> outcome.verdict >> outcome.cause >> outcome.omitted;
    int number = 0;
    unsigned long long count = 0;
    while (in >> number >> count)
        outcome.numbers[number] = count;
    return outcome;
}

/// Whether there is nothing in now that was not there before.
bool isPartOf(const Outcome& now, const Outcome& before)
{
    if (now.omitted > before.omitted ||
        (now.cause != before.cause && now.cause != nameOf(vidlint::Cause::kNone)))
        return false;
    return std::all_of(now.numbers.begin(), now.numbers.end(), [&](const auto& entry) {
        const auto found = before.numbers.find(entry.first);
        return found != before.numbers.end() && entry.second <= found->second;
    });
}

}  // namespace

std::string outcomeOf(const InputRecord& record)
{
    const vidlint::InputReport& report = record.report;
    // The check of an input that ended the process has no verdict.
    std::string text = record.crashed ? "crashed" : nameOf(report.verdict);
    text += ' ';
    text += nameOf(report.cause);
    text += ' ' + std::to_string(report.findingsOmitted);
    std::map<int, unsigned long long> numbers;
    for (const vidlint::Finding& finding : report.findings) {
        if (finding.number != 0)
            ++numbers[finding.number];
    }
    for (const auto& [number, count] : numbers)
        text += ' ' + std::to_string(number) + ' ' + std::to_string(count);
    return text;
}

Change changeBetween(std::string_view before, std::string_view now)
{
    if (before == now)
        return Change::kSame;
    const Outcome old = parse(before);
    const Outcome current = parse(now);
    if (current.passes() && (!old.passes() || isPartOf(current, old)))
        return Change::kFixed;
    return Change::kNew;
}

}  // namespace archive
