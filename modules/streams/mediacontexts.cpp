// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mediacontexts.h"

#include "server/SRCSerializer.h"
#include "util/SRException.h"
#include "util/krxassert.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

namespace krx {
namespace {

constexpr char kMediaContextsPlace[] = "modules/streams/mediacontexts";

// Properties of an object in a contexts file.
constexpr char kMessageType[] = "messageType";
constexpr char kTime[] = "time";
constexpr char kBuffer[] = "buffer";
constexpr char kPosition[] = "position";
constexpr char kTrackId[] = "trackID";
constexpr char kContextType[] = "contextType";

SRData toObject(const ContextMessage& message)
{
    SRDataArrayPtr properties(new SRDataArray(6));
    const auto add = [&](const char* name, auto value) {
        properties->append(SRMBString(name), SRData(value));
    };
    add(kMessageType, unsigned{message.messageType});
    add(kTime, message.time);
    add(kBuffer, SRBuffer(message.memory, message.offset, message.offset + message.length));
    add(kPosition, message.position);
    add(kTrackId, message.trackId);
    add(kContextType, static_cast<unsigned>(message.contextType));
    return SRData(properties, kObjectType);
}

ContextMessage fromObject(const SRDataArray& properties)
{
    ContextMessage message;
    message.messageType = static_cast<unsigned char>(static_cast<unsigned>(properties[kMessageType]));
    message.time = static_cast<unsigned>(properties[kTime]);
    message.position = static_cast<long long>(properties[kPosition]);
    message.trackId = static_cast<unsigned>(properties[kTrackId]);
    message.contextType = static_cast<ContextType_t>(static_cast<unsigned>(properties[kContextType]));
    if (const SRData& bytes = properties[kBuffer]; bytes.kind == kBlobType) {
        const auto buffer = static_cast<SRBuffer>(bytes);
        message.memory = buffer.memory();
        message.offset = buffer.getStart();
        message.length = buffer.length();
    }
    return message;
}

/// Takes the contexts out of the elements of a file's array and releases these on the way, so that nothing is
/// in memory twice.
class ContextImport
{
public:
    /// fileBytes: of the encoded array. The contexts go to target, which is empty.
    ContextImport(MediaContexts& target, std::size_t fileBytes)
        : m_target(target), m_room(kSpareRoom + fileBytes * kRoomPerByte)
    {
    }

    /// False for an element that is no object, and when the contexts need more memory than the file may take.
    bool take(SRData& element)
    {
        const auto* const properties = static_cast<SRDataArray*>(element);
        if (!properties)
            return false;
        const ContextMessage message = contextOf(*properties);
        element.clear();
        const std::size_t bytes =
            sizeof(ContextMessage) + (m_target.findTrack(message.trackId) ? 0 : kTrackBytes);
        if (bytes > m_room)
            return false;
        m_room -= bytes;
        m_target.cacheContext(message);
        return true;
    }

private:
    /// A context takes a hundred bytes of a file. References to one object, and objects without these
    /// properties, take far less: as many as fit are kept.
    static constexpr std::size_t kRoomPerByte = 24;
    static constexpr std::size_t kSpareRoom = std::size_t{64} * 1024;
    /// What a track takes with its first context.
    static constexpr std::size_t kTrackBytes = 768;
    /// An object with more properties is searched once, however many references there are to it.
    static constexpr int kFewProperties = 16;

    ContextMessage contextOf(const SRDataArray& properties)
    {
        if (properties.getSize() <= kFewProperties)
            return fromObject(properties);
        const auto [place, isNew] = m_known.try_emplace(&properties);
        if (isNew)
            place->second = fromObject(properties);
        return place->second;
    }

    MediaContexts& m_target;
    std::size_t m_room;
    std::unordered_map<const SRDataArray*, ContextMessage> m_known;
};

}  // namespace

const ContextMessage* TrackContexts::getContext(ContextType_t type, long long position) const
{
    if (type == kContextHeader) {
        const auto last = std::find_if(m_messages.rbegin(), m_messages.rend(),
                                       [&](const ContextMessage& m) { return m.position < position; });
        return last != m_messages.rend() && last->contextType == type ? &*last : nullptr;
    }
    if (type == kContextEnder) {
        const auto first = std::find_if(m_messages.begin(), m_messages.end(),
                                        [&](const ContextMessage& m) { return m.position > position; });
        return first != m_messages.end() && first->contextType == type ? &*first : nullptr;
    }
    return nullptr;
}

std::vector<const ContextMessage*> TrackContexts::getContextsAtPos(ContextType_t type,
                                                                   long long position) const
{
    std::vector<const ContextMessage*> found;
    if (type != kContextHeader && type != kContextEnder)
        return found;
    for (const ContextMessage& message : m_messages)
        if (message.contextType == type && message.position == position)
            found.push_back(&message);
    if (type == kContextHeader)
        std::reverse(found.begin(), found.end());
    return found;
}

void TrackContexts::prepForAppend()
{
    if (!m_messages.empty() && m_messages.back().contextType == kContextEnder)
        m_messages.pop_back();
}

void MediaContexts::cacheContext(const ContextMessage& message)
{
    const auto [place, isNew] = m_trackIndex.try_emplace(message.trackId, m_tracks.size());
    if (isNew)
        m_tracks.emplace_back(message.trackId);
    m_tracks[place->second].messages().push_back(message);
}

bool MediaContexts::getMediaContexts(ContextType_t type, long long position, const Callback& callback)
{
    return getMediaContextsConst(
        type, position, [&](const ContextMessage& found) { callback(const_cast<ContextMessage&>(found)); },
        false);
}

bool MediaContexts::getMediaContextsConst(ContextType_t type, long long position,
                                          const ConstCallback& callback, bool atPosition) const
{
    bool any = false;
    for (const TrackContexts& track : m_tracks) {
        if (atPosition) {
            for (const ContextMessage* found : track.getContextsAtPos(type, position)) {
                callback(*found);
                any = true;
            }
        } else if (const ContextMessage* found = track.getContext(type, position)) {
            callback(*found);
            any = true;
        }
    }
    return any;
}

const TrackContexts* MediaContexts::findTrack(unsigned trackId) const
{
    const auto place = m_trackIndex.find(trackId);
    return place == m_trackIndex.end() ? nullptr : &m_tracks[place->second];
}

void MediaContexts::erase(const std::function<bool(const ContextMessage&)>& predicate)
{
    for (TrackContexts& track : m_tracks)
        std::erase_if(track.messages(), predicate);
}

bool MediaContexts::exportContexts(SRBuffer& buffer) const
{
    buffer = SRBuffer();
    const std::size_t count = numContexts();
    if (count == 0)
        return true;
    if (count > INT_MAX)
        return false;

    SRDataArrayPtr all(new SRDataArray(static_cast<int>(count)));
    applyMessages([&](const ContextMessage& message) { all->append(SRMBString(), toObject(message)); });
    SRCSerializer writer;
    writer.setOutputLimit(UINT_MAX);
    const SRData value(all, kArrayType);
    if (!writer.PutVar(&value, true))
        return false;

    buffer = SRBuffer(writer.getPosition());
    std::memcpy(buffer.base(), writer.getBuffer(), writer.getPosition());
    buffer.setEnd(writer.getPosition());
    return true;
}

bool MediaContexts::importContexts(const SRBuffer& buffer, unsigned* stoppedAt)
{
    clear();
    if (buffer.length() == 0)
        return true;
    if (stoppedAt)
        *stoppedAt = 0;
    if (buffer.length() > INT_MAX)
        return false;
    SRCSerializer reader(buffer.data(), static_cast<int>(buffer.length()), true);
    const auto refuse = [&] {
        clear();
        if (stoppedAt)
            *stoppedAt = reader.getPosition();
        return false;
    };
    try {
        SRData value;
        reader.GetVar(&value, true);
        if (reader.hasReadStarved())
            throw SROutOfMemory();
        auto* const all = static_cast<SRDataArray*>(value);
        if (!all || reader.isBad())
            return refuse();
        ContextImport contexts(*this, buffer.length());
        for (int i = 0; i < all->getSize(); ++i) {
            if (!contexts.take(all->getPropertyValue(i)))
                return refuse();
        }
        return true;
    } catch (const SRBreakConnection&) {
        if (reader.hasReadStarved()) {
            clear();
            throw SROutOfMemory();  // bad data after a value that was not read says nothing about the file
        }
        return refuse();
    }
}

bool MediaContexts::tellContexts(ContextType_t type, long long position, IContextHolder* holder,
                                 bool atPosition) const
{
    if (!holder) {
        krx::util::assertFailed(kMediaContextsPlace, 211);
        return false;
    }
    return getMediaContextsConst(
        type, position,
        [&](const ContextMessage& found) {
            holder->add(found.messageType, found.data(), found.length, found.time, found.position,
                        found.trackId, found.contextType);
        },
        atPosition);
}

bool MediaContexts::tellAllContexts(IAllContextHolder* holder) const
{
    if (!holder) {
        krx::util::assertFailed(kMediaContextsPlace, 231);
        return false;
    }
    SRBuffer buffer;
    if (!exportContexts(buffer) || buffer.length() == 0)
        return false;
    holder->add(buffer.data(), buffer.length());
    return true;
}

std::size_t MediaContexts::numContexts() const
{
    std::size_t count = 0;
    for (const TrackContexts& track : m_tracks)
        count += track.numContexts();
    return count;
}

std::size_t MediaContexts::reportMemorySize() const
{
    std::size_t bytes = m_tracks.size() * sizeof(TrackContexts);
    std::unordered_set<const SRMemory*> counted;
    for (const TrackContexts& track : m_tracks) {
        bytes += track.messages().size() * sizeof(ContextMessage);
        for (const ContextMessage& message : track.messages())
            if (message.memory && counted.insert(message.memory.get()).second)
                bytes += sizeof(SRMemory) + message.memory->capacity();
    }
    return bytes;
}

void MediaContexts::clear()
{
    m_tracks.clear();
    m_trackIndex.clear();
}

}  // namespace krx

namespace krx::streams {

bool metaAttribute(const ContextMessage* message, void* out, unsigned& size)
{
    if (!message || !out || message->length > size) {
        size = 0;
        return false;
    }
    size = message->length;
    if (size != 0)
        std::memcpy(out, message->data(), size);
    return true;
}

}  // namespace krx::streams
