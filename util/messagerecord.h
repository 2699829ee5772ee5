// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/bigendian.h"

#include <bit>
#include <cstddef>
#include <cstring>

/// Message types: the low bits of the type byte.
enum MessageType : unsigned char
{
    kMsgUserCtrl = 4,
    kMsgVirtualUserControl = 7,
    kMsgAudio = 8,
    kMsgVideo = 9,
    kMsgDataEx = 15,       ///< data in AMF3
    kMsgContainerEx = 16,  ///< shared object in AMF3
    kMsgCmdEx = 17,        ///< command in AMF3
    kMsgData = 18,         ///< data in AMF0, for example onMetaData
    kMsgContainer = 19,    ///< shared object in AMF0
    kMsgCmd = 20,          ///< command in AMF0
    kMsgUDP = 21,
    kMsgAggregate = 22,
    kMsgPresent = 23,
};

/// The bits of a type byte that hold the type; 0x20 (encrypted) and 0x80 are flags.
constexpr unsigned char kTypeMask = 0x5F;
constexpr unsigned char kEncryptedFlag = 0x20;

/// Longest body of a message in bytes: its length has 24 bits.
constexpr unsigned kMaxMessageLength = 0xFFFFFF;

namespace krx::util {

/// The stored form of a message, in ZMV files, segment files and aggregates alike. All integers are
/// big-endian.
///
///     type           1 byte
///     body length    3 bytes
///     timestamp      3 bytes, bits 23-0; then 1 byte, bits 31-24
///     stream id      3 bytes
///     body
///     back-pointer   4 bytes: the size of header and body
struct RecordHeader
{
    /// Bytes of the header.
    static constexpr unsigned kSize = 11;

    unsigned char type = 0;  ///< MessageType and flags
    unsigned length = 0;     ///< of the body, bytes
    unsigned timestamp = 0;  ///< ms
    unsigned streamId = 0;   ///< low 24 bits

    /// Decodes the kSize bytes at in.
    static RecordHeader load(const unsigned char* in);
    /// Encodes to the kSize bytes at out. Writes the low 24 bits of the length.
    void store(unsigned char* out) const;

    // Single fields of an encoded header.

    static unsigned loadLength(const unsigned char* header) { return loadBig24(header + 1); }
    static void storeLength(unsigned char* header, unsigned length) { storeBig24(header + 1, length); }
    static unsigned loadTime(const unsigned char* header)
    {
        return loadBig24(header + 4) | unsigned{header[7]} << 24;
    }
    static void storeTime(unsigned char* header, unsigned time)
    {
        storeBig24(header + 4, time);
        header[7] = static_cast<unsigned char>(time >> 24);
    }
    static unsigned loadStreamId(const unsigned char* header) { return loadBig24(header + 8); }
    static void storeStreamId(unsigned char* header, unsigned id) { storeBig24(header + 8, id); }
};

constexpr unsigned kBackPointerSize = 4;
/// Bytes of a record besides its body.
constexpr unsigned kRecordOverhead = RecordHeader::kSize + kBackPointerSize;

/// Returns what the back-pointer of a record with a body of that length holds.
constexpr unsigned backPointerOf(unsigned bodyLength)
{
    return RecordHeader::kSize + bodyLength;
}

enum class RecordState
{
    kWhole,
    kCutShort,   ///< the bytes end inside the record
    kWrongSize,  ///< the back-pointer is not the size of header and body
};

/// A record in memory. It points into the bytes that it was read from.
struct MessageRecord
{
    RecordHeader header;                  ///< all zero when the header is cut short
    const unsigned char* body = nullptr;  ///< null unless the whole body is there
    /// Bytes of the whole record.
    unsigned size() const { return header.length + kRecordOverhead; }
};

/// Reads the record in the available bytes at bytes. Fills record as far as they go.
RecordState readRecord(const unsigned char* bytes, std::size_t available, MessageRecord& record);

/// Writes header, body and back-pointer: header.length + kRecordOverhead bytes. body may be null when the
/// length is 0 or the body is in place already.
void writeRecord(unsigned char* out, const RecordHeader& header, const void* body);

inline RecordHeader RecordHeader::load(const unsigned char* in)
{
    // Two loads for four fields: type and length, then the time with its high byte last.
    const unsigned typeAndLength = loadBig32(in);
    return {static_cast<unsigned char>(typeAndLength >> 24), typeAndLength & kMaxMessageLength,
            std::rotr(loadBig32(in + 4), 8), loadStreamId(in)};
}

inline void RecordHeader::store(unsigned char* out) const
{
    out[0] = type;
    storeLength(out, length);
    storeTime(out, timestamp);
    storeStreamId(out, streamId);
}

inline RecordState readRecord(const unsigned char* bytes, std::size_t available, MessageRecord& record)
{
    record = {};
    if (available < RecordHeader::kSize)
        return RecordState::kCutShort;
    record.header = RecordHeader::load(bytes);
    const std::size_t rest = available - RecordHeader::kSize;
    if (rest < record.header.length)
        return RecordState::kCutShort;
    record.body = bytes + RecordHeader::kSize;
    if (rest - record.header.length < kBackPointerSize)
        return RecordState::kCutShort;
    const bool agrees = loadBig32(record.body + record.header.length) == backPointerOf(record.header.length);
    return agrees ? RecordState::kWhole : RecordState::kWrongSize;
}

inline void writeRecord(unsigned char* out, const RecordHeader& header, const void* body)
{
    header.store(out);
    unsigned char* const place = out + RecordHeader::kSize;
    if (body && header.length != 0)
        std::memcpy(place, body, header.length);
    storeBig32(place + header.length, backPointerOf(header.length));
}

}  // namespace krx::util
