// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/faults/faultrunner.h"

#include "tests/support/mp4builder.h"
#include "tests/support/rawbuilder.h"
#include "tests/support/zmvbuilder.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace krx::test {
namespace {

namespace fs = std::filesystem;

/// No run takes a tenth of it.
constexpr unsigned kSecondsToHang = 30;

/// Age of the inputs in seconds: a write shows in it.
constexpr time_t kAge = 3600;

/// Needs metadata and two silences, and takes several reads and writes.
std::string film()
{
    ZmvBuilder film;
    for (unsigned i = 0; i < 40; ++i) {
        if (i % 20 < 10)
            film.audio(i * 500, 16000);
        else
            film.video(i * 500, 16000);
    }
    return film.bytes();
}

std::string movie()
{
    Movie movie;
    movie.tracks = {avcTrack(12), aacTrack(12)};
    movie.samplesPerFragment = 5;
    return buildMovie(movie).bytes;
}

std::string victimName(Victim kind)
{
    return kind == Victim::kFilm ? "victim.zmv" : kind == Victim::kMovie ? "victim.mp4" : "victim";
}

bool hasPassed(const Outcome& outcome, const std::string& input)
{
    return outcome.report.find(" \t" + input + " passed\n") != std::string::npos;
}

void setLimit(int resource, rlim_t most)
{
    const rlimit limit{most, most};
    (void)::setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

/// The child's side; never returns.
[[noreturn]] void become(const FaultRun& how, std::vector<std::string>& arguments,
                         std::vector<std::string>& environment, const std::string& report,
                         const std::string& errors)
{
    const auto put = [](int fd, int as) {
        (void)::dup2(fd, as);
        if (fd != as)
            (void)::close(fd);
    };
    put(::open("/dev/null", O_RDONLY), STDIN_FILENO);
    put(::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    std::array<int, 2> pipe{};
    if (how.withoutReader && ::pipe(pipe.data()) == 0) {
        (void)::close(pipe[0]);
        put(pipe[1], STDOUT_FILENO);
    } else {
        const std::string& output = how.output.empty() ? report : how.output;
        put(::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
    }
    if (how.withoutOutput)
        (void)::close(STDOUT_FILENO);
    // Whoever started the tests may have left some open.
    (void)::close_range(STDERR_FILENO + 1, ~0U, 0);
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        result.reserve(texts.size() + 1);
        for (std::string& text : texts)
            result.push_back(text.data());
        result.push_back(nullptr);
        return result;
    };
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> envp = pointers(environment);
    (void)::alarm(kSecondsToHang);
    for (const auto& [resource, most] : how.limits)
        setLimit(resource, most);
    (void)::execve(FAULTS_VIDLINT, argv.data(), envp.data());
    ::_exit(127);
}

}  // namespace

FaultRunner::FaultRunner(Victim victim)
    : kind(victim), path(dir.bytes("in/" + victimName(victim))), target(path)
{
    m_files["other.zmv"] = ZmvBuilder().data(0, metaData(1)).audio(0).video(1000).bytes();
    if (kind == Victim::kFilm) {
        m_files["victim.zmv"] = film();
    } else if (kind == Victim::kMovie) {
        m_files["victim.mp4"] = movie();
    } else {
        for (const auto& [name, bytes] : smallRecording().files())
            m_files["victim/" + name] = bytes;
        target = path + "/" + RawBuilder::fileName(0);
    }
    restore();
}

void FaultRunner::restore()
{
    fs::remove_all(dir.bytes("in"));
    dir.makeDir("in/" + std::string(kind == Victim::kRecording ? "victim" : ""));
    for (const auto& [name, bytes] : m_files) {
        dir.write("in/" + name, bytes);
        const timespec old[2] = {{::time(nullptr) - kAge, 0}, {::time(nullptr) - kAge, 0}};
        (void)::utimensat(AT_FDCWD, dir.bytes("in/" + name).c_str(), old, 0);
    }
}

Outcome FaultRunner::run(const FaultRun& how, const std::vector<std::string>& options)
{
    std::vector<std::string> arguments = {"vidlint"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), {path, dir.bytes("in/other.zmv")});
    std::vector<std::string> environment = {"LC_ALL=C", "TZ=UTC"};
    const auto set = [&](const std::string& name, const std::string& value) {
        environment.push_back(name + "=" + value);
    };
    set("LD_PRELOAD", FAULTS_PRELOAD);
    set("FAULT", how.fault);
    set("FAULT_FILE", path);
    set("FAULT_TARGET", target);
    set("FAULT_COUNT", dir.bytes("calls"));
    for (const char* name :
         {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "LLVM_PROFILE_FILE"})
    {
        if (const char* value = std::getenv(name))
            set(name, value);
    }
    const std::string report = dir.bytes("report");
    const std::string errors = dir.bytes("errors");
    dir.write("report", "");
    const pid_t pid = ::fork();
    if (pid == 0)
        become(how, arguments, environment, report, errors);

    Outcome outcome;
    int status = 0;
    while (::waitpid(pid, &status, WUNTRACED) == pid && WIFSTOPPED(status))
        (void)::kill(pid, SIGCONT);
    if (WIFEXITED(status))
        outcome.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        outcome.signal = WTERMSIG(status);
    outcome.report = dir.read("report");
    // Without memory or space the coverage profile, if one is kept, cannot be written.
    static const std::regex unrecorded("LLVM Profile Error: [^\n]*\n");
    outcome.errors = std::regex_replace(dir.read("errors"), unrecorded, "");
    std::istringstream calls(dir.read("calls"));
    std::string name;
    for (unsigned long n = 0; calls >> name >> n;)
        if (name == "peak")
            outcome.peak = n * 1024;
        else
            outcome.calls[name] = n;
    return outcome;
}

int FaultRunner::passed(const Outcome& outcome) const
{
    return static_cast<int>(hasPassed(outcome, path) || hasPassed(outcome, path + ".new")) +
           static_cast<int>(hasPassed(outcome, dir.bytes("in/other.zmv")));
}

int FaultRunner::verdict(const Outcome& outcome)
{
    static const std::regex numbered("\tError:\t-(\\d+)\t[^\n]*\t([^\t\n]+)\n");
    int number = -1;
    int lines = 0;
    for (std::sregex_iterator it(outcome.report.begin(), outcome.report.end(), numbered), end; it != end;
         ++it) {
        EXPECT_EQ((*it)[2], path);
        number = std::stoi((*it)[1]);
        ++lines;
    }
    const bool isCopied = hasPassed(outcome, path + ".new");
    const bool isValid = isCopied || hasPassed(outcome, path);
    EXPECT_EQ(outcome.signal, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.status, isValid ? 0 : 1) << outcome.report;
    EXPECT_EQ(isCopied, isValid && kind == Victim::kFilm) << outcome.report;
    EXPECT_EQ(passed(outcome), isValid ? 2 : 1) << outcome.report;
    EXPECT_LE(lines, isValid ? 0 : 1) << outcome.report;
    EXPECT_TRUE(!isCopied || hasWholeCopy());
    return isValid ? 0 : number;
}

void FaultRunner::expectNoHarm()
{
    for (const auto& [name, bytes] : m_files) {
        EXPECT_EQ(dir.read("in/" + name), bytes) << name;
        struct stat st = {};
        EXPECT_EQ(::stat(dir.bytes("in/" + name).c_str(), &st), 0) << name;
        EXPECT_LE(st.st_mtime, ::time(nullptr) - kAge) << name;
    }
    EXPECT_TRUE(hasWholeCopy() || dir.read("in/victim.zmv.new").compare(0, 3, "ZMV") != 0);
}

}  // namespace krx::test
