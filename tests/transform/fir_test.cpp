// Block FIR: results against the direct sum over several calls, the
// misalignment warning, statuses and allocation failures.
#include <gtest/gtest.h>

#include <climits>

#include <random>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"

namespace {

// 16-byte aligned float storage with room to misalign by one element.
struct Block {
  alignas(16) float v[64 + 4] = {};
  float* at(int offset) { return v + offset; }
};

TEST(FirBlock, MatchesDirectSumOverCalls) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  for (int order : {1, 2, 3, 7}) {
    for (int len : {1, 5, 8, 13}) {
      SCOPED_TRACE(testing::Message() << "order " << order << " len " << len);
      FIRBlockState_32f* st = nullptr;
      ASSERT_EQ(aklsFIRBlockInitAlloc_32f(&st, order, len), kStsOk);
      Block taps;
      for (int m = 0; m < order; ++m) taps.v[m] = d(rng);
      std::vector<std::vector<float>> past;  // past[c] = block of call c
      for (int call = 0; call < 2 * order + 3; ++call) {
        Block src, dst;
        for (int i = 0; i < len; ++i) src.v[i] = d(rng);
        past.emplace_back(src.v, src.v + len);
        ASSERT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, st, taps.v), kStsOk);
        for (int i = 0; i < len; ++i) {
          // Oldest first, newest last, in float, as the filter accumulates.
          float want = taps.v[0] * past[static_cast<std::size_t>(call)][static_cast<std::size_t>(i)];
          for (int m = order - 1; m >= 1; --m) {
            const float x = call - m >= 0 ? past[static_cast<std::size_t>(call - m)][static_cast<std::size_t>(i)] : 0.0f;
            want += taps.v[m] * x;
          }
          ASSERT_EQ(dst.v[i], want) << "call " << call << " i " << i;
        }
      }
      EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
    }
  }
}

TEST(FirBlock, MisalignedDataWarnsAfterFullWork) {
  FIRBlockState_32f* st = nullptr;
  ASSERT_EQ(aklsFIRBlockInitAlloc_32f(&st, 2, 5), kStsOk);
  Block src, dst, taps;
  taps.v[0] = 1.0f;
  taps.v[1] = 0.5f;
  taps.v[2] = 1.0f;
  taps.v[3] = 0.5f;
  for (int i = 0; i < 8; ++i) src.v[i] = static_cast<float>(i + 1);
  EXPECT_EQ(aklsFIRBlockOne_32f(src.at(1), dst.v, st, taps.v), kStsMisalignedWarn);
  EXPECT_EQ(dst.v[0], 2.0f);
  EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.at(1), st, taps.v), kStsMisalignedWarn);
  EXPECT_EQ(dst.v[1], 1.0f + 0.5f * 2.0f);
  EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, st, taps.at(2)), kStsMisalignedWarn);
  EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, st, taps.v), kStsOk);
  EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
}

TEST(FirBlock, Statuses) {
  FIRBlockState_32f* st = nullptr;
  EXPECT_EQ(aklsFIRBlockInitAlloc_32f(nullptr, 0, 0), kStsNullPtr);
  EXPECT_EQ(aklsFIRBlockInitAlloc_32f(&st, 0, 4), kStsFIRLenErr);
  EXPECT_EQ(aklsFIRBlockInitAlloc_32f(&st, 3, -1), kStsFIRLenErr);
  EXPECT_EQ(st, nullptr);
  // Only the low 16 bits are kept: 65536 + 2 taps is a 2-tap filter, and a
  // length that is negative as int16 leaves a state the filter refuses.
  ASSERT_EQ(aklsFIRBlockInitAlloc_32f(&st, 65538, 4), kStsOk);
  Block src, dst, taps;
  src.v[0] = 1.0f;
  taps.v[0] = 2.0f;
  taps.v[1] = 3.0f;
  EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, st, taps.v), kStsOk);
  EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, st, taps.v), kStsOk);
  EXPECT_EQ(dst.v[0], 5.0f);
  EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
  // Any positive int: INT_MAX keeps 0xFFFF (-1 as int16); the stride is
  // rounded from the kept value, so nothing overflows.
  for (int len : {40000, 32767, 65536, INT_MAX}) {
    SCOPED_TRACE(len);
    ASSERT_EQ(aklsFIRBlockInitAlloc_32f(&st, 1, len), kStsOk);
    dst.v[0] = 9.0f;
    EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, st, taps.v), kStsFIRLenErr);
    EXPECT_EQ(dst.v[0], 9.0f);
    EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
  }
  for (int order : {INT_MAX, 65540}) {  // kept as -1 and 4
    SCOPED_TRACE(order);
    ASSERT_EQ(aklsFIRBlockInitAlloc_32f(&st, order, 4), kStsOk);
    EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, st, taps.v), order == INT_MAX ? kStsFIRLenErr : kStsOk);
    EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
  }
  // The state passed on at +1..63 is refused and not released.
  ASSERT_EQ(aklsFIRBlockInitAlloc_32f(&st, 3, 4), kStsOk);
  for (int k = 1; k < 64; ++k) {
    auto* moved = reinterpret_cast<FIRBlockState_32f*>(reinterpret_cast<Akl8u*>(st) + k);
    EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, moved, taps.v), kStsContextMismatch) << k;
    EXPECT_EQ(aklsFIRBlockFree_32f(moved), kStsContextMismatch) << k;
  }
  EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
  EXPECT_EQ(aklsFIRBlockInitAlloc_32f(&st, 3, INT_MIN), kStsFIRLenErr);
  EXPECT_EQ(aklsFIRBlockFree_32f(nullptr), kStsNullPtr);
  Akl32s fake[8] = {};  // a state whose tag is not 58
  auto* bad = reinterpret_cast<FIRBlockState_32f*>(fake);
  EXPECT_EQ(aklsFIRBlockOne_32f(src.v, dst.v, bad, taps.v), kStsContextMismatch);
  EXPECT_EQ(aklsFIRBlockFree_32f(bad), kStsContextMismatch);
}

TEST(FirBlock, AllocationFailures) {
  FIRBlockState_32f* st = nullptr;
  ASSERT_EQ(akl::test::SweepAllocationFailures([&] { return aklsFIRBlockInitAlloc_32f(&st, 4, 10); }, [] {}), kStsOk);
  EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
}

}  // namespace
