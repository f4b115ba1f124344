// Layer III signal stages per granule and channel: requantization (both
// channels, joint stereo), inverse MDCT (long and short blocks) and the
// 18 synthesis calls of a granule.  Inputs rotate through a pool of varied
// granules (decaying random spectra of different widths and gains).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "aklac.h"

namespace {

constexpr int kPool = 64;

struct Input {
  std::vector<Akl32s> quant;  // 2 x 576 quantized lines
  int bound[2];
  Akl8s sf[78];
  AklMP3SideInfo si[2];
};

std::vector<Input> MakePool(int block_type) {
  std::mt19937 rng(20261122u);
  std::vector<Input> pool(kPool);
  for (Input& in : pool) {
    in.quant.assign(1152, 0);
    const int width = 300 + static_cast<int>(rng() % 270);
    for (int ch = 0; ch < 2; ++ch) {
      for (int i = 0; i < width; ++i) {
        const double scale = 40.0 * (1.0 - i / static_cast<double>(width));
        const int v = static_cast<int>(std::uniform_real_distribution<double>(-scale, scale)(rng));
        in.quant[576 * ch + i] = v;
      }
      in.bound[ch] = width;
      in.si[ch] = AklMP3SideInfo{};
      in.si[ch].globalGain = 140 + static_cast<int>(rng() % 20);
      in.si[ch].blockType = block_type;
      in.si[ch].windowSwitchingFlag = block_type != 0;
    }
    for (Akl8s& s : in.sf) s = static_cast<Akl8s>(rng() % 8);
  }
  return pool;
}

AklMP3FrameHeader JointStereo() {
  AklMP3FrameHeader h{};
  h.id = 1;
  h.layer = 1;
  h.mode = 1;
  h.modeExtension = 2;
  return h;
}

void BM_ReQuantize(benchmark::State& state) {
  const auto pool = MakePool(static_cast<int>(state.range(0)));
  const AklMP3FrameHeader h = JointStereo();
  std::vector<Akl32s> xr(1152), work(576);
  std::size_t n = 0;
  for (auto _ : state) {
    const Input& in = pool[n++ % kPool];
    xr = in.quant;
    int bound[2] = {in.bound[0], in.bound[1]};
    benchmark::DoNotOptimize(aklsReQuantize_MP3_32s_I(xr.data(), bound, in.sf, in.si, &h, work.data()));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));  // granules (two channels)
}
BENCHMARK(BM_ReQuantize)->Arg(0)->Arg(2);

// Requantized pool for the later stages.
std::vector<std::vector<Akl32s>> Requantized(int block_type, std::vector<int>* bounds) {
  const auto pool = MakePool(block_type);
  const AklMP3FrameHeader h = JointStereo();
  std::vector<std::vector<Akl32s>> out;
  std::vector<Akl32s> work(576);
  for (const Input& in : pool) {
    std::vector<Akl32s> xr = in.quant;
    int bound[2] = {in.bound[0], in.bound[1]};
    aklsReQuantize_MP3_32s_I(xr.data(), bound, in.sf, in.si, &h, work.data());
    xr.resize(576);
    out.push_back(xr);
    bounds->push_back(bound[0]);
  }
  return out;
}

void BM_MDCTInv(benchmark::State& state) {
  const int bt = static_cast<int>(state.range(0));
  std::vector<int> bounds;
  const auto pool = Requantized(bt, &bounds);
  std::vector<Akl32s> spec(576), out(576), overlap(576, 0);
  int prev = 0;
  std::size_t n = 0;
  for (auto _ : state) {
    const std::size_t i = n++ % kPool;
    spec = pool[i];
    benchmark::DoNotOptimize(aklsMDCTInv_MP3_32s(spec.data(), out.data(), overlap.data(), bounds[i], &prev, bt, 0));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));  // granule-channels
}
BENCHMARK(BM_MDCTInv)->Arg(0)->Arg(2);

void BM_SynthPQMF_Granule(benchmark::State& state) {
  std::vector<int> bounds;
  const auto pool = Requantized(0, &bounds);
  std::vector<std::vector<Akl32s>> time_pool;
  std::vector<Akl32s> overlap(576, 0), spec(576), out(576);
  int prev = 0;
  for (std::size_t i = 0; i < pool.size(); ++i) {
    spec = pool[i];
    aklsMDCTInv_MP3_32s(spec.data(), out.data(), overlap.data(), bounds[i], &prev, 0, 0);
    time_pool.push_back(out);
  }
  std::vector<Akl32s> v(512, 0);
  int pos = 0;
  Akl16s pcm[1152];
  std::size_t n = 0;
  for (auto _ : state) {
    const std::vector<Akl32s>& y = time_pool[n++ % kPool];
    for (int t = 0; t < 18; ++t) aklsSynthPQMF_MP3_32s16s(y.data() + 32 * t, pcm + 64 * t, v.data(), &pos, 2);
    benchmark::DoNotOptimize(pcm);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));  // granule-channels (18 slots)
}
BENCHMARK(BM_SynthPQMF_Granule);

void BM_SynthesisFilter32f_Granule(benchmark::State& state) {
  AklsFilterState_PQMF_MP3_32f* st = nullptr;
  aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(&st);
  std::vector<float> src(576), dst(576);
  std::mt19937 rng(1);
  for (float& x : src) x = std::uniform_real_distribution<float>(-0.05f, 0.05f)(rng);
  for (auto _ : state) {
    aklsSynthesisFilter_PQMF_MP3_32f(src.data(), dst.data(), st, 18);
    benchmark::DoNotOptimize(dst.data());
  }
  aklsSynthesisFilterFree_PQMF_MP3_32f(st);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_SynthesisFilter32f_Granule);

}  // namespace
