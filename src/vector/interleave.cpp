// Interleave and deinterleave of channel rows, 16-bit and float.
//
// The kernels are SSE2 (the x86-64 baseline, no dispatch).  Two and six
// channels (stereo, 5.1), and four and eight (7.1) when interleaving, have
// shuffle paths that move a full vector per load and store; one channel is a copy; every other count takes the
// plain frame loop, which is still bound by the strided stores.  Unaligned
// loads and stores are used throughout: misaligned buffers only cost the
// warning status, never a different result.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/exports.hpp"
#include "vector/vector_kernels.hpp"

namespace akl::vector {

namespace {

inline __m128i Load(const Akl16s* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store(Akl16s* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

template <class T>
void InterleaveFrames(const T* const* src, int ch, std::ptrdiff_t from, int len, T* dst) {
  for (std::ptrdiff_t i = from; i < len; ++i) {
    T* frame = dst + i * ch;
    for (int c = 0; c < ch; ++c) frame[c] = src[c][i];
  }
}

template <class T>
void DeinterleaveFrames(const T* src, int ch, std::ptrdiff_t from, int len, T* const* dst) {
  for (std::ptrdiff_t i = from; i < len; ++i) {
    const T* frame = src + i * ch;
    for (int c = 0; c < ch; ++c) dst[c][i] = frame[c];
  }
}

}  // namespace

// 16-bit ------------------------------------------------------------------

void Interleave16s(const Akl16s* const* src, int ch, int len, Akl16s* dst) {
  std::ptrdiff_t i = 0;
  if (ch == 1) {
    std::memcpy(dst, src[0], sizeof(Akl16s) * static_cast<std::size_t>(len));
    return;
  }
  if (ch == 2) {
    for (; i + 8 <= len; i += 8) {
      const __m128i a = Load(src[0] + i), b = Load(src[1] + i);
      Store(dst + 2 * i, _mm_unpacklo_epi16(a, b));
      Store(dst + 2 * i + 8, _mm_unpackhi_epi16(a, b));
    }
  } else if (ch == 4) {
    for (; i + 8 <= len; i += 8) {
      const __m128i a = Load(src[0] + i), b = Load(src[1] + i);
      const __m128i c = Load(src[2] + i), d = Load(src[3] + i);
      const __m128i ab_lo = _mm_unpacklo_epi16(a, b), ab_hi = _mm_unpackhi_epi16(a, b);
      const __m128i cd_lo = _mm_unpacklo_epi16(c, d), cd_hi = _mm_unpackhi_epi16(c, d);
      Akl16s* o = dst + 4 * i;
      Store(o, _mm_unpacklo_epi32(ab_lo, cd_lo));
      Store(o + 8, _mm_unpackhi_epi32(ab_lo, cd_lo));
      Store(o + 16, _mm_unpacklo_epi32(ab_hi, cd_hi));
      Store(o + 24, _mm_unpackhi_epi32(ab_hi, cd_hi));
    }
  } else if (ch == 6) {
    // Channel pairs become 32-bit lanes; three streams of 32-bit lanes are
    // then interleaved with the float shuffles.
    for (; i + 8 <= len; i += 8) {
      __m128i pair[3][2];
      for (int p = 0; p < 3; ++p) {
        const __m128i a = Load(src[2 * p] + i), b = Load(src[2 * p + 1] + i);
        pair[p][0] = _mm_unpacklo_epi16(a, b);
        pair[p][1] = _mm_unpackhi_epi16(a, b);
      }
      for (int h = 0; h < 2; ++h) {
        __m128 out[3];
        Interleave3x32(_mm_castsi128_ps(pair[0][h]), _mm_castsi128_ps(pair[1][h]), _mm_castsi128_ps(pair[2][h]), out);
        Akl16s* o = dst + 6 * (i + 4 * h);
        for (int k = 0; k < 3; ++k) Store(o + 8 * k, _mm_castps_si128(out[k]));
      }
    }
  } else if (ch == 8) {
    for (; i + 8 <= len; i += 8) {
      __m128i r[8];
      for (int c = 0; c < 8; ++c) r[c] = Load(src[c] + i);
      Transpose8x16(r);
      for (int f = 0; f < 8; ++f) Store(dst + 8 * (i + f), r[f]);
    }
  }
  InterleaveFrames(src, ch, i, len, dst);
}

void Deinterleave16s(const Akl16s* src, int ch, int len, Akl16s* const* dst) {
  std::ptrdiff_t i = 0;
  if (ch == 1) {
    std::memcpy(dst[0], src, sizeof(Akl16s) * static_cast<std::size_t>(len));
    return;
  }
  if (ch == 2) {
    // Sign-extend each 32-bit lane's low and high half, then pack: the values
    // already fit 16 bits, so the saturating pack is exact.
    for (; i + 8 <= len; i += 8) {
      const __m128i v0 = Load(src + 2 * i), v1 = Load(src + 2 * i + 8);
      const __m128i even = _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(v0, 16), 16),
                                           _mm_srai_epi32(_mm_slli_epi32(v1, 16), 16));
      const __m128i odd = _mm_packs_epi32(_mm_srai_epi32(v0, 16), _mm_srai_epi32(v1, 16));
      Store(dst[0] + i, even);
      Store(dst[1] + i, odd);
    }
  } else if (ch == 6) {
    // Eight frames: three streams of channel pairs (32-bit lanes) apart,
    // then each pair split as in the stereo case.
    for (; i + 8 <= len; i += 8) {
      __m128 pair[2][3];
      for (int h = 0; h < 2; ++h) {
        __m128 in[3];
        for (int k = 0; k < 3; ++k) in[k] = _mm_castsi128_ps(Load(src + 6 * (i + 4 * h) + 8 * k));
        Deinterleave3x32(in, pair[h][0], pair[h][1], pair[h][2]);
      }
      for (int p = 0; p < 3; ++p) {
        const __m128i lo = _mm_castps_si128(pair[0][p]), hi = _mm_castps_si128(pair[1][p]);
        Store(dst[2 * p] + i, _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(lo, 16), 16),
                                              _mm_srai_epi32(_mm_slli_epi32(hi, 16), 16)));
        Store(dst[2 * p + 1] + i, _mm_packs_epi32(_mm_srai_epi32(lo, 16), _mm_srai_epi32(hi, 16)));
      }
    }
  }
  DeinterleaveFrames(src, ch, i, len, dst);
}

// Float ---------------------------------------------------------------------

void Interleave32f(const Akl32f* const* src, int ch, int len, Akl32f* dst) {
  std::ptrdiff_t i = 0;
  if (ch == 1) {
    std::memcpy(dst, src[0], sizeof(Akl32f) * static_cast<std::size_t>(len));
    return;
  }
  if (ch == 2) {
    for (; i + 4 <= len; i += 4) {
      const __m128 a = _mm_loadu_ps(src[0] + i), b = _mm_loadu_ps(src[1] + i);
      _mm_storeu_ps(dst + 2 * i, _mm_unpacklo_ps(a, b));
      _mm_storeu_ps(dst + 2 * i + 4, _mm_unpackhi_ps(a, b));
    }
  } else if (ch == 4) {
    for (; i + 4 <= len; i += 4) {
      __m128 a = _mm_loadu_ps(src[0] + i), b = _mm_loadu_ps(src[1] + i);
      __m128 c = _mm_loadu_ps(src[2] + i), d = _mm_loadu_ps(src[3] + i);
      _MM_TRANSPOSE4_PS(a, b, c, d);
      Akl32f* o = dst + 4 * i;
      _mm_storeu_ps(o, a);
      _mm_storeu_ps(o + 4, b);
      _mm_storeu_ps(o + 8, c);
      _mm_storeu_ps(o + 12, d);
    }
  } else if (ch == 6) {
    // Channel pairs become 64-bit lanes; three streams of 64-bit lanes
    // interleave with one unpack or shuffle per output vector.
    for (; i + 4 <= len; i += 4) {
      __m128d pair[3][2];
      for (int p = 0; p < 3; ++p) {
        const __m128 a = _mm_loadu_ps(src[2 * p] + i), b = _mm_loadu_ps(src[2 * p + 1] + i);
        pair[p][0] = _mm_castps_pd(_mm_unpacklo_ps(a, b));
        pair[p][1] = _mm_castps_pd(_mm_unpackhi_ps(a, b));
      }
      Akl32f* o = dst + 6 * i;
      for (int h = 0; h < 2; ++h, o += 12) {
        _mm_storeu_ps(o, _mm_castpd_ps(_mm_unpacklo_pd(pair[0][h], pair[1][h])));
        _mm_storeu_ps(o + 4, _mm_castpd_ps(_mm_shuffle_pd(pair[2][h], pair[0][h], 2)));
        _mm_storeu_ps(o + 8, _mm_castpd_ps(_mm_unpackhi_pd(pair[1][h], pair[2][h])));
      }
    }
  } else if (ch == 8) {
    // Two 4 x 4 transposes: channels 0-3 and 4-7 of four frames.
    for (; i + 4 <= len; i += 4) {
      __m128 lo[4], hi[4];
      for (int c = 0; c < 4; ++c) {
        lo[c] = _mm_loadu_ps(src[c] + i);
        hi[c] = _mm_loadu_ps(src[c + 4] + i);
      }
      _MM_TRANSPOSE4_PS(lo[0], lo[1], lo[2], lo[3]);
      _MM_TRANSPOSE4_PS(hi[0], hi[1], hi[2], hi[3]);
      for (int f = 0; f < 4; ++f) {
        _mm_storeu_ps(dst + 8 * (i + f), lo[f]);
        _mm_storeu_ps(dst + 8 * (i + f) + 4, hi[f]);
      }
    }
  }
  InterleaveFrames(src, ch, i, len, dst);
}

void Deinterleave32f(const Akl32f* src, int ch, int len, Akl32f* const* dst) {
  std::ptrdiff_t i = 0;
  if (ch == 1) {
    std::memcpy(dst[0], src, sizeof(Akl32f) * static_cast<std::size_t>(len));
    return;
  }
  if (ch == 2) {
    for (; i + 4 <= len; i += 4) {
      const __m128 v0 = _mm_loadu_ps(src + 2 * i), v1 = _mm_loadu_ps(src + 2 * i + 4);
      _mm_storeu_ps(dst[0] + i, _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0)));
      _mm_storeu_ps(dst[1] + i, _mm_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1)));
    }
  } else if (ch == 6) {
    // Four frames: channel pairs are 64-bit lanes, two frames per vector
    // triple; then each pair stream splits into its two channels.
    for (; i + 4 <= len; i += 4) {
      __m128 pair[3][2];  // [pair][frames 0-1 / 2-3]
      for (int h = 0; h < 2; ++h) {
        const Akl32f* f = src + 6 * (i + 2 * h);
        const __m128d v0 = _mm_castps_pd(_mm_loadu_ps(f));
        const __m128d v1 = _mm_castps_pd(_mm_loadu_ps(f + 4));
        const __m128d v2 = _mm_castps_pd(_mm_loadu_ps(f + 8));
        pair[0][h] = _mm_castpd_ps(_mm_shuffle_pd(v0, v1, 2));
        pair[1][h] = _mm_castpd_ps(_mm_shuffle_pd(v0, v2, 1));
        pair[2][h] = _mm_castpd_ps(_mm_shuffle_pd(v1, v2, 2));
      }
      for (int p = 0; p < 3; ++p) {
        _mm_storeu_ps(dst[2 * p] + i, _mm_shuffle_ps(pair[p][0], pair[p][1], _MM_SHUFFLE(2, 0, 2, 0)));
        _mm_storeu_ps(dst[2 * p + 1] + i, _mm_shuffle_ps(pair[p][0], pair[p][1], _MM_SHUFFLE(3, 1, 3, 1)));
      }
    }
  }
  DeinterleaveFrames(src, ch, i, len, dst);
}

// Exports ---------------------------------------------------------------------

namespace {

// The checks shared by the four exports, in their order: buffer and row
// array null, channel count, length, each row pointer; then the alignment
// of every data pointer, which only turns a success into the warning.
template <class Rows>
Status CheckRows(const void* buffer, Rows rows, int ch, int len) {
  if (!buffer || !rows) return kStsNullPtr;
  if (ch < 1) return kStsNumChannelsErr;
  if (len < 1) return kStsSizeErr;
  for (int c = 0; c < ch; ++c) {
    if (!rows[c]) return kStsNullPtr;
  }
  bool aligned = IsAligned16(buffer);
  for (int c = 0; c < ch; ++c) aligned = aligned && IsAligned16(rows[c]);
  return aligned ? kStsOk : kStsMisalignedWarn;
}

}  // namespace

Status aklsInterleave_16s(const Akl16s** ppSrc, int chCount, int len, Akl16s* pDst) {
  const Status st = CheckRows(pDst, ppSrc, chCount, len);
  if (st < 0) return st;
  Interleave16s(ppSrc, chCount, len, pDst);
  return st;
}

Status aklsInterleave_32f(const Akl32f** ppSrc, int chCount, int len, Akl32f* pDst) {
  const Status st = CheckRows(pDst, ppSrc, chCount, len);
  if (st < 0) return st;
  Interleave32f(ppSrc, chCount, len, pDst);
  return st;
}

Status aklsDeinterleave_16s(const Akl16s* pSrc, int chCount, int len, Akl16s** ppDst) {
  const Status st = CheckRows(pSrc, ppDst, chCount, len);
  if (st < 0) return st;
  Deinterleave16s(pSrc, chCount, len, ppDst);
  return st;
}

Status aklsDeinterleave_32f(const Akl32f* pSrc, int chCount, int len, Akl32f** ppDst) {
  const Status st = CheckRows(pSrc, ppDst, chCount, len);
  if (st < 0) return st;
  Deinterleave32f(pSrc, chCount, len, ppDst);
  return st;
}

}  // namespace akl::vector
