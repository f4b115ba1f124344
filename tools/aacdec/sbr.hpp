// Spectral band replication for akl-aacdec, on the public aklac.h only: the
// SBR payload of fill elements (header, time grid, envelopes, noise floors,
// inverse-filtering modes, sinusoids), the frequency band tables, HF
// generation with the library's covariance predictors, HF adjustment, and the
// library's QMF banks for analysis of the core output and synthesis at twice
// the core rate (or at the core rate, down-sampled SBR).
//
// The decoder hands over, per block, the payload found after each channel
// element, then calls Process once per element with the core output of its
// channels.  An element without a usable payload is upsampled through the
// same banks with empty high bands, so the output rate never changes.
//
// Parametric stereo (ps.hpp) runs between HF adjustment and synthesis on a
// single channel element once EnablePs was called: that element then fills
// two output rows, left and right.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "aacdec/ps.hpp"
#include "aklac.h"

namespace aacdec {

inline constexpr int kSbrSlots = 32;       // QMF slots of a 1024-sample frame
inline constexpr int kSbrMaxEnv = 5;
inline constexpr int kSbrMaxBands = 64;

// Fields of the SBR header, as sent (defaults filled in where absent).
struct SbrHeader {
  int amp_res = 0, start_freq = 0, stop_freq = 0, xover_band = 0;
  int freq_scale = 2, alter_scale = 1, noise_bands = 2;
  int limiter_bands = 2, limiter_gains = 2, interpol_freq = 1, smoothing_mode = 1;
  bool operator==(const SbrHeader&) const = default;
};

// Band tables derived from a header at one SBR rate.
struct SbrTables {
  int k0 = 0, k2 = 0, kx = 0, m = 0;
  int n_master = 0, n_high = 0, n_low = 0, n_q = 0, n_lim = 0;
  std::array<int, 65> f_master{}, f_high{}, f_low{}, f_noise{}, f_lim{};
  int num_patches = 0;
  std::array<int, 6> patch_start{}, patch_bands{};
};

// What can be wrong with a payload; each kind is warned about once.
// kNoHeader: data before the first header, skipped without a warning.
enum class SbrError { kNone, kCrc, kHeader, kTables, kGrid, kData, kNoHeader, kCount };

// Builds the tables of `h` for SBR rate `fs` (twice the core rate).
SbrError BuildSbrTables(const SbrHeader& h, int fs, SbrTables* t);

// One frame of one channel's parsed data.
struct SbrFrameData {
  int frame_class = 0, num_env = 0, num_noise = 0, pointer = 0, amp_res = 0;
  std::array<int, kSbrMaxEnv + 1> t_env{}, t_noise{};
  std::array<int, kSbrMaxEnv> freq_res{};
  std::array<int, kSbrMaxEnv> df_env{}, df_noise{};
  std::array<int, 5> invf{};
  std::array<std::array<int, kSbrMaxBands>, kSbrMaxEnv> env{};    // quantized, after delta decoding
  std::array<std::array<int, 5>, 2> noise{};
  std::array<int, kSbrMaxBands> add_harmonic{};
  bool has_harmonic = false;
  int l_a = -1;  // transient envelope, -1 for none
};

class SbrChannel;

// The SBR decoder of one stream.
class SbrDecoder {
 public:
  using WarnFn = std::function<void(const std::string&)>;
  // core_rate: the AAC core's rate; down_sampled: output at the core rate.
  SbrDecoder(int core_rate, bool down_sampled, WarnFn warn);
  ~SbrDecoder();
  SbrDecoder(const SbrDecoder&) = delete;
  SbrDecoder& operator=(const SbrDecoder&) = delete;

  int OutputFactor() const { return down_sampled_ ? 1 : 2; }
  // Parametric stereo on single channel elements (their Process gets two
  // output rows).
  void EnablePs() { ps_enabled_ = true; }
  bool Ready() const { return ready_; }  // all QMF banks could be built

  // The extension payload of a fill element (its bytes from the extension
  // type on; count bytes) that follows the element whose first output
  // channel is `first_channel`.  Kept until Process for that element.
  void SetPayload(int first_channel, const std::uint8_t* bytes, int count);
  // Decodes one element: `in` holds nch rows of 1024 core samples, `out`
  // receives nch rows of 1024 * OutputFactor() samples.  is_lfe elements
  // are only upsampled.
  void Process(int first_channel, int nch, bool is_cpe, bool is_lfe, const float* const* in, float* const* out);
  // Forgets the payloads of the block (called when a block is concealed).
  void DropPayloads();

 private:
  struct Element;
  Element& ElementAt(int first_channel, int nch);
  void Warn(SbrError e);

  int core_rate_;
  int sbr_rate_;
  bool down_sampled_;
  bool ready_ = true;
  bool ps_enabled_ = false;
  bool ps_warned_ = false;
  WarnFn warn_;
  std::array<bool, static_cast<int>(SbrError::kCount)> warned_{};
  std::vector<std::unique_ptr<Element>> elements_;
};

// Parser entry for tests and fuzzing: parses one payload (bytes from the
// extension type on) for an element of nch channels at SBR rate fs, with
// the header state `header` / `have_header` carried in and out.  Returns
// kNone and fills data[0..nch-1] on success.
SbrError ParseSbrPayload(const std::uint8_t* bytes, int count, int nch, int fs, SbrHeader* header,
                         bool* have_header, SbrTables* tables, bool* reset, SbrFrameData* data, bool* coupling,
                         const SbrFrameData* prev, PsSyntax* ps = nullptr, int* ps_result = nullptr);

// 1 if `bytes` (an SBR payload of one channel) carries parametric stereo, 0
// if not, -1 if it cannot tell (no SBR header in the payload): how a stream
// that does not signal PS is recognised.
int SbrPayloadHasPs(const std::uint8_t* bytes, int count, int fs);

}  // namespace aacdec
