// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRDataParser.h"

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

/// AMF3's variable-length integers, and its texts with their reference table. The table lives as long as the
/// parser.
///
/// A reference to a text costs a byte or two but gives the whole text again. To keep memory in proportion,
/// the references of one reader may give, beyond kFreeTextBytes each, no more than kExpansionFactor times the
/// reader's length plus kExpansionSlack bytes; anything above is bad data.
class SRAMF3Parser : public SRDataParser
{
public:
    static constexpr unsigned kFreeTextBytes = 32;
    static constexpr unsigned kExpansionFactor = 32;
    static constexpr unsigned kExpansionSlack = 1U << 20;

    using SRDataParser::SRDataParser;
    SRAMF3Parser() = default;

    /// 1 to 4 bytes, 7 bits each with the high bit for more, the fourth byte 8 bits. A value of 0x40000000 or
    /// more is written as the byte 0.
    void WriteUint29(unsigned value);
    unsigned ReadUint29();

    void WriteAMF3String(std::string_view text);
    void WriteAMF3String(const SRMBString& text) { WriteAMF3String(text.view()); }
    SRMBString ReadAMF3String();

    /// A text that never enters the table. u29: the integer in front of it, already read.
    void WriteXMLString(std::string_view text);
    SRMBString ReadXMLString(unsigned u29);

protected:
    /// Index of a text in the table; -1 when it is not there.
    int StringTableFind(std::string_view text) const;
    void StringTableAdd(std::string_view text);
    std::size_t stringTableSize() const { return m_strings.size(); }
    /// Drops what was added since the table had that size.
    void shrinkStringTable(std::size_t size);

    /// As ReadAMF3String; true unless the text was encoded as the empty one (which ends a list of names).
    bool readAMF3Text(SRMBString& text);
    /// As ReadXMLString, where the bytes lie.
    bool readXMLText(unsigned u29, std::string_view& text);
    /// Accounts for a text given again; false after telling bad data.
    bool chargeExpansion(std::size_t bytes);

private:
    std::vector<SRMBString> m_strings;
    // A writer's way from a text to its index; the views are of the texts in m_strings.
    std::unordered_map<std::string_view, int> m_stringIndex;
    unsigned long long m_expanded = 0;
};
