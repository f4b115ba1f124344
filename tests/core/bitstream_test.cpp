#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "core/bitstream.hpp"
#include "../support/test_util.hpp"

namespace {

using akl::BitReader;
using akl::BitWriter;

// Reference: bit i of the buffer, MSB first.
int Bit(const std::vector<Akl8u>& buf, std::size_t i) { return (buf[i / 8] >> (7 - i % 8)) & 1; }

TEST(BitReader, CursorAdvanceTable) {
  struct Row {
    int offset, bits, advance, new_offset;
  } rows[] = {
      {6, 5, 1, 3}, {0, 0, 0, 0}, {7, 1, 1, 0}, {0, 8, 1, 0}, {3, 32, 4, 3}, {7, 32, 4, 7}, {0, 7, 0, 7},
  };
  alignas(4) Akl8u buf[16] = {0xA5, 0x5A, 0xFF, 0x00, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.offset * 100 + r.bits);
    Akl8u* p = buf + 1;
    int off = r.offset;
    BitReader br(p, off);
    br.Read(r.bits);
    br.WriteBack(&p, &off);
    EXPECT_EQ(p - (buf + 1), r.advance);
    EXPECT_EQ(off, r.new_offset);
  }
}

TEST(BitReader, MatchesBitByBitAtEveryAlignment) {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<Akl8u> buf(64 + 8);
  for (auto& b : buf) b = static_cast<Akl8u>(rng());
  for (int start_byte = 0; start_byte < 4; ++start_byte) {
    for (int off = 0; off < 8; ++off) {
      BitReader br(buf.data() + start_byte, off);
      std::size_t pos = static_cast<std::size_t>(start_byte * 8 + off);
      for (int n = 0; n <= 32; ++n) {
        std::uint32_t want = 0;
        for (int i = 0; i < n; ++i) want = (want << 1) | static_cast<std::uint32_t>(Bit(buf, pos + i));
        ASSERT_EQ(br.Read(n), want) << start_byte << " " << off << " " << n;
        pos += static_cast<std::size_t>(n);
        if (pos > 400) break;
      }
    }
  }
}

TEST(BitReader, UnalignedPointerEqualsAlignedPointerPlusOffset) {
  alignas(4) Akl8u buf[12] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x11, 0x22, 0x33, 0x44};
  for (int byte = 0; byte < 4; ++byte) {
    BitReader a(buf + byte, 3);
    BitReader b(buf, 0);
    b.Skip(byte * 8 + 3);
    EXPECT_EQ(a.Peek(32), b.Peek(32));
    EXPECT_EQ(a.Peek(13), b.Peek(13));
  }
}

TEST(BitWriter, EdgeCases) {
  struct Row {
    Akl8u before[3];
    int offset;
    std::uint32_t value;
    int bits;
    Akl8u after[3];
    int advance, new_offset;
  } rows[] = {
      // 3 bits at offset 0 into 0xFF: the byte is stored whole.
      {{0xFF, 0xFF, 0xFF}, 0, 0b101, 3, {0xA0, 0xFF, 0xFF}, 0, 3},
      // 0 bits: nothing changes.
      {{0xFF, 0xFF, 0xFF}, 5, 0xFFFF, 0, {0xFF, 0xFF, 0xFF}, 0, 5},
      // merged by OR below the bits already there, next byte stored whole.
      {{0x80, 0xFF, 0xFF}, 1, 0x7F, 9, {0x9F, 0xC0, 0xFF}, 1, 2},
      // value masked to its low bits.
      {{0x00, 0x00, 0x00}, 4, 0xFFFFFFF5, 4, {0x05, 0x00, 0x00}, 1, 0},
      // 16 bits at offset 0.
      {{0x12, 0x34, 0x56}, 0, 0xBEEF, 16, {0xBE, 0xEF, 0x56}, 2, 0},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.offset * 100 + r.bits);
    Akl8u buf[3] = {r.before[0], r.before[1], r.before[2]};
    Akl8u* p = buf;
    int off = r.offset;
    BitWriter bw(p, off);
    bw.Write(r.value, r.bits);
    bw.WriteBack(&p, &off);
    EXPECT_EQ(buf[0], r.after[0]);
    EXPECT_EQ(buf[1], r.after[1]);
    EXPECT_EQ(buf[2], r.after[2]);
    EXPECT_EQ(p - buf, r.advance);
    EXPECT_EQ(off, r.new_offset);
  }
}

TEST(BitWriter, RoundTripsThroughReaderWith32BitFields) {
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<Akl8u> buf(4096, 0xCC);
  buf[1] = 0xC8;  // the bits after offset 5 of a partly written byte must be zero
  std::vector<std::pair<std::uint32_t, int>> fields;
  BitWriter bw(buf.data() + 1, 5);
  for (int i = 0; i < 500; ++i) {
    const int n = static_cast<int>(rng() % 33);
    const std::uint32_t v = rng();
    fields.push_back({n == 32 ? v : (n ? v & ((1u << n) - 1) : 0), n});
    bw.Write(v, n);
  }
  // Unused low bits of the last, partly written byte are zero.
  if (bw.BitOffset() != 0) {
    EXPECT_EQ(*bw.BytePtr() & ((1 << (8 - bw.BitOffset())) - 1), 0);
  }
  BitReader br(buf.data() + 1, 5);
  for (const auto& [v, n] : fields) ASSERT_EQ(br.Read(n), v);
  EXPECT_EQ(br.BytePtr(), bw.BytePtr());
  EXPECT_EQ(br.BitOffset(), bw.BitOffset());
}

}  // namespace
