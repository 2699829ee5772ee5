// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Compares walks of random movies with a model that expands them without tables.

#include "server/KRXSyncFileIo.h"
#include "server/SRMessage.h"
#include "tests/streams/mp4/playfixture.h"
#include "tests/support/propertysettings.h"
#include "tests/support/tempdir.h"
#include "util/messagerecord.h"

#include <boost/endian/conversion.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace krx::test {
namespace {

using Message = RecordingHolder::Message;
using Random = std::mt19937;

unsigned below(Random& random, unsigned n)
{
    return static_cast<unsigned>(random() % n);
}

bool chance(Random& random, unsigned percent)
{
    return below(random, 100) < percent;
}

/// How the messages of one kind of sample entry look.
struct Codec
{
    std::string entry;
    unsigned type;       ///< of the message; 0: no messages
    std::string config;  ///< decoder configuration; empty: none
    std::string prefix;  ///< of a sample that is no key frame
    std::string keyPrefix;
    bool ender = false;

    bool isAVC() const { return type == 9 && !config.empty(); }
};

Codec avc(unsigned level)
{
    return {avcEntry(77, level), 9, avcConfiguration(77, level), "\x27\x01", "\x17\x01", true};
}

std::vector<Codec> videoCodecs()
{
    return {avc(30),
            {videoEntry("H263"), 9, "", "\x22", "\x12"},
            avc(31),
            {videoEntry("ASS1"), 9, "", "\x23", "\x13"}};
}

std::vector<Codec> audioCodecs()
{
    return {{aacEntry(), 8, "\x12\x10", "\xAF\x01", "\xAF\x01", true},
            {audioEntry(".mp3"), 8, "", "\x2F", "\x2F", true},
            {audioEntry("spex", {}, 16000, 1), 8, "", "\xB2", "\xB2", true}};
}

std::vector<Codec> otherCodecs()
{
    return {{box("amf0", Fields().zeros(6).u16(1)), 18, "", "", ""},
            {box("amf3", Fields().zeros(6).u16(1)), 15, "", "", ""},
            {box("jpeg", Fields().zeros(6).u16(1)), 0, "", "", ""}};
}

struct Step
{
    unsigned long long time;  ///< ms
    Message message;
    std::size_t estimate = 0;  ///< bytes that cutting counts
};

/// 1000 * t / timescale in double precision, to the nearest integer, ties to even.
double wholeMillis(double t, unsigned timescale)
{
    return std::nearbyint(1000.0 * t / timescale);
}

/// The same for a time, limited to 32 bits.
unsigned millis(unsigned long long t, unsigned timescale)
{
    return static_cast<unsigned>(std::min(wholeMillis(static_cast<double>(t), timescale), 4294967295.0));
}

/// From time t to t + offset.
int shiftMillis(unsigned long long t, int offset, unsigned timescale)
{
    constexpr unsigned long long kNoShiftFrom = 1ULL << 62;
    if (t >= kNoShiftFrom)
        return 0;
    const auto composed = static_cast<double>(static_cast<long long>(t) + offset);
    const double shift = std::min(wholeMillis(composed, timescale), 4294967295.0) - millis(t, timescale);
    return static_cast<int>(std::clamp(shift, -2147483648.0, 2147483647.0));
}

struct Plan
{
    MovieTrack track;
    std::vector<Codec> codecs;  ///< of its descriptions
    bool dropped = false;       ///< by the parser
};

Message headerMessage(const Codec& codec)
{
    return {codec.type,
            (codec.type == 9 ? std::string("\x17\0\0\0\0", 5) : std::string("\xAF\0", 2)) + codec.config, 0};
}

Step enderStep(const Codec& codec, unsigned long long time)
{
    const std::size_t header = codec.isAVC() ? 5 : codec.prefix.size();
    const std::string picture = codec.isAVC() ? std::string("\x17\x02\0\0\0", 5) : codec.keyPrefix;
    return {time, {codec.type, codec.type == 9 ? picture : "", 0}, header};
}

Step sampleStep(const Plan& plan, std::size_t t, std::size_t i, unsigned long long decode)
{
    const MovieSample& sample = plan.track.samples[i];
    const Codec& codec = plan.codecs[sample.description - 1];
    const unsigned time = millis(decode, plan.track.timescale);
    std::string bytes = sample.sync && codec.type == 9 ? codec.keyPrefix : codec.prefix;
    if (codec.isAVC()) {
        const int shift = plan.track.compositionTable
                              ? shiftMillis(decode, sample.compositionOffset, plan.track.timescale)
                              : 0;
        bytes += Fields().u24(static_cast<std::uint64_t>(shift)).bytes();
    }
    const std::size_t estimate = bytes.size() + sample.size;
    for (std::size_t k = 0; k < sample.size; ++k)
        bytes += sampleByte(t, i, k);
    return {time, {codec.type, bytes, 0}, estimate};
}

/// Start and end of a sample, ms.
using Span = std::pair<unsigned, unsigned>;

/// The steps of a track in order, the time of its end in ms, and the spans of its samples.
std::vector<Step> expand(const Plan& plan, std::size_t t, unsigned long long& end,
                         std::vector<Span>* spans = nullptr)
{
    end = 0;
    std::vector<Step> steps;
    if (plan.dropped)
        return steps;
    const std::vector<Edit>& edits = plan.track.edits;
    const bool delayed = !edits.empty() && edits[0].mediaTime == -1;
    std::size_t edit = delayed ? 1 : 0;
    long long media = 0;
    unsigned long long decode = delayed ? edits[0].duration : 0;
    const Codec* open = nullptr;  ///< whose stretch goes on
    for (std::size_t i = 0; i < plan.track.samples.size(); ++i) {
        const MovieSample& sample = plan.track.samples[i];
        const Codec& codec = plan.codecs[sample.description - 1];
        if (open != &codec) {
            if (open && open->ender)
                steps.push_back(enderStep(*open, steps.back().time));
            if (!codec.config.empty())
                steps.push_back({millis(decode, plan.track.timescale), headerMessage(codec),
                                 headerMessage(codec).bytes.size()});
        }
        open = &codec;
        steps.push_back(sampleStep(plan, t, i, decode));
        media += sample.duration;
        decode += sample.duration;
        if (spans)
            spans->emplace_back(steps.back().time, millis(decode, plan.track.timescale));
        if (edit + 2 <= edits.size() && i + 1 < plan.track.samples.size()) {
            const long long gap = edits[edit].mediaTime + static_cast<long long>(edits[edit].duration);
            if (media >= gap) {
                decode += edits[edit + 1].duration - static_cast<unsigned long long>(media - gap);
                edit += 2;
                // Also where only the samples after the gap have a codec with enders.
                if (open->ender || plan.codecs[plan.track.samples[i + 1].description - 1].ender)
                    steps.push_back(enderStep(*open, steps.back().time));
                open = nullptr;
            }
        }
    }
    if (open && open->ender)
        steps.push_back(enderStep(*open, steps.back().time));
    end = millis(decode, plan.track.timescale);
    return steps;
}

struct Expected
{
    std::vector<Message> messages;
    std::vector<SegmentBounds> segments;
};

Expected expand(const std::vector<Plan>& plans)
{
    std::vector<std::vector<Step>> tracks;
    unsigned long long end = 0;
    for (std::size_t t = 0; t < plans.size(); ++t) {
        unsigned long long trackEnd;
        tracks.push_back(expand(plans[t], t, trackEnd));
        end = std::max(end, trackEnd);
    }
    Expected expected;
    std::vector<std::size_t> at(tracks.size());
    std::size_t bytes = 0;
    unsigned now = 0;
    SegmentBounds segment;
    while (true) {
        std::size_t first = tracks.size();
        for (std::size_t t = 0; t < tracks.size(); ++t)
            if (at[t] < tracks[t].size() &&
                (first == tracks.size() || tracks[t][at[t]].time < tracks[first][at[first]].time))
                first = t;
        const bool atEnd = first == tracks.size();
        now = std::max(now, static_cast<unsigned>(atEnd ? end : tracks[first][at[first]].time));
        const auto count = static_cast<long long>(expected.messages.size());
        if (bytes > 262144 || (atEnd && count > segment.start)) {
            expected.segments.push_back({segment.start, count - 1, segment.startTime, now});
            segment = {count, 0, now, 0};
            bytes = 0;
        }
        if (atEnd)
            return expected;
        const Step& step = tracks[first][at[first]++];
        if (step.message.type == 0)
            continue;
        expected.messages.push_back(step.message);
        expected.messages.back().time = static_cast<unsigned>(step.time);
        bytes += step.estimate;
    }
}

/// How large the random tracks are.
struct Shape
{
    unsigned groups;  ///< chunks
    unsigned samplesPerChunk;
    unsigned sampleSize;
    unsigned descriptions;
    unsigned gaps;
};

constexpr Shape kSmall{15, 6, 40, 2, 2};
constexpr Shape kLarge{15, 6, 60'000, 2, 2};
/// Table entries and messages for several pages of tables.
constexpr Shape kPaged{12'000, 3, 250, 5, 150};

/// Gaps, each stepped over by a sample.
std::vector<Edit> randomEdits(Random& random, const std::vector<MovieSample>& samples, unsigned gaps)
{
    std::vector<Edit> edits;
    if (chance(random, 30))
        edits.push_back({chance(random, 80) ? below(random, 5000) : random() >> (1 + below(random, 40)), -1});
    unsigned long long time = 0;
    unsigned long long last = 0;
    for (std::size_t i = 0; i + 1 < samples.size() && edits.size() < 2 * gaps + 1; ++i) {
        time += samples[i].duration;
        if (samples[i].duration == 0 || !chance(random, 4))
            continue;
        const unsigned long long gap = time - below(random, samples[i].duration);
        edits.push_back({gap - last, static_cast<long long>(last)});
        edits.push_back({below(random, 3000), -1});
        last = gap;
    }
    edits.push_back({time, static_cast<long long>(last)});
    return edits;
}

Plan randomTrack(Random& random, const std::vector<Codec>& codecs, unsigned id, const Shape& shape)
{
    Plan plan;
    MovieTrack& track = plan.track;
    track.id = id;
    track.timescale =
        std::vector<unsigned>{1000, 44100, 25000, 90000, 7, 4294967295, 3000000019}[below(random, 7)];
    track.samplesPerChunk = 1 + below(random, shape.samplesPerChunk);
    track.syncTable = chance(random, 70);
    track.compositionTable = chance(random, 50);
    track.wideOffsets = chance(random, 50);
    const unsigned descriptions = chance(random, 50) ? 1 : 1 + below(random, shape.descriptions);
    for (unsigned i = 0; i < descriptions; ++i)
        plan.codecs.push_back(codecs[below(random, static_cast<unsigned>(codecs.size()))]);
    for (const Codec& codec : plan.codecs)
        track.entries.push_back(codec.entry);

    const unsigned groups = 1 + below(random, shape.groups);
    for (unsigned g = 0; g < groups; ++g) {
        const unsigned description = 1 + below(random, descriptions);
        for (unsigned i = 0; i < track.samplesPerChunk; ++i) {
            MovieSample sample;
            sample.size = below(random, shape.sampleSize);
            sample.duration =
                chance(random, 20) ? 0 : below(random, std::min(track.timescale / 5 + 2, 0x7FFFFFFFU));
            sample.compositionOffset = static_cast<int>(below(random, 200)) - 50;
            sample.sync = !track.syncTable ? false : chance(random, 30);
            sample.description = description;
            track.samples.push_back(sample);
        }
    }
    if (track.syncTable)
        track.samples[0].sync = true;  // an empty table would count as none
    if (chance(random, 30))
        track.edits = randomEdits(random, track.samples, shape.gaps);
    return plan;
}

std::vector<Plan> randomMovie(Random& random, const Shape& shape)
{
    std::vector<Plan> plans;
    unsigned id = 1;
    const bool video = chance(random, 80);
    if (video)
        plans.push_back(randomTrack(random, videoCodecs(), id++, shape));
    if (chance(random, 30)) {
        // The parser drops a track that it does not know.
        plans.push_back(
            randomTrack(random, {{box("mp4v", Fields().zeros(80)), 9, "", "", ""}}, id++, kSmall));
        plans.back().dropped = true;
    }
    for (unsigned i = below(random, 3); i > 0; --i)
        plans.push_back(randomTrack(random, otherCodecs(), id++, shape));
    if (!video || chance(random, 80))
        plans.push_back(randomTrack(random, audioCodecs(), id++, shape));
    return plans;
}

/// How a random movie is laid out.
enum class Layout
{
    kTables,
    kFragments,
    kTablePages,  ///< with fragments after the tables, or without
};

Movie randomLayout(Random& random, std::vector<Plan>& plans, Layout layout)
{
    Movie movie;
    movie.movieFirst = chance(random, 50);
    const bool paged = layout == Layout::kTablePages;
    if (layout == Layout::kFragments || (paged && chance(random, 50))) {
        movie.samplesPerFragment = 1 + below(random, (paged ? kPaged : kSmall).samplesPerChunk);
        if (paged)
            movie.samplesInTables = movie.samplesPerFragment * below(random, kPaged.groups);
        for (Plan& plan : plans) {
            plan.track.samplesPerChunk = movie.samplesPerFragment;
            for (std::size_t i = 0; i < plan.track.samples.size(); ++i) {
                // A fragment has one description, and marks each sample as sync sample or not.
                MovieSample& sample = plan.track.samples[i];
                sample.description = plan.track.samples[i - i % movie.samplesPerFragment].description;
            }
        }
    }
    for (const Plan& plan : plans)
        movie.tracks.push_back(plan.track);
    return movie;
}

/// The messages of a segment, those of aggregates taken out of them.
std::vector<Message> singleMessages(std::vector<Message> messages)
{
    std::vector<Message> single;
    for (Message& message : messages) {
        if (message.type != kMsgAggregate) {
            single.push_back(std::move(message));
            continue;
        }
        const auto* bytes = reinterpret_cast<const unsigned char*>(message.bytes.data());
        util::MessageRecord record;
        for (std::size_t at = 0; at < message.bytes.size(); at += record.size()) {
            EXPECT_EQ(util::readRecord(bytes + at, message.bytes.size() - at, record),
                      util::RecordState::kWhole);
            single.push_back({record.header.type,
                              message.bytes.substr(at + util::RecordHeader::kSize, record.header.length),
                              record.header.timestamp});
        }
    }
    return single;
}

}  // namespace

class RandomMovies : public testing::TestWithParam<Layout>
{
};

TEST_P(RandomMovies, PlayAsTheirSamplesSay)
{
    const bool paged = GetParam() == Layout::kTablePages;
    std::size_t mostPages = 0;
    const unsigned long cases = propertyCases(paged ? 20 : 200);
    for (unsigned seed = propertySeed(); seed - propertySeed() < cases; ++seed) {
        Random random(seed);
        std::vector<Plan> plans = randomMovie(random, paged ? kPaged : chance(random, 20) ? kLarge : kSmall);
        const std::string bytes = buildMovie(randomLayout(random, plans, GetParam())).bytes;
        const Expected expected = expand(plans);
        for (const bool aggregates : {false, true}) {
            const std::string name = "seed " + std::to_string(seed) + (aggregates ? " aggregated" : "");
            PlayedFile file(bytes, aggregates);

            ASSERT_EQ(file.segments(), expected.segments) << name;
            std::vector<SegmentBounds> order = expected.segments;
            std::shuffle(order.begin(), order.end(), random);
            for (const SegmentBounds& bounds : order) {
                const std::vector<Message> messages = singleMessages(file.load(bounds));
                const auto start = static_cast<std::size_t>(bounds.start);
                ASSERT_EQ(messages.size(), static_cast<std::size_t>(bounds.end) + 1 - start) << name;
                for (std::size_t i = 0; i < messages.size(); ++i)
                    ASSERT_EQ(messages[i], expected.messages[start + i]) << name << ", message " << start + i;
                if (chance(random, 30))
                    file.data.clearTableSegment(below(random, 4));
            }
            EXPECT_TRUE(file.context.lines.empty()) << name << ": " << file.context.lines[0];
            for (const mp4::TrackInfo* track : file.data.getFile().getTrackVec())
                mostPages = std::max(mostPages, track->chunkOffsets.pageCount());
        }
    }
    EXPECT_EQ(mostPages >= 3, paged) << mostPages;
}

namespace {

/// Where the boxes of the fragments end.
std::vector<std::uint64_t> fragmentEnds(const std::string& bytes)
{
    std::vector<std::uint64_t> ends;
    for (std::size_t at = bytes.find("moof"); at != std::string::npos; at = bytes.find("moof", at + 4)) {
        const auto* box = reinterpret_cast<const unsigned char*>(bytes.data() + at - 4);
        ends.push_back(at - 4 + boost::endian::load_big_u32(box));
    }
    return ends;
}

/// The extent of the track when the file ends at the size given.
mp4::TrackExtent cutExtent(const Plan& plan, std::size_t t, const BuiltMovie& built,
                           const std::vector<std::uint64_t>& fragments, std::uint64_t size)
{
    unsigned long long end;
    std::vector<Span> spans;
    expand(plan, t, end, &spans);
    mp4::TrackExtent extent;
    extent.trackId = plan.track.id;
    bool plays = false;
    for (const Codec& codec : plan.codecs)
        plays = plays || codec.type != 0;
    std::optional<long long> playsUntil;
    for (std::size_t i = 0; i < spans.size(); ++i) {
        const BuiltMovie::Place place = built.samples[t][i];
        // The box of a fragment stands before its samples.
        const auto after = std::upper_bound(fragments.begin(), fragments.end(), place.offset);
        if (after != fragments.begin() && after[-1] > size)
            break;
        const bool isPlayed = plan.codecs[plan.track.samples[i].description - 1].type != 0;
        if (isPlayed && !playsUntil && place.offset + place.size > size)
            playsUntil = i == 0 ? spans[0].first : spans[i - 1].second;
        if (i == 0)
            extent.firstTime = spans[0].first;
        extent.lastTime = spans[i].second;
        ++extent.samples;
    }
    if (plays && extent.samples != 0)
        extent.playsUntil = playsUntil ? playsUntil : extent.lastTime;
    return extent;
}

}  // namespace

TEST_P(RandomMovies, PlayUntilTheFirstMissingSample)
{
    const bool paged = GetParam() == Layout::kTablePages;
    const unsigned long cases = propertyCases(paged ? 20 : 200);
    for (unsigned seed = propertySeed(); seed - propertySeed() < cases; ++seed) {
        Random random(seed);
        std::vector<Plan> plans = randomMovie(random, paged ? kPaged : kSmall);
        Movie movie = randomLayout(random, plans, GetParam());
        movie.movieFirst = true;
        const BuiltMovie built = buildMovie(movie);
        const std::vector<std::uint64_t> fragments = fragmentEnds(built.bytes);
        const std::size_t least = built.bytes.find("mdat") + 4;
        const std::size_t size =
            chance(random, 10) ? built.bytes.size() : least + random() % (built.bytes.size() - least + 1);
        PlayedFile file(built.bytes.substr(0, size));
        const std::vector<mp4::TrackExtent> extents = file.data.findExtents(nullptr);
        std::size_t found = 0;
        for (std::size_t t = 0; t < plans.size(); ++t) {
            if (plans[t].dropped)
                continue;
            ASSERT_LT(found, extents.size()) << seed;
            ASSERT_EQ(extents[found++], cutExtent(plans[t], t, built, fragments, size))
                << "seed " << seed << ", cut at " << size;
        }
        ASSERT_EQ(found, extents.size()) << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(OfAllLayouts, RandomMovies,
                         testing::Values(Layout::kTables, Layout::kFragments, Layout::kTablePages));

/// The same media after a hole of 5 GiB, which takes no space on the disk.
TEST(LargeFile, PlaysBehind4GiB)
{
    constexpr std::uint64_t kHole = 5ULL << 30;
    Movie movie = soundMovie();
    movie.movieFirst = false;
    for (MovieTrack& track : movie.tracks)
        track.wideOffsets = true;
    const std::string bytes = buildMovie(movie).bytes;

    std::string moved = bytes;
    for (std::size_t at = moved.find("co64"); at != std::string::npos; at = moved.find("co64", at + 4)) {
        auto* entry = reinterpret_cast<unsigned char*>(moved.data() + at + 12);
        for (unsigned left = boost::endian::load_big_u32(entry - 4); left > 0; --left, entry += 8)
            boost::endian::store_big_u64(entry, boost::endian::load_big_u64(entry) + kHole);
    }
    const std::size_t typeBox = bytes.find("mdat") - 4;
    const std::string head =
        moved.substr(0, typeBox) + Fields().u32(1).bytes() + "free" + Fields().u64(kHole).bytes();
    const std::string tail = moved.substr(typeBox);
    const TempDir dir;
    dir.write("large.mp4", head);
    const int fd = ::open(dir.bytes("large.mp4").c_str(), O_WRONLY | O_CLOEXEC);
    const auto place = static_cast<off64_t>(typeBox + kHole);
    ASSERT_EQ(::pwrite64(fd, tail.data(), tail.size(), place), static_cast<ssize_t>(tail.size()));
    ::close(fd);

    SimpleKrxSyncFileIo fileIo;
    mp4::Mp4Config config;
    config.EnableAggMsgs = false;
    mp4::Mp4Data data(SRMBString(dir.bytes("large.mp4").c_str()), nullptr, &fileIo, 0, config);
    ASSERT_EQ(data.init(), mp4::kLoadOk);
    RecordingHolder holder;
    SegmentBounds bounds;
    for (long long i = 0; i < data.getEndPosition(); i = bounds.end + 1) {
        ASSERT_TRUE(data.findSegmentByPos(i, &bounds));
        ASSERT_TRUE(data.loadSegment(&bounds, &holder));
    }
    EXPECT_GT(data.getSize(), static_cast<long long>(kHole));
    EXPECT_EQ(holder.messages, PlayedFile(bytes).messages());
}

}  // namespace krx::test
