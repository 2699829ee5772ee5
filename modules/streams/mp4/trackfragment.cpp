// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/trackfragment.h"

#include "modules/streams/mp4/fragmentloader.h"
#include "util/krxassert.h"

#include <new>
#include <utility>

namespace krx::mp4 {
namespace {

constexpr const char* kTrackFragmentPlace = "modules/streams/mp4/mp4";
constexpr int kNoLoaderLine = 202;

/// A std::deque without elements, on the heap: it has a first block, and room for the addresses of eight.
constexpr std::size_t kEmptyDeque =
    sizeof(std::deque<TrackFragmentRun>) + 512 + 8 * sizeof(void*) + 3 * kBlockOverhead;

}  // namespace

bool TrackFragmentRun::allocate(unsigned fields) noexcept
{
    m_fields = fields;
    const std::size_t size = static_cast<std::size_t>(recordSize()) * sampleCount;
    try {
        m_records = size == 0 ? nullptr : std::make_shared_for_overwrite<unsigned char[]>(size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

std::size_t TrackFragmentRun::memorySize(unsigned sampleCount, unsigned fields)
{
    const std::size_t words = static_cast<std::size_t>(kCounts[fields]) * sampleCount;
    return kDequeElement<TrackFragmentRun> + (words == 0 ? 0 : words * kFieldSize + 2 * kBlockOverhead);
}

TrackFragment::TrackFragment(const TrackFragment& other)
    : m_loader(other.m_loader), m_payload(other.m_payload), m_end(other.m_end), m_moofStart(other.m_moofStart)
{
    if (other.m_content) {
        content().header = other.m_content->header;
        content().firstRun = other.m_content->firstRun;
        if (other.m_content->moreRuns)
            content().moreRuns = std::make_unique<std::deque<TrackFragmentRun>>(*other.m_content->moreRuns);
    }
}

TrackFragment& TrackFragment::operator=(TrackFragment other) noexcept
{
    m_loader = other.m_loader;
    m_payload = other.m_payload;
    m_end = other.m_end;
    m_moofStart = other.m_moofStart;
    m_content = std::move(other.m_content);
    return *this;
}

TrackFragment::Content& TrackFragment::content()
{
    if (!m_content)
        m_content = std::make_unique<Content>();
    return *m_content;
}

void TrackFragment::load()
{
    if (m_content)
        return;
    if (!m_loader) {
        krx::util::assertFailed(kTrackFragmentPlace, kNoLoaderLine);
        content();
        return;
    }
    try {
        m_loader->reload(*this, m_payload, m_end);
    } catch (...) {
        // The runs before the fault must not pass for the whole fragment.
        unload();
        throw;
    }
}

void TrackFragment::insertRun(TrackFragmentRun run)
{
    if (!content().firstRun) {
        m_content->firstRun = std::move(run);
        return;
    }
    if (!m_content->moreRuns)
        m_content->moreRuns = std::make_unique<std::deque<TrackFragmentRun>>();
    m_content->moreRuns->push_back(std::move(run));
}

const TrackFragmentHeader& TrackFragment::header()
{
    load();
    return m_content->header;
}

const TrackFragmentRun& TrackFragment::getRun(std::size_t i)
{
    if (i >= getRunCount())
        throw krx::streams::StreamParseError(krx::streams::kTableReadError);
    return i == 0 ? *m_content->firstRun : (*m_content->moreRuns)[i - 1];
}

std::size_t TrackFragment::getRunCount()
{
    load();
    return (m_content->firstRun ? 1 : 0) + (m_content->moreRuns ? m_content->moreRuns->size() : 0);
}

std::size_t TrackFragment::reportMemorySize() const
{
    std::size_t bytes = sizeof(*this);
    if (m_content) {
        bytes += sizeof(Content) + kBlockOverhead;
        if (m_content->firstRun)
            bytes += m_content->firstRun->reportMemorySize();
        if (m_content->moreRuns) {
            bytes += kEmptyDeque;
            for (const TrackFragmentRun& run : *m_content->moreRuns)
                bytes += run.reportMemorySize();
        }
    }
    return bytes;
}

}  // namespace krx::mp4
