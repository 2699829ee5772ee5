// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/folder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace archive {
namespace {

int openFolder(int parent, const char* name, bool followsLink)
{
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followsLink ? 0 : O_NOFOLLOW);
    const int fd = ::openat(parent, name, flags | O_NOATIME);
    // Only the owner may leave the time of access alone.
    return fd < 0 && errno == EPERM ? ::openat(parent, name, flags) : fd;
}

/// Nothing when the entry is none of the kinds. Some file systems do not say the kind in the folder.
std::optional<Folder::Kind> kindOf(int folder, const dirent& entry)
{
    unsigned char type = entry.d_type;
    if (type == DT_UNKNOWN) {
        struct stat status = {};
        if (::fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT ? std::nullopt : std::optional(Folder::Kind::kFile);
        type = IFTODT(status.st_mode);
    }
    switch (type) {
        case DT_REG:
            return Folder::Kind::kFile;
        case DT_DIR:
            return Folder::Kind::kFolder;
        case DT_LNK:
            return Folder::Kind::kLink;
        default:
            return std::nullopt;
    }
}

bool isSelfOrParent(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

bool Folder::open(int parent, const char* name, bool followsLink)
{
    const int fd = openFolder(parent, name, followsLink);
    if (fd < 0)
        return false;
    struct stat status = {};
    m_folder.reset(::fstat(fd, &status) == 0 ? ::fdopendir(fd) : nullptr);
    if (!m_folder) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return false;
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
    return true;
}

bool Folder::reopen(int parent, const char* name)
{
    Folder found;
    if (!found.open(parent, name, true) || !isSame(found))
        return false;
    m_folder = std::move(found.m_folder);
    return true;
}

int Folder::read(const NameFilter& filter)
{
    int error = 0;
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(m_folder.get());
        if (!entry) {
            error = errno;
            break;
        }
        if (!isSelfOrParent(entry->d_name))
            add(*entry, filter);
    }
    std::sort(m_entries.begin(), m_entries.end(), [this](const Entry& a, const Entry& b) {
        return a.inode != b.inode ? a.inode < b.inode : std::strcmp(nameOf(a), nameOf(b)) < 0;
    });
    return error;
}

void Folder::add(const dirent& entry, const NameFilter& filter)
{
    const char* const name = entry.d_name;
    const std::optional<Kind> kind = kindOf(descriptor(), entry);
    if (kind && RecordingSigns::isSign(name) && isFile(name, *kind))
        m_signs.add(name);
    if (filter.exclude.matches(name)) {
        ++m_excluded;
    } else if (kind && (*kind == Kind::kFolder || filter.include.matches(name))) {
        m_entries.push_back({entry.d_ino, m_names.size(), *kind});
        m_names.append(name, std::strlen(name) + 1);
    }
}

bool Folder::isFile(const char* name, Kind kind) const
{
    struct stat status = {};
    return kind == Kind::kFile ||
           (kind == Kind::kLink && ::fstatat(descriptor(), name, &status, 0) == 0 && S_ISREG(status.st_mode));
}

const Folder::Entry* Folder::next()
{
    return m_next < m_entries.size() ? &m_entries[m_next++] : nullptr;
}

}  // namespace archive
