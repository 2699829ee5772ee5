// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IQVStreamAdaptor.h"
#include "util/SRBuffer.h"

#include <cstddef>
#include <cstring>
#include <deque>
#include <functional>
#include <unordered_map>
#include <vector>

namespace krx {

/// A message that a player needs besides the media from where it starts: a decoder configuration, the end of
/// a track, or a message about the whole file. Copies share the bytes, which nobody changes.
struct ContextMessage
{
    long long position = 0;  ///< of the message in its stream; negative for the messages of the file
    SRMemoryPtr memory;      ///< may be null when length is 0
    unsigned offset = 0;     ///< of the message bytes in memory
    unsigned length = 0;     ///< of the message bytes
    unsigned time = 0;       ///< ms
    unsigned trackId = 0;
    ContextType_t contextType = kContextHeader;
    unsigned char messageType = 0;

    /// The message bytes; null when there are none.
    unsigned char* data() const { return memory && memory->data() ? memory->data() + offset : nullptr; }
};

/// The context messages of one track, in the order in which they came.
class TrackContexts
{
public:
    explicit TrackContexts(unsigned trackId) : m_trackId(trackId) {}

    unsigned getTrackID() const { return m_trackId; }
    std::size_t numContexts() const { return m_messages.size(); }
    const std::deque<ContextMessage>& messages() const { return m_messages; }
    std::deque<ContextMessage>& messages() { return m_messages; }

    /// The context in force: for kContextHeader the last message before position if it is a header, for
    /// kContextEnder the first message after position if it is an ender. Null when there is none.
    const ContextMessage* getContext(ContextType_t type, long long position) const;
    /// All contexts of the type at position: headers from the last to the first, enders from the first to the
    /// last.
    std::vector<const ContextMessage*> getContextsAtPos(ContextType_t type, long long position) const;
    /// Makes ready for more media: removes the last message if it is an ender.
    void prepForAppend();

private:
    unsigned m_trackId;
    /// A file may have hundreds of thousands, which a vector would hold up to three times while it grows.
    std::deque<ContextMessage> m_messages;
};

/// The context messages of a stream by track; the tracks stand in the order in which they first came.
class MediaContexts
{
public:
    /// Tracks for the messages of the whole file, above the numbers of the real tracks.
    enum ContextTrack : unsigned
    {
        kStatusTrack = 1,
        kMetadataTrack = 2,
        kDRMHeaderTrack = 3,
        kXMPTrack = 4,
        kTimeCoordTrack = 5,  ///< and the control message that goes with the protection header
    };

    /// Body of the control message that announces protected content to players.
    static constexpr unsigned char kDRMData[] = {0x00, 0x21, 0x00, 0x00, 0x00, 0x00};

    using Callback = std::function<void(ContextMessage&)>;
    using ConstCallback = std::function<void(const ContextMessage&)>;

    /// Appends to the track's messages.
    void cacheContext(const ContextMessage& message);

    /// Calls callback for the context in force at position in each track. True when there was one.
    bool getMediaContexts(ContextType_t type, long long position, const Callback& callback);
    /// The same; with atPosition for all contexts at position instead.
    bool getMediaContextsConst(ContextType_t type, long long position, const ConstCallback& callback,
                               bool atPosition) const;
    /// The messages of a track; null when it has never had one.
    const TrackContexts* findTrack(unsigned trackId) const;

    /// Calls function with every TrackContexts.
    template <typename Function>
    void applyTracks(Function function)
    {
        for (TrackContexts& track : m_tracks)
            function(track);
    }
    /// Calls function with every ContextMessage of every track.
    template <typename Function>
    void applyMessages(Function function) const
    {
        for (const TrackContexts& track : m_tracks)
            for (const ContextMessage& message : track.messages())
                function(message);
    }
    /// Removes every message for which predicate is true; its track stays.
    void erase(const std::function<bool(const ContextMessage&)>& predicate);

    // The form of a contexts file: an AMF0 array of objects, or no byte at all without contexts.

    /// Puts the contexts into buffer, which it replaces. False when they cannot be written.
    bool exportContexts(SRBuffer& buffer) const;
    /// Replaces everything by what buffer holds. False, and empty, when it does not parse, and when the
    /// contexts and tracks would take more than 24 times the bytes; stoppedAt (may be null) is then the
    /// number of bytes that were read. The contexts are looked at after the whole array is read.
    bool importContexts(const SRBuffer& buffer, unsigned* stoppedAt = nullptr);

    // The same answers, in the form in which a stream adaptor gives them. A null holder is reported.

    bool tellContexts(ContextType_t type, long long position, IContextHolder* holder, bool atPosition) const;
    bool tellAllContexts(IAllContextHolder* holder) const;

    std::size_t numContexts() const;
    /// Bytes held; bytes that messages share count once.
    std::size_t reportMemorySize() const;
    void clear();

private:
    std::deque<TrackContexts> m_tracks;
    std::unordered_map<unsigned, std::size_t> m_trackIndex;  ///< track ID to place in m_tracks
};

}  // namespace krx

namespace krx::streams {

/// IQVStreamAdaptor::getAttribute for a number of fixed width: copies it to out if size allows, and sets size
/// to its bytes.
template <typename T>
bool sizeAttribute(T value, void* out, unsigned& size)
{
    const bool fits = out && size >= sizeof(T);
    if (fits)
        std::memcpy(out, &value, sizeof(T));
    size = sizeof(T);
    return fits;
}

/// The same with the body of a message (null: there is none); sets size to 0 where it does not fit.
bool metaAttribute(const ContextMessage* message, void* out, unsigned& size);

}  // namespace krx::streams
