// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/stdstreams.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

/// Opens the lowest free descriptor on something that swallows or refuses every byte.
int openHarmless() noexcept
{
    const int fd = ::open("/dev/null", O_RDWR);
    return fd >= 0 ? fd : ::open("/", O_RDONLY | O_DIRECTORY);
}

bool writeAll(int fd, std::string_view text) noexcept
{
    while (!text.empty()) {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n > 0) {
            text.remove_prefix(static_cast<std::size_t>(n));
        } else if (n < 0 && errno == EAGAIN) {
            pollfd ready{fd, POLLOUT, 0};
            (void)::poll(&ready, 1, -1);
        } else if (n == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

void prepareStandardStreams() noexcept
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) < 0 && errno == EBADF)
            (void)openHarmless();
    }
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
}

void closeStandardOutput() noexcept
{
    const int fd = openHarmless();
    if (fd >= 0 && fd != STDOUT_FILENO) {
        (void)::dup2(fd, STDOUT_FILENO);
        (void)::close(fd);
    }
}

bool writeStandardOutput(std::string_view text) noexcept
{
    return writeAll(STDOUT_FILENO, text);
}

bool writeStandardError(std::string_view text) noexcept
{
    return writeAll(STDERR_FILENO, text);
}
