// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxreader.h"
#include "modules/streams/mp4/boxwalk.h"
#include "modules/streams/mp4/fragmentloader.h"
#include "modules/streams/mp4/movie.h"
#include "modules/streams/mp4/mp4config.h"
#include "modules/streams/mp4/mp4errors.h"

#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

class IQVStreamContext;
class SRMemory;

namespace krx::mp4 {

/// Reads the boxes of an MP4 file once, front to back, checks them, and keeps the movie's facts and its
/// tracks. Errors are thrown as StreamParseError; warnings go through logWarning.
///
/// This is the face of the reader: BoxReader reads, BoxWalk finds the handler of each box, the handlers fill
/// in the Movie.
class MP4File
{
public:
    using TagEntry = krx::mp4::TagEntry;
    using ChapterEntry = krx::mp4::ChapterEntry;
    using ProgressiveEntry = krx::mp4::ProgressiveEntry;

    MP4File(const Mp4Config& config, IQVStreamContext* context);
    ~MP4File();
    MP4File(const MP4File&) = delete;
    MP4File& operator=(const MP4File&) = delete;

    IQVStreamContext* getContext() const { return m_context; }
    /// The file access; not owned. Must be set, and open, before parse.
    void setIO(Mp4FileIO* io) { m_reader.setFile(io); }
    /// Parses from start to the end of the file.
    void parse(long long start);
    /// Gives each track the number of its context messages: its ID if that is below the configured MaxTracks,
    /// else, in file order, the smallest number from 0 on that no track has. Numbers from MaxTracks on belong
    /// to the file's own contexts. parse calls this at its end.
    void numberContexts();

    /// The facts, which are all that playback looks at.
    const Movie& movie() const { return m_movie; }
    operator const Movie&() const { return m_movie; }

    bool isAppendable() const;
    /// The record in use with that ID, or null.
    TrackInfo* getTrack(unsigned id) { return m_movie.findTrack(id); }
    /// Makes the track current, in a new record if its ID is new. With ID 0, or when all records are in use,
    /// no track is current.
    void setCurTrack(unsigned id);
    TrackInfo* getCurTrack() const { return m_walk.track(); }
    /// The records in use, in file order; valid for the life of the object.
    std::vector<TrackInfo*> getTrackVec();
    unsigned getTrackCount() const { return static_cast<unsigned>(m_movie.tracks.size()); }
    /// Recording path: validates the record (Mp4TrackError when it is incomplete) and copies it into the next
    /// free one; false when all are in use.
    bool addNewTrack(const TrackInfo& track);

    unsigned long long getMovieDuration(unsigned& timescale) const;
    unsigned getMovieTimescale() const { return m_movie.timescale; }
    /// First byte after the movie box's header.
    krx::util::FilePos getMoviePos() const { return m_movie.payload; }
    krx::util::FilePos getMovieHeaderBoxPos() const { return m_movie.headerPos; }
    bool getMovieExtendsBoxPos(krx::util::FilePos& pos) const;
    /// Recording path: takes size bytes from the smallest free box of the movie box that has exactly that
    /// size, or room for another box after it. pos becomes their start, remaining what the free box keeps.
    /// Size 0 finds the smallest free box and takes nothing. False when there is none or size is negative.
    bool consumeFreeBoxInMoov(long long size, krx::util::FilePos& pos, krx::util::FilePos& remaining);

    bool hasAVCVideo() const { return m_movie.avcSeen; }
    bool hasAACAudio() const { return m_movie.aacSeen; }
    unsigned getAVCProfile() const { return m_movie.avcProfile; }
    unsigned getAVCLevel() const { return m_movie.avcLevel; }
    unsigned getAACObjectType() const { return m_movie.aacObjectType; }
    const std::deque<TagEntry>& getTags() const { return m_movie.tags; }
    const std::deque<ChapterEntry>& getChapters() const { return m_movie.chapters; }
    const std::vector<ProgressiveEntry>& getProgressiveEntries() const { return m_movie.progressive; }
    bool hasXMPData() const;
    /// The XMP text, zero-terminated; its used length excludes the zero. Null until there is one.
    const SRMemory* getXMP() const { return m_movie.xmp.get(); }

    /// Hands the warning to the finding sink if that admits it, throws a copy when warnings count as errors,
    /// and prints it above log level 2.
    void logWarning(const krx::streams::StreamParseError& warning) { m_reader.logWarning(warning); }
    /// Prints above log level 4.
    void logInfo(const std::string& text) { m_reader.logInfo(text); }
    void setLogLevel(int level) { m_reader.setLogLevel(level); }
    void setWarningsAsErrors(bool on) { m_reader.setWarningsAsErrors(on); }
    /// Gets the warnings, each before it is thrown or printed. Null for none; not owned.
    void setFindingSink(krx::streams::FindingSink* sink) { m_reader.setFindingSink(sink); }
    /// Gets what is printed, which without a call goes to the standard output. An empty one drops it.
    void setLineSink(BoxReader::LineSink sink) { m_reader.setLineSink(std::move(sink)); }

    /// The memory that the file may use. Whoever keeps data of the file charges it here.
    MemoryBudget& memory() { return m_reader.memory(); }
    /// Bytes really held.
    std::size_t reportMemorySize() const;

private:
    void readBoxes(krx::util::FilePos start);
    void checkForZMV();

    IQVStreamContext* m_context;
    BoxReader m_reader;
    Movie m_movie;
    FragmentLoader m_fragments{m_reader, m_movie};
    BoxWalk m_walk{m_reader, m_movie, m_fragments};
};

}  // namespace krx::mp4
