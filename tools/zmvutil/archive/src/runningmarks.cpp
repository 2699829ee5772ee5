// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/runningmarks.h"

#include "tools/zmvutil/archive/src/soonlock.h"
#include "tools/zmvutil/archive/src/stateerror.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace archive {
namespace {

constexpr std::size_t kSlotSize = 16384;
constexpr std::size_t kMaxSlots = 4096;

/// What a slot begins with, in the byte order of the machine; label and name follow.
struct Header
{
    std::uint32_t isUsed = 0;
    std::uint32_t rootSize = 0;  ///< bytes of the label
    std::uint64_t nameSize = 0;
    InputStamp stamp;
};

off_t placeOf(std::size_t slot)
{
    return static_cast<off_t>(slot * kSlotSize);
}

/// What the slot of that content marks; false for a free or a damaged one.
bool readMark(std::string_view bytes, RunningMarks::Mark& mark)
{
    Header header;
    if (bytes.size() < sizeof header)
        return false;
    std::memcpy(&header, bytes.data(), sizeof header);
    bytes.remove_prefix(sizeof header);
    if (header.isUsed != 1 || header.rootSize > bytes.size() ||
        header.nameSize > bytes.size() - header.rootSize)
        return false;
    mark.root = bytes.substr(0, header.rootSize);
    mark.name = bytes.substr(header.rootSize, header.nameSize);
    mark.stamp = header.stamp;
    return true;
}

}  // namespace

RunningMarks::RunningMarks(const std::string& statePath, const std::string& realPath)
    : m_statePath(statePath), m_path(realPath + "-running")
{
    try {
        lock();
    } catch (const StateError&) {
        if (m_fd >= 0)
            ::close(m_fd);
        throw;
    }
}

RunningMarks::~RunningMarks()
{
    // Removed while it is locked, so that nobody uses a file that goes away unseen.
    if (!m_hasLeft)
        ::unlink(m_path.c_str());
    ::close(m_fd);
}

void RunningMarks::fail(const char* clause, int error) const
{
    std::string text = m_statePath + ": " + clause;
    if (error != 0)
        text += std::string(": ") + std::strerror(error);
    throw StateError(text);
}

void RunningMarks::lock()
{
    // Another process may remove the file between the opening and the lock. Each turn but the last means that
    // one has ended.
    constexpr int kAttempts = 100;
    for (int i = 0; i < kAttempts; ++i) {
        if (lockOnce())
            return;
    }
    fail("the state is in use by another process", 0);
}

bool RunningMarks::lockOnce()
{
    m_fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (m_fd < 0)
        fail("the file -running beside the state cannot be written", errno);
    if (::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (error == EWOULDBLOCK)
            fail("the state is in use by another process", 0);
        fail("the state cannot be locked", error);
    }
    if (isInPlace()) {
        m_hasLeft = ::lseek(m_fd, 0, SEEK_END) != 0;
        return true;
    }
    ::close(m_fd);
    m_fd = -1;
    return false;
}

bool RunningMarks::isInPlace() const
{
    struct stat opened
    {
    };
    struct stat named
    {
    };
    if (::fstat(m_fd, &opened) != 0 || (::lstat(m_path.c_str(), &named) != 0 && errno != ENOENT))
        fail("the state cannot be locked", errno);
    return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

std::vector<RunningMarks::Mark> RunningMarks::takeLeft()
{
    std::vector<Mark> marks;
    std::string bytes;
    for (std::size_t slot = 0; m_hasLeft && slot < kMaxSlots; ++slot) {
        bytes.resize(kSlotSize);
        const ssize_t n = ::pread(m_fd, bytes.data(), bytes.size(), placeOf(slot));
        if (n < 0)
            fail("the file -running beside the state cannot be read", errno);
        if (n == 0)
            break;
        bytes.resize(static_cast<std::size_t>(n));
        Mark mark;
        if (readMark(bytes, mark))
            marks.push_back(std::move(mark));
    }
    // Forgotten before they are counted: one that is lost when the process dies now is better than one that
    // counts twice.
    if (::ftruncate(m_fd, 0) != 0)
        fail("the file -running beside the state cannot be written", errno);
    m_hasLeft = false;
    return marks;
}

void RunningMarks::add(const std::string& root, const std::string& name, const InputStamp& stamp)
{
    Header header;
    header.isUsed = 1;
    header.rootSize = static_cast<std::uint32_t>(root.size());
    header.nameSize = name.size();
    header.stamp = stamp;
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    bytes += root;
    bytes += name;
    const auto lock = lockSoon(m_mutex);
    auto slot = std::find_if(m_slots.begin(), m_slots.end(), [](const Key& key) { return !key.isUsed; });
    if (bytes.size() > kSlotSize || (slot == m_slots.end() && m_slots.size() == kMaxSlots))
        return;
    if (slot == m_slots.end())
        slot = m_slots.insert(slot, Key{});
    const auto written =
        ::pwrite(m_fd, bytes.data(), bytes.size(), placeOf(static_cast<std::size_t>(slot - m_slots.begin())));
    if (written != static_cast<ssize_t>(bytes.size()))
        fail("the file -running beside the state cannot be written", written < 0 ? errno : ENOSPC);
    *slot = {root, name, true};
}

bool RunningMarks::remove(const std::string& root, const std::string& name)
{
    const auto lock = lockSoon(m_mutex);
    const auto slot = std::find_if(m_slots.begin(), m_slots.end(), [&](const Key& key) {
        return key.isUsed && key.root == root && key.name == name;
    });
    if (slot == m_slots.end())
        return false;
    constexpr std::uint32_t kFree = 0;
    if (::pwrite(m_fd, &kFree, sizeof kFree, placeOf(static_cast<std::size_t>(slot - m_slots.begin()))) < 0)
        fail("the file -running beside the state cannot be written", errno);
    slot->isUsed = false;
    return true;
}

}  // namespace archive
