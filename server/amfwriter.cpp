// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/amfwriter.h"

#include "util/bigendian.h"

#include <bit>
#include <cstring>

namespace krx {

using namespace util;

void AMFWriter::putByte(unsigned char value)
{
    if (unsigned char* const out = make(1))
        *out = value;
}

void AMFWriter::putU16(unsigned short value)
{
    if (unsigned char* const out = make(sizeof value))
        storeBig16(out, value);
}

void AMFWriter::putU32(unsigned value)
{
    if (unsigned char* const out = make(sizeof value))
        storeBig32(out, value);
}

void AMFWriter::putU64(unsigned long long value)
{
    if (unsigned char* const out = make(sizeof value))
        storeBig64(out, value);
}

void AMFWriter::putBytes(const void* bytes, unsigned n)
{
    if (n == 0)
        return;
    if (unsigned char* const out = make(n))
        std::memcpy(out, bytes, n);
}

void AMFWriter::putDouble(double value)
{
    putU64(std::bit_cast<unsigned long long>(value));
}

void AMFWriter::putUint29(unsigned value)
{
    constexpr unsigned kMore = 0x80;
    if (value < 0x80 || value >= 0x40000000) {
        putByte(static_cast<unsigned char>(value < 0x80 ? value : 0));
        return;
    }
    const bool hasFour = value >= 0x200000;
    const unsigned last = hasFour ? 8 : 7;  // bits of the last byte
    for (unsigned shift = hasFour ? 22 : value >= 0x4000 ? 14 : 7;; shift -= 7) {
        putByte(static_cast<unsigned char>(value >> shift | kMore));
        if (shift <= last)
            break;
    }
    putByte(static_cast<unsigned char>(hasFour ? value : value & 0x7F));
}

void AMFWriter::putShortText(std::string_view text)
{
    putU16(static_cast<unsigned short>(text.size()));
    putBytes(text.data(), static_cast<unsigned>(text.size()));
}

void AMFWriter::putLongText(std::string_view text)
{
    putU32(static_cast<unsigned>(text.size()));
    putBytes(text.data(), static_cast<unsigned>(text.size()));
}

void AMFWriter::putTextStart(unsigned size, bool withMarker)
{
    const bool isLong = size > kAMF0MaxShortText;
    if (withMarker)
        putByte(isLong ? kAMF0LongString : kAMF0String);
    if (isLong)
        putU32(size);
    else
        putU16(static_cast<unsigned short>(size));
}

void AMFWriter::putNumber(double value)
{
    putByte(kAMF0Number);
    putDouble(value);
}

void AMFWriter::putArrayStart(AMF0Marker marker, unsigned count)
{
    putByte(marker);
    putU32(count);
}

void AMFWriter::putObjectEnd()
{
    putShortText({});
    putByte(kAMF0ObjectEnd);
}

}  // namespace krx
