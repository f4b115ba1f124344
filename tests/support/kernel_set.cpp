// AKLAC_TEST_KERNEL_SET=sse2 in the environment of a test binary rebinds the
// library's kernels to the SSE2 members before the first test, so the whole
// unit-test suite can run on the baseline members on a processor that has
// more (the dispatched library binds the best members at load time; the
// library itself reads no environment).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/dispatch.hpp"

namespace {

class KernelSetEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    const char* want = std::getenv("AKLAC_TEST_KERNEL_SET");
    if (!want || !*want) return;
    if (std::strcmp(want, "sse2") != 0 || !akl::BindKernelSet(akl::KernelSet::kSse2)) {
      std::fprintf(stderr, "AKLAC_TEST_KERNEL_SET=%s: only sse2 can be forced\n", want);
      std::abort();
    }
  }
};

[[maybe_unused]] ::testing::Environment* const g_kernel_set_env =
    ::testing::AddGlobalTestEnvironment(new KernelSetEnvironment);

}  // namespace
