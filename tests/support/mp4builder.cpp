// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/mp4builder.h"

#include <algorithm>
#include <numeric>
#include <span>

namespace krx::test {
namespace {

/// Samples of one track that are contiguous in the file.
struct Chunk
{
    std::size_t track;
    std::size_t first;
    std::size_t count;
    double time;  ///< seconds
};

std::vector<Chunk> chunksInTimeOrder(const Movie& movie)
{
    std::vector<Chunk> chunks;
    for (std::size_t t = 0; t < movie.tracks.size(); ++t) {
        const MovieTrack& track = movie.tracks[t];
        const std::size_t step = movie.samplesPerFragment ? movie.samplesPerFragment : track.samplesPerChunk;
        double time = 0;
        for (std::size_t i = 0; i < track.samples.size(); i += step) {
            const std::size_t count = std::min(step, track.samples.size() - i);
            chunks.push_back({t, i, count, time / track.timescale});
            for (std::size_t k = i; k < i + count; ++k)
                time += track.samples[k].duration;
        }
    }
    std::stable_sort(chunks.begin(), chunks.end(),
                     [](const Chunk& a, const Chunk& b) { return a.time < b.time; });
    return chunks;
}

std::string unityMatrix()
{
    return Fields().u32(0x10000).zeros(12).u32(0x10000).zeros(12).u32(0x40000000).bytes();
}

std::uint64_t durationOf(const MovieTrack& track)
{
    return std::accumulate(
        track.samples.begin(), track.samples.end(), std::uint64_t{0},
        [](std::uint64_t sum, const MovieSample& sample) { return sum + sample.duration; });
}

/// The (count, value) pairs of a run-length table.
template <typename Get>
std::vector<std::uint32_t> runLengths(std::span<const MovieSample> samples, Get get)
{
    std::vector<std::uint32_t> words;
    for (const MovieSample& sample : samples) {
        const auto value = static_cast<std::uint32_t>(get(sample));
        if (words.empty() || words.back() != value) {
            words.push_back(0);
            words.push_back(value);
        }
        ++words[words.size() - 2];
    }
    return words;
}

/// One entry per chunk at which the number of samples or the description changes.
std::vector<std::uint32_t> sampleToChunk(const MovieTrack& track, std::size_t samples)
{
    std::vector<std::uint32_t> words;
    std::uint32_t chunk = 1;
    for (std::size_t i = 0; i < samples; i += track.samplesPerChunk, ++chunk) {
        const auto count =
            static_cast<std::uint32_t>(std::min<std::size_t>(track.samplesPerChunk, samples - i));
        const std::uint32_t description = track.samples[i].description;
        if (words.empty() || words[words.size() - 2] != count || words.back() != description)
            words.insert(words.end(), {chunk, count, description});
    }
    return words;
}

/// count: number of samples in the tables.
std::string sampleTable(const MovieTrack& track, std::size_t count,
                        const std::vector<std::uint64_t>& chunkOffsets)
{
    const std::span samples(track.samples.data(), count);
    const auto deltas = runLengths(samples, [](const MovieSample& s) { return s.duration; });
    const auto chunks = sampleToChunk(track, count);
    std::vector<std::uint32_t> sizes;
    std::vector<std::uint32_t> syncs;
    for (std::size_t i = 0; i < count; ++i) {
        sizes.push_back(samples[i].size);
        if (samples[i].sync)
            syncs.push_back(static_cast<std::uint32_t>(i + 1));
    }
    Fields offsets;
    offsets.u32(chunkOffsets.size());
    for (const std::uint64_t offset : chunkOffsets)
        track.wideOffsets ? offsets.u64(offset) : offsets.u32(offset);

    std::string content = stsd(track.entries);
    content += tableBox("stts", static_cast<std::uint32_t>(deltas.size() / 2), deltas);
    if (track.compositionTable && count != 0) {
        const auto shifts = runLengths(samples, [](const MovieSample& s) { return s.compositionOffset; });
        content += tableBox("ctts", static_cast<std::uint32_t>(shifts.size() / 2), shifts);
    }
    content += tableBox("stsc", static_cast<std::uint32_t>(chunks.size() / 3), chunks);
    content += stsz(0, static_cast<std::uint32_t>(sizes.size()), sizes);
    content += fullBox(track.wideOffsets ? "co64" : "stco", offsets);
    if (track.syncTable && count != 0)
        content += tableBox("stss", static_cast<std::uint32_t>(syncs.size()), syncs);
    return box("stbl", content + track.extraInTable);
}

/// How long the edit list plays, or the media where there is none, in the movie's timescale.
std::uint64_t playedDuration(const MovieTrack& track, std::uint32_t movieTimescale)
{
    if (track.edits.empty())
        return durationOf(track) * movieTimescale / track.timescale;
    return std::accumulate(track.edits.begin(), track.edits.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const Edit& edit) { return sum + edit.duration; });
}

std::string trackHeader(const MovieTrack& track, std::uint32_t movieTimescale)
{
    Fields fields;
    fields.zeros(8).u32(track.id).u32(0).u32(playedDuration(track, movieTimescale)).zeros(12);
    fields.u16(track.handler == "soun" ? 0x0100 : 0).u16(0).raw(unityMatrix());
    return fullBox("tkhd", fields.u16(track.width).u16(0).u16(track.height).u16(0), 0, 7);
}

/// The header of the media by its kind, and where the media is: in this file.
std::string mediaHeaders(std::string_view handler)
{
    if (handler.empty())
        return box("dinf");
    const std::string header = handler == "vide"   ? fullBox("vmhd", Fields().zeros(8), 0, 1)
                               : handler == "soun" ? fullBox("smhd", Fields().zeros(4))
                                                   : fullBox("nmhd");
    return header + box("dinf", fullBox("dref", Fields().u32(1).raw(fullBox("url ", {}, 0, 1))));
}

std::string trackBox(const MovieTrack& track, std::uint32_t movieTimescale, std::size_t inTables,
                     const std::vector<std::uint64_t>& chunkOffsets)
{
    std::string content = trackHeader(track, movieTimescale);
    const bool wideEdits = std::any_of(track.edits.begin(), track.edits.end(), [](const Edit& edit) {
        return edit.duration > 0xFFFFFFFF || edit.mediaTime > 0x7FFFFFFF;
    });
    if (!track.edits.empty())
        content += box("edts", elst(track.edits, wideEdits ? 1 : 0));
    content += box("mdia",
                   mdhd(track.timescale, durationOf(track), 0, track.language) +
                       (track.handler.empty() ? fullBox("hdlr") : hdlr(track.handler)) +
                       box("minf", mediaHeaders(track.handler) + sampleTable(track, inTables, chunkOffsets)));
    return box("trak", content + track.extraInTrack);
}

std::string movieBox(const Movie& movie, const std::vector<std::vector<std::uint64_t>>& chunkOffsets)
{
    const bool fragmented = movie.samplesPerFragment != 0;
    std::uint64_t duration = 0;
    for (const MovieTrack& track : movie.tracks)
        duration = std::max(duration, playedDuration(track, movie.timescale));
    std::string content = mvhd(movie.timescale, duration);
    std::string extends;
    for (std::size_t t = 0; t < movie.tracks.size(); ++t) {
        const std::size_t samples = movie.tracks[t].samples.size();
        const std::size_t inTables =
            fragmented ? std::min<std::size_t>(movie.samplesInTables, samples) : samples;
        content += trackBox(movie.tracks[t], movie.timescale, inTables, chunkOffsets[t]);
        extends += fullBox("trex", Fields().u32(movie.tracks[t].id).u32(1).u32(0).u32(0).u32(0));
    }
    if (fragmented)
        content += box("mvex", extends);
    return box("moov", content + movie.extraInMovie);
}

void writeSamples(BuiltMovie& built, const Movie& movie, const Chunk& chunk)
{
    for (std::size_t i = chunk.first; i < chunk.first + chunk.count; ++i) {
        const MovieSample& sample = movie.tracks[chunk.track].samples[i];
        built.samples[chunk.track].push_back({built.bytes.size(), sample.size});
        built.bytes += sample.media;
        for (std::size_t k = sample.media.size(); k < sample.size; ++k)
            built.bytes += sampleByte(chunk.track, i, k);
    }
}

/// The 'moof' box of one chunk whose samples follow after the box and dataHeader bytes.
std::string fragmentBox(const MovieTrack& track, const Chunk& chunk, std::uint32_t number,
                        std::size_t dataHeader)
{
    constexpr std::uint32_t kNonSync = 0x00010000;
    const auto make = [&](std::size_t dataOffset) {
        // Data offset, durations, sizes and flags, and composition offsets where the track has them.
        const unsigned flags = 0x701U | (track.compositionTable ? 0x800U : 0);
        Fields run;
        run.u32(chunk.count).u32(dataOffset);
        for (std::size_t i = chunk.first; i < chunk.first + chunk.count; ++i) {
            const MovieSample& sample = track.samples[i];
            run.u32(sample.duration).u32(sample.size).u32(sample.sync ? 0 : kNonSync);
            if (track.compositionTable)
                run.u32(static_cast<std::uint32_t>(sample.compositionOffset));
        }
        const std::string header =
            fullBox("tfhd", Fields().u32(track.id).u32(track.samples[chunk.first].description), 0, 0x2);
        return box("moof", fullBox("mfhd", Fields().u32(number)) +
                               box("traf", header + fullBox("trun", run, 0, flags)));
    };
    return make(make(0).size() + dataHeader);
}

}  // namespace

Fields& Fields::put(std::uint64_t value, int n)
{
    while (n-- > 0)
        m_bytes += static_cast<char>(value >> (8 * n));
    return *this;
}

Fields& Fields::zeros(std::size_t n)
{
    m_bytes.append(n, '\0');
    return *this;
}

Fields& Fields::raw(std::string_view bytes)
{
    m_bytes += bytes;
    return *this;
}

std::string sizedBox(std::uint32_t size, std::string_view type, std::string_view content)
{
    return Fields().u32(size).raw(type).raw(content).bytes();
}

std::string box(std::string_view type, std::string_view content)
{
    return sizedBox(static_cast<std::uint32_t>(content.size() + 8), type, content);
}

std::string sizedLargeBox(std::uint64_t size, std::string_view type, std::string_view content)
{
    return sizedBox(1, type, Fields().u64(size).raw(content));
}

std::string largeBox(std::string_view type, std::string_view content)
{
    return sizedLargeBox(content.size() + 16, type, content);
}

std::string fullBox(std::string_view type, std::string_view content, unsigned version, unsigned flags)
{
    return box(type, Fields().u8(version).u24(flags).raw(content));
}

std::string ftyp()
{
    return box("ftyp", Fields().raw("isom").u32(512).raw("isomavc1"));
}

std::string mvhd(std::uint32_t timescale, std::uint64_t duration, unsigned version)
{
    Fields fields;
    version == 0 ? fields.zeros(8).u32(timescale).u32(duration)
                 : fields.zeros(16).u32(timescale).u64(duration);
    fields.u32(0x10000).u16(0x0100).zeros(10).raw(unityMatrix()).zeros(24);
    return fullBox("mvhd", fields.u32(0xFFFFFFFF), version);
}

std::string tkhd(std::uint32_t trackId, unsigned version, std::uint32_t a, std::uint32_t b, std::uint32_t c,
                 std::uint32_t d)
{
    Fields fields;
    fields.zeros(version == 0 ? 8 : 16).u32(trackId).zeros(version == 0 ? 24 : 28);
    fields.u32(a).u32(b).u32(0).u32(c).u32(d).zeros(12).u32(0x40000000).u32(0).u32(0);
    return fullBox("tkhd", fields, version, 7);
}

std::string mdhd(std::uint32_t timescale, std::uint64_t duration, unsigned version, std::uint16_t language)
{
    Fields fields;
    version == 0 ? fields.zeros(8).u32(timescale).u32(duration)
                 : fields.zeros(16).u32(timescale).u64(duration);
    return fullBox("mdhd", fields.u16(language).u16(0), version);
}

std::string hdlr(std::string_view type)
{
    return fullBox("hdlr", Fields().u32(0).raw(type).zeros(12).raw("Handler").u8(0));
}

std::string tableBox(std::string_view type, std::uint32_t count, const std::vector<std::uint32_t>& words)
{
    Fields fields;
    fields.u32(count);
    for (const std::uint32_t word : words)
        fields.u32(word);
    return fullBox(type, fields);
}

std::string stsd(const std::vector<std::string>& entries, std::string_view behind)
{
    Fields fields;
    fields.u32(entries.size());
    for (const std::string& entry : entries)
        fields.raw(entry);
    return fullBox("stsd", fields.raw(behind));
}

std::string stsz(std::uint32_t constantSize, std::uint32_t count, const std::vector<std::uint32_t>& sizes)
{
    Fields fields;
    fields.u32(constantSize).u32(count);
    for (const std::uint32_t size : sizes)
        fields.u32(size);
    return fullBox("stsz", fields);
}

std::string elst(const std::vector<Edit>& edits, unsigned version, std::string_view behind)
{
    Fields fields;
    fields.u32(edits.size());
    for (const Edit& edit : edits) {
        const auto time = static_cast<std::uint64_t>(edit.mediaTime);
        version == 0 ? fields.u32(edit.duration).u32(time) : fields.u64(edit.duration).u64(time);
        fields.u32(edit.rate);
    }
    return fullBox("elst", fields.raw(behind), version);
}

std::string avcConfiguration(unsigned profile, unsigned level)
{
    return Fields().u8(1).u8(profile).u8(0).u8(level).u8(0xFF).u8(0xE0).u8(0).bytes();
}

std::string videoEntry(std::string_view type, std::string_view extra, unsigned width, unsigned height)
{
    Fields fields;
    fields.zeros(6).u16(1);
    fields.zeros(16).u16(width).u16(height).u32(0x480000).u32(0x480000).u32(0).u16(1);
    fields.zeros(32).u16(24).u16(0xFFFF).raw(extra);
    return box(type, fields);
}

std::string avcEntry(unsigned profile, unsigned level)
{
    return videoEntry("avc1", box("avcC", avcConfiguration(profile, level)));
}

std::string audioEntry(std::string_view type, std::string_view extra, unsigned sampleRate, unsigned channels,
                       unsigned sampleSize)
{
    Fields fields;
    fields.zeros(6).u16(1);
    fields.u16(0)
        .zeros(6)
        .u16(channels)
        .u16(sampleSize)
        .zeros(4)
        .u32(std::uint64_t{sampleRate} << 16)
        .raw(extra);
    return box(type, fields);
}

std::string esds(std::string_view configuration)
{
    const auto size = configuration.size();
    Fields fields;
    fields.u8(3).u8(size + 23).u16(0).u8(0);
    fields.u8(4).u8(size + 15).u8(0x40).u8(0x15).u24(0).u32(128000).u32(128000);
    fields.u8(5).u8(size).raw(configuration).u8(6).u8(1).u8(2);
    return fullBox("esds", fields);
}

std::string aacEntry(std::string_view configuration)
{
    return audioEntry("mp4a", esds(configuration));
}

char sampleByte(std::size_t track, std::size_t sample, std::size_t i)
{
    return static_cast<char>(track * 101 + sample * 7 + i);
}

BuiltMovie buildMovie(const Movie& movie)
{
    std::vector<Chunk> chunks = chunksInTimeOrder(movie);
    const auto fragments = std::stable_partition(chunks.begin(), chunks.end(), [&](const Chunk& chunk) {
        return movie.samplesPerFragment == 0 || chunk.first < movie.samplesInTables;
    });

    // The length of the movie box does not depend on the offsets: when it comes first, it is made twice.
    BuiltMovie built;
    built.samples.resize(movie.tracks.size());
    std::vector<std::vector<std::uint64_t>> offsets(movie.tracks.size());
    for (auto chunk = chunks.begin(); chunk != fragments; ++chunk) {
        offsets[chunk->track].push_back(built.bytes.size());
        writeSamples(built, movie, *chunk);
    }
    const bool noData = chunks.begin() == fragments && fragments != chunks.end();
    const std::string mdat = noData ? "" : box("mdat", built.bytes);
    const std::size_t front = ftyp().size() + (movie.movieFirst ? movieBox(movie, offsets).size() : 0) + 8;
    for (std::size_t t = 0; t < offsets.size(); ++t) {
        for (std::uint64_t& offset : offsets[t])
            offset += front;
        for (BuiltMovie::Place& place : built.samples[t])
            place.offset += front;
    }
    const std::string moov = movieBox(movie, offsets);
    built.bytes = ftyp() + (movie.movieFirst ? moov + mdat : mdat + moov);

    std::uint32_t number = 0;
    for (auto chunk = fragments; chunk != chunks.end(); ++chunk) {
        constexpr std::size_t kDataHeader = 8;
        built.bytes += fragmentBox(movie.tracks[chunk->track], *chunk, ++number, kDataHeader);
        const std::size_t data = built.bytes.size();
        built.bytes.append(kDataHeader, '\0');
        writeSamples(built, movie, *chunk);
        const auto size = static_cast<std::uint32_t>(built.bytes.size() - data);
        built.bytes.replace(data, kDataHeader, sizedBox(size, "mdat"));
    }
    return built;
}

MovieTrack avcTrack(std::size_t samples)
{
    MovieTrack track;
    track.id = 1;
    track.timescale = 25000;
    track.entries = {avcEntry()};
    track.samplesPerChunk = 5;
    track.syncTable = true;
    track.compositionTable = true;
    track.edits = {{40, -1}, {static_cast<std::uint64_t>(samples) * 40, 0}};
    for (std::size_t i = 0; i < samples; ++i) {
        const bool sync = i % 10 == 0;
        track.samples.push_back({sync ? 300U : 60U + static_cast<std::uint32_t>(i % 7), 1000,
                                 static_cast<std::int32_t>(i % 3) * 1000, sync, 1});
    }
    return track;
}

MovieTrack aacTrack(std::size_t samples)
{
    MovieTrack track;
    track.id = 2;
    track.timescale = 44100;
    track.entries = {aacEntry()};
    track.samplesPerChunk = 8;
    for (std::size_t i = 0; i < samples; ++i)
        track.samples.push_back({40U + static_cast<std::uint32_t>(i % 5), 1024, 0, true, 1});
    return track;
}

Movie soundMovie()
{
    Movie movie;
    movie.tracks = {avcTrack(), aacTrack()};
    return movie;
}

Movie fragmentedMovie()
{
    Movie movie = soundMovie();
    movie.samplesPerFragment = 10;
    return movie;
}

}  // namespace krx::test
