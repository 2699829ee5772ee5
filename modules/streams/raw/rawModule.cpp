// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawModule.h"

#include "interfaces/IQVStreamContext.h"
#include "modules/streams/raw/rawData.h"
#include "modules/streams/streamloadstatus.h"
#include "util/krxassert.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>

namespace krx::raw {
namespace {

constexpr const char* kRawModulePlace = "modules/streams/raw/rawModule";
constexpr int kTwoMetadataLine = 287;

constexpr unsigned kVersion = 256;
constexpr unsigned kPermission = 6;

/// The recording side keeps the first "onMetaData" of a stream before this position.
constexpr long long kMetadataPosition = -1;

using Setting = krx::util::Setting<RawConfigStruct>;

constexpr Setting kSettings[] = {
    {"Raw/WarningsAsErrors", &RawConfigStruct::WarningsAsErrors},
    {"Raw/EnableAggMsgs", &RawConfigStruct::EnableAggMsgs},
    {"Raw/MaxAggMsgSize", &RawConfigStruct::MaxAggMsgSize},
    {"Raw/MaxEraseRetries", &RawConfigStruct::MaxEraseRetries},
};
constexpr std::array kSettingKeys = krx::util::keysOf(kSettings);

RawData& stream(void* handle)
{
    return *static_cast<RawData*>(handle);
}

/// The stream's "onMetaData"; null when there is none.
const ContextMessage* findMetadata(const MediaContexts& contexts)
{
    const ContextMessage* metadata = nullptr;
    contexts.getMediaContextsConst(
        kContextHeader, kMetadataPosition,
        [&metadata](const ContextMessage& message) {
            if (message.trackId != MediaContexts::kMetadataTrack)
                return;
            if (metadata)
                krx::util::assertFailed(kRawModulePlace, kTwoMetadataLine);
            metadata = &message;
        },
        false);
    return metadata;
}

}  // namespace

RawAdaptor::RawAdaptor(IQVStreamContext* context) : m_context(context)
{
    RawAdaptor::config();
}

unsigned RawAdaptor::getVersion() const
{
    return kVersion;
}

int RawAdaptor::open(IQVStreamOpenContext* /*openContext*/, const char* path, unsigned flags,
                     void* /*userData*/, void*& handle)
{
    if (!m_context || !path)
        return krx::streams::kLoadFailed;
    auto data =
        std::make_unique<RawData>(SRString::fromMultiByte(path), m_config, m_context, m_context->getFileIo());
    data->setFindingSink(m_sink);
    if (!data->init(flags))
        return krx::streams::kLoadFailed;
    handle = data.release();
    return krx::streams::kLoadOk;
}

void RawAdaptor::setUserData(void* /*handle*/, void* /*userData*/) {}

void RawAdaptor::close(void* handle)
{
    delete static_cast<RawData*>(handle);
}

unsigned RawAdaptor::getMemoryOverhead(void* handle) const
{
    constexpr std::size_t kMost = std::numeric_limits<unsigned>::max();
    return static_cast<unsigned>(std::min(stream(handle).reportMemorySize(), kMost));
}

unsigned RawAdaptor::getDuration(void* handle) const
{
    return stream(handle).getDuration();
}

long long RawAdaptor::getSize(void* handle) const
{
    return stream(handle).getSize();
}

long long RawAdaptor::getEndPosition(void* handle) const
{
    return stream(handle).getEndPosition();
}

unsigned char RawAdaptor::getType(void* handle) const
{
    return stream(handle).getType();
}

bool RawAdaptor::findSegmentByIndex(void* handle, long long position, SegmentBounds* bounds)
{
    return stream(handle).findByLoc(position, bounds);
}

bool RawAdaptor::findSegmentByTime(void* handle, unsigned ms, SegmentBounds* bounds)
{
    return stream(handle).findByTime(ms, bounds);
}

bool RawAdaptor::loadSegment(void* handle, SegmentBounds* bounds, ISegmentHolder* holder)
{
    return stream(handle).loadSegment(m_context, bounds, holder);
}

void RawAdaptor::onFreeSegment(void* /*handle*/, unsigned /*tablePage*/) {}

unsigned RawAdaptor::getPermission() const
{
    return kPermission;
}

bool RawAdaptor::getAttribute(void* handle, AttrType_t type, void* out, unsigned& size) const
{
    const RawData& data = stream(handle);
    switch (type) {
        case kAttrModifiedTime:
            return streams::sizeAttribute(static_cast<unsigned>(data.getModifiedTime()), out, size);
        case kAttrDuration:
            return streams::sizeAttribute(data.getDuration(), out, size);
        case kAttrSize:
            return streams::sizeAttribute(data.getSize(), out, size);
        case kAttrMetadata:
            return streams::metaAttribute(findMetadata(*data.getContexts()), out, size);
    }
    return false;
}

bool RawAdaptor::getMediaContexts(void* handle, ContextType_t type, long long position,
                                  IContextHolder* holder, bool atPosition) const
{
    return stream(handle).getContexts()->tellContexts(type, position, holder, atPosition);
}

bool RawAdaptor::getAllMediaContexts(void* handle, IAllContextHolder* holder) const
{
    return stream(handle).getContexts()->tellAllContexts(holder);
}

// The recording side is not supported.

bool RawAdaptor::erase(void* /*handle*/)
{
    return false;
}

bool RawAdaptor::record(void* /*handle*/, unsigned char /*type*/, const void* /*data*/, unsigned /*length*/,
                        unsigned /*time*/)
{
    return false;
}

bool RawAdaptor::flushSegment(void* /*handle*/, SegmentBounds* /*bounds*/)
{
    return false;
}

bool RawAdaptor::stopRecord(void* /*handle*/)
{
    return false;
}

bool RawAdaptor::updateMediaContext(void* /*handle*/, ContextType_t /*contextType*/, unsigned char /*type*/,
                                    unsigned /*time*/, void* /*data*/, unsigned /*length*/)
{
    return false;
}

// Configuration.

std::span<const krx::util::SettingKey> RawAdaptor::settingKeys()
{
    return kSettingKeys;
}

void RawAdaptor::config()
{
    // The constructor means this class's own: a derived one calls config() again.
    // NOLINTBEGIN(clang-analyzer-optin.cplusplus.VirtualCall)
    for (const Setting& setting : kSettings) {
        const krx::util::SettingKey& key = setting.key;
        if (setting.flag)
            readConfigBool(key.name, m_config.*setting.flag);
        else
            readConfigUnsigned(key.name, m_config.*setting.number, key.min, key.max);
    }
    // NOLINTEND(clang-analyzer-optin.cplusplus.VirtualCall)
}

bool RawAdaptor::readConfig(const char* key, char*& buffer, unsigned& size)
{
    return krx::util::StreamConfig::readConfig(m_context, key, &buffer, size);
}

bool RawAdaptor::readConfigBool(const char* key, bool& value)
{
    return krx::util::StreamConfig::readConfigBool(m_context, key, value);
}

bool RawAdaptor::readConfigUnsigned(const char* key, unsigned& value, unsigned min, unsigned max)
{
    return krx::util::StreamConfig::readConfigUnsigned(m_context, key, value, min, max);
}

}  // namespace krx::raw
