// Layer III requantization: power law, gains, scale factors, joint stereo and
// short-block reordering of one granule (both channels), in place, to Q26.
//
// Arithmetic.  Every line becomes sign(x) |x|^(4/3) 2^(-a/4) in Q26, where a
// is the attenuation in quarter octaves.  With s = a >> 2 and q = a & 3 the
// fraction 2^(-q/4) comes from a table (or is folded into the small table)
// and 2^-s is a shift: right shifts truncate (at most 31 places), left
// shifts (large gains) saturate to 2147483647 before the sign is applied.
// Magnitudes below 16 read |x|^(4/3) 2^(-q/4) from a table (1..3 in Q28,
// 4..15 in Q25); 16..128 read |x|^(4/3) (Q23 below 64, Q21 from 64) and take
// the Q31 fraction by an upper-half multiply; larger magnitudes up to 8206
// evaluate |x|^(4/3) with a degree-seven polynomial on the normalised
// magnitude (relative error about 2^-26) times a per-octave factor 2^(r/3).
//
// Joint stereo is folded into the same arithmetic: mid/side bands take two
// extra quarter octaves (the 1/sqrt(2) of the standard) before L = M + S and
// R = M - S; MPEG-2 intensity factors are powers of 2^(-1/4) or 2^(-1/2),
// so the intensity band of the left channel is requantized twice with the
// two channels' extra attenuations; MPEG-1 intensity ratios multiply by Q31
// ratios.  An intensity position of 7 (MPEG-1) or a negative one (MPEG-2,
// marked by the scale-factor stage) is illegal and leaves the band to
// mid/side or plain stereo.  Long band 21 and short band 12, which carry no
// scale factor, take the position of band 20 / band 11.
//
// Three MPEG-2 points where decoders part ways, all kept here: the illegal
// position is 2^slen - 1 of the band's partition (not 7, as in MPEG-1, and
// 16 and more are legal when the partition is 5 bits wide); band 21 / 12
// takes band 20 / 11's value, judged legal or not by that band's slen, even
// when band 20 / 11 lies below the intensity region (then its value was
// coded as a scale factor); and nothing but the actual non-zero values of
// the right channel bounds the intensity region.  tests/e2e_mp3/mp3_model.cpp
// computes streams both ways in double precision (see its variants).
//
// Input scale factors: two consecutive 39-entry arrays in the scale-factor
// unpacker's layout, channel 0 at entry 0 and channel 1 at entry 39.
#include "mp3/requant.hpp"

#include <emmintrin.h>

#include "core/exports.hpp"
#include "mp3/mp3_math.hpp"
#include "mp3/tables.hpp"

namespace akl::mp3 {

namespace {

inline constexpr int kScaleFactorsPerChannel = 39;

// 2^(-q/4), q = 0..3, in Q31 (the first saturated).
inline constexpr std::int32_t kFracQ31[4] = {2147483647, ConstQ(ConstPow2Twelfths(-3), 31),
                                             ConstQ(ConstPow2Twelfths(-6), 31), ConstQ(ConstPow2Twelfths(-9), 31)};

// |x|^(4/3) 2^(-q/4) for |x| < 16: rows q, entries 1..3 in Q28, 4..15 in Q25.
struct SmallPow {
  std::int32_t v[4][16];
};
constexpr SmallPow MakeSmallPow() {
  SmallPow t{};
  for (int q = 0; q < 4; ++q)
    for (int x = 1; x < 16; ++x) t.v[q][x] = ConstQ(ConstPow43(x) * ConstPow2Twelfths(-3 * q), x < 4 ? 28 : 25);
  return t;
}
inline constexpr SmallPow kPow43Small = MakeSmallPow();

// |x|^(4/3) for 16 <= |x| <= 128: Q23 below 64, Q21 from 64.
struct MidPow {
  std::int32_t v[129];
};
constexpr MidPow MakeMidPow() {
  MidPow t{};
  for (int x = 16; x <= 128; ++x) t.v[x] = ConstQ(ConstPow43(x), x < 64 ? 23 : 21);
  return t;
}
inline constexpr MidPow kPow43Mid = MakeMidPow();

// Polynomial for u^(4/3), u in [0.5, 1): evaluated in y = u/2 (the
// normalised magnitude read as Q32) with Q31 coefficients, Horner's order;
// the result is u^(4/3) / 16, that is u^(4/3) in Q27.
inline constexpr std::int32_t kPow43Poly[8] = {-457633446, 1445956062, -2036421417, 1707815404,
                                               -991941369, 535739478,  127541088,   -1613111};

// 2^(r/3), r = 0..2, in Q30: the part of 2^(4k/3) that a shift cannot give.
inline constexpr std::int32_t kThirdOctaveQ30[3] = {1073741824, ConstQ(ConstPow2Twelfths(4), 30),
                                                    ConstQ(ConstPow2Twelfths(8), 30)};

// Pre-emphasis of the long bands (ISO/IEC 11172-3, Table 3-B.6 "pretab").
inline constexpr std::int8_t kPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

// MPEG-1 intensity ratios tan(p pi/12) / (1 + tan(p pi/12)), p = 0..6, Q31.
inline constexpr std::int32_t kIsRatioQ31[7] = {0,          453816693,  786033569, 1073741824,
                                                1361450079, 1693666955, 2147483647};

// Shifts a non-negative value right by `shift` (truncating, at most 31) or,
// for a negative shift, left with saturation.
inline std::int32_t ShiftSat(std::int32_t v, int shift) {
  if (shift >= 0) return v >> (shift > 31 ? 31 : shift);
  const int left = -shift;
  if (left >= 31 || v > (INT32_MAX >> left)) return v == 0 ? 0 : INT32_MAX;
  return v << left;
}

// Stereo treatment of one band segment.
enum class Stereo : std::int8_t { kPlain, kMidSide, kIntensity };

// One band (long) or one window of one band (short), in coded order.
struct Segment {
  std::int16_t start;
  std::int16_t len;
  std::int8_t band;    // long band 0..21 or short band 0..12
  std::int8_t window;  // -1 for long bands
  std::int16_t sf_index;  // entry of the scale-factor array
  std::int16_t is_index;  // entry holding the intensity position
};

struct Layout {
  Segment seg[22 + 39];
  int count;
  int mixed_long_bands;  // long bands in a mixed block's first two subbands
};

int MixedLongBands(const Akl16s* lon) {
  int l = 0;
  while (l < 22 && lon[l] < 36) ++l;
  return l;
}

// Segments of a granule of block type bt in coded order.
void BuildLayout(int bt, int mixed, const Akl16s* lon, const Akl16s* sho, Layout* out) {
  int n = 0;
  out->mixed_long_bands = 0;
  if (bt != 2) {
    for (int b = 0; b < 22; ++b)
      out->seg[n++] = {lon[b], static_cast<std::int16_t>(lon[b + 1] - lon[b]), static_cast<std::int8_t>(b), -1,
                       static_cast<std::int16_t>(b), static_cast<std::int16_t>(b < 21 ? b : 20)};
  } else {
    int first_short = 0, sf_base = 0;
    if (mixed) {
      const int l = MixedLongBands(lon);
      out->mixed_long_bands = l;
      for (int b = 0; b < l; ++b)
        out->seg[n++] = {lon[b], static_cast<std::int16_t>(lon[b + 1] - lon[b]), static_cast<std::int8_t>(b), -1,
                         static_cast<std::int16_t>(b), static_cast<std::int16_t>(b)};
      first_short = 3;
      sf_base = l - 9;  // short band b, window w at l + 3 (b - 3) + w
    }
    for (int b = first_short; b < 13; ++b) {
      const int width = sho[b + 1] - sho[b];
      for (int w = 0; w < 3; ++w) {
        const int sf = sf_base + 3 * b + w;
        const int is = sf_base + 3 * (b < 12 ? b : 11) + w;
        out->seg[n++] = {static_cast<std::int16_t>(3 * sho[b] + w * width), static_cast<std::int16_t>(width),
                         static_cast<std::int8_t>(b), static_cast<std::int8_t>(w), static_cast<std::int16_t>(sf),
                         static_cast<std::int16_t>(is)};
      }
    }
  }
  out->count = n;
}

bool AnyNonZero(const std::int32_t* x, int n) {
  for (int i = 0; i < n; ++i)
    if (x[i]) return true;
  return false;
}

// Marks which segments are intensity-coded, from the right channel's raw
// quantized values: every band above the last non-zero band of the right
// channel (per window for short blocks; in a mixed block the long part only
// when no short window holds anything).
void MarkIntensity(const Layout& lay, const std::int32_t* right, bool* is_seg) {
  for (int i = 0; i < lay.count; ++i) is_seg[i] = false;
  int last_long = -1;  // segment index of the last non-zero long band
  int last_win[3] = {-1, -1, -1};
  bool any_short = false;
  for (int i = 0; i < lay.count; ++i) {
    const Segment& s = lay.seg[i];
    if (!AnyNonZero(right + s.start, s.len)) continue;
    if (s.window < 0) {
      last_long = i;
    } else {
      last_win[s.window] = i;
      any_short = true;
    }
  }
  for (int i = 0; i < lay.count; ++i) {
    const Segment& s = lay.seg[i];
    if (s.window < 0)
      is_seg[i] = !any_short && i > last_long;
    else
      is_seg[i] = i > last_win[s.window];
  }
}

struct ChannelGains {
  int global;       // 210 - globalGain
  int sf_shift;     // scalefacScale + 1
  int preflag;
  int subblock[3];  // 8 * subblockGain
};

}  // namespace

// Requantizes n raw values in place at attenuation a; false if a magnitude
// exceeds 8206 (the values before it are converted).  Magnitudes below 16
// (nearly all lines) take the table path inline: for a >= 4 both of its
// shifts are right shifts, so ShiftSat reduces to a clamped shift.
bool RequantRun(std::int32_t* x, int n, int a) {
  const int s = a >> 2;
  const std::int32_t* small = kPow43Small.v[a & 3];
  if (s >= 1) {
    const int shift_small = s + 2 > 31 ? 31 : s + 2, shift_rest = s - 1 > 31 ? 31 : s - 1;
    auto one = [&](int i) {
      const std::int32_t v = x[i];
      const std::uint32_t m = v < 0 ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v);
      std::int32_t r;
      if (m < 16) {
        r = small[m] >> (m < 4 ? shift_small : shift_rest);
      } else {
        if (m > kMaxQuantMagnitude) return false;
        r = RequantMagnitude(m, a);
      }
      x[i] = v < 0 ? -r : r;
      return true;
    };
    // Four lines at a time while all four magnitudes are below 16 (zeros
    // included: the table's entry 0 is 0); a group holding a larger one goes
    // line by line.
    const __m128i c15 = _mm_set1_epi32(15), c4 = _mm_set1_epi32(4);
    const __m128i sh_small = _mm_cvtsi32_si128(shift_small), sh_rest = _mm_cvtsi32_si128(shift_rest);
    int i = 0;
    for (; i + 4 <= n; i += 4) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x + i));
      const __m128i sign = _mm_srai_epi32(v, 31);
      const __m128i m = _mm_sub_epi32(_mm_xor_si128(v, sign), sign);
      // m above 15, or 2^31 (the magnitude of INT32_MIN, negative here)
      if (_mm_movemask_epi8(_mm_or_si128(_mm_cmpgt_epi32(m, c15), _mm_srai_epi32(m, 31))) != 0) {
        for (int k = i; k < i + 4; ++k)
          if (!one(k)) return false;
        continue;
      }
      alignas(16) std::int32_t mm[4];
      _mm_store_si128(reinterpret_cast<__m128i*>(mm), m);
      const __m128i t = _mm_setr_epi32(small[mm[0]], small[mm[1]], small[mm[2]], small[mm[3]]);
      const __m128i lo = _mm_cmpgt_epi32(c4, m);
      const __m128i r = _mm_or_si128(_mm_and_si128(lo, _mm_sra_epi32(t, sh_small)), _mm_andnot_si128(lo, _mm_sra_epi32(t, sh_rest)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(x + i), _mm_sub_epi32(_mm_xor_si128(r, sign), sign));
    }
    for (; i < n; ++i)
      if (!one(i)) return false;
    return true;
  }
  for (int i = 0; i < n; ++i) {
    const std::int32_t v = x[i];
    if (v == 0) continue;
    const std::uint32_t m = v < 0 ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v);
    if (m > kMaxQuantMagnitude) return false;
    const std::int32_t r = RequantMagnitude(m, a);
    x[i] = v < 0 ? -r : r;
  }
  return true;
}

bool RequantRunRef(std::int32_t* x, int n, int a) {
  for (int i = 0; i < n; ++i) {
    const std::int32_t v = x[i];
    if (v == 0) continue;
    const std::uint32_t m = v < 0 ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v);
    if (m > kMaxQuantMagnitude) return false;
    const std::int32_t r = RequantMagnitude(m, a);
    x[i] = v < 0 ? -r : r;
  }
  return true;
}

namespace {

// Short blocks: coded order (band-major, window-minor) to three runs of six
// lines per subband, through the work buffer.
void ReorderShort(std::int32_t* x, int mixed, const Akl16s* sho, std::int32_t* work) {
  const int first = mixed ? 3 : 0;
  for (int i = 0; i < 576; ++i) work[i] = 0;
  if (mixed)
    for (int i = 0; i < 36; ++i) work[i] = x[i];
  for (int b = first; b < 13; ++b) {
    const int width = sho[b + 1] - sho[b];
    for (int w = 0; w < 3; ++w) {
      const std::int32_t* src = x + 3 * sho[b] + w * width;
      for (int k = 0; k < width; k += 2) {
        const int f = sho[b] + k;  // frequency line within the window; widths are even
        const int dst = 18 * (f / 6) + 6 * w + (f % 6);
        work[dst] = src[k];
        work[dst + 1] = src[k + 1];
      }
    }
  }
  for (int i = 0; i < 576; ++i) x[i] = work[i];
}

}  // namespace

void Pow43Poly(std::uint32_t m, std::int32_t* mant_q27, int* exp) {
  std::uint32_t n = m << 17;
  int e = 0;
  if (n < (1u << 27)) {
    n <<= 4;
    e += 4;
  }
  if (n < (1u << 29)) {
    n <<= 2;
    e += 2;
  }
  if (n < (1u << 30)) {
    n <<= 1;
    e += 1;
  }
  // m = u 2^(14 - e) with u = n / 2^31 in [0.5, 1).
  std::int64_t p = kPow43Poly[0];
  for (int i = 1; i < 8; ++i) p = ((p * static_cast<std::int64_t>(n)) >> 32) + kPow43Poly[i];
  // p = u^(4/3) in Q27; m^(4/3) = u^(4/3) 2^(4 (14 - e) / 3).
  const int third_octaves = 4 * (14 - e);
  const int k = third_octaves / 3, r = third_octaves % 3;
  *mant_q27 = static_cast<std::int32_t>((p * kThirdOctaveQ30[r]) >> 30);
  *exp = k;
}

std::int32_t RequantMagnitude(std::uint32_t m, int a) {
  const int s = a >> 2;  // arithmetic: a = 4 s + q with q in 0..3
  const int q = a & 3;
  if (m < 16) {
    const std::int32_t v = kPow43Small.v[q][m];
    return ShiftSat(v, m < 4 ? s + 2 : s - 1);
  }
  if (m <= 128) {
    const std::int32_t v = MulHi(kPow43Mid.v[m], kFracQ31[q]);  // Q22 below 64, Q20 from 64
    return ShiftSat(v, m < 64 ? s - 4 : s - 6);
  }
  std::int32_t mant;
  int k;
  Pow43Poly(m, &mant, &k);
  const auto v = static_cast<std::int32_t>((static_cast<std::int64_t>(mant) * kFracQ31[q]) >> 31);  // Q27
  return ShiftSat(v, s + 1 - k);
}

namespace {

Status ReQuantizeKernel(std::int32_t* xr, int* bounds, const Akl8s* sf, const AklMP3SideInfo* si,
                        const AklMP3FrameHeader* hdr, std::int32_t* work, const Akl16s* lon, const Akl16s* sho,
                        int channels, bool ms, bool is) {
  const bool tools = ms || is;
  // Lines at and beyond each bound are zero on entry by contract; make it so.
  for (int ch = 0; ch < channels; ++ch)
    for (int i = bounds[ch]; i < 576; ++i) xr[576 * ch + i] = 0;

  Layout lay[2];
  for (int ch = 0; ch < channels; ++ch) BuildLayout(si[ch].blockType, si[ch].mixedBlockFlag, lon, sho, &lay[ch]);
  Stereo kind[22 + 39];
  for (Stereo& k : kind) k = tools ? (ms ? Stereo::kMidSide : Stereo::kPlain) : Stereo::kPlain;
  int is_atten[22 + 39][2] = {};  // MPEG-2: extra attenuation of left and right
  int is_pos[22 + 39] = {};       // MPEG-1: position 0..6
  if (is) {
    bool is_seg[22 + 39];
    MarkIntensity(lay[1], xr + 576, is_seg);
    const Akl8s* sf_right = sf + kScaleFactorsPerChannel;
    const int iscale = (si[1].scalefacCompress & 1) ? 2 : 1;
    for (int i = 0; i < lay[1].count; ++i) {
      if (!is_seg[i]) continue;
      const int pos = sf_right[lay[1].seg[i].is_index];
      if (hdr->id == 1) {
        if (pos < 0 || pos >= 7) continue;
        is_pos[i] = pos;
      } else {
        if (pos < 0) continue;
        if (pos & 1)
          is_atten[i][0] = ((pos + 1) / 2) * iscale;
        else
          is_atten[i][1] = (pos / 2) * iscale;
      }
      kind[i] = Stereo::kIntensity;
    }
  }

  for (int ch = 0; ch < channels; ++ch) {
    const AklMP3SideInfo& g = si[ch];
    const Layout& l = lay[ch];
    const Akl8s* sfc = sf + kScaleFactorsPerChannel * ch;
    std::int32_t* x = xr + 576 * ch;
    bool checked = false;
    for (int i = 0; i < l.count; ++i) {
      const Segment& s = l.seg[i];
      if (s.start >= bounds[ch]) break;  // the rest of this channel is zero
      if (ch == 1 && kind[i] == Stereo::kIntensity) continue;  // filled from the left channel
      if (!checked) {
        if (Above(g.globalGain, 255) || Above(g.scalefacScale, 1) || Above(g.preflag, 1)) return kStsMP3SideInfoErr;
        if (g.blockType == 2)
          for (int w = 0; w < 3; ++w)
            if (Above(g.subblockGain[w], 7)) return kStsErr;
        checked = true;
      }
      int sfv = sfc[s.sf_index];
      if (sfv < 0) sfv = -sfv;
      int a = 210 - g.globalGain;
      if (s.window < 0) {
        a += (sfv + g.preflag * kPretab[s.band]) << (g.scalefacScale + 1);
      } else {
        a += (sfv << (g.scalefacScale + 1)) + 8 * g.subblockGain[s.window];
      }
      if (kind[i] == Stereo::kMidSide) a += 2;
      std::int32_t* band = x + s.start;
      if (kind[i] != Stereo::kIntensity) {
        if (!RequantRun(band, s.len, a)) return kStsErr;
        continue;
      }
      std::int32_t* right = xr + 576 + s.start;
      if (hdr->id == 1) {
        if (!RequantRun(band, s.len, a)) return kStsErr;
        const std::int64_t kl = kIsRatioQ31[is_pos[i]], kr = kIsRatioQ31[6 - is_pos[i]];
        for (int j = 0; j < s.len; ++j) {
          right[j] = static_cast<std::int32_t>((band[j] * kr) >> 31);
          band[j] = static_cast<std::int32_t>((band[j] * kl) >> 31);
        }
      } else {
        for (int j = 0; j < s.len; ++j) right[j] = band[j];
        if (!RequantRun(right, s.len, a + is_atten[i][1])) return kStsErr;
        if (!RequantRun(band, s.len, a + is_atten[i][0])) return kStsErr;
      }
    }
  }

  if (ms) {
    std::int32_t* l = xr;
    std::int32_t* r = xr + 576;
    for (int i = 0; i < lay[0].count; ++i) {
      if (kind[i] != Stereo::kMidSide) continue;
      const Segment& s = lay[0].seg[i];
      for (int j = s.start; j < s.start + s.len; ++j) {
        const std::int64_t m = l[j], d = r[j];
        l[j] = SatS32(m + d);
        r[j] = SatS32(m - d);
      }
    }
  }

  if (tools) {
    const int b = bounds[0] > bounds[1] ? bounds[0] : bounds[1];
    bounds[0] = bounds[1] = b;
  }
  for (int ch = 0; ch < channels; ++ch) {
    std::int32_t* x = xr + 576 * ch;
    int b = bounds[ch];
    if (si[ch].blockType == 2) {
      const int mixed = si[ch].mixedBlockFlag;
      ReorderShort(x, mixed, sho, work);
      // Round the bound up to the end of its short band (a band's lines
      // spread over the subbands of its whole frequency range), then to a
      // whole subband.
      if (b > 0 && !(mixed && b <= 36)) {
        int band = 0;
        while (band < 12 && 3 * sho[band + 1] < b) ++band;
        b = 3 * sho[band + 1];
      }
      b = ((b * 3641 + 61897) >> 16) * 18;
      if (b > 576) b = 576;
    }
    while (b > 0 && x[b - 1] == 0) --b;
    bounds[ch] = b;
  }
  return kStsOk;
}

// The caller's band rows must describe bands inside the granule that the
// kernel can walk: long boundaries rising (or staying) from 0 or more to at
// most 576; short boundaries (lines of one window) rising by even widths from
// 0 or more to at most 192; and, when a mixed block is requantized, at most 9
// long bands below line 36, so that its short bands' scale factors stay inside
// the 39 entries of the channel's array.
bool BandRowsUsable(const Akl16s* lon, const Akl16s* sho, bool mixed) {
  if (lon[0] < 0 || lon[kSfbLongRowLen - 1] > 576) return false;
  for (int b = 0; b + 1 < kSfbLongRowLen; ++b)
    if (lon[b + 1] < lon[b]) return false;
  if (sho[0] < 0 || sho[kSfbShortRowLen - 1] > 192) return false;
  for (int b = 0; b + 1 < kSfbShortRowLen; ++b)
    if (sho[b + 1] < sho[b] || ((sho[b + 1] - sho[b]) & 1) != 0) return false;
  return !mixed || MixedLongBands(lon) <= 9;
}

}  // namespace

Status aklsReQuantizeSfb_MP3_32s_I(Akl32s* pSrcDstIsXr, int* pNonZeroBound, const Akl8s* pScaleFactor,
                                   const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                   Akl32s* pBuffer, const Akl16s* pSfbTableLong, const Akl16s* pSfbTableShort) {
  if (!pSrcDstIsXr || !pNonZeroBound || !pScaleFactor || !pSideInfo || !pFrameHeader || !pBuffer ||
      !pSfbTableLong || !pSfbTableShort)
    return kStsNullPtr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  if (Above(h.id, 1) || Above(h.samplingFreqIndex, 2) || Above(h.mode, 3) || Above(h.modeExtension, 3))
    return kStsMP3FrameHeaderErr;
  const bool joint = h.mode == 1;
  const bool ms = joint && (h.modeExtension & 2);
  const bool is = joint && (h.modeExtension & 1);
  const int channels = h.mode == 3 ? 1 : 2;
  if ((ms || is) && (pSideInfo[0].blockType != pSideInfo[1].blockType ||
                     pSideInfo[0].mixedBlockFlag != pSideInfo[1].mixedBlockFlag))
    return kStsMP3SideInfoErr;
  for (int ch = 0; ch < channels; ++ch) {
    if (Above(pSideInfo[ch].blockType, 3) || Above(pSideInfo[ch].mixedBlockFlag, 1)) return kStsMP3SideInfoErr;
    if (Above(pNonZeroBound[ch], 576)) return kStsBadArgErr;
  }
  const int row = h.id * 3 + h.samplingFreqIndex;
  bool mixed = false;
  for (int ch = 0; ch < channels; ++ch) mixed = mixed || (pSideInfo[ch].blockType == 2 && pSideInfo[ch].mixedBlockFlag);
  if (!BandRowsUsable(pSfbTableLong + kSfbLongRowLen * row, pSfbTableShort + kSfbShortRowLen * row, mixed))
    return kStsBadArgErr;
  return ReQuantizeKernel(pSrcDstIsXr, pNonZeroBound, pScaleFactor, pSideInfo, pFrameHeader, pBuffer,
                          pSfbTableLong + kSfbLongRowLen * row, pSfbTableShort + kSfbShortRowLen * row, channels,
                          ms, is);
}

Status aklsReQuantize_MP3_32s_I(Akl32s* pSrcDstIsXr, int* pNonZeroBound, const Akl8s* pScaleFactor,
                                const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                Akl32s* pBuffer) {
  return mp3::aklsReQuantizeSfb_MP3_32s_I(pSrcDstIsXr, pNonZeroBound, pScaleFactor, pSideInfo, pFrameHeader, pBuffer,
                                     &kSfbLong[0][0], &kSfbShort[0][0]);
}

}  // namespace akl::mp3
