// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/serializeutil.h"

#include "util/krxassert.h"

namespace krx::util {

namespace {

constexpr const char* kFile = "util/serializeutil";
constexpr int kWriteWidthLine = 83;
constexpr int kReadWidthLine = 131;
constexpr unsigned kMaxWidth = 8;

}  // namespace

void ISerialize::writeInt(unsigned width, unsigned long long value)
{
    if (width > kMaxWidth) {
        assertFailed(kFile, kWriteWidthLine);
        return;
    }
    if (width == 0)
        return;
    unsigned char bytes[kMaxWidth];
    for (unsigned i = width; i-- > 0; value >>= 8)
        bytes[i] = static_cast<unsigned char>(value & 0xFF);
    write(bytes, width);
}

unsigned long long IDeserialize::readInt(unsigned width)
{
    if (width > kMaxWidth) {
        assertFailed(kFile, kReadWidthLine);
        return 0;
    }
    unsigned char bytes[kMaxWidth] = {};
    read(bytes, width);
    unsigned long long value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = value << 8 | bytes[i];
    return value;
}

}  // namespace krx::util
