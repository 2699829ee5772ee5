// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/sampletype.h"

#include "modules/streams/mp4/boxheader.h"

#include <algorithm>
#include <iterator>

namespace krx::mp4 {
namespace {

struct CodeRow
{
    unsigned code;
    SampleType type;
};

constexpr CodeRow kCodes[] = {
    {fourCC("avc1"), kSampleAVC},
    {fourCC("mp4a"), kSampleAAC},
    {fourCC("H264"), kSampleAVC},
    {fourCC("h264"), kSampleAVC},
    {fourCC("VP60"), kSampleVP6},
    {fourCC("VP61"), kSampleVP6},
    {fourCC("VP62"), kSampleVP6},
    {fourCC("VP6F"), kSampleVP6},
    {fourCC("VP6A"), kSampleVP6Alpha},
    {fourCC("H263"), kSampleH263},
    {fourCC("h263"), kSampleH263},
    {fourCC("ASS1"), kSampleScreenVideo1},
    {fourCC("ASS2"), kSampleScreenVideo2},
    {fourCC(".mp3"), kSampleMP3},
    {fourCC("spex"), kSampleSpeex},
    {fourCC("nmos"), kSampleNellymoser},
    {fourCC("text"), kSampleText},
    {fourCC("tx3g"), kSampleText},
    {fourCC("amf0"), kSampleDataAMF0},
    {fourCC("amf3"), kSampleDataAMF3},
    {fourCC("encv"), kSampleEncryptedVideo},
    {fourCC("enca"), kSampleEncryptedAudio},
};

}  // namespace

SampleType sampleTypeOf(unsigned code)
{
    const auto* row =
        std::find_if(std::begin(kCodes), std::end(kCodes), [&](const CodeRow& r) { return r.code == code; });
    return row == std::end(kCodes) ? kSampleUnsupported : row->type;
}

}  // namespace krx::mp4
