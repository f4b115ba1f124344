#include "aacdec/prediction.hpp"

#include <cmath>
#include <cstring>

namespace aacdec {
namespace {
// A float of the 16-bit scale to a Q3 integer: nearest, saturated.
Akl32s ToQ3(float v) {
  const double r = std::nearbyint(static_cast<double>(v) * 8.0);
  if (!(r > -2147483648.0)) return r != r ? 0 : INT32_MIN;
  if (r >= 2147483647.0) return INT32_MAX;
  return static_cast<Akl32s>(r);
}
constexpr int kPredSfbMax[12] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34};
}  // namespace

struct PredictionTools::Channel {
  AklsFDPState_32f* fdp = nullptr;
  std::vector<Akl32s> history = std::vector<Akl32s>(3072, 0);
  ~Channel() {
    if (fdp) aklsFDPFree_32f(fdp);
  }
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

Status PredictionTools::Predict(int key, Akl32s* spec, const AklAACIcsInfo& ics, const Akl8u* cb) {
  if (!main_profile()) return kStsOk;
  Channel& ch = At(key);
  if (!ch.fdp) {
    if (const Status st = aklsFDPInitAlloc_32f(sf_index_, &ch.fdp); st != kStsOk) {
      ch.fdp = nullptr;
      return st;
    }
  }
  alignas(16) Akl32f x[1024];
  for (int i = 0; i < 1024; ++i) x[i] = static_cast<float>(spec[i]) * 0.125f;
  const Status st = aklsFDP_32f(x, x, &ics, cb, ch.fdp);
  if (st != kStsOk) {
    aklsFDPReset_32f(ch.fdp);
    return st;
  }
  if (ics.windowSequence == 2) return kStsOk;  // passed through
  for (int i = 0; i < 1024; ++i) spec[i] = ToQ3(x[i]);
  return kStsOk;
}

Status PredictionTools::ApplyLtp(int key, Akl32s* spec, const AklAACLtpData& ltp, const AklAACIcsInfo& ics,
                                 const AklAACChanInfo& tns, const Akl8s* tns_coef, int prev_shape) {
  if (!ltp_profile() || !mdct_ || !ltp.ltpDataPresent || ics.windowSequence == 2) return kStsOk;
  Channel& ch = At(key);
  alignas(16) Akl32s est[1024];
  Status st = aklsLongTermPredict_AAC_32s(ch.history.data(), est, &ltp, ics.windowSequence, ics.windowShape & 1,
                                          prev_shape & 1, mdct_);
  if (st == kStsOk && tns.tnsDataPresent)
    st = aklsEncodeTNS_AAC_32s_I(est, tns.nFilt, tns.length, tns.order, tns.coefRes, tns_coef, tns.direction,
                                 ics.maxSfb, 4, sf_index_, 1024);
  if (st == kStsOk) st = aklsLongTermReconstruct_AAC_32s(est, spec, ltp.longUsed, ics.maxSfb, sf_index_);
  return st;
}

void PredictionTools::Update(int key, const float* out, const float* overlap) {
  if (!ltp_profile()) return;
  Channel& ch = At(key);
  alignas(16) Akl32s frame[1024];
  alignas(16) Akl32s ov[1024];
  for (int i = 0; i < 1024; ++i) {
    frame[i] = ToQ3(out[i]);
    ov[i] = ToQ3(overlap[i]);
  }
  aklsLtpUpdate_AAC_32s(ch.history.data(), frame, ov);
}

void PredictionTools::Reset(int key) {
  if (key >= static_cast<int>(channels_.size()) || !channels_[static_cast<std::size_t>(key)]) return;
  Channel& ch = *channels_[static_cast<std::size_t>(key)];
  if (ch.fdp) aklsFDPReset_32f(ch.fdp);
  std::fill(ch.history.begin(), ch.history.end(), 0);
}

}  // namespace aacdec
