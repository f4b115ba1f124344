// Layer III inverse MDCT with windowing and overlap-add (the frequency-to-time
// half of the hybrid synthesis filter bank).
//
// Fixed-point scale.  Input lines and every output (time samples, overlap
// tails) are Q26 of the standard's values: the number that the standard's
// floating-point decoder would hold, times 2^26.  A full-scale subband signal
// is about 1.0, so Q26 leaves 5 bits of headroom above full scale and puts
// the rounding step 2^-26 eleven bits below the last bit of 16-bit PCM
// (2^-15).  Transform coefficients are held in Q28: each sum is one 64-bit
// sum of 18 (long) or 6 (short) Q26 x Q28 products, rounded once to Q26.
// Short blocks have the window folded into their matrix; long blocks are
// windowed after the rounding, in Q30 (see kLongCos).  Row sums of
// |coefficient| stay below 12, so with inputs saturated at 2^31 a sum stays
// below 2^63.  Overlap-add saturates.
//
// Alias-reduction butterflies use Q31 cs/ca coefficients with the 64-bit
// product shifted right by 31 (the doubled-operand, upper-half multiply).
//
// Frequency inversion (negating the odd time samples of odd subbands) is done
// here, so the synthesis filter bank receives the standard's subband samples.
//
// Output layout: slot-major, sample of subband s at time slot t at 32*t + s,
// so that output + 32*t is the input of one synthesis call.  Overlap buffer:
// 576 values, subband-major (18 tails per subband).
#include "mp3/imdct.hpp"

#include "core/exports.hpp"
#include "mp3/mp3_math.hpp"

namespace akl::mp3 {

namespace {

// Alias-reduction coefficients of the standard: c[i] and the derived
// cs = 1/sqrt(1 + c^2), ca = c/sqrt(1 + c^2), in Q31.
inline constexpr double kAliasC[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};

struct AliasTables {
  std::int32_t cs[8];
  std::int32_t ca[8];
};
constexpr AliasTables MakeAlias() {
  AliasTables t{};
  for (int i = 0; i < 8; ++i) {
    const double d = ConstSqrt(1.0 + kAliasC[i] * kAliasC[i]);
    t.cs[i] = ConstQ(1.0 / d, 31);
    t.ca[i] = ConstQ(kAliasC[i] / d, 31);
  }
  return t;
}
inline constexpr AliasTables kAlias = MakeAlias();

// Window of block type bt (0 normal, 1 start, 2 short, 3 stop) at sample i of 36.
constexpr double LongWindow(int bt, int i) {
  const double sin36 = ConstSin(kPi / 36.0 * (i + 0.5));
  if (bt == 1) {
    if (i < 18) return sin36;
    if (i < 24) return 1.0;
    if (i < 30) return ConstSin(kPi / 12.0 * (i - 18 + 0.5));
    return 0.0;
  }
  if (bt == 3) {
    if (i < 6) return 0.0;
    if (i < 12) return ConstSin(kPi / 12.0 * (i - 6 + 0.5));
    if (i < 18) return 1.0;
    return sin36;
  }
  return sin36;
}

// Long transform.  The 36 unwindowed outputs x[i] of the 18-point inverse
// MDCT come from 18 distinct sums: x[17-i] = -x[i] (i < 9) and
// x[53-i] = x[i] (18 <= i < 27).  kLongCos holds the rows i = 0..8 and
// 18..26 (as rows 0..17) in Q28: 18 products of inputs up to 2^31 and
// |cos| with row sums below 12 stay below 2^63.  The sums are rounded to Q26
// (saturated), then windowed with Q30 coefficients (one more rounding of
// 2^-27, a 4096th of a 16-bit step).
struct LongCos {
  std::int32_t c[18][18];
};
constexpr LongCos MakeLongCos() {
  LongCos m{};
  for (int r = 0; r < 18; ++r) {
    const int i = r < 9 ? r : r + 9;
    for (int k = 0; k < 18; ++k) m.c[r][k] = ConstQ(ConstCos(kPi / 72.0 * (2 * i + 1 + 18) * (2 * k + 1)), 28);
  }
  return m;
}
inline constexpr LongCos kLongCos = MakeLongCos();

// Windows of block types 0 (normal), 1 (start), 3 (stop) in Q30, as rows 0..2.
struct LongWindows {
  std::int32_t w[3][36];
};
constexpr LongWindows MakeLongWindows() {
  LongWindows m{};
  const int types[3] = {0, 1, 3};
  for (int t = 0; t < 3; ++t)
    for (int i = 0; i < 36; ++i) m.w[t][i] = ConstQ(LongWindow(types[t], i), 30);
  return m;
}
inline constexpr LongWindows kLongWindowQ30 = MakeLongWindows();

// Short transform with its window, Q28: rows = sample 0..11 of one window.
struct ShortMatrix {
  std::int32_t m[12][6];
};
constexpr ShortMatrix MakeShort() {
  ShortMatrix m{};
  for (int i = 0; i < 12; ++i)
    for (int k = 0; k < 6; ++k)
      m.m[i][k] = ConstQ(ConstSin(kPi / 12.0 * (i + 0.5)) * ConstCos(kPi / 24.0 * (2 * i + 1 + 6) * (2 * k + 1)), 28);
  return m;
}
inline constexpr ShortMatrix kShortQ28 = MakeShort();

// Q26 x Q28 sums back to Q26.
inline std::int32_t RoundQ54ToQ26(std::int64_t acc) { return SatS32(RoundShr(acc, 28)); }

}  // namespace

int ImdctSubbandCount(int bound, int block_type, int mixed) {
  int n;
  if (block_type == 2) {
    n = (bound * 3641 + 61897) >> 16;
    if (mixed && n < 2) n = 2;
  } else {
    n = ((bound * 3641 + 29128) >> 16) + 1;
  }
  return n > kSubbands ? kSubbands : n;
}

void AliasReduce(std::int32_t* spec, int n, int block_type, int mixed) {
  int boundaries = n - 1;
  if (block_type == 2) boundaries = mixed ? (n >= 2 ? 1 : 0) : 0;
  for (int sb = 0; sb < boundaries; ++sb) {
    std::int32_t* up = spec + 18 * sb + 17;
    std::int32_t* dn = spec + 18 * (sb + 1);
    for (int i = 0; i < 8; ++i) {
      const std::int64_t x = up[-i];
      const std::int64_t y = dn[i];
      up[-i] = SatS32(((x * kAlias.cs[i]) >> 31) - ((y * kAlias.ca[i]) >> 31));
      dn[i] = SatS32(((y * kAlias.cs[i]) >> 31) + ((x * kAlias.ca[i]) >> 31));
    }
  }
}

void ImdctLong(const std::int32_t* lines, int block_type, std::int32_t* out36) {
  const std::int32_t* w = kLongWindowQ30.w[block_type == 1 ? 1 : block_type == 3 ? 2 : 0];
  std::int32_t x[36];
  for (int r = 0; r < 18; ++r) {
    std::int64_t acc = 0;
    for (int k = 0; k < 18; ++k) acc += static_cast<std::int64_t>(lines[k]) * kLongCos.c[r][k];
    const std::int32_t v = RoundQ54ToQ26(acc);
    if (r < 9) {
      x[r] = v;
      x[17 - r] = SatS32(-static_cast<std::int64_t>(v));
    } else {
      x[r + 9] = v;
      x[53 - (r + 9)] = v;
    }
  }
  for (int i = 0; i < 36; ++i) out36[i] = SatS32(RoundShr(static_cast<std::int64_t>(x[i]) * w[i], 30));
}

void ImdctShort(const std::int32_t* lines, std::int32_t* out36) {
  std::int64_t acc[36] = {};
  for (int w = 0; w < 3; ++w) {
    const std::int32_t* x = lines + 6 * w;
    for (int i = 0; i < 12; ++i) {
      std::int64_t s = 0;
      for (int k = 0; k < 6; ++k) s += static_cast<std::int64_t>(x[k]) * kShortQ28.m[i][k];
      acc[6 + 6 * w + i] += s;
    }
  }
  for (int i = 0; i < 36; ++i) out36[i] = RoundQ54ToQ26(acc[i]);
}

void MdctInvKernel(std::int32_t* spec, std::int32_t* out, std::int32_t* overlap, int bound, std::int32_t* prev_count,
                   int block_type, int mixed) {
  const int n = ImdctSubbandCount(bound, block_type, mixed);
  AliasReduce(spec, n, block_type, mixed);
  const int active = n > *prev_count ? n : *prev_count;
  std::int32_t z[36];
  for (int sb = 0; sb < kSubbands; ++sb) {
    std::int32_t* ov = overlap + 18 * sb;
    std::int32_t tail[18];
    if (sb < n) {
      const std::int32_t* lines = spec + 18 * sb;
      if (block_type == 2 && !(mixed && sb < 2))
        ImdctShort(lines, z);
      else
        ImdctLong(lines, (mixed && sb < 2) ? 0 : block_type, z);
      for (int i = 0; i < 18; ++i) {
        tail[i] = SatS32(static_cast<std::int64_t>(z[i]) + ov[i]);
        ov[i] = z[18 + i];
      }
    } else if (sb < active) {
      for (int i = 0; i < 18; ++i) {
        tail[i] = ov[i];
        ov[i] = 0;
      }
    } else {
      for (int i = 0; i < 18; ++i) tail[i] = 0;
    }
    if (sb & 1)
      for (int i = 1; i < 18; i += 2) tail[i] = SatS32(-static_cast<std::int64_t>(tail[i]));
    for (int t = 0; t < 18; ++t) out[32 * t + sb] = tail[t];
  }
  *prev_count = n;
}

Status aklsMDCTInv_MP3_32s(Akl32s* pSrcXr, Akl32s* pDstY, Akl32s* pOverlapBuf, int nonZeroBound,
                           int* pPrevNumSbImdct, int blockType, int mixedBlock) {
  if (!pSrcXr || !pDstY || !pOverlapBuf || !pPrevNumSbImdct) return kStsNullPtr;
  if (static_cast<unsigned>(nonZeroBound) > 576u || static_cast<unsigned>(blockType) > 3u ||
      static_cast<unsigned>(mixedBlock) > 1u || static_cast<unsigned>(*pPrevNumSbImdct) > 32u)
    return kStsBadArgErr;
  MdctInvKernel(pSrcXr, pDstY, pOverlapBuf, nonZeroBound, pPrevNumSbImdct, blockType, mixedBlock);
  return kStsOk;
}

}  // namespace akl::mp3
