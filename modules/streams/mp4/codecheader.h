// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/sampletype.h"

namespace krx::mp4 {

struct SampleEntry;

/// What the codec header of a message is made of.
struct CodecHeader
{
    SampleType type = kSampleUnsupported;
    bool isHeader = false;
    bool isEnder = false;
    bool keyFrame = false;
    int compositionMillis = 0;
    unsigned sampleFlags = 0;            ///< in the layout of ISO/IEC 14496-12
    const SampleEntry* entry = nullptr;  ///< null where the message is of no track
};

/// Longest codec header in bytes.
constexpr unsigned kMaxCodecHeader = 5;

/// Writes the bytes that go in front of the payload, and returns how many: the header size of the type.
/// Throws BadSampleError for a Nellymoser description without a sample rate.
unsigned writePreamble(const CodecHeader& header, unsigned char* out);

/// Writes the low n bytes of value, most significant first.
void WriteUnsigned(unsigned char* dest, unsigned long long value, unsigned n);

/// A video message body that begins an AVC sequence: length is at least 2 and byte 1 is 0.
bool isAVCCMsg(const unsigned char* bytes, unsigned length);
/// A video message body that is a key frame.
bool isKeyFrameMsg(const unsigned char* bytes, unsigned length);

/// The sample rate as an integer; one within 1000 Hz of a rate of the tagged format becomes that rate.
unsigned sampleRateDoubleToUnsigned(double rate);

}  // namespace krx::mp4
