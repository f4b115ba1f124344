// Packing operations against their unpacking counterparts: random records
// go out and come back field for field; bad records are refused before a
// byte is written.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"

namespace {

AklMP3FrameHeader RandomHeader(std::mt19937& rng, int id, int mode) {
  auto u = [&rng](int n) { return static_cast<Akl32s>(rng() % static_cast<unsigned>(n)); };
  AklMP3FrameHeader h{};
  h.id = id;
  h.layer = 1;
  h.protectionBit = u(2);
  h.bitrateIndex = u(15);
  h.samplingFreqIndex = u(3);
  h.paddingBit = u(2);
  h.privateBit = u(2);
  h.mode = mode;
  h.modeExtension = u(4);
  h.copyFlag = u(2);
  h.originalHome = u(2);
  h.emphasis = u(4);
  h.crcWord = h.protectionBit == 0 ? u(65536) : 0;
  return h;
}

AklMP3SideInfo RandomRecord(std::mt19937& rng, bool mpeg1) {
  auto u = [&rng](int n) { return static_cast<Akl32s>(rng() % static_cast<unsigned>(n)); };
  AklMP3SideInfo si{};
  si.part23Length = u(4096);
  si.bigValues = u(289);
  si.globalGain = u(256);
  si.scalefacCompress = u(mpeg1 ? 16 : 512);
  si.windowSwitchingFlag = u(2);
  if (si.windowSwitchingFlag) {
    si.blockType = 1 + u(3);
    si.mixedBlockFlag = u(2);
    si.tableSelect[0] = u(32);
    si.tableSelect[1] = u(32);
    for (int& g : si.subblockGain) g = u(8);
  } else {
    for (int& t : si.tableSelect) t = u(32);
    si.region0Count = u(16);
    si.region1Count = u(8);
  }
  si.preflag = mpeg1 ? u(2) : 0;
  si.scalefacScale = u(2);
  si.count1TableSelect = u(2);
  return si;
}

TEST(PackFrameHeader, RoundTripsThroughTheUnpacker) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int n = 0; n < 2000; ++n) {
    const AklMP3FrameHeader h = RandomHeader(rng, static_cast<int>(rng() % 2), static_cast<int>(rng() % 4));
    Akl8u buf[8];
    std::memset(buf, 0xEE, sizeof(buf));
    Akl8u* p = buf;
    ASSERT_EQ(aklsPackFrameHeader_MP3(&h, &p), kStsOk);
    const int len = h.protectionBit == 0 ? 6 : 4;
    ASSERT_EQ(p - buf, len);
    EXPECT_EQ(buf[len], 0xEE);
    EXPECT_EQ(buf[0], 0xFF);
    EXPECT_EQ(buf[1] >> 4, 0xF);
    AklMP3FrameHeader back{};
    back.crcWord = h.crcWord;  // left alone without a CRC
    Akl8u* q = buf;
    ASSERT_EQ(aklsUnpackFrameHeader_MP3(&q, &back), kStsOk);
    EXPECT_EQ(q, p);
    EXPECT_EQ(std::memcmp(&h, &back, sizeof(h)), 0);
  }
}

TEST(PackSideInfo, RoundTripsThroughTheUnpacker) {
  std::mt19937 rng(akl::test::TestSeed() + 1);
  for (int n = 0; n < 4000; ++n) {
    const int id = static_cast<int>(n % 2), mode = static_cast<int>(rng() % 4);
    const bool mpeg1 = id == 1;
    const int ch = mode == 3 ? 1 : 2, gr = mpeg1 ? 2 : 1;
    AklMP3FrameHeader h = RandomHeader(rng, id, mode);
    AklMP3SideInfo si[4];
    for (int i = 0; i < gr * ch; ++i) si[i] = RandomRecord(rng, mpeg1);
    Akl32s scfsi[8];
    for (Akl32s& f : scfsi) f = static_cast<Akl32s>(rng() % 2);
    const int priv_bits = mpeg1 ? (ch == 1 ? 5 : 3) : ch;
    const Akl32s mdb = static_cast<Akl32s>(rng() % (mpeg1 ? 512 : 256));
    const Akl32s priv = static_cast<Akl32s>(rng() % (1u << priv_bits));
    std::vector<Akl8u> buf(40, 0xEE);
    Akl8u* p = buf.data();
    ASSERT_EQ(aklsPackSideInfo_MP3(si, &p, mdb, priv, scfsi, &h), kStsOk);
    const int want_len = mpeg1 ? (ch == 1 ? 17 : 32) : (ch == 1 ? 9 : 17);
    ASSERT_EQ(p - buf.data(), want_len);
    EXPECT_EQ(buf[want_len], 0xEE);

    AklMP3SideInfo back[4];
    std::memcpy(back, si, sizeof(si));  // fields the unpacker leaves alone keep their values
    for (int i = 0; i < gr * ch; ++i) {
      back[i].part23Length = back[i].bigValues = back[i].globalGain = -1;
      back[i].count1TableSelect = back[i].scalefacScale = -1;
    }
    Akl32s mdb_back = -1, priv_back = -1, scfsi_back[8];
    std::memcpy(scfsi_back, scfsi, sizeof(scfsi));
    if (mpeg1)
      for (int i = 0; i < 4 * ch; ++i) scfsi_back[i] = -1;
    Akl8u* q = buf.data();
    ASSERT_EQ(aklsUnpackSideInfo_MP3(&q, back, &mdb_back, &priv_back, scfsi_back, &h), kStsOk);
    EXPECT_EQ(q, p);
    EXPECT_EQ(mdb_back, mdb);
    EXPECT_EQ(priv_back, priv);
    EXPECT_EQ(std::memcmp(scfsi, scfsi_back, sizeof(Akl32s) * 4 * ch), 0);
    for (int i = 0; i < gr * ch; ++i) {
      AklMP3SideInfo want = si[i];
      if (want.windowSwitchingFlag) {  // derived by the unpacker
        want.region0Count = (want.blockType == 2 && !want.mixedBlockFlag) ? 8 : 7;
        want.region1Count = 20 - want.region0Count;
      }
      EXPECT_EQ(std::memcmp(&want, &back[i], sizeof(want)), 0) << "record " << i;
    }
  }
}

TEST(PackSideInfo, ChecksInOrderBeforeWriting) {
  std::mt19937 rng(11);
  AklMP3FrameHeader h = RandomHeader(rng, 1, 0);
  AklMP3SideInfo si[4];
  for (auto& r : si) r = RandomRecord(rng, true);
  Akl32s scfsi[8] = {};
  Akl8u buf[40] = {};
  Akl8u* p = buf;
  EXPECT_EQ(aklsPackSideInfo_MP3(si, &p, 0, 0, nullptr, &h), kStsNullPtr);
  AklMP3FrameHeader bad_h = h;
  bad_h.layer = 2;
  EXPECT_EQ(aklsPackSideInfo_MP3(si, &p, 600, 0, scfsi, &bad_h), kStsMP3FrameHeaderErr);
  EXPECT_EQ(aklsPackSideInfo_MP3(si, &p, 512, 0, scfsi, &h), kStsBadArgErr);
  EXPECT_EQ(aklsPackSideInfo_MP3(si, &p, 0, 8, scfsi, &h), kStsBadArgErr);
  scfsi[3] = 2;
  EXPECT_EQ(aklsPackSideInfo_MP3(si, &p, 0, 0, scfsi, &h), kStsMP3SideInfoErr);
  scfsi[3] = 0;
  struct Bad {
    void (*spoil)(AklMP3SideInfo&);
  } bad[] = {
      {[](AklMP3SideInfo& r) { r.part23Length = 4096; }},
      {[](AklMP3SideInfo& r) { r.bigValues = 289; }},
      {[](AklMP3SideInfo& r) { r.globalGain = -1; }},
      {[](AklMP3SideInfo& r) { r.scalefacCompress = 16; }},
      {[](AklMP3SideInfo& r) { r.windowSwitchingFlag = 1, r.blockType = 0; }},
      {[](AklMP3SideInfo& r) { r.windowSwitchingFlag = 1, r.blockType = 2, r.subblockGain[2] = 8; }},
      {[](AklMP3SideInfo& r) { r.windowSwitchingFlag = 0, r.region0Count = 16; }},
      {[](AklMP3SideInfo& r) { r.windowSwitchingFlag = 0, r.tableSelect[2] = 32; }},
      {[](AklMP3SideInfo& r) { r.count1TableSelect = 2; }},
  };
  for (const Bad& b : bad) {
    AklMP3SideInfo s2[4];
    std::memcpy(s2, si, sizeof(si));
    b.spoil(s2[3]);
    p = buf;
    EXPECT_EQ(aklsPackSideInfo_MP3(s2, &p, 0, 0, scfsi, &h), kStsMP3SideInfoErr);
    EXPECT_EQ(p, buf);
  }
  for (Akl8u v : buf) EXPECT_EQ(v, 0);
}

// Every scale-factor configuration: MPEG-1 long (with scfsi in granule 1),
// short and mixed; MPEG-2 every scalefacCompress, left and intensity right.
TEST(PackScaleFactors, RoundTripsThroughTheUnpacker) {
  std::mt19937 rng(akl::test::TestSeed() + 2);
  for (int n = 0; n < 6000; ++n) {
    const int id = static_cast<int>(n % 2);
    AklMP3FrameHeader h{};
    h.id = id;
    h.layer = 1;
    h.mode = 1;
    h.modeExtension = static_cast<Akl32s>(rng() % 4);
    AklMP3SideInfo si{};
    si.scalefacCompress = static_cast<Akl32s>(rng() % (id ? 16 : 512));
    si.blockType = static_cast<Akl32s>(rng() % 4);
    si.windowSwitchingFlag = si.blockType != 0;
    si.mixedBlockFlag = si.blockType == 2 ? static_cast<Akl32s>(rng() % 2) : 0;
    const int granule = static_cast<int>(rng() % 2), channel = static_cast<int>(rng() % 2);
    Akl32s scfsi[4];
    for (Akl32s& f : scfsi) f = static_cast<Akl32s>(rng() % 2);

    // Fill with the largest values the fields take: unpack an all-ones stream.
    std::vector<Akl8u> ones(64, 0xFF);
    Akl8s limit[40];
    std::memset(limit, 0, sizeof(limit));
    {
      Akl8u* p = ones.data();
      Akl32s off = 0;
      AklMP3SideInfo tmp = si;
      ASSERT_EQ(aklsUnpackScaleFactors_MP3_1u8s(&p, &off, limit, &tmp, scfsi, &h, granule, channel), kStsOk);
    }
    Akl8s sf[40];
    for (int i = 0; i < 40; ++i) {
      const int lim = limit[i] < 0 ? -limit[i] : limit[i];
      sf[i] = static_cast<Akl8s>(lim ? static_cast<int>(rng() % static_cast<unsigned>(lim + 1)) : 0);
      // On the intensity right channel the limit itself comes back negated
      // (a marked illegal position); pack that form.
      if (limit[i] < 0 && (sf[i] == lim || rng() % 3 == 0)) sf[i] = limit[i];
    }
    std::vector<Akl8u> buf(64, 0);
    Akl8u* p = buf.data() + 4;
    Akl32s off = static_cast<Akl32s>(rng() % 8);
    const Akl32s off0 = off;
    ASSERT_EQ(aklsPackScaleFactors_MP3_8s1u(sf, &p, &off, &si, scfsi, &h, granule, channel), kStsOk);
    const long bits = (p - buf.data() - 4) * 8 + off - off0;

    Akl8s back[40];
    std::memcpy(back, sf, sizeof(back));  // groups skipped through scfsi keep their values
    Akl8u* q = buf.data() + 4;
    Akl32s qoff = off0;
    AklMP3SideInfo tmp = si;
    ASSERT_EQ(aklsUnpackScaleFactors_MP3_1u8s(&q, &qoff, back, &tmp, scfsi, &h, granule, channel), kStsOk);
    EXPECT_EQ((q - buf.data() - 4) * 8 + qoff - off0, bits);
    for (int i = 0; i < 39; ++i) {
      const bool written = limit[i] != 0;  // a field of zero bits reads as 0
      if (written) {
        EXPECT_EQ(back[i], sf[i]) << "entry " << i << " n " << n;
      }
    }
  }
}

}  // namespace
