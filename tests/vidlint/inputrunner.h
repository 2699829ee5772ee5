// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tests/support/tempdir.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"

#include <regex>
#include <string>
#include <string_view>

namespace krx::test {

/// A report writer whose text is kept.
class ReportCapture
{
public:
    ReportCapture() = default;
    ReportCapture(const ReportCapture&) = delete;
    ReportCapture& operator=(const ReportCapture&) = delete;

    ReportWriter& writer() { return m_writer; }
    /// The report so far, its time stamps replaced by "TIME".
    std::string text()
    {
        static const std::regex timeStamp(R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d)");
        m_writer.flush();
        return std::regex_replace(m_text, timeStamp, "TIME");
    }

private:
    std::string m_text;
    ReportWriter m_writer{[this](std::string_view text) {
        m_text += text;
        return true;
    }};
};

/// Options as a test names them, each a letter of the command line: "w", "W", "m", "s", "v"; "d0" to "d9".
inline streams::VideoValidationParameters parametersFor(std::string_view options)
{
    streams::VideoValidationParameters parameters;
    for (std::size_t i = 0; i < options.size(); ++i) {
        if (options[i] == 'w')
            parameters.logLevel = streams::LOG_WARNING;
        else if (options[i] == 'v')
            parameters.logLevel = streams::LOG_INFO;
        else if (options[i] == 'd')
            parameters.durationMargin = static_cast<unsigned>(options[++i] - '0');
        parameters.warningsAsErrors |= options[i] == 'W';
        parameters.fixMetaData |= options[i] == 'm';
        parameters.fixVideoStall |= options[i] == 's';
    }
    return parameters;
}

/// Validates inputs in a directory of its own.
class InputRunner
{
public:
    /// Validates the bytes as a file of that name and returns the report.
    std::string report(std::string_view bytes, std::string_view options, std::string_view name = "in.zmv")
    {
        dir.write(name, bytes);
        ReportCapture capture;
        VideoValidationJob job(capture.writer());
        job.parameters = parametersFor(options);
        job.files = {dir.bytes(name)};
        invalid = job.validateAllFiles();
        return capture.text();
    }

    /// The same in short: warnings as "w100", errors as "e9", the passed line as "ok", and "new" when the
    /// corrected copy is announced; in the order of the report.
    std::string findings(std::string_view bytes, std::string_view options)
    {
        static const std::regex finding("(Warning|Error):\t-(\\d+)|Creating new file| passed\n");
        const std::string text = report(bytes, options);
        std::string out;
        for (std::sregex_iterator it(text.begin(), text.end(), finding), end; it != end; ++it) {
            const std::string kind = (*it)[1];
            const std::string what = it->str() == " passed\n" ? "ok" : "new";
            out.append(out.empty() ? "" : " ");
            out.append(kind.empty() ? what : kind == "Error" ? "e" : "w").append((*it)[2].str());
        }
        return out;
    }

    TempDir dir;
    int invalid = 0;  ///< of the last run
};

}  // namespace krx::test
