// Decoders: statuses and their order, the escape rules on hand-made bit
// strings, tuple sign bits, signed and unsigned values, codes across word
// boundaries, and what a failing call leaves behind.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "aklac.h"
#include "vlc_test_util.hpp"

namespace {

using vlc_test::Bits;
using vlc_test::Entries;

// A small signed pair book in the escape decoders' packing (first * 256 +
// second + 128); the Layer III form includes the sign bits in the codes.
int Pair(int a, int b) { return a * 256 + b + 128; }

std::vector<VlcCodeEntry> AacPairBook() {
  return Entries({{Pair(0, 0), "0"}, {Pair(16, 1), "10"}, {Pair(-16, 16), "110"}, {Pair(2, -3), "111"}});
}

// (15, 0) and (15, 3) with their signs in the code, (0, 15), (1, 1).
std::vector<VlcCodeEntry> Mp3PairBook() {
  return Entries({{Pair(0, 0), "1"},
                  {Pair(15, 0), "0100"}, {Pair(-15, 0), "0101"},
                  {Pair(15, 3), "011000"}, {Pair(15, -3), "011001"}, {Pair(-15, 3), "011010"}, {Pair(-15, -3), "011011"},
                  {Pair(0, 15), "0010"}, {Pair(0, -15), "0011"},
                  {Pair(1, 1), "00000"}, {Pair(1, -1), "00001"}, {Pair(-1, 1), "00010"}, {Pair(-1, -1), "00011"}});
}

struct Cursor {
  std::vector<Akl8u> bytes;
  Akl8u* p;
  int off;
  Cursor(std::vector<Akl8u> b, int align = 0, int offset = 0) : bytes(std::move(b)), p(bytes.data() + align), off(offset) {}
  long Bit() const { return (p - bytes.data()) * 8 + off; }
};

TEST(VlcDecode, AacEscapeLengths) {
  auto ctx = vlc_test::DecodeContext(AacPairBook(), {2, 2});
  struct Row {
    std::string bits;
    std::vector<Akl16s> want;
  };
  const Row rows[] = {
      {"10" "00101", {21, 1}},                          // prefix 0: 16 + 0101
      {"10" "11111111" "0" "000000000011", {4099, 1}},  // eight ones: 4096 + 12-bit word
      {"110" "10" "00000" "0" "1111", {-32, 31}},         // first's escape before second's
      {"111" "0", {2, -3, 0, 0}},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.bits);
    Cursor c(Bits(r.bits));
    std::vector<Akl16s> got(r.want.size());
    ASSERT_EQ(aklsVLCDecodeEscBlock_AAC_1u16s(&c.p, &c.off, got.data(), static_cast<int>(got.size()), ctx.dec()),
              kStsOk);
    EXPECT_EQ(got, r.want);
    EXPECT_EQ(c.Bit(), static_cast<long>(r.bits.size()));
  }
}

TEST(VlcDecode, AacEscapeOfNineOnesFails) {
  // Pair (2, -3), then (16, 1) with an escape of nine ones; the cursor starts
  // at byte 1, bit 3.
  auto ctx = vlc_test::DecodeContext(AacPairBook(), {3});
  Cursor c(Bits("111" "10" "111111111" "00000000000", 8 + 3), 1, 3);
  Akl16s out[4] = {9, 9, 9, 9};
  EXPECT_EQ(aklsVLCDecodeEscBlock_AAC_1u16s(&c.p, &c.off, out, 4, ctx.dec()), kStsVLCDataErr);
  EXPECT_EQ(std::vector<Akl16s>(out, out + 4), (std::vector<Akl16s>{2, -3, 9, 9}));  // the failing pair is not written
  EXPECT_EQ(c.p, c.bytes.data() + 1);
  EXPECT_EQ(c.off, 3);

  // The tuple form: unsigned (2, 3) with signs 0 1, then (16, 1) with signs 0 0.
  auto tctx = vlc_test::TupleContext(Entries({{(2 << 5) | 3, "11"}, {(16 << 5) | 1, "10"}, {0, "0"}}), {2}, 2, 5);
  c = Cursor(Bits("11" "0" "1" "10" "0" "0" "111111111" "0000", 8 + 3), 1, 3);
  Akl16s tout[4] = {9, 9, 9, 9};
  EXPECT_EQ(aklsVLCDecodeUTupleEscBlock_AAC_1u16s(&c.p, &c.off, tout, 4, tctx.dec()), kStsVLCDataErr);
  EXPECT_EQ(std::vector<Akl16s>(tout, tout + 4), (std::vector<Akl16s>{2, -3, 9, 9}));
  EXPECT_EQ(c.p, c.bytes.data() + 1);
  EXPECT_EQ(c.off, 3);
}

TEST(VlcDecode, Mp3LinbitsEscapes) {
  auto ctx = vlc_test::DecodeContext(Mp3PairBook(), {3, 3});
  struct Row {
    std::string bits;
    int linbits;
    std::vector<Akl16s> want;
  };
  const Row rows[] = {
      // (15, 0): Huffman 010, its sign steps behind the linbits: 0011 then sign 1.
      {"010" "0011" "1", 4, {-18, 0}},
      // (15, 3): Huffman 0110, x's linbits 1111 and sign 0, then y's sign 1.
      {"0110" "1111" "0" "1", 4, {30, -3}},
      // (0, 15): Huffman 001, y's linbits and sign.
      {"001" "000001" "0", 6, {0, 16}},
      {"00011", 4, {-1, -1}},
      {"010" "1", 0, {-15, 0}},  // linbits 0: only the sign follows
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.bits);
    Cursor c(Bits(r.bits, 5), 0, 5);
    Akl16s got[2];
    ASSERT_EQ(aklsVLCDecodeEscBlock_MP3_1u16s(&c.p, &c.off, r.linbits, got, 2, ctx.dec()), kStsOk);
    EXPECT_EQ(std::vector<Akl16s>(got, got + 2), r.want);
    EXPECT_EQ(c.Bit(), 5 + static_cast<long>(r.bits.size()));
  }
}

TEST(VlcDecode, Mp3TupleLinbits) {
  // Unsigned pairs of 4-bit magnitudes: (15, 3) "01", (0, 15) "001", (0, 0) "1", (1, 0) "000".
  auto ctx = vlc_test::TupleContext(Entries({{0xF3, "01"}, {0x0F, "001"}, {0x00, "1"}, {0x10, "000"}}), {1, 1, 1}, 2, 4);
  Cursor c(Bits("01" "0111" "1" "0" "001" "0000" "0" "1" "000" "1"));
  Akl16s got[8];
  ASSERT_EQ(aklsVLCDecodeUTupleEscBlock_MP3_1u16s(&c.p, &c.off, 4, got, 8, ctx.dec()), kStsOk);
  EXPECT_EQ(std::vector<Akl16s>(got, got + 8), (std::vector<Akl16s>{-22, 3, 0, 15, 0, 0, -1, 0}));
  EXPECT_EQ(c.Bit(), 21);
}

TEST(VlcDecode, TupleSignBits) {
  // Quadruples of 2-bit magnitudes; (1, 0, 2, 0) is coded "10".
  const int q = (1 << 6) | (2 << 2);
  auto ctx = vlc_test::TupleContext(Entries({{q, "10"}, {0, "0"}, {0xFF, "11"}}), {2}, 4, 2);
  Cursor c(Bits("10" "1" "0" "0" "11" "0101"));
  Akl16s got[4];
  ASSERT_EQ(aklsVLCDecodeUTupleOne_1u16s(&c.p, &c.off, got, ctx.dec()), kStsOk);
  EXPECT_EQ(std::vector<Akl16s>(got, got + 4), (std::vector<Akl16s>{-1, 0, 2, 0}));
  EXPECT_EQ(c.Bit(), 4);  // code plus two sign bits
  ASSERT_EQ(aklsVLCDecodeUTupleOne_1u16s(&c.p, &c.off, got, ctx.dec()), kStsOk);
  EXPECT_EQ(std::vector<Akl16s>(got, got + 4), (std::vector<Akl16s>{0, 0, 0, 0}));
  EXPECT_EQ(c.Bit(), 5);  // a zero tuple has no sign bits
  Akl16s block[7] = {7, 7, 7, 7, 7, 7, 7};
  ASSERT_EQ(aklsVLCDecodeUTupleBlock_1u16s(&c.p, &c.off, block, 7, ctx.dec()), kStsOk);  // one tuple: 7 / 4
  EXPECT_EQ(std::vector<Akl16s>(block, block + 5), (std::vector<Akl16s>{3, -3, 3, -3, 7}));
  EXPECT_EQ(c.Bit(), 11);
}

TEST(VlcDecode, EightBitTablesReturnUnsignedValues) {
  auto narrow = vlc_test::DecodeContext(Entries({{-3, "0"}, {1, "1"}}), {1});
  auto wide = vlc_test::DecodeContext(Entries({{-3, "0"}, {1, "10"}, {1000, "11"}}), {2});
  ASSERT_EQ(vlc_test::DecodeFields(narrow.dec()).entryWidth, 8);
  ASSERT_EQ(vlc_test::DecodeFields(wide.dec()).entryWidth, 16);
  Akl16s v = 0;
  Cursor c(Bits("0"));
  ASSERT_EQ(aklsVLCDecodeOne_1u16s(&c.p, &c.off, &v, narrow.dec()), kStsOk);
  EXPECT_GT(v, 0);  // -3 << 2 | 3 is 0xF7: 61 when read unsigned
  EXPECT_EQ(v, 61);
  c = Cursor(Bits("0"));
  ASSERT_EQ(aklsVLCDecodeOne_1u16s(&c.p, &c.off, &v, wide.dec()), kStsOk);
  EXPECT_EQ(v, -3);
}

TEST(VlcDecode, CodesAcrossWordBoundaries) {
  // A 20-bit code and short ones; the long code placed at every bit position
  // of a 32-bit word, straddling into the next for positions 13..31.
  const auto book = Entries({{7, "1"}, {8, "01"}, {9, "001"}, {-5, "00011111111111111111"}, {6, "00000"}});
  for (const std::vector<int>& sizes : {std::vector<int>{20}, {8, 8, 8}, {3, 17}}) {
    auto ctx = vlc_test::DecodeContext(book, sizes);
    for (int pos = 0; pos < 40; ++pos) {
      SCOPED_TRACE(pos);
      std::string bits(static_cast<size_t>(pos), '1');
      bits += "00011111111111111111" "01";
      std::vector<Akl16s> want(static_cast<size_t>(pos), 7);
      want.push_back(-5);
      want.push_back(8);
      Cursor c(Bits(bits, 0, 24));
      std::vector<Akl16s> got(want.size());
      ASSERT_EQ(aklsVLCDecodeBlock_1u16s(&c.p, &c.off, got.data(), static_cast<int>(got.size()), ctx.dec()), kStsOk);
      EXPECT_EQ(got, want);
      EXPECT_EQ(c.Bit(), static_cast<long>(bits.size()));
    }
  }
}

TEST(VlcDecode, EscapeBlocksDecodeEvenCounts) {
  auto ctx = vlc_test::DecodeContext(AacPairBook(), {3});
  for (int len : {-1, 0, 1, 5}) {
    SCOPED_TRACE(len);
    Cursor c(Bits("111" "111" "111" "0", 17), 2, 1);
    Akl16s out[6] = {9, 9, 9, 9, 9, 9};
    ASSERT_EQ(aklsVLCDecodeEscBlock_AAC_1u16s(&c.p, &c.off, out, len, ctx.dec()), kStsOk);
    const int written = len > 1 ? len / 2 * 2 : 0;
    for (int i = 0; i < 6; ++i) EXPECT_EQ(out[i], i < written ? (i % 2 ? -3 : 2) : 9) << i;
    EXPECT_EQ(c.Bit(), 17 + written / 2 * 3);
  }
}

// Bytes before the byte pointer: the escape decoders do not use them (the
// plain ones read them with their aligned word but ignore them).
TEST(VlcDecode, BytesBeforeTheCursorDoNotMatter) {
  auto ctx = vlc_test::DecodeContext(AacPairBook(), {2, 1});
  for (Akl8u junk : {0x00, 0xFF, 0x5A}) {
    auto bytes = Bits("111" "10" "00101", 24 + 2);
    for (int i = 0; i < 3; ++i) bytes[static_cast<size_t>(i)] = junk;
    bytes[3] = static_cast<Akl8u>(bytes[3] | (junk & 0xC0));
    Cursor c(bytes, 3, 2);
    Akl16s out[4];
    ASSERT_EQ(aklsVLCDecodeEscBlock_AAC_1u16s(&c.p, &c.off, out, 4, ctx.dec()), kStsOk);
    EXPECT_EQ(std::vector<Akl16s>(out, out + 4), (std::vector<Akl16s>{2, -3, 21, 1}));
    c = Cursor(bytes, 3, 2);
    ASSERT_EQ(aklsVLCDecodeBlock_1u16s(&c.p, &c.off, out, 2, ctx.dec()), kStsOk);
    EXPECT_EQ(out[0], Pair(2, -3));
    EXPECT_EQ(out[1], Pair(16, 1));
  }
}

// --- statuses ------------------------------------------------------------

using Call = std::function<Status(Akl8u**, int*, Akl16s*, const aklsVLCDecodeSpec_32s*)>;

struct Decoder {
  const char* name;
  Call call;
  Status offset_status;
  Status tag_status;
};

std::vector<Decoder> Decoders() {
  return {
      {"One", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeOne_1u16s(pp, po, d, s); },
       kStsVLCDataErr, kStsVLCDataErr},
      {"Block", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeBlock_1u16s(pp, po, d, 2, s); },
       kStsVLCDataErr, kStsVLCDataErr},
      {"EscAAC", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeEscBlock_AAC_1u16s(pp, po, d, 2, s); },
       kStsBitOffsetErr, kStsContextMismatch},
      {"EscMP3", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeEscBlock_MP3_1u16s(pp, po, 3, d, 2, s); },
       kStsBitOffsetErr, kStsContextMismatch},
      {"UTupleOne", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeUTupleOne_1u16s(pp, po, d, s); },
       kStsVLCDataErr, kStsVLCDataErr},
      {"UTupleBlock", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeUTupleBlock_1u16s(pp, po, d, 2, s); },
       kStsVLCDataErr, kStsVLCDataErr},
      {"UTupleEscAAC", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeUTupleEscBlock_AAC_1u16s(pp, po, d, 2, s); },
       kStsBitOffsetErr, kStsContextMismatch},
      {"UTupleEscMP3", [](Akl8u** pp, int* po, Akl16s* d, const aklsVLCDecodeSpec_32s* s) { return aklsVLCDecodeUTupleEscBlock_MP3_1u16s(pp, po, 3, d, 2, s); },
       kStsBitOffsetErr, kStsContextMismatch},
  };
}

TEST(VlcDecode, StatusesInCheckOrder) {
  auto good = vlc_test::DecodeContext(AacPairBook(), {3});
  std::vector<unsigned char> stale(256, 0);  // no tag
  auto* bad_ctx = reinterpret_cast<const aklsVLCDecodeSpec_32s*>(stale.data());
  for (const auto& d : Decoders()) {
    SCOPED_TRACE(d.name);
    auto bytes = Bits("0000");
    Akl8u* p = bytes.data() + 1;
    Akl8u* null_stream = nullptr;
    Akl16s out[2] = {11, 11};
    int off = 2;
    int bad_off = 9;
    EXPECT_EQ(d.call(nullptr, &off, out, good.dec()), kStsNullPtr);
    EXPECT_EQ(d.call(&null_stream, &off, out, good.dec()), kStsNullPtr);
    EXPECT_EQ(d.call(&p, nullptr, out, good.dec()), kStsNullPtr);
    EXPECT_EQ(d.call(&p, &bad_off, nullptr, bad_ctx), kStsNullPtr);
    EXPECT_EQ(d.call(&p, &bad_off, out, nullptr), kStsNullPtr);
    for (int o : {-1, 8, 9, -100}) {
      int oo = o;
      EXPECT_EQ(d.call(&p, &oo, out, good.dec()), d.offset_status) << o;
      EXPECT_EQ(d.call(&p, &oo, out, bad_ctx), d.offset_status) << o;  // offset before tag
      EXPECT_EQ(oo, o);
    }
    EXPECT_EQ(d.call(&p, &off, out, bad_ctx), d.tag_status);
    EXPECT_EQ(p, bytes.data() + 1);
    EXPECT_EQ(off, 2);
    EXPECT_EQ(out[0], 11);
    for (int o = 0; o < 8; ++o) {
      Akl8u* q = bytes.data() + 1;
      int oo = o;
      EXPECT_EQ(d.call(&q, &oo, out, good.dec()), kStsOk) << o;
    }
  }
}

// Either kind of decoder takes either kind of context.
TEST(VlcDecode, PlainAndTupleContextsAreInterchangeable) {
  const auto book = Entries({{0x12, "1"}, {0x00, "01"}, {0x21, "00"}});
  auto plain = vlc_test::DecodeContext(book, {2});
  auto tuple = vlc_test::TupleContext(book, {2}, 2, 4);
  Cursor c(Bits("1" "0" "1"));
  Akl16s v[2];
  ASSERT_EQ(aklsVLCDecodeUTupleOne_1u16s(&c.p, &c.off, v, plain.dec()), kStsOk);
  EXPECT_EQ(v[0], 0x12);  // one element of 16 bits, then its sign bit 0
  EXPECT_EQ(c.Bit(), 2);
  c = Cursor(Bits("1" "0" "1"));
  ASSERT_EQ(aklsVLCDecodeUTupleOne_1u16s(&c.p, &c.off, v, tuple.dec()), kStsOk);
  EXPECT_EQ(v[0], 1);
  EXPECT_EQ(v[1], -2);
  c = Cursor(Bits("1"));
  ASSERT_EQ(aklsVLCDecodeOne_1u16s(&c.p, &c.off, v, tuple.dec()), kStsOk);
  EXPECT_EQ(v[0], 0x12);
}

}  // namespace

namespace {

// Escape decoders are not meant for 8-bit contexts; given one they decode the
// unsigned values and stay inside the table and the stream.
TEST(VlcDecode, EscapeDecodersOnEightBitContexts) {
  const auto book = vlc_test::Entries({{0, "0"}, {1, "10"}, {2, "11"}});
  auto ctx = vlc_test::DecodeContext(book, {2});
  ASSERT_EQ(vlc_test::DecodeFields(ctx.dec()).entryWidth, 8);
  auto bytes = vlc_test::Bits("10" "11" "0" "0", 0, 8);
  Akl8u* p = bytes.data();
  int off = 0;
  Akl16s out[4];
  ASSERT_EQ(aklsVLCDecodeEscBlock_MP3_1u16s(&p, &off, 4, out, 4, ctx.dec()), kStsOk);
  EXPECT_EQ(std::vector<Akl16s>(out, out + 4), (std::vector<Akl16s>{0, -127, 0, -126}));
  EXPECT_EQ(off, 4);
}

}  // namespace

namespace {

// A tuple book whose longest code leaves no room for its sign bits in one
// refill (31 + 2 > 32): the sign bits are then read with refills.
TEST(VlcDecode, TupleSignsAfterThirtyOneBitCodes) {
  const std::string long_a = std::string(30, '0') + "1";
  const std::string long_b(31, '0');
  const auto book = vlc_test::Entries({{0x11, "1"}, {0x02, "01"}, {0x30, long_a.c_str()}, {0x00, long_b.c_str()}});
  auto ctx = vlc_test::TupleContext(book, {8, 8, 8, 8}, 2, 4);
  const std::string bits = "1" "1" "0" "01" "1" + long_a + "0" + long_b;
  const std::vector<Akl16s> want = {-1, 1, 0, -2, 3, 0, 0, 0};
  for (int which = 0; which < 3; ++which) {
    SCOPED_TRACE(which);
    for (int lead = 0; lead < 32; lead += 5) {
      auto bytes = vlc_test::Bits(bits, lead, 24);
      Akl8u* p = bytes.data() + lead / 8;
      int off = lead % 8;
      Akl16s out[8];
      const Status st = which == 0   ? aklsVLCDecodeUTupleBlock_1u16s(&p, &off, out, 8, ctx.dec())
                        : which == 1 ? aklsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, &off, out, 8, ctx.dec())
                                     : aklsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &off, 3, out, 8, ctx.dec());
      ASSERT_EQ(st, kStsOk);
      EXPECT_EQ(std::vector<Akl16s>(out, out + 8), want);
      EXPECT_EQ((p - bytes.data()) * 8 + off, lead + static_cast<long>(bits.size()));
    }
  }
}

}  // namespace
