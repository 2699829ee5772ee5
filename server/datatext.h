// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRData.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
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

    /// Takes a piece of the text, which it must not keep.
    using Write = std::function<void(std::string_view piece)>;

    DataText(std::size_t maxBytes, Write write, Style style = Style::kPlain)
        : m_room(maxBytes), m_write(std::move(write)), m_style(style)
    {
    }

    /// Appends the pieces to a text, which must outlive it.
    static Write into(std::string& text)
    {
        return [&text](std::string_view piece) { text.append(piece); };
    }

    DataText& add(std::string_view piece);
    DataText& add(const SRData& value);
    DataText& add(const SRDataArray& array);

    bool isFull() const { return m_full; }

private:
    void addTyped(const SRData& value);

    std::size_t m_room;
    const Write m_write;
    const Style m_style;
    bool m_full = false;
    std::vector<const SRDataArray*> m_open;
};

}  // namespace krx
