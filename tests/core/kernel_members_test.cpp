// Every member of every dispatched kernel that this build and processor have,
// against plain double-precision references, on random and edge inputs; and
// the binding itself (process attach, the exports following the bound table).
//
// Float members may differ from each other in rounding only (the AVX2 member
// fuses multiply-adds).  Each is held to the double-precision result: relative
// RMS error below 1e-6 and largest error below 2e-6 of the largest output
// (AKLAC_TEST_PRINT_ERRORS=1 prints them: at most 1.4e-7 and 2.3e-7 for the
// FFT up to 8192 points and the MDCT up to 4096, on both members), while a
// wrong index, sign or twiddle gives errors of order 1.  Zero input and (FFT)
// a unit impulse involve no rounding and must come out exact.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "aklac.h"
#include "aklcore.h"
#include "core/context.hpp"
#include "core/dispatch.hpp"
#include "mp3/synthesis.hpp"
#include "../support/test_util.hpp"
#include "transform/fft.hpp"
#include "transform/kernel_members.hpp"
#include "transform/mdct.hpp"

namespace {

using akl::KernelSet;
using akl::KernelTable;
using cd = std::complex<double>;

constexpr double kRmsBound = 1e-6;
constexpr double kMaxBound = 2e-6;

struct Member {
  const KernelTable* table;
  std::string name;
};

// The members this build contains and this processor runs.
std::vector<Member> RunnableMembers() {
  const unsigned long long features = aklGetEnabledCpuFeatures();
  std::vector<Member> out;
  const std::pair<KernelSet, const char*> sets[] = {{KernelSet::kSse2, "sse2"}, {KernelSet::kAvx2Fma, "avx2+fma"}};
  for (const auto& [set, name] : sets) {
    const KernelTable* t = akl::KernelMembers(set);
    if (t && akl::ProcessorSupports(set, features)) {
      out.push_back({t, name});
    } else {
      std::printf("[ note     ] kernel member %s: %s\n", name, t ? "processor lacks it" : "not in this build");
    }
  }
  return out;
}

// Relative RMS and largest error of `got` against `want`.
struct Errors {
  double rms = 0, max = 0;
};
Errors Compare(const std::vector<double>& got, const std::vector<double>& want) {
  double num = 0, den = 0, emax = 0, wmax = 0;
  for (std::size_t i = 0; i < want.size(); ++i) {
    const double d = got[i] - want[i];
    num += d * d;
    den += want[i] * want[i];
    emax = std::max(emax, std::fabs(d));
    wmax = std::max(wmax, std::fabs(want[i]));
  }
  if (den == 0) return {std::sqrt(num), emax};  // a zero reference must be met exactly
  return {std::sqrt(num / den), emax / wmax};
}

void ExpectClose(const std::vector<double>& got, const std::vector<double>& want) {
  const Errors e = Compare(got, want);
  if (std::getenv("AKLAC_TEST_PRINT_ERRORS")) std::printf("err %.3g %.3g\n", e.rms, e.max);
  EXPECT_LE(e.rms, kRmsBound);
  EXPECT_LE(e.max, kMaxBound);
}

// Plain double DFT by radix 2 (recursive halving), natural order in and out.
void DoubleFft(std::vector<cd>& a) {
  const std::size_t m = a.size();
  if (m < 2) return;
  std::vector<cd> even(m / 2), odd(m / 2);
  for (std::size_t i = 0; i < m / 2; ++i) {
    even[i] = a[2 * i];
    odd[i] = a[2 * i + 1];
  }
  DoubleFft(even);
  DoubleFft(odd);
  for (std::size_t k = 0; k < m / 2; ++k) {
    const cd t = std::polar(1.0, -2.0 * M_PI * static_cast<double>(k) / static_cast<double>(m)) * odd[k];
    a[k] = even[k] + t;
    a[k + m / 2] = even[k] - t;
  }
}

enum class Input { kRandom, kHuge, kZero, kImpulse, kAlternating };
const Input kInputs[] = {Input::kRandom, Input::kHuge, Input::kZero, Input::kImpulse, Input::kAlternating};

std::vector<float> MakeInput(Input kind, std::size_t n, std::mt19937& rng) {
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> x(n, 0.0f);
  for (std::size_t i = 0; i < n; ++i) {
    switch (kind) {
      case Input::kRandom: x[i] = u(rng); break;
      case Input::kHuge: x[i] = u(rng) * 1e30f; break;
      case Input::kZero: break;
      case Input::kImpulse: x[i] = i == 0 ? 1.0f : 0.0f; break;
      case Input::kAlternating: x[i] = (i & 1) ? -32768.0f : 32767.0f; break;
    }
  }
  return x;
}

TEST(KernelMembers, TheBestMemberIsBoundAtAttach) {
  if (std::getenv("AKLAC_TEST_KERNEL_SET")) GTEST_SKIP() << "members rebound by AKLAC_TEST_KERNEL_SET";
  EXPECT_EQ(akl::Kernels().set, akl::BestKernelSet(aklGetEnabledCpuFeatures()));
  EXPECT_TRUE(akl::ProcessorSupports(KernelSet::kSse2, 0));
  EXPECT_FALSE(akl::ProcessorSupports(KernelSet::kAvx2Fma, AKL_CPU_AVX2));
  EXPECT_FALSE(akl::ProcessorSupports(KernelSet::kAvx2Fma, AKL_CPU_FMA));
  EXPECT_TRUE(akl::ProcessorSupports(KernelSet::kAvx2Fma, AKL_CPU_AVX2 | AKL_CPU_FMA));
  EXPECT_EQ(akl::BestKernelSet(0), KernelSet::kSse2);
}

// Orders 0..13 cover the straight-line, fixed-order and large-order paths;
// flag 1 adds the scaling by 1/M.  In place and out of place.
TEST(KernelMembers, FftMatchesDoubleDft) {
  std::mt19937 rng(akl::test::TestSeed());
  for (const Member& mb : RunnableMembers()) {
    for (int order = 0; order <= 13; ++order) {
      for (const int flag : {8, 1}) {
        for (const Input kind : kInputs) {
          SCOPED_TRACE(mb.name + " order " + std::to_string(order) + " flag " + std::to_string(flag) + " input " +
                       std::to_string(static_cast<int>(kind)));
          const std::size_t m = std::size_t{1} << order;
          akl::transform::FFTSpec_C_32fc* raw = nullptr;
          ASSERT_EQ(akl::transform::fftInitAlloc_C_32fc(&raw, order, flag, 0), kStsOk);
          const auto& spec = *akl::ContextAt<akl::transform::FFTSpec_C_32fc>(raw, 64);
          int work_size = 0;
          akl::transform::fftGetBufSize_C_32fc(raw, &work_size);
          std::vector<Akl8u> work(static_cast<std::size_t>(work_size) + 64);
          const std::vector<float> re = MakeInput(kind, m, rng), im = MakeInput(kind, m, rng);
          std::vector<Akl32fc> x(m), y(m);
          std::vector<cd> ref(m);
          for (std::size_t i = 0; i < m; ++i) {
            x[i] = {re[i], kind == Input::kImpulse ? 0.0f : im[i]};
            ref[i] = cd(x[i].re, x[i].im);
          }
          DoubleFft(ref);
          const double scale = flag == 1 ? 1.0 / static_cast<double>(m) : 1.0;
          std::vector<double> want(2 * m);
          for (std::size_t i = 0; i < m; ++i) {
            want[2 * i] = ref[i].real() * scale;
            want[2 * i + 1] = ref[i].imag() * scale;
          }
          for (const bool in_place : {false, true}) {
            std::vector<Akl32fc> buf = x;
            Akl32fc* dst = in_place ? buf.data() : y.data();
            mb.table->fft_forward(spec, buf.data(), dst, akl::AlignUp(work.data(), 64));
            std::vector<double> got(2 * m);
            for (std::size_t i = 0; i < m; ++i) {
              got[2 * i] = dst[i].re;
              got[2 * i + 1] = dst[i].im;
            }
            if (kind == Input::kZero || kind == Input::kImpulse) {
              EXPECT_EQ(got, want);  // no rounding anywhere on these
            } else {
              ExpectClose(got, want);
            }
          }
          akl::transform::fftFree_C_32fc(raw);
        }
      }
    }
  }
}

// y[k] = 2 sum x[n] cos(2 pi/N (n + 1/2 + N/4)(k + 1/2)) forward, and
// y[n] = (2/N) sum X[k] cos(...) inverse, in double.
// The angle is pi/(2N) (2t + 1 + N/2)(2k + 1), so one table of cos(2 pi j/4N)
// serves every term.
std::vector<double> MdctSum(const std::vector<float>& x, int n, bool forward) {
  const int out_len = forward ? n / 2 : n, in_len = forward ? n : n / 2;
  const long period = 4L * n;
  std::vector<double> cosines(static_cast<std::size_t>(period));
  for (long j = 0; j < period; ++j) cosines[static_cast<std::size_t>(j)] = std::cos(2 * M_PI * j / period);
  std::vector<double> y(static_cast<std::size_t>(out_len));
  for (int o = 0; o < out_len; ++o) {
    double s = 0;
    for (int i = 0; i < in_len; ++i) {
      const long t = forward ? i : o, k = forward ? o : i;
      s += x[static_cast<std::size_t>(i)] * cosines[static_cast<std::size_t>((2 * t + 1 + n / 2) * (2 * k + 1) % period)];
    }
    y[static_cast<std::size_t>(o)] = forward ? 2 * s : 2.0 / n * s;
  }
  return y;
}

TEST(KernelMembers, MdctMatchesDoubleSums) {
  std::mt19937 rng(akl::test::TestSeed());
  for (const Member& mb : RunnableMembers()) {
    for (int n = 64; n <= 4096; n *= 2) {
      MDCTFwdSpec_32f* fwd = nullptr;
      MDCTInvSpec_32f* inv = nullptr;
      ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, n), kStsOk);
      ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, n), kStsOk);
      const auto& fs = *akl::ContextAt<akl::transform::MdctSpec>(fwd, 64);
      const auto& is = *akl::ContextAt<akl::transform::MdctSpec>(inv, 64);
      std::vector<Akl32fc> work(static_cast<std::size_t>(n) + 16);
      Akl32fc* z = akl::AlignUp(work.data(), 64);
      for (const Input kind : kInputs) {
        SCOPED_TRACE(mb.name + " N " + std::to_string(n) + " input " + std::to_string(static_cast<int>(kind)));
        const std::vector<float> x = MakeInput(kind, static_cast<std::size_t>(n), rng);
        for (const bool forward : {true, false}) {
          std::vector<float> y(static_cast<std::size_t>(n), -1.0f);
          (forward ? mb.table->mdct_fwd : mb.table->mdct_inv)(forward ? fs : is, x.data(), y.data(), z);
          const std::vector<double> want = MdctSum(x, n, forward);
          const std::vector<double> got(y.begin(), y.begin() + static_cast<std::ptrdiff_t>(want.size()));
          if (kind == Input::kZero) {
            EXPECT_EQ(got, want);
          } else {
            ExpectClose(got, want);
          }
        }
      }
      aklsMDCTFwdFree_32f(fwd);
      aklsMDCTInvFree_32f(inv);
    }
  }
}

// The Layer III windowed sum: every member within one PCM step of the exact
// integer sum while the history stays below 2^26 (the bound of the tuned
// form), and bit-identical to the SSE2 member on any history, extremes
// included: the members differ only in vector width, not in rounding.
TEST(KernelMembers, SynthesisWindowSumIsExactToAStepAndIdenticalAcrossMembers) {
  std::mt19937 rng(akl::test::TestSeed());
  const std::int32_t kExtremes[] = {INT32_MIN, INT32_MAX, -(1 << 26), (1 << 26) - 1, 0};
  for (const Member& mb : RunnableMembers()) {
    for (int trial = 0; trial < 400; ++trial) {
      SCOPED_TRACE(mb.name + " trial " + std::to_string(trial));
      // Trials 0..299: |A| < 2^26 at several scales; 300..399: anything, extremes mixed in.
      const bool bounded = trial < 300;
      const int bits = bounded ? 10 + trial % 17 : 31;
      std::uniform_int_distribution<std::int32_t> d(-(std::int32_t{1} << (bits - 1)) + 1, (std::int32_t{1} << (bits - 1)) - 1);
      std::vector<std::int32_t> history(akl::mp3::kSynthHistoryValues);
      for (auto& v : history) v = (!bounded && rng() % 4 == 0) ? kExtremes[rng() % 5] : d(rng);
      const int slot0 = static_cast<int>(rng() % akl::mp3::kSynthSlots);
      for (const int stride : {1, 2}) {
        std::vector<std::int16_t> got(64, 7), sse2(64, 7), ref(64, 7);
        mb.table->synth_window_sum(history.data(), slot0, got.data(), stride);
        akl::mp3::SynthWindowSum(history.data(), slot0, sse2.data(), stride);
        akl::mp3::SynthWindowSumRef(history.data(), slot0, ref.data(), stride);
        EXPECT_EQ(got, sse2);
        for (std::size_t i = 0; i < got.size(); ++i) {
          if (i % static_cast<std::size_t>(stride) != 0 || i >= 32u * static_cast<std::size_t>(stride)) {
            EXPECT_EQ(got[i], 7) << i;  // untouched between and after the strided outputs
          } else if (bounded) {
            EXPECT_LE(std::abs(got[i] - ref[i]), 1) << i;
          }
        }
      }
    }
  }
}

// Binding a set makes the exports run exactly that member; a set that is not
// built in or not supported binds nothing.
TEST(KernelMembers, TheExportsRunTheBoundMember) {
  const KernelSet before = akl::Kernels().set;
  const int n = 2048;
  MDCTInvSpec_32f* inv = nullptr;
  ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, n), kStsOk);
  const auto& is = *akl::ContextAt<akl::transform::MdctSpec>(inv, 64);
  std::mt19937 rng(akl::test::TestSeed());
  const std::vector<float> x = MakeInput(Input::kRandom, n, rng);
  std::vector<Akl32fc> work(static_cast<std::size_t>(n) + 16);
  for (const Member& mb : RunnableMembers()) {
    SCOPED_TRACE(mb.name);
    ASSERT_TRUE(akl::BindKernelSet(mb.table->set));
    std::vector<float> a(n), b(n);
    ASSERT_EQ(aklsMDCTInv_32f(x.data(), a.data(), inv, nullptr), kStsOk);
    mb.table->mdct_inv(is, x.data(), b.data(), akl::AlignUp(work.data(), 64));
    EXPECT_EQ(a, b);
  }
  const unsigned long long features = aklGetEnabledCpuFeatures();
  if (!akl::KernelMembers(KernelSet::kAvx2Fma) || !akl::ProcessorSupports(KernelSet::kAvx2Fma, features)) {
    akl::BindKernelSet(KernelSet::kSse2);
    EXPECT_FALSE(akl::BindKernelSet(KernelSet::kAvx2Fma));
    EXPECT_EQ(akl::Kernels().set, KernelSet::kSse2);
  }
  ASSERT_TRUE(akl::BindKernelSet(before));
  aklsMDCTInvFree_32f(inv);
}

}  // namespace
