// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/validationjob.h"

#include "modules/streams/streamparseerror.h"
#include "tools/zmvutil/vidlint/src/mp4filewrapper.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/videofile.h"
#include "tools/zmvutil/vidlint/src/zmvfile.h"
#include "util/SRStrUtil.h"

#include <cstddef>
#include <exception>
#include <filesystem>
#include <string_view>

using krx::streams::StreamParseError;

namespace {

constexpr const char* kZmvExtension = ".zmv";

/// The text from the last dot of the last component on; empty without one. A name may consist of its
/// extension.
const char* extensionOf(const SRMBString& path)
{
    const std::string_view bytes = path.view();
    const std::size_t dot = bytes.rfind('.');
    const bool inLastComponent =
        dot != std::string_view::npos && bytes.find('/', dot) == std::string_view::npos;
    return inLastComponent ? path.c_str() + dot : "";
}

}  // namespace

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
        ReportWriter::instance().flush();
    }
    return invalid;
}

bool VideoValidationJob::validateFile(const SRString& path)
{
    return runInput(path, [&] {
        const std::shared_ptr<VideoFile> input = getVideoFile(path);
        input->parse();
        input->applyFixes();
        input->logSuccess();
    });
}

bool runInput(const SRString& path, const std::function<void()>& steps)
{
    try {
        try {
            steps();
            return true;
        } catch (const StreamParseError& error) {
            VideoFile::logError(error, path);
        } catch (const krx::util::FileReadException&) {
            VideoFile::logError(StreamParseError(krx::streams::kFileReadError), path);
        } catch (const SRThrowable&) {
            VideoFile::logError(StreamParseError(krx::streams::kUnknownError), path);
        }
    } catch (...) {
        // A standard exception ends the input without a line of its own: its source has reported the
        // reasons, or there is no memory to report them.
    }
    return false;
}

std::shared_ptr<VideoFile> VideoValidationJob::getVideoFile(const SRString& path)
{
    try {
        const SRMBString bytes = path.toMultiByte();
        if (std::filesystem::is_directory(bytes.c_str()))
            return std::make_shared<VideoFile>(path, parameters);
        if (SRStrUtil::compareNoCase(extensionOf(bytes), kZmvExtension) == 0)
            return std::make_shared<ZmvFile>(path, parameters);
        return std::make_shared<MP4FileWrapper>(path, parameters);
    } catch (const std::exception&) {
        throw StreamParseError(krx::streams::kInvalidPath);
    }
}
