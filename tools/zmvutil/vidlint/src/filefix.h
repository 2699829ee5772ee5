// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

#include <memory>
#include <vector>

/// One repair: bytes that take the place of a stretch of the input. Copies share the bytes.
struct FileFix
{
    /// Room for size bytes of data, to be filled by the write operations; what exceeds it is not written.
    FileFix(krx::util::FilePos position, krx::util::FilePos replaceLength, unsigned size);

    void write(const void* bytes, unsigned n);
    void writeU8(unsigned char value);
    /// Integers are big-endian.
    void writeU32(unsigned value);
    void writeU64(unsigned long long value);

    krx::util::FilePos position;       ///< offset in the input
    krx::util::FilePos replaceLength;  ///< bytes of the input that are left out; 0 for an insertion
    std::shared_ptr<unsigned char[]> data;
    unsigned size;
    unsigned writePos = 0;
    const char* reason = "";  ///< what it does, as in "replace onMetaData"; a literal
};

/// By position alone.
inline bool operator<(const FileFix& a, const FileFix& b)
{
    return a.position < b.position;
}

/// Brings fixes into the order in which a copy takes them. An insertion in front of a message comes before
/// the replacement of that message, or the copy would have to go back. Insertions at one place keep their
/// order.
void sortFixes(std::vector<FileFix>& fixes);
