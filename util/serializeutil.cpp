// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/serializeutil.h"

#include "util/bigendian.h"
#include "util/krxassert.h"

namespace krx::util {

namespace {

constexpr const char* kSerializeUtilPlace = "util/serializeutil";
constexpr int kWriteWidthLine = 83;
constexpr int kReadWidthLine = 131;
constexpr unsigned kMaxWidth = 8;

}  // namespace

void ISerialize::writeInt(unsigned width, unsigned long long value)
{
    if (width > kMaxWidth) {
        assertFailed(kSerializeUtilPlace, kWriteWidthLine);
        return;
    }
    if (width == 0)
        return;
    unsigned char bytes[kMaxWidth];
    storeBigEndian(bytes, value, width);
    write(bytes, width);
}

unsigned long long IDeserialize::readInt(unsigned width)
{
    if (width > kMaxWidth) {
        assertFailed(kSerializeUtilPlace, kReadWidthLine);
        return 0;
    }
    unsigned char bytes[kMaxWidth] = {};
    read(bytes, width);
    return loadBigEndian(bytes, width);
}

}  // namespace krx::util
