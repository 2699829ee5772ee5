// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRException.h"
#include "util/krxassert.h"

#include <gtest/gtest.h>

#include <vector>

TEST(Assert, NothingThatASinkDoesStopsTheProgram)
{
    int calls = 0;
    auto before = krx::util::setAssertSink([&](const SRString&) {
        ++calls;
        krx::util::setAssertSink(nullptr);
        throw SRException(L"refused");
    });
    krx::util::assertFailed("a", 1);
    krx::util::assertFailed("a", 2);
    EXPECT_EQ(calls, 1);
    krx::util::setAssertSink(before);
}
