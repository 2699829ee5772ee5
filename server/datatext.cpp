// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/datatext.h"

#include <algorithm>
#include <array>
#include <string>

namespace krx {

namespace {

const char* kindName(int kind)
{
    static constexpr struct
    {
        int kind;
        const char* name;
    } kNames[] = {
        {kNumberType, "kNumberType"},
        {kInt64Type, "kInt64Type"},
        {kBoolType, "kboolType"},
        {kStringType, "kStringType"},
        {kObjectType, "kObjectType"},
        {kMovieClipType, "kMovieClipType"},
        {kNullType, "kNullType"},
        {kUndefinedType, "kUndefinedType"},
        {kReferenceType, "kReferenceType"},
        {kArrayType, "kArrayType"},
        {kObjectEndType, "kObjectEndType"},
        {kStrictArrayType, "kStrictArrayTyp"},
        {kDateType, "kDateType"},
        {kLongStringType, "kLongStringType"},
        {kUnsupportedType, "kUnsupportedTyp"},
        {kXMLType, "kXMLType"},
        {kTypedObjectType, "kTypedObjectTyp"},
        {kAvmPlusObjectType, "kAvmPlusObjectType"},
        {kBlobType, "kBlobType"},
    };
    const auto* const found =
        std::find_if(std::begin(kNames), std::end(kNames), [kind](const auto& n) { return n.kind == kind; });
    return found == std::end(kNames) ? "unknown" : found->name;
}

}  // namespace

DataText& DataText::add(std::string_view piece)
{
    if (m_full)
        return *this;
    if (piece.size() <= m_room) {
        m_write(piece);
        m_room -= piece.size();
        return *this;
    }
    // The cut must not split a character.
    std::size_t n = m_room;
    while (n > 0 && (static_cast<unsigned char>(piece[n]) & 0xC0) == 0x80)
        --n;
    m_write(piece.substr(0, n));
    m_write("...");
    m_full = true;
    return *this;
}

DataText& DataText::add(const SRData& value)
{
    if (m_style == Style::kTyped)
        addTyped(value);
    else if (value.isArrayKind())
        add(*value.payload.array);
    else if (value.isTextKind())
        add(value.textView());
    else
        add(value.toText().view());
    return *this;
}

void DataText::addTyped(const SRData& value)
{
    add("dataType=").add(kindName(value.kind));
    switch (value.kind) {
        case kNumberType:
        case kInt64Type:
            add(" ").add(std::to_string(static_cast<long long>(value)));
            break;
        case kBoolType:
            add(static_cast<bool>(value) ? " true" : " false");
            break;
        case kDateType:
            add(" ").add(SRMBString::toString(value.getDate()).view());
            break;
        case kStringType:
        case kXMLType:
            add(" \"").add(value.textView()).add("\"");
            break;
        default:
            if (value.isArrayKind())
                add(" ").add(*value.payload.array);
            break;
    }
}

DataText& DataText::add(const SRDataArray& array)
{
    if (m_open.size() >= SRData::kMaxTextDepth ||
        std::find(m_open.begin(), m_open.end(), &array) != m_open.end())
        return add("{...}");
    m_open.push_back(&array);
    add("{");
    SRDataArray::NameBuffer buffer;
    for (int i = 0; i < array.getSize() && !m_full; ++i) {
        if (i > 0)
            add(", ");
        add(array.getNameView(i, buffer)).add(": ").add(array.getPropertyValueConst(i));
    }
    m_open.pop_back();
    return add("}");
}

}  // namespace krx
