// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/steppers/chunks.h"

#include "modules/streams/mp4/trackinfo.h"

namespace krx::mp4 {

ChunkStepper::ChunkStepper(const TrackInfo& track)
    : m_offsets(&track.chunkOffsets), m_runs(&track.sampleToChunk)
{
}

void ChunkStepper::begin()
{
    m_state = State();
    offset();
    m_state.samplesPerChunk = (*m_runs)[0].samplesPerChunk;
}

/// Whether entry run exists and starts at the chunk. If it exists, the current page must hold it.
bool ChunkStepper::startsAt(unsigned run, unsigned chunk) const
{
    return run < m_runs->size() && (*m_runs)[run].firstChunk == chunk + 1;
}

/// Finds the entry of a chunk that was just entered; the last of several for the same chunk counts. True when
/// the entry has changed.
bool ChunkStepper::findRun()
{
    const unsigned before = m_state.sampleToChunkIndex;
    while (startsAt(m_state.sampleToChunkIndex + 1, m_state.chunkIndex))
        ++m_state.sampleToChunkIndex;
    if (m_state.sampleToChunkIndex == before)
        return false;
    m_state.samplesPerChunk = (*m_runs)[m_state.sampleToChunkIndex].samplesPerChunk;
    return true;
}

ChunkStepper::Step ChunkStepper::step()
{
    if (left() > 1) {
        ++m_state.sampleInChunk;
        return kSameChunk;
    }
    m_state.sampleInChunk = 0;
    ++m_state.chunkIndex;
    if (atEnd())
        return kEnd;
    offset();
    return findRun() ? kNextRun : kNextChunk;
}

/// Whether the step to the next chunk finds all that it asks for, and the same description.
bool ChunkStepper::isNextChunkPlain() const
{
    const unsigned chunk = m_state.chunkIndex + 1;
    if (m_offsets->entriesFrom(chunk) == 0)
        return false;
    const unsigned run = m_state.sampleToChunkIndex + 1;
    // Entry run and the one after it are read, as far as they exist.
    const unsigned held = m_runs->entriesFrom(run);
    if (run < m_runs->size() && held < 2 && held < m_runs->size() - run)
        return false;
    return !startsAt(run, chunk) ||
           ((*m_runs)[run].descriptionIndex == descriptionIndex() && !startsAt(run + 1, chunk));
}

unsigned ChunkStepper::stretch() const
{
    const unsigned steps = left();
    return isNextChunkPlain() ? steps : steps - 1;
}

bool ChunkStepper::skip(unsigned steps)
{
    if (steps < left()) {
        m_state.sampleInChunk += steps;
        return false;
    }
    m_state.sampleInChunk = 0;
    ++m_state.chunkIndex;
    findRun();
    return true;
}

}  // namespace krx::mp4
