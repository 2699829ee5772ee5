// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/boxwalk.h"
#include "modules/streams/mp4/mp4errors.h"
#include "modules/streams/mp4/sampletype.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace krx::mp4 {
namespace {

constexpr unsigned kAvcConfigurationVersion = 1;
constexpr unsigned kAvcProfiles[] = {66, 77, 100, 110};
constexpr unsigned kAacObjectTypes[] = {1, 2, 5};

// Descriptor tags of an 'esds' box.
constexpr unsigned kStreamDescriptor = 3;
constexpr unsigned kDecoderConfigDescriptor = 4;
constexpr unsigned kDecoderSpecificInfo = 5;

/// Hz, by the sampling-frequency index of the AAC configuration; 15 announces an explicit frequency.
constexpr std::array<unsigned, 15> kSamplingFrequencies = {
    96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 0, 0, 0};
constexpr unsigned kExplicitFrequency = 15;

/// A sample entry that is being read: where it is read from, and what is filled in.
struct EntryReading
{
    BoxReader& in;
    const BoxHeader& box;
    const Codec& codec;
    Movie& movie;
    TrackInfo& track;
    SampleEntry& entry;
};

/// Ends the track box; the file goes on without the track.
[[noreturn]] void refuseTrack(krx::streams::ParseStatus status)
{
    throw Mp4TrackError(status);
}

template <std::size_t n>
bool contains(const unsigned (&values)[n], unsigned value)
{
    return std::find(std::begin(values), std::end(values), value) != std::end(values);
}

/// Bits of a byte sequence, most significant first.
class BitReader
{
public:
    BitReader(const unsigned char* bytes, unsigned length) : m_bytes(bytes), m_bits(length * 8ULL) {}

    /// The next n bits; false when there are fewer.
    bool get(unsigned n, unsigned& value)
    {
        if (n > m_bits - m_pos)
            return false;
        value = 0;
        for (; n != 0; --n, ++m_pos)
            value = value << 1 | (m_bytes[m_pos / 8] >> (7 - m_pos % 8) & 1U);
        return true;
    }

private:
    const unsigned char* m_bytes;
    unsigned long long m_bits;
    unsigned long long m_pos = 0;
};

/// Reads the decoder configuration at the position and stays at its start.
void readConfiguration(const EntryReading& reading, unsigned length)
{
    BoxReader& in = reading.in;
    SampleEntry& entry = reading.entry;
    entry.configPosition = in.position();
    entry.configLength = length;
    if (length != 0) {
        entry.config = std::make_shared_for_overwrite<unsigned char[]>(length);
        in.read(entry.config.get(), length);
    }
    in.skipTo(entry.configPosition);
}

void readAvcConfiguration(const EntryReading& reading, const BoxHeader& avcC)
{
    BoxReader& in = reading.in;
    Movie& movie = reading.movie;
    const unsigned long long length = in.bytesLeft(avcC.end);
    if (length >= in.config().MaxSampleSize)
        refuseTrack(krx::streams::kInvalidVideoCodec);
    readConfiguration(reading, static_cast<unsigned>(length));
    if (in.readU8() != kAvcConfigurationVersion)
        refuseTrack(krx::streams::kInvalidVideoCodec);
    movie.avcProfile = in.readU8();
    if (!in.config().AllowAnyAVCProfile && !contains(kAvcProfiles, movie.avcProfile))
        refuseTrack(krx::streams::kInvalidVideoCodec);
    in.skip(1);  // compatibility
    movie.avcLevel = in.readU8();
    movie.avcSeen = true;
}

void readVideoEntry(const EntryReading& reading)
{
    BoxReader& in = reading.in;
    TrackInfo& track = reading.track;
    if (reading.movie.videoSeen && !track.isVideo)
        refuseTrack(krx::streams::kDuplicateVideoTrack);
    track.isVideo = true;
    in.skip(16);  // predefined, reserved
    const int width = in.readU16();
    const int height = in.readU16();
    track.transform.transform(width, height, reading.entry.width, reading.entry.height);
    in.skip(8);  // resolutions
    const unsigned reserved = in.readU32();
    const unsigned frameCount = in.readU16();
    in.skip(34);  // compressor name, depth
    const unsigned predefined = in.readU16();
    if (reserved != 0 || frameCount != 1 || predefined != 0xFFFF)
        refuseTrack(krx::streams::kInvalidVideoCodec);
    if (reading.codec.configuration != kAvcConfiguration)
        return;
    if (!in.skipToBox(fourCC("avcC"), reading.box.end))
        refuseTrack(krx::streams::kInvalidVideoCodec);
    const BoxHeader avcC = in.readHeader(reading.box);
    in.inside(avcC, 0, [&] { readAvcConfiguration(reading, avcC); });
}

/// A number of 7 bits per byte; the last byte has its high bit clear. A number that does not end before end
/// belongs to a descriptor that leaves its entry.
unsigned readDescriptorLength(BoxReader& in, krx::util::FilePos end)
{
    unsigned value = 0;
    unsigned byte = 0x80;
    while (byte & 0x80) {
        if (in.position() >= end)
            refuseTrack(krx::streams::kInvalidAudioCodec);
        byte = in.readU8();
        value = value << 7 | (byte & 0x7F);
    }
    return value;
}

void parseAacConfiguration(const EntryReading& reading)
{
    const Mp4Config& config = reading.in.config();
    Movie& movie = reading.movie;
    SampleEntry& entry = reading.entry;
    BitReader bits(entry.config.get(), entry.configLength);
    unsigned index = 0;
    unsigned frequency = 0;
    if (!bits.get(5, movie.aacObjectType))
        refuseTrack(krx::streams::kInvalidAudioCodec);
    if (!config.AllowAnyAACProfile && !contains(kAacObjectTypes, movie.aacObjectType))
        refuseTrack(krx::streams::kInvalidAudioCodec);
    bool complete = bits.get(4, index);
    if (index == kExplicitFrequency)
        complete &= bits.get(24, frequency);
    else
        frequency = kSamplingFrequencies[index];
    complete &= bits.get(4, entry.channelCount);
    if (!complete)
        refuseTrack(krx::streams::kInvalidAudioCodec);
    entry.sampleRate = frequency;
    movie.aacSeen = true;
}

/// Reads the content of an 'esds' box. Its descriptors may leave it, but not the entry.
void readStreamDescriptor(const EntryReading& reading)
{
    BoxReader& in = reading.in;
    const krx::util::FilePos end = reading.box.end;
    if (in.readU8() != 0)
        throw UnrecognizedBoxError(krx::streams::kUnrecognizedBoxVersion);
    in.skip(3);  // flags
    if (in.readU8() == kStreamDescriptor) {
        readDescriptorLength(in, end);
        in.skip(3);
    } else {
        in.skip(2);
    }
    if (in.readU8() != kDecoderConfigDescriptor)
        refuseTrack(krx::streams::kInvalidAudioCodec);
    readDescriptorLength(in, end);
    in.skip(13);
    if (in.readU8() != kDecoderSpecificInfo)
        refuseTrack(krx::streams::kInvalidAudioCodec);
    const unsigned length = readDescriptorLength(in, end);
    if (length >= in.config().MaxSampleSize || length > in.bytesLeft(end))
        refuseTrack(krx::streams::kInvalidAudioCodec);
    readConfiguration(reading, length);
    parseAacConfiguration(reading);
}

void readAudioEntry(const EntryReading& reading)
{
    BoxReader& in = reading.in;
    TrackInfo& track = reading.track;
    if (reading.movie.audioSeen && !track.isAudio)
        refuseTrack(krx::streams::kDuplicateAudioTrack);
    track.isAudio = true;
    const unsigned version = in.readU16();
    in.skip(6);
    reading.entry.channelCount = in.readU16();
    reading.entry.sampleSize = in.readU16();
    in.skip(4);
    reading.entry.sampleRate = in.readU32() / 65536.0;
    if (version == 1)
        in.skip(16);
    if (reading.codec.configuration != kAacConfiguration)
        return;
    if (!in.skipToBox(fourCC("esds"), reading.box.end))
        refuseTrack(krx::streams::kInvalidAudioCodec);
    const BoxHeader esds = in.readHeader(reading.box);
    in.inside(esds, 0, [&] { readStreamDescriptor(reading); });
}

/// The fonts of a text entry: none if the table is missing, the complete ones if it ends early.
FontTable readFontTable(BoxReader& in, const BoxHeader& box)
{
    if (in.bytesLeft(box.end) < kBoxHeaderSize)
        return {};
    const BoxHeader table = in.readHeader(box);
    if (table.type != fourCC("ftab") || in.bytesLeft(table.end) < 2)
        return {};
    const unsigned announced = in.readU16();
    // Any number of bytes may follow the announced fonts.
    std::vector<unsigned char> records(
        std::min<unsigned long long>(in.bytesLeft(table.end), announced * FontTable::kLongest));
    in.read(records.data(), records.size());
    return {records, announced};
}

void readTextEntry(const EntryReading& reading)
{
    BoxReader& in = reading.in;
    reading.track.isText = true;
    if (reading.codec.configuration != kTextStyle)
        return;
    auto style = std::make_shared<TextStyle>();
    style->displayFlags = in.readU32();
    style->horizontalJustification = in.readU8();
    style->verticalJustification = in.readU8();
    style->backgroundColor = in.readU32();
    style->boxTop = in.readU16();
    style->boxLeft = in.readU16();
    style->boxBottom = in.readU16();
    style->boxRight = in.readU16();
    style->startChar = in.readU16();
    style->endChar = in.readU16();
    style->fontId = in.readU16();
    style->faceStyleFlags = in.readU8();
    style->fontSize = in.readU8();
    style->textColor = in.readU32();
    style->fonts = readFontTable(in, reading.box);
    reading.entry.style = std::move(style);
}

/// Reads the entry after its header. The position may be anywhere afterwards.
SampleEntry readEntry(BoxWalk& walk, const BoxHeader& box)
{
    BoxReader& in = walk.reader();
    Movie& movie = walk.movie();
    const Codec* codec = findCodec(box.type);
    if (!codec)
        refuseTrack(krx::streams::kUnsupportedSampleType);
    in.skip(8);  // reserved, data reference
    TrackInfo& track = walk.needTrack();
    SampleEntry entry;
    entry.type = box.type;
    const EntryReading reading{in, box, *codec, movie, track, entry};
    if (codec->entry == kVideoEntry)
        readVideoEntry(reading);
    else if (codec->entry == kAudioEntry)
        readAudioEntry(reading);
    else if (codec->entry == kTextEntry)
        readTextEntry(reading);
    else if (codec->entry == kDataEntry)
        track.isData = true;
    if (codec->isProtected && in.skipToBox(fourCC("sinf"), box.end))
        walk.readChildren(box);
    track.hasSampleDescription = true;
    movie.videoSeen |= codec->entry == kVideoEntry;
    movie.audioSeen |= codec->entry == kAudioEntry;
    movie.dataSeen |= codec->entry == kDataEntry;
    return entry;
}

TrackKind kindOf(EntryKind entry)
{
    switch (entry) {
        case kVideoEntry:
            return TrackKind::kVideo;
        case kAudioEntry:
            return TrackKind::kAudio;
        case kTextEntry:
            return TrackKind::kText;
        case kDataEntry:
            return TrackKind::kData;
        default:
            return TrackKind::kOther;
    }
}

TrackKind kindOfHandler(unsigned type)
{
    switch (type) {
        case fourCC("vide"):
            return TrackKind::kVideo;
        case fourCC("soun"):
            return TrackKind::kAudio;
        case fourCC("text"):
        case fourCC("sbtl"):
        case fourCC("subt"):
        case fourCC("clcp"):
            return TrackKind::kText;
        case fourCC("data"):
        case fourCC("meta"):
            return TrackKind::kData;
        default:
            return TrackKind::kOther;
    }
}

/// Takes from the start of an entry, which may be of a codec that is not supported, what the report shows of
/// the track. The position stays.
void readFacts(BoxReader& in, const BoxHeader& box, const VideoTransform& transform, TrackFacts& facts)
{
    constexpr unsigned kSize = 28;
    constexpr unsigned kAudioVersion = 8;
    constexpr unsigned kChannels = 16;
    constexpr unsigned kSampleRate = 24;
    constexpr unsigned kWidth = 24;
    constexpr unsigned kHeight = 26;
    using krx::util::loadBigEndian;
    facts.codec = box.type;
    const Codec* codec = findCodec(box.type);
    if (codec && kindOf(codec->entry) != TrackKind::kOther)
        facts.kind = kindOf(codec->entry);
    if (in.bytesLeft(box.end) < kSize)
        return;
    const unsigned char* p = in.peek(kSize);
    if (facts.kind == TrackKind::kVideo) {
        transform.transform(loadBigEndian<unsigned short>(p + kWidth),
                            loadBigEndian<unsigned short>(p + kHeight), facts.width, facts.height);
        // Turned pictures have negative ones.
        facts.width = std::abs(facts.width);
        facts.height = std::abs(facts.height);
    } else if (facts.kind == TrackKind::kAudio && loadBigEndian<unsigned short>(p + kAudioVersion) < 2) {
        facts.channels = loadBigEndian<unsigned short>(p + kChannels);
        facts.sampleRate = krx::util::loadBig32(p + kSampleRate) / 65536.0;
    }
}

/// The decoder configuration knows better than the fields in front of it.
void correctFacts(const SampleEntry& entry, TrackFacts& facts)
{
    if (entry.configLength == 0 || facts.kind != TrackKind::kAudio)
        return;
    if (entry.sampleRate != 0)
        facts.sampleRate = entry.sampleRate;
    if (entry.channelCount != 0)
        facts.channels = entry.channelCount;
}

}  // namespace

/// Other boxes than that of the media have handlers too.
void readHandler(BoxWalk& walk, const BoxHeader& box)
{
    BoxReader& in = walk.reader();
    TrackFacts& facts = walk.trackFacts();
    constexpr unsigned kTypeEnd = 12;
    if (in.parentType() != fourCC("mdia") || facts.kind != TrackKind::kOther ||
        in.bytesLeft(box.end) < kTypeEnd)
        return;
    in.skip(8);  // version, flags, predefined
    facts.kind = kindOfHandler(in.readU32());
}

void readSampleDescription(BoxWalk& walk, const BoxHeader& box)
{
    BoxReader& in = walk.reader();
    Movie& movie = walk.movie();
    TrackInfo& track = walk.needTrack();
    track.setStsdStartPos(box.start);
    const unsigned count = in.readU32();
    if (count == 0)
        throw krx::streams::StreamParseError(krx::streams::kInvalidEntryCount);
    for (unsigned number = 1; number <= count; ++number) {
        const BoxHeader entryBox = in.readHeader(box);
        in.inside(entryBox, number, [&] {
            if (number == 1)
                readFacts(in, entryBox, track.transform, walk.trackFacts());
            SampleEntry entry = readEntry(walk, entryBox);
            if (number == 1)
                correctFacts(entry, walk.trackFacts());
            in.memory().charge(track.sampleDescriptions.append(std::move(entry)));
        });
        in.skipTo(entryBox.end);
    }
    if (const std::optional<long long> room = readReservedRoom(in, box)) {
        track.setFreeSizeInStsdBox(*room);
        movie.videoAppendable |= track.isVideo;
        movie.audioAppendable |= track.isAudio;
        movie.dataAppendable |= track.isData;
    }
}

}  // namespace krx::mp4
