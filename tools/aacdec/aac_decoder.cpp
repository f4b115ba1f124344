// The AAC-LC decoder behind akl-aacdec.  See aac_decoder.hpp.
//
// One raw data block goes through three stages:
//  1. parsing: every element is read in bitstream order; channel streams go
//     through the library's noiseless decoder into per-element records;
//  2. spectral processing in the library's Q3 integer domain: dequantization,
//     noise substitution, M/S, intensity, deinterleaving, coupling (the
//     dependently switched kind) and TNS;
//  3. synthesis: the library's float inverse MDCT, then this program's
//     windows (sine or KBD, all four sequences) and overlap-add, the
//     independently switched coupling, and rounding to 16 bits.
#include "aacdec/aac_decoder.hpp"
#include "aacdec/prediction.hpp"
#include "aacdec/sbr.hpp"
#include "aacdec/scale_factors.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "aklac.h"
#include "kit/adts.hpp"
#include "kit/bits.hpp"

namespace aacdec {
namespace {

constexpr int kSampleRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                  22050, 16000, 12000, 11025, 8000,  7350};
constexpr int kFrame = 1024;
constexpr int kBandSlots = 8 * 64;  // per-band arrays: groups x bands
constexpr int kCceKeys = 256;  // prediction-tool slots of coupling channels: 256 + tag
constexpr std::size_t kPadding = 16384;  // zeros after a frame: the readers may run on in a damaged one

enum ElementId { kSce = 0, kCpe = 1, kCce = 2, kLfe = 3, kDse = 4, kPce = 5, kFil = 6, kEnd = 7 };
enum WindowSequence { kOnlyLong = 0, kLongStart = 1, kEightShort = 2, kLongStop = 3 };

// WAVE_FORMAT_EXTENSIBLE speaker positions.
enum : std::uint32_t {
  kFL = 0x1, kFR = 0x2, kFC = 0x4, kLFE = 0x8, kBL = 0x10, kBR = 0x20,
  kFLC = 0x40, kFRC = 0x80, kBC = 0x100, kSL = 0x200, kSR = 0x400,
};

struct SwbRow {
  int count;
  std::int16_t offset[52];
};
// Rows 0..11: long windows by sampling index; rows 12..23: short windows.
constexpr SwbRow kSwb[24] = {
#include "aacdec/swb_offsets.inc"
};

// ---- bit cursor over a padded frame buffer (kit/bits.hpp) ----
using Cursor = aklkit::BitCursor;
using aklkit::ByteAlign;
using aklkit::ReadBits;

// ---- windows ----
double BesselI0(double x) {
  double sum = 1, term = 1;
  for (int k = 1; k < 50; ++k) {
    term *= (x / (2 * k)) * (x / (2 * k));
    sum += term;
    if (term < 1e-20 * sum) break;
  }
  return sum;
}

// Rising half (n = 0 .. half-1) of a window of length 2 * half.
std::vector<float> SineRise(int half) {
  std::vector<float> w(half);
  for (int n = 0; n < half; ++n) w[n] = static_cast<float>(std::sin(M_PI / (2.0 * half) * (n + 0.5)));
  return w;
}

// Kaiser-Bessel derived: w[n] = sqrt(cumsum(K)[n] / sum(K)) over a Kaiser
// kernel of half + 1 points with parameter alpha.
std::vector<float> KbdRise(int half, double alpha) {
  std::vector<double> k(half + 1);
  const double denom = BesselI0(M_PI * alpha);
  for (int n = 0; n <= half; ++n) {
    const double r = (2.0 * n / half) - 1.0;
    k[n] = BesselI0(M_PI * alpha * std::sqrt(std::max(0.0, 1.0 - r * r))) / denom;
  }
  double total = 0;
  for (double v : k) total += v;
  std::vector<float> w(half);
  double acc = 0;
  for (int n = 0; n < half; ++n) {
    acc += k[n];
    w[n] = static_cast<float>(std::sqrt(acc / total));
  }
  return w;
}

struct Windows {
  std::vector<float> rise_long[2];   // [shape] 1024 values
  std::vector<float> rise_short[2];  // [shape] 128 values
  std::vector<float> fall_long[2];   // the rises reversed, so that the
  std::vector<float> fall_short[2];  // windowing loops run forwards
  Windows() {
    rise_long[0] = SineRise(1024);
    rise_long[1] = KbdRise(1024, 4.0);
    rise_short[0] = SineRise(128);
    rise_short[1] = KbdRise(128, 6.0);
    for (int k = 0; k < 2; ++k) {
      fall_long[k].assign(rise_long[k].rbegin(), rise_long[k].rend());
      fall_short[k].assign(rise_short[k].rbegin(), rise_short[k].rend());
    }
  }
};

// ---- the library's inverse MDCT ----
class Imdct {
 public:
  explicit Imdct(int n) : n_(n) {
    if (aklsMDCTInvInitAlloc_32f(&spec_, n) != kStsOk) spec_ = nullptr;
    int size = 0;
    if (spec_ && aklsMDCTInvGetBufSize_32f(spec_, &size) == kStsOk) buffer_.resize(static_cast<std::size_t>(size) + 64);
  }
  ~Imdct() {
    if (spec_) aklsMDCTInvFree_32f(spec_);
  }
  Imdct(const Imdct&) = delete;
  Imdct& operator=(const Imdct&) = delete;
  bool ok() const { return spec_ != nullptr; }
  // n/2 coefficients to n time samples, y = (2/n) sum X cos(...).
  void Run(const float* src, float* dst) { aklsMDCTInv_32f(src, dst, spec_, buffer_.empty() ? nullptr : buffer_.data()); }

 private:
  int n_;
  MDCTInvSpec_32f* spec_ = nullptr;
  std::vector<Akl8u> buffer_;
};

// ---- per-element records ----
struct ChannelStream {
  AklAACIcsInfo own_ics;
  AklAACChanInfo info;
  alignas(16) Akl32s spec[kFrame];
  Akl16s sf[kBandSlots];      // scale factors, noise energies, intensity positions
  Akl16s sf_lib[kBandSlots];  // the same with the frame's scale offset taken out (see ChooseShift)
  int shift = 0;              // spec holds the Q3 spectrum times 2^-shift
  Akl8u cb[kBandSlots];
  Akl8s tns_coef[64];
  Akl32s ltp_long_used[41];
  AklAACLtpData ltp;  // this channel's long-term prediction data (LTP profile)
  int key = 0;        // the channel's slot in the prediction tools
  const AklAACIcsInfo& ics() const { return *info.pIcsInfo; }
  int win_len() const { return ics().windowSequence == kEightShort ? 128 : kFrame; }
};

// Overlap state of one output channel (or of an independently switched
// coupling channel).
struct ChannelState {
  std::array<float, kFrame> overlap{};
  int prev_shape = 0;
};

struct CceTarget {
  int is_cpe;
  int tag;
  int ch_select;  // (cc_l << 1) | cc_r for pairs
};

struct Cce {
  int tag = 0;
  bool ind_sw = false;
  int num_targets = 0;
  CceTarget targets[8];
  int cc_domain = 0;  // 0: before TNS, 1: after TNS (dependent switching only)
  int num_gain_lists = 0;
  ChannelStream ch;
  float gain[16][kBandSlots];
  std::array<float, kFrame> time{};  // independently switched: the windowed output
};

// Where each channel of an audio element goes.
struct LayoutElement {
  int type;  // kSce, kCpe or kLfe
  int tag;   // -1: matched by order of appearance (channel configurations)
  int first_channel;
  std::uint32_t position[2];
};

struct Layout {
  std::vector<LayoutElement> elements;
  int channels = 0;
  bool from_pce = false;
};

void AddElement(Layout& l, int type, int tag, std::uint32_t p0, std::uint32_t p1 = 0) {
  l.elements.push_back({type, tag, l.channels, {p0, p1}});
  l.channels += type == kCpe ? 2 : 1;
}

bool LayoutFromConfig(int config, Layout* l) {
  *l = Layout{};
  switch (config) {
    case 1: AddElement(*l, kSce, -1, kFC); break;
    case 2: AddElement(*l, kCpe, -1, kFL, kFR); break;
    case 3: AddElement(*l, kSce, -1, kFC); AddElement(*l, kCpe, -1, kFL, kFR); break;
    case 4:
      AddElement(*l, kSce, -1, kFC); AddElement(*l, kCpe, -1, kFL, kFR); AddElement(*l, kSce, -1, kBC);
      break;
    case 5:
    case 6:
      AddElement(*l, kSce, -1, kFC); AddElement(*l, kCpe, -1, kFL, kFR); AddElement(*l, kCpe, -1, kBL, kBR);
      if (config == 6) AddElement(*l, kLfe, -1, kLFE);
      break;
    case 7:
      AddElement(*l, kSce, -1, kFC); AddElement(*l, kCpe, -1, kFLC, kFRC); AddElement(*l, kCpe, -1, kFL, kFR);
      AddElement(*l, kCpe, -1, kBL, kBR); AddElement(*l, kLfe, -1, kLFE);
      break;
    default: return false;
  }
  return true;
}

// Speaker positions for a group of channels listed in element order.
void AssignFront(std::vector<std::uint32_t>& pos) {
  const std::size_t n = pos.size();
  std::size_t i = 0;
  if (n % 2 == 1) pos[i++] = kFC;
  const std::size_t pairs = (n - i) / 2;
  static const std::uint32_t one_pair[2] = {kFL, kFR};
  static const std::uint32_t two_pairs[4] = {kFLC, kFRC, kFL, kFR};
  for (std::size_t p = 0; p < pairs; ++p) {
    if (pairs == 1) {
      pos[i] = one_pair[0];
      pos[i + 1] = one_pair[1];
    } else if (p < 2) {
      pos[i] = two_pairs[2 * p];
      pos[i + 1] = two_pairs[2 * p + 1];
    }
    i += 2;
  }
}

void AssignPairs(std::vector<std::uint32_t>& pos, std::uint32_t l, std::uint32_t r, std::uint32_t single) {
  const std::size_t n = pos.size();
  std::size_t i = 0;
  for (; i + 1 < n && i < 2; i += 2) {
    pos[i] = l;
    pos[i + 1] = r;
  }
  if (n % 2 == 1) pos[n - 1] = single;
}

void LayoutFromPce(const AklAACPrgCfgElt& pce, Layout* l) {
  *l = Layout{};
  l->from_pce = true;
  struct Group {
    int count;
    const Akl32s* is_cpe;
    const Akl32s* tag;
    int kind;  // 0 front, 1 side, 2 back
  } groups[3] = {{pce.numFrontElt, pce.frontElementIsCpe, pce.frontElementTagSel, 0},
                 {pce.numSideElt, pce.sideElementIsCpe, pce.sideElementTagSel, 1},
                 {pce.numBackElt, pce.backElementIsCpe, pce.backElementTagSel, 2}};
  for (const Group& g : groups) {
    std::vector<std::uint32_t> pos;
    for (int e = 0; e < g.count; ++e) pos.resize(pos.size() + (g.is_cpe[e] ? 2 : 1), 0);
    if (g.kind == 0) AssignFront(pos);
    if (g.kind == 1) AssignPairs(pos, kSL, kSR, 0);
    if (g.kind == 2) AssignPairs(pos, kBL, kBR, kBC);
    std::size_t k = 0;
    for (int e = 0; e < g.count; ++e) {
      if (g.is_cpe[e]) {
        AddElement(*l, kCpe, g.tag[e], pos[k], pos[k + 1]);
        k += 2;
      } else {
        AddElement(*l, kSce, g.tag[e], pos[k]);
        k += 1;
      }
    }
  }
  for (int e = 0; e < pce.numLfeElt; ++e) AddElement(*l, kLfe, pce.lfeElementTagSel[e], e == 0 ? std::uint32_t{kLFE} : 0u);
}

// ---- the scale of the integer spectrum ----
//
// The library's dequantizer writes Q3 into 32 bits and renders a band
// exactly only while its exponent e = (sf - 100 + 3) >> 2 stays within
// limits: magnitudes 1..3 are not scaled up past e = 25, 4..15 past e = 22,
// and larger results wrap or saturate beyond 31 bits.  Loud material (high
// scale factors with small magnitudes, spectral lines near full scale) passes
// those limits.  So every channel (both channels of a pair that shares its
// window, since M/S and intensity combine them) gets one shift per frame:
// scale factors and noise energies go to the library lowered by 4 * shift,
// which divides every value by exactly 2^shift, and the float stage
// multiplies by 2^shift again.  The shift keeps the frame's largest line at
// most 2^kPeakLog2 in Q3 (headroom for M/S, TNS and coupling) and every band
// inside the dequantizer's exact range; quiet frames get a negative shift,
// which gains precision.
//
// The peak of 2^28 keeps the Q3 precision that quiet material has at shift 0
// (a lower peak costs measurable accuracy: 0.13 instead of 0.06 steps RMS on
// full-scale noise at 2^24).  M/S needs one bit of the remaining three; TNS
// can raise lines above the dequantized peak, so a channel whose spectrum
// ends up near the 32-bit limit is processed again with kRetryHeadroom more
// bits of room (Decoder::SpectralElement).
constexpr int kPeakLog2 = 28;
constexpr int kRetryHeadroom = 6;
constexpr Akl32s kNearLimit = 1 << 30;

Akl32s SaturateToInt32(double v) {
  if (v >= 2147483647.0) return 2147483647;
  if (v <= -2147483648.0) return -2147483647 - 1;
  return static_cast<Akl32s>(std::lrint(v));
}

// The largest quantized magnitude of each band slot (group-major).
void BandMaxima(const ChannelStream& ch, const SwbRow& bands, int* maxq) {
  const AklAACIcsInfo& ics = ch.ics();
  const bool is_short = ics.windowSequence == kEightShort;
  const Akl32s* group = ch.spec;
  for (int g = 0; g < ics.numWindowGroups; ++g) {
    const int len = is_short ? ics.windowGroupLength[g] : 1;
    for (int b = 0; b < ics.maxSfb; ++b) {
      int m = 0;
      for (int i = len * bands.offset[b]; i < len * bands.offset[b + 1]; ++i) m = std::max(m, std::abs(group[i]));
      maxq[g * ics.maxSfb + b] = m;
    }
    group += len * 128;
  }
}

// Scale factors and noise energies lowered by 4 * shift; intensity positions
// (relative between the channels) stay.
void ApplyShift(ChannelStream& ch, int shift) {
  ch.shift = shift;
  const int slots = ch.ics().numWindowGroups * ch.ics().maxSfb;
  for (int i = 0; i < slots; ++i) {
    const int book = ch.cb[i];
    const bool scaled = (book >= 1 && book <= 11) || book == 13;
    ch.sf_lib[i] = static_cast<Akl16s>(scaled ? ch.sf[i] - 4 * shift : ch.sf[i]);
  }
}

// ---- the decoder ----
class Decoder {
 public:
  Decoder(PcmSink* sink, DecodeStats* stats, const DecodeOptions& options)
      : sink_(sink), stats_(stats), options_(options), imdct_long_(2048), imdct_short_(256) {}

  DecodeResult Run(const std::uint8_t* data, std::size_t size, std::string* message);
  DecodeResult RunAccessUnits(const RawConfig& config, const AccessUnit* units, std::size_t count, std::string* message);
  void DeclareDamageKinds();

 private:
  // Audio element decoded in the current block.
  struct Element {
    int type = 0;
    int tag = 0;
    int common_window = 0;
    int ms_mask_present = 0;
    Akl8u ms_used[8 * 60];
    AklAACIcsInfo pair_ics;
    ChannelStream ch[2];
    int sbr_count = 0;  // SBR extension payload of a fill element after this one
    Akl8u sbr_bytes[272];
  };

  bool SetSampleRateIndex(int sfi, std::string* message);
  // Takes the stream's object type; false (with the reason) if not AAC-LC.
  bool CheckObjectType(int object_type, std::string* message);
  void LoadFrame(const std::uint8_t* src, std::size_t n);
  Status DecodeRawBlock(Cursor& c, const Akl8u* end);
  Status DecodeIcs(Cursor& c, ChannelStream& ch, int common_window, AklAACIcsInfo* pair_ics);
  Status DecodeCce(Cursor& c);
  void SeparateNoiseEnergies(ChannelStream& ch);
  int ChooseShift(const ChannelStream& a, const ChannelStream* b) const;
  Status SpectralSingle(ChannelStream& ch, int slot);  // slot: the channel's row of quantized_ and main_x_
  Status SpectralPair(Element& e);
  Status SpectralElement(Element* e, ChannelStream* cce);
  Status Finish(ChannelStream& ch);  // deinterleave; TNS runs separately
  Status Tns(ChannelStream& ch);
  void MainInput(const ChannelStream& ch, float* x) const;  // Main: the predictor's input, see there
  void Predict(ChannelStream& ch, float* x);                // Main: after M/S, before intensity
  void LongTermPredict(ChannelStream& ch, int prev_shape);  // LTP: before TNS
  void ToolWarning(const char* tool, Status st);
  void ApplyDependentCoupling(int type, int tag, int domain, Element& e);
  bool BlockMatchesLayout() const;
  int ConfigOfBlock() const;
  void Synthesize(const ChannelStream& ch, ChannelState& st, float* out);
  int BandOffset(int band, bool is_short) const { return kSwb[(is_short ? 12 : 0) + sfi_].offset[band]; }
  // Writes the current block (or its concealment, counted under `kind`).
  bool EmitBlock(bool damaged, const char* kind = kConcealSyntax);
  void Conceal(const char* kind);
  // Whether the frame at `pos` has a destroyed sync word but is otherwise a
  // frame of `len` bytes at this stream's rate; its block count if so.
  int DestroyedSyncBlocks(const std::uint8_t* p, std::size_t len) const;
  bool ExtraBlocksFit(Cursor c, const Akl8u* end, bool crc);
  bool StartOutput();
  // Ends a wait for the parametric-stereo decision (no SBR header came):
  // true if blocks were held for it, which then play as decoded.
  bool PsWaitEnds() {
    if (ps_wait_ == 0 || ps_decided_) return false;
    ps_decided_ = true;
    return have_layout_;
  }

  PcmSink* sink_;
  DecodeStats* stats_;
  DecodeOptions options_;
  std::unique_ptr<SbrDecoder> sbr_;  // band replication, chosen when the output starts
  bool sbr_seen_ = false;            // an SBR payload was found (or the configuration signals SBR)
  int sbr_down_ = -1;                // 1/0: the configuration says down-sampled or not; -1: by the core rate
  std::vector<float> sbr_out_;       // channels x 1024 x the SBR output factor
  bool ps_seen_ = false;             // parametric stereo signalled or found in a mono stream's first payload
  bool ps_out_ = false;              // a mono element is played as stereo
  bool ps_decided_ = false;          // a payload with an SBR header told whether PS is there
  int ps_wait_ = 0;                  // blocks held back waiting for that payload
  static constexpr int kPsWait = 1000;
  Windows windows_;
  Imdct imdct_long_;
  Imdct imdct_short_;
  int sfi_ = -1;
  int sample_rate_ = 0;
  int object_type_ = 2;
  int config_ = 0;
  bool adif_ = false;
  bool have_layout_ = false;
  bool output_started_ = false;
  long held_blocks_ = 0;  // blocks before the output started, played as silence
  int header_config_ = 0;  // channel configuration in the current ADTS header
  std::array<int, 8> config_votes_{};  // clean blocks before the output started, by ConfigOfBlock
  bool sbr_warned_ = false;
  bool rate_warned_ = false;
  bool extra_blocks_warned_ = false;
  // Held blocks can be decoded again: the frame loop rewinds to the first
  // one when the layout becomes known (once).
  bool can_rewind_ = false;
  bool rewind_requested_ = false;
  Layout layout_;
  std::vector<int> wav_order_;  // bitstream channel -> WAV position index
  std::uint32_t channel_mask_ = 0;
  std::vector<ChannelState> states_;
  ChannelState cce_states_[16];
  Akl32s noise_seed_ = 0x2545F491;
  int headroom_ = 0;
  ScaleFactorCodes sf_codes_;
  std::vector<Akl8u> rebuilt_;  // scratch of DecodeIcsOwnScaleFactors
  const Akl8u* block_end_ = nullptr;  // extra bits of room below the 32-bit limit (see SpectralElement)
  alignas(16) Akl32s quantized_[2][kFrame];
  alignas(16) float main_x_[2][kFrame];  // Main: the predictor's input (MainInput)
  AklAACLtpInfo ltp_info_{};  // filled by the readers, copied to each channel
  PredictionTools tools_;      // Main and LTP profile tools (prediction.hpp)
  long tool_failures_ = 0;
  // Per block.
  std::vector<std::unique_ptr<Element>> elements_;
  int num_elements_ = 0;
  std::vector<std::unique_ptr<Cce>> cces_;
  int num_cces_ = 0;
  std::vector<std::uint8_t> frame_storage_;
  Akl8u* frame_ = nullptr;
  std::size_t dirty_ = 0;  // bytes of frame_ that may be non-zero
  std::vector<float> out_;       // channels x 1024, bitstream order
  std::vector<std::int16_t> pcm_;  // interleaved, WAV order
  std::vector<const float*> rows_;  // WAV position -> row of out_
  std::string* message_ = nullptr;
};

bool Decoder::SetSampleRateIndex(int sfi, std::string* message) {
  if (sfi > 11) {
    *message = "unsupported sampling-frequency index " + std::to_string(sfi);
    return false;
  }
  if (sfi_ >= 0 && sfi != sfi_) return false;  // a change inside the stream: damaged frame
  sfi_ = sfi;
  sample_rate_ = kSampleRates[sfi];
  return true;
}

// Whether this decoder renders an object type; the reason when it does not.
static bool ObjectTypeSupported(int object_type, std::string* message) {
  switch (object_type) {
    case 1:  // Main: frequency-domain prediction
    case 2:
    case 4:  // LTP: long-term prediction
      return true;
    case 3:
      *message = "AAC SSR profile stream: its gain control is not supported (Main, LC and LTP are)";
      return false;
    default:
      *message = "unsupported audio object type " + std::to_string(object_type);
      return false;
  }
}

bool Decoder::CheckObjectType(int object_type, std::string* message) {
  object_type_ = object_type;
  return ObjectTypeSupported(object_type, message);
}

// Copies n input bytes to the aligned frame buffer, followed by kPadding
// zero bytes.  Only bytes an earlier frame wrote need clearing: the buffer is
// never written past its latest frame.
void Decoder::LoadFrame(const std::uint8_t* src, std::size_t n) {
  const std::size_t need = n + kPadding + 64;
  if (frame_storage_.size() < need) {
    frame_storage_.assign(need, 0);
    dirty_ = 0;
  }
  auto addr = reinterpret_cast<std::uintptr_t>(frame_storage_.data());
  frame_ = reinterpret_cast<Akl8u*>(frame_storage_.data() + ((16 - addr % 16) % 16));
  if (n) std::memcpy(frame_, src, n);
  if (dirty_ > n) std::memset(frame_ + n, 0, dirty_ - n);
  dirty_ = n;
}

Status Decoder::DecodeIcs(Cursor& c, ChannelStream& ch, int common_window, AklAACIcsInfo* pair_ics) {
  std::memset(&ch.info, 0, sizeof(ch.info));
  ch.info.samplingFrequencyIndex = sfi_;
  ch.info.predSfbMax = tools_.pred_sfb_max();
  if (!common_window) ch.ltp.ltpDataPresent = 0;  // read below (a pair's common ICS already set it)
  ch.info.pIcsInfo = common_window ? pair_ics : &ch.own_ics;
  for (Akl32s& v : ch.ltp_long_used) v = 0;
  // The general decoder reads noise-substitution bands (codebook 13), which
  // the low-complexity one refuses; object type 2 makes it read the LC syntax.
  const AklAACIcsInfo& shared = common_window ? *pair_ics : ch.own_ics;
  const Cursor start = c;
  const Status st =
      aklsNoiselessDecode_AAC(&c.p, &c.off, &ltp_info_, ch.sf, ch.spec, ch.cb, ch.tns_coef, &ch.info,
                              common_window ? shared.windowSequence : 0, common_window ? shared.maxSfb : 0,
                              common_window, 0, tools_.reader_object_type(object_type_));
  if (st == kStsOk && !common_window) ch.ltp = ltp_info_.ltpData[0];
  if (st == kStsOk) SeparateNoiseEnergies(ch);
  if (st != kStsAacSfValErr) return st;
  // The shared running value left 0..255: a channel whose noise energies lie
  // far from its scale factors.  The scale factors are read here instead.
  c = start;
  std::memset(&ch.info, 0, sizeof(ch.info));
  ch.info.samplingFrequencyIndex = sfi_;
  ch.info.pIcsInfo = common_window ? pair_ics : &ch.own_ics;
  return DecodeIcsOwnScaleFactors(&c.p, &c.off, block_end_, common_window, kSwb[sfi_].count, kSwb[12 + sfi_].count,
                                  &ltp_info_, sf_codes_, &rebuilt_, IcsTarget{ch.sf, ch.spec, ch.cb, ch.tns_coef, &ch.info});
}

// The library's noiseless decoder runs scale factors and noise energies
// through one accumulator (the first noise energy replaces the running value,
// every later band adds its difference to whatever came last), whereas a
// stream codes them as two chains: scale factors from global_gain, noise
// energies from the first noise energy.  In a channel that mixes noise and
// ordinary bands, the differences are recovered from the decoder's values and
// summed again chain by chain.
void Decoder::SeparateNoiseEnergies(ChannelStream& ch) {
  const AklAACIcsInfo& ics = ch.ics();
  const int slots = ics.numWindowGroups * ics.maxSfb;
  int running = ch.info.globalGain;  // the decoder's shared value
  int scale = ch.info.globalGain;    // the scale-factor chain
  int noise = 0;                     // the noise-energy chain
  bool first_noise = true;
  for (int i = 0; i < slots; ++i) {
    const int book = ch.cb[i];
    if (book == 0 || book == 14 || book == 15) continue;  // zero bands; intensity has its own chain
    const int value = ch.sf[i];
    if (book == 13) {
      noise = first_noise ? value : noise + (value - running);
      first_noise = false;
      ch.sf[i] = static_cast<Akl16s>(noise);
    } else {
      scale += value - running;
      ch.sf[i] = static_cast<Akl16s>(scale);
    }
    running = value;
  }
}

Status Decoder::DecodeCce(Cursor& c) {
  if (num_cces_ == static_cast<int>(cces_.size())) cces_.push_back(std::make_unique<Cce>());
  Cce& cce = *cces_[static_cast<std::size_t>(num_cces_)];
  cce.tag = static_cast<int>(ReadBits(c, 4));
  cce.ind_sw = ReadBits(c, 1) != 0;
  cce.num_targets = static_cast<int>(ReadBits(c, 3)) + 1;
  cce.num_gain_lists = 0;
  for (int t = 0; t < cce.num_targets; ++t) {
    CceTarget& tg = cce.targets[t];
    ++cce.num_gain_lists;
    tg.is_cpe = static_cast<int>(ReadBits(c, 1));
    tg.tag = static_cast<int>(ReadBits(c, 4));
    tg.ch_select = 0;
    if (tg.is_cpe) {
      tg.ch_select = static_cast<int>(ReadBits(c, 2));
      if (tg.ch_select == 3) ++cce.num_gain_lists;
    }
  }
  cce.cc_domain = static_cast<int>(ReadBits(c, 1));
  const bool sign = ReadBits(c, 1) != 0;
  const int scale_index = static_cast<int>(ReadBits(c, 2));
  // Gain step of the gain elements: 2^(1/8), 2^(1/4), 2^(1/2) or 2.
  const double step = std::pow(2.0, std::ldexp(1.0, scale_index - 3));
  if (const Status st = DecodeIcs(c, cce.ch, 0, nullptr); st != kStsOk) return st;
  const AklAACIcsInfo& ics = cce.ch.ics();
  const int groups = ics.numWindowGroups, max_sfb = ics.maxSfb;
  for (int i = 0; i < kBandSlots; ++i) cce.gain[0][i] = 1.0f;
  for (int list = 1; list < cce.num_gain_lists; ++list) {
    const bool common = cce.ind_sw ? true : ReadBits(c, 1) != 0;
    if (common) {
      const int diff = sf_codes_.Decode(c);
      const auto g = static_cast<float>(std::pow(step, -diff));
      for (int i = 0; i < kBandSlots; ++i) cce.gain[list][i] = g;
      continue;
    }
    int acc = 0;
    for (int g = 0; g < groups; ++g) {
      for (int b = 0; b < max_sfb; ++b) {
        const int slot = g * max_sfb + b;
        if (cce.ch.cb[slot] == 0) {
          cce.gain[list][slot] = 0.0f;
          continue;
        }
        acc += sf_codes_.Decode(c);
        int expo = acc;
        double s = 1.0;
        if (sign) {
          s = (acc & 1) ? -1.0 : 1.0;
          expo = acc >> 1;
        }
        cce.gain[list][slot] = static_cast<float>(s * std::pow(step, -expo));
      }
    }
  }
  ++num_cces_;
  return kStsOk;
}

Status Decoder::DecodeRawBlock(Cursor& c, const Akl8u* end) {
  if (!tools_.Configure(object_type_, sfi_)) return kStsMemAllocErr;
  block_end_ = end;
  num_elements_ = 0;
  num_cces_ = 0;
  int audio_index = 0;
  bool sbr_in_block = false;
  for (;;) {
    if (c.p >= end) return kStsErr;  // ran past the block without an END element
    const int id = static_cast<int>(ReadBits(c, 3));
    switch (id) {
      case kSce:
      case kLfe:
      case kCpe: {
        if (num_elements_ == static_cast<int>(elements_.size())) elements_.push_back(std::make_unique<Element>());
        Element& e = *elements_[static_cast<std::size_t>(num_elements_)];
        e.type = id;
        e.tag = static_cast<int>(ReadBits(c, 4));
        e.common_window = 0;
        e.ms_mask_present = 0;
        e.sbr_count = 0;
        ++audio_index;
        if (id == kCpe) {
          AklAACChanPairElt cpe;
          if (const Status st = aklsDecodeChanPairElt_MP4_AAC(&c.p, &c.off, &e.pair_ics, &cpe, &ltp_info_, tools_.pred_sfb_max(),
                                                                tools_.reader_object_type(object_type_));
              st != kStsOk)
            return st;
          e.common_window = cpe.commonWindow;
          if (e.common_window) {
            e.ms_mask_present = cpe.msMaskPresent == 3 ? 0 : cpe.msMaskPresent;
            std::memcpy(e.ms_used, cpe.msUsed, sizeof(e.ms_used));
            e.ch[0].ltp = ltp_info_.ltpData[0];
            e.ch[1].ltp = ltp_info_.ltpData[1];
          }
          for (int k = 0; k < 2; ++k)
            if (const Status st = DecodeIcs(c, e.ch[k], e.common_window, &e.pair_ics); st != kStsOk) return st;
        } else {
          if (const Status st = DecodeIcs(c, e.ch[0], 0, nullptr); st != kStsOk) return st;
        }
        ++num_elements_;
        break;
      }
      case kCce:
        if (const Status st = DecodeCce(c); st != kStsOk) return st;
        break;
      case kDse: {
        Akl32s tag = 0, count = 0;
        Akl8u bytes[512];
        if (const Status st = aklsDecodeDatStrElt_AAC(&c.p, &c.off, &tag, &count, bytes); st != kStsOk) return st;
        break;
      }
      case kPce: {
        AklAACPrgCfgElt pce;
        if (const Status st = aklsDecodePrgCfgElt_AAC(&c.p, &c.off, &pce); st != kStsOk) return st;
        // The stream's object type comes from its ADTS or ADIF header; a
        // configuration element that names another one (or another sampling
        // rate) is damage, not a reason to refuse the stream.
        if (pce.objectType + 1 != object_type_ || (sfi_ >= 0 && pce.samplingFrequencyIndex != sfi_)) return kStsErr;
        if (!output_started_ && pce.numFrontElt + pce.numSideElt + pce.numBackElt + pce.numLfeElt > 0) {
          LayoutFromPce(pce, &layout_);
          have_layout_ = true;
        }
        break;
      }
      case kFil: {
        Akl32s count = 0;
        Akl8u bytes[272];
        if (const Status st = aklsDecodeFillElt_AAC(&c.p, &c.off, &count, bytes); st != kStsOk) return st;
        // Extension payloads 13 and 14 carry spectral band replication (and
        // with it parametric stereo): this decoder renders the AAC-LC core.
        // The warning waits for the block's END, so damage that merely
        // looks like such a payload does not raise it.
        const int ext = count > 0 ? bytes[0] >> 4 : 0;
        sbr_in_block = sbr_in_block || ext == 13 || ext == 14;
        if ((ext == 13 || ext == 14) && num_elements_ > 0) {
          Element& prev = *elements_[static_cast<std::size_t>(num_elements_ - 1)];
          if (!output_started_ && !ps_seen_ && prev.type == kSce && num_elements_ == 1) {
            const int has = SbrPayloadHasPs(bytes, count, 2 * sample_rate_);
            ps_seen_ = has == 1;
            ps_decided_ = has >= 0;
          }
          prev.sbr_count = count;
          std::memcpy(prev.sbr_bytes, bytes, static_cast<std::size_t>(count));
        }
        break;
      }
      case kEnd:
        ByteAlign(c);
        if (c.p > end) return kStsErr;
        if (sbr_in_block) sbr_seen_ = true;
        // Band replication is chosen when the output starts (implicit
        // signalling: a payload in the first decodable block).
        if (sbr_in_block && !sbr_warned_ && (!options_.sbr || (output_started_ && !sbr_))) {
          sbr_warned_ = true;
          sink_->Warn(options_.sbr ? "SBR payloads after the start of the output are ignored; decoding the AAC-LC core at " +
                                         std::to_string(sample_rate_) + " Hz"
                                   : "HE-AAC stream: decoding the AAC-LC core only at " +
                                         std::to_string(sample_rate_) + " Hz (--no-sbr)");
        }
        return kStsOk;
    }
  }
}

// The shift for one channel, or for the two channels of a pair with a
// common window (b not null).
int Decoder::ChooseShift(const ChannelStream& a, const ChannelStream* b) const {
  const ChannelStream* chans[2] = {&a, b};
  const bool is_short = a.ics().windowSequence == kEightShort;
  const SwbRow& bands = kSwb[(is_short ? 12 : 0) + sfi_];
  const int slots = a.ics().numWindowGroups * a.ics().maxSfb;
  double peak = -1e9;    // log2 of the largest Q3 magnitude at shift 0
  int need = -1000;      // lowest shift that keeps every band exact
  double left_peak[kBandSlots];
  int maxq[kBandSlots];
  for (int c = 0; c < 2 && chans[c]; ++c) {
    const ChannelStream& ch = *chans[c];
    BandMaxima(ch, bands, maxq);
    for (int i = 0; i < slots; ++i) {
      const int book = ch.cb[i];
      const int sf = ch.sf[i];
      double p = -1e9;
      if (book >= 1 && book <= 11 && maxq[i] > 0) {
        p = 3.0 + std::log2(static_cast<double>(maxq[i])) * (4.0 / 3.0) + 0.25 * (sf - 100);
        const int e = (sf - 100 + 3) >> 2;
        need = std::max(need, e - (maxq[i] < 4 ? 25 : 22));
      } else if (book == 13) {
        p = 3.0 + 0.25 * sf;  // a band of energy 64 * 2^(n/2) in Q3: no line above 8 * 2^(n/4)
      } else if ((book == 14 || book == 15) && c == 1) {
        p = left_peak[i] - 0.25 * sf;  // the left channel's band times 2^(-position/4)
      }
      if (c == 0) left_peak[i] = p;
      peak = std::max(peak, p);
    }
  }
  int shift = peak > -1e8 ? static_cast<int>(std::ceil(peak - (kPeakLog2 - headroom_))) : 0;
  shift = std::max(shift, need);
  return std::clamp(shift, -40, 64);
}

// Dequantization and noise substitution of one channel.
Status Decoder::SpectralSingle(ChannelStream& ch, int slot) {
  const AklAACIcsInfo& ics = ch.ics();
  const int wl = ch.win_len();
  ApplyShift(ch, ChooseShift(ch, nullptr));
  if (const Status st = aklsQuantInv_AAC_32s_I(ch.spec, ch.sf_lib, ics.numWindowGroups, ics.windowGroupLength,
                                               ics.maxSfb, ch.cb, sfi_, wl);
      st != kStsOk)
    return st;
  const int slots = ics.numWindowGroups * ics.maxSfb;
  bool noise = false;
  for (int i = 0; i < slots; ++i) noise |= ch.cb[i] == 13;
  if (noise) {
    const Status st = aklsDecodePNS_AAC_32s(ch.spec, ch.ltp_long_used, ch.cb, ch.sf_lib, ics.maxSfb,
                                            ics.numWindowGroups, ics.windowGroupLength, sfi_, wl, &noise_seed_);
    if (st != kStsOk) return st;
  }
  if (tools_.main_profile()) {
    alignas(16) float x[kFrame];
    std::memcpy(x, main_x_[slot], sizeof(x));
    Predict(ch, x);
  }
  return kStsOk;
}

Status Decoder::SpectralPair(Element& e) {
  ChannelStream& l = e.ch[0];
  ChannelStream& r = e.ch[1];
  if (!e.common_window) {
    if (const Status st = SpectralSingle(l, 0); st != kStsOk) return st;
    return SpectralSingle(r, 1);
  }
  const AklAACIcsInfo& ics = l.ics();
  const int wl = l.win_len();
  // One scale for both channels: M/S and intensity combine them band by band.
  const int shift = ChooseShift(l, &r);
  ApplyShift(l, shift);
  ApplyShift(r, shift);
  for (ChannelStream* ch : {&l, &r}) {
    if (const Status st = aklsQuantInv_AAC_32s_I(ch->spec, ch->sf_lib, ics.numWindowGroups, ics.windowGroupLength,
                                                 ics.maxSfb, ch->cb, sfi_, wl);
        st != kStsOk)
      return st;
  }
  const int slots = ics.numWindowGroups * ics.maxSfb;
  bool noise = false, intensity = false;
  for (int i = 0; i < slots; ++i) {
    noise |= l.cb[i] == 13 || r.cb[i] == 13;
    intensity |= r.cb[i] == 14 || r.cb[i] == 15;
  }
  if (noise) {
    const Status st = aklsDecodeMsPNS_AAC_32s(l.spec, r.spec, l.ltp_long_used, r.ltp_long_used, l.cb, r.cb, l.sf_lib,
                                              r.sf_lib, e.ms_mask_present, e.ms_used, ics.maxSfb, ics.numWindowGroups,
                                              ics.windowGroupLength, sfi_, wl, &noise_seed_);
    if (st != kStsOk) return st;
  }
  // M/S looks at one codebook per band: the right channel's, marked as noise
  // where either channel is noise, so that M/S skips noise and intensity bands
  // and toggles the intensity sign where msUsed asks.
  Akl8u merged[kBandSlots];
  for (int i = 0; i < slots; ++i) merged[i] = l.cb[i] == 13 ? 13 : r.cb[i];
  if (e.ms_mask_present == 1 || e.ms_mask_present == 2) {
    const Status st = aklsDecodeMsStereo_AAC_32s_I(l.spec, r.spec, e.ms_mask_present, e.ms_used, merged,
                                                   ics.numWindowGroups, ics.windowGroupLength, ics.maxSfb, sfi_, wl);
    if (st != kStsOk) return st;
  }
  if (tools_.main_profile()) {
    // The predictor's input takes M/S in single precision where the library
    // applied it to the integer spectra.
    alignas(16) float xl[kFrame], xr[kFrame];
    std::memcpy(xl, main_x_[0], sizeof(xl));
    std::memcpy(xr, main_x_[1], sizeof(xr));
    if (e.ms_mask_present == 1 || e.ms_mask_present == 2) {
      const SwbRow& bands = kSwb[sfi_];
      for (int b = 0; b < ics.maxSfb && ics.windowSequence != kEightShort; ++b) {
        if (merged[b] == 13 || merged[b] == 14 || merged[b] == 15 || (e.ms_mask_present == 1 && !e.ms_used[b])) continue;
        for (int i = bands.offset[b]; i < bands.offset[b + 1]; ++i) {
          const float m = xl[i], s = xr[i];
          xl[i] = m + s;
          xr[i] = m - s;
        }
      }
    }
    Predict(l, xl);
    Predict(r, xr);
  }
  if (intensity) {
    // A band that is noise on the left and intensity on the right takes the
    // right channel's intensity code (the merged array marks it as noise).
    for (int i = 0; i < slots; ++i)
      if (r.cb[i] == 14 || r.cb[i] == 15) merged[i] = merged[i] == 13 ? r.cb[i] : merged[i];
    const Status st = aklsDecodeIsStereo_AAC_32s(l.spec, r.spec, r.sf_lib, merged, ics.numWindowGroups,
                                                 ics.windowGroupLength, ics.maxSfb, sfi_, wl);
    if (st != kStsOk) return st;
  }
  return kStsOk;
}

// The spectral stage of an audio element (e) or of a coupling channel
// (cce): dequantization, noise, stereo, deinterleaving, coupling and TNS.
// If a line ends up near the 32-bit limit (TNS or coupling raised it past the
// room the shift left), the stage runs again from the quantized values with
// more headroom.
Status Decoder::SpectralElement(Element* e, ChannelStream* cce) {
  ChannelStream* chs[2] = {e ? &e->ch[0] : cce, e && e->type == kCpe ? &e->ch[1] : nullptr};
  const int nch = chs[1] ? 2 : 1;
  for (int c = 0; c < nch; ++c) std::memcpy(quantized_[c], chs[c]->spec, sizeof(quantized_[c]));
  const Akl32s seed = noise_seed_;
  for (int c = 0; c < nch; ++c) tools_.Save(chs[c]->key);  // a retry predicts from the same state
  if (tools_.main_profile())
    for (int c = 0; c < nch; ++c) MainInput(*chs[c], main_x_[c]);
  Status st = kStsOk;
  for (int attempt = 0; attempt < 2; ++attempt) {
    headroom_ = attempt == 0 ? 0 : kRetryHeadroom;
    if (attempt > 0) {
      for (int c = 0; c < nch; ++c) std::memcpy(chs[c]->spec, quantized_[c], sizeof(quantized_[c]));
      for (int c = 0; c < nch; ++c) tools_.Restore(chs[c]->key);
      noise_seed_ = seed;
    }
    st = e && e->type == kCpe ? SpectralPair(*e) : SpectralSingle(*chs[0], 0);
    for (int c = 0; c < nch && st == kStsOk; ++c) st = Finish(*chs[c]);
    for (int c = 0; c < nch && st == kStsOk && e; ++c)
      LongTermPredict(*chs[c], states_[static_cast<std::size_t>(chs[c]->key)].prev_shape);
    if (st == kStsOk && e) ApplyDependentCoupling(e->type, e->tag, 0, *e);
    for (int c = 0; c < nch && st == kStsOk; ++c) st = Tns(*chs[c]);
    if (st == kStsOk && e) ApplyDependentCoupling(e->type, e->tag, 1, *e);
    if (st != kStsOk) break;
    bool near_limit = false;
    for (int c = 0; c < nch; ++c)
      for (int i = 0; i < kFrame; ++i) near_limit |= chs[c]->spec[i] >= kNearLimit || chs[c]->spec[i] <= -kNearLimit;
    if (!near_limit) break;
  }
  headroom_ = 0;
  return st;
}

Status Decoder::Finish(ChannelStream& ch) {
  const AklAACIcsInfo& ics = ch.ics();
  if (ics.windowSequence != kEightShort) return kStsOk;
  alignas(16) Akl32s tmp[kFrame];
  const Status st = aklsDeinterleaveSpectrum_AAC_32s(ch.spec, tmp, ics.numWindowGroups, ics.windowGroupLength,
                                                     ics.maxSfb, sfi_, 128);
  if (st == kStsOk) std::memcpy(ch.spec, tmp, sizeof(tmp));
  return st;
}

void Decoder::ToolWarning(const char* tool, Status st) {
  if (++tool_failures_ <= 3)
    sink_->Warn(std::string(tool) + " skipped in a frame (library status " + std::to_string(st) + ")" +
                (tool_failures_ == 3 ? "; further cases are not reported" : ""));
}

// The predictors' state is kept in a short float format and every estimate
// is rounded to it, so their input must be the dequantized lines exactly as a
// single-precision decoder has them (|q|^(4/3) and 2^((sf - 100) / 4) each
// rounded to single precision, then their product), not the integer
// spectrum: lines far below the frame's loudest one keep only a few bits
// there, and an input one step off moves a truncated state now and then, so
// an estimate drifts for a few frames (up to 4 steps of output on a Main
// stream at 88.2 kHz).  Bands other than 1..11 are 0 here: noise bands are
// not predicted (their predictors restart) and intensity bands are written
// by intensity stereo afterwards.  Long windows only; a short frame passes
// through the predictors.
void Decoder::MainInput(const ChannelStream& ch, float* x) const {
  static const std::vector<float> pow43 = [] {
    std::vector<float> t(8192);
    for (int i = 0; i < 8192; ++i) t[static_cast<std::size_t>(i)] = static_cast<float>(std::pow(i, 4.0 / 3.0));
    return t;
  }();
  std::fill(x, x + kFrame, 0.0f);
  const AklAACIcsInfo& ics = ch.ics();
  if (ics.windowSequence == kEightShort) return;
  const SwbRow& bands = kSwb[sfi_];
  for (int b = 0; b < ics.maxSfb; ++b) {
    if (ch.cb[b] < 1 || ch.cb[b] > 11) continue;
    const float gain = static_cast<float>(std::exp2(0.25 * (ch.sf[b] - 100)));
    for (int i = bands.offset[b]; i < bands.offset[b + 1]; ++i) {
      const int q = ch.spec[i];
      const int m = q < -8191 || q > 8191 ? 8191 : std::abs(q);  // larger magnitudes fail the dequantizer
      x[i] = (q < 0 ? -pow43[static_cast<std::size_t>(m)] : pow43[static_cast<std::size_t>(m)]) * gain;
    }
  }
}

void Decoder::Predict(ChannelStream& ch, float* x) {
  if (const Status st = tools_.Predict(ch.key, x, ch.spec, ch.shift, ch.ics(), ch.cb); st != kStsOk)
    ToolWarning("frequency-domain prediction", st);
}

void Decoder::LongTermPredict(ChannelStream& ch, int prev_shape) {
  if (!tools_.ltp_profile() && !tools_.main_profile() && ch.ltp.ltpDataPresent) {
    ToolWarning("prediction data in a low-complexity stream", kStsNotSupportedModeErr);
    return;
  }
  if (const Status st = tools_.ApplyLtp(ch.key, ch.spec, ch.shift, ch.ltp, ch.ics(), ch.info, ch.tns_coef, prev_shape);
      st != kStsOk)
    ToolWarning("long-term prediction", st);
}

Status Decoder::Tns(ChannelStream& ch) {
  if (!ch.info.tnsDataPresent) return kStsOk;
  return aklsDecodeTNS_AAC_32s_I(ch.spec, ch.info.nFilt, ch.info.length, ch.info.order, ch.info.coefRes,
                                 ch.tns_coef, ch.info.direction, ch.ics().maxSfb, object_type_ - 1, sfi_, ch.win_len());
}

// Adds the dependently switched coupling channels that target this element
// (type, tag) in `domain` (0 before TNS, 1 after), band by band with their
// gain lists, to the deinterleaved spectra.
void Decoder::ApplyDependentCoupling(int type, int tag, int domain, Element& e) {
  for (int k = 0; k < num_cces_; ++k) {
    Cce& cce = *cces_[static_cast<std::size_t>(k)];
    if (cce.ind_sw || cce.cc_domain != domain) continue;
    const AklAACIcsInfo& ics = cce.ch.ics();
    const bool is_short = ics.windowSequence == kEightShort;
    int list = 0;
    for (int t = 0; t < cce.num_targets; ++t) {
      const CceTarget& tg = cce.targets[t];
      const bool match = tg.tag == tag && ((tg.is_cpe && type == kCpe) || (!tg.is_cpe && type == kSce));
      int lists_used = (tg.is_cpe && tg.ch_select == 3) ? 2 : 1;
      if (!match) {
        list += lists_used;
        continue;
      }
      auto apply = [&](ChannelStream& dst, int gl) {
        int window = 0;
        for (int g = 0; g < ics.numWindowGroups; ++g) {
          const int len = is_short ? ics.windowGroupLength[g] : 1;
          for (int b = 0; b < ics.maxSfb; ++b) {
            const int slot = g * ics.maxSfb + b;
            if (cce.ch.cb[slot] == 0) continue;
            // The coupling channel and the target may carry different scales.
            const double scale = std::ldexp(static_cast<double>(cce.gain[gl][slot]), cce.ch.shift - dst.shift);
            const int lo = BandOffset(b, is_short), hi = BandOffset(b + 1, is_short);
            for (int w = window; w < window + len; ++w)
              for (int i = w * 128 * is_short + lo; i < w * 128 * is_short + hi; ++i)
                dst.spec[i] = SaturateToInt32(static_cast<double>(dst.spec[i]) + scale * static_cast<double>(cce.ch.spec[i]));
          }
          window += len;
        }
      };
      if (type != kCpe) {
        apply(e.ch[0], list);
      } else {
        if (tg.ch_select != 1) apply(e.ch[0], list);
        if (tg.ch_select != 2) apply(e.ch[1], tg.ch_select == 3 ? list + 1 : list);
      }
      list += lists_used;
    }
  }
}

void Decoder::Synthesize(const ChannelStream& ch, ChannelState& st, float* out) {
  const AklAACIcsInfo& ics = ch.ics();
  const int shape = ics.windowShape & 1;
  const int prev = st.prev_shape;
  const float* __restrict rl_prev = windows_.rise_long[prev].data();
  const float* __restrict fl_cur = windows_.fall_long[shape].data();
  const float* __restrict rs_prev = windows_.rise_short[prev].data();
  const float* __restrict rs_cur = windows_.rise_short[shape].data();
  const float* __restrict fs_cur = windows_.fall_short[shape].data();
  float* __restrict ov = st.overlap.data();
  float* __restrict dst = out;
  alignas(64) float src[kFrame];
  alignas(64) float y[2 * kFrame];
  const float unit = std::ldexp(1.0f, ch.shift - 3);  // Q3 at the channel's scale
  for (int i = 0; i < kFrame; ++i) src[i] = static_cast<float>(ch.spec[i]) * unit;
  if (ics.windowSequence == kEightShort) {
    alignas(64) float z[2 * kFrame];
    std::fill(z, z + 2 * kFrame, 0.0f);
    for (int j = 0; j < 8; ++j) {
      imdct_short_.Run(src + 128 * j, y);
      const float* __restrict rise = j == 0 ? rs_prev : rs_cur;
      float* __restrict zw = z + 448 + 128 * j;
      for (int n = 0; n < 128; ++n) zw[n] += y[n] * rise[n];
      for (int n = 0; n < 128; ++n) zw[128 + n] += y[128 + n] * fs_cur[n];
    }
    for (int n = 0; n < kFrame; ++n) {
      dst[n] = z[n] + ov[n];
      ov[n] = z[kFrame + n];
    }
    st.prev_shape = shape;
    return;
  }
  // Long blocks: the first half, windowed, is added to the overlap and
  // written out; the second half, windowed, becomes the next overlap.  The
  // products and sums are those of windowing into a full block first.
  imdct_long_.Run(src, y);
  if (ics.windowSequence == kLongStop) {
    for (int n = 0; n < 448; ++n) dst[n] = 0.0f + ov[n];
    for (int n = 448; n < 576; ++n) dst[n] = y[n] * rs_prev[n - 448] + ov[n];
    for (int n = 576; n < kFrame; ++n) dst[n] = y[n] + ov[n];
  } else {
    for (int n = 0; n < kFrame; ++n) dst[n] = y[n] * rl_prev[n] + ov[n];
  }
  const float* __restrict y2 = y + kFrame;
  if (ics.windowSequence == kLongStart) {
    for (int n = 0; n < 448; ++n) ov[n] = y2[n];
    for (int n = 448; n < 576; ++n) ov[n] = y2[n] * fs_cur[n - 448];
    for (int n = 576; n < kFrame; ++n) ov[n] = 0.0f;
  } else {
    for (int n = 0; n < kFrame; ++n) ov[n] = y2[n] * fl_cur[n];
  }
  st.prev_shape = shape;
}

bool Decoder::StartOutput() {
  // WAV order: by speaker bit when every channel has its own; otherwise the
  // bitstream's order with no mask.
  std::vector<std::uint32_t> pos;
  for (const LayoutElement& le : layout_.elements) {
    pos.push_back(le.position[0]);
    if (le.type == kCpe) pos.push_back(le.position[1]);
  }
  std::uint32_t mask = 0;
  bool unique = true;
  for (std::uint32_t p : pos) {
    if (p == 0 || (mask & p)) unique = false;
    mask |= p;
  }
  wav_order_.assign(pos.size(), 0);
  for (std::size_t i = 0; i < pos.size(); ++i) {
    int rank = 0;
    for (std::size_t j = 0; j < pos.size(); ++j)
      if (unique ? pos[j] < pos[i] : j < i) ++rank;
    wav_order_[i] = rank;
  }
  channel_mask_ = unique ? mask : 0;
  states_.assign(pos.size(), ChannelState{});
  if (sbr_seen_ && options_.sbr) {
    // Dual rate up to a 24 kHz core; above it the band replication runs
    // down-sampled and the output keeps the core rate.
    sbr_ = std::make_unique<SbrDecoder>(sample_rate_, sbr_down_ >= 0 ? sbr_down_ == 1 : sample_rate_ > 24000,
                                        [this](const std::string& m) { sink_->Warn(m); });
  }
  if (sbr_ && ps_seen_ && options_.ps && pos.size() == 1 && layout_.elements[0].type == kSce) {
    // Parametric stereo: the mono element becomes a stereo pair.
    sbr_->EnablePs();
    ps_out_ = true;
    pos = {kFL, kFR};
    wav_order_ = {0, 1};
    channel_mask_ = kFL | kFR;
  }
  StreamFormat f;
  f.sample_rate = sample_rate_ * (sbr_ ? sbr_->OutputFactor() : 1);
  f.channels = static_cast<int>(pos.size());
  f.channel_mask = channel_mask_;
  f.object_type = object_type_;
  f.adif = adif_;
  output_started_ = true;
  return sink_->Format(f);
}

// Finds the layout element for the k-th audio element of a block.
static const LayoutElement* FindLayout(const Layout& layout, int k, int type, int tag) {
  if (layout.from_pce) {
    for (const LayoutElement& le : layout.elements) {
      if (le.type == type && le.tag == tag) return &le;
    }
    return nullptr;
  }
  if (k >= static_cast<int>(layout.elements.size())) return nullptr;
  const LayoutElement& le = layout.elements[static_cast<std::size_t>(k)];
  return le.type == type ? &le : nullptr;
}

// Every audio element of the block has its place in the layout and every
// channel of the layout receives data.
bool Decoder::BlockMatchesLayout() const {
  if (!have_layout_) return false;
  std::vector<bool> filled(static_cast<std::size_t>(layout_.channels), false);
  for (int k = 0; k < num_elements_; ++k) {
    const Element& e = *elements_[static_cast<std::size_t>(k)];
    const LayoutElement* le = FindLayout(layout_, k, e.type, e.tag);
    if (!le) return false;
    for (int c = 0; c < (e.type == kCpe ? 2 : 1); ++c) filled[static_cast<std::size_t>(le->first_channel + c)] = true;
  }
  for (bool f : filled)
    if (!f) return false;
  return true;
}

// The standard channel configuration (1..7) whose elements the block
// carries in that order; 0 if none.
int Decoder::ConfigOfBlock() const {
  for (int config = 1; config <= 7; ++config) {
    Layout l;
    LayoutFromConfig(config, &l);
    if (static_cast<int>(l.elements.size()) != num_elements_) continue;
    bool same = true;
    for (int k = 0; k < num_elements_ && same; ++k)
      same = elements_[static_cast<std::size_t>(k)]->type == l.elements[static_cast<std::size_t>(k)].type;
    if (same) return config;
  }
  return 0;
}

void Decoder::Conceal(const char* kind) {
  ++stats_->damaged;
  stats_->damage.Conceal(kind);
}

bool Decoder::EmitBlock(bool damaged, const char* kind) {
  ++stats_->frames;
  if (damaged) Conceal(kind);
  if (!output_started_) {
    // The layout is only trusted from a block that decodes and fills it
    // exactly: damage that still parses (a configuration element with other
    // channels, say) must not fix the stream's channel count.  Blocks held
    // back meanwhile are decoded again once the layout is known (the frame
    // loop rewinds to the first of them); where it cannot rewind, they come
    // out as silence.
    //
    // Clean blocks that carry the elements of a standard channel
    // configuration while there is no layout or it does not fit them (the
    // stream's only configuration element was damaged, say) vote for that
    // configuration, each with the square of its number of elements: damage
    // that still parses mostly leaves a single element before an END, so
    // one whole 5.1 block outweighs many of those.  Eight votes decide.  A
    // frame header that names a configuration only lets that one vote.
    if (!damaged && !BlockMatchesLayout()) {
      const int config = ConfigOfBlock();
      if (config != 0 && (header_config_ == 0 || header_config_ == config) &&
          (config_votes_[config] += num_elements_ * num_elements_) >= 8) {
        have_layout_ = LayoutFromConfig(config, &layout_);
        config_ = config;
      }
    }
    if (damaged || !BlockMatchesLayout()) {
      if (!damaged) Conceal(kConcealLayout);
      ++held_blocks_;
      return true;
    }
    // A mono HE-AAC stream that does not signal parametric stereo: the
    // output waits (kPsWait blocks at most; they are decoded again) for the
    // first SBR header, whose payload tells whether it is stereo.
    if (sbr_seen_ && options_.sbr && options_.ps && !ps_seen_ && !ps_decided_ && can_rewind_ && ps_wait_ < kPsWait &&
        layout_.elements.size() == 1 && layout_.elements[0].type == kSce) {
      ++ps_wait_;
      ++held_blocks_;
      return true;
    }
    if (!StartOutput()) return false;
    if (held_blocks_ > 0 && can_rewind_) {
      rewind_requested_ = true;
      return true;
    }
    const int held_len = kFrame * (sbr_ ? sbr_->OutputFactor() : 1);
    pcm_.assign((states_.size() + (ps_out_ ? 1 : 0)) * static_cast<std::size_t>(held_len), 0);
    for (; held_blocks_ > 0; --held_blocks_) {
      stats_->samples += held_len;
      if (!sink_->Frame(pcm_.data(), held_len)) return false;
    }
  }
  int channels = static_cast<int>(states_.size());
  out_.resize(static_cast<std::size_t>(channels) * kFrame);
  std::vector<bool> written(static_cast<std::size_t>(channels), false);

  // Spectral stage of everything first, so that a failure leaves the
  // synthesis state untouched and the whole block is concealed.
  std::vector<const LayoutElement*> where(static_cast<std::size_t>(num_elements_), nullptr);
  if (!damaged) {
    for (int k = 0; k < num_cces_ && !damaged; ++k) {
      Cce& cce = *cces_[static_cast<std::size_t>(k)];
      cce.ch.key = kCceKeys + (cce.tag & 15);
      damaged = SpectralElement(nullptr, &cce.ch) != kStsOk;
    }
    for (int k = 0; k < num_elements_ && !damaged; ++k) {
      Element& e = *elements_[static_cast<std::size_t>(k)];
      where[static_cast<std::size_t>(k)] = FindLayout(layout_, k, e.type, e.tag);
      if (!where[static_cast<std::size_t>(k)]) continue;  // an element outside the layout: ignored
      for (int c = 0; c < (e.type == kCpe ? 2 : 1); ++c) e.ch[c].key = where[static_cast<std::size_t>(k)]->first_channel + c;
      damaged = SpectralElement(&e, nullptr) != kStsOk;
    }
    if (damaged) Conceal(kConcealSpectral);
  }
  if (!damaged) {
    for (int k = 0; k < num_cces_; ++k) {
      Cce& cce = *cces_[static_cast<std::size_t>(k)];
      if (cce.ind_sw) Synthesize(cce.ch, cce_states_[cce.tag & 15], cce.time.data());
    }
    for (int k = 0; k < num_elements_; ++k) {
      Element& e = *elements_[static_cast<std::size_t>(k)];
      const LayoutElement* le = where[static_cast<std::size_t>(k)];
      if (!le) continue;
      const int nch = e.type == kCpe ? 2 : 1;
      for (int c = 0; c < nch; ++c) {
        const int oc = le->first_channel + c;
        if (written[static_cast<std::size_t>(oc)]) continue;
        float* out = out_.data() + static_cast<std::size_t>(oc) * kFrame;
        Synthesize(e.ch[c], states_[static_cast<std::size_t>(oc)], out);
        tools_.Update(oc, out, states_[static_cast<std::size_t>(oc)].overlap.data());
        written[static_cast<std::size_t>(oc)] = true;
      }
      // Independently switched coupling: the coupling channel's output,
      // scaled by its common gain, is added after the inverse transform.
      for (int j = 0; j < num_cces_; ++j) {
        const Cce& cce = *cces_[static_cast<std::size_t>(j)];
        if (!cce.ind_sw) continue;
        int list = 0;
        for (int t = 0; t < cce.num_targets; ++t) {
          const CceTarget& tg = cce.targets[t];
          const int used = (tg.is_cpe && tg.ch_select == 3) ? 2 : 1;
          const bool match = tg.tag == e.tag && (tg.is_cpe ? e.type == kCpe : e.type == kSce);
          if (match) {
            for (int c = 0; c < nch; ++c) {
              if (e.type == kCpe && ((c == 0 && tg.ch_select == 1) || (c == 1 && tg.ch_select == 2))) continue;
              const int gl = (e.type == kCpe && c == 1 && tg.ch_select == 3) ? list + 1 : list;
              const float g = cce.gain[gl][0];
              float* out = out_.data() + static_cast<std::size_t>(le->first_channel + c) * kFrame;
              for (int n = 0; n < kFrame; ++n) out[n] += g * cce.time[static_cast<std::size_t>(n)];
            }
          }
          list += used;
        }
      }
    }
  }
  // Channels without data this block (or all of them in a damaged block)
  // play out their overlap and fall silent: the concealment.  A block that
  // leaves a channel of the layout without data counts as damaged.
  bool missing = false;
  for (int c = 0; c < channels; ++c) {
    if (written[static_cast<std::size_t>(c)]) continue;
    missing = true;
    ChannelState& st = states_[static_cast<std::size_t>(c)];
    float* out = out_.data() + static_cast<std::size_t>(c) * kFrame;
    for (int n = 0; n < kFrame; ++n) out[n] = st.overlap[static_cast<std::size_t>(n)];
    st.overlap.fill(0.0f);
    tools_.Reset(c);
  }
  if (missing && !damaged) Conceal(kConcealMissing);
  if (damaged)
    for (ChannelState& st : cce_states_) st.overlap.fill(0.0f);

  // Band replication element by element (sbr.hpp), on the core output.
  int len = kFrame;
  const float* rows_src = out_.data();
  if (sbr_) {
    len = kFrame * sbr_->OutputFactor();
    sbr_out_.resize(static_cast<std::size_t>(channels + (ps_out_ ? 1 : 0)) * static_cast<std::size_t>(len));
    if (!damaged) {
      for (int k = 0; k < num_elements_; ++k) {
        const Element& e = *elements_[static_cast<std::size_t>(k)];
        const LayoutElement* le = where[static_cast<std::size_t>(k)];
        if (le && e.sbr_count > 0) sbr_->SetPayload(le->first_channel, e.sbr_bytes, e.sbr_count);
      }
    }
    for (const LayoutElement& le : layout_.elements) {
      const int nch = le.type == kCpe ? 2 : 1;
      const float* in[2];
      float* sout[2] = {nullptr, ps_out_ ? sbr_out_.data() + len : nullptr};
      for (int c = 0; c < nch; ++c) {
        in[c] = out_.data() + static_cast<std::size_t>(le.first_channel + c) * kFrame;
        sout[c] = sbr_out_.data() + static_cast<std::size_t>(le.first_channel + c) * static_cast<std::size_t>(len);
      }
      sbr_->Process(le.first_channel, nch, le.type == kCpe, le.type == kLfe, in, sout);
    }
    rows_src = sbr_out_.data();
  }
  // Clipping, rounding to nearest and interleaving in WAV order: the
  // library's SSE2 join, one row pointer per WAV position.
  if (ps_out_) {
    if (!sbr_) return false;
    channels = 2;
  }
  pcm_.resize(static_cast<std::size_t>(channels) * static_cast<std::size_t>(len));
  rows_.resize(static_cast<std::size_t>(channels));
  for (int c = 0; c < channels; ++c)
    rows_[static_cast<std::size_t>(wav_order_[static_cast<std::size_t>(c)])] =
        rows_src + static_cast<std::size_t>(c) * static_cast<std::size_t>(len);
  aklsJoin_32f16s_D2L(rows_.data(), channels, len, pcm_.data());
  stats_->samples += len;
  return sink_->Frame(pcm_.data(), len);
}

// Fixed ADTS header fields at p (7 bytes readable): 0 if not a plausible
// header (kit/adts.hpp), else the frame length.
static int AdtsFrameLength(const std::uint8_t* p, int* sfi, int* profile, int* config, int* blocks, int* protection_absent) {
  aklkit::AdtsHeader h;
  if (!aklkit::ParseAdtsHeader(p, &h)) return 0;
  *protection_absent = h.protection_absent;
  *profile = h.profile;
  *sfi = h.sfi;
  *config = h.config;
  *blocks = h.blocks;
  return h.frame_length;
}

// The length of an ID3v2 tag at pos (header, body and any footer), or of an
// ID3v1 tag that ends the data; 0 if there is none.
static std::size_t TagLength(const std::uint8_t* data, std::size_t size, std::size_t pos) {
  const std::uint8_t* p = data + pos;
  if (pos + 10 <= size && p[0] == 'I' && p[1] == 'D' && p[2] == '3' && p[3] != 0xFF && p[4] != 0xFF &&
      ((p[6] | p[7] | p[8] | p[9]) & 0x80) == 0) {
    const std::size_t body = (static_cast<std::size_t>(p[6]) << 21) | (static_cast<std::size_t>(p[7]) << 14) |
                             (static_cast<std::size_t>(p[8]) << 7) | p[9];
    const std::size_t len = 10 + body + ((p[5] & 0x10) ? 10 : 0);
    return std::min(len, size - pos);
  }
  if (pos + 128 == size && p[0] == 'T' && p[1] == 'A' && p[2] == 'G') return 128;
  return 0;
}

// A frame whose sync word is destroyed: the header's other fields still make
// sense (layer 0, this stream's sampling rate) and its frame length is exactly
// the distance to the next frame.  Its block count, or 0.
// Whether the bytes from c to end are raw data blocks (each followed by a
// CRC word if `crc`) that decode cleanly, fit the layout and end exactly at
// the end of the frame.
bool Decoder::ExtraBlocksFit(Cursor c, const Akl8u* end, bool crc) {
  if (!output_started_) return false;
  while (c.p < end) {
    if (DecodeRawBlock(c, end) != kStsOk || !BlockMatchesLayout()) return false;
    if (crc) c.p += 2;
  }
  return c.p == end && c.off == 0;
}

int Decoder::DestroyedSyncBlocks(const std::uint8_t* p, std::size_t len) const {
  std::uint8_t h[7];
  std::memcpy(h, p, 7);
  h[0] = 0xFF;
  h[1] = static_cast<std::uint8_t>(h[1] | 0xF0);
  int sfi, profile, config, blocks, pa;
  const int l = AdtsFrameLength(h, &sfi, &profile, &config, &blocks, &pa);
  return l > 0 && static_cast<std::size_t>(l) == len && sfi == sfi_ && profile + 1 == object_type_ ? blocks : 0;
}

void Decoder::DeclareDamageKinds() {
  for (const char* kind : {kSkipBefore, kSkipBetween, kSkipAfter, kSkipInFrame})
    stats_->damage.Declare(aklcli::Tally::kSkippedBytes, kind);
  for (const char* kind : {kConcealSync, kConcealHeader, kConcealTruncated, kConcealSyntax, kConcealSpectral, kConcealMissing,
                           kConcealLayout})
    stats_->damage.Declare(aklcli::Tally::kConcealedFrames, kind);
  for (const char* kind : {kDropRate, kDropAbsent}) stats_->damage.Declare(aklcli::Tally::kDroppedFrames, kind);
}

DecodeResult Decoder::Run(const std::uint8_t* data, std::size_t size, std::string* message) {
  message_ = message;
  DeclareDamageKinds();
  if (!imdct_long_.ok() || !imdct_short_.ok() || !sf_codes_.ok()) {
    *message = "the library could not build its inverse MDCT or scale-factor decoder";
    return DecodeResult::kRefused;
  }
  can_rewind_ = true;
  if (size >= 4 && std::memcmp(data, "ADIF", 4) == 0) {
    adif_ = true;
    LoadFrame(data, size);
    Akl8u* p = frame_;
    AklAACADIFHeader header;
    std::vector<AklAACPrgCfgElt> pces(16);
    AklAACPrgCfgElt* pce = pces.data();
    if (aklsUnpackADIFHeader_AAC(&p, &header, pce, 16) != kStsOk) {
      *message = "damaged ADIF header";
      return DecodeResult::kNoAudio;
    }
    if (!SetSampleRateIndex(pce[0].samplingFrequencyIndex, message)) return DecodeResult::kRefused;
    if (!CheckObjectType(pce[0].objectType + 1, message)) return DecodeResult::kRefused;
    LayoutFromPce(pce[0], &layout_);
    have_layout_ = layout_.channels > 0;
    Cursor c{p, 0};
    const Akl8u* end = frame_ + size;
    Cursor held_at = c;
    DecodeStats held_stats = *stats_;
    for (;;) {
      while (c.p < end) {
        if (!output_started_ && held_blocks_ == 0) {
          held_at = c;
          held_stats = *stats_;
        }
        const Status st = DecodeRawBlock(c, end);
        if (st == kStsNotSupportedModeErr) return DecodeResult::kRefused;
        if (!EmitBlock(st != kStsOk)) return DecodeResult::kSinkStopped;
        if (rewind_requested_) break;
        if (st != kStsOk) break;  // ADIF has no sync words to find the next block by
        sink_->Progress(static_cast<std::size_t>(c.p - frame_), size);
      }
      if (!rewind_requested_) break;
      rewind_requested_ = false;
      can_rewind_ = false;
      held_blocks_ = 0;
      c = held_at;
      *stats_ = held_stats;
    }
  } else {
    std::size_t pos = 0;
    bool synced = false;
    bool found = false;           // a frame has been found
    bool other_rate_run = false;  // the last frame was dropped for its rate
    std::size_t skip_from = 0;    // the run of bytes being passed over
    std::size_t skipped = 0;
    // A header at q whose frame is followed by another header (or by the end
    // of the data).
    auto chained = [&](std::size_t q) {
      int a, b, cc, d, e;
      const int l = AdtsFrameLength(data + q, &a, &b, &cc, &d, &e);
      if (l <= 0) return false;
      const std::size_t next = q + static_cast<std::size_t>(l);
      return next == size || (next + 7 <= size && AdtsFrameLength(data + next, &a, &b, &cc, &d, &e) > 0) ||
             (next < size && next + 7 > size);
    };
    auto skip = [&](const char* kind, std::size_t n) {
      stats_->damage.Skip(kind, n);
      stats_->skipped_bytes += static_cast<long>(n);
    };
    auto drop = [&](const char* kind, int n) {
      stats_->damage.Drop(kind, static_cast<std::uint64_t>(n));
      stats_->dropped += n;
    };
    // Where the frame loop goes back to when the layout becomes known after
    // blocks were held back: the first held frame, with the counts of then.
    struct Mark {
      std::size_t pos = 0;
      bool synced = false, found = false;
      DecodeStats stats;
    } held;
    for (;;) {
      while (pos + 7 <= size) {
        int sfi = 0, profile = 0, config = 0, blocks = 0, pa = 0;
        const int len = AdtsFrameLength(data + pos, &sfi, &profile, &config, &blocks, &pa);
        bool ok = len > 0;
        // Out of sync, a header counts only if the next one follows it (or
        // the data ends with it).
        if (ok && !synced) ok = chained(pos);
        // In sync, a frame length that is not followed by a header is suspect:
        // if a chained header starts inside the declared frame, the length was
        // damaged, and the frame ends there (decoded as damaged) instead of
        // swallowing the good frames it covers.
        std::size_t cut = 0;
        if (ok && synced && !chained(pos)) {
          const std::size_t limit = std::min(size, pos + static_cast<std::size_t>(len));
          for (std::size_t q = pos + 7; q + 7 <= limit; ++q) {
            if (chained(q)) {
              cut = q - pos;
              break;
            }
          }
        }
        if (!ok) {
          // Tags are not damage: an ID3v2 tag (before or between frames) and
          // an ID3v1 tag (the last 128 bytes) are passed over uncounted.
          const std::size_t tag = TagLength(data, size, pos);
          if (tag > 0) {
            if (skipped > 0) skip(found ? kSkipBetween : kSkipBefore, skipped);
            skipped = 0;
            pos += tag;
            synced = false;
            continue;
          }
          if (skipped == 0) skip_from = pos;
          ++pos;
          ++skipped;
          synced = false;
          continue;
        }
        if (skipped > 0) {
          // A frame whose sync word alone was destroyed is concealed in
          // place, so that the output keeps its length; other bytes between
          // frames are skipped.
          const int lost = found && output_started_ ? DestroyedSyncBlocks(data + skip_from, skipped) : 0;
          for (int b = 0; b < lost; ++b)
            if (!EmitBlock(true, kConcealSync)) return DecodeResult::kSinkStopped;
          if (lost == 0) skip(found ? kSkipBetween : kSkipBefore, skipped);
          skipped = 0;
        }
        if (!output_started_ && held_blocks_ == 0) held = Mark{pos, synced, found, *stats_};
        synced = true;
        found = true;
        if (stats_->frames == 0 || !output_started_) {
          // One damaged header must not refuse a whole AAC-LC stream: another
          // profile counts only when the next header says the same (or the
          // stream ends with this frame).  An unconfirmed frame is passed over;
          // its reason is kept in case no audio follows.
          if (profile != 1) {
            const std::size_t next = pos + (cut ? cut : static_cast<std::size_t>(len));
            int a, next_profile = -1, cc, d, e;
            const bool confirmed = next + 7 > size ||
                                   (AdtsFrameLength(data + next, &a, &next_profile, &cc, &d, &e) > 0 && next_profile == profile);
            if (!confirmed) {
              std::string why;
              ObjectTypeSupported(profile + 1, &why);
              if (message->empty()) *message = why;
              skip(kSkipBetween, next - pos);
              pos = next;
              continue;
            }
          }
          if (!CheckObjectType(profile + 1, message)) return DecodeResult::kRefused;
          if (sfi > 11) {
            *message = "unsupported sampling rate (7350 Hz)";
            return DecodeResult::kRefused;
          }
          // Until the output starts, the stream's rate is the latest frame's.
          if (sfi != sfi_) sfi_ = -1;
        }
        const std::size_t avail = cut ? cut : std::min(static_cast<std::size_t>(len), size - pos);
        // Frames at another sampling rate than the output's are dropped; a
        // lone one (the next header has the output's rate again) is a damaged
        // header, concealed in place so that the output keeps its timing.
        if (output_started_ && sfi != sfi_ && cut == 0) {
          const std::size_t next = pos + avail;
          int next_sfi = -1, a, cc, d, e;
          const bool lone = !other_rate_run && next + 7 <= size &&
                            AdtsFrameLength(data + next, &next_sfi, &a, &cc, &d, &e) > 0 && next_sfi == sfi_;
          if (lone) {
            for (int k = 0; k < blocks; ++k)
              if (!EmitBlock(true, kConcealHeader)) return DecodeResult::kSinkStopped;
            pos += avail;
            continue;
          }
          if (!rate_warned_) {
            rate_warned_ = true;
            sink_->Warn("frames at " + std::to_string(sfi <= 12 ? kSampleRates[sfi] : 0) + " Hz in a " +
                        std::to_string(sample_rate_) + " Hz stream are dropped");
          }
          drop(kDropRate, blocks);
          other_rate_run = true;
          pos += avail;
          continue;
        }
        other_rate_run = false;
        header_config_ = config;
        LoadFrame(data + pos, avail);
        const bool truncated = cut != 0 || avail < static_cast<std::size_t>(len);
        bool frame_ok = !truncated && SetSampleRateIndex(sfi, message);
        if (frame_ok && !have_layout_ && config != 0) {
          have_layout_ = LayoutFromConfig(config, &layout_);
          config_ = config;
        }
        Akl8u* p = frame_;
        AklAACADTSFrameHeader h;
        aklsUnpackADTSFrameHeader_AAC(&p, &h);
        Cursor c{p, 0};
        if (!pa && blocks > 1) c.p = frame_ + 7 + 2 * blocks;  // block positions and the header CRC
        const Akl8u* end = frame_ + avail;
        const char* kind = truncated ? kConcealTruncated : kConcealSyntax;
        // The blocks the header declares, as far as the frame holds them;
        // further blocks in the frame are decoded too.
        // Before the output starts, a frame counts only if the next header
        // confirms its sampling rate and channel configuration (or the data
        // ends with it): a damaged header must not fix the output's rate.
        if (frame_ok && !output_started_) {
          const std::size_t next = pos + avail;
          int next_sfi = -1, a, next_config = -1, d, e;
          frame_ok = next + 7 > size || (AdtsFrameLength(data + next, &next_sfi, &a, &next_config, &d, &e) > 0 &&
                                         next_sfi == sfi && next_config == config);
        }
        int b = 0;
        for (;; ++b) {
          const bool declared = b < blocks;
          if (frame_ok && c.p >= end) {
            if (declared) drop(kDropAbsent, blocks - b);
            break;
          }
          if (!declared && !frame_ok) break;
          if (!declared && !ExtraBlocksFit(c, end, pa == 0)) {
            // What follows the declared blocks is not a run of whole, clean
            // blocks that fill the frame: passed over.
            skip(kSkipInFrame, c.p < end ? static_cast<std::size_t>(end - c.p) : 0);
            break;
          }
          Status st = frame_ok ? DecodeRawBlock(c, end) : kStsErr;
          if (st == kStsNotSupportedModeErr) return DecodeResult::kRefused;
          if (!declared && !extra_blocks_warned_) {
            extra_blocks_warned_ = true;
            sink_->Warn("an ADTS frame holds more raw data blocks than its header declares; all are decoded");
          }
          if (!EmitBlock(st != kStsOk, kind)) return DecodeResult::kSinkStopped;
          if (rewind_requested_) break;
          if (st != kStsOk) frame_ok = false;
          if (!pa && blocks > 1) c.p += 2;  // the block's CRC
        }
        if (rewind_requested_) break;
        pos += avail;
        sink_->Progress(pos, size);
      }
      // The end of the data with blocks still held back and no layout: the
      // configuration with the most votes decides.
      if (!rewind_requested_ && !output_started_ && can_rewind_ && held_blocks_ > 0 && PsWaitEnds()) {
        if (!StartOutput()) return DecodeResult::kSinkStopped;
        rewind_requested_ = true;
      }
      if (!rewind_requested_ && !output_started_ && can_rewind_ && held_blocks_ > 0) {
        const auto best = std::max_element(config_votes_.begin(), config_votes_.end());
        if (*best > 0) {
          config_ = static_cast<int>(best - config_votes_.begin());
          have_layout_ = LayoutFromConfig(config_, &layout_);
          if (!StartOutput()) return DecodeResult::kSinkStopped;
          rewind_requested_ = true;
        }
      }
      if (!rewind_requested_) break;
      rewind_requested_ = false;
      can_rewind_ = false;
      held_blocks_ = 0;
      pos = held.pos;
      synced = held.synced;
      found = held.found;
      skipped = 0;
      *stats_ = held.stats;
    }
    if (skipped > 0) skip(found ? kSkipAfter : kSkipBefore, skipped);
    if (pos < size) skip(found ? kSkipAfter : kSkipBefore, size - pos);
  }
  if (!output_started_) {
    if (message->empty()) *message = stats_->frames ? "no decodable audio frame" : "no AAC (ADTS or ADIF) stream found";
    return DecodeResult::kNoAudio;
  }
  return DecodeResult::kOk;
}

// Raw access units: the same per-block path as ADTS and ADIF, with the
// configuration the container gave.
DecodeResult Decoder::RunAccessUnits(const RawConfig& config, const AccessUnit* units, std::size_t count,
                                     std::string* message) {
  message_ = message;
  DeclareDamageKinds();
  if (!imdct_long_.ok() || !imdct_short_.ok() || !sf_codes_.ok()) {
    *message = "the library could not build its inverse MDCT or scale-factor decoder";
    return DecodeResult::kRefused;
  }
  if (!SetSampleRateIndex(config.sampling_index, message)) return DecodeResult::kRefused;
  sample_rate_ = config.sample_rate;
  if (!CheckObjectType(config.object_type, message)) return DecodeResult::kRefused;
  if (config.channel_config > 0 && config.channel_config <= 7) {
    have_layout_ = LayoutFromConfig(config.channel_config, &layout_);
    config_ = header_config_ = config.channel_config;
  } else if (config.channel_config == 0 && config.pce) {
    LoadFrame(config.pce, config.pce_size);
    Cursor c{frame_ + config.pce_bit / 8, config.pce_bit % 8};
    AklAACPrgCfgElt pce;
    if (aklsDecodePrgCfgElt_AAC(&c.p, &c.off, &pce) != kStsOk || c.p > frame_ + config.pce_size) {
      *message = "damaged program configuration element in the decoder configuration";
      return DecodeResult::kRefused;
    }
    LayoutFromPce(pce, &layout_);
    have_layout_ = layout_.channels > 0;
  } else {
    *message = "channel configuration " + std::to_string(config.channel_config) + " is not supported";
    return DecodeResult::kRefused;
  }
  if (config.sbr_rate > 0) {
    // Explicit signalling: band replication from the first block, down-sampled
    // when the signalled rate is the core's own.
    if (options_.sbr) {
      sbr_seen_ = true;
      ps_seen_ = config.ps;
      sbr_down_ = config.sbr_rate == sample_rate_;
    } else {
      sbr_warned_ = true;
      sink_->Warn("HE-AAC stream: decoding the AAC-LC core only at " + std::to_string(sample_rate_) + " Hz (--no-sbr)");
    }
  }
  std::size_t consumed = 0, total = 0;
  for (std::size_t i = 0; i < count; ++i) total += units[i].size;
  // Blocks held back until the layout is known are decoded again from the first of them.
  can_rewind_ = true;
  std::size_t held_at = 0;
  DecodeStats held_stats = *stats_;
  for (std::size_t i = 0; i <= count; ++i) {
    if (i == count) {
      // The end with blocks held back for the parametric-stereo decision:
      // mono, from the first of them.
      if (output_started_ || held_blocks_ == 0 || !can_rewind_ || !PsWaitEnds()) break;
      if (!StartOutput()) return DecodeResult::kSinkStopped;
      can_rewind_ = false;
      held_blocks_ = 0;
      *stats_ = held_stats;
      i = held_at - 1;  // wraps to held_at at the loop's increment
      continue;
    }
    if (!output_started_ && held_blocks_ == 0) {
      held_at = i;
      held_stats = *stats_;
    }
    LoadFrame(units[i].data, units[i].size);
    Cursor c{frame_, 0};
    const Status st = DecodeRawBlock(c, frame_ + units[i].size);
    if (st == kStsNotSupportedModeErr) return DecodeResult::kRefused;
    if (!EmitBlock(st != kStsOk, kConcealSyntax)) return DecodeResult::kSinkStopped;
    if (rewind_requested_) {
      rewind_requested_ = false;
      can_rewind_ = false;
      held_blocks_ = 0;
      *stats_ = held_stats;
      i = held_at - 1;  // wraps to held_at at the loop's increment
      continue;
    }
    consumed += units[i].size;
    sink_->Progress(consumed, total);
  }
  if (!output_started_) {
    if (message->empty()) *message = count ? "no decodable audio frame" : "no access units in the track";
    return DecodeResult::kNoAudio;
  }
  return DecodeResult::kOk;
}

}  // namespace

DecodeResult DecodeAacAccessUnits(const RawConfig& config, const AccessUnit* units, std::size_t count, PcmSink* sink,
                                  DecodeStats* stats, std::string* message, const DecodeOptions& options) {
  auto decoder = std::make_unique<Decoder>(sink, stats, options);
  return decoder->RunAccessUnits(config, units, count, message);
}
DecodeStats::DecodeStats() = default;

DecodeResult DecodeAacBuffer(const std::uint8_t* data, std::size_t size, PcmSink* sink, DecodeStats* stats,
                             std::string* message, const DecodeOptions& options) {
  auto decoder = std::make_unique<Decoder>(sink, stats, options);
  return decoder->Run(data, size, message);
}

}  // namespace aacdec
