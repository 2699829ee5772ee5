// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace archive {

/// One run, as the state and the JSON lines have it.
struct RunInfo
{
    std::int64_t startedAt = 0;  ///< seconds since 1970
    std::optional<std::int64_t> endedAt;
    std::string settings;   ///< canonical text of all settings that change results
    unsigned revision = 0;  ///< of the checks
    unsigned shard = 1;
    unsigned shards = 1;
    std::vector<std::string> roots;  ///< labels
};

}  // namespace archive
