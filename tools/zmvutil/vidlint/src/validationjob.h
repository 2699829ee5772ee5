// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/videovalidationparameters.h"

#include <memory>
#include <string>
#include <vector>

class ReportWriter;
class SRString;

/// What one run of the program is to do: the parameters, the paths as they stand on the command line, and
/// where the report goes.
struct VideoValidationJob
{
    /// writer must outlive the job.
    explicit VideoValidationJob(ReportWriter& writer) : report(writer) {}

    ReportWriter& report;
    krx::streams::VideoValidationParameters parameters;
    std::vector<std::string> files;

    /// Validates every file in order, whatever becomes of the others. Returns the number of invalid ones.
    int validateAllFiles();
    /// True when the input passed; what does not pass has been reported. Writes the copies of inputs that are
    /// repaired.
    bool validateFile(const SRString& path);
};
