// AAC inverse quantization to Q3 and the short-window spectrum deinterleave.
//
// The dequantizer is exact integer arithmetic with fixed tables, so every
// build gives the same bits: magnitudes 1..15 come from a table (with the
// quarter-step fraction of the scale folded into its four rows), 16..128 from
// a table of x^(4/3) times a Q31 fraction factor, and larger magnitudes from a
// degree-7 polynomial in the normalised mantissa.
#include <cstdint>

#include "aac/spectral.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace spectral {
namespace {

// Coefficients of the degree-7 polynomial for x^(4/3) on [0.5, 1) in Q27,
// highest power first; each Horner step multiplies by the Q31 mantissa and
// keeps the high 32 bits (so the step also halves).
constexpr std::int32_t kPow43Poly[8] = {-457633446, 1445956062, -2036421417, 1707815404,
                                        -991941369, 535739478,  127541088,   -1613111};

constexpr int Clamp31(int shift) { return shift < 0 ? 0 : (shift > 31 ? 31 : shift); }

// Shifts a non-negative Q-value t right by `shift` (0 past 31) or left by
// -shift; a left shift past 31 saturates a non-zero t to 0x7FFFFFFF.  Left
// shifts up to 31 wrap in 32 bits, as the fixed arithmetic defines them.
inline std::uint32_t ShiftResult(std::uint32_t t, int shift) {
  if (shift > 0) return shift > 31 ? 0u : t >> shift;
  const int left = -shift;
  if (left > 31) return t != 0 ? 0x7FFFFFFFu : 0u;
  return t << left;
}

// Magnitudes 16..128: x^(4/3) (Q23 below 64, Q21 from 64) times the fraction
// factor, the product's high word being Q22 / Q20, i.e. 19 / 17 bits above Q3.
inline std::uint32_t MediumMagnitude(std::int32_t m, int e, int k) {
  const auto t = static_cast<std::uint32_t>(
      (static_cast<std::int64_t>(kPow43Medium[m - 16]) * kFracQ31[k]) >> 32);
  return ShiftResult(t, (m < 64 ? 19 : 17) - e);
}

// Magnitudes 129..8191.  m << 17 is normalised to a Q31 mantissa x in
// [0.5, 1) by a left shift n of 1..6; the polynomial gives x^(4/3) in Q27,
// shifted to Q31 and multiplied by 2^(-j/3) so that, with the exponent table,
// m^(4/3) = result * 2^E exactly as x^(4/3) * 2^((56 - 4n) / 3).
inline std::uint32_t LargeMagnitude(std::int32_t m, int e, int k) {
  auto v = static_cast<std::uint32_t>(m) << 17;
  int n = 0;
  if (v < (1u << 27)) { v <<= 4; n += 4; }
  if (v < (1u << 29)) { v <<= 2; n += 2; }
  if (v < (1u << 30)) { v <<= 1; n += 1; }
  std::int64_t p = kPow43Poly[0];
  for (int i = 1; i < 8; ++i) p = ((p * static_cast<std::int64_t>(v)) >> 32) + kPow43Poly[i];
  // p <= 2^27 on [0.5, 1), so p << 4 fits 32 unsigned bits.
  const auto q31 = static_cast<std::uint32_t>(p) << 4;
  const auto scaled =
      static_cast<std::uint32_t>((static_cast<std::uint64_t>(q31) * static_cast<std::uint32_t>(kNormFactorQ31[n])) >> 31) &
      ~1u;
  const auto t = static_cast<std::uint32_t>(
      (static_cast<std::uint64_t>(scaled) * static_cast<std::uint32_t>(kFracQ31[k])) >> 32);
  return ShiftResult(t, kNormExponent[n] - 4 - e);
}

inline std::uint32_t Magnitude(std::int32_t m, int e, int k) {
  // Small magnitudes are never scaled up: for e above 25 (22) the table
  // value stands as it is.
  if (m < 4) return static_cast<std::uint32_t>(kPow43Small[k][m] >> Clamp31(25 - e));
  if (m < 16) return static_cast<std::uint32_t>(kPow43Small[k][m] >> Clamp31(22 - e));
  if (m <= 128) return MediumMagnitude(m, e, k);
  return LargeMagnitude(m, e, k);
}

// 2^(s/4) = 2^e * 2^(-k/4) with k = 0..3.
inline void SplitScale(int s, int* e, int* k) {
  *e = (s + 3) >> 2;
  *k = 4 * *e - s;
}

}  // namespace

std::int32_t DequantMagnitude(std::int32_t m, int s) {
  int e = 0, k = 0;
  SplitScale(s, &e, &k);
  return static_cast<std::int32_t>(Magnitude(m, e, k));
}

int DequantBand(std::int32_t* x, int n, int sf) {
  int e = 0, k = 0;
  SplitScale(sf - 100, &e, &k);
  // Most lines are 0 or small: their table row and shifts are fixed per band.
  const std::int32_t* row = kPow43Small[k];
  const int shift_q28 = Clamp31(25 - e);
  const int shift_q25 = Clamp31(22 - e);
  for (int i = 0; i < n; ++i) {
    const std::int32_t v = x[i];
    const std::uint32_t sign = static_cast<std::uint32_t>(v >> 31);  // 0 or all ones
    const std::uint32_t m = (static_cast<std::uint32_t>(v) ^ sign) - sign;
    std::uint32_t r;
    if (m < 16) {
      // Branch-free for the common case; entry 0 of the row is 0, so zero
      // lines come out as 0.
      r = static_cast<std::uint32_t>(row[m] >> (m < 4 ? shift_q28 : shift_q25));
    } else if (m <= 128) {
      r = MediumMagnitude(static_cast<std::int32_t>(m), e, k);
    } else if (m <= 8191) {
      r = LargeMagnitude(static_cast<std::int32_t>(m), e, k);
    } else {
      return i;
    }
    x[i] = static_cast<std::int32_t>((r ^ sign) - sign);
  }
  return n;
}

Status QuantInvKernel(std::int32_t* spec, const Akl16s* sf, const Grouping& g, int maxSfb, const Akl8u* cb,
                      const BandTable& bands) {
  std::int32_t* group_base = spec;
  for (int grp = 0; grp < g.num_groups; ++grp) {
    const int len = g.len[grp];
    for (int b = 0; b < maxSfb; ++b) {
      const int book = cb[grp * maxSfb + b];
      if (book >= 13 && book <= 15) continue;  // noise and intensity bands: later tools
      const int start = len * bands.offset[b];
      const int n = len * (bands.offset[b + 1] - bands.offset[b]);
      if (DequantBand(group_base + start, n, sf[grp * maxSfb + b]) != n) return kStsAacCoefValErr;
    }
    group_base += len * kShortWindow;
  }
  return kStsOk;
}

}  // namespace spectral

using namespace spectral;

Status aklsQuantInv_AAC_32s_I(Akl32s* pSrcDst, const Akl16s* pScaleFactor, Akl32s numWinGrp,
                              const Akl32s* pWinGrpLen, Akl32s maxSfb, const Akl8u* pSfbCb,
                              Akl32s samplingFrequencyIndex, Akl32s winLen) {
  if (!pSrcDst || !pScaleFactor || !pWinGrpLen || !pSfbCb) return kStsNullPtr;
  if (const Status st = CheckWindowArgs(numWinGrp, maxSfb, samplingFrequencyIndex, winLen); st != kStsOk)
    return st;
  const BandTable bands = Bands(samplingFrequencyIndex, winLen);
  if (maxSfb > bands.numSwb) return kStsAacMaxSfbErr;
  Grouping g{};
  if (const Status st = MakeGrouping(numWinGrp, pWinGrpLen, winLen, &g); st != kStsOk) return st;
  return QuantInvKernel(pSrcDst, pScaleFactor, g, maxSfb, pSfbCb, bands);
}

Status aklsDeinterleaveSpectrum_AAC_32s(const Akl32s* pSrc, Akl32s* pDst, Akl32s numWinGrp,
                                        const Akl32s* pWinGrpLen, Akl32s maxSfb, Akl32s samplingFrequencyIndex,
                                        Akl32s winLen) {
  if (!pSrc || !pDst || !pWinGrpLen) return kStsNullPtr;
  if (winLen != kShortWindow) return kStsAacWinLenErr;
  if (numWinGrp < 1 || numWinGrp > 8) return kStsAacWinGrpErr;
  if (static_cast<Akl32u>(maxSfb) > static_cast<Akl32u>(kMaxLongBands)) return kStsAacMaxSfbErr;
  if (static_cast<Akl32u>(samplingFrequencyIndex) >= static_cast<Akl32u>(kNumSfIndex)) return kStsAacSmpRateIdxErr;
  const BandTable bands = Bands(samplingFrequencyIndex, kShortWindow);
  if (maxSfb > bands.numSwb) return kStsAacMaxSfbErr;
  Grouping g{};
  if (const Status st = MakeGrouping(numWinGrp, pWinGrpLen, winLen, &g); st != kStsOk) return st;

  const int top = bands.offset[maxSfb];
  int window = 0;
  for (int grp = 0; grp < g.num_groups; ++grp) {
    const int len = g.len[grp];
    const Akl32s* src = pSrc + window * kShortWindow;
    Akl32s* dst = pDst + window * kShortWindow;
    for (int b = 0; b < maxSfb; ++b) {
      const int off = bands.offset[b];
      const int width = bands.offset[b + 1] - off;
      for (int j = 0; j < len; ++j) {
        for (int i = 0; i < width; ++i) dst[j * kShortWindow + off + i] = src[i];
        src += width;
      }
    }
    for (int j = 0; j < len; ++j)
      for (int i = top; i < kShortWindow; ++i) dst[j * kShortWindow + i] = 0;
    window += len;
  }
  // Windows that no group covers hold no data: clear them.
  for (int i = window * kShortWindow; i < 8 * kShortWindow; ++i) pDst[i] = 0;
  return kStsOk;
}

}  // namespace akl::aac
