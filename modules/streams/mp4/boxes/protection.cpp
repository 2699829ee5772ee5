// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/boxreader.h"
#include "modules/streams/mp4/trackinfo.h"
#include "util/SRStringPool.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

// Texts may be as long as their box, which need not end them with a zero.

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

// DRMTrackInfo::kind.
constexpr unsigned kZolProtection = 1;
constexpr unsigned kWdxsProtection = 2;

/// A text of the box. It ends with a zero, which is consumed, or with the box.
SRMBString readText(BoxReader& in, const BoxHeader& box)
{
    // What a string of the library can hold.
    constexpr std::size_t kMaxLength = SRStringPool::kMaxLength;
    const krx::util::FilePos start = in.position();
    auto limit = static_cast<unsigned>(box.size);
    std::array<char, 256> chunk;
    std::size_t length = 0;
    bool ended = false;
    while (limit != 0 && !ended) {
        const auto there = std::max(in.bytesLeft(in.fileSize()), 1ULL);
        const auto n = static_cast<unsigned>(std::min<unsigned long long>({there, limit, chunk.size()}));
        in.read(chunk.data(), n);
        const char* zero = std::find(chunk.data(), chunk.data() + n, '\0');
        length += static_cast<std::size_t>(zero - chunk.data());
        if (length > kMaxLength)
            throw StreamParseError(krx::streams::kBoxTooLarge);
        ended = zero != chunk.data() + n;
        limit -= n;
    }
    // Read again once the length is known, so that it is held no more than twice.
    in.memory().charge(length + kBlockOverhead);
    in.skipTo(start);
    std::string text(length, '\0');
    in.read(text.data(), length);
    in.skip(ended ? 1 : 0);
    return SRMBString(std::string_view(text));
}

}  // namespace

void readOriginalFormat(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    track.drm.originalFormat = in.readU32();
}

void readProtectionScheme(BoxReader& in, const BoxHeader&, Movie&)
{
    in.skip(4);  // version, flags
    if (in.readU32() != fourCC("qdkm"))
        throw StreamParseError(krx::streams::kUnsupportedDrmScheme);
}

void readProtectionHeader(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    track.drm.headerVersion = in.readU8();
    track.drm.headerFlags = in.readU24();
}

void readEncryptionParams(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    track.drm.paramsVersion = in.readU8();
    in.skip(3);  // flags
}

void readEncryptionInfo(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    in.skip(4);  // version, flags
    track.drm.encryptionAlgorithm = readText(in, box);
    track.drm.keyLength = in.readU8();
}

void readAccessUnitFormat(BoxReader& in, const BoxHeader&, TrackInfo& track)
{
    in.skip(4);  // version, flags
    track.drm.selectiveEncryption = in.readU8() != 0;
    in.skip(1);
    track.drm.ivLength = in.readU8();
}

void readSignature(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    track.drm.signatureFormat = readText(in, box);
    track.drm.signature = readText(in, box);
}

void readZolProtection(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    DRMTrackInfo& drm = track.drm;
    drm.kind = kZolProtection;
    for (SRMBString* text : {&drm.zolLicense, &drm.zolPolicy, &drm.zolEdcData, &drm.zolDomain})
        *text = readText(in, box);
}

void readWdxsProtection(BoxReader& in, const BoxHeader& box, TrackInfo& track)
{
    DRMTrackInfo& drm = track.drm;
    drm.kind = kWdxsProtection;
    for (SRMBString* text : {&drm.wdxsMetadata, &drm.wdxsLicense})
        *text = readText(in, box);
}

}  // namespace krx::mp4
