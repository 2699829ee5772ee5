// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/videofile.h"

#include "modules/streams/raw/rawModule.h"
#include "server/SRCommand.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "util/SRFileUtil.h"
#include "util/SRStrUtil.h"
#include "util/krxassert.h"

#include <array>
#include <cstring>
#include <exception>
#include <string_view>
#include <utility>

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

constexpr const char* kAssertFile = "tools/zmvutil/vidlint/src/videofile";
constexpr int kBrokenWalkLine = 245;

/// Longest metadata body that is shown, in bytes.
constexpr unsigned kMaxMetaData = 16384;

/// The stream module refused the input; it has logged the reasons itself.
class InputRefused : public std::exception
{
};

}  // namespace

int VideoFileOpenContext::getProperty(const char* /*section*/, const char* /*name*/, char* /*out*/,
                                      int /*size*/)
{
    return -1;
}

VideoFile::VideoFile(const SRString& path, krx::streams::VideoValidationParameters parameters)
    : m_path(path), m_parameters(parameters)
{
    if (isShown(krx::streams::LOG_INFO))
        logInfo(SRMBString::format("\n\nFile: %s\n", m_path).c_str());
    if (!krx::util::SRFileUtil::fileExists(m_path))
        throw StreamParseError(krx::streams::kFileNotFound);
}

VideoFile::~VideoFile()
{
    closeStream();
}

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

void VideoFile::initAdaptor()
{
    closeStream();
    m_adaptor = std::make_unique<krx::raw::RawAdaptor>(this);
}

void VideoFile::closeStream()
{
    if (m_handle)
        m_adaptor->close(std::exchange(m_handle, nullptr));
}

void VideoFile::parse()
{
    initAdaptor();
    if (m_adaptor->open(&m_openContext, m_path.toMultiByte().c_str(), 0, nullptr, m_handle) != 0)
        throw InputRefused();

    const long long end = m_adaptor->getEndPosition(m_handle);
    for (long long position = 0; position < end;) {
        SegmentBounds bounds;
        if (!m_adaptor->findSegmentByIndex(m_handle, position, &bounds))
            throw InputRefused();
        if (bounds.start > position || bounds.end < position) {
            krx::util::assertFailed(kAssertFile, kBrokenWalkLine);
            throw InputRefused();
        }
        if (!m_adaptor->loadSegment(m_handle, &bounds, this))
            throw InputRefused();
        position = bounds.end + 1;
    }

    logMetaData();
    if (isShown(krx::streams::LOG_INFO))
        logInfo("\nMemory Overhead: " + std::to_string(m_adaptor->getMemoryOverhead(m_handle)) + " bytes\n");
}

void VideoFile::logMetaData()
{
    std::array<unsigned char, kMaxMetaData> body;
    unsigned size = kMaxMetaData;
    if (!m_adaptor->getAttribute(m_handle, kAttrMetadata, body.data(), size))
        return;
    const SRMessagePtr message = SRMessage::create();
    message->setType(kMsgData);
    message->setTime(0);
    if (!message->write(body.data(), size))
        throw SROutOfMemory();
    try {
        const SRCommand command(message, true);
        const SRData& argument = command.getArg(0);
        logInfo("\nonMetaData contents:\n");
        const bool hasList = argument.kind == kObjectType || argument.kind == kArrayType;
        logDataArray(hasList ? static_cast<SRDataArray*>(argument) : nullptr, size);
    } catch (const SRBreakConnection&) {
        throw StreamParseError(krx::streams::kUnparsableDataMessage);
    }
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
