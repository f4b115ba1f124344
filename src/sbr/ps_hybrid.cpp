// Parametric-stereo hybrid filter bank: splits the lowest QMF bands into
// narrower sub-bands (analysis) and sums them back (synthesis).
//
// Two layouts, named by the number of stereo parameter bands they serve:
//   20: QMF band 0 -> eight complex sub-bands, of which the pairs (2, 5) and
//       (3, 4) are added, giving six; bands 1 and 2 -> two real sub-bands
//       each.  Ten hybrid bands.
//   34: QMF band 0 -> twelve complex sub-bands, band 1 -> eight, bands 2, 3
//       and 4 -> four each.  Thirty-two hybrid bands.
// Each sub-band filter is a 13-tap FIR on the QMF band's complex signal,
//   y_q(t) = sum_{n=0}^{12} G_q(n) x(t - n),
// from a symmetric prototype g (g(12 - n) = g(n)): the complex members
//   G_q(n) = g(n) exp(i 2 pi (q + 1/2)(n - 6) / Q),  q = 0..Q-1,
// the real pair (Q = 2) G_0(n) = g(n), G_1(n) = g(n) (-1)^(n - 6).  The
// filters of one band add up to a delay of 6 slots (sum_q G_q(n) is 1 at
// n = 6 and 0 elsewhere), so summing the sub-bands restores the QMF band six
// slots late: the synthesis is that sum.
//
// Hybrid band order (k), low frequencies first in the sense of the
// decorrelator's band centres:
//   20: k 0, 1 = band 0 sub-bands 6, 7; k 2, 3 = sub-bands 0, 1;
//       k 4 = 2 + 5; k 5 = 3 + 4; k 6, 7 = band 1 G_1, G_0; k 8, 9 = band 2 G_0, G_1.
//   34: k 0..11 = band 0 sub-bands 0..11; 12..19 = band 1 sub-bands 0..7;
//       20..23, 24..27, 28..31 = bands 2, 3, 4 sub-bands 0..3.
//
// The analysis context keeps the last 12 slots of QMF bands 0..4 whichever
// layout is asked for, so a stream may change layout between calls.
#include <cmath>
#include <cstring>

#include "core/context.hpp"
#include "core/exports.hpp"

namespace akl::sbr {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kTaps = 13;
constexpr int kHistory = kTaps - 1;
constexpr int kLowBands = 5;

// Prototypes g(0..6) (g(12 - n) = g(n)).
constexpr double kG0Q8[7] = {0.00746082949812, 0.02270420949825, 0.04546865930473, 0.07266113929591,
                             0.09885108575264, 0.11793710567217, 0.125};
constexpr double kG1Q2[7] = {0.0, 0.01899487526049, 0.0, -0.07293139167538, 0.0, 0.30596630545168, 0.5};
constexpr double kG0Q12[7] = {0.04081179924692, 0.03812810994926, 0.05144908135699, 0.06399831151592,
                              0.07428313801106, 0.08100347892914, 0.08333333333333};
constexpr double kG1Q8[7] = {0.01565675600122, 0.03752716391991, 0.05417891378782, 0.08417044116767,
                             0.10307344158036, 0.12222452249753, 0.125};
constexpr double kG2Q4[7] = {-0.05908211155639, -0.04871498374946, 0.0, 0.07778723915851,
                             0.16486303567403, 0.23279856662996, 0.25};

struct Taps {
  float re[kTaps];
  float im[kTaps];
};

struct HybridState {
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s reserved[2];
  Taps q8_20[8];    // 20 layout, band 0
  float q2_20[kTaps];  // 20 layout, bands 1 and 2: g; G_1 = g (-1)^(n - 6)
  Taps q12_34[12];  // 34 layout, band 0
  Taps q8_34[8];    // band 1
  Taps q4_34[4];    // bands 2..4
  // hist[b][j]: QMF band b, j = 0..11 the last 12 slots, oldest first.
  Akl32fc hist[kLowBands][kHistory];
};
constexpr int kHybridStateSize = static_cast<int>(sizeof(HybridState) + kContextAlign);

double Proto(const double* g, int n) { return g[n <= 6 ? n : 12 - n]; }

void MakeComplex(const double* g, int q_count, Taps* out) {
  for (int q = 0; q < q_count; ++q) {
    for (int n = 0; n < kTaps; ++n) {
      const double theta = 2.0 * kPi * (q + 0.5) * (n - 6) / q_count;
      out[q].re[n] = static_cast<float>(Proto(g, n) * std::cos(theta));
      out[q].im[n] = static_cast<float>(Proto(g, n) * std::sin(theta));
    }
  }
}

void BuildHybrid(void* raw, int owned) {
  HybridState* st = ContextAt<HybridState>(raw, kContextAlign);
  st->tag = kTagHybridPs32fc;
  st->ownedByLibrary = owned;
  st->reserved[0] = st->reserved[1] = 0;
  MakeComplex(kG0Q8, 8, st->q8_20);
  for (int n = 0; n < kTaps; ++n) st->q2_20[n] = static_cast<float>(Proto(kG1Q2, n));
  MakeComplex(kG0Q12, 12, st->q12_34);
  MakeComplex(kG1Q8, 8, st->q8_34);
  MakeComplex(kG2Q4, 4, st->q4_34);
  std::memset(st->hist, 0, sizeof st->hist);
}

// x[0..12]: one band's signal, oldest first (x[12] = the current slot), so
// y = sum_n G(n) x[12 - n].
Akl32fc Complex(const Taps& t, const Akl32fc* x) {
  float re = 0.0f, im = 0.0f;
  for (int n = 0; n < kTaps; ++n) {
    const Akl32fc v = x[kHistory - n];
    re += t.re[n] * v.re - t.im[n] * v.im;
    im += t.re[n] * v.im + t.im[n] * v.re;
  }
  return {re, im};
}

// The real pair on one band: G_0 (lowpass) and G_1 (the odd taps negated
// around the centre; the prototype's other even taps are zero).
void RealPair(const float* g, const Akl32fc* x, Akl32fc* y0, Akl32fc* y1) {
  float er = 0.0f, ei = 0.0f, orr = 0.0f, oi = 0.0f;
  for (int n = 0; n < kTaps; ++n) {
    const Akl32fc v = x[kHistory - n];
    if ((n - 6) & 1) {
      orr += g[n] * v.re;
      oi += g[n] * v.im;
    } else {
      er += g[n] * v.re;
      ei += g[n] * v.im;
    }
  }
  *y0 = {er + orr, ei + oi};
  *y1 = {er - orr, ei - oi};
}

void AnalysisSlot(HybridState& st, const Akl32fc* src, Akl32fc* dst, int config) {
  Akl32fc x[kLowBands][kTaps];
  for (int b = 0; b < kLowBands; ++b) {
    std::memcpy(x[b], st.hist[b], sizeof(Akl32fc) * kHistory);
    x[b][kHistory] = src[b];
    std::memcpy(st.hist[b], x[b] + 1, sizeof(Akl32fc) * kHistory);
  }
  if (config == 20) {
    Akl32fc s[8];
    for (int q = 0; q < 8; ++q) s[q] = Complex(st.q8_20[q], x[0]);
    dst[0] = s[6];
    dst[1] = s[7];
    dst[2] = s[0];
    dst[3] = s[1];
    dst[4] = {s[2].re + s[5].re, s[2].im + s[5].im};
    dst[5] = {s[3].re + s[4].re, s[3].im + s[4].im};
    RealPair(st.q2_20, x[1], &dst[7], &dst[6]);
    RealPair(st.q2_20, x[2], &dst[8], &dst[9]);
  } else {
    for (int q = 0; q < 12; ++q) dst[q] = Complex(st.q12_34[q], x[0]);
    for (int q = 0; q < 8; ++q) dst[12 + q] = Complex(st.q8_34[q], x[1]);
    for (int b = 2; b < 5; ++b)
      for (int q = 0; q < 4; ++q) dst[20 + 4 * (b - 2) + q] = Complex(st.q4_34[q], x[b]);
  }
}

int HybridBands(int config) { return config == 20 ? 10 : 32; }
int QmfBands(int config) { return config == 20 ? 3 : 5; }

}  // namespace

Status aklsAnalysisFilterGetSize_PS_32fc(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = kHybridStateSize;
  return kStsOk;
}

Status aklsAnalysisFilterInit_PS_32fc(AklsAnalysisState_PS_32fc* pState) {
  if (!pState) return kStsNullPtr;
  BuildHybrid(pState, 0);
  return kStsOk;
}

Status aklsAnalysisFilterInitAlloc_PS_32fc(AklsAnalysisState_PS_32fc** ppState) {
  if (!ppState) return kStsNullPtr;
  return InitAllocWith(kHybridStateSize, ppState, [](AklsAnalysisState_PS_32fc* raw) {
    BuildHybrid(raw, 1);
    return kStsOk;
  });
}

Status aklsAnalysisFilterFree_PS_32fc(AklsAnalysisState_PS_32fc* pState) {
  return FreeKeepingTag<HybridState>(pState, kContextAlign, kTagHybridPs32fc);
}

Status aklsAnalysisFilter_PS_32fc_D2(const Akl32fc* pSrc, int srcStep, Akl32fc* pDst, int dstStep, int numSlots,
                                     int config, AklsAnalysisState_PS_32fc* pState) {
  if (!pSrc || !pDst || !pState) return kStsNullPtr;
  if (numSlots < 1) return kStsSizeErr;
  if (config != 20 && config != 34) return kStsBadArgErr;
  if (srcStep < kLowBands || dstStep < HybridBands(config)) return kStsSizeErr;
  HybridState* st = TaggedContext<HybridState>(static_cast<void*>(pState), kContextAlign, kTagHybridPs32fc);
  if (!st) return kStsContextMismatch;
  for (int t = 0; t < numSlots; ++t) AnalysisSlot(*st, pSrc + srcStep * t, pDst + dstStep * t, config);
  return kStsOk;
}

Status aklsSynthesisFilter_PS_32fc_D2(const Akl32fc* pSrc, int srcStep, Akl32fc* pDst, int dstStep, int numSlots,
                                      int config) {
  if (!pSrc || !pDst) return kStsNullPtr;
  if (numSlots < 1) return kStsSizeErr;
  if (config != 20 && config != 34) return kStsBadArgErr;
  if (srcStep < HybridBands(config) || dstStep < QmfBands(config)) return kStsSizeErr;
  // First hybrid band of each QMF band, and one past the last.
  static constexpr int kEdges20[4] = {0, 6, 8, 10};
  static constexpr int kEdges34[6] = {0, 12, 20, 24, 28, 32};
  const int* edges = config == 20 ? kEdges20 : kEdges34;
  const int bands = QmfBands(config);
  for (int t = 0; t < numSlots; ++t) {
    const Akl32fc* s = pSrc + srcStep * t;
    Akl32fc* d = pDst + dstStep * t;
    for (int b = 0; b < bands; ++b) {
      float re = 0.0f, im = 0.0f;
      for (int k = edges[b]; k < edges[b + 1]; ++k) {
        re += s[k].re;
        im += s[k].im;
      }
      d[b] = {re, im};
    }
  }
  return kStsOk;
}

}  // namespace akl::sbr
