// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRObject.h"
#include "util/SRPool.h"

#include <atomic>
#include <cstddef>

/// A counted block of bytes: data pointer, capacity, used length and the function that frees the data.
class SRMemory : public SRObject
{
public:
    using FreeFunction = void (*)(unsigned char* data);

    /// Bytes that a pooled memory block counts besides its capacity.
    static constexpr unsigned kPoolOverhead = 40;

    /// Allocates capacity bytes (0: none); throws SROutOfMemory. pool owns the block or is null.
    explicit SRMemory(unsigned capacity, SRPool<SRMemory>* pool = nullptr);
    /// Takes over data and frees it with freeFunction (null: it stays the caller's).
    SRMemory(unsigned char* data, unsigned capacity, FreeFunction freeFunction);
    ~SRMemory() override;

    /// With an owning pool, a count of 1 is the pool's reference: the block goes back on its list.
    int _release() const override;

    unsigned char* data() { return m_data; }
    const unsigned char* data() const { return m_data; }
    unsigned capacity() const { return m_capacity; }
    unsigned getUsed() const { return m_used.load(std::memory_order_acquire); }
    void setUsed(unsigned used) { m_used.store(used, std::memory_order_release); }
    SRPool<SRMemory>* pool() const { return m_pool; }

    /// Changes the capacity and keeps what fits; false (and unchanged) when there is no memory. The bytes
    /// move: only a sole holder may resize.
    bool resize(unsigned capacity) noexcept;

    // Required by SRPool.
    static SRMemory* createForPool(unsigned size, SRPool<SRMemory>* pool);
    bool prepareForReuse(unsigned size) noexcept;
    void onPooled() noexcept {}
    std::size_t pooledBytes() const { return std::size_t{m_capacity} + kPoolOverhead; }

protected:
    /// Frees data with the free function; for views that set their own.
    void releaseData() noexcept;

    unsigned char* m_data = nullptr;
    unsigned m_capacity = 0;
    std::atomic<unsigned> m_used{0};
    SRPool<SRMemory>* m_pool = nullptr;
    unsigned m_reuseCount = 0;
    FreeFunction m_free = nullptr;
};

using SRMemoryPtr = SRPtr<SRMemory>;

/// A span [start, end) of a counted memory. Copies share the memory. While buffers span a memory, only
/// reserve() may resize it.
class SRBuffer
{
public:
    SRBuffer() = default;
    /// A memory of size bytes from the pool (null: allocated); both offsets 0. Throws SROutOfMemory.
    explicit SRBuffer(unsigned size, SRPool<SRMemory>* pool = nullptr);
    /// A span of the given memory; offsets are cut to its capacity.
    SRBuffer(const SRMemoryPtr& memory, unsigned start, unsigned end);

    const SRMemoryPtr& memory() const { return m_memory; }
    /// First byte of the memory (not of the span); null without memory.
    unsigned char* base() const { return m_data; }
    /// First byte of the span; null without memory.
    unsigned char* data() const { return m_data ? m_data + m_start : nullptr; }
    unsigned capacity() const { return m_capacity; }
    unsigned getStart() const { return m_start; }
    unsigned getEnd() const { return m_end; }
    /// Offsets are cut to the capacity, and end to no less than start.
    void setStart(unsigned start);
    void setEnd(unsigned end);
    unsigned length() const { return m_end - m_start; }

    /// Makes the capacity at least capacity bytes and keeps the bytes; false when there is no memory. Memory
    /// that others hold too is copied.
    bool reserve(unsigned capacity);

private:
    SRMemoryPtr m_memory;
    unsigned char* m_data = nullptr;
    unsigned m_capacity = 0;
    unsigned m_start = 0;
    unsigned m_end = 0;
};
