// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/amfmessage.h"
#include "modules/streams/mp4/mp4Data.h"
#include "modules/streams/mp4/walkbudget.h"
#include "server/SRCommand.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace krx::mp4 {
namespace {

constexpr long long kFilePosition = -1;

constexpr std::string_view kTimeCoordName = "onTimeCoordInfo";
/// Bytes that hold the longest form of the name's length, the name, and a zero byte.
constexpr unsigned kNameProbe = 24;

/// The text at the start of an AMF0 body of length bytes, of which n are at hand: a string, or one after the
/// switch to AMF3. Empty for anything else.
std::string_view leadingText(const unsigned char* bytes, unsigned n, unsigned length)
{
    const unsigned char* at = bytes;
    const unsigned char* end = bytes + n;
    unsigned long long textLength = 0;
    switch (AMFMessage::SaveReadUnsigned(&at, 1, end)) {
        case kAMF0String:
        case kAMF0MovieClip:
            textLength = AMFMessage::SaveReadUnsigned(&at, 2, end);
            break;
        case kAMF0LongString:
            textLength = AMFMessage::SaveReadUnsigned(&at, 4, end);
            break;
        case kAMF0SwitchToAMF3: {
            const unsigned marker = AMFMessage::SaveReadUnsigned(&at, 1, end);
            const unsigned inlineLength = AMFMessage::SaveReadUnsigned(&at, 1, end);
            if (marker != kAMF3String || inlineLength >= 0x80 || (inlineLength & kAMF3Inline) == 0)
                return {};
            textLength = inlineLength >> 1;
            break;
        }
        default:
            return {};
    }
    if (textLength > length - static_cast<unsigned>(at - bytes))
        return {};
    const auto present = std::min<unsigned long long>(textLength, static_cast<std::size_t>(end - at));
    const std::string_view text(reinterpret_cast<const char*>(at), static_cast<std::size_t>(present));
    return text.substr(0, text.find('\0'));
}

SRMemoryPtr copyOf(const void* bytes, unsigned n)
{
    if (n == 0)
        return nullptr;
    SRMemoryPtr copy(new SRMemory(n));
    std::memcpy(copy->data(), bytes, n);
    return copy;
}

}  // namespace

void Mp4Data::setFileContextMessages()
{
    m_contexts.erase([](const ContextMessage& message) { return message.position == kFilePosition; });
    setMetadata();
    setDRMHeader();
    setXMP();
    setATC();
}

/// Keeps a message of the file, whose memory is charged already.
void Mp4Data::cacheFileMessage(const SRMemoryPtr& body, unsigned length, SampleType type,
                               MediaContexts::ContextTrack track)
{
    ContextMessage context;
    context.contextType = kContextHeader;
    context.messageType = Seekable::getMessageType(type);
    context.position = kFilePosition;
    context.trackId = getContextTrackID(track);
    context.memory = body;
    context.length = length;
    m_contexts.cacheContext(context);
}

void Mp4Data::setMetadata()
{
    const SRPtr<AMFMessage> body(new AMFMessage(&m_file.memory()));
    body->initMetaData(m_file, getDuration(), false);
    cacheFileMessage(body, body->length(), kSampleDataAMF0, MediaContexts::kMetadataTrack);
}

void Mp4Data::setDRMHeader()
{
    const SRPtr<AMFMessage> body(new AMFMessage(&m_file.memory()));
    if (!body->initDRMData(m_file))
        return;
    cacheFileMessage(body, body->length(), kSampleDataAMF0, MediaContexts::kDRMHeaderTrack);
    cacheFileMessage(copyOf(MediaContexts::kDRMData, sizeof(MediaContexts::kDRMData)),
                     sizeof(MediaContexts::kDRMData), kSampleOther, MediaContexts::kTimeCoordTrack);
}

void Mp4Data::setXMP()
{
    if (!m_file.hasXMPData() || !m_file.getXMP())
        return;
    const SRPtr<AMFMessage> body(new AMFMessage(&m_file.memory()));
    body->initXMP(*m_file.getXMP());
    cacheFileMessage(body, body->length(), kSampleDataAMF0, MediaContexts::kXMPTrack);
}

/// The time coordination is the first sample with its name at time 0 of the first data track.
void Mp4Data::setATC()
{
    const std::vector<TrackInfo*> tracks = m_file.getTrackVec();
    const auto found = std::find_if(tracks.begin(), tracks.end(),
                                    [](const TrackInfo* track) { return track->isValid() && track->isData; });
    if (found == tracks.end())
        return;
    try {
        findTimeCoord(**found);
    } catch (krx::streams::StreamParseError& fault) {
        fault.place().track = (*found)->trackId;
        throw;
    }
}

void Mp4Data::findTimeCoord(TrackInfo& track)
{
    applyTables(track, [](auto& table) { table.setCurPage(0); });

    struct FragmentRelease
    {
        TrackCursor cursor;
        ~FragmentRelease() { cursor.releaseFragment(); }
    } walk{TrackCursor(track)};
    TrackCursor& cursor = walk.cursor;
    WalkBudget budget(m_fileSize);
    Seekable message;
    try {
        for (; !cursor.atEndOfTrack() && cursor.getTimeMillis() == 0; cursor.advance()) {
            budget.charge(WalkBudget::kProbe);
            if (!message.initFromCursor(&cursor, kFilePosition, m_io) || !isTimeCoordInfo(message))
                continue;
            m_file.memory().charge(message.getEstimatedMsgSize());
            message.readPayload(m_io);
            cacheFileMessage(copyOf(message.data(), message.getActualMsgSize()), message.getActualMsgSize(),
                             kSampleDataAMF0, MediaContexts::kTimeCoordTrack);
            return;
        }
    } catch (krx::streams::StreamParseError& fault) {
        cursor.addPlace(fault.place());
        throw;
    }
}

/// Whether a sample, read as an AMF0 data message, has the name of the time coordination.
bool Mp4Data::isTimeCoordInfo(const Seekable& message)
{
    if (message.isHeader() || message.isEnder())
        return false;
    std::array<unsigned char, kNameProbe> head;
    const unsigned size = message.getPayloadSize();
    const unsigned n =
        m_io.ReadMessage(head.data(), std::min(size, kNameProbe),
                         static_cast<long long>(message.getFileOffset()), message.getMessageType());
    return leadingText(head.data(), n, size) == kTimeCoordName;
}

void Mp4Data::setNoSupportedTrack()
{
    setStatusMessage("NetStream.Play.NoSupportedTrackFound");
}

void Mp4Data::setFileStructureInvalid()
{
    setStatusMessage("NetStream.Play.FileStructureInvalid");
}

/// Makes the file one segment of one message with its status.
void Mp4Data::setStatusMessage(const char* code)
{
    SRCommand command;
    command.setMethodName(SRMBString("onStatus"));
    command.setTrxID(SRData(0.0));
    command.setInfoProperty(SRMBString("code"), SRData(code));
    command.setInfoProperty(SRMBString("level"), SRData("status"));
    command.serializeCommandResponse();
    m_statusMessage.initFromRawData(command.getBuffer(), command.getPosition(), kSampleCommand, 0,
                                    getContextTrackID(MediaContexts::kStatusTrack));

    releaseTables();
    m_boundaries.clear();
    m_boundaries.append({0, 0, 0, {}});
    m_boundaries.append({1, 0, 0, {}});
}

}  // namespace krx::mp4
