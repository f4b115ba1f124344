// Kernels of the vector utilities, shared by their sources, the tests and the
// benchmarks.  They assume checked arguments: rows and buffers valid for len
// samples (len >= 1), ch >= 1.
#pragma once

#include <emmintrin.h>

#include <cstdint>

#include "aklac.h"

namespace akl::vector {

inline bool IsAligned16(const void* p) { return (reinterpret_cast<std::uintptr_t>(p) & 15u) == 0; }

// Three streams of 32-bit lanes a, b, c (4 lanes each) into 12 lanes in the
// order a0 b0 c0 a1 b1 c1 a2 b2 c2 a3 b3 c3, as out[0..2].
inline void Interleave3x32(__m128 a, __m128 b, __m128 c, __m128 out[3]) {
  const __m128 ab01 = _mm_unpacklo_ps(a, b);                              // a0 b0 a1 b1
  const __m128 c0a1 = _mm_shuffle_ps(c, a, _MM_SHUFFLE(1, 1, 0, 0));     // c0 c0 a1 a1
  out[0] = _mm_shuffle_ps(ab01, c0a1, _MM_SHUFFLE(2, 0, 1, 0));          // a0 b0 c0 a1
  const __m128 b1c1 = _mm_shuffle_ps(b, c, _MM_SHUFFLE(1, 1, 1, 1));     // b1 b1 c1 c1
  const __m128 a2b2 = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 2, 2, 2));     // a2 a2 b2 b2
  out[1] = _mm_shuffle_ps(b1c1, a2b2, _MM_SHUFFLE(2, 0, 2, 0));          // b1 c1 a2 b2
  const __m128 c2a3 = _mm_shuffle_ps(c, a, _MM_SHUFFLE(3, 3, 2, 2));     // c2 c2 a3 a3
  const __m128 bc23 = _mm_unpackhi_ps(b, c);                              // b2 c2 b3 c3
  out[2] = _mm_shuffle_ps(c2a3, bc23, _MM_SHUFFLE(3, 2, 2, 0));          // c2 a3 b3 c3
}

// The inverse: 12 lanes in[0..2] in the order above back to a, b, c.
inline void Deinterleave3x32(const __m128 in[3], __m128& a, __m128& b, __m128& c) {
  const __m128 a2a3 = _mm_shuffle_ps(in[1], in[2], _MM_SHUFFLE(1, 1, 2, 2));  // a2 a2 a3 a3
  a = _mm_shuffle_ps(in[0], a2a3, _MM_SHUFFLE(2, 0, 3, 0));                  // a0 a1 a2 a3
  const __m128 b0b1 = _mm_shuffle_ps(in[0], in[1], _MM_SHUFFLE(0, 0, 1, 1));  // b0 b0 b1 b1
  const __m128 b2b3 = _mm_shuffle_ps(in[1], in[2], _MM_SHUFFLE(2, 2, 3, 3));  // b2 b2 b3 b3
  b = _mm_shuffle_ps(b0b1, b2b3, _MM_SHUFFLE(2, 0, 2, 0));                   // b0 b1 b2 b3
  const __m128 c0c1 = _mm_shuffle_ps(in[0], in[1], _MM_SHUFFLE(1, 1, 2, 2));  // c0 c0 c1 c1
  const __m128 c2c3 = _mm_shuffle_ps(in[2], in[2], _MM_SHUFFLE(3, 3, 0, 0));  // c2 c2 c3 c3
  c = _mm_shuffle_ps(c0c1, c2c3, _MM_SHUFFLE(2, 0, 2, 0));                   // c0 c1 c2 c3
}

// 8 x 8 transpose of 16-bit lanes: row c, lane i becomes row i, lane c.
inline void Transpose8x16(__m128i r[8]) {
  __m128i a[8], b[8];
  for (int p = 0; p < 4; ++p) {  // channel pairs, frames 0-3 and 4-7
    a[2 * p] = _mm_unpacklo_epi16(r[2 * p], r[2 * p + 1]);
    a[2 * p + 1] = _mm_unpackhi_epi16(r[2 * p], r[2 * p + 1]);
  }
  for (int q = 0; q < 2; ++q) {  // channel quads: frames 0-1, 2-3, 4-5, 6-7
    b[4 * q] = _mm_unpacklo_epi32(a[4 * q], a[4 * q + 2]);
    b[4 * q + 1] = _mm_unpackhi_epi32(a[4 * q], a[4 * q + 2]);
    b[4 * q + 2] = _mm_unpacklo_epi32(a[4 * q + 1], a[4 * q + 3]);
    b[4 * q + 3] = _mm_unpackhi_epi32(a[4 * q + 1], a[4 * q + 3]);
  }
  for (int f = 0; f < 4; ++f) {  // whole frames
    r[2 * f] = _mm_unpacklo_epi64(b[f], b[f + 4]);
    r[2 * f + 1] = _mm_unpackhi_epi64(b[f], b[f + 4]);
  }
}

void Interleave16s(const Akl16s* const* src, int ch, int len, Akl16s* dst);
void Interleave32f(const Akl32f* const* src, int ch, int len, Akl32f* dst);
void Deinterleave16s(const Akl16s* src, int ch, int len, Akl16s* const* dst);
void Deinterleave32f(const Akl32f* src, int ch, int len, Akl32f* const* dst);

// One float to 16 bits: round to nearest, ties to even, whatever the MXCSR
// rounding mode; above 32767 gives 32767, below -32768 and NaN give -32768.
Akl16s JoinOne(Akl32f x);
// Join: dst[i*ch + c] = JoinOne(src[c][i]).
void Join32f16s(const Akl32f* const* src, int ch, int len, Akl16s* dst);
// dst[i] = mant[i] * (float with bits (0x38000000 - (exp[i] << 23)) & 0x7FFFFFFF).
void MakeFloat16s32f(const Akl16s* mant, const Akl16s* exp, int len, Akl32f* dst);

}  // namespace akl::vector
