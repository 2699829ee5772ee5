// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/validationjob.h"

#include "server/KRXSyncFileIo.h"
#include "tools/zmvutil/vidlint/src/inputfactory.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/textreport.h"
#include "tools/zmvutil/vidlint/src/videofile.h"

int VideoValidationJob::validateAllFiles()
{
    int invalid = 0;
    for (const std::string& file : files) {
        try {
            if (!validateFile(SRString::fromMultiByte(file)))
                ++invalid;
        } catch (...) {
            ++invalid;  // there is no memory for the path
        }
        report.flush();
    }
    return invalid;
}

bool VideoValidationJob::validateFile(const SRString& path)
{
    TextReport text(report, parameters.logLevel, path);
    SimpleKrxSyncFileIo io;
    const InputEnd end = runInput(text, [&] {
        const CheckEnvironment environment{text, io};
        const std::shared_ptr<VideoFile> input =
            getVideoFile(kindOfInput(path, environment), path, parameters, environment);
        input->parse();
        if (!input->hasFixes()) {
            text.pass(path);
            return;
        }
        text.announceCopy(input->copyPath());
        input->applyFixes();
        text.pass(input->copyPath());
        // The copy stays locked until the line is out.
        report.flush();
    });
    return end == InputEnd::kPassed;
}
