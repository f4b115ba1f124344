#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "aklac.h"
#include "core/bitstream.hpp"
#include "mp3/huffman_tables.hpp"
#include "mp3/tables.hpp"
#include "mp3_test_util.hpp"

namespace {

using akl::test::RefTables;

constexpr Akl32s kSentinel = 0x7A7A7A7A;

// ---- tables ---------------------------------------------------------------

void CheckBook(const akl::mp3::HuffmanCode* codes, int count, int expect_count) {
  ASSERT_EQ(count, expect_count);
  // Kraft sum exactly 1, with 2^-len summed as integers over 2^32.
  std::uint64_t kraft = 0;
  for (int i = 0; i < count; ++i) kraft += 1ull << (32 - codes[i].len);
  EXPECT_EQ(kraft, 1ull << 32);
  for (int i = 0; i < count; ++i)
    for (int j = 0; j < count; ++j) {
      if (i == j || codes[i].len > codes[j].len) continue;
      EXPECT_NE(codes[j].code >> (codes[j].len - codes[i].len), codes[i].code) << "prefix " << i << " of " << j;
    }
}

TEST(HuffmanTables, CodeBooksArePrefixFreeAndComplete) {
  for (int n = 0; n < 32; ++n) {
    SCOPED_TRACE(n);
    const auto& t = akl::mp3::kHuffmanTables[n];
    if (n == 0 || n == 4 || n == 14) {
      EXPECT_EQ(t.lut, nullptr);
      continue;
    }
    CheckBook(t.codes, t.count, (t.xmax + 1) * (t.xmax + 1));
    EXPECT_EQ(t.linbits, RefTables::Get().linbits[static_cast<std::size_t>(n)]);
  }
  const int linbits[32] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                           1, 2, 3, 4, 6, 8, 10, 13, 4, 5, 6, 7, 8, 9, 11, 13};
  for (int n = 0; n < 32; ++n) EXPECT_EQ(akl::mp3::kHuffmanTables[n].linbits, linbits[n]) << n;
  for (int q = 0; q < 2; ++q) CheckBook(akl::mp3::kCount1Tables[q].codes, 16, 16);
}

// Walks a lookup table the way the decoder does, from a left-aligned 32-bit
// window; returns the leaf entry and the bits it consumes.
std::pair<std::uint32_t, int> Walk(const akl::mp3::HuffmanTable& t, std::uint32_t window) {
  int used = 0, width = t.primary_bits;
  std::uint32_t e = t.lut[window >> (32 - width)];
  while (e & akl::mp3::kLutSubTable) {
    used += width;
    window <<= width;
    width = static_cast<int>((e >> 16) & 15u);
    e = t.lut[(e & 0xFFFFu) + (window >> (32 - width))];
  }
  return {e, used + static_cast<int>((e >> 24) & 31u)};
}

// Every code word of the text tables, followed by random bits, comes out of
// the lookup with its value, its length and, where the entry folds them in,
// the sign bits that follow it (x's first).
TEST(HuffmanTables, LookupDecodesEveryCodeWordOfTheTextTables) {
  std::mt19937 rng(akl::test::TestSeed());
  const RefTables& ref = RefTables::Get();
  int folded = 0, slow = 0;
  for (std::size_t n = 0; n < 32; ++n) {
    if (!ref.present[n]) continue;
    for (std::size_t v = 0; v < 256; ++v) {
      const auto& c = ref.pair_codes[n][v];
      if (c.len == 0) continue;
      for (int rep = 0; rep < 4; ++rep) {
        const std::uint32_t tail = static_cast<std::uint32_t>(rng()) >> c.len;
        const std::uint32_t window = (c.code << (32 - c.len)) | tail;
        const auto [e, len] = Walk(akl::mp3::kHuffmanTables[n], window);
        const int x = static_cast<int>(v >> 4), y = static_cast<int>(v & 15);
        SCOPED_TRACE(testing::Message() << "table " << n << " x " << x << " y " << y);
        if (e & akl::mp3::kLutSlow) {
          ++slow;
          ASSERT_EQ(static_cast<int>(e & 0xFF), x);
          ASSERT_EQ(static_cast<int>((e >> 8) & 0xFF), y);
          ASSERT_EQ(len, c.len);
        } else {
          ++folded;
          ASSERT_TRUE(ref.linbits[n] == 0 || (x != 15 && y != 15)) << "sign folded across a linbits escape";
          // Signs follow the code: x's (if non-zero), then y's.
          std::uint32_t bits = window << c.len;
          int want_len = c.len, sx = x, sy = y;
          if (x) sx = (bits >> 31) ? -x : x, bits <<= 1, ++want_len;
          if (y) sy = (bits >> 31) ? -y : y, ++want_len;
          ASSERT_EQ(static_cast<int>(static_cast<std::int8_t>(e & 0xFF)), sx);
          ASSERT_EQ(static_cast<int>(static_cast<std::int8_t>((e >> 8) & 0xFF)), sy);
          ASSERT_EQ(len, want_len);
        }
      }
    }
  }
  EXPECT_GT(folded, slow);  // the fast path covers most codes
  for (std::size_t q = 0; q < 2; ++q)
    for (std::size_t v = 0; v < 16; ++v)
      for (int rep = 0; rep < 8; ++rep) {
        const auto& c = ref.quad_codes[q][v];
        const std::uint32_t window = (c.code << (32 - c.len)) | (static_cast<std::uint32_t>(rng()) >> c.len);
        const auto [e, len] = Walk(akl::mp3::kCount1Tables[q], window);
        std::uint32_t bits = window << c.len;
        int want_len = c.len;
        for (int k = 0; k < 4; ++k) {
          int val = static_cast<int>((v >> (3 - k)) & 1);
          if (val) {
            if (bits >> 31) val = -val;
            bits <<= 1;
            ++want_len;
          }
          EXPECT_EQ(static_cast<int>(e << (30 - 2 * k)) >> 30, val) << q << " " << v << " " << k;
        }
        EXPECT_EQ(len, want_len);
      }
}

TEST(HuffmanTables, BandRowsEndAt576And192) {
  for (int r = 0; r < akl::mp3::kSfbRows; ++r) {
    EXPECT_EQ(akl::mp3::kSfbLong[r][0], 0);
    EXPECT_EQ(akl::mp3::kSfbLong[r][22], 576);
    EXPECT_EQ(akl::mp3::kSfbShort[r][0], 0);
    EXPECT_EQ(akl::mp3::kSfbShort[r][13], 192);
    for (int b = 1; b < 23; ++b) EXPECT_GT(akl::mp3::kSfbLong[r][b], akl::mp3::kSfbLong[r][b - 1]);
    for (int b = 1; b < 14; ++b) EXPECT_GT(akl::mp3::kSfbShort[r][b], akl::mp3::kSfbShort[r][b - 1]);
    // Long band 8 and 3 x short band 3 are where window-switched region 0 ends.
    EXPECT_EQ(3 * akl::mp3::kSfbShort[r][3], 36);
    EXPECT_EQ(akl::mp3::kSfbLong[r][8], r < 3 ? 54 : 36);
  }
}

// ---- decoding -------------------------------------------------------------

enum class Form { kPlain, kSfb, kMbp };

// Short-band and partition tables for the Mbp form (rows as the long table).
// By default a mixed block has 36 lines of long bands: 8 bands in MPEG-1,
// 6 in MPEG-2.
struct MbpTables {
  Akl16s shortb[6 * 14];
  Akl16s mbp[6 * 2];
  MbpTables(int long_bands = -1, int adds = 0) {
    for (int r = 0; r < 6; ++r) {
      for (int b = 0; b < 14; ++b) shortb[r * 14 + b] = akl::mp3::kSfbShort[r][b];
      mbp[r * 2] = static_cast<Akl16s>(long_bands >= 0 ? long_bands : (r < 3 ? 6 : 8));
      mbp[r * 2 + 1] = static_cast<Akl16s>(adds);
    }
  }
};

struct Granule {
  std::vector<std::uint8_t> buf;
  std::size_t start = 0;  // absolute bit position of the Huffman data in buf
  AklMP3SideInfo si{};
  AklMP3FrameHeader h{};
  int hufSize = 0;
};

struct LibResult {
  Status status;
  std::array<Akl32s, 576> values;
  Akl32s bound;
  std::size_t end_pos;
};

LibResult RunLib(Granule& g, Form form, const MbpTables& mt = MbpTables()) {
  LibResult r;
  r.values.fill(kSentinel);
  r.bound = kSentinel;
  Akl8u* p = g.buf.data() + g.start / 8;
  Akl32s off = static_cast<Akl32s>(g.start % 8);
  const Akl16s* longb = &akl::mp3::kSfbLong[0][0];
  switch (form) {
    case Form::kPlain:
      r.status = aklsHuffmanDecode_MP3_1u32s(&p, &off, r.values.data(), &r.bound, &g.si, &g.h, g.hufSize);
      break;
    case Form::kSfb:
      r.status = aklsHuffmanDecodeSfb_MP3_1u32s(&p, &off, r.values.data(), &r.bound, &g.si, &g.h, g.hufSize, longb);
      break;
    case Form::kMbp:
      r.status = aklsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, r.values.data(), &r.bound, &g.si, &g.h, g.hufSize, longb,
                                                   mt.shortb, mt.mbp);
      break;
  }
  r.end_pos = static_cast<std::size_t>(p - g.buf.data()) * 8 + static_cast<std::size_t>(off);
  return r;
}

// Index of the first line where two spectra differ, -1 if none (readable failures).
int FirstDiff(const std::array<Akl32s, 576>& a, const std::array<Akl32s, 576>& b) {
  for (int i = 0; i < 576; ++i)
    if (a[static_cast<std::size_t>(i)] != b[static_cast<std::size_t>(i)]) return i;
  return -1;
}

int Bound(const Akl32s* v) {
  for (int i = 575; i >= 0; --i)
    if (v[i]) return i + 1;
  return 0;
}

// Reallocates buf to end with the aligned word after the one holding bit
// end - 1 (buf.data() is at least 4-byte aligned): the farthest a reader may
// look, so AddressSanitizer reports any read beyond it.
void CutAtReadingLimit(std::vector<std::uint8_t>& buf, std::size_t end) {
  const std::size_t n = end == 0 ? 4 : ((end - 1) / 32 + 2) * 4;
  std::vector<std::uint8_t> exact(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(n));
  buf.swap(exact);
}

// A random value that table `tab` can code.
Akl32s RandomValue(std::mt19937& rng, int tab) {
  const RefTables& t = RefTables::Get();
  const auto ut = static_cast<std::size_t>(tab);
  if (!t.present[ut]) return 0;
  int mag;
  if (t.linbits[ut] && rng() % 4 == 0)
    mag = 15 + static_cast<int>(rng() & ((1u << t.linbits[ut]) - 1));
  else
    mag = static_cast<int>(rng() % static_cast<unsigned>(t.xmax[ut] + 1));
  if (rng() % 3 == 0) mag = 0;
  return (rng() & 1) ? -mag : mag;
}

// Builds a random granule whose Huffman data decodes back to `want`.  The
// buffer ends with the aligned word after the data, which is as far as a
// reader may look, so AddressSanitizer catches any read beyond.
Granule RandomGranule(std::mt19937& rng, std::array<Akl32s, 576>& want, int* region1_out = nullptr) {
  static const int kTables[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                                16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};
  Granule g;
  g.h.id = static_cast<Akl32s>(rng() & 1);
  g.h.layer = 1;
  g.h.samplingFreqIndex = static_cast<Akl32s>(rng() % 3);
  AklMP3SideInfo& si = g.si;
  si.windowSwitchingFlag = static_cast<Akl32s>(rng() % 3 == 0);
  if (si.windowSwitchingFlag) {
    si.blockType = 1 + static_cast<Akl32s>(rng() % 3);
    si.mixedBlockFlag = static_cast<Akl32s>(rng() & 1);
    si.tableSelect[2] = 99;  // unused with window switching, never checked
  } else {
    si.region0Count = static_cast<Akl32s>(rng() % 16);
    si.region1Count = static_cast<Akl32s>(rng() % 8);
    if (si.region0Count + si.region1Count > 20) si.region1Count = 20 - si.region0Count;
    si.tableSelect[2] = kTables[rng() % 32];
  }
  si.tableSelect[0] = kTables[rng() % 32];
  si.tableSelect[1] = kTables[rng() % 32];
  si.bigValues = static_cast<Akl32s>(rng() % 289);
  if (rng() % 8 == 0) si.bigValues = 288;
  si.count1TableSelect = static_cast<Akl32s>(rng() & 1);
  const auto [region1, region2] = akl::test::SfbRegions(si, g.h, &akl::mp3::kSfbLong[0][0]);
  if (region1_out) *region1_out = region1;
  const int e = si.bigValues * 2;
  want.fill(0);
  for (int i = 0; i < e; ++i) {
    const int reg = i < region1 ? 0 : (i < region2 ? 1 : 2);
    want[static_cast<std::size_t>(i)] = RandomValue(rng, si.tableSelect[reg]);
  }
  // Quadruples: as many as fit below line 576 when the last one starts below 574.
  const int max_quads = e < 574 ? (574 - e + 3) / 4 : 0;
  const int quads = max_quads ? static_cast<int>(rng() % static_cast<unsigned>(max_quads + 1)) : 0;
  const int c1_end = e + 4 * quads;
  for (int i = e; i < c1_end; ++i) want[static_cast<std::size_t>(i)] = static_cast<Akl32s>(rng() % 3) - 1;
  // Stuffing after the data only decodes as nothing when no quadruple can follow.
  const int stuffing = (c1_end >= 574 || e >= 574) ? static_cast<int>(rng() % 40) : 0;

  g.start = (rng() % 4) * 8 + rng() % 8;
  g.buf.assign(8000, 0);
  akl::BitWriter w(g.buf.data() + g.start / 8, static_cast<int>(g.start % 8));
  long bits = akl::test::EncodeGranule(w, si, want.data(), region1, region2, c1_end);
  for (int i = 0; i < stuffing; ++i) w.Write(rng() & 1, 1);
  bits += stuffing;
  g.hufSize = static_cast<int>(bits);
  si.part23Length = g.hufSize + static_cast<Akl32s>(rng() % 50);
  const std::size_t end = g.start + static_cast<std::size_t>(bits);
  CutAtReadingLimit(g.buf, end);
  return g;
}

TEST(HuffmanDecode, RandomGranulesRoundTripInEveryForm) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int trial = 0; trial < 3000; ++trial) {
    std::array<Akl32s, 576> want;
    Granule g = RandomGranule(rng, want);
    SCOPED_TRACE(testing::Message() << "trial " << trial << " ws " << g.si.windowSwitchingFlag << " bt "
                                    << g.si.blockType << " bv " << g.si.bigValues << " tables "
                                    << g.si.tableSelect[0] << "," << g.si.tableSelect[1] << ","
                                    << g.si.tableSelect[2] << " huf " << g.hufSize);
    for (Form form : {Form::kPlain, Form::kSfb, Form::kMbp}) {
      const LibResult r = RunLib(g, form);
      ASSERT_EQ(r.status, kStsOk);
      ASSERT_EQ(FirstDiff(r.values, want), -1);
      ASSERT_EQ(r.bound, Bound(want.data()));
      ASSERT_EQ(r.end_pos, g.start + static_cast<std::size_t>(g.hufSize));
    }
  }
}

// Random bits as Huffman data: the library agrees with the bit-by-bit
// reference in status, values, bound and cursor, and never reads outside the
// data's last aligned word plus one.
TEST(HuffmanDecode, RandomBitsMatchReference) {
  std::mt19937 rng(akl::test::TestSeed() + 1);
  for (int trial = 0; trial < 3000; ++trial) {
    std::array<Akl32s, 576> unused;
    Granule g = RandomGranule(rng, unused);
    g.hufSize = static_cast<int>(rng() % 2000);
    g.si.part23Length = g.hufSize;
    const std::size_t end = g.start + static_cast<std::size_t>(g.hufSize);
    g.buf.resize(8000);
    CutAtReadingLimit(g.buf, end);
    for (auto& b : g.buf) b = static_cast<std::uint8_t>(rng() & (rng() & 1 ? 0xFF : 0x11));
    const auto [region1, region2] = akl::test::SfbRegions(g.si, g.h, &akl::mp3::kSfbLong[0][0]);
    const akl::test::RefResult ref = akl::test::RefDecode(g.buf, g.start, g.si, g.hufSize, region1, region2);
    const LibResult r = RunLib(g, Form::kSfb);
    SCOPED_TRACE(testing::Message() << "trial " << trial << " huf " << g.hufSize);
    ASSERT_EQ(r.status, ref.status);
    if (ref.status != kStsOk) {
      // The library feeds zero bits past the data's last word; the reference
      // (bounded by the same buffer) does the same, so the cursors agree.
      ASSERT_EQ(r.end_pos, ref.end_pos);
      continue;
    }
    ASSERT_EQ(FirstDiff(r.values, ref.values), -1);
    ASSERT_EQ(r.bound, ref.bound);
    ASSERT_EQ(r.end_pos, ref.end_pos);
  }
}

// A granule coded by hand: big values, then quadruples, with the given hufSize.
Granule Simple(int big_values, int table, int c1_table, const std::vector<Akl32s>& values, int quads, int extra_bits,
               int start = 13) {
  Granule g;
  g.h.id = 1;
  g.h.layer = 1;
  g.si.bigValues = big_values;
  g.si.tableSelect[0] = g.si.tableSelect[1] = g.si.tableSelect[2] = table;
  g.si.region0Count = 15;
  g.si.region1Count = 5;
  g.si.count1TableSelect = c1_table;
  std::array<Akl32s, 576> v{};
  std::copy(values.begin(), values.end(), v.begin());
  g.start = static_cast<std::size_t>(start);
  g.buf.assign(400, 0);
  akl::BitWriter w(g.buf.data() + g.start / 8, static_cast<int>(g.start % 8));
  const long bits = akl::test::EncodeGranule(w, g.si, v.data(), 576, 576, big_values * 2 + 4 * quads);
  g.hufSize = static_cast<int>(bits) + extra_bits;
  g.si.part23Length = g.hufSize;
  return g;
}

TEST(HuffmanDecode, Count1QuadrupleCrossingTheEndIsDropped) {
  // Two quadruples with table A; the second (0, 0, 0, 1) is 4 bits + 1 sign,
  // and hufSize ends 2 bits before its end.
  for (int c1 = 0; c1 < 2; ++c1) {
    SCOPED_TRACE(c1);
    Granule g = Simple(1, 1, c1, {1, 0, 1, -1, 0, 1, 0, 0, 0, -1}, 2, 0);
    g.hufSize -= 2;
    g.si.part23Length = g.hufSize;
    const LibResult r = RunLib(g, Form::kSfb);
    ASSERT_EQ(r.status, kStsOk);
    EXPECT_EQ(r.values[0], 1);
    EXPECT_EQ(r.values[3], -1);
    EXPECT_EQ(r.values[5], 1);
    EXPECT_EQ(r.values[9], 0);  // dropped
    EXPECT_EQ(r.bound, 6);
    EXPECT_EQ(r.end_pos, g.start + static_cast<std::size_t>(g.hufSize));
  }
}

TEST(HuffmanDecode, StuffingAfterFullSpectrumIsPassedOver) {
  // bigValues 288: no count1 decoding at all; 21 unused bits are skipped.
  std::vector<Akl32s> v(576, 0);
  v[575] = -3;
  Granule g = Simple(288, 15, 0, v, 0, 21);
  for (std::size_t i = 0; i < 21; ++i) g.buf[(g.start + static_cast<std::size_t>(g.hufSize) - 1 - i) / 8] |= 0;
  const LibResult r = RunLib(g, Form::kPlain);
  ASSERT_EQ(r.status, kStsOk);
  EXPECT_EQ(r.values[575], -3);
  EXPECT_EQ(r.bound, 576);
  EXPECT_EQ(r.end_pos, g.start + static_cast<std::size_t>(g.hufSize));
}

TEST(HuffmanDecode, EmptyTablesReadNothing) {
  for (int table : {0, 4, 14}) {
    SCOPED_TRACE(table);
    // 100 big-value pairs with an empty table, then one quadruple (1,0,0,0).
    std::vector<Akl32s> v(204, 0);
    v[200] = 1;
    Granule g = Simple(100, table, 1, v, 1, 0);
    EXPECT_EQ(g.hufSize, 5);  // table B code of 1000 and its sign
    const LibResult r = RunLib(g, Form::kSfb);
    ASSERT_EQ(r.status, kStsOk);
    EXPECT_EQ(r.values[200], 1);
    EXPECT_EQ(r.bound, 201);
    for (int i = 0; i < 200; ++i) ASSERT_EQ(r.values[static_cast<std::size_t>(i)], 0);
  }
}

TEST(HuffmanDecode, NonZeroBound) {
  struct Row {
    std::vector<Akl32s> values;
    int bound;
  } rows[] = {{{0, 0, 0, 0}, 0}, {{5, 0, 0, 0}, 1}, {{0, 0, 0, 0, 0, 0, 0, 2}, 8}, {{0, 1, 0, 0, 0, 0}, 2}};
  for (const Row& row : rows) {
    Granule g = Simple(static_cast<int>(row.values.size()) / 2, 13, 0, row.values, 0, 0);
    const LibResult r = RunLib(g, Form::kSfb);
    ASSERT_EQ(r.status, kStsOk);
    EXPECT_EQ(r.bound, row.bound);
  }
}

TEST(HuffmanDecode, ZeroHufSizeClearsAndKeepsCursor) {
  Granule g = Simple(10, 13, 0, std::vector<Akl32s>(20, 7), 0, 0);
  g.hufSize = 0;
  const LibResult r = RunLib(g, Form::kSfb);
  EXPECT_EQ(r.status, kStsOk);
  EXPECT_EQ(r.bound, 0);
  EXPECT_EQ(r.end_pos, g.start);
  for (Akl32s v : r.values) ASSERT_EQ(v, 0);
  // The table checks still run.
  g.si.tableSelect[2] = 32;
  EXPECT_EQ(RunLib(g, Form::kSfb).status, kStsMP3SideInfoErr);
  EXPECT_EQ(RunLib(g, Form::kMbp).status, kStsMP3SideInfoErr);
}

TEST(HuffmanDecode, BigValuesPastTheBudgetIsAnError) {
  Granule g = Simple(20, 15, 0, std::vector<Akl32s>(40, 3), 0, 0);
  const int big_bits = g.hufSize;
  g.hufSize = big_bits - 3;
  g.si.part23Length = g.hufSize;
  const LibResult r = RunLib(g, Form::kSfb);
  EXPECT_EQ(r.status, kStsErr);
  EXPECT_EQ(r.end_pos, g.start + static_cast<std::size_t>(big_bits));  // where the big values ended
  EXPECT_EQ(r.values[39], 3);
}

// Region 0 of window-switched granules: the tables differ between region 0
// (table 1, values 0..1) and region 1 (table 31 with large values), so a
// wrong boundary cannot decode back to the same values.
TEST(HuffmanDecode, WindowSwitchedRegionBoundaries) {
  struct Row {
    Form form;
    int id, block_type, mixed, long_bands, adds, boundary;
  } rows[] = {
      {Form::kSfb, 1, 1, 0, 8, 0, 36},  {Form::kSfb, 1, 2, 0, 8, 0, 36},  {Form::kSfb, 1, 2, 1, 8, 0, 36},
      {Form::kSfb, 1, 3, 0, 8, 0, 36},  {Form::kSfb, 0, 1, 0, 8, 0, 54},  {Form::kSfb, 0, 3, 0, 8, 0, 54},
      {Form::kSfb, 0, 2, 0, 8, 0, 36},  {Form::kSfb, 0, 2, 1, 8, 0, 36},  {Form::kPlain, 0, 3, 0, 8, 0, 54},
      {Form::kMbp, 1, 1, 0, 8, 0, 36},  {Form::kMbp, 0, 1, 0, 8, 0, 54},  {Form::kMbp, 0, 3, 0, 8, 0, 54},
      {Form::kMbp, 0, 2, 0, 8, 0, 36},  {Form::kMbp, 1, 2, 1, 8, 0, 36},  {Form::kMbp, 1, 2, 1, 8, 1, 40},  {Form::kMbp, 0, 2, 1, 8, 0, 54},
      {Form::kMbp, 1, 2, 1, 8, 2, 44},  {Form::kMbp, 1, 2, 1, 8, 3, 50},  {Form::kMbp, 1, 2, 1, 6, 0, 24},
      {Form::kMbp, 1, 2, 1, 6, 3, 36},  {Form::kMbp, 0, 2, 1, 6, 0, 36},  {Form::kMbp, 0, 2, 1, 6, 2, 48},
  };
  std::mt19937 rng(akl::test::TestSeed());
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "id " << row.id << " bt " << row.block_type << " mixed " << row.mixed
                                    << " L " << row.long_bands << " S " << row.adds);
    Granule g;
    g.h.id = row.id;
    g.h.layer = 1;
    g.h.samplingFreqIndex = 0;  // rows 0 (22.05 kHz) and 3 (44.1 kHz)
    g.si.windowSwitchingFlag = 1;
    g.si.blockType = row.block_type;
    g.si.mixedBlockFlag = row.mixed;
    g.si.tableSelect[0] = 1;
    g.si.tableSelect[1] = 31;
    g.si.bigValues = 60;
    std::array<Akl32s, 576> v{};
    for (int i = 0; i < 120; ++i)
      v[static_cast<std::size_t>(i)] = i < row.boundary ? static_cast<Akl32s>(rng() % 2) : 16 + static_cast<Akl32s>(rng() % 40);
    g.start = 5;
    g.buf.assign(2000, 0);
    akl::BitWriter w(g.buf.data(), 5);
    g.hufSize = static_cast<int>(akl::test::EncodeGranule(w, g.si, v.data(), row.boundary, 576, 120));
    g.si.part23Length = g.hufSize;
    const LibResult r = RunLib(g, row.form, MbpTables(row.long_bands, row.adds));
    ASSERT_EQ(r.status, kStsOk);
    EXPECT_EQ(FirstDiff(r.values, v), -1);
  }
}

// Hostile caller tables: band boundaries negative, decreasing or beyond the
// granule, partition counts at the int16 extremes.  Every form returns in
// bounded time with the output inside its 576 lines (a heap block of exactly
// that size) and the cursor hufSize bits on, as for any region split.
TEST(HuffmanDecode, HostileBandTablesStayInsideTheGranule) {
  std::mt19937 rng(akl::test::TestSeed());
  const Akl16s extremes[] = {-32768, -1, 0, 1, 22, 36, 191, 192, 575, 576, 577, 32767};
  for (int iter = 0; iter < 400; ++iter) {
    SCOPED_TRACE(iter);
    Granule g;
    g.h.id = static_cast<Akl32s>(rng() % 2);
    g.h.layer = 1;
    g.h.samplingFreqIndex = static_cast<Akl32s>(rng() % 3);
    g.si.windowSwitchingFlag = static_cast<Akl32s>(rng() % 2);
    g.si.blockType = g.si.windowSwitchingFlag ? 1 + static_cast<Akl32s>(rng() % 3) : 0;
    g.si.mixedBlockFlag = static_cast<Akl32s>(rng() % 2);
    g.si.region0Count = static_cast<Akl32s>(rng() % 16);
    g.si.region1Count = static_cast<Akl32s>(rng() % (21 - g.si.region0Count));
    for (auto& t : g.si.tableSelect) t = static_cast<Akl32s>(rng() % 32);
    g.si.bigValues = static_cast<Akl32s>(rng() % 289);
    g.start = 3;
    g.buf.assign(1200, 0);
    for (auto& b : g.buf) b = static_cast<std::uint8_t>(rng());
    g.hufSize = static_cast<int>(rng() % 4000);
    g.si.part23Length = g.hufSize;
    std::vector<Akl16s> longb(6 * 23), shortb(6 * 14), mbp(6 * 2);
    for (auto* t : {&longb, &shortb, &mbp})
      for (auto& v : *t) v = rng() % 3 == 0 ? extremes[rng() % 12] : static_cast<Akl16s>(rng());
    std::vector<Akl32s> out(576);  // exactly the contract's output
    Akl32s bound = -1;
    for (int form = 0; form < 2; ++form) {
      Akl8u* p = g.buf.data();
      Akl32s off = 3;
      const Status st =
          form == 0 ? aklsHuffmanDecodeSfb_MP3_1u32s(&p, &off, out.data(), &bound, &g.si, &g.h, g.hufSize, longb.data())
                    : aklsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, out.data(), &bound, &g.si, &g.h, g.hufSize,
                                                        longb.data(), shortb.data(), mbp.data());
      ASSERT_TRUE(st == kStsOk || st == kStsErr || st == kStsMP3SideInfoErr) << st;
      if (st == kStsOk) {
        EXPECT_EQ(static_cast<std::size_t>(p - g.buf.data()) * 8 + static_cast<std::size_t>(off),
                  3 + static_cast<std::size_t>(g.hufSize));
        EXPECT_GE(bound, 0);
        EXPECT_LE(bound, 576);
      }
    }
  }
}

// ---- argument checks ------------------------------------------------------

struct CheckRow {
  const char* what;
  void (*mutate)(Granule& g, Akl32s& off, int& null_arg);
  Status sfb, mbp;
};

TEST(HuffmanDecode, ArgumentChecksInOrder) {
  const CheckRow rows[] = {
      {"null output and bad offset", [](Granule&, Akl32s& off, int& n) { n = 2, off = 9; }, kStsNullPtr, kStsNullPtr},
      {"null byte pointer", [](Granule&, Akl32s&, int& n) { n = 9; }, kStsNullPtr, kStsNullPtr},
      {"null side info", [](Granule& g, Akl32s&, int& n) { n = 4, g.h.id = 3; }, kStsNullPtr, kStsNullPtr},
      {"null long table", [](Granule&, Akl32s&, int& n) { n = 6; }, kStsNullPtr, kStsNullPtr},
      {"offset 8", [](Granule& g, Akl32s& off, int&) { off = 8, g.h.id = 3; }, kStsBadArgErr, kStsBadArgErr},
      {"offset -1", [](Granule&, Akl32s& off, int&) { off = -1; }, kStsBadArgErr, kStsBadArgErr},
      {"hufSize above part23Length, id 2",
       [](Granule& g, Akl32s&, int&) { g.hufSize = g.si.part23Length + 1, g.h.id = 2; }, kStsBadArgErr,
       kStsMP3FrameHeaderErr},
      {"hufSize negative", [](Granule& g, Akl32s&, int&) { g.hufSize = -1; }, kStsBadArgErr, kStsMP3SideInfoErr},
      {"hufSize negative, bigValues 289", [](Granule& g, Akl32s&, int&) { g.hufSize = -1, g.si.bigValues = 289; },
       kStsBadArgErr, kStsMP3SideInfoErr},
      {"bigValues 289, id 2", [](Granule& g, Akl32s&, int&) { g.si.bigValues = 289, g.h.id = 2; },
       kStsMP3SideInfoErr, kStsMP3FrameHeaderErr},
      {"bigValues -1", [](Granule& g, Akl32s&, int&) { g.si.bigValues = -1; }, kStsMP3SideInfoErr, kStsMP3SideInfoErr},
      {"blockType 4, layer 2", [](Granule& g, Akl32s&, int&) { g.si.blockType = 4, g.h.layer = 2; },
       kStsMP3SideInfoErr, kStsMP3SideInfoErr},
      {"windowSwitchingFlag 2", [](Granule& g, Akl32s&, int&) { g.si.windowSwitchingFlag = 2; }, kStsMP3SideInfoErr,
       kStsMP3SideInfoErr},
      {"count1TableSelect 2, layer 2", [](Granule& g, Akl32s&, int&) { g.si.count1TableSelect = 2, g.h.layer = 2; },
       kStsMP3SideInfoErr, kStsMP3FrameHeaderErr},
      {"layer 3", [](Granule& g, Akl32s&, int&) { g.h.layer = 3; }, kStsMP3FrameHeaderErr, kStsMP3FrameHeaderErr},
      {"samplingFreqIndex 3", [](Granule& g, Akl32s&, int&) { g.h.samplingFreqIndex = 3; }, kStsMP3FrameHeaderErr,
       kStsMP3FrameHeaderErr},
      {"window switching with block type 0, layer 2",
       [](Granule& g, Akl32s&, int&) { g.si.windowSwitchingFlag = 1, g.si.blockType = 0, g.h.layer = 2; },
       kStsMP3FrameHeaderErr, kStsMP3SideInfoErr},
      {"window switching with block type 0, table 40",
       [](Granule& g, Akl32s&, int&) { g.si.windowSwitchingFlag = 1, g.si.blockType = 0, g.si.tableSelect[0] = 40; },
       kStsMP3SideInfoErr, kStsMP3SideInfoErr},
      {"table 32 in region 2", [](Granule& g, Akl32s&, int&) { g.si.tableSelect[2] = 32; }, kStsMP3SideInfoErr,
       kStsMP3SideInfoErr},
      {"table -1 in region 1", [](Granule& g, Akl32s&, int&) { g.si.tableSelect[1] = -1; }, kStsMP3SideInfoErr,
       kStsMP3SideInfoErr},
      {"table 32 in region 2 with window switching (unused)",
       [](Granule& g, Akl32s&, int&) { g.si.windowSwitchingFlag = 1, g.si.blockType = 2, g.si.tableSelect[2] = 32; },
       kStsOk, kStsOk},
      {"region counts 15 + 6", [](Granule& g, Akl32s&, int&) { g.si.region0Count = 15, g.si.region1Count = 6; },
       kStsMP3SideInfoErr, kStsMP3SideInfoErr},
      {"region0Count -1", [](Granule& g, Akl32s&, int&) { g.si.region0Count = -1; }, kStsMP3SideInfoErr,
       kStsMP3SideInfoErr},
      {"region counts 14 + 6", [](Granule& g, Akl32s&, int&) { g.si.region0Count = 14, g.si.region1Count = 6; },
       kStsOk, kStsOk},
  };
  for (const CheckRow& row : rows) {
    SCOPED_TRACE(row.what);
    for (Form form : {Form::kSfb, Form::kMbp}) {
      Granule g = Simple(4, 1, 0, {1, 0, 0, 1, 1, 1, 0, 0}, 0, 0, 11);
      Akl32s off = 3;
      int null_arg = -1;
      row.mutate(g, off, null_arg);
      std::array<Akl32s, 576> out;
      out.fill(kSentinel);
      Akl32s bound = kSentinel;
      Akl8u* p = g.buf.data() + 1;
      Akl8u* const p0 = p;
      Akl8u* null_byte = nullptr;
      MbpTables mt;
      const Akl16s* longb = &akl::mp3::kSfbLong[0][0];
      Akl8u** pp = null_arg == 0 ? nullptr : (null_arg == 9 ? &null_byte : &p);
      Akl32s* po = null_arg == 1 ? nullptr : &off;
      Akl32s* pd = null_arg == 2 ? nullptr : out.data();
      Akl32s* pb = null_arg == 3 ? nullptr : &bound;
      const AklMP3SideInfo* ps = null_arg == 4 ? nullptr : &g.si;
      const AklMP3FrameHeader* ph = null_arg == 5 ? nullptr : &g.h;
      const Akl16s* pl = null_arg == 6 ? nullptr : longb;
      const Status st = form == Form::kSfb
                            ? aklsHuffmanDecodeSfb_MP3_1u32s(pp, po, pd, pb, ps, ph, g.hufSize, pl)
                            : aklsHuffmanDecodeSfbMbp_MP3_1u32s(pp, po, pd, pb, ps, ph, g.hufSize, pl, mt.shortb, mt.mbp);
      EXPECT_EQ(st, form == Form::kSfb ? row.sfb : row.mbp) << (form == Form::kSfb ? "Sfb" : "Mbp");
      if (st != kStsOk) {
        EXPECT_EQ(p, p0);
        EXPECT_EQ(bound, kSentinel);
        EXPECT_EQ(out[0], kSentinel);
      }
    }
  }
  // The Mbp form's own tables are checked for null; the plain form has no table.
  Granule g = Simple(4, 1, 0, {1, 0, 0, 1}, 0, 0);
  Akl8u* p = g.buf.data();
  Akl32s off = 0, bound;
  std::array<Akl32s, 576> out;
  MbpTables mt;
  EXPECT_EQ(aklsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, out.data(), &bound, &g.si, &g.h, g.hufSize,
                                              &akl::mp3::kSfbLong[0][0], nullptr, mt.mbp),
            kStsNullPtr);
  EXPECT_EQ(aklsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, out.data(), &bound, &g.si, &g.h, g.hufSize,
                                              &akl::mp3::kSfbLong[0][0], mt.shortb, nullptr),
            kStsNullPtr);
  EXPECT_EQ(aklsHuffmanDecode_MP3_1u32s(&p, &off, out.data(), nullptr, &g.si, &g.h, g.hufSize), kStsNullPtr);
}

}  // namespace

namespace {

// Random records, headers and band tables (most values near their valid
// ranges, some anywhere): every call returns one of its statuses and, with
// the buffer cut at the reading limit, never reads outside it.
TEST(BitstreamRobustness, RandomSideInformationNeverCrashes) {
  std::mt19937 rng(akl::test::TestSeed() + 2);
  auto field = [&](int valid_max) {
    switch (rng() % 40) {
      case 0: return static_cast<Akl32s>(rng());
      case 1: return -static_cast<Akl32s>(rng() % 4);
      default: return static_cast<Akl32s>(rng() % static_cast<unsigned>(valid_max + 2));
    }
  };
  int decoded = 0, unpacked = 0;
  for (int trial = 0; trial < 20000; ++trial) {
    AklMP3SideInfo si;
    si.part23Length = field(4095);
    si.bigValues = field(288);
    si.globalGain = field(255);
    si.scalefacCompress = field(511);
    si.windowSwitchingFlag = field(1);
    si.blockType = field(3);
    si.mixedBlockFlag = field(1);
    for (Akl32s& t : si.tableSelect) t = field(31);
    for (Akl32s& t : si.subblockGain) t = field(7);
    si.region0Count = field(15);
    si.region1Count = field(7);
    si.preflag = field(1);
    si.scalefacScale = field(1);
    si.count1TableSelect = field(1);
    AklMP3FrameHeader h{};
    h.id = field(1);
    h.layer = rng() % 8 ? 1 : field(3);
    h.samplingFreqIndex = field(2);
    h.modeExtension = field(3);
    // hufSize stays below 8000 (or negative) so the buffer stays small.
    const int hufSize = rng() % 4 ? static_cast<int>(rng() % 3000) : (rng() % 2 ? -static_cast<int>(rng() % 5) : 7999);
    si.part23Length = rng() % 2 ? hufSize + static_cast<Akl32s>(rng() % 100) : si.part23Length;
    const Akl32s off0 = rng() % 16 ? static_cast<Akl32s>(rng() % 8) : field(7);
    const std::size_t start = (rng() % 4) * 8 + static_cast<std::size_t>(off0 & 7);
    const std::size_t end = start + static_cast<std::size_t>(hufSize > 0 ? hufSize : 0);
    std::vector<std::uint8_t> buf(((end + 31) / 32 + 1) * 4 + 4);
    for (auto& b : buf) b = static_cast<std::uint8_t>(rng());

    Akl16s shortb[6 * 14], mbp[6 * 2];
    for (int r = 0; r < 6; ++r) {
      for (int b = 0; b < 14; ++b) shortb[r * 14 + b] = akl::mp3::kSfbShort[r][b];
      mbp[r * 2] = static_cast<Akl16s>(rng() % 4 ? 8 : rng());
      mbp[r * 2 + 1] = static_cast<Akl16s>(rng() % 4 ? rng() % 12 : rng());
    }
    std::array<Akl32s, 576> out;
    Akl32s bound;
    for (int form = 0; form < 2; ++form) {
      Akl8u* p = buf.data() + start / 8;
      Akl32s off = off0;
      const Status st = form == 0 ? aklsHuffmanDecodeSfb_MP3_1u32s(&p, &off, out.data(), &bound, &si, &h, hufSize,
                                                                   &akl::mp3::kSfbLong[0][0])
                                  : aklsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, out.data(), &bound, &si, &h, hufSize,
                                                                      &akl::mp3::kSfbLong[0][0], shortb, mbp);
      ASSERT_TRUE(st == kStsOk || st == kStsErr || st == kStsBadArgErr || st == kStsMP3SideInfoErr ||
                  st == kStsMP3FrameHeaderErr)
          << st;
      if (st == kStsOk) {
        ++decoded;
        ASSERT_EQ(static_cast<std::size_t>(p - buf.data()) * 8 + static_cast<std::size_t>(off), end);
        ASSERT_LE(bound, 576);
        ASSERT_GE(bound, 0);
      }
    }
    // Scale factors read at most 36 values of 5 bits: 24 bytes and a word are enough.
    std::vector<std::uint8_t> sbuf(4 + 32);
    Akl8u* p = sbuf.data() + start / 8;
    Akl32s off = off0;
    Akl8s sf[40];
    Akl32s scfsi[4] = {field(1), field(1), field(1), field(1)};
    const Status st = aklsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, scfsi, &h, field(1), field(1));
    ASSERT_TRUE(st == kStsOk || st == kStsBadArgErr || st == kStsMP3SideInfoErr || st == kStsMP3FrameHeaderErr) << st;
    unpacked += st == kStsOk;
  }
  // Enough calls get past the checks to exercise the decoders.
  EXPECT_GT(decoded, 500);
  EXPECT_GT(unpacked, 500);
  std::printf("decoded %d, unpacked %d of 20000\n", decoded, unpacked);
}

}  // namespace
