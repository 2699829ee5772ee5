// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/steppers/runlength.h"

namespace krx::mp4 {

class TrackInfo;

/// Steps through the chunks of the movie box's samples: 'stco' or 'co64', which have the offset of each
/// chunk, and 'stsc', which says how many samples a chunk has and what describes them.
class ChunkStepper
{
public:
    struct State
    {
        unsigned chunkIndex = 0;
        unsigned sampleInChunk = 0;
        unsigned sampleToChunkIndex = 0;
        unsigned samplesPerChunk = 0;

        template <typename Self, typename Other, typename Function>
        static void visit(Self& self, Other& other, Function function)
        {
            function(self.chunkIndex, other.chunkIndex);
            function(self.sampleInChunk, other.sampleInChunk);
            function(self.sampleToChunkIndex, other.sampleToChunkIndex);
            function(self.samplesPerChunk, other.samplesPerChunk);
        }
        friend bool operator==(const State&, const State&) = default;
    };

    explicit ChunkStepper(const TrackInfo& track);

    const State& state() const { return m_state; }
    void restore(const State& state) { m_state = state; }

    /// To the first sample. Throws kTableReadError when there is none.
    void begin();
    bool atEnd() const { return m_state.chunkIndex >= m_offsets->size(); }
    /// Where the current chunk starts in the file.
    unsigned long long offset() const { return (*m_offsets)[m_state.chunkIndex]; }
    /// 1-based, as it stands in the table.
    unsigned descriptionIndex() const { return (*m_runs)[m_state.sampleToChunkIndex].descriptionIndex; }

    /// Where a step led.
    enum Step
    {
        kSameChunk,
        kNextChunk,
        kNextRun,  ///< a chunk that another entry of 'stsc' describes
        kEnd,
    };
    Step step();
    /// The last of these steps may lead to the next chunk; none changes the description.
    unsigned stretch() const;
    /// True when this led to the next chunk.
    bool skip(unsigned steps);

private:
    /// A chunk of no samples gives one.
    unsigned left() const
    {
        return m_state.samplesPerChunk > m_state.sampleInChunk
                   ? m_state.samplesPerChunk - m_state.sampleInChunk
                   : 1;
    }
    bool startsAt(unsigned run, unsigned chunk) const;
    bool findRun();
    bool isNextChunkPlain() const;

    const PageableArray<unsigned long long>* m_offsets;
    const PageableArray<SampleToChunk>* m_runs;
    State m_state;
};

}  // namespace krx::mp4
