// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxheader.h"
#include "modules/streams/mp4/memorybudget.h"
#include "modules/streams/mp4/wordcolumn.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>

namespace krx::mp4 {

class FragmentLoader;

/// One 'trun'. Copies share the fields of the samples.
class TrackFragmentRun
{
public:
    /// The fields that a run may have per sample, in file order.
    enum Field : unsigned
    {
        kDuration = 1,
        kSize = 2,
        kFlags = 4,
        kCompositionOffset = 8,
    };

    int dataOffset = 0;
    unsigned sampleCount = 0;

    /// Makes room for sampleCount samples with the fields given (Field bits); false when there is no memory.
    bool allocate(unsigned fields) noexcept;
    /// The samples' fields, as the file has them: a record per sample with its fields in big-endian order.
    unsigned char* records() { return m_records.get(); }
    /// Bytes of a record.
    unsigned recordSize() const { return kCounts[m_fields] * kFieldSize; }
    /// The field of each sample; none when the run does not have it. Composition offsets are signed.
    WordColumn column(Field field) const
    {
        const unsigned offset = kCounts[m_fields & (field - 1U)] * kFieldSize;
        return (m_fields & field) != 0 ? WordColumn(m_records.get() + offset, recordSize()) : WordColumn();
    }
    /// Bytes that a run of so many samples and fields takes in a fragment.
    static std::size_t memorySize(unsigned sampleCount, unsigned fields);
    std::size_t reportMemorySize() const { return memorySize(sampleCount, m_fields); }

private:
    static constexpr unsigned kFieldSize = 4;
    /// Number of fields by their bits.
    static constexpr unsigned kCounts[] = {0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4};

    unsigned m_fields = 0;
    std::shared_ptr<unsigned char[]> m_records;
};

/// What the header of a fragment says, with the defaults of its track.
struct TrackFragmentHeader
{
    unsigned long long baseDataOffset = 0;
    bool hasBaseDataOffset = false;
    unsigned descriptionIndex = 0;
    unsigned defaultDuration = 0;
    unsigned defaultSize = 0;
    unsigned defaultFlags = 0;
};

/// One 'traf'. A file may have hundreds of thousands: only its place is kept; header and runs are read from
/// the file on demand.
class TrackFragment
{
public:
    /// payload: first byte after the header of the box. loader is not owned.
    TrackFragment(FragmentLoader* loader, const BoxHeader& box, krx::util::FilePos payload,
                  krx::util::FilePos moofStart)
        : m_loader(loader), m_payload(payload), m_end(box.end), m_moofStart(moofStart)
    {
    }
    /// Copies what is loaded, too.
    TrackFragment(const TrackFragment& other);
    TrackFragment(TrackFragment&&) noexcept = default;
    TrackFragment& operator=(TrackFragment other) noexcept;
    ~TrackFragment() = default;

    /// Reads the header and the runs unless they are loaded. The file must be open. Throws StreamParseError.
    void load();
    /// Releases header and runs.
    void unload() { m_content.reset(); }
    bool isLoaded() const { return m_content != nullptr; }
    /// Appends a run; the fragment then counts as loaded.
    void insertRun(TrackFragmentRun run);
    /// What is loaded counts no longer against the limit of the file, but still against the quota.
    void releaseCharge() { content().charge.exempt(); }
    /// Charges what is loaded, until it is released.
    void charge(MemoryBudget& budget, unsigned long long bytes) { content().charge.add(budget, bytes); }
    /// These load the fragment first. An i that is not below getRunCount() throws kTableReadError.
    const TrackFragmentHeader& header();
    const TrackFragmentRun& getRun(std::size_t i);
    std::size_t getRunCount();
    /// For the reader; the fragment then counts as loaded.
    void setHeader(const TrackFragmentHeader& header) { content().header = header; }
    std::size_t reportMemorySize() const;

    /// First byte of the 'moof' that holds the fragment; the base of a fragment that names no base data
    /// offset.
    krx::util::FilePos moofStart() const { return m_moofStart; }
    /// Where data offsets count from: the header's base data offset, else the 'moof'.
    unsigned long long dataBase()
    {
        return header().hasBaseDataOffset ? header().baseDataOffset
                                          : static_cast<unsigned long long>(m_moofStart);
    }

private:
    struct Content
    {
        TrackFragmentHeader header;
        // Most fragments have one run.
        std::optional<TrackFragmentRun> firstRun;
        std::unique_ptr<std::deque<TrackFragmentRun>> moreRuns;  ///< null where there is none
        MemoryCharge charge;
    };

    Content& content();

    FragmentLoader* m_loader;
    krx::util::FilePos m_payload;
    krx::util::FilePos m_end;
    krx::util::FilePos m_moofStart;
    std::unique_ptr<Content> m_content;  ///< null while it is not loaded
};

}  // namespace krx::mp4
