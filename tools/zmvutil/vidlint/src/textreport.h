// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/videovalidationparameters.h"
#include "tools/zmvutil/vidlint/src/checksink.h"
#include "util/SRString.h"

class ReportWriter;

/// Writes the report of one input as its findings come: errors always, warnings and the listing from their
/// levels on.
class TextReport : public CheckSink
{
public:
    /// out must outlive the object.
    TextReport(ReportWriter& out, krx::streams::LogLevel_t level, const SRString& path);

    bool admitsWarning() override { return m_level >= krx::streams::LOG_WARNING; }
    void add(const krx::streams::Finding& finding) override;
    bool wantsListing() const override { return m_level >= krx::streams::LOG_INFO; }
    void note(std::string_view text) override;
    void noteMessage(long long position, unsigned timestamp, unsigned length,
                     std::string_view typeName) override;
    void noteValues(const SRDataArray* array, std::size_t maxBytes) override;

    /// The line before a copy is written.
    void announceCopy(const SRString& copy);
    /// The line of an input that passed, under the name of what does.
    void pass(const SRString& name);

private:
    ReportWriter& m_out;
    const krx::streams::LogLevel_t m_level;
    const SRString m_path;
};
