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
#include "../support/test_util.hpp"

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

// The windowed sum: exact 64-bit integers in the plain form, single-precision
// lanes in the tuned one.  The tuned form rounds each history value, product
// and partial sum (about 48 roundings of 2^-24 relative of at most
// sum |D| x max|A| = 3.03 x 2^16 x max|A| in Q41), so its error is below
// 2^-26.8 x max|A| PCM steps before the final rounding: within one step of
// the plain form for histories below 2^26 (decoded signals stay well inside
// that), within 2^4.2 + 1 steps for any int32 history.  A wrong coefficient,
// slot or lane would be off by hundreds of steps on these inputs.
TEST(TunedSynthesis, WindowSumWithinOneStepOfReference) {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<std::int32_t> hist(akl::mp3::kSynthHistoryValues);
  long differing = 0;
  for (int trial = 0; trial < 4000; ++trial) {
    const bool extreme = trial % 4 == 0;
    for (auto& v : hist) v = extreme ? RandomValue(rng) : RandomValue(rng) >> 6;
    const int slot0 = static_cast<int>(rng() % 16), stride = 1 + trial % 2;
    std::vector<std::int16_t> pa(64, 123), pb(64, 123);
    akl::mp3::SynthWindowSum(hist.data(), slot0, pa.data(), stride);
    akl::mp3::SynthWindowSumRef(hist.data(), slot0, pb.data(), stride);
    for (int i = 0; i < 64; ++i) {
      if (i % stride != 0) {
        ASSERT_EQ(pa[i], 123);  // the other channel's samples are left alone
        continue;
      }
      differing += pa[i] != pb[i];
      ASSERT_LE(std::abs(pa[i] - pb[i]), extreme ? 20 : 1) << "trial " << trial << " sample " << i;
    }
  }
  std::printf("windowed sum: %ld samples differ from the exact sum\n", differing);
}

// The transform against the direct sum in long double.  The tuned form works in
// single precision: every stage rounds at 2^-24 of values bounded by sum |s|,
// and the odd half chains up to 15 of them, so its error stays below
// 2^-21 x sum |s| (measured: 2^-22.7) plus the final half step, and 128 more
// where it clamps at 2^31 - 128 instead of 2^31 - 1.  For a decoded signal
// (sum |s| below 2^31) that is under 2^10 Q25 steps, one PCM step; a wrong
// constant or lane would be off by a sizeable fraction of sum |s|.  The plain form
// rounds its 64-bit integer sums at several stages (pre-twiddle, the FFT's
// sqrt(1/2) products, the Q29 odd matrix, the output), each error at most half
// a step grown by the later stages, and stays within a few steps at the
// clamp limits.  One Q25 step is 2^-10 of the 16-bit step.
TEST(TunedSynthesis, TransformMatchesDirectSum) {
  std::mt19937 rng(akl::test::TestSeed());
  std::int32_t s[32], a[32], b[32];
  int worst_tuned = 0, worst_plain = 0;
  double worst_ratio = 0.0;
  constexpr long double kRel = 1.0L / 2097152.0L;  // 2^-21
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
      long double sum_abs = 0.0L;
      for (int k = 0; k < 32; ++k) sum_abs += std::fabs(static_cast<long double>(s[k]));
      worst_ratio = std::max(worst_ratio, static_cast<double>((dt - 0.5L) / sum_abs));
      ASSERT_LE(dt, 0.51L + kRel * sum_abs + (std::fabs(exact) > 2147483520.0L ? 128.0L : 0.0L))
          << "trial " << trial << " A[" << m << "]";
      ASSERT_LE(dp, 8.0L) << "trial " << trial << " A[" << m << "]";
    }
  }
  std::printf("synthesis transform: within %d (tuned), %d (plain) Q25 steps of the direct sum; tuned error / sum|s| %g\n",
              worst_tuned, worst_plain, worst_ratio);
}

// The whole slot kernel over runs of slots: PCM within one step of the plain
// kernel for subband samples up to twice full scale (|s| < 2^27), where the
// tuned transform's error (2^-21 x sum |s| <= 2^11 Q25 steps, two PCM steps
// only if every subband sat at that limit in phase, far less on these random
// ones) and the windowed sum's (below 0.6 step) leave the rounded results at
// most one step apart.
TEST(TunedSynthesis, SlotKernelWithinOnePcmStep) {
  std::mt19937 rng(akl::test::TestSeed());
  long differing = 0, total = 0;
  for (int stride : {1, 2}) {
    for (int trial = 0; trial < 100; ++trial) {
      std::vector<std::int32_t> hist_a(akl::mp3::kSynthHistoryValues, 0), s(32);
      std::vector<std::int32_t> hist_b = hist_a;
      std::int32_t off_a = static_cast<std::int32_t>(rng() % 16), off_b = off_a;
      for (int slot = 0; slot < 40; ++slot) {
        const int bits = 20 + static_cast<int>(rng() % 8);
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
// path fires.  Runs of four long subbands go through single-precision lanes:
// each stage rounds at 2^-24 of values a few times the input peak (of this
// granule or, through the tails, the previous one), which adds up to 2^-17 of
// that peak (measured: 2^-19.9), 2^9 steps at full scale, still 1/4 of a
// 16-bit step, while a wrong constant or lane would be off by a sizeable
// fraction of the peak.
TEST(TunedImdct, MatchesReferenceWithinFewSteps) {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<std::int32_t> ov_a(576, 0), ov_b(576, 0);
  std::int32_t prev_a = 0, prev_b = 0, prev_peak = 0;
  int worst = 0;
  double worst_ratio = 0.0;
  constexpr double kRel = 1.0 / 131072.0;  // 2^-17
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
    std::int32_t peak = 0;
    for (int i = 0; i < bound; ++i) peak = std::max(peak, std::abs(spec_a[i]));
    const double reach = std::max(peak, prev_peak);  // the tails carry the previous granule
    prev_peak = peak;
    const int limit = 8 + static_cast<int>(reach * kRel);
    std::vector<std::int32_t> spec_b = spec_a, out_a(576, 7), out_b(576, 7);
    akl::mp3::MdctInvKernel(spec_a.data(), out_a.data(), ov_a.data(), bound, &prev_a, block_type, mixed);
    akl::mp3::MdctInvKernelRef(spec_b.data(), out_b.data(), ov_b.data(), bound, &prev_b, block_type, mixed);
    ASSERT_EQ(prev_a, prev_b);
    ASSERT_EQ(spec_a, spec_b);  // alias reduction in place is shared and exact
    for (int i = 0; i < 576; ++i) {
      const int d = std::abs(out_a[i] - out_b[i]);
      const int dt = std::abs(ov_a[i] - ov_b[i]);
      worst = std::max(worst, std::max(d, dt));
      if (reach > 0) worst_ratio = std::max(worst_ratio, (std::max(d, dt) - 8) / reach);
      ASSERT_LE(d, limit) << "granule " << granule << " sample " << i << " type " << block_type;
      ASSERT_LE(dt, limit) << "granule " << granule << " tail " << i;
    }
  }
  RecordProperty("worst_q26_steps", worst);
  std::printf("IMDCT: within %d Q26 steps of the plain form; worst (difference - 8) / input peak %g\n", worst, worst_ratio);
}

}  // namespace

namespace {

// Alias reduction: the four-lane form against the scalar one, bit for bit.
// Half of the granules keep every line below 2^30 in magnitude (the vector
// path), the rest mix in values up to the int32 extremes (boundaries that fall
// back to the scalar form, and saturation of the butterflies).
TEST(TunedAlias, MatchesReferenceBitExact) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int trial = 0; trial < 4000; ++trial) {
    const int width = (trial & 1) ? 32 : 1 + static_cast<int>(rng() % 30);
    std::vector<std::int32_t> a(576);
    for (auto& v : a) {
      v = RandomValue(rng);
      if (width < 32) v = static_cast<std::int32_t>(v % (std::int32_t{1} << width));
    }
    if (trial % 7 == 0) a[static_cast<std::size_t>(rng() % 576)] = (trial & 2) ? -(1 << 30) : (1 << 30) - 1;
    std::vector<std::int32_t> b = a;
    const int block_type = static_cast<int>(rng() % 4);
    const int mixed = block_type == 2 ? static_cast<int>(rng() % 2) : 0;
    const int n = static_cast<int>(rng() % 33);
    akl::mp3::AliasReduce(a.data(), n, block_type, mixed);
    akl::mp3::AliasReduceRef(b.data(), n, block_type, mixed);
    ASSERT_EQ(a, b) << "trial " << trial << " n " << n << " type " << block_type;
  }
}

}  // namespace
