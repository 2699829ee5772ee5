// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCommand.h"
#include "server/messagedump.h"
#include "tests/server/serializerfixture.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/tempdir.h"
#include "util/SRException.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

using namespace krx::test;

namespace {

/// Parses a body in readable text.
struct Parsed
{
    Parsed(unsigned char type, const char* text, bool throwFlag)
        : bytes(hexText(text)),
          command(type, reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                  throwFlag)
    {
    }

    const std::string bytes;
    const SRCommand command;
};

std::string bodyOf(const SRMessagePtr& message)
{
    return toHex({reinterpret_cast<const char*>(message->getBody()), message->getBodyLength()});
}

TEST(Command, ParsesByType)
{
    const struct
    {
        unsigned char type;
        const char* body;
        const char* text;  ///< as streamSRCommand shows it
        unsigned char dataKind;
    } cases[] = {
        {18, "02 000A 'onMetaData' 08 00000000 0001 'a' 01 01 0000 09", "0: onMetaData[0]({a: true})",
         kUndefinedType},
        {20, "02 0007 'connect' 00 3FF0000000000000 05 03 0001 'a' 02 0001 'x' 0000 09",
         "1: connect[3]({a: x})", kNullType},
        {17, "02 0004 'PLAY' 00 4000000000000000 06 02 0001 'x' 05 00 4008000000000000",
         "2: PLAY[12](x, , 3)", kUndefinedType},
        {15, "02 0001 'm' 05", "0: m[0]()", kUndefinedType},
        {18, "", "0: [0]()", kUndefinedType},
        {20, "02 0004 'seek'", "0: seek[17]()", kUndefinedType},
        {20, "02 0004 'seek' 00 3FF0000000000000", "1: seek[17]()", kUndefinedType},
        {18, "03 0000 09 05", "0: [0]()", kUndefinedType},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        const Parsed parsed(c.type, c.body, true);
        EXPECT_EQ(krx::stringizeSRCommand(parsed.command), c.text);
        EXPECT_EQ(parsed.command.getCommandData().kind, c.dataKind);
        std::ostringstream out;
        krx::streamSRCommand(out, parsed.command);
        EXPECT_EQ(out.str(), c.text);
    }
    const Parsed play(20, "02 0004 'play' 00 3FF0000000000000 03 0001 'a' 01 01 0000 09 05", true);
    EXPECT_EQ(krx::dumpCommand(play.command),
              "play[12] id 1 (Command data\n  a: true\n)( Command args\narg 0:\n  \n)\n");
    EXPECT_EQ(Parsed(15, "02 0001 'm' 05", true).command.argCount(), 1);
    for (const int outside : {-1, 2})
        EXPECT_EQ(Parsed(18, "02 0001 'm' 05 05", true).command.getArg(outside).kind, kUndefinedType);
    EXPECT_EQ(Parsed(18, "02 0001 'm'", true).command.getTrxID().kind, kNumberType);

    AssertRecorder asserts;
    EXPECT_EQ(krx::stringizeSRCommand(Parsed(22, "02 0001 'm' 01 01", true).command), "0: m[0](true)");
    EXPECT_EQ(asserts.take(), std::vector<std::string>{"Assert failed in server/SRCommand line 178"});
}

TEST(Command, TableIgnoresCase)
{
    for (int number = 1; number <= SRCommand::kCmdStopTransmit; ++number) {
        const std::string name = SRCommand::commandName(number);
        EXPECT_EQ(SRCommand::mapCommand(name.c_str()), number) << name;
        EXPECT_EQ(SRCommand::mapCommand((name + "x").c_str()), 0) << name;
    }
    EXPECT_EQ(SRCommand::mapCommand("PLAY"), SRCommand::kCmdPlay);
    EXPECT_EQ(SRCommand::mapCommand("@GETSTATS"), 1);
    EXPECT_EQ(SRCommand::kCmdStopTransmit, 22);
    EXPECT_EQ(SRCommand::mapCommand(""), 0);
    EXPECT_EQ(SRCommand::mapCommand(nullptr), 0);
    EXPECT_STREQ(SRCommand::commandName(23), "");
    EXPECT_STREQ(SRCommand::commandName(-1), "");
}

TEST(Command, FailuresAreTracedAndPassedOnAsAsked)
{
    const TempDir dir;
    dir.makeDir("logs");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    const struct
    {
        unsigned char type;
        const char* body;
        const char* line;
        const char* kept;
    } cases[] = {
        {20, "0E", "message id 20, failed to read the command type (first arg)\n", "0: [0]()"},
        {20, "02 0004 'play' 0E", "message id 20, failed to read the transaction id\n", "0: play[12]()"},
        {17, "02 0004 'play' 00 3FF0000000000000 0E", "message id 17, failed to read the command data\n",
         "1: play[12]()"},
        {18, "02 0001 'm' 05 01 01 0E", "message id 18, failed to read the argument number2\n",
         "0: m[0](, true)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        std::filesystem::remove("logs/cmdParsingLog.log");
        EXPECT_THROW(Parsed(c.type, c.body, true), SRBreakConnection);
        const std::string strict = dir.read("logs/cmdParsingLog.log");
        EXPECT_NE(strict.find(std::string("while parsing buffer with ") + c.line + "Command parsed as \n"),
                  std::string::npos)
            << strict;
        EXPECT_NE(strict.find(" (Command data\n"), std::string::npos);
        EXPECT_NE(strict.find(")( Command args\n"), std::string::npos);
        std::filesystem::remove("logs/cmdParsingLog.log");
        const Parsed lenient(c.type, c.body, false);
        EXPECT_EQ(krx::stringizeSRCommand(lenient.command), c.kept);
        EXPECT_TRUE(lenient.command.getErrorTrace().empty());
        EXPECT_EQ(dir.read("logs/cmdParsingLog.log"), strict);
    }
    // Data that breaks off: an exception, or what was there up to it.
    const char* const cut = "02 000A 'onMetaData' 08 00000000 0001 'a' 01 01 0001 'b' 00 40";
    EXPECT_THROW(Parsed(18, cut, true), SRBreakConnection);
    EXPECT_EQ(krx::stringizeSRCommand(Parsed(18, cut, false).command), "0: onMetaData[0]({a: true})");
    // The global flag changes how it is read inside, not who sees the exception.
    SRCommand::gLogCommandParserError = true;
    EXPECT_EQ(krx::stringizeSRCommand(Parsed(18, cut, false).command), "0: onMetaData[0]()");
    SRCommand::gLogCommandParserError = false;
    std::filesystem::current_path(before);
}

TEST(Command, BuildsMessages)
{
    SRCommand command;
    command.setMethodName("m");
    command.setTrxID(SRData(2.0));
    command.setResponseData("a", SRData(true));
    command.setUserArg(SRData("x"));
    const struct
    {
        int encoding;
        unsigned char commandType, dataType;
        const char* lead;
    } cases[] = {{0, 20, 18, ""}, {3, 17, 15, "00"}};
    for (const auto& c : cases) {
        command.setEncoding(c.encoding);
        const SRMessagePtr response = command.getCommandResponse();
        EXPECT_EQ(response->getType(), c.commandType);
        EXPECT_EQ(response->getStreamId(), 0U);
        EXPECT_EQ(bodyOf(response),
                  toHex(hexText(std::string(c.lead) + "02 0001 'm' 00 4000000000000000 "
                                                      "03 0001 'a' 01 01 0000 09 02 0001 'x'")));
        const SRMessagePtr data = command.getDataResponse();
        EXPECT_EQ(data->getType(), c.dataType);
        EXPECT_EQ(bodyOf(data), toHex(hexText(std::string(c.lead) + "02 0001 'm' 02 0001 'x'")));
        EXPECT_EQ(bodyOf(SRCommand(command).getDataResponse()), bodyOf(data));
    }
    EXPECT_TRUE(command.serializeDataResponse());
    command.clearUserArgs();
    command.setResponseFailure();
    EXPECT_TRUE(command.serializeCommandResponse());
    EXPECT_EQ(toHex(written(command)),
              toHex(hexText("02 0001 'm' 02 0001 'x' 02 0006 '_error' 00 4000000000000000 "
                            "03 0001 'a' 01 01 0000 09")));
    command.setResponseSuccess();
    EXPECT_STREQ(static_cast<const char*>(command.getMethodName()), "_result");
    // A body has 24 bits of length.
    command.setUserArg(SRData(std::string(0xFFFFF0, 'x').c_str()));
    EXPECT_EQ(command.getDataResponse(), nullptr);
}

TEST(Command, BuildsTheFirstArgumentByTheFirstProperty)
{
    SRCommand info;
    info.setInfoObj("status", "code", "", nullptr);
    info.setOnMetaDataProperty("later", SRData(true));
    EXPECT_EQ(info.getArg(0).kind, kObjectType);
    EXPECT_EQ(krx::stringizeSRData(info.getArg(0)), "{level: status, code: code, later: true}");
    SRCommand full;
    const SRData details(5.0);
    full.setInfoObj("a", "b", "c", &details);
    EXPECT_EQ(krx::stringizeSRData(full.getArg(0)), "{level: a, code: b, description: c, details: 5}");
    SRCommand meta;
    meta.setOnMetaDataProperty("duration", SRData(1.0));
    meta.setInfoProperty("duration", SRData(2.0));
    EXPECT_EQ(meta.getArg(0).kind, kArrayType);
    EXPECT_EQ(arrayOf(meta.getArg(0)).getKind(), kArrayType);
    EXPECT_EQ(krx::stringizeSRData(meta.getArg(0)), "{duration: 1, duration: 2}");
    AssertRecorder asserts;
    SRCommand text;
    text.setUserArg(SRData("text"));
    text.setInfoProperty("a", SRData(1.0));
    EXPECT_EQ(asserts.take(), std::vector<std::string>{"Assert failed in server/SRCommand line 392"});
    EXPECT_EQ(krx::stringizeSRCommand(text), "0: [0](text)");
}

TEST(Command, MovesBlobsToAndFromMessages)
{
    SRCommand command;
    const SRMessagePtr message(new SRMessage(0));
    message->write("body", 4);
    command.setUserArgToMessage(message);
    command.setUserArgToMessage(SRMessagePtr(new SRMessage(0)));
    command.setUserArg(SRData(1.0));
    message->getBody()[0] = 'B';
    int index = 0;
    EXPECT_EQ(bodyOf(command.getArgAsMessage(index)), toHex("body"));
    EXPECT_EQ(index, 1);
    EXPECT_EQ(command.getArgAsMessage(index)->getMsgLen(), 0U);
    EXPECT_EQ(command.getArgAsMessage(index), nullptr);
    EXPECT_EQ(index, 2);
}

}  // namespace
