// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4.h"
#include "util/bigendian.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

// The content of a movie fragment's 'traf'. During the parse each is read once, to check it, and unloaded.

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

/// Takes the records of one run apart, in whatever portions they come.
class RunDecoder
{
public:
    explicit RunDecoder(TrackFragmentRun& run)
    {
        for (const auto& [flag, field] : kPerSampleFields)
            if (unsigned* column = run.column(field))
                m_columns[m_count++] = column;
    }

    void decode(const unsigned char* p, std::size_t samples)
    {
        for (std::size_t i = 0; i < samples; ++i, ++m_index)
            for (unsigned column = 0; column < m_count; ++column, p += kFieldSize) {
                unsigned* const values = m_columns[column];
                values[m_index] = krx::util::loadBig32(p);
            }
    }

private:
    std::array<unsigned*, std::size(kPerSampleFields)> m_columns{};
    unsigned m_count = 0;
    std::size_t m_index = 0;
};

/// Keeps warnings to the parse, for a fragment that is read again after it.
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
        std::array<unsigned char, 16384> records;
        RunDecoder decoder(run);
        for (std::size_t left = run.sampleCount; left != 0;) {
            const std::size_t samples = std::min(left, records.size() / recordSize);
            in.read(records.data(), samples * recordSize);
            decoder.decode(records.data(), samples);
            left -= samples;
        }
    }
    fragment.insertRun(std::move(run));
}

}  // namespace

void MP4File::parseTrackFragment(TrackFragment& fragment, FilePos payload, FilePos end)
{
    if (m_reader.hasOpenBox()) {
        m_reader.skipTo(payload);
        readFragmentBoxes(fragment, end);
        return;
    }
    // After the parse: the boxes around the fragment are opened for the log and for places.
    m_reader.start(payload);
    const QuietReader quiet(m_reader);
    BoxHeader moof;
    moof.start = fragment.moofStart();
    moof.type = fourCC("moof");
    BoxHeader traf;
    traf.start = payload;
    traf.type = fourCC("traf");
    m_reader.inside(moof, 0, [&] { m_reader.inside(traf, 0, [&] { readFragmentBoxes(fragment, end); }); });
}

void MP4File::readFragmentBoxes(TrackFragment& fragment, FilePos end)
{
    BoxReader& in = m_reader;
    BoxHeader traf;
    traf.end = end;
    bool headerSeen = false;
    while (in.position() < end) {
        if (in.bytesLeft(end) < kBoxHeaderSize) {
            in.warnHere(krx::streams::kExtraneousBytes);
            break;
        }
        const BoxHeader box = in.readHeader(traf);
        if (!headerSeen && box.type != fourCC("tfhd"))
            break;
        if (!headerSeen)
            readFragmentHeader(fragment);
        else if (box.type == fourCC("trun"))
            readRun(in, fragment);
        headerSeen = true;
        in.skipTo(box.end);
    }
    if (!headerSeen)
        throw StreamParseError(krx::streams::kBadBoxHierarchy);
}

void MP4File::readFragmentHeader(TrackFragment& fragment)
{
    BoxReader& in = m_reader;
    const unsigned flags = in.readU32();
    setCurTrack(in.readU32());
    const TrackInfo& track = m_walk.needTrack();
    TrackFragmentHeader header;
    header.hasBaseDataOffset = (flags & kBaseDataOffset) != 0;
    header.descriptionIndex = track.defaultDescriptionIndex;
    header.defaultDuration = track.defaultSampleDuration;
    header.defaultSize = track.defaultSampleSize;
    header.defaultFlags = track.defaultSampleFlags;
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
}

}  // namespace krx::mp4
