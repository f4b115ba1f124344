// Layer III polyphase analysis filter bank: the fixed-point form (16-bit PCM
// to Q26 subband samples) and the floating-point context family.
//
// One call per time slot takes 32 new PCM samples and gives 32 subband
// samples, as in the standard's analysis: the new samples enter the history
// X newest first (X[0] is the last sample of the block); Z[i] = C[i] X[i]
// over the 512 taps; Y[i] = sum over j of Z[i + 64 j] (i = 0..63); S[k] =
// sum over i of cos((2k+1)(i-16) pi/64) Y[i].  The analysis window is the
// synthesis window over 32: C[i] = D[i] / 32, and every D[i] is k / 65536,
// so C[i] = k / 2^21 exactly (the same integers k as the synthesis uses).
//
// Fixed-point scale.  PCM is Q15 of full scale 1.0.  The windowed sums Y are
// exact 64-bit sums of integer products (Q36), rounded once to Q27; the
// matrixing multiplies by cosines in Q28 and sums in 64 bits (each term
// below 2^56, 64 terms below 2^62), rounded once to Q26 and saturated.  The
// history ring holds 16 slots of 32 PCM values; the ring offset names the
// slot of the newest block and steps back by one per call, as in synthesis.
#include <cmath>
#include <cstdint>

#include "core/context.hpp"
#include "core/exports.hpp"
#include "mp3/mp3_math.hpp"
#include "mp3/synthesis_window_table.hpp"

namespace akl::mp3 {

namespace {

struct AnalysisTables {
  std::int32_t cos_q28[32][64];
  float cos_f[32][64];
  float win_f[512];
};
constexpr AnalysisTables MakeAnalysisTables() {
  AnalysisTables t{};
  for (int k = 0; k < 32; ++k)
    for (int i = 0; i < 64; ++i) {
      const double c = ConstCos(kPi / 64.0 * (2 * k + 1) * (i - 16));
      t.cos_q28[k][i] = ConstQ(c, 28);
      t.cos_f[k][i] = static_cast<float>(c);
    }
  for (int i = 0; i < 512; ++i) t.win_f[i] = static_cast<float>(kSynthesisWindowQ16[i] / 2097152.0);
  return t;
}
inline constexpr AnalysisTables kAna = MakeAnalysisTables();

inline std::int32_t SatQ26(std::int64_t v) {
  if (v > 2147483647) return 2147483647;
  if (v < -2147483647 - 1) return -2147483647 - 1;
  return static_cast<std::int32_t>(v);
}

}  // namespace

void AnalysisSlotRef(const Akl16s* pcm, int stride, std::int32_t* history, std::int32_t* offset, std::int32_t* s) {
  const int p = (*offset + 15) % 16;
  *offset = p;
  std::int32_t* slot = history + 32 * p;
  for (int j = 0; j < 32; ++j) slot[j] = pcm[stride * (31 - j)];
  std::int64_t y[64];
  for (int i = 0; i < 64; ++i) {
    std::int64_t acc = 0;
    for (int j = 0; j < 8; ++j) {
      const int x = i + 64 * j;  // X index
      const std::int32_t v = history[32 * ((p + x / 32) % 16) + x % 32];
      acc += static_cast<std::int64_t>(kSynthesisWindowQ16[x]) * v;
    }
    y[i] = (acc + (1 << 8)) >> 9;  // Q36 -> Q27
  }
  for (int k = 0; k < 32; ++k) {
    std::int64_t acc = 0;
    for (int i = 0; i < 64; ++i) acc += static_cast<std::int64_t>(kAna.cos_q28[k][i]) * y[i];
    s[k] = SatQ26((acc + (std::int64_t{1} << 28)) >> 29);  // Q55 -> Q26
  }
}

namespace {

void AnalysisSlotFloat(const float* pcm, float* history, std::int32_t* offset, float* s) {
  const int p = (*offset + 15) % 16;
  *offset = p;
  float* slot = history + 32 * p;
  for (int j = 0; j < 32; ++j) slot[j] = pcm[31 - j];
  float y[64];
  for (int i = 0; i < 64; ++i) {
    float acc = 0.0f;
    for (int j = 0; j < 8; ++j) {
      const int x = i + 64 * j;
      acc += kAna.win_f[x] * history[32 * ((p + x / 32) % 16) + x % 32];
    }
    y[i] = acc;
  }
  for (int k = 0; k < 32; ++k) {
    float acc = 0.0f;
    for (int i = 0; i < 64; ++i) acc += kAna.cos_f[k][i] * y[i];
    s[k] = acc;
  }
}

}  // namespace

Status aklsAnalysisPQMF_MP3_16s32s(const Akl16s* pSrcPcm, Akl32s* pDstS, Akl32s* pXBuffer, int* pXPosition,
                                   int mode) {
  if (!pSrcPcm || !pDstS || !pXBuffer || !pXPosition) return kStsNullPtr;
  if ((mode != 1 && mode != 2) || static_cast<unsigned>(*pXPosition) >= 16u) return kStsBadArgErr;
  AnalysisSlotRef(pSrcPcm, mode, pXBuffer, pXPosition, pDstS);
  return kStsOk;
}

// ---------------------------------------------------------------------------
// Floating-point analysis context (tag 0x434D4168, filter-bank Free form).
// Layout at the 16-byte boundary: tag, ownedByLibrary, the ring's slot
// index, one reserved word, then the 16 x 32 PCM history of one channel.

namespace {

struct PqmfAnalysisState {
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s offset;
  Akl32s reserved;
  float history[512];
};
constexpr int kPqmfAnalysisStateSize = static_cast<int>(sizeof(PqmfAnalysisState) + kContextAlign);

void BuildPqmfAnalysis(void* raw, int owned) {
  PqmfAnalysisState* st = ContextAt<PqmfAnalysisState>(raw, kContextAlign);
  st->tag = kTagAnalysisPqmfMp3;
  st->ownedByLibrary = owned;
  st->offset = 0;
  st->reserved = 0;
  for (float& v : st->history) v = 0.0f;
}

}  // namespace

Status aklsAnalysisFilterGetSize_PQMF_MP3_32f(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = kPqmfAnalysisStateSize;
  return kStsOk;
}

Status aklsAnalysisFilterInit_PQMF_MP3_32f(AklsAnalysisState_PQMF_MP3_32f* pState) {
  if (!pState) return kStsNullPtr;
  BuildPqmfAnalysis(pState, 0);
  return kStsOk;
}

Status aklsAnalysisFilterInitAlloc_PQMF_MP3_32f(AklsAnalysisState_PQMF_MP3_32f** ppState) {
  if (!ppState) return kStsNullPtr;
  return InitAllocWith(kPqmfAnalysisStateSize, ppState, [](AklsAnalysisState_PQMF_MP3_32f* raw) {
    BuildPqmfAnalysis(raw, 1);
    return kStsOk;
  });
}

Status aklsAnalysisFilterFree_PQMF_MP3_32f(AklsAnalysisState_PQMF_MP3_32f* pState) {
  return FreeKeepingTag<PqmfAnalysisState>(pState, kContextAlign, kTagAnalysisPqmfMp3);
}

Status aklsAnalysisFilter_PQMF_MP3_32f(const Akl32f* pSrc, Akl32f* pDst, AklsAnalysisState_PQMF_MP3_32f* pState,
                                       int numSlots) {
  if (!pSrc || !pDst || !pState) return kStsNullPtr;
  if (numSlots < 1) return kStsSizeErr;
  PqmfAnalysisState* st =
      TaggedContext<PqmfAnalysisState>(static_cast<void*>(pState), kContextAlign, kTagAnalysisPqmfMp3);
  if (!st) return kStsContextMismatch;
  for (int t = 0; t < numSlots; ++t) AnalysisSlotFloat(pSrc + 32 * t, st->history, &st->offset, pDst + 32 * t);
  return kStsOk;
}

}  // namespace akl::mp3
