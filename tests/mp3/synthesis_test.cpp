#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include "aklac.h"
#include "mp3/synthesis.hpp"
#include "mp3/synthesis_window_table.hpp"
#include "signal_reference.hpp"
#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"

namespace {

constexpr double kQ26 = 67108864.0;

std::vector<double> WindowFromText() {
  std::ifstream f(akl::test::DataPath("mp3_signal/mp3_synthesis_window.txt"));
  std::vector<double> d(512, 0.0);
  std::string line;
  while (std::getline(f, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream ss(line);
    int i;
    double v;
    ss >> i >> v;
    d[i] = v;
  }
  return d;
}

TEST(SynthesisWindow, MatchesTextAndSymmetry) {
  const std::vector<double> d = WindowFromText();
  for (int i = 0; i < 512; ++i) ASSERT_NEAR(akl::mp3::kSynthesisWindowQ16[i] / 65536.0, d[i], 6e-10) << i;
  for (int i = 1; i < 512; ++i) {
    const int sign = (i % 64 == 0) ? 1 : -1;
    ASSERT_EQ(akl::mp3::kSynthesisWindowQ16[512 - i], sign * akl::mp3::kSynthesisWindowQ16[i]) << i;
  }
}

TEST(SynthPQMF, RingOffsetStepsBackAndModeTwoSkipsOddSamples) {
  std::vector<Akl32s> s(32, 1 << 22), v(512, 0);
  std::vector<Akl16s> pcm(64, 77);
  int pos = 0;
  ASSERT_EQ(aklsSynthPQMF_MP3_32s16s(s.data(), pcm.data(), v.data(), &pos, 2), kStsOk);
  EXPECT_EQ(pos, 15);
  for (int i = 1; i < 64; i += 2) EXPECT_EQ(pcm[i], 77);
  ASSERT_EQ(aklsSynthPQMF_MP3_32s16s(s.data(), pcm.data(), v.data(), &pos, 1), kStsOk);
  EXPECT_EQ(pos, 14);
}

// Random subband signals against the standard's formulation in double.  The
// fixed-point path carries the transform at Q24 (step 6e-8 of full scale)
// with exact window coefficients, so before the final rounding it lies
// within about 1e-3 of a 16-bit step of the double result: every output is
// the double result rounded, give or take that (0.502 steps).
TEST(SynthPQMF, MatchesDoubleModel) {
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<double> dist(-0.9, 0.9);
  akl::test::SynthRef ref;
  ref.window = WindowFromText();
  std::vector<Akl32s> v(512, 0);
  int pos = 0;
  int differing = 0;
  for (int slot = 0; slot < 200; ++slot) {
    double sd[32];
    Akl32s sq[32];
    const double scale = (slot % 3 == 0) ? 0.05 : 1.0 / 32;
    for (int k = 0; k < 32; ++k) {
      sq[k] = static_cast<Akl32s>(std::lround(dist(rng) * scale * kQ26));
      sd[k] = sq[k] / kQ26;
    }
    double expect[32];
    ref.Slot(sd, expect);
    Akl16s pcm[32];
    ASSERT_EQ(aklsSynthPQMF_MP3_32s16s(sq, pcm, v.data(), &pos, 1), kStsOk);
    for (int j = 0; j < 32; ++j) {
      const double e = std::clamp(expect[j] * 32768.0, -32768.0, 32767.0);
      ASSERT_LE(std::fabs(pcm[j] - e), 0.502) << slot << " " << j;
      differing += pcm[j] != std::lround(e);
    }
  }
  EXPECT_LT(differing, 10);
}

TEST(SynthPQMF, FullScaleSaturates) {
  std::vector<Akl32s> v(512, 0);
  int pos = 0;
  Akl16s pcm[32];
  Akl32s s[32];
  int hi = 0, lo = 0;
  for (int slot = 0; slot < 40; ++slot) {
    for (int k = 0; k < 32; ++k) s[k] = (slot & 1) ? INT32_MIN : INT32_MAX;
    ASSERT_EQ(aklsSynthPQMF_MP3_32s16s(s, pcm, v.data(), &pos, 1), kStsOk);
    for (Akl16s p : pcm) {
      hi += p == 32767;
      lo += p == -32768;
    }
  }
  EXPECT_GT(hi, 0);
  EXPECT_GT(lo, 0);
}

// ---- floating-point context family ----

TEST(SynthesisFilter32f, ContextLifeCycle) {
  int size = 0;
  EXPECT_EQ(aklsSynthesisFilterGetSize_PQMF_MP3_32f(nullptr), kStsNullPtr);
  ASSERT_EQ(aklsSynthesisFilterGetSize_PQMF_MP3_32f(&size), kStsOk);
  EXPECT_EQ(aklsSynthesisFilterInit_PQMF_MP3_32f(nullptr), kStsNullPtr);
  EXPECT_EQ(aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(nullptr), kStsNullPtr);
  EXPECT_EQ(aklsSynthesisFilterFree_PQMF_MP3_32f(nullptr), kStsNullPtr);
  // Built one byte past a 16-byte boundary: 15 bytes further, within the size.
  std::vector<unsigned char> mem(size + 32, 0);
  auto base = reinterpret_cast<std::uintptr_t>(mem.data());
  unsigned char* raw = mem.data() + ((16 - base % 16) % 16) + 1;
  auto* st = reinterpret_cast<AklsFilterState_PQMF_MP3_32f*>(raw);
  ASSERT_EQ(aklsSynthesisFilterInit_PQMF_MP3_32f(st), kStsOk);
  EXPECT_EQ(raw[15] | raw[16] << 8 | raw[17] << 16 | raw[18] << 24, 0x434D4167);
  const int live = akl::test::LiveAllocations();
  EXPECT_EQ(aklsSynthesisFilterFree_PQMF_MP3_32f(st), kStsOk);
  EXPECT_EQ(akl::test::LiveAllocations(), live);
  // The tag survives Free; a wrong tag is refused and nothing is released.
  float src[32] = {}, dst[32];
  EXPECT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(src, dst, st, 1), kStsOk);
  raw[15] ^= 1;
  EXPECT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(src, dst, st, 1), kStsContextMismatch);
  EXPECT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(src, dst, st, 0), kStsSizeErr);  // size before tag
  EXPECT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(nullptr, dst, st, 0), kStsNullPtr);
  EXPECT_EQ(aklsSynthesisFilterFree_PQMF_MP3_32f(st), kStsContextMismatch);
}

TEST(SynthesisFilter32f, InitAllocFailsCleanly) {
  AklsFilterState_PQMF_MP3_32f* st = nullptr;
  const Status last = akl::test::SweepAllocationFailures(
      [&] {
        st = nullptr;
        return aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(&st);
      },
      [&] {
        if (st) aklsSynthesisFilterFree_PQMF_MP3_32f(st);
      });
  ASSERT_EQ(last, kStsOk);
  ASSERT_NE(st, nullptr);
  EXPECT_EQ(aklsSynthesisFilterFree_PQMF_MP3_32f(st), kStsOk);
}

// Float path against the double model over several calls of varying block
// counts; single-precision sums of 32 and 16 terms keep the relative error
// near 1e-6 of full scale.
TEST(SynthesisFilter32f, MatchesDoubleModelAcrossCalls) {
  AklsFilterState_PQMF_MP3_32f* st = nullptr;
  ASSERT_EQ(aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(&st), kStsOk);
  akl::test::SynthRef ref;
  ref.window = WindowFromText();
  std::mt19937 rng(akl::test::TestSeed());
  std::uniform_real_distribution<float> dist(-0.05f, 0.05f);
  double worst = 0;
  for (int call = 0; call < 12; ++call) {
    const int n = 1 + call % 5;
    std::vector<float> src(32 * n), dst(32 * n);
    for (float& x : src) x = dist(rng);
    ASSERT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(src.data(), dst.data(), st, n), kStsOk);
    for (int t = 0; t < n; ++t) {
      double sd[32], e[32];
      for (int k = 0; k < 32; ++k) sd[k] = src[32 * t + k];
      ref.Slot(sd, e);
      for (int j = 0; j < 32; ++j) worst = std::max(worst, std::fabs(dst[32 * t + j] - e[j]));
    }
  }
  EXPECT_LT(worst, 2e-6);
  EXPECT_EQ(aklsSynthesisFilterFree_PQMF_MP3_32f(st), kStsOk);
}

}  // namespace
