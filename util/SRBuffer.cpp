// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRBuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

void deleteArray(unsigned char* data)
{
    delete[] data;
}

}  // namespace

SRMemory::SRMemory(unsigned capacity, SRPool<SRMemory>* pool) : m_pool(pool)
{
    if (!resize(capacity))
        throw SROutOfMemory();
}

SRMemory::SRMemory(unsigned char* data, unsigned capacity, FreeFunction freeFunction)
    : m_data(data), m_capacity(data ? capacity : 0), m_free(freeFunction)
{
}

SRMemory::~SRMemory()
{
    releaseData();
}

int SRMemory::_release() const
{
    // Read first: at a count of 1 that is not the pool's, the other holder may delete the object at any time.
    SRPool<SRMemory>* const pool = m_pool;
    const int count = SRObject::_release();
    if (count == 1 && pool)
        pool->giveBack(const_cast<SRMemory*>(this));
    return count;
}

bool SRMemory::resize(unsigned capacity) noexcept
{
    if (capacity == m_capacity)
        return true;
    unsigned char* data = nullptr;
    if (capacity > 0) {
        data = new (std::nothrow) unsigned char[capacity];
        if (data == nullptr)
            return false;
        if (m_data)
            std::memcpy(data, m_data, std::min(capacity, m_capacity));
    }
    releaseData();
    m_data = data;
    m_capacity = capacity;
    m_free = deleteArray;
    setUsed(std::min(getUsed(), capacity));
    return true;
}

SRMemory* SRMemory::createForPool(unsigned size, SRPool<SRMemory>* pool)
{
    auto* memory = new (std::nothrow) SRMemory(size, pool);
    if (memory == nullptr)
        throw SROutOfMemory();
    return memory;
}

bool SRMemory::prepareForReuse(unsigned size) noexcept
{
    ++m_reuseCount;
    setUsed(0);
    if (size <= m_capacity)
        return true;
    // Nobody needs the old bytes, so they make room for the new ones.
    releaseData();
    return resize(size);
}

void SRMemory::releaseData() noexcept
{
    if (m_data && m_free)
        m_free(m_data);
    m_data = nullptr;
    m_capacity = 0;
}

SRBuffer::SRBuffer(unsigned size, SRPool<SRMemory>* pool)
{
    if (pool)
        m_memory = pool->acquire(size);
    else
        m_memory = SRMemory::createForPool(size, nullptr);
    m_data = m_memory->data();
    m_capacity = m_memory->capacity();
}

SRBuffer::SRBuffer(const SRMemoryPtr& memory, unsigned start, unsigned end) : m_memory(memory)
{
    if (m_memory) {
        m_data = m_memory->data();
        m_capacity = m_memory->capacity();
    }
    setStart(start);
    setEnd(end);
}

void SRBuffer::setStart(unsigned start)
{
    m_start = std::min(start, m_capacity);
    m_end = std::max(m_end, m_start);
}

void SRBuffer::setEnd(unsigned end)
{
    m_end = std::max(std::min(end, m_capacity), m_start);
}

bool SRBuffer::reserve(unsigned capacity)
{
    if (capacity <= m_capacity)
        return true;
    // Other buffers keep the address of the bytes, so memory that they share must stay where it is.
    SRPool<SRMemory>* const pool = m_memory ? m_memory->pool() : nullptr;
    const bool sole = m_memory && m_memory->_get() == (pool ? 2 : 1);
    if (sole) {
        if (!m_memory->resize(capacity))
            return false;
    } else {
        try {
            const SRBuffer larger(capacity, pool);
            if (m_capacity > 0)
                std::memcpy(larger.base(), m_data, m_capacity);
            if (m_memory)
                larger.m_memory->setUsed(m_memory->getUsed());
            m_memory = larger.m_memory;
        } catch (const SROutOfMemory&) {
            return false;
        }
    }
    m_data = m_memory->data();
    m_capacity = m_memory->capacity();
    return true;
}
