// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4module.h"

#include "interfaces/IQVStreamContext.h"
#include "modules/streams/mp4/mp4Data.h"
#include "util/streamconfigutil.h"

#include <cstring>
#include <limits>
#include <memory>

namespace krx::mp4 {
namespace {

using krx::util::StreamConfig;

constexpr unsigned kNoLimit = std::numeric_limits<unsigned>::max();
constexpr unsigned kMinReadAhead = 1024;
constexpr unsigned kMaxSampleSizeLimit = 16'777'216;

/// The read-ahead size of old configurations, for all kinds of messages together.
constexpr char kDeprecatedReadAheadKey[] = "Mp4AutoBufferReadSize";

struct NumberSetting
{
    const char* key;
    unsigned Mp4Config::*field;
    unsigned min;
    unsigned max;
};

constexpr NumberSetting kReadAheadSettings[] = {
    {"Mp4/Playback/VideoAutoBufferReadSize", &Mp4Config::videoReadAheadSize, kMinReadAhead, kNoLimit},
    {"Mp4/Playback/AudioAutoBufferReadSize", &Mp4Config::audioReadAheadSize, kMinReadAhead, kNoLimit},
    {"Mp4/Playback/OtherAutoBufferReadSize", &Mp4Config::otherReadAheadSize, kMinReadAhead, kNoLimit},
};

constexpr NumberSetting kPlaybackSettings[] = {
    {"Mp4/Playback/MaxAggMsgSize", &Mp4Config::MaxAggMsgSize, 0, kNoLimit},
    {"Mp4/Playback/MaxTracks", &Mp4Config::MaxTracks, 0, kNoLimit},
    {"Mp4/Playback/MaxSampleSize", &Mp4Config::MaxSampleSize, 0, kMaxSampleSizeLimit},
};

constexpr NumberSetting kRecordingSettings[] = {
    {"Mp4/Recording/MaxELSTEntries", &Mp4Config::MaxELSTEntries, 0, kNoLimit},
    {"Mp4/Recording/MaxDataSampleDescriptions", &Mp4Config::MaxDataSampleDescriptions, 0, kNoLimit},
    {"Mp4/Recording/MaxAudioSampleDescriptions", &Mp4Config::MaxAudioSampleDescriptions, 0, kNoLimit},
    {"Mp4/Recording/MaxVideoSampleDescriptions", &Mp4Config::MaxVideoSampleDescriptions, 0, kNoLimit},
};

template <std::size_t N>
void readNumbers(IQVStreamContext* context, Mp4Config& config, const NumberSetting (&settings)[N])
{
    for (const NumberSetting& setting : settings)
        StreamConfig::readConfigUnsigned(context, setting.key, config.*setting.field, setting.min,
                                         setting.max);
}

Mp4Data* dataOf(void* handle)
{
    return static_cast<Mp4Data*>(handle);
}

}  // namespace

Mp4Module::Mp4Module(IQVStreamContext* context) : m_context(context)
{
    if (!m_context)
        return;
    m_fileIo = m_context->getFileIo();
    readConfig();
}

void Mp4Module::readConfig()
{
    readReadAheadSizes();
    StreamConfig::readConfigBool(m_context, "Mp4/Playback/EnableAggMsgs", m_config.EnableAggMsgs);
    readNumbers(m_context, m_config, kPlaybackSettings);
    StreamConfig::readConfigBool(m_context, "Mp4/Playback/AllowAnyAVCProfile", m_config.AllowAnyAVCProfile);
    StreamConfig::readConfigBool(m_context, "Mp4/Playback/AllowAnyAACProfile", m_config.AllowAnyAACProfile);
    readNumbers(m_context, m_config, kRecordingSettings);
}

void Mp4Module::readReadAheadSizes()
{
    unsigned all = kMinReadAhead;
    StreamConfig::readConfigUnsigned(m_context, kDeprecatedReadAheadKey, all, kMinReadAhead, kNoLimit);
    if (all == kMinReadAhead) {
        readNumbers(m_context, m_config, kReadAheadSettings);
        return;
    }
    m_context->log(
        "Using deprecated Mp4AutoBufferReadSize.  "
        "Use instead specific video/audio/other configs.  "
        "Splitting evenly into vid/aud/other auto buffers.",
        krx::streams::LOG_WARNING, false);
    for (const NumberSetting& setting : kReadAheadSettings)
        m_config.*setting.field = all / 3;
}

int Mp4Module::open(IQVStreamOpenContext*, const char* name, unsigned flags, void*, void*& handle)
{
    auto data =
        std::make_unique<Mp4Data>(SRMBString(name), m_context, m_fileIo, static_cast<int>(flags), m_config);
    const StreamLoadStatus status = data->init();
    if (status == kLoadOk)
        handle = data.release();
    return status;
}

void Mp4Module::close(void* handle)
{
    delete dataOf(handle);
}

unsigned Mp4Module::getMemoryOverhead(void* handle) const
{
    return handle ? dataOf(handle)->getMemoryOverhead() : 0;
}

unsigned Mp4Module::getDuration(void* handle) const
{
    return handle ? dataOf(handle)->getDuration() : 0;
}

long long Mp4Module::getSize(void* handle) const
{
    return handle ? dataOf(handle)->getSize() : 0;
}

long long Mp4Module::getEndPosition(void* handle) const
{
    return handle ? dataOf(handle)->getEndPosition() : 0;
}

unsigned char Mp4Module::getType(void* handle) const
{
    return handle ? dataOf(handle)->getType() : 0;
}

bool Mp4Module::findSegmentByIndex(void* handle, long long index, SegmentBounds* bounds)
{
    return handle && dataOf(handle)->findSegmentByPos(index, bounds);
}

bool Mp4Module::findSegmentByTime(void* handle, unsigned time, SegmentBounds* bounds)
{
    return handle && dataOf(handle)->findSegmentByTime(time, bounds);
}

bool Mp4Module::loadSegment(void* handle, SegmentBounds* bounds, ISegmentHolder* holder)
{
    return handle && dataOf(handle)->loadSegment(bounds, holder);
}

void Mp4Module::onFreeSegment(void* handle, unsigned tablePage)
{
    if (handle)
        dataOf(handle)->clearTableSegment(tablePage);
}

bool Mp4Module::getAttribute(void* handle, AttrType_t type, void* out, unsigned& size) const
{
    if (!handle)
        return false;
    const Mp4Data& data = *dataOf(handle);
    switch (type) {
        case kAttrModifiedTime:
            return streams::sizeAttribute(data.getModifiedTime(), out, size);
        case kAttrDuration:
            return streams::sizeAttribute(data.getDuration(), out, size);
        case kAttrSize:
            return streams::sizeAttribute(data.getSize(), out, size);
        case kAttrMetadata:
            return streams::metaAttribute(data.getOnMetaData(), out, size);
        default:
            return false;
    }
}

bool Mp4Module::getMediaContexts(void* handle, ContextType_t type, long long position, IContextHolder* holder,
                                 bool atPosition) const
{
    return handle && dataOf(handle)->getMediaContexts(type, position, holder, atPosition);
}

bool Mp4Module::getAllMediaContexts(void* handle, IAllContextHolder* holder) const
{
    return handle && dataOf(handle)->getAllMediaContexts(holder);
}

}  // namespace krx::mp4
