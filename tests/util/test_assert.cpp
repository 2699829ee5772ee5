// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRException.h"
#include "util/krxassert.h"

#include <gtest/gtest.h>

#include <vector>

namespace krx::test {

TEST(Assert, NothingThatASinkDoesStopsTheProgram)
{
    int calls = 0;
    auto before = util::setAssertSink([&](const SRString&) {
        ++calls;
        util::setAssertSink(nullptr);
        throw SRException(L"refused");
    });
    util::assertFailed("a", 1);
    util::assertFailed("a", 2);
    EXPECT_EQ(calls, 1);
    util::setAssertSink(before);
}

}  // namespace krx::test
