// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/datatext.h"
#include "server/messagedump.h"

#include <ostream>
#include <string>

namespace krx {

namespace {

constexpr std::size_t kMaxBytes = SRData::kMaxTextBytes;

DataText::Write into(std::ostream& out)
{
    return [&out](std::string_view piece) { out << piece; };
}

void addCommand(DataText& out, const SRCommand& command)
{
    out.add(std::to_string(static_cast<unsigned>(command.getTrxID()))).add(": ");
    out.add(command.getMethodName().textView()).add("[").add(std::to_string(command.getCmd())).add("](");
    for (int i = 0; i < command.argCount() && !out.isFull(); ++i)
        out.add(i > 0 ? ", " : "").add(command.getArg(i));
    out.add(")");
}

void addData(DataText& out, const SRData& value, unsigned indent)
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

void addOneArg(DataText& out, int index, const SRData& value)
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
    DataText text(kMaxBytes, into(out));
    addCommand(text, command);
}

SRMBString stringizeSRData(const SRData& value)
{
    return value.toText();
}

SRMBString stringizeSRCommand(const SRCommand& command)
{
    std::string text;
    DataText out(kMaxBytes, DataText::into(text));
    addCommand(out, command);
    return SRMBString(text);
}

void dumpData(std::ostream& out, const SRData& value, unsigned indent)
{
    DataText text(kMaxBytes, into(out));
    addData(text, value, indent);
}

void dumpOneArg(std::ostream& out, int index, const SRData& value)
{
    DataText text(kMaxBytes, into(out));
    addOneArg(text, index, value);
}

SRMBString dumpCommand(const SRCommand& command, std::size_t maxBytes)
{
    std::string text;
    DataText out(maxBytes, DataText::into(text));
    out.add(command.getMethodName().textView()).add("[").add(std::to_string(command.getCmd())).add("] id ");
    out.add(std::to_string(static_cast<unsigned>(command.getTrxID()))).add(" (Command data\n");
    addData(out, command.getCommandData(), 1);
    out.add(")( Command args\n");
    for (int i = 0; i < command.argCount() && !out.isFull(); ++i)
        addOneArg(out, i, command.getArg(i));
    out.add(")\n");
    return SRMBString(text);
}

}  // namespace krx
