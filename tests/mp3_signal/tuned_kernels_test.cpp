// The tuned Layer III signal kernels against their plain reference forms on
// random inputs: integer kernels must agree bit for bit.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

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

}  // namespace
