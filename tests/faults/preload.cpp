// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// A library to preload into the program: it counts the program's system calls and makes a chosen one fail.
// The environment steers it:
//
//   FAULT        "CALL:N:ACTION".
//                CALL is open, stat, read, write, truncate, lock, close or malloc; any is all but malloc.
//                N is the number of the call from 1, "N+" that one and all after it, "*" every one.
//                ACTION is the number of an error, or one of
//                short       an eighth of what was asked for is moved
//                interrupt   EINTR; the same call made again goes through
//                shrink      the file FAULT_TARGET is cut to half, then the call goes on
//                grow        bytes are appended to it
//                vanish      it is removed (or moved away, when it is a directory)
//                stop        the process is stopped until somebody continues it
//                SIGn        the process sends itself the signal n, then the call goes on
//   FAULT_FILE   only calls on paths that begin with this text count, and on descriptors of such files; of a
//                path below an open folder only the rest is seen, and its descriptor is not followed;
//                malloc counts after the libraries are set up, since they need not survive a failure.
//   FAULT_COUNT  a file that receives the numbers of calls at the end, one line per CALL, and a line of
//                "peak" and the most KiB that were resident.

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <type_traits>
#include <unistd.h>

// The C library's allocator under its own names.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
}

namespace {

enum Call
{
    kOpen,
    kStat,
    kRead,
    kWrite,
    kTruncate,
    kLock,
    kClose,
    kMalloc,
    kAny,
    kCalls
};

constexpr const char* kNames[kCalls] = {"open", "stat",  "read",   "write", "truncate",
                                        "lock", "close", "malloc", "any"};
constexpr int kMaxFiles = 1024;

enum class Action
{
    kNone,
    kError,
    kShort,
    kInterrupt,
    kShrink,
    kGrow,
    kVanish,
    kSignal
};

struct Plan
{
    Call call = kAny;
    unsigned long first = 0;
    unsigned long last = 0;
    Action action = Action::kNone;
    int number = 0;  ///< of the error or the signal
    const char* file = nullptr;
    const char* target = nullptr;
};

unsigned long g_counts[kCalls];
bool g_started = false;
bool g_watched[kMaxFiles];

// Read at the first call, which may come before any constructor. Nothing here allocates.
const Plan& plan()
{
    static Plan result;
    static bool isRead = false;
    if (isRead)
        return result;
    isRead = true;
    result.file = std::getenv("FAULT_FILE");
    result.target = std::getenv("FAULT_TARGET");
    const char* text = std::getenv("FAULT");
    if (!text)
        return result;
    for (int i = 0; i < kCalls; ++i) {
        const std::size_t length = std::strlen(kNames[i]);
        if (std::strncmp(text, kNames[i], length) == 0 && text[length] == ':') {
            result.call = static_cast<Call>(i);
            text += length + 1;
            break;
        }
    }
    char* end = nullptr;
    result.first = std::strtoul(text, &end, 10);
    result.last = *end == '+' || *end == '*' ? ULONG_MAX : result.first;
    if (const char* action = std::strchr(end, ':')) {
        ++action;
        const struct
        {
            const char* name;
            Action action;
            int number;
        } words[] = {{"short", Action::kShort, 0},   {"interrupt", Action::kInterrupt, EINTR},
                     {"shrink", Action::kShrink, 0}, {"grow", Action::kGrow, 0},
                     {"vanish", Action::kVanish, 0}, {"stop", Action::kSignal, SIGSTOP}};
        result.action = Action::kError;
        result.number = std::atoi(action);
        for (const auto& word : words) {
            if (std::strcmp(action, word.name) == 0) {
                result.action = word.action;
                result.number = word.number;
            }
        }
        if (std::strncmp(action, "SIG", 3) == 0) {
            result.action = Action::kSignal;
            result.number = std::atoi(action + 3);
        }
    }
    return result;
}

template <typename Function>
Function* next(Function* /*like*/, const char* name)
{
    Function* result = nullptr;
    void* const symbol = ::dlsym(RTLD_NEXT, name);
    static_assert(sizeof symbol == sizeof result);
    std::memcpy(&result, &symbol, sizeof result);
    return result;
}

bool isWatched(const char* path)
{
    const char* const file = plan().file;
    return file && path && std::strncmp(path, file, std::strlen(file)) == 0;
}

bool isWatched(int fd)
{
    return fd >= 0 && fd < kMaxFiles && g_watched[fd];
}

/// Changes the file while the program runs, by plain system calls.
void change(Action action)
{
    const char* const file = plan().target;
    const long fd = ::syscall(SYS_openat, AT_FDCWD, file, O_WRONLY | O_APPEND, 0);
    if (action == Action::kShrink) {
        const long size = ::syscall(SYS_lseek, fd, 0, SEEK_END);
        (void)::syscall(SYS_ftruncate, fd, size / 2);
    } else if (action == Action::kGrow) {
        char bytes[4096] = {};
        (void)::syscall(SYS_write, fd, bytes, sizeof bytes);
    } else if (fd >= 0) {
        (void)::syscall(SYS_unlinkat, AT_FDCWD, file, 0);
    } else {
        char away[PATH_MAX];
        (void)std::snprintf(away, sizeof away, "%s-away", file);
        (void)::syscall(SYS_renameat2, AT_FDCWD, file, AT_FDCWD, away, 0);
    }
    (void)::syscall(SYS_close, fd);
}

/// Counts a call and does what is planned for it. Returns true, with errno set, when the call must fail. n,
/// if given, becomes the number of bytes that the call may move.
bool fails(Call call, std::size_t* n = nullptr)
{
    if (call == kMalloc && !g_started)
        return false;
    const Plan& p = plan();
    const unsigned long own = ++g_counts[call];
    const unsigned long any = call == kMalloc ? 0 : ++g_counts[kAny];
    const unsigned long number = p.call == kAny ? any : own;
    if ((p.call != call && p.call != kAny) || number < p.first || number > p.last || number == 0)
        return false;
    static bool wasInterrupted = false;
    switch (p.action) {
        case Action::kNone:
            return false;
        case Action::kError:
            errno = p.number;
            return true;
        case Action::kShort:
            if (n && *n > 1)
                *n = (*n + 7) / 8;
            return false;
        case Action::kInterrupt:
            // A close that is interrupted has closed, and the status of a file is never interrupted.
            if (call == kClose || call == kStat)
                return false;
            wasInterrupted = !wasInterrupted;
            errno = p.number;
            return wasInterrupted;
        case Action::kShrink:
        case Action::kGrow:
        case Action::kVanish:
            change(p.action);
            return false;
        case Action::kSignal:
            (void)::kill(::getpid(), p.number);
            return false;
    }
    return false;
}

/// In KiB, of this program alone, not of what ran in the process before it.
unsigned long peakMemory()
{
    char text[4096] = {};
    const long fd = ::syscall(SYS_openat, AT_FDCWD, "/proc/self/status", O_RDONLY, 0);
    (void)::syscall(SYS_read, fd, text, sizeof text - 1);
    (void)::syscall(SYS_close, fd);
    const char* const line = std::strstr(text, "VmHWM:");
    return line ? std::strtoul(line + 6, nullptr, 10) : 0;
}

__attribute__((destructor)) void tellCounts()
{
    const char* const path = std::getenv("FAULT_COUNT");
    if (!path)
        return;
    const long fd = ::syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const auto tell = [fd](const char* name, unsigned long n) {
        char text[64];
        const int length = std::snprintf(text, sizeof text, "%s %lu\n", name, n);
        (void)::syscall(SYS_write, fd, text, length);
    };
    for (int i = 0; i < kCalls; ++i)
        tell(kNames[i], g_counts[i]);
    tell("peak", peakMemory());
    (void)::syscall(SYS_close, fd);
}

template <typename Function>
int openFile(Function* like, const char* name, const char* path, int flags, mode_t mode)
{
    static Function* const real = next(like, name);
    const bool watched = isWatched(path);
    if (watched && fails(kOpen))
        return -1;
    int fd = -1;
    if constexpr (std::is_invocable_v<Function, const char*, int, mode_t>)
        fd = real(path, flags, mode);
    else
        fd = real(path, flags);
    if (fd >= 0 && fd < kMaxFiles)
        g_watched[fd] = watched;
    return fd;
}

mode_t modeOf(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

#define FAULTS_INTERPOSE extern "C" __attribute__((visibility("default")))

// A call has several names; how a program was compiled decides which one it uses.
// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are names and types.

#define FAULTS_OPEN(name)                                       \
    FAULTS_INTERPOSE int name(const char* path, int flags, ...) \
    {                                                           \
        va_list arguments;                                      \
        va_start(arguments, flags);                             \
        const mode_t mode = modeOf(flags, arguments);           \
        va_end(arguments);                                      \
        return openFile(&name, #name, path, flags, mode);       \
    }
FAULTS_OPEN(open)
FAULTS_OPEN(open64)

#define FAULTS_OPENAT(name)                                                         \
    FAULTS_INTERPOSE int name(int dir, const char* path, int flags, ...)            \
    {                                                                               \
        static auto* const real = next(&name, #name);                               \
        va_list arguments;                                                          \
        va_start(arguments, flags);                                                 \
        const mode_t mode = modeOf(flags, arguments);                               \
        va_end(arguments);                                                          \
        return isWatched(path) && fails(kOpen) ? -1 : real(dir, path, flags, mode); \
    }
FAULTS_OPENAT(openat)
FAULTS_OPENAT(openat64)

// Of programs with checks of the C library, where nothing is created.
#define FAULTS_OPEN_2(name)                                \
    FAULTS_INTERPOSE int name(const char* path, int flags) \
    {                                                      \
        return openFile(&name, #name, path, flags, 0);     \
    }
FAULTS_OPEN_2(__open_2)
FAULTS_OPEN_2(__open64_2)

#define FAULTS_OPENAT_2(name)                                                 \
    FAULTS_INTERPOSE int name(int dir, const char* path, int flags)           \
    {                                                                         \
        static auto* const real = next(&name, #name);                         \
        return isWatched(path) && fails(kOpen) ? -1 : real(dir, path, flags); \
    }
FAULTS_OPENAT_2(__openat_2)
FAULTS_OPENAT_2(__openat64_2)

#define FAULTS_STAT(name, type)                                           \
    FAULTS_INTERPOSE int name(const char* path, struct type* status)      \
    {                                                                     \
        static auto* const real = next(&name, #name);                     \
        return isWatched(path) && fails(kStat) ? -1 : real(path, status); \
    }
FAULTS_STAT(stat, stat)
FAULTS_STAT(stat64, stat64)

#define FAULTS_FSTAT(name, type)                                      \
    FAULTS_INTERPOSE int name(int fd, struct type* status)            \
    {                                                                 \
        static auto* const real = next(&name, #name);                 \
        return isWatched(fd) && fails(kStat) ? -1 : real(fd, status); \
    }
FAULTS_FSTAT(fstat, stat)
FAULTS_FSTAT(fstat64, stat64)

#define FAULTS_MOVE(name, call, buffer)                                    \
    FAULTS_INTERPOSE ssize_t name(int fd, buffer bytes, std::size_t n)     \
    {                                                                      \
        static auto* const real = next(&name, #name);                      \
        return isWatched(fd) && fails(call, &n) ? -1 : real(fd, bytes, n); \
    }
FAULTS_MOVE(read, kRead, void*)
FAULTS_MOVE(write, kWrite, const void*)

#define FAULTS_MOVE_AT(name, call, buffer, type)                                    \
    FAULTS_INTERPOSE ssize_t name(int fd, buffer bytes, std::size_t n, type offset) \
    {                                                                               \
        static auto* const real = next(&name, #name);                               \
        return isWatched(fd) && fails(call, &n) ? -1 : real(fd, bytes, n, offset);  \
    }
FAULTS_MOVE_AT(pread, kRead, void*, off_t)
FAULTS_MOVE_AT(pread64, kRead, void*, off64_t)
FAULTS_MOVE_AT(pwrite, kWrite, const void*, off_t)
FAULTS_MOVE_AT(pwrite64, kWrite, const void*, off64_t)

#define FAULTS_TRUNCATE(name, type)                                     \
    FAULTS_INTERPOSE int name(int fd, type size)                        \
    {                                                                   \
        static auto* const real = next(&name, #name);                   \
        return isWatched(fd) && fails(kTruncate) ? -1 : real(fd, size); \
    }
FAULTS_TRUNCATE(ftruncate, off_t)
FAULTS_TRUNCATE(ftruncate64, off64_t)

// NOLINTEND(bugprone-macro-parentheses)

FAULTS_INTERPOSE int flock(int fd, int operation)
{
    static auto* const real = next(&flock, "flock");
    return isWatched(fd) && fails(kLock) ? -1 : real(fd, operation);
}

FAULTS_INTERPOSE int statx(int dir, const char* path, int flags, unsigned mask, struct statx* status)
{
    static auto* const real = next(&statx, "statx");
    return isWatched(path) && fails(kStat) ? -1 : real(dir, path, flags, mask, status);
}

FAULTS_INTERPOSE int close(int fd)
{
    static auto* const real = next(&close, "close");
    const bool watched = isWatched(fd);
    if (watched)
        g_watched[fd] = false;
    // A close that fails has still closed.
    const bool failure = watched && fails(kClose);
    const int error = errno;
    const int result = real(fd);
    if (!failure)
        return result;
    errno = error;
    return -1;
}

// The sanitizers bring an allocator of their own.
#ifndef FAULTS_SANITIZED

namespace {

int (*g_main)(int, char**, char**) = nullptr;

int startedMain(int argc, char** argv, char** environment)
{
    g_started = true;
    return g_main(argc, argv, environment);
}

}  // namespace

// Starts the program's own code, after its shared and static libraries are set up.
FAULTS_INTERPOSE int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv,
                                       void (*init)(), void (*fini)(), void (*linkerFini)(), void* stackEnd)
{
    g_main = main;
    return next(&__libc_start_main, "__libc_start_main")(startedMain, argc, argv, init, fini, linkerFini,
                                                         stackEnd);
}

FAULTS_INTERPOSE void* malloc(std::size_t n)
{
    return fails(kMalloc) ? nullptr : __libc_malloc(n);
}

FAULTS_INTERPOSE void* calloc(std::size_t count, std::size_t n)
{
    return fails(kMalloc) ? nullptr : __libc_calloc(count, n);
}

FAULTS_INTERPOSE void* realloc(void* old, std::size_t n)
{
    return fails(kMalloc) ? nullptr : __libc_realloc(old, n);
}

#endif  // FAULTS_SANITIZED
