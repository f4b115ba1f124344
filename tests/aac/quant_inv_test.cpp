#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "aac/spectral.hpp"
#include "aklac.h"

namespace {

using akl::aac::spectral::DequantMagnitude;

// 8 * m^(4/3) * 2^(s/4) in double.
double RefQ3(int m, int s) { return 8.0 * std::pow(static_cast<double>(m), 4.0 / 3.0) * std::pow(2.0, s / 4.0); }

// The table paths (m < 129) carry 25 to 31 significant bits and truncate
// once, so they may sit one step below floor(ref) where ref lands within a
// rounding error of an integer; the polynomial path carries about 24 bits of
// mantissa after its Horner steps and Q31 factor products, so its tolerance
// is relative: 2^-22 of the value plus one step.
TEST(QuantInv, MagnitudeMatchesDoubleReference) {
  for (int s = -40; s <= 60; s += 1) {
    for (int m = 1; m <= 8191; ++m) {
      const double ref = RefQ3(m, s);
      if (ref >= 2147483647.0) continue;
      const double got = DequantMagnitude(m, s);
      const double tol = (m < 129 ? 1.0 : 1.0 + ref * std::ldexp(1.0, -22));
      // Small magnitudes are not scaled up past their table form (e above 25).
      if (m < 16 && s > 4 * 22) continue;
      ASSERT_LE(std::fabs(got - std::floor(ref)), tol) << "m=" << m << " s=" << s;
    }
  }
}

TEST(QuantInv, EdgeValues) {
  struct Row { int x; int sf; int expect; } rows[] = {
      {1, 100, 8}, {8, 100, 128}, {-2, 100, -20}, {16, 100, 322}, {0, 100, 0}, {1, 104, 16}, {1, 96, 4},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.x);
    std::vector<Akl32s> spec(1024, 0);
    spec[0] = r.x;
    const Akl16s sf = static_cast<Akl16s>(r.sf);
    const Akl8u cb = 1;
    const Akl32s grp = 1;
    ASSERT_EQ(aklsQuantInv_AAC_32s_I(spec.data(), &sf, 1, &grp, 1, &cb, 4, 1024), kStsOk);
    EXPECT_EQ(spec[0], r.expect);
  }
}

TEST(QuantInv, SaturationAndSmallCap) {
  // s = 200: e = 50, k = 0; every medium and large shift is a left shift past
  // 31 and saturates; small magnitudes keep their table value (shift 0).
  EXPECT_EQ(DequantMagnitude(100, 200), 0x7FFFFFFF);
  EXPECT_EQ(DequantMagnitude(5000, 200), 0x7FFFFFFF);
  EXPECT_EQ(DequantMagnitude(1, 200), 268435456);
  EXPECT_EQ(DequantMagnitude(4, 200), 213057363);
  // Left shifts of 31 or less are plain 32-bit shifts (s = 156: m = 16 at
  // exponent 19 shifts left by 20).
  EXPECT_EQ(static_cast<std::uint32_t>(DequantMagnitude(16, 156)),
            static_cast<std::uint32_t>(DequantMagnitude(16, 76)) << 20);
  // Very negative scales shift everything to 0.
  EXPECT_EQ(DequantMagnitude(8191, -100), 0);
}

TEST(QuantInv, StopsAtMagnitudeAbove8191) {
  std::vector<Akl32s> spec(1024, 0);
  spec[0] = 1;
  spec[1] = 8192;
  spec[2] = 1;
  const Akl16s sf = 100;
  const Akl8u cb = 1;
  const Akl32s grp = 1;
  EXPECT_EQ(aklsQuantInv_AAC_32s_I(spec.data(), &sf, 1, &grp, 1, &cb, 4, 1024), kStsAacCoefValErr);
  EXPECT_EQ(spec[0], 8);
  EXPECT_EQ(spec[1], 8192);
  EXPECT_EQ(spec[2], 1);
  spec[1] = -2147483647 - 1;  // no overflow when taking the magnitude
  EXPECT_EQ(aklsQuantInv_AAC_32s_I(spec.data(), &sf, 1, &grp, 1, &cb, 4, 1024), kStsAacCoefValErr);
}

TEST(QuantInv, SkipsNoiseAndIntensityBandsAndLinesAboveMaxSfb) {
  // 44.1 kHz long bands 0..3 are 4 lines wide.
  std::vector<Akl32s> spec(1024, 3);
  const Akl16s sf[4] = {100, 100, 100, 100};
  const Akl8u cb[4] = {1, 13, 14, 15};
  const Akl32s grp = 1;
  ASSERT_EQ(aklsQuantInv_AAC_32s_I(spec.data(), sf, 1, &grp, 4, cb, 4, 1024), kStsOk);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(spec[i], 34);  // 8 * 3^(4/3) = 34.6
  for (int i = 4; i < 1024; ++i) ASSERT_EQ(spec[i], 3) << i;
}

TEST(QuantInv, ShortGroupsSpanBandTimesGroupLength) {
  // Two groups (3 and 5 windows), maxSfb 2 at 44.1 kHz (short bands 4 wide).
  std::vector<Akl32s> spec(1024, 1);
  const Akl16s sf[4] = {100, 104, 108, 112};
  const Akl8u cb[4] = {1, 1, 1, 1};
  const Akl32s grp[2] = {3, 5};
  ASSERT_EQ(aklsQuantInv_AAC_32s_I(spec.data(), sf, 2, grp, 2, cb, 4, 128), kStsOk);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(spec[i], 8);
  for (int i = 12; i < 24; ++i) EXPECT_EQ(spec[i], 16);
  for (int i = 24; i < 384; ++i) ASSERT_EQ(spec[i], 1);
  for (int i = 384; i < 384 + 20; ++i) EXPECT_EQ(spec[i], 32);
  for (int i = 404; i < 424; ++i) EXPECT_EQ(spec[i], 64);
  EXPECT_EQ(spec[424], 1);
}

TEST(Deinterleave, MatchesNaiveReorder) {
  const Akl32s grp[3] = {2, 1, 5};
  for (int sfi : {0, 4, 8, 11}) {
    const int nb = akl::aac::spectral::kNumSwbShort[sfi];
    const auto* off = akl::aac::spectral::kSwbOffsetShort[sfi];
    for (int maxSfb : {0, 1, nb - 1, nb}) {
      SCOPED_TRACE(maxSfb);
      std::vector<Akl32s> src(1024), dst(1024, -7), ref(1024, 0);
      for (int i = 0; i < 1024; ++i) src[i] = i + 1;
      // Naive: walk groups; inside a band, windows one after the other.
      int win = 0;
      for (int g = 0; g < 3; ++g) {
        int pos = win * 128;
        for (int b = 0; b < maxSfb; ++b)
          for (int j = 0; j < grp[g]; ++j)
            for (int k = off[b]; k < off[b + 1]; ++k) ref[(win + j) * 128 + k] = src[pos++];
        win += grp[g];
      }
      ASSERT_EQ(aklsDeinterleaveSpectrum_AAC_32s(src.data(), dst.data(), 3, grp, maxSfb, sfi, 128), kStsOk);
      EXPECT_EQ(dst, ref);
    }
  }
}

}  // namespace
