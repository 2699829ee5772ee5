// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace krx::test {

// Boxes. Everything is written as given, so wrong boxes can be made too.

/// Big-endian fields, one after the other.
class Fields
{
public:
    Fields& u8(std::uint64_t value) { return put(value, 1); }
    Fields& u16(std::uint64_t value) { return put(value, 2); }
    Fields& u24(std::uint64_t value) { return put(value, 3); }
    Fields& u32(std::uint64_t value) { return put(value, 4); }
    Fields& u64(std::uint64_t value) { return put(value, 8); }
    Fields& zeros(std::size_t n);
    Fields& raw(std::string_view bytes);

    const std::string& bytes() const { return m_bytes; }
    operator std::string_view() const { return m_bytes; }

private:
    Fields& put(std::uint64_t value, int n);

    std::string m_bytes;
};

std::string box(std::string_view type, std::string_view content = {});
/// A box with the given size field.
std::string sizedBox(std::uint32_t size, std::string_view type, std::string_view content = {});
/// A box with a 64-bit size field.
std::string largeBox(std::string_view type, std::string_view content = {});
std::string sizedLargeBox(std::uint64_t size, std::string_view type, std::string_view content = {});
/// Version and flags in front of the content.
std::string fullBox(std::string_view type, std::string_view content = {}, unsigned version = 0,
                    unsigned flags = 0);

// Usual boxes.

std::string ftyp();
/// duration in timescale units.
std::string mvhd(std::uint32_t timescale, std::uint64_t duration, unsigned version = 0);
/// a, b, c, d: the words of the matrix (16.16).
std::string tkhd(std::uint32_t trackId, unsigned version = 0, std::uint32_t a = 0x10000, std::uint32_t b = 0,
                 std::uint32_t c = 0, std::uint32_t d = 0x10000);
/// language: packed.
std::string mdhd(std::uint32_t timescale, std::uint64_t duration, unsigned version = 0,
                 std::uint16_t language = 0x55C4);
/// type: of the media, such as "vide". "mdir" is that of the tags in a 'meta' box.
std::string hdlr(std::string_view type);
/// A table box: the entry count, and words of 32 bits.
std::string tableBox(std::string_view type, std::uint32_t count, const std::vector<std::uint32_t>& words);
std::string stsd(const std::vector<std::string>& entries, std::string_view behind = {});
std::string stsz(std::uint32_t constantSize, std::uint32_t count,
                 const std::vector<std::uint32_t>& sizes = {});
struct Edit
{
    std::uint64_t duration;  ///< movie timescale units
    std::int64_t mediaTime;  ///< media timescale units; -1: a gap
    std::uint32_t rate = 0x10000;
};
std::string elst(const std::vector<Edit>& edits, unsigned version = 0, std::string_view behind = {});

/// The content of an 'avcC' box.
std::string avcConfiguration(unsigned profile = 77, unsigned level = 30);
/// A video entry; extra: the boxes in it.
std::string videoEntry(std::string_view type, std::string_view extra = {}, unsigned width = 640,
                       unsigned height = 480);
std::string avcEntry(unsigned profile = 77, unsigned level = 30);
/// An audio entry; sampleRate in Hz.
std::string audioEntry(std::string_view type, std::string_view extra = {}, unsigned sampleRate = 44100,
                       unsigned channels = 2, unsigned sampleSize = 16);
/// 'esds' around the decoder-specific information.
std::string esds(std::string_view configuration);
/// AAC, low complexity, 44,100 Hz, stereo.
std::string aacEntry(std::string_view configuration = std::string_view("\x12\x10", 2));

// Sound movies.

struct MovieSample
{
    std::uint32_t size = 100;
    std::uint32_t duration = 1;          ///< media timescale units
    std::int32_t compositionOffset = 0;  ///< media timescale units
    bool sync = true;
    std::uint32_t description = 1;  ///< 1-based
    std::string media = {};         ///< the first of its bytes
};

struct MovieTrack
{
    std::uint32_t id = 1;
    std::uint32_t timescale = 1000;
    std::uint16_t language = 0x55C4;
    std::string handler;       ///< type in 'hdlr'; empty: no more than the MP4 reader needs is written
    std::uint16_t width = 0;   ///< of the shown picture, in pixels
    std::uint16_t height = 0;  ///< of the shown picture, in pixels
    std::vector<std::string> entries;  ///< of the 'stsd' box
    std::vector<MovieSample> samples;
    std::uint32_t samplesPerChunk = 4;
    bool syncTable = false;         ///< writes 'stss'
    bool compositionTable = false;  ///< writes 'ctts' or the runs' composition offsets
    bool wideOffsets = false;       ///< 'co64' instead of 'stco'
    std::vector<Edit> edits;
    std::string extraInTrack;  ///< boxes after the media box
    std::string extraInTable;  ///< boxes at the end of 'stbl'
};

struct Movie
{
    std::uint32_t timescale = 1000;
    std::vector<MovieTrack> tracks;
    bool movieFirst = true;                ///< 'moov' in front of 'mdat'
    std::uint32_t samplesPerFragment = 0;  ///< above 0: samples per fragment
    std::uint32_t samplesInTables = 0;     ///< first samples of a track left in tables; a multiple of it
    std::string extraInMovie;              ///< boxes at the end of 'moov'
};

/// A file and the places of its samples.
struct BuiltMovie
{
    struct Place
    {
        std::uint64_t offset;
        std::uint32_t size;
    };
    std::string bytes;
    std::vector<std::vector<Place>> samples;  ///< by track, in decode order
};

/// Writes the movie: chunks (or fragments) of all tracks in the order of their decode times. What a
/// sample's media leaves of its size is from sampleByte.
BuiltMovie buildMovie(const Movie& movie);
/// Byte i of a sample: differs by track (counted from 0), sample and position.
char sampleByte(std::size_t track, std::size_t sample, std::size_t i);

/// AVC with composition offsets, one sync sample in ten and an initial gap, 25 frames a second, id 1.
MovieTrack avcTrack(std::size_t samples = 50);
/// AAC of 1,024 units per sample at 44,100 Hz, id 2.
MovieTrack aacTrack(std::size_t samples = 86);
/// Both, two seconds long.
Movie soundMovie();
/// The same samples in fragments of ten.
Movie fragmentedMovie();

}  // namespace krx::test
