// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCommand.h"

#include "server/messagedump.h"
#include "util/SRException.h"
#include "util/SRStrUtil.h"
#include "util/SRStringPool.h"
#include "util/krxassert.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <new>

namespace {

constexpr char kCommandPlace[] = "server/SRCommand";
constexpr int kTypeLine = 178;
constexpr int kInfoLine = 392;
constexpr unsigned char kFlagMask = 0xA0;

// In order of compareNoCase; a name's index is its number.
constexpr std::array<const char*, SRCommand::kCmdStopTransmit + 1> kCommandTable{
    "",           "@getStats",     "closeStream", "connect",       "createStream", "deleteStream",
    "initStream", "loadSegment",   "onMCastJoin", "onStatus",      "pause",        "pauseRaw",
    "play",       "play2",         "publish",     "receiveAudio",  "receiveVideo", "seek",
    "seekRaw",    "setFarAddress", "setPeerInfo", "startTransmit", "stopTransmit",
};

const SRData& undefinedValue()
{
    static const SRData value{};
    return value;
}

void appendTo(SRDataArray& array, const SRMBString& name, const SRData& value)
{
    array.append(SRMBString(name), SRData(value));
}

}  // namespace

std::atomic<bool> SRCommand::gLogCommandParserError{false};

SRCommand::SRCommand() = default;

SRCommand::SRCommand(const SRCommand& other)
    : m_command(other.m_command),
      m_methodName(other.m_methodName),
      m_trxId(other.m_trxId),
      m_commandData(other.m_commandData),
      m_args(other.m_args)
{
    setEncoding(other.getEncoding());
}

SRCommand::SRCommand(unsigned char type, const unsigned char* data, int length, bool throwFlag)
    : SRCSerializer(data, length, throwFlag || gLogCommandParserError.load()), m_throwFlag(throwFlag)
{
    init(type);
}

SRCommand::SRCommand(const krx::SingleMessagePtr& message, bool throwFlag)
    : SRCSerializer(message, throwFlag || gLogCommandParserError.load()), m_throwFlag(throwFlag)
{
    if (message)
        init(message->getPlainType());
}

void SRCommand::init(unsigned char type)
{
    const bool isCommand = type == kMsgCmd || type == kMsgCmdEx;
    if (!isCommand && type != kMsgData && type != kMsgDataEx)
        krx::util::assertFailed(kCommandPlace, kTypeLine);
    try {
        parseOrTell(type, isCommand);
    } catch (const std::bad_alloc&) {
        throw SROutOfMemory();
    }
    // Nothing refers to them any more.
    CleanDirtyFlags();
}

void SRCommand::parseOrTell(unsigned char type, bool isCommand)
{
    try {
        parse(isCommand);
    } catch (const SRBreakConnection& e) {
        if (hasReadStarved())
            throw SROutOfMemory();
        if (e.getCode() == SRBreakConnection::kMalformedData)
            tellFailure(type);
        if (m_throwFlag)
            throw;
    }
    if (hasReadStarved())
        throw SROutOfMemory();
}

void SRCommand::parse(bool isCommand)
{
    if (!atEnd()) {
        readValue(m_methodName);
        m_command = mapCommand(static_cast<const char*>(m_methodName));
        m_stage = Stage::kMethodName;
    }
    if (isCommand) {
        if (!atEnd()) {
            readValue(m_trxId);
            m_stage = Stage::kTrxId;
        }
        if (!atEnd())
            readValue(m_commandData);
    } else {
        m_trxId.init(0);
    }
    m_stage = Stage::kCommandData;
    while (!atEnd()) {
        SRData value;
        readValue(value);
        m_args.push_back(std::move(value));
    }
}

void SRCommand::tellFailure(unsigned char type)
{
    if (hasTraceDirectory()) {
        SRString line = SRString::format(L"while parsing buffer with message id %u", type);
        switch (m_stage) {
            case Stage::kNothing:
                line += L", failed to read the command type (first arg)";
                break;
            case Stage::kMethodName:
                line += L", failed to read the transaction id";
                break;
            case Stage::kTrxId:
                line += L", failed to read the command data";
                break;
            case Stage::kCommandData:
                line += SRString::format(L", failed to read the argument number%d", argCount()).view();
                break;
        }
        addTrace(line);
        const std::size_t maxDump = std::min(traceLimit(), SRData::kMaxTextBytes);
        addTrace(SRString(L"Command parsed as \n") + SRString(krx::dumpCommand(*this, maxDump)));
        logErrorTrace();
    }
    clearTrace();
}

int SRCommand::mapCommand(const char* name)
{
    if (!name)
        return kCmdUnknown;
    const auto found = std::lower_bound(
        kCommandTable.begin(), kCommandTable.end(), name,
        [](const char* entry, const char* wanted) { return SRStrUtil::compareNoCase(entry, wanted) < 0; });
    if (found == kCommandTable.end() || SRStrUtil::compareNoCase(*found, name) != 0)
        return kCmdUnknown;
    return static_cast<int>(std::distance(kCommandTable.begin(), found));
}

const char* SRCommand::commandName(int number)
{
    const bool known = number >= 0 && static_cast<std::size_t>(number) < kCommandTable.size();
    return known ? kCommandTable[static_cast<std::size_t>(number)] : "";
}

const SRData& SRCommand::getArg(int i) const
{
    return i >= 0 && i < argCount() ? m_args[static_cast<std::size_t>(i)] : undefinedValue();
}

SRMessagePtr SRCommand::getArgAsMessage(int& index) const
{
    const SRData& value = getArg(index);
    if (value.kind != kBlobType)
        return nullptr;
    const SRBuffer bytes(value);
    if (bytes.length() > kMaxMessageLength)
        return nullptr;
    SRMessagePtr message = SRMessage::create(bytes.length());
    if (!message->write(bytes.data(), bytes.length()))
        return nullptr;
    ++index;
    return message;
}

void SRCommand::setUserArgToMessage(const SRMessagePtr& message)
{
    const unsigned length = message->getBodyLength();
    SRBuffer bytes;
    if (length > 0) {
        bytes = SRBuffer(length);
        std::memcpy(bytes.base(), message->getBody(), length);
        bytes.memory()->setUsed(length);
        bytes.setEnd(length);
    }
    m_args.emplace_back(bytes);
}

void SRCommand::setResponseData(const SRMBString& name, const SRData& value)
{
    if (!m_commandData.isArrayKind()) {
        const SRDataArrayPtr object(new SRDataArray);
        object->setKind(kObjectType);
        m_commandData.init(object.get(), kObjectType);
    }
    appendTo(*m_commandData.payload.array, name, value);
}

void SRCommand::appendToFirstArg(const SRMBString& name, const SRData& value, SRDataKind kindOfNew)
{
    if (m_args.empty()) {
        const SRDataArrayPtr array(new SRDataArray);
        array->setKind(kindOfNew);
        m_args.emplace_back(array, kindOfNew);
    }
    if (SRDataArray* const array = static_cast<SRDataArray*>(m_args.front()))
        appendTo(*array, name, value);
    else
        krx::util::assertFailed(kCommandPlace, kInfoLine);
}

void SRCommand::setInfoProperty(const SRMBString& name, const SRData& value)
{
    appendToFirstArg(name, value, kObjectType);
}

void SRCommand::setOnMetaDataProperty(const SRMBString& name, const SRData& value)
{
    appendToFirstArg(name, value, kArrayType);
}

void SRCommand::setInfoObj(const SRMBString& level, const SRMBString& code, const SRMBString& description,
                           const SRData* details)
{
    setInfoProperty("level", SRData(level));
    setInfoProperty("code", SRData(code));
    if (!description.empty())
        setInfoProperty("description", SRData(description));
    if (details)
        setInfoProperty("details", *details);
}

bool SRCommand::serializeTo(SRCSerializer& out, Response response) const
{
    bool written = out.PutVar(&m_methodName, false);
    if (response == Response::kCommand)
        written = out.PutVar(&m_trxId, false) && out.PutVar(&m_commandData, false) && written;
    for (const SRData& value : m_args)
        written = written && out.PutVar(&value, false);
    return written;
}

bool SRCommand::serializeCommandResponse()
{
    return serializeTo(*this, Response::kCommand);
}

bool SRCommand::serializeDataResponse()
{
    return serializeTo(*this, Response::kData);
}

SRMessagePtr SRCommand::makeMessage(Response response) const
{
    try {
        return tryMakeMessage(response);
    } catch (const std::bad_alloc&) {
        throw SROutOfMemory();
    }
}

SRMessagePtr SRCommand::tryMakeMessage(Response response) const
{
    const bool isAMF3 = getEncoding() == kAMF3;
    SRCSerializer out;
    out.setEncoding(getEncoding());
    out.setOutputLimit(kMaxMessageLength);
    if (isAMF3)
        out.PutByte(0);
    if (!serializeTo(out, response)) {
        if (out.hasWriteStarved())
            throw SROutOfMemory();
        return nullptr;
    }
    SRMessagePtr message = SRMessage::create(out.getPosition());
    if (!message->write(out.getBuffer(), out.getPosition()))
        return nullptr;
    unsigned char type = isAMF3 ? kMsgDataEx : kMsgData;
    if (response == Response::kCommand)
        type = isAMF3 ? kMsgCmdEx : kMsgCmd;
    message->setType(static_cast<unsigned char>((message->getType() & kFlagMask) | type));
    message->setStreamId(0);
    return message;
}

SRMessagePtr SRCommand::getCommandResponse() const
{
    return makeMessage(Response::kCommand);
}

SRMessagePtr SRCommand::getDataResponse() const
{
    return makeMessage(Response::kData);
}
