// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// MP4 files made to take far more memory than they have bytes. A process keeps to its bound. What would
// exceed it is refused, not left out.

#include "tests/faults/faultrunner.h"
#include "tests/support/mp4builder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace krx::test {
namespace {

/// Large enough that the bound exceeds that of the smallest file.
constexpr std::size_t kBytes = 4'000'000;
constexpr int kFits = 0;
constexpr int kRefused = 28;

/// Repeats bytes, whole, up to a size of n.
std::string filled(std::string_view bytes, std::size_t n = kBytes)
{
    std::string all;
    all.reserve(n);
    while (all.size() + bytes.size() <= n)
        all += bytes;
    return all;
}

std::string numbered(std::size_t count, std::string (*make)(std::uint32_t))
{
    std::string all;
    for (std::uint32_t i = 0; i < count; ++i)
        all += make(i);
    return all;
}

std::string entries(const std::string& bytes, std::size_t count)
{
    return fullBox("stsd", Fields().u32(count).raw(bytes));
}

/// By default, a track with one sample of 10 bytes.
struct Track
{
    std::string description = stsd({audioEntry(".mp3")});
    std::string chunks = tableBox("stsc", 1, {1, 1, 1});
    std::string sizes = stsz(10, 1);
    std::string offsets = tableBox("stco", 1, {8});
    std::string edits;

    std::string bytes() const
    {
        const std::string tables = description + tableBox("stts", 1, {1, 1000}) + chunks + sizes + offsets;
        return box("trak",
                   tkhd(1) + edits + box("mdia", mdhd(1000, 1000) + box("minf", box("stbl", tables))));
    }
};

std::string file(const std::string& inMovie, const std::string& behind = {})
{
    return ftyp() + box("moov", mvhd(1000, 1000) + inMovie) + behind;
}

std::string described(const std::string& bytes, std::size_t count)
{
    Track track;
    track.description = entries(bytes, count);
    return file(track.bytes());
}

std::string fragmented(const std::string& fragments)
{
    const std::string extends = box("mvex", fullBox("trex", Fields().u32(1).u32(1).zeros(12)));
    return file(Track().bytes() + extends, box("moof", fullBox("mfhd", Fields().u32(1)) + fragments));
}

std::string fragmentOf(const std::string& runs)
{
    return box("traf", fullBox("tfhd", Fields().u32(1)) + runs);
}

std::string fonts(const std::string& name)
{
    constexpr unsigned kCount = 60'000;
    const std::string font = Fields().u16(1).u8(name.size()).raw(name).bytes();
    const std::string table = box("ftab", Fields().u16(kCount).raw(filled(font, kCount * font.size())));
    const std::string entry = box("tx3g", std::string(38, '\0') + table);
    const std::string all = filled(entry);
    return described(all, all.size() / entry.size());
}

/// Every sample has its own chunk; the samples alternate between the descriptions.
std::string alternating(const std::string& descriptions)
{
    constexpr std::uint32_t kCount = kBytes / 16;
    Track track;
    track.description = entries(descriptions, 2);
    track.sizes = stsz(1, kCount);
    Fields chunks;
    for (std::uint32_t i = 0; i < kCount; ++i)
        chunks.u32(i + 1).u32(1).u32(1 + i % 2);
    track.chunks = fullBox("stsc", Fields().u32(kCount).raw(chunks));
    track.offsets = fullBox("stco", Fields().u32(kCount).raw(filled(Fields().u32(8), kCount * 4)));
    return file(track.bytes());
}

/// Large samples that share their bytes: each ends a segment.
std::string segments(std::uint32_t perChunk)
{
    const std::uint32_t count = kBytes / 2 / 4;
    Track track;
    track.chunks = tableBox("stsc", 1, {1, perChunk, 1});
    track.sizes = stsz(300'000, count * perChunk);
    track.offsets = fullBox("stco", Fields().u32(count).raw(filled(Fields().u32(8), count * 4)));
    return file(track.bytes(), box("mdat", std::string(std::size_t{perChunk} * 300'000, 'x')));
}

/// A gap of the edit list in front of each sample.
std::string gaps()
{
    const std::uint32_t count = kBytes / 24;
    std::vector<Edit> edits;
    for (std::uint32_t i = 0; i < count; ++i)
        edits.insert(edits.end(), {{1, -1}, {1000, i * 1000}});
    Track track;
    track.description = stsd({avcEntry()});
    track.edits = box("edts", elst(edits));
    track.chunks = tableBox("stsc", 1, {1, count, 1});
    track.sizes = stsz(1, count);
    return file(track.bytes());
}

std::string tagged(const char* type, std::string_view data)
{
    return file(Track().bytes() + box("ilst", box(type, filled(box("data", data)))));
}

TEST(Mp4Memory, StaysInProportion)
{
    const auto numberedEntry = [](std::uint32_t i) { return box("nmos", Fields().u32(i)); };
    const auto numberedText = [](std::uint32_t i) {
        return box("tx3g", Fields().zeros(8).u32(i).zeros(26).raw(
                               box("ftab", Fields().u16(1).u16(1).u8(5).raw("Arial"))));
    };
    const std::string xmp = Fields().u64(0xBE7ACFCB97A942E8ULL).u64(0x9C71999491E3AFACULL).bytes();
    const struct
    {
        const char* name;
        std::string bytes;
        int error;
    } forms[] = {
        {"text descriptions of 8 bytes", described(filled(box("tx3g")), kBytes / 8), kRefused},
        {"text descriptions", described(numbered(kBytes / 64, numberedText), kBytes / 64), kRefused},
        {"fonts", fonts("Arial"), kFits},
        {"fonts without a name", fonts(""), kRefused},
        {"data descriptions of 8 bytes", described(filled(box("amf0")), kBytes / 8), kFits},
        {"sound descriptions of 12 bytes", described(numbered(kBytes / 12, numberedEntry), kBytes / 12),
         kRefused},
        {"download hints", file(Track().bytes(), fullBox("pdin", filled(Fields().u64(1)))), kFits},
        {"chapters", file(Track().bytes() + fullBox("chpl", '\0' + filled(Fields().u64(5).u8(0)))), kFits},
        {"string tags", file(Track().bytes() + box("udta", filled(fullBox("titl", Fields().u16(0x55C4))))),
         kFits},
        {"unknown tags", tagged("\xA9\xA9\xA9\xA9", Fields().u64(9ULL << 32)), kFits},
        {"numbers", tagged("trkn", Fields().u64(0).zeros(2048)), kFits},
        {"UTF-16", file(Track().bytes(), box("uuid", xmp + "\xFE\xFF" + filled("\x4E\x2D"))), kFits},
        {"free boxes", file(Track().bytes() + filled(box("free"))), kFits},
        {"tracks", file(filled(box("trak"))), 14},
        {"fragments", fragmented(filled(fragmentOf({}))), kFits},
        {"runs", fragmented(fragmentOf(filled(fullBox("trun", Fields().u32(0))))), kFits},
        {"runs of each other's bytes",
         fragmented(fragmentOf(filled(sizedBox(12, "trun", Fields().u32(0xF00))) + std::string(300, '\0'))),
         kRefused},
        {"segments", segments(1), kFits},
        {"segments without end", segments(6), kRefused},
        {"sound configurations by turns", alternating(aacEntry() + aacEntry("\x12\x08")), kFits},
        {"video configurations by turns", alternating(avcEntry() + avcEntry(77, 31)), kFits},
        {"gaps", gaps(), kFits},
    };
    FaultRunner runner(Victim::kMovie);
    for (const auto& form : forms) {
        SCOPED_TRACE(form.name);
        runner.dir.write("in/victim.mp4", form.bytes);
        const Outcome outcome = runner.run({});
        EXPECT_EQ(runner.verdict(outcome), form.error) << outcome.report;
#ifndef FAULTS_SANITIZED
        EXPECT_GT(outcome.peak, 0U);
        EXPECT_LE(outcome.peak, (16U << 20) + 8 * form.bytes.size());
#endif
    }
}

}  // namespace
}  // namespace krx::test
