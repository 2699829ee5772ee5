// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/jsonwriter.h"

#include "tools/zmvutil/archive/src/base64.h"
#include "tools/zmvutil/archive/src/textformat.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace archive {
namespace {

/// Whether the text stands in JSON as it is.
bool isPlain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

}  // namespace

void JsonWriter::separate()
{
    if (!m_text.empty() && m_text.back() != '{' && m_text.back() != '[' && m_text.back() != ':')
        m_text += ',';
}

void JsonWriter::open(char bracket)
{
    separate();
    m_text += bracket;
}

void JsonWriter::key(std::string_view name)
{
    separate();
    // One call that may move the text, as there are many keys.
    const std::size_t start = m_text.size();
    m_text.resize(start + name.size() + 3, '"');
    name.copy(m_text.data() + start + 1, name.size());
    m_text.back() = ':';
}

void JsonWriter::value(std::string_view text)
{
    separate();
    if (isPlain(text))
        m_text.append("\"").append(text).append("\"");
    else
        m_text += nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

void JsonWriter::value(bool isTrue)
{
    separate();
    m_text += isTrue ? "true" : "false";
}

void JsonWriter::bytes(std::string_view name, std::string_view text)
{
    field(name, text);
    if (!isUtf8(text))
        field(std::string(name) + "_base64", toBase64(text));
}

}  // namespace archive
