// Shared pieces of the Layer III encoding operations: the scale-factor field
// layout (the reverse of the unpacker's reading order), the band layout of a
// granule in coded order, and the Huffman code books indexed by value.
#pragma once

#include <cstdint>

#include "aklac.h"
#include "mp3/tables.hpp"

namespace akl::mp3 {

// The scale-factor fields of one granule and channel in stream order: runs
// of `count` values of `bits` bits from array entry `start`.
struct ScaleFactorFields {
  int runs = 0;
  int start[4] = {};
  int count[4] = {};
  int bits[4] = {};
  bool allow_negated_limit = false;  // MPEG-2 intensity right channel
};

inline void ScaleFactorLayout(const AklMP3SideInfo& si, const AklMP3FrameHeader& h, int granule, int channel,
                              const Akl32s* scfsi, ScaleFactorFields* f) {
  *f = ScaleFactorFields{};
  auto add = [f](int start, int count, int bits) {
    f->start[f->runs] = start;
    f->count[f->runs] = count;
    f->bits[f->runs] = bits;
    ++f->runs;
  };
  if (h.id == 1) {
    const int slen1 = kSlen1[si.scalefacCompress], slen2 = kSlen2[si.scalefacCompress];
    if (si.blockType == 2) {
      if (si.mixedBlockFlag) {
        add(0, 17, slen1);
        add(17, 18, slen2);
      } else {
        add(0, 18, slen1);
        add(18, 18, slen2);
      }
      return;
    }
    static constexpr int kGroupStart[5] = {0, 6, 11, 16, 21};
    for (int g = 0; g < 4; ++g) {
      if (granule == 1 && scfsi[g] != 0) continue;
      add(kGroupStart[g], kGroupStart[g + 1] - kGroupStart[g], g < 2 ? slen1 : slen2);
    }
    return;
  }
  const int kind = si.blockType == 2 ? (si.mixedBlockFlag ? 2 : 1) : 0;
  const int sfc = si.scalefacCompress;
  const bool is_right = (h.modeExtension & 1) != 0 && channel == 1;
  int slen[4] = {0, 0, 0, 0};
  int range;
  if (!is_right) {
    if (sfc < 400) {
      slen[0] = (sfc >> 4) / 5, slen[1] = (sfc >> 4) % 5, slen[2] = (sfc % 16) >> 2, slen[3] = sfc % 4;
      range = 0;
    } else if (sfc < 500) {
      const int s = sfc - 400;
      slen[0] = (s >> 2) / 5, slen[1] = (s >> 2) % 5, slen[2] = s % 4;
      range = 1;
    } else {
      const int s = sfc - 500;
      slen[0] = s / 3, slen[1] = s % 3;
      range = 2;
    }
  } else {
    const int hh = sfc >> 1;
    if (hh < 180) {
      slen[0] = hh / 36, slen[1] = (hh % 36) / 6, slen[2] = (hh % 36) % 6;
      range = 3;
    } else if (hh < 244) {
      const int t = hh - 180;
      slen[0] = t >> 4, slen[1] = (t % 16) >> 2, slen[2] = t % 4;
      range = 4;
    } else {
      const int t = hh - 244;
      slen[0] = t / 3, slen[1] = t % 3;
      range = 5;
    }
    f->allow_negated_limit = true;
  }
  int pos = 0;
  for (int p = 0; p < 4; ++p) {
    const int n = kNrOfSfb[range * 12 + kind * 4 + p];
    add(pos, n, slen[p]);
    pos += n;
  }
}

// A granule's bands in coded (stream) order, as the requantizer walks them.
struct EncBand {
  std::int16_t start;   // first line in stream order
  std::int16_t len;     // lines
  std::int16_t sf;      // scale-factor array entry
  std::int8_t band;     // long or short band number
  std::int8_t window;   // -1 long, else 0..2
  std::int16_t mdct0;   // short bands: first line of the window in the transform's layout (k = band start)
};
struct EncBandLayout {
  int count;
  EncBand b[22 + 39];
};

inline int MixedLongBandCount(const Akl16s* lon) {
  int l = 0;
  while (l < 22 && lon[l + 1] <= 36) ++l;
  return l;
}

inline void EncBuildLayout(int bt, int mixed, const Akl16s* lon, const Akl16s* sho, EncBandLayout* out) {
  int n = 0;
  if (bt != 2) {
    for (int b = 0; b < 22; ++b)
      out->b[n++] = {lon[b], static_cast<std::int16_t>(lon[b + 1] - lon[b]), static_cast<std::int16_t>(b),
                     static_cast<std::int8_t>(b), -1, 0};
  } else {
    int first_short = 0, sf_base = 0;
    if (mixed) {
      const int l = MixedLongBandCount(lon);
      for (int b = 0; b < l; ++b)
        out->b[n++] = {lon[b], static_cast<std::int16_t>(lon[b + 1] - lon[b]), static_cast<std::int16_t>(b),
                       static_cast<std::int8_t>(b), -1, 0};
      first_short = 3;
      sf_base = l - 9;
    }
    for (int b = first_short; b < 13; ++b) {
      const int width = sho[b + 1] - sho[b];
      for (int w = 0; w < 3; ++w)
        out->b[n++] = {static_cast<std::int16_t>(3 * sho[b] + w * width), static_cast<std::int16_t>(width),
                       static_cast<std::int16_t>(sf_base + 3 * b + w), static_cast<std::int8_t>(b),
                       static_cast<std::int8_t>(w), sho[b]};
    }
  }
  out->count = n;
}

// Pre-emphasis of the long bands (ISO/IEC 11172-3, Table 3-B.6).
inline constexpr std::int8_t kEncPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

// Huffman code books indexed by value: big-value tables by x * 16 + y,
// count1 tables by v << 3 | w << 2 | x << 1 | y.  len 0 marks a pair the
// table cannot code.
struct HuffmanEncodeBooks {
  std::uint8_t len[32][256];
  std::uint32_t code[32][256];
  int xmax[32];     // values below xmax are codable (before linbits)
  int linbits[32];
  std::uint8_t c1len[2][16];
  std::uint32_t c1code[2][16];
};
const HuffmanEncodeBooks& EncodeBooks();

}  // namespace akl::mp3
