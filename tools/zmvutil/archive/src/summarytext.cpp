// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/summarytext.h"

#include "tools/zmvutil/archive/src/summary.h"

#include <fmt/core.h>
#include <iterator>
#include <vector>

namespace archive {
namespace {

/// A count with its word, for a list of those that are not 0.
struct Count
{
    std::uint64_t number;
    const char* word;
};

std::string listed(const std::vector<Count>& counts)
{
    std::string text;
    for (const Count& count : counts)
        if (count.number != 0)
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count.number, count.word);
    return text;
}

}  // namespace

std::string summaryText(const Summary& summary)
{
    std::string text =
        fmt::format("{} inputs: {} valid, {} invalid", summary.inputs, summary.valid, summary.invalid);
    if (summary.crashed != 0)
        text += fmt::format(", {} crashed", summary.crashed);
    text += '\n';
    std::vector<Count> counts;
    for (std::size_t i = 1; i < kCauses; ++i)
        counts.push_back({summary.byCause[i], vidlint::nameOf(static_cast<vidlint::Cause>(i))});
    counts.push_back({summary.droppedTrack, "with a dropped track"});
    if (const std::string causes = listed(counts); !causes.empty())
        text += causes + '\n';
    if (summary.hasChanges) {
        counts.clear();
        for (const Change change : {Change::kNew, Change::kFixed, Change::kGone})
            counts.push_back({summary.of(change), nameOf(change)});
        const std::string changes = listed(counts);
        text += "since the last run: " + (changes.empty() ? "no change" : changes) + '\n';
    }
    if (summary.search) {
        counts = {{summary.search->young, "too young"},
                  {summary.search->excluded, "excluded"},
                  {summary.search->repeated, "reached twice"},
                  {summary.search->unreadable, "that could not be searched"}};
        if (const std::string skipped = listed(counts); !skipped.empty())
            text += "left out: " + skipped + '\n';
    }
    if (summary.changing.value_or(0) != 0)
        text += fmt::format("{} changed while they were checked\n", *summary.changing);
    if (!summary.complete)
        text += "The run ended before it had checked everything.\n";
    return text;
}

}  // namespace archive
