// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRDataParser.h"

#include "util/SRFileUtil.h"
#include "util/SRStrUtil.h"
#include "util/SRStringPool.h"
#include "util/bigendian.h"
#include "util/krxassert.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>

using krx::util::SRFileUtil;

namespace {

constexpr char kDataParserPlace[] = "server/SRCSerializer";
constexpr int kReadFromWriterLine = 118;
constexpr int kWriteToReaderLine = 131;
constexpr int kTextTypeLine = 204;
constexpr int kTextTooLongLine = 219;
constexpr int kTagOpenLine = 302;
constexpr int kTagTooLongLine = 331;

constexpr unsigned kTagTypeFactor = 64;
constexpr unsigned kTagLongForm = 63;
constexpr unsigned kTagMaxShort = 62;
constexpr unsigned kTagWordBytes = 2;
constexpr unsigned kTagLongBytes = 6;

/// Whether error traces are written.
std::atomic<bool> tracing{false};

// The body of a message as the reader sees it.
const unsigned char* bodyOf(const krx::SingleMessagePtr& message)
{
    return message ? message->getBody() : nullptr;
}

bool hasLeadingByte(const krx::SingleMessage& message)
{
    const unsigned char type = message.getPlainType();
    return type == kMsgDataEx || type == kMsgContainerEx || type == kMsgCmdEx;
}

}  // namespace

void SRDataParser::FreeBuffer::operator()(unsigned char* buffer) const
{
    std::free(buffer);
}

SRDataParser::SRDataParser(const krx::SingleMessagePtr& message, bool throwOnBad)
    : m_writing(false),
      m_throwOnBad(throwOnBad),
      m_buffer(bodyOf(message)),
      m_limit(message ? message->getBodyLength() : 0),
      m_message(message)
{
    if (m_limit > 0 && hasLeadingByte(*message))
        m_position = 1;
}

SRDataParser::SRDataParser(const unsigned char* data, int length, bool throwOnBad)
    : m_writing(false),
      m_throwOnBad(throwOnBad),
      m_buffer(data),
      m_limit(data && length > 0 ? static_cast<unsigned>(length) : 0)
{
}

void SRDataParser::raiseBadData()
{
    for (const TraceScope* scope = m_traceScope; scope; scope = scope->m_outer) {
        if (scope->m_line)
            m_trace.emplace_back(scope->m_line);
    }
    m_raisedAt = m_position;
    if (!m_deferring)
        throwPending();
    m_throwPending = true;
    m_bad = true;
    m_position = m_limit;
}

void SRDataParser::throwPending()
{
    m_throwPending = false;
    m_bad = false;
    m_position = m_raisedAt;
    throw SRBreakConnection(SRBreakConnection::kMalformedData);
}

void SRDataParser::HandleBadData(unsigned position, const SRString& detail)
{
    if (m_bad)
        return;
    m_trace.push_back(
        SRString::format(L"Error occured in serializing message buffer at position %x:\nMessage Buffer: (%S)",
                         position, SRStrUtil::formatBuffer(m_buffer, m_limit)));
    m_trace.push_back(detail);
    if (m_throwOnBad) {
        raiseBadData();
        return;
    }
    logErrorTrace();
    m_bad = true;
    m_position = m_limit;
}

void SRDataParser::setErrorTrace(bool on)
{
    tracing = on;
}

bool SRDataParser::hasTraceDirectory()
{
    return tracing && SRFileUtil::dirExists(L"logs");
}

void SRDataParser::logErrorTrace() const
{
    constexpr int kCreateForAll = 0x80;
    if (m_trace.empty() || !hasTraceDirectory())
        return;
    const SRString directory = SRFileUtil::getCurDir();
    if (directory.empty())
        return;
    const SRString pattern = SRFileUtil::nameToNative(L"%S\\logs\\cmdParsingLog.log");
    // Opening must not block, whatever has the file's name.
    const krx::util::SRAutoFile file(SRFileUtil::open(SRString::format(pattern.c_str(), directory),
                                                      O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY,
                                                      kCreateForAll));
    struct stat64 status;
    if (file.get() < 0 || ::fstat64(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return;
    std::string lines;
    for (const SRString& line : m_trace)
        lines.append(line.toMultiByte().view()).append("\n");
    if (lines.size() > traceLimit()) {
        lines.resize(traceLimit());
        lines.back() = '\n';
    }
    SRFileUtil::writeUntilDone(file.get(), lines.data(), lines.size());
}

const unsigned char* SRDataParser::take(unsigned n)
{
    if (m_writing) {
        krx::util::assertFailed(kDataParserPlace, kReadFromWriterLine);
        return nullptr;
    }
    if (n > getRemaining()) {
        HandleBadData(m_position, L"Message data is not complete");
        return nullptr;
    }
    const unsigned char* const bytes = m_buffer + m_position;
    m_position += n;
    return bytes;
}

unsigned char SRDataParser::GetByte()
{
    const unsigned char* const bytes = take(1);
    return bytes ? *bytes : 0;
}

unsigned short SRDataParser::GetWord()
{
    const unsigned char* const bytes = take(sizeof(unsigned short));
    return bytes ? krx::util::loadBig16(bytes) : static_cast<unsigned short>(0);
}

unsigned SRDataParser::GetDWord()
{
    const unsigned char* const bytes = take(sizeof(unsigned));
    return bytes ? krx::util::loadBig32(bytes) : 0;
}

long long SRDataParser::GetINT64()
{
    const unsigned char* const bytes = take(sizeof(long long));
    return bytes ? static_cast<long long>(krx::util::loadBig64(bytes)) : 0;
}

double SRDataParser::GetDouble()
{
    const unsigned char* const bytes = take(sizeof(double));
    return bytes ? std::bit_cast<double>(krx::util::loadBig64(bytes)) : 0;
}

bool SRDataParser::readText(int type, std::string_view& text)
{
    constexpr unsigned kLengthBytes = 4;
    if (type != kShortText && type != kLongText) {
        krx::util::assertFailed(kDataParserPlace, kTextTypeLine);
        return false;
    }
    const unsigned before = m_position;
    const unsigned length = type == kShortText ? GetWord() : GetDWord();
    // Nothing was read: it is bad data, or not a reader.
    if (m_bad || m_position == before)
        return false;
    if (length > getRemaining()) {
        HandleBadData(m_position - std::min(m_position, kLengthBytes),
                      SRString::format(L"Length of string %u is found greater than remaining bytes. "
                                       L"Message data is not complete",
                                       length));
        return false;
    }
    text = std::string_view(reinterpret_cast<const char*>(m_buffer + m_position), length);
    m_position += length;
    return true;
}

char* SRDataParser::GetString(int type)
{
    std::string_view text;
    if (!readText(type, text))
        return nullptr;
    char* const copy = new (std::nothrow) char[text.size() + 1];
    if (!copy)
        throw SROutOfMemory();
    *std::copy(text.begin(), text.end(), copy) = '\0';
    return copy;
}

const unsigned char* SRDataParser::GetData(unsigned n)
{
    if (!m_writing && n > getRemaining()) {
        HandleBadData(m_position,
                      SRString::format(L"Length of data %u is found greater than remaining bytes. "
                                       L"Message data is not complete",
                                       n));
        return nullptr;
    }
    return take(n);
}

void SRDataParser::CheckBufferSize(unsigned n)
{
    constexpr std::uint64_t kMinCapacity = 256;
    constexpr std::uint64_t kStep = 65536;
    constexpr std::uint64_t kExtra = 1024;
    const std::uint64_t needed = std::uint64_t{m_position} + n;
    if (needed <= m_limit)
        return;
    std::uint64_t capacity = m_limit <= kStep ? std::uint64_t{m_limit} * 2 : m_limit + kStep;
    capacity = std::max(capacity, kMinCapacity);
    if (capacity < needed)
        capacity = needed + kExtra;
    if (needed > m_outputLimit || capacity > UINT32_MAX)
        throw OutputLimitReached();
    capacity = std::min(capacity, std::uint64_t{m_outputLimit});
    auto* const grown = static_cast<unsigned char*>(std::realloc(m_ownBuffer.get(), capacity));
    if (!grown)
        throw SROutOfMemory();
    static_cast<void>(m_ownBuffer.release());
    m_ownBuffer.reset(grown);
    m_buffer = grown;
    m_limit = static_cast<unsigned>(capacity);
}

unsigned char* SRDataParser::make(unsigned n)
{
    if (!m_writing) {
        krx::util::assertFailed(kDataParserPlace, kWriteToReaderLine);
        return nullptr;
    }
    CheckBufferSize(n);
    unsigned char* const out = m_ownBuffer.get() + m_position;
    m_position += n;
    return out;
}

void SRDataParser::PutString(const char* text, int type)
{
    PutString(std::string_view(text ? text : ""), type);
}

void SRDataParser::PutString(std::string_view text, int type)
{
    if (type != kShortText && type != kLongText) {
        krx::util::assertFailed(kDataParserPlace, kTextTypeLine);
        return;
    }
    if (text.size() > (type == kShortText ? kMaxShortText : UINT32_MAX)) {
        krx::util::assertFailed(kDataParserPlace, kTextTooLongLine);
        return;
    }
    if (type == kShortText)
        putShortText(text);
    else
        putLongText(text);
}

void SRDataParser::StartTag(int type, bool isLong)
{
    if (m_tagType >= 0) {
        krx::util::assertFailed(kDataParserPlace, kTagOpenLine);
        return;
    }
    const unsigned start = m_position;
    const unsigned headerBytes = isLong ? kTagLongBytes : kTagWordBytes;
    unsigned char* const header = make(headerBytes);
    if (!header)
        return;
    std::memset(header, 0, headerBytes);
    m_tagType = type;
    m_tagStart = start;
    m_tagLong = isLong;
}

void SRDataParser::FinishTag()
{
    if (m_tagType < 0) {
        krx::util::assertFailed(kDataParserPlace, kTagOpenLine);
        return;
    }
    const unsigned type = static_cast<unsigned>(m_tagType) * kTagTypeFactor;
    unsigned char* const header = m_ownBuffer.get() + m_tagStart;
    const unsigned length = m_position - m_tagStart - (m_tagLong ? kTagLongBytes : kTagWordBytes);
    m_tagType = -1;
    if (m_tagLong) {
        krx::util::storeBig16(header, static_cast<unsigned short>(type + kTagLongForm));
        krx::util::storeBig32(header + kTagWordBytes, length);
    } else if (length <= kTagMaxShort) {
        krx::util::storeBig16(header, static_cast<unsigned short>(type + length));
    } else {
        krx::util::assertFailed(kDataParserPlace, kTagTooLongLine);
    }
}
