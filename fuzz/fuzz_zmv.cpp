// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Validates a ZMV file as the program does. The first byte chooses the options, the rest is the file. Besides
// that nothing crashes, the input must stay as it is, and a corrected copy must pass the same check without
// another correction.

#include "fuzz/fuzzing.h"
#include "tests/support/tempdir.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace {

namespace fs = std::filesystem;

unsigned bigEndian(std::string_view bytes, std::size_t at, unsigned n)
{
    unsigned value = 0;
    for (unsigned i = 0; i < n; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

/// Whether a sound file is one whose corrections need not lead to a sound copy: corrected AMF3 metadata keeps
/// its type but is written as AMF0, and silence at the time of a video message can lie between audio messages
/// of other times.
bool mayStayFaulty(std::string_view file)
{
    unsigned audioTime = 0;
    for (std::size_t at = bigEndian(file, 5, 4) + 4; at < file.size(); at += bigEndian(file, at + 1, 3) + 15)
    {
        const unsigned type = bigEndian(file, at, 1) & ~32U;
        const unsigned time = bigEndian(file, at + 4, 3) | bigEndian(file, at + 7, 1) << 24;
        if (type == 15 || (type == 8 && time < audioTime))
            return true;
        if (type == 8)
            audioTime = time;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const krx::test::TempDir dir;
    static const std::string input = dir.bytes("in.zmv");
    static const std::string copy = dir.bytes("copy.zmv");
    if (size == 0)
        return 0;
    ReportWriter::instance().setSink([](std::string_view) { return true; });

    constexpr krx::streams::LogLevel_t levels[] = {krx::streams::LOG_ERROR, krx::streams::LOG_WARNING,
                                                   krx::streams::LOG_INFO, krx::streams::LOG_INFO};
    const unsigned mode = data[0];
    VideoValidationJob job;
    job.parameters.warningsAsErrors = (mode & 1) != 0;
    job.parameters.fixMetaData = (mode & 2) != 0;
    job.parameters.fixVideoStall = (mode & 4) != 0;
    job.parameters.logLevel = levels[mode >> 3 & 3];
    job.parameters.durationMargin = mode >> 5;

    const std::string bytes(data + 1, data + size);
    const bool passed = job.validateFile(dir.write("in.zmv", bytes));
    require(dir.read("in.zmv") == bytes);
    const bool corrected = fs::exists(input + ".new");
    require(passed || !corrected);
    if (!corrected)
        return 0;

    fs::rename(input + ".new", copy);
    if (!mayStayFaulty(dir.read("copy.zmv"))) {
        require(job.validateFile(SRString::fromMultiByte(copy)));
        require(!fs::exists(copy + ".new"));
    }
    return 0;
}
