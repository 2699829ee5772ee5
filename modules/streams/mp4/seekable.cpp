// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/seekable.h"

#include "modules/streams/mediacontexts.h"
#include "modules/streams/mp4/amfmessage.h"
#include "modules/streams/mp4/mp4cursor.h"
#include "modules/streams/mp4/mp4errors.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "server/SRMessage.h"
#include "util/krxassert.h"
#include "util/messagerecord.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;
using krx::util::kRecordOverhead;
using krx::util::RecordHeader;

constexpr char kSeekablePlace[] = "modules/streams/mp4/mp4Data";
constexpr int kMessageTypeLine = 142;
constexpr int kHeaderSizeLine = 171;
constexpr int kPendingLine = 1402;
constexpr int kNoRoomLine = 1540;

// Filters before a payload describe its protection: their number, and for each its name with a zero byte, the
// length of its parameters (24 bits), and the parameters.
constexpr char kEncryptionFilter[] = "Encryption";
constexpr char kSelectiveFilter[] = "SE";
constexpr unsigned char kEncryptedAccessUnit = 0x80;
constexpr unsigned kLengthBytes = 3;
constexpr unsigned kVersionWithWholeFilter = 1;
constexpr unsigned kVersionWithSelectiveFilter = 2;

constexpr unsigned kMinBuffer = 1024;

/// Grows memory to at least size bytes and keeps what it holds; false when there is none.
bool provide(SRMemory& memory, unsigned long long size)
{
    constexpr unsigned kMax = std::numeric_limits<unsigned>::max();
    if (size <= memory.capacity())
        return true;
    if (size > kMax)
        return false;
    const unsigned long long roomy = std::min<unsigned long long>(size + size / 4, kMax);
    return memory.resize(static_cast<unsigned>(roomy)) || memory.resize(static_cast<unsigned>(size));
}

/// Writes the number of filters and the start of the one filter there is, up to its parameters.
template <std::size_t N>
unsigned writeFilter(unsigned char* out, const char (&name)[N], unsigned parameterLength)
{
    out[0] = 1;
    std::memcpy(out + 1, name, N);
    WriteUnsigned(out + 1 + N, parameterLength, kLengthBytes);
    return 1 + N + kLengthBytes;
}

}  // namespace

/// Throws the fault with the payload's place.
template <typename Fault>
void Seekable::fail(Fault fault) const
{
    constexpr unsigned long long kMax = std::numeric_limits<long long>::max();
    fault.place().offset = static_cast<long long>(std::min(m_fileOffset, kMax));
    throw fault;
}

bool Seekable::initFromCursor(TrackCursor* cursor, long long index, Mp4FileIO& io)
{
    if (cursor->sampleType() == kSampleUnsupported && !cursor->isEnder())
        return false;
    if (cursor->isEnder()) {
        if (cursor->isHeader())
            krx::util::assertFailed(kSeekablePlace, kPendingLine);
        initEnder(*cursor, index);
        return true;
    }

    initCommon(*cursor, index);
    m_isHeader = cursor->isHeader();
    if (m_isHeader) {
        const SampleEntry& description = cursor->sampleEntry();
        m_fileOffset = static_cast<unsigned long long>(description.configPosition);
        m_payloadSize = description.configLength;
        m_compositionMillis = 0;
        m_keyFrame = true;
        m_sampleFlags = cursor->getSampleFlags();
    } else {
        m_fileOffset = cursor->getFileOffset();
        m_payloadSize = cursor->getSampleSize();
        m_compositionMillis = cursor->getCompTimeMillis();
        m_keyFrame = cursor->atSyncSample();
        m_sampleFlags = cursor->getSampleFlags();
        m_headerBytes = cursor->getHeaderBytes();
        if (cursor->isEncrypted())
            initEncryption();
    }

    const auto fileSize = static_cast<unsigned long long>(io.Size());
    if (m_fileOffset > fileSize || m_payloadSize > fileSize - m_fileOffset)
        fail(TruncatedStreamError(krx::streams::kTruncatedFile));
    if (m_payloadSize > kMaxPayload)
        fail(StreamParseError(krx::streams::kInvalidSampleSize));
    return true;
}

bool Seekable::initFromCursor(Mp4Cursor& cursor, Mp4FileIO& io)
{
    TrackCursor* track = cursor.getActiveTrack();
    return track && initFromCursor(track, cursor.getIndex(), io);
}

void Seekable::initEnder(const TrackCursor& cursor, long long index)
{
    initCommon(cursor, index);
    m_fileOffset = 0;
    m_payloadSize = 0;
    m_compositionMillis = 0;
    m_keyFrame = true;
    m_sampleFlags = 0;
    m_isHeader = false;
    m_isEnder = true;
}

void Seekable::initCommon(const TrackCursor& cursor, long long index)
{
    m_index = index;
    m_time = cursor.getTimeMillis();
    m_track = &cursor.track();
    m_trackNumber = m_track->contextNumber;
    m_descriptionIndex = cursor.descriptionIndex();
    setSampleType(cursor.sampleType());
    m_actualSize = 0;
    m_isEnder = false;
    m_encryption = kNotEncrypted;
}

void Seekable::initEncryption()
{
    const DRMTrackInfo& drm = m_track->drm;
    m_encryption = drm.selectiveEncryption ? kSelective : kWholeSample;
    m_ivLength = drm.ivLength;
    m_protectionVersion = drm.headerVersion;
    m_messageType |= kEncryptedFlag;
}

void Seekable::initFromRawData(const void* bytes, unsigned size, SampleType type, long long index,
                               unsigned trackNumber)
{
    const SRMemoryPtr buffer = m_buffer;
    *this = Seekable();
    m_buffer = buffer;
    setSampleType(type);
    m_headerBytes = 0;
    m_index = index;
    m_trackNumber = trackNumber;
    m_payloadSize = size;
    if (!m_buffer)
        m_buffer = SRMemoryPtr(new SRMemory(std::max(size, kMinBuffer)));
    if (!provide(*m_buffer, size))
        throw SROutOfMemory();
    std::memcpy(m_buffer->data(), bytes, size);
    m_actualSize = size;
}

void Seekable::setSampleType(SampleType type)
{
    m_sampleType = type;
    m_headerBytes = getExtraHeaderAmt(type);
    m_messageType = getMessageType(type);
}

unsigned char Seekable::getMessageType(unsigned sampleType)
{
    if (sampleType < kSampleTypeCount)
        return kSampleTypes[sampleType].messageType;
    krx::util::assertFailed(kSeekablePlace, kMessageTypeLine);
    return 0;
}

unsigned Seekable::getExtraHeaderAmt(unsigned sampleType)
{
    if (sampleType < kSampleTypeCount && kSampleTypes[sampleType].headerSize != kNoHeaderSize)
        return kSampleTypes[sampleType].headerSize;
    krx::util::assertFailed(kSeekablePlace, kHeaderSizeLine);
    return 0;
}

const SampleEntry* Seekable::entry() const
{
    const bool known =
        m_track && m_descriptionIndex > 0 && m_descriptionIndex <= m_track->sampleDescriptions.size();
    return known ? &m_track->sampleDescriptions[m_descriptionIndex - 1] : nullptr;
}

void Seekable::readPayload(Mp4FileIO& io)
{
    if (!m_buffer)
        m_buffer = SRMemoryPtr(new SRMemory(kMinBuffer));
    provide(*m_buffer, getEstimatedMsgSize());
    readPayloadToBuffer(io, *m_buffer, 0);
}

unsigned Seekable::readPayloadToBuffer(Mp4FileIO& io, SRMemory& buffer, unsigned offset)
{
    m_actualSize = 0;
    if (m_isEnder && isAudioType(m_sampleType))
        return 0;
    if (offset > buffer.capacity() || buffer.capacity() - offset < m_headerBytes) {
        krx::util::assertFailed(kSeekablePlace, kNoRoomLine);
        return 0;
    }

    unsigned consumed = 0;
    const unsigned headers = writeHeaders(io, buffer.data() + offset, consumed);
    if (m_payloadSize < consumed)
        fail(StreamParseError(krx::streams::kUnsupportedDrmScheme));
    const unsigned rest = m_payloadSize - consumed;
    const unsigned at = offset + headers;
    if (rest > std::numeric_limits<unsigned>::max() - at)
        fail(StreamParseError(krx::streams::kUnknownError));
    unsigned written = 0;
    if (rest <= buffer.capacity() - at)
        written = writePayload(io, buffer.data() + at, consumed, rest);
    if (m_sampleType == kSampleText)
        written = replaceByTextMessage(buffer, at, written);
    m_actualSize = headers + written;
    return m_actualSize;
}

/// Codec header and encryption preamble; consumed: the bytes that the preamble took from the payload.
unsigned Seekable::writeHeaders(Mp4FileIO& io, unsigned char* out, unsigned& consumed)
{
    CodecHeader header;
    header.type = m_sampleType;
    header.isHeader = m_isHeader;
    header.isEnder = m_isEnder;
    header.keyFrame = m_keyFrame;
    header.compositionMillis = m_compositionMillis;
    header.sampleFlags = m_sampleFlags;
    header.entry = entry();
    const unsigned length = writePreamble(header, out);
    return length + writeEncryptionPreamble(io, out + length, consumed);
}

unsigned Seekable::writeEncryptionPreamble(Mp4FileIO& io, unsigned char* out, unsigned& consumed)
{
    if (m_encryption == kNotEncrypted)
        return 0;
    if (m_encryption == kWholeSample)
        return writeEncryptOn(io, out, consumed);
    if (m_isHeader || m_isEnder)
        return 0;
    const bool encrypted = readSEByte(io, consumed) == kEncryptedAccessUnit;
    switch (m_protectionVersion) {
        case kVersionWithWholeFilter:
            return encrypted ? writeEncryptOn(io, out, consumed) : 0;
        case kVersionWithSelectiveFilter:
            return writeEncryptOnSE(io, out, encrypted, consumed);
        default:
            fail(StreamParseError(krx::streams::kUnsupportedDrmScheme));
    }
}

unsigned Seekable::writeEncryptOn(Mp4FileIO& io, unsigned char* out, unsigned& consumed)
{
    if (m_payloadSize <= m_ivLength)
        return 0;
    const unsigned length = writeFilter(out, kEncryptionFilter, m_ivLength);
    readIV(io, out + length);
    consumed += m_ivLength;
    return length + m_ivLength;
}

unsigned Seekable::writeEncryptOnSE(Mp4FileIO& io, unsigned char* out, bool encrypted, unsigned& consumed)
{
    unsigned length = writeFilter(out, kSelectiveFilter, encrypted ? m_ivLength + 1 : 1);
    out[length++] = encrypted ? kEncryptedAccessUnit : 0;
    if (!encrypted)
        return length;
    if (m_payloadSize <= m_ivLength)
        fail(StreamParseError(krx::streams::kUnsupportedDrmScheme));
    readIV(io, out + length);
    consumed += m_ivLength;
    return length + m_ivLength;
}

/// The payload's first byte; 0, and nothing consumed, without a payload.
unsigned char Seekable::readSEByte(Mp4FileIO& io, unsigned& consumed)
{
    unsigned char byte = 0;
    if (m_payloadSize == 0)
        return byte;
    if (io.ReadMessage(&byte, 1, static_cast<long long>(m_fileOffset), m_messageType) != 1)
        fail(StreamParseError(krx::streams::kUnsupportedDrmScheme));
    ++consumed;
    return byte;
}

/// The initialisation vector follows the payload's first byte.
void Seekable::readIV(Mp4FileIO& io, unsigned char* out)
{
    if (m_ivLength != 0 && io.ReadMessage(out, m_ivLength, static_cast<long long>(m_fileOffset + 1),
                                          m_messageType) != m_ivLength)
        fail(StreamParseError(krx::streams::kUnsupportedDrmScheme));
}

unsigned Seekable::writePayload(Mp4FileIO& io, unsigned char* out, unsigned consumed, unsigned size)
{
    if (size == 0)
        return 0;
    // The parser keeps the decoder configurations: reading them again would cost the read-ahead its window.
    if (const SampleEntry* description = entry(); m_isHeader && description && description->config) {
        std::memcpy(out, description->config.get() + consumed, size);
        return size;
    }
    const auto at = static_cast<long long>(m_fileOffset + consumed);
    if (io.ReadMessage(out, size, at, m_messageType) != size)
        fail(StreamParseError(krx::streams::kFileReadError));
    return size;
}

/// Replaces the sample of size bytes at the offset by its data message. Returns the message's length.
unsigned Seekable::replaceByTextMessage(SRMemory& buffer, unsigned at, unsigned size)
{
    AMFMessage text;
    text.initFromText(*m_track, false, buffer.data() + at, size);
    if (text.hasFailed() || !provide(buffer, static_cast<unsigned long long>(at) + text.length()))
        return 0;
    std::memcpy(buffer.data() + at, text.data(), text.length());
    return text.length();
}

bool Seekable::toContextMessage(ContextMessage& message) const
{
    if (!m_isHeader && !m_isEnder)
        return false;
    message.contextType = m_isHeader ? kContextHeader : kContextEnder;
    message.messageType = m_messageType;
    message.position = m_index;
    message.time = m_time;
    message.trackId = m_trackNumber;
    message.offset = 0;
    message.length = m_actualSize;
    message.memory = nullptr;
    if (m_actualSize != 0) {
        message.memory = SRMemoryPtr(new SRMemory(m_actualSize));
        std::memcpy(message.memory->data(), m_buffer->data(), m_actualSize);
    }
    return true;
}

std::size_t Seekable::reportMemorySize() const
{
    return m_buffer ? sizeof(SRMemory) + m_buffer->capacity() : 0;
}

AggMsg::AggMsg(unsigned reserve) : m_buffer(new SRMemory(kMinBuffer)), m_reserve(reserve) {}

bool AggMsg::appendSeekable(Mp4FileIO& io, Seekable& message)
{
    // A segment's messages hardly exceed what makes it end, however large the reserve.
    constexpr unsigned kMaxReserve = 1U << 19;
    const unsigned long long needed =
        static_cast<unsigned long long>(m_position) + message.getEstimatedMsgSize() + kRecordOverhead;
    if (needed > kMaxSize)
        return false;
    if (m_position == 0) {
        m_time = message.getTime();
        provide(*m_buffer, std::min(m_reserve, kMaxReserve) + kMinBuffer);
    }
    if (!provide(*m_buffer, needed))
        throw SROutOfMemory();

    const unsigned length = message.readPayloadToBuffer(io, *m_buffer, m_position + RecordHeader::kSize);
    // Timed text becomes longer than its sample.
    if (length > kMaxSize - kRecordOverhead || m_position > kMaxSize - kRecordOverhead - length)
        return false;
    const unsigned recordLength = length + kRecordOverhead;
    if (!provide(*m_buffer, static_cast<unsigned long long>(m_position) + recordLength))
        throw SROutOfMemory();
    const RecordHeader header{message.getMessageType(), length, message.getTime(), 0};
    krx::util::writeRecord(m_buffer->data() + m_position, header, nullptr);
    m_position += recordLength;
    return true;
}

}  // namespace krx::mp4
