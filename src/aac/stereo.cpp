// AAC joint stereo: M/S and intensity stereo on dequantized (Q3) spectra in
// the grouped order.  In a group of L windows a band spans L x width lines.
#include <cstdint>

#include "aac/spectral.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace spectral {
namespace {

constexpr int kIntensityOutOfPhase = 14;
constexpr int kIntensityInPhase = 15;
constexpr int kNoiseBook = 13;

inline std::int32_t SatS32(std::int64_t v) {
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<std::int32_t>(v);
}

// L' = L + R, R' = L - R in plain 32-bit two's-complement arithmetic.
void MidSide(std::int32_t* l, std::int32_t* r, int n) {
  for (int i = 0; i < n; ++i) {
    const auto a = static_cast<std::uint32_t>(l[i]);
    const auto b = static_cast<std::uint32_t>(r[i]);
    l[i] = static_cast<std::int32_t>(a + b);
    r[i] = static_cast<std::int32_t>(a - b);
  }
}

// r = sign * l * 2^(-pos/4): the Q31 factor 2^(-(pos & 3)/4) times l, then an
// arithmetic shift by 31 + floor(pos / 4) (truncating; left for negative
// positions, saturating).
void Intensity(const std::int32_t* l, std::int32_t* r, int n, int pos, bool invert) {
  // 1.0 is exactly 2^31 here (the Q31 table stops at 2^31 - 1), so that whole
  // quarter steps are exact shifts.
  const std::int64_t factor = (pos & 3) == 0 ? (std::int64_t{1} << 31) : kFracQ31[pos & 3];
  const int shift = 31 + (pos >> 2);
  for (int i = 0; i < n; ++i) {
    const std::int64_t prod = static_cast<std::int64_t>(l[i]) * factor;
    std::int64_t v;
    if (shift >= 63) {
      v = prod < 0 ? -1 : 0;
    } else if (shift >= 0) {
      v = prod >> shift;
    } else {
      // Gain above 1: any product of 2^31 or more, or a shift past 31,
      // leaves the 32-bit range and saturates.
      const int left = -shift;
      const bool big = prod >= (std::int64_t{1} << 31) || prod <= -(std::int64_t{1} << 31) || left > 31;
      if (prod == 0) {
        v = 0;
      } else if (big) {
        v = prod < 0 ? INT64_MIN / 2 : INT64_MAX / 2;
      } else {
        v = prod * (std::int64_t{1} << left);
      }
    }
    r[i] = SatS32(invert ? -v : v);
  }
}

}  // namespace
}  // namespace spectral

using namespace spectral;

Status aklsDecodeMsStereo_AAC_32s_I(Akl32s* pSrcDstL, Akl32s* pSrcDstR, Akl32s msMaskPresent,
                                    const Akl8u* pMsUsed, Akl8u* pSfbCb, Akl32s numWinGrp,
                                    const Akl32s* pWinGrpLen, Akl32s maxSfb, Akl32s samplingFrequencyIndex,
                                    Akl32s winLen) {
  if (!pSrcDstL || !pSrcDstR || !pMsUsed || !pSfbCb || !pWinGrpLen) return kStsNullPtr;
  if (const Status st = CheckWindowArgs(numWinGrp, maxSfb, samplingFrequencyIndex, winLen); st != kStsOk)
    return st;
  if (msMaskPresent < 1 || msMaskPresent > 2) return kStsAacMsMaskErr;
  const BandTable bands = Bands(samplingFrequencyIndex, winLen);
  if (maxSfb > bands.numSwb) return kStsAacMaxSfbErr;
  Grouping g{};
  if (const Status st = MakeGrouping(numWinGrp, pWinGrpLen, winLen, &g); st != kStsOk) return st;

  int base = 0;
  for (int grp = 0; grp < g.num_groups; ++grp) {
    const int len = g.len[grp];
    Akl8u* cb = pSfbCb + grp * maxSfb;
    const Akl8u* used = pMsUsed + grp * kMsRowStride;
    for (int b = 0; b < maxSfb; ++b) {
      if (cb[b] == kIntensityOutOfPhase || cb[b] == kIntensityInPhase) {
        // Intensity bands keep their lines; M/S here means "invert the sign".
        if (msMaskPresent == 1 && used[b] != 0) cb[b] = static_cast<Akl8u>(cb[b] ^ 1);
      } else if ((msMaskPresent == 2 || used[b] != 0) && cb[b] != kNoiseBook) {
        const int start = base + len * bands.offset[b];
        MidSide(pSrcDstL + start, pSrcDstR + start, len * (bands.offset[b + 1] - bands.offset[b]));
      }
    }
    base += len * kShortWindow;
  }
  return kStsOk;
}

Status aklsDecodeIsStereo_AAC_32s(const Akl32s* pSrcL, Akl32s* pDstR, const Akl16s* pScaleFactor,
                                  const Akl8u* pSfbCb, Akl32s numWinGrp, const Akl32s* pWinGrpLen, Akl32s maxSfb,
                                  Akl32s samplingFrequencyIndex, Akl32s winLen) {
  if (!pSrcL || !pDstR || !pScaleFactor || !pSfbCb || !pWinGrpLen) return kStsNullPtr;
  if (const Status st = CheckWindowArgs(numWinGrp, maxSfb, samplingFrequencyIndex, winLen); st != kStsOk)
    return st;
  const BandTable bands = Bands(samplingFrequencyIndex, winLen);
  if (maxSfb > bands.numSwb) return kStsAacMaxSfbErr;
  Grouping g{};
  if (const Status st = MakeGrouping(numWinGrp, pWinGrpLen, winLen, &g); st != kStsOk) return st;

  int base = 0;
  for (int grp = 0; grp < g.num_groups; ++grp) {
    const int len = g.len[grp];
    for (int b = 0; b < maxSfb; ++b) {
      const int book = pSfbCb[grp * maxSfb + b];
      if (book != kIntensityOutOfPhase && book != kIntensityInPhase) continue;
      const int start = base + len * bands.offset[b];
      Intensity(pSrcL + start, pDstR + start, len * (bands.offset[b + 1] - bands.offset[b]),
                pScaleFactor[grp * maxSfb + b], book == kIntensityOutOfPhase);
    }
    base += len * kShortWindow;
  }
  return kStsOk;
}

}  // namespace akl::aac
