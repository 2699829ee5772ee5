// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/state.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace archive {

/// State files that are read together: one, or those of all shards of a run.
class StateSet
{
public:
    /// Opens them. Throws StateError.
    explicit StateSet(const std::vector<std::string>& paths);

    /// What is wrong with the set, a sentence each: a run that has not ended, a shard that is missing or
    /// there twice, states of runs that do not belong together. Empty when all is well.
    const std::vector<std::string>& problems() const { return m_problems; }
    const std::vector<RunInfo>& runs() const { return m_runs; }
    void forEach(const std::function<bool(const InputRecord&)>& function);

private:
    void findProblems(const std::vector<std::string>& paths);

    std::vector<std::unique_ptr<State>> m_states;
    std::vector<RunInfo> m_runs;
    std::vector<std::string> m_problems;
};

}  // namespace archive
