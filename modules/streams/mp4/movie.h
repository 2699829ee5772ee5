// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/bytestore.h"
#include "modules/streams/mp4/memorybudget.h"
#include "modules/streams/mp4/trackinfo.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

class SRMemory;

namespace krx::mp4 {

/// One tag of an item list, or a string tag.
struct TagEntry
{
    /// Well-known types of a 'data' box; others are kept as read.
    enum DataType : unsigned
    {
        kImplicit = 0,
        kText = 1,  ///< UTF-8
        kJPEG = 13,
        kPNG = 14,
        kInteger = 21,
    };

    unsigned itemType = 0;           ///< four-character code
    unsigned dataType = 0;           ///< DataType
    unsigned short language = 0;     ///< packed; 0 when absent
    unsigned short integerSize = 0;  ///< bytes of each integer; 0 when the content is none
    /// Text, image or integers as in the file, cut to what is supported; empty for other types. UTF-16 text
    /// has zeros inside. Valid as long as the movie.
    std::string_view content;

    unsigned integerCount() const;
    /// Integer i, which is below integerCount(). The last one may be shorter in the file.
    unsigned integer(unsigned i) const;
};

struct ChapterEntry
{
    /// Bytes in front of the title: the time and the length.
    static constexpr unsigned kPrefix = 9;

    unsigned long long time = 0;  ///< movie timescale units
    std::string_view title;       ///< at most 255 characters; valid as long as the movie
};

/// One entry of 'pdin'.
struct ProgressiveEntry
{
    unsigned rate = 0;          ///< bytes a second
    unsigned initialDelay = 0;  ///< ms
};

/// A 'free' or 'skip' box.
struct FreeSpace
{
    krx::util::FilePos start = 0;
    krx::util::FilePos size = 0;
};

/// A track box that was dropped and has no record: it names no track, or one that an earlier box named.
struct DroppedTrack : TrackFacts
{
    unsigned id = 0;                                         ///< 0 for none
    std::shared_ptr<const krx::streams::Finding> droppedBy;  ///< not null
};

/// What the boxes of a file say: plain facts, which the handlers fill in and playback reads.
struct Movie
{
    Movie();
    ~Movie();

    unsigned brand = 0;  ///< major brand of 'ftyp', a four-character code; 0 when there is none

    // 'moov' and 'mvhd'.
    bool seen = false;                 ///< there was a movie box
    krx::util::FilePos payload = 0;    ///< first byte after the header of the movie box
    krx::util::FilePos headerPos = 0;  ///< start of 'mvhd'
    unsigned timescale = 0;            ///< units a second
    unsigned long long duration = 0;   ///< movie timescale units
    std::deque<FreeSpace> freeBoxes;   ///< in 'moov'

    /// In file order. A record is made when its ID first appears, so the configured maximum costs nothing.
    std::vector<std::unique_ptr<TrackInfo>> tracks;
    std::unordered_map<unsigned, TrackInfo*> tracksById;
    std::vector<DroppedTrack> droppedTracks;  ///< in file order, at most as many as may have records

    // The kinds of tracks with a supported sample description, and whether a recording can add more to it.
    bool videoSeen = false;
    bool audioSeen = false;
    bool dataSeen = false;
    bool videoAppendable = false;
    bool audioAppendable = false;
    bool dataAppendable = false;

    // Of the last decoder configuration that was read.
    bool avcSeen = false;
    bool aacSeen = false;
    unsigned avcProfile = 0;
    unsigned avcLevel = 0;
    unsigned aacObjectType = 0;

    // Movie fragments.
    bool extendsSeen = false;           ///< there was an 'mvex' box
    krx::util::FilePos extendsPos = 0;  ///< start of 'mvex'
    unsigned lastSequenceNumber = 0;    ///< of the last 'mfhd'
    krx::util::FilePos moofStart = 0;   ///< of the last 'moof'

    ByteStore texts;  ///< contents of tags, and titles
    std::deque<TagEntry> tags;
    std::deque<ChapterEntry> chapters;  ///< of one box, in file order
    krx::streams::Place firstChapterPlace;
    std::vector<ProgressiveEntry> progressive;
    /// The XMP text, zero-terminated; its used length excludes the zero. Null until there is one.
    std::unique_ptr<SRMemory> xmp;

    /// The track with that ID, or null.
    TrackInfo* findTrack(unsigned id) const;
    /// The same, made when there is none; null for ID 0, and when there would be more than maxTracks.
    TrackInfo* provideTrack(unsigned id, unsigned maxTracks, MemoryBudget& memory);
    /// Bytes held, those of the struct itself excluded.
    std::size_t reportMemorySize() const;
};

}  // namespace krx::mp4
