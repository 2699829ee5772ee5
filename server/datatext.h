// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRData.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace krx {

/// Renders values, one after another, into a text of bounded length. Whatever does not fit is dropped, and
/// the cut is marked with "...".
class DataText
{
public:
    /// kPlain: as SRData::toText. kTyped: every value has "dataType=", the name of its kind and a blank in
    /// front; numbers are integers, texts are quoted, dates are milliseconds since 1970.
    enum class Style
    {
        kPlain,
        kTyped,
    };

    explicit DataText(std::size_t maxBytes, Style style = Style::kPlain)
        : m_maxBytes(maxBytes), m_style(style)
    {
    }

    DataText& add(std::string_view piece);
    DataText& add(const SRData& value);
    DataText& add(const SRDataArray& array);

    bool isFull() const { return m_full; }
    const std::string& text() const { return m_text; }

private:
    void addTyped(const SRData& value);

    const std::size_t m_maxBytes;
    const Style m_style;
    std::string m_text;
    bool m_full = false;
    std::vector<const SRDataArray*> m_open;
};

}  // namespace krx
