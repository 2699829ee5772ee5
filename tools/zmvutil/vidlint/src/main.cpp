// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRDataParser.h"
#include "tools/zmvutil/vidlint/src/commandline.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/stdstreams.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"

int main(int argc, char** argv)
{
    prepareStandardStreams();
    SRDataParser::setErrorTrace(true);
    ReportWriter report(writeStandardOutput);
    VideoValidationJob job(report);
    const int status = processCmdLineArgs(argc, argv, job) ? job.validateAllFiles() : -1;
    report.flush();
    return status;
}
