// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

namespace krx::test {

TEST(Buffer, OffsetsStayInsideTheMemory)
{
    const SRMemoryPtr memory(new SRMemory(10));
    SRBuffer buffer(memory, 4, 8);
    EXPECT_EQ(buffer.length(), 4U);
    EXPECT_EQ(buffer.data(), memory->data() + 4);
    EXPECT_EQ(buffer.base(), memory->data());

    const unsigned huge = std::numeric_limits<unsigned>::max();
    const unsigned cases[][4] = {{0, 10, 0, 10}, {3, 2, 3, 3}, {huge, 5, 10, 10}, {2, huge, 2, 10}};
    for (const auto& [start, end, wantStart, wantEnd] : cases) {
        const SRBuffer span(memory, start, end);
        EXPECT_EQ(span.getStart(), wantStart) << start << " " << end;
        EXPECT_EQ(span.getEnd(), wantEnd) << start << " " << end;
        const SRBuffer none(nullptr, start, end);
        EXPECT_EQ(none.length() + none.getStart() + none.capacity(), 0U);
        EXPECT_EQ(none.data(), nullptr);
    }
    buffer.setStart(9);
    EXPECT_EQ(buffer.getEnd(), 9U);
    buffer.setEnd(1);
    EXPECT_EQ(buffer.getEnd(), 9U);
}

TEST(Buffer, ReserveNeverMovesBytesUnderAnotherHolder)
{
    SRPool<SRMemory> pool;
    for (SRPool<SRMemory>* source : {static_cast<SRPool<SRMemory>*>(nullptr), &pool}) {
        SRBuffer a(4, source);
        std::memcpy(a.base(), "abcd", 4);
        a.setEnd(4);
        const SRMemory* own = a.memory().get();
        ASSERT_TRUE(a.reserve(50));
        EXPECT_EQ(a.memory().get(), own) << "a sole holder keeps its memory object";

        const SRBuffer b = a;
        const unsigned char* before = b.base();
        ASSERT_TRUE(a.reserve(1000));
        EXPECT_NE(a.memory(), b.memory());
        EXPECT_EQ(b.base(), before);
        EXPECT_EQ(b.memory()->data(), before);
        EXPECT_EQ(std::memcmp(a.data(), "abcd", a.length()), 0);
        EXPECT_GE(a.capacity(), 1000U);
        EXPECT_EQ(a.memory()->pool(), source);
        EXPECT_TRUE(a.reserve(1));
    }
    SRBuffer none;
    EXPECT_TRUE(none.reserve(8));
    EXPECT_EQ(none.capacity(), 8U);
}

}  // namespace krx::test
