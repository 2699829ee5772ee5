// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/trackfragment.h"

#include "modules/streams/mp4/mp4.h"
#include "util/krxassert.h"

namespace krx::mp4 {
namespace {

constexpr const char* kFile = "modules/streams/mp4/mp4";
constexpr int kNoParserLine = 202;

}  // namespace

void TrackFragment::load()
{
    if (m_loaded)
        return;
    if (!m_file) {
        krx::util::assertFailed(kFile, kNoParserLine);
        return;
    }
    try {
        m_file->parseTrackFragment(*this, m_box, m_payload);
    } catch (...) {
        // The runs before the fault must not pass for the whole fragment.
        unload();
        throw;
    }
    m_loaded = true;
}

void TrackFragment::unload()
{
    m_loaded = false;
    std::vector<TrackFragmentRun>().swap(m_runs);  // gives the memory back, too
}

void TrackFragment::insertRun(TrackFragmentRun run)
{
    m_runs.push_back(std::move(run));
    m_loaded = true;
}

const TrackFragmentRun& TrackFragment::getRun(std::size_t i)
{
    load();
    if (i >= m_runs.size())
        throw krx::streams::StreamParseError(krx::streams::kTableReadError);
    return m_runs[i];
}

std::size_t TrackFragment::getRunCount()
{
    load();
    return m_runs.size();
}

std::size_t TrackFragment::reportMemorySize() const
{
    std::size_t bytes = sizeof(*this) + (m_runs.capacity() - m_runs.size()) * sizeof(TrackFragmentRun);
    for (const TrackFragmentRun& run : m_runs) {
        std::size_t perSample = 0;
        perSample += run.durations ? sizeof(unsigned) : 0;
        perSample += run.sizes ? sizeof(unsigned) : 0;
        perSample += run.flags ? sizeof(unsigned short) : 0;
        perSample += run.compositionOffsets ? sizeof(int) : 0;
        bytes += sizeof(run) + perSample * run.sampleCount;
    }
    return bytes;
}

}  // namespace krx::mp4
