#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "core/bitstream.hpp"
#include "../support/test_util.hpp"

namespace {

using akl::BitWriter;
using akl::ByteReader;

// Reference: bit i of the buffer, MSB first.
int Bit(const Akl8u* buf, std::size_t i) { return (buf[i / 8] >> (7 - i % 8)) & 1; }

// Every reader policy, from every start alignment, against a bit-by-bit
// reading: fields of 0..32 bits, then the cursor it writes back.  The
// readers are driven through Read (the refill policies' own path).
template <class Reader>
void CheckReader(Reader make(const Akl8u*, int, int), const char* name) {
  SCOPED_TRACE(name);
  std::mt19937 rng(akl::test::TestSeed());
  alignas(4) Akl8u buf[96];
  for (auto& b : buf) b = static_cast<Akl8u>(rng());
  for (int start_byte = 0; start_byte < 4; ++start_byte) {
    for (int off = 0; off < 8; ++off) {
      Reader br = make(buf + 4 + start_byte, off, 8 * (88 - start_byte) - off);  // to byte 92
      std::size_t pos = static_cast<std::size_t>(32 + start_byte * 8 + off);
      for (int n = 0; n <= 32 && pos + static_cast<std::size_t>(n) <= 8 * 80; n = (n + 7) % 33) {
        std::uint32_t want = 0;
        for (int i = 0; i < n; ++i) want = (want << 1) | static_cast<std::uint32_t>(Bit(buf, pos + static_cast<std::size_t>(i)));
        ASSERT_EQ(br.Read(n), want) << start_byte << " " << off << " " << n;
        pos += static_cast<std::size_t>(n);
        if (n == 0 && pos > 8 * 60) break;
      }
      Akl8u* p = nullptr;
      int o = -1;
      br.WriteBack(&p, &o);
      EXPECT_EQ(p, buf + pos / 8);
      EXPECT_EQ(o, static_cast<int>(pos % 8));
    }
  }
}

TEST(BitAccumulator, EveryPolicyMatchesBitByBitReading) {
  CheckReader<akl::WordReader>([](const Akl8u* p, int o, int) { return akl::WordReader::AtAlignedWord(p, o); }, "word");
  CheckReader<akl::WordReader>([](const Akl8u* p, int o, int) { return akl::WordReader::AtBytePointer(p, o); },
                               "word from the byte pointer");
  CheckReader<akl::BranchFreeReader>([](const Akl8u* p, int o, int) { return akl::BranchFreeReader(p, o); }, "branch-free");
  CheckReader<ByteReader>([](const Akl8u* p, int o, int) { return ByteReader(p, o); }, "byte");
  CheckReader<akl::BoundedReader>([](const Akl8u* p, int o, int n) { return akl::BoundedReader(p, o, n); }, "bounded");
}

// The memory rules, on data placed at the very end (and start) of a heap
// block, so that a sanitized build traps any load outside them: the byte
// reader touches only the bytes holding the bits read; the byte-pointer start
// touches nothing before the pointer; word refills stay within the aligned
// word after the last bit used; a bounded reader loads nothing past the
// aligned word after its bound and reads zeros there.
TEST(BitAccumulator, MemoryRules) {
  for (int len = 1; len <= 9; ++len) {
    for (int off = 0; off < 8; ++off) {
      SCOPED_TRACE(len * 10 + off);
      const int bits = 8 * len - off;
      // Bytes exactly [p, p + len): the byte reader and the byte-pointer start.
      std::vector<Akl8u> exact(static_cast<std::size_t>(len), 0xA5);
      ByteReader br(exact.data(), off);
      br.SkipBits(static_cast<std::size_t>(bits));
      EXPECT_EQ(br.BytePtr(), exact.data() + len);
      // Aligned words: an aligned block ending with the aligned word after the last bit.
      const int words = (len + 3) / 4 + 1;
      std::unique_ptr<std::uint32_t[]> block(new std::uint32_t[static_cast<std::size_t>(words)]());
      auto* base = reinterpret_cast<Akl8u*>(block.get());
      akl::WordReader wr = akl::WordReader::AtAlignedWord(base, off);
      for (int left = bits; left > 0; left -= 7) wr.Read(left < 7 ? left : 7);
      // Bounded: a bound of `bits` bits; the aligned word after it is the last
      // one loaded, zeros come after that word.
      const int end = off + bits, limit_word = (end - 1) / 32 + 1;
      std::unique_ptr<std::uint32_t[]> one(new std::uint32_t[static_cast<std::size_t>(limit_word + 1)]);
      std::memset(one.get(), 0xFF, sizeof(std::uint32_t) * static_cast<std::size_t>(limit_word + 1));
      akl::BoundedReader bd(reinterpret_cast<Akl8u*>(one.get()), off, bits);
      for (int left = bits; left > 0; left -= 9) {
        bd.Refill();
        bd.Skip(left < 9 ? left : 9);
      }
      EXPECT_EQ(bd.Remaining(), 0);
      for (int left = 32 * (limit_word + 1) - end; left > 0; left -= 16) {
        bd.Refill();
        EXPECT_EQ(bd.ReadInHand(left < 16 ? left : 16), left < 16 ? (1u << left) - 1 : 0xFFFFu);
      }
      for (int i = 0; i < 3; ++i) {
        bd.Refill();
        EXPECT_EQ(bd.ReadInHand(32), 0u);
      }
    }
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
  ByteReader br(buf.data() + 1, 5);
  for (const auto& [v, n] : fields) ASSERT_EQ(br.Read(n), v);
  EXPECT_EQ(br.BytePtr(), bw.BytePtr());
  EXPECT_EQ(br.BitOffset(), bw.BitOffset());
}

}  // namespace
