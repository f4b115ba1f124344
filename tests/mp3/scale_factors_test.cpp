#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "aklac.h"
#include "core/bitstream.hpp"
#include "mp3/tables.hpp"
#include "../support/test_util.hpp"

namespace {

constexpr Akl8s kSf = 0x55;  // sentinel scale factor

struct Call {
  std::vector<Akl8u> buf = std::vector<Akl8u>(64, 0);
  Akl8u* p = nullptr;
  Akl32s off = 0;
  Akl8s sf[40];
  AklMP3SideInfo si{};
  Akl32s scfsi[4] = {0, 0, 0, 0};
  AklMP3FrameHeader h{};
  Akl32s gr = 0, ch = 0;
  Call(int id, int start_bit) {
    p = buf.data() + 4 + start_bit / 8;
    off = start_bit % 8;
    std::memset(sf, kSf, sizeof(sf));
    h.id = id;
    h.layer = 1;
  }
  Status Run() { return aklsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, scfsi, &h, gr, ch); }
  // Bits consumed since the writer's start (buf + 4, bit start_bit).
  long Consumed(int start_bit) const { return (p - (buf.data() + 4)) * 8 + off - start_bit; }
  akl::BitWriter Writer(int start_bit) { return akl::BitWriter(buf.data() + 4 + start_bit / 8, start_bit % 8); }
};

TEST(UnpackScaleFactors, ArgumentChecksInOrder) {
  struct Row {
    int null_arg;  // -1 none, 0..5 which argument pointer is null, 7 the byte pointer itself
    Akl32s off, gr, ch, id, sfc, mode_ext;
    Status want;
  } rows[] = {
      {0, 8, 0, 0, 1, 0, 0, kStsNullPtr},   {1, 0, 0, 0, 1, 0, 0, kStsNullPtr},
      {2, 0, 0, 0, 1, 0, 0, kStsNullPtr},   {3, 0, 0, 0, 1, 0, 0, kStsNullPtr},
      {4, 0, 0, 0, 1, 0, 0, kStsNullPtr},   {5, 0, 0, 0, 1, 0, 0, kStsNullPtr},
      {7, 0, 0, 0, 1, 99, 0, kStsNullPtr},
      {-1, 8, 0, 0, 1, 99, 0, kStsBadArgErr}, {-1, -1, 0, 0, 1, 0, 0, kStsBadArgErr},
      {-1, 0, 2, 0, 1, 0, 0, kStsBadArgErr}, {-1, 0, -1, 0, 1, 0, 0, kStsBadArgErr},
      {-1, 0, 0, 2, 1, 0, 0, kStsBadArgErr}, {-1, 0, 0, -1, 5, 99, 0, kStsBadArgErr},
      {-1, 0, 0, 0, 2, 0, 0, kStsMP3FrameHeaderErr}, {-1, 0, 0, 0, 1, 16, 0, kStsMP3SideInfoErr},
      {-1, 0, 0, 0, 1, -1, 0, kStsMP3SideInfoErr}, {-1, 0, 0, 0, 1, 15, 9, kStsOk},
      {-1, 0, 0, 0, 0, 512, 4, kStsMP3SideInfoErr}, {-1, 0, 0, 0, 0, -1, 0, kStsMP3SideInfoErr},
      {-1, 0, 0, 0, 0, 511, 4, kStsMP3FrameHeaderErr}, {-1, 0, 0, 0, 0, 511, -1, kStsMP3FrameHeaderErr},
      {-1, 7, 1, 1, 0, 511, 3, kStsOk},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << "null " << r.null_arg << " off " << r.off << " sfc " << r.sfc);
    Call c(r.id, 0);
    c.off = r.off;
    c.gr = r.gr;
    c.ch = r.ch;
    c.si.scalefacCompress = r.sfc;
    c.si.blockType = 2;
    c.si.mixedBlockFlag = 3;
    c.h.modeExtension = r.mode_ext;
    Akl8u* const p0 = c.p;
    Akl8u* null_byte = nullptr;
    Status st;
    switch (r.null_arg) {
      case 0: st = aklsUnpackScaleFactors_MP3_1u8s(nullptr, &c.off, c.sf, &c.si, c.scfsi, &c.h, c.gr, c.ch); break;
      case 1: st = aklsUnpackScaleFactors_MP3_1u8s(&c.p, nullptr, c.sf, &c.si, c.scfsi, &c.h, c.gr, c.ch); break;
      case 2: st = aklsUnpackScaleFactors_MP3_1u8s(&c.p, &c.off, nullptr, &c.si, c.scfsi, &c.h, c.gr, c.ch); break;
      case 3: st = aklsUnpackScaleFactors_MP3_1u8s(&c.p, &c.off, c.sf, nullptr, c.scfsi, &c.h, c.gr, c.ch); break;
      case 4: st = aklsUnpackScaleFactors_MP3_1u8s(&c.p, &c.off, c.sf, &c.si, nullptr, &c.h, c.gr, c.ch); break;
      case 5: st = aklsUnpackScaleFactors_MP3_1u8s(&c.p, &c.off, c.sf, &c.si, c.scfsi, nullptr, c.gr, c.ch); break;
      case 7: st = aklsUnpackScaleFactors_MP3_1u8s(&null_byte, &c.off, c.sf, &c.si, c.scfsi, &c.h, c.gr, c.ch); break;
      default: st = c.Run();
    }
    EXPECT_EQ(st, r.want);
    if (st != kStsOk) {
      EXPECT_EQ(c.p, p0);
      EXPECT_EQ(c.off, r.off);
      EXPECT_EQ(c.sf[0], kSf);
      EXPECT_EQ(c.sf[21], kSf);
      EXPECT_EQ(c.si.mixedBlockFlag, 3);
    }
  }
}

// MPEG-1 long blocks: every scalefac_compress, both granules, every scfsi pattern.
TEST(UnpackScaleFactors, Mpeg1LongGroupsAndScfsiReuse) {
  std::mt19937 rng(akl::test::TestSeed());
  const int group_start[5] = {0, 6, 11, 16, 21};
  for (int sfc = 0; sfc < 16; ++sfc) {
    const int slen1 = akl::mp3::kSlen1[sfc], slen2 = akl::mp3::kSlen2[sfc];
    for (int gr = 0; gr < 2; ++gr) {
      for (int pattern = 0; pattern < 16; ++pattern) {
        SCOPED_TRACE(testing::Message() << "sfc " << sfc << " gr " << gr << " scfsi " << pattern);
        const int start_bit = static_cast<int>(rng() % 8);
        Call c(1, start_bit);
        c.si.scalefacCompress = sfc;
        c.si.blockType = static_cast<Akl32s>(rng() % 2) * 3;  // 0 or 3
        c.gr = gr;
        for (int g = 0; g < 4; ++g) c.scfsi[g] = (pattern >> g) & 1;
        akl::BitWriter w = c.Writer(start_bit);
        Akl8s want[22];
        long bits = 0;
        for (int g = 0; g < 4; ++g) {
          const bool reuse = gr == 1 && c.scfsi[g];
          const int len = g < 2 ? slen1 : slen2;
          for (int b = group_start[g]; b < group_start[g + 1]; ++b) {
            if (reuse) {
              want[b] = kSf;
              continue;
            }
            const auto v = len ? static_cast<std::uint32_t>(rng() & ((1u << len) - 1)) : 0u;
            w.Write(v, len);
            bits += len;
            want[b] = static_cast<Akl8s>(v);
          }
        }
        want[21] = 0;
        ASSERT_EQ(c.Run(), kStsOk);
        EXPECT_EQ(c.Consumed(start_bit), bits);
        EXPECT_EQ(std::memcmp(c.sf, want, 22), 0);
        EXPECT_EQ(c.sf[22], kSf);
      }
    }
  }
}

TEST(UnpackScaleFactors, Mpeg1ShortAndMixedIgnoreScfsi) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int mixed = 0; mixed < 2; ++mixed) {
    for (int sfc = 0; sfc < 16; ++sfc) {
      SCOPED_TRACE(testing::Message() << "mixed " << mixed << " sfc " << sfc);
      const int n1 = mixed ? 17 : 18, n2 = 18;
      Call c(1, 5);
      c.gr = 1;
      for (Akl32s& s : c.scfsi) s = 1;
      c.si.scalefacCompress = sfc;
      c.si.blockType = 2;
      c.si.mixedBlockFlag = mixed;
      akl::BitWriter w = c.Writer(5);
      Akl8s want[40];
      std::memset(want, kSf, sizeof(want));
      for (int i = 0; i < n1 + n2; ++i) {
        const int len = i < n1 ? akl::mp3::kSlen1[sfc] : akl::mp3::kSlen2[sfc];
        const auto v = len ? static_cast<std::uint32_t>(rng() & ((1u << len) - 1)) : 0u;
        w.Write(v, len);
        want[i] = static_cast<Akl8s>(v);
      }
      for (int i = n1 + n2; i < n1 + n2 + 3; ++i) want[i] = 0;
      ASSERT_EQ(c.Run(), kStsOk);
      EXPECT_EQ(c.Consumed(5), n1 * akl::mp3::kSlen1[sfc] + n2 * akl::mp3::kSlen2[sfc]);
      EXPECT_EQ(std::memcmp(c.sf, want, 40), 0);
    }
  }
}

TEST(UnpackScaleFactors, Mpeg2PartitionTableShape) {
  // Every range codes 21 long bands, 12 short bands x 3 windows, or 6 long
  // bands + 9 short bands x 3 windows in a mixed block.
  for (int range = 0; range < akl::mp3::kNrOfSfbRanges; ++range) {
    const int sums[3] = {21, 36, 33};
    for (int kind = 0; kind < 3; ++kind) {
      int s = 0;
      for (int part = 0; part < 4; ++part) s += akl::mp3::kNrOfSfb[range * 12 + kind * 4 + part];
      EXPECT_EQ(s, sums[kind]) << range << " " << kind;
    }
  }
}

// MPEG-2: for each way an encoder can pack partition lengths into
// scalefac_compress (the inverse of the unpacking), random values written
// with those lengths come back, with the intensity limit negated on the
// right channel.
TEST(UnpackScaleFactors, Mpeg2AllCompressRanges) {
  struct Packing {
    bool is_right;
    int range, max[4], preflag;
    int (*pack)(const int* s);
  } packings[] = {
      {false, 0, {4, 4, 3, 3}, 0, [](const int* s) { return ((s[0] * 5 + s[1]) << 4) + (s[2] << 2) + s[3]; }},
      {false, 1, {4, 4, 3, 0}, 0, [](const int* s) { return 400 + ((s[0] * 5 + s[1]) << 2) + s[2]; }},
      {false, 2, {3, 2, 0, 0}, 1, [](const int* s) { return 500 + s[0] * 3 + s[1]; }},
      {true, 3, {4, 5, 5, 0}, 0, [](const int* s) { return (s[0] * 36 + s[1] * 6 + s[2]) << 1; }},
      {true, 4, {3, 3, 3, 0}, 0, [](const int* s) { return (180 + (s[0] << 4) + (s[1] << 2) + s[2]) << 1 | 1; }},
      {true, 5, {3, 2, 0, 0}, 0, [](const int* s) { return (244 + s[0] * 3 + s[1]) << 1; }},
  };
  std::mt19937 rng(akl::test::TestSeed());
  int cases = 0;
  for (const Packing& pk : packings) {
    int s[4];
    for (s[0] = 0; s[0] <= pk.max[0]; ++s[0])
      for (s[1] = 0; s[1] <= pk.max[1]; ++s[1])
        for (s[2] = 0; s[2] <= pk.max[2]; ++s[2])
          for (s[3] = 0; s[3] <= pk.max[3]; ++s[3]) {
            const int sfc = pk.pack(s);
            for (int kind = 0; kind < 3; ++kind) {
              SCOPED_TRACE(testing::Message() << "sfc " << sfc << " kind " << kind << " right " << pk.is_right);
              ++cases;
              const int start_bit = static_cast<int>(rng() % 8);
              Call c(0, start_bit);
              c.ch = pk.is_right ? 1 : static_cast<Akl32s>(rng() & 1);
              c.h.modeExtension = pk.is_right ? 1 + 2 * static_cast<Akl32s>(rng() & 1) : (c.ch ? 2 : static_cast<Akl32s>(rng() & 3));
              c.si.scalefacCompress = sfc;
              c.si.windowSwitchingFlag = kind ? 1 : 0;
              c.si.blockType = kind ? 2 : static_cast<Akl32s>(rng() % 2) * 3;
              c.si.mixedBlockFlag = kind == 2 ? 3 : (kind == 1 ? 2 : 0);  // only the low bit counts
              c.si.preflag = 7;
              akl::BitWriter w = c.Writer(start_bit);
              Akl8s want[40];
              std::memset(want, kSf, sizeof(want));
              int n = 0;
              long bits = 0;
              for (int part = 0; part < 4; ++part) {
                const int count = akl::mp3::kNrOfSfb[pk.range * 12 + kind * 4 + part];
                for (int i = 0; i < count; ++i, ++n) {
                  const int len = s[part];
                  // Bias towards the largest value so the negation is exercised.
                  std::uint32_t v = len ? (rng() & 1 ? (1u << len) - 1 : rng() & ((1u << len) - 1)) : 0u;
                  w.Write(v, len);
                  bits += len;
                  const bool illegal = pk.is_right && len && v == (1u << len) - 1;
                  want[n] = static_cast<Akl8s>(illegal ? -static_cast<int>(v) : static_cast<int>(v));
                }
              }
              want[n] = want[n + 1] = want[n + 2] = 0;
              ASSERT_EQ(c.Run(), kStsOk);
              EXPECT_EQ(c.Consumed(start_bit), bits);
              EXPECT_EQ(std::memcmp(c.sf, want, 40), 0);
              EXPECT_EQ(c.si.preflag, pk.preflag);
              if (kind) {
                EXPECT_EQ(c.si.mixedBlockFlag, kind == 2 ? 1 : 0);
              }
            }
          }
  }
  EXPECT_GT(cases, 3 * 500);
}

TEST(UnpackScaleFactors, Mpeg2EdgeCases) {
  // scalefac_compress 511 outside intensity: slen (3, 2, 0, 0), preflag 1: 11*3 + 10*2 bits.
  Call c(0, 0);
  c.si.scalefacCompress = 511;
  c.h.modeExtension = 2;
  ASSERT_EQ(c.Run(), kStsOk);
  EXPECT_EQ(c.Consumed(0), 53);
  EXPECT_EQ(c.si.preflag, 1);
  // Right channel with intensity on: a 7 in a 3-bit partition comes out as -7.
  Call d(0, 3);
  d.ch = 1;
  d.h.modeExtension = 1;
  d.si.scalefacCompress = (244 + 9) << 1;  // slen (3, 0, 0, 0), 8 values of the first partition
  akl::BitWriter w = d.Writer(3);
  for (int i = 0; i < 8; ++i) w.Write(i == 2 ? 7u : 6u, 3);
  ASSERT_EQ(d.Run(), kStsOk);
  EXPECT_EQ(d.Consumed(3), 24);
  EXPECT_EQ(d.sf[2], -7);
  EXPECT_EQ(d.sf[3], 6);
  EXPECT_EQ(d.sf[8], 0);
  EXPECT_EQ(d.sf[21], 0);
  EXPECT_EQ(d.sf[24], kSf);
  // The same values on the left channel stay as they are.
  Call e(0, 3);
  e.h.modeExtension = 1;
  e.si.scalefacCompress = 500 + 9;  // slen (3, 0, 0, 0) on the left channel, 11 values
  akl::BitWriter we = e.Writer(3);
  for (int i = 0; i < 11; ++i) we.Write(7u, 3);
  ASSERT_EQ(e.Run(), kStsOk);
  EXPECT_EQ(e.sf[2], 7);
}

}  // namespace
