// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxheader.h"

#include <memory>
#include <vector>

namespace krx::mp4 {

class MP4File;

/// One 'trun': each array is null when the run's flags do not announce it.
struct TrackFragmentRun
{
    int dataOffset = 0;
    unsigned sampleCount = 0;
    std::shared_ptr<unsigned[]> durations;
    std::shared_ptr<unsigned[]> sizes;
    std::shared_ptr<unsigned short[]> flags;  ///< the upper half of each 32-bit flags field
    std::shared_ptr<int[]> compositionOffsets;
};

/// One 'traf'. Its runs are read from the file on demand.
class TrackFragment
{
public:
    TrackFragment(MP4File* file, const BoxHeader& box, krx::util::FilePos payload,
                  krx::util::FilePos moofStart)
        : m_file(file), m_box(box), m_payload(payload), m_moofStart(moofStart)
    {
    }

    /// Reads the header and the runs unless they are loaded. The file must be open. Throws StreamParseError.
    void load();
    /// Releases the runs.
    void unload();
    bool isLoaded() const { return m_loaded; }
    /// Appends a run; the fragment then counts as loaded.
    void insertRun(TrackFragmentRun run);
    /// Both load first. An i that is not below getRunCount() throws kTableReadError.
    const TrackFragmentRun& getRun(std::size_t i);
    std::size_t getRunCount();
    std::size_t reportMemorySize() const;

    /// First byte of the 'moof' that holds the fragment; the base of a fragment that names no base data
    /// offset.
    krx::util::FilePos moofStart() const { return m_moofStart; }
    /// Where data offsets count from: the header's base data offset, else the 'moof'.
    unsigned long long dataBase() const
    {
        return hasBaseDataOffset ? baseDataOffset : static_cast<unsigned long long>(m_moofStart);
    }

    unsigned long long baseDataOffset = 0;
    bool hasBaseDataOffset = false;
    unsigned descriptionIndex = 0;
    unsigned defaultDuration = 0;
    unsigned defaultSize = 0;
    unsigned defaultFlags = 0;

private:
    bool m_loaded = false;
    MP4File* m_file;  ///< not owned
    BoxHeader m_box;
    krx::util::FilePos m_payload;
    krx::util::FilePos m_moofStart;
    std::vector<TrackFragmentRun> m_runs;
};

}  // namespace krx::mp4
