// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace krx::test {

/// While it lives, the n-th allocation of the calling thread fails, counted from 1. Calls of operator new
/// count, also in the standard library, and the project's own calls of malloc and realloc. One at a time; for
/// programs that link krx_failing_allocations.
class FailingAllocation
{
public:
    explicit FailingAllocation(unsigned n);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    bool hasFailed() const;
};

/// Runs operation with its first allocation failing, then its second, and so on until all succeed. check
/// receives each outcome and the number of the allocation that failed, 0 in the last run. operation starts
/// anew in each run and catches what it may throw.
template <typename Operation, typename Check>
void withEachAllocationFailing(Operation operation, Check check)
{
    for (unsigned n = 1, failed = n; failed != 0; ++n) {
        {
            const FailingAllocation allocation(n);
            operation();
            failed = allocation.hasFailed() ? n : 0;
        }
        check(failed);
    }
}

}  // namespace krx::test
