// AAC perceptual noise substitution: bands of codebook 13 are filled with
// pseudo-random noise of the transmitted energy.
//
// Each band's noise is drawn from the caller's 32-bit linear congruential
// generator (one step per line), pre-scaled by a per-width factor so that its
// energy sum stays near 2^28 whatever the width, normalised to unit energy
// (Q31 lines, sum of squares 2^62) with an inverse square root, and finally
// scaled by 2^(n/4) for the noise energy n.  In Q3 the band then holds an
// energy of 64 * 2^(n/2): the standard's 2^(n/2) at the dequantizer's scale.
#include <cmath>
#include <cstdint>

#include "aac/spectral.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace spectral {
namespace {

constexpr int kNoiseBook = 13;
constexpr int kLtpBands = 40;  // longUsed[1..40]
// 2^(k/4) in Q30, k = 0..3.
constexpr std::int64_t kNoiseGainQ30[4] = {1073741824, 1276901416, 1518500250, 1805811301};

inline std::int32_t SatS32(__int128 v) {
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<std::int32_t>(v);
}

// 2^(n/4) * 2^10: the factor ((1 << (n >> 2)) * 2^(k/4) in Q30) >> 20, for any
// n (negative energies shift right; very large ones are capped, their bands
// saturate anyway).
inline std::int64_t NoiseFactor(int energy) {
  int ip = energy >> 2;
  const std::int64_t f = kNoiseGainQ30[energy & 3];
  if (ip >= 20) {
    if (ip > 51) ip = 51;
    return f << (ip - 20);
  }
  return 20 - ip > 62 ? 0 : f >> (20 - ip);
}

}  // namespace

void MakeNoise(std::int32_t* out, int n, std::int32_t* seed) {
  const std::int64_t scale = kNoiseScale[n <= 128 ? n : 128];
  std::int64_t vals[128];
  std::int64_t energy = 0;
  std::int32_t s = *seed;
  for (int i = 0; i < n; ++i) {
    s = NextRandom(s);
    const std::int64_t v = (static_cast<std::int64_t>(s) * scale) >> 30;
    vals[i] = v;
    energy += (v * v) >> 33;
  }
  *seed = s;
  if (energy < 1) energy = 1;
  // The true energy is about energy * 2^33; unit energy in Q31 multiplies each
  // line by 2^31 / sqrt(energy * 2^33) = 2^14.5 / sqrt(energy).
  const double inv = 23170.475005920790 / std::sqrt(static_cast<double>(energy));
  for (int i = 0; i < n; ++i) {
    const double c = std::nearbyint(static_cast<double>(vals[i]) * inv);
    out[i] = c >= 2147483647.0 ? INT32_MAX : (c <= -2147483648.0 ? INT32_MIN : static_cast<std::int32_t>(c));
  }
}

void ScaleNoise(const std::int32_t* noise, std::int32_t* out, int n, int energy) {
  const std::int64_t factor = NoiseFactor(energy);
  for (int i = 0; i < n; ++i) out[i] = SatS32((static_cast<__int128>(noise[i]) * factor) >> 38);
}

namespace {

// One pass over the bands of both channels (right may be null for a single
// channel).  Bands are visited group by group, window by window, band by band;
// in each band the left channel draws first.
struct PnsChannel {
  std::int32_t* spec;
  std::int32_t* ltp;
  const Akl8u* cb;
  const Akl16s* sf;
};

void PnsKernel(const PnsChannel& l, const PnsChannel* r, int ms_mask, const Akl8u* ms_used, int maxSfb,
               int numWinGrp, const Grouping& g, const BandTable& bands, std::int32_t* seed) {
  const int top = maxSfb < bands.numSwb ? maxSfb : bands.numSwb;
  std::int32_t noise[128];
  int base = 0;
  for (int grp = 0; grp < g.num_groups; ++grp) {
    const int len = g.len[grp];
    const int row = grp * maxSfb;
    for (int j = 0; j < len; ++j) {
      for (int b = 0; b < top; ++b) {
        const bool left_noise = l.cb[row + b] == kNoiseBook;
        const bool right_noise = r != nullptr && r->cb[row + b] == kNoiseBook;
        if (!left_noise && !right_noise) continue;
        const int width = bands.offset[b + 1] - bands.offset[b];
        const int pos = base + len * bands.offset[b] + j * width;
        if (left_noise) {
          if (numWinGrp == 1 && b < kLtpBands) l.ltp[b + 1] = 0;
          MakeNoise(noise, width, seed);
          ScaleNoise(noise, l.spec + pos, width, l.sf[row + b]);
        }
        if (right_noise) {
          if (numWinGrp == 1 && b < kLtpBands) r->ltp[b + 1] = 0;
          const bool same = left_noise && (ms_mask == 2 || (ms_mask == 1 && ms_used[grp * kMsRowStride + b] != 0));
          if (!same) MakeNoise(noise, width, seed);
          ScaleNoise(noise, r->spec + pos, width, r->sf[row + b]);
        }
      }
    }
    base += len * kShortWindow;
  }
}

Status CheckPnsArgs(Akl32s maxSfb, Akl32s numWinGrp, Akl32s sf_index, Akl32s winLen) {
  if (static_cast<Akl32u>(maxSfb) > static_cast<Akl32u>(kMaxLongBands)) return kStsAacMaxSfbErr;
  if (numWinGrp < 1 || numWinGrp > 8) return kStsAacWinGrpErr;
  if (static_cast<Akl32u>(sf_index) >= static_cast<Akl32u>(kNumSfIndex)) return kStsAacSmpRateIdxErr;
  if (winLen != kShortWindow && winLen != kLongWindow) return kStsAacWinLenErr;
  return kStsOk;
}

}  // namespace
}  // namespace spectral

using namespace spectral;

Status aklsDecodePNS_AAC_32s(Akl32s* pSrcDst, Akl32s* pLtpLongUsed, const Akl8u* pSfbCb, const Akl16s* pScaleFactor,
                             Akl32s maxSfb, Akl32s numWinGrp, const Akl32s* pWinGrpLen,
                             Akl32s samplingFrequencyIndex, Akl32s winLen, Akl32s* pRandomSeed) {
  if (!pSrcDst || !pLtpLongUsed || !pSfbCb || !pScaleFactor || !pWinGrpLen || !pRandomSeed) return kStsNullPtr;
  if (const Status st = CheckPnsArgs(maxSfb, numWinGrp, samplingFrequencyIndex, winLen); st != kStsOk) return st;
  // A long window is one group of one window, whatever numWinGrp says.
  Grouping g{};
  if (const Status st = MakeGrouping(winLen == kLongWindow ? 1 : numWinGrp, pWinGrpLen, winLen, &g); st != kStsOk)
    return st;
  const PnsChannel ch{pSrcDst, pLtpLongUsed, pSfbCb, pScaleFactor};
  PnsKernel(ch, nullptr, 0, nullptr, maxSfb, numWinGrp, g, Bands(samplingFrequencyIndex, winLen), pRandomSeed);
  return kStsOk;
}

Status aklsDecodeMsPNS_AAC_32s(Akl32s* pSrcDstL, Akl32s* pSrcDstR, Akl32s* pLtpLongUsedL, Akl32s* pLtpLongUsedR,
                               const Akl8u* pSfbCbL, const Akl8u* pSfbCbR, const Akl16s* pScaleFactorL,
                               const Akl16s* pScaleFactorR, Akl32s msMaskPresent, const Akl8u* pMsUsed,
                               Akl32s maxSfb, Akl32s numWinGrp, const Akl32s* pWinGrpLen,
                               Akl32s samplingFrequencyIndex, Akl32s winLen, Akl32s* pRandomSeed) {
  if (!pSrcDstL || !pSrcDstR || !pLtpLongUsedL || !pLtpLongUsedR || !pSfbCbL || !pSfbCbR || !pScaleFactorL ||
      !pScaleFactorR || !pMsUsed || !pWinGrpLen || !pRandomSeed)
    return kStsNullPtr;
  if (const Status st = CheckPnsArgs(maxSfb, numWinGrp, samplingFrequencyIndex, winLen); st != kStsOk) return st;
  if (msMaskPresent < 0 || msMaskPresent > 2) return kStsAacMsMaskErr;
  Grouping g{};
  if (const Status st = MakeGrouping(winLen == kLongWindow ? 1 : numWinGrp, pWinGrpLen, winLen, &g); st != kStsOk)
    return st;
  const PnsChannel l{pSrcDstL, pLtpLongUsedL, pSfbCbL, pScaleFactorL};
  const PnsChannel r{pSrcDstR, pLtpLongUsedR, pSfbCbR, pScaleFactorR};
  PnsKernel(l, &r, msMaskPresent, pMsUsed, maxSfb, numWinGrp, g, Bands(samplingFrequencyIndex, winLen),
            pRandomSeed);
  return kStsOk;
}

}  // namespace akl::aac
