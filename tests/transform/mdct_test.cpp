// General MDCT: every length against the cosine sums in double precision,
// the 16-bit transform against the float one, sizes, check orders, the
// context life cycle and allocation failures.
#include <gtest/gtest.h>

#include <climits>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"
#include "transform/mdct.hpp"

namespace {

std::vector<int> AllLengths() {
  std::vector<int> v = {12, 36};
  for (int n = 32; n <= 8192; n *= 2) v.push_back(n);
  return v;
}

// cos(2 pi / N (n + 1/2 + N/4)(k + 1/2)) = cos(2 pi (2n + 1 + N/2)(2k + 1) / 4N),
// so one table of 4N cosines in double serves every (n, k).
struct CosineSums {
  int n;
  std::vector<double> cos4n;
  explicit CosineSums(int len) : n(len), cos4n(static_cast<std::size_t>(4 * len)) {
    for (int i = 0; i < 4 * len; ++i) cos4n[static_cast<std::size_t>(i)] = std::cos(2.0 * M_PI * i / (4.0 * len));
  }
  double C(int t, int k) const {
    const long long idx = (static_cast<long long>(2 * t + 1 + n / 2) * (2 * k + 1)) % (4LL * n);
    return cos4n[static_cast<std::size_t>(idx)];
  }
  std::vector<double> Forward(const std::vector<float>& x) const {
    std::vector<double> y(static_cast<std::size_t>(n / 2), 0.0);
    for (int k = 0; k < n / 2; ++k) {
      double s = 0;
      for (int t = 0; t < n; ++t) s += x[static_cast<std::size_t>(t)] * C(t, k);
      y[static_cast<std::size_t>(k)] = 2.0 * s;
    }
    return y;
  }
  std::vector<double> Inverse(const std::vector<float>& x) const {
    std::vector<double> y(static_cast<std::size_t>(n), 0.0);
    for (int t = 0; t < n; ++t) {
      double s = 0;
      for (int k = 0; k < n / 2; ++k) s += x[static_cast<std::size_t>(k)] * C(t, k);
      y[static_cast<std::size_t>(t)] = 2.0 / n * s;
    }
    return y;
  }
};

double RelRms(const float* got, const std::vector<double>& want) {
  double err = 0, ref = 0;
  for (std::size_t i = 0; i < want.size(); ++i) {
    err += (got[i] - want[i]) * (got[i] - want[i]);
    ref += want[i] * want[i];
  }
  return std::sqrt(err / ref);
}

std::vector<float> Random(int n, std::mt19937& rng) {
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  std::vector<float> v(static_cast<std::size_t>(n));
  for (auto& x : v) x = d(rng);
  return v;
}

// Single-precision rounding of inputs, twiddles and about log2(N) butterfly
// levels gives a relative RMS error of a few 1e-7; 3e-6 is the bound, where
// a wrong index or twiddle gives errors near 1.
constexpr double kMdctTolerance = 3e-6;

TEST(Mdct, EveryLengthMatchesCosineSums) {
  std::mt19937 rng(akl::test::TestSeed());
  std::printf("%6s %12s %12s\n", "N", "fwd relRMS", "inv relRMS");
  for (int n : AllLengths()) {
    SCOPED_TRACE(n);
    const CosineSums ref(n);
    MDCTFwdSpec_32f* fwd = nullptr;
    MDCTInvSpec_32f* inv = nullptr;
    ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, n), kStsOk);
    ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, n), kStsOk);
    double worst_fwd = 0, worst_inv = 0;
    for (int trial = 0; trial < 3; ++trial) {
      const auto x = Random(n, rng);
      std::vector<float> y(static_cast<std::size_t>(n / 2));
      ASSERT_EQ(aklsMDCTFwd_32f(x.data(), y.data(), fwd, nullptr), kStsOk);
      worst_fwd = std::max(worst_fwd, RelRms(y.data(), ref.Forward(x)));
      const auto c = Random(n / 2, rng);
      std::vector<float> t(static_cast<std::size_t>(n));
      ASSERT_EQ(aklsMDCTInv_32f(c.data(), t.data(), inv, nullptr), kStsOk);
      worst_inv = std::max(worst_inv, RelRms(t.data(), ref.Inverse(c)));
    }
    std::printf("%6d %12.3g %12.3g\n", n, worst_fwd, worst_inv);
    EXPECT_LT(worst_fwd, kMdctTolerance);
    EXPECT_LT(worst_inv, kMdctTolerance);
    EXPECT_EQ(aklsMDCTFwdFree_32f(fwd), kStsOk);
    EXPECT_EQ(aklsMDCTInvFree_32f(inv), kStsOk);
  }
}

TEST(Mdct, InitInCallerMemoryAtEveryOffsetAndInPlace) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int n : {12, 36, 32, 64, 256, 2048, 8192}) {
    for (int offset : {0, 1, 63}) {
      SCOPED_TRACE(testing::Message() << n << " offset " << offset);
      int s = 0, i = 0, b = 0;
      ASSERT_EQ(aklsMDCTInvGetSize_32f(n, &s, &i, &b), kStsOk);
      // Exactly the reported sizes from an odd start: ASan flags any overrun.
      std::vector<Akl8u> fmem(static_cast<std::size_t>(s + offset)), imem(static_cast<std::size_t>(s + offset));
      std::vector<Akl8u> init(static_cast<std::size_t>(i + offset + 1)), buf(static_cast<std::size_t>(b + offset));
      // Powers of two want a non-null scratch pointer even when its size is 0.
      Akl8u* ip = (n == 12 || n == 36) ? nullptr : init.data() + offset;
      MDCTFwdSpec_32f* fwd = nullptr;
      MDCTInvSpec_32f* inv = nullptr;
      ASSERT_EQ(aklsMDCTFwdInit_32f(&fwd, n, fmem.data() + offset, ip), kStsOk);
      ASSERT_EQ(aklsMDCTInvInit_32f(&inv, n, imem.data() + offset, ip), kStsOk);
      int bs = 0;
      ASSERT_EQ(aklsMDCTFwdGetBufSize_32f(fwd, &bs), kStsOk);
      // The context records 128 bytes less than GetSize reports for powers
      // of two (64 + 4N + FFT work against 192 + 4N + FFT work), 64 less for 12 and 36.
      EXPECT_EQ(bs, b - ((n == 12 || n == 36) ? 64 : 128));

      const auto x = Random(n, rng);
      std::vector<float> y(static_cast<std::size_t>(n / 2));
      ASSERT_EQ(aklsMDCTFwd_32f(x.data(), y.data(), fwd, buf.data() + offset), kStsOk);
      std::vector<float> inplace = x;
      ASSERT_EQ(aklsMDCTFwd_32f_I(inplace.data(), fwd, nullptr), kStsOk);
      for (int k = 0; k < n / 2; ++k) ASSERT_EQ(inplace[static_cast<std::size_t>(k)], y[static_cast<std::size_t>(k)]);

      std::vector<float> t(static_cast<std::size_t>(n));
      ASSERT_EQ(aklsMDCTInv_32f(y.data(), t.data(), inv, buf.data() + offset), kStsOk);
      std::vector<float> inv_in_place(static_cast<std::size_t>(n));
      std::copy(y.begin(), y.end(), inv_in_place.begin());
      ASSERT_EQ(aklsMDCTInv_32f_I(inv_in_place.data(), inv, buf.data() + offset), kStsOk);
      EXPECT_EQ(inv_in_place, t);
      // Free of an Init context invalidates it and releases nothing.
      const int live = akl::test::LiveAllocations();
      EXPECT_EQ(aklsMDCTFwdFree_32f(fwd), kStsOk);
      EXPECT_EQ(akl::test::LiveAllocations(), live);
      EXPECT_EQ(aklsMDCTFwd_32f(x.data(), y.data(), fwd, nullptr), kStsContextMismatch);
      EXPECT_EQ(aklsMDCTFwdFree_32f(fwd), kStsContextMismatch);
    }
  }
}

TEST(Mdct, ImpulsesOfLength32) {
  MDCTFwdSpec_32f* fwd = nullptr;
  MDCTInvSpec_32f* inv = nullptr;
  ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, 32), kStsOk);
  ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, 32), kStsOk);
  std::vector<float> x(32, 0.0f), y(32, 0.0f);
  x[0] = 1.0f;
  ASSERT_EQ(aklsMDCTFwd_32f(x.data(), y.data(), fwd, nullptr), kStsOk);
  for (int k = 0; k < 16; ++k) EXPECT_NEAR(y[k], 2 * std::cos(2 * M_PI / 32 * 8.5 * (k + 0.5)), 2e-6) << k;
  ASSERT_EQ(aklsMDCTInv_32f(x.data(), y.data(), inv, nullptr), kStsOk);
  for (int t = 0; t < 32; ++t) EXPECT_NEAR(y[t], 2.0 / 32 * std::cos(2 * M_PI / 32 * (t + 8.5) * 0.5), 1e-7) << t;
  aklsMDCTFwdFree_32f(fwd);
  aklsMDCTInvFree_32f(inv);
}

TEST(Mdct, SizesOfTheShortLengthsAndThe16BitRule) {
  for (auto get_size : {aklsMDCTFwdGetSize_32f, aklsMDCTInvGetSize_32f}) {
    int s = -1, i = -1, b = -1;
    ASSERT_EQ(get_size(12, &s, &i, &b), kStsOk);
    EXPECT_EQ(s, 24 + 168);
    EXPECT_EQ(i, 0);
    EXPECT_EQ(b, 128 + 48);
    ASSERT_EQ(get_size(36, &s, &i, &b), kStsOk);
    EXPECT_EQ(s, 72 + 168);
    EXPECT_EQ(b, 128 + 144);
    ASSERT_EQ(get_size(256, &s, &i, &b), kStsOk);  // FFT order 6: 960 bytes, no scratch
    EXPECT_EQ(s, 960 + 64 + 512 + 168);
    EXPECT_EQ(i, 0);
    EXPECT_EQ(b, 64 + 128 + 1024);
  }
  int s = -1, i = -1, b = -1;
  ASSERT_EQ(aklsMDCTFwdGetSize_16s(32, &s, &i, &b), kStsOk);  // 16-bit FFT order 3
  EXPECT_EQ(s, 320 + 232 + 32);
  EXPECT_EQ(i, 128);
  EXPECT_EQ(b, 128 + 64 + 32);
}

TEST(Mdct, StatusesAndCheckOrders) {
  int s = 0, i = 0, b = 0;
  Akl8u mem[4096];
  MDCTFwdSpec_32f* fwd = nullptr;
  MDCTFwdSpec_16s* f16 = nullptr;
  const struct {
    int len;
    Status flt, s16;
  } kLens[] = {{12, kStsOk, kStsSizeErr}, {36, kStsOk, kStsSizeErr}, {16, kStsSizeErr, kStsSizeErr},
               {24, kStsSizeErr, kStsSizeErr}, {32, kStsOk, kStsOk}, {48, kStsSizeErr, kStsSizeErr},
               {0, kStsSizeErr, kStsSizeErr}, {-32, kStsSizeErr, kStsSizeErr}};
  for (const auto& r : kLens) {
    SCOPED_TRACE(r.len);
    EXPECT_EQ(aklsMDCTFwdGetSize_32f(r.len, &s, &i, &b), r.flt);
    EXPECT_EQ(aklsMDCTInvGetSize_32f(r.len, &s, &i, &b), r.flt);
    EXPECT_EQ(aklsMDCTFwdGetSize_16s(r.len, &s, &i, &b), r.s16);
  }
  // GetSize: pointers first.  Float Init: length first.  16-bit Init: pointers first.
  EXPECT_EQ(aklsMDCTFwdGetSize_32f(24, nullptr, &i, &b), kStsNullPtr);
  EXPECT_EQ(aklsMDCTInvGetSize_32f(24, &s, &i, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsMDCTFwdGetSize_16s(12, &s, nullptr, &b), kStsNullPtr);
  EXPECT_EQ(aklsMDCTFwdInit_32f(nullptr, 24, nullptr, nullptr), kStsSizeErr);
  EXPECT_EQ(aklsMDCTFwdInit_32f(&fwd, 64, mem, nullptr), kStsNullPtr);   // powers of two need init memory
  EXPECT_EQ(aklsMDCTFwdInit_32f(&fwd, 12, mem, nullptr), kStsOk);        // 12 and 36 do not
  EXPECT_EQ(aklsMDCTFwdInit_16s(nullptr, 24, mem, mem), kStsNullPtr);
  EXPECT_EQ(aklsMDCTFwdInit_16s(&f16, 24, mem, mem), kStsSizeErr);
  EXPECT_EQ(aklsMDCTFwdInitAlloc_32f(nullptr, 24), kStsNullPtr);
  EXPECT_EQ(aklsMDCTInvInitAlloc_32f(nullptr, 24), kStsNullPtr);
  EXPECT_EQ(aklsMDCTFwdInitAlloc_16s(reinterpret_cast<MDCTFwdSpec_16s**>(&fwd), 36), kStsSizeErr);

  // Frees: the tag is checked (the transforms: tests/core/contract_test.cpp).
  MDCTInvSpec_32f* wrong = reinterpret_cast<MDCTInvSpec_32f*>(fwd);
  EXPECT_EQ(aklsMDCTInvFree_32f(wrong), kStsContextMismatch);
  EXPECT_EQ(aklsMDCTFwdFree_16s(nullptr), kStsNullPtr);
}

TEST(Mdct, AllocationFailures) {
  for (int n : {12, 36, 256, 8192}) {
    SCOPED_TRACE(n);
    MDCTFwdSpec_32f* fwd = nullptr;
    MDCTInvSpec_32f* inv = nullptr;
    ASSERT_EQ(akl::test::SweepAllocationFailures([&] { return aklsMDCTFwdInitAlloc_32f(&fwd, n); }, [] {}), kStsOk);
    ASSERT_EQ(akl::test::SweepAllocationFailures([&] { return aklsMDCTInvInitAlloc_32f(&inv, n); }, [] {}), kStsOk);
    std::vector<float> x(static_cast<std::size_t>(n), 0.5f);
    EXPECT_EQ(akl::test::SweepAllocationFailures([&] { return aklsMDCTFwd_32f_I(x.data(), fwd, nullptr); }, [] {}),
              kStsOk);
    EXPECT_EQ(akl::test::SweepAllocationFailures([&] { return aklsMDCTInv_32f_I(x.data(), inv, nullptr); }, [] {}),
              kStsOk);
    const int live = akl::test::LiveAllocations();
    EXPECT_EQ(aklsMDCTFwdFree_32f(fwd), kStsOk);
    EXPECT_EQ(aklsMDCTInvFree_32f(inv), kStsOk);
    EXPECT_LT(akl::test::LiveAllocations(), live);
    if (n == 12 || n == 36) continue;
    MDCTFwdSpec_16s* f16 = nullptr;
    ASSERT_EQ(akl::test::SweepAllocationFailures([&] { return aklsMDCTFwdInitAlloc_16s(&f16, n); }, [] {}), kStsOk);
    std::vector<Akl16s> s(static_cast<std::size_t>(n), 100), d(static_cast<std::size_t>(n / 2));
    EXPECT_EQ(akl::test::SweepAllocationFailures(
                  [&] { return aklsMDCTFwd_16s_Sfs(s.data(), d.data(), f16, 0, nullptr); }, [] {}),
              kStsOk);
    EXPECT_EQ(aklsMDCTFwdFree_16s(f16), kStsOk);
  }
}

// 16-bit against the float transform: pDst ~ 2 X[k] 2^-sf where the float
// forward transform gives 2 X[k].  The 16-bit FFT runs with scale factor
// order + 1 so that no input can overflow it; random input then leaves its
// int16 outputs near sqrt(N/4) / (N/2) of full scale, and their rounding
// dominates: a relative RMS error growing like sqrt(N), measured 4e-5 sqrt(N).
TEST(Mdct16, MatchesFloatWithinAFewSteps) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int n = 32; n <= 8192; n *= 2) {
    for (int peak : {32767, 20000, 300, 1}) {
      SCOPED_TRACE(testing::Message() << n << " peak " << peak);
      std::uniform_int_distribution<int> d(-peak, peak);
      std::vector<Akl16s> x(static_cast<std::size_t>(n));
      for (auto& v : x) v = static_cast<Akl16s>(d(rng));
      std::vector<float> xf(x.begin(), x.end()), yf(static_cast<std::size_t>(n / 2));
      MDCTFwdSpec_32f* fwd = nullptr;
      ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, n), kStsOk);
      ASSERT_EQ(aklsMDCTFwd_32f(xf.data(), yf.data(), fwd, nullptr), kStsOk);
      aklsMDCTFwdFree_32f(fwd);
      int s = 0, i = 0, b = 0;
      ASSERT_EQ(aklsMDCTFwdGetSize_16s(n, &s, &i, &b), kStsOk);
      std::vector<Akl8u> mem(static_cast<std::size_t>(s + 9)), init(static_cast<std::size_t>(i + 9)),
          buf(static_cast<std::size_t>(b + 9));
      MDCTFwdSpec_16s* spec = nullptr;
      ASSERT_EQ(aklsMDCTFwdInit_16s(&spec, n, mem.data() + 9, init.data() + 9), kStsOk);
      // A scale factor that keeps the largest coefficient inside int16.
      double top = 0;
      for (float v : yf) top = std::max(top, double(std::abs(v)));
      int sf = 0;
      while (top * std::ldexp(1.0, -sf) > 30000.0) ++sf;
      while (top * std::ldexp(1.0, -sf) < 15000.0) --sf;
      std::vector<Akl16s> y(static_cast<std::size_t>(n / 2));
      ASSERT_EQ(aklsMDCTFwd_16s_Sfs(x.data(), y.data(), spec, sf, buf.data() + 9), kStsOk);
      double err = 0, ref = 0;
      for (int k = 0; k < n / 2; ++k) {
        const double want = yf[static_cast<std::size_t>(k)] * std::ldexp(1.0, -sf);
        err += (y[static_cast<std::size_t>(k)] - want) * (y[static_cast<std::size_t>(k)] - want);
        ref += want * want;
      }
      // Free of an Init context: the tag goes, the memory stays the caller's.
      EXPECT_EQ(aklsMDCTFwdFree_16s(spec), kStsOk);
      EXPECT_EQ(aklsMDCTFwd_16s_Sfs(x.data(), y.data(), spec, sf, nullptr), kStsContextMismatch);
      EXPECT_EQ(aklsMDCTFwdGetBufSize_16s(spec, &b), kStsContextMismatch);
      const double rel = std::sqrt(err / ref);
      std::printf("16s N %5d peak %5d relRMS %.3g\n", n, peak, rel);
      EXPECT_LE(rel, 1e-4 * std::sqrt(double(n)));
    }
  }
}

TEST(Mdct16, ZeroInputAndSaturation) {
  MDCTFwdSpec_16s* spec = nullptr;
  ASSERT_EQ(aklsMDCTFwdInitAlloc_16s(&spec, 64), kStsOk);
  std::vector<Akl16s> x(64, 0), y(32, 77);
  ASSERT_EQ(aklsMDCTFwd_16s_Sfs(x.data(), y.data(), spec, 0, nullptr), kStsOk);
  for (Akl16s v : y) EXPECT_EQ(v, 0);
  // A full-scale cosine at one bin overflows int16 at scale factor 0.
  for (int t = 0; t < 64; ++t) x[t] = static_cast<Akl16s>(32767 * std::cos(2 * M_PI / 64 * (t + 0.5 + 16) * 3.5));
  ASSERT_EQ(aklsMDCTFwd_16s_Sfs(x.data(), y.data(), spec, -3, nullptr), kStsOk);
  EXPECT_EQ(y[3], 32767);
  EXPECT_EQ(aklsMDCTFwdFree_16s(spec), kStsOk);
}

TEST(Mdct, NanAndInfinityDoNotCrash) {
  for (int n : {12, 36, 64, 2048}) {
    MDCTFwdSpec_32f* fwd = nullptr;
    MDCTInvSpec_32f* inv = nullptr;
    ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, n), kStsOk);
    ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, n), kStsOk);
    std::vector<float> x(static_cast<std::size_t>(n), 1.0f);
    x[1] = std::numeric_limits<float>::quiet_NaN();
    x[2] = std::numeric_limits<float>::infinity();
    x[3] = -std::numeric_limits<float>::infinity();
    std::vector<float> y(static_cast<std::size_t>(n));
    EXPECT_EQ(aklsMDCTFwd_32f(x.data(), y.data(), fwd, nullptr), kStsOk);
    EXPECT_EQ(aklsMDCTInv_32f(x.data(), y.data(), inv, nullptr), kStsOk);
    aklsMDCTFwdFree_32f(fwd);
    aklsMDCTInvFree_32f(inv);
  }
}

}  // namespace

namespace {

// The scale factor may be any int: the output shift is formed without
// overflow and clamped, so beyond the clamp every value gives the same result.
TEST(Mdct16, ExtremeScaleFactors) {
  MDCTFwdSpec_16s* spec = nullptr;
  ASSERT_EQ(aklsMDCTFwdInitAlloc_16s(&spec, 64), kStsOk);
  std::vector<Akl16s> x(64);
  for (int t = 0; t < 64; ++t) x[static_cast<std::size_t>(t)] = static_cast<Akl16s>((t * 7919) % 30001 - 15000);
  auto run = [&](int sf) {
    std::vector<Akl16s> y(32, 77);
    EXPECT_EQ(aklsMDCTFwd_16s_Sfs(x.data(), y.data(), spec, sf, nullptr), kStsOk) << sf;
    return y;
  };
  const struct {
    int sf, same_as;
  } rows[] = {{INT_MIN, -1000}, {INT_MIN + 1, -1000}, {-40, -1000}, {INT_MAX, 1000}, {INT_MAX - 1, 1000}, {60, 1000}};
  for (const auto& r : rows) EXPECT_EQ(run(r.sf), run(r.same_as)) << r.sf;
  for (Akl16s v : run(INT_MAX)) EXPECT_EQ(v, 0);
  for (Akl16s v : run(INT_MIN)) EXPECT_TRUE(v == 32767 || v == -32768 || v == 0);
  EXPECT_EQ(aklsMDCTFwdFree_16s(spec), kStsOk);
}

// A context from InitAlloc passed on at +1..63 is refused with the tag status
// by every operation that takes it, and nothing is read outside its block.
TEST(Mdct, InitAllocContextsPassedOnAtEveryOffset) {
  for (int n : {12, 32, 64}) {
    SCOPED_TRACE(n);
    MDCTFwdSpec_32f* fwd = nullptr;
    MDCTInvSpec_32f* inv = nullptr;
    MDCTFwdSpec_16s* f16 = nullptr;
    ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, n), kStsOk);
    ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, n), kStsOk);
    if (n != 12) {
      ASSERT_EQ(aklsMDCTFwdInitAlloc_16s(&f16, n), kStsOk);
    }
    std::vector<float> x(static_cast<std::size_t>(n), 1.0f), y(x);
    std::vector<Akl16s> xs(static_cast<std::size_t>(n), 5), ys(xs);
    for (int k = 1; k < 64; ++k) {
      auto* f = reinterpret_cast<MDCTFwdSpec_32f*>(reinterpret_cast<Akl8u*>(fwd) + k);
      auto* i = reinterpret_cast<MDCTInvSpec_32f*>(reinterpret_cast<Akl8u*>(inv) + k);
      int size = -1;
      EXPECT_EQ(aklsMDCTFwdGetBufSize_32f(f, &size), kStsContextMismatch) << k;
      EXPECT_EQ(aklsMDCTInvGetBufSize_32f(i, &size), kStsContextMismatch) << k;
      EXPECT_EQ(aklsMDCTFwd_32f(x.data(), y.data(), f, nullptr), kStsContextMismatch) << k;
      EXPECT_EQ(aklsMDCTInv_32f_I(y.data(), i, nullptr), kStsContextMismatch) << k;
      EXPECT_EQ(aklsMDCTFwdFree_32f(f), kStsContextMismatch) << k;
      EXPECT_EQ(aklsMDCTInvFree_32f(i), kStsContextMismatch) << k;
      if (f16) {
        auto* g = reinterpret_cast<MDCTFwdSpec_16s*>(reinterpret_cast<Akl8u*>(f16) + k);
        EXPECT_EQ(aklsMDCTFwdGetBufSize_16s(g, &size), kStsContextMismatch) << k;
        EXPECT_EQ(aklsMDCTFwd_16s_Sfs(xs.data(), ys.data(), g, 0, nullptr), kStsContextMismatch) << k;
        EXPECT_EQ(aklsMDCTFwdFree_16s(g), kStsContextMismatch) << k;
      }
    }
    EXPECT_EQ(aklsMDCTFwdFree_32f(fwd), kStsOk);
    EXPECT_EQ(aklsMDCTInvFree_32f(inv), kStsOk);
    if (f16) {
      EXPECT_EQ(aklsMDCTFwdFree_16s(f16), kStsOk);
    }
  }
}

}  // namespace
