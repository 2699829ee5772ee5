// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/mp4filewrapper.h"

#include "modules/streams/mp4/codecname.h"
#include "modules/streams/mp4/mp4Data.h"
#include "modules/streams/mp4/mp4errors.h"
#include "modules/streams/mp4/mp4module.h"
#include "tools/zmvutil/vidlint/src/mp4outline.h"
#include "util/fileholes.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>
#include <vector>

using krx::mp4::TrackExtent;
using krx::mp4::TrackInfo;
using vidlint::Track;

namespace {

vidlint::TrackKind kindOf(krx::mp4::TrackKind kind)
{
    switch (kind) {
        case krx::mp4::TrackKind::kVideo:
            return vidlint::TrackKind::kVideo;
        case krx::mp4::TrackKind::kAudio:
            return vidlint::TrackKind::kAudio;
        case krx::mp4::TrackKind::kText:
            return vidlint::TrackKind::kText;
        case krx::mp4::TrackKind::kData:
            return vidlint::TrackKind::kData;
        case krx::mp4::TrackKind::kOther:
            break;
    }
    return vidlint::TrackKind::kOther;
}

Track trackOf(const krx::mp4::TrackFacts& facts, unsigned id,
              const std::shared_ptr<const krx::streams::Finding>& droppedBy)
{
    Track track;
    track.id = id;
    track.kind = kindOf(facts.kind);
    if (facts.codec != 0)
        track.codec = krx::mp4::fourCCName(facts.codec).toMultiByte().view();
    track.width = facts.width;
    track.height = facts.height;
    track.sampleRate = facts.sampleRate;
    track.channels = facts.channels;
    if (droppedBy)
        track.droppedBy = *droppedBy;
    return track;
}

Track trackOf(const TrackInfo& info)
{
    Track track = trackOf(info, info.trackId, info.droppedBy);
    if (!info.sampleDescriptions.empty())
        track.rfc6381 = krx::mp4::rfc6381Of(info.sampleDescriptions[0]);
    track.language = krx::mp4::languageOf(info.language);
    return track;
}

/// Milliseconds; absent where they are not known or no number of 64 bits.
std::optional<long long> toMillis(unsigned long long duration, unsigned timescale)
{
    constexpr unsigned long long kMost = std::numeric_limits<long long>::max() / 1000 - 1;
    if (duration == 0 || timescale == 0 || duration / timescale > kMost)
        return std::nullopt;
    return static_cast<long long>(duration / timescale * 1000 + duration % timescale * 1000 / timescale);
}

}  // namespace

MP4FileWrapper::MP4FileWrapper(const SRString& path, krx::streams::VideoValidationParameters parameters,
                               const CheckEnvironment& environment)
    : VideoFile(path, parameters, environment)
{
}

MP4FileWrapper::~MP4FileWrapper() = default;

void MP4FileWrapper::parse()
{
    krx::mp4::Mp4Config config;
    if (m_environment.serverSettings)
        config = krx::mp4::Mp4Module(this).getConfig();
    config.EnableAggMsgs = false;
    config.MaxAggMsgSize = 0;
    config.validation = m_parameters;
    m_data = std::make_unique<krx::mp4::Mp4Data>(m_path.toMultiByte(), nullptr, getFileIo(), 0, config);
    if (m_environment.sink.wantsFacts())
        m_data->getFile().setFindingSink(&m_environment.sink);
    m_data->setQuota(m_environment.quota);
    m_data->setCancel(m_environment.cancel);
    m_open.emplace(m_data->getFileIO());
    if (!m_open->isOpen())
        throw krx::streams::StreamParseError(krx::streams::kCannotOpenFile);
    try {
        m_data->subInitPlayback(krx::mp4::kFirstLoad);
    } catch (const krx::mp4::NoTracksError&) {
        m_lacksMessages = true;
        throw;
    }
    m_isSound = true;
    if (isListing())
        logInfo("Memory Overhead: " + std::to_string(m_data->getMemoryOverhead()) + " bytes\n");
}

void MP4FileWrapper::describe(vidlint::InputReport& report)
{
    if (!m_data)
        return;
    const krx::mp4::Movie& movie = m_data->getFile().movie();
    report.announcedDuration = toMillis(movie.duration, movie.timescale);
    describeTracks(report);
    if (m_isSound)
        report.messages = m_data->getEndPosition();

    const int file = m_data->getFileIO()->handle();
    const long long size = report.size.value_or(0);
    krx::util::FileHoles holes(file, size);
    // A movie in fragments that ends before the first one.
    const bool lacksFragments = m_lacksMessages && movie.extendsSeen &&
                                std::all_of(movie.tracks.begin(), movie.tracks.end(), [](const auto& track) {
                                    return track->fragments.empty() && track->sampleTotal == 0;
                                });
    if (!m_isSound && (lacksFragments || isOutlineCutShort(*getFileIo(), file, size, holes)))
        report.cause = vidlint::Cause::kCutShort;
    for (const TrackExtent& extent : m_data->findExtents(&holes))
        addExtent(report, extent);
}

/// All track boxes, in file order.
void MP4FileWrapper::describeTracks(vidlint::InputReport& report) const
{
    const krx::mp4::Movie& movie = m_data->getFile().movie();
    std::vector<std::pair<krx::util::FilePos, Track>> tracks;
    for (const auto& track : movie.tracks)
        if (track->boxStart >= 0)
            tracks.emplace_back(track->boxStart, trackOf(*track));
    for (const krx::mp4::DroppedTrack& track : movie.droppedTracks)
        tracks.emplace_back(track.boxStart, trackOf(track, track.id, track.droppedBy));
    std::stable_sort(tracks.begin(), tracks.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [start, track] : tracks)
        report.tracks.push_back(std::move(track));
}

/// Completes the track with what there is of it.
void MP4FileWrapper::addExtent(vidlint::InputReport& report, const TrackExtent& extent) const
{
    const auto found = std::find_if(report.tracks.begin(), report.tracks.end(), [&](const Track& track) {
        return track.id == extent.trackId && !track.droppedBy;
    });
    if (found == report.tracks.end())
        return;
    found->samples = static_cast<long long>(extent.samples);
    found->firstTime = extent.firstTime;
    found->lastTime = extent.lastTime;
    found->plays = m_isSound && extent.playsUntil;
    if (found->plays)
        found->playsUntil = extent.playsUntil;
    if (extent.lastTime)
        report.duration = std::max(report.duration.value_or(0), *extent.lastTime);
    if (extent.playsUntil && extent.playsUntil < extent.lastTime)
        report.cause = vidlint::Cause::kCutShort;
}
