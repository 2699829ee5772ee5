// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRDataParser.h"
#include "server/hashindex.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// AMF3's variable-length integers, and its texts with their reference table. The table lives as long as the
/// parser. A text that is referred to is shared with the table, however often.
///
/// A reader takes at most kMemoryFactor bytes of memory per byte that it reads, plus kMemorySlack; more is
/// bad data. Meaningful data takes less than half of it: only masses of objects and blobs of two or three
/// bytes each come near.
class SRAMF3Parser : public SRDataParser
{
public:
    static constexpr unsigned kMemoryFactor = 44;
    static constexpr unsigned kMemorySlack = 4U << 20;
    /// The limit for a reader of that many bytes.
    static constexpr std::uint64_t memoryLimitFor(unsigned bytes)
    {
        return std::uint64_t{kMemoryFactor} * bytes + kMemorySlack;
    }

    /// Lowers a reader's memory limit. A writer has none by default; with one it fails, as at its output
    /// limit, when its buffer and tables would take more.
    void setMemoryLimit(std::uint64_t bytes) { m_memoryLimit = bytes; }
    /// An upper bound of the memory taken so far.
    std::uint64_t memoryCharged() const { return m_charged; }

    using SRDataParser::SRDataParser;
    SRAMF3Parser() = default;

    /// 1 to 4 bytes, 7 bits each with the high bit for more, the fourth byte 8 bits. A value of 0x40000000 or
    /// more is written as the byte 0.
    void WriteUint29(unsigned value) { putUint29(value); }
    unsigned ReadUint29();

    void WriteAMF3String(std::string_view text);
    void WriteAMF3String(const SRMBString& text) { WriteAMF3String(text.view()); }
    SRMBString ReadAMF3String();

    /// A text that never enters the table. u29: the integer in front of it, already read.
    void WriteXMLString(std::string_view text);
    SRMBString ReadXMLString(unsigned u29);

protected:
    /// Index of a text in a writer's table; -1 when it is not there.
    int StringTableFind(std::string_view text) const;
    /// Adds the text that was written last.
    void StringTableAdd(std::string_view text);
    std::size_t stringTableSize() const { return m_written.size(); }
    /// Cuts a writer's table back to that size.
    void shrinkStringTable(std::size_t size) { m_written.resize(std::min(size, m_written.size())); }

    /// As ReadAMF3String; true unless the text was encoded as the empty one (which ends a list of names).
    bool readAMF3Text(SRMBString& text);
    /// As ReadXMLString, without a copy.
    bool readXMLText(unsigned u29, std::string_view& text);

    /// Accounts for memory. Beyond the limit a reader returns false after bad data, a writer throws
    /// OutputLimitReached.
    bool charge(std::size_t bytes);
    /// The same for an allocation of so many bytes.
    bool chargeAllocated(std::size_t bytes);
    /// The same for a counted text.
    bool chargeText(std::size_t length);

private:
    /// A text in a writer's output.
    struct Written
    {
        unsigned position;
        unsigned length;
    };
    std::string_view writtenText(std::size_t index) const;

    std::uint64_t m_charged = 0;
    std::uint64_t m_memoryLimit = UINT64_MAX;
    std::vector<SRMBString> m_strings;  ///< a reader's table
    std::vector<Written> m_written;     ///< a writer's
    krx::HashIndex m_writtenIndex;
};
