// Syntax elements of a raw data block: channel pair headers, data stream and
// fill elements, the scalable main and extension layer headers, and the ICS,
// TNS and LTP side information they share with the noiseless decoders.
//
// On a failure found in the data the cursor is still advanced past the bits
// read, like the records, so a caller can see where parsing stopped.
#include <cstring>

#include "aac/syntax.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace {

inline Akl32s Field(BranchFreeReader& br, int n) { return static_cast<Akl32s>(br.Read(n)); }

// The standard's LTP gains for the 3-bit index, in Q14.
inline constexpr Akl16s kLtpCoefQ14[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};

inline constexpr int kMaxSfbLong = 51;
inline constexpr int kMaxPredSfb = 41;
inline constexpr int kMsRowStride = 60;

// Reads the common head of the ICS information: through maxSfb and the
// grouping bits.  Predictor fields start cleared.
Status ReadIcsHead(BranchFreeReader& br, AklAACIcsInfo& ics) {
  ics.icsReservedBit = Field(br, 1);
  ics.windowSequence = Field(br, 2);
  ics.windowShape = Field(br, 1);
  ics.predictorDataPresent = 0;
  ics.predictorReset = 0;
  if (ics.windowSequence == kEightShort) {
    ics.maxSfb = Field(br, 4);
    ics.scaleFactorGrouping = Field(br, 7);
    GroupWindows(ics.scaleFactorGrouping, &ics.numWindowGroups, ics.windowGroupLength);
    return kStsOk;
  }
  ics.maxSfb = Field(br, 6);
  if (ics.maxSfb > kMaxSfbLong) return kStsAacMaxSfbErr;
  ics.numWindowGroups = 1;
  ics.windowGroupLength[0] = 1;
  return kStsOk;
}

void ReadPredictorFlags(BranchFreeReader& br, AklAACIcsInfo& ics, int pred_sfb_max) {
  ics.predictorReset = Field(br, 1);
  if (ics.predictorReset) ics.predictorResetGroupNum = Field(br, 5);
  const int limit = ics.maxSfb < pred_sfb_max ? ics.maxSfb : pred_sfb_max;
  for (int sfb = 0; sfb < limit; ++sfb) ics.predictionUsed[sfb] = static_cast<Akl8u>(br.Read(1));
  for (int sfb = limit; sfb < pred_sfb_max; ++sfb) ics.predictionUsed[sfb] = 0;
}

void ReadMsMask(BranchFreeReader& br, Akl8u* ms_used, int groups, int first_sfb, int end_sfb) {
  for (int g = 0; g < groups; ++g) {
    for (int sfb = first_sfb; sfb < end_sfb; ++sfb) ms_used[g * kMsRowStride + sfb] = static_cast<Akl8u>(br.Read(1));
  }
}

}  // namespace

void GroupWindows(int grouping, Akl32s* num_groups, Akl32s* group_length) {
  int groups = 1;
  group_length[0] = 1;
  for (int bit = 6; bit >= 0; --bit) {
    if ((grouping >> bit) & 1) {
      ++group_length[groups - 1];
    } else {
      group_length[groups++] = 1;
    }
  }
  *num_groups = groups;
}

Status ReadIcsInfo(BranchFreeReader& br, AklAACIcsInfo& ics, int pred_sfb_max) {
  if (const Status st = ReadIcsHead(br, ics); st != kStsOk) return st;
  if (ics.windowSequence == kEightShort) return kStsOk;
  ics.predictorDataPresent = Field(br, 1);
  if (ics.predictorDataPresent) ReadPredictorFlags(br, ics, pred_sfb_max);
  return kStsOk;
}

Status ReadIcsInfoMp4(BranchFreeReader& br, AklAACIcsInfo& ics, AklAACLtpInfo& ltp, int pred_sfb_max,
                      int audio_object_type, int ltp_channels) {
  ltp.ltpData[0].ltpDataPresent = 0;
  ltp.ltpData[1].ltpDataPresent = 0;
  if (const Status st = ReadIcsHead(br, ics); st != kStsOk) return st;
  if (ics.windowSequence == kEightShort) return kStsOk;
  ics.predictorDataPresent = Field(br, 1);
  if (!ics.predictorDataPresent) return kStsOk;
  if (audio_object_type == 1) {
    if (pred_sfb_max > kMaxPredSfb) return kStsAacPredSfbErr;
    ReadPredictorFlags(br, ics, pred_sfb_max);
    return kStsOk;
  }
  ltp.windowSequence = ics.windowSequence;
  ltp.maxSfb = ics.maxSfb;
  for (int ch = 0; ch < ltp_channels; ++ch) {
    AklAACLtpData& d = ltp.ltpData[ch];
    d.ltpDataPresent = Field(br, 1);
    if (d.ltpDataPresent) ReadLtpData(br, d, ics.windowSequence, ics.maxSfb);
  }
  return kStsOk;
}

Status ReadTnsData(BranchFreeReader& br, bool short_windows, Akl32s* n_filt, Akl32s* coef_res, Akl32s* length,
                   Akl32s* order, Akl32s* direction, Akl8s* coef, int max_order_long) {
  const int windows = short_windows ? 8 : 1;
  const int n_filt_bits = short_windows ? 1 : 2;
  const int length_bits = short_windows ? 4 : 6;
  const int order_bits = short_windows ? 3 : 5;
  const Akl32s max_order = short_windows ? 7 : max_order_long;
  int filter = 0;
  int dir = 0;
  int k = 0;
  for (int w = 0; w < windows; ++w) {
    n_filt[w] = Field(br, n_filt_bits);
    if (n_filt[w] == 0) continue;
    coef_res[w] = Field(br, 1) + 3;
    for (int f = 0; f < n_filt[w]; ++f, ++filter) {
      length[filter] = Field(br, length_bits);
      const Akl32s ord = Field(br, order_bits);
      order[filter] = ord;
      if (ord > max_order) return kStsAacTnsOrderErr;
      if (ord == 0) continue;
      direction[dir++] = Field(br, 1);
      const int width = coef_res[w] - Field(br, 1);
      for (int i = 0; i < ord; ++i) {
        // Sign-extend the width-bit two's complement value.
        const auto raw = static_cast<int>(br.Read(width));
        coef[k++] = static_cast<Akl8s>(raw - ((raw >> (width - 1)) << width));
      }
    }
  }
  return kStsOk;
}

void ReadLtpData(BranchFreeReader& br, AklAACLtpData& ltp, int window_sequence, int max_sfb) {
  ltp.ltpLag = Field(br, 11);
  ltp.ltpCoef = kLtpCoefQ14[br.Read(3)];
  if (window_sequence == kEightShort) {
    // Short-window lags: the first used window takes ltpLag without a bit;
    // each later used window either repeats the previous used window's lag or
    // codes a 5-bit step v below it, offset by 16.
    ltp.shortLag[0] = ltp.ltpLag;
    int prev = -1;
    for (int w = 0; w < 8; ++w) {
      ltp.shortUsed[w] = Field(br, 1);
      if (!ltp.shortUsed[w]) continue;
      if (prev < 0) {
        ltp.shortLagPresent[w] = 0;
        ltp.shortLag[w] = ltp.shortLag[0];
      } else {
        ltp.shortLagPresent[w] = Field(br, 1);
        if (ltp.shortLagPresent[w]) {
          const Akl32s v = Field(br, 5);
          ltp.shortLag[w] = static_cast<Akl16s>(ltp.shortLag[prev] - v) + 16;
        } else {
          ltp.shortLag[w] = ltp.shortLag[prev];
        }
      }
      prev = w;
    }
    return;
  }
  ltp.longUsed[0] = ltp.ltpDataPresent;
  const int bands = max_sfb < 40 ? max_sfb : 40;
  for (int sfb = 1; sfb <= bands; ++sfb) ltp.longUsed[sfb] = Field(br, 1);
  for (int sfb = bands + 1; sfb <= 40; ++sfb) ltp.longUsed[sfb] = 0;
}

Status aklsDecodeChanPairElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACIcsInfo* pIcsInfo,
                                 AklAACChanPairElt* pChanPairElt, Akl32s predSfbMax) {
  if (!ppBitStream || !pBitOffset || !pIcsInfo || !pChanPairElt || !*ppBitStream) return kStsNullPtr;
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  if (static_cast<std::uint32_t>(predSfbMax) > static_cast<std::uint32_t>(kMaxPredSfb)) return kStsAacPredSfbErr;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  AklAACChanPairElt& cpe = *pChanPairElt;
  cpe.commonWindow = Field(br, 1);
  Status st = kStsOk;
  if (cpe.commonWindow) {
    st = ReadIcsInfo(br, *pIcsInfo, predSfbMax);
    if (st == kStsOk) {
      cpe.msMaskPresent = Field(br, 2);
      if (cpe.msMaskPresent == 1) ReadMsMask(br, &cpe.msUsed[0][0], pIcsInfo->numWindowGroups, 0, pIcsInfo->maxSfb);
    }
  } else {
    cpe.msMaskPresent = 0;
  }
  br.WriteBack(ppBitStream, pBitOffset);
  return st;
}

Status aklsDecodeChanPairElt_MP4_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACIcsInfo* pIcsInfo,
                                     AklAACChanPairElt* pChanPairElt, AklAACLtpInfo* pLtpInfo, Akl32s predSfbMax,
                                     Akl32s audioObjectType) {
  if (!ppBitStream || !pBitOffset || !pIcsInfo || !pChanPairElt || !pLtpInfo || !*ppBitStream) return kStsNullPtr;
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  if (static_cast<std::uint32_t>(predSfbMax) > static_cast<std::uint32_t>(kMaxSfbLong)) return kStsAacMaxSfbErr;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  AklAACChanPairElt& cpe = *pChanPairElt;
  cpe.commonWindow = Field(br, 1);
  Status st = kStsOk;
  if (cpe.commonWindow) {
    st = ReadIcsInfoMp4(br, *pIcsInfo, *pLtpInfo, predSfbMax, audioObjectType, 2);
    if (st == kStsOk) {
      cpe.msMaskPresent = Field(br, 2);
      if (cpe.msMaskPresent == 1) ReadMsMask(br, &cpe.msUsed[0][0], pIcsInfo->numWindowGroups, 0, pIcsInfo->maxSfb);
    }
  } else {
    cpe.msMaskPresent = 0;
  }
  br.WriteBack(ppBitStream, pBitOffset);
  return st;
}

Status aklsDecodeDatStrElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, Akl32s* pElementInstanceTag,
                               Akl32s* pDataCount, Akl8u* pDataBytes) {
  if (!ppBitStream || !pBitOffset || !pElementInstanceTag || !pDataCount || !pDataBytes || !*ppBitStream) {
    return kStsNullPtr;
  }
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  *pElementInstanceTag = Field(br, 4);
  const bool align = br.Read(1) != 0;
  Akl32s count = Field(br, 8);
  if (count == 255) count += Field(br, 8);
  if (align) br.AlignToByte();
  for (int i = 0; i < count; ++i) pDataBytes[i] = static_cast<Akl8u>(br.Read(8));
  *pDataCount = count;
  br.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsDecodeFillElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, Akl32s* pFillCount, Akl8u* pFillBytes) {
  if (!ppBitStream || !pBitOffset || !pFillCount || !pFillBytes || !*ppBitStream) return kStsNullPtr;
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  Akl32s count = Field(br, 4);
  if (count == 15) count = Field(br, 8) + 14;
  for (int i = 0; i < count; ++i) pFillBytes[i] = static_cast<Akl8u>(br.Read(8));
  *pFillCount = count;
  br.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

namespace {

// Short-window grouping of the main-layer header, kept as this header has
// always derived it: entry 0 starts at 1 (2 when the first grouping bit is
// set); every later 0 bit resets entry 0 to 1 and opens a group, every later
// 1 bit increments the current group's entry from whatever it held.  Only the
// group count is the standard one.
void GroupWindowsMainHeader(AklAACMainHeader& h) {
  const int bits = h.scaleFactorGrouping;
  int groups;
  if (bits & 0x40) {
    h.windowGroupLength[0] = 2;
    groups = 1;
  } else {
    h.windowGroupLength[0] = 1;
    groups = 2;
  }
  for (int bit = 5; bit >= 0; --bit) {
    if ((bits >> bit) & 1) {
      ++h.windowGroupLength[groups - 1];
    } else {
      h.windowGroupLength[0] = 1;
      ++groups;
    }
  }
  h.numWindowGroups = groups;
}

Status ReadTnsRecord(BranchFreeReader& br, AklAACTnsData& t, bool short_windows) {
  return ReadTnsData(br, short_windows, t.nFilt, t.coefRes, t.length, t.order, t.direction, t.coef);
}

}  // namespace

Status aklsDecodeMainHeader_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACMainHeader* pMainHeader,
                                Akl32s channels, Akl32s monoStereoFlag) {
  if (!ppBitStream || !pBitOffset || !pMainHeader || !*ppBitStream || !pMainHeader->pMsUsed) return kStsNullPtr;
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  if (channels < 1 || channels > 2) return kStsAacChanErr;
  if (static_cast<std::uint32_t>(monoStereoFlag) > 1u) return kStsAacStereoFlagErr;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  AklAACMainHeader& h = *pMainHeader;
  h.windowSequence = Field(br, 2);
  h.windowShape = Field(br, 1);
  const bool short_windows = h.windowSequence == kEightShort;
  if (short_windows) {
    h.maxSfb = Field(br, 4);
    h.scaleFactorGrouping = Field(br, 7);
    GroupWindowsMainHeader(h);
  } else {
    h.maxSfb = Field(br, 6);
    h.numWindowGroups = 1;
    h.windowGroupLength[0] = 1;
    for (int i = 1; i < 8; ++i) h.windowGroupLength[i] = 0;
  }
  if (channels == 2) {
    h.msMaskPresent = Field(br, 2);
    if (h.msMaskPresent == 1) {
      ReadMsMask(br, h.pMsUsed, h.numWindowGroups, 0, h.maxSfb);
    } else {
      const Akl8u fill = h.msMaskPresent == 2 ? 1 : 0;
      for (int g = 0; g < h.numWindowGroups; ++g) std::memset(h.pMsUsed + g * kMsRowStride, fill, static_cast<std::size_t>(h.maxSfb));
    }
  }
  for (int ch = 0; ch < channels; ++ch) {
    AklAACTnsData& tns = h.tnsData[ch];
    std::memset(&tns, 0, sizeof tns);
    tns.tnsDataPresent = Field(br, 1);
    if (tns.tnsDataPresent) {
      if (const Status st = ReadTnsRecord(br, tns, short_windows); st != kStsOk) {
        br.WriteBack(ppBitStream, pBitOffset);
        return st;
      }
    }
    AklAACLtpData& ltp = h.ltpData[ch];
    std::memset(&ltp, 0, sizeof ltp);
    ltp.ltpDataPresent = Field(br, 1);
    if (ltp.ltpDataPresent) ReadLtpData(br, ltp, h.windowSequence, h.maxSfb);
  }
  br.WriteBack(ppBitStream, pBitOffset);
  return monoStereoFlag == 1 ? kStsNotSupportedModeErr : kStsOk;
}

Status aklsDecodeExtensionHeader_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACExtHeader* pExtHeader,
                                     Akl32s tnsPresent, Akl32s msMaskEnable, Akl32s diffControlEnable,
                                     Akl32s lowerMaxSfb, Akl32s lowerMaxSfbPrev, Akl32s windowSequence) {
  if (!ppBitStream || !pBitOffset || !pExtHeader || !*ppBitStream || !pExtHeader->pMsUsed) return kStsNullPtr;
  if (static_cast<std::uint32_t>(*pBitOffset) > 7u) return kStsAacBitOffsetErr;
  if (static_cast<std::uint32_t>(tnsPresent) > 1u) return kStsAacStereoFlagErr;
  if (static_cast<std::uint32_t>(msMaskEnable) > 1u) return kStsAacMsMaskFlagErr;
  if (static_cast<std::uint32_t>(diffControlEnable) > 1u) return kStsAacDiffCtrlFlagErr;
  if (static_cast<std::uint32_t>(lowerMaxSfb) > static_cast<std::uint32_t>(kMaxSfbLong) ||
      static_cast<std::uint32_t>(lowerMaxSfbPrev) > static_cast<std::uint32_t>(kMaxSfbLong)) {
    return kStsAacMaxSfbErr;
  }
  if (static_cast<std::uint32_t>(windowSequence) > 3u) return kStsAacWinSeqErr;
  BranchFreeReader br(*ppBitStream, *pBitOffset);
  AklAACExtHeader& h = *pExtHeader;
  const bool short_windows = windowSequence == kEightShort;
  Status st = kStsOk;
  if (short_windows) {
    h.maxSfb = Field(br, 4);
  } else {
    h.maxSfb = Field(br, 6);
    if (h.maxSfb > 60) st = kStsAacMaxSfbErr;
  }
  if (st == kStsOk && msMaskEnable) {
    h.msMaskPresent = Field(br, 2);
    // Four groups for eight short windows, whatever the grouping.
    if (h.msMaskPresent == 1) ReadMsMask(br, h.pMsUsed, short_windows ? 4 : 1, lowerMaxSfb, h.maxSfb);
  }
  if (st == kStsOk && tnsPresent) {
    for (int ch = 0; ch < 2 && st == kStsOk; ++ch) {
      AklAACTnsData& tns = h.tnsData[ch];
      tns.tnsDataPresent = Field(br, 1);
      if (tns.tnsDataPresent) st = ReadTnsRecord(br, tns, short_windows);
    }
  }
  if (st == kStsOk && diffControlEnable && msMaskEnable) {
    for (int ch = 0; ch < 2; ++ch) {
      Akl32s* flags = h.diffControl[ch];
      int n = 0;
      if (short_windows) {
        if (lowerMaxSfb == 0) {
          for (int w = 0; w < 8; ++w) flags[n++] = Field(br, 1);
        }
      } else {
        const int end = lowerMaxSfbPrev < h.maxSfb ? lowerMaxSfbPrev : h.maxSfb;
        for (int sfb = lowerMaxSfb; sfb < end; ++sfb) {
          if (h.pMsUsed[sfb] == 0) flags[n++] = Field(br, 1);
        }
      }
    }
  }
  br.WriteBack(ppBitStream, pBitOffset);
  return st;
}

}  // namespace akl::aac
