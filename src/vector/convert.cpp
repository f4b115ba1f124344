// Join (float rows to interleaved 16-bit PCM) and MakeFloat (mantissa and
// exponent pairs to floats).
//
// Rounding in Join.  Round to nearest with ties to even is computed from the
// truncation, which no rounding-mode setting changes: after clamping to
// [-32768, 32767], t = trunc(x) is exact, and so is f = x - t (both are
// floats of the same binade or closer, |f| < 1).  If |f| > 0.5, or |f| = 0.5
// and t is odd, t moves one step away from zero.  This is the add-half-and-
// truncate rule with its tie correction, without the rounding that a float
// x + 0.5 would make just below 0.5 (0.49999997 + 0.5 rounds to 1.0 in float).
// When the MXCSR rounding mode is round-to-nearest-even (checked once per
// call) the processor's conversion gives the same integers and is used
// instead.  The clamp runs before the conversion, so it never sees an
// out-of-range value; NaN fails both comparisons of the clamp in SSE's
// max(x, lo) and ends at -32768, and the scalar path does the same.
#include <emmintrin.h>

#include <bit>
#include <cstddef>
#include <cstdint>

#include "core/exports.hpp"
#include "vector/vector_kernels.hpp"

namespace akl::vector {

namespace {

constexpr float kMaxS16 = 32767.0f;
constexpr float kMinS16 = -32768.0f;

// Four floats to four rounded, saturated 32-bit integers (in 16-bit range).
inline __m128i RoundSat4(__m128 x) {
  x = _mm_min_ps(_mm_max_ps(x, _mm_set1_ps(kMinS16)), _mm_set1_ps(kMaxS16));  // NaN -> kMinS16
  __m128i t = _mm_cvttps_epi32(x);
  const __m128 frac = _mm_sub_ps(x, _mm_cvtepi32_ps(t));
  const __m128 abs_frac = _mm_and_ps(frac, _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF)));
  const __m128 half = _mm_set1_ps(0.5f);
  const __m128i odd = _mm_cmpeq_epi32(_mm_and_si128(t, _mm_set1_epi32(1)), _mm_set1_epi32(1));
  const __m128i step_up = _mm_or_si128(_mm_castps_si128(_mm_cmpgt_ps(abs_frac, half)),
                                       _mm_and_si128(_mm_castps_si128(_mm_cmpeq_ps(abs_frac, half)), odd));
  // +1 for positive x, -1 for negative: (1 ^ s) - s with s = 0 or -1.
  const __m128i s = _mm_srai_epi32(_mm_castps_si128(x), 31);
  const __m128i away = _mm_sub_epi32(_mm_xor_si128(_mm_set1_epi32(1), s), s);
  t = _mm_add_epi32(t, _mm_and_si128(step_up, away));
  return t;
}

// The same with the processor's own conversion, which rounds by the MXCSR
// mode: used only when that mode is round-to-nearest-even (the default), where
// it gives the same integers at a quarter of the work.
// Only the upper clamp is needed: below -2^31, -inf and NaN convert to the
// integer indefinite value 0x80000000, and the packs to 16 bits saturate
// everything else below -32768.  The operand order of min matters: with
// min(hi, x) a NaN x is passed through to the conversion (-> -32768).
inline __m128i RoundSat4Nearest(__m128 x) { return _mm_cvtps_epi32(_mm_min_ps(_mm_set1_ps(kMaxS16), x)); }

inline void Store(Akl16s* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

template <__m128i (*Round)(__m128)>
inline __m128i Round8(const Akl32f* p) {
  return _mm_packs_epi32(Round(_mm_loadu_ps(p)), Round(_mm_loadu_ps(p + 4)));
}

template <__m128i (*Round)(__m128)>
std::ptrdiff_t JoinVector(const Akl32f* const* src, int ch, int len, Akl16s* dst) {
  std::ptrdiff_t i = 0;
  if (ch == 1) {
    for (; i + 8 <= len; i += 8) Store(dst + i, Round8<Round>(src[0] + i));
  } else if (ch == 2) {
    for (; i + 4 <= len; i += 4) {
      const __m128i a = Round(_mm_loadu_ps(src[0] + i)), b = Round(_mm_loadu_ps(src[1] + i));
      Store(dst + 2 * i, _mm_packs_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b)));
    }
  } else if (ch == 6) {
    // Four frames per step: channel pairs packed into 32-bit lanes, then the
    // three pair streams interleaved.
    for (; i + 4 <= len; i += 4) {
      __m128 pair[3];
      for (int p = 0; p < 3; ++p) {
        const __m128i a = Round(_mm_loadu_ps(src[2 * p] + i));
        const __m128i b = Round(_mm_loadu_ps(src[2 * p + 1] + i));
        pair[p] = _mm_castsi128_ps(_mm_packs_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b)));
      }
      __m128 out[3];
      Interleave3x32(pair[0], pair[1], pair[2], out);
      Akl16s* o = dst + 6 * i;
      for (int k = 0; k < 3; ++k) Store(o + 8 * k, _mm_castps_si128(out[k]));
    }
  } else if (ch == 8) {
    for (; i + 8 <= len; i += 8) {
      __m128i r[8];
      for (int c = 0; c < 8; ++c) r[c] = Round8<Round>(src[c] + i);
      Transpose8x16(r);
      for (int f = 0; f < 8; ++f) Store(dst + 8 * (i + f), r[f]);
    }
  } else {
    // Any other count: eight samples of one row rounded at once, then
    // scattered with the channel stride.
    for (; i + 8 <= len; i += 8) {
      for (int c = 0; c < ch; ++c) {
        alignas(16) Akl16s r[8];
        _mm_store_si128(reinterpret_cast<__m128i*>(r), Round8<Round>(src[c] + i));
        Akl16s* o = dst + i * ch + c;
        for (std::ptrdiff_t k = 0; k < 8; ++k) o[k * ch] = r[k];
      }
    }
  }
  return i;  // frames done
}

}  // namespace

Akl16s JoinOne(Akl32f x) {
  if (x > kMaxS16) return 32767;
  if (!(x >= kMinS16)) return -32768;  // below the range, or NaN
  int t = static_cast<int>(x);          // truncation, exact here
  const float frac = x - static_cast<float>(t);
  const float abs_frac = frac < 0.0f ? -frac : frac;
  if (abs_frac > 0.5f || (abs_frac == 0.5f && (t & 1) != 0)) t += x < 0.0f ? -1 : 1;
  return static_cast<Akl16s>(t);
}

void Join32f16s(const Akl32f* const* src, int ch, int len, Akl16s* dst) {
  const bool nearest_even = (_mm_getcsr() & _MM_ROUND_MASK) == _MM_ROUND_NEAREST;
  std::ptrdiff_t i = nearest_even ? JoinVector<RoundSat4Nearest>(src, ch, len, dst) : JoinVector<RoundSat4>(src, ch, len, dst);
  for (; i < len; ++i) {
    Akl16s* frame = dst + i * ch;
    for (int c = 0; c < ch; ++c) frame[c] = JoinOne(src[c][i]);
  }
}

void MakeFloat16s32f(const Akl16s* mant, const Akl16s* exp, int len, Akl32f* dst) {
  int i = 0;
  // The factor's low 16 bits are always 0 (both terms have them clear), so
  // its high half is computed in 16-bit lanes, (0x3800 - (e << 7)) & 0x7FFF,
  // which wraps exactly as the 32-bit form does, and placed above 16 zero bits.
  const __m128i bias = _mm_set1_epi16(0x3800);
  const __m128i no_sign = _mm_set1_epi16(0x7FFF);
  const __m128i zero = _mm_setzero_si128();
  for (; i + 8 <= len; i += 8) {
    const __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i*>(mant + i));
    const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i*>(exp + i));
    // Sign-extend the mantissas 16 -> 32 bits: each value in the high half, then shift back.
    const __m128i m_lo = _mm_srai_epi32(_mm_unpacklo_epi16(m, m), 16);
    const __m128i m_hi = _mm_srai_epi32(_mm_unpackhi_epi16(m, m), 16);
    const __m128i f = _mm_and_si128(_mm_sub_epi16(bias, _mm_slli_epi16(e, 7)), no_sign);
    const __m128 f_lo = _mm_castsi128_ps(_mm_unpacklo_epi16(zero, f));
    const __m128 f_hi = _mm_castsi128_ps(_mm_unpackhi_epi16(zero, f));
    _mm_storeu_ps(dst + i, _mm_mul_ps(_mm_cvtepi32_ps(m_lo), f_lo));
    _mm_storeu_ps(dst + i + 4, _mm_mul_ps(_mm_cvtepi32_ps(m_hi), f_hi));
  }
  for (; i < len; ++i) {
    // Unsigned arithmetic: the shift and the subtraction wrap, as the vector lanes do.
    const std::uint32_t e_bits = static_cast<std::uint32_t>(static_cast<std::int32_t>(exp[i])) << 23;
    const std::uint32_t bits = (0x38000000u - e_bits) & 0x7FFFFFFFu;
    dst[i] = static_cast<Akl32f>(mant[i]) * std::bit_cast<Akl32f>(bits);
  }
}

Status aklsJoin_32f16s_D2L(const Akl32f** ppSrc, int chCount, int len, Akl16s* pDst) {
  // The destination is checked before the sizes and the rows after them.
  if (!pDst) return kStsNullPtr;
  if (len < 1 || chCount < 1) return kStsSizeErr;
  if (!ppSrc) return kStsNullPtr;
  for (int c = 0; c < chCount; ++c) {
    if (!ppSrc[c]) return kStsNullPtr;
  }
  Join32f16s(ppSrc, chCount, len, pDst);
  return kStsOk;
}

Status aklsMakeFloat_16s32f(const Akl16s* pSrcMant, const Akl16s* pSrcExp, int len, Akl32f* pDst) {
  if (!pSrcMant || !pSrcExp || !pDst) return kStsNullPtr;
  if (len < 1) return kStsSizeErr;
  MakeFloat16s32f(pSrcMant, pSrcExp, len, pDst);
  return kStsOk;
}

}  // namespace akl::vector
