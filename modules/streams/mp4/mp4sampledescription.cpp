// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4boxrules.h"
#include "modules/streams/mp4/mp4fileio.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>

// The sample-description box: what a track carries, and whether it can be streamed.

namespace krx::mp4 {

/// How an entry of one type is read.
struct MP4File::EntryRule
{
    unsigned type;
    void (MP4File::*reader)(const BoxHeader& box, SampleEntry& entry);
};

namespace {

using krx::util::FilePos;

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

}  // namespace

void MP4File::parseSampleDescription(const BoxHeader& box)
{
    using F = MP4File;
    static constexpr EntryRule kEntryRules[] = {
        {fourCC("avc1"), &F::parseVideoDescription}, {fourCC("encv"), &F::parseVideoDescription},
        {fourCC("VP60"), &F::parseVideoDescription}, {fourCC("VP61"), &F::parseVideoDescription},
        {fourCC("VP62"), &F::parseVideoDescription}, {fourCC("VP6F"), &F::parseVideoDescription},
        {fourCC("VP6A"), &F::parseVideoDescription}, {fourCC("H263"), &F::parseVideoDescription},
        {fourCC("H264"), &F::parseVideoDescription}, {fourCC("h263"), &F::parseVideoDescription},
        {fourCC("h264"), &F::parseVideoDescription}, {fourCC("ASS1"), &F::parseVideoDescription},
        {fourCC("ASS2"), &F::parseVideoDescription}, {fourCC("mp4a"), &F::parseAudioDescription},
        {fourCC("enca"), &F::parseAudioDescription}, {fourCC(".mp3"), &F::parseAudioDescription},
        {fourCC("nmos"), &F::parseAudioDescription}, {fourCC("spex"), &F::parseAudioDescription},
        {fourCC("tx3g"), &F::parseTextDescription},  {fourCC("text"), &F::parseTextDescription},
        {fourCC("amf0"), &F::parseDataDescription},  {fourCC("amf3"), &F::parseDataDescription},
        {fourCC("jpeg"), &F::parseImageDescription}, {fourCC("png "), &F::parseImageDescription},
        {fourCC("gif "), &F::parseImageDescription},
    };

    TrackInfo& track = *m_curTrack;
    track.setStsdStartPos(box.start);
    verifyUniqueBox(!track.sampleDescriptions.empty());
    parseVersion(box);
    const unsigned count = parseNumEntries(false);
    for (unsigned i = 0; i < count; ++i) {
        const BoxHeader entryBox = parseBoxHeader(box);
        const auto* rule = std::find_if(std::begin(kEntryRules), std::end(kEntryRules),
                                        [&](const EntryRule& r) { return r.type == entryBox.type; });
        if (rule == std::end(kEntryRules))
            refuseTrack(krx::streams::kUnsupportedSampleType);
        skip(8);  // reserved, data reference
        SampleEntry entry;
        entry.type = entryBox.type;
        const OpenBox open(m_openBoxes, entryBox.type);
        (this->*rule->reader)(entryBox, entry);
        m_memory.charge(track.sampleDescriptions.append(std::move(entry)));
        skipTo(entryBox.end);
    }
    if (const std::optional<long long> room = parseTrailingFreeBox(box)) {
        track.setFreeSizeInStsdBox(*room);
        m_videoAppendable |= track.isVideo;
        m_audioAppendable |= track.isAudio;
        m_dataAppendable |= track.isData;
    }
}

/// Reads the decoder configuration at the position and stays at its start.
void MP4File::readConfiguration(SampleEntry& entry, unsigned length)
{
    entry.configPosition = curPos();
    entry.configLength = length;
    if (length != 0) {
        entry.config = std::make_shared_for_overwrite<unsigned char[]>(length);
        read(entry.config.get(), length);
    }
    skipTo(entry.configPosition);
}

/// Walks the boxes of an encrypted entry from its 'sinf' on.
void MP4File::parseProtectionOf(const BoxHeader& entryBox)
{
    if (skipToBox(fourCC("sinf"), entryBox.end))
        parseBoxes(entryBox);
}

void MP4File::parseVideoDescription(const BoxHeader& box, SampleEntry& entry)
{
    verifyCurrentTrack();
    TrackInfo& track = *m_curTrack;
    if (m_videoSeen && !track.isVideo)
        refuseTrack(krx::streams::kDuplicateVideoTrack);
    track.isVideo = true;
    skip(16);  // predefined, reserved
    const int width = readU16();
    const int height = readU16();
    track.transform.transform(width, height, entry.width, entry.height);
    skip(8);  // resolutions
    const unsigned reserved = readU32();
    const unsigned frameCount = readU16();
    skip(34);  // compressor name, depth
    const unsigned predefined = readU16();
    if (reserved != 0 || frameCount != 1 || predefined != 0xFFFF)
        refuseTrack(krx::streams::kInvalidVideoCodec);
    if (box.type == fourCC("avc1") || box.type == fourCC("encv"))
        parseAvcConfiguration(box, entry);
    if (box.type == fourCC("encv"))
        parseProtectionOf(box);
    track.hasSampleDescription = true;
    m_videoSeen = true;
}

void MP4File::parseAvcConfiguration(const BoxHeader& box, SampleEntry& entry)
{
    if (!skipToBox(fourCC("avcC"), box.end))
        refuseTrack(krx::streams::kInvalidVideoCodec);
    const BoxHeader avcC = parseBoxHeader(box);
    const unsigned long long length = bytesLeft(avcC.end);
    if (length >= m_config.MaxSampleSize)
        refuseTrack(krx::streams::kInvalidVideoCodec);
    readConfiguration(entry, static_cast<unsigned>(length));
    if (readU8() != kAvcConfigurationVersion)
        refuseTrack(krx::streams::kInvalidVideoCodec);
    m_avcProfile = readU8();
    if (!m_config.AllowAnyAVCProfile && !contains(kAvcProfiles, m_avcProfile))
        refuseTrack(krx::streams::kInvalidVideoCodec);
    skip(1);  // compatibility
    m_avcLevel = readU8();
    m_avcSeen = true;
}

void MP4File::parseAudioDescription(const BoxHeader& box, SampleEntry& entry)
{
    verifyCurrentTrack();
    TrackInfo& track = *m_curTrack;
    if (m_audioSeen && !track.isAudio)
        refuseTrack(krx::streams::kDuplicateAudioTrack);
    track.isAudio = true;
    const unsigned version = readU16();
    skip(6);
    entry.channelCount = readU16();
    entry.sampleSize = readU16();
    skip(4);
    entry.sampleRate = readU32() / 65536.0;
    if (version == 1)
        skip(16);
    if (box.type == fourCC("mp4a") || box.type == fourCC("enca"))
        parseElementaryStreamDescriptor(box, entry);
    if (box.type == fourCC("enca"))
        parseProtectionOf(box);
    track.hasSampleDescription = true;
    m_audioSeen = true;
}

void MP4File::parseElementaryStreamDescriptor(const BoxHeader& box, SampleEntry& entry)
{
    if (!skipToBox(fourCC("esds"), box.end))
        refuseTrack(krx::streams::kInvalidAudioCodec);
    parseBoxHeader(box);
    verifyVersion(readU8(), 0);
    skip(3);
    if (readU8() == kStreamDescriptor) {
        parseVarLenInt(box.end);
        skip(3);
    } else {
        skip(2);
    }
    if (readU8() != kDecoderConfigDescriptor)
        refuseTrack(krx::streams::kInvalidAudioCodec);
    parseVarLenInt(box.end);
    skip(13);
    if (readU8() != kDecoderSpecificInfo)
        refuseTrack(krx::streams::kInvalidAudioCodec);
    const unsigned length = parseVarLenInt(box.end);
    if (length >= m_config.MaxSampleSize || length > bytesLeft(box.end))
        refuseTrack(krx::streams::kInvalidAudioCodec);
    readConfiguration(entry, length);
    parseAudioSpecificConfig(entry);
}

void MP4File::parseAudioSpecificConfig(SampleEntry& entry)
{
    BitReader bits(entry.config.get(), entry.configLength);
    unsigned index = 0;
    unsigned frequency = 0;
    if (!bits.get(5, m_aacObjectType))
        refuseTrack(krx::streams::kInvalidAudioCodec);
    if (!m_config.AllowAnyAACProfile && !contains(kAacObjectTypes, m_aacObjectType))
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
    m_aacSeen = true;
}

/// A number of 7 bits a byte; the last byte has its high bit clear. A number that does not end before end is
/// part of a descriptor that leaves its entry.
unsigned MP4File::parseVarLenInt(FilePos end)
{
    unsigned value = 0;
    unsigned byte = 0x80;
    while (byte & 0x80) {
        if (curPos() >= end)
            refuseTrack(krx::streams::kInvalidAudioCodec);
        byte = readU8();
        value = value << 7 | (byte & 0x7F);
    }
    return value;
}

void MP4File::parseTextDescription(const BoxHeader& box, SampleEntry& entry)
{
    verifyCurrentTrack();
    m_curTrack->isText = true;
    m_curTrack->hasSampleDescription = true;
    if (box.type != fourCC("tx3g"))
        return;
    auto style = std::make_shared<TextStyle>();
    style->displayFlags = readU32();
    style->horizontalJustification = readU8();
    style->verticalJustification = readU8();
    style->backgroundColor = readU32();
    style->boxTop = readU16();
    style->boxLeft = readU16();
    style->boxBottom = readU16();
    style->boxRight = readU16();
    style->startChar = readU16();
    style->endChar = readU16();
    style->fontId = readU16();
    style->faceStyleFlags = readU8();
    style->fontSize = readU8();
    style->textColor = readU32();
    style->fonts = parseFontTable(box);
    entry.style = std::move(style);
}

/// The fonts of a text entry; a missing table has none, one that ends early those before.
FontTable MP4File::parseFontTable(const BoxHeader& box)
{
    if (bytesLeft(box.end) < kBoxHeaderSize)
        return {};
    const BoxHeader table = parseBoxHeader(box);
    if (table.type != fourCC("ftab") || bytesLeft(table.end) < 2)
        return {};
    const unsigned announced = readU16();
    // What comes after the announced fonts may be as long as it likes.
    std::vector<unsigned char> records(
        std::min<unsigned long long>(bytesLeft(table.end), announced * FontTable::kLongest));
    read(records.data(), records.size());
    return {records, announced};
}

void MP4File::parseDataDescription(const BoxHeader&, SampleEntry&)
{
    verifyCurrentTrack();
    m_curTrack->isData = true;
    m_curTrack->hasSampleDescription = true;
    m_dataSeen = true;
}

void MP4File::parseImageDescription(const BoxHeader&, SampleEntry&)
{
    verifyCurrentTrack();
    m_curTrack->hasSampleDescription = true;
}

}  // namespace krx::mp4
