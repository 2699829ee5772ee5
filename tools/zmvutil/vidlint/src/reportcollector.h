// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/vidlint/src/checksink.h"
#include "vidlint/inputreport.h"

#include <cstddef>

class WatchedFileIo;

/// Collects the findings of one input in its report. Of warnings only the first are kept, the others are
/// counted.
class ReportCollector : public CheckSink
{
public:
    /// io gives errors the number of the system call that failed. Both must outlive the object.
    ReportCollector(vidlint::InputReport& report, std::size_t maxFindings, const WatchedFileIo& io)
        : m_report(report), m_maxFindings(maxFindings), m_io(io)
    {
    }

    bool admitsWarning() override;
    void add(const krx::streams::Finding& finding) override;
    bool wantsFacts() const override { return true; }

private:
    vidlint::InputReport& m_report;
    const std::size_t m_maxFindings;
    const WatchedFileIo& m_io;
};
