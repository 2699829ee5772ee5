// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/commands.h"
#include "tools/zmvutil/archive/src/options.h"
#include "tools/zmvutil/archive/src/state.h"
#include "tools/zmvutil/archive/src/textformat.h"
#include "tools/zmvutil/archive/src/version.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::string_view kUsage =
    "Usage: vidlint-archive COMMAND [ARGUMENT]...\n"
    "\n"
    "  check [OPTION]... PATH...    search folders, check, print as inputs finish\n"
    "  list [OPTION]... STATE...    paths of inputs in states, for xargs and rsync\n"
    "  report [OPTION]... STATE...  what states hold: text, jsonl, csv or html\n"
    "  why FILE...                  all about single inputs\n"
    "  explain [NUMBER]...          what findings mean\n"
    "\n"
    "vidlint-archive COMMAND --help shows the options of a command, vidlint-archive --version the version.\n";

int fail(const char* sentence)
{
    const std::string text = "vidlint-archive: " + archive::escaped(sentence) + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
    return archive::kStatusUsage;
}

/// No file that is opened takes the place of a standard stream that is closed; using that one still fails. A
/// file size limit becomes a failed write instead of a deadly signal.
void prepareStandardStreams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) < 0)
            (void)::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
    (void)std::signal(SIGXFSZ, SIG_IGN);
}

int dispatch(const std::string& command, const std::vector<std::string>& arguments)
{
    if (command == "check")
        return archive::runCheck(arguments);
    if (command == "list")
        return archive::runList(arguments);
    if (command == "report")
        return archive::runReport(arguments);
    if (command == "why")
        return archive::runWhy(arguments);
    if (command == "explain")
        return archive::runExplain(arguments);
    if (command == "help" || command == "--help" || command == "-h") {
        std::fwrite(kUsage.data(), 1, kUsage.size(), stdout);
        return 0;
    }
    if (command == "--version" || command == "-V") {
        std::printf("vidlint-archive %s\n", archive::kVersion);
        return 0;
    }
    throw archive::UsageError("there is no command '" + command + "'; try vidlint-archive --help");
}

}  // namespace

int main(int argc, char** argv)
{
    prepareStandardStreams();
    try {
        if (argc < 2) {
            std::fwrite(kUsage.data(), 1, kUsage.size(), stderr);
            return archive::kStatusUsage;
        }
        return dispatch(argv[1], std::vector<std::string>(argv + 2, argv + argc));
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
