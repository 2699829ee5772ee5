// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/transcript.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <sys/wait.h>

namespace krx::test {
namespace {

constexpr std::string_view kPrompt = "$ ";

/// The command that starts a shell with an environment of its own.
std::string shell(const Transcript& transcript)
{
    std::map<std::string, std::string> variables = transcript.variables;
    variables["PATH"] = transcript.programs + ":/usr/local/bin:/usr/bin:/bin";
    variables["LC_ALL"] = "C";
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "LLVM_PROFILE_FILE", "TMPDIR"})
        if (const char* value = std::getenv(name))
            variables[name] = value;
    std::string command = "env -i";
    for (const auto& [name, value] : variables)
        command.append(" ").append(name).append("='").append(value).append("'");
    return command + " sh";
}

/// Runs the line. Returns all that it prints, and its status unless that is 0.
std::string run(const Transcript& transcript, const TempDir& dir, const std::string& line)
{
    dir.write("script", "cd '" + dir.bytes("work") + "' && { " + line + "\n}");
    const std::string command = shell(transcript) + " -c \"$(cat '" + dir.bytes("script") + "')\" >'" +
                                dir.bytes("out") + "' 2>&1 </dev/null";
    const int status = std::system(command.c_str());
    static const std::regex timeStamp(R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d)");
    static const std::regex memory(R"((Memory Overhead: )\d+)");
    // Of a build for coverage, under a limit for the size of files.
    static const std::regex profile("LLVM Profile Error: .*\n");
    std::string text = std::regex_replace(dir.read("out"), timeStamp, "TIME");
    text = std::regex_replace(text, memory, "$1N");
    text = std::regex_replace(text, profile, "");
    if (!text.empty() && text.back() != '\n')
        text += "(no line end)\n";
    if (!WIFEXITED(status))
        return text + "[killed]\n";
    if (WEXITSTATUS(status) != 0)
        text.append("[").append(std::to_string(WEXITSTATUS(status))).append("]\n");
    return text;
}

std::string contentOf(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

void expectTranscript(const Transcript& transcript, const TempDir& dir)
{
    const std::string expected = contentOf(transcript.path);
    ASSERT_FALSE(expected.empty()) << transcript.path;

    std::string actual;
    std::istringstream lines(expected);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, kPrompt.size(), kPrompt) == 0)
            actual += line + "\n" + run(transcript, dir, line.substr(kPrompt.size()));
        else if (actual.empty())
            FAIL() << transcript.path << " does not begin with a command";
    }
    if (std::getenv("VIDLINT_UPDATE_TRANSCRIPTS"))
        std::ofstream(transcript.path, std::ios::binary) << actual;
    else
        EXPECT_EQ(actual, expected);
}

}  // namespace krx::test
