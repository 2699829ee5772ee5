// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IQVStreamAdaptor.h"
#include "modules/streams/mp4/mp4config.h"
#include "util/streamconfigutil.h"

#include <span>

class IKrxFileIo;
class IQVStreamContext;

namespace krx::mp4 {

/// The stream adaptor of MP4 files, for playback: recording operations return false or do nothing. A handle
/// is null (then every answer is 0 or false) or comes from open and is not closed yet. It serves one thread
/// at a time.
class Mp4Module : public IQVStreamAdaptor
{
public:
    /// Reads the settings from context (null: defaults, and no file opens), which is not owned.
    explicit Mp4Module(IQVStreamContext* context);

    /// Every setting that the module asks for.
    static std::span<const krx::util::SettingKey> settingKeys();
    const Mp4Config& getConfig() const { return m_config; }

    unsigned getVersion() const override { return kVersion; }
    /// Returns a krx::streams::StreamLoadStatus. A file that is not playable does not open. Throws
    /// SROutOfMemory.
    int open(IQVStreamOpenContext* context, const char* name, unsigned flags, void* userData,
             void*& handle) override;
    void setUserData(void*, void*) override {}
    void close(void* handle) override;
    bool erase(void*) override { return false; }
    unsigned getMemoryOverhead(void* handle) const override;
    unsigned getDuration(void* handle) const override;
    long long getSize(void* handle) const override;
    long long getEndPosition(void* handle) const override;
    unsigned char getType(void* handle) const override;
    bool findSegmentByIndex(void* handle, long long index, SegmentBounds* bounds) override;
    bool findSegmentByTime(void* handle, unsigned time, SegmentBounds* bounds) override;
    bool loadSegment(void* handle, SegmentBounds* bounds, ISegmentHolder* holder) override;
    void onFreeSegment(void* handle, unsigned tablePage) override;
    bool record(void*, unsigned char, const void*, unsigned, unsigned) override { return false; }
    bool flushSegment(void*, SegmentBounds*) override { return false; }
    bool stopRecord(void*) override { return false; }
    unsigned getPermission() const override { return kPermission; }
    bool getAttribute(void* handle, AttrType_t type, void* out, unsigned& size) const override;
    bool getMediaContexts(void* handle, ContextType_t type, long long position, IContextHolder* holder,
                          bool atPosition) const override;
    bool getAllMediaContexts(void* handle, IAllContextHolder* holder) const override;
    bool updateMediaContext(void*, ContextType_t, unsigned char, unsigned, void*, unsigned) override
    {
        return false;
    }

private:
    static constexpr unsigned kVersion = 256;
    static constexpr unsigned kPermission = 22;

    void readConfig();
    void readReadAheadSizes();

    IQVStreamContext* m_context;
    IKrxFileIo* m_fileIo = nullptr;
    Mp4Config m_config;
};

}  // namespace krx::mp4
