// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/htmltext.h"

#include "tools/zmvutil/archive/src/textformat.h"

namespace archive {

std::string htmlEscaped(std::string_view text)
{
    std::string shown;
    shown.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                shown += "&amp;";
                break;
            case '<':
                shown += "&lt;";
                break;
            case '>':
                shown += "&gt;";
                break;
            case '"':
                shown += "&quot;";
                break;
            case '\'':
                shown += "&#39;";
                break;
            default:
                shown += c;
        }
    }
    return shown;
}

std::string htmlOfBytes(std::string_view bytes)
{
    return htmlEscaped(escaped(bytes));
}

}  // namespace archive
