// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/recordjson.h"

#include "tools/zmvutil/archive/src/search.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace archive {

using vidlint::nameOf;

namespace {

template <typename Enum>
Enum named(const std::string& name)
{
    for (int i = 0; i < 16; ++i) {
        if (name == nameOf(static_cast<Enum>(i)))
            return static_cast<Enum>(i);
    }
    throw std::runtime_error("No such name.");
}

}  // namespace

std::string toJson(const InputRecord& record)
{
    nlohmann::json out;
    const vidlint::InputReport& report = record.report;
    out["type"] = "input";
    out["path"] = report.path;
    out["kind"] = nameOf(report.kind);
    out["verdict"] = nameOf(report.verdict);
    out["unreadable"] = report.unreadable;
    out["cause"] = nameOf(report.cause);
    out["crashed"] = record.crashed;
    out["findings_omitted"] = report.findingsOmitted;
    out["findings"] = nlohmann::json::array();
    for (const vidlint::Finding& finding : report.findings) {
        out["findings"].push_back(
            {{"number", finding.number}, {"level", nameOf(finding.level)}, {"text", finding.text}});
    }
    return out.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

InputRecord fromJson(std::string_view line)
{
    try {
        const auto in = nlohmann::json::parse(line);
        InputRecord record;
        vidlint::InputReport& report = record.report;
        report.path = in.at("path");
        report.kind = named<vidlint::InputKind>(in.at("kind"));
        report.verdict = named<vidlint::Verdict>(in.at("verdict"));
        report.cause = named<vidlint::Cause>(in.at("cause"));
        report.unreadable = in.at("unreadable");
        record.crashed = in.at("crashed");
        report.findingsOmitted = in.at("findings_omitted");
        for (const auto& item : in.at("findings")) {
            vidlint::Finding finding;
            finding.number = item.at("number");
            finding.level = named<vidlint::FindingLevel>(item.at("level"));
            finding.text = item.at("text");
            report.findings.push_back(std::move(finding));
        }
        return record;
    } catch (const nlohmann::json::exception& error) {
        throw std::runtime_error(error.what());
    }
}

unsigned shardOf(const std::string& name, unsigned shards)
{
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return static_cast<unsigned>(hash % shards) + 1;
}

}  // namespace archive
