// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/report.h"

#include "server/SRData.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <utility>

using krx::streams::Finding;
using krx::streams::FindingLevel;

namespace {

/// Appends the decimal text of a number at out and returns its end. out has room for 20 characters.
template <typename Integer>
char* putNumber(char* out, Integer value)
{
    return std::to_chars(out, out + 20, value).ptr;
}

}  // namespace

ReportWriter::ReportWriter(Sink sink) : m_sink(std::move(sink)) {}

void ReportWriter::write(std::string_view text)
{
    while (!text.empty() && !m_silent) {
        const std::size_t n = std::min(text.size(), kBufferSize - m_used);
        std::memcpy(m_buffer.data() + m_used, text.data(), n);
        m_used += n;
        text.remove_prefix(n);
        if (m_used == kBufferSize)
            flush();
    }
}

void ReportWriter::writeAlert(std::string_view text)
{
    write(logTime());
    write(" ");
    write(text);
}

void ReportWriter::writeFinding(const Finding& finding, std::string_view path)
{
    if (finding.level == FindingLevel::kError) {
        write(logTime());
        write("\tError:\t");
    } else {
        write("Warning:\t");
    }
    if (finding.number != 0) {
        std::array<char, 20> number;
        const char* const end = putNumber(number.data(), finding.number);
        write(std::string_view(number.data(), static_cast<std::size_t>(end - number.data())));
        write("\t");
    }
    write(finding.text);
    write("\t");
    write(path);
    write("\n\n");
}

void ReportWriter::writeMessageRow(long long position, unsigned timestamp, unsigned length,
                                   std::string_view typeName)
{
    // Millions of these are written for one input.
    std::array<char, 64> row;
    char* end = putNumber(row.data(), position);
    *end++ = '\t';
    end = putNumber(end, timestamp);
    *end++ = '\t';
    end = putNumber(end, length);
    *end++ = '\t';
    write(std::string_view(row.data(), static_cast<std::size_t>(end - row.data())));
    write(typeName);
    write("\n");
}

void ReportWriter::writeDataArray(const SRDataArray* array, std::size_t maxBytes)
{
    write("\n\tField ==>\tValue\n");
    const int size = array ? array->getSize() : 0;
    for (int i = 0; i < size; ++i) {
        const SRData& value = array->getPropertyValueConst(i);
        const auto writeValue = [&](std::string_view text) {
            maxBytes -= std::min(maxBytes, text.size());
            write(text);
        };
        write("\t");
        write(array->getPropertyNameConst(i).view());
        write(" ==>\t");
        // In pieces: the text of an array can be longer than a string of the pool.
        if (const auto* const nested = static_cast<SRDataArray*>(value))
            nested->writeText(maxBytes, writeValue);
        else
            writeValue(value.toText().view());
        write("\n");
    }
    write("\n");
}

void ReportWriter::flush() noexcept
{
    const std::string_view text(m_buffer.data(), std::exchange(m_used, 0));
    if (text.empty() || m_silent)
        return;
    try {
        m_silent = !m_sink(text);
    } catch (...) {
        m_silent = true;
    }
}

void ReportWriter::silence() noexcept
{
    m_used = 0;
    m_silent = true;
}

std::string ReportWriter::logTime()
{
    // The zone's file is looked at once, not for every line.
    static const bool isZoneKnown = (tzset(), true);
    (void)isZoneKnown;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    std::array<char, 32> text{};
    if (localtime_r(&now, &local))
        (void)std::strftime(text.data(), text.size(), "%y-%m-%d %H:%M:%S", &local);
    return text.data();
}
