// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/mp4config.h"

#include <atomic>
#include <optional>
#include <vector>

namespace krx::util {
class FileHoles;
class MemoryQuota;
}  // namespace krx::util

namespace krx::mp4 {

class Mp4FileIO;
class TrackInfo;
class WalkBudget;

/// How much of a track there is. Times are those of messages: ms, with the delays of the edit list, at most
/// those of 32 bits.
struct TrackExtent
{
    unsigned trackId = 0;
    unsigned long long samples = 0;      ///< as far as the tables tell of them without a fault
    std::optional<long long> firstTime;  ///< start of the first sample; absent where there is none
    std::optional<long long> lastTime;   ///< end of the last of the samples
    /// End of the last sample before the first one that lies, wholly or partly, beyond the end of the file or
    /// in a hole of it; start of the first sample when that one is missing. Without a missing sample it is
    /// lastTime. Absent when the track makes no messages.
    std::optional<long long> playsUntil;

    friend bool operator==(const TrackExtent&, const TrackExtent&) = default;
};

/// Whether some description of the track is one whose samples make messages.
bool makesMessages(const TrackInfo& track);

/// Finds the extents of the tracks of a file that may be cut, have holes, or contradict itself: reads the
/// boxes once more and steps each track by itself, without a word about what is wrong.
class PlayExtent
{
public:
    /// Nothing is owned. file must be open; its read position moves. holes: null for none.
    PlayExtent(Mp4FileIO& file, const Mp4Config& config, krx::util::FileHoles* holes);

    /// Null for none.
    void setQuota(krx::util::MemoryQuota* quota) { m_quota = quota; }
    void setCancel(const std::atomic<bool>* cancel) { m_cancel = cancel; }

    /// Of the valid tracks, in file order. A fault ends what is known of its track, and one in the boxes what
    /// is known of the file. All tracks together cost no more steps than a walk may (WalkBudget), and no more
    /// memory (MemoryBudget). Throws SROutOfMemory and krx::util::Cancelled.
    std::vector<TrackExtent> find();

private:
    TrackExtent findOf(TrackInfo& track, WalkBudget& budget) const;

    Mp4FileIO& m_file;
    const Mp4Config& m_config;
    krx::util::FileHoles* m_holes;
    krx::util::MemoryQuota* m_quota = nullptr;
    const std::atomic<bool>* m_cancel = nullptr;
};

}  // namespace krx::mp4
