// Layer III inverse MDCT with windowing and overlap-add (the frequency-to-time
// half of the hybrid synthesis filter bank).
//
// Fixed-point scale.  Input lines and every output (time samples, overlap
// tails) are Q26 of the standard's values: the number that the standard's
// floating-point decoder would hold, times 2^26.  A full-scale subband signal
// is about 1.0, so Q26 leaves 5 bits of headroom above full scale and puts
// the rounding step 2^-26 eleven bits below the last bit of 16-bit PCM
// (2^-15).  Short blocks: each output is one 64-bit sum of 6 Q26 x Q28
// products (window folded into the matrix), rounded once to Q26.  Long
// blocks: a factorised DCT-IV (see Dct4x18) in 64-bit Q26 with a rounding
// after each of its three multiply stages, then the window in Q30.  Every
// bound is worked out for inputs saturated at 2^31, so no 64-bit sum can
// overflow.  Overlap-add saturates.  That integer form is the plain path
// (MdctInvKernelRef, and the short and odd leftover subbands of the tuned
// kernel).  The tuned kernel runs runs of long blocks four subbands at a time
// in the lanes of SSE2 floats (see LongQuad), and leftover pairs two at a
// time in double lanes (see LongPair): the Q26 integers in and out are the
// same, the arithmetic in between is floating point with a single rounding
// (to nearest) and saturation to Q26 int32 at the end.  The double path is
// within a few Q26 steps of the plain one; the float path within 2^-17 of the
// input peak (about 2^7 steps, 1/16 of a 16-bit step, at full scale).
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

#include <emmintrin.h>

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

// Long transform.  The 36 unwindowed outputs are, up to sign, the 18
// values of a DCT-IV, y(n) = sum_k X_k cos(pi/72 (2n+1)(2k+1)):
// x[i] = y(i+9) for i < 9, -y(26-i) for 9 <= i < 27, -y(i-27) above.  The
// DCT-IV runs as a 9-point complex DFT between two twiddles: v_k =
// (X[2k] + i X[17-2k]) e^(-i pi (4k+1)/72), V = DFT9(v) (as 3 x 3 with
// four inner twiddles), W_m = V_m e^(-i pi m/18), y(2m) = Re W_m and
// y(17-2m) = -Im W_m.  Values stay in Q26 in 64-bit integers; constants are
// Q30 before the DFT (|X| <= 2^31 keeps products below 2^62), Q28 inside
// it (values up to 2^35) and Q27 after it, each product rounded back to
// Q26 (about 2^-27 each, far below the 16-bit step).
struct C64 {
  std::int64_t re, im;
};
struct LongDct4 {
  std::int32_t pre_c[9], pre_s[9];    // cos, sin of pi (4k+1)/72, Q30
  std::int32_t post_c[9], post_s[9];  // cos, sin of pi m/18, Q27
  std::int32_t w9_c[5], w9_s[5];      // cos, sin of 2 pi j/9, j = 0..4, Q28
  std::int32_t sqrt3_2;               // sqrt(3)/2, Q28
};
constexpr LongDct4 MakeLongDct4() {
  LongDct4 t{};
  for (int k = 0; k < 9; ++k) {
    t.pre_c[k] = ConstQ(ConstCos(kPi * (4 * k + 1) / 72.0), 30);
    t.pre_s[k] = ConstQ(ConstSin(kPi * (4 * k + 1) / 72.0), 30);
    t.post_c[k] = ConstQ(ConstCos(kPi * k / 18.0), 27);
    t.post_s[k] = ConstQ(ConstSin(kPi * k / 18.0), 27);
  }
  for (int j = 0; j < 5; ++j) {
    t.w9_c[j] = ConstQ(ConstCos(2.0 * kPi * j / 9.0), 28);
    t.w9_s[j] = ConstQ(ConstSin(2.0 * kPi * j / 9.0), 28);
  }
  t.sqrt3_2 = ConstQ(ConstSqrt(3.0) / 2.0, 28);
  return t;
}
inline constexpr LongDct4 kDct4 = MakeLongDct4();

// 3-point DFT with e^(-2 pi i/3): (a, b, c) -> (a + t, a - t/2 - i s3 d, a - t/2 + i s3 d)
// with t = b + c, d = b - c.
inline void Dft3(C64 a, C64 b, C64 c, C64* o0, C64* o1, C64* o2) {
  const C64 t{b.re + c.re, b.im + c.im};
  const C64 d{b.re - c.re, b.im - c.im};
  const C64 m{a.re - RoundShr(t.re, 1), a.im - RoundShr(t.im, 1)};
  const std::int64_t dr = RoundShr(d.re * kDct4.sqrt3_2, 28), di = RoundShr(d.im * kDct4.sqrt3_2, 28);
  *o0 = {a.re + t.re, a.im + t.im};
  *o1 = {m.re + di, m.im - dr};  // m - i s3 d
  *o2 = {m.re - di, m.im + dr};  // m + i s3 d
}

// y(0..17) of the DCT-IV above, rounded to Q26 with saturation.
void Dct4x18(const std::int32_t* x, std::int32_t* y) {
  C64 v[9];
  for (int k = 0; k < 9; ++k) {
    const std::int64_t re = x[2 * k], im = x[17 - 2 * k];
    v[k] = {RoundShr(re * kDct4.pre_c[k] + im * kDct4.pre_s[k], 30),
            RoundShr(im * kDct4.pre_c[k] - re * kDct4.pre_s[k], 30)};
  }
  // DFT9: k = 3a + b, m = c + 3d.  Inner DFT3 over a for each b, twiddle
  // by e^(-2 pi i b c/9), outer DFT3 over b for each c.
  C64 inner[3][3];  // [b][c]
  for (int b = 0; b < 3; ++b) Dft3(v[b], v[3 + b], v[6 + b], &inner[b][0], &inner[b][1], &inner[b][2]);
  for (int b = 1; b < 3; ++b)
    for (int c = 1; c < 3; ++c) {
      const int j = b * c;  // 1, 2 or 4
      const C64 z = inner[b][c];
      inner[b][c] = {RoundShr(z.re * kDct4.w9_c[j] + z.im * kDct4.w9_s[j], 28),
                     RoundShr(z.im * kDct4.w9_c[j] - z.re * kDct4.w9_s[j], 28)};
    }
  C64 big[9];
  for (int c = 0; c < 3; ++c) Dft3(inner[0][c], inner[1][c], inner[2][c], &big[c], &big[c + 3], &big[c + 6]);
  for (int m = 0; m < 9; ++m) {
    const C64 z = big[m];
    const std::int64_t re = RoundShr(z.re * kDct4.post_c[m] + z.im * kDct4.post_s[m], 27);
    const std::int64_t im = RoundShr(z.im * kDct4.post_c[m] - z.re * kDct4.post_s[m], 27);
    y[2 * m] = SatS32(re);
    y[17 - 2 * m] = SatS32(-im);
  }
}

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

// The short transform without its window (Q28), and the short window (Q30).
constexpr ShortMatrix MakeShortCos() {
  ShortMatrix m{};
  for (int i = 0; i < 12; ++i)
    for (int k = 0; k < 6; ++k) m.m[i][k] = ConstQ(ConstCos(kPi / 24.0 * (2 * i + 1 + 6) * (2 * k + 1)), 28);
  return m;
}
inline constexpr ShortMatrix kShortCosQ28 = MakeShortCos();
struct ShortWindow {
  std::int32_t w[12];
  constexpr std::int32_t operator[](int i) const { return w[i]; }
};
constexpr ShortWindow MakeShortWindow() {
  ShortWindow t{};
  for (int i = 0; i < 12; ++i) t.w[i] = ConstQ(ConstSin(kPi / 12.0 * (i + 0.5)), 30);
  return t;
}
inline constexpr ShortWindow kShortWindowQ30 = MakeShortWindow();

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

void AliasReduceRef(std::int32_t* spec, int n, int block_type, int mixed) {
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

namespace {

// Bits 31..62 of the signed 64-bit products x * c for four lanes, that is
// (x * c) >> 31 truncated to 32 bits. The unsigned products come from
// _mm_mul_epu32; a negative operand adds the other operand times 2^32 to the
// unsigned product, which the correction (doubled, as the window starts at
// bit 31) takes back.
inline __m128i MulQ31Lanes(__m128i x, __m128i c) {
  const __m128i lo_mask = _mm_set_epi32(0, -1, 0, -1);
  const __m128i even = _mm_mul_epu32(x, c);
  const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(x, 32), _mm_srli_epi64(c, 32));
  const __m128i u = _mm_or_si128(_mm_and_si128(_mm_srli_epi64(even, 31), lo_mask),
                                 _mm_andnot_si128(lo_mask, _mm_slli_epi64(odd, 1)));
  const __m128i corr = _mm_add_epi32(_mm_and_si128(_mm_srai_epi32(x, 31), c), _mm_and_si128(_mm_srai_epi32(c, 31), x));
  return _mm_sub_epi32(u, _mm_add_epi32(corr, corr));
}

}  // namespace

// Four butterflies per step. When all sixteen operands of a boundary lie in
// [-2^30, 2^30) each product term fits in 32 bits and, as cs^2 + ca^2 = 1, so
// does the combination, so the wrapping 32-bit sums equal the saturated 64-bit
// ones of AliasReduceRef; other boundaries take the scalar form.
void AliasReduce(std::int32_t* spec, int n, int block_type, int mixed) {
  int boundaries = n - 1;
  if (block_type == 2) boundaries = mixed ? (n >= 2 ? 1 : 0) : 0;
  const __m128i cs_lo = _mm_setr_epi32(kAlias.cs[0], kAlias.cs[1], kAlias.cs[2], kAlias.cs[3]);
  const __m128i cs_hi = _mm_setr_epi32(kAlias.cs[4], kAlias.cs[5], kAlias.cs[6], kAlias.cs[7]);
  const __m128i ca_lo = _mm_setr_epi32(kAlias.ca[0], kAlias.ca[1], kAlias.ca[2], kAlias.ca[3]);
  const __m128i ca_hi = _mm_setr_epi32(kAlias.ca[4], kAlias.ca[5], kAlias.ca[6], kAlias.ca[7]);
  const __m128i bias = _mm_set1_epi32(1 << 30);
  for (int sb = 0; sb < boundaries; ++sb) {
    std::int32_t* up = spec + 18 * sb + 10;  // up[7 - i] is butterfly i's upper operand
    std::int32_t* dn = spec + 18 * (sb + 1);
    const __m128i u_hi = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(up)), 0x1B);     // i = 4..7
    const __m128i u_lo = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(up + 4)), 0x1B);  // i = 0..3
    const __m128i d_lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dn));
    const __m128i d_hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dn + 4));
    const __m128i range = _mm_or_si128(_mm_or_si128(_mm_add_epi32(u_hi, bias), _mm_add_epi32(u_lo, bias)),
                                       _mm_or_si128(_mm_add_epi32(d_lo, bias), _mm_add_epi32(d_hi, bias)));
    if (_mm_movemask_ps(_mm_castsi128_ps(range)) != 0) {
      AliasReduceRef(spec + 18 * sb, 2, 0, 0);
      continue;
    }
    const __m128i nu_lo = _mm_sub_epi32(MulQ31Lanes(u_lo, cs_lo), MulQ31Lanes(d_lo, ca_lo));
    const __m128i nu_hi = _mm_sub_epi32(MulQ31Lanes(u_hi, cs_hi), MulQ31Lanes(d_hi, ca_hi));
    const __m128i nd_lo = _mm_add_epi32(MulQ31Lanes(d_lo, cs_lo), MulQ31Lanes(u_lo, ca_lo));
    const __m128i nd_hi = _mm_add_epi32(MulQ31Lanes(d_hi, cs_hi), MulQ31Lanes(u_hi, ca_hi));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(up), _mm_shuffle_epi32(nu_hi, 0x1B));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(up + 4), _mm_shuffle_epi32(nu_lo, 0x1B));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dn), nd_lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dn + 4), nd_hi);
  }
}

void ImdctLongRaw(const std::int32_t* lines, std::int32_t* out36) {
  std::int32_t y[18];
  Dct4x18(lines, y);
  for (int i = 0; i < 9; ++i) out36[i] = y[i + 9];
  for (int i = 9; i < 27; ++i) out36[i] = SatS32(-static_cast<std::int64_t>(y[26 - i]));
  for (int i = 27; i < 36; ++i) out36[i] = SatS32(-static_cast<std::int64_t>(y[i - 27]));
}

void ImdctShortRaw(const std::int32_t* lines, std::int32_t* out36) {
  for (int w = 0; w < 3; ++w)
    for (int i = 0; i < 12; ++i) {
      std::int64_t s = 0;
      for (int k = 0; k < 6; ++k) s += static_cast<std::int64_t>(lines[6 * w + k]) * kShortCosQ28.m[i][k];
      out36[12 * w + i] = RoundQ54ToQ26(s);
    }
}

void WindowKernel(const std::int32_t* src, std::int32_t* dst, int block_type) {
  if (block_type != 2) {
    const std::int32_t* w = kLongWindowQ30.w[block_type == 1 ? 1 : block_type == 3 ? 2 : 0];
    for (int i = 0; i < 36; ++i) dst[i] = SatS32(RoundShr(static_cast<std::int64_t>(src[i]) * w[i], 30));
    return;
  }
  // The three windows overlap by half: samples 6..35 receive up to two
  // products, summed before the one rounding (|sum| < 2^62).
  std::int64_t acc[36] = {};
  for (int w = 0; w < 3; ++w)
    for (int i = 0; i < 12; ++i) acc[6 + 6 * w + i] += static_cast<std::int64_t>(src[12 * w + i]) * kShortWindowQ30[i];
  for (int i = 0; i < 36; ++i) dst[i] = SatS32(RoundShr(acc[i], 30));
}

void ImdctLong(const std::int32_t* lines, int block_type, std::int32_t* out36) {
  std::int32_t x[36];
  ImdctLongRaw(lines, x);
  WindowKernel(x, out36, block_type == 2 ? 0 : block_type);
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

namespace {

// One subband of the plain path: transform (if below n), overlap-add, flush
// (below `active`), frequency inversion and the slot-major store.
void SubbandPlain(std::int32_t* spec, std::int32_t* out, std::int32_t* overlap, int sb, int n, int active,
                  int block_type, int mixed) {
  std::int32_t* ov = overlap + 18 * sb;
  std::int32_t tail[18];
  if (sb < n) {
    std::int32_t z[36];
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

// The tuned long-block path: two neighbouring subbands (sb even, sb + 1) in
// the two lanes of SSE2 doubles, through the same factorised DCT-IV as
// Dct4x18 but without intermediate roundings.  The Q26 inputs are exact in
// double; the 53-bit arithmetic adds errors of about 2^-50 relative, far
// below the one rounding to Q26 that the time samples and the new overlap
// tails get at the end (round to nearest, saturated to int32).  The
// windowed first half is added to the previous tail before that rounding.
// Every constant is stored twice (both lanes), so that it is one aligned load.
struct alignas(16) LongPairTables {
  double pre_c[9][2], pre_s[9][2];    // cos, sin of pi (4k+1)/72
  double post_c[9][2], post_s[9][2];  // cos, sin of pi m/18
  double w9_c[5][2], w9_s[5][2];      // cos, sin of 2 pi j/9
  double sqrt3_2[2], half[2];
  double win[3][36][2];  // block types 0, 1, 3, negated where the unfolding of y negates
};
constexpr LongPairTables MakeLongPairTables() {
  LongPairTables t{};
  for (int l = 0; l < 2; ++l) {
    for (int k = 0; k < 9; ++k) {
      t.pre_c[k][l] = ConstCos(kPi * (4 * k + 1) / 72.0);
      t.pre_s[k][l] = ConstSin(kPi * (4 * k + 1) / 72.0);
      t.post_c[k][l] = ConstCos(kPi * k / 18.0);
      t.post_s[k][l] = ConstSin(kPi * k / 18.0);
    }
    for (int j = 0; j < 5; ++j) {
      t.w9_c[j][l] = ConstCos(2.0 * kPi * j / 9.0);
      t.w9_s[j][l] = ConstSin(2.0 * kPi * j / 9.0);
    }
    t.sqrt3_2[l] = ConstSqrt(3.0) / 2.0;
    t.half[l] = 0.5;
    const int types[3] = {0, 1, 3};
    for (int r = 0; r < 3; ++r)
      for (int i = 0; i < 36; ++i) t.win[r][i][l] = (i < 9 ? 1.0 : -1.0) * LongWindow(types[r], i);
  }
  return t;
}
alignas(16) inline constexpr LongPairTables kPair = MakeLongPairTables();

struct CV {
  __m128d re, im;
};
inline __m128d Mul(__m128d a, const double* c2) { return _mm_mul_pd(a, _mm_load_pd(c2)); }
inline __m128d Add(__m128d a, __m128d b) { return _mm_add_pd(a, b); }
inline __m128d Sub(__m128d a, __m128d b) { return _mm_sub_pd(a, b); }

inline void Dft3Pair(CV a, CV b, CV c, CV* o0, CV* o1, CV* o2) {
  const CV t{Add(b.re, c.re), Add(b.im, c.im)};
  const CV d{Sub(b.re, c.re), Sub(b.im, c.im)};
  const CV m{Sub(a.re, Mul(t.re, kPair.half)), Sub(a.im, Mul(t.im, kPair.half))};
  const __m128d dr = Mul(d.re, kPair.sqrt3_2), di = Mul(d.im, kPair.sqrt3_2);
  *o0 = {Add(a.re, t.re), Add(a.im, t.im)};
  *o1 = {Add(m.re, di), Sub(m.im, dr)};
  *o2 = {Sub(m.re, di), Add(m.im, dr)};
}

// 18 values of subband a and of subband b (18 further on) as lane pairs.
inline void LoadPairs(const std::int32_t* a, __m128d* x) {
  const std::int32_t* b = a + 18;
  for (int q = 0; q < 4; ++q) {
    const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 4 * q));
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + 4 * q));
    const __m128i lo = _mm_unpacklo_epi32(va, vb), hi = _mm_unpackhi_epi32(va, vb);
    x[4 * q] = _mm_cvtepi32_pd(lo);
    x[4 * q + 1] = _mm_cvtepi32_pd(_mm_shuffle_epi32(lo, 0xEE));
    x[4 * q + 2] = _mm_cvtepi32_pd(hi);
    x[4 * q + 3] = _mm_cvtepi32_pd(_mm_shuffle_epi32(hi, 0xEE));
  }
  const __m128i va = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(a + 16));
  const __m128i vb = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b + 16));
  const __m128i lo = _mm_unpacklo_epi32(va, vb);
  x[16] = _mm_cvtepi32_pd(lo);
  x[17] = _mm_cvtepi32_pd(_mm_shuffle_epi32(lo, 0xEE));
}

// Rounds both lanes to int32 with saturation (low 64 bits of the result).
inline __m128i RoundSat(__m128d v) {
  v = _mm_max_pd(_mm_min_pd(v, _mm_set1_pd(2147483647.0)), _mm_set1_pd(-2147483648.0));
  return _mm_cvtpd_epi32(v);
}

void LongPair(const std::int32_t* lines, int window_row, std::int32_t* overlap, std::int32_t* out) {
  __m128d x[18];
  LoadPairs(lines, x);
  CV v[9];
  for (int k = 0; k < 9; ++k) {
    const __m128d re = x[2 * k], im = x[17 - 2 * k];
    v[k] = {Add(Mul(re, kPair.pre_c[k]), Mul(im, kPair.pre_s[k])), Sub(Mul(im, kPair.pre_c[k]), Mul(re, kPair.pre_s[k]))};
  }
  CV inner[3][3];
  for (int b = 0; b < 3; ++b) Dft3Pair(v[b], v[3 + b], v[6 + b], &inner[b][0], &inner[b][1], &inner[b][2]);
  for (int b = 1; b < 3; ++b)
    for (int c = 1; c < 3; ++c) {
      const int j = b * c;
      const CV z = inner[b][c];
      inner[b][c] = {Add(Mul(z.re, kPair.w9_c[j]), Mul(z.im, kPair.w9_s[j])),
                     Sub(Mul(z.im, kPair.w9_c[j]), Mul(z.re, kPair.w9_s[j]))};
    }
  CV big[9];
  for (int c = 0; c < 3; ++c) Dft3Pair(inner[0][c], inner[1][c], inner[2][c], &big[c], &big[c + 3], &big[c + 6]);
  __m128d y[18];
  for (int m = 0; m < 9; ++m) {
    const CV z = big[m];
    y[2 * m] = Add(Mul(z.re, kPair.post_c[m]), Mul(z.im, kPair.post_s[m]));
    y[17 - 2 * m] = Sub(Mul(z.re, kPair.post_s[m]), Mul(z.im, kPair.post_c[m]));
  }
  const double(*w)[2] = kPair.win[window_row];
  __m128d ov[18];
  LoadPairs(overlap, ov);
  // Time samples t = 0..17: y(9 + t) for t < 9, y(26 - t) above (the
  // negation is in the window), plus the previous tail; the odd subband
  // (lane 1) is negated at odd t.
  const __m128d flip = _mm_set_pd(-1.0, 1.0);
  for (int t = 0; t < 18; ++t) {
    const __m128d z = Add(Mul(t < 9 ? y[9 + t] : y[26 - t], w[t]), ov[t]);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 32 * t), RoundSat((t & 1) ? _mm_mul_pd(z, flip) : z));
  }
  // New tails: samples 18..35 are y(26 - i) for i < 27 and y(i - 27) above.
  alignas(16) std::int32_t tails[36];
  for (int i = 0; i < 18; ++i) {
    const int s = 18 + i;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(tails + 2 * i), RoundSat(Mul(s < 27 ? y[26 - s] : y[s - 27], w[s])));
  }
  for (int i = 0; i < 18; ++i) {
    overlap[i] = tails[2 * i];
    overlap[18 + i] = tails[2 * i + 1];
  }
}

// The four-lane long-block path: subbands sb..sb+3 (sb even) in the lanes of
// SSE2 floats, the same factorisation as LongPair.  Inputs and intermediate
// values round to float (2^-24 relative) at each of the stages (pre-twiddle,
// two 3-point DFTs and the twiddle between them, post-twiddle, window,
// overlap-add), each value bounded by a few times the largest input of the
// four subbands, so the error stays below about 2^-19 of that magnitude plus
// the final rounding to Q26: for full-scale lines (2^26) some 2^7 Q26 steps,
// 1/16 of a 16-bit step.  Results clamp at +-(2^31 - 128) where the double
// path saturates at the int32 limits.
struct alignas(16) LongQuadTables {
  float pre_c[9][4], pre_s[9][4];
  float post_c[9][4], post_s[9][4];
  float w9_c[5][4], w9_s[5][4];
  float sqrt3_2[4], half[4];
  float win[3][36][4];
};
constexpr LongQuadTables MakeLongQuadTables() {
  LongQuadTables t{};
  for (int l = 0; l < 4; ++l) {
    for (int k = 0; k < 9; ++k) {
      t.pre_c[k][l] = static_cast<float>(kPair.pre_c[k][0]);
      t.pre_s[k][l] = static_cast<float>(kPair.pre_s[k][0]);
      t.post_c[k][l] = static_cast<float>(kPair.post_c[k][0]);
      t.post_s[k][l] = static_cast<float>(kPair.post_s[k][0]);
    }
    for (int j = 0; j < 5; ++j) {
      t.w9_c[j][l] = static_cast<float>(kPair.w9_c[j][0]);
      t.w9_s[j][l] = static_cast<float>(kPair.w9_s[j][0]);
    }
    t.sqrt3_2[l] = static_cast<float>(kPair.sqrt3_2[0]);
    t.half[l] = 0.5f;
    for (int r = 0; r < 3; ++r)
      for (int i = 0; i < 36; ++i) t.win[r][i][l] = static_cast<float>(kPair.win[r][i][0]);
  }
  return t;
}
alignas(16) inline constexpr LongQuadTables kQuad = MakeLongQuadTables();

struct CF {
  __m128 re, im;
};
inline __m128 MulF(__m128 a, const float* c4) { return _mm_mul_ps(a, _mm_load_ps(c4)); }

inline void Dft3Quad(CF a, CF b, CF c, CF* o0, CF* o1, CF* o2) {
  const CF t{_mm_add_ps(b.re, c.re), _mm_add_ps(b.im, c.im)};
  const CF d{_mm_sub_ps(b.re, c.re), _mm_sub_ps(b.im, c.im)};
  const CF m{_mm_sub_ps(a.re, MulF(t.re, kQuad.half)), _mm_sub_ps(a.im, MulF(t.im, kQuad.half))};
  const __m128 dr = MulF(d.re, kQuad.sqrt3_2), di = MulF(d.im, kQuad.sqrt3_2);
  *o0 = {_mm_add_ps(a.re, t.re), _mm_add_ps(a.im, t.im)};
  *o1 = {_mm_add_ps(m.re, di), _mm_sub_ps(m.im, dr)};
  *o2 = {_mm_sub_ps(m.re, di), _mm_add_ps(m.im, dr)};
}

// 18 values of four subbands 18 apart, as vectors x[i] = (a[i], b[i], c[i], d[i]).
inline void LoadQuads(const std::int32_t* a, __m128* x) {
  for (int q = 0; q < 4; ++q) {
    __m128 r0 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 4 * q)));
    __m128 r1 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 18 + 4 * q)));
    __m128 r2 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 36 + 4 * q)));
    __m128 r3 = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 54 + 4 * q)));
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    x[4 * q] = r0;
    x[4 * q + 1] = r1;
    x[4 * q + 2] = r2;
    x[4 * q + 3] = r3;
  }
  const __m128i ab = _mm_unpacklo_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a + 16)),
                                        _mm_loadl_epi64(reinterpret_cast<const __m128i*>(a + 34)));
  const __m128i cd = _mm_unpacklo_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a + 52)),
                                        _mm_loadl_epi64(reinterpret_cast<const __m128i*>(a + 70)));
  x[16] = _mm_cvtepi32_ps(_mm_unpacklo_epi64(ab, cd));
  x[17] = _mm_cvtepi32_ps(_mm_unpackhi_epi64(ab, cd));
}

inline __m128i RoundSatF(__m128 v) {
  v = _mm_max_ps(_mm_min_ps(v, _mm_set1_ps(2147483520.0f)), _mm_set1_ps(-2147483520.0f));
  return _mm_cvtps_epi32(v);
}

void LongQuad(const std::int32_t* lines, int window_row, std::int32_t* overlap, std::int32_t* out) {
  __m128 x[18];
  LoadQuads(lines, x);
  CF v[9];
  for (int k = 0; k < 9; ++k) {
    const __m128 re = x[2 * k], im = x[17 - 2 * k];
    v[k] = {_mm_add_ps(MulF(re, kQuad.pre_c[k]), MulF(im, kQuad.pre_s[k])),
            _mm_sub_ps(MulF(im, kQuad.pre_c[k]), MulF(re, kQuad.pre_s[k]))};
  }
  CF inner[3][3];
  for (int b = 0; b < 3; ++b) Dft3Quad(v[b], v[3 + b], v[6 + b], &inner[b][0], &inner[b][1], &inner[b][2]);
  for (int b = 1; b < 3; ++b)
    for (int c = 1; c < 3; ++c) {
      const int j = b * c;
      const CF z = inner[b][c];
      inner[b][c] = {_mm_add_ps(MulF(z.re, kQuad.w9_c[j]), MulF(z.im, kQuad.w9_s[j])),
                     _mm_sub_ps(MulF(z.im, kQuad.w9_c[j]), MulF(z.re, kQuad.w9_s[j]))};
    }
  CF big[9];
  for (int c = 0; c < 3; ++c) Dft3Quad(inner[0][c], inner[1][c], inner[2][c], &big[c], &big[c + 3], &big[c + 6]);
  __m128 y[18];
  for (int m = 0; m < 9; ++m) {
    const CF z = big[m];
    y[2 * m] = _mm_add_ps(MulF(z.re, kQuad.post_c[m]), MulF(z.im, kQuad.post_s[m]));
    y[17 - 2 * m] = _mm_sub_ps(MulF(z.re, kQuad.post_s[m]), MulF(z.im, kQuad.post_c[m]));
  }
  const float(*w)[4] = kQuad.win[window_row];
  __m128 ov[18];
  LoadQuads(overlap, ov);
  // Time samples as in LongPair; the odd subbands (lanes 1 and 3) are negated
  // at odd t.
  const __m128 flip = _mm_set_ps(-1.0f, 1.0f, -1.0f, 1.0f);
  for (int t = 0; t < 18; ++t) {
    const __m128 z = _mm_add_ps(MulF(t < 9 ? y[9 + t] : y[26 - t], w[t]), ov[t]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32 * t), RoundSatF((t & 1) ? _mm_mul_ps(z, flip) : z));
  }
  // New tails (samples 18..35), transposed back to one run of 18 per subband.
  __m128 tail[18];
  for (int i = 0; i < 18; ++i) {
    const int s = 18 + i;
    tail[i] = MulF(s < 27 ? y[26 - s] : y[s - 27], w[s]);
  }
  for (int q = 0; q < 4; ++q) {
    __m128 r0 = tail[4 * q], r1 = tail[4 * q + 1], r2 = tail[4 * q + 2], r3 = tail[4 * q + 3];
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(overlap + 4 * q), RoundSatF(r0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(overlap + 18 + 4 * q), RoundSatF(r1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(overlap + 36 + 4 * q), RoundSatF(r2));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(overlap + 54 + 4 * q), RoundSatF(r3));
  }
  alignas(16) std::int32_t last[2][4];
  _mm_store_si128(reinterpret_cast<__m128i*>(last[0]), RoundSatF(tail[16]));
  _mm_store_si128(reinterpret_cast<__m128i*>(last[1]), RoundSatF(tail[17]));
  for (int l = 0; l < 4; ++l) {
    overlap[18 * l + 16] = last[0][l];
    overlap[18 * l + 17] = last[1][l];
  }
}

}  // namespace

void MdctInvKernel(std::int32_t* spec, std::int32_t* out, std::int32_t* overlap, int bound, std::int32_t* prev_count,
                   int block_type, int mixed) {
  const int n = ImdctSubbandCount(bound, block_type, mixed);
  AliasReduce(spec, n, block_type, mixed);
  const int active = n > *prev_count ? n : *prev_count;
  int sb = 0;
  // Runs of four long subbands that share a window row (a mixed flag puts
  // subbands 0 and 1 on the normal window, so they go in a pair).
  if (block_type != 2) {
    const int row = block_type == 0 ? 0 : block_type == 1 ? 1 : 2;
    if (mixed && n >= 2 && row != 0) sb = 2;
    if (sb == 2) LongPair(spec, 0, overlap, out);
    for (; sb + 3 < n; sb += 4) LongQuad(spec + 18 * sb, row, overlap + 18 * sb, out + sb);
  }
  for (; sb + 1 < n; sb += 2) {
    const bool long_pair = block_type != 2 || (mixed && sb < 2);
    if (!long_pair) break;
    // A mixed flag puts the normal window on subbands 0 and 1 whatever the block type.
    const int row = (block_type == 2 || block_type == 0 || (mixed && sb < 2)) ? 0 : block_type == 1 ? 1 : 2;
    LongPair(spec + 18 * sb, row, overlap + 18 * sb, out + sb);
  }
  for (; sb < kSubbands; ++sb) SubbandPlain(spec, out, overlap, sb, n, active, block_type, mixed);
  *prev_count = n;
}

void MdctInvKernelRef(std::int32_t* spec, std::int32_t* out, std::int32_t* overlap, int bound, std::int32_t* prev_count,
                      int block_type, int mixed) {
  const int n = ImdctSubbandCount(bound, block_type, mixed);
  AliasReduceRef(spec, n, block_type, mixed);
  const int active = n > *prev_count ? n : *prev_count;
  for (int sb = 0; sb < kSubbands; ++sb) SubbandPlain(spec, out, overlap, sb, n, active, block_type, mixed);
  *prev_count = n;
}

Status aklsMDCTInvWindow_MP3_32s(const Akl32s* pSrc, Akl32s* pDst, int blockType) {
  if (!pSrc || !pDst) return kStsNullPtr;
  if (static_cast<unsigned>(blockType) > 3u) return kStsBadArgErr;
  std::int32_t in[36];  // pSrc and pDst may be the same block
  for (int i = 0; i < 36; ++i) in[i] = pSrc[i];
  WindowKernel(in, pDst, blockType);
  return kStsOk;
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
