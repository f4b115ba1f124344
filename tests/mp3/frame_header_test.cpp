#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "aklac.h"
#include "core/bitstream.hpp"
#include "../support/test_util.hpp"

namespace {

constexpr Akl32s kSentinel = 0x5A5A5A5A;

AklMP3FrameHeader Header(int id, int mode, int layer = 1) {
  AklMP3FrameHeader h{};
  h.id = id;
  h.layer = layer;
  h.mode = mode;
  h.protectionBit = 1;
  return h;
}

AklMP3SideInfo Filled() {
  AklMP3SideInfo si;
  Akl32s* f = reinterpret_cast<Akl32s*>(&si);
  for (std::size_t i = 0; i < sizeof(si) / 4; ++i) f[i] = kSentinel;
  return si;
}

TEST(UnpackFrameHeader, FieldsAndAdvance) {
  struct Row {
    Akl8u b[6];
    AklMP3FrameHeader want;
    int advance;
  } rows[] = {
      // MPEG-1 Layer III, no CRC, 128 kbit/s 44.1 kHz, joint stereo, ms on.
      {{0xFF, 0xFB, 0x90, 0x64, 0x12, 0x34}, {1, 1, 1, 9, 0, 0, 0, 1, 2, 0, 1, 0, kSentinel}, 4},
      // MPEG-2, CRC word 0xABCD, padding, private, mono, copy, emphasis 3.
      {{0xFF, 0xF2, 0x57, 0xCB, 0xAB, 0xCD}, {0, 1, 0, 5, 1, 1, 1, 3, 0, 1, 0, 3, 0xABCD}, 6},
      // Garbage sync bits and layer I code: unpacked all the same.
      {{0x00, 0x07, 0xFC, 0x3F, 0x00, 0x01}, {0, 3, 1, 15, 3, 0, 0, 0, 3, 1, 1, 3, kSentinel}, 4},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.b[1]);
    std::vector<Akl8u> buf(r.b, r.b + r.advance);  // exact size: no byte beyond is read
    Akl8u* p = buf.data();
    AklMP3FrameHeader h;
    std::memset(&h, 0x5A, sizeof(h));
    ASSERT_EQ(aklsUnpackFrameHeader_MP3(&p, &h), kStsOk);
    EXPECT_EQ(p - buf.data(), r.advance);
    EXPECT_EQ(std::memcmp(&h, &r.want, sizeof(h)), 0);
  }
}

TEST(UnpackFrameHeader, NullPointers) {
  Akl8u b[4] = {0xFF, 0xFB, 0x90, 0x64};
  Akl8u* p = b;
  Akl8u* null_byte = nullptr;
  AklMP3FrameHeader h{};
  EXPECT_EQ(aklsUnpackFrameHeader_MP3(nullptr, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackFrameHeader_MP3(&null_byte, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackFrameHeader_MP3(&p, nullptr), kStsNullPtr);
  EXPECT_EQ(p, b);
}

// Writes one granule/channel record in stream syntax.
void WriteRecord(akl::BitWriter& w, const AklMP3SideInfo& si, bool mpeg1) {
  w.Write(static_cast<std::uint32_t>(si.part23Length), 12);
  w.Write(static_cast<std::uint32_t>(si.bigValues), 9);
  w.Write(static_cast<std::uint32_t>(si.globalGain), 8);
  w.Write(static_cast<std::uint32_t>(si.scalefacCompress), mpeg1 ? 4 : 9);
  w.Write(static_cast<std::uint32_t>(si.windowSwitchingFlag), 1);
  if (si.windowSwitchingFlag) {
    w.Write(static_cast<std::uint32_t>(si.blockType), 2);
    w.Write(static_cast<std::uint32_t>(si.mixedBlockFlag), 1);
    for (int i = 0; i < 2; ++i) w.Write(static_cast<std::uint32_t>(si.tableSelect[i]), 5);
    for (int i = 0; i < 3; ++i) w.Write(static_cast<std::uint32_t>(si.subblockGain[i]), 3);
  } else {
    for (int i = 0; i < 3; ++i) w.Write(static_cast<std::uint32_t>(si.tableSelect[i]), 5);
    w.Write(static_cast<std::uint32_t>(si.region0Count), 4);
    w.Write(static_cast<std::uint32_t>(si.region1Count), 3);
  }
  if (mpeg1) w.Write(static_cast<std::uint32_t>(si.preflag), 1);
  w.Write(static_cast<std::uint32_t>(si.scalefacScale), 1);
  w.Write(static_cast<std::uint32_t>(si.count1TableSelect), 1);
}

AklMP3SideInfo RandomRecord(std::mt19937& rng, bool mpeg1) {
  auto bits = [&](int n) { return static_cast<Akl32s>(rng() & ((1u << n) - 1)); };
  AklMP3SideInfo si = Filled();
  si.part23Length = bits(12);
  si.bigValues = bits(9);
  si.globalGain = bits(8);
  si.scalefacCompress = bits(mpeg1 ? 4 : 9);
  si.windowSwitchingFlag = bits(1);
  if (si.windowSwitchingFlag) {
    si.blockType = 1 + static_cast<Akl32s>(rng() % 3);
    si.mixedBlockFlag = bits(1);
    si.tableSelect[0] = bits(5);
    si.tableSelect[1] = bits(5);
    for (Akl32s& g : si.subblockGain) g = bits(3);
  } else {
    for (Akl32s& t : si.tableSelect) t = bits(5);
    si.region0Count = bits(4);
    si.region1Count = bits(3);
  }
  if (mpeg1) si.preflag = bits(1);
  si.scalefacScale = bits(1);
  si.count1TableSelect = bits(1);
  return si;
}

TEST(UnpackSideInfo, RoundTripSizesAndUntouchedFields) {
  struct Row {
    int id, mode, bytes;
  } rows[] = {{1, 3, 17}, {1, 0, 32}, {1, 1, 32}, {1, 2, 32}, {0, 3, 9}, {0, 1, 17}};
  std::mt19937 rng(akl::test::TestSeed());
  for (const Row& r : rows) {
    for (int trial = 0; trial < 200; ++trial) {
      SCOPED_TRACE(testing::Message() << r.id << " " << r.mode << " " << trial);
      const bool mpeg1 = r.id == 1;
      const int nch = r.mode == 3 ? 1 : 2, ngr = mpeg1 ? 2 : 1;
      const std::uint32_t mdb = rng() & (mpeg1 ? 511u : 255u);
      const int priv_bits = mpeg1 ? (nch == 1 ? 5 : 3) : (nch == 1 ? 1 : 2);
      const std::uint32_t priv = rng() & ((1u << priv_bits) - 1);
      Akl32s scfsi_want[8];
      AklMP3SideInfo want[4];
      std::vector<Akl8u> buf(static_cast<std::size_t>(r.bytes));  // exact size: ASan sees an overread
      akl::BitWriter w(buf.data(), 0);
      w.Write(mdb, mpeg1 ? 9 : 8);
      w.Write(priv, priv_bits);
      if (mpeg1)
        for (int i = 0; i < 4 * nch; ++i) w.Write(static_cast<std::uint32_t>(scfsi_want[i] = static_cast<Akl32s>(rng() & 1)), 1);
      for (int i = 0; i < ngr * nch; ++i) WriteRecord(w, want[i] = RandomRecord(rng, mpeg1), mpeg1);
      ASSERT_EQ(w.BytePtr() - buf.data(), r.bytes);
      ASSERT_EQ(w.BitOffset(), 0);

      AklMP3FrameHeader h = Header(r.id, r.mode);
      AklMP3SideInfo got[4] = {Filled(), Filled(), Filled(), Filled()};
      Akl32s scfsi[8], main_data_begin = 0, private_bits = 0;
      for (Akl32s& s : scfsi) s = kSentinel;
      Akl8u* p = buf.data();
      ASSERT_EQ(aklsUnpackSideInfo_MP3(&p, got, &main_data_begin, &private_bits, scfsi, &h), kStsOk);
      EXPECT_EQ(p - buf.data(), r.bytes);
      EXPECT_EQ(main_data_begin, static_cast<Akl32s>(mdb));
      EXPECT_EQ(private_bits, static_cast<Akl32s>(priv));
      for (int i = 0; i < 8; ++i) EXPECT_EQ(scfsi[i], mpeg1 && i < 4 * nch ? scfsi_want[i] : kSentinel) << i;
      for (int i = 0; i < ngr * nch; ++i) {
        AklMP3SideInfo e = want[i];
        if (e.windowSwitchingFlag) {
          e.region0Count = (e.blockType == 2 && e.mixedBlockFlag == 0) ? 8 : 7;
          e.region1Count = 20 - e.region0Count;
        } else {
          e.blockType = 0;
          e.mixedBlockFlag = 0;
        }
        EXPECT_EQ(std::memcmp(&got[i], &e, sizeof(e)), 0) << "record " << i;
      }
      for (int i = ngr * nch; i < 4; ++i) EXPECT_EQ(got[i].part23Length, kSentinel);
    }
  }
}

TEST(UnpackSideInfo, BlockTypeZeroWithWindowSwitching) {
  // MPEG-1 stereo; the second record (granule 0, channel 1) is window-switched with block type 0.
  std::vector<Akl8u> buf(32);
  akl::BitWriter w(buf.data(), 0);
  w.Write(0x1FF, 9);
  w.Write(0, 3);
  w.Write(0, 8);
  AklMP3SideInfo first = Filled();
  first.part23Length = 100;
  first.bigValues = first.globalGain = first.scalefacCompress = 1;
  first.windowSwitchingFlag = 0;
  first.tableSelect[0] = first.tableSelect[1] = first.tableSelect[2] = 1;
  first.region0Count = first.region1Count = 1;
  first.preflag = first.scalefacScale = first.count1TableSelect = 0;
  WriteRecord(w, first, true);
  AklMP3SideInfo bad = first;
  bad.windowSwitchingFlag = 1;
  bad.blockType = 0;
  bad.mixedBlockFlag = 0;
  bad.subblockGain[0] = bad.subblockGain[1] = bad.subblockGain[2] = 0;
  WriteRecord(w, bad, true);
  AklMP3FrameHeader h = Header(1, 0);
  AklMP3SideInfo got[4] = {Filled(), Filled(), Filled(), Filled()};
  Akl32s scfsi[8], mdb, priv;
  Akl8u* p = buf.data();
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, got, &mdb, &priv, scfsi, &h), kStsMP3SideInfoErr);
  EXPECT_EQ(got[0].part23Length, 100);
  EXPECT_EQ(got[0].blockType, 0);
  EXPECT_EQ(got[1].windowSwitchingFlag, 1);
  EXPECT_EQ(got[1].blockType, 0);
  EXPECT_EQ(got[2].part23Length, kSentinel);
  EXPECT_EQ(mdb, 0x1FF);
  // 20 + 59 + 56 bits read: the pointer stands on the byte holding bit 135.
  EXPECT_EQ(p - buf.data(), 135 / 8);
}

TEST(UnpackSideInfo, HeaderChecksComeFirstAndReadNothing) {
  struct Row {
    int id, layer, mode;
    Status want;
  } rows[] = {{1, 2, 0, kStsMP3FrameHeaderErr}, {1, 3, 0, kStsMP3FrameHeaderErr}, {2, 1, 0, kStsMP3FrameHeaderErr},
              {-1, 1, 0, kStsMP3FrameHeaderErr}, {1, 1, 4, kStsMP3FrameHeaderErr}, {0, 1, -1, kStsMP3FrameHeaderErr},
              {1, 0, 0, kStsMP3FrameHeaderErr}};
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.id << " " << r.layer << " " << r.mode);
    AklMP3FrameHeader h = Header(r.id, r.mode, r.layer);
    Akl8u buf[32] = {0xFF};
    Akl8u* p = buf;
    AklMP3SideInfo si[4] = {Filled(), Filled(), Filled(), Filled()};
    Akl32s scfsi[8] = {kSentinel}, mdb = kSentinel, priv = kSentinel;
    EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, si, &mdb, &priv, scfsi, &h), r.want);
    EXPECT_EQ(p, buf);
    EXPECT_EQ(mdb, kSentinel);
    EXPECT_EQ(si[0].part23Length, kSentinel);
  }
  AklMP3FrameHeader h = Header(1, 0);
  Akl8u buf[32] = {};
  Akl8u* p = buf;
  Akl8u* null_byte = nullptr;
  AklMP3SideInfo si[4];
  Akl32s scfsi[8], mdb, priv;
  EXPECT_EQ(aklsUnpackSideInfo_MP3(nullptr, si, &mdb, &priv, scfsi, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&null_byte, si, &mdb, &priv, scfsi, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, nullptr, &mdb, &priv, scfsi, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, si, nullptr, &priv, scfsi, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, si, &mdb, nullptr, scfsi, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, si, &mdb, &priv, nullptr, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, si, &mdb, &priv, scfsi, nullptr), kStsNullPtr);
  // A null pointer wins over a bad header.
  AklMP3FrameHeader bad = Header(1, 0, 2);
  EXPECT_EQ(aklsUnpackSideInfo_MP3(&p, si, &mdb, &priv, nullptr, &bad), kStsNullPtr);
}

TEST(BitReservoirInit, MaximumAndChecks) {
  struct Row {
    int sfi, bri;
    Status want;
    Akl32s max_bits;
  } rows[] = {
      {0, 14, kStsOk, 0},            // 1044 bytes = 8352 bits, more than 7680
      {0, 0, kStsOk, 4088},          // free format
      {0, 9, kStsOk, 4088},          // 417 bytes: 7680 - 3336 = 4344, capped at 4088
      {1, 13, kStsOk, 7680 - 6144},  // 768 bytes
      {2, 12, kStsOk, 0},            // 1008 bytes
      {2, 1, kStsOk, 4088},
      {0, 11, kStsOk, 7680 - 626 * 8},
      {3, 1, kStsMP3FrameHeaderErr, kSentinel},
      {0, 15, kStsMP3FrameHeaderErr, kSentinel},
      {-1, 1, kStsMP3FrameHeaderErr, kSentinel},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.sfi << " " << r.bri);
    AklMP3FrameHeader h = Header(1, 0);
    h.samplingFreqIndex = r.sfi;
    h.bitrateIndex = r.bri;
    AklMP3BitReservoir res{kSentinel, kSentinel};
    EXPECT_EQ(aklsBitReservoirInit_MP3(&res, &h), r.want);
    EXPECT_EQ(res.maxBits, r.max_bits);
    EXPECT_EQ(res.bitsHeld, r.want == kStsOk ? 0 : kSentinel);
  }
  AklMP3FrameHeader h2 = Header(0, 0);
  AklMP3BitReservoir res{kSentinel, kSentinel};
  EXPECT_EQ(aklsBitReservoirInit_MP3(&res, &h2), kStsMP3FrameHeaderErr);
  EXPECT_EQ(res.maxBits, kSentinel);
  EXPECT_EQ(aklsBitReservoirInit_MP3(nullptr, &h2), kStsNullPtr);
  EXPECT_EQ(aklsBitReservoirInit_MP3(&res, nullptr), kStsNullPtr);
}

}  // namespace
