// Throughput of the interleave family, in samples (all channels) per ns.
//
// Sizes: 1024 samples per channel (one AAC frame; everything in L1/L2) and
// 256 Ki samples per channel (beyond the caches, so main memory bound).  The
// copy rows move the same number of destination bytes and mark the memory
// speed the operations should reach; the Plain rows are
// the obvious frame loop, for comparison with the vector paths.
#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "aklac.h"

namespace {

void SetRate(benchmark::State& state, int ch, int len) {
  const double samples = static_cast<double>(state.iterations()) * ch * len;
  state.SetItemsProcessed(static_cast<int64_t>(samples));
  state.counters["samples_per_ns"] = benchmark::Counter(samples * 1e-9, benchmark::Counter::kIsRate);
}

template <class T>
struct Rows {
  std::vector<std::vector<T>> data;
  std::vector<const T*> ptrs;
  std::vector<T*> mut;
  Rows(int ch, int len) : data(static_cast<size_t>(ch), std::vector<T>(static_cast<size_t>(len))) {
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> u(-40000.0f, 40000.0f);
    for (auto& row : data) {
      for (auto& v : row) v = static_cast<T>(u(rng));
      ptrs.push_back(row.data());
      mut.push_back(row.data());
    }
  }
};

void BM_Interleave16s(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  Rows<Akl16s> src(ch, len);
  std::vector<Akl16s> dst(static_cast<size_t>(ch) * len);
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsInterleave_16s(src.ptrs.data(), ch, len, dst.data()));
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

void BM_Interleave32f(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  Rows<Akl32f> src(ch, len);
  std::vector<Akl32f> dst(static_cast<size_t>(ch) * len);
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsInterleave_32f(src.ptrs.data(), ch, len, dst.data()));
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

void BM_Deinterleave16s(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  Rows<Akl16s> dst(ch, len);
  std::vector<Akl16s> src(static_cast<size_t>(ch) * len, 3);
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsDeinterleave_16s(src.data(), ch, len, dst.mut.data()));
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

void BM_Join(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  Rows<Akl32f> src(ch, len);
  std::vector<Akl16s> dst(static_cast<size_t>(ch) * len);
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsJoin_32f16s_D2L(src.ptrs.data(), ch, len, dst.data()));
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

// The obvious scalar Join: lrintf under the default rounding mode, clamped.
void BM_JoinPlain(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  Rows<Akl32f> src(ch, len);
  std::vector<Akl16s> dst(static_cast<size_t>(ch) * len);
  for (auto _ : state) {
    for (int i = 0; i < len; ++i) {
      for (int c = 0; c < ch; ++c) {
        const long v = std::lrintf(src.ptrs[c][i]);
        dst[static_cast<size_t>(i) * ch + c] = static_cast<Akl16s>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
      }
    }
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

void BM_InterleavePlain16s(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  Rows<Akl16s> src(ch, len);
  std::vector<Akl16s> dst(static_cast<size_t>(ch) * len);
  for (auto _ : state) {
    for (int i = 0; i < len; ++i) {
      for (int c = 0; c < ch; ++c) dst[static_cast<size_t>(i) * ch + c] = src.ptrs[c][i];
    }
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

// A copy of the destination's byte count (element size given by range(2)),
// with 16-byte SSE2 loads and stores, and with memcpy.
void BM_CopySse2(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  const size_t bytes = static_cast<size_t>(ch) * len * static_cast<size_t>(state.range(2));
  std::vector<char> src(bytes, 1), dst(bytes);
  for (auto _ : state) {
    for (size_t i = 0; i < bytes; i += 16) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst.data() + i),
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(src.data() + i)));
    }
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

void BM_Memcpy(benchmark::State& state) {
  const int ch = static_cast<int>(state.range(0)), len = static_cast<int>(state.range(1));
  const size_t bytes = static_cast<size_t>(ch) * len * static_cast<size_t>(state.range(2));
  std::vector<char> src(bytes, 1), dst(bytes);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), bytes);
    benchmark::ClobberMemory();
  }
  SetRate(state, ch, len);
}

void BM_MakeFloat(benchmark::State& state) {
  const int len = static_cast<int>(state.range(0));
  std::vector<Akl16s> mant(static_cast<size_t>(len), 12345), exps(static_cast<size_t>(len), 3);
  std::vector<Akl32f> dst(static_cast<size_t>(len));
  for (auto _ : state) {
    benchmark::DoNotOptimize(aklsMakeFloat_16s32f(mant.data(), exps.data(), len, dst.data()));
    benchmark::ClobberMemory();
  }
  SetRate(state, 1, len);
}

void Shapes(benchmark::internal::Benchmark* b) {
  b->ArgNames({"ch", "len"});
  for (int ch : {2, 6}) {
    for (int len : {1024, 256 * 1024}) b->Args({ch, len});
  }
}
void CopyShapes(benchmark::internal::Benchmark* b) {
  b->ArgNames({"ch", "len", "bytes"});
  for (int bytes : {2, 4}) {
    for (int ch : {2, 6}) {
      for (int len : {1024, 256 * 1024}) b->Args({ch, len, bytes});
    }
  }
}

BENCHMARK(BM_Interleave16s)->Apply(Shapes);
BENCHMARK(BM_InterleavePlain16s)->Apply(Shapes);
BENCHMARK(BM_Interleave32f)->Apply(Shapes);
BENCHMARK(BM_Deinterleave16s)->Apply(Shapes);
BENCHMARK(BM_Join)->Apply(Shapes);
BENCHMARK(BM_JoinPlain)->Apply(Shapes);
BENCHMARK(BM_CopySse2)->Apply(CopyShapes);
BENCHMARK(BM_Memcpy)->Apply(CopyShapes);
BENCHMARK(BM_MakeFloat)->Arg(1024)->Arg(256 * 1024);

}  // namespace
