// Walks the syntax elements of one AAC raw data block with the library's
// exports: SCE, CPE, LFE, CCE, DSE, PCE, FIL, END.  Meant to be copied by a
// decoder: it uses only aklac.h and the client kit (tools/kit: bit fields on
// the cursor, the coupling element's gain codes on the VLC engine).
#pragma once

#include <cstdint>
#include <vector>

#include "aklac.h"
#include "kit/aac_scale_factors.hpp"
#include "kit/bits.hpp"

namespace aactest {

// The few fields the exports leave to their caller (element ids, tags,
// coupling fields), read on the caller's cursor through the client kit.
inline std::uint32_t ReadBits(Akl8u** pp, Akl32s* off, int n) {
  aklkit::BitCursor c{*pp, *off};
  const std::uint32_t v = aklkit::ReadBits(c, n);
  *pp = c.p;
  *off = c.off;
  return v;
}

// One scale-factor code word (a coupling gain), on the library's VLC engine.
inline int ReadScaleFactorCode(Akl8u** pp, Akl32s* off, const aklkit::ScaleFactorCodes& codes) {
  aklkit::BitCursor c{*pp, *off};
  const int d = codes.Decode(c);
  *pp = c.p;
  *off = c.off;
  return d;
}

enum ElementId { kSce = 0, kCpe = 1, kCce = 2, kLfe = 3, kDse = 4, kPce = 5, kFil = 6, kEnd = 7 };

struct WalkStats {
  long elements[8] = {};
  long long_windows = 0;
  long short_windows = 0;
  long pulse = 0;
  long tns = 0;
  long ms_mask = 0;
  long ltp = 0;
  long tns_filters = 0;
  int max_tns_order = 0;
  long intensity_bands = 0;  // bands of codebook 14 or 15 (per window group)
  long noise_bands = 0;      // bands of codebook 13 (per window group)
  long escapes = 0;          // codebook-11 values of magnitude 16 or more
};

// Where one individual channel stream starts, for replaying it alone.
struct ChannelStart {
  const Akl8u* ptr;
  Akl32s offset;
  Akl32s common_window;
  AklAACIcsInfo ics;  // the shared ICS information when common_window is 1
};

struct WalkConfig {
  int sampling_frequency_index = 4;
  int audio_object_type = 2;  // 1 main, 2 LC, 4 LTP
  int pred_sfb_max = 0;       // for main profile
  bool general = false;       // LC streams through aklsNoiselessDecode_AAC (noise bands)
  const aklkit::ScaleFactorCodes* sf_codes = nullptr;  // for coupling gains
  std::vector<ChannelStart>* starts = nullptr;  // if set, every channel stream's start is appended
  // Band offsets of the sampling rate (long and short rows), for the escape count; optional.
  const std::uint16_t* swb_long = nullptr;
  const std::uint16_t* swb_short = nullptr;
};

struct WalkError {
  Status status = kStsOk;
  int element = -1;     // element id being parsed
  const char* where = "";
};

// Working buffers of one channel.
struct ChannelBuffers {
  AklAACIcsInfo ics{};
  AklAACChanInfo info{};
  Akl16s scale_factor[8 * 60] = {};
  Akl32s spectrum[1024] = {};
  Akl8u sfb_cb[8 * 60] = {};
  Akl8s tns_coef[64] = {};
};

class RawBlockWalker {
 public:
  explicit RawBlockWalker(const WalkConfig& cfg) : cfg_(cfg) {}

  // Walks from the cursor to END and its byte alignment.  Returns kStsOk or
  // the first failing status (with err filled in).
  Status Walk(Akl8u** pp, Akl32s* off, WalkStats& stats, WalkError& err) {
    for (int guard = 0; guard < 256; ++guard) {
      const int id = static_cast<int>(ReadBits(pp, off, 3));
      ++stats.elements[id];
      Status st = kStsOk;
      switch (id) {
        case kSce:
        case kLfe:
          ReadBits(pp, off, 4);
          st = Channel(pp, off, ch_[0], 0, nullptr, stats);
          break;
        case kCpe:
          st = PairElement(pp, off, stats);
          break;
        case kCce:
          st = CouplingElement(pp, off, stats);
          break;
        case kDse: {
          Akl32s tag = 0, count = 0;
          st = aklsDecodeDatStrElt_AAC(pp, off, &tag, &count, bytes_);
          break;
        }
        case kPce:
          st = aklsDecodePrgCfgElt_AAC(pp, off, &pce_);
          break;
        case kFil: {
          Akl32s count = 0;
          st = aklsDecodeFillElt_AAC(pp, off, &count, bytes_);
          break;
        }
        case kEnd:
          if (*off != 0) {
            ++*pp;
            *off = 0;
          }
          return kStsOk;
      }
      if (st != kStsOk) {
        err.status = st;
        err.element = id;
        return st;
      }
    }
    err.status = kStsErr;
    err.where = "no END element";
    return kStsErr;
  }

 private:
  bool General() const { return cfg_.general || cfg_.audio_object_type != 2; }

  // One individual channel stream; with a common window `shared` holds the ICS.
  Status Channel(Akl8u** pp, Akl32s* off, ChannelBuffers& ch, int common_window, const AklAACIcsInfo* shared,
                 WalkStats& stats) {
    if (shared) ch.ics = *shared;
    if (cfg_.starts) cfg_.starts->push_back({*pp, *off, common_window, ch.ics});
    ch.info.samplingFrequencyIndex = cfg_.sampling_frequency_index;
    ch.info.pIcsInfo = &ch.ics;
    Status st;
    if (General()) {
      ch.info.predSfbMax = cfg_.pred_sfb_max;
      st = aklsNoiselessDecode_AAC(pp, off, &ltp_, ch.scale_factor, ch.spectrum, ch.sfb_cb, ch.tns_coef, &ch.info, 0,
                                   0, common_window, 0, cfg_.audio_object_type);
      if (st == kStsOk && !common_window && ltp_.ltpData[0].ltpDataPresent) ++stats.ltp;
    } else {
      ch.info.predSfbMax = 0;
      st = aklsNoiselessDecoder_LC_AAC(pp, off, common_window, &ch.info, ch.scale_factor, ch.spectrum, ch.sfb_cb,
                                       ch.tns_coef);
    }
    if (st == kStsOk) {
      (ch.ics.windowSequence == 2 ? stats.short_windows : stats.long_windows)++;
      stats.pulse += ch.info.pulseDataPresent;
      stats.tns += ch.info.tnsDataPresent;
      const int groups = ch.ics.windowSequence == 2 ? ch.ics.numWindowGroups : 1;
      for (int b = 0; b < groups * ch.ics.maxSfb; ++b) {
        stats.intensity_bands += ch.sfb_cb[b] >= 14;
        stats.noise_bands += ch.sfb_cb[b] == 13;
      }
      CountEscapes(ch, stats);
      if (ch.info.tnsDataPresent) {
        int filters = 0;
        for (int w = 0; w < (ch.ics.windowSequence == 2 ? 8 : 1); ++w) filters += ch.info.nFilt[w];
        stats.tns_filters += filters;
        for (int f = 0; f < filters; ++f) {
          if (ch.info.order[f] > stats.max_tns_order) stats.max_tns_order = ch.info.order[f];
        }
      }
    }
    return st;
  }

  // Values of codebook-11 sections at or above the escape threshold (pulses
  // included, so a pulse can add or remove one).
  void CountEscapes(const ChannelBuffers& ch, WalkStats& stats) const {
    const bool short_windows = ch.ics.windowSequence == 2;
    const std::uint16_t* offsets = short_windows ? cfg_.swb_short : cfg_.swb_long;
    if (!offsets) return;
    int base = 0;
    int section = 0;
    for (int g = 0; g < (short_windows ? ch.ics.numWindowGroups : 1); ++g) {
      const int glen = short_windows ? ch.ics.windowGroupLength[g] : 1;
      int start = 0;
      for (int s = 0; s < ch.info.numSec[g]; ++s, ++section) {
        const int end = ch.info.sectEnd[section];
        if (ch.info.sectCb[section] == 11) {
          for (int i = base + offsets[start] * glen; i < base + offsets[end] * glen; ++i) {
            stats.escapes += ch.spectrum[i] >= 16 || ch.spectrum[i] <= -16;
          }
        }
        start = end;
      }
      base += glen * ch.info.windowLength;
    }
  }

  Status PairElement(Akl8u** pp, Akl32s* off, WalkStats& stats) {
    ReadBits(pp, off, 4);
    AklAACIcsInfo ics{};
    Status st;
    if (cfg_.audio_object_type == 2 || cfg_.audio_object_type == 1) {
      st = aklsDecodeChanPairElt_AAC(pp, off, &ics, &cpe_, cfg_.audio_object_type == 1 ? cfg_.pred_sfb_max : 0);
    } else {
      st = aklsDecodeChanPairElt_MP4_AAC(pp, off, &ics, &cpe_, &ltp_, cfg_.pred_sfb_max, cfg_.audio_object_type);
      if (st == kStsOk && cpe_.commonWindow) stats.ltp += ltp_.ltpData[0].ltpDataPresent + ltp_.ltpData[1].ltpDataPresent;
    }
    if (st != kStsOk) return st;
    if (cpe_.commonWindow && cpe_.msMaskPresent) ++stats.ms_mask;
    const AklAACIcsInfo* shared = cpe_.commonWindow ? &ics : nullptr;
    st = Channel(pp, off, ch_[0], cpe_.commonWindow, shared, stats);
    if (st != kStsOk) return st;
    return Channel(pp, off, ch_[1], cpe_.commonWindow, shared, stats);
  }

  Status CouplingElement(Akl8u** pp, Akl32s* off, WalkStats& stats) {
    ReadBits(pp, off, 4);  // element_instance_tag
    const bool ind_sw = ReadBits(pp, off, 1) != 0;
    const int coupled = static_cast<int>(ReadBits(pp, off, 3)) + 1;
    int gain_lists = 0;
    for (int c = 0; c < coupled; ++c) {
      ++gain_lists;
      const bool is_cpe = ReadBits(pp, off, 1) != 0;
      ReadBits(pp, off, 4);
      if (is_cpe) {
        const bool l = ReadBits(pp, off, 1) != 0;
        const bool r = ReadBits(pp, off, 1) != 0;
        if (l && r) ++gain_lists;
      }
    }
    ReadBits(pp, off, 1 + 1 + 2);  // cc_domain, gain_element_sign, gain_element_scale
    ChannelBuffers& ch = ch_[0];
    Status st = Channel(pp, off, ch, 0, nullptr, stats);
    if (st != kStsOk) return st;
    for (int c = 1; c < gain_lists; ++c) {
      const bool common = ind_sw || ReadBits(pp, off, 1) != 0;
      if (common) {
        ReadScaleFactorCode(pp, off, *cfg_.sf_codes);
        continue;
      }
      const int groups = ch.ics.windowSequence == 2 ? ch.ics.numWindowGroups : 1;
      for (int g = 0; g < groups; ++g) {
        for (int sfb = 0; sfb < ch.ics.maxSfb; ++sfb) {
          if (ch.sfb_cb[g * ch.ics.maxSfb + sfb] != 0) ReadScaleFactorCode(pp, off, *cfg_.sf_codes);
        }
      }
    }
    return kStsOk;
  }

  WalkConfig cfg_;
  ChannelBuffers ch_[2];
  AklAACChanPairElt cpe_{};
  AklAACLtpInfo ltp_{};
  AklAACPrgCfgElt pce_{};
  Akl8u bytes_[512] = {};
};

}  // namespace aactest
