// Layer III bitstream stages on a real 128 kbit/s joint-stereo stream:
// frame header and side information per frame, scale factors and Huffman
// decoding per granule and channel.  Work items rotate through every frame
// (or granule) of the stream so branch predictors see real variety.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "aklac.h"
#include "mp3/mp3_stream.hpp"
#include "mp3/tables.hpp"

namespace {

std::vector<std::uint8_t> LoadStream(const char* name) {
  std::ifstream in(std::string(AKLAC_TEST_DATA_DIR) + "/mp3/" + name, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

struct GranuleJob {
  const std::vector<std::uint8_t>* main;
  std::size_t sf_pos;  // bit position of the scale factors in main
  std::size_t huf_pos;  // bit position of the Huffman data
  AklMP3SideInfo si;
  AklMP3FrameHeader h;
  Akl32s scfsi[4];
  int gr, ch, huf_bits;
};

struct Pool {
  std::vector<std::uint8_t> data;
  std::vector<akl::test::Mp3Frame> frames;
  std::vector<std::vector<std::uint8_t>> mains;
  std::vector<GranuleJob> granules;
  std::size_t lines = 0;  // quantized lines up to the non-zero bounds

  explicit Pool(const char* name) : data(LoadStream(name)), frames(akl::test::SplitFrames(data)) {
    akl::test::MainDataAssembler assembler;
    akl::test::Mp3FrameData fd;
    mains.reserve(frames.size());
    for (const auto& f : frames) {
      if (assembler.Next(data, f, fd) != kStsOk || !fd.complete) continue;
      mains.push_back(fd.main);
      const auto& main = mains.back();
      Akl8u* p = const_cast<Akl8u*>(main.data());
      Akl32s off = 0;
      Akl8s sf[2][40];
      for (int gr = 0; gr < fd.granules; ++gr)
        for (int ch = 0; ch < fd.channels; ++ch) {
          GranuleJob j{&main, 0, 0, fd.si[gr * fd.channels + ch], fd.h, {}, gr, ch, 0};
          for (int k = 0; k < 4; ++k) j.scfsi[k] = fd.scfsi[4 * ch + k];
          j.sf_pos = static_cast<std::size_t>(p - main.data()) * 8 + static_cast<std::size_t>(off);
          AklMP3SideInfo si = j.si;
          aklsUnpackScaleFactors_MP3_1u8s(&p, &off, sf[ch], &si, j.scfsi, &fd.h, gr, ch);
          j.huf_pos = static_cast<std::size_t>(p - main.data()) * 8 + static_cast<std::size_t>(off);
          j.huf_bits = j.si.part23Length - static_cast<int>(j.huf_pos - j.sf_pos);
          std::array<Akl32s, 576> is;
          Akl32s bound;
          aklsHuffmanDecode_MP3_1u32s(&p, &off, is.data(), &bound, &si, &fd.h, j.huf_bits);
          lines += static_cast<std::size_t>(bound);
          granules.push_back(j);
        }
    }
  }
};

const Pool& Music() {
  static const Pool pool("mp3_m1_44k1_js_128_music.mp3");
  return pool;
}

void BM_UnpackFrameHeader(benchmark::State& state) {
  const Pool& pool = Music();
  std::size_t i = 0;
  AklMP3FrameHeader h;
  for (auto _ : state) {
    Akl8u* p = const_cast<Akl8u*>(&pool.data[pool.frames[i].offset]);
    benchmark::DoNotOptimize(aklsUnpackFrameHeader_MP3(&p, &h));
    benchmark::DoNotOptimize(h);
    if (++i == pool.frames.size()) i = 0;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  state.SetLabel("per frame");
}
BENCHMARK(BM_UnpackFrameHeader);

void BM_UnpackSideInfo(benchmark::State& state) {
  const Pool& pool = Music();
  std::size_t i = 0;
  AklMP3SideInfo si[4];
  Akl32s scfsi[8], mdb, priv;
  for (auto _ : state) {
    const auto& f = pool.frames[i];
    Akl8u* p = const_cast<Akl8u*>(&pool.data[f.offset + (f.h.protectionBit ? 4 : 6)]);
    benchmark::DoNotOptimize(aklsUnpackSideInfo_MP3(&p, si, &mdb, &priv, scfsi, &f.h));
    benchmark::DoNotOptimize(si);
    if (++i == pool.frames.size()) i = 0;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  state.SetLabel("per frame");
}
BENCHMARK(BM_UnpackSideInfo);

void BM_UnpackScaleFactors(benchmark::State& state) {
  const Pool& pool = Music();
  std::size_t i = 0;
  Akl8s sf[40] = {};
  for (auto _ : state) {
    const GranuleJob& j = pool.granules[i];
    Akl8u* p = const_cast<Akl8u*>(j.main->data()) + j.sf_pos / 8;
    Akl32s off = static_cast<Akl32s>(j.sf_pos & 7);
    AklMP3SideInfo si = j.si;
    benchmark::DoNotOptimize(aklsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, j.scfsi, &j.h, j.gr, j.ch));
    benchmark::DoNotOptimize(sf);
    if (++i == pool.granules.size()) i = 0;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  state.SetLabel("per granule and channel");
}
BENCHMARK(BM_UnpackScaleFactors);

void BM_HuffmanDecodeSfb(benchmark::State& state) {
  const Pool& pool = Music();
  std::size_t i = 0;
  alignas(16) Akl32s is[576];
  Akl32s bound;
  for (auto _ : state) {
    const GranuleJob& j = pool.granules[i];
    Akl8u* p = const_cast<Akl8u*>(j.main->data()) + j.huf_pos / 8;
    Akl32s off = static_cast<Akl32s>(j.huf_pos & 7);
    benchmark::DoNotOptimize(
        aklsHuffmanDecodeSfb_MP3_1u32s(&p, &off, is, &bound, &j.si, &j.h, j.huf_bits, &akl::mp3::kSfbLong[0][0]));
    benchmark::DoNotOptimize(is);
    if (++i == pool.granules.size()) i = 0;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  state.counters["granules"] = static_cast<double>(pool.granules.size());
  state.counters["lines_per_granule"] = static_cast<double>(pool.lines) / static_cast<double>(pool.granules.size());
  state.SetLabel("per granule and channel");
}
BENCHMARK(BM_HuffmanDecodeSfb);

}  // namespace
