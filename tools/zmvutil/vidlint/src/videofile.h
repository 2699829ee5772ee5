// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IQVStreamAdaptor.h"
#include "interfaces/IQVStreamContext.h"
#include "interfaces/ISegmentHolder.h"
#include "modules/streams/streamparseerror.h"
#include "modules/streams/videovalidationparameters.h"
#include "tools/zmvutil/vidlint/src/checkenvironment.h"
#include "tools/zmvutil/vidlint/src/checksink.h"
#include "tools/zmvutil/vidlint/src/messagetally.h"
#include "util/SRString.h"
#include "util/memoryquota.h"
#include "vidlint/inputreport.h"

#include <cstddef>
#include <memory>
#include <string_view>

class SRDataArray;

namespace krx::raw {
class RawAdaptor;
}

/// The properties of an open request: none.
class VideoFileOpenContext : public IQVStreamOpenContext
{
public:
    int getProperty(const char* section, const char* name, char* out, int size) override;
};

/// One input of a check: its path, its parameters, and its answers to the stream modules. The base class
/// itself stands for a directory with a recorded stream. What it finds goes to the sink of its environment.
/// The constructor and every step throw errors as StreamParseError.
class VideoFile : public IQVStreamContext, public ISegmentHolder
{
public:
    /// Begins the listing. Throws kFileNotFound.
    VideoFile(const SRString& path, krx::streams::VideoValidationParameters parameters,
              const CheckEnvironment& environment);
    VideoFile(const VideoFile&) = delete;
    VideoFile& operator=(const VideoFile&) = delete;
    ~VideoFile() override;

    unsigned getVersion() const override;
    int getConfig(const char* key, char** value, int size) override;
    void log(const char* text, unsigned short level, bool flag) override;
    IKrxFileIo* getFileIo() override;

    /// Does all checking. Throws a standard exception when the stream module refused the input and has
    /// reported why.
    virtual void parse();
    /// Whether parse asked for repairs.
    virtual bool hasFixes() const { return false; }
    /// The path of the copy that applyFixes writes.
    virtual SRString copyPath() const { return m_path; }
    /// Writes a repaired copy when repairs were asked for. The copy stays locked as long as the object is
    /// here.
    virtual void applyFixes() {}
    /// Says what is known of the input: tracks, times, fixes, and what is missing of it. To be called after
    /// parse, also when it threw; the report has size and verdict. May read the input again.
    virtual void describe(vidlint::InputReport& report);

    bool add(unsigned char type, void* data, unsigned length, unsigned time) override;
    void addDep(unsigned tablePage, unsigned bytes) override;

protected:
    /// Whether the listing is wanted: to be asked before a costly text is built.
    bool isListing() const { return m_environment.sink.wantsListing(); }
    void logInfo(std::string_view text);
    /// Reports a warning, or throws it when warnings count as errors.
    void logWarning(const krx::streams::StreamParseError& warning);
    /// Shows the names and values of an array; null is an empty array. encodedSize: bytes of the message that
    /// it was read from. References in a message can make its text exponentially long, so the text is cut off
    /// where it is out of proportion.
    void logDataArray(const SRDataArray* array, std::size_t encodedSize);
    /// A track for each kind of messages that there is, and the time of the last one. It plays as far as the
    /// messages that are there.
    static void addTracks(vidlint::InputReport& report, const StreamTally& tally, const StreamTally& there);
    /// Takes the bytes from the memory that checks share, in place of those taken before. Throws
    /// SROutOfMemory.
    void reserve(std::uint64_t bytes);

    const SRString m_path;
    const krx::streams::VideoValidationParameters m_parameters;
    const CheckEnvironment m_environment;

private:
    void initAdaptor();
    void closeStream();
    void logMetaData();

    VideoFileOpenContext m_openContext;
    std::unique_ptr<krx::raw::RawAdaptor> m_adaptor;
    void* m_handle = nullptr;  ///< the adaptor's, while the stream is open
    krx::util::QuotaShare m_memory;
    StreamTally m_tally;
};
