// AAC spectral tools at real frame sizes: dequantization of long and short
// frames, M/S, noise substitution, deinterleaving and TNS.  Frames rotate
// through a pool of varied spectra so that the magnitude branches are not
// perfectly predicted.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "aklac.h"

namespace {

constexpr int kPool = 16;
constexpr int kSfIndex = 4;  // 44.1 kHz: 49 long bands, 14 short

// Quantized spectra shaped like music at 128 kbps: mostly 0 and +-1..3 in
// the upper bands, larger values (a few escapes) at low frequencies.
std::vector<std::vector<Akl32s>> QuantizedPool() {
  std::mt19937 rng(20261122);
  std::vector<std::vector<Akl32s>> pool(kPool, std::vector<Akl32s>(1024));
  for (auto& f : pool)
    for (int i = 0; i < 1024; ++i) {
      const double scale = 40.0 * std::exp(-i / 90.0) + 0.6;
      std::exponential_distribution<double> mag(1.0 / scale);
      const int m = std::min(8191, static_cast<int>(mag(rng)));
      f[static_cast<std::size_t>(i)] = (rng() & 1) ? m : -m;
    }
  return pool;
}

void BM_QuantInvLong(benchmark::State& state) {
  const auto pool = QuantizedPool();
  std::vector<Akl16s> sf(49);
  std::vector<Akl8u> cb(49, 1);
  for (int b = 0; b < 49; ++b) sf[static_cast<std::size_t>(b)] = static_cast<Akl16s>(140 - b);
  const Akl32s grp = 1;
  std::vector<Akl32s> x(1024);
  int k = 0;
  for (auto _ : state) {
    x = pool[static_cast<std::size_t>(k++ % kPool)];
    aklsQuantInv_AAC_32s_I(x.data(), sf.data(), 1, &grp, 49, cb.data(), kSfIndex, 1024);
    benchmark::DoNotOptimize(x.data());
  }
  state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_QuantInvLong);

void BM_QuantInvShortAndDeinterleave(benchmark::State& state) {
  const auto pool = QuantizedPool();
  const Akl32s grp[3] = {3, 1, 4};
  std::vector<Akl16s> sf(3 * 14, 120);
  std::vector<Akl8u> cb(3 * 14, 1);
  std::vector<Akl32s> x(1024), y(1024);
  int k = 0;
  for (auto _ : state) {
    x = pool[static_cast<std::size_t>(k++ % kPool)];
    aklsQuantInv_AAC_32s_I(x.data(), sf.data(), 3, grp, 14, cb.data(), kSfIndex, 128);
    aklsDeinterleaveSpectrum_AAC_32s(x.data(), y.data(), 3, grp, 14, kSfIndex, 128);
    benchmark::DoNotOptimize(y.data());
  }
  state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_QuantInvShortAndDeinterleave);

void BM_MsStereo(benchmark::State& state) {
  std::vector<Akl32s> l(1024, 1000), r(1024, -300);
  std::vector<Akl8u> cb(49, 1), used(60, 1);
  const Akl32s grp = 1;
  for (auto _ : state) {
    aklsDecodeMsStereo_AAC_32s_I(l.data(), r.data(), 1, used.data(), cb.data(), 1, &grp, 49, kSfIndex, 1024);
    benchmark::DoNotOptimize(l.data());
  }
  state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_MsStereo);

void BM_PnsAllBands(benchmark::State& state) {
  std::vector<Akl32s> x(1024);
  std::vector<Akl8u> cb(49, 13);
  std::vector<Akl16s> nrg(49, 60);
  Akl32s ltp[41] = {}, seed = 1;
  const Akl32s grp = 1;
  for (auto _ : state) {
    aklsDecodePNS_AAC_32s(x.data(), ltp, cb.data(), nrg.data(), 49, 1, &grp, kSfIndex, 1024, &seed);
    benchmark::DoNotOptimize(x.data());
  }
  state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_PnsAllBands);

void BM_TnsLongOrder12(benchmark::State& state) {
  std::vector<Akl32s> x(1024);
  std::mt19937 rng(5);
  for (auto& v : x) v = static_cast<Akl32s>(rng() % 200001) - 100000;
  const Akl32s nfilt[1] = {1}, length[1] = {40}, order[1] = {12}, res[1] = {4}, dir[1] = {0};
  const Akl8s coef[12] = {3, -2, 1, 0, 2, -1, 1, -1, 0, 1, -2, 1};
  for (auto _ : state) {
    aklsDecodeTNS_AAC_32s_I(x.data(), nfilt, length, order, res, coef, dir, 49, 1, kSfIndex, 1024);
    aklsEncodeTNS_AAC_32s_I(x.data(), nfilt, length, order, res, coef, dir, 49, 1, kSfIndex, 1024);
    benchmark::DoNotOptimize(x.data());
  }
  state.SetItemsProcessed(state.iterations() * 2 * 1024);
}
BENCHMARK(BM_TnsLongOrder12);

}  // namespace
