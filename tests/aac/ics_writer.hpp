// Test-side encoder of individual channel streams, written from the raw code
// tables (index -> code word) independently of the decoder's lookup tables.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "aac/tables.hpp"
#include "aklac.h"
#include "core/bitstream.hpp"

namespace aactest {

struct Section {
  int cb;
  int len;
};

// Everything an ICS carries, and what the decoder should hand back.
struct IcsPlan {
  int sf_index = 4;
  int window_sequence = 0;
  int window_shape = 0;
  int max_sfb = 0;
  int grouping = 0;  // 7 bits, eight short windows only
  int global_gain = 100;
  std::vector<std::vector<Section>> sections;  // per window group
  // Per band (group-major, bands below max_sfb): what is written and expected.
  std::vector<int> sf_code;      // scale-factor code index 0..120, or the 9-bit value of the first noise band
  std::vector<int> sf_expected;  // expected pScaleFactor entry
  bool pulse = false;
  int pulse_start = 0;
  std::vector<std::pair<int, int>> pulses;  // offset, amplitude
  std::vector<Akl32s> coefs;                // 1024, grouped and interleaved, before pulses
  std::vector<Akl32s> expected;             // 1024, after pulses

  bool Short() const { return window_sequence == 2; }
  int Groups() const { return static_cast<int>(sections.size()); }
  std::vector<int> GroupLengths() const {
    std::vector<int> lens{1};
    if (!Short()) return lens;
    for (int bit = 6; bit >= 0; --bit) {
      if ((grouping >> bit) & 1) {
        ++lens.back();
      } else {
        lens.push_back(1);
      }
    }
    return lens;
  }
  const std::uint16_t* Swb() const {
    return Short() ? akl::aac::kSwbOffsetShort[sf_index] : akl::aac::kSwbOffsetLong[sf_index];
  }
  int NumSwb() const { return Short() ? akl::aac::kNumSwbShort[sf_index] : akl::aac::kNumSwbLong[sf_index]; }
  int BandCb(int g, int sfb) const {
    int k = 0;
    for (const Section& s : sections[static_cast<std::size_t>(g)]) {
      if (sfb < k + s.len) return s.cb;
      k += s.len;
    }
    return -1;
  }
};

inline void WriteCode(akl::BitWriter& bw, const akl::aac::HuffCode& c) { bw.Write(c.code, c.len); }

inline void WriteIcsInfo(akl::BitWriter& bw, const IcsPlan& p) {
  bw.Write(0, 1);
  bw.Write(static_cast<std::uint32_t>(p.window_sequence), 2);
  bw.Write(static_cast<std::uint32_t>(p.window_shape), 1);
  if (p.Short()) {
    bw.Write(static_cast<std::uint32_t>(p.max_sfb), 4);
    bw.Write(static_cast<std::uint32_t>(p.grouping), 7);
  } else {
    bw.Write(static_cast<std::uint32_t>(p.max_sfb), 6);
    bw.Write(0, 1);  // predictor_data_present
  }
}

inline void WriteSpectralTuple(akl::BitWriter& bw, int cb, const Akl32s* v) {
  const auto& book = akl::aac::kSpectralBooks[cb];
  const int radix = book.is_unsigned ? book.lav + 1 : 2 * book.lav + 1;
  int index = 0;
  for (int k = 0; k < book.dim; ++k) {
    int x = book.is_unsigned ? std::abs(v[k]) : v[k] + book.lav;
    if (cb == 11 && x > 16) x = 16;
    index = index * radix + x;
  }
  WriteCode(bw, akl::aac::kSpectralCodes[book.code_offset + static_cast<unsigned>(index)]);
  if (!book.is_unsigned) return;
  for (int k = 0; k < book.dim; ++k) {
    if (v[k] != 0) bw.Write(v[k] < 0 ? 1u : 0u, 1);
  }
  if (cb != 11) return;
  for (int k = 0; k < book.dim; ++k) {
    const int a = std::abs(v[k]);
    if (a < 16) continue;
    int n = 0;
    while ((a >> (n + 5)) != 0) ++n;  // a in [2^(n+4), 2^(n+5))
    for (int i = 0; i < n; ++i) bw.Write(1, 1);
    bw.Write(0, 1);
    bw.Write(static_cast<std::uint32_t>(a - (1 << (n + 4))), n + 4);
  }
}

// Writes global_gain through the spectral data.
inline void WriteIcs(akl::BitWriter& bw, const IcsPlan& p, bool ics_info) {
  bw.Write(static_cast<std::uint32_t>(p.global_gain), 8);
  if (ics_info) WriteIcsInfo(bw, p);
  const int len_bits = p.Short() ? 3 : 5;
  const int esc = (1 << len_bits) - 1;
  for (const auto& group : p.sections) {
    for (const Section& s : group) {
      bw.Write(static_cast<std::uint32_t>(s.cb), 4);
      int len = s.len;
      while (len >= esc) {
        bw.Write(static_cast<std::uint32_t>(esc), len_bits);
        len -= esc;
      }
      bw.Write(static_cast<std::uint32_t>(len), len_bits);
    }
  }
  bool first_noise = true;
  for (int g = 0; g < p.Groups(); ++g) {
    for (int sfb = 0; sfb < p.max_sfb; ++sfb) {
      const int cb = p.BandCb(g, sfb);
      const int code = p.sf_code[static_cast<std::size_t>(g * p.max_sfb + sfb)];
      if (cb == 0) continue;
      if (cb == 13 && first_noise) {
        first_noise = false;
        bw.Write(static_cast<std::uint32_t>(code), 9);
        continue;
      }
      WriteCode(bw, akl::aac::kSfCodes[code]);
    }
  }
  bw.Write(p.pulse ? 1u : 0u, 1);
  if (p.pulse) {
    bw.Write(static_cast<std::uint32_t>(p.pulses.size() - 1), 2);
    bw.Write(static_cast<std::uint32_t>(p.pulse_start), 6);
    for (const auto& [offset, amp] : p.pulses) {
      bw.Write(static_cast<std::uint32_t>(offset), 5);
      bw.Write(static_cast<std::uint32_t>(amp), 4);
    }
  }
  bw.Write(0, 1);  // tns_data_present
  bw.Write(0, 1);  // gain_control_data_present
  const std::vector<int> glen = p.GroupLengths();
  const std::uint16_t* swb = p.Swb();
  int base = 0;
  for (int g = 0; g < p.Groups(); ++g) {
    const int gl = glen[static_cast<std::size_t>(g)];
    int k = 0;
    for (const Section& s : p.sections[static_cast<std::size_t>(g)]) {
      const int begin = base + swb[k] * gl;
      const int end = base + swb[k + s.len] * gl;
      k += s.len;
      if (s.cb == 0 || s.cb > 11) continue;
      const int dim = akl::aac::kSpectralBooks[s.cb].dim;
      for (int i = begin; i < end; i += dim) WriteSpectralTuple(bw, s.cb, p.coefs.data() + i);
    }
    base += gl * (p.Short() ? 128 : 1024);
  }
}

// A random plan: random sections over random books (noise only when allowed),
// scale factors kept in range, random values within each book's range.
inline IcsPlan RandomPlan(std::mt19937& rng, int sf_index, bool short_windows, bool allow_noise) {
  IcsPlan p;
  p.sf_index = sf_index;
  p.window_sequence = short_windows ? 2 : static_cast<int>(rng() % 2) * 3;  // long or long-stop
  p.window_shape = static_cast<int>(rng() & 1);
  p.grouping = short_windows ? static_cast<int>(rng() & 0x7F) : 0;
  const int num_swb = p.NumSwb();
  p.max_sfb = static_cast<int>(rng() % static_cast<unsigned>(num_swb + 1));
  p.global_gain = 60 + static_cast<int>(rng() % 120);
  const std::vector<int> glen = p.GroupLengths();
  const int groups = static_cast<int>(glen.size());
  p.sections.resize(static_cast<std::size_t>(groups));
  const int books[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 11, 11, 14, 15, 13};
  const int num_books = allow_noise ? 17 : 16;
  for (auto& group : p.sections) {
    int k = 0;
    while (k < p.max_sfb) {
      const int len = 1 + static_cast<int>(rng() % static_cast<unsigned>(p.max_sfb - k < 40 ? p.max_sfb - k : 40));
      group.push_back({books[rng() % static_cast<unsigned>(num_books)], len});
      k += len;
    }
  }
  // Scale factors: the running value is shared by scale factors and noise energies.
  int sf = p.global_gain;
  int is = 0;
  bool first_noise = true;
  for (int g = 0; g < groups; ++g) {
    for (int sfb = 0; sfb < p.max_sfb; ++sfb) {
      const int cb = p.BandCb(g, sfb);
      int code = 0;
      int value = 0;
      if (cb >= 1 && cb <= 11) {
        int diff;
        do {
          diff = static_cast<int>(rng() % 41) - 20;
        } while (sf + diff < 0 || sf + diff > 255);
        sf += diff;
        code = diff + 60;
        value = sf;
      } else if (cb == 14 || cb == 15) {
        const int diff = static_cast<int>(rng() % 121) - 60;
        is += diff;
        code = diff + 60;
        value = is;
      } else if (cb == 13 && first_noise) {
        first_noise = false;
        // The first energy is unchecked, but later bands need it inside 0..255.
        const int lo = 346 - p.global_gain;
        const int span = 512 - lo < 256 ? 512 - lo : 256;  // 9-bit field
        code = lo + static_cast<int>(rng() % static_cast<unsigned>(span));
        sf = p.global_gain + code - 346;
        value = sf;
      } else if (cb == 13) {
        int diff;
        do {
          diff = static_cast<int>(rng() % 41) - 20;
        } while (sf + diff < 0 || sf + diff > 255);
        sf += diff;
        code = diff + 60;
        value = sf;
      }
      p.sf_code.push_back(code);
      p.sf_expected.push_back(value);
    }
  }
  // Values.
  p.coefs.assign(1024, 0);
  const std::uint16_t* swb = p.Swb();
  int base = 0;
  for (int g = 0; g < groups; ++g) {
    const int gl = glen[static_cast<std::size_t>(g)];
    int k = 0;
    for (const Section& s : p.sections[static_cast<std::size_t>(g)]) {
      const int begin = base + swb[k] * gl;
      const int end = base + swb[k + s.len] * gl;
      k += s.len;
      if (s.cb == 0 || s.cb > 11) continue;
      const int lav = akl::aac::kSpectralBooks[s.cb].lav;
      for (int i = begin; i < end; ++i) {
        int a;
        const unsigned pick = rng() % 16;
        if (s.cb == 11 && pick == 0) {
          a = 16 + static_cast<int>(rng() % 8176);  // escape range 16..8191
        } else if (pick < 6) {
          a = 0;
        } else {
          a = static_cast<int>(rng() % static_cast<unsigned>(lav + 1));
        }
        p.coefs[static_cast<std::size_t>(i)] = (rng() & 1) ? -a : a;
      }
    }
    base += gl * (short_windows ? 128 : 1024);
  }
  p.expected = p.coefs;
  if (!short_windows && p.max_sfb > 0 && (rng() % 2) == 0) {
    p.pulse = true;
    p.pulse_start = static_cast<int>(rng() % static_cast<unsigned>(num_swb));
    int pos = swb[p.pulse_start];
    const int n = 1 + static_cast<int>(rng() % 4);
    for (int i = 0; i < n; ++i) {
      const int offset = static_cast<int>(rng() % 32);
      if (pos + offset >= 1024) break;
      pos += offset;
      const int amp = static_cast<int>(rng() % 16);
      p.pulses.emplace_back(offset, amp);
      Akl32s& c = p.expected[static_cast<std::size_t>(pos)];
      c += c > 0 ? amp : -amp;
    }
    if (p.pulses.empty()) p.pulse = false;
  }
  return p;
}

}  // namespace aactest
