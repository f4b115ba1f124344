// Range checks and window grouping shared by the AAC spectral tools.
#include "aac/spectral.hpp"

namespace akl::aac::spectral {

Status CheckWindowArgs(Akl32s numWinGrp, Akl32s maxSfb, Akl32s sf_index, Akl32s winLen) {
  if (winLen != kShortWindow && winLen != kLongWindow) return kStsAacWinLenErr;
  if (winLen == kLongWindow ? numWinGrp != 1 : (numWinGrp < 1 || numWinGrp > 8)) return kStsAacWinGrpErr;
  if (static_cast<Akl32u>(maxSfb) > static_cast<Akl32u>(kMaxLongBands)) return kStsAacMaxSfbErr;
  if (static_cast<Akl32u>(sf_index) >= static_cast<Akl32u>(kNumSfIndex)) return kStsAacSmpRateIdxErr;
  return kStsOk;
}

Status MakeGrouping(Akl32s numWinGrp, const Akl32s* pWinGrpLen, Akl32s winLen, Grouping* g) {
  if (winLen == kLongWindow) {
    g->num_groups = 1;
    g->len[0] = 1;
    return kStsOk;
  }
  int total = 0;
  for (int i = 0; i < numWinGrp; ++i) {
    const Akl32s len = pWinGrpLen[i];
    if (len < 1 || len > 8) return kStsAacWinGrpErr;
    total += len;
    g->len[i] = len;
  }
  // Eight windows exactly: fewer would leave part of an output unwritten.
  if (total != 8) return kStsAacWinGrpErr;
  g->num_groups = numWinGrp;
  return kStsOk;
}

}  // namespace akl::aac::spectral
