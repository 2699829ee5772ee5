// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/codecname.h"

#include "modules/streams/mp4/boxheader.h"
#include "modules/streams/mp4/sampleentry.h"

namespace krx::mp4 {
namespace {

constexpr unsigned kMp3ObjectType = 34;

/// "avc1." and the three bytes after the version of the 'avcC' payload.
std::string avcName(const SampleEntry& entry)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    if (entry.configLength < 4)
        return {};
    std::string name = "avc1.";
    for (unsigned i = 1; i < 4; ++i) {
        name += kDigits[entry.config[i] >> 4];
        name += kDigits[entry.config[i] & 0xF];
    }
    return name;
}

std::string aacName(unsigned objectType)
{
    return "mp4a.40." + std::to_string(objectType);
}

/// The object type is 5 bits; all of them set announce 6 more, which count from 32 on.
std::string aacName(const SampleEntry& entry)
{
    constexpr unsigned kEscape = 31;
    if (entry.configLength < 1)
        return {};
    const unsigned type = entry.config[0] >> 3;
    if (type != kEscape)
        return aacName(type);
    if (entry.configLength < 2)
        return {};
    return aacName(32 + ((entry.config[0] & 7U) << 3 | entry.config[1] >> 5));
}

}  // namespace

std::string rfc6381Of(const SampleEntry& entry)
{
    switch (entry.type) {
        case fourCC("avc1"):
            return avcName(entry);
        case fourCC("mp4a"):
            return aacName(entry);
        case fourCC(".mp3"):
            return aacName(kMp3ObjectType);
        default:
            return {};
    }
}

std::string languageOf(unsigned short packed)
{
    constexpr unsigned kLetters = 26;
    std::string text;
    for (int shift = 10; shift >= 0; shift -= 5) {
        const unsigned letter = packed >> shift & 0x1FU;
        if (letter == 0 || letter > kLetters)
            return {};
        text += static_cast<char>('a' + letter - 1);
    }
    return packed >> 15 != 0 ? std::string() : text;
}

}  // namespace krx::mp4
