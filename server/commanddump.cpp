// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/messagedump.h"

#include <algorithm>
#include <ostream>
#include <string>

namespace krx {

namespace {

// Collects text up to a length; what comes after it is dropped, and the cut is marked.
class BoundedText
{
public:
    explicit BoundedText(std::size_t maxBytes = SRData::kMaxTextBytes) : m_maxBytes(maxBytes) {}

    BoundedText& add(std::string_view piece)
    {
        const std::size_t left = room();
        m_text.append(piece.substr(0, left));
        if (piece.size() > left && !m_cut) {
            m_text.append("...");
            m_cut = true;
        }
        return *this;
    }
    BoundedText& add(const SRData& value)
    {
        return value.isTextKind() ? add(value.textView()) : add(value.toText(room()).view());
    }
    bool isFull() const { return m_cut; }
    const std::string& text() const { return m_text; }

private:
    std::size_t room() const { return m_cut ? 0 : m_maxBytes - m_text.size(); }

    const std::size_t m_maxBytes;
    std::string m_text;
    bool m_cut = false;
};

void addCommand(BoundedText& out, const SRCommand& command)
{
    out.add(std::to_string(static_cast<unsigned>(command.getTrxID()))).add(": ");
    out.add(command.getMethodName().textView()).add("[").add(std::to_string(command.getCmd())).add("](");
    for (int i = 0; i < command.argCount() && !out.isFull(); ++i)
        out.add(i > 0 ? ", " : "").add(command.getArg(i));
    out.add(")");
}

void addData(BoundedText& out, const SRData& value, unsigned indent)
{
    const std::string margin(std::size_t{indent} * 2, ' ');
    const SRDataArray* const array = static_cast<SRDataArray*>(value);
    if (!array) {
        out.add(margin).add(value).add("\n");
        return;
    }
    for (int i = 0; i < array->getSize() && !out.isFull(); ++i) {
        out.add(margin).add(array->getPropertyNameConst(i).view()).add(": ");
        out.add(array->getPropertyValueConst(i)).add("\n");
    }
}

void addOneArg(BoundedText& out, int index, const SRData& value)
{
    out.add("arg ").add(std::to_string(index)).add(":\n");
    addData(out, value, 1);
}

}  // namespace

void streamSRData(std::ostream& out, const SRData& value)
{
    out << value.toText();
}

void streamSRDataArray(std::ostream& out, const SRDataArray& array)
{
    out << array.toText();
}

void streamSRCommand(std::ostream& out, const SRCommand& command)
{
    BoundedText text;
    addCommand(text, command);
    out << text.text();
}

SRMBString stringizeSRData(const SRData& value)
{
    return value.toText();
}

SRMBString stringizeSRCommand(const SRCommand& command)
{
    BoundedText text;
    addCommand(text, command);
    return SRMBString(text.text());
}

void dumpData(std::ostream& out, const SRData& value, unsigned indent)
{
    BoundedText text;
    addData(text, value, indent);
    out << text.text();
}

void dumpOneArg(std::ostream& out, int index, const SRData& value)
{
    BoundedText text;
    addOneArg(text, index, value);
    out << text.text();
}

SRMBString dumpCommand(const SRCommand& command, std::size_t maxBytes)
{
    BoundedText out(maxBytes);
    out.add(command.getMethodName().textView()).add("[").add(std::to_string(command.getCmd())).add("] id ");
    out.add(std::to_string(static_cast<unsigned>(command.getTrxID()))).add(" (Command data\n");
    addData(out, command.getCommandData(), 1);
    out.add(")( Command args\n");
    for (int i = 0; i < command.argCount() && !out.isFull(); ++i)
        addOneArg(out, i, command.getArg(i));
    out.add(")\n");
    return SRMBString(out.text());
}

}  // namespace krx
