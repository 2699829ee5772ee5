// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <atomic>
#include <cstddef>
#include <iosfwd>
#include <utility>

/// Base of every shared object: an intrusive, atomic reference count that starts at 0. The object deletes
/// itself when its count falls back to 0.
class SRObject
{
public:
    SRObject() = default;
    virtual ~SRObject() = default;

    /// Adds one reference and returns the new count.
    virtual int _use() const;
    /// Drops one reference and returns the new count; the object is gone when that is 0.
    virtual int _release() const;
    /// The present count.
    int _get() const { return m_count.load(std::memory_order_acquire); }
    virtual std::size_t hashCode() const;
    /// Writes a one-line description for diagnostics.
    virtual void print(std::ostream& out) const;

protected:
    /// A copy is a new object: nobody holds it yet.
    SRObject(const SRObject&) : m_count(0) {}
    SRObject& operator=(const SRObject&) { return *this; }

    mutable std::atomic<int> m_count{0};
};

/// Holds one reference on a T that derives from SRObject.
template <typename T>
class SRPtr
{
public:
    SRPtr() = default;
    SRPtr(std::nullptr_t) {}
    SRPtr(T* object) : m_object(object)
    {
        if (m_object)
            m_object->_use();
    }
    SRPtr(const SRPtr& other) : SRPtr(other.m_object) {}
    SRPtr(SRPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    template <typename U>
    SRPtr(const SRPtr<U>& other) : SRPtr(other.get())
    {
    }
    ~SRPtr() { reset(); }

    SRPtr& operator=(SRPtr other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }

    void reset()
    {
        if (T* object = std::exchange(m_object, nullptr))
            object->_release();
    }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

    friend bool operator==(const SRPtr& a, const SRPtr& b) { return a.m_object == b.m_object; }
    friend bool operator==(const SRPtr& a, std::nullptr_t) { return a.m_object == nullptr; }

private:
    T* m_object = nullptr;
};
