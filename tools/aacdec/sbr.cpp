// Spectral band replication for akl-aacdec (see sbr.hpp).
//
// Time runs in QMF slots of 32 core samples.  Per channel the decoder keeps
// 40 slots of low-band analysis (x_low: 8 slots of the previous frame, then
// the 32 of this one) and 40 slots of high band (x_high, y).  Row r of x_low
// and x_high stands for the SBR time slot r - 2 of the frame's time grid, so
// the output runs 6 slots (384 core samples) behind the analysis; a grid
// whose last border lies beyond the frame's end (variable borders) fills
// rows 34..39 of y, which the next frame plays before its own part.
#include "aacdec/sbr.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

namespace aacdec {

namespace {

#include "aacdec/sbr_tables.inc"

constexpr int kRows = 40;      // slots of x_low, x_high, y
constexpr int kHfGen = 8;      // previous-frame slots in front of x_low
constexpr int kHfAdj = 2;      // row of grid slot 0

// Books in the order of sbr_tables.inc.
enum Book {
  kTEnv15, kFEnv15, kTEnvBal15, kFEnvBal15, kTEnv30, kFEnv30, kTEnvBal30, kFEnvBal30, kTNoise30, kTNoiseBal30
};

struct Books {
  aklsVLCDecodeSpec_32s* spec[10] = {};
  bool ok = true;
  Books() {
    for (int b = 0; b < 10; ++b) {
      const SbrBookDef& d = kSbrBookDefs[b];
      const int levels[3] = {8, 8, 8};
      if (aklsVLCDecodeInitAlloc_32s(d.rows, d.count, levels, 3, &spec[b]) != kStsOk) ok = false;
    }
  }
  ~Books() {
    for (auto* s : spec) aklsVLCDecodeFree_32s(s);
  }
};

const Books& TheBooks() {
  static const Books books;
  return books;
}

// Bits of one payload, copied into an aligned buffer with room before and
// after for the library's word reads.
class Bits {
 public:
  Bits(const std::uint8_t* bytes, int count) : limit_(8 * count) {
    std::memset(buf_, 0, sizeof buf_);
    std::memcpy(buf_ + kFront, bytes, static_cast<std::size_t>(count));
  }
  unsigned Read(int n) {
    unsigned v = 0;
    for (int i = 0; i < n; ++i) {
      if (pos_ >= limit_) {
        over_ = true;
        return 0;
      }
      v = (v << 1) | ((buf_[kFront + (pos_ >> 3)] >> (7 - (pos_ & 7))) & 1u);
      ++pos_;
    }
    return v;
  }
  // Symbol index of one code of book b; the caller subtracts the LAV.
  int Huff(int b) {
    if (pos_ >= limit_) {
      over_ = true;
      return 0;
    }
    Akl8u* p = buf_ + kFront + (pos_ >> 3);
    int off = pos_ & 7;
    Akl16s v = 0;
    if (aklsVLCDecodeOne_1u16s(&p, &off, &v, TheBooks().spec[b]) != kStsOk) over_ = true;
    pos_ = static_cast<int>(p - (buf_ + kFront)) * 8 + off;
    if (pos_ > limit_) over_ = true;
    return v;
  }
  void Skip(int n) {
    pos_ += n;
    if (pos_ > limit_) over_ = true;
  }
  int pos() const { return pos_; }
  int limit() const { return limit_; }
  bool over() const { return over_; }
  int Bit(int i) const { return (buf_[kFront + (i >> 3)] >> (7 - (i & 7))) & 1; }

 private:
  static constexpr int kFront = 8;
  alignas(16) Akl8u buf_[kFront + 512 + 16];
  int pos_ = 0;
  int limit_;
  bool over_ = false;
};

int Nint(double x) { return static_cast<int>(std::floor(x + 0.5)); }

// ---- frequency band tables ----

int OffsetRow(int fs) {
  if (fs <= 16000) return 0;
  if (fs <= 22050) return 1;
  if (fs <= 24000) return 2;
  if (fs <= 32000) return 3;
  if (fs <= 64000) return 4;
  return 5;
}

constexpr int kStartOffset[6][16] = {
    {-8, -7, -6, -5, -4, -3, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7},
    {-5, -4, -3, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 9, 11, 13},
    {-5, -3, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 9, 11, 13, 16},
    {-6, -4, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 9, 11, 13, 16},
    {-4, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 9, 11, 13, 16, 20},
    {-2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 9, 11, 13, 16, 20, 24},
};

// Widths between n + 1 geometric borders from a to b, rounded, ascending.
void GeometricWidths(int a, int b, int n, int* widths) {
  int prev = a;
  for (int k = 0; k < n; ++k) {
    const int next = Nint(a * std::pow(static_cast<double>(b) / a, static_cast<double>(k + 1) / n));
    widths[k] = next - prev;
    prev = next;
  }
  std::sort(widths, widths + n);
}

bool MasterTable(const SbrHeader& h, int k0, int k2, SbrTables* t) {
  int n = 0;
  if (h.freq_scale == 0) {
    // Pairs of bands of width dk: 2 INT((k2 - k0) / 2) for dk = 1, but
    // 2 NINT((k2 - k0) / 4) for dk = 2.
    const int dk = h.alter_scale ? 2 : 1;
    const int num = dk == 1 ? 2 * ((k2 - k0) / 2) : 2 * ((k2 - k0 + 2) / 4);
    if (num < 1 || num > 64) return false;
    int widths[64];
    for (int k = 0; k < num; ++k) widths[k] = dk;
    int diff = k2 - (k0 + num * dk);
    int k = diff < 0 ? 0 : num - 1;
    const int incr = diff < 0 ? 1 : -1;
    while (diff != 0) {
      if (k < 0 || k >= num) return false;
      widths[k] -= incr;
      k += incr;
      diff += incr;
    }
    t->f_master[0] = k0;
    for (int i = 0; i < num; ++i) t->f_master[static_cast<std::size_t>(i + 1)] = t->f_master[static_cast<std::size_t>(i)] + widths[i];
    n = num;
  } else {
    const int bands = h.freq_scale == 1 ? 12 : h.freq_scale == 2 ? 10 : 8;
    const double warp = h.alter_scale ? 1.3 : 1.0;
    const bool two = 49 * k2 > 110 * k0;  // k2 / k0 > 2.2449
    const int k1 = two ? 2 * k0 : k2;
    const int n0 = 2 * Nint(bands * std::log(static_cast<double>(k1) / k0) / (2.0 * std::log(2.0)));
    if (n0 < 1 || n0 > 63) return false;
    int w0[64];
    GeometricWidths(k0, k1, n0, w0);
    if (w0[0] <= 0) return false;
    t->f_master[0] = k0;
    for (int i = 0; i < n0; ++i) t->f_master[static_cast<std::size_t>(i + 1)] = t->f_master[static_cast<std::size_t>(i)] + w0[i];
    n = n0;
    if (two) {
      const int n1 = 2 * Nint(bands * std::log(static_cast<double>(k2) / k1) / (2.0 * std::log(2.0) * warp));
      if (n1 < 1 || n0 + n1 > 64) return false;
      int w1[64];
      GeometricWidths(k1, k2, n1, w1);
      if (w1[0] < w0[n0 - 1]) {
        const int change = w0[n0 - 1] - w1[0];
        w1[0] += change;
        w1[n1 - 1] -= change;
        std::sort(w1, w1 + n1);
      }
      if (w1[0] <= 0) return false;
      for (int i = 0; i < n1; ++i)
        t->f_master[static_cast<std::size_t>(n + i + 1)] = t->f_master[static_cast<std::size_t>(n + i)] + w1[i];
      n += n1;
    }
  }
  t->n_master = n;
  return t->f_master[static_cast<std::size_t>(n)] == k2;
}

bool Patches(const SbrTables& in, int fs, SbrTables* t) {
  const int k0 = in.k0, kx = in.kx, m = in.m;
  int goal = Nint(2.048e6 / fs);
  int k = 0;
  if (goal < kx + m) {
    for (int i = 0; t->f_master[static_cast<std::size_t>(i)] < goal; ++i) k = i + 1;
  } else {
    k = t->n_master;
  }
  int msb = k0, usb = kx, np = 0, sb = 0;
  for (int guard = 0;; ++guard) {
    if (guard > 64) return false;
    int j = k + 1;
    int odd = 0;
    do {
      --j;
      if (j < 0) return false;
      sb = t->f_master[static_cast<std::size_t>(j)];
      odd = (sb - 2 + k0) % 2;
    } while (sb > k0 - 1 + msb - odd);
    const int bands = std::max(sb - usb, 0);
    if (bands > 0) {
      // Five patches at most, but a sixth is let through as the streams of
      // the encoder's own check set need it.
      if (np >= 6) return false;
      t->patch_bands[static_cast<std::size_t>(np)] = bands;
      t->patch_start[static_cast<std::size_t>(np)] = k0 - odd - bands;
      if (k0 - odd - bands < 0) return false;
      usb = sb;
      msb = sb;
      ++np;
    } else {
      msb = kx;
    }
    if (t->f_master[static_cast<std::size_t>(k)] - sb < 3) k = t->n_master;
    if (sb == kx + m) break;
  }
  if (np > 1 && t->patch_bands[static_cast<std::size_t>(np - 1)] < 3) --np;
  if (np < 1) return false;
  t->num_patches = np;
  return true;
}

void LimiterTable(const SbrHeader& h, SbrTables* t) {
  if (h.limiter_bands == 0) {
    t->f_lim[0] = t->f_low[0];
    t->f_lim[1] = t->f_low[static_cast<std::size_t>(t->n_low)];
    t->n_lim = 1;
    return;
  }
  static constexpr double kRatio[4] = {0, 1.3271517423, 1.1850927709, 1.1198716040};
  int lim[80];
  int borders[8];
  int n = 0;
  for (int i = 0; i <= t->n_low; ++i) lim[n++] = t->f_low[static_cast<std::size_t>(i)];
  int nb = 0;
  int b = t->kx;
  for (int p = 0; p < t->num_patches; ++p) {
    b += t->patch_bands[static_cast<std::size_t>(p)];
    borders[nb++] = b;
  }
  for (int p = 0; p + 1 < nb; ++p) lim[n++] = borders[p];
  std::sort(lim, lim + n);
  auto is_border = [&](int v) {
    if (v == t->kx) return true;
    for (int p = 0; p < nb; ++p)
      if (borders[p] == v) return true;
    return false;
  };
  auto remove = [&](int at) {
    for (int i = at; i + 1 < n; ++i) lim[i] = lim[i + 1];
    --n;
  };
  int k = 1;
  while (k < n) {
    if (lim[k] < lim[k - 1] * kRatio[h.limiter_bands]) {
      if (lim[k] == lim[k - 1]) {
        remove(k);
      } else if (is_border(lim[k])) {
        if (is_border(lim[k - 1])) {
          ++k;
        } else {
          remove(k - 1);
        }
      } else {
        remove(k);
      }
    } else {
      ++k;
    }
  }
  for (int i = 0; i < n; ++i) t->f_lim[static_cast<std::size_t>(i)] = lim[i];
  t->n_lim = n - 1;
}

// ---- CRC of the payload (10 bits, polynomial x^10 + x^9 + x^5 + x^4 + x + 1) ----

unsigned Crc10(const Bits& b, int from, int to) {
  unsigned crc = 0;
  for (int i = from; i < to; ++i) {
    const unsigned bit = static_cast<unsigned>(b.Bit(i)) ^ ((crc >> 9) & 1u);
    crc = (crc << 1) & 0x3FFu;
    if (bit) crc ^= 0x233u;
  }
  return crc;
}

// ---- payload parsing ----

bool ReadGrid(Bits& b, int amp_res_header, SbrFrameData* d) {
  const int cls = static_cast<int>(b.Read(2));
  int lead = 0, trail = kSbrSlots / 2, n_lead = 0, n_trail = 0, num_env = 0;
  int rel_lead[4] = {}, rel_trail[4] = {};
  int ptr = 0;
  auto pointer_bits = [](int n) { return n < 2 ? 1 : n < 4 ? 2 : 3; };  // ceil(log2(n + 1))
  switch (cls) {
    case 0: {  // FIXFIX
      num_env = 1 << b.Read(2);
      if (num_env > 4) return false;
      const int res = static_cast<int>(b.Read(1));
      for (int l = 0; l < num_env; ++l) d->freq_res[static_cast<std::size_t>(l)] = res;
      n_lead = num_env - 1;
      for (int l = 0; l < n_lead; ++l) rel_lead[l] = Nint(16.0 / num_env);
      break;
    }
    case 1: {  // FIXVAR
      trail = static_cast<int>(b.Read(2)) + 16;
      n_trail = static_cast<int>(b.Read(2));
      num_env = n_trail + 1;
      for (int l = 0; l < n_trail; ++l) rel_trail[l] = 2 * static_cast<int>(b.Read(2)) + 2;
      ptr = static_cast<int>(b.Read(pointer_bits(num_env)));
      for (int l = num_env - 1; l >= 0; --l) d->freq_res[static_cast<std::size_t>(l)] = static_cast<int>(b.Read(1));
      break;
    }
    case 2: {  // VARFIX
      lead = static_cast<int>(b.Read(2));
      n_lead = static_cast<int>(b.Read(2));
      num_env = n_lead + 1;
      for (int l = 0; l < n_lead; ++l) rel_lead[l] = 2 * static_cast<int>(b.Read(2)) + 2;
      ptr = static_cast<int>(b.Read(pointer_bits(num_env)));
      for (int l = 0; l < num_env; ++l) d->freq_res[static_cast<std::size_t>(l)] = static_cast<int>(b.Read(1));
      break;
    }
    default: {  // VARVAR
      lead = static_cast<int>(b.Read(2));
      trail = static_cast<int>(b.Read(2)) + 16;
      n_lead = static_cast<int>(b.Read(2));
      n_trail = static_cast<int>(b.Read(2));
      num_env = n_lead + n_trail + 1;
      if (num_env > kSbrMaxEnv) return false;
      for (int l = 0; l < n_lead; ++l) rel_lead[l] = 2 * static_cast<int>(b.Read(2)) + 2;
      for (int l = 0; l < n_trail; ++l) rel_trail[l] = 2 * static_cast<int>(b.Read(2)) + 2;
      ptr = static_cast<int>(b.Read(pointer_bits(num_env)));
      for (int l = 0; l < num_env; ++l) d->freq_res[static_cast<std::size_t>(l)] = static_cast<int>(b.Read(1));
      break;
    }
  }
  if (b.over() || ptr > num_env + 1) return false;
  d->frame_class = cls;
  d->num_env = num_env;
  d->pointer = ptr;
  d->amp_res = (cls == 0 && num_env == 1) ? 0 : amp_res_header;
  auto& t = d->t_env;
  t[0] = lead;
  t[static_cast<std::size_t>(num_env)] = trail;
  for (int l = 1; l <= n_lead; ++l) t[static_cast<std::size_t>(l)] = t[static_cast<std::size_t>(l - 1)] + rel_lead[l - 1];
  for (int l = num_env - 1; l > n_lead; --l)
    t[static_cast<std::size_t>(l)] = t[static_cast<std::size_t>(l + 1)] - rel_trail[num_env - 1 - l];
  for (int l = 0; l < num_env; ++l)
    if (t[static_cast<std::size_t>(l)] >= t[static_cast<std::size_t>(l + 1)] || t[static_cast<std::size_t>(l)] < 0) return false;
  // Transient envelope and the noise floors' middle border.
  int la = -1, middle = 0;
  switch (cls) {
    case 0:
      middle = num_env / 2;
      break;
    case 1:
      la = ptr == 0 ? -1 : num_env + 1 - ptr;
      middle = ptr > 1 ? num_env + 1 - ptr : num_env - 1;
      break;
    case 2:
      la = ptr <= 1 ? -1 : ptr - 1;
      middle = ptr == 0 ? 1 : ptr == 1 ? num_env - 1 : ptr - 1;
      break;
    default:
      la = ptr == 0 ? -1 : num_env + 1 - ptr;
      middle = ptr > 1 ? num_env + 1 - ptr : num_env - 1;
      break;
  }
  d->l_a = la;
  d->num_noise = num_env > 1 ? 2 : 1;
  d->t_noise[0] = t[0];
  if (num_env == 1) {
    d->t_noise[1] = t[1];
  } else {
    if (middle < 1 || middle >= num_env) return false;
    d->t_noise[1] = t[static_cast<std::size_t>(middle)];
    d->t_noise[2] = t[static_cast<std::size_t>(num_env)];
  }
  return true;
}

void ReadDtdf(Bits& b, SbrFrameData* d) {
  for (int l = 0; l < d->num_env; ++l) d->df_env[static_cast<std::size_t>(l)] = static_cast<int>(b.Read(1));
  for (int l = 0; l < d->num_noise; ++l) d->df_noise[static_cast<std::size_t>(l)] = static_cast<int>(b.Read(1));
}

void ReadInvf(Bits& b, const SbrTables& t, SbrFrameData* d) {
  for (int n = 0; n < t.n_q; ++n) d->invf[static_cast<std::size_t>(n)] = static_cast<int>(b.Read(2));
}

int Bands(const SbrTables& t, int res) { return res ? t.n_high : t.n_low; }

bool ReadEnvelope(Bits& b, const SbrTables& t, bool bal, const SbrFrameData* prev, SbrFrameData* d) {
  const int ar = d->amp_res;
  const int tb = bal ? (ar ? kTEnvBal30 : kTEnvBal15) : (ar ? kTEnv30 : kTEnv15);
  const int fb = bal ? (ar ? kFEnvBal30 : kFEnvBal15) : (ar ? kFEnv30 : kFEnv15);
  const int start_bits = bal ? (ar ? 5 : 6) : (ar ? 6 : 7);
  const int mul = bal ? 2 : 1;
  const int lav_t = kSbrBookDefs[tb].lav, lav_f = kSbrBookDefs[fb].lav;
  for (int l = 0; l < d->num_env; ++l) {
    const int res = d->freq_res[static_cast<std::size_t>(l)];
    const int n = Bands(t, res);
    auto& e = d->env[static_cast<std::size_t>(l)];
    if (d->df_env[static_cast<std::size_t>(l)] == 0) {
      e[0] = mul * static_cast<int>(b.Read(start_bits));
      for (int k = 1; k < n; ++k) e[static_cast<std::size_t>(k)] = e[static_cast<std::size_t>(k - 1)] + mul * (b.Huff(fb) - lav_f);
    } else {
      const auto& pe = l == 0 ? prev->env[static_cast<std::size_t>(std::max(prev->num_env - 1, 0))]
                              : d->env[static_cast<std::size_t>(l - 1)];
      const int pres = l == 0 ? (prev->num_env > 0 ? prev->freq_res[static_cast<std::size_t>(prev->num_env - 1)] : res)
                              : d->freq_res[static_cast<std::size_t>(l - 1)];
      for (int k = 0; k < n; ++k) {
        int g = k;
        if (res == 1 && pres == 0) {
          g = 0;
          while (g + 1 < t.n_low && t.f_low[static_cast<std::size_t>(g + 1)] <= t.f_high[static_cast<std::size_t>(k)]) ++g;
        } else if (res == 0 && pres == 1) {
          g = 0;
          while (g < t.n_high && t.f_high[static_cast<std::size_t>(g)] != t.f_low[static_cast<std::size_t>(k)]) ++g;
          if (g >= t.n_high) g = t.n_high - 1;
        }
        e[static_cast<std::size_t>(k)] = pe[static_cast<std::size_t>(g)] + mul * (b.Huff(tb) - lav_t);
      }
    }
    const int hi = bal ? (ar ? 24 : 48) : 127;
    for (int k = 0; k < n; ++k)
      if (e[static_cast<std::size_t>(k)] < 0 || e[static_cast<std::size_t>(k)] > hi) return false;
  }
  return true;
}

bool ReadNoise(Bits& b, const SbrTables& t, bool bal, const SbrFrameData* prev, SbrFrameData* d) {
  const int tb = bal ? kTNoiseBal30 : kTNoise30;
  const int fb = bal ? kFEnvBal30 : kFEnv30;
  const int mul = bal ? 2 : 1;
  const int lav_t = kSbrBookDefs[tb].lav, lav_f = kSbrBookDefs[fb].lav;
  for (int l = 0; l < d->num_noise; ++l) {
    auto& q = d->noise[static_cast<std::size_t>(l)];
    if (d->df_noise[static_cast<std::size_t>(l)] == 0) {
      q[0] = mul * static_cast<int>(b.Read(5));
      for (int k = 1; k < t.n_q; ++k) q[static_cast<std::size_t>(k)] = q[static_cast<std::size_t>(k - 1)] + mul * (b.Huff(fb) - lav_f);
    } else {
      const auto& pq = l == 0 ? prev->noise[static_cast<std::size_t>(std::max(prev->num_noise - 1, 0))]
                              : d->noise[static_cast<std::size_t>(l - 1)];
      for (int k = 0; k < t.n_q; ++k) q[static_cast<std::size_t>(k)] = pq[static_cast<std::size_t>(k)] + mul * (b.Huff(tb) - lav_t);
    }
    const int hi = bal ? 24 : 30;
    for (int k = 0; k < t.n_q; ++k)
      if (q[static_cast<std::size_t>(k)] < 0 || q[static_cast<std::size_t>(k)] > hi) return false;
  }
  return true;
}

void ReadHarmonics(Bits& b, const SbrTables& t, SbrFrameData* d) {
  d->add_harmonic.fill(0);
  d->has_harmonic = b.Read(1) != 0;
  if (d->has_harmonic)
    for (int n = 0; n < t.n_high; ++n) d->add_harmonic[static_cast<std::size_t>(n)] = static_cast<int>(b.Read(1));
}

// Extended data: parametric stereo (extension 2) is read into `ps` when
// given (*ps_result 1, or -1 when damaged); everything else is skipped.
bool ReadExtended(Bits& b, const std::uint8_t* bytes, PsSyntax* ps, int* ps_result) {
  if (!b.Read(1)) return true;
  int cnt = static_cast<int>(b.Read(4));
  if (cnt == 15) cnt += static_cast<int>(b.Read(8));
  const int end = b.pos() + 8 * cnt;
  if (end > b.limit()) return false;
  while (ps && end - b.pos() > 7) {
    const unsigned id = b.Read(2);
    if (id != 2 || *ps_result != 0) break;
    const int used = ParsePsData(bytes, b.pos(), end, ps);
    if (used < 0) {
      *ps_result = -1;
      break;
    }
    *ps_result = 1;
    b.Skip(used);
  }
  b.Skip(end - b.pos());
  return !b.over();
}

}  // namespace

SbrError BuildSbrTables(const SbrHeader& h, int fs, SbrTables* out) {
  SbrTables t;
  const int fmin = fs < 32000 ? 3000 : fs < 64000 ? 4000 : 5000;
  const int start_min = Nint(fmin * 128.0 / fs);
  const int stop_min = Nint(2.0 * fmin * 128.0 / fs);
  t.k0 = start_min + kStartOffset[OffsetRow(fs)][h.start_freq];
  if (h.stop_freq < 14) {
    int dk[13];
    for (int i = 0; i < 13; ++i)
      dk[i] = Nint(stop_min * std::pow(64.0 / stop_min, (i + 1) / 13.0)) - Nint(stop_min * std::pow(64.0 / stop_min, i / 13.0));
    std::sort(dk, dk + 13);
    int k2 = stop_min;
    for (int i = 0; i < h.stop_freq; ++i) k2 += dk[i];
    t.k2 = std::min(64, k2);
  } else {
    t.k2 = std::min(64, (h.stop_freq == 14 ? 2 : 3) * t.k0);
  }
  const int max_span = fs <= 32000 ? 48 : fs == 44100 ? 35 : 32;
  if (t.k0 < 1 || t.k2 <= t.k0 || t.k2 - t.k0 > max_span) return SbrError::kTables;
  if (!MasterTable(h, t.k0, t.k2, &t)) return SbrError::kTables;
  if (h.xover_band >= t.n_master) return SbrError::kTables;
  t.n_high = t.n_master - h.xover_band;
  for (int i = 0; i <= t.n_high; ++i) t.f_high[static_cast<std::size_t>(i)] = t.f_master[static_cast<std::size_t>(i + h.xover_band)];
  t.kx = t.f_high[0];
  t.m = t.f_high[static_cast<std::size_t>(t.n_high)] - t.kx;
  if (t.kx > 32 || t.kx + t.m > 64 || t.m < 1) return SbrError::kTables;
  t.n_low = (t.n_high + 1) / 2;
  const int odd = t.n_high & 1;
  t.f_low[0] = t.f_high[0];
  for (int i = 1; i <= t.n_low; ++i) t.f_low[static_cast<std::size_t>(i)] = t.f_high[static_cast<std::size_t>(2 * i - odd)];
  t.n_q = h.noise_bands == 0 ? 1 : std::max(1, Nint(h.noise_bands * std::log2(static_cast<double>(t.k2) / t.kx)));
  if (t.n_q > 5) return SbrError::kTables;
  int i = 0;
  t.f_noise[0] = t.f_low[0];
  for (int k = 1; k <= t.n_q; ++k) {
    i += (t.n_low - i) / (t.n_q + 1 - k);
    t.f_noise[static_cast<std::size_t>(k)] = t.f_low[static_cast<std::size_t>(i)];
  }
  if (!Patches(t, fs, &t)) return SbrError::kTables;
  LimiterTable(h, &t);
  *out = t;
  return SbrError::kNone;
}

SbrError ParseSbrPayload(const std::uint8_t* bytes, int count, int nch, int fs, SbrHeader* header,
                         bool* have_header, SbrTables* tables, bool* reset, SbrFrameData* data, bool* coupling,
                         const SbrFrameData* prev, PsSyntax* ps, int* ps_result) {
  if (ps_result) *ps_result = 0;
  if (nch != 1 || !ps_result) ps = nullptr;
  *reset = false;
  *coupling = false;
  if (count < 1 || count > 512 || !TheBooks().ok) return SbrError::kData;
  Bits b(bytes, count);
  const unsigned ext = b.Read(4);
  if (ext == 14) {
    const unsigned crc = b.Read(10);
    if (Crc10(b, b.pos(), b.limit()) != crc) return SbrError::kCrc;
  } else if (ext != 13) {
    return SbrError::kData;
  }
  if (b.Read(1)) {
    SbrHeader h;
    h.amp_res = static_cast<int>(b.Read(1));
    h.start_freq = static_cast<int>(b.Read(4));
    h.stop_freq = static_cast<int>(b.Read(4));
    h.xover_band = static_cast<int>(b.Read(3));
    b.Read(2);
    const bool extra1 = b.Read(1) != 0;
    const bool extra2 = b.Read(1) != 0;
    if (extra1) {
      h.freq_scale = static_cast<int>(b.Read(2));
      h.alter_scale = static_cast<int>(b.Read(1));
      h.noise_bands = static_cast<int>(b.Read(2));
    }
    if (extra2) {
      h.limiter_bands = static_cast<int>(b.Read(2));
      h.limiter_gains = static_cast<int>(b.Read(2));
      h.interpol_freq = static_cast<int>(b.Read(1));
      h.smoothing_mode = static_cast<int>(b.Read(1));
    }
    if (b.over()) return SbrError::kHeader;
    const SbrHeader& o = *header;
    const bool changed = !*have_header || h.start_freq != o.start_freq || h.stop_freq != o.stop_freq ||
                         h.freq_scale != o.freq_scale || h.alter_scale != o.alter_scale ||
                         h.xover_band != o.xover_band || h.noise_bands != o.noise_bands;
    if (changed || h.limiter_bands != o.limiter_bands) {
      SbrTables t;
      if (const SbrError e = BuildSbrTables(h, fs, &t); e != SbrError::kNone) {
        *have_header = false;
        return e;
      }
      *tables = t;
    }
    *reset = changed;
    *header = h;
    *have_header = true;
  }
  if (!*have_header) return SbrError::kNoHeader;
  const SbrTables& t = *tables;
  const int ar = header->amp_res;
  if (nch == 1) {
    if (b.Read(1)) b.Read(4);
    if (!ReadGrid(b, ar, &data[0])) return SbrError::kGrid;
    ReadDtdf(b, &data[0]);
    ReadInvf(b, t, &data[0]);
    if (!ReadEnvelope(b, t, false, &prev[0], &data[0]) || !ReadNoise(b, t, false, &prev[0], &data[0]))
      return SbrError::kData;
    ReadHarmonics(b, t, &data[0]);
  } else {
    if (b.Read(1)) b.Read(8);
    *coupling = b.Read(1) != 0;
    if (*coupling) {
      if (!ReadGrid(b, ar, &data[0])) return SbrError::kGrid;
      data[1] = data[0];
      ReadDtdf(b, &data[0]);
      ReadDtdf(b, &data[1]);
      ReadInvf(b, t, &data[0]);
      data[1].invf = data[0].invf;
      if (!ReadEnvelope(b, t, false, &prev[0], &data[0]) || !ReadNoise(b, t, false, &prev[0], &data[0]) ||
          !ReadEnvelope(b, t, true, &prev[1], &data[1]) || !ReadNoise(b, t, true, &prev[1], &data[1]))
        return SbrError::kData;
    } else {
      if (!ReadGrid(b, ar, &data[0]) || !ReadGrid(b, ar, &data[1])) return SbrError::kGrid;
      ReadDtdf(b, &data[0]);
      ReadDtdf(b, &data[1]);
      ReadInvf(b, t, &data[0]);
      ReadInvf(b, t, &data[1]);
      if (!ReadEnvelope(b, t, false, &prev[0], &data[0]) || !ReadEnvelope(b, t, false, &prev[1], &data[1]) ||
          !ReadNoise(b, t, false, &prev[0], &data[0]) || !ReadNoise(b, t, false, &prev[1], &data[1]))
        return SbrError::kData;
    }
    ReadHarmonics(b, t, &data[0]);
    ReadHarmonics(b, t, &data[1]);
  }
  if (!ReadExtended(b, bytes, ps, ps_result) || b.over()) return SbrError::kData;
  return SbrError::kNone;
}

// ---------------------------------------------------------------------------
// Signal processing.

namespace {

constexpr float kLimGain[4] = {0.70795f, 1.0f, 1.41254f, 1e10f};
constexpr float kSmooth[5] = {0.33333333333333f, 0.30150283239582f, 0.21816949906249f, 0.11516383427084f,
                              0.03183050093751f};

// Dequantized data of one channel's frame.
struct Dequant {
  float env[kSbrMaxEnv][kSbrMaxBands];
  float noise[2][5];
};

}  // namespace

class SbrChannel {
 public:
  bool Init(bool down) {
    down_ = down;
    if (aklsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(&ana_) != kStsOk) return false;
    if (down ? aklsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(&syn_down_) != kStsOk
             : aklsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(&syn_) != kStsOk)
      return false;
    std::memset(x_low_, 0, sizeof x_low_);
    std::memset(y_carry_, 0, sizeof y_carry_);
    return true;
  }
  ~SbrChannel() {
    if (ana_) aklsAnalysisFilterFree_SBR_RToC_32f32fc(ana_);
    if (syn_) aklsSynthesisFilterFree_SBR_CToR_32fc32f(syn_);
    if (syn_down_) aklsSynthesisDownFilterFree_SBR_CToR_32fc32f(syn_down_);
  }

  // One frame: `d` and `q` null when there is no SBR data for it.
  // ps: the element's stereo synthesis, with `right` the second output
  // row and `ps_data` the frame's parameters (null: right = left).
  void Run(const float* in, float* out, const SbrTables* t, const SbrHeader* h, const SbrFrameData* d,
           const Dequant* q, bool reset, PsDecoder* ps = nullptr, const PsSyntax* ps_data = nullptr,
           float* right = nullptr);

  SbrFrameData prev;  // last parsed frame (delta decoding)

 private:
  void Analyse(const float* in);
  void Generate(const SbrTables& t, const SbrFrameData& d);
  void Adjust(const SbrTables& t, const SbrHeader& h, const SbrFrameData& d, const Dequant& q, bool reset);
  void Assemble(int kx, int m);
  void Synthesise(float* out);

  bool down_ = false;
  AklsAnalysisState_SBR_32f* ana_ = nullptr;
  AklsSynthesisState_SBR_32f* syn_ = nullptr;
  AklsSynthesisDownState_SBR_32f* syn_down_ = nullptr;
  alignas(16) Akl32fc x_low_[kRows][32];
  alignas(16) Akl32fc x_high_[kRows][64];
  alignas(16) Akl32fc y_[kRows][64];
  alignas(16) Akl32fc y_carry_[8][64];
  alignas(16) Akl32fc x_[kSbrSlots][64];
  int kx_prev_ = 32, m_prev_ = 0, last_border_prev_ = 16;
  int la_prev_ = -1, num_env_prev_ = 1;
  std::array<int, 5> invf_prev_{};
  std::array<float, 5> bw_prev_{};
  float g_hist_[4][64] = {};
  float q_hist_[4][64] = {};
  std::array<int, 64> sine_prev_{};
  int noise_index_ = 0;
  int sine_index_ = 0;
  bool have_hist_ = false;
};

void SbrChannel::Analyse(const float* in) {
  std::memmove(x_low_[0], x_low_[kSbrSlots], sizeof(Akl32fc) * 32 * kHfGen);
  Akl32fc* rows[kSbrSlots];
  for (int i = 0; i < kSbrSlots; ++i) rows[i] = x_low_[kHfGen + i];
  aklsAnalysisFilter_SBR_RToC_32f32fc_D2L(in, rows, kSbrSlots, 32, ana_);
}

void SbrChannel::Generate(const SbrTables& t, const SbrFrameData& d) {
  // Chirp factors per noise band.
  static constexpr float kNewBw[4][4] = {
      {0.0f, 0.6f, 0.9f, 0.98f}, {0.6f, 0.75f, 0.9f, 0.98f}, {0.0f, 0.75f, 0.9f, 0.98f}, {0.0f, 0.75f, 0.9f, 0.98f}};
  float bw[5];
  for (int n = 0; n < t.n_q; ++n) {
    const float nb = kNewBw[invf_prev_[static_cast<std::size_t>(n)]][d.invf[static_cast<std::size_t>(n)]];
    const float pb = bw_prev_[static_cast<std::size_t>(n)];
    float v = nb < pb ? 0.75f * nb + 0.25f * pb : 0.90625f * nb + 0.09375f * pb;
    if (v < 0.015625f) v = 0.0f;
    if (v >= 0.99609375f) v = 0.99609375f;
    bw[n] = v;
    bw_prev_[static_cast<std::size_t>(n)] = v;
    invf_prev_[static_cast<std::size_t>(n)] = d.invf[static_cast<std::size_t>(n)];
  }
  // Predictors of the source bands over the 40 rows of x_low.
  Akl32fc alpha0[32], alpha1[32];
  const Akl32fc* rows[kRows];
  for (int i = 0; i < kRows; ++i) rows[i] = x_low_[i];
  aklsPredictCoef_SBR_C_32fc_D2L(rows, alpha0, alpha1, t.k0, kRows - 2);
  std::memset(x_high_, 0, sizeof x_high_);
  const int start = 2 * d.t_env[0] + kHfAdj;
  const int end = 2 * d.t_env[static_cast<std::size_t>(d.num_env)] + kHfAdj;
  int k = t.kx;
  int g = 0;
  for (int p = 0; p < t.num_patches; ++p) {
    for (int x = 0; x < t.patch_bands[static_cast<std::size_t>(p)]; ++x, ++k) {
      const int src = t.patch_start[static_cast<std::size_t>(p)] + x;
      while (g + 1 < t.n_q && k >= t.f_noise[static_cast<std::size_t>(g + 1)]) ++g;
      while (g > 0 && k < t.f_noise[static_cast<std::size_t>(g)]) --g;
      const float b = bw[g];
      const float a0r = alpha0[src].re * b, a0i = alpha0[src].im * b;
      const float a1r = alpha1[src].re * b * b, a1i = alpha1[src].im * b * b;
      for (int i = start; i < end; ++i) {
        const Akl32fc x0 = x_low_[i][src], x1 = x_low_[i - 1][src], x2 = x_low_[i - 2][src];
        x_high_[i][k].re = x0.re + a0r * x1.re - a0i * x1.im + a1r * x2.re - a1i * x2.im;
        x_high_[i][k].im = x0.im + a0r * x1.im + a0i * x1.re + a1r * x2.im + a1i * x2.re;
      }
    }
  }
}

void SbrChannel::Adjust(const SbrTables& t, const SbrHeader& h, const SbrFrameData& d, const Dequant& q,
                        bool reset) {
  const int kx = t.kx, m_count = t.m;
  if (reset) sine_prev_.fill(0);
  const int la_prev0 = la_prev_ == num_env_prev_ ? 0 : -1;
  float gain[kSbrMaxEnv][64], qm[kSbrMaxEnv][64], sm[kSbrMaxEnv][64];
  std::array<int, 64> sine_index{};
  for (int e = 0; e < d.num_env; ++e) {
    const int res = d.freq_res[static_cast<std::size_t>(e)];
    const int nb = Bands(t, res);
    const auto& f = res ? t.f_high : t.f_low;
    const int qi = (d.num_noise == 2 && d.t_env[static_cast<std::size_t>(e)] >= d.t_noise[1]) ? 1 : 0;
    // Sinusoids placed at the middle of their high-resolution band.
    sine_index.fill(0);
    for (int i = 0; i < t.n_high; ++i) {
      if (!d.add_harmonic[static_cast<std::size_t>(i)]) continue;
      const int mid = ((t.f_high[static_cast<std::size_t>(i)] + t.f_high[static_cast<std::size_t>(i + 1)]) >> 1) - kx;
      sine_index[static_cast<std::size_t>(mid)] = (e >= d.l_a || sine_prev_[static_cast<std::size_t>(mid)]) ? 1 : 0;
    }
    const int i0 = 2 * d.t_env[static_cast<std::size_t>(e)] + kHfAdj;
    const int i1 = 2 * d.t_env[static_cast<std::size_t>(e + 1)] + kHfAdj;
    const float inv_len = 1.0f / static_cast<float>(i1 - i0);
    float e_orig[64], e_curr[64], q_orig[64];
    int s_band[64];
    int g = 0;
    for (int band = 0; band < nb; ++band) {
      const int lo = f[static_cast<std::size_t>(band)] - kx, hi = f[static_cast<std::size_t>(band + 1)] - kx;
      int any_sine = 0;
      for (int m = lo; m < hi; ++m) any_sine |= sine_index[static_cast<std::size_t>(m)];
      float band_sum = 0.0f;
      for (int m = lo; m < hi; ++m) {
        const int k = m + kx;
        while (g + 1 < t.n_q && k >= t.f_noise[static_cast<std::size_t>(g + 1)]) ++g;
        e_orig[m] = q.env[e][band];
        q_orig[m] = q.noise[qi][g];
        s_band[m] = any_sine;
        float s = 0.0f;
        for (int i = i0; i < i1; ++i) s += x_high_[i][k].re * x_high_[i][k].re + x_high_[i][k].im * x_high_[i][k].im;
        e_curr[m] = s * inv_len;
        band_sum += e_curr[m];
      }
      if (!h.interpol_freq) {
        const float avg = band_sum / static_cast<float>(hi - lo);
        for (int m = lo; m < hi; ++m) e_curr[m] = avg;
      }
    }
    const bool delta = !(e == d.l_a || e == la_prev0);
    for (int m = 0; m < m_count; ++m) {
      const float eo = e_orig[m], ec = e_curr[m], qo = q_orig[m];
      qm[e][m] = std::sqrt(eo * qo / (1.0f + qo));
      sm[e][m] = std::sqrt(eo * static_cast<float>(sine_index[static_cast<std::size_t>(m)]) / (1.0f + qo));
      gain[e][m] = s_band[m] ? std::sqrt(eo * qo / ((1.0f + ec) * (1.0f + qo)))
                             : std::sqrt(eo / ((1.0f + ec) * (1.0f + (delta ? qo : 0.0f))));
    }
    // Limiter and boost per limiter band.
    for (int j = 0; j < t.n_lim; ++j) {
      const int lo = t.f_lim[static_cast<std::size_t>(j)] - kx, hi = t.f_lim[static_cast<std::size_t>(j + 1)] - kx;
      float so = 0.0f, sc = 0.0f;
      for (int m = lo; m < hi; ++m) {
        so += e_orig[m];
        sc += e_curr[m];
      }
      float gmax = kLimGain[h.limiter_gains] * std::sqrt((FLT_EPSILON + so) / (FLT_EPSILON + sc));
      gmax = std::min(gmax, 1e5f);
      for (int m = lo; m < hi; ++m) {
        if (gain[e][m] > gmax) {
          qm[e][m] = qm[e][m] * gmax / gain[e][m];
          gain[e][m] = gmax;
        }
      }
      float sb = 0.0f;
      for (int m = lo; m < hi; ++m) {
        sb += e_curr[m] * gain[e][m] * gain[e][m] + sm[e][m] * sm[e][m];
        if (delta && sm[e][m] == 0.0f) sb += qm[e][m] * qm[e][m];
      }
      float boost = std::sqrt((FLT_EPSILON + so) / (FLT_EPSILON + sb));
      boost = std::min(boost, 1.584893192f);
      for (int m = lo; m < hi; ++m) {
        gain[e][m] *= boost;
        qm[e][m] *= boost;
        sm[e][m] *= boost;
      }
    }
    if (e == d.num_env - 1)
      for (int m = 0; m < 64; ++m) sine_prev_[static_cast<std::size_t>(m)] = m < m_count ? sine_index[static_cast<std::size_t>(m)] : 0;
  }
  // Assembly slot by slot, with gain and noise smoothing.
  const bool smooth = h.smoothing_mode == 0;
  if (reset || !have_hist_) {
    for (int j = 0; j < 4; ++j) {
      std::memcpy(g_hist_[j], gain[0], sizeof(float) * static_cast<std::size_t>(m_count));
      std::memcpy(q_hist_[j], qm[0], sizeof(float) * static_cast<std::size_t>(m_count));
    }
    have_hist_ = true;
  }
  std::memset(y_, 0, sizeof y_);
  for (int e = 0; e < d.num_env; ++e) {
    const bool transient = e == d.l_a || e == la_prev0;
    const int i0 = 2 * d.t_env[static_cast<std::size_t>(e)], i1 = 2 * d.t_env[static_cast<std::size_t>(e + 1)];
    for (int i = i0; i < i1; ++i) {
      float gf[64], qf[64];
      for (int m = 0; m < m_count; ++m) {
        if (smooth && !transient) {
          gf[m] = kSmooth[0] * gain[e][m] + kSmooth[1] * g_hist_[3][m] + kSmooth[2] * g_hist_[2][m] +
                  kSmooth[3] * g_hist_[1][m] + kSmooth[4] * g_hist_[0][m];
          qf[m] = kSmooth[0] * qm[e][m] + kSmooth[1] * q_hist_[3][m] + kSmooth[2] * q_hist_[2][m] +
                  kSmooth[3] * q_hist_[1][m] + kSmooth[4] * q_hist_[0][m];
        } else {
          gf[m] = gain[e][m];
          qf[m] = qm[e][m];
        }
      }
      for (int j = 0; j < 3; ++j) {
        std::memcpy(g_hist_[j], g_hist_[j + 1], sizeof g_hist_[j]);
        std::memcpy(q_hist_[j], q_hist_[j + 1], sizeof q_hist_[j]);
      }
      std::memcpy(g_hist_[3], gain[e], sizeof(float) * static_cast<std::size_t>(m_count));
      std::memcpy(q_hist_[3], qm[e], sizeof(float) * static_cast<std::size_t>(m_count));
      const Akl32fc* xh = x_high_[i + kHfAdj] + kx;
      Akl32fc* yr = y_[i] + kx;
      for (int m = 0; m < m_count; ++m) {
        float re = xh[m].re * gf[m], im = xh[m].im * gf[m];
        const int ni = (noise_index_ + m + 1) & 511;
        if (sm[e][m] != 0.0f) {
          static constexpr float kPhiRe[4] = {1.0f, 0.0f, -1.0f, 0.0f};
          static constexpr float kPhiIm[4] = {0.0f, 1.0f, 0.0f, -1.0f};
          const float sign = ((m + kx) & 1) ? -1.0f : 1.0f;
          re += sm[e][m] * kPhiRe[sine_index_];
          im += sm[e][m] * sign * kPhiIm[sine_index_];
        } else if (!transient) {
          re += qf[m] * kSbrNoiseTable[ni][0];
          im += qf[m] * kSbrNoiseTable[ni][1];
        }
        yr[m].re = re;
        yr[m].im = im;
      }
      noise_index_ = (noise_index_ + m_count) & 511;
      sine_index_ = (sine_index_ + 1) & 3;
    }
  }
  la_prev_ = d.l_a;
  num_env_prev_ = d.num_env;
}

// Synthesis input: low bands from x_low, high bands from y; the slots before
// the previous grid's end come from the previous frame's bands and y.
void SbrChannel::Assemble(int kx, int m) {
  const int i_temp = std::max(2 * last_border_prev_ - kSbrSlots, 0);
  std::memset(x_, 0, sizeof x_);
  for (int i = 0; i < kSbrSlots; ++i) {
    const bool early = i < i_temp;
    const int lo = early ? kx_prev_ : kx;
    const int hm = early ? m_prev_ : m;
    std::memcpy(x_[i], x_low_[i + kHfAdj], sizeof(Akl32fc) * static_cast<std::size_t>(std::min(lo, 32)));
    const Akl32fc* src = early ? y_carry_[i] : y_[i];
    for (int k = lo; k < lo + hm && k < 64; ++k) x_[i][k] = src[k];
  }
}

void SbrChannel::Synthesise(float* out) {
  const Akl32fc* rows[kSbrSlots];
  for (int i = 0; i < kSbrSlots; ++i) rows[i] = x_[i];
  if (down_)
    aklsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(rows, out, kSbrSlots, syn_down_);
  else
    aklsSynthesisFilter_SBR_CToR_32fc32f_D2L(rows, out, kSbrSlots, syn_);
}

void SbrChannel::Run(const float* in, float* out, const SbrTables* t, const SbrHeader* h, const SbrFrameData* d,
                     const Dequant* q, bool reset, PsDecoder* ps, const PsSyntax* ps_data, float* right) {
  Analyse(in);
  int kx = 32, m = 0, last = 16;
  if (d) {
    Generate(*t, *d);
    Adjust(*t, *h, *d, *q, reset);
    kx = t->kx;
    m = t->m;
    last = d->t_env[static_cast<std::size_t>(d->num_env)];
  } else {
    std::memset(y_, 0, sizeof y_);
    have_hist_ = false;
  }
  Assemble(kx, m);
  if (ps) ps->Process(x_, x_low_[kHfAdj + kSbrSlots], 32, kx + m, ps_data, right);
  Synthesise(out);
  std::memcpy(y_carry_, y_[kSbrSlots], sizeof y_carry_);
  kx_prev_ = kx;
  m_prev_ = m;
  last_border_prev_ = last;
}

// ---------------------------------------------------------------------------

struct SbrDecoder::Element {
  int first_channel = 0;
  int nch = 0;
  SbrChannel ch[2];
  SbrHeader header;
  SbrTables tables;
  bool have_header = false;
  std::vector<std::uint8_t> payload;
  bool has_payload = false;
  std::unique_ptr<PsDecoder> ps;  // single channel elements with parametric stereo
  PsSyntax ps_syntax;
  bool ps_started = false;  // parameters have been read
};

SbrDecoder::SbrDecoder(int core_rate, bool down_sampled, WarnFn warn)
    : core_rate_(core_rate), sbr_rate_(2 * core_rate), down_sampled_(down_sampled), warn_(std::move(warn)) {
  ready_ = TheBooks().ok;
}

SbrDecoder::~SbrDecoder() = default;

SbrDecoder::Element& SbrDecoder::ElementAt(int first_channel, int nch) {
  for (auto& e : elements_)
    if (e->first_channel == first_channel && e->nch == nch) return *e;
  elements_.push_back(std::make_unique<Element>());
  Element& e = *elements_.back();
  e.first_channel = first_channel;
  e.nch = nch;
  for (int c = 0; c < nch; ++c)
    if (!e.ch[c].Init(down_sampled_)) ready_ = false;
  return e;
}

void SbrDecoder::SetPayload(int first_channel, const std::uint8_t* bytes, int count) {
  for (auto& e : elements_) {
    if (e->first_channel != first_channel) continue;
    e->payload.assign(bytes, bytes + count);
    e->has_payload = true;
    return;
  }
  elements_.push_back(std::make_unique<Element>());
  Element& e = *elements_.back();
  e.first_channel = first_channel;
  e.nch = 0;  // channels set by the first Process
  e.payload.assign(bytes, bytes + count);
  e.has_payload = true;
}

void SbrDecoder::DropPayloads() {
  for (auto& e : elements_) e->has_payload = false;
}

void SbrDecoder::Warn(SbrError e) {
  const int i = static_cast<int>(e);
  if (warned_[static_cast<std::size_t>(i)]) return;
  warned_[static_cast<std::size_t>(i)] = true;
  static const char* const kText[] = {"", "bad CRC", "header out of range", "frequency tables cannot be built",
                                      "bad time grid", "damaged envelope or noise data", ""};
  warn_(std::string("SBR payload: ") + kText[i] + "; band replication dropped for the frames concerned");
}

void SbrDecoder::Process(int first_channel, int nch, bool is_cpe, bool is_lfe, const float* const* in,
                         float* const* out) {
  // A payload stored before the element was first seen is adopted here.
  Element* el = nullptr;
  for (auto& e : elements_)
    if (e->first_channel == first_channel && (e->nch == nch || e->nch == 0)) el = e.get();
  if (el && el->nch == 0) {
    el->nch = nch;
    for (int c = 0; c < nch; ++c)
      if (!el->ch[c].Init(down_sampled_)) ready_ = false;
  }
  if (!el) el = &ElementAt(first_channel, nch);
  if (!ready_) {
    const int rows = ps_enabled_ && nch == 1 && !is_lfe ? 2 : nch;
    for (int c = 0; c < rows; ++c) std::fill(out[c], out[c] + 1024 * OutputFactor(), 0.0f);
    return;
  }
  SbrFrameData data[2];
  Dequant dq[2];
  bool valid = false, reset = false, coupling = false;
  int ps_result = 0;
  if (el->has_payload && !is_lfe) {
    const SbrFrameData prev[2] = {el->ch[0].prev, el->ch[1].prev};
    const SbrError err =
        ParseSbrPayload(el->payload.data(), static_cast<int>(el->payload.size()), is_cpe ? 2 : 1, sbr_rate_,
                        &el->header, &el->have_header, &el->tables, &reset, data, &coupling, prev,
                        ps_enabled_ ? &el->ps_syntax : nullptr, &ps_result);
    if (err == SbrError::kNone) {
      valid = true;
    } else if (err != SbrError::kNoHeader) {
      Warn(err);
    }
  }
  el->has_payload = false;
  if (valid) {
    const SbrTables& t = el->tables;
    for (int c = 0; c < nch; ++c) el->ch[c].prev = data[c];
    if (coupling) {
      const float a = data[0].amp_res ? 1.0f : 0.5f;
      const float pan = data[0].amp_res ? 12.0f : 24.0f;
      for (int e = 0; e < data[0].num_env; ++e) {
        const int nb = Bands(t, data[0].freq_res[static_cast<std::size_t>(e)]);
        for (int k = 0; k < nb; ++k) {
          const float l = std::exp2(static_cast<float>(data[0].env[static_cast<std::size_t>(e)][static_cast<std::size_t>(k)]) * a + 7.0f);
          const float r = std::exp2((pan - static_cast<float>(data[1].env[static_cast<std::size_t>(e)][static_cast<std::size_t>(k)])) * a);
          dq[0].env[e][k] = l / (1.0f + r);
          dq[1].env[e][k] = dq[0].env[e][k] * r;
        }
      }
      for (int n = 0; n < data[0].num_noise; ++n) {
        for (int k = 0; k < t.n_q; ++k) {
          const float l = std::exp2(7.0f - static_cast<float>(data[0].noise[static_cast<std::size_t>(n)][static_cast<std::size_t>(k)]));
          const float r = std::exp2(12.0f - static_cast<float>(data[1].noise[static_cast<std::size_t>(n)][static_cast<std::size_t>(k)]));
          dq[0].noise[n][k] = l / (1.0f + r);
          dq[1].noise[n][k] = dq[0].noise[n][k] * r;
        }
      }
    } else {
      for (int c = 0; c < nch; ++c) {
        const float a = data[c].amp_res ? 1.0f : 0.5f;
        for (int e = 0; e < data[c].num_env; ++e) {
          const int nb = Bands(t, data[c].freq_res[static_cast<std::size_t>(e)]);
          for (int k = 0; k < nb; ++k)
            dq[c].env[e][k] = std::exp2(static_cast<float>(data[c].env[static_cast<std::size_t>(e)][static_cast<std::size_t>(k)]) * a + 6.0f);
        }
        for (int n = 0; n < data[c].num_noise; ++n)
          for (int k = 0; k < t.n_q; ++k)
            dq[c].noise[n][k] = std::exp2(6.0f - static_cast<float>(data[c].noise[static_cast<std::size_t>(n)][static_cast<std::size_t>(k)]));
      }
    }
  }
  PsDecoder* ps = nullptr;
  const PsSyntax* ps_data = nullptr;
  if (ps_enabled_ && nch == 1 && !is_lfe) {
    if (!el->ps) {
      el->ps = std::make_unique<PsDecoder>(down_sampled_);
      if (!el->ps->Ready()) ready_ = false;
    }
    ps = el->ps.get();
    if (ps_result < 0) {
      el->ps_started = false;
      if (!ps_warned_) {
        ps_warned_ = true;
        warn_("parametric stereo payload damaged; the mono signal plays on both channels for the frames concerned");
      }
    } else if (ps_result > 0) {
      el->ps_started = true;
    } else if (el->ps_started) {
      // No parameters this frame: the last ones hold.
      PsSyntax& s = el->ps_syntax;
      const std::size_t last = static_cast<std::size_t>(std::max(s.num_env - 1, 0));
      s.iid[0] = s.iid[last];
      s.icc[0] = s.icc[last];
      s.ipd[0] = s.ipd[last];
      s.opd[0] = s.opd[last];
      s.num_env = 1;
      s.border[0] = -1;
      s.border[1] = 31;
    }
    if (ps_result >= 0 && el->ps_started) ps_data = &el->ps_syntax;
  }
  for (int c = 0; c < nch; ++c) {
    if (valid)
      el->ch[c].Run(in[c], out[c], &el->tables, &el->header, &data[c], &dq[c], reset, ps, ps_data, out[1]);
    else
      el->ch[c].Run(in[c], out[c], nullptr, nullptr, nullptr, nullptr, false, ps, ps_data, out[1]);
  }
}

int SbrPayloadHasPs(const std::uint8_t* bytes, int count, int fs) {
  SbrHeader header;
  SbrTables tables;
  bool have_header = false, reset = false, coupling = false;
  SbrFrameData data[2], prev[2];
  PsSyntax ps;
  int ps_result = 0;
  const SbrError e = ParseSbrPayload(bytes, count, 1, fs, &header, &have_header, &tables, &reset, data, &coupling,
                                     prev, &ps, &ps_result);
  if (e == SbrError::kNoHeader) return -1;
  return ps_result != 0 ? 1 : 0;
}

}  // namespace aacdec
