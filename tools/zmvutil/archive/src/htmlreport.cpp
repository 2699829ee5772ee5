// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/htmlreport.h"

#include "tools/zmvutil/archive/src/base64.h"
#include "tools/zmvutil/archive/src/faultspage.h"
#include "tools/zmvutil/archive/src/htmltext.h"
#include "tools/zmvutil/archive/src/pageassets.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <iterator>
#include <utility>

using vidlint::Cause;

namespace archive {
namespace {

constexpr std::size_t kMaxRowBytes = std::size_t{64} << 20;
constexpr std::size_t kMaxListed = 100;  ///< inputs in the list of a change

/// "sha256-..." as a content security policy names what may run.
std::string policySource(const PageAsset& asset)
{
    std::string bytes;
    for (std::size_t i = 0; i + 2 <= asset.sha256.size(); i += 2) {
        unsigned byte = 0;
        std::from_chars(asset.sha256.data() + i, asset.sha256.data() + i + 2, byte, 16);
        bytes += static_cast<char>(byte);
    }
    return "'sha256-" + toBase64(bytes) + "'";
}

std::string dateText(std::int64_t seconds)
{
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[64];
    if (!gmtime_r(&time, &parts) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &parts) == 0)
        return "at an unknown time";
    return text;
}

/// 1234567 as in "1,234,567".
std::string grouped(std::uint64_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3;) {
        i -= 3;
        text.insert(i, 1, ',');
    }
    return text;
}

std::string bytesText(std::uint64_t bytes)
{
    static constexpr const char* kUnits[] = {"bytes", "kB", "MB", "GB", "TB", "PB", "EB"};
    std::size_t unit = 0;
    auto number = static_cast<double>(bytes);
    for (; number >= 1000 && unit + 1 < std::size(kUnits); ++unit)
        number /= 1000;
    return fmt::format("{:.{}f} {}", number, unit == 0 ? 0 : 1, kUnits[unit]);
}

/// A bar of a chart. Its number stands beside it, so that nobody has to read it.
std::string barOf(std::uint64_t count, std::uint64_t largest)
{
    const double share = largest == 0 ? 0 : 100.0 * static_cast<double>(count) / static_cast<double>(largest);
    return fmt::format(
        "<svg class=\"bar\" aria-hidden=\"true\"><rect width=\"{:.2f}%\" height=\"100%\"/></svg>",
        std::max(share, 0.5));
}

/// A button that page.js makes filter the table.
std::string showButton(const char* filter, const std::string& value, const std::string& about)
{
    return fmt::format(
        "<button type=\"button\" class=\"show needs-script\" data-filter=\"{}\" data-value=\"{}\">"
        "Show<span class=\"unseen\"> inputs with {}</span></button>",
        filter, htmlEscaped(value), htmlEscaped(about));
}

void writeHead(std::ostream& out)
{
    fmt::print(out,
               "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
               "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src {}; "
               "style-src {}; base-uri 'none'; form-action 'none'; require-trusted-types-for 'script'\">\n"
               "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
               "<meta name=\"color-scheme\" content=\"light dark\">\n"
               "<meta name=\"referrer\" content=\"no-referrer\">\n"
               "<title>Archive report</title>\n<style>{}</style>\n</head>\n",
               policySource(scriptAsset()), policySource(styleAsset()), styleAsset().text);
}

void writeRuns(std::ostream& out, const std::vector<RunInfo>& runs)
{
    constexpr std::size_t kMaxRoots = 20;
    for (const RunInfo& run : runs) {
        out << "<p class=\"run\">";
        for (std::size_t i = 0; i < std::min(run.roots.size(), kMaxRoots); ++i)
            out << (i > 0 ? ", " : "") << "<code>" << htmlOfBytes(run.roots[i]) << "</code>";
        if (run.roots.size() > kMaxRoots)
            out << " and " << run.roots.size() - kMaxRoots << " more";
        if (run.shards > 1)
            out << ", shard " << run.shard << " of " << run.shards;
        out << ", checked " << dateText(run.endedAt.value_or(run.startedAt));
        out << (run.endedAt ? "" : ", <strong>not finished</strong>") << "</p>\n";
    }
}

void writeTotals(std::ostream& out, const Summary& summary)
{
    const auto write = [&](const char* name, const std::string& value) {
        out << "<div><dt>" << name << "</dt><dd>" << value << "</dd></div>\n";
    };
    out << "<section aria-labelledby=\"totals\">\n<h2 id=\"totals\">Totals</h2>\n<dl class=\"totals\">\n";
    write("inputs", grouped(summary.inputs));
    write("valid", grouped(summary.valid));
    write("invalid", grouped(summary.invalid));
    write("cut short", grouped(summary.of(Cause::kCutShort)));
    write("with a dropped track", grouped(summary.droppedTrack));
    if (summary.crashed > 0)
        write("crashed", grouped(summary.crashed));
    write("size", bytesText(summary.bytes));
    out << "</dl>\n</section>\n";
}

/// Causes with their inputs, the largest first.
std::vector<std::pair<Cause, std::uint64_t>> causesOf(const Summary& summary)
{
    std::vector<std::pair<Cause, std::uint64_t>> causes;
    for (std::size_t i = 1; i < kCauses; ++i)
        if (summary.byCause[i] > 0)
            causes.emplace_back(static_cast<Cause>(i), summary.byCause[i]);
    std::stable_sort(causes.begin(), causes.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return causes;
}

void writeCauses(std::ostream& out, const Summary& summary)
{
    out << "<section aria-labelledby=\"causes\">\n<h2 id=\"causes\">By cause</h2>\n";
    const auto causes = causesOf(summary);
    if (causes.empty()) {
        out << "<p>No input has a cause to do something about it.</p>\n</section>\n";
        return;
    }
    out << "<table class=\"chart\">\n<caption class=\"unseen\">Inputs by cause</caption>\n<thead><tr>"
           "<th scope=\"col\">Cause</th><th scope=\"col\">What to do</th>"
           "<th scope=\"col\" class=\"number\">Inputs</th><td></td><td></td></tr></thead>\n<tbody>\n";
    for (const auto& [cause, count] : causes)
        out << "<tr><th scope=\"row\">" << nameOf(cause) << "</th><td>" << remedyOf(cause)
            << "</td><td class=\"number\">" << grouped(count) << "</td><td class=\"chart-bar\">"
            << barOf(count, causes.front().second) << "</td><td>"
            << showButton("cause", nameOf(cause), std::string("cause ") + nameOf(cause)) << "</td></tr>\n";
    out << "</tbody>\n</table>\n</section>\n";
}

/// What the page of findings says of a number, behind its sentence.
std::string explanationOf(int number)
{
    const FaultPage* const page = faultPage(number);
    if (!page)
        return "This number is not known.";
    std::string text = fmt::format("<details data-number=\"{}\"><summary>", number) +
                       htmlText(page->field("Text")) + "</summary>\n<dl>";
    for (const auto& [name, words] : page->fields)
        if (name != "Text" && name != "Sample")
            text += "<dt>" + htmlEscaped(name) + "</dt><dd>" + htmlText(words) + "</dd>\n";
    return text + "</dl></details>";
}

void writeNumbers(std::ostream& out, const Summary& summary)
{
    out << "<section aria-labelledby=\"numbers\">\n<h2 id=\"numbers\">By number</h2>\n";
    std::vector<std::pair<int, std::uint64_t>> numbers(summary.byNumber.rbegin(), summary.byNumber.rend());
    if (numbers.empty()) {
        out << "<p>There is no finding.</p>\n</section>\n";
        return;
    }
    std::stable_sort(numbers.begin(), numbers.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    constexpr std::size_t kMostNumbers = 200;  // more than there are
    numbers.resize(std::min(numbers.size(), kMostNumbers));
    out << "<table class=\"chart\">\n<caption class=\"unseen\">Inputs by number of their findings</caption>\n"
           "<thead><tr><th scope=\"col\" class=\"number\">Number</th><th scope=\"col\">Finding</th>"
           "<th scope=\"col\" class=\"number\">Inputs</th><td></td><td></td></tr></thead>\n<tbody>\n";
    for (const auto& [number, count] : numbers)
        out << "<tr><th scope=\"row\" class=\"number\">" << number << "</th><td>" << explanationOf(number)
            << "</td><td class=\"number\">" << grouped(count) << "</td><td class=\"chart-bar\">"
            << barOf(count, numbers.front().second) << "</td><td>"
            << showButton("number", std::to_string(number), "number " + std::to_string(number))
            << "</td></tr>\n";
    out << "</tbody>\n</table>\n</section>\n";
}

void writeList(std::ostream& out, const char* title, const std::vector<std::string>& items,
               std::uint64_t count)
{
    if (count == 0)
        return;
    constexpr std::size_t kFew = 20;
    out << (count <= kFew ? "<details open>" : "<details>") << "<summary>" << grouped(count) << " " << title
        << "</summary>\n<ul class=\"paths\">\n";
    for (const std::string& item : items)
        out << "<li>" << item << "</li>\n";
    if (count > items.size())
        out << "<li>and " << grouped(count - items.size()) << " more</li>\n";
    out << "</ul></details>\n";
}

}  // namespace

void HtmlReport::Listed::add(const InputRecord& record)
{
    if (count++ >= kMaxListed)
        return;
    const std::string cause = record.crashed ? "crashed" : causeText(record.report);
    items.push_back("<code>" + htmlOfBytes(record.report.path) + "</code> " + htmlEscaped(cause));
}

void HtmlReport::add(const InputRecord& record)
{
    m_summary.add(record);
    if (record.change == Change::kFixed)
        m_fixed.add(record);
    if (record.change == Change::kGone)
        m_gone.add(record);
    const std::optional<PageRank> rank = pageRankOf(record);
    if (!rank)
        return;
    ++m_withFindings;
    if (*rank == PageRank::kNewFault)
        m_newFaults.add(record);
    if (hasRoomFor(*rank))
        keep(*rank, pageRow(record));
}

bool HtmlReport::hasRoomFor(PageRank rank) const
{
    // A full page takes a row in the place of one that matters less.
    return (rowCount() < m_maxInputs && m_rowBytes < kMaxRowBytes) ||
           std::any_of(m_rows.begin() + static_cast<std::ptrdiff_t>(rank) + 1, m_rows.end(),
                       [](const auto& rows) { return !rows.empty(); });
}

void HtmlReport::keep(PageRank rank, std::string json)
{
    m_rowBytes += json.size();
    m_rows[static_cast<std::size_t>(rank)].push_back({m_withFindings, std::move(json)});
    while (rowCount() > m_maxInputs || m_rowBytes > kMaxRowBytes)
        dropLast();
}

void HtmlReport::dropLast()
{
    const auto rows = std::find_if(m_rows.rbegin(), m_rows.rend(), [](const auto& r) { return !r.empty(); });
    m_rowBytes -= rows->back().json.size();
    rows->pop_back();
}

std::size_t HtmlReport::rowCount() const
{
    std::size_t count = 0;
    for (const auto& rows : m_rows)
        count += rows.size();
    return count;
}

void HtmlReport::writeChanges(std::ostream& out) const
{
    if (!m_summary.hasChanges)
        return;
    out << "<section aria-labelledby=\"changes\">\n<h2 id=\"changes\">Since the last run</h2>\n";
    if (m_newFaults.count + m_fixed.count + m_gone.count == 0)
        out << "<p>Nothing new is wrong, nothing was fixed, and nothing is gone.</p>\n";
    writeList(out, "with new faults", m_newFaults.items, m_newFaults.count);
    if (m_newFaults.count > 0)
        out << "<p>" << showButton("change", "new", "change new") << "</p>\n";
    writeList(out, "fixed", m_fixed.items, m_fixed.count);
    writeList(out, "gone", m_gone.items, m_gone.count);
    out << "</section>\n";
}

void HtmlReport::writeRows(std::ostream& out) const
{
    std::vector<const Row*> rows;
    for (const auto& kept : m_rows)
        for (const Row& row : kept)
            rows.push_back(&row);
    std::sort(rows.begin(), rows.end(), [](const Row* a, const Row* b) { return a->position < b->position; });
    out << "<section aria-labelledby=\"inputs\">\n<h2 id=\"inputs\" tabindex=\"-1\">Inputs with "
           "findings</h2>\n";
    if (rows.size() < m_withFindings)
        out << "<p>" << grouped(rows.size()) << " of " << grouped(m_withFindings)
            << " inputs are listed. What is new was kept first, then what is wrong, then what only "
               "warns.</p>\n";
    out << "<noscript><p>The table needs scripts, which this browser does not run.</p></noscript>\n"
           "<svg class=\"defs\" aria-hidden=\"true\"><defs><pattern id=\"hatch\" width=\"5\" height=\"5\" "
           "patternUnits=\"userSpaceOnUse\" patternTransform=\"rotate(45)\"><line class=\"hatch\" y2=\"5\" "
           "stroke-width=\"2\"/></pattern></defs></svg>\n"
           "<div id=\"table\"></div>\n</section>\n</main>\n<script type=\"application/json\" id=\"rows\">[";
    for (std::size_t i = 0; i < rows.size(); ++i)
        out << (i > 0 ? ",\n" : "\n") << rows[i]->json;
    out << "]</script>\n";
}

void HtmlReport::write(std::ostream& out, const std::vector<RunInfo>& runs) const
{
    writeHead(out);
    out << "<body>\n<a class=\"skip\" href=\"#inputs\">Skip to the inputs</a>\n<header>\n<h1>Archive "
           "report</h1>\n";
    writeRuns(out, runs);
    out << "</header>\n<main>\n";
    writeTotals(out, m_summary);
    writeChanges(out);
    writeCauses(out, m_summary);
    writeNumbers(out, m_summary);
    writeRows(out);
    out << "<script>" << scriptAsset().text << "</script>\n</body>\n</html>\n";
}

}  // namespace archive
