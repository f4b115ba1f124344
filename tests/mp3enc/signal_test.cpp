// Analysis filter bank, forward MDCT, mid/side and quantization against
// the decoding side and against plain double-precision references.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"

namespace {

constexpr double kPi = 3.14159265358979323846;

// A test signal: two sines and some noise, peak about 0.7 of full scale.
std::vector<Akl16s> TestPcm(int n, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> noise(0.0, 800.0);
  std::vector<Akl16s> pcm(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    const double v = 12000.0 * std::sin(2 * kPi * 0.0123 * i) + 8000.0 * std::sin(2 * kPi * 0.2071 * i) + noise(rng);
    pcm[static_cast<std::size_t>(i)] = static_cast<Akl16s>(std::lround(v));
  }
  return pcm;
}

double SnrDb(const std::vector<double>& ref, const std::vector<double>& got) {
  double s = 0, e = 0;
  for (std::size_t i = 0; i < ref.size(); ++i) {
    s += ref[i] * ref[i];
    e += (ref[i] - got[i]) * (ref[i] - got[i]);
  }
  return 10.0 * std::log10(s / (e > 0 ? e : 1e-300));
}

// The standard's analysis in double precision, straight from its formula.
struct AnalysisRef {
  std::vector<double> x = std::vector<double>(512, 0.0);
  void Slot(const Akl16s* pcm, double* s, const std::vector<double>& c) {
    for (int i = 511; i >= 32; --i) x[static_cast<std::size_t>(i)] = x[static_cast<std::size_t>(i - 32)];
    for (int i = 31; i >= 0; --i) x[static_cast<std::size_t>(i)] = pcm[31 - i] / 32768.0;
    double y[64];
    for (int i = 0; i < 64; ++i) {
      y[i] = 0;
      for (int j = 0; j < 8; ++j) y[i] += c[static_cast<std::size_t>(i + 64 * j)] * x[static_cast<std::size_t>(i + 64 * j)];
    }
    for (int k = 0; k < 32; ++k) {
      s[k] = 0;
      for (int i = 0; i < 64; ++i) s[k] += std::cos((2 * k + 1) * (i - 16) * kPi / 64) * y[i];
    }
  }
};

// The analysis window C[i] = D[i] / 32 from the reference table of D.
std::vector<double> AnalysisWindow() {
  const auto text = akl::test::ReadFile(akl::test::DataPath("mp3_signal/mp3_synthesis_window.txt"));
  std::vector<double> c;
  std::string s(text.begin(), text.end());
  std::size_t pos = 0;
  while (pos < s.size()) {
    std::size_t end = s.find('\n', pos);
    if (end == std::string::npos) end = s.size();
    const std::string line = s.substr(pos, end - pos);
    pos = end + 1;
    if (line.empty() || line[0] == '#') continue;
    double d;
    int idx, k;
    if (std::sscanf(line.c_str(), "%d %lf %d", &idx, &d, &k) == 3) c.push_back(k / 65536.0 / 32.0);
  }
  return c;
}

TEST(AnalysisPQMF, MatchesTheStandardsFormulaAndReconstructs) {
  const std::vector<double> c = AnalysisWindow();
  ASSERT_EQ(c.size(), 512u);
  const int slots = 200;
  const std::vector<Akl16s> pcm = TestPcm(32 * slots, akl::test::TestSeed());
  AnalysisRef ref;
  std::vector<Akl32s> xbuf(512, 0), vbuf(512, 0);
  int xpos = 0, vpos = 0;
  double worst = 0;
  std::vector<double> in, out;
  std::vector<Akl16s> rec(32 * slots);
  for (int t = 0; t < slots; ++t) {
    Akl32s s[32];
    double sr[32];
    ASSERT_EQ(aklsAnalysisPQMF_MP3_16s32s(pcm.data() + 32 * t, s, xbuf.data(), &xpos, 1), kStsOk);
    ref.Slot(pcm.data() + 32 * t, sr, c);
    for (int k = 0; k < 32; ++k) worst = std::max(worst, std::fabs(s[k] - sr[k] * 67108864.0));
    ASSERT_EQ(aklsSynthPQMF_MP3_32s16s(s, rec.data() + 32 * t, vbuf.data(), &vpos, 1), kStsOk);
  }
  // Two roundings (Y to Q27, S to Q26, the first one amplified by the
  // matrixing's row sums): within 4 Q26 steps of the exact sums.
  EXPECT_LE(worst, 4.0);
  // Reconstruction: delay 481 samples; the filter bank's own error and the
  // 16-bit rounding of the synthesis put it near 80 dB on this signal.
  for (int i = 1024; i < 32 * slots; ++i) {
    in.push_back(pcm[static_cast<std::size_t>(i - 481)]);
    out.push_back(rec[static_cast<std::size_t>(i)]);
  }
  const double snr = SnrDb(in, out);
  EXPECT_GT(snr, 75.0) << snr;
  RecordProperty("snr_db", std::to_string(snr));
}

TEST(AnalysisPQMF, StereoStrideAndStatuses) {
  const std::vector<Akl16s> pcm = TestPcm(64, 3);
  std::vector<Akl16s> inter(128);
  for (int i = 0; i < 64; ++i) inter[static_cast<std::size_t>(2 * i + 1)] = pcm[static_cast<std::size_t>(i)];
  std::vector<Akl32s> xa(512, 0), xb(512, 0);
  int pa = 0, pb = 0;
  Akl32s sa[32], sb[32];
  for (int t = 0; t < 2; ++t) {
    ASSERT_EQ(aklsAnalysisPQMF_MP3_16s32s(pcm.data() + 32 * t, sa, xa.data(), &pa, 1), kStsOk);
    ASSERT_EQ(aklsAnalysisPQMF_MP3_16s32s(inter.data() + 64 * t + 1, sb, xb.data(), &pb, 2), kStsOk);
    EXPECT_EQ(std::memcmp(sa, sb, sizeof(sa)), 0);
  }
  EXPECT_EQ(pa, 14);  // stepped back twice from 0
  int bad = 16;
  EXPECT_EQ(aklsAnalysisPQMF_MP3_16s32s(pcm.data(), nullptr, xa.data(), &bad, 3), kStsNullPtr);
  EXPECT_EQ(aklsAnalysisPQMF_MP3_16s32s(pcm.data(), sa, xa.data(), &bad, 1), kStsBadArgErr);
  EXPECT_EQ(aklsAnalysisPQMF_MP3_16s32s(pcm.data(), sa, xa.data(), &pa, 3), kStsBadArgErr);
  EXPECT_EQ(bad, 16);
}

TEST(AnalysisFilterFloat, AgreesWithFixedPointAndReconstructs) {
  AklsAnalysisState_PQMF_MP3_32f* ana = nullptr;
  AklsFilterState_PQMF_MP3_32f* syn = nullptr;
  ASSERT_EQ(aklsAnalysisFilterInitAlloc_PQMF_MP3_32f(&ana), kStsOk);
  ASSERT_EQ(aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(&syn), kStsOk);
  const int slots = 120;
  const std::vector<Akl16s> pcm = TestPcm(32 * slots, 9);
  std::vector<float> f(pcm.begin(), pcm.end()), s(f.size()), rec(f.size());
  for (float& v : f) v /= 32768.0f;
  ASSERT_EQ(aklsAnalysisFilter_PQMF_MP3_32f(f.data(), s.data(), ana, slots), kStsOk);
  ASSERT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(s.data(), rec.data(), syn, slots), kStsOk);
  std::vector<Akl32s> xbuf(512, 0);
  int xpos = 0;
  double worst = 0;
  for (int t = 0; t < slots; ++t) {
    Akl32s q[32];
    aklsAnalysisPQMF_MP3_16s32s(pcm.data() + 32 * t, q, xbuf.data(), &xpos, 1);
    for (int k = 0; k < 32; ++k) worst = std::max(worst, std::fabs(q[k] / 67108864.0 - s[static_cast<std::size_t>(32 * t + k)]));
  }
  EXPECT_LT(worst, 2e-6);  // single-precision sums of about 600 terms of size below 1
  std::vector<double> in, out;
  for (int i = 1024; i < 32 * slots; ++i) {
    in.push_back(f[static_cast<std::size_t>(i - 481)]);
    out.push_back(rec[static_cast<std::size_t>(i)]);
  }
  EXPECT_GT(SnrDb(in, out), 80.0);
  // Context life cycle.
  EXPECT_EQ(aklsAnalysisFilter_PQMF_MP3_32f(f.data(), s.data(), ana, 0), kStsSizeErr);
  EXPECT_EQ(aklsAnalysisFilter_PQMF_MP3_32f(f.data(), s.data(),
                                            reinterpret_cast<AklsAnalysisState_PQMF_MP3_32f*>(syn), 1),
            kStsContextMismatch);
  EXPECT_EQ(aklsAnalysisFilterFree_PQMF_MP3_32f(reinterpret_cast<AklsAnalysisState_PQMF_MP3_32f*>(syn)),
            kStsContextMismatch);
  EXPECT_EQ(aklsAnalysisFilterFree_PQMF_MP3_32f(nullptr), kStsNullPtr);
  EXPECT_EQ(aklsAnalysisFilterFree_PQMF_MP3_32f(ana), kStsOk);
  EXPECT_EQ(aklsSynthesisFilterFree_PQMF_MP3_32f(syn), kStsOk);
  int size = 0;
  ASSERT_EQ(aklsAnalysisFilterGetSize_PQMF_MP3_32f(&size), kStsOk);
  std::vector<Akl8u> mem(static_cast<std::size_t>(size) + 1);
  auto* st = reinterpret_cast<AklsAnalysisState_PQMF_MP3_32f*>(mem.data() + 1);
  ASSERT_EQ(aklsAnalysisFilterInit_PQMF_MP3_32f(st), kStsOk);
  EXPECT_EQ(aklsAnalysisFilter_PQMF_MP3_32f(f.data(), s.data(), st, 2), kStsOk);
  EXPECT_EQ(aklsAnalysisFilterFree_PQMF_MP3_32f(st), kStsOk);
}

// Forward MDCT then the decoder's inverse MDCT: the subband samples come back
// one granule later, through every legal block-type sequence.
TEST(MDCTFwd, InverseMdctReturnsTheInputOneGranuleLater) {
  std::mt19937 rng(akl::test::TestSeed() + 4);
  std::normal_distribution<double> g(0.0, 0.2 * 67108864.0);
  struct Seq {
    int bt[8];
    int mixed;
  } seqs[] = {{{0, 0, 1, 2, 2, 3, 0, 0}, 0}, {{0, 1, 2, 3, 1, 2, 3, 0}, 0}, {{0, 1, 2, 2, 2, 3, 0, 0}, 1}};
  for (const Seq& sq : seqs) {
    std::vector<Akl32s> ovl_f(576, 0), ovl_i(576, 0);
    int prev = 0;
    std::vector<Akl32s> last(576, 0);
    double worst = 0, peak = 0;
    for (int gr = 0; gr < 8; ++gr) {
      std::vector<Akl32s> y(576), xr(576), out(576);
      for (Akl32s& v : y) v = static_cast<Akl32s>(std::lround(g(rng)));
      const int mixed = sq.bt[gr] == 2 ? sq.mixed : 0;
      ASSERT_EQ(aklsMDCTFwd_MP3_32s(y.data(), xr.data(), ovl_f.data(), sq.bt[gr], mixed), kStsOk);
      ASSERT_EQ(aklsMDCTInv_MP3_32s(xr.data(), out.data(), ovl_i.data(), 576, &prev, sq.bt[gr], mixed), kStsOk);
      // A mixed block puts the normal window on subbands 0 and 1, which
      // matches neither the start window before it nor the stop window
      // after it: those two subbands are not compared in that sequence.
      if (gr > 0)
        for (int i = 0; i < 576; ++i) {
          if (sq.mixed && i % 32 < 2) continue;
          worst = std::max(worst, std::fabs(static_cast<double>(out[static_cast<std::size_t>(i)]) - last[static_cast<std::size_t>(i)]));
          peak = std::max(peak, std::fabs(static_cast<double>(last[static_cast<std::size_t>(i)])));
        }
      last = y;
    }
    // The inverse transform's float lanes are within 2^-17 of the peak.
    EXPECT_LT(worst, peak * 1.0 / 131072.0 + 8) << "sequence " << sq.bt[0] << sq.bt[1] << sq.bt[2] << " mixed " << sq.mixed;
  }
  std::vector<Akl32s> a(576), b(576), o(576);
  EXPECT_EQ(aklsMDCTFwd_MP3_32s(a.data(), nullptr, o.data(), 4, 0), kStsNullPtr);
  EXPECT_EQ(aklsMDCTFwd_MP3_32s(a.data(), b.data(), o.data(), 4, 0), kStsBadArgErr);
  EXPECT_EQ(aklsMDCTFwd_MP3_32s(a.data(), b.data(), o.data(), 2, 2), kStsBadArgErr);
}

// Quantize then the decoder's requantizer: every line comes back within its
// quantizer cell, short blocks in their own places (so the reordering is the
// requantizer's in reverse).
TEST(Quantize, RequantizedLinesFallInTheirCells) {
  std::mt19937 rng(akl::test::TestSeed() + 5);
  std::normal_distribution<double> g(0.0, 0.05 * 67108864.0);
  struct Case {
    int id, sfi, bt, mixed;
  } cases[] = {{1, 0, 0, 0}, {1, 1, 1, 0}, {1, 2, 2, 0}, {1, 0, 2, 1}, {0, 0, 3, 0}, {0, 1, 2, 0}, {0, 2, 2, 1}};
  for (const Case& c : cases)
    for (int n = 0; n < 20; ++n) {
      AklMP3FrameHeader h{};
      h.id = c.id;
      h.layer = 1;
      h.samplingFreqIndex = c.sfi;
      h.mode = 3;
      AklMP3SideInfo si[2] = {};
      si[0].blockType = c.bt;
      si[0].windowSwitchingFlag = c.bt != 0;
      si[0].mixedBlockFlag = c.mixed;
      si[0].globalGain = 150 + static_cast<Akl32s>(rng() % 60);
      si[0].scalefacScale = static_cast<Akl32s>(rng() % 2);
      si[0].preflag = c.bt == 2 ? 0 : static_cast<Akl32s>(rng() % 2);
      for (int& s : si[0].subblockGain) s = static_cast<Akl32s>(rng() % 3);
      Akl8s sf[2 * 39] = {};
      for (int i = 0; i < 39; ++i) sf[i] = static_cast<Akl8s>(rng() % 4);
      sf[21] = 0;
      std::vector<Akl32s> xr(2 * 576, 0), work(576);
      for (int i = 0; i < 576; ++i) xr[static_cast<std::size_t>(i)] = static_cast<Akl32s>(std::lround(g(rng) / (1 + i / 40)));
      const std::vector<Akl32s> orig(xr.begin(), xr.begin() + 576);
      ASSERT_EQ(aklsQuantize_MP3_32s_I(xr.data(), sf, si, &h, work.data()), kStsOk);
      int bound[2] = {576, 0};
      ASSERT_EQ(aklsReQuantize_MP3_32s_I(xr.data(), bound, sf, si, &h, work.data()), kStsOk);
      // Cell of a line quantized to q >= 1: the requantized value is q^(4/3) s
      // and the original lies in [(q - 0.4054)^(4/3) s, (q + 0.5946)^(4/3) s].
      for (int i = 0; i < 576; ++i) {
        const double o = std::fabs(static_cast<double>(orig[static_cast<std::size_t>(i)]));
        const double r = std::fabs(static_cast<double>(xr[static_cast<std::size_t>(i)]));
        if (r == 0) continue;
        ASSERT_EQ(orig[static_cast<std::size_t>(i)] < 0, xr[static_cast<std::size_t>(i)] < 0) << i;
        // r = q^(4/3) s: recover q and s up to rounding.
        const double ratio = o / r;
        EXPECT_GT(ratio, 0.5) << "line " << i << " case bt " << c.bt;
        EXPECT_LT(ratio, 1.9) << "line " << i << " case bt " << c.bt;
      }
    }
}

TEST(Quantize, MatchesTheFormulaAndChecks) {
  AklMP3FrameHeader h{};
  h.id = 1;
  h.layer = 1;
  AklMP3SideInfo si{};
  si.globalGain = 210;  // a = 0 for band 0 with a zero scale factor: ix = floor(|x|^(3/4) + 0.4054)
  Akl8s sf[39] = {};
  std::vector<Akl32s> x(576, 0), work(576);
  const double vals[] = {0.0, 0.1, 0.3, 0.45, 1.0, 2.0, 37.5, 1000.0, 20000.0};
  for (int i = 0; i < 9; ++i) x[static_cast<std::size_t>(i)] = static_cast<Akl32s>(std::lround((i % 2 ? -1 : 1) * std::min(vals[i], 31.0) * 67108864.0));
  x[8] = 2147483647;
  std::vector<Akl32s> in = x;
  ASSERT_EQ(aklsQuantize_MP3_32s_I(x.data(), sf, &si, &h, work.data()), kStsOk);
  for (int i = 0; i < 4; ++i) {  // band 0 holds lines 0..3 at 44.1 kHz
    const double v = std::fabs(in[static_cast<std::size_t>(i)] / 67108864.0);
    const int want = static_cast<int>(std::floor(std::pow(v, 0.75) + 0.4054));
    EXPECT_EQ(std::abs(x[static_cast<std::size_t>(i)]), want) << i;
  }
  Akl8s big_sf[39] = {};
  si.globalGain = 0;  // the largest attenuation: every full-scale line saturates
  std::vector<Akl32s> y(576, 2147483647);
  ASSERT_EQ(aklsQuantize_MP3_32s_I(y.data(), big_sf, &si, &h, work.data()), kStsOk);
  EXPECT_EQ(y[0], 8206);  // saturated
  EXPECT_EQ(aklsQuantize_MP3_32s_I(y.data(), nullptr, &si, &h, work.data()), kStsNullPtr);
  h.samplingFreqIndex = 3;
  EXPECT_EQ(aklsQuantize_MP3_32s_I(y.data(), sf, &si, &h, work.data()), kStsMP3FrameHeaderErr);
  h.samplingFreqIndex = 0;
  si.globalGain = 256;
  EXPECT_EQ(aklsQuantize_MP3_32s_I(y.data(), sf, &si, &h, work.data()), kStsMP3SideInfoErr);
  si.globalGain = 0;
  si.blockType = 2;
  si.subblockGain[1] = 8;
  EXPECT_EQ(aklsQuantize_MP3_32s_I(y.data(), sf, &si, &h, work.data()), kStsMP3SideInfoErr);
  EXPECT_EQ(y[0], 8206);
}

TEST(JointStereoEncode, MidSideUndoneByTheDecodersSums) {
  std::mt19937 rng(3);
  std::vector<Akl32s> x(1152);
  for (Akl32s& v : x) v = static_cast<Akl32s>(static_cast<int>(rng() % 200000001u) - 100000000);
  const std::vector<Akl32s> in = x;
  AklMP3FrameHeader h{};
  h.id = 1;
  h.layer = 1;
  h.mode = 1;
  h.modeExtension = 2;
  ASSERT_EQ(aklsJointStereoEncode_MP3_32s_I(x.data(), &h), kStsOk);
  for (int i = 0; i < 576; ++i) {
    const double m = x[static_cast<std::size_t>(i)], s = x[static_cast<std::size_t>(576 + i)];
    EXPECT_NEAR((m + s) / std::sqrt(2.0), in[static_cast<std::size_t>(i)], 1.5);
    EXPECT_NEAR((m - s) / std::sqrt(2.0), in[static_cast<std::size_t>(576 + i)], 1.5);
  }
  std::vector<Akl32s> y = in;
  h.modeExtension = 0;  // joint stereo without mid/side, and plain stereo: untouched
  ASSERT_EQ(aklsJointStereoEncode_MP3_32s_I(y.data(), &h), kStsOk);
  h.mode = 0;
  h.modeExtension = 2;
  ASSERT_EQ(aklsJointStereoEncode_MP3_32s_I(y.data(), &h), kStsOk);
  EXPECT_EQ(y, in);
  h.mode = 1;
  h.modeExtension = 3;
  EXPECT_EQ(aklsJointStereoEncode_MP3_32s_I(y.data(), &h), kStsNotSupportedModeErr);
  h.modeExtension = 4;
  EXPECT_EQ(aklsJointStereoEncode_MP3_32s_I(y.data(), &h), kStsMP3FrameHeaderErr);
  EXPECT_EQ(aklsJointStereoEncode_MP3_32s_I(nullptr, &h), kStsNullPtr);
  EXPECT_EQ(y, in);
}

}  // namespace
