// The decoder's Main and LTP tools: the per-frame scale of the spectra, the
// saved state of a repeated spectral stage, the history and its reset, and a
// failing frame that leaves the spectrum as it was.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "aacdec/prediction.hpp"

namespace {

AklAACIcsInfo LongIcs(int max_sfb) {
  AklAACIcsInfo ics{};
  ics.maxSfb = max_sfb;
  ics.predictorDataPresent = 1;
  for (int b = 0; b < 41; ++b) ics.predictionUsed[b] = 1;
  ics.numWindowGroups = 1;
  ics.windowGroupLength[0] = 1;
  return ics;
}

// A frame in the standard's scale (the predictors' input).
std::vector<float> Frame(std::mt19937& rng, int f) {
  std::vector<float> x(1024);
  std::normal_distribution<double> g(0.0, 25.0);
  for (int i = 0; i < 1024; ++i) x[static_cast<std::size_t>(i)] = static_cast<float>(1000 * std::sin(0.3 * f * (i % 7 + 1)) + g(rng));
  return x;
}

// The same input written to spectra at shift 0 and at shift -2 (lines four
// times larger): the predicted lines agree within the rounding of the coarser
// scale, the predictions are not trivial, and a band without prediction
// keeps the caller's lines.
TEST(PredictionTools, MainFollowsTheChannelScale) {
  aacdec::PredictionTools a, b;
  ASSERT_TRUE(a.Configure(1, 4));
  ASSERT_TRUE(b.Configure(1, 4));
  EXPECT_EQ(a.pred_sfb_max(), 40);
  std::mt19937 rng(5);
  AklAACIcsInfo ics = LongIcs(40);
  ics.predictionUsed[10] = 0;  // lines 40..47 at 44.1 kHz
  Akl8u cb[64];
  std::memset(cb, 1, sizeof(cb));
  long changed = 0;
  for (int f = 0; f < 30; ++f) {
    std::vector<float> xa = Frame(rng, f), xb = xa;
    std::vector<Akl32s> sa(1024, 12345), sb(1024, 4 * 12345);
    ASSERT_EQ(a.Predict(0, xa.data(), sa.data(), 0, ics, cb), kStsOk);
    ASSERT_EQ(b.Predict(0, xb.data(), sb.data(), -2, ics, cb), kStsOk);
    EXPECT_EQ(xa, xb);
    for (int i = 0; i < 1024; ++i) {
      const std::size_t k = static_cast<std::size_t>(i);
      ASSERT_LE(std::abs(sb[k] - 4 * sa[k]), 2) << f << " " << i;
      if (sa[k] != 12345) {
        ++changed;
        ASSERT_EQ(sa[k], static_cast<Akl32s>(std::nearbyint(xa[k] * 8.0))) << f << " " << i;
      }
      if ((i >= 40 && i < 48) || i >= 672) {
        ASSERT_EQ(sa[k], 12345) << f << " " << i;
      }
    }
  }
  EXPECT_GT(changed, 5000);
}

// Save, predict, restore, predict again: the second result is the first.
TEST(PredictionTools, RestoreRepeatsAFrame) {
  aacdec::PredictionTools t;
  ASSERT_TRUE(t.Configure(1, 3));
  std::mt19937 rng(6);
  const AklAACIcsInfo ics = LongIcs(30);
  Akl8u cb[64];
  std::memset(cb, 2, sizeof(cb));
  std::vector<Akl32s> spec(1024);
  for (int f = 0; f < 5; ++f) {
    std::vector<float> x = Frame(rng, f);
    ASSERT_EQ(t.Predict(3, x.data(), spec.data(), 1, ics, cb), kStsOk);
  }
  const std::vector<float> in = Frame(rng, 5);
  std::vector<float> first = in, second = in;
  std::vector<Akl32s> s1(1024, 0), s2(1024, 0);
  t.Save(3);
  ASSERT_EQ(t.Predict(3, first.data(), s1.data(), 1, ics, cb), kStsOk);
  t.Restore(3);
  ASSERT_EQ(t.Predict(3, second.data(), s2.data(), 1, ics, cb), kStsOk);
  EXPECT_EQ(first, second);
  EXPECT_EQ(s1, s2);
  EXPECT_NE(first, in);
}

// A reset group out of range: the library's status, the spectrum untouched.
TEST(PredictionTools, BadResetGroupLeavesTheFrame) {
  aacdec::PredictionTools t;
  ASSERT_TRUE(t.Configure(1, 4));
  AklAACIcsInfo ics = LongIcs(20);
  ics.predictorReset = 1;
  ics.predictorResetGroupNum = 31;
  Akl8u cb[64] = {};
  std::vector<Akl32s> x(1024, 77);
  std::vector<float> in(1024, 9.5f);
  EXPECT_EQ(t.Predict(0, in.data(), x.data(), 0, ics, cb), kStsBadArgErr);
  EXPECT_EQ(x, std::vector<Akl32s>(1024, 77));
  // Other object types leave everything alone.
  aacdec::PredictionTools lc;
  ASSERT_TRUE(lc.Configure(2, 4));
  EXPECT_EQ(lc.Predict(0, in.data(), x.data(), 0, LongIcs(20), cb), kStsOk);
  EXPECT_EQ(x, std::vector<Akl32s>(1024, 77));
  EXPECT_EQ(aacdec::PredictionTools::reader_object_type(4), 4);
  EXPECT_EQ(aacdec::PredictionTools::reader_object_type(5), 2);
}

// LTP: nothing before any history; after one frame of output, the estimate
// equals the library's own chain, scaled to the channel's shift; a reset
// history predicts nothing again; a lag beyond the history is refused.
TEST(PredictionTools, LongTermPredictionUsesTheHistory) {
  aacdec::PredictionTools t;
  ASSERT_TRUE(t.Configure(4, 3));
  AklAACIcsInfo ics = LongIcs(40);
  AklAACLtpData ltp{};
  ltp.ltpDataPresent = 1;
  ltp.ltpLag = 300;
  ltp.ltpCoef = 16137;
  for (int b = 0; b < 41; ++b) ltp.longUsed[b] = 1;
  AklAACChanInfo tns{};
  Akl8s coef[64] = {};
  std::vector<Akl32s> spec(1024, 0);
  ASSERT_EQ(t.ApplyLtp(1, spec.data(), 0, ltp, ics, tns, coef, 0), kStsOk);
  EXPECT_EQ(spec, std::vector<Akl32s>(1024, 0));

  std::vector<float> out(1024), ov(1024);
  for (int i = 0; i < 1024; ++i) {
    out[static_cast<std::size_t>(i)] = 3000.0f * std::sin(0.05f * static_cast<float>(i));
    ov[static_cast<std::size_t>(i)] = 1000.0f * std::cos(0.02f * static_cast<float>(i));
  }
  t.Update(1, out.data(), ov.data());
  // The same history through the library directly.
  std::vector<Akl32s> hist(3072, 0);
  for (int i = 0; i < 1024; ++i) {
    hist[static_cast<std::size_t>(2048 + i)] = static_cast<Akl32s>(std::lround(ov[static_cast<std::size_t>(i)] * 8.0));
    hist[static_cast<std::size_t>(1024 + i)] = static_cast<Akl32s>(std::lround(out[static_cast<std::size_t>(i)] * 8.0));
  }
  AklsMDCTSpec_AAC_32s* mdct = nullptr;
  ASSERT_EQ(aklsMDCTInitAlloc_AAC_32s(&mdct), kStsOk);
  std::vector<Akl32s> est(1024);
  ASSERT_EQ(aklsLongTermPredict_AAC_32s(hist.data(), est.data(), &ltp, 0, 0, 1, mdct), kStsOk);
  aklsMDCTFree_AAC_32s(mdct);
  std::vector<Akl32s> at0(1024, 0), at2(1024, 0);
  ASSERT_EQ(t.ApplyLtp(1, at0.data(), 0, ltp, ics, tns, coef, 1), kStsOk);
  ASSERT_EQ(t.ApplyLtp(1, at2.data(), 2, ltp, ics, tns, coef, 1), kStsOk);
  long nonzero = 0;
  for (int i = 0; i < 1024; ++i) {
    const bool coded = i < 672;  // bands below min(maxSfb, 40) at 48 kHz
    // The history's halves may round the other way (ties): a unit or two.
    EXPECT_LE(std::abs(at0[static_cast<std::size_t>(i)] - (coded ? est[static_cast<std::size_t>(i)] : 0)), 2) << i;
    if (!coded) {
      EXPECT_EQ(at0[static_cast<std::size_t>(i)], 0) << i;
    }
    EXPECT_LE(std::abs(at2[static_cast<std::size_t>(i)] * 4 - at0[static_cast<std::size_t>(i)]), 2) << i;
    nonzero += at0[static_cast<std::size_t>(i)] != 0;
  }
  EXPECT_GT(nonzero, 500);

  ltp.ltpLag = 4000;  // only 11 bits in a stream; a caller's value beyond the history
  std::vector<Akl32s> keep(1024, 5);
  EXPECT_EQ(t.ApplyLtp(1, keep.data(), 0, ltp, ics, tns, coef, 1), kStsBadArgErr);
  EXPECT_EQ(keep, std::vector<Akl32s>(1024, 5));
  ltp.ltpLag = 300;
  t.Reset(1);
  std::vector<Akl32s> after(1024, 0);
  ASSERT_EQ(t.ApplyLtp(1, after.data(), 0, ltp, ics, tns, coef, 1), kStsOk);
  EXPECT_EQ(after, std::vector<Akl32s>(1024, 0));
}

}  // namespace
