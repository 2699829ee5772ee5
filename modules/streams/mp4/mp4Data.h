// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/ISegmentHolder.h"
#include "modules/streams/mediacontexts.h"
#include "modules/streams/mp4/boundary.h"
#include "modules/streams/mp4/mp4.h"
#include "modules/streams/mp4/mp4config.h"
#include "modules/streams/mp4/mp4cursor.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "modules/streams/mp4/playextent.h"
#include "modules/streams/mp4/seekable.h"
#include "modules/streams/streamloadstatus.h"

#include <atomic>
#include <cstddef>
#include <vector>

class IKrxFileIo;
class IQVStreamContext;

namespace krx::mp4 {

class AMFMessage;

using krx::streams::kLoadCannotOpen;
using krx::streams::kLoadFailed;
using krx::streams::kLoadNotPlayable;
using krx::streams::kLoadOk;
using krx::streams::StreamLoadStatus;

/// Why a file is loaded. All but the first belong to recording into MP4 files, which is not supported.
enum Mp4LoadType : int
{
    kFirstLoad = 0,
    kReloadGrown = 1,    ///< the file has grown
    kReloadFlushed = 2,  ///< recording wrote to the file
};

/// One open MP4 file: its messages in time order, cut into segments. Positions count messages.
///
/// The file is opened for each operation that needs it. Opening walks every sample once; the payloads are
/// read when a segment is loaded.
class Mp4Data
{
public:
    /// A segment ends after the message that takes it above kSegmentSize bytes. A table page ends at the
    /// first segment end after kTablePageSize bytes of table entries.
    static constexpr unsigned kSegmentSize = 0x40000;
    static constexpr unsigned kTablePageSize = 0x40000;

    enum TypeFlags : unsigned char
    {
        kHasVideo = 1,
        kHasAudio = 4,
        kHasData = 8,
    };

    /// context may be null; neither it nor fileIo is owned. Opens nothing.
    Mp4Data(const SRMBString& path, IQVStreamContext* context, IKrxFileIo* fileIo, int openFlags,
            const Mp4Config& config);
    Mp4Data(const Mp4Data&) = delete;
    Mp4Data& operator=(const Mp4Data&) = delete;

    /// What the file keeps is taken from the quota too, as MemoryBudget::setQuota says. quota is not owned;
    /// null for none.
    void setQuota(krx::util::MemoryQuota* quota);
    /// Once cancel, which is not owned and may be null, is true, a walk over the samples throws
    /// krx::util::Cancelled. What is loaded then is of no use.
    void setCancel(const std::atomic<bool>* cancel) { m_cancel = cancel; }

    /// Loads the file. A file that cannot be played keeps a status message in its place, and the context gets
    /// the reason.
    StreamLoadStatus init();
    /// The same for an Mp4LoadType; kLoadFailed for those that are not supported.
    StreamLoadStatus initPlayback(int loadType);
    /// Parses the file, which must be open, and cuts it into segments. A file that ends early is a warning
    /// from the first sample on; every other fault is thrown as a StreamParseError. A finding of the walk
    /// over the samples has track, sample, time and message in its place, as far as they are known.
    void subInitPlayback(int loadType);
    /// How much of each valid track there is, also of a file that was refused. holes: of the file; null for
    /// none. Reads the file again if the walk over its samples has not come to its end, and when there are
    /// holes. Throws what PlayExtent::find does.
    std::vector<TrackExtent> findExtents(krx::util::FileHoles* holes);

    /// False, and bounds unchanged, when no segment holds the time (ms) or the position.
    bool findSegmentByTime(unsigned time, SegmentBounds* bounds) const;
    bool findSegmentByPos(long long index, SegmentBounds* bounds) const;
    /// Delivers the messages of a segment. bounds must come from a lookup. A bad sample is left out, and the
    /// first one of the file is logged. Any other failure ends the load: it is logged each time, the messages
    /// before it are delivered, those of an unfinished aggregate included, and the result is false.
    bool loadSegment(const SegmentBounds* bounds, ISegmentHolder* holder);
    /// Releases a page of the sample tables until a segment needs it again.
    void clearTableSegment(unsigned tablePage);
    /// Not supported: false.
    bool flushSegment(SegmentBounds*) { return false; }

    /// The number of messages.
    long long getEndPosition() const { return m_boundaries.back().index; }
    unsigned getDuration() const { return m_boundaries.back().time; }    ///< ms
    long long getSize() const { return m_fileSize; }                     ///< bytes
    unsigned char getType() const { return m_type; }                     ///< TypeFlags
    unsigned getModifiedTime() const { return m_io.GetModifiedTime(); }  ///< seconds since 1970
    /// Bytes held, cut to 32 bits.
    unsigned getMemoryOverhead() const;

    /// The "onMetaData" message; null when there is none.
    const ContextMessage* getOnMetaData() const;
    bool getMediaContexts(ContextType_t type, long long position, IContextHolder* holder,
                          bool atPosition) const;
    bool getAllMediaContexts(IAllContextHolder* holder) const;
    /// The track number of a context of the file itself.
    unsigned getContextTrackID(MediaContexts::ContextTrack track) const { return m_config.MaxTracks + track; }

    Mp4FileIO* getFileIO() { return &m_io; }
    MP4File& getFile() { return m_file; }

private:
    class ContextCache;

    // Cutting (mp4Data.cpp).
    StreamLoadStatus updateStatus(StreamLoadStatus status) const;
    void logFailure(const krx::streams::StreamParseError& error) const;
    std::vector<std::size_t> buildSegments();
    std::vector<std::size_t> walkSamples(Mp4Cursor& cursor, ContextCache& contexts);
    void appendBoundary(Mp4Cursor& cursor, CursorState& state);
    void cacheTrackEnder(const TrackCursor& track, long long index, ContextCache& contexts);
    void splitTables(const std::vector<std::size_t>& splitPoints);
    void releaseTables();
    void setMsgTypes();

    // Lookup and delivery (mp4segments.cpp).
    template <typename Value>
    bool findSegment(Value BoundaryPoint::*field, Value value, std::size_t& segment) const;
    SegmentBounds toBounds(std::size_t segment) const;
    void deliverSegment(Mp4Cursor& cursor, ISegmentHolder& holder);
    void deliverMessages(Mp4Cursor& cursor, ISegmentHolder& holder, AggMsg& aggregate);
    void deliverMessage(Seekable& message, ISegmentHolder& holder, AggMsg& aggregate);
    bool isToSkipLoad(const Seekable& message);
    void logBadSample(const krx::streams::StreamParseError& error);
    void logLoss(const krx::streams::StreamParseError& error) const;
    void keepFragments(const CursorState& state);

    // Messages of the file itself (mp4filemessages.cpp).
    void setFileContextMessages();
    void setMetadata();
    void setDRMHeader();
    void setXMP();
    void setATC();
    void findTimeCoord(TrackInfo& track);
    void cacheFileMessage(const SRMemoryPtr& body, unsigned length, SampleType type,
                          MediaContexts::ContextTrack track);
    bool isTimeCoordInfo(const Seekable& message);
    void setNoSupportedTrack();
    void setFileStructureInvalid();
    void setStatusMessage(const char* code);

    Mp4Config m_config;
    SRMBString m_path;
    IQVStreamContext* m_context;
    Mp4FileIO m_io;
    MP4File m_file;
    long long m_fileSize = 0;
    bool m_loaded = false;
    bool m_isWalked = false;  ///< every sample was
    krx::util::MemoryQuota* m_quota = nullptr;
    const std::atomic<bool>* m_cancel = nullptr;
    unsigned char m_type = 0;
    MediaContexts m_contexts;
    Seekable m_statusMessage;  ///< stands for an unplayable file; else empty

    // Boundary k starts segment k and ends segment k - 1; the last one is the end of the file.
    BoundaryList m_boundaries;

    // What loading left in memory: the table page, and the fragment that each track stood in.
    unsigned m_tablePage = 0;
    std::vector<unsigned> m_standingFragments;
    bool m_badSampleLogged = false;
};

}  // namespace krx::mp4
