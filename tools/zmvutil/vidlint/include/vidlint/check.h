// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/memoryquota.h"
#include "vidlint/inputreport.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace vidlint {

using krx::util::MemoryQuota;

/// How inputs are checked. One object may serve any number of checks at once, as long as it is not changed.
class Settings
{
public:
    unsigned durationMargin = 2;     ///< seconds by which metadata may be wrong (ZMV)
    bool warningsAsErrors = false;   ///< ZMV and recordings; those of MP4 files stay warnings
    bool fixMetaData = false;        ///< asks for repairs of metadata (ZMV)
    bool fixVideoStall = false;      ///< asks for silence where video would stall (ZMV)
    std::size_t maxFindings = 1000;  ///< that are kept of one input; further warnings are counted

    /// Memory that checks share, in bytes; null for no bound. A check that would exceed it ends with the
    /// cause kResources.
    std::shared_ptr<MemoryQuota> memory;
    /// Once true, checks end soon, without a verdict. May be null; it must outlive the checks.
    const std::atomic<bool>* cancel = nullptr;
    /// Called on the thread of the check after each read, with the bytes of the input that are done and the
    /// bytes that there are. The numbers do not fall. It must not throw.
    std::function<void(long long done, long long total)> progress;

    /// A setting of the server by its key, as in "Mp4/Playback/AllowAnyAVCProfile", "true". Throws
    /// std::invalid_argument when there is no such key, or when the value is not one of its kind or range.
    void set(const std::string& key, const std::string& value);
    /// Those that were set.
    const std::map<std::string, std::string>& serverSettings() const { return m_serverSettings; }

private:
    std::map<std::string, std::string> m_serverSettings;
};

/// Checks the input at the path (bytes). Never writes. Reentrant: any number of inputs can be checked at the
/// same time, from any thread. Throws std::bad_alloc when there is no memory for the report.
InputReport check(const std::string& path, const Settings& settings = {});

/// Writes a copy of the input with the fixes of its report. The target is created, or overwritten if it is a
/// regular file that is not the input and that nobody has locked; the input is not changed. Returns nothing
/// when the copy is complete, else the finding that says why not: -6 when the target could not be written,
/// -5 when the input could not be read or is not the one that was checked, -17 when a stretch between two
/// fixes exceeds 2 GiB. An incomplete copy has no signature, so that it never passes for a whole one.
/// Reentrant as check is. Throws std::invalid_argument unless the report is that of a ZMV file that passed,
/// and std::bad_alloc.
std::optional<Finding> repair(const InputReport& report, const std::string& target);

}  // namespace vidlint
