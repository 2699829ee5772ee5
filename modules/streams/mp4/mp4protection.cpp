// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4.h"

// The content-protection boxes of a track. Texts may be as long as their box, which need not end them with a
// zero.

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

// DRMTrackInfo::kind.
constexpr unsigned kZolProtection = 1;
constexpr unsigned kWdxsProtection = 2;

constexpr unsigned textLimit(const BoxHeader& box)
{
    return static_cast<unsigned>(box.size);
}

}  // namespace

void MP4File::parseOriginalFormat(const BoxHeader&)
{
    verifyUniqueBox(m_curTrack->drm.originalFormat != 0);
    m_curTrack->drm.originalFormat = readU32();
}

void MP4File::parseDRMScheme(const BoxHeader&)
{
    skip(4);  // version, flags
    if (readU32() != fourCC("qdkm"))
        throw StreamParseError(krx::streams::kUnsupportedDrmScheme);
}

void MP4File::parseDRMHeader(const BoxHeader& box)
{
    DRMTrackInfo& drm = m_curTrack->drm;
    verifyUniqueBox(drm.headerVersion != 0 || drm.headerFlags != 0);
    drm.headerVersion = readU8();
    drm.headerFlags = readU24();
    parseBoxes(box);
}

void MP4File::parseDRMKeyInformation(const BoxHeader& box)
{
    skip(4);  // version, flags
    parseBoxes(box);
}

void MP4File::parseStandardEncryptionParams(const BoxHeader& box)
{
    verifyUniqueBox(m_curTrack->drm.paramsVersion != 0);
    m_curTrack->drm.paramsVersion = readU8();
    skip(3);  // flags
    parseBoxes(box);
}

void MP4File::parseEncryptionInfo(const BoxHeader& box)
{
    DRMTrackInfo& drm = m_curTrack->drm;
    verifyUniqueBox(!drm.encryptionAlgorithm.empty() || drm.keyLength != 0);
    skip(4);  // version, flags
    drm.encryptionAlgorithm = readString(textLimit(box));
    drm.keyLength = readU8();
}

void MP4File::parseAccessUnitFormat(const BoxHeader&)
{
    DRMTrackInfo& drm = m_curTrack->drm;
    verifyUniqueBox(drm.selectiveEncryption || drm.ivLength != 0);
    skip(4);  // version, flags
    drm.selectiveEncryption = readU8() != 0;
    skip(1);
    drm.ivLength = readU8();
}

void MP4File::parseSignature(const BoxHeader& box)
{
    DRMTrackInfo& drm = m_curTrack->drm;
    verifyUniqueBox(!drm.signatureFormat.empty() || !drm.signature.empty());
    drm.signatureFormat = readString(textLimit(box));
    drm.signature = readString(textLimit(box));
}

void MP4File::parseZolProtection(const BoxHeader& box)
{
    DRMTrackInfo& drm = m_curTrack->drm;
    verifyUniqueBox(drm.kind != 0);
    drm.kind = kZolProtection;
    for (SRMBString* text : {&drm.zolLicense, &drm.zolPolicy, &drm.zolEdcData, &drm.zolDomain})
        *text = readString(textLimit(box));
}

void MP4File::parseWdxsProtection(const BoxHeader& box)
{
    DRMTrackInfo& drm = m_curTrack->drm;
    verifyUniqueBox(drm.kind != 0);
    drm.kind = kWdxsProtection;
    for (SRMBString* text : {&drm.wdxsMetadata, &drm.wdxsLicense})
        *text = readString(textLimit(box));
}

}  // namespace krx::mp4
