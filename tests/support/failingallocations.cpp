// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/failingallocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

extern "C" void* __real_malloc(std::size_t bytes);

namespace {

thread_local unsigned t_untilFailure = 0;  ///< allocations up to the one that fails; 0: none does
thread_local bool t_failed = false;

bool isToFail()
{
    if (t_untilFailure == 0 || --t_untilFailure != 0)
        return false;
    t_failed = true;
    return true;
}

void* allocate(std::size_t bytes) noexcept
{
    return isToFail() ? nullptr : __real_malloc(bytes != 0 ? bytes : 1);
}

void* allocateOrThrow(std::size_t bytes)
{
    void* const memory = allocate(bytes);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

namespace krx::test {

FailingAllocation::FailingAllocation(unsigned n)
{
    t_failed = false;
    t_untilFailure = n;
}

FailingAllocation::~FailingAllocation()
{
    t_untilFailure = 0;
}

bool FailingAllocation::hasFailed() const
{
    return t_failed;
}

}  // namespace krx::test

// The linker sends the project's calls of malloc and realloc here (--wrap).
extern "C" void* __wrap_malloc(std::size_t bytes)
{
    return isToFail() ? nullptr : __real_malloc(bytes);
}

extern "C" void* __real_realloc(void* memory, std::size_t bytes);
extern "C" void* __wrap_realloc(void* memory, std::size_t bytes)
{
    return isToFail() ? nullptr : __real_realloc(memory, bytes);
}

void* operator new(std::size_t bytes)
{
    return allocateOrThrow(bytes);
}

void* operator new[](std::size_t bytes)
{
    return allocateOrThrow(bytes);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return allocate(bytes);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept
{
    return allocate(bytes);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
