// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/textreport.h"

#include "tools/zmvutil/vidlint/src/report.h"

TextReport::TextReport(ReportWriter& out, krx::streams::LogLevel_t level, const SRString& path)
    : m_out(out), m_level(level), m_path(path)
{
}

void TextReport::add(const krx::streams::Finding& finding)
{
    m_out.writeFinding(finding, m_path.toMultiByte().view());
}

void TextReport::note(std::string_view text)
{
    m_out.write(text);
}

void TextReport::noteMessage(long long position, unsigned timestamp, unsigned length,
                             std::string_view typeName)
{
    m_out.writeMessageRow(position, timestamp, length, typeName);
}

void TextReport::noteValues(const SRDataArray* array, std::size_t maxBytes)
{
    m_out.writeDataArray(array, maxBytes);
}

void TextReport::announceCopy(const SRString& copy)
{
    m_out.writeAlert(SRMBString::format("\tCreating new file: %s\n", copy).view());
}

void TextReport::pass(const SRString& name)
{
    m_out.writeAlert(SRMBString::format("\t%s passed\n\n", name).view());
}
