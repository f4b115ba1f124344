// The tuned Layer III signal kernels against their plain reference forms on
// random inputs: integer kernels must agree bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include "mp3/imdct.hpp"
#include "mp3/requant.hpp"
#include "mp3/synthesis.hpp"
#include "support/test_util.hpp"

namespace {

// Random values with a spread of magnitudes, including the int32 extremes,
// so that saturation paths and the widest sums are exercised.
std::int32_t RandomValue(std::mt19937& rng) {
  const unsigned kind = rng() % 8;
  if (kind == 0) return (rng() & 1) ? std::numeric_limits<std::int32_t>::max() : std::numeric_limits<std::int32_t>::min();
  const int bits = static_cast<int>(rng() % 31) + 1;
  const std::int32_t mag = static_cast<std::int32_t>(rng() >> (32 - bits));
  return (rng() & 1) ? -mag : mag;
}

// Requantization runs: the inline table path against the plain loop, over
// attenuations of every sign and size (left shifts, saturation, shifts past
// 31) and magnitudes on both sides of 4, 16, 128 and 8206.
TEST(TunedRequant, RunMatchesReferenceBitExact) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int trial = 0; trial < 20000; ++trial) {
    const int a = static_cast<int>(rng() % 400) - 120;
    const int n = 1 + static_cast<int>(rng() % 24);
    std::vector<std::int32_t> x(static_cast<std::size_t>(n));
    for (auto& v : x) {
      const unsigned kind = rng() % 10;
      std::int32_t m = kind < 6 ? static_cast<std::int32_t>(rng() % 17)
                       : kind < 9 ? static_cast<std::int32_t>(rng() % 200)
                                  : static_cast<std::int32_t>(rng() % 8210);
      if (trial % 500 == 0 && kind == 0) m = 8207;  // past the limit: both stop there
      v = (rng() & 1) ? -m : m;
    }
    std::vector<std::int32_t> y = x;
    const bool ok_a = akl::mp3::RequantRun(x.data(), n, a);
    const bool ok_b = akl::mp3::RequantRunRef(y.data(), n, a);
    ASSERT_EQ(ok_a, ok_b) << "trial " << trial;
    ASSERT_EQ(x, y) << "trial " << trial << " a " << a;
  }
}

// The windowed sum is exact in both forms (64-bit integers in one, integer
// values below 2^53 in double lanes in the other), so they agree bit for bit
// on any history, extremes included.
TEST(TunedSynthesis, WindowSumMatchesReferenceBitExact) {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<std::int32_t> hist(akl::mp3::kSynthHistoryValues);
  for (int trial = 0; trial < 2000; ++trial) {
    for (auto& v : hist) v = (trial % 4 == 0) ? RandomValue(rng) : RandomValue(rng) >> 6;
    const int slot0 = static_cast<int>(rng() % 16), stride = 1 + trial % 2;
    std::vector<std::int16_t> pa(64, 123), pb(64, 123);
    akl::mp3::SynthWindowSum(hist.data(), slot0, pa.data(), stride);
    akl::mp3::SynthWindowSumRef(hist.data(), slot0, pb.data(), stride);
    ASSERT_EQ(pa, pb) << "trial " << trial;
  }
}

// The transform against the direct sum in long double: the tuned form rounds
// once from 53-bit sums, so it is within one Q25 step of the exact value
// (half a step of rounding plus errors near 2^-40 of a step); the plain form
// rounds its 64-bit integer sums at several stages (pre-twiddle, the FFT's
// sqrt(1/2) products, the Q29 odd matrix, the output), each error at most half
// a step grown by the later stages, and stays within a few steps at the
// clamp limits.  One Q25 step is 2^-10 of the 16-bit step.
TEST(TunedSynthesis, TransformMatchesDirectSum) {
  std::mt19937 rng(akl::test::TestSeed());
  std::int32_t s[32], a[32], b[32];
  int worst_tuned = 0, worst_plain = 0;
  for (int trial = 0; trial < 20000; ++trial) {
    const int bits = static_cast<int>(rng() % 30);
    for (auto& v : s) v = static_cast<std::int32_t>(rng() % (2u << bits)) - (1 << bits);
    if (trial % 10 == 0)  // the clamp limits, all in phase
      for (int k = 0; k < 32; ++k) s[k] = (k % 2 ? -1 : 1) * ((1 << 29) - 1);
    akl::mp3::SynthDct32(s, a);
    akl::mp3::SynthDct32Ref(s, b);
    for (int m = 0; m < 32; ++m) {
      long double exact = 0.0L;
      for (int k = 0; k < 32; ++k)
        exact += static_cast<long double>(s[k]) * std::cos(3.14159265358979323846264338327950288L / 64.0L * m * (2 * k + 1));
      exact /= 2.0L;
      if (exact > 2147483647.0L) exact = 2147483647.0L;
      if (exact < -2147483648.0L) exact = -2147483648.0L;
      const long double dt = std::fabs(a[m] - exact), dp = std::fabs(b[m] - exact);
      worst_tuned = std::max(worst_tuned, static_cast<int>(std::ceil(dt)));
      worst_plain = std::max(worst_plain, static_cast<int>(std::ceil(dp)));
      ASSERT_LE(dt, 0.51L) << "trial " << trial << " A[" << m << "]";
      ASSERT_LE(dp, 8.0L) << "trial " << trial << " A[" << m << "]";
    }
  }
  std::printf("synthesis transform: within %d (tuned), %d (plain) Q25 steps of the direct sum\n", worst_tuned,
              worst_plain);
}

// The whole slot kernel over runs of slots: PCM within one step of the plain
// kernel (a Q25 difference in A moves a sum near a rounding boundary at most).
TEST(TunedSynthesis, SlotKernelWithinOnePcmStep) {
  std::mt19937 rng(akl::test::TestSeed());
  long differing = 0, total = 0;
  for (int stride : {1, 2}) {
    for (int trial = 0; trial < 100; ++trial) {
      std::vector<std::int32_t> hist_a(akl::mp3::kSynthHistoryValues, 0), s(32);
      std::vector<std::int32_t> hist_b = hist_a;
      std::int32_t off_a = static_cast<std::int32_t>(rng() % 16), off_b = off_a;
      for (int slot = 0; slot < 40; ++slot) {
        const int bits = 20 + static_cast<int>(rng() % 11);
        for (auto& v : s) v = static_cast<std::int32_t>(rng() % (2u << bits)) - (1 << bits);
        std::vector<std::int16_t> pa(64, 123), pb(64, 123);
        akl::mp3::SynthSlotKernel(s.data(), pa.data(), stride, hist_a.data(), &off_a);
        akl::mp3::SynthSlotKernelRef(s.data(), pb.data(), stride, hist_b.data(), &off_b);
        ASSERT_EQ(off_a, off_b);
        for (int i = 0; i < 64; ++i) {
          if (i % stride != 0) {
            ASSERT_EQ(pa[i], 123);  // the other channel's samples are left alone
            continue;
          }
          ++total;
          differing += pa[i] != pb[i];
          ASSERT_LE(std::abs(pa[i] - pb[i]), 1) << "stride " << stride << " trial " << trial << " slot " << slot;
        }
      }
    }
  }
  std::printf("synthesis: %ld of %ld samples differ by one step\n", differing, total);
}

// The tuned inverse MDCT carries the long transforms in double precision and
// rounds once; the plain one rounds to Q26 after its pre-twiddle, inner
// twiddle, post-twiddle and window stages and again before the overlap-add,
// each error at most half a step grown by at most the stage gains (about 3 for
// the 9-point DFT), so the two stay within a few Q26 steps.  Eight steps is
// 2^-23 of full scale, 1/256 of the 16-bit step; a wrong constant, window row,
// sign or sample order would be off by many thousands.  Inputs stay below
// full scale (|line| < 2^26) so that no intermediate saturation of the plain
// path fires.
TEST(TunedImdct, MatchesReferenceWithinFewSteps) {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<std::int32_t> ov_a(576, 0), ov_b(576, 0);
  std::int32_t prev_a = 0, prev_b = 0;
  int worst = 0;
  for (int granule = 0; granule < 2000; ++granule) {
    const int block_type = static_cast<int>(rng() % 4);
    // Mixed flags on every block type: the plain path then windows subbands 0
    // and 1 with the normal window even for start and stop blocks.
    const int mixed = static_cast<int>(rng() % 2);
    const int bound = static_cast<int>(rng() % 577);
    std::vector<std::int32_t> spec_a(576, 0);
    const int scale = static_cast<int>(rng() % 26) + 1;
    for (int i = 0; i < bound; ++i)
      spec_a[i] = static_cast<std::int32_t>(rng() % (2u << scale)) - (1 << scale);
    std::vector<std::int32_t> spec_b = spec_a, out_a(576, 7), out_b(576, 7);
    akl::mp3::MdctInvKernel(spec_a.data(), out_a.data(), ov_a.data(), bound, &prev_a, block_type, mixed);
    akl::mp3::MdctInvKernelRef(spec_b.data(), out_b.data(), ov_b.data(), bound, &prev_b, block_type, mixed);
    ASSERT_EQ(prev_a, prev_b);
    ASSERT_EQ(spec_a, spec_b);  // alias reduction in place is shared and exact
    for (int i = 0; i < 576; ++i) {
      const int d = std::abs(out_a[i] - out_b[i]);
      worst = std::max(worst, d);
      ASSERT_LE(d, 8) << "granule " << granule << " sample " << i << " type " << block_type;
      ASSERT_LE(std::abs(ov_a[i] - ov_b[i]), 8) << "granule " << granule << " tail " << i;
    }
  }
  RecordProperty("worst_q26_steps", worst);
}

}  // namespace
