// The decoding context: size analysis, the table's exact layout, level
// cutting, prefix conflicts and overwrites, statuses and their order,
// alignment, allocation failure and Free.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"
#include "books.hpp"
#include "vlc_test_util.hpp"

namespace {

using vlc_test::Entries;

// Lengths 1..11, two codes of the longest length: a complete prefix code.
std::vector<VlcCodeEntry> Ladder11() {
  return Entries({{0, "1"}, {1, "01"}, {2, "001"}, {3, "0001"}, {4, "00001"}, {5, "000001"}, {6, "0000001"},
                  {7, "00000001"}, {8, "000000001"}, {9, "0000000001"}, {10, "00000000001"}, {11, "00000000000"}});
}

int GetSize(const std::vector<VlcCodeEntry>& e, std::vector<int> sizes) {
  int size = -1;
  const Status st = aklsVLCDecodeGetSize_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                             static_cast<int>(sizes.size()), &size);
  return st == kStsOk ? size : st;
}

TEST(VlcDecodeSpec, SmallBookExactLayout) {
  const auto book = Entries({{0, "0"}, {1, "10"}, {2, "110"}, {3, "111"}});
  EXPECT_EQ(GetSize(book, {3}), 9 + 160);
  auto ctx = vlc_test::DecodeContext(book, {3}, 1);  // one byte past a boundary: built 63 bytes further
  const auto& f = vlc_test::DecodeFields(ctx.dec());
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&f) - ctx.raw, 63);
  EXPECT_EQ(f.tag, 0x434D4160u);
  EXPECT_EQ(f.ownedByLibrary, 0);
  EXPECT_EQ(f.maxLength, 3);
  EXPECT_EQ(f.entryWidth, 8);
  EXPECT_EQ(f.lengthFieldBits, 2);
  EXPECT_EQ(static_cast<const unsigned char*>(f.table), reinterpret_cast<const unsigned char*>(&f) + 64);
  // Header 3, then slots: leaf = value << 3 | used << 1 | 1.
  const std::vector<std::uint8_t> want = {3, 3, 3, 3, 3, 13, 13, 23, 31};
  EXPECT_EQ(std::vector<std::uint8_t>(static_cast<const std::uint8_t*>(f.table),
                                      static_cast<const std::uint8_t*>(f.table) + 9), want);
}

TEST(VlcDecodeSpec, LevelsAreCutAtTheLongestCode) {
  const auto book = Ladder11();
  // Root of 9 bits (513 entries) and one sub-table cut to 2 bits (5 entries);
  // 518 entries need 10 pointer bits plus the flag: 16-bit entries.
  EXPECT_EQ(GetSize(book, {9, 9}), 518 * 2 + 160);
  auto ctx = vlc_test::DecodeContext(book, {9, 9});
  const auto& f = vlc_test::DecodeFields(ctx.dec());
  const auto* t = static_cast<const std::uint16_t*>(f.table);
  EXPECT_EQ(f.entryWidth, 16);
  EXPECT_EQ(t[0], 9);
  EXPECT_EQ(t[1], 513 * 2);  // prefix 000000000 points at the sub-table
  EXPECT_EQ(t[513], 2);      // its header: the cut size
  EXPECT_EQ(GetSize(book, {4}), kStsVLCTableErr);
  EXPECT_EQ(GetSize(book, {4, 4}), kStsVLCTableErr);
  EXPECT_EQ(GetSize(book, {4, 4, 3}), GetSize(book, {4, 4, 3, 0, -7}));  // sizes after L are ignored
  EXPECT_EQ(GetSize(book, {4, -1, 9}), kStsVLCTableErr);
  EXPECT_EQ(GetSize(book, {4, 0, 9}), kStsVLCTableErr);
  int size = 0;
  const int none[] = {9};
  EXPECT_EQ(aklsVLCDecodeGetSize_32s(book.data(), 12, none, 0, &size), kStsVLCTableErr);
}

TEST(VlcDecodeSpec, WidthFollowsValuesAndEntryCount) {
  struct Row {
    std::vector<VlcCodeEntry> book;
    std::vector<int> sizes;
    int width;
  };
  const Row rows[] = {
      {Entries({{0, "0"}, {1, "1"}}), {1}, 8},
      {Entries({{-3, "0"}, {1, "1"}}), {1}, 8},
      {Entries({{32, "0"}, {1, "1"}}), {1}, 8},        // B 1, V 5: 8 bits
      {Entries({{-33, "0"}, {1, "1"}}), {1}, 16},      // V 6: 9 bits
      {Entries({{1000, "0"}, {1, "1"}}), {1}, 16},
      {Entries({{20000, "0"}, {1, "1"}}), {1}, 32},
      {Ladder11(), {11}, 16},                           // 2049 entries
      {Ladder11(), {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, 8},  // 3 + 10 x 3 = 33 entries
  };
  for (const auto& r : rows) {
    auto ctx = vlc_test::DecodeContext(r.book, r.sizes);
    EXPECT_EQ(vlc_test::DecodeFields(ctx.dec()).entryWidth, r.width) << r.book[0].value << " / " << r.sizes.size();
  }
}

TEST(VlcDecodeSpec, BadLengthsFail) {
  const int sizes[] = {8};
  const std::vector<std::vector<VlcCodeEntry>> bad = {
      {{1, 0, 33}}, {{1, 0, 0}}, {{1, 0, -2}}, {{1, 1, 1}, {2, 0, 0}}, {{1, 1, 1}, {2, 0, 40}}};
  int size = 0;
  for (const auto& b : bad) {
    EXPECT_EQ(aklsVLCDecodeGetSize_32s(b.data(), static_cast<int>(b.size()), sizes, 1, &size), kStsVLCTableErr);
  }
  const VlcCodeEntry one = {1, 0, 1};
  EXPECT_EQ(aklsVLCDecodeGetSize_32s(&one, 0, sizes, 1, &size), kStsVLCTableErr);
  EXPECT_EQ(aklsVLCDecodeGetSize_32s(&one, -1, sizes, 1, &size), kStsVLCTableErr);
}

TEST(VlcDecodeSpec, ConflictsOnlyThroughLeaves) {
  const auto short_first = Entries({{5, "0"}, {6, "01"}, {7, "1"}});
  const auto long_first = Entries({{6, "01"}, {5, "0"}, {7, "1"}});
  const int sizes[] = {1, 2};
  std::vector<unsigned char> mem(512);
  auto* ctx_ptr = reinterpret_cast<aklsVLCDecodeSpec_32s*>(mem.data());
  EXPECT_EQ(aklsVLCDecodeInit_32s(short_first.data(), 3, sizes, 2, ctx_ptr), kStsVLCTableErr);
  EXPECT_EQ(vlc_test::DecodeFields(ctx_ptr).tag, 0x434D4160u);  // built in part
  ASSERT_EQ(aklsVLCDecodeInit_32s(long_first.data(), 3, sizes, 2, ctx_ptr), kStsOk);
  // The short code's leaf replaced the pointer: "01" now decodes as "0".
  auto bits = vlc_test::Bits("01");
  Akl8u* p = bits.data();
  int off = 0;
  Akl16s v = 0;
  ASSERT_EQ(aklsVLCDecodeOne_1u16s(&p, &off, &v, ctx_ptr), kStsOk);
  EXPECT_EQ(v, 5);
  EXPECT_EQ(off, 1);
  // One level: never a conflict; later entries overwrite earlier ones.
  const int one_level[] = {2};
  ASSERT_EQ(aklsVLCDecodeInit_32s(short_first.data(), 3, one_level, 1, ctx_ptr), kStsOk);
  p = bits.data();
  off = 0;
  ASSERT_EQ(aklsVLCDecodeOne_1u16s(&p, &off, &v, ctx_ptr), kStsOk);
  EXPECT_EQ(v, 6);
  EXPECT_EQ(off, 2);
}

TEST(VlcDecodeSpec, InitAllocConflictHandsBackTheMemory) {
  const auto book = Entries({{5, "0"}, {6, "01"}, {7, "1"}});
  const int sizes[] = {1, 2};
  const int live = akl::test::LiveAllocations();
  aklsVLCDecodeSpec_32s* ctx_ptr = nullptr;
  EXPECT_EQ(aklsVLCDecodeInitAlloc_32s(book.data(), 3, sizes, 2, &ctx_ptr), kStsVLCTableErr);
  ASSERT_NE(ctx_ptr, nullptr);
  EXPECT_EQ(vlc_test::DecodeFields(ctx_ptr).ownedByLibrary, 1);
  EXPECT_EQ(akl::test::LiveAllocations(), live + 1);
  aklsVLCDecodeFree_32s(ctx_ptr);
  EXPECT_EQ(akl::test::LiveAllocations(), live);
}

TEST(VlcDecodeSpec, CheckOrder) {
  const auto good = Entries({{0, "0"}, {1, "1"}});
  const VlcCodeEntry bad = {0, 0, 40};
  const int sizes[] = {4};
  int size = 7;
  std::vector<unsigned char> mem(1024);
  auto* ctx_ptr = reinterpret_cast<aklsVLCDecodeSpec_32s*>(mem.data());
  aklsVLCDecodeSpec_32s* out = nullptr;
  EXPECT_EQ(aklsVLCDecodeGetSize_32s(nullptr, 2, sizes, 1, &size), kStsNullPtr);
  EXPECT_EQ(aklsVLCDecodeGetSize_32s(&bad, 1, nullptr, 1, &size), kStsNullPtr);
  EXPECT_EQ(aklsVLCDecodeGetSize_32s(&bad, 1, sizes, 1, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsVLCDecodeInit_32s(&bad, 1, sizes, 1, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsVLCDecodeInitAlloc_32s(&bad, 1, sizes, 1, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsVLCDecodeInit_32s(&bad, 1, sizes, 1, ctx_ptr), kStsVLCTableErr);
  EXPECT_EQ(aklsVLCDecodeInitAlloc_32s(&bad, 1, sizes, 1, &out), kStsVLCTableErr);
  EXPECT_EQ(size, 7);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(vlc_test::DecodeFields(ctx_ptr).tag, 0u);  // nothing written on failure
  // Tuple forms: the shape is reported before a table fault.
  EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(&bad, 1, sizes, 1, 0, 0, nullptr), kStsNullPtr);
  for (const auto& [elements, bits] : {std::pair{0, 4}, {2, 0}, {-1, 4}, {2, -3}, {3, 11}, {33, 1}}) {
    EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(&bad, 1, sizes, 1, elements, bits, &size), kStsBadArgErr);
    EXPECT_EQ(aklsVLCDecodeUTupleInit_32s(&bad, 1, sizes, 1, elements, bits, ctx_ptr), kStsBadArgErr);
    EXPECT_EQ(aklsVLCDecodeUTupleInitAlloc_32s(&bad, 1, sizes, 1, elements, bits, &out), kStsBadArgErr);
  }
  EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(&bad, 1, sizes, 1, 2, 4, &size), kStsVLCTableErr);
  EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(good.data(), 2, sizes, 1, 4, 8, &size), kStsOk);
  EXPECT_EQ(size, 3 + 160);  // the single level is cut to the 1-bit codes
}

TEST(VlcDecodeSpec, InitAllocSurvivesEveryAllocationFailure) {
  const auto book = Ladder11();
  const int sizes[] = {4, 4, 4};
  aklsVLCDecodeSpec_32s* ctx_ptr = nullptr;
  for (bool tuple : {false, true}) {
    const Status st = akl::test::SweepAllocationFailures(
        [&] {
          ctx_ptr = nullptr;
          const Status s = tuple ? aklsVLCDecodeUTupleInitAlloc_32s(book.data(), 12, sizes, 3, 2, 2, &ctx_ptr)
                                 : aklsVLCDecodeInitAlloc_32s(book.data(), 12, sizes, 3, &ctx_ptr);
          if (s == kStsMemAllocErr) {
            EXPECT_EQ(ctx_ptr, nullptr);
          }
          return s;
        },
        [&] { aklsVLCDecodeFree_32s(ctx_ptr); });
    ASSERT_EQ(st, kStsOk);
    EXPECT_EQ(vlc_test::DecodeFields(ctx_ptr).ownedByLibrary, 1);
    EXPECT_EQ(vlc_test::DecodeFields(ctx_ptr).numElements, tuple ? 2 : 1);
    aklsVLCDecodeUTupleFree_32s(ctx_ptr);
  }
}

TEST(VlcDecodeSpec, FreeClearsTheTag) {
  const auto book = Entries({{0, "0"}, {1, "1"}});
  auto ctx = vlc_test::DecodeContext(book, {1}, 9);
  const int live = akl::test::LiveAllocations();
  aklsVLCDecodeFree_32s(ctx.dec());
  EXPECT_EQ(akl::test::LiveAllocations(), live);  // caller memory stays with the caller
  aklsVLCDecodeFree_32s(nullptr);
  auto bits = vlc_test::Bits("0");
  Akl8u* p = bits.data();
  int off = 0;
  Akl16s v[2] = {};
  EXPECT_EQ(aklsVLCDecodeOne_1u16s(&p, &off, v, ctx.dec()), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCDecodeBlock_1u16s(&p, &off, v, 1, ctx.dec()), kStsVLCDataErr);
  EXPECT_EQ(aklsVLCDecodeEscBlock_AAC_1u16s(&p, &off, v, 2, ctx.dec()), kStsContextMismatch);
}

// Every offset of the raw pointer inside a 64-byte block: the context fits in
// the GetSize bytes (the block ends exactly there).
TEST(VlcDecodeSpec, GetSizeCoversEveryAlignment) {
  const auto book = Ladder11();
  const int size = GetSize(book, {3, 3, 3, 3});
  for (size_t off = 0; off < 64; ++off) {
    vlc_test::RawBlock b(off, static_cast<size_t>(size));
    const std::vector<int> sizes = {3, 3, 3, 3};
    ASSERT_EQ(aklsVLCDecodeInit_32s(book.data(), 12, sizes.data(), 4, b.dec()), kStsOk);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&vlc_test::DecodeFields(b.dec())) % 64, 0u);
  }
}

// Random bits through every real book, complete and with codes removed (so
// empty slots are reached), every split: the walk stays inside a table that
// ends exactly at the end of its heap block, and each code takes 1..L bits.
TEST(VlcDecodeSpec, WalkStaysInsideTheTable) {
  std::mt19937 rng(akl::test::TestSeed());
  for (const auto& b : vlc_test::LoadBooks()) {
    SCOPED_TRACE(b.name);
    auto full = vlc_test::SignedEntries(b);
    auto holed = full;
    for (size_t i = holed.size(); i-- > 0;) {
      if (rng() % 3 == 0 && holed.size() > 1) holed.erase(holed.begin() + static_cast<std::ptrdiff_t>(i));
    }
    for (const auto* book : {&full, &holed}) {
      const int max_len = vlc_test::MaxLength(*book);
      for (const std::vector<int>& sizes : {std::vector<int>{max_len}, {5, 5, 5, 5, 5}, {1, 7, 1, 7, 1, 7}}) {
        const int total = GetSize(*book, sizes);
        ASSERT_GT(total, 160);
        // The table alone: context at the block's start, table 64 bytes in.
        vlc_test::RawBlock blk(0, static_cast<size_t>(total - 160 + 64));
        ASSERT_EQ(aklsVLCDecodeInit_32s(book->data(), static_cast<int>(book->size()), sizes.data(),
                                        static_cast<int>(sizes.size()), blk.dec()), kStsOk);
        std::vector<Akl8u> noise(64);
        for (auto& x : noise) x = static_cast<Akl8u>(rng());
        Akl8u* p = noise.data();
        int off = 0;
        for (int i = 0; i < 200 && p < noise.data() + 48; ++i) {
          const Akl8u* before_p = p;
          const int before_off = off;
          Akl16s v;
          ASSERT_EQ(aklsVLCDecodeOne_1u16s(&p, &off, &v, blk.dec()), kStsOk);
          const long used = (p - before_p) * 8 + off - before_off;
          EXPECT_GE(used, 1);
          EXPECT_LE(used, max_len);
        }
      }
    }
  }
}

}  // namespace

namespace {

// A random complete prefix code of 10000 codes (grown by splitting random
// leaves), bigger than one counting chunk: GetSize counts every sub-table
// (checked against a plain set), Init finds no conflict and every code decodes.
TEST(VlcDecodeSpec, LargeBooksCountEverySubTable) {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<std::pair<std::uint32_t, int>> leaves = {{0, 1}, {1, 1}};
  while (leaves.size() < 10000) {
    const size_t i = rng() % leaves.size();
    if (leaves[i].second >= 22) continue;
    const auto [code, len] = leaves[i];
    leaves[i] = {code << 1, len + 1};
    leaves.push_back({(code << 1) | 1, len + 1});
  }
  std::vector<VlcCodeEntry> book;
  for (size_t i = 0; i < leaves.size(); ++i) {
    book.push_back({static_cast<int>(i), static_cast<Akl32s>(leaves[i].first), leaves[i].second});
  }
  const std::vector<int> sizes = {6, 5, 4, 7};
  int max_len = 0;
  for (const auto& e : book) max_len = std::max(max_len, e.length);
  std::int64_t entries = (1 << 6) + 1;
  int depth = 6;
  for (size_t level = 1; level < sizes.size() && depth < max_len; ++level) {
    std::set<std::uint32_t> prefixes;
    for (const auto& e : book) {
      if (e.length > depth) prefixes.insert((static_cast<std::uint32_t>(e.code) >> (e.length - depth)));
    }
    const int s = std::min(sizes[level], max_len - depth);
    entries += static_cast<std::int64_t>(prefixes.size()) * ((1 << s) + 1);
    depth += s;
  }
  int size = 0;
  ASSERT_EQ(aklsVLCDecodeGetSize_32s(book.data(), static_cast<int>(book.size()), sizes.data(), 4, &size), kStsOk);
  EXPECT_GT(entries, 32766);            // pointers need more than 15 bits:
  EXPECT_EQ(size - 160, entries * 4);  // 32-bit entries
  vlc_test::RawBlock blk(0, static_cast<size_t>(size));
  ASSERT_EQ(aklsVLCDecodeInit_32s(book.data(), static_cast<int>(book.size()), sizes.data(), 4, blk.dec()), kStsOk);
  for (size_t i = 0; i < book.size(); i += 7) {
    std::string bits;
    for (int b = book[i].length - 1; b >= 0; --b) bits += ((book[i].code >> b) & 1) ? '1' : '0';
    auto stream = vlc_test::Bits(bits, 0, 8);
    Akl8u* p = stream.data();
    int off = 0;
    Akl16s v = -1;
    ASSERT_EQ(aklsVLCDecodeOne_1u16s(&p, &off, &v, blk.dec()), kStsOk);
    EXPECT_EQ(v, static_cast<Akl16s>(i));
    EXPECT_EQ((p - stream.data()) * 8 + off, book[i].length);
  }
}

}  // namespace

namespace {

// Bits of `code` above `length` are not part of the code: the decoding table
// and the encoder's codes are the same with or without them.
TEST(VlcDecodeSpec, BitsAboveTheLengthAreIgnored) {
  auto clean = Ladder11();
  auto junk = clean;
  for (auto& e : junk) e.code |= static_cast<Akl32s>(0xA5A5A5A5u << e.length);
  const std::vector<int> sizes = {3, 3, 3, 3};
  EXPECT_EQ(GetSize(clean, sizes), GetSize(junk, sizes));
  auto a = vlc_test::DecodeContext(clean, sizes);
  auto b = vlc_test::DecodeContext(junk, sizes);
  const int bytes = GetSize(clean, sizes) - 160;
  EXPECT_EQ(std::memcmp(vlc_test::DecodeFields(a.dec()).table, vlc_test::DecodeFields(b.dec()).table,
                        static_cast<size_t>(bytes)), 0);
  auto enc = vlc_test::EncodeContext(junk);
  std::vector<Akl8u> buf(8, 0);
  Akl8u* p = buf.data();
  int off = 0;
  ASSERT_EQ(aklsVLCEncodeOne_16s1u(3, &p, &off, enc.enc()), kStsOk);
  EXPECT_EQ(vlc_test::BitString(buf.data(), 0, 8), "00011111");
}

}  // namespace
