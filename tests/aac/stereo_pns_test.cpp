#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "aac/spectral.hpp"
#include "aklac.h"

namespace {

const Akl32s kOneGroup[8] = {1, 1, 1, 1, 1, 1, 1, 1};

// 44.1 kHz long bands: offsets 0, 4, 8, ... (first ten bands 4 wide).
TEST(MsStereo, SumsDifferencesAndIntensityToggle) {
  std::vector<Akl32s> l(1024), r(1024);
  for (int i = 0; i < 1024; ++i) { l[i] = 100 + i; r[i] = 3 * i - 50; }
  const auto l0 = l, r0 = r;
  Akl8u cb[5] = {1, 1, 13, 15, 14};
  Akl8u used[60] = {1, 0, 1, 1, 0};
  ASSERT_EQ(aklsDecodeMsStereo_AAC_32s_I(l.data(), r.data(), 1, used, cb, 1, kOneGroup, 5, 4, 1024), kStsOk);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(l[i], l0[i] + r0[i]);
    EXPECT_EQ(r[i], l0[i] - r0[i]);
  }
  for (int i = 4; i < 1024; ++i) {
    ASSERT_EQ(l[i], l0[i]);
    ASSERT_EQ(r[i], r0[i]);
  }
  EXPECT_EQ(cb[3], 14);  // toggled: msUsed set on an intensity band
  EXPECT_EQ(cb[4], 14);  // not toggled
  EXPECT_EQ(cb[2], 13);

  // msMaskPresent 2: every band but noise and intensity, msUsed ignored; no toggling.
  l = l0; r = r0;
  Akl8u cb2[5] = {1, 1, 13, 15, 14};
  Akl8u none[60] = {};
  ASSERT_EQ(aklsDecodeMsStereo_AAC_32s_I(l.data(), r.data(), 2, none, cb2, 1, kOneGroup, 5, 4, 1024), kStsOk);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(l[i], l0[i] + r0[i]);
  for (int i = 8; i < 20; ++i) EXPECT_EQ(l[i], l0[i]);
  EXPECT_EQ(cb2[3], 15);
}

// M/S then intensity: a band with msUsed set under msMaskPresent 1 comes out
// with the opposite sign of the same band without it.
TEST(MsStereo, ToggledIntensityBandInvertsAfterIntensityDecoding) {
  std::vector<Akl32s> l(1024, 4000), r(1024, 0);
  Akl8u cb[2] = {15, 15};
  Akl8u used[60] = {1, 0};
  const Akl16s pos[2] = {4, 4};
  ASSERT_EQ(aklsDecodeMsStereo_AAC_32s_I(l.data(), r.data(), 1, used, cb, 1, kOneGroup, 2, 4, 1024), kStsOk);
  ASSERT_EQ(aklsDecodeIsStereo_AAC_32s(l.data(), r.data(), pos, cb, 1, kOneGroup, 2, 4, 1024), kStsOk);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(r[i], -2000);
  for (int i = 4; i < 8; ++i) EXPECT_EQ(r[i], 2000);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(l[i], 4000);
}

// R = +-L * 2^(-p/4), truncated: within one step of the double value.
TEST(IsStereo, ScalesLeftByPositionWithSign) {
  std::vector<Akl32s> l(1024), r(1024, 77);
  for (int i = 0; i < 1024; ++i) l[i] = (i * 7919) % 200001 - 100000;
  const Akl8u cb[6] = {15, 14, 15, 1, 15, 14};
  const Akl16s pos[6] = {0, 3, -5, 9, 41, -40};
  ASSERT_EQ(aklsDecodeIsStereo_AAC_32s(l.data(), r.data(), pos, cb, 1, kOneGroup, 6, 4, 1024), kStsOk);
  for (int b = 0; b < 6; ++b) {
    for (int i = 4 * b; i < 4 * b + 4; ++i) {
      if (cb[b] == 1) { EXPECT_EQ(r[i], 77); continue; }
      double ref = (cb[b] == 14 ? -1.0 : 1.0) * l[i] * std::pow(2.0, -pos[b] / 4.0);
      ref = std::fmax(std::fmin(ref, 2147483647.0), -2147483648.0);
      EXPECT_NEAR(r[i], ref, 1.0) << "band " << b;
    }
  }
  for (int i = 24; i < 1024; ++i) ASSERT_EQ(r[i], 77);
}

TEST(IsStereo, ShortGroupsAndChecks) {
  // Groups of 3 and 5 windows, band 0 only (4 lines per window).
  std::vector<Akl32s> l(1024, 1000), r(1024, 5);
  const Akl8u cb[2] = {15, 15};
  const Akl16s pos[2] = {4, 8};
  const Akl32s grp[2] = {3, 5};
  ASSERT_EQ(aklsDecodeIsStereo_AAC_32s(l.data(), r.data(), pos, cb, 2, grp, 1, 4, 128), kStsOk);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(r[i], 500);
  EXPECT_EQ(r[12], 5);
  for (int i = 384; i < 404; ++i) EXPECT_EQ(r[i], 250);
  EXPECT_EQ(r[404], 5);
  EXPECT_EQ(aklsDecodeIsStereo_AAC_32s(l.data(), nullptr, pos, cb, 2, grp, 1, 4, 128), kStsNullPtr);
  EXPECT_EQ(aklsDecodeIsStereo_AAC_32s(l.data(), r.data(), pos, cb, 0, grp, 1, 4, 128), kStsAacWinGrpErr);
  EXPECT_EQ(aklsDecodeIsStereo_AAC_32s(l.data(), r.data(), pos, cb, 1, grp, 42, 0, 1024), kStsAacMaxSfbErr);
}

double BandEnergy(const std::vector<Akl32s>& x, int from, int to) {
  double e = 0;
  for (int i = from; i < to; ++i) e += static_cast<double>(x[i]) * x[i];
  return e;
}

// Noise bands carry 64 * 2^(n/2) in Q3.
TEST(Pns, BandEnergyFollowsNoiseEnergy) {
  const int sfi = 4;
  const auto* off = akl::aac::spectral::kSwbOffsetLong[sfi];
  std::vector<Akl32s> x(1024, 11);
  Akl32s ltp[41];
  for (auto& v : ltp) v = 1;
  Akl8u cb[49];
  Akl16s nrg[49];
  for (int b = 0; b < 49; ++b) { cb[b] = (b % 3 == 0) ? 1 : 13; nrg[b] = static_cast<Akl16s>(10 + 2 * b); }
  Akl32s seed = 12345;
  ASSERT_EQ(aklsDecodePNS_AAC_32s(x.data(), ltp, cb, nrg, 49, 1, kOneGroup, sfi, 1024, &seed), kStsOk);
  int lines = 0;
  for (int b = 0; b < 49; ++b) {
    if (cb[b] != 13) {
      for (int i = off[b]; i < off[b + 1]; ++i) ASSERT_EQ(x[i], 11);
      if (b < 40) {
        EXPECT_EQ(ltp[b + 1], 1);
      }
      continue;
    }
    lines += off[b + 1] - off[b];
    const double want_db = 10 * std::log10(64.0) + 10 * std::log10(std::pow(2.0, nrg[b] / 2.0));
    // Lines are truncated once after scaling: a bias of up to one step per
    // line on top of the 0.01 dB of the normalisation.
    const double rms = std::sqrt(std::pow(10.0, want_db / 10) / (off[b + 1] - off[b]));
    const double tol = 0.01 + 20 * std::log10(1 + 1 / rms);
    EXPECT_NEAR(10 * std::log10(BandEnergy(x, off[b], off[b + 1])), want_db, tol) << "band " << b;
    if (b < 40) {
      EXPECT_EQ(ltp[b + 1], 0);
    }
  }
  // The seed advanced once per noise line.
  Akl32s s = 12345;
  for (int i = 0; i < lines; ++i) s = akl::aac::spectral::NextRandom(s);
  EXPECT_EQ(seed, s);
}

TEST(Pns, SameSeedSameNoiseAndShortWindows) {
  std::vector<Akl32s> a(1024, 0), b(1024, 0);
  Akl32s ltp[41] = {};
  const Akl8u cb[2] = {13, 13};
  const Akl16s nrg[2] = {40, 44};
  const Akl32s grp[2] = {3, 5};
  Akl32s s1 = 7, s2 = 7;
  ASSERT_EQ(aklsDecodePNS_AAC_32s(a.data(), ltp, cb, nrg, 1, 2, grp, 4, 128, &s1), kStsOk);
  ASSERT_EQ(aklsDecodePNS_AAC_32s(b.data(), ltp, cb, nrg, 1, 2, grp, 4, 128, &s2), kStsOk);
  EXPECT_EQ(a, b);
  EXPECT_EQ(s1, s2);
  // Each window's 4 lines carry the group's energy; nothing past band 0.
  for (int w = 0; w < 8; ++w) {
    const int g = w < 3 ? 0 : 1;
    const int pos = (g == 0 ? 0 : 384) + (g == 0 ? w : w - 3) * 4;
    const double want = 64.0 * std::pow(2.0, nrg[g] / 2.0);
    EXPECT_NEAR(BandEnergy(a, pos, pos + 4) / want, 1.0, 0.01) << w;
  }
  EXPECT_EQ(BandEnergy(a, 12, 384) + BandEnergy(a, 404, 1024), 0.0);
}

// Correlated noise: where both channels are noise and M/S is on, right is
// left scaled by 2^((nR - nL)/4); elsewhere it is independent noise.
TEST(MsPns, SameNoiseWhereMsIsOn) {
  std::vector<Akl32s> l(1024, 0), r(1024, 0);
  Akl32s ltpl[41] = {}, ltpr[41] = {};
  const Akl8u cbl[3] = {13, 13, 1}, cbr[3] = {13, 13, 13};
  const Akl16s nl[3] = {60, 60, 0}, nr[3] = {64, 64, 50};
  Akl8u used[60] = {1, 0, 1};
  Akl32s seed = 99;
  ASSERT_EQ(aklsDecodeMsPNS_AAC_32s(l.data(), r.data(), ltpl, ltpr, cbl, cbr, nl, nr, 1, used, 3, 1, kOneGroup, 4,
                                    1024, &seed),
            kStsOk);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(r[i], 2.0 * l[i], 2.0);
  double dot = 0;
  for (int i = 4; i < 8; ++i) dot += std::fabs(r[i] - 2.0 * l[i]);
  EXPECT_GT(dot, 100.0);  // independent draws
  for (int i = 8; i < 12; ++i) EXPECT_EQ(l[i], 0);
  EXPECT_NEAR(BandEnergy(r, 8, 12) / (64.0 * std::pow(2.0, 25.0)), 1.0, 0.01);
  EXPECT_EQ(aklsDecodeMsPNS_AAC_32s(l.data(), r.data(), ltpl, ltpr, cbl, cbr, nl, nr, 3, used, 3, 1, kOneGroup, 4,
                                    1024, &seed),
            kStsAacMsMaskErr);
}

}  // namespace
