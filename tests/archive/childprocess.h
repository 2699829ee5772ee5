// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace krx::test {

/// A program that runs beside the test. What it prints goes through a pipe of one page, so that it waits for
/// who does not read; standard error is that of the test unless it is to be dropped.
class ChildProcess
{
public:
    using Variables = std::map<std::string, std::string>;

    /// The variables are added to the environment.
    explicit ChildProcess(std::vector<std::string> arguments, const Variables& variables = {},
                          bool dropsErrors = false)
    {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        (void)::fcntl(ends[1], F_SETPIPE_SZ, 4096);
        m_pid = ::fork();
        if (m_pid == 0) {
            (void)::dup2(ends[1], STDOUT_FILENO);
            if (dropsErrors)
                (void)::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
            for (const auto& [name, value] : variables)
                (void)::setenv(name.c_str(), value.c_str(), 1);
            std::vector<char*> words;
            for (std::string& word : arguments)
                words.push_back(word.data());
            words.push_back(nullptr);
            (void)::execv(words[0], words.data());
            ::_exit(127);
        }
        (void)::close(ends[1]);
        m_output = ends[0];
    }
    ~ChildProcess()
    {
        signal(SIGKILL);
        (void)wait();
        (void)::close(m_output);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void signal(int number) const
    {
        if (m_isRunning)
            (void)::kill(m_pid, number);
    }
    /// Appends what it prints next, a page at most. False at the end.
    bool read(std::string& text) const
    {
        std::array<char, 4096> page{};
        ssize_t n = 0;
        do
            n = ::read(m_output, page.data(), page.size());
        while (n < 0 && errno == EINTR);
        if (n > 0)
            text.append(page.data(), static_cast<std::size_t>(n));
        return n > 0;
    }
    /// Returns the status of the exit, or the signal that ended it plus 128.
    int wait()
    {
        if (m_isRunning)
            (void)::waitpid(m_pid, &m_status, 0);
        m_isRunning = false;
        return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : 128 + WTERMSIG(m_status);
    }

private:
    pid_t m_pid = -1;
    int m_output = -1;
    int m_status = 0;
    bool m_isRunning = true;
};

/// Runs the program to its end. Returns what it printed.
inline std::string outputOf(const std::vector<std::string>& arguments, int* status = nullptr,
                            const ChildProcess::Variables& variables = {})
{
    ChildProcess child(arguments, variables, true);
    std::string text;
    while (child.read(text))
        continue;
    const int ended = child.wait();
    if (status)
        *status = ended;
    return text;
}

}  // namespace krx::test
