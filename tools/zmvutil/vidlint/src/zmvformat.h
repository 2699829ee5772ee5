// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRMessage.h"

#include <array>

/// The ZMV file format. All integers are big-endian.
///
/// A file begins with a header: the signature (3 bytes), the version (1), the flags (1) and the header length
/// (4), which is the offset of the body. The body is a back-pointer of 0 (4 bytes) and then messages up to
/// the end of the file, each a record (see krx::util::RecordHeader).

constexpr std::array<unsigned char, 3> kZmvSignature{'Z', 'M', 'V'};

constexpr unsigned kZmvFlagsPosition = 4;
constexpr unsigned kZmvHeaderLengthPosition = 5;
/// Bytes of the fields of the header; the header may be longer.
constexpr unsigned kZmvHeaderFields = 9;
constexpr unsigned kZmvVideoFlag = 1;
constexpr unsigned kZmvAudioFlag = 4;

/// A body cannot begin inside the first bytes of the header.
constexpr unsigned kZmvMinHeaderLength = 5;

constexpr unsigned kZmvFirstBackPointer = 0;

/// Whether a type without flags is that of a data message.
constexpr bool isZmvDataType(unsigned type)
{
    return type == kMsgData || type == kMsgDataEx;
}

/// Whether a file may have messages of the type, encrypted or not.
constexpr bool isZmvType(unsigned type)
{
    type &= ~static_cast<unsigned>(kEncryptedFlag);
    return type == kMsgAudio || type == kMsgVideo || isZmvDataType(type);
}
