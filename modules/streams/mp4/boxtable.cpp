// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxtable.h"

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/movie.h"

#include <algorithm>
#include <array>

namespace krx::mp4 {
namespace {

constexpr BoxRule box(const char (&type)[5])
{
    BoxRule rule;
    rule.type = fourCC(type);
    return rule;
}

/// The boxes that are known: a new one is one row here, and one handler.
constexpr std::array kRows{
    // Containers.
    box("mdia").children(),
    box("minf").children(),
    box("stbl").children(),
    box("edts").children(),
    box("udta").children(),
    box("sinf").children(),
    box("schi").children(),

    // Movie and tracks.
    box("ftyp").reads(readFileType),
    box("moov").once([](const Movie& m) { return m.seen; }).reads(readMovie),
    box("mvhd").once([](const Movie& m) { return m.duration != 0; }).version(1).reads(readMovieHeader),
    box("trak").numbered().reads(readTrack),
    box("tkhd").version(1).reads(readTrackHeader),
    box("mdhd").once([](const TrackInfo& t) { return t.duration != 0; }).version(1).reads(readMediaHeader),
    box("hdlr").reads(readHandler),
    box("free").reads(readFreeSpace),
    box("skip").reads(readFreeSpace),

    // Sample tables and edit lists. A table counts as present once it has entries, so a box that repeats an
    // empty one is no duplicate.
    box("stsd")
        .once([](const TrackInfo& t) { return !t.sampleDescriptions.empty(); })
        .version(0)
        .reads(readSampleDescription),
    box("stts")
        .once([](const TrackInfo& t) { return t.timeToSample.size() != 0; })
        .version(0)
        .reads(readTimeToSample),
    box("ctts")
        .once([](const TrackInfo& t) { return t.compositionOffsets.size() != 0; })
        .version(0)
        .reads(readCompositionToSample),
    box("stsc")
        .once([](const TrackInfo& t) { return t.sampleToChunk.size() != 0; })
        .version(0)
        .reads(readSampleToChunk),
    box("stsz")
        .once([](const TrackInfo& t) { return t.sampleSizes.size() != 0; })
        .version(0)
        .reads(readSampleSize),
    box("stco")
        .once([](const TrackInfo& t) { return t.chunkOffsets.size() != 0; })
        .version(0)
        .reads(readChunkOffset),
    box("co64")
        .once([](const TrackInfo& t) { return t.chunkOffsets.size() != 0; })
        .version(0)
        .reads(readChunkOffset),
    box("stss")
        .once([](const TrackInfo& t) { return t.syncSamples.size() != 0; })
        .version(0)
        .reads(readSyncSample),
    box("sdtp")
        .once([](const TrackInfo& t) { return t.sampleFlags.size() != 0; })
        .version(0)
        .reads(readSampleFlags),
    box("elst").once([](const TrackInfo& t) { return t.editList != nullptr; }).reads(readEditList),

    // Movie fragments.
    box("mvex").reads(readMovieExtends).children(),
    box("trex").numbered().reads(readTrackExtends),
    box("moof").numbered().reads(readMovieFragment).children(),
    box("mfhd").reads(readMovieFragmentHeader),
    box("traf").numbered().reads(readTrackFragment),

    // Metadata and tags.
    box("meta").reads(readMetadata),
    box("ilst").reads(readItemList),
    box("cprt").atLeast(6).version(0).reads(readStringTag),
    box("auth").atLeast(6).version(0).reads(readStringTag),
    box("titl").atLeast(6).version(0).reads(readStringTag),
    box("dscp").atLeast(6).version(0).reads(readStringTag),
    box("chpl").once([](const Movie& m) { return !m.chapters.empty(); }).version(1).reads(readChapterList),
    box("pdin")
        .once([](const Movie& m) { return !m.progressive.empty(); })
        .version(0)
        .reads(readProgressiveDownload),
    box("uuid").reads(readXmp),

    // Content protection. Version and flags before the children of a key box are not checked.
    box("frma").once([](const TrackInfo& t) { return t.drm.originalFormat != 0; }).reads(readOriginalFormat),
    box("schm").reads(readProtectionScheme),
    box("qhdr")
        .once([](const TrackInfo& t) { return t.drm.headerVersion != 0 || t.drm.headerFlags != 0; })
        .reads(readProtectionHeader)
        .children(),
    box("qdkm").inTrack().children(4),
    box("qkey").inTrack().children(4),
    box("qprm")
        .once([](const TrackInfo& t) { return t.drm.paramsVersion != 0; })
        .reads(readEncryptionParams)
        .children(),
    box("qeib")
        .once([](const TrackInfo& t) { return !t.drm.encryptionAlgorithm.empty() || t.drm.keyLength != 0; })
        .reads(readEncryptionInfo),
    box("qdaf")
        .once([](const TrackInfo& t) { return t.drm.selectiveEncryption || t.drm.ivLength != 0; })
        .reads(readAccessUnitFormat),
    box("qsig")
        .once([](const TrackInfo& t) { return !t.drm.signatureFormat.empty() || !t.drm.signature.empty(); })
        .reads(readSignature),
    box("zol ").once([](const TrackInfo& t) { return t.drm.kind != 0; }).reads(readZolProtection),
    box("wdxs").once([](const TrackInfo& t) { return t.drm.kind != 0; }).reads(readWdxsProtection),

    // Known, and of no use here.
    box("mdat"),
    box("vmhd"),
    box("smhd"),
    box("hmhd"),
    box("nmhd"),
    box("gmhd"),
    box("dinf"),
    box("tref"),
    box("iods"),
    box("mfra"),
    box("tfra"),
    box("mfro"),
    box("\xA9TIM"),
    box("\xA9REL"),
    box("\xA9TSC"),
    box("\xA9TSZ"),
};

static_assert(std::count_if(kRows.begin(), kRows.end(), [](const BoxRule& rule) {
                  return rule.numberSlot != BoxRule::kNotNumbered;
              }) == kNumberedTypes);

/// In the order of the types, the numbered ones with a slot each.
constexpr auto kRules = [] {
    auto rules = kRows;
    std::sort(rules.begin(), rules.end(), [](const BoxRule& a, const BoxRule& b) { return a.type < b.type; });
    unsigned slot = 0;
    for (BoxRule& rule : rules)
        if (rule.numberSlot != BoxRule::kNotNumbered)
            rule.numberSlot = slot++;
    return rules;
}();

}  // namespace

const BoxRule* findBoxRule(unsigned type)
{
    const auto* rule =
        std::lower_bound(kRules.begin(), kRules.end(), type,
                         [](const BoxRule& row, unsigned wanted) { return row.type < wanted; });
    return rule != kRules.end() && rule->type == type ? rule : nullptr;
}

}  // namespace krx::mp4
