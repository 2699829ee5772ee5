// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/zmvfile.h"

#include "server/SRCommand.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"
#include "tools/zmvutil/vidlint/src/zmvsurvey.h"
#include "util/fileholes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

using krx::streams::StreamParseError;
using krx::util::FilePos;
using krx::util::kBackPointerSize;
using krx::util::RecordState;

namespace {

/// A message that is not audio is a stall when it comes more than this many spacings after the last audio.
constexpr unsigned kStallFactor = 4;

/// The values of a rewritten message take at most this many bytes, plus this many per byte that it had:
/// references can mean far more.
constexpr unsigned kLeastReplacement = 1024;
constexpr unsigned long long kReplacementFactor = 32;

/// Announced durations from here on are nonsense, seconds.
constexpr double kLongestDuration = 1e12;

/// A message and its values take at most this many times its length, but for what a few take.
constexpr std::uint64_t kMessageFactor = 1 + SRAMF3Parser::kMemoryFactor;

}  // namespace

ZmvFile::ZmvFile(const SRString& path, krx::streams::VideoValidationParameters parameters,
                 const CheckEnvironment& environment)
    : VideoFile(path, parameters, environment), m_file(*getFileIo(), path), m_fileLength(m_file.length())
{
}

ZmvFile::~ZmvFile() = default;

void ZmvFile::parse()
{
    try {
        check();
    } catch (StreamParseError& error) {
        // What has no place was not there to be read.
        if (!error.hasPlace() && error.getStatus() != krx::streams::kMissingMetadata)
            error.place().offset = curPos();
        throw;
    }
}

void ZmvFile::check()
{
    skipTo(0);
    checkZmvHeader();
    computeDuration();
    checkZmvBody();
    validateFlags();
    verifyHasMetaData();
}

void ZmvFile::describe(vidlint::InputReport& report)
{
    if (m_announcedDuration && std::abs(*m_announcedDuration) < kLongestDuration)
        report.announcedDuration = static_cast<long long>(std::llround(*m_announcedDuration * 1000));
    // Where the check ended early no copy is made.
    if (report.verdict == vidlint::Verdict::kValid) {
        sortFixes(m_fixes);
        for (const FileFix& fix : m_fixes)
            report.fixes.push_back({fix.position, fix.replaceLength, fix.data, fix.size, fix.reason});
    }
    krx::util::FileHoles holes(m_file.descriptor(), m_fileLength);
    StreamTally there = m_tally;
    if (!m_scanned || holes.hasHole()) {
        const ZmvSurvey survey = surveyZmv(m_file, holes);
        there = survey.tally;
        if (survey.isCutShort)
            report.cause = vidlint::Cause::kCutShort;
    }
    if (!m_scanned)
        m_tally = there;
    addTracks(report, m_tally, there);
    report.messages = static_cast<long long>(m_tally.count());
}

void ZmvFile::failAt(krx::streams::ParseStatus status, FilePos offset)
{
    StreamParseError error(status);
    error.place().offset = offset;
    throw error;
}

void ZmvFile::failInMessage(krx::streams::ParseStatus status) const
{
    StreamParseError error(status);
    error.setPlace(placeOfMessage());
    throw error;
}

krx::streams::Place ZmvFile::placeOfMessage() const
{
    krx::streams::Place place;
    place.offset = m_messagePos;
    place.message = static_cast<long long>(m_tally.count());
    place.time = m_messageTime;
    return place;
}

void ZmvFile::warnAt(krx::streams::ParseStatus status, krx::streams::Place place)
{
    StreamParseError warning(status);
    warning.setPlace(std::move(place));
    logWarning(warning);
}

void ZmvFile::read(void* buffer, FilePos size)
{
    const auto n = static_cast<std::size_t>(size);
    std::memcpy(buffer, m_file.take(n), n);
}

unsigned long long ZmvFile::readUnsigned(unsigned n)
{
    return krx::util::loadBigEndian(m_file.take(n), n);
}

SRMessageHeader ZmvFile::readMessageHeader()
{
    return SRMessageHeader::parse(m_file.take(SRMessageHeader::kSize));
}

void ZmvFile::checkZmvHeader()
{
    logInfo("\n---Checking Header---\n");
    read(m_signature.data(), static_cast<FilePos>(m_signature.size()));
    if (m_signature != kZmvSignature)
        failAt(krx::streams::kInvalidZmvSignature, 0);
    m_version = static_cast<unsigned char>(readUnsigned(1));
    m_flags = static_cast<unsigned>(readUnsigned(1));
    m_headerLength = static_cast<unsigned>(readUnsigned(4));
    if (m_headerLength < kZmvMinHeaderLength || !skipTo(m_headerLength))
        failAt(krx::streams::kInvalidZmvDataPosition, kZmvHeaderLengthPosition);
}

void ZmvFile::computeDuration()
{
    logInfo("\n---Checking Last Message---\n");
    // The header has been read, so the file is longer than a back-pointer.
    const FilePos lastBackPointer = m_fileLength - kBackPointerSize;
    skipTo(lastBackPointer);
    const FilePos lastMessage = lastBackPointer - static_cast<FilePos>(readUnsigned(kBackPointerSize));
    if (lastMessage < static_cast<FilePos>(m_headerLength))
        failAt(krx::streams::kInvalidZmvFooter, lastBackPointer);
    skipTo(lastMessage);
    const unsigned timestamp = readMessageHeader().timestamp;
    if (isListing())
        logInfo(SRMBString::format("\nZMV duration:%s\n", timestamp).view());
    m_duration = timestamp / 1000.0;
}

void ZmvFile::checkZmvBody()
{
    logInfo("\n---Scanning ZMV Body---\n");
    logInfo("\nMessage Pos\tTimestamp\tLength\tType\n\n");
    skipTo(m_headerLength);
    if (readUnsigned(kBackPointerSize) != kZmvFirstBackPointer)
        failAt(krx::streams::kInvalidZmvFooter, m_headerLength);

    const bool listing = isListing();
    for (;;) {
        if (!listing)
            passPlainMessages();
        if (curPos() >= m_fileLength)
            break;
        m_messagePos = curPos();
        SRMessageHeader header = readMessageHeader();
        m_messageTime = header.timestamp;
        const char* typeName = header.getTypeAsString();  // also takes the encryption mark off
        if (listing)
            m_environment.sink.noteMessage(m_messagePos, header.timestamp, header.length, typeName);

        const unsigned char* payload = nullptr;
        const unsigned char* backPointer = nullptr;
        if (isZmvDataType(header.type)) {
            payload = m_file.take(header.length + kBackPointerSize);
            backPointer = payload + header.length;
        } else {
            m_file.pass(header.length);
            backPointer = m_file.take(kBackPointerSize);
        }
        if (krx::util::loadBig32(backPointer) != krx::util::backPointerOf(header.length))
            failAt(krx::streams::kInvalidZmvFooter, curPos() - kBackPointerSize);
        if (getPrevTimeStamp(header) > header.timestamp)
            failInMessage(krx::streams::kBackwardTimestamp);
        setPrevTimeStamp(header);
        validateSRMessage(header, payload);
        m_tally.of(header.type).add(header.timestamp);
    }
    settleSilence(std::nullopt);
    m_tally.audio.last = std::max(m_tally.audio.last, m_prevAudioTime);
    m_tally.video.last = std::max(m_tally.video.last, m_prevVideoTime);
    m_scanned = true;
    logInfo("\n---Done Scanning---\n");
}

void ZmvFile::passPlainMessages()
{
    // The first message of a kind is not plain: it sets where the kind begins.
    constexpr unsigned kNoType = 256;
    const unsigned audioType = m_tally.audio.count != 0 ? unsigned{kMsgAudio} : kNoType;
    const unsigned videoType = m_tally.video.count != 0 ? unsigned{kMsgVideo} : kNoType;
    const std::span<const unsigned char> window = m_file.ahead();
    const unsigned char* next = window.data();
    const unsigned char* const end = next + window.size();
    unsigned passedAudio = 0;
    unsigned passedVideo = 0;
    krx::util::MessageRecord record;
    while (readRecord(next, static_cast<std::size_t>(end - next), record) == RecordState::kWhole) {
        const krx::util::RecordHeader& header = record.header;
        const bool isAudio = header.type == audioType;
        if (!isAudio && header.type != videoType)
            break;
        unsigned& previous = isAudio ? m_prevAudioTime : m_prevVideoTime;
        const bool hasEvent = isAudio ? m_silence.has_value() : isStall(header);
        if (hasEvent || previous > header.timestamp)
            break;
        previous = header.timestamp;
        if (isAudio) {
            trackAudio(header);
            ++passedAudio;
        } else {
            ++passedVideo;
        }
        next += record.size();
    }
    m_tally.audio.count += passedAudio;
    m_tally.video.count += passedVideo;
    m_file.pass(static_cast<std::size_t>(next - window.data()));
}

unsigned ZmvFile::getPrevTimeStamp(const SRMessageHeader& header) const
{
    switch (header.type) {
        case kMsgAudio:
            return m_prevAudioTime;
        case kMsgVideo:
            return m_prevVideoTime;
        case kMsgData:
        case kMsgDataEx:
            return m_prevDataTime;
        default:
            return 0;
    }
}

void ZmvFile::setPrevTimeStamp(const SRMessageHeader& header)
{
    switch (header.type) {
        case kMsgAudio:
            m_prevAudioTime = header.timestamp;
            break;
        case kMsgVideo:
            m_prevVideoTime = header.timestamp;
            break;
        case kMsgData:
        case kMsgDataEx:
            m_prevDataTime = header.timestamp;
            break;
        default:
            break;
    }
}

void ZmvFile::validateSRMessage(const SRMessageHeader& header, const unsigned char* payload)
{
    checkSRMsgIDType(header.type);
    handlePlayerVideoStall(header);
    if (isZmvDataType(header.type))
        validateDataMessage(header, payload);
}

void ZmvFile::checkSRMsgIDType(unsigned type) const
{
    if (!isZmvType(type))
        failInMessage(krx::streams::kUnrecognizedMsgType);
}

bool ZmvFile::isStall(const krx::util::RecordHeader& header) const
{
    // Times wrap around at 32 bits, and so does their difference.
    const unsigned sinceAudio = header.timestamp - m_lastAudioTime;
    return m_audioActive && sinceAudio > static_cast<unsigned long long>(kStallFactor) * m_audioSpacing;
}

void ZmvFile::trackAudio(const krx::util::RecordHeader& header)
{
    const bool wasActive = m_audioActive;
    m_audioActive = header.length != 0;
    if (!m_audioActive)
        return;
    if (wasActive)
        m_audioSpacing = kStallFactor * (header.timestamp - m_lastAudioTime);
    m_lastAudioTime = header.timestamp;
}

void ZmvFile::handlePlayerVideoStall(const SRMessageHeader& header)
{
    if (header.type == kMsgAudio) {
        settleSilence(header.timestamp);
        trackAudio(header);
        return;
    }
    if (!isStall(header))
        return;
    if (isListing()) {
        logInfo(SRMBString::format("\nAdding silence message at time: %ld  ASR: %ld\n", header.timestamp,
                                   m_audioSpacing)
                    .view());
    }
    // Silence must not be earlier than the audio before it, nor later than the audio after it.
    if (m_parameters.fixVideoStall && header.timestamp >= m_prevAudioTime)
        m_silence = {placeOfMessage(), header.timestamp};
    else
        warnInMessage(krx::streams::kVideoStall);
    m_audioActive = false;
}

void ZmvFile::validateDataMessage(const SRMessageHeader& header, const unsigned char* payload)
{
    reserve(m_file.memory() + kMessageFactor * header.length);
    const SRMessagePtr message = SRMessage::create();
    message->setType(header.type);
    if (!message->write(payload, header.length))
        throw SROutOfMemory();
    SRCSerializer replacement;
    const unsigned long long proportion = kLeastReplacement + kReplacementFactor * header.length;
    replacement.setOutputLimit(
        static_cast<unsigned>(std::min<unsigned long long>(proportion, kMaxMessageLength - 1)));
    bool isReplaced = true;
    try {
        isReplaced = validateValues(message, replacement);
    } catch (const SRBreakConnection&) {
        if (!m_parameters.fixMetaData || !isNamedMetaData(message))
            failInMessage(krx::streams::kUnparsableDataMessage);
        warnInMessage(krx::streams::kMissingMetadata);
        putDefaultMetaData(replacement);
    }
    // The values that were read are gone by now: there is no need to hold both.
    if (isReplaced && isSound(replacement, header.length)) {
        fixMetaData(replacement, header);
        m_hasMetaData = true;
    }
}

bool ZmvFile::validateValues(const SRMessagePtr& message, SRCSerializer& replacement)
{
    const SRCommand command(message, true);
    const char* name = static_cast<const char*>(command.getMethodName());
    const SRData& argument = command.getArg(0);
    SRDataArray* list = nullptr;
    if (argument.kind == kObjectType || argument.kind == kArrayType)
        list = static_cast<SRDataArray*>(argument);
    if (isListing()) {
        // A name may be as long as a message, and the line longer than a string of the pool.
        logInfo(std::string("\n\tData Message Name: ").append(name).append("\n"));
        logDataArray(list, message->getBodyLength());
    }
    // The values and what is written of them are in memory together.
    const std::uint64_t limit = SRCSerializer::memoryLimitFor(message->getBodyLength());
    replacement.setMemoryLimit(limit - std::min(limit, command.memoryCharged()));
    return isMetaDataName(name) && validateMetadata(list, replacement);
}
