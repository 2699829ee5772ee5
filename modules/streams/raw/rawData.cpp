// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawData.h"

#include "interfaces/IKrxFileIo.h"
#include "interfaces/IQVStreamContext.h"
#include "modules/streams/raw/rawSegment.h"
#include "util/SRException.h"
#include "util/autofile.h"
#include "util/krxassert.h"

#include <string>
#include <string_view>
#include <utility>

namespace krx::raw {
namespace {

using namespace krx::streams;
using krx::util::AutoFileLoad;
using krx::util::AutoFileSave;
using krx::util::FileReadException;

constexpr const char* kRawDataPlace = "modules/streams/raw/rawData";
constexpr int kNoBoundsLine = 412;
constexpr int kNoHolderLine = 431;

constexpr const char* kIndexName = "index";
constexpr const char* kContextsName = "contexts";

SRString pathOf(const SRString& directory, std::string_view name)
{
    return directory + L"/" + SRString::fromMultiByte(name);
}

SRMBString segmentName(const SegmentBounds& bounds)
{
    return SRMBString::format("%016X", static_cast<unsigned>(bounds.start));
}

Place placeIn(std::string_view file, long long offset)
{
    Place place;
    place.file = file;
    place.offset = offset;
    return place;
}

}  // namespace

/// The warnings of one segment.
class RawData::Warnings : public SegmentWarnings
{
public:
    Warnings(const RawData& data, IQVStreamContext* context) : m_data(data), m_context(context) {}

    bool admits() override
    {
        return m_data.m_config.WarningsAsErrors || !m_data.m_sink || m_data.m_sink->admitsWarning();
    }
    void take(const StreamParseError& warning) override
    {
        if (m_data.m_config.WarningsAsErrors)
            throw StreamParseError(warning);
        m_data.report(m_context, warning, FindingLevel::kWarning);
    }

private:
    const RawData& m_data;
    IQVStreamContext* const m_context;
};

RawData::RawData(const SRString& path, const RawConfigStruct& config, IQVStreamContext* context,
                 IKrxFileIo* fileIo)
    : m_path(path),
      m_indexPath(pathOf(path, kIndexName)),
      m_contextsPath(pathOf(path, kContextsName)),
      m_config(config),
      m_context(context),
      m_fileIo(fileIo)
{
}

bool RawData::init(unsigned flags)
{
    return (flags & kRecordFlag) == 0 && load();
}

bool RawData::load()
{
    const char* file = kIndexName;
    try {
        Snapshot loaded = snapshot();
        readIndex(loaded);
        file = kContextsName;
        readContexts(loaded);
        replace(std::move(loaded));
        return true;
    } catch (StreamParseError& error) {
        replace({});
        error.place().file = file;
        report(m_context, error, FindingLevel::kError);
    } catch (const FileReadException& error) {
        replace({});
        reportUnloaded(error, file);
    }
    return false;
}

void RawData::readIndex(Snapshot& loaded) const
{
    const FileTime modified = fileTime(m_indexPath);
    if (modified.isKnown() && modified == loaded.indexTime)
        return;
    AutoFileLoad file(m_indexPath, m_fileIo);
    auto index = std::make_shared<RawIndex>();
    index->read(file);
    loaded.index = index;
    loaded.indexTime = modified;
    logIndex(*index);
}

void RawData::readContexts(Snapshot& loaded) const
{
    const FileTime modified = fileTime(m_contextsPath);
    if (modified.isKnown() && modified == loaded.contextsTime)
        return;
    const AutoFileLoad file(m_contextsPath, m_fileIo);
    auto contexts = std::make_shared<MediaContexts>();
    unsigned stoppedAt = 0;
    if (!contexts->importContexts(file.getBuffer(), &stoppedAt))
        throw FileReadException(SRString(L"Failed to deserialize contexts vector from the buffer."),
                                stoppedAt);
    loaded.contexts = contexts;
    loaded.contextsTime = modified;
}

bool RawData::save()
{
    const Snapshot now = snapshot();
    try {
        writeIndex(*now.index);
        writeContexts(*now.contexts);
        return true;
    } catch (const FileReadException& error) {
        reportSentence(m_context, error, Place());
        report(m_context, StreamParseError(kIndexWriteFailed), FindingLevel::kError);
    }
    return false;
}

void RawData::writeIndex(const RawIndex& index) const
{
    // It was read from a file of less than 4 GiB.
    AutoFileSave file(m_indexPath, m_fileIo, static_cast<unsigned>(index.getSerializedIndexSize()));
    index.write(file);
    file.flush();
}

void RawData::writeContexts(const MediaContexts& contexts) const
{
    SRBuffer buffer;
    if (!contexts.exportContexts(buffer))
        throw FileReadException(SRString(L"Failed to write contexts vector to the buffer."));
    AutoFileSave(m_contextsPath, m_fileIo, buffer).flush();
}

bool RawData::loadSegment(IQVStreamContext* context, const SegmentBounds* bounds, ISegmentHolder* holder)
{
    if (!bounds || !holder) {
        krx::util::assertFailed(kRawDataPlace, kNoHolderLine);
        return false;
    }
    const SRString fileName = getSegFileName(bounds);
    try {
        const AutoFileLoad file(fileName, m_fileIo, takeRoom());
        Warnings warnings(*this, context);
        SegmentReader reader(m_config, *bounds, fileName, *holder, warnings);
        reader.read(file.getBuffer().data(), file.getBuffer().length());
        keepRoom(file.getBuffer());
        return true;
    } catch (const StreamParseError& error) {
        report(context, error, FindingLevel::kError);
    } catch (const FileReadException& error) {
        auto failure = makeParseError(kSegmentReadFailed, fileName);
        failure.setPlace(placeIn(segmentName(*bounds), error.offset()));
        reportSentence(context, error, failure.place());
        report(context, failure, FindingLevel::kError);
    }
    return false;
}

SRString RawData::getSegFileName(const SegmentBounds* bounds) const
{
    return pathOf(m_path, segmentName(*bounds));
}

bool RawData::findByTime(unsigned ms, SegmentBounds* bounds) const
{
    SegmentBounds key;
    key.startTime = key.endTime = ms;
    return findSegment(key, RawIndex::timeComparator, bounds);
}

bool RawData::findByLoc(long long position, SegmentBounds* bounds) const
{
    SegmentBounds key;
    key.start = key.end = position;
    return findSegment(key, RawIndex::locComparator, bounds);
}

bool RawData::findSegment(const SegmentBounds& key, RawIndex::Comparator comparator,
                          SegmentBounds* bounds) const
{
    if (!bounds) {
        krx::util::assertFailed(kRawDataPlace, kNoBoundsLine);
        return false;
    }
    const Snapshot now = snapshot();
    const SegmentBounds* const found = now.index->findSegment(key, comparator);
    if (found)
        *bounds = *found;
    return found != nullptr;
}

RawData::FileTime RawData::fileTime(const SRString& path) const
{
    struct ::stat64 st = {};
    if (!m_fileIo || m_fileIo->stat(path, &st, IKrxFileIo::kFile) < 0)
        return {};
    FileTime time;
    time.seconds = st.st_mtim.tv_sec;
    time.nanoseconds = st.st_mtim.tv_nsec;
    return time;
}

bool RawData::streamDirExists() const
{
    struct ::stat64 st = {};
    return m_fileIo && m_fileIo->stat(m_path, &st, IKrxFileIo::kDirectory) >= 0;
}

RawData::Snapshot RawData::snapshot() const
{
    const std::lock_guard lock(m_mutex);
    return m_loaded;
}

void RawData::replace(Snapshot loaded)
{
    const std::lock_guard lock(m_mutex);
    std::swap(m_loaded, loaded);
}

SRBuffer RawData::takeRoom()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_room, {});
}

void RawData::keepRoom(const SRBuffer& room)
{
    const std::lock_guard lock(m_mutex);
    m_room = room;
}

std::size_t RawData::reportMemorySize() const
{
    const std::lock_guard lock(m_mutex);
    return sizeof(*this) + sizeof(RawIndex) + m_loaded.index->segments.capacity() * sizeof(SegmentBounds) +
           m_loaded.contexts->reportMemorySize() + m_room.capacity();
}

void RawData::reportUnloaded(const FileReadException& error, const char* file) const
{
    if (!streamDirExists())
        return;  // a stream that is yet to be recorded
    StreamParseError failure(kIndexOrContextsCorrupted);
    failure.setPlace(placeIn(file, error.offset()));
    reportSentence(m_context, error, failure.place());
    report(m_context, failure, FindingLevel::kError);
}

void RawData::logIndex(const RawIndex& index) const
{
    if (!m_context)
        return;
    const auto log = [this](const SRMBString& text) { m_context->log(text.c_str(), LOG_INFO, false); };
    log("\nIndex File:\n");
    log(SRMBString::format("File Format Version:\t%x\n", index.version));
    log(SRMBString::format("File Size in Bytes:\t%lld\n", index.size));
    log(SRMBString::format("File Length in Seconds:\t%.3f\n", index.getDuration() / 1000.0));
    log(SRMBString::format("Number of Segments:\t%d\n\n", index.segments.size()));
}

void RawData::report(IQVStreamContext* context, const StreamParseError& error, FindingLevel level) const
{
    if (m_sink)
        m_sink->add(makeFinding(error, level));
    else
        logTo(context, error, level == FindingLevel::kWarning ? LOG_WARNING : LOG_ERROR);
}

void RawData::reportSentence(IQVStreamContext* context, const SRException& error, const Place& place) const
{
    if (m_sink)
        m_sink->add(
            {0, FindingLevel::kError, std::string(error.getMessage().toMultiByte().view()), place, 0});
    else
        logTo(context, error, LOG_ERROR);
}

void RawData::logTo(IQVStreamContext* context, const SRException& error, LogLevel_t level) const
{
    if (context) {
        const SRString text = error.getMessage() + L"\t" + m_path;
        context->log(text.toMultiByte().c_str(), static_cast<unsigned short>(level), false);
    }
}

}  // namespace krx::raw
