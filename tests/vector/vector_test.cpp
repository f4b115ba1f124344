#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"

namespace {

constexpr unsigned char kCanary = 0xA5;

// A buffer of n elements at a chosen byte offset from a 16-byte boundary,
// with canary bytes before and after it.
template <class T>
class Block {
 public:
  Block(int n, int offset_bytes = 0) : n_(n) {
    raw_.assign(static_cast<size_t>(n) * sizeof(T) + 96, kCanary);
    const auto base = reinterpret_cast<std::uintptr_t>(raw_.data());
    const std::uintptr_t aligned = (base + 32 + 15) & ~std::uintptr_t{15};
    data_ = reinterpret_cast<T*>(aligned + static_cast<std::uintptr_t>(offset_bytes));
  }
  T* data() { return data_; }
  T& operator[](int i) { return data_[i]; }
  // Every byte outside [data, data + n) still holds the canary.
  bool CanariesIntact() const {
    const auto* begin = reinterpret_cast<const unsigned char*>(data_);
    const auto* end = begin + static_cast<size_t>(n_) * sizeof(T);
    for (const unsigned char* p = raw_.data(); p < raw_.data() + raw_.size(); ++p) {
      if ((p < begin || p >= end) && *p != kCanary) return false;
    }
    return true;
  }
  bool AllBytes(unsigned char v) const {
    const auto* b = reinterpret_cast<const unsigned char*>(data_);
    for (size_t i = 0; i < static_cast<size_t>(n_) * sizeof(T); ++i) {
      if (b[i] != v) return false;
    }
    return true;
  }

 private:
  std::vector<unsigned char> raw_;
  T* data_;
  int n_;
};

const int kLengths[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 64, 101};

template <class T>
T RandomSample(std::mt19937& rng) {
  if constexpr (std::is_same_v<T, Akl16s>) {
    return static_cast<Akl16s>(std::uniform_int_distribution<int>(-32768, 32767)(rng));
  } else {
    return std::uniform_real_distribution<float>(-1e6f, 1e6f)(rng);
  }
}

// Interleave and deinterleave agree with the plain index formula for every
// channel count 1..8, lengths around the vector widths, and write nothing
// outside the destination.
template <class T, class Inter, class Deinter>
void CheckRoundTrip(Inter inter, Deinter deinter) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int ch = 1; ch <= 8; ++ch) {
    for (int len : kLengths) {
      SCOPED_TRACE(testing::Message() << "ch " << ch << " len " << len);
      // Sources are exact-size heap blocks, so the sanitizer sees any read
      // past them; destinations carry canaries.
      std::vector<std::vector<T>> rows(static_cast<size_t>(ch), std::vector<T>(static_cast<size_t>(len)));
      std::vector<const T*> src;
      for (int c = 0; c < ch; ++c) {
        for (int i = 0; i < len; ++i) rows[c][i] = RandomSample<T>(rng);
        src.push_back(rows[c].data());
      }
      // The heap's alignment decides between success and the warning.
      bool rows_aligned = true;
      for (const T* p : src) rows_aligned = rows_aligned && reinterpret_cast<std::uintptr_t>(p) % 16 == 0;
      const Status want = rows_aligned ? kStsOk : kStsMisalignedWarn;
      Block<T> inter_buf(ch * len);
      ASSERT_EQ(want, inter(src.data(), ch, len, inter_buf.data()));
      EXPECT_TRUE(inter_buf.CanariesIntact());
      for (int i = 0; i < len; ++i) {
        for (int c = 0; c < ch; ++c) ASSERT_EQ(inter_buf[i * ch + c], src[c][i]) << "i " << i << " c " << c;
      }
      std::vector<Block<T>> back;
      std::vector<T*> dst;
      for (int c = 0; c < ch; ++c) back.emplace_back(len);
      for (int c = 0; c < ch; ++c) dst.push_back(back[c].data());
      const std::vector<T> interleaved(inter_buf.data(), inter_buf.data() + ch * len);
      const bool buf_aligned = reinterpret_cast<std::uintptr_t>(interleaved.data()) % 16 == 0;
      ASSERT_EQ(buf_aligned ? kStsOk : kStsMisalignedWarn, deinter(interleaved.data(), ch, len, dst.data()));
      for (int c = 0; c < ch; ++c) {
        EXPECT_TRUE(back[c].CanariesIntact());
        EXPECT_EQ(0, std::memcmp(dst[c], src[c], sizeof(T) * static_cast<size_t>(len))) << "row " << c;
      }
    }
  }
}

TEST(Interleave, MatchesIndexFormula16s) { CheckRoundTrip<Akl16s>(aklsInterleave_16s, aklsDeinterleave_16s); }
TEST(Interleave, MatchesIndexFormula32f) { CheckRoundTrip<Akl32f>(aklsInterleave_32f, aklsDeinterleave_32f); }

// Misalignment of the interleaved buffer or of any one row gives the warning,
// with the work done in full; any alignment gives the same data.
template <class T, class Inter, class Deinter>
void CheckMisalignment(Inter inter, Deinter deinter) {
  struct Row {
    int buffer_offset;
    int row_offset;  // applied to row `row`
    int row;
    Status expected;
  };
  const int e = static_cast<int>(sizeof(T));
  const Row rows[] = {
      {0, 0, 0, kStsOk},       {8, 0, 0, kStsMisalignedWarn}, {e, 0, 0, kStsMisalignedWarn},
      {0, e, 0, kStsMisalignedWarn}, {0, 8, 5, kStsMisalignedWarn}, {0, 4, 2, kStsMisalignedWarn},
      {4, 12, 1, kStsMisalignedWarn},
  };
  const int ch = 6, len = 37;
  std::mt19937 rng(akl::test::TestSeed());
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << "buffer +" << r.buffer_offset << " row " << r.row << " +" << r.row_offset);
    std::vector<Block<T>> src_rows, dst_rows;
    std::vector<const T*> src;
    std::vector<T*> dst;
    for (int c = 0; c < ch; ++c) {
      const int off = c == r.row ? r.row_offset : 0;
      src_rows.emplace_back(len, off);
      dst_rows.emplace_back(len, off);
    }
    for (int c = 0; c < ch; ++c) {
      for (int i = 0; i < len; ++i) src_rows[c][i] = RandomSample<T>(rng);
      src.push_back(src_rows[c].data());
      dst.push_back(dst_rows[c].data());
    }
    Block<T> buf(ch * len, r.buffer_offset);
    EXPECT_EQ(r.expected, inter(src.data(), ch, len, buf.data()));
    for (int i = 0; i < len; ++i) {
      for (int c = 0; c < ch; ++c) ASSERT_EQ(buf[i * ch + c], src[c][i]);
    }
    EXPECT_TRUE(buf.CanariesIntact());
    EXPECT_EQ(r.expected, deinter(buf.data(), ch, len, dst.data()));
    for (int c = 0; c < ch; ++c) {
      EXPECT_EQ(0, std::memcmp(dst[c], src[c], sizeof(T) * static_cast<size_t>(len)));
      EXPECT_TRUE(dst_rows[c].CanariesIntact());
    }
  }
}

TEST(Interleave, MisalignedPointersWarn16s) { CheckMisalignment<Akl16s>(aklsInterleave_16s, aklsDeinterleave_16s); }
TEST(Interleave, MisalignedPointersWarn32f) { CheckMisalignment<Akl32f>(aklsInterleave_32f, aklsDeinterleave_32f); }

// Join ---------------------------------------------------------------------

// Independent reference: round-half-even in double (nearbyint under the
// default rounding mode), then saturation.
Akl16s JoinRef(float x) {
  if (std::isnan(x)) return -32768;
  const double r = std::nearbyint(static_cast<double>(x));
  if (r > 32767.0) return 32767;
  if (r < -32768.0) return -32768;
  return static_cast<Akl16s>(r);
}

// Values the rounding and saturation must get right: ties both ways, values
// just beside the ties, the edges of the range, infinities and NaN.
std::vector<float> SpecialValues() {
  const float inf = std::numeric_limits<float>::infinity();
  return {2.5f,      3.5f,     -2.5f,     -3.5f,     0.5f,      1.5f,      -0.5f,     -1.5f,
          0.0f,      -0.0f,    0.49999997f, -0.49999997f, 0.50000006f, 2.4999998f, 2.5000002f, -1.4f,
          -1.6f,     1e-45f,   -1e-45f,   32766.5f,  32767.0f,  32767.5f,  32767.998f, 32768.0f,
          40000.0f,  -32767.5f, -32768.0f, -32768.5f, -32769.0f, -40000.0f, 1e30f,     -1e30f,
          inf,       -inf,     std::nanf(""), 12345.5f, 12346.5f, -12345.5f, 8388607.5f, 16777216.0f};
}

TEST(Join, SpecialValuesRoundHalfEvenAndSaturate) {
  // The documented cases first, on their own.
  const struct {
    float in;
    Akl16s out;
  } cases[] = {{2.5f, 2}, {3.5f, 4}, {-2.5f, -2}, {40000.0f, 32767}, {-40000.0f, -32768}, {0.49999997f, 0}};
  for (const auto& c : cases) {
    const Akl32f* row = &c.in;
    Akl16s out = 0x5A5A;
    ASSERT_EQ(kStsOk, aklsJoin_32f16s_D2L(&row, 1, 1, &out));
    EXPECT_EQ(c.out, out) << c.in;
  }
  // Then every special value at every position of vector-wide and tail paths.
  // Under each rounding mode: the vector paths differ by mode.
  const std::vector<float> special = SpecialValues();
  const int n = static_cast<int>(special.size());
  for (int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
  for (int ch = 1; ch <= 8; ++ch) {
    for (int shift = 0; shift < 8; ++shift) {
      SCOPED_TRACE(testing::Message() << "mode " << mode << " ch " << ch << " shift " << shift);
      const int len = n + 3;
      std::vector<std::vector<float>> rows(static_cast<size_t>(ch), std::vector<float>(static_cast<size_t>(len)));
      std::vector<const Akl32f*> src;
      for (int c = 0; c < ch; ++c) {
        for (int i = 0; i < len; ++i) rows[c][i] = special[static_cast<size_t>((i + shift + 5 * c) % n)];
        src.push_back(rows[c].data());
      }
      Block<Akl16s> out(ch * len);
      ASSERT_EQ(0, std::fesetround(mode));
      const Status st = aklsJoin_32f16s_D2L(src.data(), ch, len, out.data());
      std::fesetround(FE_TONEAREST);
      ASSERT_EQ(kStsOk, st);
      EXPECT_TRUE(out.CanariesIntact());
      for (int i = 0; i < len; ++i) {
        for (int c = 0; c < ch; ++c) ASSERT_EQ(JoinRef(src[c][i]), out[i * ch + c]) << "value " << src[c][i];
      }
    }
  }
  }
}

// Random values (many exact halves among them) for every channel count and
// length, under every rounding mode of the processor: the result must not
// depend on the mode.
TEST(Join, RandomValuesAnyChannelCountAnyRoundingMode) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<float> wide(-40000.0f, 40000.0f);
  std::uniform_int_distribution<int> halves(-80000, 80000);
  const int modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
  for (int mode : modes) {
    for (int ch = 1; ch <= 8; ++ch) {
      for (int len : kLengths) {
        SCOPED_TRACE(testing::Message() << "mode " << mode << " ch " << ch << " len " << len);
        std::vector<std::vector<float>> rows(static_cast<size_t>(ch), std::vector<float>(static_cast<size_t>(len)));
        std::vector<const Akl32f*> src;
        for (int c = 0; c < ch; ++c) {
          for (int i = 0; i < len; ++i) {
            rows[c][i] = (rng() & 1) ? wide(rng) : static_cast<float>(halves(rng)) * 0.5f;
          }
          src.push_back(rows[c].data());
        }
        Block<Akl16s> out(ch * len);
        ASSERT_EQ(0, std::fesetround(mode));
        const Status st = aklsJoin_32f16s_D2L(src.data(), ch, len, out.data());
        std::fesetround(FE_TONEAREST);
        ASSERT_EQ(kStsOk, st);
        for (int i = 0; i < len; ++i) {
          for (int c = 0; c < ch; ++c) ASSERT_EQ(JoinRef(src[c][i]), out[i * ch + c]) << "value " << src[c][i];
        }
      }
    }
  }
}

// MakeFloat ------------------------------------------------------------------

TEST(MakeFloat, FactorIsTheExponentBitPattern) {
  const float inf = std::numeric_limits<float>::infinity();
  const struct {
    Akl16s mant, exp;
    float out;
  } cases[] = {
      {16384, 0, 0.5f},    {16384, -1, 1.0f},  {-32768, 0, -1.0f},       {1, -15, 1.0f},
      {3, -20, 96.0f},     {-5, 3, -5.0f / 262144.0f}, {0, 7, 0.0f},     {1, 111, std::ldexp(1.0f, -126)},
      {1, 112, 0.0f},      // exponent field 0: the factor is +0
      {2, -142, std::ldexp(2.0f, 127)},  // 2 * 2^127 overflows to infinity
      {1, -142, std::ldexp(1.0f, 127)},  {1, -143, inf},  // exponent field 255, mantissa 0
      {-1, -143, -inf},
      // Field 112 + 256 wraps: bits 0x38000000 - (-256 << 23) = 0xB8000000, sign cleared: 2^-15 again.
      {7, -256, 7.0f / 32768.0f},
  };
  const int n = static_cast<int>(std::size(cases));
  std::vector<Akl16s> mant, exps;
  for (const auto& c : cases) {
    mant.push_back(c.mant);
    exps.push_back(c.exp);
  }
  // Every case at every position of a run (vector lanes and tail), and one at a time.
  for (int rot = 0; rot < n; ++rot) {
    std::vector<Akl16s> m(mant), e(exps);
    std::rotate(m.begin(), m.begin() + rot, m.end());
    std::rotate(e.begin(), e.begin() + rot, e.end());
    std::vector<float> out(static_cast<size_t>(n), -7.0f);
    ASSERT_EQ(kStsOk, aklsMakeFloat_16s32f(m.data(), e.data(), n, out.data()));
    for (int i = 0; i < n; ++i) {
      const auto& c = cases[(i + rot) % n];
      EXPECT_EQ(c.out, out[i]) << "mant " << c.mant << " exp " << c.exp << " at " << i;
    }
  }
  for (int i = 0; i < n; ++i) {
    float one = -7.0f;
    ASSERT_EQ(kStsOk, aklsMakeFloat_16s32f(&cases[i].mant, &cases[i].exp, 1, &one));
    EXPECT_EQ(cases[i].out, one) << "mant " << cases[i].mant << " exp " << cases[i].exp;
  }
}

TEST(MakeFloat, RandomPairsMatchLdexp) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int len : kLengths) {
    std::vector<Akl16s> mant(static_cast<size_t>(len)), exps(static_cast<size_t>(len));
    for (int i = 0; i < len; ++i) {
      mant[i] = static_cast<Akl16s>(std::uniform_int_distribution<int>(-32768, 32767)(rng));
      exps[i] = static_cast<Akl16s>(std::uniform_int_distribution<int>(-100, 100)(rng));
    }
    Block<Akl32f> out(len, 4);
    ASSERT_EQ(kStsOk, aklsMakeFloat_16s32f(mant.data(), exps.data(), len, out.data()));
    EXPECT_TRUE(out.CanariesIntact());
    for (int i = 0; i < len; ++i) {
      // Exact in double; the float product rounds once (subnormal results
      // for the most negative powers round the same way in both).
      const float expect = static_cast<float>(std::ldexp(static_cast<double>(mant[i]), -(15 + exps[i])));
      ASSERT_EQ(expect, out[i]) << "mant " << mant[i] << " exp " << exps[i];
    }
  }
}

}  // namespace
