// ADTS and ADIF headers and the program configuration element.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "core/bitstream.hpp"
#include "../support/test_util.hpp"

namespace {

struct AdtsFields {
  int protection_absent;
  int sync;  // 12 bits
};

// Writes an ADTS header of the fields below into exact-size heap memory plus
// the three bytes of read slack the header parsers may touch.
std::unique_ptr<Akl8u[]> MakeAdts(const AdtsFields& f, std::size_t* size) {
  *size = f.protection_absent ? 7 : 9;
  auto buf = std::make_unique<Akl8u[]>(*size + 3);
  std::memset(buf.get(), 0xEE, *size + 3);
  akl::BitWriter bw(buf.get(), 0);
  bw.Write(static_cast<std::uint32_t>(f.sync), 12);
  bw.Write(1, 1);      // id
  bw.Write(2, 2);      // layer
  bw.Write(static_cast<std::uint32_t>(f.protection_absent), 1);
  bw.Write(1, 2);      // profile
  bw.Write(11, 4);     // sampling frequency index
  bw.Write(1, 1);      // private bit
  bw.Write(6, 3);      // channel configuration
  bw.Write(0, 1);      // original/copy
  bw.Write(1, 1);      // home
  bw.Write(1, 1);      // copyright id bit
  bw.Write(0, 1);      // copyright id start
  bw.Write(0x1ABC, 13);
  bw.Write(0x7FF, 11);
  bw.Write(3, 2);      // four raw data blocks
  if (!f.protection_absent) bw.Write(0xBEEF, 16);
  return buf;
}

TEST(AdtsHeader, FieldsAdvanceAndUntouchedFields) {
  for (const AdtsFields f : {AdtsFields{1, 0xFFF}, AdtsFields{0, 0xFFF}, AdtsFields{1, 0x123}}) {
    SCOPED_TRACE(f.protection_absent * 10000 + f.sync);
    std::size_t size = 0;
    auto buf = MakeAdts(f, &size);
    AklAACADTSFrameHeader h;
    std::memset(&h, 0x77, sizeof h);
    Akl8u* p = buf.get();
    ASSERT_EQ(aklsUnpackADTSFrameHeader_AAC(&p, &h), kStsOk);
    EXPECT_EQ(static_cast<std::size_t>(p - buf.get()), size);
    EXPECT_EQ(h.id, 1);
    EXPECT_EQ(h.layer, 2);
    EXPECT_EQ(h.protectionAbsent, f.protection_absent);
    EXPECT_EQ(h.profile, 1);
    EXPECT_EQ(h.samplingFrequencyIndex, 11);
    EXPECT_EQ(h.privateBit, 1);
    EXPECT_EQ(h.channelConfiguration, 6);
    EXPECT_EQ(h.originalCopy, 0);
    EXPECT_EQ(h.home, 1);
    EXPECT_EQ(h.reserved, 0x77777777);
    EXPECT_EQ(h.copyIdBit, 1);
    EXPECT_EQ(h.copyIdStart, 0);
    EXPECT_EQ(h.aacFrameLength, 0x1ABC);
    EXPECT_EQ(h.adtsBufferFullness, 0x7FF);
    EXPECT_EQ(h.numRawDataBlocks, 4);
    EXPECT_EQ(h.crcCheck, f.protection_absent ? 0x77777777 : 0xBEEF);
  }
}

TEST(AdtsHeader, NullPointers) {
  std::size_t size = 0;
  auto buf = MakeAdts({1, 0xFFF}, &size);
  AklAACADTSFrameHeader h{};
  Akl8u* p = buf.get();
  Akl8u* null_byte = nullptr;
  EXPECT_EQ(aklsUnpackADTSFrameHeader_AAC(nullptr, &h), kStsNullPtr);
  EXPECT_EQ(aklsUnpackADTSFrameHeader_AAC(&p, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsUnpackADTSFrameHeader_AAC(&null_byte, &h), kStsNullPtr);
  EXPECT_EQ(p, buf.get());
}

// A program configuration element written from a record, for round trips.
void WritePce(akl::BitWriter& bw, const AklAACPrgCfgElt& e) {
  auto w = [&](Akl32s v, int n) { bw.Write(static_cast<std::uint32_t>(v), n); };
  w(e.elementInstanceTag, 4);
  w(e.objectType, 2);
  w(e.samplingFrequencyIndex, 4);
  w(e.numFrontElt, 4);
  w(e.numSideElt, 4);
  w(e.numBackElt, 4);
  w(e.numLfeElt, 2);
  w(e.numAssocDataElt, 3);
  w(e.numValidCcElt, 4);
  w(e.monoMixdownPresent, 1);
  if (e.monoMixdownPresent) w(e.monoMixdownEltNum, 4);
  w(e.stereoMixdownPresent, 1);
  if (e.stereoMixdownPresent) w(e.stereoMixdownEltNum, 4);
  w(e.matrixMixdownIdxPresent, 1);
  if (e.matrixMixdownIdxPresent) {
    w(e.matrixMixdownIdx, 2);
    w(e.pseudoSurroundEnable, 1);
  }
  for (int i = 0; i < e.numFrontElt; ++i) { w(e.frontElementIsCpe[i], 1); w(e.frontElementTagSel[i], 4); }
  for (int i = 0; i < e.numSideElt; ++i) { w(e.sideElementIsCpe[i], 1); w(e.sideElementTagSel[i], 4); }
  for (int i = 0; i < e.numBackElt; ++i) { w(e.backElementIsCpe[i], 1); w(e.backElementTagSel[i], 4); }
  for (int i = 0; i < e.numLfeElt; ++i) w(e.lfeElementTagSel[i], 4);
  for (int i = 0; i < e.numAssocDataElt; ++i) w(e.assocDataElementTagSel[i], 4);
  for (int i = 0; i < e.numValidCcElt; ++i) { w(e.ccElementIsIndSw[i], 1); w(e.validCcElementTagSel[i], 4); }
  if (bw.BitOffset() != 0) bw.Write(0, 8 - bw.BitOffset());
  w(e.commentFieldBytes, 8);
  for (int i = 0; i < e.commentFieldBytes; ++i) w(e.commentFieldData[i], 8);
}

AklAACPrgCfgElt RandomPce(std::mt19937& rng) {
  AklAACPrgCfgElt e;
  std::memset(&e, 0, sizeof e);
  auto r = [&](int bits) { return static_cast<Akl32s>(rng() % (1u << bits)); };
  e.elementInstanceTag = r(4);
  e.objectType = r(2);
  e.samplingFrequencyIndex = r(4);
  e.numFrontElt = r(4);
  e.numSideElt = r(4);
  e.numBackElt = r(4);
  e.numLfeElt = r(2);
  e.numAssocDataElt = r(3);
  e.numValidCcElt = r(4);
  e.monoMixdownPresent = r(1);
  if (e.monoMixdownPresent) e.monoMixdownEltNum = r(4);
  e.stereoMixdownPresent = r(1);
  if (e.stereoMixdownPresent) e.stereoMixdownEltNum = r(4);
  e.matrixMixdownIdxPresent = r(1);
  if (e.matrixMixdownIdxPresent) {
    e.matrixMixdownIdx = r(2);
    e.pseudoSurroundEnable = r(1);
  }
  for (int i = 0; i < 16; ++i) {
    e.frontElementIsCpe[i] = r(1); e.frontElementTagSel[i] = r(4);
    e.sideElementIsCpe[i] = r(1); e.sideElementTagSel[i] = r(4);
    e.backElementIsCpe[i] = r(1); e.backElementTagSel[i] = r(4);
    e.ccElementIsIndSw[i] = r(1); e.validCcElementTagSel[i] = r(4);
  }
  for (int i = 0; i < 4; ++i) e.lfeElementTagSel[i] = r(4);
  for (int i = 0; i < 8; ++i) e.assocDataElementTagSel[i] = r(4);
  e.commentFieldBytes = r(8) % 40;
  for (int i = 0; i < e.commentFieldBytes; ++i) e.commentFieldData[i] = static_cast<Akl8u>(r(8));
  return e;
}

// Compares what the parser must have written; entries beyond counts must keep `fill`.
void ExpectPceEqual(const AklAACPrgCfgElt& got, const AklAACPrgCfgElt& want, int fill) {
  EXPECT_EQ(got.elementInstanceTag, want.elementInstanceTag);
  EXPECT_EQ(got.objectType, want.objectType);
  EXPECT_EQ(got.samplingFrequencyIndex, want.samplingFrequencyIndex);
  EXPECT_EQ(got.numFrontElt, want.numFrontElt);
  EXPECT_EQ(got.numSideElt, want.numSideElt);
  EXPECT_EQ(got.numBackElt, want.numBackElt);
  EXPECT_EQ(got.numLfeElt, want.numLfeElt);
  EXPECT_EQ(got.numAssocDataElt, want.numAssocDataElt);
  EXPECT_EQ(got.numValidCcElt, want.numValidCcElt);
  EXPECT_EQ(got.monoMixdownPresent, want.monoMixdownPresent);
  EXPECT_EQ(got.monoMixdownEltNum, want.monoMixdownEltNum);
  EXPECT_EQ(got.stereoMixdownPresent, want.stereoMixdownPresent);
  EXPECT_EQ(got.stereoMixdownEltNum, want.stereoMixdownEltNum);
  EXPECT_EQ(got.matrixMixdownIdxPresent, want.matrixMixdownIdxPresent);
  EXPECT_EQ(got.matrixMixdownIdx, want.matrixMixdownIdx);
  EXPECT_EQ(got.pseudoSurroundEnable, want.pseudoSurroundEnable);
  const Akl32s f32 = static_cast<Akl32s>(0x01010101u * static_cast<unsigned>(fill));
  auto list = [&](const Akl32s* g, const Akl32s* w, int count, int size) {
    for (int i = 0; i < size; ++i) EXPECT_EQ(g[i], i < count ? w[i] : f32) << i;
  };
  list(got.frontElementIsCpe, want.frontElementIsCpe, want.numFrontElt, 16);
  list(got.frontElementTagSel, want.frontElementTagSel, want.numFrontElt, 16);
  list(got.sideElementIsCpe, want.sideElementIsCpe, want.numSideElt, 16);
  list(got.sideElementTagSel, want.sideElementTagSel, want.numSideElt, 16);
  list(got.backElementIsCpe, want.backElementIsCpe, want.numBackElt, 16);
  list(got.backElementTagSel, want.backElementTagSel, want.numBackElt, 16);
  list(got.lfeElementTagSel, want.lfeElementTagSel, want.numLfeElt, 4);
  list(got.assocDataElementTagSel, want.assocDataElementTagSel, want.numAssocDataElt, 8);
  list(got.ccElementIsIndSw, want.ccElementIsIndSw, want.numValidCcElt, 16);
  list(got.validCcElementTagSel, want.validCcElementTagSel, want.numValidCcElt, 16);
  EXPECT_EQ(got.commentFieldBytes, want.commentFieldBytes);
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(got.commentFieldData[i], i < want.commentFieldBytes ? want.commentFieldData[i] : fill) << i;
  }
}

TEST(PrgCfgElt, RandomElementsAtEveryStartOffset) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int iter = 0; iter < 64; ++iter) {
    const AklAACPrgCfgElt want = RandomPce(rng);
    const int start = iter % 8;
    std::vector<Akl8u> buf(1024, 0);
    akl::BitWriter bw(buf.data() + 5, start);
    WritePce(bw, want);
    AklAACPrgCfgElt got;
    std::memset(&got, 0xA5, sizeof got);
    Akl8u* p = buf.data() + 5;
    Akl32s off = start;
    ASSERT_EQ(aklsDecodePrgCfgElt_AAC(&p, &off, &got), kStsOk);
    EXPECT_EQ(p, bw.BytePtr());
    EXPECT_EQ(off, 0);
    ExpectPceEqual(got, want, 0xA5);
  }
}

TEST(PrgCfgElt, CommentAlignmentSkipsToTheNextByteOnly) {
  // Tag lists end at a chosen offset: 4+2+4+4+4+4+2+3+4 + 3 flags = 34 bits, so
  // starting at offset o the lists end at (o + 34) mod 8.
  struct Row {
    int start;
    int end_offset;
  } rows[] = {{6, 0}, {1, 3}, {5, 7}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.start);
    std::vector<Akl8u> buf(64, 0xFF);
    akl::BitWriter bw(buf.data() + 4, r.start);
    bw.Write(0, 31);
    bw.Write(0, 3);  // no mixdowns, all counts 0
    ASSERT_EQ(bw.BitOffset(), r.end_offset);
    Akl8u* comment_byte = bw.BytePtr() + (r.end_offset ? 1 : 0);
    *comment_byte = 2;  // comment count, after alignment
    comment_byte[1] = 0x41;
    comment_byte[2] = 0x42;
    if (r.end_offset) {
      // Bits after the lists in the partial byte must be skipped, not read.
      *bw.BytePtr() = static_cast<Akl8u>(*bw.BytePtr() | (0xFFu >> r.end_offset));
    }
    AklAACPrgCfgElt got{};
    Akl8u* p = buf.data() + 4;
    Akl32s off = r.start;
    ASSERT_EQ(aklsDecodePrgCfgElt_AAC(&p, &off, &got), kStsOk);
    EXPECT_EQ(got.commentFieldBytes, 2);
    EXPECT_EQ(got.commentFieldData[0], 0x41);
    EXPECT_EQ(got.commentFieldData[1], 0x42);
    EXPECT_EQ(p, comment_byte + 3);
    EXPECT_EQ(off, 0);
  }
}

TEST(PrgCfgElt, ChecksInOrder) {
  std::vector<Akl8u> buf(64, 0);
  AklAACPrgCfgElt e{};
  Akl8u* p = buf.data();
  Akl8u* null_byte = nullptr;
  Akl32s off = 0;
  Akl32s bad = 8;
  EXPECT_EQ(aklsDecodePrgCfgElt_AAC(nullptr, &bad, &e), kStsNullPtr);
  EXPECT_EQ(aklsDecodePrgCfgElt_AAC(&p, nullptr, &e), kStsNullPtr);
  EXPECT_EQ(aklsDecodePrgCfgElt_AAC(&p, &bad, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsDecodePrgCfgElt_AAC(&null_byte, &off, &e), kStsNullPtr);
  for (Akl32s b : {8, -1, 1000}) {
    bad = b;
    EXPECT_EQ(aklsDecodePrgCfgElt_AAC(&p, &bad, &e), kStsAacBitOffsetErr);
    EXPECT_EQ(bad, b);
  }
  EXPECT_EQ(p, buf.data());
}

struct AdifPlan {
  int copy_id_present;
  int bitstream_type;
  int coded_count;  // numPrgCfgElt - 1
};

std::vector<Akl8u> MakeAdif(const AdifPlan& a, std::vector<AklAACPrgCfgElt>* pces, std::size_t* bits_before_pces) {
  std::mt19937 rng(7);
  std::vector<Akl8u> buf(16384, 0);
  akl::BitWriter bw(buf.data(), 0);
  bw.Write(0x41444946, 32);
  bw.Write(static_cast<std::uint32_t>(a.copy_id_present), 1);
  if (a.copy_id_present) {
    for (int i = 0; i < 9; ++i) bw.Write(static_cast<std::uint32_t>(0x10 + i), 8);
  }
  bw.Write(1, 1);
  bw.Write(0, 1);
  bw.Write(static_cast<std::uint32_t>(a.bitstream_type), 1);
  bw.Write(0x123456, 23);
  bw.Write(static_cast<std::uint32_t>(a.coded_count), 4);
  *bits_before_pces = static_cast<std::size_t>(bw.BytePtr() - buf.data()) * 8u + static_cast<std::size_t>(bw.BitOffset());
  for (int i = 0; i <= a.coded_count; ++i) {
    if (a.bitstream_type == 0) bw.Write(static_cast<std::uint32_t>(0x80000 + i), 20);
    pces->push_back(RandomPce(rng));
    WritePce(bw, pces->back());
  }
  buf.resize(static_cast<std::size_t>(bw.BytePtr() - buf.data()) + 3);
  return buf;
}

TEST(AdifHeader, FieldsAndElements) {
  for (const AdifPlan a : {AdifPlan{1, 0, 2}, AdifPlan{0, 1, 0}, AdifPlan{0, 0, 15}}) {
    SCOPED_TRACE(a.coded_count);
    std::vector<AklAACPrgCfgElt> want;
    std::size_t head_bits = 0;
    std::vector<Akl8u> buf = MakeAdif(a, &want, &head_bits);
    AklAACADIFHeader h;
    std::memset(&h, 0x33, sizeof h);
    std::vector<AklAACPrgCfgElt> got(16);
    std::memset(got.data(), 0x5C, sizeof(AklAACPrgCfgElt) * 16);
    Akl8u* p = buf.data();
    ASSERT_EQ(aklsUnpackADIFHeader_AAC(&p, &h, got.data(), 16), kStsOk);
    EXPECT_EQ(p, buf.data() + buf.size() - 3);
    EXPECT_EQ(static_cast<std::uint32_t>(h.adifId), 0x41444946u);
    EXPECT_EQ(h.copyIdPresent, a.copy_id_present);
    EXPECT_EQ(h.copyId[0], a.copy_id_present ? 0x10 : 0x33);
    EXPECT_EQ(h.copyId[8], a.copy_id_present ? 0x18 : 0x33);
    EXPECT_EQ(h.originalCopy, 1);
    EXPECT_EQ(h.home, 0);
    EXPECT_EQ(h.bitstreamType, a.bitstream_type);
    EXPECT_EQ(h.bitrate, 0x123456);
    EXPECT_EQ(h.numPrgCfgElt, a.coded_count + 1);
    for (int i = 0; i < 16; ++i) {
      const bool written = a.bitstream_type == 0 && i <= a.coded_count;
      EXPECT_EQ(h.adifBufferFullness[i], written ? 0x80000 + i : 0x33333333) << i;
    }
    for (int i = 0; i <= a.coded_count; ++i) ExpectPceEqual(got[static_cast<std::size_t>(i)], want[static_cast<std::size_t>(i)], 0x5C);
  }
}

TEST(AdifHeader, ElementCountAboveTheCallersLimit) {
  std::vector<AklAACPrgCfgElt> want;
  std::size_t head_bits = 0;
  std::vector<Akl8u> buf = MakeAdif({0, 0, 15}, &want, &head_bits);
  std::vector<AklAACPrgCfgElt> got(16);
  AklAACADIFHeader h;
  std::memset(&h, 0x33, sizeof h);
  Akl8u* p = buf.data();
  ASSERT_EQ(aklsUnpackADIFHeader_AAC(&p, &h, got.data(), 15), kStsAacPrgNumErr);
  EXPECT_EQ(h.numPrgCfgElt, 16);
  EXPECT_EQ(h.bitrate, 0x123456);
  EXPECT_EQ(h.adifBufferFullness[0], 0x33333333);  // nothing after the count
  EXPECT_EQ(p, buf.data() + head_bits / 8);        // whole bytes consumed
  // Limits outside 1..16 fail before anything is read.
  for (Akl32s max : {0, 17, -1}) {
    p = buf.data();
    h.bitrate = 0;
    EXPECT_EQ(aklsUnpackADIFHeader_AAC(&p, &h, got.data(), max), kStsAacPrgNumErr);
    EXPECT_EQ(p, buf.data());
    EXPECT_EQ(h.bitrate, 0);
  }
  Akl8u* null_byte = nullptr;
  EXPECT_EQ(aklsUnpackADIFHeader_AAC(nullptr, &h, got.data(), 0), kStsNullPtr);
  EXPECT_EQ(aklsUnpackADIFHeader_AAC(&p, nullptr, got.data(), 0), kStsNullPtr);
  EXPECT_EQ(aklsUnpackADIFHeader_AAC(&p, &h, nullptr, 0), kStsNullPtr);
  EXPECT_EQ(aklsUnpackADIFHeader_AAC(&null_byte, &h, got.data(), 0), kStsNullPtr);
}

TEST(AdtsHeader, FirstFrameOfARealStream) {
  std::vector<std::uint8_t> data = akl::test::ReadFile(akl::test::DataPath("aac/al05_44.adts"));
  ASSERT_GE(data.size(), 16u);
  AklAACADTSFrameHeader h{};
  Akl8u* p = data.data();
  ASSERT_EQ(aklsUnpackADTSFrameHeader_AAC(&p, &h), kStsOk);
  EXPECT_EQ(h.profile, 1);                 // LC
  EXPECT_EQ(h.samplingFrequencyIndex, 4);  // 44.1 kHz
  EXPECT_EQ(h.channelConfiguration, 0);    // program configuration element in the block
  EXPECT_EQ(h.layer, 0);
  EXPECT_EQ(h.numRawDataBlocks, 1);
  EXPECT_EQ(p - data.data(), h.protectionAbsent ? 7 : 9);
}

}  // namespace
