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
#include "mp3/synthesis.hpp"

#include "core/context.hpp"
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
