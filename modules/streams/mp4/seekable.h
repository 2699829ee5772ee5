// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/codecheader.h"
#include "modules/streams/mp4/sampletype.h"
#include "server/SRMessage.h"
#include "util/SRBuffer.h"

#include <cstddef>

namespace krx {
struct ContextMessage;
}

namespace krx::mp4 {

class Mp4Cursor;
class Mp4FileIO;
class TrackCursor;
class TrackInfo;

/// One step of a track as a media message: a sample, a decoder configuration (header) or the end of a
/// sequence (ender). It is filled from a cursor, and its bytes are written when asked for. One object serves
/// message after message.
class Seekable
{
public:
    /// What the payload's protection asks of the message.
    enum Encryption : unsigned char
    {
        kNotEncrypted = 0,
        kWholeSample = 1,
        kSelective = 2,
    };

    /// Largest payload in bytes.
    static constexpr unsigned kMaxPayload = 0xDFF00000;

    /// Makes the cursor's current step the message with that index. False for a step of an unsupported type,
    /// which has no message. Throws TruncatedStreamError for a payload that lies beyond the end of the file,
    /// kInvalidSampleSize for one that is too large, and what the cursor throws.
    bool initFromCursor(TrackCursor* cursor, long long index, Mp4FileIO& io);
    /// The same for the active track and the cursor's index; false without an active track.
    bool initFromCursor(Mp4Cursor& cursor, Mp4FileIO& io);
    /// The ender that the cursor's track would have now.
    void initEnder(const TrackCursor& cursor, long long index);
    /// A ready message without codec header, at time 0.
    void initFromRawData(const void* bytes, unsigned size, SampleType type, long long index,
                         unsigned trackNumber);

    /// Writes the message into the own buffer.
    void readPayload(Mp4FileIO& io);
    /// Writes the message at offset of buffer, which has room for the estimated size, and returns its length.
    /// If the payload does not fit, only the headers are written; timed text grows the buffer as needed.
    /// Throws BadSampleError, and StreamParseError for a sample that is incomplete or too short for its
    /// protection.
    unsigned readPayloadToBuffer(Mp4FileIO& io, SRMemory& buffer, unsigned offset);

    /// A copy of what readPayload wrote. False for samples.
    bool toContextMessage(ContextMessage& message) const;

    /// Reports a type that does not exist and returns 0.
    static unsigned char getMessageType(unsigned sampleType);
    /// Bytes of codec header. Reports a type that does not exist or that no step has, and returns 0.
    static unsigned getExtraHeaderAmt(unsigned sampleType);
    /// Sets type, header bytes and message type.
    void setSampleType(SampleType type);
    void setIsHeader(bool isHeader) { m_isHeader = isHeader; }

    SampleType getSampleType() const { return m_sampleType; }
    /// Type byte of the message; with bit 0x20 when the payload is encrypted.
    unsigned char getMessageType() const { return m_messageType; }
    unsigned getPayloadSize() const { return m_payloadSize; }
    unsigned long long getFileOffset() const { return m_fileOffset; }
    /// Payload and headers, at most.
    unsigned getEstimatedMsgSize() const { return m_payloadSize + m_headerBytes; }
    /// What the last read wrote.
    unsigned getActualMsgSize() const { return m_actualSize; }
    /// The message that readPayload wrote.
    unsigned char* data() { return m_buffer ? m_buffer->data() : nullptr; }
    long long getIndex() const { return m_index; }
    unsigned getTime() const { return m_time; }  ///< ms
    const TrackInfo* getTrack() const { return m_track; }
    unsigned getDescriptionIndex() const { return m_descriptionIndex; }
    bool isKeyFrame() const { return m_keyFrame; }
    bool isHeader() const { return m_isHeader; }
    bool isEnder() const { return m_isEnder; }
    /// Neither filled nor read.
    bool isEmpty() const { return m_sampleType == kSampleUnsupported; }

    /// Bytes held by the buffer.
    std::size_t reportMemorySize() const;

private:
    void initCommon(const TrackCursor& cursor, long long index);
    void initEncryption();
    template <typename Fault>
    [[noreturn]] void fail(Fault fault) const;
    const struct SampleEntry* entry() const;
    unsigned writeHeaders(Mp4FileIO& io, unsigned char* out, unsigned& consumed);
    unsigned writeEncryptionPreamble(Mp4FileIO& io, unsigned char* out, unsigned& consumed);
    unsigned writeEncryptOn(Mp4FileIO& io, unsigned char* out, unsigned& consumed);
    unsigned writeEncryptOnSE(Mp4FileIO& io, unsigned char* out, bool encrypted, unsigned& consumed);
    unsigned char readSEByte(Mp4FileIO& io, unsigned& consumed);
    void readIV(Mp4FileIO& io, unsigned char* out);
    unsigned writePayload(Mp4FileIO& io, unsigned char* out, unsigned consumed, unsigned size);
    unsigned replaceByTextMessage(SRMemory& buffer, unsigned at, unsigned size);

    unsigned long long m_fileOffset = 0;  ///< of the payload
    unsigned m_payloadSize = 0;
    unsigned m_headerBytes = 0;  ///< codec header and room for the encryption preamble
    unsigned m_actualSize = 0;
    long long m_index = 0;
    unsigned m_time = 0;
    int m_compositionMillis = 0;
    SampleType m_sampleType = kSampleUnsupported;
    unsigned m_sampleFlags = 0;
    bool m_keyFrame = false;
    unsigned m_trackNumber = 0;
    const TrackInfo* m_track = nullptr;
    unsigned m_descriptionIndex = 0;
    unsigned char m_messageType = 0;
    SRMemoryPtr m_buffer;
    bool m_isHeader = false;
    bool m_isEnder = false;
    Encryption m_encryption = kNotEncrypted;
    unsigned m_ivLength = 0;
    unsigned m_protectionVersion = 0;
};

/// An aggregate message in the making: records of messages, one after the other (see RecordHeader).
class AggMsg
{
public:
    /// reserve: the size, in bytes, that the aggregate is meant to reach.
    explicit AggMsg(unsigned reserve);

    /// Bytes that an aggregate has at most: it is a message itself.
    static constexpr unsigned kMaxSize = kMaxMessageLength;

    /// Appends the message. False when the aggregate would exceed kMaxSize: the caller delivers and clears it
    /// first. A message that an empty aggregate refuses is to be delivered alone. Throws SROutOfMemory and
    /// what readPayloadToBuffer throws. On every failure the aggregate is unchanged.
    bool appendSeekable(Mp4FileIO& io, Seekable& message);
    /// Empties the aggregate. data() and getTime() stay valid until the next append.
    void clear() { m_position = 0; }

    unsigned size() const { return m_position; }
    unsigned char* data() { return m_buffer->data(); }
    unsigned getTime() const { return m_time; }  ///< of the first message, ms

private:
    unsigned m_time = 0;
    unsigned m_position = 0;
    SRMemoryPtr m_buffer;
    unsigned m_reserve;
};

}  // namespace krx::mp4
