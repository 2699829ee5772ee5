// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <string_view>
#include <vector>

namespace krx::mp4 {

/// The fonts of a text entry, as in the file: each has an identifier of 2 bytes (big-endian), a length of 1
/// byte, and the name.
class FontTable
{
public:
    /// Bytes of a record at most.
    static constexpr unsigned long long kLongest = 258;

    FontTable() = default;
    /// The first complete records of bytes, at most limit of them.
    FontTable(const std::vector<unsigned char>& bytes, unsigned limit);

    unsigned size() const { return m_count; }
    /// Calls function(unsigned id, std::string_view name) for each font.
    template <typename Function>
    void forEach(Function function) const
    {
        const unsigned char* at = m_records.data();
        for (unsigned i = 0; i < m_count; ++i) {
            const std::size_t length = at[2];
            function(unsigned{at[0]} << 8 | at[1],
                     std::string_view(reinterpret_cast<const char*>(at + kPrefix), length));
            at += kPrefix + length;
        }
    }
    std::size_t bytes() const { return m_records.size(); }

    friend bool operator==(const FontTable&, const FontTable&) = default;

private:
    static constexpr std::size_t kPrefix = 3;

    unsigned m_count = 0;
    std::vector<unsigned char> m_records;
};

/// The style of a 'tx3g' entry.
struct TextStyle
{
    unsigned displayFlags = 0;
    unsigned backgroundColor = 0;  ///< RGBA
    unsigned textColor = 0;        ///< RGBA
    unsigned char horizontalJustification = 0;
    unsigned char verticalJustification = 0;
    unsigned short boxTop = 0;
    unsigned short boxLeft = 0;
    unsigned short boxBottom = 0;
    unsigned short boxRight = 0;
    unsigned short startChar = 0;
    unsigned short endChar = 0;
    unsigned short fontId = 0;
    unsigned char faceStyleFlags = 0;
    unsigned char fontSize = 0;
    FontTable fonts;

    friend bool operator==(const TextStyle&, const TextStyle&) = default;
};

/// One entry of a sample-description box. Fields that the entry's kind does not set stay 0.
struct SampleEntry
{
    unsigned type = 0;  ///< four-character code

    // Audio.
    unsigned channelCount = 0;
    unsigned sampleSize = 0;  ///< bits, as read
    double sampleRate = 0;    ///< Hz

    // Video, after the track's transform.
    int width = 0;
    int height = 0;

    // Codec configuration: the 'avcC' payload, or the decoder-specific information of AAC.
    unsigned configLength = 0;
    krx::util::FilePos configPosition = 0;
    std::shared_ptr<unsigned char[]> config;

    std::shared_ptr<const TextStyle> style;  ///< null for all but 'tx3g'

    /// Whether the entries mean the same, wherever their configurations stand.
    bool isSame(const SampleEntry& other) const;
    /// Bytes held, those of the entry itself included.
    std::size_t reportMemorySize() const;
};

/// The sample descriptions of a track, in file order. One that equals another a few places before it is held
/// once.
class SampleDescriptions
{
public:
    bool empty() const { return m_places.empty(); }
    std::size_t size() const { return m_places.size(); }
    const SampleEntry& operator[](std::size_t i) const { return m_entries[m_places[i]]; }
    /// Appends, and returns the bytes that this takes.
    std::size_t append(SampleEntry entry);
    std::size_t reportMemorySize() const;

private:
    std::deque<unsigned> m_places;  ///< in m_entries
    std::deque<SampleEntry> m_entries;
};

}  // namespace krx::mp4
