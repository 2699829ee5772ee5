// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/wordcolumn.h"
#include "modules/streams/streamparseerror.h"
#include "util/SRFileUtil.h"
#include "util/bigendian.h"

#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

namespace krx::mp4 {

class Mp4FileIO;

// Table records. Tables are kept in the file's big-endian form, and an entry is decoded on demand: most are
// read once.

/// An 'stts' entry. A delta with the top bit set is invalid and counts as 0.
struct TimeToSample
{
    unsigned count;
    unsigned delta;  ///< media timescale units
};

/// A 'ctts' entry. The offset is read as a signed number.
struct CompositionOffset
{
    unsigned count;
    unsigned offset;  ///< media timescale units
};

/// An 'stsc' entry.
struct SampleToChunk
{
    unsigned firstChunk;  ///< 1-based
    unsigned samplesPerChunk;
    unsigned descriptionIndex;  ///< 1-based
};

/// The entry at p, which takes size bytes there: 4 or 8 for a 64-bit integer, else sizeof(T).
template <typename T>
T loadEntry(const unsigned char* p, [[maybe_unused]] unsigned size)
{
    using krx::util::loadBig32;
    if constexpr (sizeof(T) == 1)
        return *p;
    else if constexpr (std::is_same_v<T, unsigned>)
        return loadBig32(p);
    else if constexpr (std::is_integral_v<T>)
        return static_cast<T>(size == sizeof(unsigned) ? loadBig32(p) : krx::util::loadBig64(p));
    else if constexpr (std::is_same_v<T, SampleToChunk>)
        return {loadBig32(p), loadBig32(p + 4), loadBig32(p + 8)};
    else
        return {loadBig32(p), loadBig32(p + 4)};
}

/// A contiguous range [start, end) of a table; the bytes are null while the page is not loaded. Copies share
/// them.
struct ArrayPage
{
    std::shared_ptr<unsigned char[]> bytes;
    unsigned start = 0;
    unsigned end = 0;
};

/// A table of a file that is loaded one page at a time. Instantiated for TimeToSample, CompositionOffset,
/// SampleToChunk, unsigned, unsigned long long, long long and unsigned char. Failures throw StreamParseError
/// kTableReadError, or what the reader throws.
template <typename T>
class PageableArray
{
public:
    /// The table of count entries at pos, entrySize bytes each in the file (1, 4, 8 or 12), as one page,
    /// loaded. A count that the rest of the file cannot hold fails before memory is taken. io is not owned.
    void init(unsigned count, krx::util::FilePos pos, Mp4FileIO* io, unsigned entrySize);
    bool isInit() const { return m_io != nullptr; }
    /// Entries of the whole table.
    unsigned size() const { return m_size; }

    /// Makes page n current and loads it; nothing when not initialised.
    void setCurPage(std::size_t n);
    /// Cuts the table before each of the given entry indices (rising; equal ones make empty pages), into one
    /// page more than indices. The page that holds the start of the former current page becomes current. Each
    /// page also holds the first overlap entries after its end, as far as the table has them.
    void split(const std::vector<unsigned>& boundaries, unsigned overlap = 0);
    /// Releases the page's array; it is loaded again when next made current. Nothing when not initialised.
    void clearPage(std::size_t n);
    std::size_t pageCount() const { return m_pages.size(); }
    /// Bytes of the entries of page n, each taken as a T; 0 when not initialised.
    std::size_t getPageSize(std::size_t n) const;
    /// Releases all pages: no entry is at hand and no page can be made current until the table is split or
    /// initialised anew. It keeps its size and stays initialised.
    void clear();

    /// Entry i, which must lie in the current page.
    T operator[](unsigned i) const
    {
        if (i < m_curStart || i >= m_curEnd)
            throwTableError();
        return loadEntry<T>(at(i), m_entrySize);
    }
    /// The bytes of entry i, which must lie in the current page, and of those after it; null without a page.
    const unsigned char* at(unsigned i) const
    {
        return m_cur ? m_cur + static_cast<std::size_t>(i - m_curStart) * m_entrySize : nullptr;
    }
    /// The first word of each entry, from entry i on; none without a page.
    WordColumn words(unsigned i) const { return {at(i), m_entrySize}; }
    unsigned curStart() const { return m_curStart; }
    unsigned curEnd() const { return m_curEnd; }
    /// How many entries the current page holds from entry i on.
    unsigned entriesFrom(unsigned i) const { return i >= m_curStart && i < m_curEnd ? m_curEnd - i : 0; }

    /// Bytes really held.
    std::size_t reportMemorySize() const;

private:
    void load();
    [[noreturn]] static void throwTableError();

    Mp4FileIO* m_io = nullptr;
    unsigned m_size = 0;
    std::vector<ArrayPage> m_pages;
    int m_curPage = -1;
    krx::util::FilePos m_pos = 0;
    unsigned m_entrySize = 0;

    // The loaded current page, for quick access; an empty range when there is none.
    const unsigned char* m_cur = nullptr;
    unsigned m_curStart = 0;
    unsigned m_curEnd = 0;
};

}  // namespace krx::mp4
