// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRException.h"
#include "util/SRObject.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <utility>
#include <vector>

/// Keeps objects of a class derived from SRObject for reuse: a free list per thread, used without a lock, and
/// a shared one that takes over what ending threads leave.
///
/// The pool holds one count on every object that it handed out or keeps. T::_release() calls giveBack() when
/// SRObject::_release() returns 1; it must read the object's pool before that, since another holder may have
/// deleted the object afterwards. Any thread may release what another one acquired.
///
/// T supplies
/// - `static T* createForPool(unsigned size, SRPool<T>*)`: a new object, count 0; throws SROutOfMemory
/// - `bool prepareForReuse(unsigned size)`: false when the idle object cannot serve the request
/// - `void onPooled()`: gives up what an idle object must not hold
/// - `std::size_t pooledBytes() const`: memory that it occupies while idle
///
/// The pool must outlive its objects, but need not outlive its threads: at its end it destroys what they
/// keep, and a thread that ends later does not touch it.
template <typename T>
class SRPool
{
public:
    static constexpr unsigned kDefaultObjects = 4096;
    static constexpr std::size_t kDefaultBytes = std::size_t{16} << 20;

    /// Limits of the idle objects in all threads' lists together; the shared list may hold as many again.
    explicit SRPool(unsigned maxObjects = kDefaultObjects, std::size_t maxBytes = kDefaultBytes);
    /// No other thread may use the pool any longer.
    ~SRPool();
    SRPool(const SRPool&) = delete;
    SRPool& operator=(const SRPool&) = delete;

    /// An idle object that can serve size, else a new one. Throws SROutOfMemory.
    SRPtr<T> acquire(unsigned size);

    /// Takes back an object of this pool whose last count is the pool's.
    void giveBack(T* object) noexcept;

    /// Destroys the idle objects of the shared list and this thread's. Other threads destroy theirs when they
    /// use the pool next.
    void clear();

    struct Stats
    {
        std::size_t threadObjects;  ///< idle in the calling thread's list
        std::size_t threadBytes;
        std::size_t sharedObjects;
        std::size_t sharedBytes;
        unsigned threads;  ///< threads that have a list
    };
    Stats stats() const;

private:
    struct IdleList
    {
        std::vector<T*> objects;
        std::size_t bytes = 0;

        // False when there is no memory for the entry.
        bool push(T* object) noexcept
        {
            try {
                objects.push_back(object);
            } catch (const std::bad_alloc&) {
                return false;
            }
            bytes += object->pooledBytes();
            return true;
        }
        T* pop()
        {
            T* object = objects.back();
            objects.pop_back();
            bytes -= object->pooledBytes();
            return object;
        }
        bool exceeds(std::size_t maxObjects, std::size_t maxKilobytes) const
        {
            return objects.size() > maxObjects || (bytes >> 10) > maxKilobytes;
        }
        bool exceedsWith(const T& object, std::size_t maxObjects, std::size_t maxKilobytes) const
        {
            return objects.size() >= maxObjects || ((bytes + object.pooledBytes()) >> 10) > maxKilobytes;
        }
    };

    struct Core;

    struct ThreadList : IdleList
    {
        explicit ThreadList(std::shared_ptr<Core> owner) : core(std::move(owner)) {}

        std::shared_ptr<Core> core;
        std::uint64_t clears = 0;
    };

    // What a pool and the lists of its threads share; it lives until the last of them is gone.
    struct Core
    {
        Core(std::size_t objects, std::size_t bytes) : maxObjects(objects), maxKilobytes(bytes >> 10) {}

        // Under the mutex.
        void divideAllowances()
        {
            const std::size_t parts = std::max<std::size_t>(threads.size(), 1);
            threadObjects.store(maxObjects / parts, std::memory_order_relaxed);
            threadKilobytes.store(maxKilobytes / parts, std::memory_order_relaxed);
        }
        // Under the mutex.
        void countShared() { sharedObjects.store(shared.objects.size(), std::memory_order_relaxed); }

        const std::size_t maxObjects;
        const std::size_t maxKilobytes;

        // What the lists ask without the mutex.
        std::atomic<std::size_t> threadObjects{0};
        std::atomic<std::size_t> threadKilobytes{0};
        std::atomic<std::size_t> sharedObjects{0};
        std::atomic<std::uint64_t> clears{0};
        std::atomic<bool> closed{false};

        mutable std::mutex mutex;
        IdleList shared;
        std::vector<ThreadList*> threads;
    };

    // All pools' lists of one thread: the value of the thread-specific key.
    using ThreadLists = std::vector<std::unique_ptr<ThreadList>>;

    // Objects moved at once from the shared list to a thread's.
    static constexpr std::size_t kRefill = 16;

    static pthread_key_t threadKey();
    static void onKillThread(void* lists);
    static void leave(ThreadList& list) noexcept;
    static void destroyAll(IdleList& list) noexcept;

    /// Null when this thread has no list yet.
    ThreadList* findThreadList() const;
    /// Null when there is no memory for one.
    ThreadList* threadList() noexcept;
    ThreadList* addThreadList();
    void refill(ThreadList& list) noexcept;
    void obeyClear(ThreadList& list) noexcept;

    const std::shared_ptr<Core> m_core;
};

template <typename T>
SRPool<T>::SRPool(unsigned maxObjects, std::size_t maxBytes)
    : m_core(std::make_shared<Core>(maxObjects, maxBytes))
{
    threadKey();
    m_core->divideAllowances();
}

template <typename T>
SRPool<T>::~SRPool()
{
    // All under the mutex: a thread that ends meanwhile waits, and then finds its list empty. Objects that
    // come back while the others go are destroyed at once, without the mutex.
    const std::lock_guard lock(m_core->mutex);
    m_core->closed.store(true, std::memory_order_relaxed);
    destroyAll(m_core->shared);
    for (ThreadList* list : m_core->threads)
        destroyAll(*list);
}

template <typename T>
SRPtr<T> SRPool<T>::acquire(unsigned size)
{
    if (ThreadList* list = threadList()) {
        if (list->objects.empty() && m_core->sharedObjects.load(std::memory_order_relaxed) > 0)
            refill(*list);
        while (!list->objects.empty()) {
            T* object = list->pop();
            if (object->prepareForReuse(size))
                return SRPtr<T>(object);
            object->_release();
        }
    }
    T* created = T::createForPool(size, this);
    created->_use();
    return SRPtr<T>(created);
}

template <typename T>
void SRPool<T>::giveBack(T* object) noexcept
{
    object->onPooled();
    ThreadList* list = m_core->closed.load(std::memory_order_relaxed) ? nullptr : threadList();
    if (list == nullptr || !list->push(object)) {
        object->_release();
        return;
    }
    while (!list->objects.empty() && list->exceeds(m_core->threadObjects.load(std::memory_order_relaxed),
                                                   m_core->threadKilobytes.load(std::memory_order_relaxed)))
        list->pop()->_release();
}

template <typename T>
void SRPool<T>::clear()
{
    IdleList idle;
    {
        const std::lock_guard lock(m_core->mutex);
        std::swap(idle, m_core->shared);
        m_core->countShared();
        m_core->clears.fetch_add(1, std::memory_order_relaxed);
    }
    destroyAll(idle);
    if (ThreadList* list = findThreadList())
        obeyClear(*list);
}

template <typename T>
typename SRPool<T>::Stats SRPool<T>::stats() const
{
    Stats stats{};
    if (const ThreadList* list = findThreadList()) {
        stats.threadObjects = list->objects.size();
        stats.threadBytes = list->bytes;
    }
    const std::lock_guard lock(m_core->mutex);
    stats.sharedObjects = m_core->shared.objects.size();
    stats.sharedBytes = m_core->shared.bytes;
    stats.threads = static_cast<unsigned>(m_core->threads.size());
    return stats;
}

// One key serves all pools of T and is never given back: keys are few, and the callback of a deleted key
// would not run for the threads that still have lists.
template <typename T>
pthread_key_t SRPool<T>::threadKey()
{
    static const pthread_key_t key = [] {
        pthread_key_t created{};
        if (pthread_key_create(&created, &SRPool::onKillThread) != 0)
            throw SROutOfMemory();
        return created;
    }();
    return key;
}

template <typename T>
void SRPool<T>::onKillThread(void* lists)
{
    const std::unique_ptr<ThreadLists> owned(static_cast<ThreadLists*>(lists));
    for (const auto& list : *owned)
        leave(*list);
}

// Takes the list out of its pool: objects move to the shared list while that has room.
template <typename T>
void SRPool<T>::leave(ThreadList& list) noexcept
{
    Core& core = *list.core;
    {
        const std::lock_guard lock(core.mutex);
        core.threads.erase(std::remove(core.threads.begin(), core.threads.end(), &list), core.threads.end());
        core.divideAllowances();
        while (!list.objects.empty() && list.clears == core.clears.load(std::memory_order_relaxed) &&
               !core.shared.exceedsWith(*list.objects.back(), core.maxObjects, core.maxKilobytes) &&
               core.shared.push(list.objects.back()))
            list.pop();
        core.countShared();
    }
    destroyAll(list);
}

template <typename T>
void SRPool<T>::destroyAll(IdleList& list) noexcept
{
    while (!list.objects.empty())
        list.pop()->_release();
}

template <typename T>
typename SRPool<T>::ThreadList* SRPool<T>::findThreadList() const
{
    if (const auto* lists = static_cast<const ThreadLists*>(pthread_getspecific(threadKey()))) {
        for (const auto& list : *lists) {
            if (list->core == m_core)
                return list.get();
        }
    }
    return nullptr;
}

template <typename T>
typename SRPool<T>::ThreadList* SRPool<T>::threadList() noexcept
{
    ThreadList* list = findThreadList();
    if (list == nullptr) {
        try {
            list = addThreadList();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }
    if (list != nullptr)
        obeyClear(*list);
    return list;
}

template <typename T>
typename SRPool<T>::ThreadList* SRPool<T>::addThreadList()
{
    auto* lists = static_cast<ThreadLists*>(pthread_getspecific(threadKey()));
    if (lists == nullptr) {
        auto created = std::make_unique<ThreadLists>();
        if (pthread_setspecific(threadKey(), created.get()) != 0)
            return nullptr;
        lists = created.release();
    }
    // The list of a destroyed pool is empty or still being emptied: leave() waits for that.
    lists->erase(std::remove_if(lists->begin(), lists->end(),
                                [](const auto& list) {
                                    const bool gone = list->core->closed.load(std::memory_order_relaxed);
                                    if (gone)
                                        leave(*list);
                                    return gone;
                                }),
                 lists->end());
    lists->reserve(lists->size() + 1);
    auto list = std::make_unique<ThreadList>(m_core);
    {
        const std::lock_guard lock(m_core->mutex);
        list->clears = m_core->clears.load(std::memory_order_relaxed);
        m_core->threads.push_back(list.get());
        m_core->divideAllowances();
    }
    lists->push_back(std::move(list));
    return lists->back().get();
}

template <typename T>
void SRPool<T>::refill(ThreadList& list) noexcept
{
    const std::lock_guard lock(m_core->mutex);
    IdleList& shared = m_core->shared;
    for (std::size_t i = 0; i < kRefill && !shared.objects.empty() && list.push(shared.objects.back()); ++i) {
        shared.pop();
        if (list.exceeds(m_core->threadObjects.load(std::memory_order_relaxed),
                         m_core->threadKilobytes.load(std::memory_order_relaxed)))
            break;
    }
    m_core->countShared();
}

template <typename T>
void SRPool<T>::obeyClear(ThreadList& list) noexcept
{
    const std::uint64_t clears = m_core->clears.load(std::memory_order_relaxed);
    if (list.clears != clears) {
        list.clears = clears;
        destroyAll(list);
    }
}
