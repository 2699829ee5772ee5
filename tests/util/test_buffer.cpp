// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <sstream>

namespace {

int g_freed = 0;

void countFree(unsigned char* data)
{
    ++g_freed;
    delete[] data;
}

}  // namespace

TEST(Object, CountDecidesItsLife)
{
    struct Probe : SRObject
    {
        explicit Probe(bool& flag) : gone(flag) {}
        ~Probe() override { gone = true; }
        bool& gone;
    };
    bool gone = false;
    {
        SRPtr<Probe> a(new Probe(gone));
        SRPtr<Probe> b = a;
        SRPtr<SRObject> base = b;
        EXPECT_EQ(a->_get(), 3);
        a = nullptr;
        b = std::move(a);
        EXPECT_EQ(base->_get(), 1);
        EXPECT_FALSE(gone);
        std::ostringstream out;
        base->print(out);
        EXPECT_NE(out.str().find("count=1"), std::string::npos) << out.str();
    }
    EXPECT_TRUE(gone);
}

TEST(Memory, ResizeUsesTheMemorysOwnFreeFunctionOnce)
{
    g_freed = 0;
    auto* data = new unsigned char[4]{1, 2, 3, 4};
    SRMemoryPtr memory(new SRMemory(data, 4, countFree));
    memory->setUsed(4);
    EXPECT_TRUE(memory->resize(4));
    EXPECT_EQ(memory->data(), data);
    EXPECT_TRUE(memory->resize(100));
    EXPECT_EQ(g_freed, 1);
    EXPECT_EQ(std::memcmp(memory->data(), "\1\2\3\4", 4), 0);
    EXPECT_TRUE(memory->resize(2));
    EXPECT_EQ(memory->getUsed(), 2U) << "no more is used than there is";
    EXPECT_TRUE(memory->resize(0));
    EXPECT_EQ(memory->data(), nullptr);
    memory.reset();
    EXPECT_EQ(g_freed, 1) << "its own array was freed by its own function";

    unsigned char borrowed[2] = {7, 8};
    SRMemoryPtr view(new SRMemory(borrowed, 2, nullptr));
    EXPECT_TRUE(view->resize(3));
    EXPECT_EQ(view->data()[1], 8);
}

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
