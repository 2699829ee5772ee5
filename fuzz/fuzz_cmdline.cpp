// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Runs a whole command line, whose arguments are separated by line ends, over a directory with a few inputs
// of each kind. Names with a slash are left out: nothing outside the directory is opened or written.

#include "fuzz/fuzzing.h"
#include "tests/support/mp4samples.h"
#include "tests/support/rawbuilder.h"
#include "tests/support/rawsamples.h"
#include "tests/support/tempdir.h"
#include "tests/support/zmvbuilder.h"
#include "tests/support/zmvsamples.h"
#include "tools/zmvutil/vidlint/src/commandline.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace krx::test;

/// The current directory while one input runs, with one-letter names that a fuzzer finds easily. Fuzzers name
/// their own files relative to the directory where they began.
class Workplace
{
public:
    Workplace()
    {
        m_dir.write("a.zmv", find(zmvSamples(), "sound.zmv").bytes);
        m_dir.write("b.zmv", ZmvBuilder().video(0).audio(40).bytes());
        m_dir.write("c", find(mp4Samples(), "sound.mp4").bytes);
        RawBuilder::write(find(rawSamples(), "recording").files, m_dir.bytes("d"));
    }

    void enter() const { fs::current_path(m_dir.path()); }
    void leave() const { fs::current_path(m_home); }

private:
    template <typename Samples>
    static typename Samples::value_type find(const Samples& samples, std::string_view name)
    {
        const auto found = std::find_if(samples.begin(), samples.end(),
                                        [&](const auto& sample) { return sample.name == name; });
        require(found != samples.end());
        return *found;
    }

    const fs::path m_home = fs::current_path();
    const TempDir m_dir;
};

std::vector<std::string> splitLines(std::string_view text)
{
    std::vector<std::string> lines = {"vidlint"};
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string line(text.substr(0, end));
        // An argument ends at its first zero byte, as it does for any program.
        line.resize(std::min(line.find('\0'), line.size()));
        if (line.find('/') == std::string::npos)
            lines.push_back(std::move(line));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

int count(std::string_view text, std::string_view part)
{
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos;
         at = text.find(part, at + part.size()))
        ++found;
    return found;
}

void runCommandLine(std::string_view text)
{
    std::vector<std::string> arguments = splitLines(text);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());

    std::string report;
    ReportWriter writer([&report](std::string_view part) {
        report += part;
        return true;
    });
    VideoValidationJob job(writer);
    const bool runs = processCmdLineArgs(static_cast<int>(argv.size()), argv.data(), job);
    // Whatever ends the program early says why, even where silence is asked for later on the line.
    require(runs || job.files.empty());
    writer.flush();
    if (!runs) {
        require(!report.empty());
        return;
    }
    require(job.files.size() < arguments.size());
    const int invalid = job.validateAllFiles();
    require(invalid >= 0 && static_cast<std::size_t>(invalid) <= job.files.size());
    // Every input has its line, unless silence is asked for.
    if (!report.empty()) {
        require(count(report, "\tError:\t-") >= invalid);
        require(count(report, " passed\n\n") >= static_cast<int>(job.files.size()) - invalid);
    } else {
        require(std::any_of(arguments.begin() + 1, arguments.end(),
                            [](const std::string& argument) { return argument.rfind('-', 0) == 0; }));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const Workplace workplace;
    workplace.enter();
    runCommandLine({reinterpret_cast<const char*>(bytes), size});
    workplace.leave();
    return 0;
}
