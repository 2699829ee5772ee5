// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4.h"
#include "modules/streams/mp4/mp4fileio.h"

#include <algorithm>

// The movie box, the track boxes and the track records.

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;
using krx::util::FilePos;

/// Bytes that a box takes at least.
constexpr long long kSmallestBox = 8;

/// Creation and modification time, by version.
constexpr long long timesSize(unsigned version)
{
    return version == 0 ? 8 : 16;
}

}  // namespace

void MP4File::parseMovie(const BoxHeader& box)
{
    verifyUniqueBox(m_movieSeen);
    m_moviePos = curPos();
    m_movieSeen = true;
    parseBoxes(box);
    validateMovie();
}

void MP4File::validateMovie() const
{
    for (const ChapterEntry& chapter : m_chapters)
        if (chapter.time > m_duration)
            throw StreamParseError(krx::streams::kInvalidChapterTime);
}

void MP4File::parseMovieHeader(const BoxHeader& box)
{
    verifyUniqueBox(m_duration != 0);
    m_movieHeaderPos = box.start;
    const unsigned version = parseVersion(box);
    skip(timesSize(version));
    m_timescale = readU32();
    m_duration = version == 0 ? readU32() : readU64();
    if (m_timescale == 0)
        throw StreamParseError(krx::streams::kInvalidTimescale);
}

void MP4File::parseTrack(const BoxHeader& box)
{
    if (m_tracks.size() >= m_config.MaxTracks)
        throw StreamParseError(krx::streams::kTooManyTracks);
    try {
        // The header may come after the media that it is needed for.
        const FilePos payload = curPos();
        scanAndParse(box, fourCC("tkhd"));
        skipTo(payload);
        parseBoxes(box);
        if (m_curTrack)
            validateTrack(*m_curTrack);
        else
            warn(krx::streams::kIncompleteTrack);
    } catch (const Mp4TrackError& e) {
        if (m_curTrack)
            m_curTrack->valid = false;
        logWarning(e);
    }
    m_curTrack = nullptr;
}

void MP4File::validateTrack(TrackInfo& track)
{
    const bool complete = track.timescale != 0 && track.hasSampleDescription &&
                          track.sampleToChunk.isInit() && track.chunkOffsets.isInit() &&
                          track.timeToSample.isInit() &&
                          (track.sampleSizes.isInit() || track.constantSampleSize != 0);
    if (!complete)
        throw Mp4TrackError(krx::streams::kIncompleteTrack);
    if (track.isVideo && !track.hasTrackExtends && !track.syncSamples.isInit())
        warn(krx::streams::kNoSyncSamples);
    track.valid = true;
}

void MP4File::parseTrackHeader(const BoxHeader& box)
{
    const unsigned version = parseVersion(box);
    skip(timesSize(version));
    setCurTrack(readU32());
    if (!m_curTrack)
        return;
    m_curTrack->tkhdStartPos = box.start;
    // Reserved, duration, reserved, layer, alternate group, volume, reserved.
    skip(version == 0 ? 24 : 28);
    VideoTransform& transform = m_curTrack->transform;
    transform.a = static_cast<int>(readU32());
    transform.b = static_cast<int>(readU32());
    skip(4);
    transform.c = static_cast<int>(readU32());
    transform.d = static_cast<int>(readU32());
}

void MP4File::parseMediaHeader(const BoxHeader& box)
{
    verifyUniqueBox(m_curTrack->duration != 0);
    m_curTrack->setMdhdStartPos(box.start);
    const unsigned version = parseVersion(box);
    skip(timesSize(version));
    m_curTrack->timescale = readU32();
    m_curTrack->duration = version == 0 ? readU32() : readU64();
    m_curTrack->language = readU16();
    if (m_curTrack->timescale == 0)
        throw StreamParseError(krx::streams::kInvalidTimescale);
}

void MP4File::parseFreeSpace(const BoxHeader& box)
{
    // The last open box is the free box itself.
    if (m_openBoxes.size() >= 2 && m_openBoxes[m_openBoxes.size() - 2] == fourCC("moov")) {
        m_memory.charge(kDequeElement<FreeSpace>);
        m_freeBoxesInMoov.push_back({box.start, box.size});
    }
}

bool MP4File::consumeFreeBoxInMoov(long long size, FilePos& pos, FilePos& remaining)
{
    auto best = m_freeBoxesInMoov.end();
    for (auto it = m_freeBoxesInMoov.begin(); it != m_freeBoxesInMoov.end(); ++it) {
        const bool fits = it->size == size || it->size - kSmallestBox >= size;
        if (fits && (best == m_freeBoxesInMoov.end() || it->size < best->size))
            best = it;
    }
    if (size < 0 || best == m_freeBoxesInMoov.end())
        return false;
    pos = best->start;
    best->start += size;
    best->size -= size;
    remaining = best->size;
    if (remaining == 0)
        m_freeBoxesInMoov.erase(best);
    return true;
}

bool MP4File::isAppendable() const
{
    return m_movieExtendsSeen && (!m_videoSeen || m_videoAppendable) && (!m_audioSeen || m_audioAppendable) &&
           (!m_dataSeen || m_dataAppendable);
}

TrackInfo* MP4File::getTrack(unsigned id)
{
    const auto found = m_tracksById.find(id);
    return found == m_tracksById.end() ? nullptr : found->second;
}

void MP4File::setCurTrack(unsigned id)
{
    m_curTrack = id == 0 ? nullptr : getTrack(id);
    if (m_curTrack || id == 0 || m_tracks.size() >= m_config.MaxTracks)
        return;
    m_memory.charge(sizeof(TrackInfo) + kBlockOverhead);
    m_tracks.push_back(std::make_unique<TrackInfo>());
    m_curTrack = m_tracks.back().get();
    m_curTrack->trackId = id;
    m_tracksById.emplace(id, m_curTrack);
}

std::vector<TrackInfo*> MP4File::getTrackVec()
{
    std::vector<TrackInfo*> tracks;
    tracks.reserve(m_tracks.size());
    for (const auto& track : m_tracks)
        tracks.push_back(track.get());
    return tracks;
}

void MP4File::numberContexts()
{
    // Fewer tracks than numbers: the smallest one that is free is below their count.
    std::vector<bool> taken(m_tracks.size());
    for (const auto& track : m_tracks) {
        track->contextNumber = track->trackId;
        if (track->trackId < std::min<std::size_t>(m_config.MaxTracks, taken.size()))
            taken[track->trackId] = true;
    }
    std::size_t next = 0;
    for (const auto& track : m_tracks) {
        if (track->trackId < m_config.MaxTracks)
            continue;
        while (taken[next])
            ++next;
        track->contextNumber = static_cast<unsigned>(next++);
    }
}

bool MP4File::addNewTrack(const TrackInfo& track)
{
    if (m_tracks.size() >= m_config.MaxTracks)
        return false;
    auto copy = std::make_unique<TrackInfo>(track);
    validateTrack(*copy);
    m_tracksById.emplace(copy->trackId, copy.get());
    m_tracks.push_back(std::move(copy));
    return true;
}

unsigned long long MP4File::getMovieDuration(unsigned& timescale) const
{
    timescale = m_timescale;
    return m_duration;
}

bool MP4File::getMovieExtendsBoxPos(FilePos& pos) const
{
    if (m_movieExtendsSeen)
        pos = m_movieExtendsPos;
    return m_movieExtendsSeen;
}

}  // namespace krx::mp4
