// SBR predictor coefficients: second-order linear prediction of each QMF
// subband by the covariance method (high-frequency generation).
//
// Float members.  With x_n the subband's sample in time slot n (two history
// slots in front of the len slots), the covariance sums are
//   A = sum_{n=0}^{len-1} x_{n+1} conj(x_n)     B = sum_{n=1}^{len} x_{n+1} conj(x_n)
//   C = sum_{n=1}^{len} |x_n|^2                  D = sum_{n=0}^{len-1} |x_n|^2
//   E = sum_{n=0}^{len-1} x_{n+2} conj(x_n)
// each added up in single precision in slot order, and
//   det = D*C - r*|A|^2,  alpha1 = (B*A - E*C)/det,  alpha0 = -(B + alpha1*conj(A))/C.
// r = 1 - 2^-20 keeps det away from zero for a subband whose consecutive
// slots are proportional (DC = |A|^2 exactly).  The det test is det*det > 0,
// so a det whose square underflows counts as zero.  A coefficient of
// magnitude 4 or more marks an unstable or ill-determined predictor, and then
// both are cleared.  The real member divides; the complex member multiplies by
// 1/det and 1/C.
//
// The formulas are written once over a value type V: F4 (four subbands in an
// SSE2 register) or float (one subband).  Both evaluate the same operations
// in the same order, without fused multiply-adds (SSE2 has none), so the
// vector path and the scalar tail agree to the bit.
//
// Fixed-point members: see the notes above PredictOneLowPower.
#include "sbr/predict_coef.hpp"

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "core/exports.hpp"

namespace akl::sbr {

namespace {

// Value types ---------------------------------------------------------------

struct F4 {
  __m128 v;
};
inline F4 operator+(F4 a, F4 b) { return {_mm_add_ps(a.v, b.v)}; }
inline F4 operator-(F4 a, F4 b) { return {_mm_sub_ps(a.v, b.v)}; }
inline F4 operator*(F4 a, F4 b) { return {_mm_mul_ps(a.v, b.v)}; }
inline F4 operator/(F4 a, F4 b) { return {_mm_div_ps(a.v, b.v)}; }
inline F4 operator-(F4 a) { return {_mm_xor_ps(a.v, _mm_set1_ps(-0.0f))}; }

template <class V>
inline V Splat(float f);
template <>
inline F4 Splat<F4>(float f) {
  return {_mm_set1_ps(f)};
}
template <>
inline float Splat<float>(float f) {
  return f;
}

// Lane masks: all ones where the comparison holds.
inline __m128 Greater(F4 a, F4 b) { return _mm_cmpgt_ps(a.v, b.v); }
inline __m128 GreaterEq(F4 a, F4 b) { return _mm_cmpge_ps(a.v, b.v); }
inline __m128 Or(__m128 a, __m128 b) { return _mm_or_ps(a, b); }
inline F4 KeepIf(__m128 m, F4 a) { return {_mm_and_ps(m, a.v)}; }      // a where m, else +0
inline F4 ClearIf(__m128 m, F4 a) { return {_mm_andnot_ps(m, a.v)}; }  // +0 where m, else a
inline F4 Select(__m128 m, F4 a, F4 b) { return {_mm_or_ps(_mm_and_ps(m, a.v), _mm_andnot_ps(m, b.v))}; }

inline bool Greater(float a, float b) { return a > b; }
inline bool GreaterEq(float a, float b) { return a >= b; }
inline bool Or(bool a, bool b) { return a || b; }
inline float KeepIf(bool m, float a) { return m ? a : 0.0f; }
inline float ClearIf(bool m, float a) { return m ? 0.0f : a; }
inline float Select(bool m, float a, float b) { return m ? a : b; }

template <class V>
struct Cplx {
  V re, im;
};

// x1 * conj(x0)
template <class V>
inline Cplx<V> MulConj(Cplx<V> x1, Cplx<V> x0) {
  return {x1.re * x0.re + x1.im * x0.im, x1.im * x0.re - x1.re * x0.im};
}
template <class V>
inline V Energy(Cplx<V> x) {
  return x.re * x.re + x.im * x.im;
}

// Real member ------------------------------------------------------------------

// x(n) gives the samples of slot n for the subband(s) at hand.
template <class V, class X>
inline void RealPredictor(X x, int len, V& alpha0, V& alpha1) {
  const V zero = Splat<V>(0.0f);
  V a = zero, b = zero, c = zero, d = zero, e = zero;
  V x0 = x(0), x1 = x(1);
  for (int n = 0; n < len; ++n) {
    const V x2 = x(n + 2);
    a = a + x0 * x1;
    b = b + x1 * x2;
    c = c + x1 * x1;
    d = d + x0 * x0;
    e = e + x0 * x2;
    x0 = x1;
    x1 = x2;
  }
  const V det = d * c - Splat<V>(kDetR) * (a * a);
  // Subbands that fail a test divide by 1 instead (and discard the result),
  // so no division by zero is ever made.
  const V one = Splat<V>(1.0f);
  const auto det_ok = Greater(det * det, zero);
  const V a1 = KeepIf(det_ok, (b * a - e * c) / Select(det_ok, det, one));
  const auto c_ok = Greater(c, zero);
  const V a0 = KeepIf(c_ok, -(b + a1 * a) / Select(c_ok, c, one));
  const V sixteen = Splat<V>(16.0f);
  const auto too_big = Or(GreaterEq(a1 * a1, sixteen), GreaterEq(a0 * a0, sixteen));
  alpha0 = ClearIf(too_big, a0);
  alpha1 = ClearIf(too_big, a1);
}

// Complex members ---------------------------------------------------------------

template <class V, class X>
inline void ComplexPredictor(X x, int len, Cplx<V>& alpha0, Cplx<V>& alpha1) {
  const V zero = Splat<V>(0.0f);
  Cplx<V> a{zero, zero}, b{zero, zero}, e{zero, zero};
  V c = zero, d = zero;
  Cplx<V> x0 = x(0), x1 = x(1);
  for (int n = 0; n < len; ++n) {
    const Cplx<V> x2 = x(n + 2);
    const Cplx<V> ta = MulConj(x1, x0), tb = MulConj(x2, x1), te = MulConj(x2, x0);
    a = {a.re + ta.re, a.im + ta.im};
    b = {b.re + tb.re, b.im + tb.im};
    e = {e.re + te.re, e.im + te.im};
    c = c + Energy(x1);
    d = d + Energy(x0);
    x0 = x1;
    x1 = x2;
  }
  const V det = d * c - Splat<V>(kDetR) * Energy(a);
  const V one = Splat<V>(1.0f);
  const auto det_ok = Greater(det * det, zero);
  const V inv_det = one / Select(det_ok, det, one);  // no division by zero, as in the real member
  // alpha1 = (B*A - E*C) / det
  Cplx<V> a1{KeepIf(det_ok, (b.re * a.re - b.im * a.im - e.re * c) * inv_det),
             KeepIf(det_ok, (b.re * a.im + b.im * a.re - e.im * c) * inv_det)};
  // alpha0 = -(B + alpha1*conj(A)) / C
  const auto c_ok = Greater(c, zero);
  const V inv_c = one / Select(c_ok, c, one);
  const Cplx<V> a1_conj_a = MulConj(a1, a);
  Cplx<V> a0{KeepIf(c_ok, -(b.re + a1_conj_a.re) * inv_c), KeepIf(c_ok, -(b.im + a1_conj_a.im) * inv_c)};
  const V sixteen = Splat<V>(16.0f);
  const auto too_big = Or(GreaterEq(Energy(a1), sixteen), GreaterEq(Energy(a0), sixteen));
  alpha0 = {ClearIf(too_big, a0.re), ClearIf(too_big, a0.im)};
  alpha1 = {ClearIf(too_big, a1.re), ClearIf(too_big, a1.im)};
}

// Four interleaved complex values at p as split real and imaginary lanes.
inline Cplx<F4> LoadInterleaved4(const Akl32fc* p) {
  const float* f = reinterpret_cast<const float*>(p);
  const __m128 lo = _mm_loadu_ps(f), hi = _mm_loadu_ps(f + 4);
  return {{_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0))}, {_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1))}};
}
inline void StoreInterleaved4(Akl32fc* p, Cplx<F4> v) {
  float* f = reinterpret_cast<float*>(p);
  _mm_storeu_ps(f, _mm_unpacklo_ps(v.re.v, v.im.v));
  _mm_storeu_ps(f + 4, _mm_unpackhi_ps(v.re.v, v.im.v));
}

}  // namespace

void PredictRealOneRef(const Akl32f* const* src, int k, int len, Akl32f* alpha0, Akl32f* alpha1) {
  RealPredictor<float>([&](int n) { return src[n][k]; }, len, *alpha0, *alpha1);
}

void PredictReal(const Akl32f* const* src, Akl32f* alpha0, Akl32f* alpha1, int num_bands, int len) {
  int k = 0;
  for (; k + 4 <= num_bands; k += 4) {
    F4 a0, a1;
    RealPredictor<F4>([&](int n) { return F4{_mm_loadu_ps(src[n] + k)}; }, len, a0, a1);
    _mm_storeu_ps(alpha0 + k, a0.v);
    _mm_storeu_ps(alpha1 + k, a1.v);
  }
  for (; k < num_bands; ++k) PredictRealOneRef(src, k, len, alpha0 + k, alpha1 + k);
}

void PredictComplexSplit(const Akl32f* const* re, const Akl32f* const* im, Akl32f* a0_re, Akl32f* a0_im,
                         Akl32f* a1_re, Akl32f* a1_im, int num_bands, int len) {
  int k = 0;
  for (; k + 4 <= num_bands; k += 4) {
    Cplx<F4> a0, a1;
    ComplexPredictor<F4>(
        [&](int n) { return Cplx<F4>{{_mm_loadu_ps(re[n] + k)}, {_mm_loadu_ps(im[n] + k)}}; }, len, a0, a1);
    _mm_storeu_ps(a0_re + k, a0.re.v);
    _mm_storeu_ps(a0_im + k, a0.im.v);
    _mm_storeu_ps(a1_re + k, a1.re.v);
    _mm_storeu_ps(a1_im + k, a1.im.v);
  }
  for (; k < num_bands; ++k) {
    Cplx<float> a0, a1;
    ComplexPredictor<float>([&](int n) { return Cplx<float>{re[n][k], im[n][k]}; }, len, a0, a1);
    a0_re[k] = a0.re;
    a0_im[k] = a0.im;
    a1_re[k] = a1.re;
    a1_im[k] = a1.im;
  }
}

void PredictComplex(const Akl32fc* const* src, Akl32fc* alpha0, Akl32fc* alpha1, int num_bands, int len) {
  int k = 0;
  for (; k + 4 <= num_bands; k += 4) {
    Cplx<F4> a0, a1;
    ComplexPredictor<F4>([&](int n) { return LoadInterleaved4(src[n] + k); }, len, a0, a1);
    StoreInterleaved4(alpha0 + k, a0);
    StoreInterleaved4(alpha1 + k, a1);
  }
  for (; k < num_bands; ++k) {
    Cplx<float> a0, a1;
    ComplexPredictor<float>([&](int n) { return Cplx<float>{src[n][k].re, src[n][k].im}; }, len, a0, a1);
    alpha0[k] = {a0.re, a0.im};
    alpha1[k] = {a1.re, a1.im};
  }
}

// Fixed point ----------------------------------------------------------------------
//
// The same method in integers, for samples of any Q format and the whole
// 32-bit range:
// 1. The sums are exact: every product of two 32-bit samples fits 63 bits,
//    and they are added in 128 bits.
// 2. The five sums are scaled by one common power of two, rounding, until
//    the largest magnitude is at most 2^30.  alpha1 and alpha0 are ratios of
//    terms of equal degree in the sums, so a common scale leaves them alone;
//    what is lost is the sums' bits below 2^-30 of the largest, far below the
//    float members' 2^-24 per addition.
// 3. det is kept exactly, scaled by 2^20: 2^20*det = 2^20*(D*C - |A|^2) + |A|^2,
//    which is D*C - r*|A|^2 with r = 1 - 2^-20 and no rounding at all.
//    Products of two scaled sums stay below 2^61, so numerators fit 64 bits
//    and numerator * 2^49 fits 128.
// 4. alpha1 = 2^49*(B*A - E*C) / (2^20*det) in Q29, rounded to nearest (ties
//    away from zero); alpha1 = 0 when det = 0 (the float test det*det > 0
//    without the underflow, which integers do not have).  It is checked
//    against |alpha1| >= 4 before alpha0 is formed from it, which also keeps
//    the products of step 5 small; either way both coefficients are cleared.
// 5. alpha0 = -(2^29*B + alpha1*conj(A)) / C in Q29, rounded; 0 when C = 0.
// |alpha| < 4 is |Q29| < 2^31, so a coefficient that passes fits Akl32s.

namespace {

using I128 = __int128;

constexpr int kSumBits = 30;
constexpr int kAlphaFrac = 29;
constexpr std::int64_t kAlphaLimit = std::int64_t{1} << 31;  // 4.0 in Q29

inline I128 Abs(I128 v) { return v < 0 ? -v : v; }

inline int BitLength(I128 v) {  // v >= 0
  const auto hi = static_cast<std::uint64_t>(v >> 64), lo = static_cast<std::uint64_t>(v);
  if (hi != 0) return 128 - __builtin_clzll(hi);
  return lo != 0 ? 64 - __builtin_clzll(lo) : 0;
}

// Shift that brings the largest magnitude of `sums` to at most 2^kSumBits.
template <std::size_t N>
inline int CommonShift(const I128 (&sums)[N]) {
  I128 m = 0;
  for (I128 s : sums) m = Abs(s) > m ? Abs(s) : m;
  const int bits = BitLength(m);
  return bits > kSumBits ? bits - kSumBits : 0;
}

// v / 2^s rounded to nearest, half up.
inline std::int64_t ScaleDown(I128 v, int s) {
  if (s == 0) return static_cast<std::int64_t>(v);
  return static_cast<std::int64_t>((v + (I128{1} << (s - 1))) >> s);
}

// num / den rounded to nearest, halves away from zero; den != 0.
inline I128 RoundDiv(I128 num, I128 den) {
  if (den < 0) {
    num = -num;
    den = -den;
  }
  const I128 half = den / 2;
  return num >= 0 ? (num + half) / den : -((-num + half) / den);
}

inline I128 Mul(std::int64_t a, std::int64_t b) { return I128{a} * b; }

// v * 2^s for signed v (a multiplication: no shift of a negative value).
inline I128 Scale(I128 v, int s) { return v * (I128{1} << s); }

// 2^20 * (D*C - r*|A|^2), exactly.
inline I128 ScaledDet(std::int64_t d, std::int64_t c, std::int64_t abs_a2) {
  return Scale(d * c - abs_a2, 20) + abs_a2;
}

}  // namespace

void PredictOneLowPower(const Akl32s* const* src, int k, int len, Akl32s* alpha0, Akl32s* alpha1) {
  I128 sum[5] = {0, 0, 0, 0, 0};  // A, B, C, D, E
  std::int64_t x0 = src[0][k], x1 = src[1][k];
  for (int n = 0; n < len; ++n) {
    const std::int64_t x2 = src[n + 2][k];
    sum[0] += x0 * x1;
    sum[1] += x1 * x2;
    sum[2] += x1 * x1;
    sum[3] += x0 * x0;
    sum[4] += x0 * x2;
    x0 = x1;
    x1 = x2;
  }
  const int shift = CommonShift(sum);
  const std::int64_t a = ScaleDown(sum[0], shift), b = ScaleDown(sum[1], shift), c = ScaleDown(sum[2], shift),
                     d = ScaleDown(sum[3], shift), e = ScaleDown(sum[4], shift);
  *alpha0 = 0;
  *alpha1 = 0;
  const I128 det = ScaledDet(d, c, a * a);
  I128 a1 = 0;
  if (det != 0) {
    a1 = RoundDiv(Scale(b * a - e * c, kAlphaFrac + 20), det);
    if (Abs(a1) >= kAlphaLimit) return;
  }
  I128 a0 = 0;
  if (c > 0) {
    a0 = RoundDiv(-(Scale(b, kAlphaFrac) + a1 * a), c);
    if (Abs(a0) >= kAlphaLimit) return;
  }
  *alpha0 = static_cast<Akl32s>(a0);
  *alpha1 = static_cast<Akl32s>(a1);
}

void PredictOneHighQuality(const Akl32sc* const* src, int k, int len, Akl32sc* alpha0, Akl32sc* alpha1) {
  // A, B, E as (re, im), then C, D.
  I128 sum[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  std::int64_t r0 = src[0][k].re, i0 = src[0][k].im, r1 = src[1][k].re, i1 = src[1][k].im;
  for (int n = 0; n < len; ++n) {
    const std::int64_t r2 = src[n + 2][k].re, i2 = src[n + 2][k].im;
    sum[0] += Mul(r1, r0) + i1 * i0;  // A = x1 conj(x0)
    sum[1] += Mul(i1, r0) - r1 * i0;
    sum[2] += Mul(r2, r1) + i2 * i1;  // B = x2 conj(x1)
    sum[3] += Mul(i2, r1) - r2 * i1;
    sum[4] += Mul(r2, r0) + i2 * i0;  // E = x2 conj(x0)
    sum[5] += Mul(i2, r0) - r2 * i0;
    sum[6] += Mul(r1, r1) + i1 * i1;  // C
    sum[7] += Mul(r0, r0) + i0 * i0;  // D
    r0 = r1;
    i0 = i1;
    r1 = r2;
    i1 = i2;
  }
  const int shift = CommonShift(sum);
  std::int64_t s[8];
  for (int i = 0; i < 8; ++i) s[i] = ScaleDown(sum[i], shift);
  const std::int64_t ar = s[0], ai = s[1], br = s[2], bi = s[3], er = s[4], ei = s[5], c = s[6], d = s[7];
  *alpha0 = {0, 0};
  *alpha1 = {0, 0};
  const I128 det = ScaledDet(d, c, ar * ar + ai * ai);
  I128 a1r = 0, a1i = 0;
  if (det != 0) {
    a1r = RoundDiv(Scale(br * ar - bi * ai - er * c, kAlphaFrac + 20), det);
    a1i = RoundDiv(Scale(br * ai + bi * ar - ei * c, kAlphaFrac + 20), det);
    if (Abs(a1r) >= kAlphaLimit || Abs(a1i) >= kAlphaLimit) return;
    if (a1r * a1r + a1i * a1i >= Mul(kAlphaLimit, kAlphaLimit)) return;
  }
  I128 a0r = 0, a0i = 0;
  if (c > 0) {
    // alpha1 * conj(A)
    const I128 pr = a1r * ar + a1i * ai, pi = a1i * ar - a1r * ai;
    a0r = RoundDiv(-(Scale(br, kAlphaFrac) + pr), c);
    a0i = RoundDiv(-(Scale(bi, kAlphaFrac) + pi), c);
    if (Abs(a0r) >= kAlphaLimit || Abs(a0i) >= kAlphaLimit) return;
    if (a0r * a0r + a0i * a0i >= Mul(kAlphaLimit, kAlphaLimit)) return;
  }
  *alpha0 = {static_cast<Akl32s>(a0r), static_cast<Akl32s>(a0i)};
  *alpha1 = {static_cast<Akl32s>(a1r), static_cast<Akl32s>(a1i)};
}

// Exports -------------------------------------------------------------------------

Status aklsPredictCoef_SBR_R_32f_D2L(const Akl32f* const* ppSrc, Akl32f* pAlpha0, Akl32f* pAlpha1, int numBands,
                                     int len) {
  if (!ppSrc || !pAlpha0 || !pAlpha1) return kStsNullPtr;
  if (len < 1 || numBands < 1) return kStsOk;
  PredictReal(ppSrc, pAlpha0, pAlpha1, numBands, len);
  return kStsOk;
}

Status aklsPredictCoef_SBR_C_32f_D2L(const Akl32f* const* ppSrcRe, const Akl32f* const* ppSrcIm, Akl32f* pAlpha0Re,
                                     Akl32f* pAlpha0Im, Akl32f* pAlpha1Re, Akl32f* pAlpha1Im, int numBands,
                                     int len) {
  if (!ppSrcRe || !ppSrcIm || !pAlpha0Re || !pAlpha0Im || !pAlpha1Re || !pAlpha1Im) return kStsNullPtr;
  if (len < 1 || numBands < 1) return kStsOk;
  PredictComplexSplit(ppSrcRe, ppSrcIm, pAlpha0Re, pAlpha0Im, pAlpha1Re, pAlpha1Im, numBands, len);
  return kStsOk;
}

Status aklsPredictCoef_SBR_C_32fc_D2L(const Akl32fc* const* ppSrc, Akl32fc* pAlpha0, Akl32fc* pAlpha1, int numBands,
                                      int len) {
  if (!ppSrc || !pAlpha0 || !pAlpha1) return kStsNullPtr;
  if (len < 1 || numBands < 1) return kStsOk;
  PredictComplex(ppSrc, pAlpha0, pAlpha1, numBands, len);
  return kStsOk;
}

Status aklsPredictOneCoef_SBRHQ_32sc_D2L(const Akl32sc* const* ppSrc, Akl32sc* pAlpha0, Akl32sc* pAlpha1, int k,
                                         int len) {
  if (!ppSrc || !pAlpha0 || !pAlpha1) return kStsNullPtr;
  if (k < 0) return kStsBadArgErr;
  if (len < 1) return kStsOk;
  PredictOneHighQuality(ppSrc, k, len, pAlpha0, pAlpha1);
  return kStsOk;
}

Status aklsPredictOneCoef_SBRLP_32s_D2L(const Akl32s* const* ppSrc, Akl32s* pAlpha0, Akl32s* pAlpha1, int k,
                                        int len) {
  if (!ppSrc || !pAlpha0 || !pAlpha1) return kStsNullPtr;
  if (k < 0) return kStsBadArgErr;
  if (len < 1) return kStsOk;
  PredictOneLowPower(ppSrc, k, len, pAlpha0, pAlpha1);
  return kStsOk;
}

}  // namespace akl::sbr
