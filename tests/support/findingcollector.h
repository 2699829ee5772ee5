// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/finding.h"

#include <vector>

namespace krx::test {

/// Keeps all findings.
class FindingCollector : public streams::FindingSink
{
public:
    bool admitsWarning() override { return true; }
    void add(const streams::Finding& finding) override { findings.push_back(finding); }

    /// Those of the findings, as ParseStatus has them.
    std::vector<int> statuses() const
    {
        std::vector<int> result;
        for (const streams::Finding& finding : findings)
            result.push_back(-finding.number);
        return result;
    }

    std::vector<streams::Finding> findings;
};

}  // namespace krx::test
