// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/zmvbuilder.h"
#include "tests/vidlint/inputrunner.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace krx::test {
namespace {

/// What a check of the bytes with the options finds.
struct Case
{
    std::string name;
    std::string bytes;
    std::string options;
    std::string findings;
};

void check(const std::vector<Case>& cases)
{
    InputRunner runner;
    for (const Case& c : cases) {
        const std::string findings = runner.findings(c.bytes, c.options);
        EXPECT_EQ(findings, c.findings) << c.name;
        EXPECT_EQ(runner.invalid, findings.ends_with("ok") ? 0 : 1) << c.name;
    }
}

/// A file whose last message is at the given time, with onMetaData in front of it. Its audio is empty, so
/// that nothing stalls.
std::string filmOf(unsigned time, const std::string& metaDataPayload, std::uint8_t type = ZmvBuilder::kData)
{
    return ZmvBuilder().data(0, metaDataPayload, type).audio(0, 0).video(time).bytes();
}

TEST(ZmvHeader, EveryLengthOfATinyFile)
{
    // None of them holds a message. The last-message check takes whatever the last four bytes are.
    const std::string file = ZmvBuilder(0).bytes() + std::string(2, '\0');
    const std::vector<std::string> findings = {"e5", "e5", "e5", "e5", "e5", "e5", "e5", "e5",
                                               "e5", "e9", "e9", "e9", "e9", "e5", "e5", "e5"};
    InputRunner runner;
    for (std::size_t n = 0; n < findings.size(); ++n)
        EXPECT_EQ(runner.findings(file.substr(0, n), "w"), findings[n]) << n << " bytes";
}

TEST(ZmvHeader, Fields)
{
    const std::string body = std::string(4, '\0') + ZmvBuilder().data(0, metaData(0)).bytes().substr(13);
    const auto withHeader = [&](const std::string& header) { return header + body; };
    check({
        {"length 0", withHeader(ZmvBuilder(0, 1, 0).bytes()), "w", "e8"},
        {"length 5 overlaps the field", withHeader(ZmvBuilder(0, 1, 5).bytes()), "w", "e9"},
        {"length past the end", withHeader(ZmvBuilder(0, 1, 0xFFFFFFFF).bytes()), "w", "e9"},
        {"longer header", ZmvBuilder(0, 1, 12).bytes() + "abc" + body, "w", "ok"},
        {"version 0", withHeader(ZmvBuilder(0, 0).bytes().substr(0, 9)), "w", "ok"},
        {"version 255, other flags", withHeader(ZmvBuilder(0xFA, 255).bytes().substr(0, 9)), "w", "ok"},
    });
}

TEST(ZmvBody, FramingAndOrder)
{
    const auto meta = [] { return ZmvBuilder().data(0, metaData(1)); };
    const std::string good = meta().audio(1000).video(1000).bytes();
    check({
        {"length 0", meta().audio(0, 0).video(1000, 0).audio(1000).bytes(), "w", "ok"},
        {"ends in a header", meta().audio(0).video(1000).raw(std::string("\x09\0\0\0\0\0\x0B", 7)).bytes(),
         "", "e5"},
        {"trailing bytes", good + "abcd", "w", "e9"},
        {"kinds are ordered apart",
         meta().video(500).audio(1000).video(500).audio(1000).data(0, Amf()).video(1000).bytes(), "", "ok"},
        {"backward video", meta().audio(0).video(1000).video(999).audio(1000).bytes(), "w", "e11"},
        {"backward data of both types",
         meta().data(1000, Amf(), ZmvBuilder::kDataAmf3).data(999, Amf()).bytes(), "w", "e11"},
        {"times above 24 bits", ZmvBuilder().audio(0x00FFFFFF).audio(0x01000000).bytes(), "", "e119"},
        {"encrypted unknown type", meta().message({52, 0, ""}).audio(0).video(1000).bytes(), "w", "e10"},
        {"bit 7 is no flag", meta().message({0x89, 0, ""}).audio(0).video(1000).bytes(), "w", "e10"},
        {"unknown types have no order", ZmvBuilder().audio(5).message({20, 0, ""}).bytes(), "w", "e10"},
    });
}

TEST(ZmvStall, Limits)
{
    const auto meta = [](double seconds) { return ZmvBuilder().data(0, metaData(seconds)); };
    const auto spaced = [&] { return meta(2.641).audio(0).audio(40).audio(80); };
    check({
        {"one audio, at the limit", meta(2).audio(0).video(2000).bytes(), "w", "ok"},
        {"one audio, past the limit", meta(2.001).audio(0).video(2001).bytes(), "w", "w110 ok"},
        {"spaced audio, at the limit", spaced().video(720).audio(2641).bytes(), "w", "ok"},
        {"spaced audio, past the limit", spaced().video(721).video(2641).bytes(), "w", "w110 ok"},
        {"data stalls as video does", spaced().video(80).data(2641, Amf()).bytes(), "w", "w110 ok"},
        {"empty audio ends the tracking", spaced().audio(90, 0).video(2641).bytes(), "w", "ok"},
        {"no audio yet", meta(9).video(0).video(9000).audio(9000).bytes(), "w", "ok"},
        {"spacing outlives a stall", meta(2.9).audio(0).audio(10).video(900).audio(2000).video(2900).bytes(),
         "w", "w110 w110 ok"},
        {"differences wrap", meta(1).audio(1000).video(500).audio(1000).bytes(), "w", "w110 ok"},
        {"as an error", meta(2.001).audio(0).video(2001).bytes(), "W", "e110"},
    });
}

TEST(ZmvMetaData, Findings)
{
    const auto object = [](Amf& amf) { return filmOf(30000, amf.end().bytes()); };
    const auto durationOf = [](double seconds) { return filmOf(30000, metaData(seconds)); };
    const auto begin = [] { return Amf().string("onMetaData").object(); };
    Amf renamed = begin().name("DURATION").string("30").name("CANSEEKTOEND").boolean(true);
    Amf noDuration = begin().name("canSeekToEnd").boolean(true);
    Amf canSeekNumber = begin().name("duration").number(30).name("canSeekToEnd").number(1);
    Amf twice =
        begin().name("duration").number(30).name("canSeekToEnd").boolean(true).name("duration").number(0);
    Amf nan = begin().name("duration").number(std::numeric_limits<double>::quiet_NaN());
    nan.name("canSeekToEnd").boolean(true);
    Amf empty = begin();
    Amf typed = Amf().string("onMetaData").typedObject("c").name("duration").number(30);
    const std::string both =
        ZmvBuilder().data(0, metaData(1)).data(0, metaData(9)).video(1000).audio(1000).bytes();
    const std::string bothBack =
        ZmvBuilder().data(0, metaData(9)).data(0, metaData(1)).video(1000).audio(1000).bytes();
    check({
        {"at the margin", durationOf(32), "wd2", "ok"},
        {"past the margin", durationOf(32.001), "w", "w100 e119"},
        {"below", durationOf(27.5), "w", "w100 e119"},
        {"no margin, exact", durationOf(30), "wd0", "ok"},
        {"no margin", durationOf(30.001), "wd0", "w100 e119"},
        {"a wrong duration fails without a warning line", durationOf(0), "", "e119"},
        {"as an error", durationOf(0), "W", "e100"},
        {"names and texts", object(renamed), "w", "ok"},
        {"no duration", object(noDuration), "w", "w100 e119"},
        {"canSeekToEnd is no boolean", object(canSeekNumber), "w", "w101 ok"},
        {"any wrong duration counts", object(twice), "w", "w100 e119"},
        {"not a number passes", object(nan), "w", "ok"},
        {"empty object", object(empty), "w", "w100 w101 e119"},
        {"typed object has no list", object(typed), "w", "w119 new ok"},
        {"no argument", filmOf(30000, Amf().string("onMetaData").bytes()), "w", "w119 new ok"},
        {"name is exact", filmOf(30000, Amf().string("onMetadata").object().end().bytes()), "", "e119"},
        {"the last one decides, bad", both, "w", "w100 e119"},
        {"the last one decides, good", bothBack, "w", "w100 ok"},
        {"encrypted", filmOf(30000, metaData(30), 50), "", "ok"},
        {"AMF3 type, AMF0 array", filmOf(30000, std::string(1, '\0') + metaData(30), 15), "", "ok"},
    });
}

TEST(ZmvMetaData, UnparsableMessages)
{
    const auto film = [](const std::string& payload) { return filmOf(1000, payload); };
    const std::string arguments("\x0A\xFF\xFF\xFF\xFF\0", 6);
    const std::string unknown("\x0E", 1);
    const auto named = [](const char* name, const std::string& rest) {
        return Amf().string(name).raw(rest).bytes();
    };
    check({
        {"array too long", film(named("onMetaData", arguments)), "w", "e12"},
        {"array too long, to be replaced", film(named("onMetaData", arguments)), "wm", "w119 new ok"},
        {"unknown marker", film(named("onMetaData", unknown)), "w", "e12"},
        {"unknown marker, to be replaced", film(named("onMetaData", unknown)), "wm", "w119 new ok"},
        {"replaced as an error", film(named("onMetaData", unknown)), "Wm", "e119"},
        {"another name", film(named("onCuePoint", unknown)), "wm", "e12"},
        {"no name", film(unknown), "wm", "e12"},
        {"second argument", film(metaData(1) + unknown), "wm", "w119 new ok"},
        {"empty message", film(""), "", "e119"},
        {"empty AMF3 message", filmOf(1000, "", 15), "", "e119"},
    });
}

}  // namespace
}  // namespace krx::test
