// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Validates a ZMV file as the program does. The first byte chooses the options, the rest is the file. Besides
// that nothing crashes, the input must stay as it is, and a corrected copy must pass the same check without
// another correction.

#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"
#include "util/SRString.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace {

namespace fs = std::filesystem;

class Workplace
{
public:
    Workplace()
    {
        if (!::mkdtemp(m_path.data()))
            std::abort();
        ReportWriter::instance().setSink([](std::string_view) { return true; });
    }
    ~Workplace()
    {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    std::string file(const char* name) const { return m_path + "/" + name; }

private:
    std::string m_path = (fs::temp_directory_path() / "fuzz-zmv-XXXXXX").string();
};

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

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

void require(bool condition)
{
    if (!condition)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Workplace workplace;
    static const std::string input = workplace.file("in.zmv");
    static const std::string copy = workplace.file("copy.zmv");
    if (size == 0)
        return 0;

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
    std::ofstream(input, std::ios::binary) << bytes;
    const bool passed = job.validateFile(SRString::fromMultiByte(input));
    require(readFile(input) == bytes);
    const bool corrected = fs::exists(input + ".new");
    require(passed || !corrected);
    if (!corrected)
        return 0;

    fs::rename(input + ".new", copy);
    if (!mayStayFaulty(readFile(copy))) {
        require(job.validateFile(SRString::fromMultiByte(copy)));
        require(!fs::exists(copy + ".new"));
    }
    return 0;
}
