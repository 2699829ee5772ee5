// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/stateset.h"

#include <map>
#include <set>

namespace archive {

StateSet::StateSet(const std::vector<std::string>& paths)
{
    for (const std::string& path : paths) {
        m_states.push_back(std::make_unique<State>(path, State::Mode::kRead));
        m_runs.push_back(m_states.back()->lastRun());
    }
    findProblems(paths);
}

void StateSet::findProblems(const std::vector<std::string>& paths)
{
    const RunInfo& first = m_runs.front();
    std::map<unsigned, unsigned> seen;  // states by shard
    std::set<std::string> labels;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const RunInfo& run = m_runs[i];
        if (m_states[i]->hasUnfinishedRun())
            m_problems.push_back(paths[i] + ": its last run has not ended; what is shown is the run before");
        if (run.shards != first.shards || run.settings != first.settings || run.revision != first.revision)
            m_problems.push_back(paths[i] + ": is of another run than " + paths.front());
        else if (run.shards > 1 && run.roots != first.roots)
            m_problems.push_back(paths[i] + ": is of other folders than " + paths.front());
        else if (++seen[run.shard] == 2 && run.shards > 1)
            m_problems.push_back(paths[i] + ": shard " + std::to_string(run.shard) + " is there twice");
        for (const std::string& label : run.roots)
            if (!labels.insert(label).second && run.shards == 1)
                m_problems.push_back(paths[i] + ": " + label + " is in another state too");
    }
    for (unsigned shard = 1; first.shards > 1 && shard <= first.shards; ++shard)
        if (!seen.contains(shard))
            m_problems.push_back("shard " + std::to_string(shard) + " of " + std::to_string(first.shards) +
                                 " is missing");
}

void StateSet::forEach(const std::function<bool(const InputRecord&)>& function)
{
    bool goesOn = true;
    for (const auto& state : m_states) {
        if (goesOn)
            state->forEach([&](const InputRecord& record) { return goesOn = function(record); });
    }
}

}  // namespace archive
