// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRException.h"
#include "util/SRStrUtil.h"
#include "util/SRString.h"
#include "util/SRStringPool.h"
#include "util/krxassert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

template <typename CharT>
std::basic_string<CharT> textOf(std::size_t n)
{
    std::basic_string<CharT> text;
    for (std::size_t i = 0; i < n; ++i)
        text += static_cast<CharT>('a' + i % 26);
    return text;
}

template <typename CharT>
std::basic_string_view<CharT> view(const CharT* block)
{
    return {block, static_cast<std::size_t>(SRStringPool::length(block))};
}

// The same cases for narrow and wide blocks.
template <typename CharT>
class StringPoolWidths : public testing::Test
{
};

using Widths = testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(StringPoolWidths, Widths);

}  // namespace

TYPED_TEST(StringPoolWidths, WithoutALimitEveryTextHasItsOwnBlock)
{
    SRStringPool pool(0);
    const auto five = textOf<TypeParam>(5);
    TypeParam* a = pool.get(five.c_str());
    TypeParam* b = pool.get(five.c_str());
    EXPECT_NE(a, b);
    for (TypeParam* block : {a, b}) {
        EXPECT_EQ(SRStringPool::type(block), SRStringPool::kPrivate);
        EXPECT_EQ(SRStringPool::length(block), 5);
        EXPECT_EQ(block, five);
        const auto* header = reinterpret_cast<const unsigned char*>(block) - 4;
        EXPECT_EQ(std::vector<int>(header, header + 4), (std::vector<int>{0, 0, 5, 1}));
        pool.release(block);
    }
    EXPECT_EQ(pool.useCount(five.c_str()), 0);
    EXPECT_EQ(pool.collectGarbage(), 0);
}

TYPED_TEST(StringPoolWidths, EmptyTextsShareOneBlock)
{
    SRStringPool pool(16);
    const TypeParam zeros[2] = {};
    TypeParam* empty = pool.get(zeros);
    EXPECT_EQ(SRStringPool::length(empty), 0);
    EXPECT_EQ(SRStringPool::type(empty), SRStringPool::kEmpty);
    EXPECT_EQ(*empty, TypeParam());
    EXPECT_EQ(pool.get(static_cast<const TypeParam*>(nullptr), 7), empty);
    EXPECT_EQ(pool.get(zeros + 1, 0), empty);
    pool.release(empty);
    EXPECT_EQ(pool.copy(pool.get(textOf<TypeParam>(40).c_str()), zeros), empty);
    EXPECT_EQ(pool.append(empty, zeros), empty);

    TypeParam* changeable = pool.toMutable(empty);
    EXPECT_EQ(SRStringPool::type(changeable), SRStringPool::kPrivate);
    EXPECT_EQ(SRStringPool::length(changeable), 0);
    pool.release(changeable);
}

TYPED_TEST(StringPoolWidths, InternedTextsAreSharedAndCounted)
{
    SRStringPool pool(16);
    const auto five = textOf<TypeParam>(5);
    TypeParam* a = pool.get(five.c_str());
    TypeParam* b = pool.get((five + five).c_str(), 5);
    EXPECT_EQ(a, b);
    EXPECT_EQ(SRStringPool::type(a), SRStringPool::kInterned);
    EXPECT_EQ(pool.useCount(five.c_str()), 2);
    pool.release(a);
    EXPECT_EQ(pool.collectGarbage(), 0);
    pool.release(b);
    EXPECT_EQ(pool.useCount(five.c_str()), 0);
    EXPECT_EQ(pool.get(five.c_str()), a) << "an unused block stays until the collection";
    pool.release(a);
    EXPECT_EQ(pool.collectGarbage(), 1);
    EXPECT_EQ(pool.collectGarbage(), 0);

    TypeParam* sixteen = pool.get(textOf<TypeParam>(16).c_str());
    TypeParam* seventeen = pool.get(textOf<TypeParam>(17).c_str());
    EXPECT_EQ(SRStringPool::type(sixteen), SRStringPool::kInterned);
    EXPECT_EQ(SRStringPool::type(seventeen), SRStringPool::kPrivate);
    // With an explicit length zeros are characters like others.
    const TypeParam zeros[] = {'a', 0, 'b', 'a', 0, 'c', 0};
    TypeParam* first = pool.get(zeros, 3);
    TypeParam* second = pool.get(zeros + 3, 3);
    EXPECT_NE(first, second);
    EXPECT_EQ(SRStringPool::length(first), 3);
    for (TypeParam* block : {sixteen, seventeen, first, second})
        pool.release(block);
    EXPECT_EQ(pool.collectGarbage(), 3);
}

TYPED_TEST(StringPoolWidths, CopyStaysInPlaceWhileTheTextFits)
{
    struct Case
    {
        std::size_t before;
        std::size_t after;
        bool inPlace;
    };
    // 30 characters have a room of 32, of which text and terminator may use 31.
    const Case cases[] = {{30, 30, true},  {30, 31, false}, {30, 1, true},    {31, 62, true},
                          {31, 63, false}, {1, 30, true},   {100, 126, true}, {100, 127, false}};
    SRStringPool pool(0);
    for (const Case& c : cases) {
        const auto text = textOf<TypeParam>(c.after);
        TypeParam* block = pool.get(textOf<TypeParam>(c.before).c_str());
        const auto address = reinterpret_cast<std::uintptr_t>(block);
        TypeParam* copied = pool.copy(block, text.c_str());
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(copied) == address, c.inPlace)
            << c.before << " " << c.after;
        EXPECT_EQ(view(copied), text);
        EXPECT_EQ(copied[c.after], TypeParam());
        pool.release(copied);
    }
}

TYPED_TEST(StringPoolWidths, CopyAndAppendTakeTextOfTheBlockItself)
{
    SRStringPool pool(8);
    for (const std::size_t length : {5U, 20U, 29U, 200U}) {
        const auto text = textOf<TypeParam>(length);
        TypeParam* block = pool.get(text.c_str());
        block = pool.append(block, block);
        EXPECT_EQ(view(block), text + text);
        block = pool.append(block, block + 2, 3);
        EXPECT_EQ(view(block), text + text + text.substr(2, 3));
        block = pool.copy(block, block + 1, static_cast<int>(length));
        EXPECT_EQ(view(block), (text + text).substr(1, length));
        pool.release(block);
    }
}

TYPED_TEST(StringPoolWidths, AppendAtEveryLengthKeepsTheText)
{
    SRStringPool pool(4);
    const auto letters = textOf<TypeParam>(200);
    TypeParam* block = pool.get(letters.c_str(), 1);
    for (std::size_t n = 1; n < letters.size(); ++n) {
        block = pool.append(block, &letters[n], 1);
        ASSERT_EQ(view(block), letters.substr(0, n + 1));
        ASSERT_EQ(block[n + 1], TypeParam());
    }
    pool.release(block);
    EXPECT_EQ(pool.useCount(letters.substr(0, 1).c_str()), 0) << "the interned start was given back";
    EXPECT_EQ(pool.collectGarbage(), 1);
}

TYPED_TEST(StringPoolWidths, PrivateCopiesLeaveTheInternedTextAlone)
{
    SRStringPool pool(16);
    const auto five = textOf<TypeParam>(5);
    TypeParam* kept = pool.get(five.c_str());
    TypeParam* changed = pool.toMutable(pool.get(five.c_str()));
    EXPECT_EQ(pool.useCount(five.c_str()), 1);
    EXPECT_EQ(pool.toMutable(changed), changed);
    changed[2] = TypeParam();
    SRStringPool::updateLength(changed);
    EXPECT_EQ(SRStringPool::length(changed), 2);
    EXPECT_EQ(view(kept), five);
    SRStringPool::updateLength(kept);
    EXPECT_EQ(SRStringPool::length(kept), 5);

    // A text written over the whole room is cut before it can promise room that is not there.
    std::fill_n(changed, SRStringPool::room(2), TypeParam('x'));
    SRStringPool::updateLength(changed);
    EXPECT_EQ(SRStringPool::length(changed), 30);
    pool.release(changed);
    pool.release(kept);
}

TEST(StringPool, CollectionCountsBothWidths)
{
    SRStringPool pool(16);
    pool.release(pool.get("a"));
    pool.release(pool.get("b"));
    pool.release(pool.get(L"a"));
    std::ostringstream stats;
    pool.dumpStats(stats);
    EXPECT_EQ(stats.str(), "narrow length 1: 2 texts, 2 requests\nwide length 1: 1 texts, 1 requests\n");

    char* unused = pool.get("a");
    pool.release(unused);
    int reports = 0;
    auto before = krx::util::setAssertSink([&](const SRString&) { ++reports; });
    pool.release(unused);
    krx::util::setAssertSink(before);
    EXPECT_EQ(reports, 1) << "released more often than used";
    EXPECT_EQ(pool.collectGarbage(), 3);
    pool.get("left over");
    pool.term();
    EXPECT_EQ(pool.useCount("left over"), 0);
}

TEST(StringPool, AHugeLimitCostsNothingUntilUsed)
{
    SRStringPool pool(static_cast<int>(SRStringPool::kMaxLength));
    const std::string longest(SRStringPool::kMaxLength, 'x');
    char* a = pool.get(longest.c_str());
    EXPECT_EQ(pool.get(longest.c_str()), a);
    EXPECT_EQ(SRStringPool::length(a), static_cast<int>(SRStringPool::kMaxLength));
    EXPECT_EQ(pool.useCount("never seen"), 0);
    EXPECT_EQ(pool.collectGarbage(), 0);
    EXPECT_THROW(pool.get((longest + "x").c_str()), SROutOfMemory);
    EXPECT_THROW(pool.append(a, "x"), SROutOfMemory);
    pool.release(a);
    pool.release(a);
}

TEST(StringPool, LimitComesFromADecimalNumber)
{
    for (const char* text : {"", "0", "-1", "+5", " 5", "5x", "0x10", "1e3", "99999999999999999999999999x"})
        EXPECT_EQ(SRStringPool::parseLimit(text), 0) << text;
    EXPECT_EQ(SRStringPool::parseLimit(nullptr), 0);
    EXPECT_EQ(SRStringPool::parseLimit("016"), 16);
    for (const char* text : {"16777215", "16777216", "99999999999999999999999999"})
        EXPECT_EQ(SRStringPool::parseLimit(text), 16777215) << text;
}

TEST(StringPoolDeathTest, TheProcessPoolReadsTheEnvironmentOnce)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto check = [] {
        setenv("KRX_STRING_POOL", "16", 1);
        const SRMBString a("abcde");
        setenv("KRX_STRING_POOL", "0", 1);
        const SRMBString b("abcde");
        const bool shared = a.c_str() == b.c_str() && SRStringPool::s_maxPoolStringSize == 16 &&
                            SRStrUtil::poolInstance().useCount("abcde") == 2;
        std::exit(shared ? 0 : 1);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST(StringPool, ThreadsInternTheSameTexts)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 3000;
    constexpr int kTexts = 40;
    SRStringPool pool(5000);
    std::vector<std::string> texts;
    texts.reserve(kTexts);
    for (int i = 0; i < kTexts; ++i)
        texts.push_back(std::to_string(i) + std::string(static_cast<std::size_t>(i % 5) * 1000, 'x'));

    std::atomic<int> wrong{0};
    std::atomic<int> collected{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                const std::string& text = texts[static_cast<std::size_t>(i * (t + 1)) % kTexts];
                char* a = pool.get(text.c_str());
                char* b = pool.get(text.c_str());
                if (a != b || view(a) != text)
                    ++wrong;
                pool.release(a);
                pool.release(b);
                if (i % 100 == 0)
                    collected += pool.collectGarbage();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    collected += pool.collectGarbage();
    EXPECT_GE(collected, kTexts);
    for (const std::string& text : texts)
        EXPECT_EQ(pool.useCount(text.c_str()), 0);
    EXPECT_EQ(pool.collectGarbage(), 0);
}

TEST(StringPool, OneCollectorIsAdmittedAtATime)
{
    SRStringPool pool(300);
    const std::string text(300, 'x');
    for (int round = 0; round < 20; ++round) {
        for (int n = 1; n <= 300; ++n)
            pool.release(pool.get(text.c_str(), n));
        std::atomic<int> waiting{2};
        const auto collect = [&] {
            for (--waiting; waiting > 0;)
                std::this_thread::yield();
            return pool.collectGarbage();
        };
        auto other = std::async(std::launch::async, collect);
        const int own = collect();
        const int theirs = other.get();
        ASSERT_EQ(std::max(own, theirs), 300) << "the texts were shared among two collectors";
        ASSERT_EQ(std::min(own, theirs), 0);
    }
}
