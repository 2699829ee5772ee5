// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/videofile.h"

#include "interfaces/IKrxFileIo.h"
#include "modules/streams/raw/rawModule.h"
#include "server/SRCommand.h"
#include "util/SRStrUtil.h"
#include "util/krxassert.h"

#include <array>
#include <cstring>
#include <exception>
#include <limits>
#include <string>
#include <utility>

using krx::streams::StreamParseError;

namespace {

constexpr unsigned kContextVersion = 1;
constexpr const char* kWarningsAsErrorsKey = "Raw/WarningsAsErrors";
constexpr const char* kAggregatesKey = "Raw/EnableAggMsgs";
constexpr int kNotConfigured = -1;

/// No value's text is this many times longer than its encoding unless references repeat it.
constexpr std::size_t kDumpFactor = 32;
constexpr std::size_t kMinDumpSize = 4096;

constexpr const char* kAssertFile = "tools/zmvutil/vidlint/src/videofile";
constexpr int kBrokenWalkLine = 245;

/// Longest metadata body that is shown, in bytes.
constexpr unsigned kMaxMetaData = 16384;

/// The stream module refused the input; it has given the reasons itself.
class InputRefused : public std::exception
{
};

}  // namespace

int VideoFileOpenContext::getProperty(const char* /*section*/, const char* /*name*/, char* /*out*/,
                                      int /*size*/)
{
    return -1;
}

VideoFile::VideoFile(const SRString& path, krx::streams::VideoValidationParameters parameters,
                     const CheckEnvironment& environment)
    : m_path(path), m_parameters(parameters), m_environment(environment), m_memory(environment.quota)
{
    if (isListing())
        logInfo(SRMBString::format("\n\nFile: %s\n", m_path).view());
    struct stat64 status = {};
    if (m_environment.io.stat(m_path, &status, IKrxFileIo::kAny) < 0)
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
    std::string_view text;
    if (SRStrUtil::compareNoCase(key, kWarningsAsErrorsKey) == 0 && m_parameters.warningsAsErrors)
        text = "true";
    else if (SRStrUtil::compareNoCase(key, kAggregatesKey) == 0 && m_environment.sink.wantsFacts())
        text = "false";  // each message is to be counted
    else if (m_environment.serverSettings) {
        const auto found = m_environment.serverSettings->find(key);
        if (found != m_environment.serverSettings->end())
            text = found->second;
    }
    if (text.empty())
        return kNotConfigured;
    if (size < static_cast<int>(text.size()))
        return static_cast<int>(text.size());
    std::memcpy(*value, text.data(), text.size());
    return 0;
}

void VideoFile::log(const char* text, unsigned short /*level*/, bool /*flag*/)
{
    // Findings come as data. What is left is for the listing.
    logInfo(text);
}

IKrxFileIo* VideoFile::getFileIo()
{
    return &m_environment.io;
}

void VideoFile::initAdaptor()
{
    closeStream();
    m_adaptor = std::make_unique<krx::raw::RawAdaptor>(this);
    m_adaptor->setFindingSink(&m_environment.sink);
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
        // The memory of the segment before is used again.
        reserve(m_adaptor->getMemoryOverhead(m_handle));
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
    if (isListing())
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
        StreamParseError error(krx::streams::kUnparsableDataMessage);
        error.place().file = "contexts";
        throw error;
    }
}

void VideoFile::describe(vidlint::InputReport& report)
{
    addTracks(report, m_tally, m_tally);
    if (!m_handle)
        return;
    report.announcedDuration = m_adaptor->getDuration(m_handle);
    report.messages = m_adaptor->getEndPosition(m_handle);
}

void VideoFile::addTracks(vidlint::InputReport& report, const StreamTally& tally, const StreamTally& there)
{
    const auto addTrack = [&report](vidlint::TrackKind kind, const MessageTally& messages,
                                    const MessageTally& present) {
        if (messages.count == 0)
            return;
        vidlint::Track track;
        track.kind = kind;
        track.samples = static_cast<long long>(messages.count);
        track.firstTime = messages.first;
        track.lastTime = messages.last;
        track.plays = true;
        if (kind != vidlint::TrackKind::kData)
            track.playsUntil = present.count != 0 ? present.last : messages.first;
        report.tracks.push_back(std::move(track));
    };
    addTrack(vidlint::TrackKind::kVideo, tally.video, there.video);
    addTrack(vidlint::TrackKind::kAudio, tally.audio, there.audio);
    addTrack(vidlint::TrackKind::kData, tally.data, there.data);
    if (tally.count() != 0)
        report.duration = tally.last();
}

bool VideoFile::add(unsigned char type, void* /*data*/, unsigned /*length*/, unsigned time)
{
    m_tally.of(type).add(time);
    return true;
}

void VideoFile::addDep(unsigned /*tablePage*/, unsigned /*bytes*/) {}

void VideoFile::logInfo(std::string_view text)
{
    if (isListing())
        m_environment.sink.note(text);
}

void VideoFile::logWarning(const StreamParseError& warning)
{
    if (m_parameters.warningsAsErrors)
        throw StreamParseError(warning);
    if (m_environment.sink.admitsWarning())
        m_environment.sink.add(makeFinding(warning, krx::streams::FindingLevel::kWarning));
}

void VideoFile::logDataArray(const SRDataArray* array, std::size_t encodedSize)
{
    if (isListing())
        m_environment.sink.noteValues(array, kMinDumpSize + encodedSize * kDumpFactor);
}

void VideoFile::reserve(std::uint64_t bytes)
{
    if (!m_memory.resize(bytes))
        throw SROutOfMemory();
}
