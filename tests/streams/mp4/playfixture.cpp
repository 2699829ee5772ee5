// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/playfixture.h"

#include <gtest/gtest.h>

#include <iterator>

namespace krx::test {
namespace {

mp4::Mp4Config configOf(bool aggregates, unsigned maxAggregate)
{
    mp4::Mp4Config config;
    config.EnableAggMsgs = aggregates;
    config.MaxAggMsgSize = maxAggregate;
    return config;
}

/// Keeps the bodies of one track.
class BodyHolder : public IContextHolder
{
public:
    explicit BodyHolder(unsigned track) : m_track(track) {}
    void add(unsigned char, void* data, unsigned length, unsigned, long long, unsigned track,
             ContextType_t) override
    {
        if (track == m_track)
            bodies.emplace_back(static_cast<char*>(data), length);
    }
    std::vector<std::string> bodies;

private:
    unsigned m_track;
};

}  // namespace

PlayedFile::PlayedFile(std::string bytes, bool aggregates, unsigned maxAggregate)
    : io(std::move(bytes)),
      context(&io),
      data("dir/movie.mp4", &context, &io, 0, configOf(aggregates, maxAggregate))
{
    data.getFile().setFindingSink(&sink);
    status = data.init();
    warnings = sink.statuses();
    for (const streams::Finding& finding : sink.findings)
        places.push_back(finding.place);
}

std::vector<SegmentBounds> PlayedFile::segments() const
{
    std::vector<SegmentBounds> found;
    SegmentBounds bounds;
    for (long long i = 0; data.findSegmentByPos(i, &bounds); i = bounds.end + 1)
        found.push_back(bounds);
    return found;
}

std::vector<RecordingHolder::Message> PlayedFile::load(const SegmentBounds& bounds, bool loaded)
{
    RecordingHolder holder;
    EXPECT_EQ(data.loadSegment(&bounds, &holder), loaded);
    return holder.messages;
}

std::vector<RecordingHolder::Message> PlayedFile::messages()
{
    std::vector<RecordingHolder::Message> all;
    for (const SegmentBounds& bounds : segments()) {
        auto part = load(bounds);
        std::move(part.begin(), part.end(), std::back_inserter(all));
    }
    return all;
}

std::vector<std::string> PlayedFile::contexts(unsigned track) const
{
    BodyHolder holder(track);
    data.getMediaContexts(kContextHeader, -1, &holder, true);
    for (long long i = 0; i <= data.getEndPosition(); ++i)
        for (const ContextType_t type : {kContextHeader, kContextEnder})
            data.getMediaContexts(type, i, &holder, true);
    return holder.bodies;
}

std::string PlayedFile::metadata() const
{
    const ContextMessage* message = data.getOnMetaData();
    return message ? std::string(reinterpret_cast<const char*>(message->data()), message->length) : "";
}

MovieTrack plainTrack(const std::string& entry, std::size_t samples, std::uint32_t size,
                      std::uint32_t duration)
{
    MovieTrack track;
    track.entries = {entry};
    MovieSample sample;
    sample.size = size;
    sample.duration = duration;
    track.samples.assign(samples, sample);
    return track;
}

std::string plainFile(const MovieTrack& track)
{
    Movie movie;
    movie.tracks = {track};
    return buildMovie(movie).bytes;
}

}  // namespace krx::test
