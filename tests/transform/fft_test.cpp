// The internal FFT: results against double precision for every order and
// flag, the tuned kernel against its plain reference, the 16-bit kernel
// against the float one, sizes and statuses.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"
#include "transform/fft.hpp"

namespace {

using namespace akl::transform;
using cd = std::complex<double>;

// Double-precision DFT by recursive radix 2 (exact to about 1e-15 relative).
void DftDouble(std::vector<cd>& a) {
  const std::size_t n = a.size();
  if (n == 1) return;
  std::vector<cd> even(n / 2), odd(n / 2);
  for (std::size_t i = 0; i < n / 2; ++i) {
    even[i] = a[2 * i];
    odd[i] = a[2 * i + 1];
  }
  DftDouble(even);
  DftDouble(odd);
  for (std::size_t k = 0; k < n / 2; ++k) {
    const cd t = std::polar(1.0, -2.0 * M_PI * static_cast<double>(k) / static_cast<double>(n)) * odd[k];
    a[k] = even[k] + t;
    a[k + n / 2] = even[k] - t;
  }
}

double RelRms(const std::vector<Akl32fc>& got, const std::vector<cd>& want) {
  double err = 0, ref = 0;
  for (std::size_t i = 0; i < want.size(); ++i) {
    err += std::norm(cd(got[i].re, got[i].im) - want[i]);
    ref += std::norm(want[i]);
  }
  return ref > 0 ? std::sqrt(err / ref) : std::sqrt(err);
}

struct FloatFft {
  std::vector<Akl8u> mem, init;
  FFTSpec_C_32fc* spec = nullptr;
  Status Build(int order, int flag, int offset = 0) {
    int s = 0, i = 0, w = 0;
    Status st = fftGetSize_C_32fc(order, flag, 0, &s, &i, &w);
    if (st != kStsOk) return st;
    mem.assign(static_cast<std::size_t>(s + offset), 0);
    init.assign(static_cast<std::size_t>(i + 1), 0);
    return fftInit_C_32fc(&spec, order, flag, 0, mem.data() + offset, init.data());
  }
};

std::vector<Akl32fc> RandomComplex(int m, std::mt19937& rng) {
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  std::vector<Akl32fc> v(static_cast<std::size_t>(m));
  for (auto& c : v) c = {d(rng), d(rng)};
  return v;
}

// Single-precision FFT error grows about like sqrt(log2 M) times the float
// epsilon (6e-8); 2e-6 leaves room for order 16 and still catches any wrong
// twiddle or index, which gives errors of order 1e-2 or more.
constexpr double kFftTolerance = 2e-6;

TEST(Fft, EveryOrderAndFlagMatchesDoubleDft) {
  std::mt19937 rng(akl::test::TestSeed());
  const struct {
    int flag;
    double exponent;  // result scaled by M^-exponent
  } kFlags[] = {{8, 0.0}, {4, 0.5}, {1, 1.0}, {2, 0.0}};
  for (int order = 0; order <= 16; ++order) {
    const int m = 1 << order;
    for (const auto& f : kFlags) {
      SCOPED_TRACE(testing::Message() << "order " << order << " flag " << f.flag);
      FloatFft fft;
      ASSERT_EQ(fft.Build(order, f.flag, 3), kStsOk);
      const auto x = RandomComplex(m, rng);
      std::vector<cd> want(x.size());
      for (std::size_t i = 0; i < x.size(); ++i) want[i] = {x[i].re, x[i].im};
      DftDouble(want);
      for (auto& w : want) w *= std::pow(static_cast<double>(m), -f.exponent);
      std::vector<Akl32fc> out(x.size());
      ASSERT_EQ(fftFwd_CToC_32fc(x.data(), out.data(), fft.spec, nullptr), kStsOk);
      EXPECT_LT(RelRms(out, want), kFftTolerance);
      std::vector<Akl32fc> inplace = x;
      ASSERT_EQ(fftFwd_CToC_32fc(inplace.data(), inplace.data(), fft.spec, nullptr), kStsOk);
      EXPECT_LT(RelRms(inplace, want), kFftTolerance);
    }
  }
}

TEST(Fft, OrderZeroIsIdentityTimesNormalisation) {
  FloatFft fft;
  ASSERT_EQ(fft.Build(0, 1), kStsOk);
  Akl32fc v{0.25f, -3.0f}, out{};
  ASSERT_EQ(fftFwd_CToC_32fc(&v, &out, fft.spec, nullptr), kStsOk);
  EXPECT_EQ(out.re, 0.25f);
  EXPECT_EQ(out.im, -3.0f);
}

TEST(Fft, SizesOfTheTableDrivenOrders) {
  const struct {
    int order, spec;
  } kRows[] = {{0, 208}, {3, 208}, {5, 208}, {6, 960}, {7, 1536}, {8, 2688}, {9, 4992}, {10, 9600}};
  for (const auto& r : kRows) {
    int s = -1, i = -1, w = -1;
    ASSERT_EQ(fftGetSize_C_32fc(r.order, 8, 0, &s, &i, &w), kStsOk);
    EXPECT_EQ(s, r.spec) << r.order;
    EXPECT_EQ(i, 0) << r.order;
    EXPECT_EQ(w, 0) << r.order;
  }
  const struct {
    int order, spec, init, work;
  } k16[] = {{0, 136, 0, 0}, {3, 64 + 64 + 192, 64 + 64, 128}, {8, 2048 + 320 + 192, 192 + 64, 2112}};
  for (const auto& r : k16) {
    int s = -1, i = -1, w = -1;
    ASSERT_EQ(fftGetSize_C_16sc(r.order, 8, 0, &s, &i, &w), kStsOk);
    EXPECT_EQ(s, r.spec) << r.order;
    EXPECT_EQ(i, r.init) << r.order;
    EXPECT_EQ(w, r.work) << r.order;
  }
}

TEST(Fft, StatusesInCheckOrder) {
  int s = 0, i = 0, w = 0;
  EXPECT_EQ(fftGetSize_C_32fc(28, 3, 0, nullptr, &i, &w), kStsFftOrderErr);  // order before pointers
  EXPECT_EQ(fftGetSize_C_32fc(27, 3, 0, nullptr, &i, &w), kStsNullPtr);
  EXPECT_EQ(fftGetSize_C_32fc(27, 3, 0, &s, &i, &w), kStsFftFlagErr);
  EXPECT_EQ(fftGetSize_C_32fc(27, 8, 0, &s, &i, &w), kStsOk);
  EXPECT_EQ(fftGetSize_C_16sc(31, 8, 0, &s, &i, &w), kStsFftOrderErr);
  EXPECT_EQ(fftGetSize_C_16sc(3, 0, 0, &s, &i, &w), kStsFftFlagErr);

  std::vector<Akl8u> mem(20000, 0xAB);
  FFTSpec_C_32fc* spec = nullptr;
  EXPECT_EQ(fftInit_C_32fc(nullptr, 28, 3, 0, mem.data(), nullptr), kStsNullPtr);
  EXPECT_EQ(fftInit_C_32fc(&spec, 28, 8, 0, mem.data(), nullptr), kStsFftOrderErr);
  EXPECT_EQ(fftInit_C_32fc(&spec, 6, 3, 0, mem.data(), nullptr), kStsFftFlagErr);
  EXPECT_EQ(akl::ContextAt<FFTSpec_C_32fc>(mem.data(), 64)->tag, 0u);  // tag left 0
  EXPECT_EQ(fftInit_C_32fc(&spec, 11, 8, 0, mem.data(), nullptr), kStsNullPtr);  // large orders need init memory
  ASSERT_EQ(fftInit_C_32fc(&spec, 10, 8, 0, mem.data(), nullptr), kStsOk);
  int size = -1;
  EXPECT_EQ(fftGetBufSize_C_32fc(spec, &size), kStsOk);
  EXPECT_EQ(size, 0);

  Akl32fc x[1024] = {};
  EXPECT_EQ(fftFwd_CToC_32fc(x, x, nullptr, nullptr), kStsNullPtr);
  FFTSpec_C_16sc* wrong = reinterpret_cast<FFTSpec_C_16sc*>(spec);
  Akl16sc y[1024] = {};
  EXPECT_EQ(fftFwd_CToC_16sc_Sfs(nullptr, y, wrong, 0, nullptr), kStsContextMismatch);  // tag before data pointers
  EXPECT_EQ(fftFwd_CToC_32fc(nullptr, x, spec, nullptr), kStsNullPtr);
}

// The 16-bit kernel against the float kernel on the same input and scaling:
// both paths round once at the end, the integer one also in its Q30
// twiddles, so a few output steps cover the difference.
TEST(Fft16, MatchesFloatWithinAFewSteps) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_int_distribution<int> d(-32768, 32767);
  for (int order = 1; order <= 10; ++order) {
    for (int hint : {0, 2}) {
      for (int flag : {8, 4, 1}) {
        SCOPED_TRACE(testing::Message() << "order " << order << " hint " << hint << " flag " << flag);
        const int m = 1 << order;
        const int sf = flag == 8 ? order : (flag == 4 ? (order + 1) / 2 : 0);
        int s = 0, i = 0, w = 0;
        ASSERT_EQ(fftGetSize_C_16sc(order, flag, hint, &s, &i, &w), kStsOk);
        std::vector<Akl8u> mem(static_cast<std::size_t>(s) + 5), init(static_cast<std::size_t>(i) + 1),
            work(static_cast<std::size_t>(w));
        FFTSpec_C_16sc* spec = nullptr;
        ASSERT_EQ(fftInit_C_16sc(&spec, order, flag, hint, mem.data() + 5, init.data()), kStsOk);
        std::vector<Akl16sc> x(static_cast<std::size_t>(m)), y(x.size());
        for (auto& v : x) v = {static_cast<Akl16s>(d(rng)), static_cast<Akl16s>(d(rng))};
        ASSERT_EQ(fftFwd_CToC_16sc_Sfs(x.data(), y.data(), spec, sf, work.data()), kStsOk);
        std::vector<cd> want(x.size());
        for (std::size_t k = 0; k < x.size(); ++k) want[k] = {double(x[k].re), double(x[k].im)};
        DftDouble(want);
        const double scale = std::pow(2.0, -sf) *
                             (flag == 4 ? 1.0 / std::sqrt(double(m)) : (flag == 1 ? 1.0 / m : 1.0));
        double worst = 0;
        for (std::size_t k = 0; k < x.size(); ++k) {
          const double re = std::clamp(want[k].real() * scale, -32768.0, 32767.0);
          const double im = std::clamp(want[k].imag() * scale, -32768.0, 32767.0);
          worst = std::max({worst, std::abs(y[k].re - re), std::abs(y[k].im - im)});
        }
        EXPECT_LE(worst, 3.0);
        // In place gives the same result.
        std::vector<Akl16sc> z = x;
        ASSERT_EQ(fftFwd_CToC_16sc_Sfs(z.data(), z.data(), spec, sf, nullptr), kStsOk);
        for (std::size_t k = 0; k < x.size(); ++k) ASSERT_EQ(z[k].re, y[k].re);
      }
    }
  }
}

TEST(Fft16, OrderZeroShiftsByTheScaleFactor) {
  FFTSpec_C_16sc* spec = nullptr;
  ASSERT_EQ(fftInitAlloc_C_16sc(&spec, 0, 8, 0), kStsOk);
  const struct {
    Akl16s in;
    int sf;
    Akl16s out;
  } kRows[] = {{5, 1, 2}, {7, 1, 4}, {-5, 1, -2}, {3, 0, 3}, {20000, -1, 32767}, {-20000, -1, -32768}, {100, -2, 400}};
  for (const auto& r : kRows) {
    Akl16sc x{r.in, r.in}, y{};
    ASSERT_EQ(fftFwd_CToC_16sc_Sfs(&x, &y, spec, r.sf, nullptr), kStsOk);
    EXPECT_EQ(y.re, r.out) << r.in << " sf " << r.sf;
  }
  EXPECT_EQ(fftFree_C_16sc(spec), kStsOk);
}

TEST(Fft, InitAllocFailuresLeaveNothing) {
  for (int order : {3, 8, 12}) {
    FFTSpec_C_32fc* spec = nullptr;
    ASSERT_EQ(akl::test::SweepAllocationFailures([&] { return fftInitAlloc_C_32fc(&spec, order, 8, 0); }, [] {}),
              kStsOk);
    EXPECT_EQ(fftFree_C_32fc(spec), kStsOk);
    FFTSpec_C_16sc* s16 = nullptr;
    ASSERT_EQ(akl::test::SweepAllocationFailures([&] { return fftInitAlloc_C_16sc(&s16, order, 8, 0); }, [] {}),
              kStsOk);
    EXPECT_EQ(fftFree_C_16sc(s16), kStsOk);
  }
}

}  // namespace
