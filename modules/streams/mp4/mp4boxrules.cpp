// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4boxrules.h"

#include <algorithm>
#include <array>

namespace krx::mp4 {

/// The box dispatch: a new box is one row here and one handler.
const MP4File::BoxRule* MP4File::findRule(unsigned type)
{
    using F = MP4File;
    constexpr auto kInTrack = BoxRule::kInTrack;
    constexpr auto kAnywhere = BoxRule::kAnywhere;
    static constexpr auto kRules = [] {
        std::array rules{
            // Containers.
            BoxRule{fourCC("mdia"), &F::parseBoxes},
            BoxRule{fourCC("minf"), &F::parseBoxes},
            BoxRule{fourCC("stbl"), &F::parseBoxes},
            BoxRule{fourCC("edts"), &F::parseBoxes},
            BoxRule{fourCC("udta"), &F::parseBoxes},
            BoxRule{fourCC("sinf"), &F::parseBoxes},
            BoxRule{fourCC("schi"), &F::parseBoxes},

            // Movie and tracks.
            BoxRule{fourCC("moov"), &F::parseMovie},
            BoxRule{fourCC("mvhd"), &F::parseMovieHeader, kAnywhere, 1},
            BoxRule{fourCC("trak"), &F::parseTrack},
            BoxRule{fourCC("tkhd"), &F::parseTrackHeader, kAnywhere, 1},
            BoxRule{fourCC("mdhd"), &F::parseMediaHeader, kInTrack, 1},
            BoxRule{fourCC("free"), &F::parseFreeSpace},
            BoxRule{fourCC("skip"), &F::parseFreeSpace},

            // Sample tables and edit lists.
            BoxRule{fourCC("stsd"), &F::parseSampleDescription, kInTrack},
            BoxRule{fourCC("stts"), &F::parseTimeToSample, kInTrack},
            BoxRule{fourCC("ctts"), &F::parseCompositionToSample, kInTrack},
            BoxRule{fourCC("stsc"), &F::parseSampleToChunk, kInTrack},
            BoxRule{fourCC("stsz"), &F::parseSampleSize, kInTrack},
            BoxRule{fourCC("stco"), &F::parseChunkOffset, kInTrack},
            BoxRule{fourCC("co64"), &F::parseChunkOffset, kInTrack},
            BoxRule{fourCC("stss"), &F::parseSyncSample, kInTrack},
            BoxRule{fourCC("sdtp"), &F::parseSampleFlags, kInTrack},
            BoxRule{fourCC("elst"), &F::parseEditList, kInTrack},

            // Movie fragments.
            BoxRule{fourCC("mvex"), &F::parseMovieExtends},
            BoxRule{fourCC("trex"), &F::parseTrackExtends},
            BoxRule{fourCC("moof"), &F::parseMovieFragment},
            BoxRule{fourCC("mfhd"), &F::parseMovieFragmentHeader},
            BoxRule{fourCC("traf"), &F::parseAndUnloadTrackFragment},

            // Metadata and tags.
            BoxRule{fourCC("meta"), &F::parseMetadata},
            BoxRule{fourCC("ilst"), &F::parseItunesMetadata},
            BoxRule{fourCC("cprt"), &F::parseStringTag},
            BoxRule{fourCC("auth"), &F::parseStringTag},
            BoxRule{fourCC("titl"), &F::parseStringTag},
            BoxRule{fourCC("dscp"), &F::parseStringTag},
            BoxRule{fourCC("chpl"), &F::parseChapterList, kAnywhere, 1},
            BoxRule{fourCC("pdin"), &F::parseProgressiveDownload},
            BoxRule{fourCC("uuid"), &F::parseUniversalUniqueIDBox},

            // Content protection.
            BoxRule{fourCC("frma"), &F::parseOriginalFormat, kInTrack},
            BoxRule{fourCC("schm"), &F::parseDRMScheme},
            BoxRule{fourCC("qhdr"), &F::parseDRMHeader, kInTrack},
            BoxRule{fourCC("qdkm"), &F::parseDRMKeyInformation, kInTrack},
            BoxRule{fourCC("qkey"), &F::parseDRMKeyInformation, kInTrack},
            BoxRule{fourCC("qprm"), &F::parseStandardEncryptionParams, kInTrack},
            BoxRule{fourCC("qeib"), &F::parseEncryptionInfo, kInTrack},
            BoxRule{fourCC("qdaf"), &F::parseAccessUnitFormat, kInTrack},
            BoxRule{fourCC("qsig"), &F::parseSignature, kInTrack},
            BoxRule{fourCC("zol "), &F::parseZolProtection, kInTrack},
            BoxRule{fourCC("wdxs"), &F::parseWdxsProtection, kInTrack},

            // Known, and of no use here.
            BoxRule{fourCC("ftyp")},
            BoxRule{fourCC("mdat")},
            BoxRule{fourCC("hdlr")},
            BoxRule{fourCC("vmhd")},
            BoxRule{fourCC("smhd")},
            BoxRule{fourCC("hmhd")},
            BoxRule{fourCC("nmhd")},
            BoxRule{fourCC("gmhd")},
            BoxRule{fourCC("dinf")},
            BoxRule{fourCC("tref")},
            BoxRule{fourCC("iods")},
            BoxRule{fourCC("mfra")},
            BoxRule{fourCC("tfra")},
            BoxRule{fourCC("mfro")},
            BoxRule{fourCC("\xA9TIM")},
            BoxRule{fourCC("\xA9REL")},
            BoxRule{fourCC("\xA9TSC")},
            BoxRule{fourCC("\xA9TSZ")},
        };
        std::sort(rules.begin(), rules.end(),
                  [](const BoxRule& a, const BoxRule& b) { return a.type < b.type; });
        return rules;
    }();
    const auto rule = std::lower_bound(kRules.begin(), kRules.end(), type,
                                       [](const BoxRule& r, unsigned wanted) { return r.type < wanted; });
    return rule != kRules.end() && rule->type == type ? &*rule : nullptr;
}

}  // namespace krx::mp4
