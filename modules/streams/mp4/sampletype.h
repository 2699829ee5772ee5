// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/messagerecord.h"

namespace krx::mp4 {

/// What a sample holds, which decides how its message begins.
enum SampleType : unsigned char
{
    kSampleUnsupported = 0,
    kSampleVP6 = 1,
    kSampleVP6Alpha = 2,
    kSampleAVC = 3,
    kSampleH263 = 4,
    kSampleScreenVideo1 = 5,
    kSampleScreenVideo2 = 6,
    kSampleMP3 = 7,
    kSampleAAC = 8,
    kSampleSpeex = 9,
    kSampleNellymoser = 10,
    kSampleText = 11,
    kSampleImage = 12,
    kSampleDataAMF0 = 13,
    kSampleDataAMF3 = 14,
    kSampleCommand = 15,         ///< built messages only
    kSampleEncryptedVideo = 16,  ///< a step has the type of what was encrypted instead
    kSampleEncryptedAudio = 17,  ///< as above
    kSampleOther = 18,           ///< user-control message
};

/// How a sample entry is laid out.
enum EntryKind : unsigned char
{
    kVideoEntry,
    kAudioEntry,
    kTextEntry,
    kDataEntry,
    kImageEntry,
};

/// What a sample entry holds besides the fields of its kind.
enum EntryConfiguration : unsigned char
{
    kNoConfiguration,
    kAvcConfiguration,  ///< an 'avcC' box
    kAacConfiguration,  ///< an 'esds' box
    kTextStyle,         ///< a TextStyle
};

/// What the four-character code of a sample entry says.
struct Codec
{
    unsigned code;
    SampleType type;
    EntryKind entry;
    EntryConfiguration configuration = kNoConfiguration;
    bool isProtected = false;  ///< the entry has a 'sinf' box
};

/// The codec of the code, or null when it is not supported.
const Codec* findCodec(unsigned code);
/// The sample type of the codec; kSampleUnsupported when there is none.
SampleType sampleTypeOf(unsigned code);

/// Header bytes of an encrypted type, which no step has: the type of what was encrypted counts.
constexpr unsigned kNoHeaderSize = ~0U;

/// Bytes for the filters in an encrypted sample's message, without the initialisation vector.
constexpr unsigned kPreambleRoom = 24;

/// How the messages of a sample type begin.
struct SampleTypeInfo
{
    unsigned char messageType;
    unsigned headerSize;  ///< bytes of the codec header in front of the payload
};

/// By sample type.
inline constexpr SampleTypeInfo kSampleTypes[] = {
    {0, 0},                      // unsupported
    {kMsgVideo, 2},              // VP6
    {kMsgVideo, 2},              // VP6 with alpha
    {kMsgVideo, 5},              // AVC
    {kMsgVideo, 1},              // H.263
    {kMsgVideo, 1},              // screen video 1
    {kMsgVideo, 1},              // screen video 2
    {kMsgAudio, 1},              // MP3
    {kMsgAudio, 2},              // AAC
    {kMsgAudio, 1},              // Speex
    {kMsgAudio, 1},              // Nellymoser
    {kMsgData, 0},               // timed text
    {kMsgData, 0},               // image
    {kMsgData, 0},               // AMF0 data
    {kMsgDataEx, 0},             // AMF3 data
    {kMsgCmd, 0},                // AMF0 command
    {kMsgVideo, kNoHeaderSize},  // encrypted video
    {kMsgAudio, kNoHeaderSize},  // encrypted audio
    {kMsgUserCtrl, 0},           // other
};

inline constexpr unsigned kSampleTypeCount = sizeof(kSampleTypes) / sizeof(kSampleTypes[0]);

/// Decoder configurations are sent ahead of the samples of these types.
constexpr bool hasDecoderHeader(SampleType type)
{
    return type == kSampleAVC || type == kSampleAAC;
}

constexpr bool isAudioType(SampleType type)
{
    return (type >= kSampleMP3 && type <= kSampleNellymoser) || type == kSampleEncryptedAudio;
}

/// A track of these types is closed by an end-of-sequence message.
constexpr bool hasEnder(SampleType type)
{
    return type == kSampleAVC || isAudioType(type);
}

}  // namespace krx::mp4
