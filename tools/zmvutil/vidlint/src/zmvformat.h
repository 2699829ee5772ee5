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
constexpr unsigned kZmvVideoFlag = 1;
constexpr unsigned kZmvAudioFlag = 4;

/// A body cannot begin inside the first bytes of the header.
constexpr unsigned kZmvMinHeaderLength = 5;

constexpr unsigned kZmvFirstBackPointer = 0;
