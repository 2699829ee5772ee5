// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/archive/recordmaker.h"
#include "tests/support/propertysettings.h"
#include "tests/support/tempdir.h"
#include "tools/zmvutil/archive/src/base64.h"
#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/state.h"
#include "tools/zmvutil/archive/src/summary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <sys/wait.h>

namespace archive {
namespace {

std::string textOf(std::optional<long long> number)
{
    return number ? std::to_string(*number) : "-";
}

std::string textOf(const vidlint::Finding& f)
{
    const vidlint::Place& p = f.place;
    return fmt::format("finding {} {} [{}] {} [{}] {} [{}] {} {} {} {}\n", f.number,
                       static_cast<int>(f.level), f.text, p.offset, p.path, p.track, p.file, p.sample,
                       p.message, p.time, f.systemError);
}

std::string textOf(const vidlint::Track& t)
{
    return fmt::format("track {} {} [{}] [{}] [{}] {} {} {} {} {} {} {} {} {} {}\n", t.id,
                       static_cast<int>(t.kind), t.codec, t.rfc6381, t.language, t.width, t.height,
                       t.sampleRate, t.channels, textOf(t.samples), textOf(t.firstTime), textOf(t.lastTime),
                       t.plays, textOf(t.playsUntil), t.droppedBy ? textOf(*t.droppedBy) : "-");
}

/// Every field but the bytes of fixes.
std::string textOf(const InputRecord& record)
{
    const vidlint::InputReport& r = record.report;
    std::string text = fmt::format(
        "[{}] [{}] {} {} [{}] {} {} {} {} {} [{}] {} {} {} {} {} {}\n", record.root, record.name,
        record.crashed, record.change ? static_cast<int>(*record.change) : -1, r.path,
        static_cast<int>(r.kind), textOf(r.size), r.cancelled, static_cast<int>(r.verdict),
        static_cast<int>(r.cause), r.otherFormat, r.unreadable, r.findingsOmitted,
        textOf(r.announcedDuration), textOf(r.duration), textOf(r.playsUntil), textOf(r.messages));
    for (const vidlint::Finding& finding : r.findings)
        text += textOf(finding);
    for (const vidlint::Track& track : r.tracks)
        text += textOf(track);
    for (const vidlint::Fix& fix : r.fixes)
        text +=
            fmt::format("fix {} {} {} [{}]\n", fix.position, fix.replaceLength, fix.size, fix.description);
    return text + fmt::format("{} {} {} {}", r.identity.device, r.identity.inode, r.identity.modifiedSeconds,
                              r.identity.modifiedNanoseconds);
}

TEST(RecordJson, GivesTheRecordBack)
{
    RecordMaker maker(krx::test::propertySeed());
    for (auto left = krx::test::propertyCases(3000); left > 0; --left) {
        const InputRecord record = maker.record();
        const std::string line = toJson(record);
        EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; }))
            << line;
        ASSERT_EQ(textOf(fromJson(line)), textOf(record)) << line;
    }
}

TEST(RecordJson, TakesAnyBytes)
{
    const std::string sound =
        R"({"type":"input","path":"a","kind":"mp4","verdict":"valid","cause":"none","unknown":[{}]})";
    EXPECT_EQ(fromJson(sound).report.path, "a");
    const std::string odd =
        R"({"type":"input","path":"\ufffd","kind":"mp4","verdict":"valid","cause":"none")";
    EXPECT_EQ(fromJson(odd + R"(,"path_base64":"/w=="})").report.path, "\xff");
    const std::string head = sound.substr(0, sound.size() - 1);
    const std::string bad[] = {"",
                               "{",
                               "[]",
                               "null",
                               "1",
                               "\xff",
                               sound + "x",
                               std::string(100'000, '['),
                               R"({"type":"run"})",
                               R"({"type":"input","kind":"avi","verdict":"valid","cause":"none"})",
                               R"({"type":"input","kind":"mp4"})",
                               head + R"(,"bytes":1e300})",
                               head + R"(,"bytes":-0.5})",
                               head + R"(,"bytes":"1"})",
                               head + R"(,"bytes":18446744073709551615})",
                               head + R"(,"bytes":99999999999999999999})",
                               head + R"(,"tracks":{}})",
                               head + R"(,"tracks":[1]})",
                               head + R"(,"tracks":[{"kind":"video","id":4294967296}]})",
                               head + R"(,"tracks":[{"kind":"video","plays":1}]})",
                               head + R"(,"findings":[{"level":"bad"}]})",
                               head + R"(,"findings_omitted":-1})",
                               head + R"(,"identity":[]})",
                               odd + R"(,"path_base64":"YQ="})",
                               odd + R"(,"path_base64":1})",
                               head + R"(,"change":""})"};
    for (const std::string& line : bad)
        EXPECT_THROW(fromJson(line), std::runtime_error) << line.substr(0, 200);

    // What is damaged is read or refused, and never anything else.
    RecordMaker maker(krx::test::propertySeed());
    for (int i = 0; i < 2000; ++i) {
        std::string line = toJson(maker.record());
        line[maker.below(line.size())] = static_cast<char>(maker.below(256));
        try {
            (void)toJson(fromJson(line));
        } catch (const std::runtime_error&) {
        }
    }
}

TEST(RecordJson, FollowsTheSchema)
{
    const krx::test::TempDir dir;
    RecordMaker maker(krx::test::propertySeed());
    {
        std::ofstream out(dir.bytes("lines"));
        RunInfo run;
        run.endedAt = 1;
        run.roots = {"archive", "caf\xe9"};
        out << runJson(run, "2.0") << '\n';
        Summary summary;
        for (int i = 0; i < 500; ++i) {
            const InputRecord record = maker.record();
            summary.add(record);
            out << toJson(record) << '\n';
        }
        summary.search = SearchCounts();
        summary.changing = summary.failed = 1;
        out << summaryJson(summary) << '\n' << summaryJson(Summary()) << '\n';
    }
    const std::string command = fmt::format("'{}' '{}' '{}' 2>&1", SCHEMA_CHECK, SCHEMA, dir.bytes("lines"));
    const int status = std::system(command.c_str());
    if (WIFEXITED(status) && (WEXITSTATUS(status) == 77 || WEXITSTATUS(status) == 127))
        GTEST_SKIP() << "there is no library that reads schemas";
    EXPECT_EQ(status, 0);
}

TEST(Summary, CountsEachInputOnce)
{
    InputRecord record;
    record.change = Change::kNew;
    record.report.cause = vidlint::Cause::kDamaged;
    record.report.size = 10;
    record.report.findings.resize(3);
    record.report.findings[1].number = record.report.findings[2].number = -18;
    Summary summary;
    summary.add(record);
    record.crashed = true;
    summary.add(record);
    record.change = Change::kGone;
    summary.add(record);
    EXPECT_EQ(
        summaryJson(summary),
        R"({"type":"summary","complete":true,"inputs":2,"valid":0,"invalid":1,"crashed":1,"unreadable":0,)"
        R"("dropped_track":0,"bytes":20,"causes":{"damaged":1},"numbers":{"-18":1},)"
        R"("changes":{"new":2,"same":0,"fixed":0,"gone":1}})");
}

TEST(Base64, IsTheUsualOne)
{
    const std::pair<std::string, std::string> rows[] = {{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"\xfb\xff\xbf", "+/+/"},
                                                        {std::string("\0", 1), "AA=="}};
    for (const auto& [bytes, text] : rows) {
        EXPECT_EQ(toBase64(bytes), text);
        EXPECT_EQ(fromBase64(text), bytes);
    }
    for (const char* wrong : {"Z", "Zg", "Zg=", "Zh==", "Zg==Zg==", "Zm9v=", "Zm 9v", "===="})
        EXPECT_FALSE(fromBase64(wrong)) << wrong;
}

}  // namespace
}  // namespace archive
