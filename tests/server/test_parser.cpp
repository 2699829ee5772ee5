// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/server/serializerfixture.h"
#include "tests/support/tempdir.h"
#include "util/SRException.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace krx::test;

namespace {

TEST(ErrorTrace, IsAppendedWhereTheDirectoryExists)
{
    const TempDir dir;
    const std::string expected =
        "Error occured in serializing message buffer at position 1:\nMessage Buffer: (00 41)\n"
        "Message data is not complete\n";
    const std::string strange = "a\\b%s";
    dir.makeDir(strange + "/sub");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.bytes(strange));
    Reader(hexText("00 41")).get();
    EXPECT_FALSE(std::filesystem::exists("logs"));
    dir.makeDir(strange + "/logs");
    for (int i = 1; i <= 2; ++i) {
        Reader(hexText("00 41")).get();
        std::string all;
        for (int n = 0; n < i; ++n)
            all += expected;
        EXPECT_EQ(dir.read(strange + "/logs/cmdParsingLog.log"), all);
    }
    // In a reader that throws it is for the caller to write it.
    EXPECT_THROW(Reader(hexText("00 41"), true).get(), SRBreakConnection);
    EXPECT_EQ(dir.read(strange + "/logs/cmdParsingLog.log"), expected + expected);
    std::filesystem::current_path(before);
}

}  // namespace
