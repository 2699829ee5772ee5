// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"
#include "util/SRString.h"

namespace krx::mp4 {

/// A four-character code as it stands in the file, for comparison and dispatch.
constexpr unsigned fourCC(const char (&code)[5])
{
    unsigned value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(code[i]);
    return value;
}

/// The four characters of a code in file order, each byte taken as one character. A zero, which would end the
/// text for many readers, becomes a dot.
SRString fourCCName(unsigned code);

/// Bytes of a box header: a size and a type of 4 bytes each. With a size of 1 a size of 8 bytes follows.
constexpr unsigned kBoxHeaderSize = 8;
constexpr unsigned kLargeBoxHeaderSize = 16;

/// One box as read from the file. Cheap to copy: it knows its own type, not the boxes around it.
struct BoxHeader
{
    krx::util::FilePos start = 0;  ///< first byte of the size field
    krx::util::FilePos size = 0;   ///< whole box, header included
    krx::util::FilePos end = 0;    ///< start + size
    unsigned type = 0;             ///< four-character code
    unsigned version = 0;  ///< of a box whose version is read before its handler, see BoxRule::version

    SRString getBoxName() const { return fourCCName(type); }
    bool isFreeBox() const { return type == fourCC("free") || type == fourCC("skip"); }
};

}  // namespace krx::mp4
