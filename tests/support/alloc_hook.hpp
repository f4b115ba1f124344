// Test control over the library's allocator.  The test binaries define
// aklMalloc/aklFree themselves (support/alloc_hook.cpp), ahead of the core
// library's, so a test can make allocations fail and count live blocks.
#pragma once

#include <functional>

#include "aklac.h"

namespace akl::test {

// The next `n` allocations succeed, every later one fails; -1 never fails.
void FailAllocationsAfter(int n);
// Blocks allocated and not yet freed since the process started.
int LiveAllocations();
// Calls of aklMalloc since the process started (successful or not).
int AllocationCalls();

// Runs `op` with the n-th allocation failing, for n = 0, 1, ... until `op`
// returns something other than kStsMemAllocErr.  Each failing run must
// return exactly kStsMemAllocErr and leave no block live (after `cleanup`,
// which releases whatever op may have built); the last run's status is
// returned, with its cleanup still to be done by the caller.
Status SweepAllocationFailures(const std::function<Status()>& op, const std::function<void()>& cleanup);

}  // namespace akl::test
