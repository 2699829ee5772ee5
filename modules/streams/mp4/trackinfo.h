// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/finding.h"
#include "modules/streams/mp4/pageablearray.h"
#include "modules/streams/mp4/sampleentry.h"
#include "modules/streams/mp4/trackfragment.h"
#include "util/SRString.h"

#include <deque>
#include <memory>
#include <vector>

namespace krx::mp4 {

/// One 'elst' entry.
struct EditListEntry
{
    unsigned long long duration = 0;  ///< movie timescale units
    long long mediaTime = 0;          ///< media timescale units; -1 marks a gap
    unsigned rate = 0;                ///< raw 16.16 word
};

struct EditList
{
    krx::util::FilePos filePos = 0;  ///< start of the 'elst' box
    long long freeSize = 0;          ///< bytes of free space reserved inside the box
    std::vector<EditListEntry> entries;

    /// Whether entry i of n must be a gap: gaps and media alternate and media comes last.
    static bool isGapEntry(std::size_t i, std::size_t n);
};

/// The a, b, c, d words (16.16) of a track's matrix.
struct VideoTransform
{
    int a = 0x10000;
    int b = 0;
    int c = 0;
    int d = 0x10000;

    /// Maps (x, y) in wrapping 32-bit arithmetic.
    void transform(int x, int y, int& outX, int& outY) const;
};

/// Content-protection facts of a track.
struct DRMTrackInfo
{
    bool selectiveEncryption = false;
    unsigned headerVersion = 0;
    unsigned headerFlags = 0;  ///< 24 bits
    unsigned kind = 0;         ///< 0 none, 1 'zol ', 2 'wdxs'
    unsigned paramsVersion = 0;
    SRMBString encryptionAlgorithm;
    unsigned keyLength = 0;
    unsigned ivLength = 0;
    SRMBString zolLicense;
    SRMBString zolPolicy;
    SRMBString zolEdcData;
    SRMBString zolDomain;
    SRMBString signatureFormat;
    SRMBString signature;
    SRMBString wdxsMetadata;
    SRMBString wdxsLicense;
    unsigned originalFormat = 0;  ///< four-character code
};

/// Bytes that a finding of the reader holds, those of the object included.
std::size_t memoryOf(const krx::streams::Finding& finding);

struct TrackFragmentSyncSample
{
    unsigned fragment = 0;
    unsigned run = 0;
    unsigned sample = 0;
};

enum class TrackKind : unsigned char
{
    kOther,
    kVideo,
    kAudio,
    kText,
    kData,
};

/// What a track box says of its media, whether the track plays or not. 0 stands for what is not known.
struct TrackFacts
{
    krx::util::FilePos boxStart = -1;    ///< of the track box; -1 for a track that only other boxes name
    TrackKind kind = TrackKind::kOther;  ///< by the first sample entry if that is known, else by the handler
    unsigned codec = 0;                  ///< four-character code of the first sample entry
    int width = 0;                       ///< of the picture, after the track's transform, in pixels
    int height = 0;
    double sampleRate = 0;  ///< Hz
    unsigned channels = 0;
};

/// One track of a file: kind, times, descriptions, edit list, tables and fragments.
class TrackInfo : public TrackFacts
{
public:
    bool valid = false;  ///< passed the checks at the end of its track box
    bool isVideo = false;
    bool isAudio = false;
    bool isText = false;
    bool isData = false;
    bool hasSampleDescription = false;  ///< a supported sample entry was accepted
    bool last = false;                  ///< set by the recording path only
    /// Why the track box was dropped, or what ended the parse in it. Null in a valid track, and in one that
    /// only other boxes name.
    std::shared_ptr<const krx::streams::Finding> droppedBy;

    VideoTransform transform;
    DRMTrackInfo drm;
    SampleDescriptions sampleDescriptions;
    krx::util::FilePos stsdStartPos = 0;
    long long freeSizeInStsdBox = 0;
    krx::util::FilePos mdhdStartPos = 0;
    krx::util::FilePos tkhdStartPos = 0;

    PageableArray<SampleToChunk> sampleToChunk;
    PageableArray<unsigned> sampleSizes;
    PageableArray<unsigned long long> chunkOffsets;
    PageableArray<TimeToSample> timeToSample;
    PageableArray<CompositionOffset> compositionOffsets;
    PageableArray<unsigned> syncSamples;
    PageableArray<unsigned char> sampleFlags;

    std::shared_ptr<EditList> editList;  ///< null when there is none or it was refused

    unsigned timescale = 0;           ///< media units a second
    unsigned long long duration = 0;  ///< media timescale units
    unsigned short language = 0;      ///< packed
    unsigned trackId = 0;
    unsigned contextNumber = 0;       ///< of its context messages, see MP4File::numberContexts
    unsigned constantSampleSize = 0;  ///< 0: sizes are per sample
    unsigned sampleCount = 0;

    // What the walk over the samples met (Mp4Data::subInitPlayback). Where it ended early, this is what came
    // before. Times of messages: ms, with the delays of the edit list, at most those of 32 bits.
    unsigned sampleTotal = 0;           ///< with the one that the file ends in
    unsigned samplesPassed = 0;         ///< without it
    unsigned long long timePassed = 0;  ///< decode time after these, without gaps; media timescale units
    unsigned startMillis = 0;           ///< start of the first sample; 0 without samples
    unsigned endMillis = 0;             ///< end of the last one; of a walk that ended early, where it stands

    bool hasTrackExtends = false;
    unsigned defaultDescriptionIndex = 0;
    unsigned defaultSampleDuration = 0;
    unsigned defaultSampleSize = 0;
    unsigned defaultSampleFlags = 0;
    std::deque<TrackFragment> fragments;
    std::vector<TrackFragmentSyncSample> fragmentSyncSamples;

    bool isValid() const { return valid; }
    void setMdhdStartPos(krx::util::FilePos pos) { mdhdStartPos = pos; }
    void setStsdStartPos(krx::util::FilePos pos) { stsdStartPos = pos; }
    void setFreeSizeInStsdBox(long long size) { freeSizeInStsdBox = size; }
    /// Appends an entry and takes size bytes from the free space of the 'stsd' box.
    void addSampleDescription(const SampleEntry& entry, long long size);
    /// Media duration without the edit list's gaps; media timescale units.
    long long getContentLength() const;
    /// Bytes really held, tables included.
    std::size_t reportMemorySize() const;
};

}  // namespace krx::mp4
