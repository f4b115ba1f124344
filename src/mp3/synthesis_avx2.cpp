// The AVX2 member of the polyphase synthesis's windowed sum: the SSE2 form's
// single-precision sums eight outputs per register instead of four.  Every
// lane does the same operations in the same order as in the SSE2 member, and
// this file is compiled without contraction into fused multiply-adds
// (CMakeLists.txt), so the two members give bit-identical PCM; the tests check
// that.
#include <immintrin.h>

#include <cstdint>

#include "mp3/mp3_math.hpp"
#include "mp3/synthesis.hpp"
#include "mp3/synthesis_window_table.hpp"

namespace akl::mp3::avx2 {

namespace {

// The window of the SSE2 form (coefficients times 2^-26 per slot pair h) for
// blocks of eight outputs jb: even_lo, odd_lo, even_hi, odd_hi of outputs
// 8jb .. 8jb+7.  With D the window in Q16: output j (0..15) takes D[64h + j]
// on A_even[16+j] and -D[64h + 32 + j] on A_odd[16-j]; output 32-j (1..15)
// -D[64h + 32 - j] and -D[64h + 64 - j] on the same two values.
struct alignas(32) WideWindow {
  float w[8][2][4][8];
  std::int32_t odd_mid[8];  // -D[64h + 48] on A_odd[0], output 16 (exact, in 64 bits)
};
constexpr WideWindow MakeWideWindow() {
  WideWindow f{};
  constexpr double kScale = 1.0 / 67108864.0;
  for (int h = 0; h < 8; ++h) {
    for (int j = 0; j < 16; ++j) {
      auto& w = f.w[h][j / 8];
      const int l = j % 8;
      w[0][l] = static_cast<float>(kSynthesisWindowQ16[64 * h + j] * kScale);
      w[1][l] = static_cast<float>(-kSynthesisWindowQ16[64 * h + 32 + j] * kScale);
      w[2][l] = j > 0 ? static_cast<float>(-kSynthesisWindowQ16[64 * h + 32 - j] * kScale) : 0.0f;
      w[3][l] = j > 0 ? static_cast<float>(-kSynthesisWindowQ16[64 * h + 64 - j] * kScale) : 0.0f;
    }
    f.odd_mid[h] = -kSynthesisWindowQ16[64 * h + 48];
  }
  return f;
}
alignas(32) constexpr WideWindow kWide = MakeWideWindow();

}  // namespace

void SynthWindowSum(const std::int32_t* history, int slot0, std::int16_t* pcm, int stride) {
  std::int64_t mid = 0;
  __m256 lo[2], hi[2];
  lo[0] = lo[1] = hi[0] = hi[1] = _mm256_setzero_ps();
  const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
  for (int h = 0; h < 8; ++h) {
    const std::int32_t* ae = history + kSynthSlotValues * ((slot0 + 2 * h) & (kSynthSlots - 1));
    const std::int32_t* ao = history + kSynthSlotValues * ((slot0 + 2 * h + 1) & (kSynthSlots - 1));
    mid += static_cast<std::int64_t>(kWide.odd_mid[h]) * ao[0];
    for (int jb = 0; jb < 2; ++jb) {
      const float* w = &kWide.w[h][jb][0][0];
      const __m256 e = _mm256_cvtepi32_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(ae + 16 + 8 * jb)));
      // ao[16 - j] for j = 8jb..8jb+7, reversed into output order.
      const __m256 o = _mm256_cvtepi32_ps(
          _mm256_permutevar8x32_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(ao + 9 - 8 * jb)), reverse));
      lo[jb] = _mm256_add_ps(lo[jb], _mm256_add_ps(_mm256_mul_ps(e, _mm256_load_ps(w)), _mm256_mul_ps(o, _mm256_load_ps(w + 8))));
      hi[jb] = _mm256_add_ps(hi[jb],
                             _mm256_add_ps(_mm256_mul_ps(e, _mm256_load_ps(w + 16)), _mm256_mul_ps(o, _mm256_load_ps(w + 24))));
    }
  }
  // out[0..15]: outputs 0..15; out[16 + j]: output 32 - j (out[16] unused).
  alignas(32) std::int16_t out[32];
  const auto pack = [](__m256 a, __m256 b) {
    // packs works per 128-bit half (a0-3 b0-3 | a4-7 b4-7); restore the order.
    return _mm256_permute4x64_epi64(_mm256_packs_epi32(_mm256_cvtps_epi32(a), _mm256_cvtps_epi32(b)),
                                    _MM_SHUFFLE(3, 1, 2, 0));
  };
  _mm256_store_si256(reinterpret_cast<__m256i*>(out), pack(lo[0], lo[1]));
  _mm256_store_si256(reinterpret_cast<__m256i*>(out + 16), pack(hi[0], hi[1]));
  if (stride == 1) {
    for (int j = 0; j < 16; ++j) pcm[j] = out[j];
    for (int j = 1; j < 16; ++j) pcm[32 - j] = out[16 + j];
  } else {
    for (int j = 0; j < 16; ++j) pcm[2 * j] = out[j];
    for (int j = 1; j < 16; ++j) pcm[2 * (32 - j)] = out[16 + j];
  }
  pcm[stride * 16] = SatS16(RoundShr(mid, 26));
}

}  // namespace akl::mp3::avx2
