// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRException.h"
#include "util/SRStrUtil.h"
#include "util/SRString.h"
#include "util/SRStringPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <future>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace krx::test {
namespace {

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

/// Any order of operations leaves each block with its text, and each interned text with its number of
/// holders.
TYPED_TEST(StringPoolWidths, BlocksAgreeWithPlainStrings)
{
    using Text = std::basic_string<TypeParam>;
    struct Held
    {
        TypeParam* block;
        Text text;
    };
    constexpr int kLimit = 16;
    SRStringPool pool(kLimit);
    std::mt19937 random(1);
    std::vector<Held> held;
    std::set<Text> interned;  // since the last collection
    // Only two letters, so that short texts repeat; a zero is a character like others.
    const auto randomText = [&](unsigned most) {
        Text text(random() % most, TypeParam('a'));
        for (TypeParam& c : text)
            c = random() % 20 == 0 ? TypeParam() : static_cast<TypeParam>('a' + random() % 2);
        return text;
    };
    for (int step = 0; step < 20000; ++step) {
        if (held.size() < 20) {
            const Text text = randomText(step % 3 == 0 ? 150 : 6);
            TypeParam* const block = pool.get(text.data(), static_cast<int>(text.size()));
            ASSERT_EQ(SRStringPool::type(block), text.empty()            ? SRStringPool::kEmpty
                                                 : text.size() <= kLimit ? SRStringPool::kInterned
                                                                         : SRStringPool::kPrivate);
            held.push_back({block, text});
            if (SRStringPool::type(block) == SRStringPool::kInterned)
                interned.insert(text);
        }
        std::swap(held[random() % held.size()], held.back());
        Held& h = held.back();
        // The source may lie in the block itself.
        const auto from = random() % (h.text.size() + 1);
        const bool own = random() % 2 == 0;
        const Text text = own ? h.text.substr(from, random() % 40) : randomText(random() % 2 == 0 ? 4 : 70);
        const TypeParam* const source = own ? h.block + from : text.data();
        switch (random() % 4) {
            case 0:
                h.block = pool.copy(h.block, source, static_cast<int>(text.size()));
                h.text = text;
                break;
            case 1:
                h.block = pool.append(h.block, source, static_cast<int>(text.size()));
                h.text += text;
                break;
            case 2:
                h.block = pool.toMutable(h.block);
                h.block[from] = TypeParam();
                SRStringPool::updateLength(h.block);
                h.text = h.text.substr(0, std::min(from, h.text.find(TypeParam())));
                break;
            default:
                pool.release(h.block);
                held.pop_back();
                break;
        }
        for (const Held& one : held) {
            ASSERT_EQ(view(one.block), one.text) << step;
            ASSERT_EQ(one.block[one.text.size()], TypeParam());
            if (SRStringPool::type(one.block) != SRStringPool::kInterned)
                continue;
            interned.insert(one.text);
            if (one.text.find(TypeParam()) == Text::npos) {
                ASSERT_EQ(pool.useCount(one.text.c_str()),
                          std::count_if(held.begin(), held.end(),
                                        [&](const Held& other) { return other.block == one.block; }));
            }
        }
    }
    for (const Held& one : held)
        pool.release(one.block);
    EXPECT_EQ(pool.collectGarbage(), static_cast<int>(interned.size()));
    EXPECT_EQ(pool.collectGarbage(), 0);

    // A text that fills the whole room is cut, so that it cannot claim more room than there is.
    TypeParam* const full = pool.toMutable(pool.get(Text(2, 'x').c_str()));
    std::fill_n(full, SRStringPool::room(2), TypeParam('x'));
    SRStringPool::updateLength(full);
    EXPECT_EQ(SRStringPool::length(full), 30);
    pool.release(full);
}

TEST(StringPool, LimitComesFromADecimalNumber)
{
    const std::pair<const char*, int> cases[] = {{nullptr, 0},
                                                 {"", 0},
                                                 {"0", 0},
                                                 {"-1", 0},
                                                 {"+5", 0},
                                                 {" 5", 0},
                                                 {"5x", 0},
                                                 {"016", 16},
                                                 {"5000", 5000},
                                                 {"16777215", 16777215},
                                                 {"99999999999999999999999999", 16777215}};
    for (const auto& [text, limit] : cases)
        EXPECT_EQ(SRStringPool::parseLimit(text), limit) << limit;
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

}  // namespace krx::test
