// SBR QMF banks: the 32-band complex analysis bank, the 64-band complex
// synthesis bank and the 32-band synthesis of down-sampled SBR, on floats.
//
// Analysis, one time slot of 32 new samples: with x the last 320 input
// samples, x(0) the newest,
//   z(n) = x(n) c(2n),  u(n) = sum_{j=0}^{4} z(n + 64j),  n = 0..63,
//   X(k) = 2 sum_{n=0}^{63} u(n) exp(i pi/64 (k + 1/2)(2n - 1/2)),  k = 0..31.
// Synthesis (64 bands), one slot: the FIFO v of 1280 values moves up by 128,
//   v(n) = 1/64 sum_{k=0}^{63} Re(X(k) exp(i pi/128 (k + 1/2)(2n - 255))),  n = 0..127,
//   g(128i + j) = v(256i + j),  g(128i + 64 + j) = v(256i + 192 + j),  i = 0..4, j = 0..63,
//   out(j) = sum_{i=0}^{9} g(64i + j) c(64i + j),  j = 0..63.
// Down-sampled synthesis (32 bands): v of 640 values moves up by 64,
//   v(n) = 1/64 sum_{k=0}^{31} Re(X(k) exp(i pi/64 (k + 1/2)(2n - 127.5))),  n = 0..63,
//   g(64i + j) = v(128i + j),  g(64i + 32 + j) = v(128i + 96 + j),  j = 0..31,
//   out(j) = sum_{i=0}^{9} g(32i + j) c(2(32i + j)).
// With these scales and phases a signal analysed and synthesised again comes
// back at its own amplitude: through the down-sampled bank as a plain delay
// of 289 samples, through the full bank interpolated to twice the rate and
// delayed by 578 of its samples.  The half-sample phase offset of the
// down-sampled bank (127.5, not 127) is what makes its pairing with the
// analysis bank cancel the aliasing of neighbouring bands; with 127 an
// impulse comes back smeared over three samples.
//
// The synthesis matrix is split into an N-point DCT-IV and DST-IV (N the
// band count): writing n = N + m the phase is
// pi/N (k + 1/2)(m + 1/2) - pi (k + 1/2) (minus pi (k + 1/2)/128 more in the
// down-sampled bank, applied to X(k) first), so with
// Y(k) = (-1)^k (-i) X(k) = a(k) + i b(k), C(m) = sum a(k) cos(phi),
// S(m) = sum b(k) sin(phi):
//   v(N + m) = C(m) - S(m),  v(N - 1 - m) = C(m) + S(m),  m = 0..N-1,
// half the products of the plain matrix.  The products run as multiply-adds
// of one input value into a row of outputs (band-major tables), which the
// compiler vectorises without reordering any sum.
//
// Every context holds its constant tables (computed in double at Init and
// rounded once to float) and the history of one channel; the history is
// kept in a linear buffer a few dozen slots long and moved back only when
// the newest slot reaches its end, so a slot never shifts the whole FIFO.
#include <cmath>
#include <cstddef>
#include <cstring>

#include "core/context.hpp"
#include "core/exports.hpp"
#include "sbr/qmf_window_table.hpp"

namespace akl::sbr {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kChunkSlots = 32;  // slots between two moves of a history buffer

// ---------------------------------------------------------------------------
// Analysis (tag 0x434D4156).

constexpr int kAnaHistory = 320;
constexpr int kAnaBuffer = kAnaHistory + 32 * kChunkSlots;

struct AnalysisState {
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s end;  // input samples buf[end - 320 .. end - 1] are the newest 320, oldest first
  Akl32s reserved;
  float window[kAnaHistory];  // window[m] = c(2 (319 - m)): the time-ordered buffer's weights
  float cos_t[64][32];        // 2 cos(pi/64 (k + 1/2)(2n - 1/2)), row n
  float sin_t[64][32];        // 2 sin(...), row n
  float buf[kAnaBuffer];
};
constexpr int kAnalysisStateSize = static_cast<int>(sizeof(AnalysisState) + kContextAlign);

void BuildAnalysis(void* raw, int owned) {
  AnalysisState* st = ContextAt<AnalysisState>(raw, kContextAlign);
  st->tag = kTagAnalysisSbrRToC32f32fc;
  st->ownedByLibrary = owned;
  st->end = kAnaHistory;
  st->reserved = 0;
  for (int m = 0; m < kAnaHistory; ++m) st->window[m] = static_cast<float>(kQmfWindow[2 * (kAnaHistory - 1 - m)]);
  for (int n = 0; n < 64; ++n) {
    for (int k = 0; k < 32; ++k) {
      const double phase = kPi / 64.0 * (k + 0.5) * (2.0 * n - 0.5);
      st->cos_t[n][k] = static_cast<float>(2.0 * std::cos(phase));
      st->sin_t[n][k] = static_cast<float>(2.0 * std::sin(phase));
    }
  }
  std::memset(st->buf, 0, sizeof st->buf);
}

void AnalysisSlot(AnalysisState& st, const float* src, Akl32fc* dst, int num_bands) {
  if (st.end + 32 > kAnaBuffer) {
    std::memmove(st.buf, st.buf + st.end - (kAnaHistory - 32), sizeof(float) * (kAnaHistory - 32));
    st.end = kAnaHistory - 32;
  }
  std::memcpy(st.buf + st.end, src, sizeof(float) * 32);
  st.end += 32;
  const float* w = st.buf + st.end - kAnaHistory;  // oldest first: x(n) = w[319 - n]
  float z[kAnaHistory];
  for (int m = 0; m < kAnaHistory; ++m) z[m] = w[m] * st.window[m];
  // u(n) = sum_j z(n + 64j), z(p) = z[319 - p]
  float u[64];
  for (int n = 0; n < 64; ++n) {
    const int m = kAnaHistory - 1 - n;
    u[n] = z[m] + z[m - 64] + z[m - 128] + z[m - 192] + z[m - 256];
  }
  float re[32] = {};
  float im[32] = {};
  for (int n = 0; n < 64; ++n) {
    const float un = u[n];
    for (int k = 0; k < 32; ++k) {
      re[k] += un * st.cos_t[n][k];
      im[k] += un * st.sin_t[n][k];
    }
  }
  for (int k = 0; k < num_bands; ++k) dst[k] = {re[k], im[k]};
  for (int k = num_bands; k < 32; ++k) dst[k] = {0.0f, 0.0f};
}

// ---------------------------------------------------------------------------
// Synthesis, full (64 bands, tag 0x434D4159) and down-sampled (32 bands,
// tag 0x434D415C): one template over the band count N.

template <int N>
struct SynthesisState {
  static constexpr int kFifo = 20 * N;  // v: 1280 or 640 values
  static constexpr int kBuffer = kFifo + 2 * N * kChunkSlots;
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s base;  // v(n) = buf[base + n]
  Akl32s reserved;
  static constexpr std::size_t kN = static_cast<std::size_t>(N);
  float window[10 * kN];  // c(j) (N = 64) or c(2j) (N = 32), j = 0..10N-1
  float cos_t[kN][kN];    // cos(pi/N (k + 1/2)(m + 1/2)) / 64, row k
  float sin_t[kN][kN];    // sin(...) / 64, row k
  float twiddle[kN][2];   // down-sampled bank: exp(-i pi (k + 1/2)/128); full bank: 1
  float buf[static_cast<std::size_t>(kBuffer)];
};

template <int N>
constexpr int SynthesisStateSize() {
  return static_cast<int>(sizeof(SynthesisState<N>) + kContextAlign);
}

template <int N>
void BuildSynthesis(void* raw, int owned, ContextTag tag) {
  auto* st = ContextAt<SynthesisState<N>>(raw, kContextAlign);
  st->tag = tag;
  st->ownedByLibrary = owned;
  st->base = SynthesisState<N>::kBuffer - SynthesisState<N>::kFifo;
  st->reserved = 0;
  const int step = 64 / N;
  for (int j = 0; j < 10 * N; ++j) st->window[j] = static_cast<float>(kQmfWindow[step * j]);
  for (int k = 0; k < N; ++k) {
    for (int m = 0; m < N; ++m) {
      const double phase = kPi / N * (k + 0.5) * (m + 0.5);
      st->cos_t[k][m] = static_cast<float>(std::cos(phase) / 64.0);
      st->sin_t[k][m] = static_cast<float>(std::sin(phase) / 64.0);
    }
    const double shift = N == 64 ? 0.0 : -kPi * (k + 0.5) / 128.0;
    st->twiddle[k][0] = static_cast<float>(std::cos(shift));
    st->twiddle[k][1] = static_cast<float>(std::sin(shift));
  }
  std::memset(st->buf, 0, sizeof st->buf);
}

template <int N>
void SynthesisSlot(SynthesisState<N>& st, const Akl32fc* src, float* dst) {
  constexpr int kFifo = SynthesisState<N>::kFifo;
  constexpr int kKeep = kFifo - 2 * N;
  if (st.base < 2 * N) {
    constexpr int top = SynthesisState<N>::kBuffer - kKeep;
    std::memmove(st.buf + top, st.buf + st.base, sizeof(float) * kKeep);
    st.base = top;
  }
  st.base -= 2 * N;
  float* v = st.buf + st.base;
  constexpr std::size_t kN = SynthesisState<N>::kN;
  float c[kN] = {};
  float s[kN] = {};
  for (int k = 0; k < N; ++k) {
    float xr = src[k].re;
    float xi = src[k].im;
    if (N == 32) {
      const float tr = st.twiddle[k][0];
      const float ti = st.twiddle[k][1];
      const float r = xr * tr - xi * ti;
      xi = xr * ti + xi * tr;
      xr = r;
    }
    // a = (-1)^k Im X, b = -(-1)^k Re X
    const float a = (k & 1) ? -xi : xi;
    const float b = (k & 1) ? xr : -xr;
    for (int m = 0; m < N; ++m) {
      c[m] += a * st.cos_t[k][m];
      s[m] += b * st.sin_t[k][m];
    }
  }
  for (int m = 0; m < N; ++m) {
    v[N + m] = c[m] - s[m];
    v[N - 1 - m] = c[m] + s[m];
  }
  float out[kN] = {};
  for (int i = 0; i < 5; ++i) {
    const float* v0 = v + 4 * N * i;
    const float* v1 = v + 4 * N * i + 3 * N;
    const float* c0 = st.window + 2 * N * i;
    const float* c1 = st.window + 2 * N * i + N;
    for (int j = 0; j < N; ++j) out[j] += v0[j] * c0[j] + v1[j] * c1[j];
  }
  std::memcpy(dst, out, sizeof out);
}

template <int N>
Status SynthesisRun(const Akl32fc* const* src, Akl32f* dst, int num_slots, void* state, ContextTag tag) {
  auto* st = TaggedContext<SynthesisState<N>>(state, kContextAlign, tag);
  if (!st) return kStsContextMismatch;
  for (int t = 0; t < num_slots; ++t) SynthesisSlot<N>(*st, src[t], dst + N * t);
  return kStsOk;
}

}  // namespace

// ---------------------------------------------------------------------------
// Exports: analysis.

Status aklsAnalysisFilterGetSize_SBR_RToC_32f32fc(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = kAnalysisStateSize;
  return kStsOk;
}

Status aklsAnalysisFilterInit_SBR_RToC_32f32fc(AklsAnalysisState_SBR_32f* pState) {
  if (!pState) return kStsNullPtr;
  BuildAnalysis(pState, 0);
  return kStsOk;
}

Status aklsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(AklsAnalysisState_SBR_32f** ppState) {
  if (!ppState) return kStsNullPtr;
  return InitAllocWith(kAnalysisStateSize, ppState, [](AklsAnalysisState_SBR_32f* raw) {
    BuildAnalysis(raw, 1);
    return kStsOk;
  });
}

Status aklsAnalysisFilterFree_SBR_RToC_32f32fc(AklsAnalysisState_SBR_32f* pState) {
  return FreeKeepingTag<AnalysisState>(pState, kContextAlign, kTagAnalysisSbrRToC32f32fc);
}

Status aklsAnalysisFilter_SBR_RToC_32f32fc_D2L(const Akl32f* pSrc, Akl32fc* const* ppDst, int numSlots,
                                               int numBands, AklsAnalysisState_SBR_32f* pState) {
  if (!pSrc || !ppDst || !pState) return kStsNullPtr;
  if (numSlots < 1 || numBands < 0 || numBands > 32) return kStsSizeErr;
  AnalysisState* st = TaggedContext<AnalysisState>(static_cast<void*>(pState), kContextAlign,
                                                   kTagAnalysisSbrRToC32f32fc);
  if (!st) return kStsContextMismatch;
  for (int t = 0; t < numSlots; ++t) AnalysisSlot(*st, pSrc + 32 * t, ppDst[t], numBands);
  return kStsOk;
}

// ---------------------------------------------------------------------------
// Exports: 64-band synthesis.

Status aklsSynthesisFilterGetSize_SBR_CToR_32fc32f(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = SynthesisStateSize<64>();
  return kStsOk;
}

Status aklsSynthesisFilterInit_SBR_CToR_32fc32f(AklsSynthesisState_SBR_32f* pState) {
  if (!pState) return kStsNullPtr;
  BuildSynthesis<64>(pState, 0, kTagSynthesisSbrCToR32fc32f);
  return kStsOk;
}

Status aklsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(AklsSynthesisState_SBR_32f** ppState) {
  if (!ppState) return kStsNullPtr;
  return InitAllocWith(SynthesisStateSize<64>(), ppState, [](AklsSynthesisState_SBR_32f* raw) {
    BuildSynthesis<64>(raw, 1, kTagSynthesisSbrCToR32fc32f);
    return kStsOk;
  });
}

Status aklsSynthesisFilterFree_SBR_CToR_32fc32f(AklsSynthesisState_SBR_32f* pState) {
  return FreeKeepingTag<SynthesisState<64>>(pState, kContextAlign, kTagSynthesisSbrCToR32fc32f);
}

Status aklsSynthesisFilter_SBR_CToR_32fc32f_D2L(const Akl32fc* const* ppSrc, Akl32f* pDst, int numSlots,
                                                AklsSynthesisState_SBR_32f* pState) {
  if (!ppSrc || !pDst || !pState) return kStsNullPtr;
  if (numSlots < 1) return kStsSizeErr;
  return SynthesisRun<64>(ppSrc, pDst, numSlots, pState, kTagSynthesisSbrCToR32fc32f);
}

// ---------------------------------------------------------------------------
// Exports: 32-band down-sampled synthesis.

Status aklsSynthesisDownFilterGetSize_SBR_CToR_32fc32f(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = SynthesisStateSize<32>();
  return kStsOk;
}

Status aklsSynthesisDownFilterInit_SBR_CToR_32fc32f(AklsSynthesisDownState_SBR_32f* pState) {
  if (!pState) return kStsNullPtr;
  BuildSynthesis<32>(pState, 0, kTagSynthesisDownSbrCToR32fc32f);
  return kStsOk;
}

Status aklsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(AklsSynthesisDownState_SBR_32f** ppState) {
  if (!ppState) return kStsNullPtr;
  return InitAllocWith(SynthesisStateSize<32>(), ppState, [](AklsSynthesisDownState_SBR_32f* raw) {
    BuildSynthesis<32>(raw, 1, kTagSynthesisDownSbrCToR32fc32f);
    return kStsOk;
  });
}

Status aklsSynthesisDownFilterFree_SBR_CToR_32fc32f(AklsSynthesisDownState_SBR_32f* pState) {
  return FreeKeepingTag<SynthesisState<32>>(pState, kContextAlign, kTagSynthesisDownSbrCToR32fc32f);
}

Status aklsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(const Akl32fc* const* ppSrc, Akl32f* pDst, int numSlots,
                                                    AklsSynthesisDownState_SBR_32f* pState) {
  if (!ppSrc || !pDst || !pState) return kStsNullPtr;
  if (numSlots < 1) return kStsSizeErr;
  return SynthesisRun<32>(ppSrc, pDst, numSlots, pState, kTagSynthesisDownSbrCToR32fc32f);
}

}  // namespace akl::sbr
