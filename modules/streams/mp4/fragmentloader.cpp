// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/fragmentloader.h"

#include <algorithm>
#include <iterator>
#include <utility>

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

/// Bytes of fragments that are kept, at most, and their share of the file.
constexpr unsigned long long kMostKept = 64U << 20;
constexpr unsigned kKeptShare = 4;

/// Bytes that one read of records takes at most; the reader has a limit.
constexpr unsigned long long kRecordPortion = 1U << 30;

/// Silences warnings while a fragment is read again after the parse.
class QuietReader
{
public:
    explicit QuietReader(BoxReader& reader) : m_reader(reader) { m_reader.setQuiet(true); }
    ~QuietReader() { m_reader.setQuiet(false); }
    QuietReader(const QuietReader&) = delete;
    QuietReader& operator=(const QuietReader&) = delete;

private:
    BoxReader& m_reader;
};

void readRecords(BoxReader& in, unsigned char* records, unsigned long long bytes)
{
    for (unsigned long long done = 0; done < bytes;) {
        const unsigned long long part = std::min(bytes - done, kRecordPortion);
        in.read(records + done, part);
        done += part;
    }
}

void readRun(BoxReader& in, TrackFragment& fragment)
{
    TrackFragmentRun run;
    const unsigned flags = in.readU32();
    run.sampleCount = in.readU32();
    if (flags & kDataOffset)
        run.dataOffset = static_cast<int>(in.readU32());
    if (flags & kFirstSampleFlags)
        in.skip(4);

    unsigned fields = 0;
    unsigned recordSize = 0;
    for (const auto& [flag, field] : kPerSampleFields)
        if ((flags & flag) != 0 && run.sampleCount != 0) {
            fields |= field;
            recordSize += kFieldSize;
        }
    // Before memory is taken: the file must hold the records.
    if (recordSize != 0 && run.sampleCount > in.bytesLeft(in.fileSize()) / recordSize)
        throw StreamParseError(krx::streams::kTableReadError);
    fragment.charge(in.memory(), TrackFragmentRun::memorySize(run.sampleCount, fields));
    if (recordSize != 0) {
        if (!run.allocate(fields))
            throw StreamParseError(krx::streams::kTableReadError);
        readRecords(in, run.records(), 1ULL * run.sampleCount * recordSize);
    }
    fragment.insertRun(std::move(run));
}

}  // namespace

TrackInfo& FragmentLoader::read(TrackFragment& fragment, FilePos end)
{
    BoxHeader traf;
    traf.end = end;
    TrackInfo* track = nullptr;
    while (m_reader.position() < end) {
        if (m_reader.bytesLeft(end) < kBoxHeaderSize) {
            m_reader.warnAt(m_reader.position(), krx::streams::kExtraneousBytes);
            break;
        }
        const BoxHeader box = m_reader.readHeader(traf);
        if (!track && box.type != fourCC("tfhd"))
            break;
        try {
            if (!track)
                track = &readHeader(fragment);
            else if (box.type == fourCC("trun"))
                readRun(m_reader, fragment);
        } catch (StreamParseError& error) {
            // Opened for its place alone: there may be very many of these boxes.
            m_reader.inside(box, 0, [&] { m_reader.addPlace(error); });
            throw;
        }
        m_reader.skipTo(box.end);
    }
    if (!track)
        throw StreamParseError(krx::streams::kBadBoxHierarchy);
    return *track;
}

TrackInfo& FragmentLoader::readHeader(TrackFragment& fragment)
{
    BoxReader& in = m_reader;
    const unsigned flags = in.readU32();
    TrackInfo* track = m_movie.provideTrack(in.readU32(), in.config().MaxTracks, in.memory());
    if (!track)
        throw StreamParseError(krx::streams::kBadBoxHierarchy);
    in.setTrackId(track->trackId);
    TrackFragmentHeader header;
    header.hasBaseDataOffset = (flags & kBaseDataOffset) != 0;
    header.descriptionIndex = track->defaultDescriptionIndex;
    header.defaultDuration = track->defaultSampleDuration;
    header.defaultSize = track->defaultSampleSize;
    header.defaultFlags = track->defaultSampleFlags;
    if (flags & kBaseDataOffset)
        header.baseDataOffset = in.readU64();
    if (flags & kDescriptionIndex)
        header.descriptionIndex = in.readU32();
    if (flags & kDefaultDuration)
        header.defaultDuration = in.readU32();
    if (flags & kDefaultSize)
        header.defaultSize = in.readU32();
    if (flags & kDefaultFlags)
        header.defaultFlags = in.readU32();
    fragment.setHeader(header);
    return *track;
}

void FragmentLoader::reload(TrackFragment& fragment, FilePos payload, FilePos end)
{
    m_reader.start(payload);
    const QuietReader quiet(m_reader);
    // For the log and for places.
    BoxHeader moof;
    moof.start = fragment.moofStart();
    moof.type = fourCC("moof");
    BoxHeader traf;
    traf.start = payload;
    traf.type = fourCC("traf");
    m_reader.inside(moof, 0, [&] { m_reader.inside(traf, 0, [&] { read(fragment, end); }); });
}

bool FragmentLoader::keep(TrackFragment& fragment)
{
    const unsigned long long most =
        std::min(kMostKept, static_cast<unsigned long long>(m_reader.fileSize()) / kKeptShare);
    const std::size_t bytes = fragment.reportMemorySize();
    // A file that is parsed again may have shrunk.
    if (m_kept > most || bytes > most - m_kept)
        return false;
    m_kept += bytes;
    fragment.releaseCharge();
    return true;
}

}  // namespace krx::mp4
