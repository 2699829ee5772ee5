// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// The two programs agree, it does not matter how the work is divided, and the lines are what their schema
// says.

#include "tests/archive/childprocess.h"
#include "tests/vidlint/sampleinputs.h"

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

namespace krx::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// What a program says of an input: whether it is valid, and the numbers of its findings in their order.
struct Said
{
    bool isValid = false;
    std::vector<int> numbers;

    friend bool operator==(const Said&, const Said&) = default;
    friend void PrintTo(const Said& said, std::ostream* out)
    {
        *out << (said.isValid ? "valid" : "invalid") << testing::PrintToString(said.numbers);
    }
};
using SaidOf = std::map<std::string, Said>;

/// Reads the report of vidlint.
SaidOf vidlintSays(const std::vector<std::string>& paths)
{
    std::vector<std::string> command = {VIDLINT_PROGRAM, "-nw", "--"};
    command.insert(command.end(), paths.begin(), paths.end());
    const std::string text = outputOf(command);
    SaidOf said;
    static const std::regex line(
        "(?:Error:|Warning:)\t(-\\d+)\t[^\t\n]*\t([^\t\n]*)\n|\t([^\t\n]*) passed\n");
    for (std::sregex_iterator it(text.begin(), text.end(), line), end; it != end; ++it) {
        if ((*it)[3].matched) {
            std::string path = (*it)[3];
            if (path.ends_with(".new"))
                path.resize(path.size() - 4);  // its corrected copy
            said[path].isValid = true;
        } else {
            said[(*it)[2]].numbers.push_back(std::stoi((*it)[1]));
        }
    }
    return said;
}

/// Checks the folder. Returns the lines of inputs, in order.
std::vector<std::string> archiveLines(const std::string& folder, const std::vector<std::string>& options)
{
    std::vector<std::string> command = {ARCHIVE_PROGRAM, "check", "--format=jsonl", "--min-age=0", folder};
    command.insert(command.end(), options.begin(), options.end());
    std::istringstream text(outputOf(command));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        if (line.starts_with(R"({"type":"input")"))
            lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    return lines;
}

/// vidlint shows no warnings of MP4 files.
SaidOf archiveSays(const std::vector<std::string>& lines)
{
    SaidOf said;
    for (const std::string& line : lines) {
        const json input = json::parse(line);
        Said& mine = said[input.at("path")];
        mine.isValid = input.at("verdict") == "valid";
        for (const json& finding : input.at("findings"))
            if (finding.at("number") != 0 && (input.at("kind") != "mp4" || finding.at("level") == "error"))
                mine.numbers.push_back(finding.at("number"));
    }
    return said;
}

TEST(Equality, OfVidlintAndOfAnyDivision)
{
    SampleInputs samples;
    samples.damage(static_cast<unsigned>(propertyCases(500)));
    const std::vector<std::string> lines = archiveLines(samples.dir.path(), {"-j1"});
    EXPECT_EQ(archiveLines(samples.dir.path(), {"-j2", "--io=1"}), lines);
    EXPECT_EQ(archiveLines(samples.dir.path(), {"-j7"}), lines);
    // Some need more memory than there is, others only more than is left beside others.
    const std::vector<std::string> frugal = archiveLines(samples.dir.path(), {"-j1", "--memory=60K"});
    EXPECT_NE(frugal, lines);
    EXPECT_EQ(archiveLines(samples.dir.path(), {"-j7", "--io=7", "--memory=60K"}), frugal);
    std::vector<std::string> ofShards;
    for (const char* const shard : {"--shard=1/3", "--shard=2/3", "--shard=3/3"}) {
        const std::vector<std::string> more = archiveLines(samples.dir.path(), {shard, "-j2"});
        EXPECT_GT(more.size(), lines.size() / 4);
        ofShards.insert(ofShards.end(), more.begin(), more.end());
    }
    std::sort(ofShards.begin(), ofShards.end());
    EXPECT_EQ(ofShards, lines);

    const SaidOf archive = archiveSays(lines);
    const SaidOf vidlint = vidlintSays(samples.paths);
    for (const std::string& path : samples.paths) {
        // A folder that is no recording, and a device.
        if (path.ends_with(".new") || path.ends_with("4-device.zmv")) {
            EXPECT_EQ(archive.count(path), 0U) << path;
            continue;
        }
        ASSERT_EQ(archive.count(path), 1U) << path;
        Said expected = vidlint.count(path) != 0 ? vidlint.at(path) : Said();
        // Only vidlint writes copies, and one of them cannot be written.
        if (std::erase(expected.numbers, -6) != 0)
            expected.isValid = true;
        EXPECT_EQ(archive.at(path), expected) << path;
    }
}

TEST(JsonLines, OfRunsFollowTheSchema)
{
    const TempDir dir;
    writeSamples(dir.bytes("in"));
    dir.write("in/name\xff.mp4", "");
    std::vector<std::string> command = {ARCHIVE_PROGRAM, "check",        "--format=jsonl", "--min-age=0",
                                        "--state",       dir.bytes("s"), "--shard=1/1",    dir.bytes("in")};
    std::string lines = outputOf(command);
    fs::remove(dir.bytes("in/sound.mp4"));
    command.insert(command.end(), {"--warnings-as-errors", "--set=Mp4/Playback/AllowAnyAVCProfile=true"});
    lines += outputOf(command);
    lines += outputOf({ARCHIVE_PROGRAM, "report", "--format=jsonl", dir.bytes("s")});
    for (int i = 0; i < 2; ++i) {
        int status = 0;
        (void)outputOf(
            {ARCHIVE_PROGRAM, "check", "--min-age=0", "--state", dir.bytes("t"), dir.bytes("in/recording")},
            &status,
            {{"LD_PRELOAD", FAULTS_PRELOAD}, {"FAULT", "open:2:SIG9"}, {"FAULT_FILE", dir.bytes("in")}});
        EXPECT_EQ(status, 128 + SIGKILL);
    }
    lines += outputOf({ARCHIVE_PROGRAM, "check", "--format=jsonl", "--min-age=0", "--state", dir.bytes("t"),
                       dir.bytes("in/recording")});
    EXPECT_NE(lines.find("\"crashed\":true"), std::string::npos);
    EXPECT_NE(lines.find("\"change\":\"gone\""), std::string::npos);
    dir.write("lines", lines);
    const std::string check = "'" SCHEMA_CHECK "' '" SCHEMA "' '" + dir.bytes("lines") + "' some >&2";
    const int status = std::system(check.c_str());
    if (WIFEXITED(status) && (WEXITSTATUS(status) == 77 || WEXITSTATUS(status) == 127))
        GTEST_SKIP() << "there is no library that reads schemas";
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace krx::test
