// Test-side Layer III helpers: the code tables read from the plain-text copy
// in tests/data/mp3/mp3_huffman.txt (independent of the library's generated
// tables), a bit-by-bit reference Huffman decoder and a granule encoder.
#pragma once

#include <array>
#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "aklac.h"
#include "core/bitstream.hpp"
#include "../support/test_util.hpp"

namespace akl::test {

struct Code {
  int len = 0;
  std::uint32_t code = 0;
};

struct RefTables {
  // Big-value tables by table_select; codes indexed by x * 16 + y.
  std::array<std::vector<Code>, 32> pair_codes;
  std::array<std::map<std::pair<int, std::uint32_t>, int>, 32> pair_decode;  // (len, code) -> x * 16 + y
  std::array<int, 32> linbits{}, xmax{};
  std::array<bool, 32> present{};
  // count1 tables A, B; codes indexed by v << 3 | w << 2 | x << 1 | y.
  std::array<std::vector<Code>, 2> quad_codes;
  std::array<std::map<std::pair<int, std::uint32_t>, int>, 2> quad_decode;
  int max_len = 0;

  static const RefTables& Get() {
    static const RefTables t = Load();
    return t;
  }

 private:
  static RefTables Load() {
    RefTables t;
    std::ifstream in(DataPath("mp3/mp3_huffman.txt"));
    std::string line;
    int cur = -1;
    bool quad = false;
    std::array<int, 32> ref{};
    ref.fill(-1);
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream ss(line);
      if (line.rfind("table", 0) == 0) {
        std::string word, name;
        ss >> word >> name;
        if (name == "A" || name == "B") {
          quad = true;
          cur = name == "A" ? 0 : 1;
          t.quad_codes[static_cast<std::size_t>(cur)].assign(16, Code{});
          continue;
        }
        quad = false;
        cur = std::stoi(name);
        std::string key, val;
        t.present[static_cast<std::size_t>(cur)] = true;
        t.pair_codes[static_cast<std::size_t>(cur)].assign(256, Code{});
        while (ss >> key) {
          if (key == "linbits") ss >> t.linbits[static_cast<std::size_t>(cur)];
          else if (key == "xmax") ss >> t.xmax[static_cast<std::size_t>(cur)];
          else if (key == "ref") ss >> ref[static_cast<std::size_t>(cur)];
          else if (key == "codes") ss >> val;
          else if (key == "empty" || key == "unused") t.present[static_cast<std::size_t>(cur)] = false;
        }
        continue;
      }
      std::vector<std::string> f;
      std::string w;
      while (ss >> w) f.push_back(w);
      const std::string& bits = f.back();
      Code c{static_cast<int>(bits.size()), static_cast<std::uint32_t>(std::stoul(bits, nullptr, 2))};
      if (c.len > t.max_len) t.max_len = c.len;
      const auto uc = static_cast<std::size_t>(cur);
      if (quad) {
        const int v = std::stoi(f[0]) << 3 | std::stoi(f[1]) << 2 | std::stoi(f[2]) << 1 | std::stoi(f[3]);
        t.quad_codes[uc][static_cast<std::size_t>(v)] = c;
        t.quad_decode[uc][{c.len, c.code}] = v;
      } else {
        const int v = std::stoi(f[0]) * 16 + std::stoi(f[1]);
        t.pair_codes[uc][static_cast<std::size_t>(v)] = c;
        t.pair_decode[uc][{c.len, c.code}] = v;
      }
    }
    for (std::size_t n = 0; n < 32; ++n) {
      if (ref[n] < 0) continue;
      const auto r = static_cast<std::size_t>(ref[n]);
      t.pair_codes[n] = t.pair_codes[r];
      t.pair_decode[n] = t.pair_decode[r];
      t.xmax[n] = t.xmax[r];
    }
    return t;
  }
};

// Bit-at-a-time reader over a byte vector with an absolute bit position.
struct SlowBits {
  const std::vector<std::uint8_t>* buf;
  std::size_t pos;
  int Bit() {
    const std::size_t byte = pos / 8;
    const int b = byte < buf->size() ? ((*buf)[byte] >> (7 - pos % 8)) & 1 : 0;
    ++pos;
    return b;
  }
  std::uint32_t Read(int n) {
    std::uint32_t v = 0;
    for (int i = 0; i < n; ++i) v = v << 1 | static_cast<std::uint32_t>(Bit());
    return v;
  }
};

// Region starts (lines, not yet limited to the big-values end) as the Sfb form computes them.
inline std::pair<int, int> SfbRegions(const AklMP3SideInfo& si, const AklMP3FrameHeader& h, const Akl16s* long_table) {
  if (si.windowSwitchingFlag) return {(h.id == 1 || si.blockType == 2) ? 36 : 54, 576};
  const Akl16s* b = long_table + (h.id * 3 + h.samplingFreqIndex) * 23;
  return {b[si.region0Count + 1], b[si.region0Count + si.region1Count + 2]};
}

struct RefResult {
  Status status = kStsOk;
  std::array<Akl32s, 576> values{};
  int bound = 0;
  std::size_t end_pos = 0;  // absolute bit position of the cursor afterwards
  long remaining_after_count1 = 0;  // R before the final cursor adjustment
};

// Plain reference decode of one granule's Huffman data at absolute bit `start`.
inline RefResult RefDecode(const std::vector<std::uint8_t>& buf, std::size_t start, const AklMP3SideInfo& si,
                           int hufSize, int region1, int region2) {
  const RefTables& t = RefTables::Get();
  RefResult r;
  r.end_pos = start;
  if (hufSize == 0) return r;
  SlowBits br{&buf, start};
  const int e = si.bigValues * 2;
  const int starts[4] = {0, std::min(region1, e), std::min(region2, e), e};
  for (int reg = 0; reg < 3; ++reg) {
    if (starts[reg] >= starts[reg + 1]) continue;
    const auto tab = static_cast<std::size_t>(si.tableSelect[reg]);
    for (int i = starts[reg]; i < starts[reg + 1]; i += 2) {
      if (!t.present[tab]) {
        r.values[static_cast<std::size_t>(i)] = r.values[static_cast<std::size_t>(i) + 1] = 0;
        continue;
      }
      int len = 0;
      std::uint32_t code = 0;
      int v = -1;
      while (v < 0 && len <= t.max_len) {
        code = code << 1 | static_cast<std::uint32_t>(br.Bit());
        ++len;
        auto it = t.pair_decode[tab].find({len, code});
        if (it != t.pair_decode[tab].end()) v = it->second;
      }
      int xy[2] = {v >> 4, v & 15};
      for (int& q : xy) {
        if (t.linbits[tab] && q == 15) q += static_cast<int>(br.Read(t.linbits[tab]));
        if (q && br.Bit()) q = -q;
      }
      r.values[static_cast<std::size_t>(i)] = xy[0];
      r.values[static_cast<std::size_t>(i) + 1] = xy[1];
    }
  }
  long R = hufSize - static_cast<long>(br.pos - start);
  if (R < 0) {
    r.status = kStsErr;
    r.end_pos = br.pos;
    return r;
  }
  int line = e;
  const auto c1 = static_cast<std::size_t>(si.count1TableSelect);
  while (line < 574 && R >= 1) {
    const std::size_t p0 = br.pos;
    int len = 0;
    std::uint32_t code = 0;
    int v = -1;
    while (v < 0) {
      code = code << 1 | static_cast<std::uint32_t>(br.Bit());
      ++len;
      auto it = t.quad_decode[c1].find({len, code});
      if (it != t.quad_decode[c1].end()) v = it->second;
    }
    for (int k = 0; k < 4; ++k) {
      int q = (v >> (3 - k)) & 1;
      if (q && br.Bit()) q = -q;
      r.values[static_cast<std::size_t>(line + k)] = q;
    }
    R -= static_cast<long>(br.pos - p0);
    line += 4;
  }
  r.remaining_after_count1 = R;
  if (R < 0) line -= 4;
  for (int i = line; i < 576; ++i) r.values[static_cast<std::size_t>(i)] = 0;
  r.bound = 0;
  for (int i = 575; i >= 0; --i)
    if (r.values[static_cast<std::size_t>(i)] != 0) {
      r.bound = i + 1;
      break;
    }
  r.end_pos = start + static_cast<std::size_t>(hufSize);
  return r;
}

// Writes values[0, big_end) as pairs with the region tables and then
// quadruples up to count1_end with the side info's count1 table.  Values
// must fit the tables (|v| <= 15 + 2^linbits - 1, or <= xmax without
// linbits; count1 values in -1..1).  Returns the bits written.
inline long EncodeGranule(BitWriter& w, const AklMP3SideInfo& si, const Akl32s* values, int region1, int region2,
                          int count1_end) {
  const RefTables& t = RefTables::Get();
  long bits = 0;
  auto put = [&](std::uint32_t v, int n) {
    w.Write(v, n);
    bits += n;
  };
  const int e = si.bigValues * 2;
  const int starts[4] = {0, std::min(region1, e), std::min(region2, e), e};
  for (int reg = 0; reg < 3; ++reg) {
    if (starts[reg] >= starts[reg + 1]) continue;
    const auto tab = static_cast<std::size_t>(si.tableSelect[reg]);
    if (!t.present[tab]) continue;
    for (int i = starts[reg]; i < starts[reg + 1]; i += 2) {
      int mag[2], ext[2];
      for (int k = 0; k < 2; ++k) {
        const int a = std::abs(values[i + k]);
        mag[k] = (t.linbits[tab] && a >= 15) ? 15 : a;
        ext[k] = a - mag[k];
      }
      const Code& c = t.pair_codes[tab][static_cast<std::size_t>(mag[0] * 16 + mag[1])];
      put(c.code, c.len);
      for (int k = 0; k < 2; ++k) {
        if (t.linbits[tab] && mag[k] == 15) put(static_cast<std::uint32_t>(ext[k]), t.linbits[tab]);
        if (values[i + k] != 0) put(values[i + k] < 0 ? 1u : 0u, 1);
      }
    }
  }
  const auto c1 = static_cast<std::size_t>(si.count1TableSelect);
  for (int i = e; i < count1_end; i += 4) {
    int v = 0;
    for (int k = 0; k < 4; ++k) v = v << 1 | (values[i + k] != 0 ? 1 : 0);
    const Code& c = t.quad_codes[c1][static_cast<std::size_t>(v)];
    put(c.code, c.len);
    for (int k = 0; k < 4; ++k)
      if (values[i + k] != 0) put(values[i + k] < 0 ? 1u : 0u, 1);
  }
  return bits;
}

}  // namespace akl::test
