// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxwalk.h"

#include "modules/streams/mp4/boxtable.h"
#include "modules/streams/mp4/mp4errors.h"

#include <array>
#include <memory>

namespace krx::mp4 {

using krx::streams::FindingLevel;
using krx::streams::StreamParseError;

TrackInfo& BoxWalk::needTrack() const
{
    if (!m_track)
        throw StreamParseError(krx::streams::kBadBoxHierarchy);
    return *m_track;
}

void BoxWalk::setTrack(TrackInfo* track)
{
    if (m_track != track && isTrackUnfinished() && m_reader.hasOpenBox())
        dropTrack(krx::streams::kIncompleteTrack);
    m_track = track;
    m_reader.setTrackId(track ? track->trackId : 0);
}

void BoxWalk::startTrackBox(const BoxHeader& box)
{
    m_trackFacts = {};
    m_trackFacts.boxStart = box.start;
}

void BoxWalk::endTrackBox()
{
    // A box may complete the track that an earlier one left incomplete.
    const bool isCompleted = m_track && m_track->valid && m_track->droppedBy;
    if (isCompleted)
        m_track->droppedBy.reset();
    if (isCompleted || hasOwnRecord())
        static_cast<TrackFacts&>(*m_track) = m_trackFacts;
    setTrack(nullptr);
    m_trackFacts = {};
}

/// False when there is no track, or its record is that of an earlier box.
bool BoxWalk::hasOwnRecord() const
{
    return m_track && (m_track->boxStart < 0 || m_track->boxStart == m_trackFacts.boxStart);
}

/// Whether the record has no outcome yet.
bool BoxWalk::isTrackUnfinished() const
{
    return m_track && !m_track->valid && !m_track->droppedBy;
}

bool BoxWalk::hasRoomForDropped() const
{
    return m_movie.droppedTracks.size() < m_reader.config().MaxTracks;
}

void BoxWalk::dropTrack(krx::streams::ParseStatus status)
{
    if (!isTrackUnfinished() && !hasRoomForDropped())
        return;
    StreamParseError error(status);
    dropTrack(error, FindingLevel::kWarning);
}

void BoxWalk::dropTrack(StreamParseError& error, FindingLevel level)
{
    m_reader.addPlace(error);
    if (hasOwnRecord())
        static_cast<TrackFacts&>(*m_track) = m_trackFacts;
    const bool isListed = !hasOwnRecord() && hasRoomForDropped();
    if (!isListed && !isTrackUnfinished())
        return;
    const auto finding =
        std::make_shared<const krx::streams::Finding>(krx::streams::makeFinding(error, level));
    if (isTrackUnfinished())
        m_track->droppedBy = finding;
    if (isListed)
        m_movie.droppedTracks.push_back({m_trackFacts, m_track ? m_track->trackId : 0, finding});
}

void BoxWalk::readChildren(const BoxHeader& parent)
{
    m_reader.checkNesting();
    std::array<unsigned, kNumberedTypes> numbers{};
    while (m_reader.position() < parent.end) {
        if (m_reader.bytesLeft(parent.end) < kBoxHeaderSize) {
            m_reader.warnAt(m_reader.position(), krx::streams::kExtraneousBytes);
            m_reader.skipTo(parent.end);
            return;
        }
        const BoxHeader box = m_reader.readHeader(parent);
        const BoxRule* rule = findBoxRule(box.type);
        const bool isNumbered = rule && rule->numberSlot != BoxRule::kNotNumbered;
        readBox(rule, box, isNumbered ? ++numbers[rule->numberSlot] : 0);
        m_reader.skipTo(box.end);
    }
}

void BoxWalk::readFirstChild(const BoxHeader& parent, unsigned type)
{
    while (m_reader.bytesLeft(parent.end) >= kBoxHeaderSize) {
        const BoxHeader box = m_reader.readHeader(parent);
        if (box.type == type) {
            readBox(findBoxRule(type), box, 0);
            return;
        }
        m_reader.skipTo(box.end);
    }
}

void BoxWalk::readBox(const BoxRule* rule, const BoxHeader& box, unsigned number)
{
    if (!rule) {
        // Reported directly: unknown boxes are too common for an exception each.
        m_reader.warnAboutBox(krx::streams::kUnrecognizedBox, box);
        return;
    }
    if (rule->isPassedOver())
        return;
    try {
        m_reader.inside(box, number, [&] { applyRule(*rule, box); });
    } catch (const UnrecognizedBoxError& error) {
        m_reader.warnAboutBox(error, box);
    }
}

void BoxWalk::applyRule(const BoxRule& rule, BoxHeader box)
{
    if (rule.needsTrack)
        needTrack();
    if (isRepeated(rule))
        throw StreamParseError(krx::streams::kDuplicateBox);
    if (m_reader.bytesLeft(box.end) < rule.smallestPayload)
        throw StreamParseError(krx::streams::kTruncatedBox);
    if (rule.highestVersion != BoxRule::kNoVersion) {
        box.version = m_reader.readU8();
        if (box.version > static_cast<unsigned>(rule.highestVersion)) {
            m_reader.warnAboutBox(krx::streams::kUnrecognizedBoxVersion, box);
            return;
        }
        m_reader.skip(3);  // flags
    }
    if (rule.trackHandler)
        rule.trackHandler(m_reader, box, *m_track);
    else if (rule.movieHandler)
        rule.movieHandler(m_reader, box, m_movie);
    else if (rule.trackSelector)
        setTrack(rule.trackSelector(m_reader, box, m_movie));
    else if (rule.walkHandler)
        rule.walkHandler(*this, box);
    if (rule.hasChildren) {
        m_reader.skip(rule.childOffset);
        readChildren(box);
    }
}

/// Whether an earlier box has given the facts that the box would give.
bool BoxWalk::isRepeated(const BoxRule& rule) const
{
    return (rule.trackHas && rule.trackHas(*m_track)) || (rule.movieHas && rule.movieHas(m_movie));
}

}  // namespace krx::mp4
