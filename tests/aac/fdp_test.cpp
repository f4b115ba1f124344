// Frequency-domain prediction: bit for bit against a plain predictor written
// from the update equations on integer words, over many frames of random
// spectra with random prediction flags, resets, noise bands and short frames;
// the argument checks in their order.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"
#include "../support/test_util.hpp"

namespace {

// Band offsets at 44.1 kHz up to the prediction limit (40 bands, 672 lines).
const int kOffsets44[] = {0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  48,  56,  64,
                          72,  80,  88,  96,  108, 120, 132, 144, 160, 176, 196, 216, 240, 264,
                          292, 320, 352, 384, 416, 448, 480, 512, 544, 576, 608, 640, 672};
constexpr int kLimit44 = 40;
constexpr int kSfi44 = 4;

// The plain reference: the six values as 32-bit words, the shortened format
// applied with masks, the arithmetic in single precision in the order of the
// equations.
struct RefPredictor {
  float r0 = 0, r1 = 0, cor0 = 0, cor1 = 0, var0 = 1, var1 = 1;
};
std::uint32_t Bits(float v) {
  std::uint32_t u;
  std::memcpy(&u, &v, 4);
  return u;
}
float FromBits(std::uint32_t u) {
  float v;
  std::memcpy(&v, &u, 4);
  return v;
}
float Truncate(float v) { return FromBits(Bits(v) & 0xFFFF0000u); }
float RoundAway(float v) { return FromBits((Bits(v) + 0x8000u) & 0xFFFF0000u); }

float RefLine(RefPredictor& p, float x, bool use) {
  const float alpha = 29.0f / 32.0f, a = 61.0f / 64.0f, b = 61.0f / 64.0f;
  float k1 = 0.0f, k2 = 0.0f;
  if (p.var0 > 1.0f) k1 = p.cor0 * RoundAway(b / p.var0);
  if (p.var1 > 1.0f) k2 = p.cor1 * RoundAway(b / p.var1);
  const float pred = RoundAway(k1 * p.r0 + k2 * p.r1);
  const float y = use ? x + pred : x;
  const float e1 = y - k1 * p.r0;
  RefPredictor n;
  n.cor1 = Truncate(alpha * p.cor1 + p.r1 * e1);
  n.var1 = Truncate(alpha * p.var1 + 0.5f * (p.r1 * p.r1 + e1 * e1));
  n.cor0 = Truncate(alpha * p.cor0 + p.r0 * y);
  n.var0 = Truncate(alpha * p.var0 + 0.5f * (p.r0 * p.r0 + y * y));
  n.r1 = Truncate(a * (p.r0 - k1 * y));
  n.r0 = Truncate(a * y);
  p = n;
  return y;
}

struct RefChannel {
  RefPredictor pred[672];
  void ResetAll() {
    for (auto& p : pred) p = RefPredictor{};
  }
  void Frame(std::vector<float>& x, const AklAACIcsInfo& ics, const Akl8u* cb) {
    if (ics.windowSequence == 2) {
      ResetAll();
      return;
    }
    for (int b = 0; b < kLimit44; ++b) {
      const bool coded = b < ics.maxSfb;
      for (int i = kOffsets44[b]; i < kOffsets44[b + 1]; ++i) {
        if (coded && cb[b] == 13) {
          pred[i] = RefPredictor{};
          continue;
        }
        x[static_cast<std::size_t>(i)] =
            RefLine(pred[i], x[static_cast<std::size_t>(i)], ics.predictorDataPresent && coded && ics.predictionUsed[b]);
      }
    }
    if (ics.predictorDataPresent && ics.predictorReset)
      for (int i = ics.predictorResetGroupNum - 1; i < 672; i += 30) pred[i] = RefPredictor{};
  }
};

// A tonal signal with noise and a level that drifts from frame to frame, so
// that the predictors both converge and get surprised.
void MakeFrame(std::mt19937& rng, int frame, std::vector<float>* x) {
  std::normal_distribution<float> noise(0.0f, 1.0f);
  std::uniform_real_distribution<float> level(0.01f, 3000.0f);
  const float g = level(rng);
  for (int i = 0; i < 1024; ++i) {
    const float tone = 200.0f * std::sin(0.37f * static_cast<float>(frame) * static_cast<float>(i % 17 + 1));
    (*x)[static_cast<std::size_t>(i)] = (i % 3 == 0 ? tone : 0.0f) + g * noise(rng) * (i < 600 ? 1.0f : 0.01f);
  }
}

TEST(Fdp, BitExactAgainstPlainPredictorOverManyFrames) {
  std::mt19937 rng(akl::test::TestSeed());
  AklsFDPState_32f* st = nullptr;
  ASSERT_EQ(aklsFDPInitAlloc_32f(kSfi44, &st), kStsOk);
  auto ref = std::make_unique<RefChannel>();
  ref->ResetAll();
  std::uniform_int_distribution<int> pct(0, 99), group(1, 30), max_sfb(0, 49);
  std::vector<float> x(1024), y(1024);
  long predicted_lines = 0;
  for (int frame = 0; frame < 400; ++frame) {
    MakeFrame(rng, frame, &x);
    AklAACIcsInfo ics{};
    ics.windowSequence = pct(rng) < 5 ? 2 : (pct(rng) < 80 ? 0 : 1 + 2 * (pct(rng) & 1));
    ics.maxSfb = ics.windowSequence == 2 ? 14 : max_sfb(rng);
    ics.predictorDataPresent = pct(rng) < 85;
    ics.predictorReset = pct(rng) < 15;
    ics.predictorResetGroupNum = group(rng);
    for (int b = 0; b < 41; ++b) ics.predictionUsed[b] = pct(rng) < 70;
    Akl8u cb[64];
    for (auto& c : cb) c = static_cast<Akl8u>(pct(rng) < 4 ? 13 : 1 + pct(rng) % 11);
    ASSERT_EQ(aklsFDP_32f(x.data(), y.data(), &ics, cb, st), kStsOk);
    std::vector<float> want = x;
    ref->Frame(want, ics, cb);
    for (int i = 0; i < 1024; ++i) {
      ASSERT_EQ(Bits(y[static_cast<std::size_t>(i)]), Bits(want[static_cast<std::size_t>(i)]))
          << "frame " << frame << " line " << i;
      if (y[static_cast<std::size_t>(i)] != x[static_cast<std::size_t>(i)]) ++predicted_lines;
    }
  }
  EXPECT_GT(predicted_lines, 10000);  // the estimates were non-trivial
  EXPECT_EQ(aklsFDPFree_32f(st), kStsOk);
}

// Known values of the shortened format and of the first estimates.
TEST(Fdp, ShortFormatAndFirstFrames) {
  std::vector<Akl8u> mem(1 << 16);
  int size = 0;
  ASSERT_EQ(aklsFDPGetSize_32f(&size), kStsOk);
  ASSERT_LE(size, static_cast<int>(mem.size()) - 1);
  auto* st = reinterpret_cast<AklsFDPState_32f*>(mem.data() + 1);  // unaligned on purpose
  ASSERT_EQ(aklsFDPInit_32f(kSfi44, st), kStsOk);
  AklAACIcsInfo ics{};
  ics.maxSfb = 40;
  ics.predictorDataPresent = 1;
  for (int b = 0; b < 40; ++b) ics.predictionUsed[b] = 1;
  Akl8u cb[64];
  std::memset(cb, 1, sizeof(cb));
  std::vector<float> x(1024, 100.0f), y(1024);
  // Frame 1: every predictor is fresh, so nothing is predicted.
  ASSERT_EQ(aklsFDP_32f(x.data(), y.data(), &ics, cb, st), kStsOk);
  EXPECT_EQ(y[0], 100.0f);
  // Frame 2 from the hand-evaluated state: r0 = T(61/64 * 100) = 95.0 (95.3125
  // truncated to 8 mantissa bits), COR0 = 0, VAR0 = T(29/32 + 5000) = 5000;
  // k1 = 0, so still nothing; frame 3 predicts.
  ASSERT_EQ(aklsFDP_32f(x.data(), y.data(), &ics, cb, st), kStsOk);
  EXPECT_EQ(y[0], 100.0f);
  ASSERT_EQ(aklsFDP_32f(x.data(), y.data(), &ics, cb, st), kStsOk);
  EXPECT_GT(y[0], 150.0f);  // a constant line is predicted to continue
  EXPECT_EQ(y[700], 100.0f);  // above the limit: copied
  // Reset: the state is as new, and the first frame after it is not predicted.
  ASSERT_EQ(aklsFDPReset_32f(st), kStsOk);
  ASSERT_EQ(aklsFDP_32f(x.data(), y.data(), &ics, cb, st), kStsOk);
  EXPECT_EQ(y[0], 100.0f);
}

// The life cycle (argument checks of the other operations: tests/core/contract_test.cpp).
TEST(Fdp, LifeCycle) {
  AklsFDPState_32f* st = nullptr;
  ASSERT_EQ(aklsFDPInitAlloc_32f(kSfi44, &st), kStsOk);
  std::vector<Akl8u> junk(1 << 15, 0);
  EXPECT_EQ(aklsFDPFree_32f(reinterpret_cast<AklsFDPState_32f*>(junk.data())), kStsContextMismatch);
  EXPECT_EQ(aklsFDPFree_32f(nullptr), kStsNullPtr);
  EXPECT_EQ(aklsFDPInitAlloc_32f(-1, &st), kStsAacSmpRateIdxErr);
  EXPECT_EQ(aklsFDPFree_32f(st), kStsOk);
  // Allocation failure: -9, nothing leaked, pointer unwritten.
  AklsFDPState_32f* none = nullptr;
  const Status s = akl::test::SweepAllocationFailures([&] { return aklsFDPInitAlloc_32f(0, &none); },
                                                      [&] {});
  EXPECT_EQ(s, kStsOk);
  EXPECT_EQ(aklsFDPFree_32f(none), kStsOk);
}

}  // namespace
