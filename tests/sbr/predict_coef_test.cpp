#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "aklac.h"
#include "sbr/predict_coef.hpp"
#include "../support/test_util.hpp"

namespace {

using cd = std::complex<double>;
constexpr double kUlp = 1.0 / 16777216.0;  // 2^-24, unit roundoff of float is half of it

// Double-precision evaluation of the same formulas (r = 1 - 2^-20, the det
// test as det != 0, C > 0, the |alpha| >= 4 rule), with the quantities the
// tolerance needs.  A real signal is the complex one with zero imaginary parts.
struct Reference {
  cd alpha0, alpha1;
  bool cleared = false;   // the |alpha| >= 4 rule fired
  double m = 0;           // the largest window energy: bounds |A|, |B|, |E|, C, D
  double det = 0, c = 0;
  cd raw0, raw1;          // the coefficients before the rule
};

Reference Evaluate(const std::vector<cd>& x, int len) {
  cd a = 0, b = 0, e = 0;
  double c = 0, d = 0, f = 0;
  for (int n = 0; n < len; ++n) {
    a += x[n + 1] * std::conj(x[n]);
    b += x[n + 2] * std::conj(x[n + 1]);
    e += x[n + 2] * std::conj(x[n]);
    c += std::norm(x[n + 1]);
    d += std::norm(x[n]);
    f += std::norm(x[n + 2]);
  }
  Reference ref;
  ref.m = std::max({c, d, f});
  ref.c = c;
  ref.det = d * c - (1.0 - std::ldexp(1.0, -20)) * std::norm(a);
  const cd a1 = ref.det != 0 ? (b * a - e * c) / ref.det : cd(0);
  const cd a0 = c > 0 ? -(b + a1 * std::conj(a)) / c : cd(0);
  ref.raw0 = a0;
  ref.raw1 = a1;
  ref.cleared = std::norm(a1) >= 16 || std::norm(a0) >= 16;
  ref.alpha0 = ref.cleared ? cd(0) : a0;
  ref.alpha1 = ref.cleared ? cd(0) : a1;
  return ref;
}

// Error bounds for coefficients computed from sums that each carry an
// absolute error of at most eps * M.  For the float members eps is
// (len + 6) * 2^-24: a sum of len rounded terms (each a product or a sum of
// two products, at most 2 roundings) has a relative error of at most
// gamma_{len+2} with respect to the sum of the terms' magnitudes, and by
// Cauchy-Schwarz that sum is at most M.  Then, to first order,
//   |d det| <= eps M (C + D + 2|A|) + 2^-22 M^2 <= 4 eps M^2 + 2^-22 M^2
//   |d (B A - E C)| <= the same
//   |d alpha1| <= (|d num| + |alpha1| |d det|) / |det|
//   |d alpha0| <= (eps M (1 + |alpha1| + |alpha0|) + M |d alpha1|) / C + 2^-22 |alpha0|
// The test allows twice that.  Where |d det| is not small against det (an
// ill-conditioned subband) the first-order bound does not hold and the band
// is not compared; `Usable` says so.
struct Tolerance {
  double alpha0 = 0, alpha1 = 0;
  bool usable = false;
};

// `rounding` is the relative rounding of the products of sums (2^-24 for the
// float members, 0 for the fixed-point ones, which form them exactly).
Tolerance Bounds(const Reference& ref, double eps, double rounding = kUlp) {
  Tolerance t;
  const double m = ref.m;
  const double d_det = 4 * eps * m * m + 4 * rounding * m * m;
  if (ref.c <= 0 || std::abs(ref.det) <= 4 * d_det) return t;
  const double d1 = (d_det + std::abs(ref.raw1) * d_det) / std::abs(ref.det);
  const double d0 = (eps * m * (1 + std::abs(ref.raw1) + std::abs(ref.raw0)) + m * d1) / ref.c +
                    4 * rounding * std::abs(ref.raw0);
  t.alpha1 = 2 * d1 + 1e-30;
  t.alpha0 = 2 * d0 + 1e-30;
  // A coefficient within its tolerance of 4 may be cleared or not.
  const double r1 = std::abs(ref.raw1), r0 = std::abs(ref.raw0);
  t.usable = std::abs(r1 - 4) > t.alpha1 && std::abs(r0 - 4) > t.alpha0;
  return t;
}

double FloatEps(int len) { return (len + 6) * kUlp; }

// Test signals: white noise, stable second-order resonances driven by noise,
// noisy tones, at amplitudes from 1e-4 to 1e4; complex when `complex`.
std::vector<cd> Signal(std::mt19937& rng, int n, bool complex) {
  std::normal_distribution<double> g(0, 1);
  std::uniform_real_distribution<double> u(0, 1);
  const double amp = std::pow(10.0, -4 + 8 * u(rng));
  const int kind = static_cast<int>(rng() % 3);
  std::vector<cd> x(static_cast<size_t>(n));
  const double rho = 0.3 + 0.65 * u(rng), w = 3.14159 * u(rng);
  const cd p1 = std::polar(rho, w), p2 = complex ? std::polar(rho * 0.8, -2 * w) : std::conj(p1);
  const cd a0 = -(p1 + p2), a1 = p1 * p2;
  for (int i = 0; i < n; ++i) {
    const cd noise(g(rng), complex ? g(rng) : 0.0);
    if (kind == 0) {
      x[i] = noise;
    } else if (kind == 1) {
      cd v = noise;
      if (i >= 1) v -= a0 * x[i - 1];
      if (i >= 2) v -= a1 * x[i - 2];
      x[i] = complex ? v : cd(v.real(), 0);
    } else {
      const cd tone = complex ? std::polar(1.0, w * i) : cd(std::cos(w * i), 0);
      x[i] = tone + 0.01 * noise;
    }
  }
  for (auto& v : x) v *= amp;
  return x;
}

// Rows of `bands` subbands over len + 2 slots, band-major signals.
struct Field {
  int bands, len;
  std::vector<std::vector<cd>> band;  // [k][n], after rounding to float
  std::vector<std::vector<float>> re, im;
  std::vector<std::vector<Akl32fc>> cplx;
  std::vector<const Akl32f*> re_rows, im_rows;
  std::vector<const Akl32fc*> cplx_rows;

  Field(std::mt19937& rng, int bands_, int len_, bool complex) : bands(bands_), len(len_) {
    const int slots = len + 2;
    re.assign(static_cast<size_t>(slots), std::vector<float>(static_cast<size_t>(bands)));
    im = re;
    cplx.assign(static_cast<size_t>(slots), std::vector<Akl32fc>(static_cast<size_t>(bands)));
    for (int k = 0; k < bands; ++k) {
      std::vector<cd> x = Signal(rng, slots, complex);
      for (int n = 0; n < slots; ++n) {
        const float r = static_cast<float>(x[n].real()), i = static_cast<float>(x[n].imag());
        re[n][k] = r;
        im[n][k] = i;
        cplx[n][k] = {r, i};
        x[n] = cd(r, i);
      }
      band.push_back(x);
    }
    for (int n = 0; n < slots; ++n) {
      re_rows.push_back(re[n].data());
      im_rows.push_back(im[n].data());
      cplx_rows.push_back(cplx[n].data());
    }
  }
};

const int kBandCounts[] = {1, 3, 4, 5, 8, 11, 32, 64};
const int kLens[] = {1, 2, 3, 8, 16, 38};

// Compares one subband's result with the reference; returns whether the band was usable.
bool ExpectNear(const Reference& ref, const Tolerance& tol, cd got0, cd got1) {
  if (!tol.usable) return false;
  EXPECT_LE(std::abs(got1 - ref.alpha1), tol.alpha1) << "alpha1 " << got1 << " ref " << ref.alpha1;
  EXPECT_LE(std::abs(got0 - ref.alpha0), tol.alpha0) << "alpha0 " << got0 << " ref " << ref.alpha0;
  return true;
}

TEST(PredictCoef, RealMatchesDoubleReference) {
  std::mt19937 rng(akl::test::TestSeed());
  int usable = 0, total = 0;
  for (int bands : kBandCounts) {
    for (int len : kLens) {
      SCOPED_TRACE(testing::Message() << "bands " << bands << " len " << len);
      Field f(rng, bands, len, false);
      std::vector<float> a0(static_cast<size_t>(bands) + 1, 99.0f), a1(static_cast<size_t>(bands) + 1, 99.0f);
      ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(f.re_rows.data(), a0.data(), a1.data(), bands, len));
      EXPECT_EQ(99.0f, a0[bands]);
      EXPECT_EQ(99.0f, a1[bands]);
      for (int k = 0; k < bands; ++k) {
        SCOPED_TRACE(k);
        const Reference ref = Evaluate(f.band[k], len);
        usable += ExpectNear(ref, Bounds(ref, FloatEps(len)), a0[k], a1[k]);
        ++total;
      }
    }
  }
  // Most subbands are well conditioned; the rest only dilute the check.
  EXPECT_GT(usable, total * 3 / 4) << usable << " of " << total;
}

TEST(PredictCoef, ComplexMembersMatchDoubleReferenceAndEachOther) {
  std::mt19937 rng(akl::test::TestSeed() + 1);
  int usable = 0, total = 0;
  for (int bands : kBandCounts) {
    for (int len : kLens) {
      SCOPED_TRACE(testing::Message() << "bands " << bands << " len " << len);
      Field f(rng, bands, len, true);
      const size_t nb = static_cast<size_t>(bands) + 1;
      std::vector<float> a0r(nb, 99.0f), a0i(nb, 99.0f), a1r(nb, 99.0f), a1i(nb, 99.0f);
      std::vector<Akl32fc> c0(nb, Akl32fc{99.0f, 99.0f}), c1(nb, Akl32fc{99.0f, 99.0f});
      ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32f_D2L(f.re_rows.data(), f.im_rows.data(), a0r.data(), a0i.data(),
                                                      a1r.data(), a1i.data(), bands, len));
      ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(f.cplx_rows.data(), c0.data(), c1.data(), bands, len));
      EXPECT_EQ(99.0f, a0r[bands]);
      EXPECT_EQ(99.0f, a1i[bands]);
      EXPECT_EQ(99.0f, c0[bands].re);
      EXPECT_EQ(99.0f, c1[bands].im);
      for (int k = 0; k < bands; ++k) {
        SCOPED_TRACE(k);
        // The two layouts run the same arithmetic: identical bits.
        EXPECT_EQ(0, std::memcmp(&c0[k].re, &a0r[k], 4));
        EXPECT_EQ(0, std::memcmp(&c0[k].im, &a0i[k], 4));
        EXPECT_EQ(0, std::memcmp(&c1[k].re, &a1r[k], 4));
        EXPECT_EQ(0, std::memcmp(&c1[k].im, &a1i[k], 4));
        const Reference ref = Evaluate(f.band[k], len);
        // Complex products and the reciprocals add a few roundings: twice the real eps.
        usable += ExpectNear(ref, Bounds(ref, 2 * FloatEps(len)), cd(a0r[k], a0i[k]), cd(a1r[k], a1i[k]));
        ++total;
      }
    }
  }
  EXPECT_GT(usable, total * 3 / 4) << usable << " of " << total;
}

// A subband computed in a vector lane gets the same bits as when it is the
// only subband (the scalar path): call again with the rows shifted by k.
TEST(PredictCoef, VectorLanesEqualScalarPath) {
  std::mt19937 rng(akl::test::TestSeed() + 2);
  for (bool complex : {false, true}) {
    const int bands = 13, len = 19;
    Field f(rng, bands, len, complex);
    std::vector<float> a0(bands), a1(bands);
    std::vector<Akl32fc> c0(bands), c1(bands);
    ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(f.re_rows.data(), a0.data(), a1.data(), bands, len));
    ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(f.cplx_rows.data(), c0.data(), c1.data(), bands, len));
    for (int k = 0; k < bands; ++k) {
      std::vector<const Akl32f*> rows;
      std::vector<const Akl32fc*> crows;
      for (int n = 0; n < len + 2; ++n) {
        rows.push_back(f.re_rows[n] + k);
        crows.push_back(f.cplx_rows[n] + k);
      }
      float s0, s1;
      Akl32fc t0, t1;
      ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows.data(), &s0, &s1, 1, len));
      ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(crows.data(), &t0, &t1, 1, len));
      EXPECT_EQ(0, std::memcmp(&s0, &a0[k], 4)) << k;
      EXPECT_EQ(0, std::memcmp(&s1, &a1[k], 4)) << k;
      EXPECT_EQ(0, std::memcmp(&t0, &c0[k], 8)) << k;
      EXPECT_EQ(0, std::memcmp(&t1, &c1[k], 8)) << k;
    }
  }
}

TEST(PredictCoef, RIsOneUlpAboveNearestToOneOverOnePlusMillionth) {
  std::uint32_t bits;
  std::memcpy(&bits, &akl::sbr::kDetR, 4);
  EXPECT_EQ(0x3F7FFFF0u, bits);
  const float nearest = static_cast<float>(1.0 / (1.0 + 1e-6));
  EXPECT_EQ(std::nextafter(nearest, 2.0f), akl::sbr::kDetR);
}

// Sequences that follow x_{n+2} = -a0 x_{n+1} - a1 x_n exactly: the
// predictor recovers (a0, a1) unless one of them reaches magnitude 4, and
// then both are cleared.  A complex version rotates x_n by e^{i n theta},
// which rotates the coefficients and keeps their magnitudes.
struct Recurrence {
  double a0, a1;
  bool cleared;
  int len;  // short where one root dominates, to keep det well conditioned
};
const Recurrence kRecurrences[] = {
    {-1.0, -4.5, true, 6},   // only alpha1 too big: alpha0 is cleared with it
    {-1.0, -3.9, false, 6},  //
    {-4.5, 0.5, true, 6},    // only alpha0 too big
    {-3.9 * 0.9800665778412416, 3.8025, false, 16},  // 1.95^n cos(0.2 n): both just below 4
    {-6.0 * 0.5403023058681398, 9.0, true, 8},  // the growing tone 3^n cos(n): |alpha1| = 9
    {0.5, 0.25, false, 8},
};

std::vector<cd> RecurrenceSignal(const Recurrence& r, int slots, double theta) {
  std::vector<cd> x(static_cast<size_t>(slots));
  x[0] = 1.0;
  x[1] = -0.7;
  for (int n = 2; n < slots; ++n) x[n] = -r.a0 * x[n - 1] - r.a1 * x[n - 2];
  const double peak = std::abs(x[slots - 1]) + std::abs(x[slots - 2]);
  for (int n = 0; n < slots; ++n) x[n] *= std::polar(1000.0 / peak, theta * n);
  return x;
}

TEST(PredictCoef, MagnitudeFourClearsBothCoefficients) {
  for (const Recurrence& r : kRecurrences) {
    const int len = r.len, slots = len + 2;
    for (double theta : {0.0, 0.7}) {
      SCOPED_TRACE(testing::Message() << "a0 " << r.a0 << " a1 " << r.a1 << " theta " << theta);
      const std::vector<cd> x = RecurrenceSignal(r, slots, theta);
      std::vector<float> re(slots), im(slots);
      std::vector<Akl32fc> c(slots);
      std::vector<const Akl32f*> re_rows, im_rows;
      std::vector<const Akl32fc*> c_rows;
      for (int n = 0; n < slots; ++n) {
        re[n] = static_cast<float>(x[n].real());
        im[n] = static_cast<float>(x[n].imag());
        c[n] = {re[n], im[n]};
      }
      for (int n = 0; n < slots; ++n) {
        re_rows.push_back(&re[n]);
        im_rows.push_back(&im[n]);
        c_rows.push_back(&c[n]);
      }
      // The float data, in double, for the reference.
      std::vector<cd> xf(slots);
      for (int n = 0; n < slots; ++n) xf[n] = cd(re[n], im[n]);
      const Reference ref = Evaluate(xf, len);
      ASSERT_EQ(r.cleared, ref.cleared);
      Akl32fc c0{9, 9}, c1{9, 9};
      ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(c_rows.data(), &c0, &c1, 1, len));
      if (r.cleared) {
        EXPECT_TRUE(c0.re == 0 && c0.im == 0 && c1.re == 0 && c1.im == 0);
      } else {
        // The fit is exact, but one root dominates these fast-growing
        // sequences: r and the float sums move the result visibly, so the
        // comparison is with the double evaluation and its bound.
        const Tolerance tol = Bounds(ref, 2 * FloatEps(len));
        ASSERT_TRUE(tol.usable);
        ExpectNear(ref, tol, cd(c0.re, c0.im), cd(c1.re, c1.im));
        EXPECT_NEAR(std::abs(ref.alpha0), std::abs(r.a0), 0.05);
        EXPECT_NEAR(std::abs(ref.alpha1), std::abs(r.a1), 0.05);
      }
      if (theta == 0.0) {
        float a0 = 9, a1 = 9;
        ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(re_rows.data(), &a0, &a1, 1, len));
        if (r.cleared) {
          EXPECT_TRUE(a0 == 0 && a1 == 0);
        } else {
          ExpectNear(ref, Bounds(ref, FloatEps(len)), cd(a0), cd(a1));
        }
      }
    }
  }
}

TEST(PredictCoef, SilentAndDegenerateSubbandsGiveZero) {
  // All zero; only the first history slot set (C = 0, det = 0); only the
  // last slot set (C = D = 0).
  const int len = 4, slots = len + 2;
  for (int which : {-1, 0, slots - 1}) {
    SCOPED_TRACE(which);
    std::vector<float> x(slots, 0.0f);
    if (which >= 0) x[which] = 3.0f;
    std::vector<const Akl32f*> rows;
    std::vector<Akl32fc> c(slots);
    std::vector<const Akl32fc*> crows;
    for (int n = 0; n < slots; ++n) {
      rows.push_back(&x[n]);
      c[n] = {x[n], -x[n]};
      crows.push_back(&c[n]);
    }
    float a0 = 9, a1 = 9;
    ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows.data(), &a0, &a1, 1, len));
    EXPECT_EQ(0.0f, a0);
    EXPECT_EQ(0.0f, a1);
    Akl32fc c0{9, 9}, c1{9, 9};
    ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(crows.data(), &c0, &c1, 1, len));
    EXPECT_TRUE(c0.re == 0 && c0.im == 0 && c1.re == 0 && c1.im == 0);
  }
  // A constant subband: consecutive slots proportional, so D*C = A^2 and only
  // r keeps det away from zero; alpha1 = 0 and alpha0 = -1 exactly.
  std::vector<float> k(slots, 0.25f);
  std::vector<const Akl32f*> rows;
  for (auto& v : k) rows.push_back(&v);
  float a0 = 9, a1 = 9;
  ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows.data(), &a0, &a1, 1, len));
  EXPECT_EQ(-1.0f, a0);
  EXPECT_EQ(0.0f, a1);
}

// Silent subbands in vector lanes and in the scalar tail raise no
// division-by-zero flag (a caller may run with that exception trapped).
TEST(PredictCoef, SilentSubbandsDivideByNothingZero) {
  const int bands = 5, len = 4;
  std::vector<float> zeros(bands, 0.0f);
  std::vector<Akl32fc> czeros(bands, Akl32fc{0, 0});
  std::vector<const Akl32f*> rows(len + 2, zeros.data());
  std::vector<const Akl32fc*> crows(len + 2, czeros.data());
  std::vector<float> a0(bands, 9), a1(bands, 9), b0(bands, 9), b1(bands, 9);
  std::vector<Akl32fc> c0(bands), c1(bands);
  std::feclearexcept(FE_ALL_EXCEPT);
  ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows.data(), a0.data(), a1.data(), bands, len));
  ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(crows.data(), c0.data(), c1.data(), bands, len));
  ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32f_D2L(rows.data(), rows.data(), a0.data(), a1.data(), b0.data(),
                                                  b1.data(), bands, len));
  EXPECT_FALSE(std::fetestexcept(FE_DIVBYZERO | FE_INVALID));
  for (int k = 0; k < bands; ++k) {
    EXPECT_TRUE(a0[k] == 0 && a1[k] == 0 && b0[k] == 0 && b1[k] == 0);
    EXPECT_TRUE(c0[k].re == 0 && c0[k].im == 0 && c1[k].re == 0 && c1[k].im == 0);
  }
}

// A determinant whose square underflows counts as zero: tiny samples give
// det around 1e-40, det^2 = 0 in float, so alpha1 = 0 while alpha0 is formed.
TEST(PredictCoef, DeterminantSquareUnderflowCountsAsZero) {
  const int len = 3;
  const float x[len + 2] = {1e-10f, -2e-10f, 3e-10f, 1e-10f, -1e-10f};
  std::vector<const Akl32f*> rows;
  for (const float& v : x) rows.push_back(&v);
  float a0 = 9, a1 = 9;
  ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows.data(), &a0, &a1, 1, len));
  EXPECT_EQ(0.0f, a1);
  // alpha0 = -B/C with alpha1 = 0, computed in double from the same floats.
  double b = 0, c = 0;
  for (int n = 1; n <= len; ++n) {
    b += static_cast<double>(x[n]) * x[n + 1];
    c += static_cast<double>(x[n]) * x[n];
  }
  EXPECT_NEAR(-b / c, a0, 1e-5);
  EXPECT_NE(0.0f, a0);
}

TEST(PredictCoef, StatusesAndNothingToDo) {
  float row[4] = {1, 2, 3, 4};
  const Akl32f* rows[6] = {row, row, row, row, row, row};
  Akl32fc crow[4] = {};
  const Akl32fc* crows[6] = {crow, crow, crow, crow, crow, crow};
  float o0 = 7, o1 = 7, o2 = 7, o3 = 7;
  Akl32fc c0{7, 7}, c1{7, 7};
  EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_R_32f_D2L(nullptr, &o0, &o1, 1, 4));
  EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_R_32f_D2L(rows, nullptr, &o1, 1, 4));
  EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_R_32f_D2L(rows, &o0, nullptr, 1, 4));
  EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_R_32f_D2L(nullptr, &o0, &o1, 0, 0));
  EXPECT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows, &o0, &o1, 1, 0));
  EXPECT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows, &o0, &o1, 0, 4));
  EXPECT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows, &o0, &o1, -1, -1));
  const Akl32f** r = rows;
  for (int missing = 0; missing < 6; ++missing) {
    EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_C_32f_D2L(missing == 0 ? nullptr : r, missing == 1 ? nullptr : r,
                                                         missing == 2 ? nullptr : &o0, missing == 3 ? nullptr : &o1,
                                                         missing == 4 ? nullptr : &o2, missing == 5 ? nullptr : &o3,
                                                         0, 0))
        << missing;
  }
  EXPECT_EQ(kStsOk, aklsPredictCoef_SBR_C_32f_D2L(r, r, &o0, &o1, &o2, &o3, 1, 0));
  EXPECT_EQ(kStsOk, aklsPredictCoef_SBR_C_32f_D2L(r, r, &o0, &o1, &o2, &o3, 0, 1));
  EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_C_32fc_D2L(nullptr, &c0, &c1, 1, 4));
  EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_C_32fc_D2L(crows, nullptr, &c1, 1, 4));
  EXPECT_EQ(kStsNullPtr, aklsPredictCoef_SBR_C_32fc_D2L(crows, &c0, nullptr, 0, 0));
  EXPECT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(crows, &c0, &c1, 1, 0));
  EXPECT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(crows, &c0, &c1, 0, 1));
  for (float v : {o0, o1, o2, o3, c0.re, c0.im, c1.re, c1.im}) EXPECT_EQ(7.0f, v);
}

// The determinant's r matters: for nearly proportional slots (x = 1, 2, 4,
// 8 + 2^-6, 16; every sum exact in float) D*C - A^2 = 5/4096, and r adds
// 2^-20 A^2 = 0.0017 to it.  With r the coefficients are (-0.4875, -3.025);
// with r = 1 alpha1 would be -7.2 and both would be cleared.
const float kNearlyProportional[] = {1.0f, 2.0f, 4.0f, 8.015625f, 16.0f};

TEST(PredictCoef, DeterminantConstantMatters) {
  std::vector<const Akl32f*> rows;
  for (const float& v : kNearlyProportional) rows.push_back(&v);
  float a0 = 9, a1 = 9;
  ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rows.data(), &a0, &a1, 1, 3));
  // r*A^2 rounds by at most 2^-13 / 2 against det = 0.0029: a 2 % error at most.
  EXPECT_NEAR(-3.0250022738656615, a1, 0.06);
  EXPECT_NEAR(-0.48751599801857753, a0, 0.06);
}

// Fixed-point members ------------------------------------------------------------

constexpr double kQ29 = 536870912.0;

// Each band scaled to a peak of 2^peak_bits, rounded to integers.
std::vector<std::vector<Akl32s>> ToIntRows(const std::vector<std::vector<cd>>& bands, bool imag, int peak_bits) {
  const size_t slots = bands[0].size();
  std::vector<std::vector<Akl32s>> rows(slots, std::vector<Akl32s>(bands.size()));
  for (size_t k = 0; k < bands.size(); ++k) {
    double peak = 0;
    for (const cd& v : bands[k]) peak = std::max({peak, std::abs(v.real()), std::abs(v.imag())});
    const double scale = std::ldexp(1.0, peak_bits) / peak;
    for (size_t n = 0; n < slots; ++n) {
      const double v = std::nearbyint((imag ? bands[k][n].imag() : bands[k][n].real()) * scale);
      rows[n][k] = static_cast<Akl32s>(std::clamp(v, -2147483648.0, 2147483647.0));
    }
  }
  return rows;
}

// Integer signals of 2^8 .. 2^30 peak, low-power and high-quality members
// against the double evaluation of the same integers and against the float
// members fed the same values (exact in float below 2^24, so those runs only).
// The fixed-point sums are exact and then rounded once to 31 bits of the
// largest: eps = 2^-30 per sum (2^-29 allowed), plus half a Q29 step per
// coefficient and its effect through alpha1 on alpha0.
TEST(PredictOneCoef, FixedPointMatchesDoubleAndFloatMembers) {
  std::mt19937 rng(akl::test::TestSeed() + 3);
  int usable = 0, total = 0;
  for (bool complex : {false, true}) {
    for (int len : kLens) {
      for (int peak_bits : {8, 16, 23, 30}) {
        SCOPED_TRACE(testing::Message() << "complex " << complex << " len " << len << " peak 2^" << peak_bits);
        const int bands = 5, slots = len + 2;
        std::vector<std::vector<cd>> sig;
        for (int k = 0; k < bands; ++k) sig.push_back(Signal(rng, slots, complex));
        const auto re = ToIntRows(sig, false, peak_bits), im = ToIntRows(sig, true, peak_bits);
        std::vector<std::vector<Akl32sc>> cs(static_cast<size_t>(slots), std::vector<Akl32sc>(bands));
        std::vector<std::vector<Akl32fc>> cf(static_cast<size_t>(slots), std::vector<Akl32fc>(bands));
        std::vector<std::vector<float>> rf(static_cast<size_t>(slots), std::vector<float>(bands));
        std::vector<const Akl32s*> re_rows;
        std::vector<const Akl32sc*> cs_rows;
        std::vector<const Akl32fc*> cf_rows;
        std::vector<const Akl32f*> rf_rows;
        for (int n = 0; n < slots; ++n) {
          for (int k = 0; k < bands; ++k) {
            cs[n][k] = {re[n][k], im[n][k]};
            cf[n][k] = {static_cast<float>(re[n][k]), static_cast<float>(im[n][k])};
            rf[n][k] = static_cast<float>(re[n][k]);
          }
          re_rows.push_back(re[n].data());
          cs_rows.push_back(cs[n].data());
          cf_rows.push_back(cf[n].data());
          rf_rows.push_back(rf[n].data());
        }
        std::vector<float> f0(bands), f1(bands);
        std::vector<Akl32fc> g0(bands), g1(bands);
        ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_R_32f_D2L(rf_rows.data(), f0.data(), f1.data(), bands, len));
        ASSERT_EQ(kStsOk, aklsPredictCoef_SBR_C_32fc_D2L(cf_rows.data(), g0.data(), g1.data(), bands, len));
        for (int k = 0; k < bands; ++k) {
          SCOPED_TRACE(k);
          std::vector<cd> x(static_cast<size_t>(slots));
          for (int n = 0; n < slots; ++n) x[n] = cd(re[n][k], complex ? im[n][k] : 0);
          const Reference ref = Evaluate(x, len);
          Tolerance fixed_tol = Bounds(ref, std::ldexp(1.0, -29), 0.0);
          fixed_tol.alpha1 += 1 / kQ29;
          fixed_tol.alpha0 += 1 / kQ29 + (ref.c > 0 ? std::sqrt(ref.m) / std::sqrt(ref.c) : 0) / kQ29;
          cd fixed0, fixed1, float0, float1;
          if (complex) {
            Akl32sc a0{7, 7}, a1{7, 7};
            ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRHQ_32sc_D2L(cs_rows.data(), &a0, &a1, k, len));
            fixed0 = cd(a0.re, a0.im) / kQ29;
            fixed1 = cd(a1.re, a1.im) / kQ29;
            float0 = cd(g0[k].re, g0[k].im);
            float1 = cd(g1[k].re, g1[k].im);
          } else {
            Akl32s a0 = 7, a1 = 7;
            ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRLP_32s_D2L(re_rows.data(), &a0, &a1, k, len));
            fixed0 = a0 / kQ29;
            fixed1 = a1 / kQ29;
            float0 = f0[k];
            float1 = f1[k];
          }
          ++total;
          if (!ExpectNear(ref, fixed_tol, fixed0, fixed1)) continue;
          ++usable;
          if (peak_bits <= 23) {
            const Tolerance float_tol = Bounds(ref, (complex ? 2 : 1) * FloatEps(len));
            if (float_tol.usable) {
              EXPECT_LE(std::abs(fixed0 - float0), fixed_tol.alpha0 + float_tol.alpha0);
              EXPECT_LE(std::abs(fixed1 - float1), fixed_tol.alpha1 + float_tol.alpha1);
            }
          }
        }
      }
    }
  }
  EXPECT_GT(usable, total * 3 / 4) << usable << " of " << total;
}

// Full-scale samples do not overflow: constant and sign-alternating
// subbands (exact predictors -1 and +1), and complex ones turning by i.
TEST(PredictOneCoef, FullScaleSamples) {
  const int len = 64, slots = len + 2;
  std::vector<Akl32s> constant(slots, INT32_MIN), alternating(slots);
  std::vector<Akl32sc> c_constant(slots, Akl32sc{INT32_MIN, INT32_MIN}), c_turning(slots);
  const Akl32sc quarter[4] = {{INT32_MAX, 0}, {0, INT32_MAX}, {-INT32_MAX, 0}, {0, -INT32_MAX}};
  for (int n = 0; n < slots; ++n) {
    alternating[n] = (n & 1) ? -INT32_MAX : INT32_MAX;
    c_turning[n] = quarter[n % 4];
  }
  const struct {
    const std::vector<Akl32s>* x;
    Akl32s alpha0;
  } real_cases[] = {{&constant, -(1 << 29)}, {&alternating, 1 << 29}};
  for (const auto& c : real_cases) {
    std::vector<const Akl32s*> rows;
    for (const Akl32s& v : *c.x) rows.push_back(&v);
    Akl32s a0 = 7, a1 = 7;
    ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRLP_32s_D2L(rows.data(), &a0, &a1, 0, len));
    EXPECT_EQ(c.alpha0, a0);
    EXPECT_EQ(0, a1);
  }
  const struct {
    const std::vector<Akl32sc>* x;
    Akl32sc alpha0;
  } complex_cases[] = {{&c_constant, {-(1 << 29), 0}}, {&c_turning, {0, -(1 << 29)}}};  // -1 and -i
  for (const auto& c : complex_cases) {
    std::vector<const Akl32sc*> rows;
    for (const Akl32sc& v : *c.x) rows.push_back(&v);
    Akl32sc a0{7, 7}, a1{7, 7};
    ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRHQ_32sc_D2L(rows.data(), &a0, &a1, 0, len));
    EXPECT_EQ(c.alpha0.re, a0.re);
    EXPECT_EQ(c.alpha0.im, a0.im);
    EXPECT_EQ(0, a1.re);
    EXPECT_EQ(0, a1.im);
  }
}

// The |alpha| >= 4 rule, zero subbands and the determinant constant, as in
// the float members.
TEST(PredictOneCoef, RuleZeroAndDeterminantConstant) {
  for (const Recurrence& r : kRecurrences) {
    for (double theta : {0.0, 0.7}) {
      SCOPED_TRACE(testing::Message() << "a0 " << r.a0 << " a1 " << r.a1 << " theta " << theta);
      const int len = r.len, slots = len + 2;
      const std::vector<cd> x = RecurrenceSignal(r, slots, theta);
      std::vector<Akl32s> xr(slots);
      std::vector<Akl32sc> xc(slots);
      std::vector<cd> xi(slots);
      for (int n = 0; n < slots; ++n) {
        // Peak about 2^29.
        xr[n] = static_cast<Akl32s>(std::nearbyint(x[n].real() * 2.5e5));
        xc[n] = {xr[n], static_cast<Akl32s>(std::nearbyint(x[n].imag() * 2.5e5))};
        xi[n] = cd(xc[n].re, xc[n].im);
      }
      std::vector<const Akl32s*> rows;
      std::vector<const Akl32sc*> crows;
      for (int n = 0; n < slots; ++n) {
        rows.push_back(&xr[n]);
        crows.push_back(&xc[n]);
      }
      const Reference ref = Evaluate(xi, len);
      ASSERT_EQ(r.cleared, ref.cleared);
      Akl32sc a0{7, 7}, a1{7, 7};
      ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRHQ_32sc_D2L(crows.data(), &a0, &a1, 0, len));
      // Exact sums: only the final 31-bit scaling and the Q29 rounding differ from double.
      EXPECT_NEAR(ref.alpha0.real(), a0.re / kQ29, 1e-6);
      EXPECT_NEAR(ref.alpha0.imag(), a0.im / kQ29, 1e-6);
      EXPECT_NEAR(ref.alpha1.real(), a1.re / kQ29, 1e-6);
      EXPECT_NEAR(ref.alpha1.imag(), a1.im / kQ29, 1e-6);
      if (theta == 0.0) {
        Akl32s b0 = 7, b1 = 7;
        ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRLP_32s_D2L(rows.data(), &b0, &b1, 0, len));
        EXPECT_EQ(a0.re, b0);
        EXPECT_EQ(a1.re, b1);
      }
    }
  }
  // Zero and degenerate subbands.
  for (int which : {-1, 0, 5}) {
    std::vector<Akl32s> x(6, 0);
    if (which >= 0) x[which] = 1000;
    std::vector<const Akl32s*> rows;
    for (const Akl32s& v : x) rows.push_back(&v);
    Akl32s a0 = 7, a1 = 7;
    ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRLP_32s_D2L(rows.data(), &a0, &a1, 0, 4));
    EXPECT_EQ(0, a0);
    EXPECT_EQ(0, a1);
  }
  // The nearly proportional subband, times 64: exact integers.
  std::vector<Akl32s> x;
  for (float v : kNearlyProportional) x.push_back(static_cast<Akl32s>(v * 64));
  std::vector<const Akl32s*> rows;
  for (const Akl32s& v : x) rows.push_back(&v);
  Akl32s a0 = 7, a1 = 7;
  ASSERT_EQ(kStsOk, aklsPredictOneCoef_SBRLP_32s_D2L(rows.data(), &a0, &a1, 0, 3));
  EXPECT_NEAR(-3.0250022738656615, a1 / kQ29, 4e-9);
  EXPECT_NEAR(-0.48751599801857753, a0 / kQ29, 4e-9);
}

TEST(PredictOneCoef, StatusesInCheckOrder) {
  Akl32s row[2] = {1, 2};
  const Akl32s* rows[4] = {row, row, row, row};
  Akl32sc crow[2] = {};
  const Akl32sc* crows[4] = {crow, crow, crow, crow};
  Akl32s o0 = 7, o1 = 7;
  Akl32sc c0{7, 7}, c1{7, 7};
  EXPECT_EQ(kStsNullPtr, aklsPredictOneCoef_SBRLP_32s_D2L(nullptr, &o0, &o1, 0, 2));
  EXPECT_EQ(kStsNullPtr, aklsPredictOneCoef_SBRLP_32s_D2L(rows, nullptr, &o1, 0, 2));
  EXPECT_EQ(kStsNullPtr, aklsPredictOneCoef_SBRLP_32s_D2L(rows, &o0, nullptr, -1, 0));
  EXPECT_EQ(kStsBadArgErr, aklsPredictOneCoef_SBRLP_32s_D2L(rows, &o0, &o1, -1, 2));
  EXPECT_EQ(kStsBadArgErr, aklsPredictOneCoef_SBRLP_32s_D2L(rows, &o0, &o1, -1, 0));
  EXPECT_EQ(kStsOk, aklsPredictOneCoef_SBRLP_32s_D2L(rows, &o0, &o1, 1, 0));
  EXPECT_EQ(kStsOk, aklsPredictOneCoef_SBRLP_32s_D2L(rows, &o0, &o1, 1, -5));
  EXPECT_EQ(kStsNullPtr, aklsPredictOneCoef_SBRHQ_32sc_D2L(nullptr, &c0, &c1, 0, 2));
  EXPECT_EQ(kStsNullPtr, aklsPredictOneCoef_SBRHQ_32sc_D2L(crows, nullptr, &c1, 0, 2));
  EXPECT_EQ(kStsNullPtr, aklsPredictOneCoef_SBRHQ_32sc_D2L(crows, &c0, nullptr, -1, 0));
  EXPECT_EQ(kStsBadArgErr, aklsPredictOneCoef_SBRHQ_32sc_D2L(crows, &c0, &c1, -1, 2));
  EXPECT_EQ(kStsBadArgErr, aklsPredictOneCoef_SBRHQ_32sc_D2L(crows, &c0, &c1, -1, 0));
  EXPECT_EQ(kStsOk, aklsPredictOneCoef_SBRHQ_32sc_D2L(crows, &c0, &c1, 1, 0));
  for (Akl32s v : {o0, o1, c0.re, c0.im, c1.re, c1.im}) EXPECT_EQ(7, v);
}

}  // namespace
