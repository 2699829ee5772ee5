// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/zmvfile.h"

#include "server/SRCommand.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"

#include <algorithm>
#include <cstring>
#include <string>

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

bool isDataType(unsigned type)
{
    return type == kMsgData || type == kMsgDataEx;
}

}  // namespace

ZmvFile::ZmvFile(const SRString& path, krx::streams::VideoValidationParameters parameters)
    : VideoFile(path, parameters),
      m_file(*getFileIo(), path),
      m_fileLength(m_file.length()),
      m_newFilePath(path + L".new")
{
}

ZmvFile::~ZmvFile() = default;

void ZmvFile::parse()
{
    skipTo(0);
    checkZmvHeader();
    computeDuration();
    checkZmvBody();
    validateFlags();
    verifyHasMetaData();
}

void ZmvFile::read(void* buffer, FilePos size)
{
    if (size > kMaxReadSize)
        throw StreamParseError(krx::streams::kBoxTooLarge);
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
        throw StreamParseError(krx::streams::kInvalidZmvSignature);
    m_version = static_cast<unsigned char>(readUnsigned(1));
    m_flags = static_cast<unsigned>(readUnsigned(1));
    m_headerLength = static_cast<unsigned>(readUnsigned(4));
    if (m_headerLength < kZmvMinHeaderLength || !skipTo(m_headerLength))
        throw StreamParseError(krx::streams::kInvalidZmvDataPosition);
}

void ZmvFile::computeDuration()
{
    logInfo("\n---Checking Last Message---\n");
    // The header has been read, so the file is longer than a back-pointer.
    const FilePos lastBackPointer = m_fileLength - kBackPointerSize;
    skipTo(lastBackPointer);
    const FilePos lastMessage = lastBackPointer - static_cast<FilePos>(readUnsigned(kBackPointerSize));
    if (lastMessage < static_cast<FilePos>(m_headerLength))
        throw StreamParseError(krx::streams::kInvalidZmvFooter);
    skipTo(lastMessage);
    const unsigned timestamp = readMessageHeader().timestamp;
    if (isShown(krx::streams::LOG_INFO))
        logInfo(SRMBString::format("\nZMV duration:%s\n", timestamp).c_str());
    m_duration = timestamp / 1000.0;
}

void ZmvFile::checkZmvBody()
{
    logInfo("\n---Scanning ZMV Body---\n");
    logInfo("\nMessage Pos\tTimestamp\tLength\tType\n\n");
    skipTo(m_headerLength);
    compareMsgSize(static_cast<unsigned>(readUnsigned(kBackPointerSize)), kZmvFirstBackPointer);

    const bool listing = isShown(krx::streams::LOG_INFO);
    ReportWriter& report = ReportWriter::instance();
    for (;;) {
        if (!listing)
            passPlainMessages();
        if (curPos() >= m_fileLength)
            break;
        m_messagePos = curPos();
        SRMessageHeader header = readMessageHeader();
        const char* typeName = header.getTypeAsString();
        if (listing)
            report.writeMessageRow(m_messagePos, header.timestamp, header.length, typeName);

        const unsigned char* payload = nullptr;
        const unsigned char* backPointer = nullptr;
        if (isDataType(header.type)) {
            payload = m_file.take(header.length + kBackPointerSize);
            backPointer = payload + header.length;
        } else {
            m_file.pass(header.length);
            backPointer = m_file.take(kBackPointerSize);
        }
        compareMsgSize(krx::util::loadBig32(backPointer), krx::util::backPointerOf(header.length));
        if (getPrevTimeStamp(header) > header.timestamp)
            throw StreamParseError(krx::streams::kBackwardTimestamp);
        setPrevTimeStamp(header);
        validateSRMessage(header, payload);
    }
    settleSilence(std::nullopt);
    logInfo("\n---Done Scanning---\n");
}

void ZmvFile::passPlainMessages()
{
    const std::span<const unsigned char> window = m_file.ahead();
    const unsigned char* next = window.data();
    const unsigned char* const end = next + window.size();
    krx::util::MessageRecord record;
    while (readRecord(next, static_cast<std::size_t>(end - next), record) == RecordState::kWhole) {
        const krx::util::RecordHeader& header = record.header;
        const bool isAudio = header.type == kMsgAudio;
        if (!isAudio && header.type != kMsgVideo)
            break;
        unsigned& previous = isAudio ? m_prevAudioTime : m_prevVideoTime;
        const bool hasEvent = isAudio ? m_silence.has_value() : isStall(header);
        if (hasEvent || previous > header.timestamp)
            break;
        previous = header.timestamp;
        (isAudio ? m_audioSeen : m_videoSeen) = true;
        if (isAudio)
            trackAudio(header);
        next += record.size();
    }
    m_file.pass(static_cast<std::size_t>(next - window.data()));
}

void ZmvFile::compareMsgSize(unsigned found, unsigned expected)
{
    if (found != expected)
        throw StreamParseError(krx::streams::kInvalidZmvFooter);
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
    if (isDataType(header.type))
        validateDataMessage(header, payload);
}

void ZmvFile::checkSRMsgIDType(unsigned type)
{
    type &= ~static_cast<unsigned>(kEncryptedFlag);
    if (type != kMsgAudio && type != kMsgVideo && !isDataType(type))
        throw StreamParseError(krx::streams::kUnrecognizedMsgType);
    m_videoSeen |= type == kMsgVideo;
    m_audioSeen |= type == kMsgAudio;
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
    if (isShown(krx::streams::LOG_INFO)) {
        logInfo(SRMBString::format("\nAdding silence message at time: %ld  ASR: %ld\n", header.timestamp,
                                   m_audioSpacing)
                    .c_str());
    }
    // Silence must not be earlier than the audio before it, nor later than the audio after it.
    if (m_parameters.fixVideoStall && header.timestamp >= m_prevAudioTime)
        m_silence = {m_messagePos, header.timestamp};
    else
        logWarning(StreamParseError(krx::streams::kVideoStall));
    m_audioActive = false;
}

void ZmvFile::validateDataMessage(const SRMessageHeader& header, const unsigned char* payload)
{
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
            throw StreamParseError(krx::streams::kUnparsableDataMessage);
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
    if (isShown(krx::streams::LOG_INFO)) {
        // A name may be as long as a message, and the line longer than a string of the pool.
        logInfo(std::string("\n\tData Message Name: ").append(name).append("\n"));
        logDataArray(list, message->getBodyLength());
    }
    // The values and what is written of them are in memory together.
    const std::uint64_t limit = SRCSerializer::memoryLimitFor(message->getBodyLength());
    replacement.setMemoryLimit(limit - std::min(limit, command.memoryCharged()));
    return isMetaDataName(name) && validateMetadata(list, replacement);
}
