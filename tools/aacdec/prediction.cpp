#include "aacdec/prediction.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace aacdec {
namespace {
// To a 32-bit integer: nearest, saturated.
Akl32s Saturate(double v) {
  const double r = std::nearbyint(v);
  if (!(r > -2147483648.0)) return r != r ? 0 : INT32_MIN;
  if (r >= 2147483647.0) return INT32_MAX;
  return static_cast<Akl32s>(r);
}
// The same for single-precision input, in the history update of every frame
// of every channel: branch-free, so that the loop vectorizes.  Adding and
// subtracting 1.5 * 2^52 rounds a double of magnitude below 2^51 to the
// nearest integer, ties to even, as nearbyint does.
inline Akl32s SaturateFloat(float v) {
  const double d = static_cast<double>(v);
  const double r = (d + 0x1.8p52) - 0x1.8p52;
  const double c = r < -2147483648.0 ? -2147483648.0 : (r > 2147483647.0 ? 2147483647.0 : r);
  return d == d ? static_cast<Akl32s>(c) : 0;
}
constexpr int kPredSfbMax[12] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34};

// Caller memory for a prediction state at a 64-byte boundary, so that two of
// them can be copied byte for byte.
struct StateMemory {
  std::vector<Akl8u> bytes;
  Akl8u* at = nullptr;
  void Allocate(int size) {
    bytes.assign(static_cast<std::size_t>(size) + 64, 0);
    const auto addr = reinterpret_cast<std::uintptr_t>(bytes.data());
    at = bytes.data() + ((64 - addr % 64) % 64);
  }
};
}  // namespace

struct PredictionTools::Channel {
  int size = 0;
  StateMemory fdp, saved;
  bool has_saved = false;
  std::vector<Akl32s> history = std::vector<Akl32s>(3072, 0);
  AklsFDPState_32f* state() { return reinterpret_cast<AklsFDPState_32f*>(fdp.at); }
};

PredictionTools::PredictionTools() = default;

PredictionTools::~PredictionTools() {
  channels_.clear();
  if (mdct_) aklsMDCTFree_AAC_32s(mdct_);
}

bool PredictionTools::Configure(int object_type, int sf_index) {
  if (object_type == object_type_ && sf_index == sf_index_) return true;
  channels_.clear();
  object_type_ = object_type;
  sf_index_ = sf_index;
  if (object_type == 4 && !mdct_ && aklsMDCTInitAlloc_AAC_32s(&mdct_) != kStsOk) {
    mdct_ = nullptr;
    return false;
  }
  return true;
}

int PredictionTools::pred_sfb_max() const {
  return main_profile() && sf_index_ >= 0 && sf_index_ < 12 ? kPredSfbMax[sf_index_] : 0;
}

PredictionTools::Channel& PredictionTools::At(int key) {
  if (key >= static_cast<int>(channels_.size())) channels_.resize(static_cast<std::size_t>(key) + 1);
  auto& c = channels_[static_cast<std::size_t>(key)];
  if (!c) c = std::make_unique<Channel>();
  return *c;
}

Status PredictionTools::Predict(int key, float* x, Akl32s* spec, int shift, const AklAACIcsInfo& ics, const Akl8u* cb) {
  if (!main_profile()) return kStsOk;
  Channel& ch = At(key);
  if (!ch.fdp.at) {
    if (const Status st = aklsFDPGetSize_32f(&ch.size); st != kStsOk) return st;
    ch.fdp.Allocate(ch.size);
    if (const Status st = aklsFDPInit_32f(sf_index_, ch.state()); st != kStsOk) {
      ch.fdp.at = nullptr;
      return st;
    }
  }
  alignas(16) Akl32f y[1024];
  const Status st = aklsFDP_32f(x, y, &ics, cb, ch.state());
  if (st != kStsOk) {
    aklsFDPReset_32f(ch.state());
    return st;
  }
  if (ics.windowSequence == 2) return kStsOk;  // passed through unchanged
  // Back to Q3 at the channel's scale, only where an estimate was added:
  // the other lines keep the library's dequantization.
  const double back = std::ldexp(1.0, 3 - shift);
  for (int i = 0; i < 1024; ++i)
    if (y[i] != x[i]) spec[i] = Saturate(static_cast<double>(y[i]) * back);
  std::memcpy(x, y, sizeof(y));
  return kStsOk;
}

Status PredictionTools::ApplyLtp(int key, Akl32s* spec, int shift, const AklAACLtpData& ltp, const AklAACIcsInfo& ics,
                                 const AklAACChanInfo& tns, const Akl8s* tns_coef, int prev_shape) {
  if (!ltp_profile() || !mdct_ || !ltp.ltpDataPresent || ics.windowSequence == 2) return kStsOk;
  Channel& ch = At(key);
  alignas(16) Akl32s est[1024];
  Status st = aklsLongTermPredict_AAC_32s(ch.history.data(), est, &ltp, ics.windowSequence, ics.windowShape & 1,
                                          prev_shape & 1, mdct_);
  if (st == kStsOk && tns.tnsDataPresent)
    st = aklsEncodeTNS_AAC_32s_I(est, tns.nFilt, tns.length, tns.order, tns.coefRes, tns_coef, tns.direction,
                                 ics.maxSfb, 3, sf_index_, 1024);
  if (st != kStsOk) return st;
  if (shift != 0) {  // Q3 to the channel's scale
    const double scale = std::ldexp(1.0, -shift);
    for (Akl32s& v : est) v = Saturate(static_cast<double>(v) * scale);
  }
  return aklsLongTermReconstruct_AAC_32s(est, spec, ltp.longUsed, ics.maxSfb, sf_index_);
}

void PredictionTools::Update(int key, const float* out, const float* overlap) {
  if (!ltp_profile()) return;
  Channel& ch = At(key);
  alignas(16) Akl32s frame[1024];
  alignas(16) Akl32s ov[1024];
  for (int i = 0; i < 1024; ++i) {
    frame[i] = SaturateFloat(out[i] * 8.0f);  // exact: a power of two
    ov[i] = SaturateFloat(overlap[i] * 8.0f);
  }
  aklsLtpUpdate_AAC_32s(ch.history.data(), frame, ov);
}

void PredictionTools::Reset(int key) {
  if (key >= static_cast<int>(channels_.size()) || !channels_[static_cast<std::size_t>(key)]) return;
  Channel& ch = *channels_[static_cast<std::size_t>(key)];
  if (ch.fdp.at) aklsFDPReset_32f(ch.state());
  std::fill(ch.history.begin(), ch.history.end(), 0);
}

void PredictionTools::Save(int key) {
  if (!main_profile()) return;
  Channel& ch = At(key);
  ch.has_saved = ch.fdp.at != nullptr;
  if (!ch.has_saved) return;
  if (!ch.saved.at) ch.saved.Allocate(ch.size);
  std::memcpy(ch.saved.at, ch.fdp.at, static_cast<std::size_t>(ch.size));
}

void PredictionTools::Restore(int key) {
  if (!main_profile()) return;
  Channel& ch = At(key);
  if (ch.has_saved) {
    std::memcpy(ch.fdp.at, ch.saved.at, static_cast<std::size_t>(ch.size));
  } else if (ch.fdp.at) {  // built during the first attempt: start afresh
    aklsFDPReset_32f(ch.state());
  }
}

}  // namespace aacdec
