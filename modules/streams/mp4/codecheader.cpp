// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/codecheader.h"

#include "modules/streams/mp4/mp4errors.h"
#include "modules/streams/mp4/sampleentry.h"
#include "util/bigendian.h"

#include <algorithm>
#include <array>
#include <limits>

namespace krx::mp4 {
namespace {

// Low nibble of a video message's first byte. The high nibble is the kind of frame.
constexpr unsigned kScreenVideo1 = 3;
constexpr unsigned kH263 = 2;
constexpr unsigned kVP6 = 4;
constexpr unsigned kVP6Alpha = 5;
constexpr unsigned kScreenVideo2 = 6;
constexpr unsigned kAVC = 7;
constexpr unsigned kKeyFrame = 0x10;
constexpr unsigned kInterFrame = 0x20;
constexpr unsigned kDisposableFrame = 0x30;

// High nibble of an audio message's first byte. The low nibble: 2 bits of rate, 1 for 16-bit samples, 1 for
// stereo.
constexpr unsigned kMP3 = 0x20;
constexpr unsigned kNellymoser16k = 0x40;
constexpr unsigned kNellymoser8k = 0x50;
constexpr unsigned kNellymoser = 0x60;
constexpr unsigned kAAC = 0xAF;
constexpr unsigned kSpeex = 0xB2;
constexpr unsigned k16BitSamples = 2;
constexpr unsigned kStereo = 1;

/// No other sample depends on this one.
constexpr unsigned kIsDisposable = 1U << 23;

unsigned rateBits(unsigned rate)
{
    switch (rate) {
        case 5000:
            return 0;
        case 11000:
            return 1U << 2;
        case 22000:
            return 2U << 2;
        default:
            return 3U << 2;
    }
}

/// A description with a sample size of 1 has 8-bit samples.
unsigned sampleSizeBit(const SampleEntry& entry)
{
    return entry.sampleSize == 1 ? 0 : k16BitSamples;
}

/// Rate, sample size and channels.
unsigned audioByte(const SampleEntry& entry, unsigned rate)
{
    return rateBits(rate) | sampleSizeBit(entry) | (entry.channelCount == 1 ? 0 : kStereo);
}

unsigned mp3Byte(const SampleEntry& entry)
{
    unsigned rate = sampleRateDoubleToUnsigned(entry.sampleRate);
    if (rate != 11000 && rate != 22000 && rate != 44000)
        rate = 44000;
    return kMP3 + audioByte(entry, rate);
}

unsigned nellymoserByte(const SampleEntry& entry)
{
    const unsigned rate = sampleRateDoubleToUnsigned(entry.sampleRate);
    switch (rate) {
        case 0:
            throw BadSampleError(krx::streams::kBadNellymoserFrequency);
        case 8000:
            return kNellymoser8k | sampleSizeBit(entry);
        case 16000:
            return kNellymoser16k | sampleSizeBit(entry);
        default:
            return kNellymoser + audioByte(entry, rate);
    }
}

/// How much of the picture is not shown: the complement of width and height modulo 16, a nibble each.
unsigned vp6Cropping(const SampleEntry& entry)
{
    const unsigned width = static_cast<unsigned>(entry.width) & 15;
    const unsigned height = static_cast<unsigned>(entry.height) & 15;
    return ~(width * 16 + height) & 0xFF;
}

unsigned packetKind(const CodecHeader& header)
{
    return header.isHeader ? 0 : header.isEnder ? 2 : 1;
}

}  // namespace

unsigned writePreamble(const CodecHeader& header, unsigned char* out)
{
    static const SampleEntry kNoEntry;
    const SampleEntry& entry = header.entry ? *header.entry : kNoEntry;
    const unsigned frame = header.keyFrame ? kKeyFrame : kInterFrame;
    const auto put = [out](unsigned i, unsigned byte) { out[i] = static_cast<unsigned char>(byte); };
    switch (header.type) {
        case kSampleVP6:
        case kSampleVP6Alpha:
            put(0, frame | (header.type == kSampleVP6 ? kVP6 : kVP6Alpha));
            put(1, vp6Cropping(entry));
            break;
        case kSampleAVC:
            put(0, frame | kAVC);
            put(1, packetKind(header));
            WriteUnsigned(out + 2, static_cast<unsigned>(header.compositionMillis), 3);
            break;
        case kSampleH263:
            put(0, (header.sampleFlags & kIsDisposable ? kDisposableFrame : frame) | kH263);
            break;
        case kSampleScreenVideo1:
            put(0, frame | kScreenVideo1);
            break;
        case kSampleScreenVideo2:
            put(0, frame | kScreenVideo2);
            break;
        case kSampleMP3:
            put(0, mp3Byte(entry));
            break;
        case kSampleAAC:
            put(0, kAAC);
            put(1, header.isHeader ? 0 : 1);
            break;
        case kSampleSpeex:
            put(0, kSpeex);
            break;
        case kSampleNellymoser:
            put(0, nellymoserByte(entry));
            break;
        default:
            return 0;
    }
    return kSampleTypes[header.type].headerSize;
}

void WriteUnsigned(unsigned char* dest, unsigned long long value, unsigned n)
{
    krx::util::storeBigEndian(dest, value, n);
}

bool isAVCCMsg(const unsigned char* bytes, unsigned length)
{
    return length >= 2 && bytes[1] == 0;
}

bool isKeyFrameMsg(const unsigned char* bytes, unsigned length)
{
    return length >= 1 && bytes[0] >> 4 == 1;
}

unsigned sampleRateDoubleToUnsigned(double rate)
{
    constexpr std::array<unsigned, 6> kNominal{5000, 8000, 11000, 16000, 22000, 44000};
    constexpr double kMax = std::numeric_limits<unsigned>::max();
    const auto whole = rate > 0 ? static_cast<unsigned>(std::min(rate, kMax)) : 0;
    for (const unsigned nominal : kNominal)
        if (whole + 1000 > nominal && whole < nominal + 1000)
            return nominal;
    return whole;
}

}  // namespace krx::mp4
