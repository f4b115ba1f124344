#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "aac/spectral.hpp"
#include "aklac.h"
#include "../support/test_util.hpp"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Reflection coefficient of the standard's dequantization, then the step-up
// recursion, in double.
std::vector<double> RefLpc(const std::vector<Akl8s>& coef, int res) {
  const double half = 1 << (res - 1);
  std::vector<double> a(coef.size() + 1, 0.0), tmp(coef.size() + 1, 0.0);
  a[0] = 1;
  for (size_t m = 1; m <= coef.size(); ++m) {
    const int c = coef[m - 1];
    const double k = std::sin(c / ((c >= 0 ? half - 0.5 : half + 0.5) / (kPi / 2)));
    for (size_t i = 1; i < m; ++i) tmp[i] = a[i] + k * a[m - i];
    for (size_t i = 1; i < m; ++i) a[i] = tmp[i];
    a[m] = k;
  }
  return a;
}

void RefFilter(std::vector<double>& x, int start, int end, int dir, const std::vector<double>& a) {
  const int order = static_cast<int>(a.size()) - 1;
  std::vector<double> state(order, 0.0);
  const int n = end - start;
  for (int t = 0; t < n; ++t) {
    const int i = dir ? end - 1 - t : start + t;
    double y = x[i];
    for (int j = 0; j < order; ++j) y -= a[j + 1] * state[j];
    for (int j = order - 1; j > 0; --j) state[j] = state[j - 1];
    if (order > 0) state[0] = y;
    x[i] = y;
  }
}

TEST(Tns, CoefficientTableRows) {
  // Resolution 4 spans the quoted ends; both rows are odd-looking sines:
  // index 0 is 0 and magnitudes grow towards the ends of the valid range.
  EXPECT_EQ(akl::aac::spectral::kTnsCoefQ31[1][0], -2138322861);
  EXPECT_EQ(akl::aac::spectral::kTnsCoefQ31[1][15], 2135719508);
  for (int r = 0; r < 2; ++r) EXPECT_EQ(akl::aac::spectral::kTnsCoefQ31[r][8], 0);
  for (int i = 9; i < 15; ++i) EXPECT_LT(akl::aac::spectral::kTnsCoefQ31[1][i], akl::aac::spectral::kTnsCoefQ31[1][i + 1]);
}

// Long window, 44.1 kHz, three filters (orders 12, 0, 5), both directions,
// against the double reference.  The Q26 coefficients and the truncation of
// each output to an integer (fed back through the all-pole recursion, whose
// gain amplifies its half-step bias) give errors of a few steps on lines of 10^5
// (an eighth of a unit of the spectrum, far below one 16-bit output step): the bound is
// 16 steps plus 2^-18 of the line.
TEST(Tns, DecodeMatchesDoubleReference) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_int_distribution<int> line(-100000, 100000);
  for (int res : {3, 4}) {
    std::vector<Akl32s> x(1024);
    for (auto& v : x) v = line(rng);
    std::vector<double> ref(x.begin(), x.end());
    const int lo = res == 3 ? -4 : -8, hi = res == 3 ? 3 : 7;
    std::uniform_int_distribution<int> cd(lo, hi);
    std::vector<Akl8s> c1(12), c3(5);
    for (auto& v : c1) v = static_cast<Akl8s>(cd(rng) / 2);  // keep the filter well damped
    for (auto& v : c3) v = static_cast<Akl8s>(cd(rng) / 2);
    std::vector<Akl8s> coefs(c1);
    coefs.insert(coefs.end(), c3.begin(), c3.end());
    const Akl32s nfilt[1] = {3}, length[3] = {20, 5, 30}, order[3] = {12, 0, 5}, cres[1] = {res};
    const Akl32s dir[2] = {0, 1};
    const int maxSfb = 45;
    ASSERT_EQ(aklsDecodeTNS_AAC_32s_I(x.data(), nfilt, length, order, cres, coefs.data(), dir, maxSfb, 1, 4, 1024),
              kStsOk);
    // Bands: top 49 -> [29, 49) upward, clipped to tnsMax = min(45, 42) = 42;
    // then [24, 29) order 0; then [0, 24) downward.
    const auto* off = akl::aac::spectral::kSwbOffsetLong[4];
    RefFilter(ref, off[29], off[42], 0, RefLpc(c1, res));
    RefFilter(ref, off[0], off[24], 1, RefLpc(c3, res));
    for (int i = 0; i < 1024; ++i)
      ASSERT_NEAR(x[i], ref[i], 16 + std::fabs(ref[i]) * std::ldexp(1.0, -18)) << "line " << i << " res " << res;
  }
}

TEST(Tns, EncodeThenDecodeRestoresSpectrum) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_int_distribution<int> line(-50000, 50000);
  std::vector<Akl32s> x(1024);
  for (auto& v : x) v = line(rng);
  const auto x0 = x;
  // Eight short windows, one filter each of order 4 in window 0, 2, 5.
  const Akl32s nfilt[8] = {1, 0, 1, 0, 0, 1, 0, 0};
  const Akl32s length[3] = {14, 8, 3}, order[3] = {4, 7, 2}, cres[8] = {4, 3, 4, 3, 3, 3, 3, 3};
  const Akl32s dir[3] = {1, 0, 0};
  const Akl8s coefs[13] = {3, -2, 1, 0, 2, -1, 1, -1, 0, 1, -2, 5, -3};
  ASSERT_EQ(aklsEncodeTNS_AAC_32s_I(x.data(), nfilt, length, order, cres, coefs, dir, 14, 1, 4, 128), kStsOk);
  int changed = 0;
  for (int i = 0; i < 1024; ++i) changed += x[i] != x0[i];
  EXPECT_GT(changed, 200);
  ASSERT_EQ(aklsDecodeTNS_AAC_32s_I(x.data(), nfilt, length, order, cres, coefs, dir, 14, 1, 4, 128), kStsOk);
  for (int i = 0; i < 1024; ++i) ASSERT_NEAR(x[i], x0[i], 8) << i;
  // Windows without filters are untouched both ways.
  for (int i = 128; i < 256; ++i) ASSERT_EQ(x[i], x0[i]);
}

TEST(Tns, EmptyRegionAndOrderZeroChangeNothing) {
  std::vector<Akl32s> x(1024, 1000);
  const Akl32s nfilt[1] = {2}, length[2] = {5, 10}, order[2] = {0, 3}, cres[1] = {4}, dir[1] = {0};
  const Akl8s coefs[3] = {7, 7, 7};
  // maxSfb 20 -> tnsMax 20; filter 2 covers bands [34, 44): above tnsMax.
  ASSERT_EQ(aklsDecodeTNS_AAC_32s_I(x.data(), nfilt, length, order, cres, coefs, dir, 20, 1, 4, 1024), kStsOk);
  for (Akl32s v : x) ASSERT_EQ(v, 1000);
}

TEST(Tns, DecoderKeepsWindowsFilteredBeforeAFailure) {
  // Short windows: window 0 filters, window 1 has an order of 8.
  std::vector<Akl32s> x(1024, 100);
  const Akl32s nfilt[8] = {1, 1, 0, 0, 0, 0, 0, 0}, length[2] = {14, 14}, order[2] = {2, 8};
  const Akl32s cres[8] = {4, 4, 4, 4, 4, 4, 4, 4}, dir[2] = {0, 0};
  const Akl8s coefs[10] = {7, 7, 1, 1, 1, 1, 1, 1, 1, 1};
  EXPECT_EQ(aklsDecodeTNS_AAC_32s_I(x.data(), nfilt, length, order, cres, coefs, dir, 14, 1, 4, 128),
            kStsAacTnsOrderErr);
  int changed = 0;
  for (int i = 0; i < 128; ++i) changed += x[i] != 100;
  EXPECT_GT(changed, 0);
  for (int i = 128; i < 1024; ++i) ASSERT_EQ(x[i], 100);
}

}  // namespace

namespace {

// TNS_MAX_BANDS caps the filtered range: at 32 kHz (index 5) a long-window
// filter may reach band 51; at 96 kHz (index 0) nothing above band 31 moves.
TEST(Tns, MaxBandsByIndex) {
  const Akl32s nfilt[1] = {1}, length[1] = {6}, order[1] = {2}, res[1] = {4}, dir[1] = {0};
  const Akl8s coefs[2] = {5, -3};
  std::vector<Akl32s> x(1024, 1000);
  ASSERT_EQ(aklsDecodeTNS_AAC_32s_I(x.data(), nfilt, length, order, res, coefs, dir, 51, 1, 5, 1024), kStsOk);
  const auto* off5 = akl::aac::spectral::kSwbOffsetLong[5];
  int changed = 0;
  for (int i = off5[45]; i < off5[51]; ++i) changed += x[i] != 1000;
  EXPECT_GT(changed, 100);
  for (int i = 0; i < off5[45]; ++i) ASSERT_EQ(x[i], 1000);

  std::vector<Akl32s> y(1024, 1000);
  const Akl32s length0[1] = {8};  // bands 33..41 of index 0: above its cap of 31
  ASSERT_EQ(aklsDecodeTNS_AAC_32s_I(y.data(), nfilt, length0, order, res, coefs, dir, 41, 1, 0, 1024), kStsOk);
  for (Akl32s v : y) ASSERT_EQ(v, 1000);
}

}  // namespace
