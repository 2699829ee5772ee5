// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4.h"

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "util/SRBuffer.h"
#include "util/krxassert.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;
using krx::util::FilePos;

constexpr const char* kMp4Place = "modules/streams/mp4/mp4";
constexpr int kNoReaderLine = 412;

}  // namespace

MP4File::MP4File(const Mp4Config& config, IQVStreamContext* context) : m_context(context), m_reader(config) {}

MP4File::~MP4File() = default;

void MP4File::parse(long long start)
{
    if (!m_reader.file()) {
        krx::util::assertFailed(kMp4Place, kNoReaderLine);
        return;
    }
    m_reader.start(start);
    try {
        readBoxes(start);
    } catch (StreamParseError& error) {
        m_reader.addPlace(error);
        throw;
    }
    if (!m_movie.seen)
        throw StreamParseError(krx::streams::kNoMovieBox);
    numberContexts();
}

void MP4File::readBoxes(FilePos start)
{
    if (start == 0)
        checkForZMV();
    BoxHeader root;
    root.start = start;
    root.end = m_reader.fileSize();
    root.size = root.end - root.start;
    memory().setFileSize(root.end);
    m_walk.readChildren(root);
}

void MP4File::checkForZMV()
{
    std::array<char, 3> signature{};
    m_reader.read(signature.data(), signature.size());
    m_reader.skipTo(0);
    if (std::string_view(signature.data(), signature.size()) == "ZMV")
        throw StreamParseError(krx::streams::kZmvWithWrongExtension);
}

bool MP4File::consumeFreeBoxInMoov(long long size, FilePos& pos, FilePos& remaining)
{
    auto best = m_movie.freeBoxes.end();
    for (auto it = m_movie.freeBoxes.begin(); it != m_movie.freeBoxes.end(); ++it) {
        const bool fits = it->size == size || it->size - kBoxHeaderSize >= size;
        if (fits && (best == m_movie.freeBoxes.end() || it->size < best->size))
            best = it;
    }
    if (size < 0 || best == m_movie.freeBoxes.end())
        return false;
    pos = best->start;
    best->start += size;
    best->size -= size;
    remaining = best->size;
    if (remaining == 0)
        m_movie.freeBoxes.erase(best);
    return true;
}

bool MP4File::isAppendable() const
{
    return m_movie.extendsSeen && (!m_movie.videoSeen || m_movie.videoAppendable) &&
           (!m_movie.audioSeen || m_movie.audioAppendable) && (!m_movie.dataSeen || m_movie.dataAppendable);
}

void MP4File::setCurTrack(unsigned id)
{
    m_walk.setTrack(m_movie.provideTrack(id, m_reader.config().MaxTracks, memory()));
}

std::vector<TrackInfo*> MP4File::getTrackVec()
{
    std::vector<TrackInfo*> tracks;
    tracks.reserve(m_movie.tracks.size());
    for (const auto& track : m_movie.tracks)
        tracks.push_back(track.get());
    return tracks;
}

void MP4File::numberContexts()
{
    // The smallest free number is always below the count of tracks.
    const unsigned maxTracks = m_reader.config().MaxTracks;
    std::vector<bool> taken(m_movie.tracks.size());
    for (const auto& track : m_movie.tracks) {
        track->contextNumber = track->trackId;
        if (track->trackId < std::min<std::size_t>(maxTracks, taken.size()))
            taken[track->trackId] = true;
    }
    std::size_t next = 0;
    for (const auto& track : m_movie.tracks) {
        if (track->trackId < maxTracks)
            continue;
        while (taken[next])
            ++next;
        track->contextNumber = static_cast<unsigned>(next++);
    }
}

bool MP4File::addNewTrack(const TrackInfo& track)
{
    if (m_movie.tracks.size() >= m_reader.config().MaxTracks)
        return false;
    auto copy = std::make_unique<TrackInfo>(track);
    validateTrack(m_reader, *copy);
    m_movie.tracksById.emplace(copy->trackId, copy.get());
    m_movie.tracks.push_back(std::move(copy));
    return true;
}

unsigned long long MP4File::getMovieDuration(unsigned& timescale) const
{
    timescale = m_movie.timescale;
    return m_movie.duration;
}

bool MP4File::getMovieExtendsBoxPos(FilePos& pos) const
{
    if (m_movie.extendsSeen)
        pos = m_movie.extendsPos;
    return m_movie.extendsSeen;
}

bool MP4File::hasXMPData() const
{
    return m_movie.xmp && m_movie.xmp->capacity() != 0;
}

std::size_t MP4File::reportMemorySize() const
{
    return sizeof(*this) + m_reader.reportMemorySize() + m_movie.reportMemorySize();
}

}  // namespace krx::mp4
