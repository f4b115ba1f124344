// The tuned Layer III signal kernels against their plain reference forms on
// random inputs: integer kernels must agree bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include "mp3/imdct.hpp"
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

TEST(TunedSynthesis, MatchesReferenceBitExact) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int stride : {1, 2}) {
    for (int trial = 0; trial < 300; ++trial) {
      std::vector<std::int32_t> hist_a(akl::mp3::kSynthHistoryValues), s(32);
      for (auto& v : hist_a) v = RandomValue(rng);
      std::vector<std::int32_t> hist_b = hist_a;
      std::int32_t off_a = static_cast<std::int32_t>(rng() % 16), off_b = off_a;
      // A run of slots, so that the ring wraps and fresh transform outputs
      // are mixed with the random history.
      for (int slot = 0; slot < 20; ++slot) {
        for (auto& v : s) v = (trial % 3 == 0) ? RandomValue(rng) : RandomValue(rng) >> 4;
        std::vector<std::int16_t> pa(64, 123), pb(64, 123);
        akl::mp3::SynthSlotKernel(s.data(), pa.data(), stride, hist_a.data(), &off_a);
        akl::mp3::SynthSlotKernelRef(s.data(), pb.data(), stride, hist_b.data(), &off_b);
        ASSERT_EQ(off_a, off_b);
        ASSERT_EQ(pa, pb) << "stride " << stride << " trial " << trial << " slot " << slot;
        ASSERT_EQ(hist_a, hist_b);
      }
    }
  }
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
