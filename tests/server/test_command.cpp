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
#include <string>
#include <vector>

namespace krx::test {
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
        {20, "02 0004 'seek' 00 3FF0000000000000", "1: seek[17]()", kUndefinedType},
        {18, "03 0000 09 05", "0: [0]()", kUndefinedType},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        const Parsed parsed(c.type, c.body, true);
        EXPECT_EQ(stringizeSRCommand(parsed.command), c.text);
        EXPECT_EQ(parsed.command.getCommandData().kind, c.dataKind);
    }
    const Parsed play(20, "02 0004 'play' 00 3FF0000000000000 03 0001 'a' 01 01 0000 09 05", true);
    EXPECT_EQ(dumpCommand(play.command),
              "play[12] id 1 (Command data\n  a: true\n)( Command args\narg 0:\n  \n)\n");
    for (const int outside : {-1, 2})
        EXPECT_EQ(Parsed(18, "02 0001 'm' 05 05", true).command.getArg(outside).kind, kUndefinedType);

    AssertRecorder asserts;
    EXPECT_EQ(stringizeSRCommand(Parsed(22, "02 0001 'm' 01 01", true).command), "0: m[0](true)");
    EXPECT_EQ(asserts.take(), std::vector<std::string>{"Assert failed in server/SRCommand line 178"});
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
        SRDataParser::setErrorTrace(true);
        EXPECT_THROW(Parsed(c.type, c.body, true), SRBreakConnection);
        const std::string strict = dir.read("logs/cmdParsingLog.log");
        EXPECT_NE(strict.find(std::string("while parsing buffer with ") + c.line + "Command parsed as \n"),
                  std::string::npos)
            << strict;
        std::filesystem::remove("logs/cmdParsingLog.log");
        const Parsed lenient(c.type, c.body, false);
        EXPECT_EQ(stringizeSRCommand(lenient.command), c.kept);
        EXPECT_TRUE(lenient.command.getErrorTrace().empty());
        EXPECT_EQ(dir.read("logs/cmdParsingLog.log"), strict);
    }
    // Truncated data: an exception, or the values before the end.
    const char* const cut = "02 000A 'onMetaData' 08 00000000 0001 'a' 01 01 0001 'b' 00 40";
    EXPECT_THROW(Parsed(18, cut, true), SRBreakConnection);
    EXPECT_EQ(stringizeSRCommand(Parsed(18, cut, false).command), "0: onMetaData[0]({a: true})");
    // The global flag changes how it is read inside, not who sees the exception.
    SRCommand::gLogCommandParserError = true;
    EXPECT_EQ(stringizeSRCommand(Parsed(18, cut, false).command), "0: onMetaData[0]()");
    SRCommand::gLogCommandParserError = false;
    std::filesystem::current_path(before);
}

}  // namespace
}  // namespace krx::test
