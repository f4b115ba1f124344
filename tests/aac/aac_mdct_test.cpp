// The AAC filter bank against a double-precision evaluation of the same
// definitions (windows, sequences, overlap), and forward-then-inverse
// reconstruction across sequence changes; the long-term predictor against
// the same double evaluation; argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"

namespace {

constexpr double kPi = 3.14159265358979323846;

double I0(double x) {
  double s = 1, t = 1;
  for (int k = 1; k < 80; ++k) {
    t *= (x / (2 * k)) * (x / (2 * k));
    s += t;
  }
  return s;
}
// Rising half of a window of full length n.
std::vector<double> Rise(int n, int shape) {
  std::vector<double> w(static_cast<std::size_t>(n / 2));
  if (shape == 0) {
    for (int i = 0; i < n / 2; ++i) w[static_cast<std::size_t>(i)] = std::sin(kPi / n * (i + 0.5));
    return w;
  }
  const double alpha = n == 2048 ? 4.0 : 6.0;
  std::vector<double> k(static_cast<std::size_t>(n / 2 + 1));
  double total = 0;
  for (int j = 0; j <= n / 2; ++j) {
    const double r = (j - n / 4.0) / (n / 4.0);
    total += k[static_cast<std::size_t>(j)] = I0(kPi * alpha * std::sqrt(1.0 - r * r));
  }
  double acc = 0;
  for (int i = 0; i < n / 2; ++i) w[static_cast<std::size_t>(i)] = std::sqrt((acc += k[static_cast<std::size_t>(i)]) / total);
  return w;
}

// The window of a frame over 2048 samples (eight short: each block's own).
std::vector<double> LongWindow(int seq, int shape, int prev) {
  const auto rl = Rise(2048, shape), rlp = Rise(2048, prev), rs = Rise(256, shape), rsp = Rise(256, prev);
  std::vector<double> w(2048);
  for (int n = 0; n < 1024; ++n)
    w[static_cast<std::size_t>(n)] = seq == 3 ? (n < 448 ? 0 : n < 576 ? rsp[static_cast<std::size_t>(n - 448)] : 1) : rlp[static_cast<std::size_t>(n)];
  for (int n = 0; n < 1024; ++n)
    w[static_cast<std::size_t>(1024 + n)] = seq == 1 ? (n < 448 ? 1 : n < 576 ? rs[static_cast<std::size_t>(575 - n)] : 0) : rl[static_cast<std::size_t>(1023 - n)];
  return w;
}

// Direct evaluation of the definitions in double precision.
std::vector<double> Imdct(const double* x, int n) {
  std::vector<double> y(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    double s = 0;
    for (int k = 0; k < n / 2; ++k) s += x[k] * std::cos(2 * kPi / n * (i + 0.5 + n / 4.0) * (k + 0.5));
    y[static_cast<std::size_t>(i)] = 2.0 / n * s;
  }
  return y;
}
std::vector<double> Mdct(const double* z, int n) {
  std::vector<double> X(static_cast<std::size_t>(n / 2));
  for (int k = 0; k < n / 2; ++k) {
    double s = 0;
    for (int i = 0; i < n; ++i) s += z[i] * std::cos(2 * kPi / n * (i + 0.5 + n / 4.0) * (k + 0.5));
    X[static_cast<std::size_t>(k)] = 2 * s;
  }
  return X;
}

// One frame of the double filter bank: 1024 output values, overlap updated.
std::vector<double> RefInverse(const std::vector<Akl32s>& spec, std::vector<double>& ov, int seq, int shape, int prev) {
  std::vector<double> z(2048, 0.0);
  if (seq == 2) {
    const auto rs = Rise(256, shape), rsp = Rise(256, prev);
    for (int j = 0; j < 8; ++j) {
      std::vector<double> x(spec.begin() + 128 * j, spec.begin() + 128 * j + 128);
      const auto y = Imdct(x.data(), 256);
      for (int n = 0; n < 128; ++n) z[static_cast<std::size_t>(448 + 128 * j + n)] += y[static_cast<std::size_t>(n)] * (j ? rs : rsp)[static_cast<std::size_t>(n)];
      for (int n = 0; n < 128; ++n) z[static_cast<std::size_t>(576 + 128 * j + n)] += y[static_cast<std::size_t>(128 + n)] * rs[static_cast<std::size_t>(127 - n)];
    }
  } else {
    std::vector<double> x(spec.begin(), spec.end());
    const auto y = Imdct(x.data(), 2048);
    const auto w = LongWindow(seq, shape, prev);
    for (int n = 0; n < 2048; ++n) z[static_cast<std::size_t>(n)] = y[static_cast<std::size_t>(n)] * w[static_cast<std::size_t>(n)];
  }
  std::vector<double> out(1024);
  for (int n = 0; n < 1024; ++n) {
    out[static_cast<std::size_t>(n)] = z[static_cast<std::size_t>(n)] + ov[static_cast<std::size_t>(n)];
    ov[static_cast<std::size_t>(n)] = z[static_cast<std::size_t>(1024 + n)];
  }
  return out;
}

std::vector<double> RefForward(const std::vector<double>& x, int seq, int shape, int prev) {
  std::vector<double> out(1024);
  if (seq == 2) {
    const auto rs = Rise(256, shape), rsp = Rise(256, prev);
    for (int j = 0; j < 8; ++j) {
      std::vector<double> z(256);
      for (int n = 0; n < 128; ++n) z[static_cast<std::size_t>(n)] = x[static_cast<std::size_t>(448 + 128 * j + n)] * (j ? rs : rsp)[static_cast<std::size_t>(n)];
      for (int n = 0; n < 128; ++n) z[static_cast<std::size_t>(128 + n)] = x[static_cast<std::size_t>(576 + 128 * j + n)] * rs[static_cast<std::size_t>(127 - n)];
      const auto X = Mdct(z.data(), 256);
      std::copy(X.begin(), X.end(), out.begin() + 128 * j);
    }
    return out;
  }
  const auto w = LongWindow(seq, shape, prev);
  std::vector<double> z(2048);
  for (int n = 0; n < 2048; ++n) z[static_cast<std::size_t>(n)] = x[static_cast<std::size_t>(n)] * w[static_cast<std::size_t>(n)];
  return Mdct(z.data(), 2048);
}

struct SpecHolder {
  AklsMDCTSpec_AAC_32s* spec = nullptr;
  SpecHolder() { EXPECT_EQ(aklsMDCTInitAlloc_AAC_32s(&spec), kStsOk); }
  ~SpecHolder() { EXPECT_EQ(aklsMDCTFree_AAC_32s(spec), kStsOk); }
};

// Sequences in a legal order with both shapes.
const int kSeqs[] = {0, 1, 2, 2, 3, 0, 0, 1, 2, 3, 0};

// Inverse: Q3 spectra of full-scale music-like levels (a 16-bit sample is 8
// Q3 units; coefficients up to 2^20).  Single-precision arithmetic keeps a
// relative error near 2^-24 per operation, growing with the square root of
// the 11 FFT stages and the 1024-term sums: on outputs up to about 2^18 Q3
// that is a few Q3 units, so the bounds are 8 Q3 units (one 16-bit step)
// for any sample and 2 for the RMS, and the 16-bit output may differ from
// the rounded double result by at most 1.
TEST(AacMdct, InverseMatchesDoubleEvaluation) {
  SpecHolder h;
  std::mt19937 rng(akl::test::TestSeed());
  std::normal_distribution<double> g(0.0, 1.0);
  std::vector<Akl32s> ov32(1024, 0), ov16(1024, 0);
  std::vector<double> ovd(1024, 0.0);
  int prev = 0;
  double max_err = 0, sum_sq = 0;
  int max16 = 0;
  long count = 0;
  for (int f = 0; f < static_cast<int>(std::size(kSeqs)); ++f) {
    const int seq = kSeqs[f], shape = f % 3 == 1;
    std::vector<Akl32s> spec(1024);
    for (int k = 0; k < 1024; ++k) {
      const double env = seq == 2 ? 60000.0 / (1 + (k % 128)) : 250000.0 / (1 + k / 8);
      spec[static_cast<std::size_t>(k)] = static_cast<Akl32s>(std::lround(g(rng) * env));
    }
    const auto want = RefInverse(spec, ovd, seq, shape, prev);
    std::vector<Akl32s> got = spec;
    std::vector<Akl16s> pcm(1024);
    ASSERT_EQ(aklsMDCTInv_AAC_32s_I(got.data(), ov32.data(), seq, shape, prev, h.spec), kStsOk);
    ASSERT_EQ(aklsMDCTInv_AAC_32s16s(spec.data(), pcm.data(), ov16.data(), seq, shape, prev, h.spec), kStsOk);
    for (int n = 0; n < 1024; ++n) {
      const double w = want[static_cast<std::size_t>(n)];
      const double e = std::fabs(got[static_cast<std::size_t>(n)] - w);
      max_err = std::max(max_err, e);
      sum_sq += e * e;
      ++count;
      const double w16 = std::clamp(std::round(w / 8), -32768.0, 32767.0);
      max16 = std::max(max16, static_cast<int>(std::fabs(pcm[static_cast<std::size_t>(n)] - w16)));
    }
    prev = shape;
  }
  EXPECT_LE(max_err, 8.0);
  EXPECT_LE(std::sqrt(sum_sq / static_cast<double>(count)), 2.0);
  EXPECT_LE(max16, 1);
}

// Forward: random 2048-sample blocks at 16-bit levels in Q3; outputs reach
// about 2^24, so the bound is relative: 2^-17 of the block's largest
// coefficient, a few float ulps of it.
TEST(AacMdct, ForwardMatchesDoubleEvaluation) {
  SpecHolder h;
  std::mt19937 rng(akl::test::TestSeed() + 1);
  std::uniform_int_distribution<int> u(-32768 * 8, 32767 * 8);
  for (int seq = 0; seq < 4; ++seq) {
    for (int shape = 0; shape < 2; ++shape) {
      std::vector<Akl32s> x(2048);
      for (auto& v : x) v = u(rng);
      const std::vector<double> xd(x.begin(), x.end());
      const auto want = RefForward(xd, seq, shape, 1 - shape);
      std::vector<Akl32s> got(1024);
      ASSERT_EQ(aklsMDCTFwd_AAC_32s(x.data(), got.data(), seq, shape, 1 - shape, h.spec), kStsOk);
      double peak = 0, max_err = 0;
      for (int k = 0; k < 1024; ++k) {
        peak = std::max(peak, std::fabs(want[static_cast<std::size_t>(k)]));
        max_err = std::max(max_err, std::fabs(got[static_cast<std::size_t>(k)] - want[static_cast<std::size_t>(k)]));
      }
      EXPECT_LE(max_err, peak / 131072.0) << "sequence " << seq << " shape " << shape;
      // The in-place form gives the same numbers.
      std::vector<Akl32s> in_place = x;
      ASSERT_EQ(aklsMDCTFwd_AAC_32s_I(in_place.data(), seq, shape, 1 - shape, h.spec), kStsOk);
      EXPECT_TRUE(std::equal(got.begin(), got.end(), in_place.begin()));
    }
  }
}

// Forward transforms of overlapping 2048-sample stretches of a signal, each
// with its sequence's window, then the inverse with overlap-add: the signal
// comes back one frame late, within 2 Q3 units (rounding of the coefficients
// and of the overlap, a quarter of a 16-bit step).
TEST(AacMdct, ForwardThenInverseReconstructs) {
  SpecHolder h;
  std::mt19937 rng(akl::test::TestSeed() + 2);
  std::uniform_int_distribution<int> u(-100000, 100000);
  const int frames = static_cast<int>(std::size(kSeqs));
  std::vector<Akl32s> signal(static_cast<std::size_t>(1024 * (frames + 1)));
  for (auto& v : signal) v = u(rng);
  std::vector<Akl32s> ov(1024, 0);
  int prev = 0, worst = 0;
  for (int f = 0; f < frames; ++f) {
    const int seq = kSeqs[f], shape = (f / 2) & 1;
    std::vector<Akl32s> spec(1024);
    ASSERT_EQ(aklsMDCTFwd_AAC_32s(signal.data() + 1024 * f, spec.data(), seq, shape, prev, h.spec), kStsOk);
    ASSERT_EQ(aklsMDCTInv_AAC_32s_I(spec.data(), ov.data(), seq, shape, prev, h.spec), kStsOk);
    if (f > 0)
      for (int n = 0; n < 1024; ++n)
        worst = std::max(worst, std::abs(spec[static_cast<std::size_t>(n)] - signal[static_cast<std::size_t>(1024 * f + n)]));
    prev = shape;
  }
  EXPECT_LE(worst, 2);
}

TEST(AacMdct, SaturatesAndBuildsAnywhere) {
  SpecHolder h;
  std::vector<Akl32s> spec(1024, 0), ov(1024, 0);
  spec[0] = 2000000000;  // far beyond 16 bits after the transform
  std::vector<Akl16s> pcm(1024, 5);
  ASSERT_EQ(aklsMDCTInv_AAC_32s16s(spec.data(), pcm.data(), ov.data(), 0, 0, 0, h.spec), kStsOk);
  EXPECT_EQ(*std::max_element(pcm.begin(), pcm.end()), 32767);
  EXPECT_EQ(*std::min_element(pcm.begin(), pcm.end()), -32768);

  std::vector<Akl8u> junk(4096, 0);
  auto* bad = reinterpret_cast<const AklsMDCTSpec_AAC_32s*>(junk.data());
  EXPECT_EQ(aklsMDCTFree_AAC_32s(const_cast<AklsMDCTSpec_AAC_32s*>(bad)), kStsContextMismatch);
  EXPECT_EQ(aklsMDCTFree_AAC_32s(nullptr), kStsNullPtr);
  EXPECT_EQ(aklsMDCTGetSize_AAC_32s(nullptr), kStsNullPtr);
  // Caller memory at an odd address builds and works the same.
  int size = 0;
  ASSERT_EQ(aklsMDCTGetSize_AAC_32s(&size), kStsOk);
  std::vector<Akl8u> mem(static_cast<std::size_t>(size) + 1);
  auto* own = reinterpret_cast<AklsMDCTSpec_AAC_32s*>(mem.data() + 1);
  ASSERT_EQ(aklsMDCTInit_AAC_32s(own), kStsOk);
  std::vector<Akl32s> x(2048, 1000), a(1024), b(1024);
  ASSERT_EQ(aklsMDCTFwd_AAC_32s(x.data(), a.data(), 0, 1, 1, own), kStsOk);
  ASSERT_EQ(aklsMDCTFwd_AAC_32s(x.data(), b.data(), 0, 1, 1, h.spec), kStsOk);
  EXPECT_EQ(a, b);
  AklsMDCTSpec_AAC_32s* none = nullptr;
  EXPECT_EQ(akl::test::SweepAllocationFailures([&] { return aklsMDCTInitAlloc_AAC_32s(&none); }, [] {}), kStsOk);
  EXPECT_EQ(aklsMDCTFree_AAC_32s(none), kStsOk);
}

// Long-term prediction: the estimate against the double evaluation (gain,
// lag, zero tail, window, transform), the band-wise addition exactly, the
// history update exactly, and the checks.
TEST(Ltp, PredictReconstructUpdate) {
  SpecHolder h;
  std::mt19937 rng(akl::test::TestSeed() + 3);
  std::uniform_int_distribution<int> u(-200000, 200000);
  std::vector<Akl32s> hist(3072);
  for (auto& v : hist) v = u(rng);
  const Akl16s coefs[] = {9352, 14931, 22438, 12000};  // three codes of the standard's table, one other value
  const double gains[] = {0.570829, 0.911304, 1.369533, 12000.0 / 16384};
  const int lags[] = {0, 1, 700, 1023, 1024, 2047};
  for (int lag : lags) {
    for (int ci = 0; ci < 4; ++ci) {
      AklAACLtpData d{};
      d.ltpDataPresent = 1;
      d.ltpLag = lag;
      d.ltpCoef = coefs[ci];
      const int seq = ci == 1 ? 1 : ci == 2 ? 3 : 0;  // long, long-start, long-stop
      std::vector<double> e(2048, 0.0);
      for (int i = 0; i < std::min(2048, 1024 + lag); ++i)
        e[static_cast<std::size_t>(i)] = gains[ci] * hist[static_cast<std::size_t>(i + 2048 - lag)];
      const auto want = RefForward(e, seq, 1, 0);
      std::vector<Akl32s> got(1024);
      ASSERT_EQ(aklsLongTermPredict_AAC_32s(hist.data(), got.data(), &d, seq, 1, 0, h.spec), kStsOk);
      double peak = 0, max_err = 0;
      for (int k = 0; k < 1024; ++k) {
        peak = std::max(peak, std::fabs(want[static_cast<std::size_t>(k)]));
        max_err = std::max(max_err, std::fabs(got[static_cast<std::size_t>(k)] - want[static_cast<std::size_t>(k)]));
      }
      EXPECT_LE(max_err, peak / 131072.0 + 1.0) << "lag " << lag << " gain " << coefs[ci];
    }
  }
  // Reconstruction at 44.1 kHz: bands 0 and 2 used, 1 not; maxSfb 3.
  std::vector<Akl32s> est(1024, 5), spec(1024, 100);
  Akl32s used[41] = {1, 1, 0, 1};
  est[4] = INT32_MAX;
  ASSERT_EQ(aklsLongTermReconstruct_AAC_32s(est.data(), spec.data(), used, 3, 4), kStsOk);
  EXPECT_EQ(spec[0], 105);   // band 0 (lines 0..3)
  EXPECT_EQ(spec[4], 100);   // band 1 unused
  EXPECT_EQ(spec[8], 105);   // band 2
  EXPECT_EQ(spec[12], 100);  // band 3 is maxSfb: not touched
  spec.assign(1024, 100);
  used[2] = 1;
  ASSERT_EQ(aklsLongTermReconstruct_AAC_32s(est.data(), spec.data(), used, 3, 4), kStsOk);
  EXPECT_EQ(spec[4], INT32_MAX);  // saturated
  used[0] = 0;
  spec.assign(1024, 100);
  ASSERT_EQ(aklsLongTermReconstruct_AAC_32s(est.data(), spec.data(), used, 3, 4), kStsOk);
  EXPECT_EQ(spec[0], 100);  // no LTP data: nothing added

  std::vector<Akl32s> frame(1024, 7), ovl(1024, 8), hh = hist;
  ASSERT_EQ(aklsLtpUpdate_AAC_32s(hh.data(), frame.data(), ovl.data()), kStsOk);
  EXPECT_TRUE(std::equal(hh.begin(), hh.begin() + 1024, hist.begin() + 1024));
  EXPECT_EQ(hh[1024], 7);
  EXPECT_EQ(hh[3071], 8);

  // Checks, in order; nothing written on failure.
  AklAACLtpData d{};
  d.ltpLag = 2048;
  d.ltpCoef = 9352;
  std::vector<Akl32s> out(1024, 9);
  EXPECT_EQ(aklsLongTermPredict_AAC_32s(nullptr, out.data(), &d, 9, 0, 0, h.spec), kStsNullPtr);
  EXPECT_EQ(aklsLongTermPredict_AAC_32s(hist.data(), out.data(), &d, 2, 0, 0, h.spec), kStsAacWinSeqErr);
  EXPECT_EQ(aklsLongTermPredict_AAC_32s(hist.data(), out.data(), &d, 0, 2, 0, h.spec), kStsBadArgErr);
  EXPECT_EQ(aklsLongTermPredict_AAC_32s(hist.data(), out.data(), &d, 0, 0, 0, h.spec), kStsBadArgErr);
  d.ltpLag = -1;
  EXPECT_EQ(aklsLongTermPredict_AAC_32s(hist.data(), out.data(), &d, 0, 0, 0, h.spec), kStsBadArgErr);
  d.ltpLag = 10;
  std::vector<Akl8u> junk(4096, 0);
  EXPECT_EQ(aklsLongTermPredict_AAC_32s(hist.data(), out.data(), &d, 0, 0, 0,
                                        reinterpret_cast<const AklsMDCTSpec_AAC_32s*>(junk.data())),
            kStsContextMismatch);
  EXPECT_EQ(out[0], 9);
  EXPECT_EQ(aklsLongTermReconstruct_AAC_32s(est.data(), nullptr, used, 3, 4), kStsNullPtr);
  EXPECT_EQ(aklsLongTermReconstruct_AAC_32s(est.data(), spec.data(), used, 52, 12), kStsAacMaxSfbErr);
  EXPECT_EQ(aklsLongTermReconstruct_AAC_32s(est.data(), spec.data(), used, 3, 12), kStsAacSmpRateIdxErr);
  EXPECT_EQ(aklsLongTermReconstruct_AAC_32s(est.data(), spec.data(), used, 50, 4), kStsAacMaxSfbErr);
  EXPECT_EQ(aklsLtpUpdate_AAC_32s(hh.data(), nullptr, ovl.data()), kStsNullPtr);
}

}  // namespace
