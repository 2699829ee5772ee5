// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/reportcollector.h"

#include "server/watchedfileio.h"

using krx::streams::FindingLevel;

bool ReportCollector::admitsWarning()
{
    if (m_report.findings.size() < m_maxFindings)
        return true;
    ++m_report.findingsOmitted;
    return false;
}

void ReportCollector::add(const krx::streams::Finding& finding)
{
    m_report.findings.push_back(finding);
    if (finding.level == FindingLevel::kError && m_io.failure() != 0)
        m_report.findings.back().systemError = m_io.failure();
}
