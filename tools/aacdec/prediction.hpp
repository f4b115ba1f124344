// The Main and LTP profile tools of akl-aacdec, per channel, on the library's
// prediction operations: frequency-domain prediction (Main) and long-term
// prediction with its history of reconstructed output (LTP).  The decoder
// keys each channel by a small integer (its output channel, or a coupling
// channel's slot) and calls the hooks at three places of a block:
//   Predict   after M/S, before intensity stereo (Main, every long or short frame)
//   ApplyLtp  after the spectral tools, before TNS (LTP, long frames with data)
//   Update    after the channel's synthesis (LTP)
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "aklac.h"

namespace aacdec {

class PredictionTools {
 public:
  PredictionTools();
  ~PredictionTools();
  PredictionTools(const PredictionTools&) = delete;
  PredictionTools& operator=(const PredictionTools&) = delete;

  // The stream's object type (1 Main, 4 LTP; anything else: the tools stay
  // off) and sampling-frequency index.  False if a context cannot be built.
  bool Configure(int object_type, int sf_index);
  bool main_profile() const { return object_type_ == 1; }
  bool ltp_profile() const { return object_type_ == 4; }
  // The predictor band limit the bitstream readers need (0 unless Main).
  int pred_sfb_max() const;
  // The object type to hand the ICS readers: 1 and 4 as they are; anything
  // else reads the low-complexity syntax (type 2).
  static int reader_object_type(int object_type) { return object_type == 1 || object_type == 4 ? object_type : 2; }

  // Spectra are Q3 times 2^-shift (the decoder's per-frame scale).
  // Main: runs the channel's predictors over x (1024 lines in the standard's
  // scale, as a single-precision decoder dequantizes them; overwritten) and
  // writes every line the prediction changed into spec.  On a failure (a
  // reset group out of range, a bad maxSfb) spec is left as it was, the
  // channel's predictors restart and the status is returned.
  Status Predict(int key, float* x, Akl32s* spec, int shift, const AklAACIcsInfo& ics, const Akl8u* cb);

  // LTP: adds the long-term estimate to the spectrum (before TNS).  TNS of
  // the frame, when present, filters the estimate first.  prev_shape is the
  // window shape of the channel's previous frame.  No data, or a short
  // frame: nothing.  On a failure the spectrum is left as it was.
  Status ApplyLtp(int key, Akl32s* spec, int shift, const AklAACLtpData& ltp, const AklAACIcsInfo& ics,
                  const AklAACChanInfo& tns, const Akl8s* tns_coef, int prev_shape);

  // LTP: the channel's output (1024 floats, 16-bit scale, before clipping)
  // and its overlap (the windowed half the next frame adds) go into the
  // history.
  void Update(int key, const float* out, const float* overlap);

  // A concealed frame: the channel's predictors and history restart.
  void Reset(int key);

  // Main: keeps a copy of the channel's predictors, and goes back to it (for
  // a spectral stage that runs a second time on the same frame).
  void Save(int key);
  void Restore(int key);

 private:
  struct Channel;
  Channel& At(int key);

  int object_type_ = 0;
  int sf_index_ = 0;
  AklsMDCTSpec_AAC_32s* mdct_ = nullptr;
  std::vector<std::unique_ptr<Channel>> channels_;
};

}  // namespace aacdec
