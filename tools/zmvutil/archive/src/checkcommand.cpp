// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/checkrun.h"
#include "tools/zmvutil/archive/src/commands.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace archive {
namespace {

/// Handles signals and shows the progress on a thread of its own while it lives. The signals must be blocked
/// in all threads.
class Attendant
{
public:
    Attendant(CheckRun& run, const sigset_t& signals, bool showsProgress)
        : m_run(run),
          m_signals(signals),
          m_showsProgress(showsProgress),
          m_thread([this](const std::stop_token& stop) { attend(stop); })
    {
    }
    Attendant(const Attendant&) = delete;
    Attendant& operator=(const Attendant&) = delete;
    ~Attendant() = default;

    /// Ends the thread. Returns the signal that ended the run; 0 for none.
    int finish()
    {
        m_thread.request_stop();
        m_thread.join();
        return m_ending;
    }

private:
    static constexpr std::size_t kNoTerminal = 1000;

    void attend(const std::stop_token& stop)
    {
        constexpr timespec kTick{0, 200'000'000};
        while (!stop.stop_requested()) {
            const int signal = ::sigtimedwait(&m_signals, nullptr, &kTick);
            if (signal == SIGUSR1)
                show(m_run.progressLine(kNoTerminal) + "\n");
            else if (signal > 0) {
                m_ending = signal;
                m_run.stop();
            } else if (m_showsProgress) {
                show("\r" + m_run.progressLine(columns() - 1) + "\x1b[K");
            }
        }
        if (m_showsProgress)
            show("\r\x1b[K");
    }
    static std::size_t columns()
    {
        winsize size{};
        return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
    }
    static void show(const std::string& text)
    {
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fflush(stderr);
    }

    CheckRun& m_run;
    const sigset_t m_signals;
    const bool m_showsProgress;
    std::atomic<int> m_ending{0};
    std::jthread m_thread;
};

bool showsProgress(const CheckOptions& options)
{
    return options.progress == When::kAlways ||
           (options.progress == When::kAuto && !options.isQuiet && ::isatty(STDERR_FILENO) != 0);
}

}  // namespace

int runCheck(const std::vector<std::string>& arguments)
{
    auto options = parseCheck(arguments);
    if (!options)
        return 0;
    options->settings.memory = std::make_shared<vidlint::MemoryQuota>(options->memory);
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1})
        ::sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    CheckRun run(*options);
    Attendant attendant(run, signals, showsProgress(*options));
    const int status = run.run();
    const int signal = attendant.finish();
    return signal == 0 ? status : 128 + signal;
}

}  // namespace archive
