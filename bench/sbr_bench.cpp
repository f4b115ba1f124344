// SBR predictor estimation: one call per frame for all low-band subbands
// (32 or 64 bands, 38 time slots + 2 history slots, as in a 2048-sample
// frame at the SBR rate), and the fixed-point members once per subband.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "aklac.h"

namespace {

constexpr int kLen = 38;

template <class T>
struct Slots {
  std::vector<std::vector<T>> data;
  std::vector<const T*> rows;
  Slots(int bands, int amp_bits) : data(kLen + 2, std::vector<T>(static_cast<size_t>(bands))) {
    std::mt19937 rng(7);
    std::normal_distribution<double> g(0, static_cast<double>(1 << amp_bits) / 4);
    for (auto& row : data) {
      for (auto& v : row) {
        if constexpr (std::is_same_v<T, Akl32f>) {
          v = static_cast<float>(g(rng));
        } else if constexpr (std::is_same_v<T, Akl32fc>) {
          v = {static_cast<float>(g(rng)), static_cast<float>(g(rng))};
        } else if constexpr (std::is_same_v<T, Akl32s>) {
          v = static_cast<Akl32s>(g(rng));
        } else {
          v = {static_cast<Akl32s>(g(rng)), static_cast<Akl32s>(g(rng))};
        }
      }
      rows.push_back(row.data());
    }
  }
};

void Rate(benchmark::State& state, int bands) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * bands);  // subbands per second
}

void BM_PredictReal(benchmark::State& state) {
  const int bands = static_cast<int>(state.range(0));
  Slots<Akl32f> s(bands, 0);
  std::vector<Akl32f> a0(static_cast<size_t>(bands)), a1(static_cast<size_t>(bands));
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsPredictCoef_SBR_R_32f_D2L(s.rows.data(), a0.data(), a1.data(), bands, kLen));
    benchmark::ClobberMemory();
  }
  Rate(state, bands);
}

void BM_PredictComplexSplit(benchmark::State& state) {
  const int bands = static_cast<int>(state.range(0));
  Slots<Akl32f> re(bands, 0), im(bands, 1);
  std::vector<Akl32f> o[4];
  for (auto& v : o) v.resize(static_cast<size_t>(bands));
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsPredictCoef_SBR_C_32f_D2L(re.rows.data(), im.rows.data(), o[0].data(), o[1].data(),
                                                           o[2].data(), o[3].data(), bands, kLen));
    benchmark::ClobberMemory();
  }
  Rate(state, bands);
}

void BM_PredictComplex(benchmark::State& state) {
  const int bands = static_cast<int>(state.range(0));
  Slots<Akl32fc> s(bands, 0);
  std::vector<Akl32fc> a0(static_cast<size_t>(bands)), a1(static_cast<size_t>(bands));
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsPredictCoef_SBR_C_32fc_D2L(s.rows.data(), a0.data(), a1.data(), bands, kLen));
    benchmark::ClobberMemory();
  }
  Rate(state, bands);
}

void BM_PredictOneLowPower(benchmark::State& state) {
  const int bands = static_cast<int>(state.range(0));
  Slots<Akl32s> s(bands, 24);
  std::vector<Akl32s> a0(static_cast<size_t>(bands)), a1(static_cast<size_t>(bands));
  for (auto _ : state) {
    for (int k = 0; k < bands; ++k) {
      benchmark::DoNotOptimize(aklsPredictOneCoef_SBRLP_32s_D2L(s.rows.data(), &a0[k], &a1[k], k, kLen));
    }
    benchmark::ClobberMemory();
  }
  Rate(state, bands);
}

void BM_PredictOneHighQuality(benchmark::State& state) {
  const int bands = static_cast<int>(state.range(0));
  Slots<Akl32sc> s(bands, 24);
  std::vector<Akl32sc> a0(static_cast<size_t>(bands)), a1(static_cast<size_t>(bands));
  for (auto _ : state) {
    for (int k = 0; k < bands; ++k) {
      benchmark::DoNotOptimize(aklsPredictOneCoef_SBRHQ_32sc_D2L(s.rows.data(), &a0[k], &a1[k], k, kLen));
    }
    benchmark::ClobberMemory();
  }
  Rate(state, bands);
}

BENCHMARK(BM_PredictReal)->Arg(32)->Arg(64);
BENCHMARK(BM_PredictComplexSplit)->Arg(32)->Arg(64);
BENCHMARK(BM_PredictComplex)->Arg(32)->Arg(64);
BENCHMARK(BM_PredictOneLowPower)->Arg(32);
BENCHMARK(BM_PredictOneHighQuality)->Arg(32);

}  // namespace
