// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/jsonreader.h"

#include "tools/zmvutil/archive/src/base64.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace archive {
namespace {

[[noreturn]] void refuseText()
{
    throw std::runtime_error("A record is no line of JSON.");
}

/// Goes through a text value by value.
class Scanner
{
public:
    explicit Scanner(std::string_view text) : m_text(text) {}

    /// Takes the character if it is the next one that is no space.
    bool take(char c)
    {
        skipSpace();
        if (m_at == m_text.size() || m_text[m_at] != c)
            return false;
        ++m_at;
        return true;
    }
    void expect(char c)
    {
        if (!take(c))
            refuseText();
    }
    void expectEnd()
    {
        skipSpace();
        if (m_at != m_text.size())
            refuseText();
    }
    /// The next value as it is in the text.
    std::string_view value();

private:
    void skipSpace() { m_at = std::min(m_text.find_first_not_of(" \t\r\n", m_at), m_text.size()); }
    void skipText();
    void skipNested();

    std::string_view m_text;
    std::size_t m_at = 0;
};

std::string_view Scanner::value()
{
    skipSpace();
    const std::size_t begin = m_at;
    const char first = m_at < m_text.size() ? m_text[m_at] : '\0';
    if (first == '"')
        skipText();
    else if (first == '{' || first == '[')
        skipNested();
    else
        m_at = std::min(m_text.find_first_of(",]} \t\r\n", m_at), m_text.size());
    if (m_at == begin)
        refuseText();
    return m_text.substr(begin, m_at - begin);
}

void Scanner::skipText()
{
    ++m_at;
    while (m_at < m_text.size() && m_text[m_at] != '"')
        m_at += m_text[m_at] == '\\' ? 2 : 1;
    if (m_at >= m_text.size())
        refuseText();
    ++m_at;
}

void Scanner::skipNested()
{
    constexpr std::size_t kMostNesting = 64;
    std::string open;
    do {
        const char c = m_text[m_at];
        if (c == '"') {
            skipText();
            continue;
        }
        ++m_at;
        if (c == '{' || c == '[') {
            open += c;
        } else if (c == '}' || c == ']') {
            if (open.back() != (c == '}' ? '{' : '['))
                refuseText();
            open.pop_back();
        }
    } while (!open.empty() && open.size() <= kMostNesting && m_at < m_text.size());
    if (!open.empty())
        refuseText();
}

/// The characters of a text that stands in quotes; nothing for what is no text.
std::optional<std::string> unquoted(std::string_view value)
{
    if (!value.starts_with('"'))
        return std::nullopt;
    const std::string_view inside = value.substr(1, value.size() - 2);
    if (std::all_of(inside.begin(), inside.end(), [](char c) { return c >= ' ' && c <= '~' && c != '\\'; }))
        return std::string(inside);
    const nlohmann::json parsed = nlohmann::json::parse(value, nullptr, false);
    return parsed.is_string() ? std::optional(parsed.get<std::string>()) : std::nullopt;
}

}  // namespace

JsonReader::JsonReader(std::string_view text)
{
    constexpr std::size_t kUsualFields = 24;
    m_fields.reserve(kUsualFields);
    Scanner in(text);
    in.expect('{');
    if (!in.take('}')) {
        do {
            const std::string_view name = in.value();
            if (!name.starts_with('"'))
                refuseText();
            in.expect(':');
            m_fields.push_back({name.substr(1, name.size() - 2), in.value()});
        } while (in.take(','));
        in.expect('}');
    }
    in.expectEnd();
}

std::optional<std::string_view> JsonReader::find(std::string_view name) const
{
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        const std::size_t at = m_next + i < m_fields.size() ? m_next + i : m_next + i - m_fields.size();
        if (m_fields[at].name == name) {
            m_next = at + 1;
            return m_fields[at].value;
        }
    }
    return std::nullopt;
}

void JsonReader::refuse(std::string_view name)
{
    throw std::runtime_error("The field \"" + std::string(name) +
                             "\" of a record has no value that it can have.");
}

std::string JsonReader::bytes(std::string_view name) const
{
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    const std::optional<std::string_view> value = find(name);
    if (!value)
        return {};
    std::optional<std::string> text = unquoted(*value);
    if (!text)
        refuse(name);
    // The bytes are only looked for where the text shows that some were replaced.
    if (text->find(kReplacement) == std::string::npos)
        return *std::move(text);
    const std::optional<std::string_view> encoded = find(std::string(name) + "_base64");
    if (!encoded)
        return *std::move(text);
    std::optional<std::string> bytes = fromBase64(unquoted(*encoded).value_or("?"));
    if (!bytes)
        refuse(name);
    return *std::move(bytes);
}

bool JsonReader::flag(std::string_view name) const
{
    const std::optional<std::string_view> value = find(name);
    if (value && *value != "true" && *value != "false")
        refuse(name);
    return value == "true";
}

double JsonReader::real(std::string_view name) const
{
    const std::optional<std::string_view> value = find(name);
    double number = 0;
    if (value) {
        const char* const last = value->data() + value->size();
        const auto [end, error] = std::from_chars(value->data(), last, number);
        if (error != std::errc() || end != last)
            refuse(name);
    }
    return number;
}

std::optional<JsonReader> JsonReader::object(std::string_view name) const
{
    const std::optional<std::string_view> value = find(name);
    if (!value)
        return std::nullopt;
    return JsonReader(*value);
}

std::vector<std::string_view> JsonReader::items(std::string_view name) const
{
    std::vector<std::string_view> found;
    const std::optional<std::string_view> value = find(name);
    if (!value)
        return found;
    Scanner in(*value);
    in.expect('[');
    if (in.take(']'))
        return found;
    do {
        found.push_back(in.value());
    } while (in.take(','));
    in.expect(']');
    in.expectEnd();
    return found;
}

}  // namespace archive
