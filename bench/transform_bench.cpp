// Complex FFT (orders 3..12) and MDCT (N = 256 .. 2048, both directions):
// this library against FFTW (single precision, FFTW_MEASURE plans, out of
// place) and KissFFT when they are installed, in one binary so that ratios
// come from one run.  The peers' MDCTs use the same N/4-point complex FFT
// algorithm as ours, with the pre- and post-twiddles written plainly here.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <random>
#include <vector>

#include "aklac.h"
#include "core/dispatch.hpp"
#include "transform/fft.hpp"

#if AKLAC_HAVE_FFTW3F
#include <fftw3.h>
#endif
#if AKLAC_HAVE_KISSFFT
#include <kiss_fft.h>
#endif

namespace {

using akl::transform::FFTSpec_C_32fc;

// The machine is shared: with --benchmark_repetitions the minimum is the
// figure least disturbed by other work.
double MinOf(const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); }

std::vector<float> RandomFloats(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (auto& x : v) x = d(rng);
  return v;
}

// The kernel member named by argument 1 (0 SSE2, 1 AVX2/FMA) is bound for the
// benchmark, so the members' rows come from one run; false (and the row is
// skipped) when this build or processor lacks it.
bool BindMember(benchmark::State& state) {
  const auto set = static_cast<akl::KernelSet>(state.range(1));
  if (!akl::BindKernelSet(set)) {
    state.SkipWithError("kernel member not available");
    return false;
  }
  state.SetLabel(set == akl::KernelSet::kSse2 ? "sse2" : "avx2+fma");
  return true;
}

// --- complex FFT -------------------------------------------------------------

void BM_Fft_Aklac(benchmark::State& state) {
  if (!BindMember(state)) return;
  const int order = static_cast<int>(state.range(0));
  const int m = 1 << order;
  FFTSpec_C_32fc* spec = nullptr;
  if (akl::transform::fftInitAlloc_C_32fc(&spec, order, 8, 0) != kStsOk) {
    state.SkipWithError("init");
    return;
  }
  auto in = RandomFloats(2 * static_cast<std::size_t>(m), 1);
  std::vector<float> out(in.size());
  // The work buffer (orders above 10) is the caller's, as FFTW's plan owns
  // its scratch: a null buffer would time an allocation per call.
  int work_size = 0;
  akl::transform::fftGetBufSize_C_32fc(spec, &work_size);
  std::vector<Akl8u> work(static_cast<std::size_t>(work_size));
  for (auto _ : state) {
    akl::transform::fftFwd_CToC_32fc(reinterpret_cast<const Akl32fc*>(in.data()), reinterpret_cast<Akl32fc*>(out.data()),
                                     spec, work.empty() ? nullptr : work.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * m);
  akl::transform::fftFree_C_32fc(spec);
}
BENCHMARK(BM_Fft_Aklac)->ArgsProduct({benchmark::CreateDenseRange(3, 12, 1), {0, 1}})->ComputeStatistics("min", MinOf);

// The split kernel alone, on data already in bit-reversed order (as the MDCT runs it).
void BM_FftKernel_Aklac(benchmark::State& state) {
  const int order = static_cast<int>(state.range(0));
  const int m = 1 << order;
  FFTSpec_C_32fc* spec = nullptr;
  akl::transform::fftInitAlloc_C_32fc(&spec, order, 8, 0);
  const auto& s = *akl::ContextAt<FFTSpec_C_32fc>(spec, 64);
  auto data = RandomFloats(2 * static_cast<std::size_t>(m) + 16, 1);
  float* re = akl::AlignUp(data.data(), 64);
  for (auto _ : state) {
    akl::transform::FftSplitBitReversed(s, re, re + m);
    benchmark::DoNotOptimize(re);
  }
  state.SetItemsProcessed(state.iterations() * m);
  akl::transform::fftFree_C_32fc(spec);
}
BENCHMARK(BM_FftKernel_Aklac)->DenseRange(3, 12)->ComputeStatistics("min", MinOf);

#if AKLAC_HAVE_FFTW3F
void BM_Fft_Fftw(benchmark::State& state) {
  const int m = 1 << state.range(0);
  auto* in = fftwf_alloc_complex(static_cast<std::size_t>(m));
  auto* out = fftwf_alloc_complex(static_cast<std::size_t>(m));
  fftwf_plan plan = fftwf_plan_dft_1d(m, in, out, FFTW_FORWARD, FFTW_MEASURE);
  const auto r = RandomFloats(2 * static_cast<std::size_t>(m), 1);
  for (int i = 0; i < m; ++i) {
    in[i][0] = r[2 * static_cast<std::size_t>(i)];
    in[i][1] = r[2 * static_cast<std::size_t>(i) + 1];
  }
  for (auto _ : state) {
    fftwf_execute(plan);
    benchmark::DoNotOptimize(out);
  }
  state.SetItemsProcessed(state.iterations() * m);
  fftwf_destroy_plan(plan);
  fftwf_free(in);
  fftwf_free(out);
}
BENCHMARK(BM_Fft_Fftw)->DenseRange(3, 12)->ComputeStatistics("min", MinOf);
#endif

#if AKLAC_HAVE_KISSFFT
void BM_Fft_Kiss(benchmark::State& state) {
  const int m = 1 << state.range(0);
  kiss_fft_cfg cfg = kiss_fft_alloc(m, 0, nullptr, nullptr);
  const auto r = RandomFloats(2 * static_cast<std::size_t>(m), 1);
  std::vector<kiss_fft_cpx> in(static_cast<std::size_t>(m)), out(in.size());
  for (std::size_t i = 0; i < in.size(); ++i) in[i] = {r[2 * i], r[2 * i + 1]};
  for (auto _ : state) {
    kiss_fft(cfg, in.data(), out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * m);
  kiss_fft_free(cfg);
}
BENCHMARK(BM_Fft_Kiss)->DenseRange(3, 12)->ComputeStatistics("min", MinOf);
#endif

// --- MDCT --------------------------------------------------------------------

// This library's transform of x (N or N/2 values), to check a peer's result.
std::vector<float> AklacMdct(bool forward, int n, const std::vector<float>& x) {
  std::vector<float> y(static_cast<std::size_t>(n));
  if (forward) {
    MDCTFwdSpec_32f* spec = nullptr;
    aklsMDCTFwdInitAlloc_32f(&spec, n);
    aklsMDCTFwd_32f(x.data(), y.data(), spec, nullptr);
    aklsMDCTFwdFree_32f(spec);
    y.resize(static_cast<std::size_t>(n / 2));
  } else {
    MDCTInvSpec_32f* spec = nullptr;
    aklsMDCTInvInitAlloc_32f(&spec, n);
    aklsMDCTInv_32f(x.data(), y.data(), spec, nullptr);
    aklsMDCTInvFree_32f(spec);
  }
  return y;
}

// Marks the run as an error unless a peer's first `want.size()` outputs agree
// with ours to single precision.
void CheckPeer(benchmark::State& state, const std::vector<float>& want, const float* got) {
  double err = 0, ref = 0;
  for (std::size_t i = 0; i < want.size(); ++i) {
    err += (got[i] - want[i]) * (got[i] - want[i]);
    ref += want[i] * want[i];
  }
  if (err > 1e-10 * ref) state.SkipWithError("peer result differs from aklac");
}

void BM_MdctFwd_Aklac(benchmark::State& state) {
  if (!BindMember(state)) return;
  const int n = static_cast<int>(state.range(0));
  MDCTFwdSpec_32f* spec = nullptr;
  aklsMDCTFwdInitAlloc_32f(&spec, n);
  int bs = 0;
  aklsMDCTFwdGetBufSize_32f(spec, &bs);
  std::vector<Akl8u> buf(static_cast<std::size_t>(bs));
  auto x = RandomFloats(static_cast<std::size_t>(n), 2);
  std::vector<float> y(static_cast<std::size_t>(n / 2));
  for (auto _ : state) {
    aklsMDCTFwd_32f(x.data(), y.data(), spec, buf.data());
    benchmark::DoNotOptimize(y.data());
  }
  state.SetItemsProcessed(state.iterations() * n);
  aklsMDCTFwdFree_32f(spec);
}
BENCHMARK(BM_MdctFwd_Aklac)->ArgsProduct({{256, 512, 1024, 2048}, {0, 1}})->ComputeStatistics("min", MinOf);

void BM_MdctInv_Aklac(benchmark::State& state) {
  if (!BindMember(state)) return;
  const int n = static_cast<int>(state.range(0));
  MDCTInvSpec_32f* spec = nullptr;
  aklsMDCTInvInitAlloc_32f(&spec, n);
  int bs = 0;
  aklsMDCTInvGetBufSize_32f(spec, &bs);
  std::vector<Akl8u> buf(static_cast<std::size_t>(bs));
  auto x = RandomFloats(static_cast<std::size_t>(n / 2), 3);
  std::vector<float> y(static_cast<std::size_t>(n));
  for (auto _ : state) {
    aklsMDCTInv_32f(x.data(), y.data(), spec, buf.data());
    benchmark::DoNotOptimize(y.data());
  }
  state.SetItemsProcessed(state.iterations() * n);
  aklsMDCTInvFree_32f(spec);
}
BENCHMARK(BM_MdctInv_Aklac)->ArgsProduct({{256, 512, 1024, 2048}, {0, 1}})->ComputeStatistics("min", MinOf);

// The MDCT around a peer's complex FFT: plain pre- and post-twiddles (the
// same index arithmetic as ours), with the FFT as a callback on q complex values.
struct PeerMdct {
  int n;
  std::vector<float> sn, cs;
  std::vector<std::complex<float>> z, zf;
  explicit PeerMdct(int len, double scale) : n(len), sn(len / 4), cs(len / 4), z(len / 4), zf(len / 4) {
    for (int j = 0; j < n / 4; ++j) {
      const double a = 2.0 * M_PI * (j + 0.125) / n;
      sn[j] = static_cast<float>(std::sin(a) * scale);
      cs[j] = static_cast<float>(std::cos(a) * scale);
    }
  }
  template <class Fft>
  void Forward(const float* x, float* y, Fft fft) {
    const int q = n / 4, h = q / 2;
    for (int i = 0; i < q; ++i) {
      float a, b;
      if (i < h) {
        a = -x[3 * n / 4 + 2 * i] - x[3 * n / 4 - 1 - 2 * i];
        b = x[n / 4 - 1 - 2 * i] - x[n / 4 + 2 * i];
      } else {
        a = x[2 * i - n / 4] - x[3 * n / 4 - 1 - 2 * i];
        b = -x[5 * n / 4 - 1 - 2 * i] - x[n / 4 + 2 * i];
      }
      z[i] = {cs[i] * a + sn[i] * b, cs[i] * b - sn[i] * a};
    }
    fft(z.data(), zf.data());
    for (int k = 0; k < q; ++k) {
      y[2 * k] = cs[k] * zf[k].real() + sn[k] * zf[k].imag();
      y[n / 2 - 1 - 2 * k] = sn[k] * zf[k].real() - cs[k] * zf[k].imag();
    }
  }
  template <class Fft>
  void Inverse(const float* x, float* y, Fft fft) {
    const int q = n / 4, h = q / 2;
    for (int k = 0; k < q; ++k) {
      const float a = x[2 * k], b = x[n / 2 - 1 - 2 * k];
      z[k] = {cs[k] * a + sn[k] * b, cs[k] * b - sn[k] * a};
    }
    fft(z.data(), zf.data());
    for (int m = 0; m < q; ++m) {
      const float re = zf[m].real(), im = zf[m].imag();
      if (m < h) {
        const float p = cs[m] * im - sn[m] * re, r = -(cs[m] * re + sn[m] * im);
        y[3 * n / 4 + 2 * m] = r;
        y[3 * n / 4 - 1 - 2 * m] = r;
        y[n / 4 + 2 * m] = p;
        y[n / 4 - 1 - 2 * m] = -p;
      } else {
        const float p = cs[m] * re + sn[m] * im, r = cs[m] * im - sn[m] * re;
        y[2 * m - n / 4] = p;
        y[3 * n / 4 - 1 - 2 * m] = -p;
        y[n / 4 + 2 * m] = r;
        y[5 * n / 4 - 1 - 2 * m] = r;
      }
    }
  }
};

template <bool kForward, class MakeFft>
void RunPeerMdct(benchmark::State& state, MakeFft make_fft) {
  const int n = static_cast<int>(state.range(0));
  PeerMdct mdct(n, kForward ? std::sqrt(2.0) : 1.0 / std::sqrt(n / 2.0));
  auto fft = make_fft(n / 4, mdct.z.data(), mdct.zf.data());
  auto x = RandomFloats(static_cast<std::size_t>(kForward ? n : n / 2), 4);
  std::vector<float> y(static_cast<std::size_t>(n));
  if (kForward) {
    mdct.Forward(x.data(), y.data(), fft);
  } else {
    mdct.Inverse(x.data(), y.data(), fft);
  }
  CheckPeer(state, AklacMdct(kForward, n, x), y.data());
  for (auto _ : state) {
    if (kForward) {
      mdct.Forward(x.data(), y.data(), fft);
    } else {
      mdct.Inverse(x.data(), y.data(), fft);
    }
    benchmark::DoNotOptimize(y.data());
  }
  state.SetItemsProcessed(state.iterations() * n);
}

#if AKLAC_HAVE_FFTW3F
struct FftwPlan {
  std::shared_ptr<fftwf_plan_s> plan;
  void operator()(std::complex<float>* in, std::complex<float>* out) const {
    fftwf_execute_dft(plan.get(), reinterpret_cast<fftwf_complex*>(in), reinterpret_cast<fftwf_complex*>(out));
  }
};
FftwPlan MakeFftw(int q, std::complex<float>* in, std::complex<float>* out) {
  fftwf_plan p = fftwf_plan_dft_1d(q, reinterpret_cast<fftwf_complex*>(in), reinterpret_cast<fftwf_complex*>(out),
                                   FFTW_FORWARD, FFTW_MEASURE);
  return {std::shared_ptr<fftwf_plan_s>(p, fftwf_destroy_plan)};
}
// The other common way to an MDCT through FFTW: fold into N/2 values and
// run FFTW's DCT-IV (REDFT11, which includes the factor 2 of our forward
// transform); the inverse unfolds the DCT-IV of the coefficients times 1/N.
template <bool kForward>
void RunFftwDct4(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const int half = n / 2, quarter = n / 4;
  float* u = fftwf_alloc_real(static_cast<std::size_t>(half));
  float* v = fftwf_alloc_real(static_cast<std::size_t>(half));
  fftwf_plan plan = fftwf_plan_r2r_1d(half, u, v, FFTW_REDFT11, FFTW_MEASURE);
  auto x = RandomFloats(static_cast<std::size_t>(kForward ? n : half), 5);
  std::vector<float> y(static_cast<std::size_t>(n));
  const float scale = 1.0f / static_cast<float>(n);
  auto run = [&] {
    if (kForward) {
      for (int j = 0; j < quarter; ++j) u[j] = -x[3 * quarter + j] - x[3 * quarter - 1 - j];
      for (int j = quarter; j < half; ++j) u[j] = x[j - quarter] - x[3 * quarter - 1 - j];
      fftwf_execute(plan);
      std::copy(v, v + half, y.begin());
    } else {
      std::copy(x.begin(), x.end(), u);
      fftwf_execute(plan);
      for (int t = 0; t < quarter; ++t) y[t] = v[t + quarter] * scale;
      for (int t = quarter; t < 3 * quarter; ++t) y[t] = -v[3 * quarter - 1 - t] * scale;
      for (int t = 3 * quarter; t < n; ++t) y[t] = -v[t - 3 * quarter] * scale;
    }
  };
  run();
  CheckPeer(state, AklacMdct(kForward, n, x), y.data());
  for (auto _ : state) {
    run();
    benchmark::DoNotOptimize(y.data());
  }
  state.SetItemsProcessed(state.iterations() * n);
  fftwf_destroy_plan(plan);
  fftwf_free(u);
  fftwf_free(v);
}
void BM_MdctFwd_FftwDct4(benchmark::State& state) { RunFftwDct4<true>(state); }
void BM_MdctInv_FftwDct4(benchmark::State& state) { RunFftwDct4<false>(state); }
BENCHMARK(BM_MdctFwd_FftwDct4)->RangeMultiplier(2)->Range(256, 2048)->ComputeStatistics("min", MinOf);
BENCHMARK(BM_MdctInv_FftwDct4)->RangeMultiplier(2)->Range(256, 2048)->ComputeStatistics("min", MinOf);

void BM_MdctFwd_Fftw(benchmark::State& state) { RunPeerMdct<true>(state, MakeFftw); }
void BM_MdctInv_Fftw(benchmark::State& state) { RunPeerMdct<false>(state, MakeFftw); }
BENCHMARK(BM_MdctFwd_Fftw)->RangeMultiplier(2)->Range(256, 2048)->ComputeStatistics("min", MinOf);
BENCHMARK(BM_MdctInv_Fftw)->RangeMultiplier(2)->Range(256, 2048)->ComputeStatistics("min", MinOf);
#endif

#if AKLAC_HAVE_KISSFFT
struct KissPlan {
  std::shared_ptr<void> cfg;
  void operator()(std::complex<float>* in, std::complex<float>* out) const {
    kiss_fft(static_cast<kiss_fft_cfg>(cfg.get()), reinterpret_cast<kiss_fft_cpx*>(in),
             reinterpret_cast<kiss_fft_cpx*>(out));
  }
};
KissPlan MakeKiss(int q, std::complex<float>*, std::complex<float>*) {
  return {std::shared_ptr<void>(kiss_fft_alloc(q, 0, nullptr, nullptr), [](void* p) { kiss_fft_free(p); })};
}
void BM_MdctFwd_Kiss(benchmark::State& state) { RunPeerMdct<true>(state, MakeKiss); }
void BM_MdctInv_Kiss(benchmark::State& state) { RunPeerMdct<false>(state, MakeKiss); }
BENCHMARK(BM_MdctFwd_Kiss)->RangeMultiplier(2)->Range(256, 2048)->ComputeStatistics("min", MinOf);
BENCHMARK(BM_MdctInv_Kiss)->RangeMultiplier(2)->Range(256, 2048)->ComputeStatistics("min", MinOf);
#endif

}  // namespace
