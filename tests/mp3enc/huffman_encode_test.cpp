// Huffman encoding against the library's Huffman decoder: what the table
// selection chooses and the encoder writes decodes to the same 576 values,
// in exactly the number of bits the selection counted.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"

namespace {

struct Case {
  int id, sfi, block_type, mixed;
};

// Spectra shaped like real ones: large low lines, a tail of ones and zeros.
std::vector<Akl32s> RandomSpectrum(std::mt19937& rng, int peak, int nonzero_to) {
  std::vector<Akl32s> ix(576, 0);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int i = 0; i < nonzero_to; ++i) {
    const double envelope = peak * (1.0 - static_cast<double>(i) / nonzero_to);
    const double r = u(rng);
    int m = static_cast<int>(envelope * r * r * r + (r < 0.3 ? 1 : 0));
    if (m > 8206) m = 8206;
    ix[i] = (rng() & 1) ? -m : m;
  }
  return ix;
}

void RoundTrip(const std::vector<Akl32s>& ix, const Case& c, int offset0) {
  AklMP3FrameHeader h{};
  h.id = c.id;
  h.layer = 1;
  h.samplingFreqIndex = c.sfi;
  AklMP3SideInfo si{};
  si.windowSwitchingFlag = c.block_type != 0;
  si.blockType = c.block_type;
  si.mixedBlockFlag = c.mixed;
  Akl32s bits = -1;
  ASSERT_EQ(aklsHuffmanTableSelect_MP3_32s(ix.data(), &si, &h, &bits), kStsOk);
  // Bytes begun afresh are stored whole; the partly written first byte is
  // completed by OR, so only its bits after the cursor must be clear.
  std::vector<Akl8u> buf(4096 + 16, 0xA5);
  buf[4] = static_cast<Akl8u>(buf[4] & (0xFF00 >> offset0));
  Akl8u* p = buf.data() + 4;
  Akl32s off = offset0;
  ASSERT_EQ(aklsHuffmanEncode_MP3_32s1u(ix.data(), &p, &off, &si, &h), kStsOk);
  const long written = (p - (buf.data() + 4)) * 8 + off - offset0;
  ASSERT_EQ(written, bits);
  si.part23Length = bits;
  std::vector<Akl32s> back(576, 12345);
  Akl8u* q = buf.data() + 4;
  Akl32s qoff = offset0;
  Akl32s bound = -1;
  ASSERT_EQ(aklsHuffmanDecode_MP3_1u32s(&q, &qoff, back.data(), &bound, &si, &h, bits), kStsOk);
  EXPECT_EQ(back, ix);
  EXPECT_EQ(q, p);
  EXPECT_EQ(qoff, off);
}

TEST(HuffmanEncode, SelectedCodingDecodesBackExactly) {
  std::mt19937 rng(akl::test::TestSeed() + 3);
  const Case cases[] = {{1, 0, 0, 0}, {1, 1, 0, 0}, {1, 2, 0, 0}, {0, 0, 0, 0}, {0, 1, 0, 0}, {0, 2, 0, 0},
                        {1, 0, 1, 0}, {1, 0, 2, 0}, {1, 0, 3, 0}, {1, 0, 2, 1}, {0, 1, 1, 0}, {0, 1, 2, 0},
                        {0, 1, 3, 0}, {0, 2, 2, 1}};
  const int peaks[] = {0, 1, 2, 3, 7, 15, 16, 40, 300, 8206};
  for (const Case& c : cases)
    for (int peak : peaks)
      for (int n = 0; n < 12; ++n) {
        SCOPED_TRACE(testing::Message() << "id " << c.id << " sfi " << c.sfi << " bt " << c.block_type << " mixed "
                                        << c.mixed << " peak " << peak << " n " << n);
        const int to = 1 + static_cast<int>(rng() % 576);
        RoundTrip(RandomSpectrum(rng, peak, to), c, static_cast<int>(rng() % 8));
      }
}

TEST(HuffmanEncode, EdgesOfTheRegions) {
  const Case c{1, 0, 0, 0};
  std::vector<Akl32s> ix(576, 0);
  RoundTrip(ix, c, 0);  // nothing at all: 0 bits
  ix[575] = -1;         // a count1 quadruple that ends at line 575
  RoundTrip(ix, c, 3);
  ix[574] = 2;  // a big-value pair at the very top
  RoundTrip(ix, c, 5);
  for (int i = 0; i < 576; ++i) ix[i] = (i % 3) - 1;  // count1 all the way
  RoundTrip(ix, c, 1);
  for (int i = 0; i < 576; ++i) ix[i] = 8206 - i;  // big values all the way, largest linbits
  RoundTrip(ix, c, 7);
}

// Every table codes what it claims: force each table on one region.
TEST(HuffmanEncode, EveryTableRoundTrips) {
  std::mt19937 rng(5);
  AklMP3FrameHeader h{};
  h.id = 1;
  h.layer = 1;
  const int xmax[32] = {0, 1, 2, 2, 0, 3, 3, 5, 5, 5, 7, 7, 7, 15, 0, 15};
  const int linbits[32] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                           1, 2, 3, 4, 6, 8, 10, 13, 4, 5, 6, 7, 8, 9, 11, 13};
  for (int t = 1; t < 32; ++t) {
    if (t == 4 || t == 14) continue;
    const int lim = t < 16 ? xmax[t] : 15 + (1 << linbits[t]) - 1;
    std::vector<Akl32s> ix(576, 0);
    for (int i = 0; i < 200; ++i) {
      const int m = static_cast<int>(rng() % static_cast<unsigned>(lim + 1));
      ix[i] = (rng() & 1) ? -m : m;
    }
    ix[0] = lim;
    AklMP3SideInfo si{};
    si.bigValues = 100;
    si.region0Count = 15;
    si.region1Count = 5;  // region 2 starts at band 22: regions 1 and 2 cover the rest
    si.tableSelect[0] = si.tableSelect[1] = si.tableSelect[2] = t;
    std::vector<Akl8u> buf(4096, 0);
    Akl8u* p = buf.data();
    Akl32s off = 0;
    ASSERT_EQ(aklsHuffmanEncode_MP3_32s1u(ix.data(), &p, &off, &si, &h), kStsOk) << t;
    const Akl32s bits = static_cast<Akl32s>((p - buf.data()) * 8 + off);
    si.part23Length = bits;
    std::vector<Akl32s> back(576, 1);
    Akl8u* q = buf.data();
    Akl32s qoff = 0, bound = 0;
    ASSERT_EQ(aklsHuffmanDecode_MP3_1u32s(&q, &qoff, back.data(), &bound, &si, &h, bits), kStsOk) << t;
    EXPECT_EQ(back, ix) << "table " << t;
    // One above the limit is refused before a bit is written.
    ix[1] = lim + 1;
    std::vector<Akl8u> clean(16, 0);
    Akl8u* r = clean.data();
    Akl32s roff = 0;
    EXPECT_EQ(aklsHuffmanEncode_MP3_32s1u(ix.data(), &r, &roff, &si, &h), kStsErr) << t;
    EXPECT_EQ(r, clean.data());
  }
}

}  // namespace
