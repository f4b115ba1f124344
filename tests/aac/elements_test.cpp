// Syntax elements: channel pair headers, data stream and fill elements, the
// scalable main and extension layer headers with their TNS and LTP data.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "contract_buffer.hpp"
#include "core/bitstream.hpp"
#include "../support/test_util.hpp"

namespace {

// A bit buffer written from the start of a 4-aligned vector.
struct Bits {
  std::vector<Akl8u> bytes = std::vector<Akl8u>(4096, 0);
  akl::BitWriter bw{bytes.data() + 4, 0};
  void W(std::uint32_t v, int n) { bw.Write(v, n); }
  std::size_t Written() const {
    return static_cast<std::size_t>(bw.BytePtr() - (bytes.data() + 4)) * 8u + static_cast<std::size_t>(bw.BitOffset());
  }
  Akl8u* Start() { return bytes.data() + 4; }
  std::size_t Consumed(const Akl8u* p, Akl32s off) const {
    return static_cast<std::size_t>(p - (bytes.data() + 4)) * 8u + static_cast<std::size_t>(off);
  }
};

void WriteIcsShort(Bits& b, int max_sfb, int grouping) {
  b.W(0, 1);
  b.W(2, 2);
  b.W(1, 1);
  b.W(static_cast<std::uint32_t>(max_sfb), 4);
  b.W(static_cast<std::uint32_t>(grouping), 7);
}

TEST(ChanPairElt, WindowGroupingFromTheGroupingBits) {
  struct Row {
    int grouping;
    int groups;
    int lengths[8];
  } rows[] = {
      {0x7F, 1, {8}},
      {0x00, 8, {1, 1, 1, 1, 1, 1, 1, 1}},
      {0x5B, 3, {2, 3, 3}},  // 1011011: windows 0-1 | 2-4 | 5-7
      {0x3F, 2, {1, 7}},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.grouping);
    Bits b;
    b.W(1, 1);  // common window
    WriteIcsShort(b, 3, r.grouping);
    b.W(0, 2);  // no M/S
    AklAACIcsInfo ics;
    std::memset(&ics, 0x11, sizeof ics);
    AklAACChanPairElt cpe{};
    Akl8u* p = b.Start();
    Akl32s off = 0;
    ASSERT_EQ(aklsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 0), kStsOk);
    EXPECT_EQ(b.Consumed(p, off), b.Written());
    EXPECT_EQ(ics.windowSequence, 2);
    EXPECT_EQ(ics.windowShape, 1);
    EXPECT_EQ(ics.maxSfb, 3);
    EXPECT_EQ(ics.scaleFactorGrouping, r.grouping);
    EXPECT_EQ(ics.predictorDataPresent, 0);
    EXPECT_EQ(ics.numWindowGroups, r.groups);
    for (int g = 0; g < r.groups; ++g) EXPECT_EQ(ics.windowGroupLength[g], r.lengths[g]) << g;
  }
}

TEST(ChanPairElt, MsMaskPerGroupAndBand) {
  Bits b;
  b.W(1, 1);
  WriteIcsShort(b, 5, 0x3F);  // 2 groups
  b.W(1, 2);
  const std::uint32_t mask[2] = {0x15, 0x0A};  // 5 bits per group
  b.W(mask[0], 5);
  b.W(mask[1], 5);
  AklAACIcsInfo ics{};
  AklAACChanPairElt cpe;
  std::memset(&cpe, 0x44, sizeof cpe);
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 0), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  EXPECT_EQ(cpe.commonWindow, 1);
  EXPECT_EQ(cpe.msMaskPresent, 1);
  for (int g = 0; g < 2; ++g) {
    for (int sfb = 0; sfb < 5; ++sfb) EXPECT_EQ(cpe.msUsed[g][sfb], (mask[g] >> (4 - sfb)) & 1) << g << sfb;
    EXPECT_EQ(cpe.msUsed[g][5], 0x44);
  }
  EXPECT_EQ(cpe.msUsed[2][0], 0x44);
  // msMaskPresent 2 reads no mask and leaves it untouched.
  Bits b2;
  b2.W(1, 1);
  WriteIcsShort(b2, 5, 0x3F);
  b2.W(2, 2);
  std::memset(&cpe, 0x44, sizeof cpe);
  p = b2.Start();
  off = 0;
  ASSERT_EQ(aklsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 0), kStsOk);
  EXPECT_EQ(b2.Consumed(p, off), b2.Written());
  EXPECT_EQ(cpe.msMaskPresent, 2);
  EXPECT_EQ(cpe.msUsed[0][0], 0x44);
}

TEST(ChanPairElt, LongWindowMaxSfbLimitAndPredictor) {
  for (int max_sfb : {51, 52, 63}) {
    SCOPED_TRACE(max_sfb);
    Bits b;
    b.W(1, 1);
    b.W(0, 1);
    b.W(0, 2);
    b.W(0, 1);
    b.W(static_cast<std::uint32_t>(max_sfb), 6);
    const std::size_t after_max_sfb = b.Written();
    b.W(1, 1);   // predictor data present
    b.W(1, 1);   // reset
    b.W(17, 5);  // reset group
    for (int sfb = 0; sfb < 40; ++sfb) b.W(static_cast<std::uint32_t>(sfb & 1), 1);
    b.W(0, 2);
    AklAACIcsInfo ics;
    std::memset(&ics, 0x22, sizeof ics);
    AklAACChanPairElt cpe{};
    Akl8u* p = b.Start();
    Akl32s off = 0;
    const Status st = aklsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 40);
    if (max_sfb > 51) {
      EXPECT_EQ(st, kStsAacMaxSfbErr);
      EXPECT_EQ(b.Consumed(p, off), after_max_sfb);
      continue;
    }
    ASSERT_EQ(st, kStsOk);
    EXPECT_EQ(b.Consumed(p, off), b.Written());
    EXPECT_EQ(ics.numWindowGroups, 1);
    EXPECT_EQ(ics.windowGroupLength[0], 1);
    EXPECT_EQ(ics.predictorDataPresent, 1);
    EXPECT_EQ(ics.predictorReset, 1);
    EXPECT_EQ(ics.predictorResetGroupNum, 17);
    for (int sfb = 0; sfb < 40; ++sfb) EXPECT_EQ(ics.predictionUsed[sfb], sfb & 1);
    EXPECT_EQ(ics.predictionUsed[40], 0x22);
  }
}

TEST(ChanPairElt, PredictionFlagsBelowMaxSfbAndZerosUpToTheLimit) {
  Bits b;
  b.W(1, 1);
  b.W(0, 4);
  b.W(10, 6);  // max_sfb 10
  b.W(1, 1);
  b.W(0, 1);   // no reset
  b.W(0x3FF, 10);
  b.W(3, 2);   // msMaskPresent 3: no mask
  AklAACIcsInfo ics;
  std::memset(&ics, 0x22, sizeof ics);
  AklAACChanPairElt cpe{};
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 20), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  EXPECT_EQ(ics.predictorReset, 0);
  EXPECT_EQ(ics.predictorResetGroupNum, 0x22222222);
  for (int sfb = 0; sfb < 10; ++sfb) EXPECT_EQ(ics.predictionUsed[sfb], 1);
  for (int sfb = 10; sfb < 20; ++sfb) EXPECT_EQ(ics.predictionUsed[sfb], 0);
  EXPECT_EQ(ics.predictionUsed[20], 0x22);
}

TEST(ChanPairElt, ChecksInOrder) {
  Bits b;
  AklAACIcsInfo ics{};
  AklAACChanPairElt cpe{};
  AklAACLtpInfo ltp{};
  Akl8u* p = b.Start();
  Akl8u* null_byte = nullptr;
  Akl32s off = 0;
  Akl32s bad = 8;
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(nullptr, &bad, &ics, &cpe, 99), kStsNullPtr);
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(&p, nullptr, &ics, &cpe, 99), kStsNullPtr);
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(&p, &bad, nullptr, &cpe, 99), kStsNullPtr);
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(&p, &bad, &ics, nullptr, 99), kStsNullPtr);
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(&null_byte, &off, &ics, &cpe, 0), kStsNullPtr);
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(&p, &bad, &ics, &cpe, 99), kStsAacBitOffsetErr);
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, 42), kStsAacPredSfbErr);
  EXPECT_EQ(aklsDecodeChanPairElt_AAC(&p, &off, &ics, &cpe, -1), kStsAacPredSfbErr);
  EXPECT_EQ(aklsDecodeChanPairElt_MP4_AAC(&p, &off, &ics, &cpe, nullptr, 99, 2), kStsNullPtr);
  EXPECT_EQ(aklsDecodeChanPairElt_MP4_AAC(&p, &bad, &ics, &cpe, &ltp, 99, 2), kStsAacBitOffsetErr);
  EXPECT_EQ(aklsDecodeChanPairElt_MP4_AAC(&p, &off, &ics, &cpe, &ltp, 52, 2), kStsAacMaxSfbErr);
  EXPECT_EQ(p, b.Start());
  EXPECT_EQ(off, 0);
}

void WriteLongIcsWithPredictor(Bits& b, int max_sfb) {
  b.W(1, 1);  // common window
  b.W(0, 1);
  b.W(0, 2);
  b.W(0, 1);
  b.W(static_cast<std::uint32_t>(max_sfb), 6);
  b.W(1, 1);  // predictor_data_present
}

TEST(ChanPairEltMp4, LtpDataForBothChannels) {
  Bits b;
  WriteLongIcsWithPredictor(b, 45);
  // Channel 0: LTP with lag 1234, coef index 5, 40 band flags (max_sfb 45 caps at 40).
  b.W(1, 1);
  b.W(1234, 11);
  b.W(5, 3);
  for (int sfb = 0; sfb < 40; ++sfb) b.W(sfb % 3 == 0 ? 1u : 0u, 1);
  b.W(0, 1);  // channel 1: none
  b.W(0, 2);  // no M/S
  AklAACIcsInfo ics{};
  AklAACChanPairElt cpe{};
  AklAACLtpInfo ltp;
  std::memset(&ltp, 0x66, sizeof ltp);
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeChanPairElt_MP4_AAC(&p, &off, &ics, &cpe, &ltp, 0, 4), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  EXPECT_EQ(ltp.windowSequence, 0);
  EXPECT_EQ(ltp.maxSfb, 45);
  EXPECT_EQ(ltp.ltpData[0].ltpDataPresent, 1);
  EXPECT_EQ(ltp.ltpData[0].ltpLag, 1234);
  EXPECT_EQ(ltp.ltpData[0].ltpCoef, 17496);
  EXPECT_EQ(ltp.ltpData[0].longUsed[0], 1);
  for (int sfb = 1; sfb <= 40; ++sfb) EXPECT_EQ(ltp.ltpData[0].longUsed[sfb], (sfb - 1) % 3 == 0 ? 1 : 0);
  EXPECT_EQ(ltp.ltpData[1].ltpDataPresent, 0);
  EXPECT_EQ(ltp.ltpData[1].ltpLag, 0x66666666);
}

TEST(ChanPairEltMp4, MainProfilePredictorAndItsLimit) {
  Bits b;
  WriteLongIcsWithPredictor(b, 4);
  b.W(0, 1);
  b.W(0xA, 4);
  b.W(0, 2);
  AklAACIcsInfo ics{};
  AklAACChanPairElt cpe{};
  AklAACLtpInfo ltp;
  std::memset(&ltp, 0x66, sizeof ltp);
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeChanPairElt_MP4_AAC(&p, &off, &ics, &cpe, &ltp, 41, 1), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  EXPECT_EQ(ics.predictionUsed[0], 1);
  EXPECT_EQ(ics.predictionUsed[1], 0);
  EXPECT_EQ(ics.predictionUsed[40], 0);
  EXPECT_EQ(ltp.ltpData[0].ltpDataPresent, 0);  // cleared first
  EXPECT_EQ(ltp.ltpData[1].ltpDataPresent, 0);
  EXPECT_EQ(ltp.maxSfb, 0x66666666);            // not an LTP stream
  p = b.Start();
  off = 0;
  EXPECT_EQ(aklsDecodeChanPairElt_MP4_AAC(&p, &off, &ics, &cpe, &ltp, 42, 1), kStsAacPredSfbErr);
}

TEST(DatStrElt, CountsEscapeAndAlignment) {
  struct Row {
    int start;
    int align;
    int count;
    int escape;
    int bytes;
  } rows[] = {{0, 0, 255, 0, 255}, {3, 1, 255, 255, 510}, {5, 1, 7, 0, 7}, {2, 0, 0, 0, 0}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.bytes);
    std::vector<Akl8u> buf(1024, 0);
    akl::BitWriter bw(buf.data() + 4, r.start);
    bw.Write(9, 4);
    bw.Write(static_cast<std::uint32_t>(r.align), 1);
    bw.Write(static_cast<std::uint32_t>(r.count), 8);
    if (r.count == 255) bw.Write(static_cast<std::uint32_t>(r.escape), 8);
    if (r.align && bw.BitOffset()) bw.Write(0x7F, 8 - bw.BitOffset());
    for (int i = 0; i < r.bytes; ++i) bw.Write(static_cast<std::uint32_t>(i * 7 + 1) & 0xFFu, 8);
    Akl32s tag = -1, count = -1;
    std::vector<Akl8u> data(600, 0xCC);
    Akl8u* p = buf.data() + 4;
    Akl32s off = r.start;
    ASSERT_EQ(aklsDecodeDatStrElt_AAC(&p, &off, &tag, &count, data.data()), kStsOk);
    EXPECT_EQ(p, bw.BytePtr());
    EXPECT_EQ(off, bw.BitOffset());
    EXPECT_EQ(tag, 9);
    EXPECT_EQ(count, r.bytes);
    for (int i = 0; i < r.bytes; ++i) ASSERT_EQ(data[static_cast<std::size_t>(i)], static_cast<Akl8u>(i * 7 + 1)) << i;
    EXPECT_EQ(data[static_cast<std::size_t>(r.bytes)], 0xCC);
  }
}

TEST(FillElt, CountsAndEscape) {
  struct Row {
    int count;
    int escape;
    int bytes;
  } rows[] = {{15, 0, 14}, {15, 255, 269}, {14, 0, 14}, {0, 0, 0}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.bytes);
    std::vector<Akl8u> buf(1024, 0);
    akl::BitWriter bw(buf.data() + 4, 6);
    bw.Write(static_cast<std::uint32_t>(r.count), 4);
    if (r.count == 15) bw.Write(static_cast<std::uint32_t>(r.escape), 8);
    for (int i = 0; i < r.bytes; ++i) bw.Write(static_cast<std::uint32_t>(255 - i) & 0xFFu, 8);
    std::vector<Akl8u> data(300, 0xCC);
    Akl32s count = -1;
    Akl8u* p = buf.data() + 4;
    Akl32s off = 6;
    ASSERT_EQ(aklsDecodeFillElt_AAC(&p, &off, &count, data.data()), kStsOk);
    EXPECT_EQ(p, bw.BytePtr());
    EXPECT_EQ(off, bw.BitOffset());
    EXPECT_EQ(count, r.bytes);
    for (int i = 0; i < r.bytes; ++i) ASSERT_EQ(data[static_cast<std::size_t>(i)], static_cast<Akl8u>(255 - i));
    EXPECT_EQ(data[static_cast<std::size_t>(r.bytes)], 0xCC);
  }
}

TEST(DatStrAndFillElt, ChecksInOrder) {
  Bits b;
  Akl8u* p = b.Start();
  Akl8u* null_byte = nullptr;
  Akl32s off = 0, bad = 8, tag = 0, count = 0;
  Akl8u data[512];
  EXPECT_EQ(aklsDecodeDatStrElt_AAC(nullptr, &bad, &tag, &count, data), kStsNullPtr);
  EXPECT_EQ(aklsDecodeDatStrElt_AAC(&p, &bad, nullptr, &count, data), kStsNullPtr);
  EXPECT_EQ(aklsDecodeDatStrElt_AAC(&p, &bad, &tag, nullptr, data), kStsNullPtr);
  EXPECT_EQ(aklsDecodeDatStrElt_AAC(&p, &bad, &tag, &count, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsDecodeDatStrElt_AAC(&null_byte, &off, &tag, &count, data), kStsNullPtr);
  EXPECT_EQ(aklsDecodeDatStrElt_AAC(&p, &bad, &tag, &count, data), kStsAacBitOffsetErr);
  EXPECT_EQ(aklsDecodeFillElt_AAC(nullptr, &bad, &count, data), kStsNullPtr);
  EXPECT_EQ(aklsDecodeFillElt_AAC(&p, nullptr, &count, data), kStsNullPtr);
  EXPECT_EQ(aklsDecodeFillElt_AAC(&p, &bad, nullptr, data), kStsNullPtr);
  EXPECT_EQ(aklsDecodeFillElt_AAC(&p, &bad, &count, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsDecodeFillElt_AAC(&null_byte, &off, &count, data), kStsNullPtr);
  bad = -1;
  EXPECT_EQ(aklsDecodeFillElt_AAC(&p, &bad, &count, data), kStsAacBitOffsetErr);
  EXPECT_EQ(p, b.Start());
  EXPECT_EQ(tag, 0);
  EXPECT_EQ(count, 0);
}

struct MainHeaderFixture {
  std::vector<Akl8u> ms = std::vector<Akl8u>(480, 0x99);
  AklAACMainHeader h;
  MainHeaderFixture() {
    std::memset(&h, 0x55, sizeof h);
    h.pMsUsed = ms.data();
  }
};

TEST(MainHeader, ShortGroupingKeepsItsOwnRule) {
  // Group lengths as this header derives them, from entries that held 0x55555555
  // before the call (c below), and the exact group count.
  const Akl32s c = 0x55555555;
  struct Row {
    int grouping;
    int groups;
    Akl32s lengths[8];
  } rows[] = {
      {0x7F, 1, {8, c, c, c, c, c, c, c}},
      {0x00, 8, {1, c, c, c, c, c, c, c}},
      {0x60, 6, {1, c, c, c, c, c, c, c}},          // 1100000: 3 then a reset by the first 0
      {0x3F, 2, {1, c + 6, c, c, c, c, c, c}},      // 0111111: later 1s add to entry 1
      {0x5B, 3, {1, c + 2, c + 2, c, c, c, c, c}},  // 1011011
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.grouping);
    Bits b;
    b.W(2, 2);
    b.W(0, 1);
    b.W(4, 4);
    b.W(static_cast<std::uint32_t>(r.grouping), 7);
    b.W(0, 2);  // no TNS or LTP (mono)
    MainHeaderFixture f;
    Akl8u* p = b.Start();
    Akl32s off = 0;
    ASSERT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 1, 0), kStsOk);
    EXPECT_EQ(b.Consumed(p, off), b.Written());
    EXPECT_EQ(f.h.numWindowGroups, r.groups);
    for (int g = 0; g < 8; ++g) EXPECT_EQ(f.h.windowGroupLength[g], r.lengths[g]) << g;
    EXPECT_EQ(f.h.msMaskPresent, 0x55555555);  // mono: not read
  }
}

TEST(MainHeader, LongWindowsMsMaskValuesAndMonoStereoFlag) {
  for (int ms_present : {0, 1, 2, 3}) {
    SCOPED_TRACE(ms_present);
    Bits b;
    b.W(0, 2);
    b.W(1, 1);
    b.W(6, 6);
    b.W(static_cast<std::uint32_t>(ms_present), 2);
    if (ms_present == 1) b.W(0x2D, 6);  // 101101
    b.W(0, 4);                          // two channels, no TNS, no LTP
    MainHeaderFixture f;
    Akl8u* p = b.Start();
    Akl32s off = 0;
    ASSERT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 2, 1), kStsNotSupportedModeErr);
    EXPECT_EQ(b.Consumed(p, off), b.Written());  // everything was parsed
    EXPECT_EQ(f.h.maxSfb, 6);
    EXPECT_EQ(f.h.numWindowGroups, 1);
    EXPECT_EQ(f.h.windowGroupLength[0], 1);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(f.h.windowGroupLength[i], 0);
    for (int sfb = 0; sfb < 6; ++sfb) {
      const int want = ms_present == 1 ? (0x2D >> (5 - sfb)) & 1 : ms_present == 2 ? 1 : 0;
      EXPECT_EQ(f.ms[static_cast<std::size_t>(sfb)], want) << sfb;
    }
    EXPECT_EQ(f.ms[6], 0x99);
    EXPECT_EQ(f.h.tnsData[1].tnsDataPresent, 0);
    EXPECT_EQ(f.h.tnsData[1].nFilt[0], 0);  // cleared
    EXPECT_EQ(f.h.ltpData[1].ltpLag, 0);    // cleared
  }
}

TEST(MainHeader, TnsAndShortLtpLags) {
  Bits b;
  b.W(2, 2);
  b.W(0, 1);
  b.W(3, 4);
  b.W(0x7F, 7);
  // Channel 0 TNS, eight windows: window 0 one filter of order 3 (res 4, compress 1),
  // window 3 one filter of order 0, the rest none.
  b.W(1, 1);
  for (int w = 0; w < 8; ++w) {
    if (w == 0) {
      b.W(1, 1);
      b.W(1, 1);    // coef_res: 4 bits
      b.W(9, 4);    // length
      b.W(3, 3);    // order
      b.W(1, 1);    // direction
      b.W(1, 1);    // compress: 3-bit coefficients
      b.W(0x3, 3);  // 3
      b.W(0x4, 3);  // -4
      b.W(0x7, 3);  // -1
    } else if (w == 3) {
      b.W(1, 1);
      b.W(0, 1);
      b.W(5, 4);
      b.W(0, 3);
    } else {
      b.W(0, 1);
    }
  }
  // Channel 0 LTP, short windows: lag 1000; windows 1, 2, 4, 6 used.
  b.W(1, 1);
  b.W(1000, 11);
  b.W(0, 3);
  for (int w = 0; w < 8; ++w) {
    const bool used = w == 1 || w == 2 || w == 4 || w == 6;
    b.W(used ? 1u : 0u, 1);
    if (w == 2) b.W(0, 1);              // repeats window 1's lag
    if (w == 4) { b.W(1, 1); b.W(5, 5); }   // 1000 - 5 + 16 = 1011
    if (w == 6) { b.W(1, 1); b.W(31, 5); }  // 1011 - 31 + 16 = 996
  }
  MainHeaderFixture f;
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 1, 0), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  const AklAACTnsData& t = f.h.tnsData[0];
  EXPECT_EQ(t.tnsDataPresent, 1);
  EXPECT_EQ(t.nFilt[0], 1);
  EXPECT_EQ(t.coefRes[0], 4);
  EXPECT_EQ(t.nFilt[3], 1);
  EXPECT_EQ(t.coefRes[3], 3);
  EXPECT_EQ(t.nFilt[1], 0);
  EXPECT_EQ(t.coefRes[1], 0);     // cleared, not written
  EXPECT_EQ(t.length[0], 9);      // filters in order over all windows
  EXPECT_EQ(t.order[0], 3);
  EXPECT_EQ(t.length[1], 5);
  EXPECT_EQ(t.order[1], 0);
  EXPECT_EQ(t.direction[0], 1);
  EXPECT_EQ(t.direction[1], 0);   // no direction for order 0
  EXPECT_EQ(t.coef[0], 3);
  EXPECT_EQ(t.coef[1], -4);
  EXPECT_EQ(t.coef[2], -1);
  EXPECT_EQ(sizeof(AklAACTnsData), 256u);
  const AklAACLtpData& l = f.h.ltpData[0];
  EXPECT_EQ(l.ltpLag, 1000);
  EXPECT_EQ(l.ltpCoef, 9352);
  const Akl32s used[8] = {0, 1, 1, 0, 1, 0, 1, 0};
  const Akl32s lags[8] = {1000, 1000, 1000, 0, 1011, 0, 996, 0};
  const Akl32s present[8] = {0, 0, 0, 0, 1, 0, 1, 0};
  for (int w = 0; w < 8; ++w) {
    EXPECT_EQ(l.shortUsed[w], used[w]) << w;
    EXPECT_EQ(l.shortLag[w], lags[w]) << w;
    EXPECT_EQ(l.shortLagPresent[w], present[w]) << w;
  }
}

TEST(MainHeader, TnsOrderLimits) {
  struct Row {
    int order;
    Status status;
  } rows[] = {{12, kStsOk}, {13, kStsAacTnsOrderErr}, {31, kStsAacTnsOrderErr}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.order);
    Bits b;
    b.W(0, 2);
    b.W(0, 1);
    b.W(40, 6);
    b.W(1, 1);  // TNS
    b.W(1, 2);  // one filter
    b.W(0, 1);  // 3-bit resolution
    b.W(20, 6);
    b.W(static_cast<std::uint32_t>(r.order), 5);
    const std::size_t after_order = b.Written();
    b.W(0, 1);
    b.W(0, 1);
    for (int i = 0; i < 12; ++i) b.W(1, 3);
    b.W(0, 1);  // no LTP
    MainHeaderFixture f;
    Akl8u* p = b.Start();
    Akl32s off = 0;
    EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 1, 0), r.status);
    if (r.status != kStsOk) {
      EXPECT_EQ(b.Consumed(p, off), after_order);
      EXPECT_EQ(f.h.tnsData[0].order[0], r.order);
    }
  }
}

TEST(MainHeader, ChecksInOrder) {
  Bits b;
  MainHeaderFixture f;
  Akl8u* p = b.Start();
  Akl32s off = 0, bad = 8;
  EXPECT_EQ(aklsDecodeMainHeader_AAC(nullptr, &bad, &f.h, 0, 5), kStsNullPtr);
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, nullptr, &f.h, 0, 5), kStsNullPtr);
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &bad, nullptr, 0, 5), kStsNullPtr);
  f.h.pMsUsed = nullptr;
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &bad, &f.h, 0, 5), kStsNullPtr);
  f.h.pMsUsed = f.ms.data();
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &bad, &f.h, 0, 5), kStsAacBitOffsetErr);
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 0, 5), kStsAacChanErr);
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 3, 5), kStsAacChanErr);
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 2, 2), kStsAacStereoFlagErr);
  EXPECT_EQ(aklsDecodeMainHeader_AAC(&p, &off, &f.h, 2, -1), kStsAacStereoFlagErr);
  EXPECT_EQ(p, b.Start());
  EXPECT_EQ(f.h.windowSequence, 0x55555555);
}

struct ExtFixture {
  std::vector<Akl8u> ms = std::vector<Akl8u>(480, 0x99);
  AklAACExtHeader h;
  ExtFixture() {
    std::memset(&h, 0x55, sizeof h);
    h.pMsUsed = ms.data();
  }
};

TEST(ExtensionHeader, ShortWindowsReadTheMaskForFourGroups) {
  Bits b;
  b.W(9, 4);  // max_sfb
  b.W(1, 2);  // msMaskPresent
  for (int g = 0; g < 4; ++g) b.W(static_cast<std::uint32_t>(0x15 ^ g), 6);  // bands 3..8
  b.W(0, 2);  // TNS flags of both channels
  // diff control: lowerMaxSfb 3 is not 0, so no short-window flags.
  ExtFixture f;
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeExtensionHeader_AAC(&p, &off, &f.h, 1, 1, 1, 3, 10, 2), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  EXPECT_EQ(f.h.maxSfb, 9);
  for (int g = 0; g < 4; ++g) {
    for (int sfb = 3; sfb < 9; ++sfb) {
      EXPECT_EQ(f.ms[static_cast<std::size_t>(g * 60 + sfb)], ((0x15 ^ g) >> (8 - sfb)) & 1) << g << " " << sfb;
    }
    EXPECT_EQ(f.ms[static_cast<std::size_t>(g * 60 + 2)], 0x99);
  }
  EXPECT_EQ(f.ms[4 * 60 + 3], 0x99);
  EXPECT_EQ(f.h.diffControl[0][0], 0x55555555);
}

TEST(ExtensionHeader, LongWindowDiffControlFlagsArePacked) {
  Bits b;
  b.W(20, 6);  // max_sfb
  b.W(1, 2);
  // Mask bands 4..19: used in bands 5 and 7 only.
  for (int sfb = 4; sfb < 20; ++sfb) b.W(sfb == 5 || sfb == 7 ? 1u : 0u, 1);
  // Flags for bands 4..min(9, 20)-1 whose mask byte is 0: 4, 6, 8 per channel.
  b.W(0x5, 3);
  b.W(0x2, 3);
  ExtFixture f;
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeExtensionHeader_AAC(&p, &off, &f.h, 0, 1, 1, 4, 9, 0), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  const Akl32s want[2][3] = {{1, 0, 1}, {0, 1, 0}};
  for (int ch = 0; ch < 2; ++ch) {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(f.h.diffControl[ch][i], want[ch][i]);
    EXPECT_EQ(f.h.diffControl[ch][3], 0x55555555);
  }
  EXPECT_EQ(f.h.tnsData[0].tnsDataPresent, 0x55555555);  // TNS not present
}

TEST(ExtensionHeader, ShortWindowFlagsWhenTheLowerLayerEndsAtZero) {
  Bits b;
  b.W(2, 4);
  b.W(0, 2);  // no mask
  b.W(0xA5, 8);
  b.W(0x3C, 8);
  ExtFixture f;
  Akl8u* p = b.Start();
  Akl32s off = 0;
  ASSERT_EQ(aklsDecodeExtensionHeader_AAC(&p, &off, &f.h, 0, 1, 1, 0, 0, 2), kStsOk);
  EXPECT_EQ(b.Consumed(p, off), b.Written());
  for (int w = 0; w < 8; ++w) {
    EXPECT_EQ(f.h.diffControl[0][w], (0xA5 >> (7 - w)) & 1);
    EXPECT_EQ(f.h.diffControl[1][w], (0x3C >> (7 - w)) & 1);
  }
}

TEST(ExtensionHeader, MaxSfbAbove60AndChecksInOrder) {
  Bits b;
  b.W(61, 6);
  ExtFixture f;
  Akl8u* p = b.Start();
  Akl32s off = 0;
  EXPECT_EQ(aklsDecodeExtensionHeader_AAC(&p, &off, &f.h, 0, 0, 0, 0, 0, 0), kStsAacMaxSfbErr);
  EXPECT_EQ(f.h.maxSfb, 61);
  Bits b2;
  b2.W(60, 6);
  p = b2.Start();
  off = 0;
  EXPECT_EQ(aklsDecodeExtensionHeader_AAC(&p, &off, &f.h, 0, 0, 0, 0, 0, 0), kStsOk);

  p = b.Start();
  off = 0;
  Akl32s bad = 8;
  struct Row {
    Akl32s tns, ms, diff, lower, prev, ws;
    Status status;
  } rows[] = {
      {2, 2, 2, 52, 52, 4, kStsAacStereoFlagErr},   {1, 2, 2, 52, 52, 4, kStsAacMsMaskFlagErr},
      {1, 1, -1, 52, 52, 4, kStsAacDiffCtrlFlagErr}, {1, 1, 1, 52, 0, 4, kStsAacMaxSfbErr},
      {1, 1, 1, 0, -1, 4, kStsAacMaxSfbErr},         {1, 1, 1, 51, 51, 4, kStsAacWinSeqErr},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.status);
    EXPECT_EQ(aklsDecodeExtensionHeader_AAC(&p, &off, &f.h, r.tns, r.ms, r.diff, r.lower, r.prev, r.ws), r.status);
  }
  EXPECT_EQ(aklsDecodeExtensionHeader_AAC(&p, &bad, &f.h, 2, 2, 2, 99, 99, 9), kStsAacBitOffsetErr);
  EXPECT_EQ(aklsDecodeExtensionHeader_AAC(&p, &bad, nullptr, 2, 2, 2, 99, 99, 9), kStsNullPtr);
  f.h.pMsUsed = nullptr;
  EXPECT_EQ(aklsDecodeExtensionHeader_AAC(&p, &bad, &f.h, 2, 2, 2, 99, 99, 9), kStsNullPtr);
  EXPECT_EQ(p, b.Start());
  EXPECT_EQ(off, 0);
}

// Random bytes through every element parser: any of the statuses the data can
// cause, the offset in range, and a replay from memory holding only the words
// the reading contract allows for the bits consumed ends in the same place.
TEST(Elements, RandomInputStaysWithinTheReadingContract) {
  std::mt19937 rng(akl::test::TestSeed());
  const std::size_t n = 2048;
  std::vector<Akl8u> buf(n);
  for (int iter = 0; iter < 4000; ++iter) {
    SCOPED_TRACE(iter);
    for (Akl8u& v : buf) v = static_cast<Akl8u>(rng());
    const std::size_t start_byte = 4 + rng() % 4;
    const Akl32s start_bit = static_cast<Akl32s>(rng() % 8);
    const int kind = iter % 7;
    const Akl32s a1 = static_cast<Akl32s>(rng() % 42);
    const Akl32s a2 = static_cast<Akl32s>(rng() % 52);
    const Akl32s a3 = static_cast<Akl32s>(rng() % 52);
    const Akl32s f1 = static_cast<Akl32s>(rng() % 2);
    const Akl32s f2 = static_cast<Akl32s>(rng() % 2);
    const Akl32s f3 = static_cast<Akl32s>(rng() % 2);
    const Akl32s ws = static_cast<Akl32s>(rng() % 4);
    const Akl32s aot = static_cast<Akl32s>(rng() % 5);
    auto run = [&](Akl8u* p, Akl32s* off, Akl8u** end) {
      AklAACIcsInfo ics{};
      AklAACChanPairElt cpe{};
      AklAACLtpInfo ltp{};
      std::vector<Akl8u> ms(480);
      std::vector<Akl8u> bytes(600);
      Akl32s tag = 0, count = 0;
      Status st = kStsOk;
      switch (kind) {
        case 0: st = aklsDecodeChanPairElt_AAC(&p, off, &ics, &cpe, a1); break;
        case 1: st = aklsDecodeChanPairElt_MP4_AAC(&p, off, &ics, &cpe, &ltp, a2, aot); break;
        case 2: st = aklsDecodeDatStrElt_AAC(&p, off, &tag, &count, bytes.data()); break;
        case 3: st = aklsDecodeFillElt_AAC(&p, off, &count, bytes.data()); break;
        case 4: {
          AklAACMainHeader h{};
          h.pMsUsed = ms.data();
          st = aklsDecodeMainHeader_AAC(&p, off, &h, 1 + f1, f2);
          break;
        }
        case 5: {
          auto h = std::make_unique<AklAACExtHeader>();
          h->pMsUsed = ms.data();
          st = aklsDecodeExtensionHeader_AAC(&p, off, h.get(), f1, f2, f3, a2, a3, ws);
          break;
        }
        default: {
          AklAACPrgCfgElt pce;
          st = aklsDecodePrgCfgElt_AAC(&p, off, &pce);
          break;
        }
      }
      *end = p;
      return st;
    };
    Akl32s off = start_bit;
    Akl8u* end = nullptr;
    const Status st = run(buf.data() + start_byte, &off, &end);
    EXPECT_TRUE(st == kStsOk || st == kStsAacMaxSfbErr || st == kStsAacPredSfbErr || st == kStsAacTnsOrderErr ||
                st == kStsNotSupportedModeErr)
        << st;
    ASSERT_GE(off, 0);
    ASSERT_LE(off, 7);
    ASSERT_LE(end, buf.data() + n - 8);
    const std::size_t end_bits = static_cast<std::size_t>(end - buf.data()) * 8u + static_cast<std::size_t>(off);
    aactest::ContractBuffer mem(buf.data(), start_byte * 8u + static_cast<std::size_t>(start_bit), end_bits);
    Akl32s off2 = start_bit;
    Akl8u* end2 = nullptr;
    EXPECT_EQ(run(mem.At(start_byte), &off2, &end2), st);
    EXPECT_EQ(mem.BitPosition(end2, off2), end_bits);
  }
}

}  // namespace
