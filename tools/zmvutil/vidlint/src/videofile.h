// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IQVStreamAdaptor.h"
#include "interfaces/IQVStreamContext.h"
#include "interfaces/ISegmentHolder.h"
#include "modules/streams/streamparseerror.h"
#include "modules/streams/videovalidationparameters.h"
#include "server/KRXSyncFileIo.h"

#include <cstddef>
#include <memory>
#include <string>

class SRDataArray;

/// The properties of an open request: none.
class VideoFileOpenContext : public IQVStreamOpenContext
{
public:
    int getProperty(const char* section, const char* name, char* out, int size) override;
};

/// One input of a job: its path, its parameters, its part of the report, and its answers to the stream
/// modules. The base class itself stands for a directory with a recorded stream. The constructor and every
/// step throw faults as StreamParseError.
class VideoFile : public IQVStreamContext, public ISegmentHolder
{
public:
    /// Announces the input in the report. Throws kFileNotFound.
    VideoFile(const SRString& path, krx::streams::VideoValidationParameters parameters);
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
    /// Writes a repaired copy when repairs were asked for and found.
    virtual void applyFixes();
    /// Writes the passed line.
    virtual void logSuccess();

    bool add(unsigned char type, void* data, unsigned length, unsigned time) override;
    void addDep(unsigned tablePage, unsigned bytes) override;

    /// Writes the line that rejects an input, whatever the level.
    static void logError(const krx::streams::StreamParseError& error, const SRString& path);

protected:
    /// Whether lines of the level are to be shown: to be asked before a costly text is built.
    bool isShown(krx::streams::LogLevel_t level) const { return level <= m_parameters.logLevel; }

    void subLog(const std::string& text, krx::streams::LogLevel_t level);
    void logInfo(const std::string& text);
    void logAlert(const std::string& text);
    /// Reports a warning, or throws it when warnings count as errors.
    void logWarning(const krx::streams::StreamParseError& warning);
    /// Shows the names and values of an array; null is an empty array. encodedSize: bytes of the message that
    /// it was read from. References in a message can make its text exponentially long, so the text is cut off
    /// where it is out of proportion.
    void logDataArray(const SRDataArray* array, std::size_t encodedSize);
    /// The passed line with the given path.
    void logPassed(const SRString& path);

    const SRString m_path;
    const krx::streams::VideoValidationParameters m_parameters;

private:
    void initAdaptor();
    void closeStream();
    void logMetaData();

    SimpleKrxSyncFileIo m_fileIo;
    VideoFileOpenContext m_openContext;
    std::unique_ptr<IQVStreamAdaptor> m_adaptor;
    void* m_handle = nullptr;  ///< the adaptor's, while the stream is open
};
