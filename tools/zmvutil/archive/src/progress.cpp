// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/progress.h"

#include "tools/zmvutil/archive/src/soonlock.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <algorithm>
#include <fmt/core.h>

namespace archive {
namespace {

constexpr std::chrono::seconds kStalledAfter{30};

std::string sizeText(double bytes)
{
    static constexpr const char* kUnits[] = {"B", "KB", "MB", "GB", "TB", "PB"};
    std::size_t unit = 0;
    for (; bytes >= 1000 && unit + 1 < std::size(kUnits); ++unit)
        bytes /= 1000;
    return fmt::format("{:.{}f} {}", bytes, unit == 0 || bytes >= 100 ? 0 : 1, kUnits[unit]);
}

std::string elapsedText(std::chrono::seconds time)
{
    const long long s = time.count();
    if (s >= 3600)
        return fmt::format("{}:{:02}:{:02}", s / 3600, s / 60 % 60, s % 60);
    return fmt::format("{}:{:02}", s / 60, s % 60);
}

/// From 0 to 1; 1 where nothing is expected.
double partOf(std::uint64_t done, std::uint64_t expected)
{
    return done >= expected ? 1 : static_cast<double>(done) / static_cast<double>(expected);
}

/// The last component of a path.
std::string nameOf(const std::string& path)
{
    return escaped(path.substr(path.rfind('/') + 1));
}

}  // namespace

Progress::Progress(unsigned workers) : m_workers(workers) {}

void Progress::begin(unsigned worker, const std::string& path)
{
    const auto lock = lockSoon(m_mutex);
    m_workers[worker] = {true, path, 0, Clock::now()};
}

void Progress::end(unsigned worker)
{
    const auto lock = lockSoon(m_mutex);
    m_workers[worker].isBusy = false;
    ++m_inputs;
}

void Progress::skip(std::uint64_t bytes)
{
    const auto lock = lockSoon(m_mutex);
    ++m_inputs;
    m_skippedBytes += bytes;
}

void Progress::advance(unsigned worker, long long done)
{
    const auto lock = lockSoon(m_mutex);
    Worker& mine = m_workers[worker];
    if (done <= mine.done)
        return;
    m_bytes += static_cast<std::uint64_t>(done - mine.done);
    mine.done = done;
    mine.moved = Clock::now();
}

void Progress::expect(std::uint64_t inputs, std::uint64_t bytes)
{
    const auto lock = lockSoon(m_mutex);
    m_expectedInputs = inputs;
    m_expectedBytes = bytes;
}

std::string Progress::line(std::size_t width) const
{
    const auto lock = lockSoon(m_mutex);
    const Clock::time_point now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - m_start).count();
    std::string text = fmt::format("{} inputs, {}, {}/s", m_inputs, sizeText(static_cast<double>(m_bytes)),
                                   sizeText(static_cast<double>(m_bytes) / std::max(seconds, 0.1)));
    // A check of one kind takes its time by inputs, of another by bytes.
    const double done =
        (partOf(m_inputs, m_expectedInputs) + partOf(m_bytes + m_skippedBytes, m_expectedBytes)) / 2;
    if (done > 0 && done < 1) {
        const double left = seconds / done * (1 - done);
        text += ", about " + elapsedText(std::chrono::seconds(static_cast<long long>(left))) + " left";
    }
    for (const Worker& worker : m_workers) {
        if (!worker.isBusy)
            continue;
        const bool isStalled = now - worker.moved > kStalledAfter;
        text += (isStalled ? "; stalled: " : "; ") + nameOf(worker.path);
    }
    if (text.size() > width) {
        // Not within a character of UTF-8.
        while (width > 0 && (static_cast<unsigned char>(text[width]) & 0xC0) == 0x80)
            --width;
        text.resize(width);
    }
    return text;
}

}  // namespace archive
