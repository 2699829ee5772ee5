// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxheader.h"
#include "modules/streams/mp4/bytestore.h"
#include "modules/streams/mp4/memorybudget.h"
#include "modules/streams/mp4/mp4config.h"
#include "modules/streams/mp4/mp4errors.h"
#include "modules/streams/mp4/trackinfo.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class IQVStreamContext;
class SRMemory;

namespace krx::mp4 {

class Mp4FileIO;

/// Reads the boxes of an MP4 file once, front to back, checks them, and keeps the movie's facts and its
/// tracks. Errors are thrown as StreamParseError; warnings go through logWarning.
class MP4File
{
public:
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
        /// Text, image or integers as in the file, cut to what is supported; empty for other types. UTF-16
        /// text has zeros inside. Valid as long as the file object.
        std::string_view content;

        unsigned integerCount() const;
        /// Integer i, which is below integerCount(). The last one may be shorter in the file.
        unsigned integer(unsigned i) const;
    };

    struct ChapterEntry
    {
        unsigned long long time = 0;  ///< movie timescale units
        std::string_view title;       ///< at most 255 characters; valid as long as the file object
    };

    struct ProgressiveEntry
    {
        unsigned rate = 0;          ///< bytes a second
        unsigned initialDelay = 0;  ///< ms
    };

    using WarningObserver = std::function<void(const krx::streams::StreamParseError& warning)>;

    MP4File(const Mp4Config& config, IQVStreamContext* context);
    ~MP4File();
    MP4File(const MP4File&) = delete;
    MP4File& operator=(const MP4File&) = delete;

    IQVStreamContext* getContext() const { return m_context; }
    /// The reader; not owned. Must be set, and open, before parse.
    void setIO(Mp4FileIO* io) { m_io = io; }
    /// Parses from start to the end of the file.
    void parse(long long start);
    /// Gives each track the number under which its context messages are kept: its ID where that is below the
    /// configured MaxTracks, else, in file order, the smallest number from 0 on that no track has. From
    /// MaxTracks on the numbers are those of the file's own contexts. parse does this at its end.
    void numberContexts();

    bool isAppendable() const;
    /// The record in use with that ID, or null.
    TrackInfo* getTrack(unsigned id);
    /// Makes the track current, in a new record if its ID is not known; none for ID 0 or when all records are
    /// in use.
    void setCurTrack(unsigned id);
    TrackInfo* getCurTrack() const { return m_curTrack; }
    /// The records in use, in file order; valid for the life of the object.
    std::vector<TrackInfo*> getTrackVec();
    unsigned getTrackCount() const { return static_cast<unsigned>(m_tracks.size()); }
    /// Recording path: validates the record (Mp4TrackError when it is incomplete) and copies it into the next
    /// free one; false when all are in use.
    bool addNewTrack(const TrackInfo& track);

    unsigned long long getMovieDuration(unsigned& timescale) const;
    unsigned getMovieTimescale() const { return m_timescale; }
    /// First byte after the movie box's header.
    krx::util::FilePos getMoviePos() const { return m_moviePos; }
    krx::util::FilePos getMovieHeaderBoxPos() const { return m_movieHeaderPos; }
    bool getMovieExtendsBoxPos(krx::util::FilePos& pos) const;
    /// Recording path: takes size bytes from the smallest free box of the movie box that has exactly that
    /// size or room for another box after it; pos is where they start, remaining what the free box keeps. Of
    /// size 0 the smallest free box is found, and keeps all. False when there is none, and for a negative
    /// size.
    bool consumeFreeBoxInMoov(long long size, krx::util::FilePos& pos, krx::util::FilePos& remaining);

    bool hasAVCVideo() const { return m_avcSeen; }
    bool hasAACAudio() const { return m_aacSeen; }
    unsigned getAVCProfile() const { return m_avcProfile; }
    unsigned getAVCLevel() const { return m_avcLevel; }
    unsigned getAACObjectType() const { return m_aacObjectType; }
    const std::deque<TagEntry>& getTags() const { return m_tags; }
    const std::deque<ChapterEntry>& getChapters() const { return m_chapters; }
    const std::vector<ProgressiveEntry>& getProgressiveEntries() const { return m_progressive; }
    bool hasXMPData() const;
    /// The XMP text, zero-terminated, its used length without the zero; null before there was one.
    const SRMemory* getXMP() const { return m_xmp.get(); }

    /// Throws a copy when warnings count as errors; prints above log level 2.
    void logWarning(const krx::streams::StreamParseError& warning);
    /// Prints above log level 4.
    void logInfo(const std::string& text);
    void setLogLevel(int level) { m_logLevel = level; }
    void setWarningsAsErrors(bool on) { m_warningsAsErrors = on; }
    /// Called with every warning, before it is thrown or printed.
    void setWarningObserver(WarningObserver observer) { m_warningObserver = std::move(observer); }

    /// Reads the content of a 'traf', from payload to end, for TrackFragment::load.
    void parseTrackFragment(TrackFragment& fragment, krx::util::FilePos payload, krx::util::FilePos end);

    /// What the file may make the program keep; whoever keeps something because of the file charges it here.
    MemoryBudget& memory() { return m_memory; }
    /// Bytes really held.
    std::size_t reportMemorySize() const;

private:
    struct BoxRule;
    struct EntryRule;
    class OpenBox;
    class FragmentReload;

    // The walk, and what the handlers check.
    static const BoxRule* findRule(unsigned type);
    void checkForZMV();
    void parseBoxes(const BoxHeader& parent);
    BoxHeader parseBoxHeader(const BoxHeader& parent,
                             krx::streams::ParseStatus notPositive = krx::streams::kTruncatedBox);
    void parseBox(const BoxHeader& box);
    void tryParseBox(const BoxHeader& box);
    bool scanAndParse(const BoxHeader& parent, unsigned type);
    bool skipToBox(unsigned type, krx::util::FilePos end);
    void verifyCurrentTrack() const;
    static void verifyUniqueBox(bool alreadySeen);
    static void verifyVersion(unsigned version, int highest);
    unsigned parseVersion(const BoxHeader& box);
    void warn(krx::streams::ParseStatus status);
    void warnAboutBox(krx::streams::ParseStatus status, const BoxHeader& box);
    bool isSilent() const
    {
        return m_reloading || (m_logLevel <= 2 && !m_warningsAsErrors && !m_warningObserver);
    }

    // Reading; all integers are big-endian. A read where nothing is left throws TruncatedStreamError.
    krx::util::FilePos curPos() const;
    void skip(long long n);
    void skipTo(krx::util::FilePos pos);
    void read(void* buffer, unsigned long long n);
    unsigned char readU8();
    unsigned short readU16();
    unsigned readU24();
    unsigned readU32();
    unsigned long long readU64();
    unsigned long long bytesLeft(krx::util::FilePos end) const;
    std::string_view readBytes(unsigned long long n);
    SRMBString readString(unsigned limit);
    unsigned parseVarLenInt(krx::util::FilePos end);

    // Movie and track boxes.
    void parseMovie(const BoxHeader& box);
    void validateMovie() const;
    void parseMovieHeader(const BoxHeader& box);
    void parseTrack(const BoxHeader& box);
    void validateTrack(TrackInfo& track);
    void parseTrackHeader(const BoxHeader& box);
    void parseMediaHeader(const BoxHeader& box);
    void parseFreeSpace(const BoxHeader& box);

    // Sample tables and edit lists.
    template <typename T>
    void initTable(PageableArray<T>& table, unsigned count, unsigned entrySize);
    unsigned parseNumEntries(bool zeroAllowed);
    void parseTimeToSample(const BoxHeader& box);
    void parseCompositionToSample(const BoxHeader& box);
    void parseSampleToChunk(const BoxHeader& box);
    void parseSampleSize(const BoxHeader& box);
    void parseChunkOffset(const BoxHeader& box);
    void parseSyncSample(const BoxHeader& box);
    void parseSampleFlags(const BoxHeader& box);
    void parseEditList(const BoxHeader& box);
    void parseEditListEntries(EditList& list, MemoryCharge& charge);
    std::optional<long long> parseTrailingFreeBox(const BoxHeader& parent);

    // Sample descriptions.
    void parseSampleDescription(const BoxHeader& box);
    void parseVideoDescription(const BoxHeader& box, SampleEntry& entry);
    void parseAvcConfiguration(const BoxHeader& box, SampleEntry& entry);
    void parseAudioDescription(const BoxHeader& box, SampleEntry& entry);
    void parseElementaryStreamDescriptor(const BoxHeader& box, SampleEntry& entry);
    void parseAudioSpecificConfig(SampleEntry& entry);
    void parseTextDescription(const BoxHeader& box, SampleEntry& entry);
    FontTable parseFontTable(const BoxHeader& box);
    void parseDataDescription(const BoxHeader& box, SampleEntry& entry);
    void parseImageDescription(const BoxHeader& box, SampleEntry& entry);
    void readConfiguration(SampleEntry& entry, unsigned length);
    void parseProtectionOf(const BoxHeader& entryBox);

    // Movie fragments.
    void parseMovieExtends(const BoxHeader& box);
    void parseTrackExtends(const BoxHeader& box);
    void parseMovieFragment(const BoxHeader& box);
    void parseMovieFragmentHeader(const BoxHeader& box);
    void parseAndUnloadTrackFragment(const BoxHeader& box);
    void parseTrackFragmentHeader(TrackFragment& fragment);
    void parseTrackFragmentRun(TrackFragment& fragment);

    // Metadata and tags.
    void parseMetadata(const BoxHeader& box);
    void parseItunesMetadata(const BoxHeader& box);
    void parseItunesDataTag(const BoxHeader& item);
    void parseStringTag(const BoxHeader& box);
    void parseChapterList(const BoxHeader& box);
    void parseProgressiveDownload(const BoxHeader& box);
    void parseUniversalUniqueIDBox(const BoxHeader& box);
    void addTag(const TagEntry& tag);

    // Content protection.
    void parseOriginalFormat(const BoxHeader& box);
    void parseDRMScheme(const BoxHeader& box);
    void parseDRMHeader(const BoxHeader& box);
    void parseDRMKeyInformation(const BoxHeader& box);
    void parseStandardEncryptionParams(const BoxHeader& box);
    void parseEncryptionInfo(const BoxHeader& box);
    void parseAccessUnitFormat(const BoxHeader& box);
    void parseSignature(const BoxHeader& box);
    void parseZolProtection(const BoxHeader& box);
    void parseWdxsProtection(const BoxHeader& box);

    Mp4Config m_config;
    IQVStreamContext* m_context;
    Mp4FileIO* m_io = nullptr;
    MemoryBudget m_memory;
    int m_logLevel = 2;
    bool m_warningsAsErrors = false;
    WarningObserver m_warningObserver;

    std::vector<unsigned> m_openBoxes;  ///< types of the boxes around the position, outermost first

    // Records are made when an ID first comes up, so that the configured maximum costs nothing.
    std::vector<std::unique_ptr<TrackInfo>> m_tracks;
    std::unordered_map<unsigned, TrackInfo*> m_tracksById;
    TrackInfo* m_curTrack = nullptr;

    bool m_movieSeen = false;
    unsigned m_timescale = 0;
    unsigned long long m_duration = 0;
    krx::util::FilePos m_moviePos = 0;
    krx::util::FilePos m_movieHeaderPos = 0;
    struct FreeSpace
    {
        krx::util::FilePos start;
        krx::util::FilePos size;
    };
    std::deque<FreeSpace> m_freeBoxesInMoov;

    bool m_videoSeen = false;
    bool m_audioSeen = false;
    bool m_dataSeen = false;
    bool m_videoAppendable = false;
    bool m_audioAppendable = false;
    bool m_dataAppendable = false;
    bool m_avcSeen = false;
    bool m_aacSeen = false;
    unsigned m_avcProfile = 0;
    unsigned m_avcLevel = 0;
    unsigned m_aacObjectType = 0;

    bool m_movieExtendsSeen = false;
    krx::util::FilePos m_movieExtendsPos = 0;
    unsigned m_lastSequenceNumber = 0;
    krx::util::FilePos m_moofStart = 0;  ///< of the last 'moof'
    bool m_reloading = false;            ///< a fragment whose warnings the parse has given is read again

    ByteStore m_texts{m_memory};  ///< contents of tags, and titles
    std::deque<TagEntry> m_tags;
    std::deque<ChapterEntry> m_chapters;
    std::vector<ProgressiveEntry> m_progressive;
    std::unique_ptr<SRMemory> m_xmp;
};

}  // namespace krx::mp4
