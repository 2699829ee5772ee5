// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace archive {

/// Writes JSON front to back, as ASCII in one line, whatever bytes the texts hold. It makes no tree of values
/// in memory: a record is written in a fraction of the time that checking a small file takes.
class JsonWriter
{
public:
    JsonWriter() { m_text.reserve(kUsualSize); }

    void openObject() { open('{'); }
    void closeObject() { m_text += '}'; }
    void openList() { open('['); }
    void closeList() { m_text += ']'; }
    /// Before the value of a field.
    void key(std::string_view name);

    void value(std::string_view text);
    void value(const char* text) { value(std::string_view(text)); }
    void value(bool isTrue);
    template <typename Number>
    requires std::integral<Number> || std::floating_point<Number>
    void value(Number number);  ///< finite

    template <typename Value>
    void field(std::string_view name, const Value& known)
    {
        key(name);
        value(known);
    }
    /// Nothing when the value is not known.
    template <typename Value>
    void field(std::string_view name, const std::optional<Value>& maybe)
    {
        if (maybe)
            field(name, *maybe);
    }
    /// A text, and its bytes under NAME_base64 where they are no UTF-8.
    void bytes(std::string_view name, std::string_view text);
    /// A list of objects, of which write(item) writes the fields.
    template <typename Items, typename Write>
    void list(std::string_view name, const Items& items, Write write);

    const std::string& text() const { return m_text; }
    std::string take() { return std::move(m_text); }

private:
    static constexpr std::size_t kUsualSize = 1024;  ///< of a record

    void separate();
    void open(char bracket);

    std::string m_text;
};

template <typename Number>
requires std::integral<Number> || std::floating_point<Number>
void JsonWriter::value(Number number)
{
    char digits[32];
    separate();
    m_text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

template <typename Items, typename Write>
void JsonWriter::list(std::string_view name, const Items& items, Write write)
{
    key(name);
    openList();
    for (const auto& item : items) {
        openObject();
        write(item);
        closeObject();
    }
    closeList();
}

}  // namespace archive
