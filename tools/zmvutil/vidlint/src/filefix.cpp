// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/filefix.h"

#include "util/bigendian.h"

#include <algorithm>
#include <cstring>

using krx::util::FilePos;

FileFix::FileFix(FilePos fixPosition, FilePos fixReplaceLength, unsigned fixSize)
    : position(fixPosition),
      replaceLength(fixReplaceLength),
      data(new unsigned char[fixSize]()),
      size(fixSize)
{
}

void FileFix::write(const void* bytes, unsigned n)
{
    n = std::min(n, size - writePos);
    if (n == 0)
        return;
    std::memcpy(data.get() + writePos, bytes, n);
    writePos += n;
}

void FileFix::writeU8(unsigned char value)
{
    write(&value, 1);
}

void FileFix::writeU32(unsigned value)
{
    unsigned char bytes[sizeof value];
    krx::util::storeBig32(bytes, value);
    write(bytes, sizeof bytes);
}

void FileFix::writeU64(unsigned long long value)
{
    unsigned char bytes[sizeof value];
    krx::util::storeBig64(bytes, value);
    write(bytes, sizeof bytes);
}

void sortFixes(std::vector<FileFix>& fixes)
{
    std::stable_sort(fixes.begin(), fixes.end(), [](const FileFix& a, const FileFix& b) {
        return a < b || (!(b < a) && a.replaceLength == 0 && b.replaceLength != 0);
    });
}
