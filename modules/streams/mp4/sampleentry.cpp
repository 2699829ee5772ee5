// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/sampleentry.h"

#include "modules/streams/mp4/memorybudget.h"

#include <algorithm>
#include <utility>

namespace krx::mp4 {
namespace {

/// How many entries back a same one is looked for. Files with many descriptions repeat a few by turns.
constexpr std::size_t kLookBack = 8;

}  // namespace

FontTable::FontTable(const std::vector<unsigned char>& bytes, unsigned limit)
{
    std::size_t used = 0;
    while (m_count < limit && bytes.size() - used >= kPrefix &&
           bytes[used + 2] <= bytes.size() - used - kPrefix) {
        used += kPrefix + bytes[used + 2];
        ++m_count;
    }
    m_records.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(used));
}

bool SampleEntry::isSame(const SampleEntry& other) const
{
    return type == other.type && channelCount == other.channelCount && sampleSize == other.sampleSize &&
           sampleRate == other.sampleRate && width == other.width && height == other.height &&
           configLength == other.configLength &&
           std::equal(config.get(), config.get() + configLength, other.config.get()) &&
           (style && other.style ? *style == *other.style : style == other.style);
}

std::size_t SampleEntry::reportMemorySize() const
{
    std::size_t bytes = kDequeElement<SampleEntry>;
    if (config)
        bytes += configLength + kBlockOverhead;
    if (style)
        bytes += sizeof(TextStyle) + style->fonts.bytes() + 2 * kBlockOverhead;
    return bytes;
}

std::size_t SampleDescriptions::append(SampleEntry entry)
{
    const std::size_t first = m_entries.size() - std::min(m_entries.size(), kLookBack);
    std::size_t place = m_entries.size();
    while (place > first && !m_entries[place - 1].isSame(entry))
        --place;
    std::size_t bytes = kDequeElement<unsigned>;
    if (place == first) {
        place = m_entries.size();
        bytes += entry.reportMemorySize();
        m_entries.push_back(std::move(entry));
    } else {
        --place;
    }
    m_places.push_back(static_cast<unsigned>(place));
    return bytes;
}

std::size_t SampleDescriptions::reportMemorySize() const
{
    std::size_t bytes = m_places.size() * kDequeElement<unsigned>;
    for (const SampleEntry& entry : m_entries)
        bytes += entry.reportMemorySize();
    return bytes;
}

}  // namespace krx::mp4
