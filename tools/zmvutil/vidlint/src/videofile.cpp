// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/videofile.h"

#include "tools/zmvutil/vidlint/src/report.h"
#include "util/SRFileUtil.h"

#include <cstring>
#include <string_view>

using krx::streams::LogLevel_t;
using krx::streams::StreamParseError;

namespace {

constexpr unsigned kContextVersion = 1;
constexpr const char* kWarningsAsErrorsKey = "Raw/WarningsAsErrors";
constexpr std::string_view kTrue = "true";
constexpr int kNotConfigured = -1;

/// No value's text is this many times longer than its encoding unless references repeat it.
constexpr std::size_t kDumpFactor = 32;
constexpr std::size_t kMinDumpSize = 4096;

}  // namespace

VideoFile::VideoFile(const SRString& path, krx::streams::VideoValidationParameters parameters)
    : m_path(path), m_parameters(parameters)
{
    if (isShown(krx::streams::LOG_INFO))
        logInfo(SRMBString::format("\n\nFile: %s\n", m_path).c_str());
    if (!krx::util::SRFileUtil::fileExists(m_path))
        throw StreamParseError(krx::streams::kFileNotFound);
}

VideoFile::~VideoFile() = default;

unsigned VideoFile::getVersion() const
{
    return kContextVersion;
}

int VideoFile::getConfig(const char* key, char** value, int size)
{
    if (!m_parameters.warningsAsErrors || SRStrUtil::compareNoCase(key, kWarningsAsErrorsKey) != 0)
        return kNotConfigured;
    if (size < static_cast<int>(kTrue.size()))
        return static_cast<int>(kTrue.size());
    std::memcpy(*value, kTrue.data(), kTrue.size());
    return 0;
}

void VideoFile::log(const char* text, unsigned short level, bool /*flag*/)
{
    subLog(text, static_cast<LogLevel_t>(level));
}

IKrxFileIo* VideoFile::getFileIo()
{
    return &m_fileIo;
}

void VideoFile::parse()
{
    throw StreamParseError(krx::streams::kCannotOpenFile);
}

void VideoFile::applyFixes() {}

void VideoFile::logSuccess()
{
    logPassed(m_path);
}

bool VideoFile::add(unsigned char /*type*/, void* /*data*/, unsigned /*length*/, unsigned /*time*/)
{
    return true;
}

void VideoFile::addDep(unsigned /*tablePage*/, unsigned /*bytes*/) {}

void VideoFile::logError(const StreamParseError& error, const SRString& path)
{
    ReportWriter::instance().writeRejection(error, path);
}

void VideoFile::subLog(const std::string& text, LogLevel_t level)
{
    if (isShown(level))
        ReportWriter::instance().writeLine(level, text);
}

void VideoFile::logInfo(const std::string& text)
{
    subLog(text, krx::streams::LOG_INFO);
}

void VideoFile::logAlert(const std::string& text)
{
    subLog(text, krx::streams::LOG_ALERT);
}

void VideoFile::logWarning(const StreamParseError& warning)
{
    if (m_parameters.warningsAsErrors)
        throw StreamParseError(warning);
    if (isShown(krx::streams::LOG_WARNING)) {
        subLog(SRMBString::format("%s\t%s", warning.getMessage(), m_path).c_str(), krx::streams::LOG_WARNING);
    }
}

void VideoFile::logDataArray(const SRDataArray* array, std::size_t encodedSize)
{
    if (isShown(krx::streams::LOG_INFO))
        ReportWriter::instance().writeDataArray(array, kMinDumpSize + encodedSize * kDumpFactor);
}

void VideoFile::logPassed(const SRString& path)
{
    logAlert(SRMBString::format("\t%s passed\n\n", path).c_str());
}
