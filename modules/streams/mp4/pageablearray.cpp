// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/pageablearray.h"

#include "modules/streams/mp4/mp4errors.h"
#include "modules/streams/mp4/mp4fileio.h"

#include <algorithm>
#include <limits>
#include <new>
#include <type_traits>

namespace krx::mp4 {
namespace {

using krx::util::FilePos;

/// Bytes that one read takes at most.
constexpr std::size_t kPagePortion = 1U << 30;

template <typename T>
constexpr bool kMayBeStoredAs32Bits = std::is_same_v<T, unsigned long long> || std::is_same_v<T, long long>;

/// Moves the reader's position for a scope.
class PositionKeeper
{
public:
    explicit PositionKeeper(Mp4FileIO* io) : m_io(io), m_position(io->Tell()) {}
    ~PositionKeeper() { m_io->Seek(m_position, Mp4FileIO::kFromStart); }
    PositionKeeper(const PositionKeeper&) = delete;
    PositionKeeper& operator=(const PositionKeeper&) = delete;

private:
    Mp4FileIO* m_io;
    FilePos m_position;
};

void readBytes(Mp4FileIO& io, unsigned char* dest, std::size_t n)
{
    for (std::size_t done = 0; done < n;) {
        const std::size_t part = std::min(n - done, kPagePortion);
        if (io.Read(dest + done, part) == 0)
            throw TruncatedStreamError(krx::streams::kTruncatedFile);
        done += part;
    }
}

}  // namespace

template <typename T>
void PageableArray<T>::throwTableError()
{
    throw krx::streams::StreamParseError(krx::streams::kTableReadError);
}

template <typename T>
void PageableArray<T>::init(unsigned count, FilePos pos, Mp4FileIO* io, unsigned entrySize)
{
    *this = PageableArray<T>();
    const bool knownSize =
        entrySize == sizeof(T) || (kMayBeStoredAs32Bits<T> && entrySize == sizeof(unsigned));
    if (!io || !knownSize || pos < 0 || pos > io->Size() || count > (io->Size() - pos) / entrySize)
        throwTableError();
    m_io = io;
    m_size = count;
    m_pos = pos;
    m_entrySize = entrySize;
    m_pages.push_back({nullptr, 0, count});
    setCurPage(0);
}

template <typename T>
void PageableArray<T>::setCurPage(std::size_t n)
{
    if (!isInit())
        return;
    if (n >= m_pages.size())
        throwTableError();
    m_curPage = static_cast<int>(n);
    load();
}

template <typename T>
void PageableArray<T>::load()
{
    m_cur = nullptr;
    m_curStart = m_curEnd = 0;
    ArrayPage& page = m_pages[static_cast<std::size_t>(m_curPage)];
    if (!page.bytes && page.end != page.start) {
        const std::size_t size = static_cast<std::size_t>(page.end - page.start) * m_entrySize;
        std::shared_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[size]);
        if (!bytes)
            throwTableError();
        const PositionKeeper keeper(m_io);
        m_io->Seek(m_pos + static_cast<FilePos>(page.start) * m_entrySize, Mp4FileIO::kFromStart);
        readBytes(*m_io, bytes.get(), size);
        page.bytes = std::move(bytes);
    }
    m_cur = page.bytes.get();
    m_curStart = page.start;
    m_curEnd = page.end;
}

template <typename T>
void PageableArray<T>::split(const std::vector<unsigned>& boundaries, unsigned overlap)
{
    if (!isInit())
        return;
    const bool sound = std::is_sorted(boundaries.begin(), boundaries.end()) &&
                       (boundaries.empty() || boundaries.back() <= m_size) &&
                       boundaries.size() < static_cast<std::size_t>(std::numeric_limits<int>::max());
    if (!sound)
        throwTableError();
    const unsigned formerStart = m_curPage < 0 ? 0 : m_pages[static_cast<std::size_t>(m_curPage)].start;

    std::vector<ArrayPage> pages;
    pages.reserve(boundaries.size() + 1);
    unsigned start = 0;
    for (const unsigned boundary : boundaries) {
        pages.push_back({nullptr, start, boundary + std::min(overlap, m_size - boundary)});
        start = boundary;
    }
    pages.push_back({nullptr, start, m_size});
    m_pages = std::move(pages);

    const auto holder = std::partition_point(m_pages.begin(), m_pages.end(),
                                             [&](const ArrayPage& page) { return page.end <= formerStart; });
    setCurPage(holder == m_pages.end() ? 0 : static_cast<std::size_t>(holder - m_pages.begin()));
}

template <typename T>
void PageableArray<T>::clearPage(std::size_t n)
{
    if (!isInit())
        return;
    if (n >= m_pages.size())
        throwTableError();
    m_pages[n].bytes.reset();
    if (static_cast<int>(n) == m_curPage) {
        m_cur = nullptr;
        m_curStart = m_curEnd = 0;
    }
}

template <typename T>
std::size_t PageableArray<T>::getPageSize(std::size_t n) const
{
    if (!isInit())
        return 0;
    if (n >= m_pages.size())
        throwTableError();
    return static_cast<std::size_t>(m_pages[n].end - m_pages[n].start) * sizeof(T);
}

template <typename T>
void PageableArray<T>::clear()
{
    std::vector<ArrayPage>().swap(m_pages);
    m_curPage = -1;
    m_cur = nullptr;
    m_curStart = m_curEnd = 0;
}

template <typename T>
std::size_t PageableArray<T>::reportMemorySize() const
{
    std::size_t bytes = m_pages.capacity() * sizeof(ArrayPage);
    for (const ArrayPage& page : m_pages)
        if (page.bytes)
            bytes += static_cast<std::size_t>(page.end - page.start) * m_entrySize;
    return bytes;
}

template class PageableArray<TimeToSample>;
template class PageableArray<CompositionOffset>;
template class PageableArray<SampleToChunk>;
template class PageableArray<unsigned>;
template class PageableArray<unsigned long long>;
template class PageableArray<long long>;
template class PageableArray<unsigned char>;

}  // namespace krx::mp4
