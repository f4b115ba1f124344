// AAC spectral tools: shared band layout helpers and the internal kernels
// behind the dequantizer, stereo, noise substitution and TNS exports.  The
// kernels assume arguments that the exports have checked.
#pragma once

#include <cstdint>

#include "aac/spectral_tables.hpp"
#include "aklac.h"

namespace akl::aac::spectral {

inline constexpr int kLongWindow = 1024;
inline constexpr int kShortWindow = 128;
inline constexpr int kMsRowStride = 60;  // msUsed bytes per window group

// Band offsets and count for a sampling index and window length.
struct BandTable {
  const std::uint16_t* offset;  // numSwb + 1 entries
  int numSwb;
};
inline BandTable Bands(int sf_index, int win_len) {
  if (win_len == kShortWindow) return {kSwbOffsetShort[sf_index], kNumSwbShort[sf_index]};
  return {kSwbOffsetLong[sf_index], kNumSwbLong[sf_index]};
}

// The window grouping a kernel walks: group count and windows per group.  A
// long window is one group of one window whatever pWinGrpLen says.
struct Grouping {
  int num_groups;
  int len[8];
};

// Shared range checks of the band-wise tools.  Returns kStsOk or the status
// of the first failing rule: winLen, group count, maxSfb against 51, sampling
// index; the caller adds its own checks after these.
Status CheckWindowArgs(Akl32s numWinGrp, Akl32s maxSfb, Akl32s sf_index, Akl32s winLen);
// Builds the grouping; kStsAacWinGrpErr if a short-window group length is
// outside 1..8 or the lengths add up to more than 8 windows.
Status MakeGrouping(Akl32s numWinGrp, const Akl32s* pWinGrpLen, Akl32s winLen, Grouping* g);

// ---- dequantization ----
// 8 * m^(4/3) * 2^(s/4) in Q3 for one magnitude m = 1..8191 with s = sf - 100.
std::int32_t DequantMagnitude(std::int32_t m, int s);
// Dequantizes n values in place; returns the index of the first magnitude
// above 8191, or n if there is none.
int DequantBand(std::int32_t* x, int n, int sf);
// The plain line-by-line form of DequantBand, kept as its checker's reference.
int DequantBandRef(std::int32_t* x, int n, int sf);
Status QuantInvKernel(std::int32_t* spec, const Akl16s* sf, const Grouping& g, int maxSfb, const Akl8u* cb,
                      const BandTable& bands);

// ---- noise substitution ----
// Advances the linear congruential generator once.
inline std::int32_t NextRandom(std::int32_t seed) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(seed) * 1664525u + 1013904223u);
}
// Fills n lines with unit-energy noise in Q31 (sum of squares 2^62), drawing n
// values from *seed.
void MakeNoise(std::int32_t* out, int n, std::int32_t* seed);
// Scales unit-energy Q31 noise to the noise energy `energy`, giving Q3 lines.
void ScaleNoise(const std::int32_t* noise, std::int32_t* out, int n, int energy);

// ---- TNS ----
inline constexpr int kTnsMaxOrderLong = 12;
inline constexpr int kTnsMaxOrderMain = 20;  // long windows of the Main profile
inline constexpr int kTnsMaxOrderShort = 7;
// Direct-form LPC coefficients (Q26, lpc[1..order]; lpc[0] unused) from the
// quantized reflection coefficients of one filter.
void TnsLpcFromCoefs(const Akl8s* coef, int order, int coef_res, std::int32_t* lpc);

}  // namespace akl::aac::spectral
