#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "aklac.h"
#include "mp3/imdct.hpp"
#include "signal_reference.hpp"
#include "../support/test_util.hpp"

namespace {

constexpr double kQ26 = 67108864.0;

TEST(MdctInv, SubbandCount) {
  struct Row {
    int bound, bt, mixed, n;
  } rows[] = {
      {0, 0, 0, 1},   {0, 2, 0, 0},   {0, 2, 1, 2},  {9, 0, 0, 1}, {10, 0, 0, 2},  {18, 2, 0, 1},
      {19, 2, 0, 2},  {36, 3, 0, 3},  {576, 0, 0, 32}, {576, 2, 0, 32}, {560, 1, 0, 32}, {100, 2, 1, 6},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.bound << " " << r.bt << " " << r.mixed);
    EXPECT_EQ(akl::mp3::ImdctSubbandCount(r.bound, r.bt, r.mixed), r.n);
  }
}

// Granule sequences through every window kind, against the double model.
// Tolerance: each output is one rounding of an exact 64-bit sum of products
// with Q28 coefficients (error <= 18 * |x| * 2^-29 + 2^-27), plus the Q31
// alias butterflies (2^-26 per step); for |x| < 2 that is below 2e-7 in the
// standard's units, about 1/150 of a 16-bit step.  The bound is 1e-6.
TEST(MdctInv, MatchesDoubleModelOverBlockSequences) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  struct Step {
    int bt, mixed, bound;
  } steps[] = {{0, 0, 576}, {1, 0, 576}, {2, 0, 576}, {2, 0, 300}, {3, 0, 576}, {0, 0, 100},
               {0, 0, 576}, {2, 1, 576}, {2, 1, 40}, {0, 0, 18}, {0, 0, 0},   {3, 0, 200}};
  std::vector<Akl32s> ov(576, 0), out(576);
  int prev = 0;
  akl::test::ImdctRef ref;
  for (const Step& s : steps) {
    SCOPED_TRACE(testing::Message() << s.bt << " " << s.mixed << " " << s.bound);
    std::vector<double> x(576, 0.0);
    std::vector<Akl32s> q(576, 0);
    for (int i = 0; i < s.bound; ++i) {
      q[i] = static_cast<Akl32s>(std::lround(dist(rng) * kQ26));
      x[i] = q[i] / kQ26;
    }
    ASSERT_EQ(aklsMDCTInv_MP3_32s(q.data(), out.data(), ov.data(), s.bound, &prev, s.bt, s.mixed), kStsOk);
    const std::vector<double> expect = ref.Run(x, s.bt, s.mixed);
    double worst = 0;
    for (int i = 0; i < 576; ++i) worst = std::max(worst, std::fabs(out[i] / kQ26 - expect[i]));
    EXPECT_LT(worst, 1e-6);
  }
}

// After a wide granule, a narrow one still flushes every tail.
TEST(MdctInv, NarrowGranuleFlushesWideTails) {
  std::vector<Akl32s> spec(576, 1 << 24), ov(576, 0), out(576);
  int prev = 0;
  ASSERT_EQ(aklsMDCTInv_MP3_32s(spec.data(), out.data(), ov.data(), 576, &prev, 0, 0), kStsOk);
  EXPECT_EQ(prev, 32);
  std::vector<Akl32s> tails = ov;
  std::vector<Akl32s> zero(576, 0);
  ASSERT_EQ(aklsMDCTInv_MP3_32s(zero.data(), out.data(), ov.data(), 40, &prev, 0, 0), kStsOk);
  EXPECT_EQ(prev, 3);
  for (int sb = 3; sb < 32; ++sb)
    for (int t = 0; t < 18; ++t) {
      const Akl32s expect = ((sb & 1) && (t & 1)) ? -tails[18 * sb + t] : tails[18 * sb + t];
      ASSERT_EQ(out[32 * t + sb], expect) << sb << " " << t;
      ASSERT_EQ(ov[18 * sb + t], 0);
    }
}

TEST(MdctInv, SaturatedInputDoesNotWrap) {
  // Lines signed to add up coherently in time sample 20 of every subband.
  std::vector<Akl32s> spec(576), ov(576, 0), out(576);
  std::vector<double> spec_d(576);
  for (int i = 0; i < 576; ++i) {
    const bool neg = std::cos(akl::test::kPiD / 72 * (2 * 20 + 1 + 18) * (2 * (i % 18) + 1)) < 0;
    spec[i] = neg ? -INT32_MAX : INT32_MAX;
    spec_d[i] = spec[i] / kQ26;
  }
  int prev = 32;
  ASSERT_EQ(aklsMDCTInv_MP3_32s(spec.data(), out.data(), ov.data(), 576, &prev, 0, 0), kStsOk);
  akl::test::ImdctRef ref;
  const std::vector<double> expect = ref.Run(spec_d, 0, 0);
  int checked = 0;
  for (int i = 0; i < 576; ++i) {
    // Saturation inside alias reduction changes the exact values, but a sum
    // far beyond the range must stay far out on the same side.
    if (expect[i] > 40) {
      EXPECT_GT(out[i], 1 << 30) << i;
    }
    if (expect[i] < -40) {
      EXPECT_LT(out[i], -(1 << 30)) << i;
    }
    checked += std::fabs(expect[i]) > 40;
  }
  EXPECT_GE(checked, 32);
}

TEST(MdctInv, AliasCoefficients) {
  // Two values every implementation must agree on: cs[0] and ca[0] in Q31.
  std::vector<Akl32s> spec(576, 0);
  spec[17] = 1 << 30;  // x = 0.5 in Q31 terms of the butterfly
  akl::mp3::AliasReduce(spec.data(), 2, 0, 0);
  EXPECT_NEAR(spec[17], (static_cast<std::int64_t>(1841452036) << 30) >> 31, 1);
  EXPECT_NEAR(spec[18], (static_cast<std::int64_t>(-1104871222) << 30) >> 31, 1);
}



TEST(MdctInvWindow, ArgumentChecksWriteNothing) {
  std::vector<Akl32s> src(36, 9), dst(36, -4);
  struct Row {
    bool null_src, null_dst;
    int bt;
    Status expected;
  } rows[] = {{true, false, 7, kStsNullPtr}, {false, true, 0, kStsNullPtr},   {false, false, -1, kStsBadArgErr},
              {false, false, 4, kStsBadArgErr}, {false, false, INT32_MIN, kStsBadArgErr}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.bt);
    EXPECT_EQ(aklsMDCTInvWindow_MP3_32s(r.null_src ? nullptr : src.data(), r.null_dst ? nullptr : dst.data(), r.bt),
              r.expected);
    for (int i = 0; i < 36; ++i) ASSERT_TRUE(src[i] == 9 && dst[i] == -4);
  }
}

// The windowing stage against the combined operation.  One granule with zero
// overlap: aklsMDCTInv_MP3_32s leaves the alias-reduced lines in place, so the
// unwindowed transforms of those lines, windowed here, must be its time
// samples (first half, odd samples of odd subbands negated) and its new tails
// (second half).  Long block types match the plain integer path bit for bit;
// against the exported (tuned) operation the bound is that of its float
// lanes, 2^-17 of the input peak (here 2^25, so 2^8 Q26 steps, 1/8 of a
// 16-bit step), plus the short path's extra rounding of the unwindowed
// samples (2 steps).
TEST(MdctInvWindow, MatchesCombinedOperation) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_int_distribution<Akl32s> line(-(1 << 25), 1 << 25);
  for (int bt = 0; bt < 4; ++bt) {
    SCOPED_TRACE(bt);
    std::vector<Akl32s> spec(576), out(576), ov(576, 0), out_ref(576), ov_ref(576, 0);
    for (Akl32s& v : spec) v = line(rng);
    std::vector<Akl32s> spec_ref = spec;
    int prev = 0, prev_ref = 0;
    ASSERT_EQ(aklsMDCTInv_MP3_32s(spec.data(), out.data(), ov.data(), 576, &prev, bt, 0), kStsOk);
    akl::mp3::MdctInvKernelRef(spec_ref.data(), out_ref.data(), ov_ref.data(), 576, &prev_ref, bt, 0);
    int worst = 0;
    for (int sb = 0; sb < 32; ++sb) {
      Akl32s raw[36], win[36], in_place[36];
      if (bt == 2)
        akl::mp3::ImdctShortRaw(spec.data() + 18 * sb, raw);
      else
        akl::mp3::ImdctLongRaw(spec.data() + 18 * sb, raw);
      ASSERT_EQ(aklsMDCTInvWindow_MP3_32s(raw, win, bt), kStsOk);
      std::copy(raw, raw + 36, in_place);
      ASSERT_EQ(aklsMDCTInvWindow_MP3_32s(in_place, in_place, bt), kStsOk);
      for (int i = 0; i < 36; ++i) {
        const bool flip = (sb & 1) && i < 18 && (i & 1);
        const Akl32s expect = flip ? -win[i] : win[i];
        const Akl32s got = i < 18 ? out[32 * i + sb] : ov[18 * sb + i - 18];
        const Akl32s got_ref = i < 18 ? out_ref[32 * i + sb] : ov_ref[18 * sb + i - 18];
        ASSERT_EQ(in_place[i], win[i]);
        if (bt != 2) {
          ASSERT_EQ(got_ref, expect) << sb << " " << i;
        }
        worst = std::max(worst, std::abs(got - expect));
        if (bt == 2) worst = std::max(worst, std::abs(got_ref - expect));
      }
      if (bt == 2) {
        for (int i : {0, 5, 30, 35}) EXPECT_EQ(win[i], 0);
      }
    }
    EXPECT_LE(worst, (1 << 8) + 2);
  }
}

}  // namespace
