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
        // Ends its wait.
        ::pthread_kill(m_thread.native_handle(), SIGUSR1);
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
            m_run.flush();
            if (signal > 0 && signal != SIGUSR1)
                end(signal);
            else if (stop.stop_requested())
                break;
            else if (signal == SIGUSR1)
                m_run.show(m_run.progressLine(kNoTerminal) + "\n");
            else if (m_showsProgress)
                m_run.show("\r" + m_run.progressLine(columns() - 1) + "\x1b[K");
        }
        if (m_showsProgress)
            m_run.show("\r\x1b[K");
    }
    /// The first signal lets the run end in order, which a read that hangs may hinder. The second one does
    /// not wait for it.
    void end(int signal)
    {
        if (m_ending != 0)
            ::_exit(128 + signal);
        m_ending = signal;
        m_run.stop();
    }
    static std::size_t columns()
    {
        winsize size{};
        return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
    }

    CheckRun& m_run;
    const sigset_t m_signals;
    const bool m_showsProgress;
    std::atomic<int> m_ending{0};
    std::jthread m_thread;
};

}  // namespace

int runCheck(const std::vector<std::string>& arguments)
{
    auto options = parseCheck(arguments);
    if (!options)
        return 0;
    // A run with a state goes on when nobody reads its results any more.
    if (!options->state.empty())
        (void)std::signal(SIGPIPE, SIG_IGN);
    options->settings.memory = std::make_shared<vidlint::MemoryQuota>(options->memory);
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1})
        ::sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    CheckRun run(*options);
    Attendant attendant(run, signals, options->showsProgress());
    const int status = run.run();
    const int signal = attendant.finish();
    return signal == 0 ? status : 128 + signal;
}

}  // namespace archive
