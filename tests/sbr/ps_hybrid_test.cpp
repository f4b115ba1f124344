// Parametric-stereo hybrid filter bank: the analysis against a direct
// double-precision evaluation of the sub-band filters (prototypes read from
// tests/data/sbr/ps_tables.txt), analysis plus synthesis as a 6-slot delay
// in both layouts and across a layout change, and the contract of the six
// exports.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "aklac.h"
#include "support/alloc_hook.hpp"

namespace {

using cd = std::complex<double>;
constexpr double kPi = 3.14159265358979323846;

// proto lines: name -> g(0..12).
std::map<std::string, std::vector<double>> Prototypes() {
  std::map<std::string, std::vector<double>> out;
  std::ifstream in(std::string(AKLAC_TEST_DATA_DIR) + "/sbr/ps_tables.txt");
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string key, name;
    int q;
    if (!(f >> key) || key != "proto") continue;
    f >> name >> q;
    std::vector<double> g(13);
    for (int n = 0; n <= 6; ++n) f >> g[n];
    for (int n = 7; n < 13; ++n) g[n] = g[12 - n];
    out[name] = g;
  }
  return out;
}

// One hybrid band: the sum of sub-band filters (QMF band, Q, q, real pair?)
// that make it.
struct Part {
  int band;
  const char* proto;
  int q_count, q;  // q_count 2 with a "g1_Q2" prototype: the real pair
};

std::vector<std::vector<Part>> Layout(int config) {
  std::vector<std::vector<Part>> k;
  if (config == 20) {
    k = {{{0, "g0_Q8", 8, 6}}, {{0, "g0_Q8", 8, 7}}, {{0, "g0_Q8", 8, 0}}, {{0, "g0_Q8", 8, 1}},
         {{0, "g0_Q8", 8, 2}, {0, "g0_Q8", 8, 5}}, {{0, "g0_Q8", 8, 3}, {0, "g0_Q8", 8, 4}},
         {{1, "g1_Q2", 2, 1}}, {{1, "g1_Q2", 2, 0}}, {{2, "g1_Q2", 2, 0}}, {{2, "g1_Q2", 2, 1}}};
  } else {
    for (int q = 0; q < 12; ++q) k.push_back({{0, "g0_Q12", 12, q}});
    for (int q = 0; q < 8; ++q) k.push_back({{1, "g1_Q8", 8, q}});
    for (int b = 2; b < 5; ++b)
      for (int q = 0; q < 4; ++q) k.push_back({{b, "g2_Q4", 4, q}});
  }
  return k;
}

// The filters, literally: y(t) = sum_n G(n) x(t - n), x zero before slot 0.
std::vector<std::vector<cd>> DirectAnalysis(const std::vector<std::vector<cd>>& x, int config) {
  const auto protos = Prototypes();
  std::vector<std::vector<cd>> y(x.size());
  for (std::size_t t = 0; t < x.size(); ++t) {
    for (const auto& parts : Layout(config)) {
      cd sum = 0;
      for (const Part& p : parts) {
        const std::vector<double>& g = protos.at(p.proto);
        for (int n = 0; n < 13 && n <= static_cast<int>(t); ++n) {
          const cd tap = std::string(p.proto) == "g1_Q2"
                             ? cd(g[n] * ((p.q == 1 && ((n - 6) % 2 != 0)) ? -1.0 : 1.0), 0.0)
                             : g[n] * std::polar(1.0, 2 * kPi * (p.q + 0.5) * (n - 6) / p.q_count);
          sum += tap * x[t - n][p.band];
        }
      }
      y[t].push_back(sum);
    }
  }
  return y;
}

std::vector<std::vector<cd>> RandomSlots(int slots, double peak, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(-peak, peak);
  std::vector<std::vector<cd>> x(slots, std::vector<cd>(64));
  for (auto& row : x)
    for (auto& v : row) v = cd(static_cast<float>(u(rng)), static_cast<float>(u(rng)));
  return x;
}

std::vector<Akl32fc> Flat(const std::vector<std::vector<cd>>& x) {
  std::vector<Akl32fc> f;
  for (const auto& row : x)
    for (const cd& v : row) f.push_back({static_cast<float>(v.real()), static_cast<float>(v.imag())});
  return f;
}

// Taps are rounded once to float and each output adds 13 complex products
// of inputs up to the peak: the error stays within a few float ulps of
// sum |G| * peak, and sum |G| <= 1.1 for every filter, so 1e-6 of the peak.
TEST(HybridPs, AnalysisMatchesDirectFilters) {
  ASSERT_EQ(Prototypes().size(), 5u);
  for (const int config : {20, 34}) {
    SCOPED_TRACE(config);
    const double peak = 3000.0;
    const auto x = RandomSlots(45, peak, 7u + static_cast<unsigned>(config));
    const auto want = DirectAnalysis(x, config);
    const int nb = config == 20 ? 10 : 32;
    AklsAnalysisState_PS_32fc* st = nullptr;
    ASSERT_EQ(aklsAnalysisFilterInitAlloc_PS_32fc(&st), kStsOk);
    const std::vector<Akl32fc> in = Flat(x);
    std::vector<Akl32fc> out(45 * 40, Akl32fc{9.0f, 9.0f});
    // Calls of 1, 13 and 31 slots: the history runs across calls.
    int t = 0;
    for (const int n : {1, 13, 31}) {
      ASSERT_EQ(aklsAnalysisFilter_PS_32fc_D2(in.data() + 64 * t, 64, out.data() + 40 * t, 40, n, config, st), kStsOk);
      t += n;
    }
    double worst = 0;
    for (int s = 0; s < 45; ++s) {
      for (int k = 0; k < nb; ++k) {
        const Akl32fc v = out[static_cast<std::size_t>(40 * s + k)];
        worst = std::max(worst, std::abs(cd(v.re, v.im) - want[s][k]));
      }
      EXPECT_EQ(out[static_cast<std::size_t>(40 * s + nb)].re, 9.0f);  // rest of the row left alone
    }
    EXPECT_LT(worst, 1e-6 * peak);
    EXPECT_EQ(aklsAnalysisFilterFree_PS_32fc(st), kStsOk);
  }
}

// Analysis then synthesis is a delay of 6 slots, in either layout and when
// the layout changes from one call to the next (the history is shared).
TEST(HybridPs, SynthesisRestoresBandsSixSlotsLate) {
  const double peak = 1000.0;
  const auto x = RandomSlots(60, peak, 3u);
  const std::vector<Akl32fc> in = Flat(x);
  std::vector<unsigned char> mem;
  int size = 0;
  ASSERT_EQ(aklsAnalysisFilterGetSize_PS_32fc(&size), kStsOk);
  mem.resize(static_cast<std::size_t>(size));
  auto* st = reinterpret_cast<AklsAnalysisState_PS_32fc*>(mem.data());
  ASSERT_EQ(aklsAnalysisFilterInit_PS_32fc(st), kStsOk);
  std::vector<Akl32fc> hyb(32), back(5);
  double worst = 0;
  for (int t = 0; t < 60; ++t) {
    const int config = t < 25 ? 20 : t < 40 ? 34 : 20;
    ASSERT_EQ(aklsAnalysisFilter_PS_32fc_D2(in.data() + 64 * t, 64, hyb.data(), 32, 1, config, st), kStsOk);
    ASSERT_EQ(aklsSynthesisFilter_PS_32fc_D2(hyb.data(), 32, back.data(), 5, 1, config), kStsOk);
    for (int b = 0; b < (config == 20 ? 3 : 5); ++b) {
      const cd want = t >= 6 ? x[t - 6][b] : cd(0, 0);
      worst = std::max(worst, std::abs(cd(back[b].re, back[b].im) - want));
    }
  }
  EXPECT_LT(worst, 2e-6 * peak);
  // In place, same step.
  std::vector<Akl32fc> row(32, Akl32fc{1.0f, -1.0f});
  ASSERT_EQ(aklsSynthesisFilter_PS_32fc_D2(row.data(), 32, row.data(), 32, 1, 34), kStsOk);
  EXPECT_EQ(row[0].re, 12.0f);
  EXPECT_EQ(row[1].im, -8.0f);
  EXPECT_EQ(row[4].re, 4.0f);
}

Akl32fc g_src[2 * 64];
Akl32fc g_dst[2 * 64];

TEST(HybridPs, ContextLifeCycleAndCheckOrder) {
  int size = 0;
  EXPECT_EQ(aklsAnalysisFilterGetSize_PS_32fc(nullptr), kStsNullPtr);
  ASSERT_EQ(aklsAnalysisFilterGetSize_PS_32fc(&size), kStsOk);
  EXPECT_EQ(aklsAnalysisFilterInit_PS_32fc(nullptr), kStsNullPtr);
  EXPECT_EQ(aklsAnalysisFilterInitAlloc_PS_32fc(nullptr), kStsNullPtr);
  EXPECT_EQ(aklsAnalysisFilterFree_PS_32fc(nullptr), kStsNullPtr);
  // Built one byte past a 16-byte boundary: 15 bytes further, within the size.
  std::vector<unsigned char> mem(static_cast<std::size_t>(size) + 32, 0xA5);
  const auto base = reinterpret_cast<std::uintptr_t>(mem.data());
  unsigned char* raw = mem.data() + ((16 - base % 16) % 16) + 1;
  auto* st = reinterpret_cast<AklsAnalysisState_PS_32fc*>(raw);
  ASSERT_EQ(aklsAnalysisFilterInit_PS_32fc(st), kStsOk);
  EXPECT_EQ(Akl32u(raw[15] | raw[16] << 8 | raw[17] << 16 | Akl32u(raw[18]) << 24), 0x434D416Cu);
  EXPECT_EQ(mem[static_cast<std::size_t>(size) + 31], 0xA5);
  const int live = akl::test::LiveAllocations();
  EXPECT_EQ(aklsAnalysisFilterFree_PS_32fc(st), kStsOk);
  EXPECT_EQ(akl::test::LiveAllocations(), live);
  struct Row {
    bool null_src, null_dst, null_state;
    int src_step, dst_step, slots, config;
    bool bad_tag;
    Status analysis, synthesis;  // synthesis: src_step = hybrid rows, dst_step = QMF rows
  } rows[] = {
      {false, false, false, 64, 64, 2, 20, false, kStsOk, kStsOk},
      {false, false, false, 5, 32, 1, 34, false, kStsOk, kStsSizeErr},
      {false, false, false, 10, 3, 1, 20, false, kStsSizeErr, kStsOk},
      {false, false, false, 4, 10, 1, 20, false, kStsSizeErr, kStsSizeErr},
      {false, false, false, 32, 4, 1, 34, false, kStsSizeErr, kStsSizeErr},
      {false, false, false, 32, 5, 1, 34, false, kStsSizeErr, kStsOk},
      {false, false, false, 64, 64, 1, 21, true, kStsBadArgErr, kStsBadArgErr},
      {false, false, false, 1, 1, 0, 21, true, kStsSizeErr, kStsSizeErr},
      {false, false, false, 64, 64, 1, 34, true, kStsContextMismatch, kStsOk},
      {true, false, false, 1, 1, 0, 21, true, kStsNullPtr, kStsNullPtr},
      {false, true, false, 64, 64, 1, 20, false, kStsNullPtr, kStsNullPtr},
      {false, false, true, 64, 64, 1, 20, false, kStsNullPtr, kStsOk},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::Message() << r.src_step << " " << r.dst_step << " " << r.slots << " " << r.config);
    raw[15] = static_cast<unsigned char>(r.bad_tag ? 0x6D : 0x6C);
    g_dst[0] = {7.0f, 7.0f};
    const Status a = aklsAnalysisFilter_PS_32fc_D2(r.null_src ? nullptr : g_src, r.src_step,
                                                   r.null_dst ? nullptr : g_dst, r.dst_step, r.slots, r.config,
                                                   r.null_state ? nullptr : st);
    EXPECT_EQ(a, r.analysis);
    if (a != kStsOk) {
      EXPECT_EQ(g_dst[0].re, 7.0f);  // nothing written on failure
    }
    const Status s = aklsSynthesisFilter_PS_32fc_D2(r.null_src ? nullptr : g_src, r.src_step,
                                                    r.null_dst ? nullptr : g_dst, r.dst_step, r.slots, r.config);
    EXPECT_EQ(s, r.synthesis);
  }
  raw[15] = 0x6D;
  EXPECT_EQ(aklsAnalysisFilterFree_PS_32fc(st), kStsContextMismatch);
  AklsAnalysisState_PS_32fc* owned = nullptr;
  const Status last = akl::test::SweepAllocationFailures(
      [&] {
        owned = nullptr;
        return aklsAnalysisFilterInitAlloc_PS_32fc(&owned);
      },
      [&] {
        if (owned) aklsAnalysisFilterFree_PS_32fc(owned);
      });
  ASSERT_EQ(last, kStsOk);
  EXPECT_EQ(aklsAnalysisFilterFree_PS_32fc(owned), kStsOk);
}

}  // namespace
