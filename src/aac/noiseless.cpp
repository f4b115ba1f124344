// Noiseless decoding of one individual channel stream: global gain, ICS
// information, section data, scale factors (with intensity positions and
// noise energies), pulse, TNS and gain-control side information, and the
// Huffman-coded quantised spectrum.
//
// Scale factors and spectra are the decoder's hot path.  They go through
// BranchFreeReader's 64-bit accumulator and two-level lookup tables (9 bits first
// for the spectral books, 8 for scale factors, then a second level sized for
// the longest code under each prefix), so nearly every code word costs one
// table load.  A refill keeps at least 32 bits in hand: enough for one code
// word with its sign bits or one escape sequence, and for two code words of
// the books whose longest code word with signs is at most 16 bits.  Measured
// on the bundled streams (bench/aac_bitstream_bench.cpp): 9 bits beat 8 by
// about 3 % and 10 bits gained nothing; two code words per refill and
// branch-free signs took long-window channels from 2.2 to 1.5 us.
#include <bit>
#include <cstring>

#include "aac/syntax.hpp"
#include "aac/tables.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace {

inline constexpr int kMaxSections = 120;
inline constexpr int kMaxSfbLong = 51;
inline constexpr int kNoiseCb = 13;
inline constexpr int kEscCb = 11;
// Escape sequences longer than 8 prefix bits would code magnitudes of 8192 or more.
inline constexpr int kMaxEscPrefix = 8;
// The first noise energy is global_gain - 90 + (v - 256) for its 9-bit v.
inline constexpr int kNoiseOffset = 346;

// Follows a lookup entry to its leaf: one load for codes of up to `bits`
// bits, two for longer ones.
inline std::uint32_t LookUp(const std::uint32_t* lut, int bits, std::uint64_t acc) {
  std::uint32_t e = lut[acc >> (64 - bits)];
  if ((e & 31u) == 0) {
    const int n = static_cast<int>((e >> 5) & 31u);
    e = lut[(e >> 10) + static_cast<std::uint32_t>((acc << bits) >> (64 - n))];
  }
  return e;
}

// One scale-factor code word: the index 0..120 (difference + 60).
inline int DecodeSfIndex(BranchFreeReader& br) {
  br.Refill();
  const std::uint32_t e = LookUp(kSfLut, kSfLutBits, br.Acc());
  br.Skip(static_cast<int>(e & 31u));
  return static_cast<int>((e >> 8) & 0xFFu);
}

// Value k (0..3) of a spectral leaf, sign-extended from 6 bits.
inline Akl32s LeafValue(std::uint32_t e, int k) {
  return static_cast<Akl32s>(e << (18 - 6 * k)) >> 26;
}

// Decodes one code word (kDim values) into out; the caller has at least
// kMaxSpectralCodeBits of the book in hand.  Signs are applied without
// branches: the sign bit of value k sits after as many sign bits as there are
// non-zero values before it, and a zero value takes any bit harmlessly.  An
// escape refills before and after its sequence, so that the caller again
// holds at least 32 bits.
template <int kDim, bool kUnsigned, bool kEscape>
inline Status DecodeCodeWord(BranchFreeReader& br, const std::uint32_t* lut, int bits, Akl32s* out) {
  const std::uint32_t e = LookUp(lut, bits, br.Acc());
  br.Skip(static_cast<int>(e & 31u));
  Akl32s v[4];
  for (int k = 0; k < kDim; ++k) v[k] = LeafValue(e, k);
  if constexpr (kUnsigned) {
    const auto signs = static_cast<std::uint32_t>(br.Acc() >> 32);
    br.Skip(static_cast<int>((e >> 5) & 7u));
    int rank = 0;
    Akl32s neg[4];
    for (int k = 0; k < kDim; ++k) {
      neg[k] = -static_cast<Akl32s>((signs << rank) >> 31);
      rank += v[k] != 0;
    }
    if constexpr (kEscape) {
      if (v[0] == 16 || v[1] == 16) {
        for (int k = 0; k < kDim; ++k) {
          if (v[k] != 16) continue;
          br.Refill();
          const auto top = static_cast<std::uint32_t>(br.Acc() >> 32);
          const int prefix = std::countl_one(top);
          if (prefix > kMaxEscPrefix) return kStsAacCoefValErr;
          br.Skip(prefix + 1);
          v[k] = static_cast<Akl32s>((1u << (prefix + 4)) + br.ReadInHand(prefix + 4));
        }
        br.Refill();
      }
    }
    for (int k = 0; k < kDim; ++k) out[k] = (v[k] ^ neg[k]) - neg[k];
  } else {
    for (int k = 0; k < kDim; ++k) out[k] = v[k];
  }
  return kStsOk;
}

// Decodes `count` values (a multiple of kDim) of one codebook into out.
template <int kDim, bool kUnsigned, bool kEscape, bool kTwoPerRefill>
Status DecodeSpectralRun(BranchFreeReader& br, const std::uint32_t* lut, int bits, Akl32s* out, int count) {
  int i = 0;
  if constexpr (kTwoPerRefill) {
    for (; i + 2 * kDim <= count; i += 2 * kDim) {
      br.Refill();
      Status st = DecodeCodeWord<kDim, kUnsigned, kEscape>(br, lut, bits, out + i);
      if (st == kStsOk) st = DecodeCodeWord<kDim, kUnsigned, kEscape>(br, lut, bits, out + i + kDim);
      if (st != kStsOk) return st;
    }
  }
  for (; i < count; i += kDim) {
    br.Refill();
    const Status st = DecodeCodeWord<kDim, kUnsigned, kEscape>(br, lut, bits, out + i);
    if (st != kStsOk) return st;
  }
  return kStsOk;
}

Status DecodeSpectralSection(BranchFreeReader& br, int cb, Akl32s* out, int count) {
  const SpectralBook& book = kSpectralBooks[cb];
  const std::uint32_t* lut = kSpectralLut + book.lut_offset;
  const int bits = book.lut_bits;
  // Two code words per refill where both fit the 32 bits a refill guarantees.
  static_assert(2 * kMaxSpectralCodeBits[1] <= 32 && 2 * kMaxSpectralCodeBits[2] <= 32);
  static_assert(2 * kMaxSpectralCodeBits[4] <= 32 && 2 * kMaxSpectralCodeBits[5] <= 32);
  static_assert(2 * kMaxSpectralCodeBits[6] <= 32 && 2 * kMaxSpectralCodeBits[7] <= 32);
  static_assert(2 * kMaxSpectralCodeBits[8] <= 32 && 2 * kMaxSpectralCodeBits[10] <= 32);
  static_assert(2 * kMaxSpectralCodeBits[11] <= 32 && kMaxSpectralCodeBits[3] <= 32 && kMaxSpectralCodeBits[9] <= 32);
  switch (cb) {
    case 1:
    case 2:
      return DecodeSpectralRun<4, false, false, true>(br, lut, bits, out, count);
    case 3:
      return DecodeSpectralRun<4, true, false, false>(br, lut, bits, out, count);
    case 4:
      return DecodeSpectralRun<4, true, false, true>(br, lut, bits, out, count);
    case 5:
    case 6:
      return DecodeSpectralRun<2, false, false, true>(br, lut, bits, out, count);
    case 9:
      return DecodeSpectralRun<2, true, false, false>(br, lut, bits, out, count);
    case kEscCb:
      return DecodeSpectralRun<2, true, true, true>(br, lut, bits, out, count);
    default:
      return DecodeSpectralRun<2, true, false, true>(br, lut, bits, out, count);
  }
}

struct Layout {
  int window_sequence;
  int max_sfb;
  int num_groups;
  const Akl32s* group_length;
  int tns_max_order_long = 12;  // 20 for the Main object type
};

struct Pulses {
  int count;
  int start_sfb;
  int offset[4];
  int amp[4];
};

Status ReadSections(BranchFreeReader& br, const Layout& lay, AklAACChanInfo& ci, Akl8u* sfb_cb) {
  const bool short_windows = lay.window_sequence == kEightShort;
  const int len_bits = short_windows ? 3 : 5;
  const int esc = (1 << len_bits) - 1;
  int total = 0;
  for (int g = 0; g < lay.num_groups; ++g) {
    Akl8u* cb_row = sfb_cb + g * lay.max_sfb;
    int k = 0;
    int n = 0;
    while (k < lay.max_sfb) {
      const auto cb = static_cast<Akl8u>(br.Read(4));
      int len = 0;
      int inc;
      do {
        inc = static_cast<int>(br.Read(len_bits));
        len += inc;
      } while (inc == esc && k + len <= lay.max_sfb);
      // An empty section would never reach max_sfb; too many sections overflow the record.
      if (len == 0 || total == kMaxSections) return kStsAacSectDataErr;
      const int end = k + len;
      ci.sectCb[total] = cb;
      ci.sectEnd[total] = static_cast<Akl8u>(end);
      ++total;
      ++n;
      const int fill_end = end < lay.max_sfb ? end : lay.max_sfb;
      std::memset(cb_row + k, cb, static_cast<std::size_t>(fill_end - k));
      k = end;
    }
    ci.numSec[g] = n;
    if (k != lay.max_sfb) return kStsAacSectDataErr;
  }
  return kStsOk;
}

template <bool kGeneral>
Status ReadScaleFactors(BranchFreeReader& br, const Layout& lay, int global_gain, const Akl8u* sfb_cb,
                        Akl16s* scale_factor) {
  int sf = global_gain;
  int is_position = 0;
  bool first_noise = true;
  const int bands = lay.num_groups * lay.max_sfb;
  for (int b = 0; b < bands; ++b) {
    const int cb = sfb_cb[b];
    if (cb == 0) {
      scale_factor[b] = 0;
    } else if (cb <= kEscCb) {
      sf += DecodeSfIndex(br) - 60;
      if (static_cast<unsigned>(sf) > 255u) return kStsAacSfValErr;
      scale_factor[b] = static_cast<Akl16s>(sf);
    } else if (cb >= 14) {
      is_position += DecodeSfIndex(br) - 60;
      scale_factor[b] = static_cast<Akl16s>(is_position);
    } else if (kGeneral && cb == kNoiseCb) {
      // Noise energies continue the scale factors' running value: the first
      // one replaces it, and every later band adds its difference to whatever
      // came last, scale factor or noise energy.
      if (first_noise) {
        first_noise = false;
        sf = global_gain + static_cast<int>(br.Read(9)) - kNoiseOffset;
      } else {
        sf += DecodeSfIndex(br) - 60;
        if (static_cast<unsigned>(sf) > 255u) return kStsAacSfValErr;
      }
      scale_factor[b] = static_cast<Akl16s>(sf);
    } else {
      return kStsAacCodebookErr;
    }
  }
  return kStsOk;
}

Status ReadPulseTnsGain(BranchFreeReader& br, const Layout& lay, AklAACChanInfo& ci, Pulses& pulses, Akl8s* tns_coef) {
  const bool short_windows = lay.window_sequence == kEightShort;
  ci.pulseDataPresent = static_cast<Akl32s>(br.Read(1));
  if (ci.pulseDataPresent) {
    if (short_windows) return kStsAacPulseErr;
    pulses.count = static_cast<int>(br.Read(2)) + 1;
    pulses.start_sfb = static_cast<int>(br.Read(6));
    if (pulses.start_sfb >= 52) return kStsAacPulseErr;
    for (int i = 0; i < pulses.count; ++i) {
      pulses.offset[i] = static_cast<int>(br.Read(5));
      pulses.amp[i] = static_cast<int>(br.Read(4));
    }
    if (pulses.start_sfb >= ci.numSwb) return kStsAacPulseErr;
  }
  ci.nFilt[0] = 0;
  ci.tnsDataPresent = static_cast<Akl32s>(br.Read(1));
  if (ci.tnsDataPresent) {
    const Status st = ReadTnsData(br, short_windows, ci.nFilt, ci.coefRes, ci.length, ci.order, ci.direction, tns_coef,
                                  lay.tns_max_order_long);
    if (st != kStsOk) return st;
  }
  ci.gainControlDataPresent = static_cast<Akl32s>(br.Read(1));
  if (ci.gainControlDataPresent) return kStsAacGainCtrlErr;
  return kStsOk;
}

Status ReadSpectrum(BranchFreeReader& br, const Layout& lay, const AklAACChanInfo& ci, Akl32s* spectrum) {
  const bool short_windows = lay.window_sequence == kEightShort;
  const int sr = ci.samplingFrequencyIndex;
  const std::uint16_t* swb = short_windows ? kSwbOffsetShort[sr] : kSwbOffsetLong[sr];
  Akl32s* group_out = spectrum;
  int section = 0;
  for (int g = 0; g < lay.num_groups; ++g) {
    const int glen = short_windows ? lay.group_length[g] : 1;
    int p = 0;
    for (int s = 0; s < ci.numSec[g]; ++s, ++section) {
      const int cb = ci.sectCb[section];
      const int end = ci.sectEnd[section];
      if (end > ci.numSwb) return kStsErr;
      const int stop = swb[end] * glen;
      const int count = stop - p;
      if (cb == 0 || cb >= kNoiseCb) {
        std::memset(group_out + p, 0, static_cast<std::size_t>(count) * sizeof(Akl32s));
      } else if (cb > kEscCb) {
        return kStsAacCodebookErr;
      } else {
        const Status st = DecodeSpectralSection(br, cb, group_out + p, count);
        if (st != kStsOk) return st;
      }
      p = stop;
    }
    const int group_end = glen * ci.windowLength;
    std::memset(group_out + p, 0, static_cast<std::size_t>(group_end - p) * sizeof(Akl32s));
    group_out += group_end;
  }
  return kStsOk;
}

Status ApplyPulses(const Pulses& pulses, const AklAACChanInfo& ci, Akl32s* spectrum) {
  int k = kSwbOffsetLong[ci.samplingFrequencyIndex][pulses.start_sfb];
  for (int i = 0; i < pulses.count; ++i) {
    k += pulses.offset[i];
    if (k >= ci.windowLength) return kStsAacPulseErr;
    spectrum[k] += spectrum[k] > 0 ? pulses.amp[i] : -pulses.amp[i];
  }
  return kStsOk;
}

// The window layout a stream is decoded with, whether just read or handed in
// with a common window or a scalable main header, must fit the section record
// and cover the 1024-entry spectrum exactly: maxSfb 0..51 and, for eight short
// windows, 1..8 groups of 1..8 windows that add up to exactly 8.  Each length
// is bounded before it is added, so a caller's record cannot overflow the sum.
Status CheckLayout(const Layout& lay) {
  if (static_cast<unsigned>(lay.max_sfb) > static_cast<unsigned>(kMaxSfbLong)) return kStsAacMaxSfbErr;
  if (lay.window_sequence != kEightShort) return kStsOk;
  if (lay.num_groups < 1 || lay.num_groups > 8) return kStsAacWinGrpErr;
  int windows = 0;
  for (int g = 0; g < lay.num_groups; ++g) {
    const Akl32s len = lay.group_length[g];
    if (len < 1 || len > 8) return kStsAacWinGrpErr;
    windows += len;
  }
  return windows == 8 ? kStsOk : kStsAacWinGrpErr;
}

void SetWindowFields(AklAACChanInfo& ci, int window_sequence) {
  const bool short_windows = window_sequence == kEightShort;
  ci.windowLength = short_windows ? 128 : 1024;
  ci.numWindows = short_windows ? 8 : 1;
  ci.numSwb = short_windows ? kNumSwbShort[ci.samplingFrequencyIndex] : kNumSwbLong[ci.samplingFrequencyIndex];
}

// Everything after the ICS information.
template <bool kGeneral>
Status DecodeBody(BranchFreeReader& br, Layout lay, AklAACChanInfo& ci, bool side_info, Akl16s* scale_factor,
                  Akl32s* spectrum, Akl8u* sfb_cb, Akl8s* tns_coef) {
  if (lay.window_sequence != kEightShort) lay.num_groups = 1;
  Status st = CheckLayout(lay);
  if (st != kStsOk) return st;
  st = ReadSections(br, lay, ci, sfb_cb);
  if (st != kStsOk) return st;
  st = ReadScaleFactors<kGeneral>(br, lay, ci.globalGain, sfb_cb, scale_factor);
  if (st != kStsOk) return st;
  Pulses pulses{};
  if (side_info) {
    st = ReadPulseTnsGain(br, lay, ci, pulses, tns_coef);
    if (st != kStsOk) return st;
  }
  st = ReadSpectrum(br, lay, ci, spectrum);
  if (st != kStsOk) return st;
  if (side_info && ci.pulseDataPresent) return ApplyPulses(pulses, ci, spectrum);
  return kStsOk;
}

}  // namespace

Status aklsNoiselessDecoder_LC_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, Akl32s commonWindow,
                                   AklAACChanInfo* pChanInfo, Akl16s* pScaleFactor, Akl32s* pSpectrum,
                                   Akl8u* pSfbCb, Akl8s* pTnsCoef) {
  if (!ppBitStream || !pBitOffset || !pChanInfo || !pScaleFactor || !pSpectrum || !pSfbCb || !pTnsCoef ||
      !*ppBitStream || !pChanInfo->pIcsInfo) {
    return kStsNullPtr;
  }
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  if (static_cast<std::uint32_t>(commonWindow) > 1u) return kStsAacCommonWinErr;
  if (static_cast<std::uint32_t>(pChanInfo->samplingFrequencyIndex) >= kNumSampleRates) return kStsAacSmpRateIdxErr;
  if (pChanInfo->predSfbMax != 0) return kStsAacPredSfbErr;

  AklAACChanInfo& ci = *pChanInfo;
  AklAACIcsInfo& ics = *ci.pIcsInfo;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  Status st = kStsOk;
  ci.globalGain = static_cast<Akl32s>(br.Read(8));
  if (!commonWindow) st = ReadIcsInfo(br, ics, 0);
  if (st == kStsOk) {
    SetWindowFields(ci, ics.windowSequence);
    if (ics.maxSfb > ci.numSwb) {
      st = kStsAacMaxSfbErr;
    } else {
      const Layout lay{ics.windowSequence, ics.maxSfb, ics.numWindowGroups, ics.windowGroupLength};
      st = DecodeBody<false>(br, lay, ci, true, pScaleFactor, pSpectrum, pSfbCb, pTnsCoef);
    }
  }
  br.WriteBack(ppBitStream, pBitOffset);
  return st;
}

Status aklsNoiselessDecode_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, void* pLayerInfo, Akl16s* pScaleFactor,
                               Akl32s* pSpectrum, Akl8u* pSfbCb, Akl8s* pTnsCoef, AklAACChanInfo* pChanInfo,
                               Akl32s windowSequence, Akl32s maxSfb, Akl32s commonWindow, Akl32s scalableLayer,
                               Akl32s audioObjectType) {
  if (!ppBitStream || !pBitOffset || !pLayerInfo || !pScaleFactor || !pSpectrum || !pSfbCb || !pTnsCoef ||
      !pChanInfo || !*ppBitStream || !pChanInfo->pIcsInfo) {
    return kStsNullPtr;
  }
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  if (static_cast<std::uint32_t>(commonWindow) > 1u) return kStsAacCommonWinErr;
  if (static_cast<std::uint32_t>(windowSequence) > 3u) return kStsAacWinSeqErr;
  if (static_cast<std::uint32_t>(scalableLayer) > 1u) return kStsAacLayerFlagErr;
  if (static_cast<std::uint32_t>(audioObjectType) > 16u) return kStsAacAotErr;
  if (static_cast<std::uint32_t>(maxSfb) > static_cast<std::uint32_t>(kMaxSfbLong)) return kStsAacMaxSfbErr;
  if (static_cast<std::uint32_t>(pChanInfo->samplingFrequencyIndex) >= kNumSampleRates) return kStsAacSmpRateIdxErr;

  AklAACChanInfo& ci = *pChanInfo;
  AklAACIcsInfo& ics = *ci.pIcsInfo;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  Status st = kStsOk;
  ci.globalGain = static_cast<Akl32s>(br.Read(8));
  Layout lay{};
  if (scalableLayer) {
    const auto& main = *static_cast<const AklAACMainHeader*>(pLayerInfo);
    lay = Layout{windowSequence, maxSfb, main.numWindowGroups, main.windowGroupLength};
  } else {
    if (!commonWindow) {
      st = ReadIcsInfoMp4(br, ics, *static_cast<AklAACLtpInfo*>(pLayerInfo), ci.predSfbMax, audioObjectType, 1);
    }
    lay = Layout{ics.windowSequence, ics.maxSfb, ics.numWindowGroups, ics.windowGroupLength};
  }
  if (audioObjectType == 1) lay.tns_max_order_long = 20;
  if (st == kStsOk) {
    SetWindowFields(ci, lay.window_sequence);
    st = DecodeBody<true>(br, lay, ci, !scalableLayer, pScaleFactor, pSpectrum, pSfbCb, pTnsCoef);
  }
  br.WriteBack(ppBitStream, pBitOffset);
  return st;
}

}  // namespace akl::aac
