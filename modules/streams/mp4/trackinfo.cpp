// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/trackinfo.h"

#include "util/krxassert.h"

namespace krx::mp4 {
namespace {

constexpr const char* kTrackInfoPlace = "modules/streams/mp4/mp4";
constexpr int kGapEntryLine = 118;
constexpr int kContentLengthLine = 291;

/// (x * p + y * q) / 65536, rounded, in 32 bits that wrap.
int transformed(int x, int p, int y, int q)
{
    const unsigned sum = static_cast<unsigned>(x) * static_cast<unsigned>(p) +
                         static_cast<unsigned>(y) * static_cast<unsigned>(q) + 0x8000U;
    return static_cast<int>(sum) >> 16;
}

std::size_t drmMemory(const DRMTrackInfo& drm)
{
    std::size_t bytes = 0;
    for (const SRMBString* text :
         {&drm.encryptionAlgorithm, &drm.zolLicense, &drm.zolPolicy, &drm.zolEdcData, &drm.zolDomain,
          &drm.signatureFormat, &drm.signature, &drm.wdxsMetadata, &drm.wdxsLicense})
        bytes += text->size();
    return bytes;
}

}  // namespace

std::size_t memoryOf(const krx::streams::Finding& finding)
{
    return sizeof(finding) + finding.text.capacity() + finding.place.path.capacity();
}

bool EditList::isGapEntry(std::size_t i, std::size_t n)
{
    if (i >= n) {
        krx::util::assertFailed(kTrackInfoPlace, kGapEntryLine);
        return false;
    }
    return (n - i) % 2 == 0;
}

void VideoTransform::transform(int x, int y, int& outX, int& outY) const
{
    outX = transformed(x, a, y, c);
    outY = transformed(x, b, y, d);
}

void TrackInfo::addSampleDescription(const SampleEntry& entry, long long size)
{
    sampleDescriptions.append(entry);
    freeSizeInStsdBox -= size;
}

long long TrackInfo::getContentLength() const
{
    unsigned long long length = duration;
    if (editList)
        for (const EditListEntry& entry : editList->entries)
            if (entry.mediaTime == -1)
                length -= entry.duration;
    const auto result = static_cast<long long>(length);
    if (result < 0)
        krx::util::assertFailed(kTrackInfoPlace, kContentLengthLine);
    return result;
}

std::size_t TrackInfo::reportMemorySize() const
{
    std::size_t bytes = sizeof(*this) + drmMemory(drm);
    bytes += sampleDescriptions.reportMemorySize() + sampleToChunk.reportMemorySize() +
             sampleSizes.reportMemorySize() + chunkOffsets.reportMemorySize() +
             timeToSample.reportMemorySize() + compositionOffsets.reportMemorySize() +
             syncSamples.reportMemorySize() + sampleFlags.reportMemorySize();
    if (droppedBy)
        bytes += memoryOf(*droppedBy);
    if (editList)
        bytes += sizeof(EditList) + editList->entries.capacity() * sizeof(EditListEntry);
    for (const TrackFragment& fragment : fragments)
        bytes += fragment.reportMemorySize();
    bytes += fragmentSyncSamples.capacity() * sizeof(TrackFragmentSyncSample);
    return bytes;
}

}  // namespace krx::mp4
