// Noiseless decoding of real AAC channel streams: ns per channel of
// aklsNoiselessDecoder_LC_AAC, long-window and eight-short-window pools taken
// from the bundled ADTS streams, rotated so that the Huffman decoding is not
// timed on one perfectly predicted frame.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "aac/raw_block_walker.hpp"
#include "aac/tables.hpp"
#include "aklac.h"
#include "support/test_util.hpp"

namespace {

struct Stream {
  std::vector<Akl8u> bytes;
  int sf_index = 4;
};

struct Pool {
  std::vector<Stream> streams;
  std::vector<aactest::ChannelStart> starts;
  std::vector<int> sf_index;
};

std::vector<Akl8u> ReadData(const std::string& name) {
  std::string path = std::string(AKLAC_TEST_DATA_DIR) + "/aac/" + name;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  std::vector<Akl8u> out;
  if (!f) return out;
  int c;
  while ((c = std::fgetc(f)) != EOF) out.push_back(static_cast<Akl8u>(c));
  std::fclose(f);
  return out;
}

// Collects the channel streams of the low-complexity streams, split by window length.
const Pool& Channels(bool short_windows) {
  static Pool pools[2];
  static bool built = false;
  if (!built) {
    built = true;
    static const aklkit::ScaleFactorCodes sf_codes;
    static std::vector<std::vector<Akl8u>> keep;
    for (const char* name : {"ct_faac-adts.aac", "al05_44.adts", "al06_44.adts", "al17_44.adts", "al04_44.adts",
                             "aac_lc_44k1_st_128_mix_msall_is_tns.aac", "aac_lc_32k_st_96_clicks_tns.aac"}) {
      keep.push_back(ReadData(name));
      std::vector<Akl8u>& data = keep.back();
      const std::size_t size = data.size();
      data.resize(size + 8, 0);
      std::size_t pos = 0;
      while (pos + 7 <= size) {
        Akl8u* p = data.data() + pos;
        AklAACADTSFrameHeader h{};
        aklsUnpackADTSFrameHeader_AAC(&p, &h);
        if (h.aacFrameLength < 7) break;
        std::vector<aactest::ChannelStart> starts;
        aactest::WalkConfig cfg;
        cfg.sampling_frequency_index = h.samplingFrequencyIndex;
        cfg.sf_codes = &sf_codes;
        cfg.starts = &starts;
        aactest::RawBlockWalker walker(cfg);
        Akl32s off = 0;
        aactest::WalkStats stats;
        aactest::WalkError err;
        if (walker.Walk(&p, &off, stats, err) == kStsOk) {
          for (const auto& s : starts) {
            // The stream's own ICS info decides long or short for independent windows.
            AklAACIcsInfo ics = s.ics;
            if (!s.common_window) {
              const Akl8u* q = s.ptr;
              int bit = s.offset + 8 + 1;  // after global gain and the reserved bit
              q += bit / 8;
              bit %= 8;
              const int hi = (q[0] >> (7 - bit)) & 1;
              const int lo = bit == 7 ? (q[1] >> 7) & 1 : (q[0] >> (6 - bit)) & 1;
              ics.windowSequence = hi * 2 + lo;
            }
            Pool& pool = pools[ics.windowSequence == 2 ? 1 : 0];
            pool.starts.push_back(s);
            pool.sf_index.push_back(h.samplingFrequencyIndex);
          }
        }
        pos += static_cast<std::size_t>(h.aacFrameLength);
      }
    }
  }
  return pools[short_windows ? 1 : 0];
}

template <bool kGeneral>
void RunChannels(benchmark::State& state) {
  const Pool& pool = Channels(state.range(0) != 0);
  if (pool.starts.empty()) {
    state.SkipWithError("no channel streams");
    return;
  }
  AklAACIcsInfo ics{};
  AklAACChanInfo info{};
  AklAACLtpInfo ltp{};
  info.pIcsInfo = &ics;
  alignas(64) Akl16s sf[8 * 60];
  alignas(64) Akl32s spec[1024];
  alignas(64) Akl8u cb[8 * 60];
  alignas(64) Akl8s tns[64];
  std::size_t i = 0;
  for (auto _ : state) {
    const aactest::ChannelStart& s = pool.starts[i];
    ics = s.ics;
    info.samplingFrequencyIndex = pool.sf_index[i];
    Akl8u* p = const_cast<Akl8u*>(s.ptr);
    Akl32s off = s.offset;
    Status st;
    if constexpr (kGeneral) {
      st = aklsNoiselessDecode_AAC(&p, &off, &ltp, sf, spec, cb, tns, &info, 0, 0, s.common_window, 0, 2);
    } else {
      st = aklsNoiselessDecoder_LC_AAC(&p, &off, s.common_window, &info, sf, spec, cb, tns);
    }
    benchmark::DoNotOptimize(st);
    benchmark::DoNotOptimize(spec[0]);
    if (++i == pool.starts.size()) i = 0;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
  state.counters["channels_in_pool"] = static_cast<double>(pool.starts.size());
  state.counters["ns_per_channel"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The low-complexity decoder: the figure this benchmark is for.
void BM_NoiselessDecoderLc(benchmark::State& state) { RunChannels<false>(state); }
BENCHMARK(BM_NoiselessDecoderLc)->Arg(0)->ArgName("short")->Arg(1);

// The general decoder on the same channels.
void BM_NoiselessDecodeGeneral(benchmark::State& state) { RunChannels<true>(state); }
BENCHMARK(BM_NoiselessDecodeGeneral)->Arg(0)->ArgName("short")->Arg(1);

}  // namespace
