// Parametric stereo for akl-aacdec (see ps.hpp).
//
// Band layouts: with 20 parameter bands the hybrid domain has 71 bands (10
// hybrid sub-bands of QMF bands 0..2, then QMF bands 3..63), with 34 it has
// 91 (32 sub-bands of QMF bands 0..4, then 5..63).  Parameters sent at a
// coarser resolution (10 bands, or 20 in a 34-band frame) are mapped to the
// resolution in use; phases (IPD/OPD) have 5, 11 or 17 bands.
#include "aacdec/ps.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace aacdec {

namespace {

#include "aacdec/ps_tables.inc"

constexpr double kPi = 3.14159265358979323846;

enum PsBook { kIidDf, kIidDt, kIidFineDf, kIidFineDt, kIccDf, kIccDt, kIpdDf, kIpdDt, kOpdDf, kOpdDt };

struct PsBooks {
  aklsVLCDecodeSpec_32s* spec[10] = {};
  bool ok = true;
  PsBooks() {
    for (int b = 0; b < 10; ++b) {
      const int levels[3] = {8, 8, 8};
      if (aklsVLCDecodeInitAlloc_32s(kPsBookDefs[b].rows, kPsBookDefs[b].count, levels, 3, &spec[b]) != kStsOk)
        ok = false;
    }
  }
  ~PsBooks() {
    for (auto* s : spec) aklsVLCDecodeFree_32s(s);
  }
};

const PsBooks& Books() {
  static const PsBooks books;
  return books;
}

// Bits of a payload, copied into an aligned buffer with room for the
// library's word reads.
class Reader {
 public:
  Reader(const std::uint8_t* data, int pos, int limit) : pos_(pos), limit_(limit) {
    std::memset(buf_, 0, sizeof buf_);
    const int bytes = std::min((limit + 7) / 8, 512);
    limit_ = std::min(limit, 8 * bytes);
    std::memcpy(buf_, data, static_cast<std::size_t>(bytes));
  }
  unsigned Read(int n) {
    unsigned v = 0;
    for (int i = 0; i < n; ++i) {
      if (pos_ >= limit_) {
        over_ = true;
        return 0;
      }
      v = (v << 1) | ((buf_[pos_ >> 3] >> (7 - (pos_ & 7))) & 1u);
      ++pos_;
    }
    return v;
  }
  // The delta of one code of book b.
  int Huff(int b) {
    if (pos_ >= limit_) {
      over_ = true;
      return 0;
    }
    Akl8u* p = buf_ + (pos_ >> 3);
    int off = pos_ & 7;
    Akl16s v = 0;
    if (aklsVLCDecodeOne_1u16s(&p, &off, &v, Books().spec[b]) != kStsOk) over_ = true;
    pos_ = static_cast<int>(p - buf_) * 8 + off;
    if (pos_ > limit_) over_ = true;
    return v - kPsBookDefs[b].offset;
  }
  int pos() const { return pos_; }
  void Seek(int p) { pos_ = p; }
  bool over() const { return over_; }

 private:
  alignas(16) Akl8u buf_[512 + 16];
  int pos_;
  int limit_;
  bool over_ = false;
};

constexpr int kNrIidIcc[6] = {10, 20, 34, 10, 20, 34};
constexpr int kNrIpdOpd[6] = {5, 11, 17, 5, 11, 17};
constexpr int kNumEnv[2][4] = {{0, 1, 2, 4}, {1, 2, 3, 4}};

// One parameter set of `count` bands: frequency differential from 0, or time
// differential from `prev`.  IPD/OPD (`wrap`) accumulate modulo 8.
bool ReadPar(Reader& r, int book, bool dt, int count, const std::array<int, 34>& prev, bool wrap, int lo, int hi,
             std::array<int, 34>* out) {
  int v = 0;
  for (int b = 0; b < count; ++b) {
    const int delta = r.Huff(book);
    v = (dt ? prev[static_cast<std::size_t>(b)] : v) + delta;
    if (wrap) v &= 7;
    if (v < lo || v > hi) return false;
    (*out)[static_cast<std::size_t>(b)] = v;
  }
  for (int b = count; b < 34; ++b) (*out)[static_cast<std::size_t>(b)] = 0;
  return !r.over();
}

void Neutral(PsSyntax* s) {
  s->num_env = 1;
  s->border[0] = -1;
  s->border[1] = 31;
  s->enable_ipdopd = false;
  for (auto* a : {&s->iid, &s->icc, &s->ipd, &s->opd})
    for (auto& e : *a) e.fill(0);
}

// ---- mapping between resolutions ----

struct MapRow {
  int den;
  int n;
  int in[4];
  int w[4];
};

constexpr MapRow k34To20[20] = {
    {3, 2, {0, 1}, {2, 1}},  {3, 2, {1, 2}, {1, 2}},  {3, 2, {3, 4}, {2, 1}},  {3, 2, {4, 5}, {1, 2}},
    {2, 2, {6, 7}, {1, 1}},  {2, 2, {8, 9}, {1, 1}},  {1, 1, {10}, {1}},       {1, 1, {11}, {1}},
    {2, 2, {12, 13}, {1, 1}}, {2, 2, {14, 15}, {1, 1}}, {1, 1, {16}, {1}},      {1, 1, {17}, {1}},
    {1, 1, {18}, {1}},       {1, 1, {19}, {1}},       {2, 2, {20, 21}, {1, 1}}, {2, 2, {22, 23}, {1, 1}},
    {2, 2, {24, 25}, {1, 1}}, {2, 2, {26, 27}, {1, 1}}, {4, 4, {28, 29, 30, 31}, {1, 1, 1, 1}},
    {2, 2, {32, 33}, {1, 1}}};
// 20 -> 34: the 20-band source of each 34-band output; pairs average.
constexpr MapRow k20To34[34] = {
    {1, 1, {0}, {1}},  {2, 2, {0, 1}, {1, 1}}, {1, 1, {1}, {1}},  {1, 1, {2}, {1}},  {2, 2, {2, 3}, {1, 1}},
    {1, 1, {3}, {1}},  {1, 1, {4}, {1}},       {1, 1, {4}, {1}},  {1, 1, {5}, {1}},  {1, 1, {5}, {1}},
    {1, 1, {6}, {1}},  {1, 1, {7}, {1}},       {1, 1, {8}, {1}},  {1, 1, {8}, {1}},  {1, 1, {9}, {1}},
    {1, 1, {9}, {1}},  {1, 1, {10}, {1}},      {1, 1, {11}, {1}}, {1, 1, {12}, {1}}, {1, 1, {13}, {1}},
    {1, 1, {14}, {1}}, {1, 1, {14}, {1}},      {1, 1, {15}, {1}}, {1, 1, {15}, {1}}, {1, 1, {16}, {1}},
    {1, 1, {16}, {1}}, {1, 1, {17}, {1}},      {1, 1, {17}, {1}}, {1, 1, {18}, {1}}, {1, 1, {18}, {1}},
    {1, 1, {18}, {1}}, {1, 1, {18}, {1}},      {1, 1, {19}, {1}}, {1, 1, {19}, {1}}};
constexpr int k10To34[34] = {0, 0, 0, 1, 1, 1, 2, 2, 2, 2, 3, 3, 4, 4, 4, 4, 5,
                             5, 6, 6, 7, 7, 7, 7, 8, 8, 8, 8, 9, 9, 9, 9, 9, 9};

int MapIndex(const MapRow& m, const int* in) {
  int s = 0;
  for (int j = 0; j < m.n; ++j) s += m.w[j] * in[m.in[j]];
  return s / m.den;  // truncating toward zero
}

float MapValue(const MapRow& m, const float* in) {
  float s = 0.0f;
  for (int j = 0; j < m.n; ++j) s += static_cast<float>(m.w[j]) * in[m.in[j]];
  return s / static_cast<float>(m.den);
}

// Parameters of `nr` bands to the 20 (is34 false) or 34 resolution; `full`
// false for phases (11 or 17 output bands).
void Remap(const std::array<int, 34>& in, int nr, bool is34, bool full, int* out) {
  const int n_out = is34 ? (full ? 34 : 17) : (full ? 20 : 11);
  std::fill(out, out + 34, 0);
  if (nr == n_out) {
    std::copy(in.begin(), in.begin() + nr, out);
  } else if (!is34) {
    if (nr == 10 || nr == 5) {
      for (int b = 0; b < nr; ++b) out[2 * b] = out[2 * b + 1] = in[static_cast<std::size_t>(b)];
    } else {
      for (int b = 0; b < n_out; ++b) out[b] = MapIndex(k34To20[b], in.data());
    }
  } else if (nr == 20 || nr == 11) {
    for (int b = 0; b < n_out; ++b) out[b] = MapIndex(k20To34[b], in.data());
  } else {
    const int n = full ? 34 : 16;
    for (int b = 0; b < n; ++b) out[b] = in[static_cast<std::size_t>(k10To34[b])];
  }
}

// ---- constants of the stereo synthesis ----

constexpr int kKToI20[71] = {1,  0,  0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 14,
                             15, 15, 15, 16, 16, 16, 16, 17, 17, 17, 17, 17, 18, 18, 18, 18, 18, 18,
                             18, 18, 18, 18, 18, 18, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19,
                             19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19, 19};
constexpr int kKToI34[91] = {0,  1,  2,  3,  4,  5,  6,  6,  7,  2,  1,  0,  10, 10, 4,  5,  6,  7,  8,
                             9,  10, 11, 12, 9,  14, 11, 12, 13, 14, 15, 16, 13, 16, 17, 18, 19, 20, 21,
                             22, 22, 23, 23, 24, 24, 25, 25, 26, 26, 27, 27, 27, 28, 28, 28, 29, 29, 29,
                             30, 30, 30, 31, 31, 31, 31, 32, 32, 32, 32, 33, 33, 33, 33, 33, 33, 33, 33,
                             33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33};
constexpr int kFCenter20[10] = {-3, -1, 1, 3, 5, 7, 10, 14, 18, 22};  // /8
constexpr int kFCenter34[32] = {2,  6,  10, 14, 18, 22, 26, 30, 34, -10, -6,  -2, 51, 57, 15,  21,
                                27, 33, 39, 45, 54, 66, 78, 42, 102, 66, 78, 90, 102, 114, 126, 90};  // /24
constexpr float kAllpassA[3] = {0.65143905753106f, 0.56471812200776f, 0.48954165955695f};
constexpr int kAllpassD[3] = {3, 4, 5};
constexpr double kAllpassQ[3] = {0.43, 0.75, 0.347};
constexpr double kQPhi = 0.39;

struct Layout {
  int bands, par_bands, ipd_bands, hybrid, offset, allpass, short_delay, cutoff;
  const int* k_to_i;
};
constexpr Layout kLayout20{71, 20, 11, 10, 7, 30, 42, 10, kKToI20};
constexpr Layout kLayout34{91, 34, 17, 32, 27, 50, 62, 32, kKToI34};

struct Tables {
  Akl32fc phi[2][50];
  Akl32fc q[2][50][3];
  float mix[2][2][31][8][4];  // [procedure B][fine][iid + 15][icc]
  float pd_re[512], pd_im[512];
  Tables() {
    for (int c = 0; c < 2; ++c) {
      const Layout& l = c ? kLayout34 : kLayout20;
      for (int k = 0; k < l.allpass; ++k) {
        double f;
        if (k < l.hybrid)
          f = c ? kFCenter34[k] / 24.0 : kFCenter20[k] / 8.0;
        else
          f = k - l.offset + 0.5;
        phi[c][k] = {static_cast<float>(std::cos(-kPi * kQPhi * f)), static_cast<float>(std::sin(-kPi * kQPhi * f))};
        for (int m = 0; m < 3; ++m)
          q[c][k][m] = {static_cast<float>(std::cos(-kPi * kAllpassQ[m] * f)),
                        static_cast<float>(std::sin(-kPi * kAllpassQ[m] * f))};
      }
    }
    for (int b = 0; b < 2; ++b)
      for (int fine = 0; fine < 2; ++fine)
        for (int iid = -15; iid <= 15; ++iid)
          for (int icc = 0; icc < 8; ++icc)
            if (fine || (iid >= -7 && iid <= 7)) PsMixingMatrix(b != 0, fine != 0, iid, icc, mix[b][fine][iid + 15][icc]);
    // Phase smoothing: the angle of 0.25 e(n-2) + 0.5 e(n-1) + e(n).
    for (int i = 0; i < 512; ++i) {
      const int p0 = i >> 6, p1 = (i >> 3) & 7, p2 = i & 7;
      const double re = 0.25 * std::cos(kPi / 4 * p0) + 0.5 * std::cos(kPi / 4 * p1) + std::cos(kPi / 4 * p2);
      const double im = 0.25 * std::sin(kPi / 4 * p0) + 0.5 * std::sin(kPi / 4 * p1) + std::sin(kPi / 4 * p2);
      const double mag = std::hypot(re, im);
      pd_re[i] = static_cast<float>(re / mag);
      pd_im[i] = static_cast<float>(im / mag);
    }
  }
};

const Tables& TheTables() {
  static const Tables t;
  return t;
}

}  // namespace

void PsMixingMatrix(bool b, bool fine, int iid, int icc, float h[4]) {
  static constexpr int kCoarseDb[8] = {0, 2, 4, 7, 10, 14, 18, 25};
  static constexpr int kFineDb[16] = {0, 2, 4, 6, 8, 10, 13, 16, 19, 22, 25, 30, 35, 40, 45, 50};
  static constexpr double kRho[8] = {1.0, 0.937, 0.84118, 0.60092, 0.36764, 0.0, -0.589, -1.0};
  const int mag = iid < 0 ? -iid : iid;
  const int db = (fine ? kFineDb[mag] : kCoarseDb[mag]) * (iid < 0 ? -1 : 1);
  const double c = std::pow(10.0, db / 20.0);
  const double rho = kRho[icc];
  const double sqrt2 = std::sqrt(2.0);
  double h11, h12, h21, h22;
  if (!b) {
    const double c1 = std::sqrt(2.0 / (1.0 + c * c));
    const double c2 = c * c1;
    const double alpha = 0.5 * std::acos(rho);
    const double beta = alpha * (c1 - c2) / sqrt2;
    h11 = c2 * std::cos(beta + alpha);
    h12 = c1 * std::cos(beta - alpha);
    h21 = c2 * std::sin(beta + alpha);
    h22 = c1 * std::sin(beta - alpha);
  } else {
    const double r = std::max(rho, 0.05);
    double alpha = 0.5 * std::atan2(2.0 * c * r, c * c - 1.0);
    if (alpha < 0) alpha += kPi / 2;
    const double cc = c + 1.0 / c;
    const double mu = std::sqrt(1.0 + (4.0 * r * r - 4.0) / (cc * cc));
    const double gamma = std::atan(std::sqrt((1.0 - mu) / (1.0 + mu)));
    h11 = sqrt2 * std::cos(alpha) * std::cos(gamma);
    h12 = sqrt2 * std::sin(alpha) * std::cos(gamma);
    h21 = -sqrt2 * std::sin(alpha) * std::sin(gamma);
    h22 = sqrt2 * std::cos(alpha) * std::sin(gamma);
  }
  h[0] = static_cast<float>(h11);
  h[1] = static_cast<float>(h12);
  h[2] = static_cast<float>(h21);
  h[3] = static_cast<float>(h22);
}

int ParsePsData(const std::uint8_t* data, int pos, int limit, PsSyntax* s) {
  if (!Books().ok) return -1;
  Reader r(data, pos, limit);
  // The last envelope of the previous frame: the reference of time deltas
  // in the first envelope, and of a frame without envelopes.
  const std::size_t last = static_cast<std::size_t>(std::max(s->num_env - 1, 0));
  const auto last_iid = s->iid[last], last_icc = s->icc[last], last_ipd = s->ipd[last], last_opd = s->opd[last];
  auto fail = [&] {
    Neutral(s);
    return -1;
  };
  if (r.Read(1)) {
    s->have_header = true;
    s->enable_iid = r.Read(1) != 0;
    if (s->enable_iid) {
      const int mode = static_cast<int>(r.Read(3));
      if (mode > 5) return fail();
      s->iid_mode = mode;
      s->nr_iid = kNrIidIcc[mode];
      s->nr_ipdopd = kNrIpdOpd[mode];
    }
    s->enable_icc = r.Read(1) != 0;
    if (s->enable_icc) {
      const int mode = static_cast<int>(r.Read(3));
      if (mode > 5) return fail();
      s->icc_mode = mode;
      s->nr_icc = kNrIidIcc[mode];
    }
    s->enable_ext = r.Read(1) != 0;
  }
  const int frame_class = static_cast<int>(r.Read(1));
  const int num_env = kNumEnv[frame_class][r.Read(2)];
  s->border[0] = -1;
  for (int e = 1; e <= num_env; ++e) {
    if (frame_class) {
      s->border[static_cast<std::size_t>(e)] = static_cast<int>(r.Read(5));
      if (s->border[static_cast<std::size_t>(e)] < s->border[static_cast<std::size_t>(e - 1)]) return fail();
    } else {
      s->border[static_cast<std::size_t>(e)] = e * 32 / num_env - 1;
    }
  }
  const bool fine = s->iid_mode > 2;
  for (int e = 0; e < num_env; ++e) {
    const std::size_t ue = static_cast<std::size_t>(e);
    if (s->enable_iid) {
      const bool dt = r.Read(1) != 0;
      const int book = fine ? (dt ? kIidFineDt : kIidFineDf) : (dt ? kIidDt : kIidDf);
      const int lim = fine ? 15 : 7;
      if (!ReadPar(r, book, dt, s->nr_iid, e ? s->iid[ue - 1] : last_iid, false, -lim, lim, &s->iid[ue]))
        return fail();
    } else {
      s->iid[ue].fill(0);
    }
  }
  for (int e = 0; e < num_env; ++e) {
    const std::size_t ue = static_cast<std::size_t>(e);
    if (s->enable_icc) {
      const bool dt = r.Read(1) != 0;
      if (!ReadPar(r, dt ? kIccDt : kIccDf, dt, s->nr_icc, e ? s->icc[ue - 1] : last_icc, false, 0, 7, &s->icc[ue]))
        return fail();
    } else {
      s->icc[ue].fill(0);
    }
  }
  s->enable_ipdopd = false;
  if (s->enable_ext) {
    int cnt = static_cast<int>(r.Read(4));
    if (cnt == 15) cnt += static_cast<int>(r.Read(8));
    const int end = r.pos() + 8 * cnt;
    while (end - r.pos() > 7 && !r.over()) {
      if (r.Read(2) != 0) continue;  // other extensions carry nothing this decoder reads
      s->enable_ipdopd = r.Read(1) != 0;
      if (s->enable_ipdopd) {
        for (int e = 0; e < num_env; ++e) {
          const std::size_t ue = static_cast<std::size_t>(e);
          bool dt = r.Read(1) != 0;
          if (!ReadPar(r, dt ? kIpdDt : kIpdDf, dt, s->nr_ipdopd, e ? s->ipd[ue - 1] : last_ipd, true, 0, 7,
                       &s->ipd[ue]))
            return fail();
          dt = r.Read(1) != 0;
          if (!ReadPar(r, dt ? kOpdDt : kOpdDf, dt, s->nr_ipdopd, e ? s->opd[ue - 1] : last_opd, true, 0, 7,
                       &s->opd[ue]))
            return fail();
        }
      }
      r.Read(1);  // reserved
    }
    if (r.pos() > end) return fail();
    r.Seek(end);
  }
  if (r.over()) return fail();
  if (!s->enable_ipdopd) {
    for (int e = 0; e < num_env; ++e) {
      s->ipd[static_cast<std::size_t>(e)].fill(0);
      s->opd[static_cast<std::size_t>(e)].fill(0);
    }
  }
  // An envelope that reaches the frame's end, holding the last values.
  s->num_env = num_env;
  if (num_env == 0 || s->border[static_cast<std::size_t>(num_env)] < 31) {
    const std::size_t n = static_cast<std::size_t>(num_env);
    if (num_env == 0) {
      s->iid[0] = s->enable_iid ? last_iid : std::array<int, 34>{};
      s->icc[0] = s->enable_icc ? last_icc : std::array<int, 34>{};
      s->ipd[0] = s->enable_ipdopd ? last_ipd : std::array<int, 34>{};
      s->opd[0] = s->enable_ipdopd ? last_opd : std::array<int, 34>{};
    } else {
      s->iid[n] = s->iid[n - 1];
      s->icc[n] = s->icc[n - 1];
      s->ipd[n] = s->ipd[n - 1];
      s->opd[n] = s->opd[n - 1];
    }
    s->num_env = num_env + 1;
    s->border[n + 1] = 31;
  }
  return r.pos() - pos;
}

// ---------------------------------------------------------------------------

PsDecoder::PsDecoder(bool down_sampled) : down_(down_sampled) {
  if (!Books().ok) ready_ = false;
  TheTables();
  if (aklsAnalysisFilterInitAlloc_PS_32fc(&hybrid_) != kStsOk) ready_ = false;
  if (down_ ? aklsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(&syn_down_) != kStsOk
            : aklsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(&syn_) != kStsOk)
    ready_ = false;
}

PsDecoder::~PsDecoder() {
  if (hybrid_) aklsAnalysisFilterFree_PS_32fc(hybrid_);
  if (syn_) aklsSynthesisFilterFree_SBR_CToR_32fc32f(syn_);
  if (syn_down_) aklsSynthesisDownFilterFree_SBR_CToR_32fc32f(syn_down_);
}

void PsDecoder::Decorrelate(bool is34, int top_h) {
  const Layout& l = is34 ? kLayout34 : kLayout20;
  const Tables& t = TheTables();
  const int c = is34 ? 1 : 0;
  // Bands above the signal start from silence.
  for (int k = std::max(top_h, 0); k < l.bands; ++k) {
    std::memset(delay_[k], 0, sizeof delay_[k]);
    if (k < l.allpass) std::memset(ap_[k], 0, sizeof ap_[k]);
  }
  // Transient attenuation per parameter band.
  float power[34][32] = {};
  for (int n = 0; n < 32; ++n)
    for (int k = 0; k < l.bands; ++k) power[l.k_to_i[k]][n] += s_[n][k].re * s_[n][k].re + s_[n][k].im * s_[n][k].im;
  float gain[34][32];
  for (int i = 0; i < l.par_bands; ++i) {
    for (int n = 0; n < 32; ++n) {
      const float p = power[i][n];
      peak_decay_[i] = std::max(0.76592833836465f * peak_decay_[i], p);
      power_smooth_[i] += 0.25f * (p - power_smooth_[i]);
      peak_diff_smooth_[i] += 0.25f * (peak_decay_[i] - p - peak_diff_smooth_[i]);
      const float denom = 1.5f * peak_diff_smooth_[i];
      gain[i][n] = denom > power_smooth_[i] ? power_smooth_[i] / denom : 1.0f;
    }
  }
  Akl32fc ext[14 + 32];
  for (int k = 0; k < l.bands; ++k) {
    std::memcpy(ext, delay_[k], sizeof delay_[k]);
    for (int n = 0; n < 32; ++n) ext[14 + n] = s_[n][k];
    std::memcpy(delay_[k], ext + 32, sizeof delay_[k]);
    const float* g = gain[l.k_to_i[k]];
    if (k < l.allpass) {
      const float slope = std::clamp(1.0f - 0.05f * static_cast<float>(k - l.cutoff), 0.0f, 1.0f);
      const Akl32fc phi = t.phi[c][k];
      Akl32fc w[3][5 + 32];
      for (int m = 0; m < 3; ++m) std::memcpy(w[m], ap_[k][m], sizeof ap_[k][m]);
      for (int n = 0; n < 32; ++n) {
        const Akl32fc x = ext[14 + n - 2];
        float re = x.re * phi.re - x.im * phi.im;
        float im = x.re * phi.im + x.im * phi.re;
        for (int m = 0; m < 3; ++m) {
          const float a = kAllpassA[m] * slope;
          const Akl32fc q = t.q[c][k][m];
          const Akl32fc wd = w[m][5 + n - kAllpassD[m]];
          const float lr = wd.re * q.re - wd.im * q.im;
          const float li = wd.re * q.im + wd.im * q.re;
          const float nr = re + a * lr, ni = im + a * li;
          w[m][5 + n] = {nr, ni};
          re = lr - a * nr;
          im = li - a * ni;
        }
        d_[n][k] = {g[n] * re, g[n] * im};
      }
      for (int m = 0; m < 3; ++m) std::memcpy(ap_[k][m], w[m] + 32, sizeof ap_[k][m]);
    } else {
      const int lag = k < l.short_delay ? 14 : 1;
      for (int n = 0; n < 32; ++n) d_[n][k] = {g[n] * ext[14 + n - lag].re, g[n] * ext[14 + n - lag].im};
    }
  }
}

void PsDecoder::Mix(const PsSyntax& s, bool is34) {
  const Layout& l = is34 ? kLayout34 : kLayout20;
  const Tables& t = TheTables();
  const bool proc_b = s.icc_mode >= 3;
  const bool fine = s.iid_mode > 2;
  const bool phases = s.enable_ipdopd;
  for (int e = 0; e < s.num_env; ++e) {
    const std::size_t ue = static_cast<std::size_t>(e);
    int iid[34], icc[34], ipd[34], opd[34];
    Remap(s.iid[ue], s.nr_iid, is34, true, iid);
    Remap(s.icc[ue], s.nr_icc, is34, true, icc);
    if (phases) {
      Remap(s.ipd[ue], s.nr_ipdopd, is34, false, ipd);
      Remap(s.opd[ue], s.nr_ipdopd, is34, false, opd);
    }
    float hn[4][34] = {}, hin[4][34] = {};
    for (int b = 0; b < l.par_bands; ++b) {
      const float* h = t.mix[proc_b][fine][std::clamp(iid[b], -15, 15) + 15][std::clamp(icc[b], 0, 7)];
      for (int j = 0; j < 4; ++j) {
        hn[j][b] = h[j];
        hin[j][b] = 0.0f;
      }
      if (phases && b < l.ipd_bands) {
        const int oi = opd_hist_[b] * 8 + (opd[b] & 7);
        const int ii = ipd_hist_[b] * 8 + (ipd[b] & 7);
        opd_hist_[b] = oi & 0x3F;
        ipd_hist_[b] = ii & 0x3F;
        const float opd_re = t.pd_re[oi], opd_im = t.pd_im[oi];
        const float ipd_re = t.pd_re[ii], ipd_im = t.pd_im[ii];
        // Left turns by the OPD, right by OPD - IPD.
        const float adj_re = opd_re * ipd_re + opd_im * ipd_im;
        const float adj_im = opd_im * ipd_re - opd_re * ipd_im;
        hin[0][b] = h[0] * opd_im;
        hn[0][b] = h[0] * opd_re;
        hin[2][b] = h[2] * opd_im;
        hn[2][b] = h[2] * opd_re;
        hin[1][b] = h[1] * adj_im;
        hn[1][b] = h[1] * adj_re;
        hin[3][b] = h[3] * adj_im;
        hn[3][b] = h[3] * adj_re;
      }
    }
    const int start = s.border[ue], stop = s.border[ue + 1];
    const int len = stop - start;
    if (len > 0) {
      const float width = 1.0f / static_cast<float>(len);
      for (int k = 0; k < l.bands; ++k) {
        const int b = l.k_to_i[k];
        // Sub-bands at negative frequencies turn the other way.
        const float sign = (is34 ? (k >= 9 && k <= 13) : k <= 1) ? -1.0f : 1.0f;
        float h[4], hs[4], hi[4], his[4];
        for (int j = 0; j < 4; ++j) {
          h[j] = h_[j][b];
          hs[j] = (hn[j][b] - h[j]) * width;
          hi[j] = sign * hi_[j][b];
          his[j] = sign * (hin[j][b] - hi_[j][b]) * width;
        }
        for (int n = start + 1; n <= stop; ++n) {
          for (int j = 0; j < 4; ++j) {
            h[j] += hs[j];
            hi[j] += his[j];
          }
          const Akl32fc sv = s_[n][k], dv = d_[n][k];
          s_[n][k] = {h[0] * sv.re + h[2] * dv.re - hi[0] * sv.im - hi[2] * dv.im,
                      h[0] * sv.im + h[2] * dv.im + hi[0] * sv.re + hi[2] * dv.re};
          d_[n][k] = {h[1] * sv.re + h[3] * dv.re - hi[1] * sv.im - hi[3] * dv.im,
                      h[1] * sv.im + h[3] * dv.im + hi[1] * sv.re + hi[3] * dv.re};
        }
      }
    }
    std::memcpy(h_, hn, sizeof h_);
    std::memcpy(hi_, hin, sizeof hi_);
  }
}

void PsDecoder::Process(Akl32fc (*x)[64], const Akl32fc* ahead, int ahead_step, int top, const PsSyntax* s,
                        float* right) {
  bool is34 = is34_;
  if (s && (s->enable_iid || s->enable_icc))
    is34 = (s->enable_iid && s->nr_iid == 34) || (s->enable_icc && s->nr_icc == 34);
  const Layout& l = is34 ? kLayout34 : kLayout20;
  const int cfg = is34 ? 34 : 20;
  // Hybrid analysis of QMF bands 0..4, fed 6 slots ahead so that its
  // output lines up with the unsplit bands.
  Akl32fc hyb[32][32];
  aklsAnalysisFilter_PS_32fc_D2(x[6], 64, hyb[0], 32, 26, cfg, hybrid_);
  aklsAnalysisFilter_PS_32fc_D2(ahead, ahead_step, hyb[26], 32, 6, cfg, hybrid_);
  if (!s) {
    std::memcpy(xr_, x, sizeof xr_);
  } else {
    if (is34 != is34_) {
      // A change of layout: the decorrelator starts afresh, the matrices
      // are carried over to the new parameter bands.
      std::memset(delay_, 0, sizeof delay_);
      std::memset(ap_, 0, sizeof ap_);
      std::memset(peak_decay_, 0, sizeof peak_decay_);
      std::memset(power_smooth_, 0, sizeof power_smooth_);
      std::memset(peak_diff_smooth_, 0, sizeof peak_diff_smooth_);
      for (auto* m : {&h_, &hi_}) {
        for (int j = 0; j < 4; ++j) {
          float src[34];
          std::memcpy(src, (*m)[j], sizeof src);
          for (int b = 0; b < 34; ++b) (*m)[j][b] = 0.0f;
          if (is34) {
            for (int b = 0; b < 34; ++b) (*m)[j][b] = MapValue(k20To34[b], src);
          } else {
            for (int b = 0; b < 20; ++b) (*m)[j][b] = MapValue(k34To20[b], src);
          }
        }
      }
      std::memset(ipd_hist_, 0, sizeof ipd_hist_);
      std::memset(opd_hist_, 0, sizeof opd_hist_);
    }
    for (int n = 0; n < 32; ++n) {
      std::memcpy(s_[n], hyb[n], sizeof(Akl32fc) * static_cast<std::size_t>(l.hybrid));
      std::memcpy(s_[n] + l.hybrid, x[n] + (l.hybrid - l.offset),
                  sizeof(Akl32fc) * static_cast<std::size_t>(l.bands - l.hybrid));
    }
    Decorrelate(is34, top + l.bands - 64);
    Mix(*s, is34);
    const int low = l.hybrid - l.offset;  // QMF bands split: 3 or 5
    aklsSynthesisFilter_PS_32fc_D2(s_[0], 91, x[0], 64, 32, cfg);
    aklsSynthesisFilter_PS_32fc_D2(d_[0], 91, xr_[0], 64, 32, cfg);
    for (int n = 0; n < 32; ++n) {
      std::memcpy(x[n] + low, s_[n] + l.hybrid, sizeof(Akl32fc) * static_cast<std::size_t>(64 - low));
      std::memcpy(xr_[n] + low, d_[n] + l.hybrid, sizeof(Akl32fc) * static_cast<std::size_t>(64 - low));
    }
    is34_ = is34;
  }
  const Akl32fc* rows[32];
  for (int n = 0; n < 32; ++n) rows[n] = xr_[n];
  if (down_)
    aklsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(rows, right, 32, syn_down_);
  else
    aklsSynthesisFilter_SBR_CToR_32fc32f_D2L(rows, right, 32, syn_);
}

}  // namespace aacdec
