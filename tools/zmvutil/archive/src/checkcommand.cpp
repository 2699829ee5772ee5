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
/// in all threads. The first one ends the run, the second one the process.
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
    ~Attendant()
    {
        if (m_thread.joinable())
            (void)finish();
    }

    /// Ends the thread. Returns the signal that ended the run; 0 for none.
    int finish()
    {
        m_thread.request_stop();
        // It need not wait for the end of its tick.
        ::pthread_kill(m_thread.native_handle(), SIGUSR1);
        m_thread.join();
        return m_ending;
    }

private:
    static constexpr std::size_t kNoTerminal = 1000;

    void attend(const std::stop_token& stop)
    {
        constexpr timespec kTick{0, 200'000'000};
        constexpr timespec kNow{0, 0};
        for (bool isLast = false;;) {
            const int signal = ::sigtimedwait(&m_signals, nullptr, isLast ? &kNow : &kTick);
            isLast = stop.stop_requested();
            m_run.flush();
            if (signal > 0 && signal != SIGUSR1)
                end(signal);
            else if (isLast && signal < 0)
                break;
            else if (!isLast && signal == SIGUSR1)
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
            endProcess(signal);
        m_ending = signal;
        m_run.stop();
    }
    /// The state is left as after any other end of the process.
    void endProcess(int signal) const
    {
        if (m_showsProgress)
            m_run.show("\r\x1b[K");
        (void)std::signal(signal, SIG_DFL);
        sigset_t one;
        ::sigemptyset(&one);
        ::sigaddset(&one, signal);
        ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
        (void)std::raise(signal);
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

/// SIGUSR1, and those that end the run unless they are ignored, as nohup and shells ask for.
sigset_t handledSignals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGUSR1);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            ::sigaddset(&signals, signal);
    }
    return signals;
}

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
    const sigset_t signals = handledSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    CheckRun run(*options);
    Attendant attendant(run, signals, options->showsProgress());
    const int status = run.run();
    const int signal = attendant.finish();
    return signal == 0 ? status : 128 + signal;
}

}  // namespace archive
