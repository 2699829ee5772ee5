// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <utility>

namespace archive {

/// Which block devices turn. Each is asked once. For one thread at a time.
class RotationalDisks
{
public:
    /// folder: where the system describes its block devices, one folder each by "MAJOR:MINOR".
    explicit RotationalDisks(std::string folder = "/sys/dev/block") : m_folder(std::move(folder)) {}

    /// Whether the device, or the disk that it is a partition of, turns. False when the system does not tell,
    /// as for network file systems.
    bool isRotational(dev_t device);

private:
    bool ask(dev_t device) const;

    std::string m_folder;
    std::map<dev_t, bool> m_known;
};

}  // namespace archive
