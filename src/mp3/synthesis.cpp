// Layer III polyphase synthesis filter bank: the fixed-point form that ends
// the decoding chain with 16-bit PCM, and the floating-point context family.
//
// The 64-value vector V of the standard's matrixing is, for every slot, fixed
// by 32 numbers: A[m] = sum_k S[k] cos(m (2k+1) pi / 64), m = 0..31 (a DCT-II
// of the subband samples S).  With A[32] = 0 and A[64-m] = -A[m], V[i] =
// A[16+i] unfolds from them, so each history slot keeps only A: 16 slots of
// 32 values.  The window table below is arranged in the order the windowed
// sum visits those slots, with the unfolding signs (and the zero of A[32])
// folded in, so that each slot is read contiguously.
//
// Fixed-point scale.  Subband samples arrive in Q26 (the standard's values
// times 2^26) and are clamped to +-8 (2^29 - 1 in Q26): a subband sample that
// large saturates the PCM anyway, and the clamp bounds the transform's
// 64-bit sums (see Dct32), with no precision dropped from the input.  A
// ends in Q25, saturated (range +-64, about twice the largest value 32
// subbands at full scale can reach); its step 2^-25 is ten bits below the
// 16-bit PCM step, and the few intermediate roundings of the factorised
// transform (in Q26) add errors of the same order.  The window coefficients are exact:
// every D[i] is k/65536, so they are stored as the integers k (Q16).  Each
// PCM sample is one 64-bit sum of 16 Q16 x Q25 products, rounded once to the
// 16-bit step (2^-15 of full scale) and saturated to -32768..32767.
//
// Two forms.  The plain one (SynthSlotKernelRef) does all of the above in
// 64-bit integers, the transform factorised with roundings at each stage.
// The tuned one keeps the same history format and window integers but works
// in SSE2 lanes: its transform is a few 8 x 8 products on the even/odd split
// in double precision with one rounding of each A to Q25 (within one step of
// the exact sum), and its windowed sum runs in single precision, within one
// PCM step of the plain 64-bit sum for histories of realistic size.
#include "mp3/synthesis.hpp"

#include <emmintrin.h>

#include "core/context.hpp"
#include "core/dispatch.hpp"
#include "core/exports.hpp"
#include "mp3/mp3_math.hpp"
#include "mp3/synthesis_window_table.hpp"

namespace akl::mp3 {

namespace {

// The 32-point DCT-II, split twice into even and odd halves: with
// u[k] = S[k] + S[31-k] and d[k] = S[k] - S[31-k] (k < 16), the odd outputs
// A[2p+1] are the 16-point DCT-IV of d; with u2[k] = u[k] + u[15-k] and
// d2[k] = u[k] - u[15-k] (k < 8), A[4r+2] is an 8 x 8 product on d2 and
// A[4r] an 8-point DCT-II of u2.  The DCT-IV runs as an 8-point complex FFT
// between two twiddles (see Dct4x16).  Operands reach 2^30 (d), 2^31 (u2,
// d2); the 8 x 8 odd matrix is in Q29 (row sums of |cos| below 5.2, so
// 64-bit sums stay below 2^62.4), the DCT-8 in Q28 (its first row sums to 8).
struct DctTables {
  std::int32_t odd8[8][8];      // cos((2r+1)(2k+1) pi/32), Q29
  std::int32_t dct8[8][8];      // cos(r (2k+1) pi/16), Q28
  std::int32_t pre_c[8], pre_s[8];    // cos, sin of pi (4k+1)/64, Q30
  std::int32_t post_c[8], post_s[8];  // cos, sin of pi m/16, Q28
  std::int32_t sqrt_half;             // 1/sqrt(2), Q30
};
constexpr DctTables MakeDct() {
  DctTables t{};
  for (int r = 0; r < 8; ++r)
    for (int k = 0; k < 8; ++k) {
      t.odd8[r][k] = ConstQ(ConstCos(kPi / 32.0 * (2 * r + 1) * (2 * k + 1)), 29);
      t.dct8[r][k] = ConstQ(ConstCos(kPi / 16.0 * r * (2 * k + 1)), 28);
    }
  for (int k = 0; k < 8; ++k) {
    t.pre_c[k] = ConstQ(ConstCos(kPi * (4 * k + 1) / 64.0), 30);
    t.pre_s[k] = ConstQ(ConstSin(kPi * (4 * k + 1) / 64.0), 30);
    t.post_c[k] = ConstQ(ConstCos(kPi * k / 16.0), 28);
    t.post_s[k] = ConstQ(ConstSin(kPi * k / 16.0), 28);
  }
  t.sqrt_half = ConstQ(ConstSqrt(0.5), 30);
  return t;
}
inline constexpr DctTables kDct = MakeDct();

struct C64 {
  std::int64_t re, im;
};

// y[n] = sum_k d[k] cos(pi/64 (2n+1)(2k+1)), n < 16, for |d| <= 2^30 in Q26,
// written to a[2n+1] in Q25: v_k = (d[2k] + i d[15-2k]) e^(-i pi (4k+1)/64),
// V = FFT8(v), W_m = V_m e^(-i pi m/16), y[2m] = Re W_m, y[15-2m] = -Im W_m.
// Magnitudes: |v| <= 2^30.5, |V| <= 2^33.5; the Q30 and Q28 products stay
// below 2^62.
void Dct4x16(const std::int64_t* d, std::int32_t* a) {
  C64 v[8];
  for (int k = 0; k < 8; ++k) {
    const std::int64_t re = d[2 * k], im = d[15 - 2 * k];
    v[k] = {RoundShr(re * kDct.pre_c[k] + im * kDct.pre_s[k], 30), RoundShr(im * kDct.pre_c[k] - re * kDct.pre_s[k], 30)};
  }
  // Radix-2: two 4-point DFTs (even and odd inputs), then the butterflies
  // with e^(-2 pi i m/8).
  C64 e[4], o[4];
  for (int h = 0; h < 2; ++h) {
    const C64 p0 = v[h], p1 = v[h + 2], p2 = v[h + 4], p3 = v[h + 6];
    const C64 s02{p0.re + p2.re, p0.im + p2.im}, d02{p0.re - p2.re, p0.im - p2.im};
    const C64 s13{p1.re + p3.re, p1.im + p3.im}, d13{p1.re - p3.re, p1.im - p3.im};
    C64* out = h == 0 ? e : o;
    out[0] = {s02.re + s13.re, s02.im + s13.im};
    out[1] = {d02.re + d13.im, d02.im - d13.re};  // d02 - i d13
    out[2] = {s02.re - s13.re, s02.im - s13.im};
    out[3] = {d02.re - d13.im, d02.im + d13.re};  // d02 + i d13
  }
  C64 t[4];
  t[0] = o[0];
  t[1] = {RoundShr((o[1].re + o[1].im) * kDct.sqrt_half, 30), RoundShr((o[1].im - o[1].re) * kDct.sqrt_half, 30)};
  t[2] = {o[2].im, -o[2].re};  // times -i
  t[3] = {RoundShr((o[3].im - o[3].re) * kDct.sqrt_half, 30), RoundShr(-(o[3].re + o[3].im) * kDct.sqrt_half, 30)};
  C64 big[8];
  for (int m = 0; m < 4; ++m) {
    big[m] = {e[m].re + t[m].re, e[m].im + t[m].im};
    big[m + 4] = {e[m].re - t[m].re, e[m].im - t[m].im};
  }
  for (int m = 0; m < 8; ++m) {
    const C64 z = big[m];
    const std::int64_t re = z.re * kDct.post_c[m] + z.im * kDct.post_s[m];
    const std::int64_t im = z.im * kDct.post_c[m] - z.re * kDct.post_s[m];
    a[2 * (2 * m) + 1] = SatS32(RoundShr(re, 29));        // Q54 -> Q25
    a[2 * (15 - 2 * m) + 1] = SatS32(RoundShr(-im, 29));
  }
}

// A[m] = sum_k s[k] cos(m (2k+1) pi/64) for Q26 inputs |s| < 2^29, to Q25.
void Dct32(const std::int32_t* s, std::int32_t* a) {
  std::int64_t u[16], d[16], u2[8], d2[8];
  for (int k = 0; k < 16; ++k) {
    u[k] = static_cast<std::int64_t>(s[k]) + s[31 - k];
    d[k] = static_cast<std::int64_t>(s[k]) - s[31 - k];
  }
  for (int k = 0; k < 8; ++k) {
    u2[k] = u[k] + u[15 - k];
    d2[k] = u[k] - u[15 - k];
  }
  Dct4x16(d, a);
  for (int r = 0; r < 8; ++r) {
    std::int64_t acc_odd = 0, acc_even = 0;
    for (int k = 0; k < 8; ++k) {
      acc_odd += d2[k] * kDct.odd8[r][k];
      acc_even += u2[k] * kDct.dct8[r][k];
    }
    a[4 * r + 2] = SatS32(RoundShr(acc_odd, 30));  // Q55 -> Q25
    a[4 * r] = SatS32(RoundShr(acc_even, 29));     // Q54 -> Q25
  }
}

// Where output j of the windowed sum reads slot 2i (the V index j) and slot
// 2i+1 (the V index 32+j), as an index into A with a sign (0 when the value
// is A[32] = 0).
struct Tap {
  int index;
  int sign;
};
constexpr Tap VTap(int v) {  // V[v] = A'[16+v], v = 0..63
  const int m = 16 + v;
  if (m < 32) return {m, 1};
  if (m == 32) return {0, 0};
  if (m < 64) return {64 - m, -1};
  return {m - 64, -1};
}

// Window arranged by output j and term i = 0..15 (even i: slot i, V index j;
// odd i: slot i, V index 32 + j), with the unfolding sign folded in.
struct SynthWindow {
  std::int32_t coef[32][16];
  std::int8_t index[32][16];
};
constexpr SynthWindow MakeWindow() {
  SynthWindow w{};
  for (int j = 0; j < 32; ++j) {
    for (int i = 0; i < 16; ++i) {
      const int half = i / 2;
      const int d = (i % 2 == 0) ? 64 * half + j : 64 * half + 32 + j;
      const Tap tap = VTap((i % 2 == 0) ? j : 32 + j);
      w.coef[j][i] = kSynthesisWindowQ16[d] * tap.sign;
      w.index[j][i] = static_cast<std::int8_t>(tap.index);
    }
  }
  return w;
}
inline constexpr SynthWindow kWindow = MakeWindow();

// The same window for the fixed-point sum, arranged so that the slots are
// read contiguously: with V unfolded from A, output j (0..15) reads
// A[16+j] of the even slots and A[16-j] of the odd ones, output 32-j
// (j = 1..15) reads the same two values, and output 16 reads A[0] of the odd
// slots only.  Rows h = 0..7 pair slot 2h (even) with slot 2h+1 (odd).
struct PairedWindow {
  std::int32_t even_lo[8][16];  // D[64h + j]          x A_even[16+j] -> out[j]
  std::int32_t odd_lo[8][16];   // -D[64h + 32 + j]    x A_odd[16-j]  -> out[j]
  std::int32_t even_hi[8][16];  // -D[64h + 32 - j]    x A_even[16+j] -> out[32-j]
  std::int32_t odd_hi[8][16];   // -D[64h + 64 - j]    x A_odd[16-j]  -> out[32-j]
  std::int32_t odd_mid[8];      // -D[64h + 48]        x A_odd[0]     -> out[16]
};
constexpr PairedWindow MakePairedWindow() {
  PairedWindow w{};
  for (int h = 0; h < 8; ++h) {
    for (int j = 0; j < 16; ++j) {
      w.even_lo[h][j] = kSynthesisWindowQ16[64 * h + j];
      w.odd_lo[h][j] = -kSynthesisWindowQ16[64 * h + 32 + j];
      if (j > 0) {
        w.even_hi[h][j] = -kSynthesisWindowQ16[64 * h + 32 - j];
        w.odd_hi[h][j] = -kSynthesisWindowQ16[64 * h + 64 - j];
      }
    }
    w.odd_mid[h] = -kSynthesisWindowQ16[64 * h + 48];
  }
  return w;
}
inline constexpr PairedWindow kPaired = MakePairedWindow();

}  // namespace

// Plain form of the slot kernel (scalar 64-bit sums), kept as the reference
// the tuned kernel is checked against.
void SynthDct32Ref(const std::int32_t* s, std::int32_t* a) { Dct32(s, a); }

void SynthWindowSumRef(const std::int32_t* history, int slot0, std::int16_t* pcm, int stride) {
  std::int64_t lo[16] = {}, hi[16] = {}, mid = 0;
  for (int h = 0; h < 8; ++h) {
    const std::int32_t* ae = history + kSynthSlotValues * ((slot0 + 2 * h) % kSynthSlots);
    const std::int32_t* ao = history + kSynthSlotValues * ((slot0 + 2 * h + 1) % kSynthSlots);
    for (int j = 0; j < 16; ++j)
      lo[j] += static_cast<std::int64_t>(kPaired.even_lo[h][j]) * ae[16 + j] +
               static_cast<std::int64_t>(kPaired.odd_lo[h][j]) * ao[16 - j];
    for (int j = 1; j < 16; ++j)
      hi[j] += static_cast<std::int64_t>(kPaired.even_hi[h][j]) * ae[16 + j] +
               static_cast<std::int64_t>(kPaired.odd_hi[h][j]) * ao[16 - j];
    mid += static_cast<std::int64_t>(kPaired.odd_mid[h]) * ao[0];
  }
  // Q41 sums to the 16-bit step (2^-15 of full scale), rounded and saturated.
  for (int j = 0; j < 16; ++j) pcm[stride * j] = SatS16(RoundShr(lo[j], 26));
  pcm[stride * 16] = SatS16(RoundShr(mid, 26));
  for (int j = 1; j < 16; ++j) pcm[stride * (32 - j)] = SatS16(RoundShr(hi[j], 26));
}

namespace {
// Subband samples are clamped to +-(2^29 - 1) in Q26 before the transform.
inline void ClampSubbands(const std::int32_t* s, std::int32_t* clamped) {
  constexpr std::int32_t kClamp = (1 << 29) - 1;
  for (int k = 0; k < 32; ++k) clamped[k] = s[k] > kClamp ? kClamp : s[k] < -kClamp ? -kClamp : s[k];
}
}  // namespace

void SynthSlotKernelRef(const std::int32_t* s, std::int16_t* pcm, int stride, std::int32_t* history,
                        std::int32_t* offset) {
  const int slot0 = (*offset + kSynthSlots - 1) % kSynthSlots;
  *offset = slot0;
  std::int32_t clamped[32];
  ClampSubbands(s, clamped);
  SynthDct32Ref(clamped, history + kSynthSlotValues * slot0);
  SynthWindowSumRef(history, slot0, pcm, stride);
}

// The tuned windowed sum: the same sums in SSE2 single-precision lanes, four
// outputs per register.  The window integers (below 2^17) are exact in float;
// they are stored times 2^-26 (an exact power-of-two scaling), so the sums come
// out in 16-bit PCM steps directly.  Each history value is rounded to float
// once per visit, and the 16 products and their sums round too: about 48
// roundings of 2^-24 relative, so the error is at most 2^-18.4 of the sum of
// |D| x |A| over the 16 terms.  With sum |D| <= 3.03 per output that is at
// most 2^-26.8 x max|A| steps (A in Q25): under 0.6 of a step when the history
// stays below 2^26 (A of subband signals up to twice full scale), so the result
// is then within one step of the exact integer sum of SynthWindowSumRef.  The
// conversion to int32 rounds to nearest (ties to even, where the plain form
// rounds half up) and the pack saturates to -32768..32767; the sums stay below
// 2^23 in magnitude for any history, so the conversion never overflows.
namespace {

// Coefficients times 2^-26, grouped per slot pair (h) and block of four
// outputs (jb): even_lo, odd_lo, even_hi, odd_hi for outputs 4jb..4jb+3.
struct alignas(16) FloatWindow {
  float w[8][4][4][4];
};
constexpr FloatWindow MakeFloatWindow() {
  FloatWindow f{};
  constexpr double kScale = 1.0 / 67108864.0;
  for (int h = 0; h < 8; ++h)
    for (int jb = 0; jb < 4; ++jb)
      for (int l = 0; l < 4; ++l) {
        const int j = 4 * jb + l;
        f.w[h][jb][0][l] = static_cast<float>(kPaired.even_lo[h][j] * kScale);
        f.w[h][jb][1][l] = static_cast<float>(kPaired.odd_lo[h][j] * kScale);
        f.w[h][jb][2][l] = static_cast<float>(kPaired.even_hi[h][j] * kScale);
        f.w[h][jb][3][l] = static_cast<float>(kPaired.odd_hi[h][j] * kScale);
      }
  return f;
}
alignas(16) inline constexpr FloatWindow kFloatWindow = MakeFloatWindow();

}  // namespace

void SynthWindowSum(const std::int32_t* history, int slot0, std::int16_t* pcm, int stride) {
  std::int64_t mid = 0;
  __m128 lo[4], hi[4];
  for (int jb = 0; jb < 4; ++jb) lo[jb] = hi[jb] = _mm_setzero_ps();
  for (int h = 0; h < 8; ++h) {
    const std::int32_t* ae = history + kSynthSlotValues * ((slot0 + 2 * h) & (kSynthSlots - 1));
    const std::int32_t* ao = history + kSynthSlotValues * ((slot0 + 2 * h + 1) & (kSynthSlots - 1));
    mid += static_cast<std::int64_t>(kPaired.odd_mid[h]) * ao[0];
    for (int jb = 0; jb < 4; ++jb) {
      const float* w = &kFloatWindow.w[h][jb][0][0];
      const __m128 e = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(ae + 16 + 4 * jb)));
      // ao[16 - j] for j = 4jb..4jb+3, reversed into output order.
      const __m128 o = _mm_cvtepi32_ps(
          _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(ao + 13 - 4 * jb)), 0x1B));
      lo[jb] = _mm_add_ps(lo[jb], _mm_add_ps(_mm_mul_ps(e, _mm_load_ps(w)), _mm_mul_ps(o, _mm_load_ps(w + 4))));
      hi[jb] = _mm_add_ps(hi[jb], _mm_add_ps(_mm_mul_ps(e, _mm_load_ps(w + 8)), _mm_mul_ps(o, _mm_load_ps(w + 12))));
    }
  }
  // out[0..15]: outputs 0..15; out[16 + j]: output 32 - j (out[16] unused).
  alignas(16) std::int16_t out[32];
  __m128i* dst = reinterpret_cast<__m128i*>(out);
  _mm_store_si128(dst + 0, _mm_packs_epi32(_mm_cvtps_epi32(lo[0]), _mm_cvtps_epi32(lo[1])));
  _mm_store_si128(dst + 1, _mm_packs_epi32(_mm_cvtps_epi32(lo[2]), _mm_cvtps_epi32(lo[3])));
  _mm_store_si128(dst + 2, _mm_packs_epi32(_mm_cvtps_epi32(hi[0]), _mm_cvtps_epi32(hi[1])));
  _mm_store_si128(dst + 3, _mm_packs_epi32(_mm_cvtps_epi32(hi[2]), _mm_cvtps_epi32(hi[3])));
  if (stride == 1) {
    for (int j = 0; j < 16; ++j) pcm[j] = out[j];
    for (int j = 1; j < 16; ++j) pcm[32 - j] = out[16 + j];
  } else {
    for (int j = 0; j < 16; ++j) pcm[2 * j] = out[j];
    for (int j = 1; j < 16; ++j) pcm[2 * (32 - j)] = out[16 + j];
  }
  pcm[stride * 16] = SatS16(RoundShr(mid, 26));
}

// The tuned transform: the same even/odd split as Dct32, four lanes wide in
// SSE2 single precision; it clamps its inputs itself.  The even half is
// two 8 x 8 products, A[4r] on u2 and A[4r+2] on d2; the odd half goes through
// a 16-point DCT-II (see below) made of the same two products.  Each product
// adds a column times a broadcast input to two four-row accumulators.  Each
// value rounds to float (2^-24 relative) at every stage, and the alternating
// recursion of the odd half chains up to 15 subtractions, so the error of A is
// a few times 2^-20 of sum |s| in Q25 steps: for decoded signals (sum |s| below
// 2^31) some hundreds of Q25 steps, a fraction of a PCM step below 2^-1.5.
// Each A is rounded to nearest int32, clamped to +-(2^31 - 128) (the largest
// float below 2^31) where the plain form saturates at 2^31 - 1.
namespace {
struct alignas(16) Dct32FloatTables {
  float even[8][8];     // [k][r]: cos(r (2k+1) pi/16) / 2 (Q26 -> Q25)
  float odd[8][8];      // [k][r]: cos((2r+1)(2k+1) pi/32) / 2
  float twice_cos[16];  // 2 cos((2k+1) pi/64)
};
constexpr Dct32FloatTables MakeDct32Float() {
  Dct32FloatTables t{};
  for (int k = 0; k < 16; ++k) t.twice_cos[k] = static_cast<float>(2.0 * ConstCos(kPi / 64.0 * (2 * k + 1)));
  for (int r = 0; r < 8; ++r)
    for (int k = 0; k < 8; ++k) {
      t.even[k][r] = static_cast<float>(0.5 * ConstCos(kPi / 16.0 * r * (2 * k + 1)));
      t.odd[k][r] = static_cast<float>(0.5 * ConstCos(kPi / 32.0 * (2 * r + 1) * (2 * k + 1)));
    }
  return t;
}
alignas(16) inline constexpr Dct32FloatTables kDct32Float = MakeDct32Float();

inline __m128 ReversePs(__m128 v) { return _mm_shuffle_ps(v, v, 0x1B); }

// y = M x for an 8 x 8 matrix stored by columns ([k][r]) and x in two halves.
inline void Product8(const float (*m)[8], __m128 x_lo, __m128 x_hi, __m128& y_lo, __m128& y_hi) {
  __m128 b = _mm_shuffle_ps(x_lo, x_lo, 0x00);
  y_lo = _mm_mul_ps(b, _mm_load_ps(m[0]));
  y_hi = _mm_mul_ps(b, _mm_load_ps(m[0] + 4));
#define AKL_MP3_COLUMN(k, x, sel)                                   \
  b = _mm_shuffle_ps(x, x, sel);                                    \
  y_lo = _mm_add_ps(y_lo, _mm_mul_ps(b, _mm_load_ps(m[k])));        \
  y_hi = _mm_add_ps(y_hi, _mm_mul_ps(b, _mm_load_ps(m[k] + 4)));
  AKL_MP3_COLUMN(1, x_lo, 0x55)
  AKL_MP3_COLUMN(2, x_lo, 0xAA)
  AKL_MP3_COLUMN(3, x_lo, 0xFF)
  AKL_MP3_COLUMN(4, x_hi, 0x00)
  AKL_MP3_COLUMN(5, x_hi, 0x55)
  AKL_MP3_COLUMN(6, x_hi, 0xAA)
  AKL_MP3_COLUMN(7, x_hi, 0xFF)
#undef AKL_MP3_COLUMN
}

inline __m128i RoundSatFloat(__m128 v) {
  v = _mm_max_ps(_mm_min_ps(v, _mm_set1_ps(2147483520.0f)), _mm_set1_ps(-2147483520.0f));
  return _mm_cvtps_epi32(v);
}
// Four vectors (A[4r], A[4r+1], A[4r+2], A[4r+3] for r = r0..r0+3), one per
// residue, transposed into A[4r0..4r0+15] and stored as int32.
inline void StoreRows(__m128 c0, __m128 c1, __m128 c2, __m128 c3, std::int32_t* a) {
  _MM_TRANSPOSE4_PS(c0, c1, c2, c3);
  __m128i* out = reinterpret_cast<__m128i*>(a);
  _mm_storeu_si128(out, RoundSatFloat(c0));
  _mm_storeu_si128(out + 1, RoundSatFloat(c1));
  _mm_storeu_si128(out + 2, RoundSatFloat(c2));
  _mm_storeu_si128(out + 3, RoundSatFloat(c3));
}
}  // namespace

void SynthDct32(const std::int32_t* s, std::int32_t* a) {
  // Inputs to float, clamped to +-2^29 (the clamp of SynthSlotKernelRef, up to
  // the float rounding of 2^29 - 1).
  const __m128i* in = reinterpret_cast<const __m128i*>(s);
  const __m128 lim = _mm_set1_ps(536870912.0f), neg_lim = _mm_set1_ps(-536870912.0f);
  const auto load = [&](int q) {
    return _mm_max_ps(_mm_min_ps(_mm_cvtepi32_ps(_mm_loadu_si128(in + q)), lim), neg_lim);
  };
  const __m128 s0 = load(0), s1 = load(1), s2 = load(2), s3 = load(3);
  // s[31 - k] for k = 0..15, four at a time.
  const __m128 r0 = ReversePs(load(7)), r1 = ReversePs(load(6)), r2 = ReversePs(load(5)), r3 = ReversePs(load(4));
  const __m128 u0 = _mm_add_ps(s0, r0), u1 = _mm_add_ps(s1, r1), u2 = _mm_add_ps(s2, r2), u3 = _mm_add_ps(s3, r3);
  const __m128 u3r = ReversePs(u3), u2r = ReversePs(u2);
  const __m128 su_lo = _mm_add_ps(u0, u3r), su_hi = _mm_add_ps(u1, u2r);
  const __m128 du_lo = _mm_sub_ps(u0, u3r), du_hi = _mm_sub_ps(u1, u2r);
  // Odd outputs: with t_k = (2k+1) pi/64, cos((2p+1) t) = 2 cos(t) cos(2p t)
  // - cos((2p-1) t), so A[2p+1] = B[p] - A[2p-1] and A[1] = B[0]/2, where B
  // is the 16-point DCT-II of e[k] = 2 cos(t_k) d[k].  B splits like the even
  // half: B[2r] and B[2r+1] are the same two 8 x 8 products on e[k] + e[15-k]
  // and e[k] - e[15-k].
  const float* tc = kDct32Float.twice_cos;
  const __m128 e0 = _mm_mul_ps(_mm_sub_ps(s0, r0), _mm_load_ps(tc));
  const __m128 e1 = _mm_mul_ps(_mm_sub_ps(s1, r1), _mm_load_ps(tc + 4));
  const __m128 e2r = ReversePs(_mm_mul_ps(_mm_sub_ps(s2, r2), _mm_load_ps(tc + 8)));
  const __m128 e3r = ReversePs(_mm_mul_ps(_mm_sub_ps(s3, r3), _mm_load_ps(tc + 12)));
  __m128 be_lo, be_hi, bo_lo, bo_hi;  // B[2r] / 2 and B[2r+1] / 2
  Product8(kDct32Float.even, _mm_add_ps(e0, e3r), _mm_add_ps(e1, e2r), be_lo, be_hi);
  Product8(kDct32Float.odd, _mm_sub_ps(e0, e3r), _mm_sub_ps(e1, e2r), bo_lo, bo_hi);
  alignas(16) float be[8], bo[8], ao_e[8], ao_o[8];  // A[4q+1] / 2 in ao_e, A[4q+3] / 2 in ao_o
  _mm_store_ps(be, be_lo);
  _mm_store_ps(be + 4, be_hi);
  _mm_store_ps(bo, bo_lo);
  _mm_store_ps(bo + 4, bo_hi);
  float prev = 0.5f * be[0];
  ao_e[0] = prev;
  prev = bo[0] - prev;
  ao_o[0] = prev;
  for (int q = 1; q < 8; ++q) {
    prev = be[q] - prev;
    ao_e[q] = prev;
    prev = bo[q] - prev;
    ao_o[q] = prev;
  }
  __m128 ev_lo, ev_hi, od_lo, od_hi;  // A[4r], A[4r+2]
  Product8(kDct32Float.even, su_lo, su_hi, ev_lo, ev_hi);
  Product8(kDct32Float.odd, du_lo, du_hi, od_lo, od_hi);
  StoreRows(ev_lo, _mm_load_ps(ao_e), od_lo, _mm_load_ps(ao_o), a);
  StoreRows(ev_hi, _mm_load_ps(ao_e + 4), od_hi, _mm_load_ps(ao_o + 4), a + 16);
}

void SynthSlotKernel(const std::int32_t* s, std::int16_t* pcm, int stride, std::int32_t* history,
                     std::int32_t* offset) {
  const int slot0 = (*offset + kSynthSlots - 1) % kSynthSlots;
  *offset = slot0;
  SynthDct32(s, history + kSynthSlotValues * slot0);  // clamps as it converts
  Kernels().synth_window_sum(history, slot0, pcm, stride);
}

namespace {

struct FloatTables {
  float dct[32][32];
  float window[32][16];
};
constexpr FloatTables MakeFloatTables() {
  FloatTables t{};
  for (int m = 0; m < 32; ++m)
    for (int k = 0; k < 32; ++k) t.dct[m][k] = static_cast<float>(ConstCos(kPi / 64.0 * m * (2 * k + 1)));
  for (int j = 0; j < 32; ++j)
    for (int i = 0; i < 16; ++i) t.window[j][i] = static_cast<float>(kWindow.coef[j][i] / 65536.0);
  return t;
}
inline constexpr FloatTables kFloat = MakeFloatTables();

}  // namespace

void SynthSlotFloat(const float* s, float* pcm, float* history, std::int32_t* offset) {
  const int slot0 = (*offset + kSynthSlots - 1) % kSynthSlots;
  *offset = slot0;
  float* a = history + kSynthSlotValues * slot0;
  for (int m = 0; m < 32; ++m) {
    float acc = 0.0f;
    for (int k = 0; k < 32; ++k) acc += s[k] * kFloat.dct[m][k];
    a[m] = acc;
  }
  const float* slots[16];
  for (int i = 0; i < 16; ++i) slots[i] = history + kSynthSlotValues * ((slot0 + i) % kSynthSlots);
  for (int j = 0; j < 32; ++j) {
    float acc = 0.0f;
    for (int i = 0; i < 16; ++i) acc += kFloat.window[j][i] * slots[i][kWindow.index[j][i]];
    pcm[j] = acc;
  }
}

Status aklsSynthPQMF_MP3_32s16s(const Akl32s* pSrcY, Akl16s* pDstPcm, Akl32s* pVBuffer, int* pVPosition,
                                int mode) {
  if (!pSrcY || !pDstPcm || !pVBuffer || !pVPosition) return kStsNullPtr;
  if ((mode != 1 && mode != 2) || static_cast<unsigned>(*pVPosition) >= 16u) return kStsBadArgErr;
  SynthSlotKernel(pSrcY, pDstPcm, mode, pVBuffer, pVPosition);
  return kStsOk;
}

// ---------------------------------------------------------------------------
// Floating-point synthesis context (tag 0x434D4167, filter-bank Free form).
// Layout at the 16-byte boundary: tag, ownedByLibrary, the ring's slot index,
// one reserved word, then the 16 x 32 history of one channel.  The constant
// tables are shared read-only data, so the context holds only state.

namespace {

struct PqmfSynthState {
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s offset;
  Akl32s reserved;
  float history[kSynthHistoryValues];
};
constexpr int kPqmfSynthStateSize = static_cast<int>(sizeof(PqmfSynthState) + kContextAlign);

void BuildPqmfSynth(void* raw, int owned) {
  PqmfSynthState* st = ContextAt<PqmfSynthState>(raw, kContextAlign);
  st->tag = kTagSynthesisPqmfMp3;
  st->ownedByLibrary = owned;
  st->offset = 0;
  st->reserved = 0;
  for (float& v : st->history) v = 0.0f;
}

// The state behind a caller's pointer, recognised by its tag and by fields
// only a built state holds (owner flag 0 or 1, ring index 0..15); else null.
// History values may be anything, so a pointer passed on into the history
// can meet the tag's bit pattern there, but not with a usable ring index.
PqmfSynthState* PqmfStateAt(void* raw) {
  PqmfSynthState* st = ContextAt<PqmfSynthState>(raw, kContextAlign);
  const bool built = st->tag == kTagSynthesisPqmfMp3 && static_cast<unsigned>(st->ownedByLibrary) <= 1u &&
                     static_cast<unsigned>(st->offset) < static_cast<unsigned>(kSynthSlots);
  return built ? st : nullptr;
}

}  // namespace

Status aklsSynthesisFilterGetSize_PQMF_MP3_32f(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = kPqmfSynthStateSize;
  return kStsOk;
}

Status aklsSynthesisFilterInit_PQMF_MP3_32f(AklsFilterState_PQMF_MP3_32f* pState) {
  if (!pState) return kStsNullPtr;
  BuildPqmfSynth(pState, 0);
  return kStsOk;
}

Status aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(AklsFilterState_PQMF_MP3_32f** ppState) {
  if (!ppState) return kStsNullPtr;
  return InitAllocWith(kPqmfSynthStateSize, ppState, [](AklsFilterState_PQMF_MP3_32f* raw) {
    BuildPqmfSynth(raw, 1);
    return kStsOk;
  });
}

Status aklsSynthesisFilterFree_PQMF_MP3_32f(AklsFilterState_PQMF_MP3_32f* pState) {
  if (pState && !PqmfStateAt(pState)) return kStsContextMismatch;
  return FreeKeepingTag<PqmfSynthState>(pState, kContextAlign, kTagSynthesisPqmfMp3);
}

Status aklsSynthesisFilter_PQMF_MP3_32f(const Akl32f* pSrc, Akl32f* pDst, AklsFilterState_PQMF_MP3_32f* pState,
                                        int numSlots) {
  if (!pSrc || !pDst || !pState) return kStsNullPtr;
  if (numSlots < 1) return kStsSizeErr;
  PqmfSynthState* st = PqmfStateAt(pState);
  if (!st) return kStsContextMismatch;
  for (int t = 0; t < numSlots; ++t) SynthSlotFloat(pSrc + 32 * t, pDst + 32 * t, st->history, &st->offset);
  return kStsOk;
}

}  // namespace akl::mp3
