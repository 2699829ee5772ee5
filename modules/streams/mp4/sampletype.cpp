// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/sampletype.h"

#include "modules/streams/mp4/boxheader.h"

#include <algorithm>
#include <iterator>

namespace krx::mp4 {
namespace {

/// The codecs that are known: a new one is one row here. The ones that most files have come first. Images are
/// known and not played.
constexpr Codec kCodecs[] = {
    {fourCC("avc1"), kSampleAVC, kVideoEntry, kAvcConfiguration},
    {fourCC("mp4a"), kSampleAAC, kAudioEntry, kAacConfiguration},
    {fourCC("H264"), kSampleAVC, kVideoEntry},
    {fourCC("h264"), kSampleAVC, kVideoEntry},
    {fourCC("VP60"), kSampleVP6, kVideoEntry},
    {fourCC("VP61"), kSampleVP6, kVideoEntry},
    {fourCC("VP62"), kSampleVP6, kVideoEntry},
    {fourCC("VP6F"), kSampleVP6, kVideoEntry},
    {fourCC("VP6A"), kSampleVP6Alpha, kVideoEntry},
    {fourCC("H263"), kSampleH263, kVideoEntry},
    {fourCC("h263"), kSampleH263, kVideoEntry},
    {fourCC("ASS1"), kSampleScreenVideo1, kVideoEntry},
    {fourCC("ASS2"), kSampleScreenVideo2, kVideoEntry},
    {fourCC(".mp3"), kSampleMP3, kAudioEntry},
    {fourCC("spex"), kSampleSpeex, kAudioEntry},
    {fourCC("nmos"), kSampleNellymoser, kAudioEntry},
    {fourCC("text"), kSampleText, kTextEntry},
    {fourCC("tx3g"), kSampleText, kTextEntry, kTextStyle},
    {fourCC("amf0"), kSampleDataAMF0, kDataEntry},
    {fourCC("amf3"), kSampleDataAMF3, kDataEntry},
    {fourCC("encv"), kSampleEncryptedVideo, kVideoEntry, kAvcConfiguration, true},
    {fourCC("enca"), kSampleEncryptedAudio, kAudioEntry, kAacConfiguration, true},
    {fourCC("jpeg"), kSampleUnsupported, kImageEntry},
    {fourCC("png "), kSampleUnsupported, kImageEntry},
    {fourCC("gif "), kSampleUnsupported, kImageEntry},
};

}  // namespace

const Codec* findCodec(unsigned code)
{
    const auto* codec = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                     [&](const Codec& row) { return row.code == code; });
    return codec == std::end(kCodecs) ? nullptr : codec;
}

SampleType sampleTypeOf(unsigned code)
{
    const Codec* codec = findCodec(code);
    return codec ? codec->type : kSampleUnsupported;
}

}  // namespace krx::mp4
