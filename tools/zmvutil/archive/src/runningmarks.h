// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace archive {

/// The file STATE-running beside a state. It is the lock of the process that writes the state, and names the
/// inputs that are being checked, so that the next process learns which ones were when this one died.
///
/// A mark is written by one system call and not synchronised: it outlives the process, but not the system.
/// The file is removed with the object. Everything throws StateError. add and remove may be called from any
/// thread, the rest is for one at a time.
class RunningMarks
{
public:
    struct Mark
    {
        std::string root;  ///< label
        std::string name;
        InputStamp stamp;
    };

    /// Takes the lock. Throws when another process has it. realPath is that of the state without symbolic
    /// links, statePath the one to name in errors.
    RunningMarks(const std::string& statePath, const std::string& realPath);
    ~RunningMarks();
    RunningMarks(const RunningMarks&) = delete;
    RunningMarks& operator=(const RunningMarks&) = delete;

    /// The marks that an earlier process left. They are then forgotten. If they are not taken, they are kept
    /// for the next process.
    std::vector<Mark> takeLeft();
    /// An input of which label and name take more than 16 KB gets no mark, nor does one beyond the 4096th at
    /// a time.
    void add(const std::string& root, const std::string& name, const InputStamp& stamp);
    /// False when there is no such mark.
    bool remove(const std::string& root, const std::string& name);

private:
    struct Key
    {
        std::string root;
        std::string name;
        bool isUsed = false;
    };

    void lock();
    bool lockOnce();
    bool isInPlace() const;
    [[noreturn]] void fail(const char* clause, int error) const;

    const std::string m_statePath;
    const std::string m_path;
    int m_fd = -1;
    bool m_hasLeft = false;
    std::mutex m_mutex;        ///< of the slots
    std::vector<Key> m_slots;  ///< slot i stands at i times its size in the file
};

}  // namespace archive
