// The internal complex FFT of power-of-two length: a float kernel
// (FFTSpec_C_32fc, tag 4) and a 16-bit kernel with a scale factor
// (FFTSpec_C_16sc, tag 1).  No exports of its own; the MDCT builds on it.
//
// Forward transform: Z[k] = sum_n z[n] e^(-2 pi i n k / M), M = 2^order, times
// the normalisation chosen at init (flag 8 none, 4 1/sqrt(M) both ways, 1 1/M
// forward, 2 1/M inverse).
//
// Float kernel: decimation in time over binary bit-reversed input on split
// real/imaginary arrays, four complex values per SSE2 register pair.  The
// first pass reads the input (interleaved complex, or the MDCT's
// pre-twiddled values) and stores its results at their bit-reversed places:
// radix 8 (an 8-point DFT per lane, two transposes) for orders 5..10 and odd
// orders above, radix 4 for order 4 and even orders above 10.  Orders 4..10
// then run as fixed-order code with constant sizes: radix-8 stages where
// three levels remain to fill, radix 4 otherwise (64 points: 8x8, 128:
// 8x4x4, 256: 8x8x4, 512: 8x8x8, 1024: 8x8x4x4), the last stage writing
// the interleaved result and the normalisation, so the public transform makes
// two to four passes over L1-resident scratch on the stack.  Orders 0..3 are
// straight-line.  Orders above 10 use radix-4 stages with twiddles planned
// into the context and split scratch in the work buffer.  Radix-4 stage
// twiddles depend only on the block size L, so every order's stages are a
// prefix of one of two sequences (L = 4, 16, 64, ... or 8, 32, 128, ...);
// radix-8 stage twiddles are one constant table for L = 4 .. 128.  The
// plain radix-2 FftRef is the reference the tests compare with.
#pragma once

#include <emmintrin.h>

#include <cstdint>

#include "aklac.h"
#include "core/context.hpp"

namespace akl::transform {

inline constexpr ContextTag kTagFft32fc = 4;
inline constexpr ContextTag kTagFft16sc = 1;
inline constexpr int kFftMaxOrder32fc = 27;
inline constexpr int kFftMaxOrder16sc = 30;
// Integer 16-bit kernel below this order (hint 0/1); the float path above.
inline constexpr int kFftIntegerOrderLimit = 9;

struct FFTSpec_C_32fc {
  ContextTag tag;          // 4
  Akl32s order;
  Akl32s fwdDivide;        // 0/1
  Akl32s invDivide;        // 0/1
  Akl32f normFactor;       // 1/M or 1/sqrt(M); 1 with flag 8
  Akl32s hint;             // stored as passed
  Akl32s workSize;         // bytes of split scratch (orders above 10), else 0
  Akl32s reserved;         // 0
  const Akl32f* twiddles;  // radix-4 stage twiddles, stage after stage (fft.cpp, FillStages)
  const std::uint16_t* bitRev;  // reversal of 10-bit indices (orders <= 10, shifted down); null above
};

struct FFTSpec_C_16sc {
  ContextTag tag;          // 1
  Akl32s order;
  Akl32s fwdShift;
  Akl32s invShift;
  Akl32s halfSqrt2;        // 1: one extra 1/sqrt(2) step (flag 4, odd order)
  Akl32s hint;
  Akl32s workSize;         // bytes, including 64 of alignment slack
  Akl32s floatKernel;      // 1: convert and run the embedded float context
  Akl32s ownedByLibrary;
  Akl32s reserved;
  const Akl32s* twiddles;  // radix-2 twiddles in Q30, (cos, -sin) pairs
  const std::uint16_t* bitRev;  // as in FFTSpec_C_32fc
  const FFTSpec_C_32fc* floatSpec;  // raw pointer of the embedded float context
};

// Float kernel.
Status fftGetSize_C_32fc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize);
Status fftInit_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit);
Status fftInitAlloc_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint);
Status fftFree_C_32fc(FFTSpec_C_32fc* pSpec);
Status fftGetBufSize_C_32fc(const FFTSpec_C_32fc* pSpec, int* pSize);
Status fftFwd_CToC_32fc(const Akl32fc* pSrc, Akl32fc* pDst, const FFTSpec_C_32fc* pSpec, Akl8u* pBuffer);

// 16-bit kernel.
Status fftGetSize_C_16sc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize);
Status fftInit_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit);
Status fftInitAlloc_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint);
Status fftFree_C_16sc(FFTSpec_C_16sc* pSpec);
Status fftGetBufSize_C_16sc(const FFTSpec_C_16sc* pSpec, int* pSize);
Status fftFwd_CToC_16sc_Sfs(const Akl16sc* pSrc, Akl16sc* pDst, const FFTSpec_C_16sc* pSpec, int scaleFactor,
                            Akl8u* pBuffer);

// Kernels for callers that have checked their arguments (the MDCT).

// Bit-reversed position of i among 2^order values.
std::uint32_t BitReverseIndex(std::uint32_t i, int order);
// Forward transform of split data (real and imaginary parts in two 16-byte
// aligned arrays of max(M, 4) floats) given in bit-reversed order, in place,
// natural order out, unnormalised.  `spec` is the aligned context.
void FftSplitBitReversed(const FFTSpec_C_32fc& spec, float* re, float* im);
// The rest of that transform for order >= 4 after StoreFirstPass4 has placed
// every group of sixteen values.
void FftSplitAfterFirstPass(const FFTSpec_C_32fc& spec, float* re, float* im);
// The rest of that transform for orders 5..10 after StoreFirstPass8 has
// placed every group of eight values.
void FftSplitAfterFirstPass8(const FFTSpec_C_32fc& spec, float* re, float* im);
// The full float transform (permutation, passes, normalisation); src may
// equal dst.  `work` holds the context's work size (orders above 10 only).
void FftForward(const FFTSpec_C_32fc& spec, const Akl32fc* src, Akl32fc* dst, Akl8u* work);
// Plain radix-2 reference of FftForward: float arithmetic, twiddles from
// std::cos/std::sin in double, natural order in and out, unnormalised.
void FftRef(const Akl32fc* src, Akl32fc* dst, int order);
// 16-bit transform on an aligned context; `work` holds the work size.
void Fft16Forward(const FFTSpec_C_16sc& spec, const Akl16sc* src, Akl16sc* dst, int scale_factor, Akl8u* work);

// Stores four vectors of values at i0 + k + g M/4 (g = 0..3, lanes k = 0..3;
// i0 a multiple of 4 below M/4) at their bit-reversed places in a split
// array: with p = rev(i0), value i0 + k + g M/4 goes to p + rev(k) + rev(g),
// rev(k) = 0, M/2, M/4, 3M/4 and rev(g) = 0, 2, 1, 3, so one transpose
// makes four aligned stores.
inline void StoreBitReversed4(float* dst, std::uint32_t p, int m, __m128 v0, __m128 v1, __m128 v2, __m128 v3) {
  _MM_TRANSPOSE4_PS(v0, v2, v1, v3);
  _mm_store_ps(dst + p, v0);
  _mm_store_ps(dst + p + m / 2, v2);
  _mm_store_ps(dst + p + m / 4, v1);
  _mm_store_ps(dst + p + 3 * m / 4, v3);
}

// Radix-4 butterfly over bit-reversed x0..x3 (four transforms at once, one
// per lane): X0 = t0 + t2, X2 = t0 - t2, X1 = t1 - i t3, X3 = t1 + i t3 with
// t0 = x0 + x1, t1 = x0 - x1, t2 = x2 + x3, t3 = x2 - x3.
inline void Butterfly4(__m128& r0, __m128& i0, __m128& r1, __m128& i1, __m128& r2, __m128& i2, __m128& r3,
                       __m128& i3) {
  const __m128 t0r = _mm_add_ps(r0, r1), t0i = _mm_add_ps(i0, i1);
  const __m128 t1r = _mm_sub_ps(r0, r1), t1i = _mm_sub_ps(i0, i1);
  const __m128 t2r = _mm_add_ps(r2, r3), t2i = _mm_add_ps(i2, i3);
  const __m128 t3r = _mm_sub_ps(r2, r3), t3i = _mm_sub_ps(i2, i3);
  r0 = _mm_add_ps(t0r, t2r);
  i0 = _mm_add_ps(t0i, t2i);
  r2 = _mm_sub_ps(t0r, t2r);
  i2 = _mm_sub_ps(t0i, t2i);
  r1 = _mm_add_ps(t1r, t3i);
  i1 = _mm_sub_ps(t1i, t3r);
  r3 = _mm_sub_ps(t1r, t3i);
  i3 = _mm_add_ps(t1i, t3r);
}

// The same sixteen values as StoreBitReversed4, already through the first
// radix-4 pass: the block of four places at rev(i0 + k) holds lane k of
// V0, V2, V1, V3, so the butterfly runs on those vectors before the transpose.
inline void StoreFirstPass4(float* re, float* im, std::uint32_t p, int m, const __m128* vr, const __m128* vi) {
  __m128 r0 = vr[0], r1 = vr[2], r2 = vr[1], r3 = vr[3];
  __m128 i0 = vi[0], i1 = vi[2], i2 = vi[1], i3 = vi[3];
  Butterfly4(r0, i0, r1, i1, r2, i2, r3, i3);
  _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
  _MM_TRANSPOSE4_PS(i0, i1, i2, i3);
  _mm_store_ps(re + p, r0);
  _mm_store_ps(re + p + m / 2, r1);
  _mm_store_ps(re + p + m / 4, r2);
  _mm_store_ps(re + p + 3 * m / 4, r3);
  _mm_store_ps(im + p, i0);
  _mm_store_ps(im + p + m / 2, i1);
  _mm_store_ps(im + p + m / 4, i2);
  _mm_store_ps(im + p + 3 * m / 4, i3);
}

inline constexpr float kFftSqrtHalf = 0.70710678118654752f;

// 4-point DFT of natural-order y0..y3 (one transform per lane), in place:
// Y1 = y0 - y2 - i (y1 - y3), Y3 = y0 - y2 + i (y1 - y3).
inline void Dft4Natural(__m128* r, __m128* i) {
  const __m128 t0r = _mm_add_ps(r[0], r[2]), t0i = _mm_add_ps(i[0], i[2]);
  const __m128 t1r = _mm_sub_ps(r[0], r[2]), t1i = _mm_sub_ps(i[0], i[2]);
  const __m128 t2r = _mm_add_ps(r[1], r[3]), t2i = _mm_add_ps(i[1], i[3]);
  const __m128 t3r = _mm_sub_ps(r[1], r[3]), t3i = _mm_sub_ps(i[1], i[3]);
  r[0] = _mm_add_ps(t0r, t2r);
  i[0] = _mm_add_ps(t0i, t2i);
  r[2] = _mm_sub_ps(t0r, t2r);
  i[2] = _mm_sub_ps(t0i, t2i);
  r[1] = _mm_add_ps(t1r, t3i);
  i[1] = _mm_sub_ps(t1i, t3r);
  r[3] = _mm_sub_ps(t1r, t3i);
  i[3] = _mm_add_ps(t1i, t3r);
}

// 8-point DFT over natural-order x0..x7 (one transform per lane), in
// place, results in natural order: X[2v] is the 4-point DFT of x_s + x_(s+4),
// X[2v+1] that of (x_s - x_(s+4)) e^(-i pi s/4).
inline void Dft8Natural(__m128* r, __m128* i) {
  const __m128 h = _mm_set1_ps(kFftSqrtHalf), minus_h = _mm_set1_ps(-kFftSqrtHalf);
  __m128 ar[4], ai[4], br[4], bi[4];
  for (int g = 0; g < 4; ++g) {
    ar[g] = _mm_add_ps(r[g], r[g + 4]);
    ai[g] = _mm_add_ps(i[g], i[g + 4]);
    br[g] = _mm_sub_ps(r[g], r[g + 4]);
    bi[g] = _mm_sub_ps(i[g], i[g + 4]);
  }
  const __m128 r1 = _mm_mul_ps(_mm_add_ps(br[1], bi[1]), h);
  const __m128 i1 = _mm_mul_ps(_mm_sub_ps(bi[1], br[1]), h);
  br[1] = r1;
  bi[1] = i1;
  const __m128 r2 = bi[2];
  const __m128 i2 = _mm_sub_ps(_mm_setzero_ps(), br[2]);
  br[2] = r2;
  bi[2] = i2;
  const __m128 r3 = _mm_mul_ps(_mm_sub_ps(bi[3], br[3]), h);
  const __m128 i3 = _mm_mul_ps(_mm_add_ps(br[3], bi[3]), minus_h);
  br[3] = r3;
  bi[3] = i3;
  Dft4Natural(ar, ai);
  Dft4Natural(br, bi);
  for (int v = 0; v < 4; ++v) {
    r[2 * v] = ar[v];
    i[2 * v] = ai[v];
    r[2 * v + 1] = br[v];
    i[2 * v + 1] = bi[v];
  }
}

// Orders 5..10: places, after the first radix-8 pass, the 8-point DFTs of
// x[r + t M/8] (t = 0..7) for four residues r = i0 .. i0+3 (i0 a multiple
// of 4 below M/8), given as x_t = lanes of vr[t], vi[t].  The block of eight
// at 8 rev(r) (reversal over order - 3 bits) receives that DFT in natural
// order; for the four lanes the blocks lie at rev(i0) plus 0, M/2, M/4 and
// 3M/4, so two transposes per part make aligned stores.
inline void StoreFirstPass8(float* re, float* im, int order, std::uint32_t i0, __m128* vr, __m128* vi) {
  const int m = 1 << order;
  Dft8Natural(vr, vi);
  const std::uint32_t p = BitReverseIndex(i0, order);
  const int off[4] = {0, m / 2, m / 4, 3 * m / 4};
  for (int part = 0; part < 2; ++part) {
    float* d = (part == 0 ? re : im) + p;
    __m128* v = part == 0 ? vr : vi;
    _MM_TRANSPOSE4_PS(v[0], v[1], v[2], v[3]);
    _MM_TRANSPOSE4_PS(v[4], v[5], v[6], v[7]);
    for (int k = 0; k < 4; ++k) {
      _mm_store_ps(d + off[k], v[k]);
      _mm_store_ps(d + off[k] + 4, v[k + 4]);
    }
  }
}

// Reverses the low `bits` bits of v.
inline constexpr std::uint32_t ReverseBits(std::uint32_t v, int bits) {
  v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
  v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
  v = ((v >> 4) & 0x0F0F0F0Fu) | ((v & 0x0F0F0F0Fu) << 4);
  v = ((v >> 8) & 0x00FF00FFu) | ((v & 0x00FF00FFu) << 8);
  v = (v >> 16) | (v << 16);
  return bits == 0 ? 0 : v >> (32 - bits);
}

// int32 to int16 with shift f: f > 0 (capped at 31) rounds half to even,
// f < 0 (floored at -15) shifts left, both saturate.
// A shift formed from a caller's scale factor, in 64 bits, brought to the
// range ShiftToS16 distinguishes (-15..31); nothing beyond it changes a result.
inline int ClampShift(std::int64_t f) { return static_cast<int>(f < -15 ? -15 : (f > 31 ? 31 : f)); }

inline Akl16s ShiftToS16(Akl32s v, int f) {
  if (f > 0) {
    if (f > 31) f = 31;
    const std::int64_t w = v;
    const std::int64_t r = (w + (std::int64_t{1} << (f - 1)) - 1 + ((w >> f) & 1)) >> f;
    return static_cast<Akl16s>(r > 32767 ? 32767 : (r < -32768 ? -32768 : r));
  }
  if (f < 0) {
    if (f < -15) f = -15;
    const int l = -f;
    if (v < (-32768 >> l)) return -32768;
    if (v > (32767 >> l)) return 32767;
    return static_cast<Akl16s>(v * (1 << l));
  }
  return static_cast<Akl16s>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

}  // namespace akl::transform
