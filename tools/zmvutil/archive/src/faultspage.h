// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace archive {

/// A number of docs/faults.md as the page has it, in Markdown. Made at build time.
struct FaultRow
{
    int number;
    const char* group;  ///< the heading above, as in "MP4 files: errors"
    const char* text;   ///< the lines below the number
};

/// In the order of the page.
std::span<const FaultRow> faultRows();

/// What docs/faults.md says of one number.
struct FaultPage
{
    std::string group;
    /// Names and texts in the order of the page, in Markdown without line ends: "Kind", "Text", "Means",
    /// "How it comes", "What a player does", "Repair", "Sample".
    std::vector<std::pair<std::string, std::string>> fields;

    /// The text of a field; empty when there is none.
    std::string_view field(std::string_view name) const;
};

/// All numbers, by the number that reports show, as in -18. Made once, from any thread.
const std::map<int, FaultPage>& faultPages();
/// Null for a number that the page does not have.
const FaultPage* faultPage(int number);

/// Markdown of the page as plain text: links are their words, code loses its marks.
std::string plainText(std::string_view markdown);
/// The same as HTML, with code in <code>.
std::string htmlText(std::string_view markdown);

}  // namespace archive
