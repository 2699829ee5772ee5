// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/stamps.h"

#include "tools/zmvutil/archive/src/fnv.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <string_view>

namespace archive {
namespace {

/// A file system may hold seconds beyond the years that nanoseconds reach (1678 to 2262).
long long nanosecondsOf(const timespec& time)
{
    constexpr long long kPerSecond = 1'000'000'000;
    constexpr long long kMost = std::numeric_limits<long long>::max() / kPerSecond - 1;
    return std::clamp<long long>(time.tv_sec, -kMost, kMost) * kPerSecond + time.tv_nsec;
}

std::uint64_t hashOf(std::uint64_t hash, long long number)
{
    const auto value = static_cast<std::uint64_t>(number);
    for (unsigned shift = 0; shift < 64; shift += 8) {
        const char byte = static_cast<char>(value >> shift);
        hash = fnv1a({&byte, 1}, hash);
    }
    return hash;
}

long long sum(long long a, long long b)
{
    return a > std::numeric_limits<long long>::max() - b ? std::numeric_limits<long long>::max() : a + b;
}

}  // namespace

InputStamp stampOfFile(const struct stat& status)
{
    return {status.st_size, nanosecondsOf(status.st_mtim), 0};
}

bool stampOfRecording(DIR* folder, InputStamp& stamp)
{
    stamp = {0, std::numeric_limits<long long>::min(), 0};
    ::rewinddir(folder);
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(folder);
        if (!entry)
            break;
        struct stat status = {};
        if (::fstatat(::dirfd(folder), entry->d_name, &status, 0) != 0 || !S_ISREG(status.st_mode))
            continue;
        const InputStamp file = stampOfFile(status);
        stamp.size = sum(stamp.size, file.size);
        stamp.modifiedNs = std::max(stamp.modifiedNs, file.modifiedNs);
        // The sum of the hashes is the same in each order.
        const std::string_view name(entry->d_name);
        stamp.members += hashOf(hashOf(hashOf(fnv1a(name), 0), file.size), file.modifiedNs);
    }
    return errno == 0;
}

}  // namespace archive
