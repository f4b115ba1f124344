// Layer III polyphase synthesis filter bank: the fixed-point form that ends
// the decoding chain with 16-bit PCM, and the floating-point context family.
//
// The 64-value vector V of the standard's matrixing is, for every slot, fixed
// by 32 numbers: A[m] = sum_k S[k] cos(m (2k+1) pi / 64), m = 0..31 (a DCT-II
// of the subband samples S).  With A[32] = 0 and A[64-m] = -A[m], V[i] =
// A[16+i] unfolds from them, so each history slot keeps only A: 16 slots of
// 32 values.  The window table below is arranged in the order the windowed
// sum visits those slots, with the unfolding signs (and the zero of A[32])
// folded in.
//
// Fixed-point scale.  Subband samples arrive in Q26 (the standard's values
// times 2^26) and are clamped to +-8 (2^29 - 1 in Q26): a subband sample that
// large saturates the PCM anyway, and the clamp bounds the transform's
// 64-bit sums (see Dct32), with no precision dropped from the input.  A is rounded once to Q25 and saturated (range +-64, about twice
// the largest value 32 subbands at full scale can reach); its step 2^-25 is
// ten bits below the 16-bit PCM step.  The window coefficients are exact:
// every D[i] is k/65536, so they are stored as the integers k (Q16).  Each
// PCM sample is one 64-bit sum of 16 Q16 x Q25 products, rounded once to the
// 16-bit step (2^-15 of full scale) and saturated to -32768..32767.
#include "mp3/synthesis.hpp"

#include "core/context.hpp"
#include "core/exports.hpp"
#include "mp3/mp3_math.hpp"
#include "mp3/synthesis_window_table.hpp"

namespace akl::mp3 {

namespace {

// The 32-point DCT-II, split twice into even and odd halves: with
// u[k] = S[k] + S[31-k] and d[k] = S[k] - S[31-k] (k < 16), the odd outputs
// A[2p+1] are a 16 x 16 product on d; with u2[k] = u[k] + u[15-k] and
// d2[k] = u[k] - u[15-k] (k < 8), A[4r+2] is an 8 x 8 product on d2 and
// A[4r] an 8-point DCT-II of u2.  384 multiplies instead of 1024.
// Operands reach 2^30 (d), 2^31 (u2, d2); the odd matrices are in Q29 (row
// sums of |cos| stay below 10.2 and 5.2, so 64-bit sums stay below 2^62.4),
// the DCT-8 in Q28 (its first row sums to 8).
struct DctTables {
  std::int32_t odd16[16][16];  // cos((2p+1)(2k+1) pi/64), Q29
  std::int32_t odd8[8][8];     // cos((2r+1)(2k+1) pi/32), Q29
  std::int32_t dct8[8][8];     // cos(r (2k+1) pi/16), Q28
};
constexpr DctTables MakeDct() {
  DctTables t{};
  for (int p = 0; p < 16; ++p)
    for (int k = 0; k < 16; ++k) t.odd16[p][k] = ConstQ(ConstCos(kPi / 64.0 * (2 * p + 1) * (2 * k + 1)), 29);
  for (int r = 0; r < 8; ++r)
    for (int k = 0; k < 8; ++k) {
      t.odd8[r][k] = ConstQ(ConstCos(kPi / 32.0 * (2 * r + 1) * (2 * k + 1)), 29);
      t.dct8[r][k] = ConstQ(ConstCos(kPi / 16.0 * r * (2 * k + 1)), 28);
    }
  return t;
}
inline constexpr DctTables kDct = MakeDct();

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
  for (int p = 0; p < 16; ++p) {
    std::int64_t acc = 0;
    for (int k = 0; k < 16; ++k) acc += d[k] * kDct.odd16[p][k];
    a[2 * p + 1] = SatS32(RoundShr(acc, 30));  // Q55 -> Q25
  }
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

void SynthSlotKernel(const std::int32_t* s, std::int16_t* pcm, int stride, std::int32_t* history,
                     std::int32_t* offset) {
  const int slot0 = (*offset + kSynthSlots - 1) % kSynthSlots;
  *offset = slot0;
  constexpr std::int32_t kClamp = (1 << 29) - 1;
  std::int32_t clamped[32];
  for (int k = 0; k < 32; ++k) clamped[k] = s[k] > kClamp ? kClamp : s[k] < -kClamp ? -kClamp : s[k];
  Dct32(clamped, history + kSynthSlotValues * slot0);
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
  return FreeKeepingTag<PqmfSynthState>(pState, kContextAlign, kTagSynthesisPqmfMp3);
}

Status aklsSynthesisFilter_PQMF_MP3_32f(const Akl32f* pSrc, Akl32f* pDst, AklsFilterState_PQMF_MP3_32f* pState,
                                        int numSlots) {
  if (!pSrc || !pDst || !pState) return kStsNullPtr;
  if (numSlots < 1) return kStsSizeErr;
  PqmfSynthState* st = TaggedContext<PqmfSynthState>(static_cast<void*>(pState), kContextAlign, kTagSynthesisPqmfMp3);
  if (!st) return kStsContextMismatch;
  for (int t = 0; t < numSlots; ++t) SynthSlotFloat(pSrc + 32 * t, pDst + 32 * t, st->history, &st->offset);
  return kStsOk;
}

}  // namespace akl::mp3
