// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/nameglobs.h"
#include "tools/zmvutil/archive/src/recordingsigns.h"

#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace archive {

/// One folder on the way of a search, with those of its names that matter to it, in the order of inodes:
/// files lie on a disk about in that order. It may be closed and opened again, since a way may have more
/// folders than a process may have open files. Reading it leaves no trace in its time of access where the
/// system allows that. For one thread at a time.
class Folder
{
public:
    /// What an entry is, as the folder says.
    enum class Kind : unsigned char
    {
        kFile,
        kFolder,
        kLink,
    };
    struct Entry
    {
        std::uint64_t inode;
        std::size_t name;  ///< for nameOf
        Kind kind;
    };

    /// Opens the folder name below parent, a descriptor or AT_FDCWD. False when it cannot be opened; errno
    /// says why.
    bool open(int parent, const char* name, bool followsLink);
    /// Opens it again after close by a name that should lead to it. False when it does not.
    bool reopen(int parent, const char* name);
    void close() { m_folder.reset(); }

    /// Reads the names: all folders, and the files and links that the filter takes. Returns 0, or the errno
    /// of what ended the reading; what was read until then is kept.
    int read(const NameFilter& filter);

    DIR* stream() const { return m_folder.get(); }  ///< null while it is closed
    int descriptor() const { return m_folder ? ::dirfd(m_folder.get()) : -1; }
    bool isSame(const Folder& other) const { return m_device == other.m_device && m_inode == other.m_inode; }
    dev_t device() const { return m_device; }
    bool isRecording() const { return m_signs.isRecording(); }
    std::uint64_t excluded() const { return m_excluded; }  ///< entries that the filter left out

    /// The next entry; null after the last one. Valid as long as the folder.
    const Entry* next();
    const char* nameOf(const Entry& entry) const { return m_names.c_str() + entry.name; }
    void dropRest() { m_next = m_entries.size(); }

private:
    struct Closer
    {
        void operator()(DIR* folder) const { ::closedir(folder); }
    };
    void add(const dirent& entry, const NameFilter& filter);
    bool isFile(const char* name, Kind kind) const;

    std::unique_ptr<DIR, Closer> m_folder;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    RecordingSigns m_signs;
    std::uint64_t m_excluded = 0;
    std::vector<Entry> m_entries;
    std::string m_names;  ///< ended by a zero each
    std::size_t m_next = 0;
};

}  // namespace archive
