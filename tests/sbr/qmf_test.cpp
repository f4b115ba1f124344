// SBR QMF banks: against a direct double-precision evaluation of the bank
// formulas (window from the shared reference copy in tests/data), round trips
// through analysis and synthesis, and the contract of the fifteen exports.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"

namespace {

using cd = std::complex<double>;
constexpr double kPi = 3.14159265358979323846;

// c[0..639] from tests/data/sbr/sbr_qmf_window.txt (a copy of the reference
// table), read independently of the library's generated header.
const std::vector<double>& Window() {
  static const std::vector<double> c = [] {
    std::vector<double> w;
    std::ifstream in(std::string(AKLAC_TEST_DATA_DIR) + "/sbr/sbr_qmf_window.txt");
    std::string line;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream f(line);
      int i;
      double std_val, hp;
      f >> i >> std_val >> hp;
      w.push_back(hp);
    }
    return w;
  }();
  return c;
}

// The formulas, literally: history arrays shifted by whole slots.
struct AnalysisModel {
  std::vector<double> x = std::vector<double>(320, 0.0);  // x[0] newest
  std::vector<cd> Slot(const float* in) {
    for (int n = 319; n >= 32; --n) x[n] = x[n - 32];
    for (int n = 0; n < 32; ++n) x[n] = in[31 - n];
    std::vector<double> u(64, 0.0);
    for (int n = 0; n < 64; ++n)
      for (int j = 0; j < 5; ++j) u[n] += x[n + 64 * j] * Window()[2 * (n + 64 * j)];
    std::vector<cd> X(32);
    for (int k = 0; k < 32; ++k)
      for (int n = 0; n < 64; ++n) X[k] += 2.0 * u[n] * std::polar(1.0, kPi / 64 * (k + 0.5) * (2 * n - 0.5));
    return X;
  }
};

struct SynthesisModel {
  int bands;  // 64 or 32
  std::vector<double> v;
  explicit SynthesisModel(int n) : bands(n), v(20 * n, 0.0) {}
  std::vector<double> Slot(const Akl32fc* in) {
    const int N = bands;
    const double phase = N == 64 ? 255.0 : 127.5;
    for (int n = 20 * N - 1; n >= 2 * N; --n) v[n] = v[n - 2 * N];
    for (int n = 0; n < 2 * N; ++n) {
      double s = 0;
      for (int k = 0; k < N; ++k)
        s += (cd(in[k].re, in[k].im) * std::polar(1.0, kPi / (2 * N) * (k + 0.5) * (2 * n - phase))).real();
      v[n] = s / 64;
    }
    const int step = 64 / N;
    std::vector<double> out(N, 0.0);
    for (int i = 0; i < 5; ++i)
      for (int j = 0; j < N; ++j)
        out[j] += v[4 * N * i + j] * Window()[step * (2 * N * i + j)] +
                  v[4 * N * i + 3 * N + j] * Window()[step * (2 * N * i + N + j)];
    return out;
  }
};

// Slot counts per call: crossing the 32-slot history buffers more than once.
constexpr int kCalls[] = {1, 5, 32, 3, 17, 30, 2};

TEST(QmfSbr, WindowCopyIsComplete) {
  ASSERT_EQ(Window().size(), 640u);
  EXPECT_DOUBLE_EQ(Window()[384], -Window()[256]);
}

// Float against double, input peak 1: sums of 320 windowed samples and of 64
// products with outputs up to about 10; float rounding of those sums keeps
// the error below 1e-5 of the input peak.
TEST(QmfSbr, AnalysisMatchesDoubleFormula) {
  ASSERT_EQ(Window().size(), 640u);
  std::mt19937 rng(20);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  AklsAnalysisState_SBR_32f* st = nullptr;
  ASSERT_EQ(aklsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(&st), kStsOk);
  AnalysisModel model;
  double worst = 0;
  int call = 0;
  for (int slots : kCalls) {
    std::vector<float> in(32 * slots);
    for (float& s : in) s = dist(rng);
    std::vector<Akl32fc> rows(32 * slots, {9.0f, 9.0f});
    std::vector<Akl32fc*> rp(slots);
    for (int t = 0; t < slots; ++t) rp[t] = rows.data() + 32 * t;
    const int bands = call++ == 2 ? 20 : 32;
    ASSERT_EQ(aklsAnalysisFilter_SBR_RToC_32f32fc_D2L(in.data(), rp.data(), slots, bands, st), kStsOk);
    for (int t = 0; t < slots; ++t) {
      const std::vector<cd> X = model.Slot(in.data() + 32 * t);
      for (int k = 0; k < 32; ++k) {
        const cd want = k < bands ? X[k] : cd(0, 0);
        worst = std::max(worst, std::abs(cd(rp[t][k].re, rp[t][k].im) - want));
      }
    }
  }
  EXPECT_LT(worst, 1e-5);  // measured 5.6e-6
  EXPECT_EQ(aklsAnalysisFilterFree_SBR_RToC_32f32fc(st), kStsOk);
}

template <class State>
void CheckSynthesis(int bands, State* st, Status (*run)(const Akl32fc* const*, Akl32f*, int, State*)) {
  std::mt19937 rng(static_cast<unsigned>(bands));
  std::uniform_real_distribution<float> dist(-32.0f, 32.0f);  // |X| of a full-scale input
  SynthesisModel model(bands);
  double worst = 0;
  for (int slots : kCalls) {
    std::vector<Akl32fc> rows(bands * slots);
    for (auto& x : rows) x = {dist(rng), dist(rng)};
    std::vector<const Akl32fc*> rp(slots);
    for (int t = 0; t < slots; ++t) rp[t] = rows.data() + bands * t;
    std::vector<float> out(bands * slots);
    ASSERT_EQ(run(rp.data(), out.data(), slots, st), kStsOk);
    for (int t = 0; t < slots; ++t) {
      const std::vector<double> want = model.Slot(rp[t]);
      for (int j = 0; j < bands; ++j) worst = std::max(worst, std::abs(out[bands * t + j] - want[j]));
    }
  }
  // Outputs of these inputs reach about 1; the error is that of float rounding
  // (measured 1.8e-6 with 64 bands, 1.1e-6 with 32).
  EXPECT_LT(worst, 4e-6) << bands << " bands";
}

TEST(QmfSbr, SynthesisMatchesDoubleFormula) {
  ASSERT_EQ(Window().size(), 640u);
  AklsSynthesisState_SBR_32f* full = nullptr;
  ASSERT_EQ(aklsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(&full), kStsOk);
  CheckSynthesis(64, full, aklsSynthesisFilter_SBR_CToR_32fc32f_D2L);
  EXPECT_EQ(aklsSynthesisFilterFree_SBR_CToR_32fc32f(full), kStsOk);
  AklsSynthesisDownState_SBR_32f* down = nullptr;
  ASSERT_EQ(aklsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(&down), kStsOk);
  CheckSynthesis(32, down, aklsSynthesisDownFilter_SBR_CToR_32fc32f_D2L);
  EXPECT_EQ(aklsSynthesisDownFilterFree_SBR_CToR_32fc32f(down), kStsOk);
}

// Analysis then synthesis gives the signal back at its own amplitude: the
// down-sampled bank at the same rate (a plain delay), the full bank at twice
// the rate (every other output sample is the input).  The prototype is not a
// perfect-reconstruction filter; its aliasing and ripple stay below 2e-3 of full scale (measured 1.5e-3).
TEST(QmfSbr, RoundTripKeepsAmplitude) {
  constexpr int kSlots = 96;
  std::vector<float> in(32 * kSlots);
  for (int n = 0; n < 32 * kSlots; ++n)
    in[n] = static_cast<float>(0.5 * std::sin(0.031 * n) + 0.3 * std::sin(0.77 * n + 1.0));
  AklsAnalysisState_SBR_32f* ana = nullptr;
  AklsSynthesisState_SBR_32f* full = nullptr;
  AklsSynthesisDownState_SBR_32f* down = nullptr;
  ASSERT_EQ(aklsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(&ana), kStsOk);
  ASSERT_EQ(aklsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(&full), kStsOk);
  ASSERT_EQ(aklsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(&down), kStsOk);
  std::vector<Akl32fc> x(64 * kSlots, {0.0f, 0.0f});
  std::vector<Akl32fc*> rp(kSlots);
  for (int t = 0; t < kSlots; ++t) rp[t] = x.data() + 64 * t;
  ASSERT_EQ(aklsAnalysisFilter_SBR_RToC_32f32fc_D2L(in.data(), rp.data(), kSlots, 32, ana), kStsOk);
  std::vector<const Akl32fc*> crp(rp.begin(), rp.end());
  std::vector<float> out_down(32 * kSlots), out_full(64 * kSlots);
  ASSERT_EQ(aklsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(crp.data(), out_down.data(), kSlots, down), kStsOk);
  ASSERT_EQ(aklsSynthesisFilter_SBR_CToR_32fc32f_D2L(crp.data(), out_full.data(), kSlots, full), kStsOk);
  // Delay of the pair: 289 samples at the core rate (578 at twice it).
  constexpr int kDelay = 289;
  double err_down = 0, err_full = 0;
  for (int n = 640; n < 32 * kSlots - kDelay; ++n) {
    err_down = std::max(err_down, std::abs(double(out_down[n + kDelay]) - in[n]));
    err_full = std::max(err_full, std::abs(double(out_full[2 * n + 2 * kDelay]) - in[n]));
  }
  EXPECT_LT(err_down, 2e-3);
  EXPECT_LT(err_full, 2e-3);
  EXPECT_EQ(aklsAnalysisFilterFree_SBR_RToC_32f32fc(ana), kStsOk);
  EXPECT_EQ(aklsSynthesisFilterFree_SBR_CToR_32fc32f(full), kStsOk);
  EXPECT_EQ(aklsSynthesisDownFilterFree_SBR_CToR_32fc32f(down), kStsOk);
}

// The life cycle of the three context types, one table row each.
struct Bank {
  const char* name;
  Status (*get_size)(int*);
  Status (*init)(void*);
  Status (*init_alloc)(void**);
  Status (*free_fn)(void*);
  Status (*run)(void* st, int slots, int bands);  // the operation on dummy data, null data pointer if bands < -1
  Akl32u tag;
};

Akl32fc g_rows[2][64];
Akl32fc* g_row_ptrs[2] = {g_rows[0], g_rows[1]};
float g_pcm[128];

const Bank kBanks[] = {
    {"analysis", aklsAnalysisFilterGetSize_SBR_RToC_32f32fc,
     [](void* p) { return aklsAnalysisFilterInit_SBR_RToC_32f32fc(static_cast<AklsAnalysisState_SBR_32f*>(p)); },
     [](void** p) {
       return aklsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(reinterpret_cast<AklsAnalysisState_SBR_32f**>(p));
     },
     [](void* p) { return aklsAnalysisFilterFree_SBR_RToC_32f32fc(static_cast<AklsAnalysisState_SBR_32f*>(p)); },
     [](void* p, int slots, int bands) {
       return aklsAnalysisFilter_SBR_RToC_32f32fc_D2L(bands < -1 ? nullptr : g_pcm, g_row_ptrs, slots,
                                                      bands < -1 ? 32 : bands,
                                                      static_cast<AklsAnalysisState_SBR_32f*>(p));
     },
     0x434D4156},
    {"synthesis", aklsSynthesisFilterGetSize_SBR_CToR_32fc32f,
     [](void* p) { return aklsSynthesisFilterInit_SBR_CToR_32fc32f(static_cast<AklsSynthesisState_SBR_32f*>(p)); },
     [](void** p) {
       return aklsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(reinterpret_cast<AklsSynthesisState_SBR_32f**>(p));
     },
     [](void* p) { return aklsSynthesisFilterFree_SBR_CToR_32fc32f(static_cast<AklsSynthesisState_SBR_32f*>(p)); },
     [](void* p, int slots, int bands) {
       return aklsSynthesisFilter_SBR_CToR_32fc32f_D2L(g_row_ptrs, bands < -1 ? nullptr : g_pcm, slots,
                                                       static_cast<AklsSynthesisState_SBR_32f*>(p));
     },
     0x434D4159},
    {"down-sampled synthesis", aklsSynthesisDownFilterGetSize_SBR_CToR_32fc32f,
     [](void* p) {
       return aklsSynthesisDownFilterInit_SBR_CToR_32fc32f(static_cast<AklsSynthesisDownState_SBR_32f*>(p));
     },
     [](void** p) {
       return aklsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(
           reinterpret_cast<AklsSynthesisDownState_SBR_32f**>(p));
     },
     [](void* p) {
       return aklsSynthesisDownFilterFree_SBR_CToR_32fc32f(static_cast<AklsSynthesisDownState_SBR_32f*>(p));
     },
     [](void* p, int slots, int bands) {
       return aklsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(g_row_ptrs, bands < -1 ? nullptr : g_pcm, slots,
                                                           static_cast<AklsSynthesisDownState_SBR_32f*>(p));
     },
     0x434D415C},
};

TEST(QmfSbr, ContextLifeCycleAndChecks) {
  for (const Bank& b : kBanks) {
    SCOPED_TRACE(b.name);
    int size = 0;
    EXPECT_EQ(b.get_size(nullptr), kStsNullPtr);
    ASSERT_EQ(b.get_size(&size), kStsOk);
    EXPECT_EQ(b.init(nullptr), kStsNullPtr);
    EXPECT_EQ(b.init_alloc(nullptr), kStsNullPtr);
    EXPECT_EQ(b.free_fn(nullptr), kStsNullPtr);
    // Built one byte past a 16-byte boundary: 15 bytes further, within the size.
    std::vector<unsigned char> mem(size + 32, 0xA5);
    auto base = reinterpret_cast<std::uintptr_t>(mem.data());
    unsigned char* raw = mem.data() + ((16 - base % 16) % 16) + 1;
    ASSERT_EQ(b.init(raw), kStsOk);
    EXPECT_EQ(Akl32u(raw[15] | raw[16] << 8 | raw[17] << 16 | Akl32u(raw[18]) << 24), b.tag);
    EXPECT_EQ(mem[size + 31], 0xA5);  // nothing past the size
    const int live = akl::test::LiveAllocations();
    EXPECT_EQ(b.free_fn(raw), kStsOk);  // caller memory: nothing released, tag kept
    EXPECT_EQ(akl::test::LiveAllocations(), live);
    // Check order: null, then sizes, then tag.
    struct Row {
      int slots, bands;
      bool bad_tag;
      Status want;
    } rows[] = {
        {2, 32, false, kStsOk},          {1, 0, false, kStsOk},
        {0, 32, false, kStsSizeErr},     {-1, 32, true, kStsSizeErr},
        {2, 32, true, kStsContextMismatch}, {0, -2, true, kStsNullPtr},
    };
    for (const Row& r : rows) {
      raw[15] = static_cast<unsigned char>(r.bad_tag ? (b.tag & 0xFF) ^ 1 : b.tag & 0xFF);
      EXPECT_EQ(b.run(raw, r.slots, r.bands), r.want) << r.slots << " " << r.bands;
    }
    EXPECT_EQ(b.free_fn(raw), kStsContextMismatch);
    raw[15] = static_cast<unsigned char>(b.tag & 0xFF);
    void* st = nullptr;
    const Status last = akl::test::SweepAllocationFailures(
        [&] {
          st = nullptr;
          return b.init_alloc(&st);
        },
        [&] {
          if (st) b.free_fn(st);
        });
    ASSERT_EQ(last, kStsOk);
    EXPECT_EQ(b.free_fn(st), kStsOk);
  }
  // The analysis band count: 0..32.
  std::vector<unsigned char> mem(200000);
  void* st = mem.data();
  ASSERT_EQ(kBanks[0].init(st), kStsOk);
  EXPECT_EQ(kBanks[0].run(st, 1, 33), kStsSizeErr);
  EXPECT_EQ(kBanks[0].run(st, 1, -1), kStsSizeErr);
}

}  // namespace
