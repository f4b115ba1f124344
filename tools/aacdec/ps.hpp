// Parametric stereo for akl-aacdec, on the public aklac.h only: the PS
// extension of a mono element's SBR payload (IID, ICC, IPD and OPD in 10,
// 20 or 34 bands, time or frequency differential, both frame classes), and
// the stereo synthesis in the QMF domain: the library's hybrid filter bank
// splits the lowest QMF bands, an all-pass decorrelator with transient
// attenuation makes the second signal, and a mixing matrix per parameter
// band (procedure A or B, phases from IPD/OPD), interpolated across each
// envelope, turns the two into left and right.
#pragma once

#include <array>
#include <cstdint>

#include "aklac.h"

namespace aacdec {

inline constexpr int kPsMaxEnv = 5;  // four coded envelopes and one added to reach the frame's end

// The syntax state of one stream: the header fields (kept until the next
// header) and the parameters of the last frame parsed.
struct PsSyntax {
  bool have_header = false;
  bool enable_iid = false, enable_icc = false, enable_ext = false;
  int iid_mode = 0, icc_mode = 0;
  int nr_iid = 10, nr_icc = 10, nr_ipdopd = 5;
  // This frame.
  bool enable_ipdopd = false;
  int num_env = 0;  // including an added last envelope
  std::array<int, kPsMaxEnv + 1> border{};  // border[0] = -1; envelope e covers slots border[e]+1..border[e+1]
  std::array<std::array<int, 34>, kPsMaxEnv> iid{}, icc{}, ipd{}, opd{};
};

// Parses one ps_data element from bit `pos` of `data` (bits below `limit`
// readable).  Returns the bits consumed, or -1 if the data is damaged (the
// parameters of `s` are then cleared to a neutral frame).
int ParsePsData(const std::uint8_t* data, int pos, int limit, PsSyntax* s);

// The mixing matrix entries h11, h12, h21, h22 (left = h11 s + h21 d,
// right = h12 s + h22 d) of procedure A (`b` false) or B for a coarse or
// fine IID index and an ICC index 0..7.
void PsMixingMatrix(bool b, bool fine, int iid, int icc, float h[4]);

// Stereo synthesis of one mono element.
class PsDecoder {
 public:
  explicit PsDecoder(bool down_sampled);
  ~PsDecoder();
  PsDecoder(const PsDecoder&) = delete;
  PsDecoder& operator=(const PsDecoder&) = delete;
  bool Ready() const { return ready_; }

  // One frame.  x: 32 slots of 64 QMF bands of the mono signal, made the
  // left channel in place; ahead: the 6 slots after them of QMF bands 0..4
  // (row step `ahead_step`); top: the first QMF band above the signal.
  // `s` null: no usable parameters for this frame (right = left).  The right
  // channel is synthesised into `right` (32 x 64 or 32 x 32 samples).
  void Process(Akl32fc (*x)[64], const Akl32fc* ahead, int ahead_step, int top, const PsSyntax* s, float* right);

 private:
  void Decorrelate(bool is34, int top_h);
  void Mix(const PsSyntax& s, bool is34);

  bool ready_ = true;
  bool down_;
  AklsAnalysisState_PS_32fc* hybrid_ = nullptr;
  AklsSynthesisState_SBR_32f* syn_ = nullptr;
  AklsSynthesisDownState_SBR_32f* syn_down_ = nullptr;
  bool is34_ = false;
  bool started_ = false;
  // Signals of the frame, slot-major: [slot][hybrid band].
  alignas(16) Akl32fc s_[32][91];
  alignas(16) Akl32fc d_[32][91];
  alignas(16) Akl32fc xr_[32][64];
  // Decorrelator state.
  Akl32fc delay_[91][14] = {};    // last 14 input slots per band, oldest first
  Akl32fc ap_[50][3][5] = {};     // all-pass link state, last 5 slots, oldest first
  float peak_decay_[34] = {}, power_smooth_[34] = {}, peak_diff_smooth_[34] = {};
  // Mixing state: the matrix at the end of the last envelope (re, im).
  float h_[4][34] = {}, hi_[4][34] = {};
  int ipd_hist_[17] = {}, opd_hist_[17] = {};
};

}  // namespace aacdec
