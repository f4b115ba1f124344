// Properties of the generated AAC tables: complete prefix codes, band rows,
// and lookup tables that decode every code word to its own entry.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "aac/tables.hpp"

namespace {

using akl::aac::HuffCode;

// Kraft sum scaled by 2^32 and pairwise prefix freedom.
void CheckCompletePrefixCode(const HuffCode* codes, int n) {
  std::uint64_t kraft = 0;
  for (int i = 0; i < n; ++i) {
    ASSERT_GE(codes[i].len, 1);
    ASSERT_LE(codes[i].len, 19);
    ASSERT_LT(codes[i].code, 1u << codes[i].len);
    kraft += std::uint64_t{1} << (32 - codes[i].len);
    for (int j = 0; j < n; ++j) {
      if (i == j || codes[j].len < codes[i].len) continue;
      EXPECT_NE(codes[j].code >> (codes[j].len - codes[i].len), codes[i].code) << "code " << i << " prefixes " << j;
    }
  }
  EXPECT_EQ(kraft, std::uint64_t{1} << 32);
}

TEST(AacTables, ScaleFactorBookIsCompletePrefixCode) {
  CheckCompletePrefixCode(akl::aac::kSfCodes, akl::aac::kNumSfCodes);
  EXPECT_EQ(akl::aac::kSfCodes[60].len, 1);  // difference 0 is the one-bit code
}

TEST(AacTables, SpectralBooksAreCompletePrefixCodes) {
  const int expected_counts[12] = {0, 81, 81, 81, 81, 81, 81, 64, 64, 169, 169, 289};
  for (int b = 1; b <= 11; ++b) {
    SCOPED_TRACE(b);
    const auto& book = akl::aac::kSpectralBooks[b];
    ASSERT_EQ(static_cast<int>(book.num_codes), expected_counts[b]);
    const int radix = book.is_unsigned ? book.lav + 1 : 2 * book.lav + 1;
    int entries = 1;
    for (int k = 0; k < book.dim; ++k) entries *= radix;
    EXPECT_EQ(entries, expected_counts[b]);
    CheckCompletePrefixCode(akl::aac::kSpectralCodes + book.code_offset, static_cast<int>(book.num_codes));
    // The decoder's refill budget: longest code word plus its sign bits.
    int longest = 0;
    for (unsigned i = 0; i < book.num_codes; ++i) {
      const int len = akl::aac::kSpectralCodes[book.code_offset + i].len + (book.is_unsigned ? book.dim : 0);
      longest = len > longest ? len : longest;
    }
    EXPECT_LE(longest, akl::aac::kMaxSpectralCodeBits[b]);
  }
}

// Walks a two-level lookup table the way its layout comment describes.
std::uint32_t Leaf(const std::uint32_t* lut, int bits, std::uint32_t code, int len) {
  const std::uint64_t acc = static_cast<std::uint64_t>(code) << (64 - len);
  std::uint32_t e = lut[acc >> (64 - bits)];
  if ((e & 31u) == 0) {
    const int n = static_cast<int>((e >> 5) & 31u);
    e = lut[(e >> 10) + ((acc << bits) >> (64 - n))];
  }
  return e;
}

TEST(AacTables, ScaleFactorLookupDecodesEveryCode) {
  for (int i = 0; i < akl::aac::kNumSfCodes; ++i) {
    const HuffCode c = akl::aac::kSfCodes[i];
    const std::uint32_t e = Leaf(akl::aac::kSfLut, akl::aac::kSfLutBits, c.code, c.len);
    EXPECT_EQ(static_cast<int>(e & 31u), c.len) << i;
    EXPECT_EQ(static_cast<int>((e >> 8) & 0xFFu), i);
  }
}

TEST(AacTables, SpectralLookupDecodesEveryCodeToItsValues) {
  for (int b = 1; b <= 11; ++b) {
    const auto& book = akl::aac::kSpectralBooks[b];
    const int radix = book.is_unsigned ? book.lav + 1 : 2 * book.lav + 1;
    const int off = book.is_unsigned ? 0 : book.lav;
    for (int index = 0; index < static_cast<int>(book.num_codes); ++index) {
      SCOPED_TRACE(b * 1000 + index);
      const HuffCode c = akl::aac::kSpectralCodes[book.code_offset + static_cast<unsigned>(index)];
      const std::uint32_t e = Leaf(akl::aac::kSpectralLut + book.lut_offset, book.lut_bits, c.code, c.len);
      ASSERT_EQ(static_cast<int>(e & 31u), c.len);
      int rest = index;
      int nz = 0;
      for (int k = book.dim - 1; k >= 0; --k) {
        const int v = rest % radix - off;
        rest /= radix;
        const int got = static_cast<std::int32_t>(e << (18 - 6 * k)) >> 26;
        EXPECT_EQ(got, v) << "value " << k;
        nz += v != 0;
      }
      EXPECT_EQ(static_cast<int>((e >> 5) & 7u), nz);
    }
  }
}

TEST(AacTables, BandRowsRiseToTheWindowLength) {
  const int long_counts[12] = {41, 41, 47, 49, 49, 51, 47, 47, 43, 43, 43, 40};
  const int short_counts[12] = {12, 12, 12, 14, 14, 14, 15, 15, 15, 15, 15, 15};
  for (int i = 0; i < akl::aac::kNumSampleRates; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(akl::aac::kNumSwbLong[i], long_counts[i]);
    ASSERT_EQ(akl::aac::kNumSwbShort[i], short_counts[i]);
    const auto* lo = akl::aac::kSwbOffsetLong[i];
    const auto* sh = akl::aac::kSwbOffsetShort[i];
    EXPECT_EQ(lo[0], 0);
    EXPECT_EQ(sh[0], 0);
    for (int b = 0; b < long_counts[i]; ++b) {
      EXPECT_LT(lo[b], lo[b + 1]);
      EXPECT_EQ(lo[b] % 4, 0);  // quad and pair code words never straddle a band
    }
    for (int b = 0; b < short_counts[i]; ++b) {
      EXPECT_LT(sh[b], sh[b + 1]);
      EXPECT_EQ(sh[b] % 4, 0);
    }
    EXPECT_EQ(lo[long_counts[i]], 1024);
    EXPECT_EQ(sh[short_counts[i]], 128);
    EXPECT_EQ(lo[akl::aac::kMaxSwbLong], 1024);  // padding repeats the end
    EXPECT_EQ(sh[akl::aac::kMaxSwbShort], 128);
  }
}

}  // namespace
