// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Reads values, skips them, parses commands. The first byte chooses what is done with the rest. What was read
// is shown, copied and compared; what can be written is read back and must show the same text.

#include "fuzz/fuzzing.h"
#include "server/SRCommand.h"
#include "server/messagedump.h"
#include "util/SRException.h"

#include <array>
#include <vector>

namespace {

// Enough for what the largest input holds; references that are written out in full end here.
constexpr unsigned kOutputLimit = 1U << 18;

// Writes a value and reads it back; false when it cannot be written. Circles are open in what comes back.
bool writeAndRead(const SRData& value, int encoding, SRData& back)
{
    SRCSerializer writer;
    writer.setEncoding(encoding);
    writer.setOutputLimit(kOutputLimit);
    if (!writer.PutVar(&value, true)) {
        require(writer.hasWriteFailed());
        return false;
    }
    SRCSerializer reader(writer.getBuffer(), static_cast<int>(writer.getPosition()), true);
    reader.GetVar(&back, true);
    require(!reader.isBad() && reader.atEnd());
    return true;
}

void use(const SRData& value)
{
    const SRData copy(value);
    require(SRData::compare(value, copy) == (value.kind == kBlobType ? 2 : 0));
    SRData text;
    value.toString(text);
    require(text.kind == kStringType);
    if (const SRDataArray* const array = static_cast<SRDataArray*>(value)) {
        const SRDataArray deep(*array);
        require(deep.equals(*array) && deep.containsCircle() == array->containsCircle());
    }
    for (const int encoding : {SRDataParser::kAMF0, SRDataParser::kAMF3}) {
        SRData once;
        if (!writeAndRead(value, encoding, once))
            continue;
        // What came from an encoding survives that encoding.
        const SRMBString shown = once.toText();
        SRData twice;
        if (shown.size() < SRData::kMaxTextBytes)
            require(writeAndRead(once, encoding, twice) && twice.toText() == shown);
    }
}

void readValues(SRCSerializer& reader, bool reset)
{
    while (!reader.atEnd()) {
        SRData value;
        reader.GetVar(&value, reset);
        use(value);
    }
    require(reader.getErrorTrace().size() <= 2 * SRCSerializer::kMaxNesting + 2);
}

void skipValues(SRCSerializer& reader)
{
    while (!reader.atEnd())
        reader.skipVar();
}

void parseCommand(unsigned char type, const unsigned char* data, int length, bool strict)
{
    const SRCommand command(type, data, length, strict);
    require(SRCommand::mapCommand(SRCommand::commandName(command.getCmd())) == command.getCmd());
    krx::dumpCommand(command);
    krx::stringizeSRCommand(command);
    for (int i = 0; i < command.argCount(); ++i)
        use(command.getArg(i));
    const SRMessagePtr message = SRCommand(command).getDataResponse();
    if (message)
        krx::util::messageToString(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        return 0;
    // A buffer of its own, so that a read past its end is seen.
    const std::vector<unsigned char> input(bytes + 1, bytes + size);
    const auto length = static_cast<int>(input.size());
    const bool strict = (bytes[0] & 0x80) != 0;
    constexpr std::array<unsigned char, 4> kTypes{kMsgData, kMsgDataEx, kMsgCmd, kMsgCmdEx};
    try {
        switch (bytes[0] & 7) {
            case 0:
            case 1: {
                SRCSerializer reader(input.data(), length, strict);
                readValues(reader, (bytes[0] & 1) != 0);
                break;
            }
            case 2: {
                SRCSerializer reader(input.data(), length, strict);
                skipValues(reader);
                break;
            }
            case 3: {
                // As AMF3 values: each after the marker that switches to AMF3.
                std::vector<unsigned char> switched{kAvmPlusObjectType};
                switched.insert(switched.end(), input.begin(), input.end());
                SRCSerializer reader(switched.data(), length + 1, strict);
                readValues(reader, false);
                break;
            }
            default:
                parseCommand(kTypes[bytes[0] & 3], input.data(), length, strict);
                break;
        }
    } catch (const SRBreakConnection& e) {
        require(e.getCode() == SRBreakConnection::kMalformedData);
    }
    return 0;
}
