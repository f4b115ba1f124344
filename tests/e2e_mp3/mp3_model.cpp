// A plain double-precision Layer III decoding model, for settling what a
// stream must decode to where decoders disagree (joint stereo in MPEG-2
// above all).  The bit-exact integer stages come from the library (header,
// side information, scale factors, Huffman decoding); everything after
// them is written here from the standard's equations, independent of the
// library's fixed-point code: requantization, mid/side and intensity stereo
// (MPEG-1 ratios and the MPEG-2 k/is_pos rules), short-block reordering,
// alias reduction, the inverse MDCT with its windows and overlap, frequency
// inversion and the polyphase synthesis, rounded once to 16 bits.
//
// The model reads its tables from DATA_DIR/mp3_model (the standard's
// synthesis window, band edges and Huffman code lists).  Its command line is
// mp3_model_main.cpp.  --dump prints, for frames FIRST..LAST, what the joint-stereo decision
// depends on: mode extension, block types, the right channel's scale-factor
// compress, intensity scale, partition lengths, the highest non-zero band
// per window and the intensity position (and its legality) of every band.
// Variants (each a rule some decoders follow, for comparison only):
//   --slen0-illegal     a band whose partition has slen 0 is not intensity-coded
//   --top-band-illegal  the band without scale factor (long 21, short 12) is
//                       not intensity-coded (instead of taking band 20 / 11's position)
//   --top-band-zero     that band takes position 0
//   --mpeg1-illegal7    MPEG-2 positions are illegal at 7 only (the MPEG-1 rule)
//   --no-illegal        every MPEG-2 position is legal
//   --top-band-outside-illegal, --top-band-outside-zero
//                       only when band 20 / 11 itself is outside the intensity
//                       region: the band above is not intensity-coded / takes 0
//   --illegal-from N    MPEG-2 positions N and above are illegal, no others
//   --illegal-plain     a band with an illegal position skips mid/side too
//   --native-channels   write each frame in its own channel count
//   --coded-extent      the intensity region starts above the right channel's
//                       coded values (big values and count1 quadruples, zeros
//                       included) instead of above its highest non-zero value
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "mp3_model.hpp"

#include "aklac.h"

namespace mp3model {
namespace {

constexpr double kPi = 3.14159265358979323846;



// The Huffman code books, read from the standard's code lists, decoded bit
// by bit: only to find where each channel's coded values end (the count1
// region's length is not in the side information).
class Huffman {
 public:
  bool Load(const std::string& dir) {
    std::ifstream f(dir + "/mp3_model/mp3_huffman.txt");
    std::string line;
    int cur = -1;
    while (std::getline(f, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream in(line);
      if (line.compare(0, 6, "table ") == 0) {
        std::string word, name;
        in >> word >> name;
        cur = name == "A" ? 32 : name == "B" ? 33 : std::atoi(name.c_str());
        std::string key;
        while (in >> key) {
          if (key == "linbits") in >> linbits_[cur];
          if (key == "ref") in >> ref_[cur];
        }
        continue;
      }
      int v[4] = {}, n = cur >= 32 ? 4 : 2, len;
      std::string code;
      for (int i = 0; i < n; ++i) in >> v[i];
      in >> len >> code;
      codes_[cur].push_back({code, {v[0], v[1], v[2], v[3]}});
    }
    return !codes_[1].empty() && !codes_[32].empty();
  }
  // Reads one code of table t at bit *pos; false if none matches.
  bool Read(int t, const std::uint8_t* d, std::size_t* pos, std::size_t end, int* out) const {
    const int src = ref_[t] ? ref_[t] : t;
    std::string acc;
    while (acc.size() < 20 && *pos < end) {
      acc += Bit(d, (*pos)++) ? '1' : '0';
      for (const auto& c : codes_[src])
        if (c.code == acc) {
          for (int i = 0; i < 4; ++i) out[i] = c.v[i];
          return true;
        }
    }
    return false;
  }
  int linbits(int t) const { return linbits_[t]; }
  static int Bit(const std::uint8_t* d, std::size_t pos) { return (d[pos / 8] >> (7 - pos % 8)) & 1; }

 private:
  struct Code {
    std::string code;
    int v[4];
  };
  std::vector<Code> codes_[34];
  int linbits_[34] = {};
  int ref_[34] = {};
};

// Scale-factor band starts (long: 23 numbers, short: 14) for one rate.
struct Bands {
  int lon[23];
  int sho[14];
};

bool LoadBands(const std::string& dir, bool mpeg1, int rate, Bands* b) {
  std::ifstream f(dir + "/mp3_model/mp3_sfb_bands.txt");
  std::string line;
  int found = 0;
  const std::string ver = mpeg1 ? "mpeg1" : "mpeg2";
  while (std::getline(f, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream in(line);
    std::string kind, v;
    int r;
    in >> kind >> v >> r;
    if (v != ver || r != rate) continue;
    if (kind == "long") {
      for (int& x : b->lon) in >> x;
      ++found;
    } else if (kind == "short") {
      for (int& x : b->sho) in >> x;
      ++found;
    }
  }
  return found == 2;
}

bool LoadWindow(const std::string& dir, double* d) {
  std::ifstream f(dir + "/mp3_model/mp3_synthesis_window.txt");
  std::string line;
  int n = 0;
  while (std::getline(f, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream in(line);
    int i;
    double v;
    in >> i >> v;
    if (i < 0 || i >= 512) return false;
    d[i] = v;
    ++n;
  }
  return n == 512;
}

// MPEG-2 scale-factor partitions: nr_of_sfb[range][kind][partition] (kind 0
// long, 1 short, 2 mixed), and the partition lengths from scalefac_compress.
const int kNrOfSfb[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},     {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}, {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},     {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}}};

void Mpeg2Partitions(int sfc, bool is_right, int* slen, int* range) {
  if (!is_right) {
    if (sfc < 400) {
      slen[0] = (sfc >> 4) / 5, slen[1] = (sfc >> 4) % 5, slen[2] = (sfc % 16) >> 2, slen[3] = sfc % 4;
      *range = 0;
    } else if (sfc < 500) {
      const int t = sfc - 400;
      slen[0] = (t >> 2) / 5, slen[1] = (t >> 2) % 5, slen[2] = t % 4, slen[3] = 0;
      *range = 1;
    } else {
      const int t = sfc - 500;
      slen[0] = t / 3, slen[1] = t % 3, slen[2] = slen[3] = 0;
      *range = 2;
    }
    return;
  }
  const int h = sfc >> 1;
  if (h < 180) {
    slen[0] = h / 36, slen[1] = (h % 36) / 6, slen[2] = (h % 36) % 6, slen[3] = 0;
    *range = 3;
  } else if (h < 244) {
    const int t = h - 180;
    slen[0] = (t % 64) >> 4, slen[1] = (t % 16) >> 2, slen[2] = t % 4, slen[3] = 0;
    *range = 4;
  } else {
    const int t = h - 244;
    slen[0] = t / 3, slen[1] = t % 3, slen[2] = slen[3] = 0;
    *range = 5;
  }
}

const int kPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

// One granule's channel as the stereo stage sees it.
struct Chan {
  AklMP3SideInfo si;
  int q[576];          // quantized values, coded order
  int sf_long[22];     // scale factor (or intensity position) of long band b
  int sf_short[13][3];  // of short band b, window w
  int slen_long[22];    // partition length the value was coded with (-1: none coded)
  int slen_short[13][3];
  int coded_end = 0;    // big values and count1 quadruples: the end of the coded lines
  double xr[576];
};

struct ChannelState {
  double overlap[32][18] = {};
  double v[1024] = {};
};

class Model {
 public:
  Model(const Bands& b, const double* window, const Variant& var) : b_(b), var_(var) {
    for (int i = 0; i < 512; ++i) d_[i] = window[i];
    for (int i = 0; i < 64; ++i)
      for (int k = 0; k < 32; ++k) n_[i][k] = std::cos((16 + i) * (2 * k + 1) * kPi / 64.0);
    for (int i = 0; i < 36; ++i)
      for (int k = 0; k < 18; ++k) cos36_[i][k] = std::cos(kPi / 72.0 * (2 * i + 1 + 18) * (2 * k + 1));
    for (int i = 0; i < 12; ++i)
      for (int k = 0; k < 6; ++k) cos12_[i][k] = std::cos(kPi / 24.0 * (2 * i + 1 + 6) * (2 * k + 1));
  }

  // Decodes one granule: ch[0..nch) parsed, hdr its frame's header; writes
  // 576 x out_ch samples.
  void Granule(Chan* ch, int nch, const AklMP3FrameHeader& hdr, int out_ch, std::int16_t* pcm, bool dump) {
    const bool mpeg1 = hdr.id == 1;
    const bool ms = hdr.mode == 1 && (hdr.modeExtension & 2) && nch == 2;
    const bool is = hdr.mode == 1 && (hdr.modeExtension & 1) && nch == 2;
    for (int c = 0; c < nch; ++c) Requantize(&ch[c]);
    if (ms || is) Stereo(ch, mpeg1, ms, is, dump);
    for (int c = 0; c < nch; ++c) {
      double t[18][32];
      Hybrid(&ch[c], &state_[c], t);
      for (int s = 0; s < 18; ++s) {
        double out[32];
        Synth(t[s], &state_[c], out);
        for (int j = 0; j < 32; ++j) {
          double v = std::floor(out[j] * 32768.0 + 0.5);
          v = v > 32767 ? 32767 : v < -32768 ? -32768 : v;
          pcm[(32 * s + j) * out_ch + c] = static_cast<std::int16_t>(v);
        }
      }
    }
    if (nch == 1 && out_ch == 2)
      for (int i = 0; i < 576; ++i) pcm[2 * i + 1] = pcm[2 * i];
  }

 public:
  void Debug(Chan* ch, int nch, const AklMP3FrameHeader& hdr) {
    for (int c = 0; c < nch; ++c) Requantize(&ch[c]);
    const bool ms = hdr.mode == 1 && (hdr.modeExtension & 2) && nch == 2;
    const bool is = hdr.mode == 1 && (hdr.modeExtension & 1) && nch == 2;
    if (ms || is) Stereo(ch, hdr.id == 1, ms, is, false);
    for (int c = 0; c < nch; ++c) Reorder(&ch[c]);
  }
  void Reorder(Chan* c) const {
    if (!Short(*c)) return;
    double o[576] = {};
    const bool mixed = Mixed(*c);
    if (mixed)
      for (int i = 0; i < 36; ++i) o[i] = c->xr[i];
    for (int b = mixed ? 3 : 0; b < 13; ++b) {
      const int width = b_.sho[b + 1] - b_.sho[b];
      for (int w = 0; w < 3; ++w)
        for (int k = 0; k < width; ++k) {
          const int f = b_.sho[b] + k;
          o[18 * (f / 6) + 6 * w + f % 6] = c->xr[3 * b_.sho[b] + w * width + k];
        }
    }
    std::memcpy(c->xr, o, sizeof o);
  }

 private:
  bool Short(const Chan& c) const { return c.si.windowSwitchingFlag && c.si.blockType == 2; }
  bool Mixed(const Chan& c) const { return Short(c) && c.si.mixedBlockFlag; }
  int MixedLongBands() const {
    int l = 0;
    while (b_.lon[l + 1] <= 36) ++l;
    return l;
  }

  // xr = sign(q) |q|^(4/3) 2^((global_gain - 210) / 4) 2^-(m (sf + preflag pretab))
  // (long) or 2^((global_gain - 210 - 8 subblock_gain) / 4) 2^-(m sf) (short),
  // m = (1 + scalefac_scale) / 2.
  void Requantize(Chan* c) const {
    const AklMP3SideInfo& g = c->si;
    const double m = 0.5 * (1 + g.scalefacScale);
    auto pow43 = [](int q) { return (q < 0 ? -1.0 : 1.0) * std::pow(std::fabs(static_cast<double>(q)), 4.0 / 3.0); };
    for (int i = 0; i < 576; ++i) c->xr[i] = 0;
    const int long_end = Short(*c) ? (Mixed(*c) ? 36 : 0) : 576;
    for (int band = 0; band < 22 && b_.lon[band] < long_end; ++band)
      for (int i = b_.lon[band]; i < b_.lon[band + 1] && i < long_end; ++i)
        c->xr[i] = pow43(c->q[i]) * std::pow(2.0, 0.25 * (g.globalGain - 210.0)) *
                   std::pow(2.0, -m * (c->sf_long[band] + g.preflag * kPretab[band]));
    if (!Short(*c)) return;
    for (int band = Mixed(*c) ? 3 : 0; band < 13; ++band) {
      const int width = b_.sho[band + 1] - b_.sho[band];
      for (int w = 0; w < 3; ++w)
        for (int k = 0; k < width; ++k) {
          const int i = 3 * b_.sho[band] + w * width + k;  // coded order
          c->xr[i] = pow43(c->q[i]) * std::pow(2.0, 0.25 * (g.globalGain - 210.0 - 8.0 * g.subblockGain[w])) *
                     std::pow(2.0, -m * c->sf_short[band][w]);
        }
    }
  }

  bool AnyNonZero(const int* q, int from, int to) const {
    for (int i = from; i < to; ++i)
      if (q[i]) return true;
    return false;
  }

  // Intensity position of a band of the right channel, or -1 if illegal.
  int Position(const Chan& r, int value, int slen, bool mpeg1) const {
    if (mpeg1) return value >= 7 ? -1 : value;
    if (var_.no_illegal) return value;
    if (var_.illegal_from) return value >= var_.illegal_from ? -1 : value;
    if (var_.mpeg1_illegal7) return value == 7 ? -1 : value;
    if (slen < 0) return value;  // a band without scale factor: decided by the caller
    if (slen == 0) return var_.slen0_illegal ? -1 : 0;
    (void)r;
    return value == (1 << slen) - 1 ? -1 : value;
  }

  // Joint stereo over coded order.  A segment is a long band or one window
  // of a short band.
  void Stereo(Chan* ch, bool mpeg1, bool ms, bool is, bool dump) {
    Chan& l = ch[0];
    Chan& r = ch[1];
    struct Seg {
      int start, len, band, window;
    };
    std::vector<Seg> segs;
    // The right channel's layout decides (both channels share the block type
    // in joint stereo).
    const int long_bands = Short(r) ? (Mixed(r) ? MixedLongBands() : 0) : 22;
    for (int b = 0; b < long_bands; ++b) segs.push_back({b_.lon[b], b_.lon[b + 1] - b_.lon[b], b, -1});
    if (Short(r))
      for (int b = Mixed(r) ? 3 : 0; b < 13; ++b) {
        const int width = b_.sho[b + 1] - b_.sho[b];
        for (int w = 0; w < 3; ++w) segs.push_back({3 * b_.sho[b] + w * width, width, b, w});
      }
    // Intensity region: long blocks, every band above the highest band of
    // the right channel holding a non-zero value; short blocks, per window;
    // a mixed block's long part only if no short window holds anything.
    std::vector<int> pos(segs.size(), -2);  // -2: not intensity-coded region
    if (is) {
      int last_long = -1, last_win[3] = {-1, -1, -1};
      bool any_short = false;
      for (std::size_t i = 0; i < segs.size(); ++i) {
        const bool coded = var_.coded_extent && segs[i].start < r.coded_end;
        if (!coded && !AnyNonZero(r.q, segs[i].start, segs[i].start + segs[i].len)) continue;
        if (segs[i].window < 0) {
          last_long = static_cast<int>(i);
        } else {
          last_win[segs[i].window] = static_cast<int>(i);
          any_short = true;
        }
      }
      for (std::size_t i = 0; i < segs.size(); ++i) {
        const Seg& s = segs[i];
        const bool in_region = s.window < 0 ? (!any_short && static_cast<int>(i) > last_long)
                                            : static_cast<int>(i) > last_win[s.window];
        if (!in_region) continue;
        int value, slen;
        const bool top = s.window < 0 ? s.band == 21 : s.band == 12;
        if (top) {
          if (var_.top_band_illegal) {
            pos[i] = -1;
            continue;
          }
          if (var_.top_band_zero) {
            pos[i] = 0;
            continue;
          }
          // The position of the band below.
          if (var_.top_band_outside) {
            bool below_in = false;
            for (std::size_t k = 0; k < i; ++k)
              if (segs[k].window == s.window && segs[k].band == s.band - 1) below_in = pos[k] != -2;
            if (!below_in) {
              pos[i] = var_.top_band_outside == 1 ? -1 : 0;
              continue;
            }
          }
          value = s.window < 0 ? r.sf_long[20] : r.sf_short[11][s.window];
          slen = s.window < 0 ? r.slen_long[20] : r.slen_short[11][s.window];
        } else {
          value = s.window < 0 ? r.sf_long[s.band] : r.sf_short[s.band][s.window];
          slen = s.window < 0 ? r.slen_long[s.band] : r.slen_short[s.band][s.window];
        }
        pos[i] = Position(r, value, slen, mpeg1);
      }
    }
    const int iscale = r.si.scalefacCompress & 1;
    const double io = iscale ? std::sqrt(0.5) : std::pow(2.0, -0.25);
    for (std::size_t i = 0; i < segs.size(); ++i) {
      const Seg& s = segs[i];
      double* xl = l.xr + s.start;
      double* xr = r.xr + s.start;
      if (pos[i] >= 0) {
        double kl, kr;
        const int p = pos[i];
        if (mpeg1) {
          const double t = std::tan(p * kPi / 12.0);
          kl = p == 6 ? 1.0 : t / (1.0 + t);
          kr = p == 6 ? 0.0 : 1.0 / (1.0 + t);
        } else if (p == 0) {
          kl = kr = 1.0;
        } else if (p & 1) {
          kl = std::pow(io, (p + 1) / 2), kr = 1.0;
        } else {
          kl = 1.0, kr = std::pow(io, p / 2);
        }
        for (int j = 0; j < s.len; ++j) {
          const double v = xl[j];
          xl[j] = v * kl;
          xr[j] = v * kr;
        }
      } else if (ms && !(var_.illegal_plain && pos[i] == -1)) {
        for (int j = 0; j < s.len; ++j) {
          const double m = xl[j], d = xr[j];
          xl[j] = (m + d) / std::sqrt(2.0);
          xr[j] = (m - d) / std::sqrt(2.0);
        }
      }
    }
    if (dump) {
      std::printf("    stereo: ms %d is %d, intensity scale %d; positions (band[window]=pos, x illegal):", ms, is,
                  iscale);
      for (std::size_t i = 0; i < segs.size(); ++i) {
        if (pos[i] == -2) continue;
        if (segs[i].window < 0)
          std::printf(" L%d", segs[i].band);
        else
          std::printf(" S%d.%d", segs[i].band, segs[i].window);
        if (pos[i] < 0)
          std::printf("=x");
        else
          std::printf("=%d", pos[i]);
      }
      std::printf("\n");
    }
  }

  // Reorder, alias reduction, IMDCT, overlap, frequency inversion: t[slot][subband].
  void Hybrid(Chan* c, ChannelState* st, double t[18][32]) const {
    double x[576];
    std::memcpy(x, c->xr, sizeof x);
    const bool shrt = Short(*c), mixed = Mixed(*c);
    if (shrt) {
      double o[576] = {};
      const int first = mixed ? 3 : 0;
      if (mixed)
        for (int i = 0; i < 36; ++i) o[i] = x[i];
      for (int b = first; b < 13; ++b) {
        const int width = b_.sho[b + 1] - b_.sho[b];
        for (int w = 0; w < 3; ++w)
          for (int k = 0; k < width; ++k) {
            const int f = b_.sho[b] + k;
            o[18 * (f / 6) + 6 * w + f % 6] = x[3 * b_.sho[b] + w * width + k];
          }
      }
      std::memcpy(x, o, sizeof x);
    }
    static const double kC[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
    const int alias_bounds = shrt ? (mixed ? 1 : 0) : 31;
    for (int sb = 0; sb < alias_bounds; ++sb)
      for (int i = 0; i < 8; ++i) {
        const double cs = 1.0 / std::sqrt(1.0 + kC[i] * kC[i]), ca = kC[i] / std::sqrt(1.0 + kC[i] * kC[i]);
        const double lo = x[18 * sb + 17 - i], hi = x[18 * (sb + 1) + i];
        x[18 * sb + 17 - i] = lo * cs - hi * ca;
        x[18 * (sb + 1) + i] = hi * cs + lo * ca;
      }
    for (int sb = 0; sb < 32; ++sb) {
      double z[36] = {};
      const double* in = x + 18 * sb;
      const bool long_sb = !shrt || (mixed && sb < 2);
      if (long_sb) {
        // The two lowest subbands of a window-switched granule with the mixed
        // flag take the normal window, whatever the block type (start and
        // stop blocks included: the ISO streams exercise it).
        const bool mixed_flag = c->si.windowSwitchingFlag && c->si.mixedBlockFlag;
        const int bt = (mixed_flag && sb < 2) ? 0 : c->si.blockType;
        for (int i = 0; i < 36; ++i) {
          double s = 0;
          for (int k = 0; k < 18; ++k) s += in[k] * cos36_[i][k];
          z[i] = s * LongWindow(bt, i);
        }
      } else {
        for (int w = 0; w < 3; ++w)
          for (int i = 0; i < 12; ++i) {
            double s = 0;
            for (int k = 0; k < 6; ++k) s += in[6 * w + k] * cos12_[i][k];
            z[6 + 6 * w + i] += s * std::sin(kPi / 12.0 * (i + 0.5));
          }
      }
      for (int i = 0; i < 18; ++i) {
        double v = z[i] + st->overlap[sb][i];
        if ((sb & 1) && (i & 1)) v = -v;
        t[i][sb] = v;
        st->overlap[sb][i] = z[i + 18];
      }
    }
  }

  static double LongWindow(int bt, int i) {
    const double normal = std::sin(kPi / 36.0 * (i + 0.5));
    switch (bt) {
      case 1:
        if (i < 18) return normal;
        if (i < 24) return 1.0;
        if (i < 30) return std::sin(kPi / 12.0 * (i - 18 + 0.5));
        return 0.0;
      case 3:
        if (i < 6) return 0.0;
        if (i < 12) return std::sin(kPi / 12.0 * (i - 6 + 0.5));
        if (i < 18) return 1.0;
        return normal;
      default:
        return normal;
    }
  }

  // Polyphase synthesis of one time slot.
  void Synth(const double* s, ChannelState* st, double* out) const {
    std::memmove(st->v + 64, st->v, sizeof(double) * (1024 - 64));
    for (int i = 0; i < 64; ++i) {
      double a = 0;
      for (int k = 0; k < 32; ++k) a += n_[i][k] * s[k];
      st->v[i] = a;
    }
    double u[512];
    for (int i = 0; i < 8; ++i)
      for (int j = 0; j < 32; ++j) {
        u[64 * i + j] = st->v[128 * i + j];
        u[64 * i + 32 + j] = st->v[128 * i + 96 + j];
      }
    for (int j = 0; j < 32; ++j) {
      double a = 0;
      for (int i = 0; i < 16; ++i) a += u[j + 32 * i] * d_[j + 32 * i];
      out[j] = a;
    }
  }

  Bands b_;
  Variant var_;
  double d_[512];
  double n_[64][32];
  double cos36_[36][18];  // long IMDCT: cos(pi/72 (2i + 1 + 18)(2k + 1))
  double cos12_[12][6];   // short IMDCT: cos(pi/24 (2i + 1 + 6)(2k + 1))
  ChannelState state_[2];
};

// Distributes the library's stream-order scale factors over bands and
// windows, with the partition length each was coded with.
void SpreadScaleFactors(const Akl8s* sf, const AklMP3SideInfo& si, bool mpeg1, bool is_right, int mixed_long,
                        Chan* c) {
  for (int b = 0; b < 22; ++b) c->sf_long[b] = 0, c->slen_long[b] = -1;
  for (int b = 0; b < 13; ++b)
    for (int w = 0; w < 3; ++w) c->sf_short[b][w] = 0, c->slen_short[b][w] = -1;
  const bool shrt = si.windowSwitchingFlag && si.blockType == 2;
  const bool mixed = shrt && si.mixedBlockFlag;
  std::vector<int> slen_of(39, -1);
  if (!mpeg1) {
    int slen[4], range;
    Mpeg2Partitions(si.scalefacCompress, is_right, slen, &range);
    const int kind = shrt ? (mixed ? 2 : 1) : 0;
    int n = 0;
    for (int p = 0; p < 4; ++p)
      for (int k = 0; k < kNrOfSfb[range][kind][p]; ++k) slen_of[n++] = slen[p];
  } else {
    for (int i = 0; i < 39; ++i) slen_of[i] = 4;  // MPEG-1: positions are 0..7, 7 illegal
  }
  // The library marks an illegal MPEG-2 position by its sign; the model
  // decides legality itself, from the value and the partition length.
  auto val = [&](int i) { return sf[i] < 0 ? -sf[i] : sf[i]; };
  if (!shrt) {
    for (int b = 0; b < 21; ++b) c->sf_long[b] = val(b), c->slen_long[b] = slen_of[b];
    return;
  }
  int i = 0, first = 0;
  if (mixed) {
    for (int b = 0; b < mixed_long; ++b, ++i) c->sf_long[b] = val(i), c->slen_long[b] = slen_of[i];
    first = 3;
  }
  for (int b = first; b < 12; ++b)
    for (int w = 0; w < 3; ++w, ++i) c->sf_short[b][w] = val(i), c->slen_short[b][w] = slen_of[i];
}

// Decodes a channel's Huffman data independently; returns the end of its
// coded lines (-1 if the values differ from the library's, which would make
// the model's input suspect).
int CodedEnd(const Huffman& hf, const std::uint8_t* md, std::size_t pos, std::size_t end, const AklMP3SideInfo& g,
             const Bands& b, const int* lib_q) {
  int q[576] = {};
  const int big = std::min(2 * g.bigValues, 576);
  int r1, r2;
  if (g.windowSwitchingFlag && g.blockType == 2) {
    r1 = 36, r2 = 576;
  } else if (g.windowSwitchingFlag) {
    r1 = b.lon[g.region0Count + 1], r2 = 576;
  } else {
    r1 = b.lon[std::min(g.region0Count + 1, 22)];
    r2 = b.lon[std::min(g.region0Count + g.region1Count + 2, 22)];
  }
  int i = 0;
  for (; i < big; i += 2) {
    const int t = g.tableSelect[i < r1 ? 0 : i < r2 ? 1 : 2];
    int v[4] = {};
    if (t != 0 && !hf.Read(t, md, &pos, end, v)) return -1;
    for (int k = 0; k < 2; ++k) {
      int x = v[k];
      if (x == 15 && hf.linbits(t)) {
        int e = 0;
        for (int j = 0; j < hf.linbits(t); ++j) e = 2 * e + Huffman::Bit(md, pos++);
        x += e;
      }
      if (x && Huffman::Bit(md, pos++)) x = -x;
      q[i + k] = x;
    }
  }
  while (i + 4 <= 576 && pos < end) {
    int v[4] = {};
    const std::size_t at = pos;
    if (!g.count1TableSelect) {
      if (!hf.Read(32, md, &pos, end, v)) break;
    } else {
      for (int k = 0; k < 4; ++k) v[k] = 1 - Huffman::Bit(md, pos++);
    }
    for (int k = 0; k < 4; ++k)
      if (v[k] && Huffman::Bit(md, pos++)) v[k] = -v[k];
    if (pos > end) {  // a quadruple running past the end is not taken
      pos = at;
      break;
    }
    for (int k = 0; k < 4; ++k) q[i + k] = v[k];
    i += 4;
  }
  for (int k = 0; k < 576; ++k)
    if (q[k] != lib_q[k]) return -1;
  return i;
}

const int kKbps[2][15] = {{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
                          {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};
const int kRates[3] = {44100, 48000, 32000};

}  // namespace

bool Decode(const std::string& dir, const std::vector<std::uint8_t>& data, const Variant& var,
            std::vector<std::int16_t>* pcm_out, int* channels_out, long dump_first, long dump_last) {
  pcm_out->clear();
  double window[512];
  if (!LoadWindow(dir, window)) return false;
  Huffman huffman;
  if (!huffman.Load(dir)) return false;

  // A clean stream: frames back to back after any ID3v2 tag.
  std::size_t pos = 0;
  if (data.size() >= 10 && std::memcmp(data.data(), "ID3", 3) == 0)
    pos = 10 + ((data[6] << 21) | (data[7] << 14) | (data[8] << 7) | data[9]);
  Model* model = nullptr;  // made at the first frame (band tables of its rate)
  Bands bands{};
  std::vector<std::uint8_t> reservoir;
  int out_ch = 0;
  long frame = 0;
  while (pos + 4 <= data.size() && data[pos] == 0xFF && (data[pos + 1] & 0xE6) == 0xE2) {
    const std::uint8_t* p0 = data.data() + pos;
    const bool mpeg1 = (p0[1] & 0x08) != 0;
    const int rate = kRates[(p0[2] >> 2) & 3] / (mpeg1 ? 1 : 2);
    const int kbps = kKbps[mpeg1 ? 0 : 1][p0[2] >> 4];
    const int len = (mpeg1 ? 144000 : 72000) * kbps / rate + ((p0[2] >> 1) & 1);
    if (kbps == 0 || pos + static_cast<std::size_t>(len) > data.size()) break;
    std::vector<std::uint8_t> fr(p0, p0 + len);
    fr.resize(len + 64, 0);
    const int nch = (p0[3] >> 6) == 3 ? 1 : 2;
    if (!model) {
      if (!LoadBands(dir, mpeg1, rate, &bands)) return false;
      model = new Model(bands, window, var);
      out_ch = nch;
    }
    if (var.native_channels) out_ch = nch;
    Akl8u* p = fr.data();
    AklMP3FrameHeader hdr{};
    AklMP3SideInfo si[4] = {};
    Akl32s main_begin = 0, priv = 0, scfsi[8] = {};
    if (aklsUnpackFrameHeader_MP3(&p, &hdr) != kStsOk ||
        aklsUnpackSideInfo_MP3(&p, si, &main_begin, &priv, scfsi, &hdr) != kStsOk)
      return false;
    const int head = static_cast<int>(p - fr.data());
    const int ngr = mpeg1 ? 2 : 1;
    std::vector<std::uint8_t> md;
    const bool have = static_cast<std::size_t>(main_begin) <= reservoir.size();
    if (have) md.assign(reservoir.end() - main_begin, reservoir.end());
    md.insert(md.end(), fr.begin() + head, fr.begin() + len);
    reservoir.insert(reservoir.end(), fr.begin() + head, fr.begin() + len);
    md.resize(md.size() + 64, 0);
    const bool dump = frame >= dump_first && frame <= dump_last;
    if (dump)
      std::printf("frame %ld: mode %d ext %d (ms %d, is %d)\n", frame, hdr.mode, hdr.modeExtension,
                  (hdr.modeExtension >> 1) & 1, hdr.modeExtension & 1);
    std::size_t bit = 0;
    Akl8s sf[2][39] = {};
    for (int gr = 0; gr < ngr; ++gr) {
      Chan ch[2];
      for (int c = 0; c < nch; ++c) {
        Chan& C = ch[c];
        C.si = si[gr * nch + c];
        std::memset(C.q, 0, sizeof C.q);
        if (have) {
          Akl8u* cur = md.data() + bit / 8;
          Akl32s off = static_cast<Akl32s>(bit % 8);
          const std::size_t start = bit;
          bit += static_cast<std::size_t>(C.si.part23Length);
          if (aklsUnpackScaleFactors_MP3_1u8s(&cur, &off, sf[c], &C.si, scfsi + 4 * c, &hdr, gr, c) != kStsOk)
            return false;
          const long used = static_cast<long>((cur - md.data()) * 8 + off) - static_cast<long>(start);
          Akl32s bound = 0;
          if (aklsHuffmanDecode_MP3_1u32s(&cur, &off, C.q, &bound, &C.si, &hdr,
                                          static_cast<Akl32s>(C.si.part23Length - used)) != kStsOk)
            return false;
          C.coded_end = CodedEnd(huffman, md.data(), start + static_cast<std::size_t>(used), bit, C.si, bands, C.q);
          if (C.coded_end < 0) {
            std::fprintf(stderr, "mp3_model: frame %ld: Huffman values differ from the library's\n", frame);
            C.coded_end = 576;
          }
        }
        const bool is_right = !mpeg1 && c == 1 && hdr.mode == 1 && (hdr.modeExtension & 1);
        int mixed_long = 0;
        while (bands.lon[mixed_long + 1] <= 36) ++mixed_long;
        SpreadScaleFactors(sf[c], C.si, mpeg1, is_right, mixed_long, &C);
        if (dump) {
          int last = -1;
          for (int i = 0; i < 576; ++i)
            if (C.q[i]) last = i;
          std::printf("  gr %d ch %d: block %d mixed %d gain %d sfc %d scale %d preflag %d last nonzero line %d, "
                      "coded lines %d",
                      gr, c, C.si.windowSwitchingFlag ? C.si.blockType : 0, C.si.mixedBlockFlag, C.si.globalGain,
                      C.si.scalefacCompress, C.si.scalefacScale, C.si.preflag, last, C.coded_end);
          if (!mpeg1) {
            int slen[4], range;
            Mpeg2Partitions(C.si.scalefacCompress, is_right, slen, &range);
            std::printf(" slen %d %d %d %d (range %d)", slen[0], slen[1], slen[2], slen[3], range);
          }
          std::printf("\n");
        }
      }
      if (getenv("MODELDBG") && dump) {
        Akl32s xr[1152] = {}, work[576];
        int bound[2] = {576, 576};
        Akl8s sfx[78];
        for (int c = 0; c < nch; ++c) {
          std::memcpy(xr + 576 * c, ch[c].q, sizeof ch[c].q);
          std::memcpy(sfx + 39 * c, sf[c], 39);
        }
        AklMP3SideInfo sii[2] = {ch[0].si, ch[nch - 1].si};
        aklsReQuantize_MP3_32s_I(xr, bound, sfx, sii, &hdr, work);
        Chan cc[2] = {ch[0], ch[nch > 1 ? 1 : 0]};
        model->Debug(cc, nch, hdr);
        for (int i = 0; i < 576; ++i)
          if (std::fabs(cc[0].xr[i] * 67108864.0 - xr[i]) > 4) std::printf("    xr[%d]: model %.1f lib %d\n", i, cc[0].xr[i] * 67108864.0, xr[i]);
      }
      std::vector<std::int16_t> pcm(576 * out_ch);
      model->Granule(ch, nch, hdr, out_ch, pcm.data(), dump);
      pcm_out->insert(pcm_out->end(), pcm.begin(), pcm.end());
    }
    pos += static_cast<std::size_t>(len);
    ++frame;
  }
  delete model;
  *channels_out = out_ch;
  return frame > 0;
}

}  // namespace mp3model
