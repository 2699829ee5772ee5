// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4module.h"

#include "interfaces/IQVStreamContext.h"
#include "modules/streams/mp4/mp4Data.h"

#include <array>
#include <cstring>
#include <memory>

namespace krx::mp4 {
namespace {

using krx::util::SettingKey;
using krx::util::StreamConfig;

using Setting = krx::util::Setting<Mp4Config>;

constexpr unsigned kMinReadAhead = 1024;
constexpr unsigned kMaxSampleSizeLimit = 16'777'216;

/// All settings, in the order in which they are asked for.
constexpr Setting kSettings[] = {
    // The read-ahead size of old configurations, for all kinds of messages together.
    {"Mp4AutoBufferReadSize", static_cast<unsigned Mp4Config::*>(nullptr), kMinReadAhead},
    {"Mp4/Playback/VideoAutoBufferReadSize", &Mp4Config::videoReadAheadSize, kMinReadAhead},
    {"Mp4/Playback/AudioAutoBufferReadSize", &Mp4Config::audioReadAheadSize, kMinReadAhead},
    {"Mp4/Playback/OtherAutoBufferReadSize", &Mp4Config::otherReadAheadSize, kMinReadAhead},
    {"Mp4/Playback/EnableAggMsgs", &Mp4Config::EnableAggMsgs},
    {"Mp4/Playback/MaxAggMsgSize", &Mp4Config::MaxAggMsgSize},
    {"Mp4/Playback/MaxTracks", &Mp4Config::MaxTracks},
    {"Mp4/Playback/MaxSampleSize", &Mp4Config::MaxSampleSize, 0, kMaxSampleSizeLimit},
    {"Mp4/Playback/AllowAnyAVCProfile", &Mp4Config::AllowAnyAVCProfile},
    {"Mp4/Playback/AllowAnyAACProfile", &Mp4Config::AllowAnyAACProfile},
    {"Mp4/Recording/MaxELSTEntries", &Mp4Config::MaxELSTEntries},
    {"Mp4/Recording/MaxDataSampleDescriptions", &Mp4Config::MaxDataSampleDescriptions},
    {"Mp4/Recording/MaxAudioSampleDescriptions", &Mp4Config::MaxAudioSampleDescriptions},
    {"Mp4/Recording/MaxVideoSampleDescriptions", &Mp4Config::MaxVideoSampleDescriptions},
};
constexpr std::array kSettingKeys = krx::util::keysOf(kSettings);

// The parts of the table.
constexpr const SettingKey& kDeprecatedReadAhead = kSettings[0].key;
constexpr std::span kReadAheadSettings = std::span(kSettings).subspan<1, 3>();
constexpr std::span kOtherSettings = std::span(kSettings).subspan<4>();

void readSettings(IQVStreamContext* context, Mp4Config& config, std::span<const Setting> settings)
{
    for (const auto& [key, flag, number] : settings) {
        if (flag)
            StreamConfig::readConfigBool(context, key.name, config.*flag);
        else
            StreamConfig::readConfigUnsigned(context, key.name, config.*number, key.min, key.max);
    }
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

std::span<const SettingKey> Mp4Module::settingKeys()
{
    return kSettingKeys;
}

void Mp4Module::readConfig()
{
    readReadAheadSizes();
    readSettings(m_context, m_config, kOtherSettings);
}

void Mp4Module::readReadAheadSizes()
{
    unsigned all = kMinReadAhead;
    StreamConfig::readConfigUnsigned(m_context, kDeprecatedReadAhead.name, all, kDeprecatedReadAhead.min,
                                     kDeprecatedReadAhead.max);
    if (all == kMinReadAhead) {
        readSettings(m_context, m_config, kReadAheadSettings);
        return;
    }
    m_context->log(
        "Using deprecated Mp4AutoBufferReadSize.  "
        "Use instead specific video/audio/other configs.  "
        "Splitting evenly into vid/aud/other auto buffers.",
        krx::streams::LOG_WARNING, false);
    for (const Setting& setting : kReadAheadSettings)
        m_config.*setting.number = all / 3;
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
