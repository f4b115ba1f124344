// One harness for the tuned kernels: each is registered once (kPairs) with
// its plain reference and a check that runs both on the same random and edge
// inputs and compares them exactly or within the bound stated at the check;
// the dispatched kernels' members (SSE2, AVX2/FMA) go through the same
// checks.  A last test fails when a plain reference declared in src/ (a
// function named ...Ref) is not registered.
//
// Float members may differ from each other in rounding only (the AVX2 member
// fuses multiply-adds); integer kernels agree bit for bit unless the check
// says otherwise.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "../support/test_util.hpp"
#include "../vlc/books.hpp"
#include "../vlc/vlc_test_util.hpp"
#include "aac/spectral.hpp"
#include "aklac.h"
#include "aklcore.h"
#include "core/context.hpp"
#include "core/dispatch.hpp"
#include "mp3/imdct.hpp"
#include "mp3/requant.hpp"
#include "mp3/synthesis.hpp"
#include "sbr/predict_coef.hpp"
#include "transform/fft.hpp"
#include "transform/kernel_members.hpp"
#include "transform/mdct.hpp"
#include "vlc/decode_ref.hpp"


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
namespace members {

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

void KernelMembers_TheBestMemberIsBoundAtAttach() {
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
void KernelMembers_FftMatchesDoubleDft() {
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

void KernelMembers_MdctMatchesDoubleSums() {
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
void KernelMembers_SynthesisWindowSumIsExactToAStepAndIdenticalAcrossMembers() {
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
void KernelMembers_TheExportsRunTheBoundMember() {
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

// The tuned Layer III signal kernels against their plain reference forms on
// random inputs: integer kernels must agree bit for bit.
namespace mp3sig {

// Random values with a spread of magnitudes, including the int32 extremes,
// so that saturation paths and the widest sums are exercised.
std::int32_t RandomValue(std::mt19937& rng) {
  const unsigned kind = rng() % 8;
  if (kind == 0) return (rng() & 1) ? std::numeric_limits<std::int32_t>::max() : std::numeric_limits<std::int32_t>::min();
  const int bits = static_cast<int>(rng() % 31) + 1;
  const std::int32_t mag = static_cast<std::int32_t>(rng() >> (32 - bits));
  return (rng() & 1) ? -mag : mag;
}

// Requantization runs: the inline table path against the plain loop, over
// attenuations of every sign and size (left shifts, saturation, shifts past
// 31) and magnitudes on both sides of 4, 16, 128 and 8206.
void TunedRequant_RunMatchesReferenceBitExact() {
  std::mt19937 rng(akl::test::TestSeed());
  for (int trial = 0; trial < 20000; ++trial) {
    const int a = static_cast<int>(rng() % 400) - 120;
    const int n = 1 + static_cast<int>(rng() % 24);
    std::vector<std::int32_t> x(static_cast<std::size_t>(n));
    for (auto& v : x) {
      const unsigned kind = rng() % 10;
      std::int32_t m = kind < 6 ? static_cast<std::int32_t>(rng() % 17)
                       : kind < 9 ? static_cast<std::int32_t>(rng() % 200)
                                  : static_cast<std::int32_t>(rng() % 8210);
      if (trial % 500 == 0 && kind == 0) m = 8207;  // past the limit: both stop there
      v = (rng() & 1) ? -m : m;
    }
    std::vector<std::int32_t> y = x;
    const bool ok_a = akl::mp3::RequantRun(x.data(), n, a);
    const bool ok_b = akl::mp3::RequantRunRef(y.data(), n, a);
    ASSERT_EQ(ok_a, ok_b) << "trial " << trial;
    ASSERT_EQ(x, y) << "trial " << trial << " a " << a;
  }
}

// The windowed sum: exact 64-bit integers in the plain form, single-precision
// lanes in the tuned one.  The tuned form rounds each history value, product
// and partial sum (about 48 roundings of 2^-24 relative of at most
// sum |D| x max|A| = 3.03 x 2^16 x max|A| in Q41), so its error is below
// 2^-26.8 x max|A| PCM steps before the final rounding: within one step of
// the plain form for histories below 2^26 (decoded signals stay well inside
// that), within 2^4.2 + 1 steps for any int32 history.  A wrong coefficient,
// slot or lane would be off by hundreds of steps on these inputs.
void TunedSynthesis_WindowSumWithinOneStepOfReference() {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<std::int32_t> hist(akl::mp3::kSynthHistoryValues);
  long differing = 0;
  for (int trial = 0; trial < 4000; ++trial) {
    const bool extreme = trial % 4 == 0;
    for (auto& v : hist) v = extreme ? RandomValue(rng) : RandomValue(rng) >> 6;
    const int slot0 = static_cast<int>(rng() % 16), stride = 1 + trial % 2;
    std::vector<std::int16_t> pa(64, 123), pb(64, 123);
    akl::mp3::SynthWindowSum(hist.data(), slot0, pa.data(), stride);
    akl::mp3::SynthWindowSumRef(hist.data(), slot0, pb.data(), stride);
    for (int i = 0; i < 64; ++i) {
      if (i % stride != 0) {
        ASSERT_EQ(pa[i], 123);  // the other channel's samples are left alone
        continue;
      }
      differing += pa[i] != pb[i];
      ASSERT_LE(std::abs(pa[i] - pb[i]), extreme ? 20 : 1) << "trial " << trial << " sample " << i;
    }
  }
  std::printf("windowed sum: %ld samples differ from the exact sum\n", differing);
}

// The transform against the direct sum in long double.  The tuned form works in
// single precision: every stage rounds at 2^-24 of values bounded by sum |s|,
// and the odd half chains up to 15 of them, so its error stays below
// 2^-21 x sum |s| (measured: 2^-22.7) plus the final half step, and 128 more
// where it clamps at 2^31 - 128 instead of 2^31 - 1.  For a decoded signal
// (sum |s| below 2^31) that is under 2^10 Q25 steps, one PCM step; a wrong
// constant or lane would be off by a sizeable fraction of sum |s|.  The plain form
// rounds its 64-bit integer sums at several stages (pre-twiddle, the FFT's
// sqrt(1/2) products, the Q29 odd matrix, the output), each error at most half
// a step grown by the later stages, and stays within a few steps at the
// clamp limits.  One Q25 step is 2^-10 of the 16-bit step.
void TunedSynthesis_TransformMatchesDirectSum() {
  std::mt19937 rng(akl::test::TestSeed());
  std::int32_t s[32], a[32], b[32];
  int worst_tuned = 0, worst_plain = 0;
  double worst_ratio = 0.0;
  constexpr long double kRel = 1.0L / 2097152.0L;  // 2^-21
  for (int trial = 0; trial < 20000; ++trial) {
    const int bits = static_cast<int>(rng() % 30);
    for (auto& v : s) v = static_cast<std::int32_t>(rng() % (2u << bits)) - (1 << bits);
    if (trial % 10 == 0)  // the clamp limits, all in phase
      for (int k = 0; k < 32; ++k) s[k] = (k % 2 ? -1 : 1) * ((1 << 29) - 1);
    akl::mp3::SynthDct32(s, a);
    akl::mp3::SynthDct32Ref(s, b);
    for (int m = 0; m < 32; ++m) {
      long double exact = 0.0L;
      for (int k = 0; k < 32; ++k)
        exact += static_cast<long double>(s[k]) * std::cos(3.14159265358979323846264338327950288L / 64.0L * m * (2 * k + 1));
      exact /= 2.0L;
      if (exact > 2147483647.0L) exact = 2147483647.0L;
      if (exact < -2147483648.0L) exact = -2147483648.0L;
      const long double dt = std::fabs(a[m] - exact), dp = std::fabs(b[m] - exact);
      worst_tuned = std::max(worst_tuned, static_cast<int>(std::ceil(dt)));
      worst_plain = std::max(worst_plain, static_cast<int>(std::ceil(dp)));
      long double sum_abs = 0.0L;
      for (int k = 0; k < 32; ++k) sum_abs += std::fabs(static_cast<long double>(s[k]));
      worst_ratio = std::max(worst_ratio, static_cast<double>((dt - 0.5L) / sum_abs));
      ASSERT_LE(dt, 0.51L + kRel * sum_abs + (std::fabs(exact) > 2147483520.0L ? 128.0L : 0.0L))
          << "trial " << trial << " A[" << m << "]";
      ASSERT_LE(dp, 8.0L) << "trial " << trial << " A[" << m << "]";
    }
  }
  std::printf("synthesis transform: within %d (tuned), %d (plain) Q25 steps of the direct sum; tuned error / sum|s| %g\n",
              worst_tuned, worst_plain, worst_ratio);
}

// The whole slot kernel over runs of slots: PCM within one step of the plain
// kernel for subband samples up to twice full scale (|s| < 2^27), where the
// tuned transform's error (2^-21 x sum |s| <= 2^11 Q25 steps, two PCM steps
// only if every subband sat at that limit in phase, far less on these random
// ones) and the windowed sum's (below 0.6 step) leave the rounded results at
// most one step apart.
void TunedSynthesis_SlotKernelWithinOnePcmStep() {
  std::mt19937 rng(akl::test::TestSeed());
  long differing = 0, total = 0;
  for (int stride : {1, 2}) {
    for (int trial = 0; trial < 100; ++trial) {
      std::vector<std::int32_t> hist_a(akl::mp3::kSynthHistoryValues, 0), s(32);
      std::vector<std::int32_t> hist_b = hist_a;
      std::int32_t off_a = static_cast<std::int32_t>(rng() % 16), off_b = off_a;
      for (int slot = 0; slot < 40; ++slot) {
        const int bits = 20 + static_cast<int>(rng() % 8);
        for (auto& v : s) v = static_cast<std::int32_t>(rng() % (2u << bits)) - (1 << bits);
        std::vector<std::int16_t> pa(64, 123), pb(64, 123);
        akl::mp3::SynthSlotKernel(s.data(), pa.data(), stride, hist_a.data(), &off_a);
        akl::mp3::SynthSlotKernelRef(s.data(), pb.data(), stride, hist_b.data(), &off_b);
        ASSERT_EQ(off_a, off_b);
        for (int i = 0; i < 64; ++i) {
          if (i % stride != 0) {
            ASSERT_EQ(pa[i], 123);  // the other channel's samples are left alone
            continue;
          }
          ++total;
          differing += pa[i] != pb[i];
          ASSERT_LE(std::abs(pa[i] - pb[i]), 1) << "stride " << stride << " trial " << trial << " slot " << slot;
        }
      }
    }
  }
  std::printf("synthesis: %ld of %ld samples differ by one step\n", differing, total);
}

// The tuned inverse MDCT carries the long transforms in double precision and
// rounds once; the plain one rounds to Q26 after its pre-twiddle, inner
// twiddle, post-twiddle and window stages and again before the overlap-add,
// each error at most half a step grown by at most the stage gains (about 3 for
// the 9-point DFT), so the two stay within a few Q26 steps.  Eight steps is
// 2^-23 of full scale, 1/256 of the 16-bit step; a wrong constant, window row,
// sign or sample order would be off by many thousands.  Inputs stay below
// full scale (|line| < 2^26) so that no intermediate saturation of the plain
// path fires.  Runs of four long subbands go through single-precision lanes:
// each stage rounds at 2^-24 of values a few times the input peak (of this
// granule or, through the tails, the previous one), which adds up to 2^-17 of
// that peak (measured: 2^-19.9), 2^9 steps at full scale, still 1/4 of a
// 16-bit step, while a wrong constant or lane would be off by a sizeable
// fraction of the peak.
void TunedImdct_MatchesReferenceWithinFewSteps() {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<std::int32_t> ov_a(576, 0), ov_b(576, 0);
  std::int32_t prev_a = 0, prev_b = 0, prev_peak = 0;
  int worst = 0;
  double worst_ratio = 0.0;
  constexpr double kRel = 1.0 / 131072.0;  // 2^-17
  for (int granule = 0; granule < 2000; ++granule) {
    const int block_type = static_cast<int>(rng() % 4);
    // Mixed flags on every block type: the plain path then windows subbands 0
    // and 1 with the normal window even for start and stop blocks.
    const int mixed = static_cast<int>(rng() % 2);
    const int bound = static_cast<int>(rng() % 577);
    std::vector<std::int32_t> spec_a(576, 0);
    const int scale = static_cast<int>(rng() % 26) + 1;
    for (int i = 0; i < bound; ++i)
      spec_a[i] = static_cast<std::int32_t>(rng() % (2u << scale)) - (1 << scale);
    std::int32_t peak = 0;
    for (int i = 0; i < bound; ++i) peak = std::max(peak, std::abs(spec_a[i]));
    const double reach = std::max(peak, prev_peak);  // the tails carry the previous granule
    prev_peak = peak;
    const int limit = 8 + static_cast<int>(reach * kRel);
    std::vector<std::int32_t> spec_b = spec_a, out_a(576, 7), out_b(576, 7);
    akl::mp3::MdctInvKernel(spec_a.data(), out_a.data(), ov_a.data(), bound, &prev_a, block_type, mixed);
    akl::mp3::MdctInvKernelRef(spec_b.data(), out_b.data(), ov_b.data(), bound, &prev_b, block_type, mixed);
    ASSERT_EQ(prev_a, prev_b);
    ASSERT_EQ(spec_a, spec_b);  // alias reduction in place is shared and exact
    for (int i = 0; i < 576; ++i) {
      const int d = std::abs(out_a[i] - out_b[i]);
      const int dt = std::abs(ov_a[i] - ov_b[i]);
      worst = std::max(worst, std::max(d, dt));
      if (reach > 0) worst_ratio = std::max(worst_ratio, (std::max(d, dt) - 8) / reach);
      ASSERT_LE(d, limit) << "granule " << granule << " sample " << i << " type " << block_type;
      ASSERT_LE(dt, limit) << "granule " << granule << " tail " << i;
    }
  }
  ::testing::Test::RecordProperty("worst_q26_steps", worst);
  std::printf("IMDCT: within %d Q26 steps of the plain form; worst (difference - 8) / input peak %g\n", worst, worst_ratio);
}

}  // namespace

namespace mp3sig {

// Alias reduction: the four-lane form against the scalar one, bit for bit.
// Half of the granules keep every line below 2^30 in magnitude (the vector
// path), the rest mix in values up to the int32 extremes (boundaries that fall
// back to the scalar form, and saturation of the butterflies).
void TunedAlias_MatchesReferenceBitExact() {
  std::mt19937 rng(akl::test::TestSeed());
  for (int trial = 0; trial < 4000; ++trial) {
    const int width = (trial & 1) ? 32 : 1 + static_cast<int>(rng() % 30);
    std::vector<std::int32_t> a(576);
    for (auto& v : a) {
      v = RandomValue(rng);
      if (width < 32) v = static_cast<std::int32_t>(v % (std::int32_t{1} << width));
    }
    if (trial % 7 == 0) a[static_cast<std::size_t>(rng() % 576)] = (trial & 2) ? -(1 << 30) : (1 << 30) - 1;
    std::vector<std::int32_t> b = a;
    const int block_type = static_cast<int>(rng() % 4);
    const int mixed = block_type == 2 ? static_cast<int>(rng() % 2) : 0;
    const int n = static_cast<int>(rng() % 33);
    akl::mp3::AliasReduce(a.data(), n, block_type, mixed);
    akl::mp3::AliasReduceRef(b.data(), n, block_type, mixed);
    ASSERT_EQ(a, b) << "trial " << trial << " n " << n << " type " << block_type;
  }
}

}  // namespace

// The tuned band dequantizer against its plain reference, bit for bit.
namespace dequant {

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

void DequantBandCheck_MatchesReferenceOnRandomBands() {
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

void DequantBandCheck_AllZeroAndExtremeLines() {
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

// The tuned block decoders against their reference forms (decode_ref.cpp):
// every real code book, several level splits, every byte alignment with a
// random bit offset, short and long blocks, on encoded realistic symbols and
// on random bytes (streams that hit empty slots, escapes and deep levels at
// random).  Values, status and cursor must agree exactly; the tuned decoder
// runs in a buffer that ends at the reading limit of the reference's result,
// so an overread is caught under AddressSanitizer.
namespace vlcdec {

using vlc_test::Book;
using vlc_test::Kind;
namespace ref = akl::vlc::ref;

enum class Op { kBlock, kEscAac, kEscMp3, kTuple, kTupleEscAac, kTupleEscMp3 };

struct Result {
  Status status;
  std::ptrdiff_t advanced;
  int offset;
  std::vector<Akl16s> out;
};

Result Run(bool tuned, Op op, const aklsVLCDecodeSpec_32s* spec, Akl8u* start, int offset, int len, int linbits) {
  Result r{kStsOk, 0, offset, std::vector<Akl16s>(static_cast<size_t>(len) + 4, 0x5A5A)};
  Akl8u* p = start;
  int* o = &r.offset;
  Akl16s* d = r.out.data();
  switch (op) {
    case Op::kBlock:
      r.status = tuned ? aklsVLCDecodeBlock_1u16s(&p, o, d, len, spec) : ref::DecodeBlock_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kEscAac:
      r.status = tuned ? aklsVLCDecodeEscBlock_AAC_1u16s(&p, o, d, len, spec)
                       : ref::DecodeEscBlock_AAC_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kEscMp3:
      r.status = tuned ? aklsVLCDecodeEscBlock_MP3_1u16s(&p, o, linbits, d, len, spec)
                       : ref::DecodeEscBlock_MP3_1u16sRef(&p, o, linbits, d, len, spec);
      break;
    case Op::kTuple:
      r.status = tuned ? aklsVLCDecodeUTupleBlock_1u16s(&p, o, d, len, spec)
                       : ref::DecodeUTupleBlock_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kTupleEscAac:
      r.status = tuned ? aklsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, o, d, len, spec)
                       : ref::DecodeUTupleEscBlock_AAC_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kTupleEscMp3:
      r.status = tuned ? aklsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, o, linbits, d, len, spec)
                       : ref::DecodeUTupleEscBlock_MP3_1u16sRef(&p, o, linbits, d, len, spec);
      break;
  }
  r.advanced = p - start;
  return r;
}

struct Ctx {
  std::vector<unsigned char> mem;
  aklsVLCDecodeSpec_32s* spec() { return reinterpret_cast<aklsVLCDecodeSpec_32s*>(mem.data() + 3); }
};

Ctx Build(const std::vector<VlcCodeEntry>& e, const std::vector<int>& sizes, int elements, int bits) {
  Ctx c;
  int size = 0;
  const int n = static_cast<int>(e.size());
  const int ns = static_cast<int>(sizes.size());
  if (elements == 0) {
    EXPECT_EQ(aklsVLCDecodeGetSize_32s(e.data(), n, sizes.data(), ns, &size), kStsOk);
    c.mem.assign(static_cast<size_t>(size) + 3, 0);
    EXPECT_EQ(aklsVLCDecodeInit_32s(e.data(), n, sizes.data(), ns, c.spec()), kStsOk);
  } else {
    EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(e.data(), n, sizes.data(), ns, elements, bits, &size), kStsOk);
    c.mem.assign(static_cast<size_t>(size) + 3, 0);
    EXPECT_EQ(aklsVLCDecodeUTupleInit_32s(e.data(), n, sizes.data(), ns, elements, bits, c.spec()), kStsOk);
  }
  return c;
}

// The decoders that take a book, with the element count for tuple contexts.
std::vector<std::pair<Op, int>> OpsFor(const Book& b) {
  std::vector<std::pair<Op, int>> ops = {{Op::kBlock, 0}};
  if (b.dim == 2 && b.kind != Kind::kMp3Pairs) ops.push_back({Op::kEscAac, 0});
  if (b.kind == Kind::kMp3Pairs) ops.push_back({Op::kEscMp3, 0});
  if (vlc_test::HasSignBits(b)) {
    ops.push_back({Op::kTuple, b.dim});
    if (b.dim == 2 && b.kind == Kind::kAacUnsigned) ops.push_back({Op::kTupleEscAac, 2});
    if (b.kind == Kind::kMp3Pairs) ops.push_back({Op::kTupleEscMp3, 2});
  }
  return ops;
}

// Symbols with short codes favoured (probability 2^-length), signs and
// escapes, encoded with the library's encoders in the form each decoder reads.
std::vector<Akl8u> Encoded(const Book& b, Op op, std::mt19937& rng, int count, int align, int offset) {
  const auto entries = vlc_test::SignedEntries(b);
  aklsVLCEncodeSpec_32s* enc = nullptr;
  EXPECT_EQ(aklsVLCEncodeInitAlloc_32s(entries.data(), static_cast<int>(entries.size()), &enc), kStsOk);
  std::vector<double> w;
  for (const auto& c : b.codes) w.push_back(std::ldexp(1.0, -static_cast<int>(c.bits.size())));
  std::discrete_distribution<size_t> pick(w.begin(), w.end());
  std::geometric_distribution<int> tail(0.05);
  std::vector<Akl16s> flat, packed;
  for (int i = 0; i < count; ++i) {
    std::vector<int> v = b.codes[pick(rng)].values;
    for (int& x : v) {
      if (b.escape && b.kind == Kind::kAacUnsigned && x == 16) x = std::min(16 + tail(rng), 8191);
      if (b.escape && b.kind == Kind::kMp3Pairs && x == 15) x = 15 + std::min(tail(rng), (1 << b.linbits) - 1);
      if (vlc_test::HasSignBits(b) && x != 0 && (rng() & 1)) x = -x;
    }
    packed.push_back(static_cast<Akl16s>(vlc_test::PackSigned(v)));
    for (int x : v) flat.push_back(static_cast<Akl16s>(x));
  }
  std::vector<Akl8u> stream(static_cast<size_t>(count) * 12 + 64, 0);
  Akl8u* p = stream.data() + align;
  int off = offset;
  const bool esc_aac = op == Op::kEscAac || op == Op::kTupleEscAac;
  const bool esc_mp3 = op == Op::kEscMp3 || op == Op::kTupleEscMp3;
  const int n_flat = static_cast<int>(flat.size());
  if (esc_aac && b.escape) {
    EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(flat.data(), n_flat, &p, &off, enc), kStsOk);
  } else if (esc_mp3 && b.escape) {
    EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(flat.data(), n_flat, b.linbits, &p, &off, enc), kStsOk);
  } else {
    EXPECT_EQ(aklsVLCEncodeBlock_16s1u(packed.data(), count, &p, &off, enc), kStsOk);
  }
  aklsVLCEncodeFree_32s(enc);
  return stream;
}

// Runs both forms over the same stream bytes, each in its own copy cut to the
// reference's reading limit, and compares everything they report.
void Compare(Op op, const aklsVLCDecodeSpec_32s* spec, const std::vector<Akl8u>& stream, int align, int offset,
             int len, int linbits, const std::string& what) {
  std::vector<Akl8u> a(stream), b(stream);
  const Result r = Run(false, op, spec, a.data() + align, offset, len, linbits);
  const size_t end_bit = (static_cast<size_t>(align) + static_cast<size_t>(r.advanced)) * 8 +
                         static_cast<size_t>(r.offset);
  const size_t last_bit = end_bit > 0 ? end_bit - 1 : 0;
  // The tuned decoder reads at most up to the aligned word after the last
  // bit the reference consumed (statuses other than Ok stop early: keep all).
  const size_t words = r.status == kStsOk ? last_bit / 32 + 2 : stream.size() / 4;
  std::vector<Akl8u> cut(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(std::min(stream.size(), words * 4)));
  const Result t = Run(true, op, spec, cut.data() + align, offset, len, linbits);
  ASSERT_EQ(t.status, r.status) << what;
  ASSERT_EQ(t.advanced, r.advanced) << what;
  ASSERT_EQ(t.offset, r.offset) << what;
  ASSERT_EQ(t.out, r.out) << what;  // a failing pair is left unwritten by both
}

void VlcTunedVsRef_RealBooksEncodedAndRandomStreams() {
  const auto books = vlc_test::LoadBooks();
  ASSERT_FALSE(books.empty());
  std::mt19937 rng(akl::test::TestSeed());
  for (const Book& b : books) {
    const int max_len = vlc_test::MaxLength(vlc_test::SignedEntries(b)) + 2;
    const std::vector<std::vector<int>> splits = {{max_len}, {8, 8, 8, 8}, {10, 10, 10}, {4, 3, 5, 6, 6, 6, 6}};
    for (const auto& [op, elements] : OpsFor(b)) {
      const auto entries = elements ? vlc_test::TupleEntries(b) : vlc_test::SignedEntries(b);
      for (const auto& sizes : splits) {
        Ctx c = Build(entries, sizes, elements, vlc_test::ValueBits(b));
        for (int align = 0; align < 4; ++align) {
          {
            const int offset = static_cast<int>(rng() % 8);
            const int count = 37 + static_cast<int>(rng() % 300);  // short blocks and long ones
            const int len = count * (elements ? elements : (op == Op::kBlock ? 1 : b.dim)) - static_cast<int>(rng() % 2);
            const std::string what = b.name + " op " + std::to_string(static_cast<int>(op)) + " levels " +
                                     std::to_string(sizes.size()) + " at " + std::to_string(align) + "/" +
                                     std::to_string(offset);
            Compare(op, c.spec(), Encoded(b, op, rng, count, align, offset), align, offset, len, b.linbits, what);
            std::vector<Akl8u> noise(static_cast<size_t>(count) * 12 + 64);
            for (auto& x : noise) x = static_cast<Akl8u>(rng());
            Compare(op, c.spec(), noise, align, offset, len / 2, b.linbits, what + " noise");
          }
        }
      }
    }
  }
}

// One-bit codes are the worst case for the block decoder's look-ahead loads:
// the stream ends closest to them.  Every block length around the switch from
// the body loop to the tail, in buffers that end at the reading limit.
void VlcTunedVsRef_OneBitCodesEndingAtTheReadingLimit() {
  const auto book = vlc_test::Entries({{5, "0"}, {6, "10"}, {7, "11"}});
  auto ctx = vlc_test::DecodeContext(book, {2});
  for (int len = 90; len <= 140; ++len) {
    for (int offset = 0; offset < 8; ++offset) {
      for (const Akl8u fill : {Akl8u{0x00}, Akl8u{0x24}}) {
        // 0x24 = 00100100: codes 0 0 10 0 10 0 ..., mostly one bit.
        std::vector<Akl8u> roomy(static_cast<size_t>(len) + 64, fill);
        std::vector<Akl16s> want(static_cast<size_t>(len)), got(want.size());
        Akl8u* p = roomy.data();
        int off = offset;
        ASSERT_EQ(ref::DecodeBlock_1u16sRef(&p, &off, want.data(), len, ctx.dec()), kStsOk);
        const size_t end = static_cast<size_t>(p - roomy.data()) * 8 + static_cast<size_t>(off);
        auto exact = vlc_test::ExactCopy(roomy, static_cast<size_t>(offset), end - static_cast<size_t>(offset));
        Akl8u* q = exact.Start(0);
        int qoff = offset;
        ASSERT_EQ(aklsVLCDecodeBlock_1u16s(&q, &qoff, got.data(), len, ctx.dec()), kStsOk);
        EXPECT_EQ(got, want) << len;
        EXPECT_EQ(static_cast<size_t>(q - exact.bytes.data()) * 8 + static_cast<size_t>(qoff), end) << len;
      }
    }
  }
}

}  // namespace

namespace vlcdec {

// Tuple contexts of every extreme shape the tuple Init accepts (one element
// of 32 bits, 32 elements of one bit, ...): the escape decoders split values
// into pairs whatever the shape, so a 32-bit element shift must stay defined.
// Tuned and reference forms agree on random streams.
void VlcTunedVsRef_ExtremeTupleShapes() {
  struct Shape {
    int elements, bits;
  };
  const Shape shapes[] = {{1, 32}, {32, 1}, {2, 16}, {4, 8}, {1, 1}, {16, 2}};
  std::mt19937 rng(akl::test::TestSeed());
  for (const Shape& sh : shapes) {
    // Eight codes of three bits with values that fill the tuple's bits.
    std::vector<VlcCodeEntry> book;
    for (int i = 0; i < 8; ++i) {
      const std::uint32_t v = i == 0 ? 0u : i == 1 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(rng());
      const std::uint32_t mask = sh.elements * sh.bits == 32 ? 0xFFFFFFFFu : (1u << (sh.elements * sh.bits)) - 1u;
      book.push_back({static_cast<Akl32s>(v & mask), i, 3});
    }
    Ctx c = Build(book, {3}, sh.elements, sh.bits);
    for (Op op : {Op::kTuple, Op::kTupleEscAac, Op::kTupleEscMp3}) {
      std::vector<Akl8u> noise(512);
      for (auto& x : noise) x = static_cast<Akl8u>(rng());
      const std::string what = std::to_string(sh.elements) + "x" + std::to_string(sh.bits) + " op " +
                               std::to_string(static_cast<int>(op));
      Compare(op, c.spec(), noise, 1, 3, 64, 13, what);
    }
  }
}

}  // namespace

// ---- the float FFT, the SSE2 MDCT forms and the SBR real predictor against
// their plain forms (relative RMS below 1e-6: both lie about 1.4e-7 from the
// exact values, while a wrong index, sign or twiddle gives differences of
// order 1; the predictor's lanes are bit-identical to its one-subband form).
namespace plain {

using cd = std::complex<double>;

double RelRms(const Akl32fc* got, const Akl32fc* want, std::size_t n) {
  double err = 0, ref = 0;
  for (std::size_t i = 0; i < n; ++i) {
    err += std::norm(cd(got[i].re - want[i].re, got[i].im - want[i].im));
    ref += std::norm(cd(want[i].re, want[i].im));
  }
  return ref > 0 ? std::sqrt(err / ref) : std::sqrt(err);
}

void FftForwardAgainstFftRef() {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (int order = 0; order <= 13; ++order) {
    SCOPED_TRACE(order);
    akl::transform::FFTSpec_C_32fc* raw = nullptr;
    ASSERT_EQ(akl::transform::fftInitAlloc_C_32fc(&raw, order, 8, 0), kStsOk);
    int work_size = 0;
    akl::transform::fftGetBufSize_C_32fc(raw, &work_size);
    std::vector<Akl8u> work(static_cast<std::size_t>(work_size) + 1);
    const std::size_t m = std::size_t{1} << order;
    std::vector<Akl32fc> x(m), a(m), b(m);
    for (auto& v : x) v = {u(rng), u(rng)};
    akl::transform::FftForward(*akl::ContextAt<akl::transform::FFTSpec_C_32fc>(raw, 64), x.data(), a.data(),
                               work.data() + 1);
    akl::transform::FftRef(x.data(), b.data(), order);
    EXPECT_LT(RelRms(a.data(), b.data(), m), 1e-6);
    akl::transform::fftFree_C_32fc(raw);
  }
}

void MdctSse2AgainstMdctRef() {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (int n = 64; n <= 8192; n *= 2) {
    SCOPED_TRACE(n);
    MDCTFwdSpec_32f* fwd = nullptr;
    MDCTInvSpec_32f* inv = nullptr;
    ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, n), kStsOk);
    ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, n), kStsOk);
    const auto& fs = *akl::ContextAt<akl::transform::MdctSpec>(fwd, 64);
    const auto& is = *akl::ContextAt<akl::transform::MdctSpec>(inv, 64);
    std::vector<Akl32fc> work(static_cast<std::size_t>(n) + 16);
    Akl32fc* z = akl::AlignUp(work.data(), 64);
    std::vector<float> x(static_cast<std::size_t>(n)), a(x.size()), b(x.size());
    for (auto& v : x) v = u(rng);
    auto rel = [&](std::size_t len) {
      std::vector<Akl32fc> ca(len), cb(len);
      for (std::size_t i = 0; i < len; ++i) ca[i] = {a[i], 0}, cb[i] = {b[i], 0};
      return RelRms(ca.data(), cb.data(), len);
    };
    akl::transform::MdctFwdSse2(fs, x.data(), a.data(), z);
    akl::transform::MdctFwdRef(fs, x.data(), b.data(), z);
    EXPECT_LT(rel(static_cast<std::size_t>(n / 2)), 1e-6);
    akl::transform::MdctInvSse2(is, x.data(), a.data(), z);
    akl::transform::MdctInvRef(is, x.data(), b.data(), z);
    EXPECT_LT(rel(static_cast<std::size_t>(n)), 1e-6);
    aklsMDCTFwdFree_32f(fwd);
    aklsMDCTInvFree_32f(inv);
  }
}

void PredictRealAgainstPredictRealOneRef() {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<float> u(-1000.0f, 1000.0f);
  for (const int len : {1, 2, 19, 38}) {
    const int bands = 13;
    std::vector<std::vector<float>> data(static_cast<std::size_t>(len + 2), std::vector<float>(bands));
    std::vector<const Akl32f*> rows;
    for (auto& r : data) {
      for (auto& v : r) v = u(rng);
      rows.push_back(r.data());
    }
    std::vector<float> a0(bands), a1(bands);
    akl::sbr::PredictReal(rows.data(), a0.data(), a1.data(), bands, len);
    for (int k = 0; k < bands; ++k) {
      float r0 = 0, r1 = 0;
      akl::sbr::PredictRealOneRef(rows.data(), k, len, &r0, &r1);
      EXPECT_EQ(0, std::memcmp(&r0, &a0[static_cast<std::size_t>(k)], 4)) << len << " " << k;
      EXPECT_EQ(0, std::memcmp(&r1, &a1[static_cast<std::size_t>(k)], 4)) << len << " " << k;
    }
  }
}

}  // namespace plain

// ---------------------------------------------------------------------------
// The registry: each tuned kernel with its plain reference, once.

struct Pair {
  const char* name;   // test name
  const char* tuned;  // the tuned kernel (or every member of a dispatched one)
  const char* ref;    // its plain reference
  void (*check)();
};

const Pair kPairs[] = {
    {"FftMembers", "fft_forward of each kernel member", "double DFT", members::KernelMembers_FftMatchesDoubleDft},
    {"MdctMembers", "mdct_fwd, mdct_inv of each kernel member", "double cosine sums",
     members::KernelMembers_MdctMatchesDoubleSums},
    {"SynthWindowSumMembers", "synth_window_sum of each kernel member", "SynthWindowSumRef",
     members::KernelMembers_SynthesisWindowSumIsExactToAStepAndIdenticalAcrossMembers},
    {"Fft", "FftForward", "FftRef", plain::FftForwardAgainstFftRef},
    {"Mdct", "MdctFwdSse2, MdctInvSse2", "MdctFwdRef, MdctInvRef", plain::MdctSse2AgainstMdctRef},
    {"RequantRun", "RequantRun", "RequantRunRef", mp3sig::TunedRequant_RunMatchesReferenceBitExact},
    {"SynthWindowSum", "SynthWindowSum", "SynthWindowSumRef", mp3sig::TunedSynthesis_WindowSumWithinOneStepOfReference},
    {"SynthDct32", "SynthDct32", "SynthDct32Ref", mp3sig::TunedSynthesis_TransformMatchesDirectSum},
    {"SynthSlotKernel", "SynthSlotKernel", "SynthSlotKernelRef", mp3sig::TunedSynthesis_SlotKernelWithinOnePcmStep},
    {"MdctInvKernel", "MdctInvKernel", "MdctInvKernelRef", mp3sig::TunedImdct_MatchesReferenceWithinFewSteps},
    {"AliasReduce", "AliasReduce", "AliasReduceRef", mp3sig::TunedAlias_MatchesReferenceBitExact},
    {"DequantBand", "DequantBand", "DequantBandRef", dequant::DequantBandCheck_MatchesReferenceOnRandomBands},
    {"DequantBandExtremes", "DequantBand", "DequantBandRef", dequant::DequantBandCheck_AllZeroAndExtremeLines},
    {"VlcBlockDecoders", "aklsVLCDecode*Block*_1u16s",
     "DecodeBlock_1u16sRef, DecodeEscBlock_AAC_1u16sRef, DecodeEscBlock_MP3_1u16sRef, DecodeUTupleBlock_1u16sRef, "
     "DecodeUTupleEscBlock_AAC_1u16sRef, DecodeUTupleEscBlock_MP3_1u16sRef",
     vlcdec::VlcTunedVsRef_RealBooksEncodedAndRandomStreams},
    {"VlcOneBitCodesAtTheLimit", "aklsVLCDecodeBlock_1u16s", "DecodeBlock_1u16sRef",
     vlcdec::VlcTunedVsRef_OneBitCodesEndingAtTheReadingLimit},
    {"VlcExtremeTupleShapes", "aklsVLCDecodeUTuple*Block*_1u16s",
     "DecodeUTupleBlock_1u16sRef, DecodeUTupleEscBlock_AAC_1u16sRef, DecodeUTupleEscBlock_MP3_1u16sRef",
     vlcdec::VlcTunedVsRef_ExtremeTupleShapes},
    {"SbrPredictReal", "PredictReal", "PredictRealOneRef", plain::PredictRealAgainstPredictRealOneRef},
};

class TunedVsRef : public ::testing::TestWithParam<Pair> {};

TEST_P(TunedVsRef, Agree) {
  SCOPED_TRACE(std::string(GetParam().tuned) + " against " + GetParam().ref);
  GetParam().check();
}

INSTANTIATE_TEST_SUITE_P(Pairs, TunedVsRef, ::testing::ValuesIn(kPairs),
                         [](const ::testing::TestParamInfo<Pair>& p) { return std::string(p.param.name); });

// The binding of the dispatched kernels.
TEST(KernelMembers, TheBestMemberIsBoundAtAttach) { members::KernelMembers_TheBestMemberIsBoundAtAttach(); }
TEST(KernelMembers, TheExportsRunTheBoundMember) { members::KernelMembers_TheExportsRunTheBoundMember(); }

// Every plain reference declared in the library (a function whose name ends
// in Ref) is paired above.
TEST(TunedVsRef, EveryReferenceIsPaired) {
  std::string refs;
  for (const Pair& p : kPairs) refs += std::string(p.ref) + ", ";
  const std::regex decl(R"(\b([A-Z]\w*Ref)\()");
  std::vector<std::string> missing;
  for (const auto& e : std::filesystem::recursive_directory_iterator(std::string(AKLAC_SOURCE_DIR) + "/src")) {
    if (e.path().extension() != ".hpp") continue;
    std::ifstream in(e.path());
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (std::sregex_iterator it(text.begin(), text.end(), decl), end; it != end; ++it) {
      const std::string name = (*it)[1];
      if (refs.find(name + ",") == std::string::npos) missing.push_back(name + " (" + e.path().filename().string() + ")");
    }
  }
  EXPECT_TRUE(missing.empty()) << ::testing::PrintToString(missing);
}
