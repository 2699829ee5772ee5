// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// What reading and writing values answers when memory runs out, wherever that happens.

#include "server/SRCommand.h"
#include "tests/server/serializerfixture.h"
#include "tests/support/failingallocations.h"
#include "util/SRException.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace krx::test;

namespace {

// Every sort of value, with references.
const char kValue[] =
    "03 0001 'a' 0A 00000002 02 0001 'x' 05 0001 'r' 07 0001 0001 'b' 20 00000001 FF 0001 'd' "
    "11 09 03 03 'n' 08 01 3FF0000000000000 01 0A 1B 03 'C' 03 'm' 06 07 'abc' 03 'e' 07 03 'x' 01 0000 09";

TEST(OutOfMemory, ReadingGivesTheValueOrSaysThatItStarved)
{
    const std::string bytes = hexText(kValue);
    const std::string whole = textOf(Reader(bytes).get());
    for (const bool skips : {false, true}) {
        std::optional<Reader> reader;
        SRData value;
        int marker = 0;
        withEachAllocationFailing(
            [&] {
                try {
                    reader.emplace(bytes);
                    marker = skips ? (*reader)->skipVar() : (*reader)->GetVar(&value, false);
                } catch (const std::bad_alloc&) {
                    reader.reset();  // of the test's own copy of the bytes
                }
            },
            [&](unsigned failed) {
                if (!reader)
                    return;
                EXPECT_EQ((*reader)->hasReadStarved(), failed != 0) << failed;
                if (failed == 0) {
                    EXPECT_EQ(marker, 3);
                    EXPECT_EQ(skips ? whole : textOf(value), whole);
                }
            });
    }
}

TEST(OutOfMemory, WritingGoesBackOrIsWhole)
{
    Reader reader(hexText(kValue));
    const SRData value = reader.get();
    for (const int encoding : {SRDataParser::kAMF0, SRDataParser::kAMF3}) {
        const std::string whole = encoded(value, encoding);
        std::optional<SRCSerializer> writer;
        bool done = false;
        withEachAllocationFailing(
            [&] {
                writer.emplace();
                writer->setEncoding(encoding);
                done = writer->PutVar(&value, true);
            },
            [&](unsigned failed) {
                EXPECT_EQ(done, failed == 0) << failed;
                EXPECT_EQ(writer->hasWriteStarved(), failed != 0) << failed;
                EXPECT_EQ(toHex(written(*writer)), failed == 0 ? whole : "") << failed;
            });

        SRCommand command;
        command.setEncoding(encoding);
        command.setMethodName("m");
        command.setUserArg(value);
        SRMessagePtr message;
        bool starved = false;
        withEachAllocationFailing(
            [&] {
                starved = false;
                try {
                    message = command.getDataResponse();
                } catch (const SROutOfMemory&) {
                    starved = true;
                }
            },
            [&](unsigned failed) {
                // The message pool does without a list of idle messages.
                EXPECT_TRUE(starved || message) << failed;
                EXPECT_TRUE(failed != 0 || !starved);
            });
    }
}

// How many arguments a command has; 100 for bad data, -1 where memory ran out.
int parsedArguments(const std::string& body, bool throwFlag)
{
    try {
        const SRCommand command(kMsgData, reinterpret_cast<const unsigned char*>(body.data()),
                                static_cast<int>(body.size()), throwFlag);
        return command.argCount();
    } catch (const SROutOfMemory&) {
        return -1;
    } catch (const SRBreakConnection&) {
        return 100;
    }
}

TEST(OutOfMemory, CommandsPassNoPartForTheWhole)
{
    for (const char* const end : {"", " 0E", " 02 00"}) {
        const std::string body = hexText("02 0001 'm'" + std::string(kValue) + end);
        for (const bool throwFlag : {false, true}) {
            const int whole = parsedArguments(body, throwFlag);
            int parsed = 0;
            // The trace file may do without the memory that it asks for.
            withEachAllocationFailing([&] { parsed = parsedArguments(body, throwFlag); },
                                      [&](unsigned failed) {
                                          EXPECT_TRUE(parsed == whole || (failed != 0 && parsed == -1))
                                              << end << " " << failed << " " << parsed;
                                      });
        }
    }
}

}  // namespace
