// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/amfmarkers.h"

#include <string_view>

namespace krx {

/// The encoder of AMF: writes markers, lengths, names and plain values into the room that a derived class
/// provides. It keeps no state; the caller keeps values complete. All numbers are big-endian.
class AMFWriter
{
public:
    void putByte(unsigned char value);
    void putU16(unsigned short value);
    void putU32(unsigned value);
    void putU64(unsigned long long value);
    void putBytes(const void* bytes, unsigned n);
    /// 8 bytes.
    void putDouble(double value);
    /// AMF3's integer of 1 to 4 bytes: 7 bits each with the high bit for more, the fourth byte 8 bits. A
    /// value of 2^30 or more is written as the byte 0.
    void putUint29(unsigned value);

    /// An AMF0 name, or a text after its marker: a length of two bytes and the bytes. The text has at most
    /// kAMF0MaxShortText bytes.
    void putShortText(std::string_view text);
    /// A length of four bytes and the bytes. The text has less than 2^32 bytes.
    void putLongText(std::string_view text);
    /// The start of an AMF0 text of that size, less than 2^32: the marker if wanted, and the length, in the
    /// short form if possible.
    void putTextStart(unsigned size, bool withMarker);
    /// An AMF0 number with its marker.
    void putNumber(double value);
    /// The marker and the count of an ECMA array or a strict array.
    void putArrayStart(AMF0Marker marker, unsigned count);
    /// The end of an AMF0 object or ECMA array: an empty name and a marker.
    void putObjectEnd();

protected:
    AMFWriter() = default;
    AMFWriter(const AMFWriter&) = default;
    AMFWriter& operator=(const AMFWriter&) = default;
    ~AMFWriter() = default;

    /// Returns the next n bytes to write to, or null to leave them out.
    virtual unsigned char* make(unsigned n) = 0;
};

}  // namespace krx
