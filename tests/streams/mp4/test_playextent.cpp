// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// What a walk over samples tells besides its messages: extents, places of faults, the reason of a refusal;
// and what ends it from outside.

#include "server/KRXSyncFileIo.h"
#include "tests/streams/mp4/parserfixture.h"
#include "tests/streams/mp4/playfixture.h"
#include "tests/support/tempdir.h"
#include "util/fileholes.h"
#include "util/memoryquota.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace krx::test {
namespace {

using namespace krx::mp4;

const std::string kMp3Sound = audioEntry(".mp3");

/// Two tracks in turn, with samples of 50,000 bytes every 10 ms; the second one starts after a gap of 100 ms.
BuiltMovie wideMovie()
{
    Movie movie;
    movie.tracks = {plainTrack(kMp3Sound, 40, 50'000),
                    plainTrack(box("amf0", Fields().zeros(6).u16(1)), 40, 50'000)};
    movie.tracks[1].id = 2;
    movie.tracks[1].edits = {{100, -1}, {400, 0}};
    for (MovieTrack& track : movie.tracks)
        track.samplesPerChunk = 1;
    return buildMovie(movie);
}

TEST(PlayExtent, EndsAtAHole)
{
    const BuiltMovie built = wideMovie();
    const struct
    {
        std::size_t track;  ///< a piece of that sample is missing
        std::size_t sample;
        long long until[2];
    } cases[] = {{0, 7, {70, 150}}, {0, 0, {0, 500}}, {1, 0, {100, 100}}, {1, 39, {400, 490}}};
    for (const auto& c : cases) {
        constexpr std::uint64_t kBlock = 4096;
        const std::uint64_t start = (built.samples[c.track][c.sample].offset / kBlock + 2) * kBlock;
        const TempDir dir;
        const util::SRAutoFile file(::open(dir.bytes("in.mp4").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        const auto put = [&](std::size_t from, std::size_t to) {
            EXPECT_EQ(::pwrite(file.get(), &built.bytes[from], to - from, static_cast<off_t>(from)),
                      static_cast<ssize_t>(to - from));
        };
        put(0, start);
        put(start + 4 * kBlock, built.bytes.size());
        util::FileHoles holes(file.get(), static_cast<util::FilePos>(built.bytes.size()));
        if (!holes.hasHole())
            GTEST_SKIP() << "the file system tells of no holes";

        SimpleKrxSyncFileIo io;
        Mp4Data data(SRMBString(dir.bytes("in.mp4").c_str()), nullptr, &io, 0, {});
        ASSERT_EQ(data.init(), kLoadOk);
        const std::vector<TrackExtent> whole = data.findExtents(nullptr);
        EXPECT_EQ(whole, (std::vector<TrackExtent>{{1, 40, 0, 400, 400}, {2, 40, 100, 500, 500}}));
        std::vector<TrackExtent> cut = whole;
        // Chunks stand in the file in the order of their times, and the hole in one sample.
        cut[c.track].playsUntil = c.until[c.track];
        EXPECT_EQ(data.findExtents(&holes), cut) << c.track << ' ' << c.sample;
    }
}

struct Fault
{
    const char* name;
    std::string bytes;
    int status;
    streams::Place place;
    TrackExtent extent = {};
};

std::vector<Fault> walkFaults()
{
    const auto tables = [](auto change) {
        TrackBoxes track;
        track.header = tkhd(7);
        track.chunks = tableBox("stsc", 1, {1, 2, 1});
        track.times = tableBox("stts", 2, {1, 20, 1, 30});
        track.sizes = stsz(0, 4, {10, 10, 10, 10});
        track.offsets = tableBox("stco", 2, {100, 100});
        change(track);
        return trackFile(track);
    };
    const auto at = [](long long offset, long long sample, long long message, long long time) {
        streams::Place place;
        place.offset = offset;
        place.track = 7;
        place.sample = sample;
        place.message = message;
        place.time = time;
        return place;
    };
    Movie fragments;
    fragments.tracks = {plainTrack(kMp3Sound, 20)};
    fragments.tracks[0].id = 7;
    fragments.samplesPerFragment = 5;
    BuiltMovie cut = buildMovie(fragments);
    cut.bytes.resize(cut.samples[0][17].offset + 9);
    return {
        {"beyond the end",
         tables([](TrackBoxes& t) {
             t.times = tableBox("stts", 2, {1, 20, 3, 30});
             t.offsets = tableBox("stco", 2, {100, 5000});
         }),
         117,
         at(5000, 3, 2, 50),
         {7, 4, 0, 110, 50}},
        {"no duration", tables([](TrackBoxes&) {}), 28, at(-1, 3, 2, 50), {7, 2, 0, 50, 50}},
        {"no first chunk",
         tables([](TrackBoxes& t) { t.chunks = tableBox("stsc", 0, {}); }),
         28,
         at(-1, 1, -1, -1),
         {7, 0, {}, {}, {}}},
        {"in a fragment",
         cut.bytes,
         117,
         at(static_cast<long long>(cut.samples[0][17].offset), 18, 17, 170),
         {7, 20, 0, 200, 170}},
    };
}

TEST(Mp4Data, FaultsOfTheWalkHaveTheirPlace)
{
    for (const Fault& fault : walkFaults()) {
        PlayedFile file(fault.bytes);
        EXPECT_EQ(file.warnings.back(), fault.status) << fault.name;
        EXPECT_EQ(file.data.findExtents(nullptr), std::vector<TrackExtent>{fault.extent}) << fault.name;
        const streams::Place& place = file.places.back();
        EXPECT_EQ(place.offset, fault.place.offset) << fault.name;
        EXPECT_EQ(place.track, fault.place.track) << fault.name;
        EXPECT_EQ(place.sample, fault.place.sample) << fault.name;
        EXPECT_EQ(place.message, fault.place.message) << fault.name;
        EXPECT_EQ(place.time, fault.place.time) << fault.name;
    }
}

TEST(Mp4Data, TellsTheContextWhyItDoesNotOpen)
{
    TrackBoxes image;
    image.description = stsd({box("jpeg", Fields().zeros(8))});
    const struct
    {
        std::string bytes;
        const char* text;
    } cases[] = {
        {"", "-117\tFile is truncated.  Will only be partially playable."},
        {ftyp(), "-13\tNo movie box in file."},
        {trackFile(image), "-14\tNo valid tracks in file."},
        {walkFaults()[2].bytes, "-28\tError reading MP4 tables."},
    };
    for (const auto& c : cases)
        EXPECT_EQ(PlayedFile(c.bytes).context.lines,
                  (std::vector<RecordingContext::Line>{
                      {streams::LOG_ERROR, c.text + std::string("\tdir/movie.mp4")}}));
    MemoryFileIo io;
    RecordingContext context(&io);
    EXPECT_EQ(Mp4Data("none.mp4", &context, &io, 0, {}).init(), kLoadCannotOpen);
    EXPECT_EQ(context.lines,
              (std::vector<RecordingContext::Line>{{streams::LOG_ERROR, "-4\tCannot open file.\tnone.mp4"}}));
}

TEST(Mp4Data, KeepsToTheQuota)
{
    const std::string bytes = plainFile(plainTrack(kMp3Sound, 200'000, 1, 1));
    std::uint64_t used = 0;
    for (const std::uint64_t limit : {1ULL << 30, 1ULL << 16, 1ULL << 18}) {
        util::MemoryQuota quota(limit);
        {
            MemoryFileIo io(bytes);
            Mp4Data data("movie.mp4", nullptr, &io, 0, {});
            data.setQuota(&quota);
            if (limit == 1ULL << 30) {
                EXPECT_EQ(data.init(), kLoadOk);
                used = quota.used();
                EXPECT_GE(used, data.getFile().memory().charged());
                EXPECT_GT(used, 200'000U);
            } else {
                EXPECT_THROW(data.init(), SROutOfMemory) << limit;
            }
            EXPECT_LE(quota.used(), limit);
        }
        EXPECT_EQ(quota.used(), 0U) << limit;
    }

    // Fragments that stay loaded count, too.
    util::MemoryQuota quota(1ULL << 30);
    MemoryBudget budget;
    budget.setQuota(&quota);
    {
        MemoryCharge charge;
        charge.add(budget, 1'000'000);
        charge.exempt();
        EXPECT_EQ(budget.charged(), 0U);
        budget.charge(1'000'000);
        EXPECT_GE(quota.used(), 2'000'000U);
    }
    EXPECT_EQ(budget.charged(), 1'000'000U);
}

TEST(Mp4Data, EndsWhenItIsCancelled)
{
    const BuiltMovie built = wideMovie();
    std::atomic<bool> cancel{true};
    MemoryFileIo io(built.bytes.substr(0, built.bytes.size() / 2));
    Mp4Data data("movie.mp4", nullptr, &io, 0, {});
    data.setCancel(&cancel);
    EXPECT_THROW(data.init(), util::Cancelled);
    EXPECT_THROW(data.findExtents(nullptr), util::Cancelled);
    EXPECT_FALSE(io.isOpen());
    cancel = false;
    EXPECT_EQ(data.findExtents(nullptr).size(), 2U);
}

}  // namespace
}  // namespace krx::test
