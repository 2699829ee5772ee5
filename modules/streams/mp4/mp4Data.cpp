// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4Data.h"

#include "interfaces/IQVStreamContext.h"
#include "modules/streams/mp4/walkbudget.h"
#include "util/fileholes.h"

#include <algorithm>
#include <limits>
#include <map>
#include <string>
#include <utility>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

/// Bytes that it takes to know a context by its description and kind during the walk.
constexpr std::size_t kKnownContext = 128;

/// Later times are cut to this one, ms.
constexpr unsigned kTimeLimit = std::numeric_limits<unsigned>::max();

// Entries of the next page that a page holds too: its last message may be a sample whose ender is the next
// page's first message, or an ender that was found by reading the next page's first sample. That takes the
// first entry of each table, and also the second of the sample-to-chunk table.
constexpr unsigned kOverlap = 1;
constexpr unsigned kSampleToChunkOverlap = 2;

/// Runs function. A fault that leaves it names the track.
template <typename Function>
void inTrack(const TrackInfo& track, Function function)
{
    try {
        function();
    } catch (StreamParseError& fault) {
        fault.place().track = track.trackId;
        throw;
    }
}

}  // namespace

/// Keeps the decoder headers and enders of one walk as contexts. Headers of one description have the same
/// bytes, and so have its enders: these are held once.
class Mp4Data::ContextCache
{
public:
    explicit ContextCache(Mp4Data& data) : m_data(data) {}

    void cacheContextMessage(Seekable& message)
    {
        const SampleDescriptions& descriptions = message.getTrack()->sampleDescriptions;
        const Key key{&descriptions[message.getDescriptionIndex() - 1], message.isEnder()};
        MemoryBudget& memory = m_data.m_file.memory();
        memory.charge(kDequeElement<ContextMessage>);
        const auto known = m_known.find(key);
        if (known != m_known.end()) {
            ContextMessage again = known->second;
            again.position = message.getIndex();
            again.time = message.getTime();
            m_data.m_contexts.cacheContext(again);
            return;
        }
        memory.charge(kKnownContext + sizeof(SRMemory) + 2 * kBlockOverhead + message.getEstimatedMsgSize());
        message.readPayload(m_data.m_io);
        ContextMessage first;
        if (message.toContextMessage(first)) {
            m_data.m_contexts.cacheContext(first);
            m_known.emplace(key, first);
        }
    }

private:
    using Key = std::pair<const SampleEntry*, bool>;

    Mp4Data& m_data;
    std::map<Key, ContextMessage> m_known;
};

Mp4Data::Mp4Data(const SRMBString& path, IQVStreamContext* context, IKrxFileIo* fileIo, int openFlags,
                 const Mp4Config& config)
    : m_config(config),
      m_path(path),
      m_context(context),
      m_io(path, fileIo, openFlags, config),
      m_file(config, context)
{
    m_file.setIO(&m_io);
}

void Mp4Data::setQuota(krx::util::MemoryQuota* quota)
{
    m_quota = quota;
    m_file.memory().setQuota(quota);
}

StreamLoadStatus Mp4Data::init()
{
    return updateStatus(initPlayback(kFirstLoad));
}

StreamLoadStatus Mp4Data::updateStatus(StreamLoadStatus status) const
{
    return status == kLoadOk && !m_loaded ? kLoadNotPlayable : status;
}

StreamLoadStatus Mp4Data::initPlayback(int loadType)
{
    if (loadType != kFirstLoad)
        return kLoadFailed;
    const AutoMp4Open open(&m_io);
    if (!open.isOpen()) {
        logFailure(StreamParseError(krx::streams::kCannotOpenFile));
        return kLoadCannotOpen;
    }
    try {
        try {
            subInitPlayback(loadType);
        } catch (const NoTracksError& error) {
            logFailure(error);
            m_file.logWarning(error);
            setFileContextMessages();
            setNoSupportedTrack();
        } catch (const StreamParseError& error) {
            logFailure(error);
            m_file.logWarning(error);
            setFileStructureInvalid();
        }
    } catch (const StreamParseError& error) {
        try {
            m_file.logWarning(error);
        } catch (const StreamParseError&) {
            return kLoadFailed;  // warnings count as errors: there is no more to say
        }
        return kLoadFailed;
    }
    return kLoadOk;
}

/// The reason why the file does not play, as a line of the context's log.
void Mp4Data::logFailure(const StreamParseError& error) const
{
    if (!m_context)
        return;
    std::string line(error.getMessage().toMultiByte().view());
    line += '\t';
    line += m_path.view();
    m_context->log(line.c_str(), krx::streams::LOG_ERROR, false);
}

void Mp4Data::subInitPlayback(int)
{
    m_loaded = m_isWalked = false;
    const long long previousSize = std::exchange(m_fileSize, m_io.Size(true));
    m_file.parse(previousSize);
    std::vector<std::size_t> splitPoints;
    try {
        splitPoints = buildSegments();
    } catch (const TruncatedStreamError& error) {
        m_file.logWarning(error);
        // The tables were not cut, so that they are one page.
        m_boundaries.forgetTablePages();
    }
    try {
        setFileContextMessages();
    } catch (const TruncatedStreamError& error) {
        m_file.logWarning(error);
    }
    // Not before: the search for the time coordination is not bound to a segment.
    splitTables(splitPoints);
    setMsgTypes();
    releaseTables();
    m_loaded = true;
}

/// Walks all samples in time order and cuts the messages into segments. Returns the boundaries at which a new
/// table page begins.
std::vector<std::size_t> Mp4Data::buildSegments()
{
    ContextCache contexts(*this);
    Mp4Cursor cursor(m_file);

    // The end runs also when an error ends the walk: keeps how far it came, and releases unfinished
    // fragments.
    struct WalkFacts
    {
        Mp4Cursor& cursor;
        explicit WalkFacts(Mp4Cursor& walk) : cursor(walk)
        {
            cursor.applyTracks([](TrackCursor& track) { track.track().startMillis = track.getTimeMillis(); });
        }
        ~WalkFacts()
        {
            TrackCursor* stopped = cursor.getActiveTrack();
            cursor.applyTracks([&](TrackCursor& track) {
                TrackInfo& info = track.track();
                const bool within = &track == stopped && !track.isHeader() && !track.isEnder();
                info.samplesPassed = track.passedSamples();
                info.sampleTotal = info.samplesPassed + (within ? 1 : 0);
                info.timePassed = track.decodeTime() - track.delay();
                info.endMillis = track.getTimeMillis();
                track.releaseFragment();
            });
        }
        WalkFacts(const WalkFacts&) = delete;
        WalkFacts& operator=(const WalkFacts&) = delete;
    } const facts{cursor};

    try {
        return walkSamples(cursor, contexts);
    } catch (StreamParseError& fault) {
        cursor.addPlace(fault);
        throw;
    }
}

std::vector<std::size_t> Mp4Data::walkSamples(Mp4Cursor& cursor, ContextCache& contexts)
{
    CursorState state;
    appendBoundary(cursor, state);
    unsigned long long splitTableBytes = 0;
    std::vector<std::size_t> splitPoints;
    Seekable message;
    WalkBudget budget(m_fileSize);
    const WalkLimits limits{static_cast<unsigned long long>(m_fileSize), Seekable::kMaxPayload};
    WalkTally tally{0, kSegmentSize, budget.left()};
    while (TrackCursor* track = cursor.getActiveTrack()) {
        // Most samples are only counted; the others are made messages, to find what is wrong with them.
        if (cursor.walk(limits, tally))
            budget.charge(budget.left() - tally.stepsLeft);
        else {
            if (message.initFromCursor(track, cursor.getIndex(), m_io)) {
                budget.charge(message.getTime() == kTimeLimit ? WalkBudget::kSingleSample : 1);
                if (message.isHeader() || message.isEnder())
                    contexts.cacheContextMessage(message);
                tally.bytes += message.getEstimatedMsgSize();
                cursor.countMessage();
            } else
                budget.charge(WalkBudget::kSingleSample);
            cursor.advance();
            tally.stepsLeft = budget.left();
        }

        if (tally.bytes > kSegmentSize) {
            const unsigned long long tableBytes = cursor.getTableSizeRead();
            if (tableBytes - splitTableBytes > kTablePageSize) {
                cursor.setTablePage(cursor.getTablePage() + 1);
                splitPoints.push_back(m_boundaries.size());
                splitTableBytes = tableBytes;
            }
            appendBoundary(cursor, state);
            tally.bytes = 0;
        }
    }
    m_isWalked = true;

    cursor.applyTracks(
        [&](const TrackCursor& track) { cacheTrackEnder(track, cursor.getIndex() + 1, contexts); });
    if (cursor.getIndex() == 0)
        throw NoTracksError(krx::streams::kNoValidTracks);
    if (cursor.getIndex() > m_boundaries.back().index)
        appendBoundary(cursor, state);
    return splitPoints;
}

/// A track that goes on in a later recording is closed for the players of today.
void Mp4Data::cacheTrackEnder(const TrackCursor& track, long long index, ContextCache& contexts)
{
    if (!track.track().last || !track.isEnderType())
        return;
    Seekable message;
    message.initEnder(track, index);
    contexts.cacheContextMessage(message);
}

/// state takes what the cursor saves. Callers pass the same one each time, to reuse its memory.
void Mp4Data::appendBoundary(Mp4Cursor& cursor, CursorState& state)
{
    if (m_cancel && m_cancel->load(std::memory_order_relaxed))
        throw krx::util::Cancelled();
    cursor.save(state);
    m_file.memory().charge(m_boundaries.append(state));
}

/// Cuts the tables of each track at the boundaries of the split points.
void Mp4Data::splitTables(const std::vector<std::size_t>& splitPoints)
{
    if (splitPoints.empty())
        return;
    // What splitting needs of the positions, by track.
    struct Cuts
    {
        std::vector<unsigned> sampleToChunk;
        std::vector<unsigned> chunk;
        std::vector<unsigned> sample;
        std::vector<unsigned> timeToSample;
        std::vector<unsigned> composition;
        std::vector<unsigned> sync;
    };
    const std::vector<TrackInfo*> tracks = m_file.getTrackVec();
    std::vector<Cuts> cuts(tracks.size());
    for (const std::size_t point : splitPoints) {
        const CursorState state = m_boundaries.state(point);
        for (std::size_t i = 0; i < tracks.size(); ++i) {
            const TrackPosition& position = state.tracks[i];
            cuts[i].sampleToChunk.push_back(position.chunk.sampleToChunkIndex);
            cuts[i].chunk.push_back(position.chunk.chunkIndex);
            cuts[i].sample.push_back(position.sampleNumber);
            cuts[i].timeToSample.push_back(position.time.index);
            cuts[i].composition.push_back(position.composition.index);
            cuts[i].sync.push_back(position.sync.index);
        }
    }
    std::vector<unsigned> inside;
    const auto split = [&inside](auto& table, const std::vector<unsigned>& places, unsigned overlap) {
        inside.clear();
        for (const unsigned place : places)
            inside.push_back(std::min(place, table.size()));
        table.split(inside, overlap);
    };
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        if (!tracks[i]->isValid())
            continue;
        inTrack(*tracks[i], [&] {
            split(tracks[i]->sampleToChunk, cuts[i].sampleToChunk, kSampleToChunkOverlap);
            split(tracks[i]->sampleSizes, cuts[i].sample, kOverlap);
            split(tracks[i]->chunkOffsets, cuts[i].chunk, kOverlap);
            split(tracks[i]->timeToSample, cuts[i].timeToSample, kOverlap);
            split(tracks[i]->compositionOffsets, cuts[i].composition, kOverlap);
            split(tracks[i]->syncSamples, cuts[i].sync, kOverlap);
            split(tracks[i]->sampleFlags, cuts[i].sample, kOverlap);
        });
    }
}

/// The tables are not needed until a segment is loaded, and those of invalid tracks never.
void Mp4Data::releaseTables()
{
    for (TrackInfo* track : m_file.getTrackVec())
        applyTables(*track, [&](auto& table) {
            if (!track->isValid())
                table.clear();
            else if (table.isInit())
                table.clearPage(m_tablePage);
        });
}

std::vector<TrackExtent> Mp4Data::findExtents(krx::util::FileHoles* holes)
{
    if (!m_isWalked || (holes && holes->hasHole())) {
        if (!m_loaded)
            releaseTables();
        const AutoMp4Open open(&m_io);
        PlayExtent extents(m_io, m_config, holes);
        extents.setQuota(m_quota);
        extents.setCancel(m_cancel);
        return extents.find();
    }
    std::vector<TrackExtent> extents;
    for (const TrackInfo* track : m_file.getTrackVec()) {
        if (!track->isValid())
            continue;
        TrackExtent& extent = extents.emplace_back();
        extent.trackId = track->trackId;
        extent.samples = track->sampleTotal;
        if (extent.samples == 0)
            continue;
        extent.firstTime = track->startMillis;
        extent.lastTime = track->endMillis;
        if (makesMessages(*track))
            extent.playsUntil = extent.lastTime;
    }
    return extents;
}

void Mp4Data::setMsgTypes()
{
    m_type = 0;
    for (const TrackInfo* track : m_file.getTrackVec()) {
        if (!track->isValid())
            continue;
        if (track->isVideo)
            m_type |= kHasVideo;
        if (track->isAudio)
            m_type |= kHasAudio;
        if (track->isData || track->isText)
            m_type |= kHasData;
    }
}

void Mp4Data::clearTableSegment(unsigned tablePage)
{
    for (TrackInfo* track : m_file.getTrackVec())
        applyTables(*track, [&](auto& table) {
            if (tablePage < table.pageCount())
                table.clearPage(tablePage);
        });
}

unsigned Mp4Data::getMemoryOverhead() const
{
    const std::size_t bytes = sizeof(*this) - sizeof(m_io) - sizeof(m_file) + m_io.reportMemorySize() +
                              m_file.reportMemorySize() + m_statusMessage.reportMemorySize() +
                              m_contexts.reportMemorySize() + m_boundaries.reportMemorySize() +
                              m_standingFragments.capacity() * sizeof(unsigned);
    return static_cast<unsigned>(std::min<std::size_t>(bytes, std::numeric_limits<unsigned>::max()));
}

const ContextMessage* Mp4Data::getOnMetaData() const
{
    const TrackContexts* track = m_contexts.findTrack(getContextTrackID(MediaContexts::kMetadataTrack));
    if (!track)
        return nullptr;
    const auto& messages = track->messages();
    const auto found = std::find_if(messages.rbegin(), messages.rend(),
                                    [](const ContextMessage& message) { return message.position < 0; });
    return found == messages.rend() ? nullptr : &*found;
}

bool Mp4Data::getMediaContexts(ContextType_t type, long long position, IContextHolder* holder,
                               bool atPosition) const
{
    return m_contexts.tellContexts(type, position, holder, atPosition);
}

bool Mp4Data::getAllMediaContexts(IAllContextHolder* holder) const
{
    return m_contexts.tellAllContexts(holder);
}

}  // namespace krx::mp4
