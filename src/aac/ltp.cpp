// Long-term prediction of the AAC LTP profile: the estimate of a frame from
// the reconstructed output of the frames before it (a lag and a gain),
// brought to the frequency domain by the frame's own windows and forward
// transform, added band by band, and the history kept after each frame.
#include <cstring>

#include "aac/predict.hpp"
#include "aac/tables.hpp"
#include "core/exports.hpp"

namespace akl::aac {

using namespace predict;

namespace {
// The standard's gains for the eight Q14 codes of the record; any other Q14
// value is taken as it stands.
float LtpGain(Akl16s q14) {
  static constexpr Akl16s kCodes[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};
  static constexpr float kGains[8] = {0.570829f, 0.696616f, 0.813004f, 0.911304f,
                                      0.984900f, 1.067894f, 1.194601f, 1.369533f};
  for (int i = 0; i < 8; ++i)
    if (kCodes[i] == q14) return kGains[i];
  return static_cast<float>(q14) / 16384.0f;
}
}  // namespace

Status aklsLongTermPredict_AAC_32s(const Akl32s* pSrcHistory, Akl32s* pDstEstimate, const AklAACLtpData* pLtpData,
                                   Akl32s windowSequence, Akl32s windowShape, Akl32s prevWindowShape,
                                   const AklsMDCTSpec_AAC_32s* pSpec) {
  if (!pSrcHistory || !pDstEstimate || !pLtpData || !pSpec) return kStsNullPtr;
  if (static_cast<Akl32u>(windowSequence) > 3u || windowSequence == 2) return kStsAacWinSeqErr;
  if (static_cast<Akl32u>(windowShape) > 1u || static_cast<Akl32u>(prevWindowShape) > 1u) return kStsBadArgErr;
  if (static_cast<Akl32u>(pLtpData->ltpLag) > static_cast<Akl32u>(kLtpMaxLag)) return kStsBadArgErr;
  const MdctAacSpec* s = TaggedContext<MdctAacSpec>(pSpec, kContextAlign, kTagMdctAac);
  if (!s) return kStsContextMismatch;

  // x_est[i] = gain * history[i + 2048 - lag] while that lies inside the
  // history (the last 1024 entries hold the not yet overlapped half), else 0.
  alignas(64) float est[2048];
  const int lag = pLtpData->ltpLag;
  const float gain = LtpGain(pLtpData->ltpCoef);
  const int avail = lag < 1024 ? 1024 + lag : 2048;
  const Akl32s* h = pSrcHistory + 2048 - lag;
  for (int i = 0; i < avail; ++i) est[i] = gain * static_cast<float>(h[i]);
  for (int i = avail; i < 2048; ++i) est[i] = 0.0f;
  MdctFwdAacFloat(*s, est, pDstEstimate, windowSequence, windowShape, prevWindowShape);
  return kStsOk;
}

Status aklsLongTermReconstruct_AAC_32s(const Akl32s* pSrcEstimate, Akl32s* pSrcDstSpec, const Akl32s* pLongUsed,
                                       Akl32s maxSfb, Akl32s samplingFrequencyIndex) {
  if (!pSrcEstimate || !pSrcDstSpec || !pLongUsed) return kStsNullPtr;
  if (static_cast<Akl32u>(maxSfb) > 51u) return kStsAacMaxSfbErr;
  if (static_cast<Akl32u>(samplingFrequencyIndex) > 11u) return kStsAacSmpRateIdxErr;
  if (maxSfb > kNumSwbLong[samplingFrequencyIndex]) return kStsAacMaxSfbErr;
  if (!pLongUsed[0]) return kStsOk;
  const std::uint16_t* offset = kSwbOffsetLong[samplingFrequencyIndex];
  const int bands = maxSfb < kLtpMaxBands ? maxSfb : kLtpMaxBands;
  for (int b = 0; b < bands; ++b) {
    if (!pLongUsed[b + 1]) continue;
    for (int i = offset[b]; i < offset[b + 1]; ++i) {
      const std::int64_t v = static_cast<std::int64_t>(pSrcDstSpec[i]) + pSrcEstimate[i];
      pSrcDstSpec[i] = v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : static_cast<Akl32s>(v);
    }
  }
  return kStsOk;
}

Status aklsLtpUpdate_AAC_32s(Akl32s* pSrcDstHistory, const Akl32s* pSrcFrame, const Akl32s* pSrcOverlap) {
  if (!pSrcDstHistory || !pSrcFrame || !pSrcOverlap) return kStsNullPtr;
  std::memmove(pSrcDstHistory, pSrcDstHistory + 1024, sizeof(Akl32s) * 1024);
  std::memmove(pSrcDstHistory + 1024, pSrcFrame, sizeof(Akl32s) * 1024);
  std::memmove(pSrcDstHistory + 2048, pSrcOverlap, sizeof(Akl32s) * 1024);
  return kStsOk;
}

}  // namespace akl::aac
