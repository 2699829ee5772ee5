// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IQVStreamAdaptor.h"
#include "modules/streams/finding.h"
#include "modules/streams/raw/rawConfig.h"
#include "util/streamconfigutil.h"

#include <span>

class IQVStreamContext;

namespace krx::raw {

/// The stream module for recorded-stream directories. Every operation but close needs a handle from a
/// successful open, and serves any number of threads. The operations of the recording side are not supported:
/// they do nothing and return false.
class RawAdaptor : public IQVStreamAdaptor
{
public:
    /// Reads the configuration, by its own operations. context (null: defaults, and nothing can be opened)
    /// must outlive the adaptor.
    explicit RawAdaptor(IQVStreamContext* context);

    /// Errors and warnings of streams that are opened from now on go to the sink instead of to the context's
    /// log; null: to the log. The sink must outlive those streams.
    void setFindingSink(krx::streams::FindingSink* sink) { m_sink = sink; }

    unsigned getVersion() const override;
    /// path is a directory, in bytes. Returns krx::streams::kLoadOk, or kLoadFailed when the stream cannot be
    /// loaded; the context gets the reasons.
    int open(IQVStreamOpenContext* openContext, const char* path, unsigned flags, void* userData,
             void*& handle) override;
    void setUserData(void* handle, void* userData) override;
    void close(void* handle) override;
    bool erase(void* handle) override;
    unsigned getMemoryOverhead(void* handle) const override;
    unsigned getDuration(void* handle) const override;
    long long getSize(void* handle) const override;
    long long getEndPosition(void* handle) const override;
    unsigned char getType(void* handle) const override;
    bool findSegmentByIndex(void* handle, long long position, SegmentBounds* bounds) override;
    bool findSegmentByTime(void* handle, unsigned ms, SegmentBounds* bounds) override;
    bool loadSegment(void* handle, SegmentBounds* bounds, ISegmentHolder* holder) override;
    void onFreeSegment(void* handle, unsigned tablePage) override;
    bool record(void* handle, unsigned char type, const void* data, unsigned length, unsigned time) override;
    bool flushSegment(void* handle, SegmentBounds* bounds) override;
    bool stopRecord(void* handle) override;
    unsigned getPermission() const override;
    bool getAttribute(void* handle, AttrType_t type, void* out, unsigned& size) const override;
    bool getMediaContexts(void* handle, ContextType_t type, long long position, IContextHolder* holder,
                          bool atPosition) const override;
    bool getAllMediaContexts(void* handle, IAllContextHolder* holder) const override;
    bool updateMediaContext(void* handle, ContextType_t contextType, unsigned char type, unsigned time,
                            void* data, unsigned length) override;

    // Configuration. A derived adaptor may override it and calls config() again.

    /// Asks the context for every setting.
    virtual void config();
    /// As krx::util::StreamConfig, for the adaptor's context.
    virtual bool readConfig(const char* key, char*& buffer, unsigned& size);
    virtual bool readConfigBool(const char* key, bool& value);
    virtual bool readConfigUnsigned(const char* key, unsigned& value, unsigned min, unsigned max);

    /// Every setting that the adaptor asks for.
    static std::span<const krx::util::SettingKey> settingKeys();
    const RawConfigStruct& getConfig() const { return m_config; }

private:
    IQVStreamContext* const m_context;
    krx::streams::FindingSink* m_sink = nullptr;
    RawConfigStruct m_config;
};

}  // namespace krx::raw
