// Encoding context, encoders and counters: layout, the word-at-a-time writing
// rules, escapes written bit for bit, value limits, statuses and their order.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"
#include "vlc_test_util.hpp"

namespace {

using vlc_test::BitString;
using vlc_test::Entries;

int Pair(int a, int b) { return a * 256 + b + 128; }

std::vector<VlcCodeEntry> AacPairBook() {
  return Entries({{Pair(0, 0), "0"}, {Pair(16, 1), "10"}, {Pair(-16, 16), "110"}, {Pair(2, -3), "111"}});
}

std::vector<VlcCodeEntry> Mp3PairBook() {
  return Entries({{Pair(0, 0), "1"},
                  {Pair(15, 0), "0100"}, {Pair(-15, 0), "0101"},
                  {Pair(15, 3), "011000"}, {Pair(15, -3), "011001"}, {Pair(-15, 3), "011010"}, {Pair(-15, -3), "011011"},
                  {Pair(0, 15), "0010"}, {Pair(0, -15), "0011"},
                  {Pair(1, 1), "00000"}, {Pair(1, -1), "00001"}, {Pair(-1, 1), "00010"}, {Pair(-1, -1), "00011"}});
}

TEST(VlcEncode, ContextLayout) {
  std::vector<VlcCodeEntry> book;
  for (int v = -15; v <= 15; ++v) book.push_back({v, v + 15, 5});
  int size = 0;
  ASSERT_EQ(aklsVLCEncodeGetSize_32s(book.data(), 31, &size), kStsOk);
  EXPECT_EQ(size, 128 + 8 * 32);
  auto ctx = vlc_test::EncodeContext(book);
  const auto& f = vlc_test::EncodeFields(ctx.enc());
  EXPECT_EQ(f.indexBits, 5);
  EXPECT_EQ(f.valueOffset, 15);
  EXPECT_EQ(f.ownedByLibrary, 0);
  EXPECT_EQ(f.tag, 0x434D415Fu);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(f.table), reinterpret_cast<const unsigned char*>(&f) + 64);
  EXPECT_EQ(f.table[0], 5u);        // length of -15
  EXPECT_EQ(f.table[32 + 30], 30u);  // code of 15
}

TEST(VlcEncode, PadsTheWordWithOnes) {
  auto ctx = vlc_test::EncodeContext(Entries({{4, "101"}, {5, "0"}}));
  for (int align = 0; align < 4; ++align) {
    std::vector<Akl8u> buf(8, 0x00);
    Akl8u* p = buf.data() + align;
    int off = 0;
    ASSERT_EQ(aklsVLCEncodeOne_16s1u(4, &p, &off, ctx.enc()), kStsOk);
    EXPECT_EQ(BitString(buf.data(), 0, 32), std::string(static_cast<size_t>(8 * align), '0') + "101" +
                                                std::string(static_cast<size_t>(29 - 8 * align), '1'));
    EXPECT_EQ(p, buf.data() + align);
    EXPECT_EQ(off, 3);
    EXPECT_EQ(buf[4], 0x00);  // the next word is not touched
  }
}

TEST(VlcEncode, StraddlingCodeKeepsTheNextWordsBits) {
  auto ctx = vlc_test::EncodeContext(Entries({{1, "1100110011"}, {2, "0"}}));
  std::vector<Akl8u> buf(8, 0x55);
  Akl8u* p = buf.data() + 3;
  int off = 4;  // bit 28 of the word
  ASSERT_EQ(aklsVLCEncodeOne_16s1u(1, &p, &off, ctx.enc()), kStsOk);
  EXPECT_EQ(BitString(buf.data(), 0, 64), BitString(std::vector<Akl8u>(8, 0x55).data(), 0, 28) + "1100" + "110011" +
                                              BitString(std::vector<Akl8u>(8, 0x55).data(), 38, 26));
  EXPECT_EQ(p, buf.data() + 4);
  EXPECT_EQ(off, 6);
}

TEST(VlcEncode, FirstOfDuplicateValuesWins) {
  auto ctx = vlc_test::EncodeContext(Entries({{7, "011"}, {7, "1"}, {8, "00"}}));
  std::vector<Akl8u> buf(4, 0);
  Akl8u* p = buf.data();
  int off = 0;
  ASSERT_EQ(aklsVLCEncodeOne_16s1u(7, &p, &off, ctx.enc()), kStsOk);
  EXPECT_EQ(off, 3);
  EXPECT_EQ(BitString(buf.data(), 0, 3), "011");
}

// The block encoder writes exactly what repeated single encodes write, tail
// included, and its count is the cursor's advance.
TEST(VlcEncode, BlockMatchesRepeatedOne) {
  std::mt19937 rng(akl::test::TestSeed());
  // Codes of lengths 1..32: value v has v + 1 bits, the last two share 32.
  std::vector<VlcCodeEntry> book;
  for (int v = 0; v < 32; ++v) {
    const int len = v < 31 ? v + 1 : 32;
    book.push_back({v, static_cast<Akl32s>(v < 31 ? 1u : 0u), len});
  }
  auto ctx = vlc_test::EncodeContext(book);
  for (int trial = 0; trial < 200; ++trial) {
    const int len = 1 + static_cast<int>(rng() % 12);
    std::vector<Akl16s> src;
    for (int i = 0; i < len; ++i) src.push_back(static_cast<Akl16s>(rng() % 32));
    const int align = static_cast<int>(rng() % 4);
    const int offset = static_cast<int>(rng() % 8);
    std::vector<Akl8u> a(64), b;
    for (auto& x : a) x = static_cast<Akl8u>(rng());
    b = a;
    Akl8u* pa = a.data() + align;
    int oa = offset;
    ASSERT_EQ(aklsVLCEncodeBlock_16s1u(src.data(), len, &pa, &oa, ctx.enc()), kStsOk);
    Akl8u* pb = b.data() + align;
    int ob = offset;
    for (Akl16s v : src) ASSERT_EQ(aklsVLCEncodeOne_16s1u(v, &pb, &ob, ctx.enc()), kStsOk);
    EXPECT_EQ(a, b);
    EXPECT_EQ(pa - a.data(), pb - b.data());
    EXPECT_EQ(oa, ob);
    int count = 0;
    ASSERT_EQ(aklsVLCCountBits_16s32s(src.data(), len, &count, ctx.enc()), kStsOk);
    EXPECT_EQ((pa - a.data()) * 8 + oa - align * 8 - offset, count);
  }
}

TEST(VlcEncode, AacEscapesBitForBit) {
  auto ctx = vlc_test::EncodeContext(AacPairBook());
  // The rest of the last word is ones, unless the last piece ran into it
  // from the word before: then that word's old bits stay.
  struct Row {
    std::vector<Akl16s> src;
    std::string bits;
    bool ones_after;
  };
  const Row rows[] = {
      {{21, 1}, "10" "00101", true},
      {{4099, 1}, "10" "11111111" "0" "000000000011", false},  // the escape runs from bit 15 to 35
      {{-8191, 16}, "110" "11111111" "0" "111111111111" "0" "0000", true},
      {{-32, 31, 2, -3}, "110" "10" "00000" "0" "1111" "111", true},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.bits);
    std::vector<Akl8u> buf(16, 0);
    Akl8u* p = buf.data() + 1;
    int off = 5;
    ASSERT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(r.src.data(), static_cast<int>(r.src.size()), &p, &off, ctx.enc()), kStsOk);
    const size_t end = 13 + r.bits.size();
    EXPECT_EQ(BitString(buf.data(), 13, r.bits.size()), r.bits);
    EXPECT_EQ(static_cast<size_t>(p - buf.data()) * 8 + static_cast<size_t>(off), end);
    EXPECT_EQ(BitString(buf.data(), end, 32 - end % 32), std::string(32 - end % 32, r.ones_after ? '1' : '0'));
    int count = 0;
    ASSERT_EQ(aklsVLCCountEscBits_AAC_16s32s(r.src.data(), static_cast<int>(r.src.size()), &count, ctx.enc()), kStsOk);
    EXPECT_EQ(count, static_cast<int>(r.bits.size()));
  }
}

TEST(VlcEncode, Mp3EscapesBitForBit) {
  auto ctx = vlc_test::EncodeContext(Mp3PairBook());
  struct Row {
    std::vector<Akl16s> src;
    int linbits;
    std::string bits;
  };
  const Row rows[] = {
      {{-18, 0}, 4, "010" "0011" "1"},
      {{30, -3}, 4, "0110" "1111" "0" "1"},
      {{0, 16}, 6, "001" "000001" "0"},
      {{-1, -1, 15, 0}, 0, "00011" "010" "0"},
      {{15, 3}, 13, "0110" "0000000000000" "0" "0"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.bits);
    std::vector<Akl8u> buf(16, 0);
    Akl8u* p = buf.data();
    int off = 2;
    ASSERT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(r.src.data(), static_cast<int>(r.src.size()), r.linbits, &p, &off,
                                              ctx.enc()), kStsOk);
    EXPECT_EQ(BitString(buf.data(), 2, r.bits.size()), r.bits);
    EXPECT_EQ(static_cast<size_t>(p - buf.data()) * 8 + static_cast<size_t>(off), 2 + r.bits.size());
    int count = 0;
    ASSERT_EQ(aklsVLCCountEscBits_MP3_16s32s(r.src.data(), static_cast<int>(r.src.size()), r.linbits, &count,
                                             ctx.enc()), kStsOk);
    EXPECT_EQ(count, static_cast<int>(r.bits.size()));
  }
}

TEST(VlcEncode, EscapeValueLimits) {
  auto aac = vlc_test::EncodeContext(AacPairBook());
  auto mp3 = vlc_test::EncodeContext(Mp3PairBook());
  std::vector<Akl8u> buf(16, 0x33);
  const auto untouched = buf;
  Akl8u* p = buf.data();
  int off = 0;
  int count = -1;
  const Akl16s aac_ok[] = {8191, -8191}, aac_bad[] = {0, 0, 8192, 0}, aac_min[] = {-32768, 0};
  EXPECT_EQ(aklsVLCCountEscBits_AAC_16s32s(aac_ok, 2, &count, aac.enc()), kStsOk);
  EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(aac_bad, 4, &p, &off, aac.enc()), kStsVLCEscValueErr);
  EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(aac_min, 2, &p, &off, aac.enc()), kStsVLCEscValueErr);
  EXPECT_EQ(aklsVLCCountEscBits_AAC_16s32s(aac_bad, 4, &count, aac.enc()), kStsVLCEscValueErr);
  // An element past the even count is not looked at.
  EXPECT_EQ(aklsVLCCountEscBits_AAC_16s32s(aac_bad, 3, &count, aac.enc()), kStsOk);
  for (int linbits : {0, 4, 13}) {
    SCOPED_TRACE(linbits);
    const auto top = static_cast<Akl16s>(15 + (1 << linbits) - 1);
    const Akl16s ok[] = {top, static_cast<Akl16s>(-top)};
    const Akl16s bad[] = {0, static_cast<Akl16s>(-(top + 1))};
    EXPECT_EQ(aklsVLCCountEscBits_MP3_16s32s(ok, 2, linbits, &count, mp3.enc()), kStsOk);
    EXPECT_EQ(aklsVLCCountEscBits_MP3_16s32s(bad, 2, linbits, &count, mp3.enc()), kStsVLCEscValueErr);
    EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(bad, 2, linbits, &p, &off, mp3.enc()), kStsVLCEscValueErr);
  }
  for (int linbits : {-1, 14, 100}) {
    const Akl16s zero[] = {0, 0};
    EXPECT_EQ(aklsVLCCountEscBits_MP3_16s32s(zero, 2, linbits, &count, mp3.enc()), kStsVLCLinbitsErr);
    EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(zero, 2, linbits, &p, &off, mp3.enc()), kStsVLCLinbitsErr);
  }
  EXPECT_EQ(buf, untouched);
  EXPECT_EQ(p, buf.data());
  EXPECT_EQ(off, 0);
}

// Every encoder stores nothing past the aligned word that holds the last bit
// its counter reports, also when a value the book lacks (length 0) follows
// codes that end exactly on a word boundary.  The output is a heap block of
// exactly those words, so a store past it is an AddressSanitizer report.
TEST(VlcEncode, WritesNoWordPastTheCount) {
  auto plain = vlc_test::EncodeContext(Entries({{0, "0"}, {2, "1"}}));  // 1 is missing
  auto aac = vlc_test::EncodeContext(AacPairBook());
  auto mp3 = vlc_test::EncodeContext(Mp3PairBook());
  enum Kind { kPlain, kAac, kMp3 };
  struct Row {
    const char* what;
    Kind kind;
    std::vector<Akl16s> src;
    int bits;
  };
  std::vector<Akl16s> zeros_then_missing(32, 0);
  zeros_then_missing.push_back(1);
  std::vector<Akl16s> aac_pairs(64, 0);  // 32 one-bit pairs, then a pair the book lacks
  aac_pairs.insert(aac_pairs.end(), {1, 1});
  std::vector<Akl16s> mp3_pairs(32, 1);  // 16 five-bit pairs (1, -1 alternating), then a missing pair
  for (size_t i = 1; i < mp3_pairs.size(); i += 2) mp3_pairs[i] = -1;
  mp3_pairs.insert(mp3_pairs.end(), {2, 2});
  const Row rows[] = {
      {"plain: 32 one-bit codes, then a missing value", kPlain, zeros_then_missing, 32},
      {"plain: only a missing value", kPlain, {1}, 0},
      {"AAC escape: 32 one-bit pairs, then a missing pair", kAac, aac_pairs, 32},
      {"MP3 escape: 16 five-bit pairs, then a missing pair", kMp3, mp3_pairs, 80},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.what);
    const int len = static_cast<int>(r.src.size());
    int count = -1;
    switch (r.kind) {
      case kPlain: ASSERT_EQ(aklsVLCCountBits_16s32s(r.src.data(), len, &count, plain.enc()), kStsOk); break;
      case kAac: ASSERT_EQ(aklsVLCCountEscBits_AAC_16s32s(r.src.data(), len, &count, aac.enc()), kStsOk); break;
      case kMp3: ASSERT_EQ(aklsVLCCountEscBits_MP3_16s32s(r.src.data(), len, 4, &count, mp3.enc()), kStsOk); break;
    }
    ASSERT_EQ(count, r.bits);
    vlc_test::RawBlock out(0, static_cast<size_t>(4 * ((count + 31) / 32) + (count == 0 ? 4 : 0)));
    Akl8u* p = out.raw;
    int off = 0;
    switch (r.kind) {
      case kPlain: ASSERT_EQ(aklsVLCEncodeBlock_16s1u(r.src.data(), len, &p, &off, plain.enc()), kStsOk); break;
      case kAac: ASSERT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(r.src.data(), len, &p, &off, aac.enc()), kStsOk); break;
      case kMp3: ASSERT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(r.src.data(), len, 4, &p, &off, mp3.enc()), kStsOk); break;
    }
    EXPECT_EQ((p - out.raw) * 8 + off, count);
  }
}

// --- statuses ------------------------------------------------------------

TEST(VlcEncode, BuildStatuses) {
  const auto book = Entries({{1, "1"}, {2, "0"}});
  int size = 5;
  std::vector<unsigned char> mem(512);
  auto* spec = reinterpret_cast<aklsVLCEncodeSpec_32s*>(mem.data());
  aklsVLCEncodeSpec_32s* out = nullptr;
  EXPECT_EQ(aklsVLCEncodeGetSize_32s(nullptr, 2, &size), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeGetSize_32s(book.data(), 0, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeInit_32s(book.data(), 0, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeInitAlloc_32s(nullptr, 0, &out), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeGetSize_32s(book.data(), 0, &size), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCEncodeInit_32s(book.data(), -1, spec), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCEncodeInitAlloc_32s(book.data(), 0, &out), kStsVLCDataErr);
  const auto wide = Entries({{-32768, "1"}, {1 << 30, "0"}});
  EXPECT_EQ(aklsVLCEncodeGetSize_32s(wide.data(), 2, &size), kStsVLCDataErr);
  EXPECT_EQ(size, 5);
  EXPECT_EQ(out, nullptr);

  const Status st = akl::test::SweepAllocationFailures([&] { out = nullptr; return aklsVLCEncodeInitAlloc_32s(book.data(), 2, &out); },
                                                       [&] { aklsVLCEncodeFree_32s(out); });
  ASSERT_EQ(st, kStsOk);
  EXPECT_EQ(vlc_test::EncodeFields(out).ownedByLibrary, 1);
  const int live = akl::test::LiveAllocations();
  aklsVLCEncodeFree_32s(out);
  EXPECT_EQ(akl::test::LiveAllocations(), live - 1);
  aklsVLCEncodeFree_32s(nullptr);
}

TEST(VlcEncode, UseStatusesInCheckOrder) {
  auto good = vlc_test::EncodeContext(Mp3PairBook());
  auto freed = vlc_test::EncodeContext(Mp3PairBook());
  aklsVLCEncodeFree_32s(freed.enc());
  const auto* bad = freed.enc();
  const Akl16s src[2] = {0, 0};
  std::vector<Akl8u> buf(8, 0x77);
  Akl8u* p = buf.data() + 2;
  Akl8u* null_stream = nullptr;
  int off = 3, bad_off = 8, neg_off = -1;
  int count = -3;

  EXPECT_EQ(aklsVLCEncodeOne_16s1u(0, nullptr, &off, good.enc()), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeOne_16s1u(0, &null_stream, &off, good.enc()), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeOne_16s1u(0, &p, nullptr, good.enc()), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeOne_16s1u(0, &p, &bad_off, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeOne_16s1u(0, &p, &off, bad), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCEncodeOne_16s1u(0, &p, &bad_off, good.enc()), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCEncodeOne_16s1u(0, &p, &neg_off, good.enc()), kStsVLCDataErr);

  EXPECT_EQ(aklsVLCEncodeBlock_16s1u(nullptr, 2, &p, &off, good.enc()), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeBlock_16s1u(src, 2, &p, &off, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsVLCEncodeBlock_16s1u(src, 2, &p, &off, bad), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCEncodeBlock_16s1u(src, 2, &p, &bad_off, good.enc()), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCEncodeBlock_16s1u(src, 0, &p, &off, good.enc()), kStsOk);  // nothing to write

  EXPECT_EQ(aklsVLCCountBits_16s32s(nullptr, 0, &count, bad), kStsNullPtr);
  EXPECT_EQ(aklsVLCCountBits_16s32s(src, 2, nullptr, good.enc()), kStsNullPtr);
  EXPECT_EQ(aklsVLCCountBits_16s32s(src, 0, &count, bad), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCCountBits_16s32s(src, 2, &count, bad), kStsVLCDataErr);

  for (int o : {-1, 8}) {
    int oo = o;
    EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(nullptr, 2, &p, &oo, bad), kStsNullPtr);
    EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(src, 2, &p, &oo, bad), kStsBitOffsetErr);
    EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(src, 2, 99, &null_stream, &oo, bad), kStsNullPtr);
    EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(src, 2, 99, &p, &oo, bad), kStsBitOffsetErr);
  }
  EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(src, 2, 99, &p, &off, bad), kStsVLCLinbitsErr);
  EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(src, 2, 4, &p, &off, bad), kStsContextMismatch);
  EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(src, 2, &p, &off, bad), kStsContextMismatch);
  const Akl16s huge[2] = {30000, 0};
  EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(huge, 2, &p, &off, bad), kStsContextMismatch);  // tag before values

  EXPECT_EQ(aklsVLCCountEscBits_AAC_16s32s(src, 2, nullptr, bad), kStsNullPtr);
  EXPECT_EQ(aklsVLCCountEscBits_AAC_16s32s(huge, 2, &count, bad), kStsContextMismatch);
  EXPECT_EQ(aklsVLCCountEscBits_MP3_16s32s(nullptr, 2, 99, &count, bad), kStsNullPtr);
  EXPECT_EQ(aklsVLCCountEscBits_MP3_16s32s(huge, 2, 99, &count, bad), kStsVLCLinbitsErr);
  EXPECT_EQ(aklsVLCCountEscBits_MP3_16s32s(huge, 2, 4, &count, bad), kStsContextMismatch);
  EXPECT_EQ(aklsVLCCountEscBits_MP3_16s32s(src, 1, 4, &count, good.enc()), kStsOk);
  EXPECT_EQ(count, 0);

  EXPECT_EQ(buf, std::vector<Akl8u>(8, 0x77));
  EXPECT_EQ(p, buf.data() + 2);
  EXPECT_EQ(off, 3);
}

}  // namespace

namespace {

// A value the book lacks has length 0: nothing is written but the rest of the
// cursor's word, which becomes ones; values outside the book's range wrap.
TEST(VlcEncode, ValuesMissingFromTheBook) {
  auto ctx = vlc_test::EncodeContext(Entries({{0, "10"}, {3, "0"}}));  // 1 and 2 are missing
  std::vector<Akl8u> buf(8, 0);
  Akl8u* p = buf.data() + 1;
  int off = 3;
  ASSERT_EQ(aklsVLCEncodeOne_16s1u(2, &p, &off, ctx.enc()), kStsOk);
  EXPECT_EQ(p, buf.data() + 1);
  EXPECT_EQ(off, 3);
  EXPECT_EQ(BitString(buf.data(), 0, 32), std::string(11, '0') + std::string(21, '1'));
  int count = -1;
  const Akl16s odd[] = {2, 1, 0, 8, 4};  // k = 3: 8 wraps onto 0, 4 is an unfilled slot
  ASSERT_EQ(aklsVLCCountBits_16s32s(odd, 5, &count, ctx.enc()), kStsOk);
  EXPECT_EQ(count, 4);
}

}  // namespace
