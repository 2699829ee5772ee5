// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IQVStreamAdaptor.h"
#include "modules/streams/finding.h"
#include "modules/streams/mediacontexts.h"
#include "modules/streams/raw/rawConfig.h"
#include "modules/streams/raw/rawIndex.h"
#include "modules/streams/streamparseerror.h"
#include "modules/streams/videovalidationparameters.h"
#include "util/SRBuffer.h"
#include "util/SRException.h"
#include "util/SRString.h"

#include <ctime>
#include <memory>
#include <mutex>

class IKrxFileIo;
class IQVStreamContext;

namespace krx::raw {

/// One open recorded stream: a directory with an index file, a contexts file and one file for each segment.
/// Safe from any thread; a load replaces index and contexts as a whole.
class RawData
{
public:
    /// Bit of the open flags that asks for recording.
    static constexpr unsigned kRecordFlag = 2;

    /// path is the directory; file names are appended to it as it is. Findings go to the context. context and
    /// fileIo stay the caller's.
    RawData(const SRString& path, const RawConfigStruct& config, IQVStreamContext* context,
            IKrxFileIo* fileIo);

    /// Errors and warnings go to the sink instead of to the contexts; null: to the contexts. To be set before
    /// the stream is used; the sink stays the caller's.
    void setFindingSink(krx::streams::FindingSink* sink) { m_sink = sink; }

    /// Gets the stream ready for playback. False when it cannot be loaded, and for recording, which is not
    /// supported.
    bool init(unsigned flags);
    /// Reads the index and the contexts, each only when it was modified since the last time. When one is
    /// faulty: false, the stream empty and the reason reported (except for a missing directory).
    bool load();
    /// Writes both files. False, with the reason reported, on failure.
    bool save();

    /// Delivers the messages of a segment. False, with the reason reported to context, when its file is
    /// faulty or the holder refuses a message; messages delivered before stay delivered.
    bool loadSegment(IQVStreamContext* context, const SegmentBounds* bounds, ISegmentHolder* holder);
    /// The name has the low 32 bits of the start position.
    SRString getSegFileName(const SegmentBounds* bounds) const;

    /// Copies out the bounds of the segment that holds the time (ms) or the position. False when none does.
    bool findByTime(unsigned ms, SegmentBounds* bounds) const;
    bool findByLoc(long long position, SegmentBounds* bounds) const;

    /// Milliseconds.
    unsigned getDuration() const { return snapshot().index->getDuration(); }
    long long getEndPosition() const { return snapshot().index->getEndPosition(); }
    /// Bytes, as the index states it.
    long long getSize() const { return snapshot().index->size; }
    /// Kinds of messages as the index states them: 1 video, 4 audio, 8 others.
    unsigned char getType() const { return snapshot().index->type; }
    unsigned long long getSerializedIndexSize() const { return snapshot().index->getSerializedIndexSize(); }
    /// The present modification times of the two files; 0 when a file has none.
    std::time_t getModifiedTime() const { return fileTime(m_indexPath).seconds; }
    std::time_t getContextsModifiedTime() const { return fileTime(m_contextsPath).seconds; }
    bool streamDirExists() const;

    /// What the contexts file holds; never null.
    std::shared_ptr<const MediaContexts> getContexts() const { return snapshot().contexts; }
    /// Bytes held for the stream.
    std::size_t reportMemorySize() const;

private:
    class Warnings;

    struct FileTime
    {
        std::time_t seconds = 0;
        long nanoseconds = 0;

        bool isKnown() const { return seconds != 0 || nanoseconds != 0; }
        friend bool operator==(const FileTime&, const FileTime&) = default;
    };

    /// What the last load read, and the modification times that the files had then.
    struct Snapshot
    {
        std::shared_ptr<const RawIndex> index = std::make_shared<RawIndex>();
        FileTime indexTime;
        std::shared_ptr<const MediaContexts> contexts = std::make_shared<MediaContexts>();
        FileTime contextsTime;
    };

    Snapshot snapshot() const;
    void replace(Snapshot loaded);
    SRBuffer takeRoom();
    void keepRoom(const SRBuffer& room);
    bool findSegment(const SegmentBounds& key, RawIndex::Comparator comparator, SegmentBounds* bounds) const;
    FileTime fileTime(const SRString& path) const;

    void readIndex(Snapshot& loaded) const;
    void readContexts(Snapshot& loaded) const;
    void writeIndex(const RawIndex& index) const;
    void writeContexts(const MediaContexts& contexts) const;

    void logIndex(const RawIndex& index) const;
    void reportUnloaded(const krx::util::FileReadException& error, const char* file) const;
    /// Hands an error or a warning on, with its place when there is a sink.
    void report(IQVStreamContext* context, const krx::streams::StreamParseError& error,
                krx::streams::FindingLevel level) const;
    /// The same for an error without a number.
    void reportSentence(IQVStreamContext* context, const SRException& error,
                        const krx::streams::Place& place) const;
    void logTo(IQVStreamContext* context, const SRException& error, krx::streams::LogLevel_t level) const;

    const SRString m_path;
    const SRString m_indexPath;
    const SRString m_contextsPath;
    const RawConfigStruct m_config;
    IQVStreamContext* const m_context;
    IKrxFileIo* const m_fileIo;
    krx::streams::FindingSink* m_sink = nullptr;

    mutable std::mutex m_mutex;  ///< of what follows
    Snapshot m_loaded;
    SRBuffer m_room;  ///< the memory of the last segment, for the next one; empty while it is in use
};

}  // namespace krx::raw
