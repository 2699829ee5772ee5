// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Runs the real program as a user does. A transcript is what a terminal would show. Lines that begin
// with "$ " go to the shell. The lines up to the next one must be exactly what they print (both streams, time
// stamps shown as TIME, memory sizes as N), then "[N]" when the status is not 0. The lines of a transcript
// run in order in their own directory. It holds the samples and, in the folder "encoded", files of a general
// encoder. With VIDLINT_UPDATE_TRANSCRIPTS set, the output replaces what the files expect.

#include "tests/support/tempdir.h"
#include "tests/support/writesamples.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <sys/wait.h>

namespace krx::test {
namespace {

constexpr std::string_view kPrompt = "$ ";

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Runs the line in a shell. Returns all that it prints, and its status unless that is 0.
std::string run(const TempDir& dir, const std::string& line)
{
    dir.write("script", "cd '" + dir.bytes("work") + "' && { " + line + "\n}");
    std::string command = "env -i PATH=" VIDLINT_DIR ":/usr/local/bin:/usr/bin:/bin LC_ALL=C";
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "LLVM_PROFILE_FILE", "TMPDIR"})
        if (const char* value = std::getenv(name))
            command.append(" ").append(name).append("='").append(value).append("'");
    command += " sh -c \"$(cat '" + dir.bytes("script") + "')\" >'" + dir.bytes("out") + "' 2>&1 </dev/null";
    const int status = std::system(command.c_str());
    static const std::regex timeStamp(R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d)");
    static const std::regex memory(R"((Memory Overhead: )\d+)");
    std::string text = std::regex_replace(dir.read("out"), timeStamp, "TIME");
    text = std::regex_replace(text, memory, "$1N");
    if (!text.empty() && text.back() != '\n')
        text += "(no line end)\n";
    if (!WIFEXITED(status))
        return text + "[killed]\n";
    if (WEXITSTATUS(status) != 0)
        text.append("[").append(std::to_string(WEXITSTATUS(status))).append("]\n");
    return text;
}

class Transcript : public testing::TestWithParam<const char*>
{
};

TEST_P(Transcript, PrintsWhatIsExpected)
{
    const std::string path = std::string(TRANSCRIPTS_DIR "/") + GetParam() + ".transcript";
    const std::string expected = readFile(path);
    ASSERT_FALSE(expected.empty()) << path;

    const TempDir dir;
    writeSamples(dir.bytes("work"));
    std::filesystem::copy(ENCODED_DIR, dir.bytes("work/encoded"));

    std::string actual;
    std::istringstream lines(expected);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, kPrompt.size(), kPrompt) == 0)
            actual += line + "\n" + run(dir, line.substr(kPrompt.size()));
        else if (actual.empty())
            FAIL() << path << " does not begin with a command";
    }
    if (std::getenv("VIDLINT_UPDATE_TRANSCRIPTS"))
        std::ofstream(path, std::ios::binary) << actual;
    else
        EXPECT_EQ(actual, expected);
}

INSTANTIATE_TEST_SUITE_P(Cli, Transcript,
                         testing::Values("options", "samples", "faults", "repair", "names", "streams",
                                         "recordings", "movies", "encoded"),
                         [](const auto& transcript) { return std::string(transcript.param); });

}  // namespace
}  // namespace krx::test
