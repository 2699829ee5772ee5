// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/summary.h"

#include <set>

namespace archive {

void Summary::add(const InputRecord& record)
{
    if (record.change)
        ++changes[*record.change];
    if (record.change == Change::kGone)
        return;
    const vidlint::InputReport& report = record.report;
    ++inputs;
    bytes += static_cast<std::uint64_t>(report.size.value_or(0));
    ++(report.verdict == vidlint::Verdict::kValid ? valid : invalid);
    unreadable += report.unreadable;
    crashed += record.crashed;
    ++causes[report.cause];
    std::set<int> found;
    for (const vidlint::Finding& finding : report.findings)
        if (finding.number != 0 && found.insert(finding.number).second)
            ++numbers[finding.number];
}

}  // namespace archive
