// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace krx::test {
namespace {

// A pooled class with only what a pool requires. Living objects are counted.
class Item : public SRObject
{
public:
    explicit Item(unsigned size, SRPool<Item>* pool) : m_size(size), m_pool(pool) { ++s_alive; }
    ~Item() override { --s_alive; }

    int _release() const override
    {
        SRPool<Item>* const pool = m_pool;
        const int count = SRObject::_release();
        if (count == 1 && pool)
            pool->giveBack(const_cast<Item*>(this));
        return count;
    }

    static Item* createForPool(unsigned size, SRPool<Item>* pool) { return new Item(size, pool); }
    bool prepareForReuse(unsigned size) { return size <= m_size; }
    void onPooled() { m_next.reset(); }
    unsigned pooledBytes() const { return m_size; }

    SRPtr<Item> m_next;  // released when the item comes back
    SRPtr<Item> m_own;   // kept as long as the item lives
    unsigned m_touched = 0;

    static std::atomic<int> s_alive;

private:
    unsigned m_size;
    SRPool<Item>* m_pool;
};

std::atomic<int> Item::s_alive{0};

std::vector<SRPtr<Item>> acquireMany(SRPool<Item>& pool, std::size_t n, unsigned size)
{
    std::vector<SRPtr<Item>> items;
    for (std::size_t i = 0; i < n; ++i)
        items.push_back(pool.acquire(size));
    return items;
}

}  // namespace

TEST(Pool, HandsOutWhatCameBack)
{
    SRPool<Item> pool;
    SRPtr<Item> item = pool.acquire(100);
    EXPECT_EQ(item->_get(), 2) << "one count is the pool's";
    Item* const address = item.get();
    item->m_next = pool.acquire(10);
    item.reset();
    EXPECT_EQ(pool.stats().threadObjects, 2U) << "an idle object holds nothing";
    EXPECT_EQ(pool.stats().threadBytes, 110U);
    EXPECT_EQ(address->_get(), 1);

    item = pool.acquire(100);
    EXPECT_EQ(item.get(), address);
    EXPECT_EQ(pool.acquire(50)->_get(), 2) << "what cannot serve makes way for a new object";
    EXPECT_EQ(Item::s_alive, 2);
    item.reset();
    pool.clear();
    EXPECT_EQ(Item::s_alive, 0);
    EXPECT_EQ(pool.stats().threadBytes, 0U);
}

TEST(Pool, KeepsNoMoreThanItsAllowances)
{
    {
        SRPool<Item> pool(3, 1 << 20);
        acquireMany(pool, 10, 1);
        EXPECT_EQ(pool.stats().threadObjects, 3U);
    }
    {
        SRPool<Item> pool(100, 4 << 10);
        acquireMany(pool, 10, 1 << 10);
        EXPECT_EQ(pool.stats().threadObjects, 4U);
        acquireMany(pool, 1, 1 << 20);
        EXPECT_LE(pool.stats().threadBytes, 4U << 10);
    }
    {
        SRPool<Item> pool(0, 0);
        acquireMany(pool, 2, 1);
        EXPECT_EQ(Item::s_alive, 0);
    }
    EXPECT_EQ(Item::s_alive, 0) << "the end of a pool destroys what lies idle";
}

TEST(Pool, AThreadMayOutliveThePool)
{
    auto pool = std::make_unique<SRPool<Item>>();
    std::promise<void> filled;
    std::promise<void> gone;
    acquireMany(*pool, 1, 1);
    std::thread other([&] {
        acquireMany(*pool, 5, 1).front()->m_own = pool->acquire(1);
        filled.set_value();
        gone.get_future().wait();
        // Another pool of the class meets the list that the first pool left.
        SRPool<Item> second;
        acquireMany(second, 2, 1);
        EXPECT_EQ(second.stats().threadObjects, 2U);
    });
    filled.get_future().wait();
    pool.reset();
    EXPECT_EQ(Item::s_alive, 0) << "what other threads keep goes with the pool";
    gone.set_value();
    other.join();
    EXPECT_EQ(Item::s_alive, 0);
}

TEST(Pool, ObjectsTravelBetweenThreads)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    {
        SRPool<Item> pool(64, 1 << 20);
        std::mutex mutex;
        std::vector<SRPtr<Item>> exchange;
        std::atomic<int> wrong{0};
        for (int generation = 0; generation < 2; ++generation) {
            std::vector<std::thread> threads;
            threads.reserve(kThreads);
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([&] {
                    for (int i = 0; i < kRounds; ++i) {
                        SRPtr<Item> item = pool.acquire(static_cast<unsigned>(i % 7));
                        item->m_touched = static_cast<unsigned>(i);
                        SRPtr<Item> taken;
                        {
                            const std::lock_guard lock(mutex);
                            exchange.push_back(item);
                            if (exchange.size() > 16)
                                taken = exchange[static_cast<std::size_t>(i) % 16];
                            if (exchange.size() > 32)
                                exchange.erase(exchange.begin(), exchange.begin() + 24);
                        }
                        if (taken && taken->_get() < 2)
                            ++wrong;
                        if (i % 500 == 0)
                            pool.clear();
                    }
                });
            }
            for (auto& thread : threads)
                thread.join();
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(pool.stats().threads, 0U);
        exchange.clear();
    }
    EXPECT_EQ(Item::s_alive, 0);
}

}  // namespace krx::test
