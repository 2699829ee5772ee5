// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/faultspage.h"

#include "tools/zmvutil/archive/src/htmltext.h"

#include <algorithm>
#include <utility>

namespace archive {
namespace {

constexpr std::string_view kFieldStart = "- **";
constexpr std::string_view kFieldNameEnd = ":** ";
constexpr std::string_view kContinuation = "  ";

/// Says what a report fills in.
void namePlaceholders(std::string& text)
{
    constexpr std::pair<const char*, const char*> kNames[] = {{"%s", "NAME"}, {"%x", "N"}};
    for (const auto& [placeholder, name] : kNames)
        for (std::size_t at = text.find(placeholder); at != std::string::npos;
             at = text.find(placeholder, at))
            text.replace(at, 2, name);
}

FaultPage parse(const FaultRow& row)
{
    FaultPage page;
    page.group = row.group;
    std::string_view text = row.text;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t nameEnd = line.find(kFieldNameEnd);
        if (line.starts_with(kFieldStart) && nameEnd != std::string_view::npos) {
            page.fields.emplace_back(line.substr(kFieldStart.size(), nameEnd - kFieldStart.size()),
                                     line.substr(nameEnd + kFieldNameEnd.size()));
        } else if (line.starts_with(kContinuation) && !page.fields.empty()) {
            page.fields.back().second.append(" ").append(line.substr(kContinuation.size()));
        }
    }
    for (auto& [name, words] : page.fields)
        if (name == "Text")
            namePlaceholders(words);
    return page;
}

/// Calls add(words, isCode) for each stretch of the Markdown.
template <typename Add>
void forEachStretch(std::string_view markdown, Add add)
{
    while (!markdown.empty()) {
        const std::size_t mark = std::min(markdown.find_first_of("`["), markdown.size());
        add(markdown.substr(0, mark), false);
        markdown.remove_prefix(mark);
        if (markdown.empty())
            return;
        const bool isCode = markdown.front() == '`';
        const std::size_t end = markdown.find(isCode ? "`" : "](", 1);
        const std::size_t close = isCode ? end : markdown.find(')', std::min(end, markdown.size()));
        if (close == std::string_view::npos) {
            add(markdown, false);
            return;
        }
        add(markdown.substr(1, end - 1), isCode);
        markdown.remove_prefix(close + 1);
    }
}

}  // namespace

std::string_view FaultPage::field(std::string_view name) const
{
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const auto& f) { return f.first == name; });
    return found == fields.end() ? std::string_view() : std::string_view(found->second);
}

const std::map<int, FaultPage>& faultPages()
{
    static const std::map<int, FaultPage> pages = [] {
        std::map<int, FaultPage> made;
        for (const FaultRow& row : faultRows())
            made.emplace(row.number, parse(row));
        return made;
    }();
    return pages;
}

const FaultPage* faultPage(int number)
{
    const auto found = faultPages().find(number);
    return found == faultPages().end() ? nullptr : &found->second;
}

std::string plainText(std::string_view markdown)
{
    std::string text;
    forEachStretch(markdown, [&](std::string_view words, bool) { text += words; });
    return text;
}

std::string htmlText(std::string_view markdown)
{
    std::string text;
    forEachStretch(markdown, [&](std::string_view words, bool isCode) {
        text += isCode ? "<code>" : "";
        text += htmlEscaped(words);
        text += isCode ? "</code>" : "";
    });
    return text;
}

}  // namespace archive
