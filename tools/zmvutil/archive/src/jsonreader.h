// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace archive {

/// The fields of an object of JSON, which may come from anywhere. What is not there has its default; what is
/// there and of another type or range throws std::runtime_error. Unknown fields are passed over with hardly a
/// look: only their brackets and quotes have to match. Made for lines of a known form, whose fields are asked
/// for in their order; that is several times as fast as a tree of values.
class JsonReader
{
public:
    /// The text must outlive the reader. Throws std::runtime_error unless it is one object.
    explicit JsonReader(std::string_view text);

    bool has(std::string_view name) const { return find(name).has_value(); }
    /// The bytes of a text, from NAME_base64 where that is there.
    std::string bytes(std::string_view name) const;
    bool flag(std::string_view name) const;
    double real(std::string_view name) const;
    template <typename Integer>
    std::optional<Integer> integer(std::string_view name) const;
    /// An enumerator by the name that nameOf gives it. It has to be there.
    template <typename Enum>
    Enum name(std::string_view name) const;
    std::optional<JsonReader> object(std::string_view name) const;
    /// Calls function with a reader for each object of a list.
    template <typename Function>
    void forEach(std::string_view name, Function function) const;

private:
    struct Field
    {
        std::string_view name;
        std::string_view value;  ///< as it is in the text
    };

    std::optional<std::string_view> find(std::string_view name) const;
    std::vector<std::string_view> items(std::string_view name) const;
    [[noreturn]] static void refuse(std::string_view name);

    std::vector<Field> m_fields;
    mutable std::size_t m_next = 0;  ///< the field after the one that was found last
};

template <typename Integer>
std::optional<Integer> JsonReader::integer(std::string_view name) const
{
    const std::optional<std::string_view> text = find(name);
    if (!text)
        return std::nullopt;
    Integer number = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (error != std::errc() || end != text->data() + text->size())
        refuse(name);
    return number;
}

template <typename Enum>
Enum JsonReader::name(std::string_view name) const
{
    using archive::nameOf;
    using vidlint::nameOf;
    const std::string text = bytes(name);
    for (int i = 0;; ++i) {
        const std::string_view known = nameOf(static_cast<Enum>(i));
        if (known.empty())
            refuse(name);
        if (known == text)
            return static_cast<Enum>(i);
    }
}

template <typename Function>
void JsonReader::forEach(std::string_view name, Function function) const
{
    for (const std::string_view item : items(name))
        function(JsonReader(item));
}

}  // namespace archive
