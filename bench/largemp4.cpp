// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/largemp4.h"

#include "bench/bulkmessages.h"
#include "bench/bulkwriter.h"

#include <functional>
#include <stdexcept>
#include <string_view>

namespace krx::bench {
namespace {

constexpr std::uint64_t kHeader = 8;
constexpr std::uint64_t kTableHeader = 16;  ///< box header, version, flags and count

/// A box whose parts give their size before they are written, so that nothing is held in memory.
class Box
{
public:
    using Body = std::function<void(BulkWriter&)>;

    Box(std::string_view type, std::uint64_t bodySize, Body body)
        : m_type(type), m_bodySize(bodySize), m_body(std::move(body))
    {
    }
    Box(std::string_view type, std::vector<Box> children) : m_type(type), m_children(std::move(children))
    {
        for (const Box& child : m_children)
            m_bodySize += child.size();
    }

    std::uint64_t size() const { return m_bodySize + kHeader + (large() ? 8 : 0); }
    void write(BulkWriter& out) const
    {
        out.u32(large() ? 1 : static_cast<std::uint32_t>(size()));
        out.bytes(m_type.data(), 4);
        if (large())
            out.u64(size());
        if (m_body)
            m_body(out);
        for (const Box& child : m_children)
            child.write(out);
    }

private:
    bool large() const { return m_bodySize + kHeader > 0xFFFFFFFF; }

    std::string m_type;
    std::uint64_t m_bodySize = 0;
    Body m_body;
    std::vector<Box> m_children;
};

std::uint32_t chunkCount(const LargeTrack& track)
{
    return (track.samples + track.samplesPerChunk - 1) / track.samplesPerChunk;
}

std::uint64_t mediaBytes(const LargeTrack& track)
{
    std::uint64_t total = 0;
    MessageLengths sizes(track.minSize, track.maxSize);
    for (std::uint32_t i = 0; i < track.samples; ++i)
        total += sizes.next();
    return total;
}

/// A table box of count entries.
Box table(std::string_view type, std::uint32_t count, std::uint64_t entrySize, Box::Body entries)
{
    return {type, kTableHeader - kHeader + count * entrySize,
            [count, entries = std::move(entries)](BulkWriter& out) {
                out.u32(0);
                out.u32(count);
                entries(out);
            }};
}

Box sampleEntry(const LargeTrack& track)
{
    if (track.data)
        return {"amf0", 8, [](BulkWriter& out) { out.u64(1); }};
    if (track.video) {
        const std::string config("\x01\x42\xC0\x1E\xFF\xE1\x00\x04\x67\x42\xC0\x1E\x01\x00\x02\x68\xCE", 17);
        Box avcC("avcC", config.size(),
                 [config](BulkWriter& out) { out.bytes(config.data(), config.size()); });
        return {"avc1", 78 + avcC.size(), [avcC](BulkWriter& out) {
                    out.u32(0);
                    out.u32(1);  // reserved, data reference
                    for (int i = 0; i < 4; ++i)
                        out.u32(0);
                    out.u16(1280);
                    out.u16(720);
                    out.u32(0x00480000);
                    out.u32(0x00480000);
                    out.u32(0);
                    out.u16(1);
                    for (int i = 0; i < 8; ++i)
                        out.u32(0);
                    out.u16(24);
                    out.u16(0xFFFF);
                    avcC.write(out);
                }};
    }
    const std::string descriptor(
        "\x00\x00\x00\x00\x03\x19\x00\x00\x00\x04\x11\x40\x15\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x05"
        "\x02"
        "\x11\x90\x06\x01\x02",
        31);
    Box esds("esds", descriptor.size(),
             [descriptor](BulkWriter& out) { out.bytes(descriptor.data(), descriptor.size()); });
    return {"mp4a", 28 + esds.size(), [esds](BulkWriter& out) {
                out.u32(0);
                out.u32(1);
                out.u64(0);
                out.u16(2);
                out.u16(16);
                out.u32(0);
                out.u32(48000U << 16);
                esds.write(out);
            }};
}

Box sampleTables(const LargeTrack& track, std::uint64_t mediaStart, std::uint64_t* tableBytes)
{
    std::vector<Box> tables;
    if (track.timingPerSample)
        tables.push_back(table("stts", track.samples, 8, [track](BulkWriter& out) {
            for (std::uint32_t i = 0; i < track.samples; ++i) {
                out.u32(1);
                out.u32(track.delta + i % 2);
            }
        }));
    else
        tables.push_back(table("stts", track.samples ? 1 : 0, 8, [track](BulkWriter& out) {
            if (track.samples == 0)
                return;
            out.u32(track.samples);
            out.u32(track.delta);
        }));
    if (track.compositionOffsets)
        tables.push_back(table("ctts", track.samples, 8, [track](BulkWriter& out) {
            for (std::uint32_t i = 0; i < track.samples; ++i) {
                out.u32(1);
                out.u32(i % 3 * track.delta);
            }
        }));
    const std::uint32_t chunks = chunkCount(track);
    const std::uint32_t lastChunk = track.samples % track.samplesPerChunk;
    const bool shortLast = lastChunk != 0 && chunks > 1;
    const std::uint32_t chunkRuns = track.chunkRunPerChunk ? chunks : (chunks ? 1 + (shortLast ? 1 : 0) : 0);
    tables.push_back(table("stsc", chunkRuns, 12, [track, chunks, chunkRuns, lastChunk](BulkWriter& out) {
        for (std::uint32_t i = 0; i < chunkRuns; ++i) {
            const bool isLast = lastChunk != 0 && i == chunkRuns - 1;
            out.u32(isLast ? chunks : i + 1);
            out.u32(isLast ? lastChunk : track.samplesPerChunk);
            out.u32(1);
        }
    }));
    tables.emplace_back("stsz", 12 + 4 * std::uint64_t{track.samples}, [track](BulkWriter& out) {
        out.u32(0);
        out.u32(0);
        out.u32(track.samples);
        MessageLengths sizes(track.minSize, track.maxSize);
        for (std::uint32_t i = 0; i < track.samples; ++i)
            out.u32(sizes.next());
    });
    tables.push_back(table("co64", chunks, 8, [track, chunks, mediaStart](BulkWriter& out) {
        MessageLengths sizes(track.minSize, track.maxSize);
        std::uint64_t offset = mediaStart;
        for (std::uint32_t chunk = 0; chunk < chunks; ++chunk) {
            out.u64(offset);
            for (std::uint32_t i = 0; i < track.samplesPerChunk; ++i)
                offset += sizes.next();
        }
    }));
    if (track.syncEvery)
        tables.push_back(table("stss", (track.samples + track.syncEvery - 1) / track.syncEvery, 4,
                               [track](BulkWriter& out) {
                                   for (std::uint64_t i = 0; i < track.samples; i += track.syncEvery)
                                       out.u32(static_cast<std::uint32_t>(i + 1));
                               }));
    if (track.sampleFlags)
        tables.emplace_back("sdtp", 4 + std::uint64_t{track.samples}, [track](BulkWriter& out) {
            out.u32(0);
            out.fill(track.samples);
        });
    if (tableBytes)
        for (const Box& box : tables)
            *tableBytes += box.size();

    const Box entry = sampleEntry(track);
    tables.insert(tables.begin(), Box("stsd", 8 + entry.size(), [entry](BulkWriter& out) {
                      out.u32(0);
                      out.u32(1);
                      entry.write(out);
                  }));
    return {"stbl", std::move(tables)};
}

Box trackBox(const LargeTrack& track, std::uint32_t id, std::uint64_t mediaStart, std::uint64_t* tableBytes)
{
    const Box header("tkhd", 84, [id](BulkWriter& out) {
        out.u32(7);
        out.u64(0);
        out.u32(id);
        for (int i = 0; i < 6; ++i)
            out.u32(0);
        for (const std::uint32_t word : {0x10000U, 0U, 0U, 0U, 0x10000U, 0U, 0U, 0U, 0x40000000U, 0U, 0U})
            out.u32(word);
    });
    const Box mediaHeader("mdhd", 24, [track](BulkWriter& out) {
        out.u32(0);
        out.u64(0);
        out.u32(track.timescale);
        out.u32(track.samples * track.delta);
        out.u16(0x55C4);
        out.u16(0);
    });
    const Box media("minf", {sampleTables(track, mediaStart, tableBytes)});
    return {"trak", {header, Box("mdia", {mediaHeader, media})}};
}

Box movieBox(const LargeMp4& wanted, std::uint64_t mediaStart, std::uint64_t* tableBytes)
{
    std::vector<Box> children;
    children.emplace_back("mvhd", 100, [](BulkWriter& out) {
        out.u32(0);
        out.u64(0);
        out.u32(1000);
        out.u32(3600000);
        for (int i = 0; i < 20; ++i)
            out.u32(0);
    });
    std::uint32_t id = 0;
    for (const LargeTrack& track : wanted.tracks) {
        children.push_back(trackBox(track, ++id, mediaStart, tableBytes));
        mediaStart += mediaBytes(track);
    }
    if (wanted.fragments) {
        std::vector<Box> defaults;
        for (id = 1; id <= wanted.tracks.size(); ++id)
            defaults.emplace_back("trex", 24, [id](BulkWriter& out) {
                out.u32(0);
                for (const std::uint32_t word : {id, 1U, 40U, 100U, 0U})
                    out.u32(word);
            });
        children.emplace_back("mvex", std::move(defaults));
    }
    return {"moov", std::move(children)};
}

/// One movie fragment with its media data.
void writeFragment(BulkWriter& out, std::uint32_t sequence, std::uint32_t trackId, std::uint32_t samples)
{
    constexpr std::uint32_t kSampleSize = 210;
    const auto moof = [&](std::uint32_t dataOffset) {
        const Box header("mfhd", 8, [sequence](BulkWriter& to) {
            to.u32(0);
            to.u32(sequence);
        });
        const Box fragment("tfhd", 8, [trackId](BulkWriter& to) {
            to.u32(0x020000);
            to.u32(trackId);
        });
        const Box run("trun", 12 + 8 * std::uint64_t{samples}, [samples, dataOffset](BulkWriter& to) {
            to.u32(0x000301);  // data offset, durations, sizes
            to.u32(samples);
            to.u32(dataOffset);
            for (std::uint32_t i = 0; i < samples; ++i) {
                to.u32(40);
                to.u32(kSampleSize);
            }
        });
        return Box("moof", {header, Box("traf", {fragment, run})});
    };
    const auto moofSize = static_cast<std::uint32_t>(moof(0).size());
    moof(moofSize + static_cast<std::uint32_t>(kHeader)).write(out);
    out.u32(static_cast<std::uint32_t>(kHeader) + samples * kSampleSize);
    out.bytes("mdat", 4);
    out.fill(std::uint64_t{samples} * kSampleSize);
}

/// 1 h of 60 fps.
LargeTrack videoTrack()
{
    LargeTrack video;
    video.samples = 216000;
    video.timescale = 60000;
    video.delta = 1000;
    video.minSize = 500;
    video.maxSize = 30000;
    video.samplesPerChunk = 30;
    video.syncEvery = 120;
    video.compositionOffsets = true;
    return video;
}

/// 1 h of 48 kHz.
LargeTrack audioTrack()
{
    LargeTrack audio;
    audio.video = false;
    audio.samples = 168750;
    audio.timescale = 48000;
    audio.delta = 1024;
    audio.minSize = 150;
    audio.maxSize = 500;
    audio.samplesPerChunk = 24;
    return audio;
}

}  // namespace

LargeMp4Facts writeLargeMp4(const std::string& path, const LargeMp4& wanted)
{
    LargeMp4Facts facts;
    std::uint64_t mediaSize = 0;
    for (const LargeTrack& track : wanted.tracks) {
        mediaSize += mediaBytes(track);
        facts.samples += track.samples;
    }
    facts.samples += std::uint64_t{wanted.fragments} * wanted.samplesPerFragment;

    BulkWriter out(path);
    const Box type("ftyp", 8, [](BulkWriter& to) {
        to.bytes("isom", 4);
        to.u32(0);
    });
    type.write(out);
    const std::uint64_t movieSize = movieBox(wanted, 0, nullptr).size();
    movieBox(wanted, out.position() + movieSize + 16, &facts.tableBytes).write(out);
    out.u32(1);
    out.bytes("mdat", 4);
    out.u64(16 + mediaSize);
    if (wanted.mediaWritten) {
        out.fill(mediaSize);
    } else if (mediaSize > 0) {
        out.skip(mediaSize - 1);
        out.u8(0);
    }
    for (std::uint32_t i = 0; i < wanted.fragments; ++i)
        writeFragment(out, i + 1, i % static_cast<std::uint32_t>(wanted.tracks.size()) + 1,
                      wanted.samplesPerFragment);
    facts.bytes = out.position();
    out.finish();
    return facts;
}

LargeMp4 largeMp4(const std::string& name)
{
    LargeTrack video = videoTrack();
    LargeTrack audio = audioTrack();
    LargeMp4 movie;
    if (name == "hour")
        movie.tracks = {video, audio};
    else if (name == "lowrate" || name == "clip") {
        const std::uint32_t part = name == "clip" ? 6 : 1;
        video.samples = 90000 / part;
        video.timescale = 25000;
        audio.samples = 77521 / part;
        audio.timescale = 22050;
        for (LargeTrack* track : {&video, &audio}) {
            track->minSize = 20;
            track->maxSize = 91;
            track->samplesPerChunk = 1;
        }
        movie.tracks = {video, audio};
        movie.mediaWritten = true;
    } else if (name == "samples") {
        video.samples = 10000000;
        video.minSize = 100;
        video.maxSize = 1500;
        movie.tracks = {video};
    } else if (name == "tracks") {
        video.samples = 100000;
        audio.samples = 100000;
        LargeTrack data = audio;
        data.data = true;
        movie.tracks = {video, audio};
        movie.tracks.resize(64, data);
    } else if (name == "fragments") {
        video.samples = 0;
        audio.samples = 0;
        movie.tracks = {video, audio};
        movie.fragments = 100000;
        movie.samplesPerFragment = 30;
    } else if (name == "pages") {
        video.samples = 119000000;
        video.minSize = 100;
        video.maxSize = 700;
        video.samplesPerChunk = 1;
        video.syncEvery = 1;
        video.timingPerSample = true;
        video.chunkRunPerChunk = true;
        video.sampleFlags = true;
        movie.tracks = {video};
    } else
        throw std::runtime_error("no movie is called " + name);
    return movie;
}

}  // namespace krx::bench
