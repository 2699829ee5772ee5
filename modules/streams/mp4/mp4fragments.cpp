// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4boxrules.h"
#include "modules/streams/mp4/mp4fileio.h"

#include <algorithm>
#include <iterator>

// Movie fragments. During the parse each is read once, to check it, and unloaded.

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;
using krx::util::FilePos;

// Flags of 'tfhd'.
constexpr unsigned kBaseDataOffset = 0x000001;
constexpr unsigned kDescriptionIndex = 0x000002;
constexpr unsigned kDefaultDuration = 0x000008;
constexpr unsigned kDefaultSize = 0x000010;
constexpr unsigned kDefaultFlags = 0x000020;

// Flags of 'trun'.
constexpr unsigned kDataOffset = 0x000001;
constexpr unsigned kFirstSampleFlags = 0x000004;
constexpr unsigned kSampleDuration = 0x000100;
constexpr unsigned kSampleSize = 0x000200;
constexpr unsigned kSampleFlags = 0x000400;
constexpr unsigned kSampleCompositionOffset = 0x000800;
/// The per-sample fields by their flags, in the order of the file.
constexpr struct
{
    unsigned flag;
    TrackFragmentRun::Field field;
} kPerSampleFields[] = {{kSampleDuration, TrackFragmentRun::kDuration},
                        {kSampleSize, TrackFragmentRun::kSize},
                        {kSampleFlags, TrackFragmentRun::kFlags},
                        {kSampleCompositionOffset, TrackFragmentRun::kCompositionOffset}};

constexpr unsigned kFieldSize = 4;

}  // namespace

/// Opens the boxes around a fragment that is read again after the parse, when none is open, and keeps the
/// warnings to the parse.
class MP4File::FragmentReload
{
public:
    explicit FragmentReload(MP4File& file)
        : m_file(file), m_moof(file.m_openBoxes, fourCC("moof")), m_fragment(file.m_openBoxes, fourCC("traf"))
    {
        file.m_reloading = true;
    }
    ~FragmentReload() { m_file.m_reloading = false; }
    FragmentReload(const FragmentReload&) = delete;
    FragmentReload& operator=(const FragmentReload&) = delete;

private:
    MP4File& m_file;
    OpenBox m_moof;
    OpenBox m_fragment;
};

void MP4File::parseMovieExtends(const BoxHeader& box)
{
    m_movieExtendsSeen = true;
    m_movieExtendsPos = box.start;
    parseBoxes(box);
}

void MP4File::parseTrackExtends(const BoxHeader&)
{
    skip(4);  // version, flags
    setCurTrack(readU32());
    if (!m_curTrack) {
        warn(krx::streams::kInvalidTrackExtends);
        return;
    }
    TrackInfo& track = *m_curTrack;
    track.hasTrackExtends = true;
    track.defaultDescriptionIndex = readU32();
    track.defaultSampleDuration = readU32();
    track.defaultSampleSize = readU32();
    track.defaultSampleFlags = readU32();
    m_curTrack = nullptr;
}

void MP4File::parseMovieFragment(const BoxHeader& box)
{
    if (!m_movieExtendsSeen)
        throw StreamParseError(krx::streams::kUnexpectedFragments);
    m_moofStart = box.start;
    parseBoxes(box);
}

void MP4File::parseMovieFragmentHeader(const BoxHeader&)
{
    skip(4);  // version, flags
    const unsigned number = readU32();
    if (number != m_lastSequenceNumber + 1)
        throw StreamParseError(krx::streams::kOutOfOrderFragments);
    m_lastSequenceNumber = number;
}

void MP4File::parseAndUnloadTrackFragment(const BoxHeader& box)
{
    TrackFragment fragment(this, box, curPos(), m_moofStart);
    fragment.load();
    fragment.unload();
    verifyCurrentTrack();
    m_memory.charge(kDequeElement<TrackFragment>);
    m_curTrack->fragments.push_back(std::move(fragment));
    m_curTrack = nullptr;
}

void MP4File::parseTrackFragment(TrackFragment& fragment, FilePos payload, FilePos end)
{
    std::optional<FragmentReload> reload;
    if (m_openBoxes.empty())
        reload.emplace(*this);

    BoxHeader traf;
    traf.end = end;
    skipTo(payload);
    bool headerSeen = false;
    while (curPos() < traf.end) {
        if (bytesLeft(traf.end) < kBoxHeaderSize) {
            warn(krx::streams::kExtraneousBytes);
            break;
        }
        const BoxHeader box = parseBoxHeader(traf);
        if (!headerSeen && box.type != fourCC("tfhd"))
            break;
        if (!headerSeen)
            parseTrackFragmentHeader(fragment);
        else if (box.type == fourCC("trun"))
            parseTrackFragmentRun(fragment);
        headerSeen = true;
        skipTo(box.end);
    }
    if (!headerSeen)
        throw StreamParseError(krx::streams::kBadBoxHierarchy);
}

void MP4File::parseTrackFragmentHeader(TrackFragment& fragment)
{
    const unsigned flags = readU32();
    setCurTrack(readU32());
    verifyCurrentTrack();
    TrackFragmentHeader header;
    header.hasBaseDataOffset = (flags & kBaseDataOffset) != 0;
    header.descriptionIndex = m_curTrack->defaultDescriptionIndex;
    header.defaultDuration = m_curTrack->defaultSampleDuration;
    header.defaultSize = m_curTrack->defaultSampleSize;
    header.defaultFlags = m_curTrack->defaultSampleFlags;
    if (flags & kBaseDataOffset)
        header.baseDataOffset = readU64();
    if (flags & kDescriptionIndex)
        header.descriptionIndex = readU32();
    if (flags & kDefaultDuration)
        header.defaultDuration = readU32();
    if (flags & kDefaultSize)
        header.defaultSize = readU32();
    if (flags & kDefaultFlags)
        header.defaultFlags = readU32();
    fragment.setHeader(header);
}

void MP4File::parseTrackFragmentRun(TrackFragment& fragment)
{
    TrackFragmentRun run;
    const unsigned flags = readU32();
    run.sampleCount = readU32();
    if (flags & kDataOffset)
        run.dataOffset = static_cast<int>(readU32());
    if (flags & kFirstSampleFlags)
        skip(4);

    unsigned fields = 0;
    unsigned recordSize = 0;
    for (const auto& [flag, field] : kPerSampleFields)
        if ((flags & flag) != 0 && run.sampleCount != 0) {
            fields |= field;
            recordSize += kFieldSize;
        }
    // Before memory is taken: the file must hold the records.
    if (recordSize != 0 && run.sampleCount > bytesLeft(m_io->Size()) / recordSize)
        throw StreamParseError(krx::streams::kTableReadError);
    fragment.charge(m_memory, TrackFragmentRun::memorySize(run.sampleCount, fields));
    if (recordSize != 0) {
        if (!run.allocate(fields))
            throw StreamParseError(krx::streams::kTableReadError);
        read(run.records(), static_cast<unsigned long long>(run.sampleCount) * recordSize);
    }
    fragment.insertRun(std::move(run));
}

}  // namespace krx::mp4
