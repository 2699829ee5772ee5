// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/finding.h"

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

class SRDataArray;

/// The only way of report text to standard output: it forms the lines and buffers them. The caller decides
/// what is shown, before any text is built.
///
/// A failure to write is no finding: from then on the text is lost and everything else goes on.
class ReportWriter
{
public:
    /// Receives text whenever the buffer is flushed; false makes the writer silent.
    using Sink = std::function<bool(std::string_view text)>;

    explicit ReportWriter(Sink sink);
    ReportWriter(const ReportWriter&) = delete;
    ReportWriter& operator=(const ReportWriter&) = delete;

    /// Text as it stands.
    void write(std::string_view text);
    /// Text after the time.
    void writeAlert(std::string_view text);
    /// The line of an error or a warning. path is the input's.
    void writeFinding(const krx::streams::Finding& finding, std::string_view path);
    /// The row of one message in the listing. timestamp in ms, length in bytes.
    void writeMessageRow(long long position, unsigned timestamp, unsigned length, std::string_view typeName);
    /// The names and values of an array, one row each; null is an empty array. The values' text is cut where
    /// it would exceed maxBytes in all.
    void writeDataArray(const SRDataArray* array, std::size_t maxBytes);

    void flush() noexcept;
    /// Drops what the buffer still holds and all text to come.
    void silence() noexcept;

    /// The local time in the report's form, "26-01-31 23:59:59".
    static std::string logTime();

private:
    static constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

    const Sink m_sink;
    bool m_silent = false;
    std::size_t m_used = 0;
    std::array<char, kBufferSize> m_buffer;
};
