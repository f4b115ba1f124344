// The Layer III encoder of akl-mp3enc; see encoder.hpp.
//
// The path of one granule: the float analysis filter bank of the library
// turns 576 new PCM samples per channel into 18 slots of subband samples;
// an attack in the subband energies (checked one granule ahead) asks for
// short blocks, and the block types are chained start - short - stop as the
// windows require; aklsMDCTFwd_MP3_32s gives the spectrum.  Masking
// thresholds per scale-factor band come from the spectrum itself (band
// energies spread over the Bark scale, an offset between noise-like and
// tonal bands, the threshold in quiet).  For every band the coarsest
// quantizer step whose noise stays below its threshold is found; the global
// gain and the scale factors follow from those steps, and the rate control
// then moves the global gain until the bits fit the granule's budget (CBR,
// ABR) or keeps the noise targets (VBR).  Quantization, Huffman coding and
// all packing are library operations; frames are assembled here with the
// bit reservoir.
#include "mp3enc/encoder.hpp"
#include "kit/mpeg_audio.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace aklenc {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Scale-factor band boundaries (ISO/IEC 11172-3 Table 3-B.8, ISO/IEC
// 13818-3 Table B.2), row id * 3 + samplingFreqIndex.
constexpr short kSfbLong[6][23] = {
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 114, 136, 162, 194, 232, 278, 332, 394, 464, 540, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 42, 50, 60, 72, 88, 106, 128, 156, 190, 230, 276, 330, 384, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 54, 66, 82, 102, 126, 156, 194, 240, 296, 364, 448, 550, 576},
};
constexpr short kSfbShort[6][14] = {
    {0, 4, 8, 12, 18, 24, 32, 42, 56, 74, 100, 132, 174, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 136, 180, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192},
    {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192},
    {0, 4, 8, 12, 16, 22, 28, 38, 50, 64, 80, 100, 126, 192},
    {0, 4, 8, 12, 16, 22, 30, 42, 58, 78, 104, 138, 180, 192},
};
// Bit rates and sampling rates by id (1 MPEG-1, 0 MPEG-2) and index.
int Kbps(int id, int index) { return aklkit::MpegKbps(id ? 10 : 20, 3, index); }
int SampleRate(int id, int sfi) { return aklkit::MpegSampleRate(id ? 10 : 20, sfi); }
constexpr int kSlen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
constexpr int kSlen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};

// One band of a granule in stream order.
struct Band {
  int start, len;  // stream order
  int sf;          // scale-factor entry
  int band, window;
  int mdct0;       // short: first line of the band within its window
};

int Layout(int block_type, int row, Band* out) {
  int n = 0;
  if (block_type != 2) {
    for (int b = 0; b < 22; ++b) out[n++] = {kSfbLong[row][b], kSfbLong[row][b + 1] - kSfbLong[row][b], b, b, -1, 0};
  } else {
    for (int b = 0; b < 13; ++b) {
      const int w0 = kSfbShort[row][b], width = kSfbShort[row][b + 1] - w0;
      for (int w = 0; w < 3; ++w) out[n++] = {3 * w0 + w * width, width, 3 * b + w, b, w, w0};
    }
  }
  return n;
}

// Transform layout index of stream line j of band bd.
inline int MdctIndex(const Band& bd, int j) {
  if (bd.window < 0) return bd.start + j;
  const int k = bd.mdct0 + j;
  return 18 * (k / 6) + 6 * bd.window + k % 6;
}

// Largest scale factor a band can carry (its field width).
int SfMax(int id, int block_type, int band) {
  if (block_type != 2) {
    if (band == 21) return 0;
    if (id == 1) return band <= 10 ? 15 : 7;
    return band <= 10 ? 15 : 7;  // MPEG-2 partitions 6,5 | 5,5 bands with slen up to 4,4 | 3,3
  }
  if (band == 12) return 0;
  return band <= 5 ? 15 : 7;
}

double Bark(double f) { return 13.0 * std::atan(0.00076 * f) + 3.5 * std::atan((f / 7500.0) * (f / 7500.0)); }

// Threshold in quiet (dB SPL) of a tone at f Hz.
double AthDb(double f) {
  const double k = std::max(f, 20.0) / 1000.0;
  return 3.64 * std::pow(k, -0.8) - 6.5 * std::exp(-0.6 * (k - 3.3) * (k - 3.3)) + 0.001 * k * k * k * k;
}

struct Pow43Table {
  std::vector<double> v;
  Pow43Table() : v(8207) {
    for (int i = 0; i < 8207; ++i) v[static_cast<std::size_t>(i)] = std::pow(static_cast<double>(i), 4.0 / 3.0);
  }
};
const Pow43Table kPow43;

}  // namespace

int BitrateKbps(int id, int index) { return index >= 1 && index <= 14 ? Kbps(id, index) : 0; }
int BitrateIndex(int id, int kbps) {
  for (int i = 1; i < 15; ++i)
    if (Kbps(id, i) == kbps) return i;
  return -1;
}

struct Encoder::Channel {
  AklsAnalysisState_PQMF_MP3_32f* ana = nullptr;
  std::vector<Akl32s> overlap = std::vector<Akl32s>(576, 0);
  std::vector<Akl32s> sb_pending = std::vector<Akl32s>(576, 0);  // subband samples of the granule to transform
  std::vector<Akl32s> sb_new = std::vector<Akl32s>(576, 0);
  ~Channel() {
    if (ana) aklsAnalysisFilterFree_PQMF_MP3_32f(ana);
  }
};

struct Encoder::Granule {
  int block_type = 0;
  bool ms = false;
  Akl32s xr[2][576];
  double thr[2][39];
  double pe[2] = {0, 0};
  Akl32s ix[2][576];
  Akl8s sf[2][39];
  AklMP3SideInfo si[2];
  int part2[2] = {0, 0};
  int bits[2] = {0, 0};
};

struct Encoder::PendingFrame {
  std::vector<std::uint8_t> data;
  int fill = 0;  // next main-data byte
};

Encoder::Encoder() = default;
Encoder::~Encoder() = default;

bool Encoder::Init(const EncoderConfig& c, std::string* error) {
  cfg_ = c;
  id_ = -1;
  for (int id = 0; id < 2; ++id)
    for (int s = 0; s < 3; ++s)
      if (SampleRate(id, s) == c.rate) id_ = id, sfi_ = s;
  if (id_ < 0) {
    *error = "unsupported sampling rate " + std::to_string(c.rate) +
             " Hz (32000, 44100, 48000, 16000, 22050 or 24000 Hz are supported)";
    return false;
  }
  if (c.in_channels < 1 || c.in_channels > 2) {
    *error = "unsupported channel count";
    return false;
  }
  nch_ = (c.mode == 'm' || c.in_channels == 1) ? 1 : 2;
  if (c.mode == 's' || c.mode == 'j' || c.mode == 'm') {
  } else {
    *error = "unknown mode";
    return false;
  }
  ngr_ = id_ == 1 ? 2 : 1;
  side_bytes_ = id_ == 1 ? (nch_ == 1 ? 17 : 32) : (nch_ == 1 ? 9 : 17);
  if (c.rc != RateControl::kVbr) {
    cbr_index_ = BitrateIndex(id_, c.kbps);
    if (c.rc == RateControl::kCbr && cbr_index_ < 0) {
      *error = "bit rate " + std::to_string(c.kbps) + " kbit/s is not an " + (id_ == 1 ? "MPEG-1" : "MPEG-2") +
               " Layer III rate at " + std::to_string(c.rate) + " Hz";
      return false;
    }
    if (c.rc == RateControl::kAbr && (c.kbps < Kbps(id_, 1) || c.kbps > Kbps(id_, 14))) {
      *error = "average bit rate out of range";
      return false;
    }
  }
  // Lowpass: from the bit rate per channel, or the VBR quality.
  if (c.lowpass_hz >= 0) {
    lowpass_hz_ = c.lowpass_hz;
  } else {
    double per_ch;
    if (c.rc == RateControl::kVbr)
      per_ch = 150.0 - 11.0 * c.vbr_quality;  // V0 ~ 150, V9 ~ 50 kbit/s per channel
    else
      per_ch = static_cast<double>(c.kbps) / nch_ * (nch_ == 2 && c.mode == 'j' ? 1.15 : 1.0);
    static const double kPts[][2] = {{8, 2500},   {16, 5500},  {24, 8000},  {32, 11000}, {40, 13000}, {48, 14500},
                                     {56, 15500}, {64, 17000}, {80, 18500}, {96, 19500}, {112, 20000}, {160, 20500}};
    double hz = kPts[0][1];
    for (std::size_t i = 0; i + 1 < sizeof kPts / sizeof kPts[0]; ++i)
      if (per_ch >= kPts[i][0]) {
        const double t = std::min(1.0, (per_ch - kPts[i][0]) / (kPts[i + 1][0] - kPts[i][0]));
        hz = kPts[i][1] + t * (kPts[i + 1][1] - kPts[i][1]);
      }
    lowpass_hz_ = static_cast<int>(std::min(hz, 0.48 * c.rate));
  }
  lowpass_line_ = lowpass_hz_ > 0 ? std::min(576, static_cast<int>(std::ceil(lowpass_hz_ * 1152.0 / c.rate))) : 576;

  hdr_ = AklMP3FrameHeader{};
  hdr_.id = id_;
  hdr_.layer = 1;
  hdr_.protectionBit = c.crc ? 0 : 1;
  hdr_.samplingFreqIndex = sfi_;
  hdr_.mode = nch_ == 1 ? 3 : (c.mode == 'j' ? 1 : 0);
  hdr_.originalHome = 1;

  ch_.clear();
  for (int i = 0; i < nch_; ++i) {
    auto chan = std::make_unique<Channel>();
    if (aklsAnalysisFilterInitAlloc_PQMF_MP3_32f(&chan->ana) != kStsOk) {
      *error = "out of memory";
      return false;
    }
    ch_.push_back(std::move(chan));
  }
  if (c.info_frame) {
    // The info frame takes the place of one frame ahead of the audio.
    const std::vector<std::uint8_t> info = InfoFrame();
    pending_.push_back(PendingFrame{info, static_cast<int>(info.size())});
  }
  return true;
}

int Encoder::FrameBytes(int index, int pad) const {
  return aklkit::MpegFrameBytes(id_ ? 10 : 20, 3, Kbps(id_, index), cfg_.rate, pad);
}

int Encoder::MaxReservoirBytes(int index) const {
  const int frame_bits = FrameBytes(index, 0) * 8;
  const int cap = id_ == 1 ? 511 : 255;
  const int rule = (7680 - std::min(frame_bits, 7680)) / 8;
  return std::min(cap, rule);
}

int Encoder::encoder_delay() const { return 481 + 576 - 529; }

int Encoder::padding() const {
  const std::int64_t total = (frames_out_ - (cfg_.info_frame ? 1 : 0)) * 576 * ngr_;
  return static_cast<int>(total - encoder_delay() - samples_in_);
}

double Encoder::average_kbps() const {
  const std::int64_t n = frames_out_ - (cfg_.info_frame ? 1 : 0);
  return n > 0 ? static_cast<double>(kbps_sum_) / static_cast<double>(n) : 0.0;
}

void Encoder::Encode(const float* pcm, int frames) {
  for (int i = 0; i < frames; ++i) {
    if (nch_ == 1) {
      float v = pcm[i * cfg_.in_channels];
      if (cfg_.in_channels == 2) v = 0.5f * (v + pcm[i * 2 + 1]);
      inbuf_[0].push_back(v);
    } else {
      inbuf_[0].push_back(pcm[i * cfg_.in_channels]);
      inbuf_[1].push_back(pcm[i * cfg_.in_channels + (cfg_.in_channels == 2 ? 1 : 0)]);
    }
    if (inbuf_[0].size() == 576) ProcessInputGranule();
  }
  samples_in_ += frames;
}

// An attack in the 24 slots the short windows of the granule would cover
// (the last 12 of the previous granule's subband samples and the first 12
// of this one's): the energy of a 3-slot segment above 10 times that of the
// loudest of the two segments before it, and above -60 dB of full scale.
bool Encoder::Attack(int c) const {
  const Channel& ch = *ch_[static_cast<std::size_t>(c)];
  double e[10];
  for (int s = 0; s < 10; ++s) {
    double acc = 0;
    for (int t = 0; t < 3; ++t) {
      const int slot = 3 * s + t;  // 0..17 previous granule, 18..29 this one
      const Akl32s* row = slot < 18 ? ch.sb_pending.data() + 32 * slot : ch.sb_new.data() + 32 * (slot - 18);
      for (int sb = 1; sb < 32; ++sb) {
        const double v = row[sb] / 67108864.0;
        acc += v * v;
      }
    }
    e[s] = acc;
  }
  for (int s = 2; s < 10; ++s) {
    const double before = std::max(e[s - 1], e[s - 2]);
    if (e[s] > 1e-6 && e[s] > 10.0 * before) return true;
  }
  return false;
}

void Encoder::ProcessInputGranule() {
  float sb[576];
  for (int c = 0; c < nch_; ++c) {
    Channel& ch = *ch_[static_cast<std::size_t>(c)];
    aklsAnalysisFilter_PQMF_MP3_32f(inbuf_[c].data(), sb, ch.ana, 18);
    for (int i = 0; i < 576; ++i) {
      const double v = std::nearbyint(static_cast<double>(sb[i]) * 67108864.0);
      ch.sb_new[static_cast<std::size_t>(i)] = static_cast<Akl32s>(std::clamp(v, -2147483647.0, 2147483647.0));
    }
    inbuf_[c].clear();
  }
  bool desired_short = false;
  for (int c = 0; c < nch_; ++c) desired_short = desired_short || Attack(c);
  if (granules_in_ == 0) desired_short = false;
  if (granules_in_ > 0) {
    // Block type of the pending granule, chained so that windows match.
    int t;
    const bool prev_short_side = prev_block_type_ == 1 || prev_block_type_ == 2;
    if (prev_short_side)
      t = (desired_short_prev_ || desired_short) ? 2 : 3;
    else
      t = desired_short ? 1 : 0;
    EncodeGranule(t, desired_short);
    prev_block_type_ = t;
  }
  desired_short_prev_ = desired_short;
  for (auto& ch : ch_) std::swap(ch->sb_pending, ch->sb_new);
  ++granules_in_;
}

namespace {

// Masking threshold (allowed noise energy) of every band of one channel,
// and the channel's perceptual entropy estimate.
double Thresholds(const Akl32s* xr, int block_type, int row, int rate, int lowpass_line, double* thr) {
  Band bands[39];
  const int nb = Layout(block_type, row, bands);
  const bool short_block = block_type == 2;
  double e[39], bark[39], tonal_off[39], athv[39];
  for (int n = 0; n < nb; ++n) {
    const Band& bd = bands[n];
    double sum = 0, logsum = 0;
    for (int j = 0; j < bd.len; ++j) {
      const double v = xr[MdctIndex(bd, j)] / 67108864.0;
      sum += v * v;
      logsum += std::log(v * v + 1e-20);
    }
    e[n] = sum;
    const double line_hz = short_block ? rate / 384.0 : rate / 1152.0;
    const double first = short_block ? bd.mdct0 : bd.start;
    const double fc = (first + bd.len * 0.5) * line_hz;
    bark[n] = Bark(fc);
    // Flatness in dB: about 5.5 for noise, large for a few strong lines.  The
    // offsets below the spread energy (16 dB noise-like, 22 dB and more tonal)
    // were chosen by PEAQ on the items of quality/make_items.sh at 128 kbit/s.
    const double mean = sum / bd.len + 1e-20;
    const double flat_db = -10.0 * std::log10(std::exp(logsum / bd.len) / mean + 1e-30);
    const double tonal = std::clamp((flat_db - 6.0) / 18.0, 0.0, 1.0);
    tonal_off[n] = tonal * (22.0 + 0.2 * bark[n]) + (1.0 - tonal) * 16.0;
    double ath = 1e9;
    for (int j = 0; j < bd.len; ++j) ath = std::min(ath, AthDb((first + j + 0.5) * line_hz));
    // Full scale taken as 92 dB SPL; short windows hold a third of the energy.
    athv[n] = std::pow(10.0, (ath - 92.0) / 10.0) * (short_block ? 1.0 / 3.0 : 1.0) * std::max(1.0, bd.len / 8.0);
  }
  double pe = 0;
  for (int n = 0; n < nb; ++n) {
    const Band& bd = bands[n];
    double m = 0;
    for (int k = 0; k < nb; ++k) {
      if (bands[k].window != bd.window) continue;
      const double dz = bark[n] - bark[k];  // > 0: masker below
      const double att_db = dz >= 0 ? 15.0 * dz : -27.0 * dz;
      if (att_db > 60) continue;
      m += e[k] / bands[k].len * std::pow(10.0, -att_db / 10.0);
    }
    double t = m * bd.len * std::pow(10.0, -tonal_off[n] / 10.0);
    t = std::max(t, athv[n]);
    const int first = short_block ? 3 * bd.mdct0 : bd.start;
    if ((short_block ? bd.mdct0 * 3 : first) >= lowpass_line) t = std::max(t, e[n] + 1e-12);
    thr[n] = t;
    if (e[n] > t) pe += bd.len * std::log2(e[n] / t) * 0.5;
  }
  return pe;
}

}  // namespace

void Encoder::EncodeGranule(int block_type, bool /*lookahead_short*/) {
  auto g = std::make_unique<Granule>();
  g->block_type = block_type;
  const int row = id_ * 3 + sfi_;
  for (int c = 0; c < nch_; ++c) {
    Channel& ch = *ch_[static_cast<std::size_t>(c)];
    aklsMDCTFwd_MP3_32s(ch.sb_pending.data(), g->xr[c], ch.overlap.data(), block_type, 0);
    // Lowpass: clear the lines above the cutoff.
    if (block_type == 2) {
      const int cut = (lowpass_line_ + 2) / 3;
      for (int sb = 0; sb < 32; ++sb)
        for (int w = 0; w < 3; ++w)
          for (int k = 0; k < 6; ++k)
            if (6 * sb + k >= cut) g->xr[c][18 * sb + 6 * w + k] = 0;
    } else {
      for (int i = lowpass_line_; i < 576; ++i) g->xr[c][i] = 0;
    }
  }
  for (int c = 0; c < nch_; ++c) g->pe[c] = Thresholds(g->xr[c], block_type, row, cfg_.rate, lowpass_line_, g->thr[c]);
  if (block_type == 2) ++short_granules_;
  if (nch_ == 2 && cfg_.mode == 'j') {
    // Mid/side when it lowers the perceptual entropy, with the smaller of
    // the two thresholds for both channels.
    Granule ms;
    std::memcpy(ms.xr, g->xr, sizeof ms.xr);
    AklMP3FrameHeader h = hdr_;
    h.modeExtension = 2;
    aklsJointStereoEncode_MP3_32s_I(&ms.xr[0][0], &h);
    double t_ms[39], pe_ms = 0;
    Band bands[39];
    const int nb = Layout(block_type, row, bands);
    for (int n = 0; n < nb; ++n) t_ms[n] = std::min(g->thr[0][n], g->thr[1][n]);
    double pe_parts[2] = {0, 0};
    for (int c = 0; c < 2; ++c)
      for (int n = 0; n < nb; ++n) {
        double e = 0;
        for (int j = 0; j < bands[n].len; ++j) {
          const double v = ms.xr[c][MdctIndex(bands[n], j)] / 67108864.0;
          e += v * v;
        }
        if (e > t_ms[n]) pe_parts[c] += bands[n].len * std::log2(e / t_ms[n]) * 0.5;
      }
    pe_ms = pe_parts[0] + pe_parts[1];
    if (pe_ms < 0.95 * (g->pe[0] + g->pe[1])) {
      g->ms = true;
      std::memcpy(g->xr, ms.xr, sizeof ms.xr);
      for (int c = 0; c < 2; ++c) {
        std::memcpy(g->thr[c], t_ms, sizeof t_ms);
        g->pe[c] = pe_parts[c];
      }
      ++ms_granules_;
    }
  }
  frame_gr_.push_back(std::move(g));
  ++granules_coded_;
  if (static_cast<int>(frame_gr_.size()) == ngr_) EncodeFrame();
}

namespace {

// Part 2 bits and scalefac_compress for the scale factors of one channel.
int ScaleFactorCompress(int id, int block_type, const Akl8s* sf, int* part2) {
  if (id == 1) {
    int m1 = 0, m2 = 0;
    const int n1 = block_type == 2 ? 18 : 11, n2 = block_type == 2 ? 18 : 10;
    for (int i = 0; i < n1; ++i) m1 = std::max(m1, static_cast<int>(sf[i]));
    for (int i = n1; i < n1 + n2; ++i) m2 = std::max(m2, static_cast<int>(sf[i]));
    int best = -1, best_bits = 1 << 30;
    for (int c = 0; c < 16; ++c) {
      if ((1 << kSlen1[c]) - 1 < m1 || (1 << kSlen2[c]) - 1 < m2) continue;
      const int bits = n1 * kSlen1[c] + n2 * kSlen2[c];
      if (bits < best_bits) best = c, best_bits = bits;
    }
    *part2 = best_bits;
    return best;
  }
  // MPEG-2, scalefac_compress below 400: four partitions.
  static const int kLong[4] = {6, 5, 5, 5}, kShort[4] = {9, 9, 9, 9};
  const int* nr = block_type == 2 ? kShort : kLong;
  int slen[4], pos = 0, bits = 0;
  for (int p = 0; p < 4; ++p) {
    int m = 0;
    for (int i = 0; i < nr[p]; ++i) m = std::max(m, static_cast<int>(sf[pos + i]));
    pos += nr[p];
    int s = 0;
    while ((1 << s) - 1 < m) ++s;
    slen[p] = s;
    bits += s * nr[p];
  }
  *part2 = bits;
  return ((slen[0] * 5 + slen[1]) << 4) + (slen[2] << 2) + slen[3];
}

}  // namespace

// Quantizes one channel of a granule: per-band noise targets first, then
// the global gain that meets the bit budget.
void Encoder::QuantizeChannel(Granule& g, int c, int budget, bool vbr) {
  const int row = id_ * 3 + sfi_;
  Band bands[39];
  const int nb = Layout(g.block_type, row, bands);
  AklMP3SideInfo& si = g.si[c];
  si = AklMP3SideInfo{};
  si.windowSwitchingFlag = g.block_type != 0;
  si.blockType = g.block_type;
  Akl8s* sf = g.sf[c];
  std::memset(sf, 0, 39);

  // The coarsest step (attenuation a, in quarter octaves) that keeps each
  // band's noise under its threshold.
  double ax[576], p34[576];
  double maxp34[39];
  bool silent = true;
  for (int n = 0; n < nb; ++n) {
    maxp34[n] = 0;
    for (int j = 0; j < bands[n].len; ++j) {
      const double v = std::fabs(g.xr[c][MdctIndex(bands[n], j)] / 67108864.0);
      const int s = bands[n].start + j;
      ax[s] = v;
      p34[s] = std::sqrt(v * std::sqrt(v));
      maxp34[n] = std::max(maxp34[n], p34[s]);
      if (v > 0) silent = false;
    }
  }
  auto band_noise = [&](int n, int a) {
    const double up = std::exp2(0.1875 * a), down = std::exp2(-0.25 * a);
    double noise = 0;
    for (int j = 0; j < bands[n].len; ++j) {
      const int s = bands[n].start + j;
      double q = std::floor(p34[s] * up + 0.4054);
      if (q > 8206) q = 8206;
      const double r = kPow43.v[static_cast<std::size_t>(q)] * down;
      noise += (ax[s] - r) * (ax[s] - r);
    }
    return noise;
  };
  // Larger a means a finer step (the decoder attenuates by 2^(-a/4)).
  const int kAmin = -45, kAmax = 275;
  int need[39];
  for (int n = 0; n < nb; ++n) {
    if (maxp34[n] == 0 || band_noise(n, kAmin) <= g.thr[c][n]) {
      need[n] = kAmin;  // may quantize to nothing
      continue;
    }
    // q stays at most 8206 up to a_sat.
    const int a_sat = static_cast<int>(std::floor(16.0 / 3.0 * std::log2(8205.0 / maxp34[n])));
    int lo = kAmin, hi = std::min(kAmax, a_sat);  // noise(lo) too large
    if (band_noise(n, hi) > g.thr[c][n]) {
      need[n] = hi;
      continue;
    }
    while (hi - lo > 1) {
      const int mid = (lo + hi) / 2;
      if (band_noise(n, mid) <= g.thr[c][n]) hi = mid; else lo = mid;
    }
    need[n] = hi;
  }
  const int shift = 1;  // scalefac_scale 0: scale-factor steps of 2 quarter octaves
  // The base attenuation a0 = 210 - globalGain: as coarse as the coarsest
  // band allows, but fine enough that no band needs more scale factor than
  // its field holds.
  int a0 = kAmax;
  for (int n = 0; n < nb; ++n) a0 = std::min(a0, need[n]);
  for (int n = 0; n < nb; ++n) a0 = std::max(a0, need[n] - (SfMax(id_, g.block_type, bands[n].band) << shift));
  auto set_sf = [&](int gg) {
    const int base = 210 - gg;
    for (int n = 0; n < nb; ++n) {
      const int lim = SfMax(id_, g.block_type, bands[n].band);
      const int d = need[n] - base;
      const int v = std::clamp(d > 0 ? (d + (1 << shift) - 1) >> shift : 0, 0, lim);
      sf[bands[n].sf] = static_cast<Akl8s>(v);
    }
  };
  Akl32s work[576];
  auto try_gain = [&](int gg, Akl32s* ix, int* huff, int* p2) {
    si.globalGain = gg;
    si.scalefacCompress = ScaleFactorCompress(id_, g.block_type, sf, p2);
    std::memcpy(ix, g.xr[c], sizeof(Akl32s) * 576);
    aklsQuantize_MP3_32s_I(ix, sf, &si, &hdr_, work);
    aklsHuffmanTableSelect_MP3_32s(ix, &si, &hdr_, huff);
    // A step so fine that a line saturates at 8206 is refused: it clips.
    for (int i = 0; i < 576; ++i)
      if (ix[i] >= 8206 || ix[i] <= -8206) return 1 << 20;
    return *huff + *p2;
  };
  int huff = 0, p2 = 0;
  if (silent) {
    try_gain(210, g.ix[c], &huff, &p2);
    g.part2[c] = p2;
    g.bits[c] = huff + p2;
    return;
  }
  const int gg0 = std::clamp(210 - a0, 0, 255);
  set_sf(gg0);
  const int bits0 = try_gain(gg0, g.ix[c], &huff, &p2);
  if (bits0 <= budget && vbr) {
    g.part2[c] = p2;
    g.bits[c] = bits0;
    return;
  }
  int target = budget;
  if (bits0 <= budget) target = bits0 + (budget - bits0) / 2;  // spend half the spare, save the rest
  int best_gg;
  Akl32s ix[576];
  int h2, q2;
  if (bits0 > target) {
    // Coarser: the smallest gain above gg0 that fits, scale factors kept.
    if (try_gain(255, ix, &h2, &q2) > target) std::memset(sf, 0, 39);  // not even then: drop them too
    int lo = gg0, hi = 255;  // bits(lo) too many; assume bits(hi) fit
    while (hi - lo > 1) {
      const int mid = (lo + hi) / 2;
      if (try_gain(mid, ix, &h2, &q2) <= target) hi = mid; else lo = mid;
    }
    best_gg = hi;
  } else {
    // Finer: the smallest gain below gg0 that still fits the target.
    int lo = -1, hi = gg0;  // bits(hi) fit
    while (hi - lo > 1) {
      const int mid = (lo + hi) / 2;
      if (try_gain(mid, ix, &h2, &q2) <= target) hi = mid; else lo = mid;
    }
    best_gg = hi;
  }
  const int bits = try_gain(best_gg, g.ix[c], &huff, &p2);
  g.part2[c] = p2;
  g.bits[c] = bits;
}

void Encoder::QueueFrame(std::vector<std::uint8_t> frame, int main_offset) {
  pending_.push_back(PendingFrame{std::move(frame), main_offset});
}

void Encoder::EmitMainData(const std::vector<std::uint8_t>& bytes, int /*bits_unused*/) {
  std::size_t pos = 0;
  for (PendingFrame& f : pending_) {
    while (pos < bytes.size() && f.fill < static_cast<int>(f.data.size())) f.data[static_cast<std::size_t>(f.fill++)] = bytes[pos++];
    if (pos == bytes.size()) break;
  }
  // Frames whose main-data slots are full go out, in order.
  while (!pending_.empty() && pending_.front().fill == static_cast<int>(pending_.front().data.size())) {
    const PendingFrame& f = pending_.front();
    if (frames_out_ == 0 || frame_offsets_.empty() || true) {
      if (frames_out_ % toc_step_ == 0) {
        frame_offsets_.push_back(static_cast<std::uint32_t>(bytes_out_));
        if (frame_offsets_.size() >= 8192) {  // bounded: keep every other
          std::vector<std::uint32_t> half;
          for (std::size_t i = 0; i < frame_offsets_.size(); i += 2) half.push_back(frame_offsets_[i]);
          frame_offsets_.swap(half);
          toc_step_ *= 2;
        }
      }
    }
    if (sink_) sink_(f.data.data(), f.data.size());
    bytes_out_ += static_cast<std::int64_t>(f.data.size());
    ++frames_out_;
    pending_.pop_front();
  }
}

void Encoder::EncodeFrame() {
  // Free bytes in the frames already queued: the reservoir.
  int resv = 0;
  for (const PendingFrame& f : pending_) resv += static_cast<int>(f.data.size()) - f.fill;
  const bool vbr = cfg_.rc != RateControl::kCbr;
  int index = cbr_index_;
  int pad = 0;
  if (cfg_.rc == RateControl::kCbr) {
    const double exact = (id_ == 1 ? 144000.0 : 72000.0) * Kbps(id_, index) / cfg_.rate;
    slot_frac_ += exact - std::floor(exact);
    if (slot_frac_ >= 1.0 - 1e-9) {
      pad = 1;
      slot_frac_ -= 1.0;
    }
  }
  const int crc_bytes = cfg_.crc ? 2 : 0;
  auto capacity = [&](int idx, int p) { return FrameBytes(idx, p) - 4 - crc_bytes - side_bytes_; };

  // Threshold scaling: VBR quality, ABR bias.
  double scale_db = 0.0;
  if (cfg_.rc == RateControl::kVbr) scale_db = 1.6 * (cfg_.vbr_quality - 4);
  if (cfg_.rc == RateControl::kAbr) scale_db = abr_bias_;
  if (scale_db != 0.0) {
    const double f = std::pow(10.0, scale_db / 10.0);
    for (auto& g : frame_gr_)
      for (int c = 0; c < nch_; ++c)
        for (double& t : g->thr[c]) t *= f;
  }

  int max_index = 14;
  if (!vbr) {
    const int res_use = std::min(resv, MaxReservoirBytes(index));
    const int cap = capacity(index, pad);
    int avail = (res_use + cap) * 8;
    const double mean_gr = cap * 8.0 / ngr_;
    for (int gi = 0; gi < ngr_; ++gi) {
      Granule& g = *frame_gr_[static_cast<std::size_t>(gi)];
      const double pe = g.pe[0] + (nch_ == 2 ? g.pe[1] : 0.0);
      // More than the mean when the granule is hard, out of the reservoir.
      const double extra = std::clamp((pe - 400.0 * nch_) / (1200.0 * nch_), 0.0, 1.0) * res_use * 8.0 * 0.6;
      int budget = static_cast<int>(mean_gr + extra);
      const int keep = static_cast<int>((ngr_ - 1 - gi) * mean_gr * 0.5);
      budget = std::min(budget, avail - keep);
      double share0 = 1.0;
      if (nch_ == 2) {
        const double p0 = g.pe[0] + 50.0, p1 = g.pe[1] + 50.0;
        share0 = std::clamp(p0 / (p0 + p1), 0.2, 0.8);
      }
      int used = 0;
      for (int c = 0; c < nch_; ++c) {
        int b = nch_ == 1 ? budget : static_cast<int>(budget * (c == 0 ? share0 : 1.0));
        if (c == 1) b = budget - used;
        b = std::clamp(b, 0, 4095);
        QuantizeChannel(g, c, b, false);
        used += g.bits[c];
      }
      avail -= used;
    }
  } else {
    for (auto& gp : frame_gr_)
      for (int c = 0; c < nch_; ++c) QuantizeChannel(*gp, c, 4095, true);
    int total = 0;
    for (auto& gp : frame_gr_)
      for (int c = 0; c < nch_; ++c) total += gp->bits[c];
    // The smallest frame that holds it, with what the reservoir lends.
    const int min_index = 1;
    index = -1;
    for (int i = min_index; i <= max_index; ++i) {
      if ((std::min(resv, MaxReservoirBytes(i)) + capacity(i, 0)) * 8 >= total) {
        index = i;
        break;
      }
    }
    if (index < 0) {
      // Too much even for the largest frame: code it as CBR at the top rate.
      index = max_index;
      const int res_use = std::min(resv, MaxReservoirBytes(index));
      const int avail = (res_use + capacity(index, 0)) * 8;
      const int per = avail / (ngr_ * nch_);
      for (auto& gp : frame_gr_)
        for (int c = 0; c < nch_; ++c) QuantizeChannel(*gp, c, std::min(per, 4095), false);
    }
    if (cfg_.rc == RateControl::kAbr) {
      // Steer the thresholds so that the average approaches the target.
      const double got = Kbps(id_, index);
      abr_bias_ += 0.02 * (got - cfg_.kbps) / std::max(1, cfg_.kbps) * 10.0;
      abr_bias_ = std::clamp(abr_bias_, -12.0, 12.0);
    }
  }

  // Stuff the part of the reservoir this frame cannot reach.
  const int res_max = MaxReservoirBytes(index);
  if (resv > res_max) {
    EmitMainData(std::vector<std::uint8_t>(static_cast<std::size_t>(resv - res_max), 0), 0);
    resv = res_max;
  }
  const int main_begin = resv;

  // Main data: scale factors and Huffman codes, granule by granule.
  std::vector<std::uint8_t> main(static_cast<std::size_t>(8192), 0);
  Akl8u* p = main.data();
  Akl32s off = 0;
  AklMP3FrameHeader h = hdr_;
  h.bitrateIndex = index;
  h.paddingBit = pad;
  AklMP3SideInfo side[4];
  Akl32s scfsi[8] = {};
  for (int gi = 0; gi < ngr_; ++gi) {
    Granule& g = *frame_gr_[static_cast<std::size_t>(gi)];
    for (int c = 0; c < nch_; ++c) {
      AklMP3SideInfo& si = g.si[c];
      const Akl8u* start_p = p;
      const Akl32s start_off = off;
      aklsPackScaleFactors_MP3_8s1u(g.sf[c], &p, &off, &si, scfsi + 4 * c, &h, gi, c);
      aklsHuffmanEncode_MP3_32s1u(g.ix[c], &p, &off, &si, &h);
      si.part23Length = static_cast<Akl32s>((p - start_p) * 8 + off - start_off);
      side[gi * nch_ + c] = si;
    }
    if (g.ms) h.modeExtension = 2;
  }
  // One mode extension per frame: mid/side if any granule asked for it.
  bool any_ms = false;
  for (auto& gp : frame_gr_) any_ms = any_ms || gp->ms;
  h.modeExtension = any_ms ? 2 : 0;
  const int main_bytes = static_cast<int>(p - main.data()) + (off ? 1 : 0);
  main.resize(static_cast<std::size_t>(main_bytes));

  const int fbytes = FrameBytes(index, pad);
  std::vector<std::uint8_t> frame(static_cast<std::size_t>(fbytes), 0);
  Akl8u* q = frame.data();
  aklsPackFrameHeader_MP3(&h, &q);
  aklsPackSideInfo_MP3(side, &q, main_begin, 0, scfsi, &h);
  if (cfg_.crc) {
    const std::uint16_t crc = aklkit::Layer3Crc(frame.data(), side_bytes_);
    h.crcWord = crc;
    Akl8u* r = frame.data();
    aklsPackFrameHeader_MP3(&h, &r);
  }
  QueueFrame(std::move(frame), 4 + crc_bytes + side_bytes_);
  EmitMainData(main, 0);
  kbps_sum_ += Kbps(id_, index);
  frame_gr_.clear();
}

void Encoder::Finish() {
  // Enough granules that every input sample is decoded (the analysis and
  // transform delay is 1057 samples), in whole frames, plus one granule
  // of look-ahead for the block-type decision.
  const std::int64_t spf = 576 * ngr_;
  const std::int64_t need = samples_in_ + 1057;
  const std::int64_t frames = (need + spf - 1) / spf;
  target_granules_ = frames * ngr_ + 1;
  const std::int64_t keep_in = samples_in_;
  std::vector<float> zeros(576 * static_cast<std::size_t>(cfg_.in_channels), 0.0f);
  while (granules_in_ < target_granules_) {
    const int fill = 576 - static_cast<int>(inbuf_[0].size());
    Encode(zeros.data(), fill);
  }
  samples_in_ = keep_in;
  // Close the last frames: their unused main-data space is zero.
  for (PendingFrame& f : pending_) std::fill(f.data.begin() + f.fill, f.data.end(), 0), f.fill = static_cast<int>(f.data.size());
  EmitMainData({}, 0);
}

// The Xing/Info frame with its LAME-style extension: frame count, byte
// count, table of contents, encoder delay and padding.
std::vector<std::uint8_t> Encoder::InfoFrame() const {
  // A frame large enough for the tag: the CBR rate, or the smallest that fits.
  int index = cfg_.rc == RateControl::kCbr ? cbr_index_ : 1;
  const int need = 4 + (cfg_.crc ? 2 : 0) + side_bytes_ + 120 + 36;
  while (index < 14 && FrameBytes(index, 0) < need) ++index;
  const int fbytes = FrameBytes(index, 0);
  std::vector<std::uint8_t> f(static_cast<std::size_t>(fbytes), 0);
  AklMP3FrameHeader h = hdr_;
  h.bitrateIndex = index;
  h.paddingBit = 0;
  h.protectionBit = 1;  // the info frame carries no CRC
  Akl8u* p = f.data();
  aklsPackFrameHeader_MP3(&h, &p);
  std::size_t o = 4 + static_cast<std::size_t>(side_bytes_);
  auto put32 = [&f, &o](std::uint32_t v) {
    for (int i = 3; i >= 0; --i) f[o++] = static_cast<std::uint8_t>(v >> (8 * i));
  };
  std::memcpy(&f[o], cfg_.rc == RateControl::kCbr ? "Info" : "Xing", 4);
  o += 4;
  put32(0x0000000F);  // frames, bytes, TOC, quality
  const std::int64_t audio_frames = frames_out_ > 0 ? frames_out_ - 1 : 0;
  put32(static_cast<std::uint32_t>(audio_frames));
  put32(static_cast<std::uint32_t>(bytes_out_));
  // TOC: byte position (of 256) at each percent of the duration.
  for (int i = 0; i < 100; ++i) {
    std::uint32_t v = 0;
    if (audio_frames > 0 && bytes_out_ > 0 && !frame_offsets_.empty()) {
      const std::int64_t fr = 1 + audio_frames * i / 100;  // frame index incl. the info frame
      std::size_t k = static_cast<std::size_t>(fr / toc_step_);
      if (k >= frame_offsets_.size()) k = frame_offsets_.size() - 1;
      v = static_cast<std::uint32_t>(std::min<std::int64_t>(255, frame_offsets_[k] * 256 / bytes_out_));
    }
    f[o++] = static_cast<std::uint8_t>(v);
  }
  put32(static_cast<std::uint32_t>(cfg_.rc == RateControl::kVbr ? cfg_.vbr_quality * 10 : 50));
  // Extension: the 9-byte encoder field begins with the tag name gapless
  // decoders look for; revision and method; lowpass; peak and gains (unset);
  // flags; bit rate; delay and padding (12 bits each); the rest zero.
  const std::size_t ext = o;
  std::memcpy(&f[o], "LAMEaklac", 9);
  o += 9;
  f[o++] = static_cast<std::uint8_t>(cfg_.rc == RateControl::kCbr ? 1 : cfg_.rc == RateControl::kAbr ? 3 : 4);
  f[o++] = static_cast<std::uint8_t>(std::min(255, lowpass_hz_ / 100));
  o += 4 + 2 + 2;  // peak, track gain, album gain
  f[o++] = 0;      // encoding flags, ATH type
  f[o++] = static_cast<std::uint8_t>(std::min(255, cfg_.rc == RateControl::kVbr ? 0 : cfg_.kbps));
  const int delay = encoder_delay();
  const int pad = frames_out_ > 0 ? std::max(0, padding()) : 0;
  f[o++] = static_cast<std::uint8_t>(delay >> 4);
  f[o++] = static_cast<std::uint8_t>(((delay & 15) << 4) | ((pad >> 8) & 15));
  f[o++] = static_cast<std::uint8_t>(pad & 255);
  o += 1 + 1 + 2;  // misc, mp3 gain, preset
  put32(static_cast<std::uint32_t>(bytes_out_));
  o += 2;  // music CRC
  // CRC-16 of the first 190 bytes of the frame (reflected polynomial 0xA001).
  std::uint32_t crc = 0;
  for (std::size_t i = 0; i < ext + 34 && i < f.size(); ++i) {
    crc ^= f[i];
    for (int b = 0; b < 8; ++b) crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
  }
  f[o++] = static_cast<std::uint8_t>(crc >> 8);
  f[o++] = static_cast<std::uint8_t>(crc & 255);
  return f;
}

}  // namespace aklenc
