// Frequency-domain prediction of the AAC Main profile: one second-order
// backward-adaptive lattice predictor per spectral line below the prediction
// limit, its state kept in a 16-bit float format so that every decoder (and
// the encoder) computes the same estimates.
#include <cstring>

#include "aac/predict.hpp"
#include "aac/tables.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace predict {

// Prediction limit (bands) by sampling-frequency index.
const std::uint8_t kPredSfbMax[12] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34};

namespace {
constexpr float kAlpha = 0.90625f;  // forgetting factor of the estimates, 29/32
constexpr float kA = 0.953125f;     // attenuation of the lattice registers, 61/64
constexpr float kB = 0.953125f;     // attenuation of the coefficients, 61/64

// A stage's coefficient b * cor / var, the quotient in the short format.  A
// stage whose energy has not grown above its start value 1 contributes 0.
inline float Coefficient(float cor, float var) { return var > 1.0f ? cor * Round16(kB / var) : 0.0f; }
}  // namespace

float PredictLine(Predictor& p, float x, bool use) {
  const float k1 = Coefficient(p.cor0, p.var0);
  const float k2 = Coefficient(p.cor1, p.var1);
  const float r0 = p.r0, r1 = p.r1;
  const float estimate = Round16(k1 * r0 + k2 * r1);
  const float e0 = use ? x + estimate : x;
  const float e1 = e0 - k1 * r0;
  p.cor1 = Trunc16(kAlpha * p.cor1 + r1 * e1);
  p.var1 = Trunc16(kAlpha * p.var1 + 0.5f * (r1 * r1 + e1 * e1));
  p.cor0 = Trunc16(kAlpha * p.cor0 + r0 * e0);
  p.var0 = Trunc16(kAlpha * p.var0 + 0.5f * (r0 * r0 + e0 * e0));
  p.r1 = Trunc16(kA * (r0 - k1 * e0));
  p.r0 = Trunc16(kA * e0);
  return e0;
}

namespace {

void ResetAll(FdpState& s) {
  for (Predictor& p : s.pred) ResetPredictor(p);
}

void Build(FdpState* s, int sf_index, int owned) {
  std::memset(s, 0, sizeof(*s));
  s->ownedByLibrary = owned;
  s->sfIndex = sf_index;
  s->predSfbMax = kPredSfbMax[sf_index];
  s->numPredictors = kSwbOffsetLong[sf_index][s->predSfbMax];
  ResetAll(*s);
  s->tag = kTagFdpState;
}

constexpr int kFdpSize = static_cast<int>(sizeof(FdpState) + kContextAlign);

}  // namespace
}  // namespace predict

using namespace predict;

Status aklsFDPGetSize_32f(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = kFdpSize;
  return kStsOk;
}

Status aklsFDPInit_32f(Akl32s samplingFrequencyIndex, AklsFDPState_32f* pState) {
  if (!pState) return kStsNullPtr;
  if (static_cast<Akl32u>(samplingFrequencyIndex) > 11u) return kStsAacSmpRateIdxErr;
  Build(ContextAt<FdpState>(pState, kContextAlign), samplingFrequencyIndex, 0);
  return kStsOk;
}

Status aklsFDPInitAlloc_32f(Akl32s samplingFrequencyIndex, AklsFDPState_32f** ppState) {
  if (!ppState) return kStsNullPtr;
  if (static_cast<Akl32u>(samplingFrequencyIndex) > 11u) return kStsAacSmpRateIdxErr;
  return InitAllocWith(kFdpSize, ppState, [&](AklsFDPState_32f* raw) {
    Build(ContextAt<FdpState>(raw, kContextAlign), samplingFrequencyIndex, 1);
    return kStsOk;
  });
}

Status aklsFDPFree_32f(AklsFDPState_32f* pState) {
  return FreeKeepingTag<FdpState>(pState, kContextAlign, kTagFdpState);
}

Status aklsFDPReset_32f(AklsFDPState_32f* pState) {
  if (!pState) return kStsNullPtr;
  FdpState* s = TaggedContext<FdpState>(pState, kContextAlign, kTagFdpState);
  if (!s) return kStsContextMismatch;
  ResetAll(*s);
  return kStsOk;
}

Status aklsFDP_32f(const Akl32f* pSrc, Akl32f* pDst, const AklAACIcsInfo* pIcsInfo, const Akl8u* pSfbCb,
                   AklsFDPState_32f* pState) {
  if (!pSrc || !pDst || !pIcsInfo || !pSfbCb || !pState) return kStsNullPtr;
  const AklAACIcsInfo& ics = *pIcsInfo;
  if (static_cast<Akl32u>(ics.windowSequence) > 3u) return kStsAacWinSeqErr;
  const bool is_short = ics.windowSequence == 2;
  if (!is_short && static_cast<Akl32u>(ics.maxSfb) > 51u) return kStsAacMaxSfbErr;
  const bool reset = !is_short && ics.predictorDataPresent && ics.predictorReset;
  if (reset && (ics.predictorResetGroupNum < 1 || ics.predictorResetGroupNum > kResetGroups)) return kStsBadArgErr;
  FdpState* s = TaggedContext<FdpState>(pState, kContextAlign, kTagFdpState);
  if (!s) return kStsContextMismatch;
  if (!is_short && ics.maxSfb > kNumSwbLong[s->sfIndex]) return kStsAacMaxSfbErr;

  if (pDst != pSrc) std::memmove(pDst, pSrc, sizeof(Akl32f) * 1024);
  if (is_short) {  // eight short windows are not predicted and restart every predictor
    ResetAll(*s);
    return kStsOk;
  }
  const std::uint16_t* offset = kSwbOffsetLong[s->sfIndex];
  const bool present = ics.predictorDataPresent != 0;
  for (int b = 0; b < s->predSfbMax; ++b) {
    const bool coded = b < ics.maxSfb;
    if (coded && pSfbCb[b] == 13) {  // a noise band: not predicted, its predictors restart
      for (int i = offset[b]; i < offset[b + 1]; ++i) ResetPredictor(s->pred[i]);
      continue;
    }
    const bool use = present && coded && ics.predictionUsed[b];
    for (int i = offset[b]; i < offset[b + 1]; ++i) pDst[i] = PredictLine(s->pred[i], pDst[i], use);
  }
  if (reset) {
    for (int i = ics.predictorResetGroupNum - 1; i < s->numPredictors; i += kResetGroups) ResetPredictor(s->pred[i]);
  }
  return kStsOk;
}

}  // namespace akl::aac
