#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "aklac.h"
#include "mp3/requant.hpp"
#include "mp3/tables.hpp"
#include "../support/test_util.hpp"

namespace {

constexpr double kQ26 = 67108864.0;

// The standard's requantization formula in double for one value.
double Requant(int x, int a) {
  return (x < 0 ? -1 : 1) * std::pow(std::abs(x), 4.0 / 3.0) * std::pow(2.0, -a / 4.0);
}

// Every magnitude at attenuations spanning the three paths' shift ranges.
// The table entries are rounded to their Q format (relative error <= 2^-26
// for magnitudes >= 4, up to 2^-29 absolute in Q28 for 1..3), the polynomial
// is good to about 2^-26 relative, and the final right shift truncates (up
// to one Q26 step): so |fixed - exact| <= 1 + 2^-24 * exact.
TEST(ReQuantize, MagnitudeMatchesFormula) {
  for (int a : {-40, -13, -1, 0, 1, 2, 3, 7, 45, 100, 133, 210, 260, 330}) {
    double worst = 0;
    for (std::uint32_t m = 1; m <= akl::mp3::kMaxQuantMagnitude; ++m) {
      const double exact = Requant(static_cast<int>(m), a) * kQ26;
      const double got = akl::mp3::RequantMagnitude(m, a);
      if (exact >= 2147483647.0) {
        ASSERT_EQ(got, 2147483647.0) << m << " " << a;
        continue;
      }
      const double err = std::fabs(got - exact) / (1.0 + exact * std::ldexp(1.0, -24));
      worst = std::max(worst, err);
    }
    EXPECT_LE(worst, 1.0) << "a = " << a;
  }
}

TEST(ReQuantize, PolynomialMantissaStaysInRange) {
  for (std::uint32_t m = 129; m <= akl::mp3::kMaxQuantMagnitude; ++m) {
    std::int32_t mant;
    int e;
    akl::mp3::Pow43Poly(m, &mant, &e);
    const double v = std::ldexp(mant, e - 27);
    ASSERT_NEAR(v / std::pow(m, 4.0 / 3.0), 1.0, 1.0 / (1 << 24)) << m;
  }
}

struct Granule {
  AklMP3FrameHeader hdr{};
  AklMP3SideInfo si[2]{};
  std::vector<Akl32s> xr = std::vector<Akl32s>(1152, 0);
  int bound[2] = {0, 0};
  std::vector<Akl8s> sf = std::vector<Akl8s>(78, 0);
  std::vector<Akl32s> work = std::vector<Akl32s>(576, 0);

  Granule(int id, int mode, int mode_ext) {
    hdr.id = id;
    hdr.layer = 1;
    hdr.samplingFreqIndex = 0;
    hdr.mode = mode;
    hdr.modeExtension = mode_ext;
    for (auto& s : si) s.globalGain = 210;
  }
  Status Run() { return aklsReQuantize_MP3_32s_I(xr.data(), bound, sf.data(), si, &hdr, work.data()); }
};

TEST(ReQuantize, ArgumentChecksInOrder) {
  struct Row {
    const char* what;
    void (*edit)(Granule&);
    Status expected;
  } rows[] = {
      {"id", [](Granule& g) { g.hdr.id = 2; }, kStsMP3FrameHeaderErr},
      {"sfi", [](Granule& g) { g.hdr.samplingFreqIndex = 3; }, kStsMP3FrameHeaderErr},
      {"mode", [](Granule& g) { g.hdr.mode = -1; }, kStsMP3FrameHeaderErr},
      {"modeext", [](Granule& g) { g.hdr.modeExtension = 4; }, kStsMP3FrameHeaderErr},
      {"header before side info", [](Granule& g) { g.hdr.id = 5; g.si[0].blockType = 9; }, kStsMP3FrameHeaderErr},
      {"tool with differing blocks", [](Granule& g) { g.hdr.mode = 1; g.hdr.modeExtension = 2; g.si[1].blockType = 2; },
       kStsMP3SideInfoErr},
      {"differing blocks without tool", [](Granule& g) { g.si[1].blockType = 2; }, kStsOk},
      {"block type", [](Granule& g) { g.si[1].blockType = 4; }, kStsMP3SideInfoErr},
      {"mixed", [](Granule& g) { g.si[0].mixedBlockFlag = 2; }, kStsMP3SideInfoErr},
      {"bound", [](Granule& g) { g.bound[1] = 577; }, kStsBadArgErr},
      {"negative bound", [](Granule& g) { g.bound[0] = -1; }, kStsBadArgErr},
      {"channel 0 before channel 1", [](Granule& g) { g.bound[0] = 999; g.si[1].mixedBlockFlag = 3; }, kStsBadArgErr},
      {"side info before bound", [](Granule& g) { g.bound[1] = 999; g.si[1].mixedBlockFlag = 3; }, kStsMP3SideInfoErr},
      {"mono ignores channel 1", [](Granule& g) { g.hdr.mode = 3; g.si[1].blockType = 7; g.bound[1] = 1000; }, kStsOk},
      {"global gain", [](Granule& g) { g.si[0].globalGain = 256; }, kStsMP3SideInfoErr},
      {"scalefac scale", [](Granule& g) { g.si[1].scalefacScale = 2; }, kStsMP3SideInfoErr},
      {"preflag", [](Granule& g) { g.si[0].preflag = -1; }, kStsMP3SideInfoErr},
      {"subblock gain", [](Granule& g) { g.si[0].blockType = 2; g.si[0].subblockGain[2] = 8; }, kStsErr},
      {"magnitude", [](Granule& g) { g.xr[5] = 8207; }, kStsErr},
      {"largest magnitude", [](Granule& g) { g.xr[5] = -8206; }, kStsOk},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    Granule g(1, 0, 0);
    g.xr[0] = 3;
    g.xr[576] = -2;
    g.bound[0] = g.bound[1] = 10;
    r.edit(g);
    const std::vector<Akl32s> before = g.xr;
    const int b0 = g.bound[0], b1 = g.bound[1];
    EXPECT_EQ(g.Run(), r.expected);
    if (r.expected != kStsOk && r.expected != kStsErr && r.expected != kStsMP3SideInfoErr) {
      EXPECT_EQ(g.xr, before);
      EXPECT_EQ(g.bound[0], b0);
      EXPECT_EQ(g.bound[1], b1);
    }
  }
  Granule g(1, 0, 0);
  EXPECT_EQ(aklsReQuantize_MP3_32s_I(nullptr, g.bound, g.sf.data(), g.si, &g.hdr, g.work.data()), kStsNullPtr);
  EXPECT_EQ(aklsReQuantize_MP3_32s_I(g.xr.data(), g.bound, g.sf.data(), g.si, &g.hdr, nullptr), kStsNullPtr);
  EXPECT_EQ(aklsReQuantizeSfb_MP3_32s_I(g.xr.data(), g.bound, g.sf.data(), g.si, &g.hdr, g.work.data(), nullptr,
                                        &akl::mp3::kSfbShort[0][0]),
            kStsNullPtr);
}

// Long blocks, every band with its own scale factor, pre-emphasis and
// scalefac_scale, at every sampling rate, against the formula.
TEST(ReQuantize, LongBlocksMatchFormula) {
  std::mt19937 rng(akl::test::TestSeed());
  for (int id = 0; id < 2; ++id)
    for (int sfi = 0; sfi < 3; ++sfi)
      for (int ss = 0; ss < 2; ++ss) {
        SCOPED_TRACE(testing::Message() << id << " " << sfi << " " << ss);
        Granule g(id, 3, 0);
        g.hdr.samplingFreqIndex = sfi;
        g.si[0].globalGain = 150 + 20 * ss;
        g.si[0].scalefacScale = ss;
        g.si[0].preflag = 1 - ss;
        for (int b = 0; b < 21; ++b) g.sf[b] = static_cast<Akl8s>(rng() % 16);
        std::vector<int> raw(576);
        for (int i = 0; i < 560; ++i) raw[i] = static_cast<int>(rng() % 41) - 20;
        raw[100] = 8206;
        raw[101] = -500;
        for (int i = 0; i < 576; ++i) g.xr[i] = raw[i];
        g.bound[0] = 560;
        ASSERT_EQ(g.Run(), kStsOk);
        const Akl16s* lon = akl::mp3::kSfbLong[id * 3 + sfi];
        static const int pretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};
        for (int b = 0; b < 22; ++b)
          for (int i = lon[b]; i < lon[b + 1]; ++i) {
            const int a = 210 - g.si[0].globalGain + ((g.sf[b] + g.si[0].preflag * pretab[b]) << (ss + 1));
            const double exact = std::clamp(Requant(raw[i], a) * kQ26, -2147483647.0, 2147483647.0);
            ASSERT_NEAR(g.xr[i], exact, 1.0 + std::fabs(exact) * 1e-7) << i;
          }
        int last = 559;
        while (last >= 0 && raw[last] == 0) --last;
        EXPECT_EQ(g.bound[0], last + 1);
      }
}

// Short blocks: coded order (band, window) lands in three runs of six per
// subband, sub-block gains apply per window, and the bound is rounded up
// to whole subbands before stepping back over zeros.
TEST(ReQuantize, ShortBlocksReorderAndGain) {
  for (int mixed = 0; mixed < 2; ++mixed) {
    SCOPED_TRACE(mixed);
    Granule g(1, 3, 0);
    g.si[0].blockType = 2;
    g.si[0].mixedBlockFlag = mixed;
    g.si[0].globalGain = 202;     // a = 8: values stay below the Q26 range
    g.si[0].subblockGain[1] = 1;  // window 1 two octaves further down
    const Akl16s* sho = akl::mp3::kSfbShort[3];
    std::vector<int> expect_line(576, -1);
    int marker = 1;
    // Mark every coded line with a distinct small value (x^(4/3) exact enough).
    for (int b = mixed ? 3 : 0; b < 13; ++b) {
      const int width = sho[b + 1] - sho[b];
      for (int w = 0; w < 3; ++w)
        for (int k = 0; k < width; ++k) {
          const int coded = 3 * sho[b] + w * width + k;
          const int f = sho[b] + k;
          expect_line[18 * (f / 6) + 6 * w + f % 6] = coded;
          g.xr[coded] = 1 + coded % 15;
          ++marker;
        }
    }
    if (mixed)
      for (int i = 0; i < 36; ++i) {
        g.xr[i] = 1 + i % 15;
        expect_line[i] = i;
      }
    std::vector<Akl32s> coded_vals(g.xr.begin(), g.xr.begin() + 576);
    g.bound[0] = 576;
    ASSERT_EQ(g.Run(), kStsOk);
    for (int i = 0; i < 576; ++i) {
      const int c = expect_line[i];
      ASSERT_GE(c, 0);
      int a = 8;
      const bool short_part = !(mixed && i < 36);
      if (short_part && (i % 18) / 6 == 1) a = 16;
      ASSERT_NEAR(g.xr[i], Requant(coded_vals[c], a) * kQ26, 2.0) << i;
    }
    EXPECT_EQ(g.bound[0], 576);
  }
  // One non-zero line at the end of band 4, window 0 (44.1 kHz: lines 16..21
  // of the window, coded 48..53): it lands in subband 3, beyond the coded
  // position's subband.
  Granule g(1, 3, 0);
  g.si[0].blockType = 2;
  g.xr[53] = 1;
  g.bound[0] = 54;
  ASSERT_EQ(g.Run(), kStsOk);
  EXPECT_EQ(g.xr[18 * 3 + 3], 1 << 26);
  EXPECT_EQ(g.bound[0], 18 * 3 + 4);
}

TEST(ReQuantize, MidSide) {
  Granule g(1, 1, 2);
  g.xr[0] = 8;     // M
  g.xr[576] = -3;  // S
  g.xr[300] = 5;   // M only, beyond the right channel's bound
  g.bound[0] = 301;
  g.bound[1] = 1;
  ASSERT_EQ(g.Run(), kStsOk);
  const double m = Requant(8, 0), s = Requant(-3, 0), m2 = Requant(5, 0);
  EXPECT_NEAR(g.xr[0], (m + s) / std::sqrt(2.0) * kQ26, 2.0);
  EXPECT_NEAR(g.xr[576], (m - s) / std::sqrt(2.0) * kQ26, 2.0);
  EXPECT_NEAR(g.xr[300], m2 / std::sqrt(2.0) * kQ26, 2.0);
  EXPECT_NEAR(g.xr[876], m2 / std::sqrt(2.0) * kQ26, 2.0);
  EXPECT_EQ(g.bound[0], 301);
  EXPECT_EQ(g.bound[1], 301);
}

// MPEG-1 intensity: positions 0..6 split the left value by the tangent
// ratios; position 7 is illegal and leaves plain (here mid/side) stereo.
TEST(ReQuantize, IntensityMpeg1) {
  for (int pos = 0; pos < 8; ++pos) {
    SCOPED_TRACE(pos);
    Granule g(1, 1, 3);  // M/S and intensity
    g.xr[2] = 4;         // band 0, both channels coded
    g.xr[578] = 1;
    g.xr[40] = 9;        // band 8 (36..43): right channel silent there
    g.bound[0] = 41;
    g.bound[1] = 3;
    g.sf[39 + 8] = static_cast<Akl8s>(pos);
    ASSERT_EQ(g.Run(), kStsOk);
    const double v = Requant(9, 0);
    if (pos < 7) {
      const double t = std::tan(pos * 3.14159265358979 / 12);
      EXPECT_NEAR(g.xr[40], v * t / (1 + t) * kQ26, 4.0);
      EXPECT_NEAR(g.xr[576 + 40], v / (1 + t) * kQ26, 4.0);
    } else {
      EXPECT_NEAR(g.xr[40], v / std::sqrt(2.0) * kQ26, 2.0);
      EXPECT_NEAR(g.xr[576 + 40], v / std::sqrt(2.0) * kQ26, 2.0);
    }
    // Band 0 is below the intensity region: mid/side.
    EXPECT_NEAR(g.xr[2], (Requant(4, 0) + Requant(1, 0)) / std::sqrt(2.0) * kQ26, 2.0);
  }
}

// MPEG-2 intensity: odd positions attenuate the left channel, even ones the
// right, by 2^(-1/4) or 2^(-1/2) steps per the right channel's intensity
// scale; a negative (marked illegal) position leaves plain stereo.
TEST(ReQuantize, IntensityMpeg2) {
  struct Row {
    int pos, iscale;
    double kl, kr;
  } rows[] = {{0, 0, 1, 1},
              {1, 0, std::pow(2, -0.25), 1},
              {2, 0, 1, std::pow(2, -0.25)},
              {5, 1, std::pow(2, -1.5), 1},
              {6, 1, 1, std::pow(2, -1.5)},
              {-7, 0, 1, 0}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.pos);
    Granule g(0, 1, 1);  // intensity only
    g.si[1].scalefacCompress = 100 + r.iscale;
    g.xr[50] = -6;  // 22.05 kHz band 7 (44..54)
    g.bound[0] = 51;
    g.sf[39 + 7] = static_cast<Akl8s>(r.pos);
    ASSERT_EQ(g.Run(), kStsOk);
    const double v = Requant(-6, 0) * kQ26;
    EXPECT_NEAR(g.xr[50], v * r.kl, 2.0);
    EXPECT_NEAR(g.xr[576 + 50], v * r.kr, 2.0);
  }
}

TEST(ReQuantize, LargeGainSaturates) {
  Granule g(1, 3, 0);
  g.si[0].globalGain = 255;  // a = -45 + (15 << 2) = 15 in band 0
  g.si[0].scalefacScale = 1;
  g.sf[0] = 15;
  g.xr[0] = 8206;
  g.xr[1] = -8206;
  g.xr[2] = 20;
  g.bound[0] = 3;
  ASSERT_EQ(g.Run(), kStsOk);
  EXPECT_EQ(g.xr[0], 2147483647);
  EXPECT_EQ(g.xr[1], -2147483647);
  EXPECT_NEAR(g.xr[2], Requant(20, 15) * kQ26, 1 + Requant(20, 15) * kQ26 * 1e-7);
}

}  // namespace

namespace {

// The Sfb form reads the caller's rows: the library's own tables give the
// plain form's result at every rate, and a table whose row for this rate
// differs changes the result.
TEST(ReQuantize, SfbFormReadsTheCallersRow) {
  for (int id = 0; id < 2; ++id)
    for (int sfi = 0; sfi < 3; ++sfi) {
      SCOPED_TRACE(testing::Message() << id << " " << sfi);
      Granule a(id, 3, 0), b(id, 3, 0);
      for (Granule* g : {&a, &b}) {
        g->hdr.samplingFreqIndex = sfi;
        g->si[0].globalGain = 180;
        for (int i = 0; i < 22; ++i) g->sf[i] = static_cast<Akl8s>(i % 5);
        for (int i = 0; i < 400; ++i) g->xr[i] = (i * 7) % 11 - 5;
        g->bound[0] = 400;
      }
      ASSERT_EQ(a.Run(), kStsOk);
      ASSERT_EQ(aklsReQuantizeSfb_MP3_32s_I(b.xr.data(), b.bound, b.sf.data(), b.si, &b.hdr, b.work.data(),
                                            &akl::mp3::kSfbLong[0][0], &akl::mp3::kSfbShort[0][0]),
                kStsOk);
      EXPECT_EQ(a.xr, b.xr);
      // Row of another rate in this rate's place: band edges move.
      Akl16s lon[6][23];
      std::memcpy(lon, akl::mp3::kSfbLong, sizeof lon);
      const int row = id * 3 + sfi, other = id * 3 + (sfi + 1) % 3;
      if (std::memcmp(lon[row], lon[other], sizeof lon[row]) == 0) continue;
      std::memcpy(lon[row], akl::mp3::kSfbLong[other], sizeof lon[row]);
      Granule c(id, 3, 0);
      c.hdr.samplingFreqIndex = sfi;
      c.si[0].globalGain = 180;
      for (int i = 0; i < 22; ++i) c.sf[i] = static_cast<Akl8s>(i % 5);
      for (int i = 0; i < 400; ++i) c.xr[i] = (i * 7) % 11 - 5;
      c.bound[0] = 400;
      ASSERT_EQ(aklsReQuantizeSfb_MP3_32s_I(c.xr.data(), c.bound, c.sf.data(), c.si, &c.hdr, c.work.data(), &lon[0][0],
                                            &akl::mp3::kSfbShort[0][0]),
                kStsOk);
      EXPECT_NE(a.xr, c.xr);
    }
}

}  // namespace

namespace {

// Caller band rows that would take the kernel outside the granule, its work
// buffer or the scale-factor arrays are refused with kStsBadArgErr, after the
// specified checks and before anything is written.
TEST(ReQuantize, HostileBandTablesAreRefused) {
  struct Row {
    const char* what;
    int block_type, mixed;
    void (*edit)(Akl16s* lon, Akl16s* sho);  // this granule's rows
    Status expected;
  };
  const Row rows[] = {
      {"library rows, long", 0, 0, [](Akl16s*, Akl16s*) {}, kStsOk},
      {"library rows, mixed", 2, 1, [](Akl16s*, Akl16s*) {}, kStsOk},
      {"all zero rows", 0, 0, [](Akl16s* l, Akl16s* s) { std::fill(l, l + 23, 0); std::fill(s, s + 14, 0); }, kStsOk},
      {"negative first long edge", 0, 0, [](Akl16s* l, Akl16s*) { l[0] = -4; }, kStsBadArgErr},
      {"decreasing long edges", 0, 0, [](Akl16s* l, Akl16s*) { l[5] = 2; }, kStsBadArgErr},
      {"long row past 576", 0, 0, [](Akl16s* l, Akl16s*) { l[22] = 580; }, kStsBadArgErr},
      {"long row at 32767", 0, 0, [](Akl16s* l, Akl16s*) { for (int b = 12; b < 23; ++b) l[b] = 32767; }, kStsBadArgErr},
      {"short row past 192", 2, 0, [](Akl16s*, Akl16s* s) { s[13] = 194; }, kStsBadArgErr},
      {"odd short width", 2, 0, [](Akl16s*, Akl16s* s) { s[13] = 191; }, kStsBadArgErr},
      {"negative short edge", 2, 0, [](Akl16s*, Akl16s* s) { s[0] = -2; }, kStsBadArgErr},
      {"decreasing short edges", 0, 0, [](Akl16s*, Akl16s* s) { s[7] = 0; }, kStsBadArgErr},
      {"mixed with 22 long bands below 36", 2, 1, [](Akl16s* l, Akl16s*) { std::fill(l, l + 22, 0); l[22] = 576; },
       kStsBadArgErr},
      {"22 long bands below 36, not mixed", 2, 0, [](Akl16s* l, Akl16s*) { std::fill(l, l + 22, 0); l[22] = 576; },
       kStsOk},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    Granule g(1, 3, 0);  // MPEG-1 mono: row 3
    g.si[0].blockType = r.block_type;
    g.si[0].mixedBlockFlag = r.mixed;
    g.si[0].globalGain = 180;
    for (int i = 0; i < 576; ++i) g.xr[static_cast<std::size_t>(i)] = (i * 5) % 9 - 4;
    for (int i = 0; i < 39; ++i) g.sf[static_cast<std::size_t>(i)] = static_cast<Akl8s>(i % 4);
    g.bound[0] = 576;
    Akl16s lon[6][23], sho[6][14];
    std::memcpy(lon, akl::mp3::kSfbLong, sizeof lon);
    std::memcpy(sho, akl::mp3::kSfbShort, sizeof sho);
    r.edit(lon[3], sho[3]);
    const auto before = g.xr;
    const Status st = aklsReQuantizeSfb_MP3_32s_I(g.xr.data(), g.bound, g.sf.data(), g.si, &g.hdr, g.work.data(),
                                                  &lon[0][0], &sho[0][0]);
    EXPECT_EQ(st, r.expected);
    if (st != kStsOk) {
      EXPECT_EQ(g.xr, before);
    }
  }
}

}  // namespace
