// The tuned band dequantizer against its plain reference, bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "aac/spectral.hpp"
#include "../support/test_util.hpp"

namespace {

using akl::aac::spectral::DequantBand;
using akl::aac::spectral::DequantBandRef;

// Random lines with the mix the tuned form branches on: runs of zeros (the
// skipped quads), small magnitudes (the band table), medium and large ones,
// both signs, and now and then a line above 8191 (the early stop, whose
// index and the lines before it must match).
std::vector<std::int32_t> RandomLines(std::mt19937& rng, int n, bool with_overflow) {
  std::vector<std::int32_t> x(static_cast<std::size_t>(n));
  std::uniform_int_distribution<int> kind(0, 9), small(1, 15), medium(16, 128), large(129, 8191), sign(0, 1);
  for (auto& v : x) {
    const int kd = kind(rng);
    int m = kd < 4 ? 0 : kd < 7 ? small(rng) : kd < 9 ? medium(rng) : large(rng);
    v = sign(rng) ? -m : m;
  }
  if (with_overflow) {
    std::uniform_int_distribution<int> at(0, n - 1);
    x[static_cast<std::size_t>(at(rng))] = sign(rng) ? 8192 : -40000;
  }
  return x;
}

TEST(DequantBandCheck, MatchesReferenceOnRandomBands) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_int_distribution<int> width(1, 96), sf(0, 255), offset(0, 3);
  for (int trial = 0; trial < 20000; ++trial) {
    const int n = width(rng);
    const int s = sf(rng);
    auto a = RandomLines(rng, n, trial % 7 == 0);
    // Unaligned starts exercise the unaligned quad loads.
    const int off = offset(rng);
    std::vector<std::int32_t> buf_a(static_cast<std::size_t>(n + off)), buf_b;
    std::copy(a.begin(), a.end(), buf_a.begin() + off);
    buf_b = buf_a;
    const int ra = DequantBand(buf_a.data() + off, n, s);
    const int rb = DequantBandRef(buf_b.data() + off, n, s);
    ASSERT_EQ(ra, rb) << "trial " << trial << " n " << n << " sf " << s;
    ASSERT_EQ(buf_a, buf_b) << "trial " << trial << " n " << n << " sf " << s;
  }
}

TEST(DequantBandCheck, AllZeroAndExtremeLines) {
  for (int s : {0, 100, 255}) {
    std::vector<std::int32_t> a(64, 0), b(64, 0);
    a[63] = b[63] = -8191;
    a[5] = b[5] = 8191;
    a[6] = b[6] = INT32_MIN;  // magnitude wraps: must stop at 6 like the reference
    EXPECT_EQ(DequantBand(a.data(), 64, s), DequantBandRef(b.data(), 64, s));
    EXPECT_EQ(a, b);
  }
}

}  // namespace
