// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawData.h"

#include "interfaces/IKrxFileIo.h"
#include "interfaces/IQVStreamContext.h"
#include "modules/streams/raw/rawSegment.h"
#include "util/SRException.h"
#include "util/autofile.h"
#include "util/krxassert.h"

#include <utility>

namespace krx::raw {
namespace {

using namespace krx::streams;
using krx::util::AutoFileLoad;
using krx::util::AutoFileSave;
using krx::util::FileReadException;

constexpr const char* kFile = "modules/streams/raw/rawData";
constexpr int kNoBoundsLine = 412;
constexpr int kNoHolderLine = 431;

constexpr const wchar_t* kIndexName = L"/index";
constexpr const wchar_t* kContextsName = L"/contexts";

}  // namespace

RawData::RawData(const SRString& path, const RawConfigStruct& config, IQVStreamContext* context,
                 IKrxFileIo* fileIo)
    : m_path(path),
      m_indexPath(path + kIndexName),
      m_contextsPath(path + kContextsName),
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
    try {
        Snapshot loaded = snapshot();
        readIndex(loaded);
        readContexts(loaded);
        replace(std::move(loaded));
        return true;
    } catch (const StreamParseError& error) {
        replace({});
        logError(error);
    } catch (const FileReadException& error) {
        replace({});
        handleFileLoadError(error);
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
    if (!contexts->importContexts(file.getBuffer()))
        throw FileReadException(SRString(L"Failed to deserialize contexts vector from the buffer."));
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
        logError(error);
        logError(StreamParseError(kIndexWriteFailed));
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
        krx::util::assertFailed(kFile, kNoHolderLine);
        return false;
    }
    const SRString fileName = getSegFileName(bounds);
    try {
        const AutoFileLoad file(fileName, m_fileIo, takeRoom());
        SegmentReader reader(m_config, *bounds, fileName, *holder,
                             [&](const StreamParseError& warning) { logWarning(warning, context); });
        reader.read(file.getBuffer().data(), file.getBuffer().length());
        keepRoom(file.getBuffer());
        return true;
    } catch (const StreamParseError& error) {
        logTo(context, error, LOG_ERROR);
    } catch (const FileReadException& error) {
        logTo(context, error, LOG_ERROR);
        logTo(context, makeParseError(kSegmentReadFailed, fileName), LOG_ERROR);
    }
    return false;
}

SRString RawData::getSegFileName(const SegmentBounds* bounds) const
{
    return SRString::format(L"%s/%016X", m_path, static_cast<unsigned>(bounds->start));
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
        krx::util::assertFailed(kFile, kNoBoundsLine);
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

void RawData::handleFileLoadError(const SRException& error) const
{
    if (!streamDirExists())
        return;  // a stream that is yet to be recorded
    logError(error);
    logError(StreamParseError(kIndexOrContextsCorrupted));
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

void RawData::logWarning(const StreamParseError& warning, IQVStreamContext* context) const
{
    if (m_config.WarningsAsErrors)
        throw StreamParseError(warning);
    logTo(context, warning, LOG_WARNING);
}

void RawData::logTo(IQVStreamContext* context, const SRException& error, LogLevel_t level) const
{
    if (context) {
        const SRString text = error.getMessage() + L"\t" + m_path;
        context->log(text.toMultiByte().c_str(), static_cast<unsigned short>(level), false);
    }
}

}  // namespace krx::raw
