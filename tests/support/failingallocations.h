// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace krx::test {

/// Makes one allocation of the calling thread fail while it lives: its n-th, counted from 1. Operators new
/// count, those of the standard library included, and what the project's own code asks of malloc and realloc.
/// One at a time; for programs that link krx_failing_allocations.
class FailingAllocation
{
public:
    explicit FailingAllocation(unsigned n);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    bool hasFailed() const;
};

/// Runs operation with its first allocation failing, then with its second, and so on to a run in which all
/// succeed. check looks at each outcome, with the number of the allocation that failed, 0 in the last run.
/// operation begins anew in each run and catches what it may throw.
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
