#include "alloc_hook.hpp"

#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include "aklcore.h"

namespace {
std::atomic<int> g_fail_after{-1};
std::atomic<int> g_successes{0};
std::atomic<int> g_live{0};
std::atomic<int> g_calls{0};
}  // namespace

extern "C" void* aklMalloc(int len) {
  g_calls++;
  if (len < 1) return nullptr;
  const int limit = g_fail_after.load();
  if (limit >= 0 && g_successes.load() >= limit) return nullptr;
  const size_t size = (static_cast<size_t>(len) + 63) & ~static_cast<size_t>(63);
  void* p = std::aligned_alloc(64, size);
  if (p) {
    g_successes++;
    g_live++;
  }
  return p;
}

extern "C" void aklFree(void* ptr) {
  if (!ptr) return;
  g_live--;
  std::free(ptr);
}

namespace akl::test {

void FailAllocationsAfter(int n) {
  g_successes = 0;
  g_fail_after = n;
}

int LiveAllocations() { return g_live.load(); }
int AllocationCalls() { return g_calls.load(); }

Status SweepAllocationFailures(const std::function<Status()>& op, const std::function<void()>& cleanup) {
  for (int n = 0; n < 10000; ++n) {
    const int live_before = LiveAllocations();
    FailAllocationsAfter(n);
    const Status st = op();
    FailAllocationsAfter(-1);
    if (st != kStsMemAllocErr) return st;
    cleanup();
    EXPECT_EQ(LiveAllocations(), live_before) << "leak after failing allocation " << n;
  }
  ADD_FAILURE() << "operation never succeeded";
  return kStsErr;
}

}  // namespace akl::test
