// AAC temporal noise shaping: the decoder's all-pole filters and the
// encoder's all-zero filters that they invert, over band ranges of each
// window of a dequantized (Q3) spectrum.
#include <cstdint>

#include "aac/spectral.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace spectral {
namespace {

// TNS_MAX_BANDS by sampling index: long windows, short windows.
constexpr std::int8_t kTnsMaxBandsLong[kNumSfIndex] = {31, 31, 34, 40, 42, 51, 46, 46, 42, 42, 42, 39};
constexpr std::int8_t kTnsMaxBandsShort[kNumSfIndex] = {9, 9, 10, 14, 14, 14, 14, 14, 14, 14, 14, 14};

inline std::int32_t SatS32(std::int64_t v) {
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<std::int32_t>(v);
}

enum class TnsMode { kCheck, kDecode, kEncode };

// One filter over x[start], x[start + step], ... (count lines).  The
// accumulator is Q26 in 64 bits, wrapping rather than trapping on the
// overflow that only a garbage filter could cause; results saturate to 32 bits.
void FilterDecode(std::int32_t* x, int count, int step, const std::int32_t* lpc, int order) {
  std::int32_t state[kTnsMaxOrderMain] = {};
  for (int n = 0; n < count; ++n, x += step) {
    std::uint64_t acc = static_cast<std::uint64_t>(static_cast<std::int64_t>(*x)) << 26;
    for (int i = 0; i < order; ++i)
      acc -= static_cast<std::uint64_t>(static_cast<std::int64_t>(lpc[i + 1]) * state[i]);
    const std::int32_t y = SatS32(static_cast<std::int64_t>(acc) >> 26);
    for (int i = order - 1; i > 0; --i) state[i] = state[i - 1];
    state[0] = y;
    *x = y;
  }
}

void FilterEncode(std::int32_t* x, int count, int step, const std::int32_t* lpc, int order) {
  std::int32_t state[kTnsMaxOrderMain] = {};
  for (int n = 0; n < count; ++n, x += step) {
    const std::int32_t in = *x;
    std::uint64_t acc = static_cast<std::uint64_t>(static_cast<std::int64_t>(in)) << 26;
    for (int i = 0; i < order; ++i)
      acc += static_cast<std::uint64_t>(static_cast<std::int64_t>(lpc[i + 1]) * state[i]);
    for (int i = order - 1; i > 0; --i) state[i] = state[i - 1];
    state[0] = in;
    *x = SatS32(static_cast<std::int64_t>(acc) >> 26);
  }
}

// Walks the windows and filters in the order of the side information,
// checking each as it comes; filters as `mode` says.
Status TnsWalk(TnsMode mode, std::int32_t* spec, const Akl32s* pNumFilt, const Akl32s* pLength,
               const Akl32s* pOrder, const Akl32s* pCoefRes, const Akl8s* pCoef, const Akl32s* pDirection,
               int maxSfb, int sf_index, int winLen, int profile) {
  const bool is_short = winLen == kShortWindow;
  const BandTable bands = Bands(sf_index, winLen);
  const int tns_bands = is_short ? kTnsMaxBandsShort[sf_index] : kTnsMaxBandsLong[sf_index];
  const int tns_max = maxSfb < tns_bands ? maxSfb : tns_bands;
  const int windows = is_short ? 8 : 1;
  const int max_filters = is_short ? 1 : 3;
  // Long windows of the Main profile (profile 0) allow orders up to 20.
  const int max_order = is_short ? kTnsMaxOrderShort : profile == 0 ? kTnsMaxOrderMain : kTnsMaxOrderLong;
  int filt = 0, dir_index = 0;
  const Akl8s* coef = pCoef;
  for (int w = 0; w < windows; ++w) {
    const Akl32s nfilt = pNumFilt[w];
    if (nfilt < 0 || nfilt > max_filters) return kStsAacTnsNumFiltErr;
    int top = bands.numSwb;
    for (int f = 0; f < nfilt; ++f, ++filt) {
      const Akl32s length = pLength[filt];
      const Akl32s order = pOrder[filt];
      if (length < 0 || length > bands.numSwb) return kStsAacTnsLenErr;
      if (order < 0 || order > max_order) return kStsAacTnsOrderErr;
      const int bottom = top - length > 0 ? top - length : 0;
      if (order != 0) {
        const Akl32s res = pCoefRes[w];
        if (res != 3 && res != 4) return kStsAacTnsCoefResErr;
        for (int i = 0; i < order; ++i)
          if (coef[i] < -8 || coef[i] > 7) return kStsAacTnsCoefErr;
        std::int32_t lpc[kTnsMaxOrderMain + 1];
        TnsLpcFromCoefs(coef, order, res, lpc);
        coef += order;
        const Akl32s direction = pDirection[dir_index++];
        if (direction != 0 && direction != 1) return kStsAacTnsDirectErr;
        const int start = bands.offset[bottom < tns_max ? bottom : tns_max];
        const int end = bands.offset[top < tns_max ? top : tns_max];
        if (mode != TnsMode::kCheck && end > start) {
          std::int32_t* x = spec + w * kShortWindow + (direction ? end - 1 : start);
          const int step = direction ? -1 : 1;
          if (mode == TnsMode::kDecode)
            FilterDecode(x, end - start, step, lpc, order);
          else
            FilterEncode(x, end - start, step, lpc, order);
        }
      }
      top = bottom;
    }
  }
  return kStsOk;
}

Status CheckTnsArgs(const void* a, const void* b, const void* c, const void* d, const void* e, const void* f,
                    const void* g, Akl32s maxSfb, Akl32s sf_index, Akl32s winLen) {
  if (!a || !b || !c || !d || !e || !f || !g) return kStsNullPtr;
  if (winLen != kShortWindow && winLen != kLongWindow) return kStsAacWinLenErr;
  if (static_cast<Akl32u>(sf_index) >= static_cast<Akl32u>(kNumSfIndex)) return kStsAacSmpRateIdxErr;
  if (static_cast<Akl32u>(maxSfb) > static_cast<Akl32u>(kMaxLongBands)) return kStsAacMaxSfbErr;
  if (maxSfb > Bands(sf_index, winLen).numSwb) return kStsAacMaxSfbErr;
  return kStsOk;
}

}  // namespace

// Step-up recursion from reflection to direct-form coefficients.  The Q31
// reflection coefficients are rounded to Q23 so that every product with a
// Q26 coefficient (below 2^36 in magnitude for order 12) fits 64 bits; each
// product is rounded to nearest back to Q26.  Orders up to 20 (Main profile)
// take the product in 128 bits and keep the coefficients below 2^62.
void TnsLpcFromCoefs(const Akl8s* coef, int order, int coef_res, std::int32_t* lpc) {
  const std::int32_t* table = kTnsCoefQ31[coef_res == 4 ? 1 : 0];
  std::int64_t a[kTnsMaxOrderMain + 1] = {};
  std::int64_t tmp[kTnsMaxOrderMain + 1] = {};
  constexpr std::int64_t kLimit = std::int64_t{1} << 62;
  for (int m = 1; m <= order; ++m) {
    const std::int64_t k_q23 = (static_cast<std::int64_t>(table[coef[m - 1] + 8]) + (1 << 7)) >> 8;
    for (int i = 1; i < m; ++i) {
      const __int128 v = a[i] + ((static_cast<__int128>(k_q23) * a[m - i] + (1 << 22)) >> 23);
      tmp[i] = static_cast<std::int64_t>(v > kLimit ? kLimit : v < -kLimit ? -kLimit : v);
    }
    for (int i = 1; i < m; ++i) a[i] = tmp[i];
    a[m] = k_q23 * 8;  // Q23 -> Q26
  }
  lpc[0] = 1 << 26;
  for (int i = 1; i <= order; ++i) lpc[i] = SatS32(a[i]);
}

}  // namespace spectral

using namespace spectral;

Status aklsDecodeTNS_AAC_32s_I(Akl32s* pSrcDst, const Akl32s* pNumFilt, const Akl32s* pLength, const Akl32s* pOrder,
                               const Akl32s* pCoefRes, const Akl8s* pCoef, const Akl32s* pDirection, Akl32s maxSfb,
                               Akl32s profile, Akl32s samplingFrequencyIndex, Akl32s winLen) {
  if (const Status st = CheckTnsArgs(pSrcDst, pNumFilt, pLength, pOrder, pCoefRes, pCoef, pDirection, maxSfb,
                                     samplingFrequencyIndex, winLen);
      st != kStsOk)
    return st;
  return TnsWalk(TnsMode::kDecode, pSrcDst, pNumFilt, pLength, pOrder, pCoefRes, pCoef, pDirection, maxSfb,
                 samplingFrequencyIndex, winLen, profile);
}

Status aklsEncodeTNS_AAC_32s_I(Akl32s* pSrcDst, const Akl32s* pNumFilt, const Akl32s* pLength, const Akl32s* pOrder,
                               const Akl32s* pCoefRes, const Akl8s* pCoef, const Akl32s* pDirection, Akl32s maxSfb,
                               Akl32s profile, Akl32s samplingFrequencyIndex, Akl32s winLen) {
  if (const Status st = CheckTnsArgs(pSrcDst, pNumFilt, pLength, pOrder, pCoefRes, pCoef, pDirection, maxSfb,
                                     samplingFrequencyIndex, winLen);
      st != kStsOk)
    return st;
  // Every window and filter is checked before the first line changes.
  if (const Status st = TnsWalk(TnsMode::kCheck, pSrcDst, pNumFilt, pLength, pOrder, pCoefRes, pCoef, pDirection,
                                maxSfb, samplingFrequencyIndex, winLen, profile);
      st != kStsOk)
    return st;
  return TnsWalk(TnsMode::kEncode, pSrcDst, pNumFilt, pLength, pOrder, pCoefRes, pCoef, pDirection, maxSfb,
                 samplingFrequencyIndex, winLen, profile);
}

}  // namespace akl::aac
