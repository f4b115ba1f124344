// The argument contract of the exports, one row per export (or per form of
// a call): a valid call, the number of pointer arguments it checks first,
// and the statuses of its later checks in their documented order.  For each
// row the runner makes
//  - the valid call (its status must be the row's `ok`, or the misalignment
//    warning where the heap gives less than 16-byte alignment);
//  - each pointer argument null in turn, with every later check broken as
//    well: kStsNullPtr, since null pointers are checked first;
//  - for k = last..0, checks k..last broken at once: check k's status, since
//    the earliest check decides;
// and after every refusal compares each byte the call could reach (exact
// heap blocks, so the sanitizers see any stray access): nothing is written.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <type_traits>
#include <string>
#include <utility>
#include <vector>

#include "aklac.h"

namespace {

// Which pointer is null and from which check on the arguments are broken.
struct Args {
  int null = -1;       // index of the pointer argument passed as null
  int from = INT_MAX;  // checks from..last are broken
  template <class T>
  T* P(int i, T* p) const {
    return i == null ? nullptr : p;
  }
  // An argument that check k breaks with `bad`.
  template <class T>
  T B(int k, T good, std::type_identity_t<T> bad) const {
    return k >= from ? bad : good;
  }
  // An argument that several checks break: the earliest broken one's value.
  template <class T>
  T V(T good, std::initializer_list<std::pair<int, T>> bad) const {
    for (const auto& [k, v] : bad)
      if (k >= from) return v;
    return good;
  }
};

// Exact heap blocks for the buffers and records of one call; Seal records
// their bytes just before the export runs.
class Arena {
 public:
  template <class T>
  T* Get(std::size_t n, T fill = T{}) {
    blocks_.emplace_back(n * sizeof(T));
    T* p = reinterpret_cast<T*>(blocks_.back().data());
    for (std::size_t i = 0; i < n; ++i) p[i] = fill;
    return p;
  }
  template <class T>
  T* Obj(const T& value) {
    return Get<T>(1, value);
  }
  void Seal() { sealed_ = blocks_; }
  bool Unchanged() const { return sealed_ == blocks_; }

 private:
  std::vector<std::vector<unsigned char>> blocks_, sealed_;
};

struct Row {
  const char* name;
  int pointers;               // pointer arguments, checked first
  std::vector<Status> steps;  // the later checks, in order
  std::function<Status(const Args&, Arena&)> call;
  Status ok = kStsOk;
};

Status Run(const Row& r, const Args& a) {
  Arena m;
  const Status st = r.call(a, m);
  if (st < 0) {
    EXPECT_TRUE(m.Unchanged()) << "written on refusal: null " << a.null << ", from " << a.from;
  }
  return st;
}

void Check(const Row& r) {
  SCOPED_TRACE(r.name);
  const Status valid = Run(r, Args{});
  EXPECT_TRUE(valid == r.ok || valid == kStsMisalignedWarn) << "the valid call: " << valid;
  for (int i = 0; i < r.pointers; ++i) EXPECT_EQ(Run(r, Args{i, 0}), kStsNullPtr) << "pointer " << i << " null";
  for (int k = static_cast<int>(r.steps.size()) - 1; k >= 0; --k)
    EXPECT_EQ(Run(r, Args{-1, k}), r.steps[static_cast<std::size_t>(k)]) << "checks " << k << ".. broken";
}

// A block of bytes that is no context of any family.
void* Foreign() {
  static std::vector<Akl8u> junk(1 << 16, 0);
  return junk.data();
}

// ---------------------------------------------------------------------------
// vector: buffer and row array first, then channels, length, each row.

template <class T>
std::vector<Row> InterleaveRows(const char* inter_name, const char* deinter_name,
                                Status (*inter)(const T**, int, int, T*), Status (*deinter)(const T*, int, int, T**)) {
  const std::vector<Status> steps = {kStsNumChannelsErr, kStsNumChannelsErr, kStsSizeErr, kStsSizeErr, kStsNullPtr};
  auto shape = [](const Args& a, Arena& m, T** rows) {
    for (int c = 0; c < 2; ++c) rows[c] = m.Get<T>(4, T(c + 1));
    rows[1] = a.B(4, rows[1], static_cast<T*>(nullptr));
    return std::pair{a.V(2, {{0, 0}, {1, -1}}), a.V(4, {{2, 0}, {3, -3}})};
  };
  return {
      {inter_name, 2, steps, [=](const Args& a, Arena& m) {
         T** rows = m.Get<T*>(2);
         const auto [ch, len] = shape(a, m, rows);
         T* dst = m.Get<T>(8, T(9));
         m.Seal();
         return inter(a.P(0, const_cast<const T**>(rows)), ch, len, a.P(1, dst));
       }},
      {deinter_name, 2, steps, [=](const Args& a, Arena& m) {
         T** rows = m.Get<T*>(2);
         const auto [ch, len] = shape(a, m, rows);
         const T* src = m.Get<T>(8, T(9));
         m.Seal();
         return deinter(a.P(0, src), ch, len, a.P(1, rows));
       }},
  };
}

std::vector<Row> VectorRows() {
  std::vector<Row> rows = InterleaveRows<Akl16s>("aklsInterleave_16s", "aklsDeinterleave_16s", aklsInterleave_16s,
                                                 aklsDeinterleave_16s);
  for (Row& r : InterleaveRows<Akl32f>("aklsInterleave_32f", "aklsDeinterleave_32f", aklsInterleave_32f,
                                       aklsDeinterleave_32f))
    rows.push_back(std::move(r));
  // Join: the destination, then the sizes, then the rows (no alignment warning).
  rows.push_back({"aklsJoin_32f16s_D2L", 1, {kStsSizeErr, kStsSizeErr, kStsSizeErr, kStsNullPtr, kStsNullPtr},
                  [](const Args& a, Arena& m) {
                    const Akl32f** rows = m.Get<const Akl32f*>(2);
                    for (int c = 0; c < 2; ++c) rows[c] = m.Get<Akl32f>(4, 0.5f);
                    rows[1] = a.B(4, rows[1], static_cast<const Akl32f*>(nullptr));
                    Akl16s* dst = m.Get<Akl16s>(8, 9);
                    m.Seal();
                    return aklsJoin_32f16s_D2L(a.B(3, rows, static_cast<const Akl32f**>(nullptr)), a.B(0, 2, 0),
                                               a.V(4, {{1, 0}, {2, -1}}), a.P(0, dst));
                  }});
  // Misaligned rows are no concern of Join.
  rows.push_back({"aklsJoin_32f16s_D2L", 0, {}, [](const Args&, Arena& m) {
                    const Akl32f* rows[2] = {m.Get<Akl32f>(10, 0.5f) + 1, m.Get<Akl32f>(12, 0.5f) + 3};
                    return aklsJoin_32f16s_D2L(rows, 2, 9, m.Get<Akl16s>(19) + 1);
                  }});
  rows.push_back({"aklsMakeFloat_16s32f", 3, {kStsSizeErr, kStsSizeErr}, [](const Args& a, Arena& m) {
                    const Akl16s* mant = m.Get<Akl16s>(4, 3);
                    const Akl16s* exp = m.Get<Akl16s>(4, 1);
                    Akl32f* dst = m.Get<Akl32f>(4, 9.0f);
                    m.Seal();
                    return aklsMakeFloat_16s32f(a.P(0, mant), a.P(1, exp), a.V(4, {{0, 0}, {1, -1}}), a.P(2, dst));
                  }});
  return rows;
}

// ---------------------------------------------------------------------------
// AAC spectral tools: window length, groups, maxSfb, rate index, then the
// band count of the rate and the group lengths.

constexpr Akl32s kSfi44 = 4;  // 49 long bands, 14 short bands

std::vector<Row> AacSpectralRows() {
  std::vector<Row> rows;
  // Long window: 1024 lines, one group.
  rows.push_back({"aklsQuantInv_AAC_32s_I", 4,
                  {kStsAacWinLenErr, kStsAacWinGrpErr, kStsAacMaxSfbErr, kStsAacMaxSfbErr, kStsAacSmpRateIdxErr,
                   kStsAacMaxSfbErr},
                  [](const Args& a, Arena& m) {
                    Akl32s* x = m.Get<Akl32s>(1024, 5);
                    const Akl16s* sf = m.Get<Akl16s>(64, 100);
                    const Akl32s* grp = m.Get<Akl32s>(1, 1);
                    Akl8u* cb = m.Get<Akl8u>(64, 1);
                    m.Seal();
                    return aklsQuantInv_AAC_32s_I(a.P(0, x), a.P(1, sf), a.B(1, 1, 2), a.P(2, grp),
                                                  a.V(49, {{2, 52}, {3, -1}, {5, 50}}), a.P(3, cb), a.B(4, kSfi44, 12),
                                                  a.B(0, 1024, 512));
                  }});
  // Eight short windows: group count, band count, group lengths.
  rows.push_back({"aklsQuantInv_AAC_32s_I", 0, {kStsAacWinGrpErr, kStsAacMaxSfbErr, kStsAacWinGrpErr},
                  [](const Args& a, Arena& m) {
                    Akl32s* x = m.Get<Akl32s>(1024, 5);
                    const Akl16s* sf = m.Get<Akl16s>(8 * 16, 100);
                    Akl32s* grp = m.Get<Akl32s>(8, 1);
                    grp[0] = a.B(2, 1, 4), grp[1] = a.B(2, 1, 5);
                    Akl8u* cb = m.Get<Akl8u>(8 * 16, 1);
                    m.Seal();
                    return aklsQuantInv_AAC_32s_I(x, sf, a.V(8, {{0, 9}, {2, 2}}), grp, a.B(1, 14, 15), cb, kSfi44, 128);
                  }});
  rows.push_back({"aklsDeinterleaveSpectrum_AAC_32s", 3,
                  {kStsAacWinLenErr, kStsAacWinGrpErr, kStsAacMaxSfbErr, kStsAacSmpRateIdxErr, kStsAacMaxSfbErr,
                   kStsAacWinGrpErr},
                  [](const Args& a, Arena& m) {
                    const Akl32s* src = m.Get<Akl32s>(1024, 1);
                    Akl32s* dst = m.Get<Akl32s>(1024, 9);
                    Akl32s* grp = m.Get<Akl32s>(8, 1);
                    grp[0] = a.B(5, 1, 0), grp[1] = a.B(5, 1, 8);
                    m.Seal();
                    return aklsDeinterleaveSpectrum_AAC_32s(a.P(0, src), a.P(1, dst), a.V(8, {{1, 0}, {5, 2}}),
                                                            a.P(2, grp), a.V(14, {{2, 52}, {4, 15}}),
                                                            a.B(3, kSfi44, 12), a.B(0, 128, 1024));
                  }});
  // M/S: the mask mode after the rate index, before the band count.
  auto ms = [](int win_len) {
    return [=](const Args& a, Arena& m) {
      const bool is_short = win_len == 128;
      Akl32s* l = m.Get<Akl32s>(1024, 1);
      Akl32s* r = m.Get<Akl32s>(1024, 2);
      const Akl8u* used = m.Get<Akl8u>(8 * 60, 1);  // rows 60 bytes apart
      Akl8u* cb = m.Get<Akl8u>(8 * 64, 1);
      const Akl32s* grp = m.Get<Akl32s>(8, 1);
      m.Seal();
      return aklsDecodeMsStereo_AAC_32s_I(a.P(0, l), a.P(1, r), a.B(4, 1, 0), a.P(2, used), a.P(3, cb),
                                          a.B(1, is_short ? 8 : 1, is_short ? 9 : 2), a.P(4, grp),
                                          a.V(is_short ? 14 : 49, {{2, 52}, {5, is_short ? 15 : 50}}),
                                          a.B(3, kSfi44, 12), a.B(0, win_len, 100));
    };
  };
  const std::vector<Status> ms_steps = {kStsAacWinLenErr, kStsAacWinGrpErr, kStsAacMaxSfbErr, kStsAacSmpRateIdxErr,
                                        kStsAacMsMaskErr, kStsAacMaxSfbErr};
  rows.push_back({"aklsDecodeMsStereo_AAC_32s_I", 5, ms_steps, ms(1024)});
  rows.push_back({"aklsDecodeMsStereo_AAC_32s_I", 0, ms_steps, ms(128)});
  // PNS: maxSfb, groups, rate index, window length.
  rows.push_back({"aklsDecodePNS_AAC_32s", 6,
                  {kStsAacMaxSfbErr, kStsAacWinGrpErr, kStsAacSmpRateIdxErr, kStsAacWinLenErr},
                  [](const Args& a, Arena& m) {
                    Akl32s* x = m.Get<Akl32s>(1024, 3);
                    Akl32s* ltp = m.Get<Akl32s>(64);
                    const Akl8u* cb = m.Get<Akl8u>(64, 13);
                    const Akl16s* nrg = m.Get<Akl16s>(64, 10);
                    const Akl32s* grp = m.Get<Akl32s>(8, 1);
                    Akl32s* seed = m.Obj<Akl32s>(1);
                    m.Seal();
                    return aklsDecodePNS_AAC_32s(a.P(0, x), a.P(1, ltp), a.P(2, cb), a.P(3, nrg), a.B(0, 49, 52),
                                                 a.B(1, 1, 9), a.P(4, grp), a.B(2, kSfi44, 12), a.B(3, 1024, 1),
                                                 a.P(5, seed));
                  }});
  // TNS, decoding and encoding: window, rate, maxSfb, then each filter's
  // count, length, order, resolution, coefficients, direction.
  using Tns = Status (*)(Akl32s*, const Akl32s*, const Akl32s*, const Akl32s*, const Akl32s*, const Akl8s*,
                         const Akl32s*, Akl32s, Akl32s, Akl32s, Akl32s);
  auto tns = [](Tns f, int win_len) {
    return [=](const Args& a, Arena& m) {
      const bool is_short = win_len == 128;
      Akl32s* x = m.Get<Akl32s>(1024, 100);
      const Akl32s* nf = m.Get<Akl32s>(8, a.V(1, {{4, is_short ? 2 : 4}, {5, -1}}));
      const Akl32s* len = m.Get<Akl32s>(8, a.V(10, {{6, -1}, {7, 50}}));
      const Akl32s* ord = m.Get<Akl32s>(8, a.V(1, {{8, 13}, {10, 2}}));
      const Akl32s* res = m.Get<Akl32s>(8, a.B(9, 4, 5));
      Akl8s* coef = m.Get<Akl8s>(16, 1);
      coef[1] = a.B(10, Akl8s{1}, Akl8s{8});
      const Akl32s* dir = m.Get<Akl32s>(8, a.B(11, 0, 2));
      m.Seal();
      return f(a.P(0, x), a.P(1, nf), a.P(2, len), a.P(3, ord), a.P(4, res), a.P(5, coef), a.P(6, dir),
               a.V(10, {{2, 52}, {3, 50}}), 1, a.B(1, kSfi44, 12), a.B(0, win_len, 256));
    };
  };
  const std::vector<Status> tns_steps = {kStsAacWinLenErr,     kStsAacSmpRateIdxErr, kStsAacMaxSfbErr,
                                         kStsAacMaxSfbErr,     kStsAacTnsNumFiltErr, kStsAacTnsNumFiltErr,
                                         kStsAacTnsLenErr,     kStsAacTnsLenErr,     kStsAacTnsOrderErr,
                                         kStsAacTnsCoefResErr, kStsAacTnsCoefErr,    kStsAacTnsDirectErr};
  for (auto [name, f] : {std::pair<const char*, Tns>{"aklsDecodeTNS_AAC_32s_I", aklsDecodeTNS_AAC_32s_I},
                         std::pair<const char*, Tns>{"aklsEncodeTNS_AAC_32s_I", aklsEncodeTNS_AAC_32s_I}}) {
    rows.push_back({name, 7, tns_steps, tns(f, 1024)});
    rows.push_back({name, 0, tns_steps, tns(f, 128)});
    // Order 0: resolution, coefficients and direction are not looked at.
    rows.push_back({name, 0, {}, [f](const Args&, Arena& m) {
                      Akl32s* x = m.Get<Akl32s>(1024, 100);
                      const Akl32s one = 1, len = 10, ord = 0, res = 5, dir = 2;
                      const Akl8s coef = 8;
                      return f(x, &one, &len, &ord, &res, &coef, &dir, 10, 1, kSfi44, 1024);
                    }});
  }
  return rows;
}

// ---------------------------------------------------------------------------
// AAC Main/LTP: prediction, the filter bank, long-term prediction.

AklsFDPState_32f* Fdp() {
  static AklsFDPState_32f* st = [] {
    AklsFDPState_32f* s = nullptr;
    EXPECT_EQ(aklsFDPInitAlloc_32f(kSfi44, &s), kStsOk);
    return s;
  }();
  return st;
}

const AklsMDCTSpec_AAC_32s* AacMdct() {
  static AklsMDCTSpec_AAC_32s* spec = [] {
    AklsMDCTSpec_AAC_32s* s = nullptr;
    EXPECT_EQ(aklsMDCTInitAlloc_AAC_32s(&s), kStsOk);
    return s;
  }();
  return spec;
}

std::vector<Row> AacPredictionRows() {
  std::vector<Row> rows;
  rows.push_back({"aklsFDP_32f", 5,
                  {kStsAacWinSeqErr, kStsAacMaxSfbErr, kStsBadArgErr, kStsBadArgErr, kStsContextMismatch,
                   kStsAacMaxSfbErr},
                  [](const Args& a, Arena& m) {
                    const Akl32f* x = m.Get<Akl32f>(1024, 1.0f);
                    Akl32f* y = m.Get<Akl32f>(1024, -7.0f);
                    AklAACIcsInfo ics{};
                    ics.windowSequence = a.B(0, 0, 4);
                    ics.maxSfb = a.V(10, {{1, 52}, {5, 50}});
                    ics.predictorDataPresent = 1;
                    ics.predictorReset = 1;
                    ics.predictorResetGroupNum = a.V(1, {{2, 0}, {3, 31}});
                    const AklAACIcsInfo* pi = m.Obj(ics);
                    const Akl8u* cb = m.Get<Akl8u>(64, 1);
                    auto* st = a.B(4, Fdp(), static_cast<AklsFDPState_32f*>(Foreign()));
                    m.Seal();
                    return aklsFDP_32f(a.P(0, x), a.P(1, y), a.P(2, pi), a.P(3, cb), a.P(4, st));
                  }});
  rows.push_back({"aklsFDPReset_32f", 1, {kStsContextMismatch}, [](const Args& a, Arena&) {
                    return aklsFDPReset_32f(a.P(0, a.B(0, Fdp(), static_cast<AklsFDPState_32f*>(Foreign()))));
                  }});
  rows.push_back({"aklsFDPGetSize_32f", 1, {}, [](const Args& a, Arena& m) {
                    int* size = m.Obj(0);
                    m.Seal();
                    return aklsFDPGetSize_32f(a.P(0, size));
                  }});
  rows.push_back({"aklsFDPInit_32f", 1, {kStsAacSmpRateIdxErr}, [](const Args& a, Arena& m) {
                    int size = 0;
                    aklsFDPGetSize_32f(&size);
                    auto* mem = m.Get<Akl8u>(static_cast<std::size_t>(size));
                    m.Seal();
                    return aklsFDPInit_32f(a.B(0, kSfi44, 12), a.P(0, reinterpret_cast<AklsFDPState_32f*>(mem)));
                  }});
  rows.push_back({"aklsMDCTGetSize_AAC_32s", 1, {}, [](const Args& a, Arena& m) {
                    int* size = m.Obj(0);
                    m.Seal();
                    return aklsMDCTGetSize_AAC_32s(a.P(0, size));
                  }});
  rows.push_back({"aklsMDCTInit_AAC_32s", 1, {}, [](const Args& a, Arena& m) {
                    int size = 0;
                    aklsMDCTGetSize_AAC_32s(&size);
                    auto* mem = m.Get<Akl8u>(static_cast<std::size_t>(size));
                    m.Seal();
                    return aklsMDCTInit_AAC_32s(a.P(0, reinterpret_cast<AklsMDCTSpec_AAC_32s*>(mem)));
                  }});
  // The filter bank: sequence, shapes, context.
  const std::vector<Status> fb = {kStsAacWinSeqErr, kStsAacWinSeqErr, kStsBadArgErr, kStsBadArgErr,
                                  kStsContextMismatch};
  auto seq = [](const Args& a) { return a.V(1, {{0, 4}, {1, -1}}); };
  auto spec = [](const Args& a) {
    return a.B(4, AacMdct(), static_cast<const AklsMDCTSpec_AAC_32s*>(Foreign()));
  };
  rows.push_back({"aklsMDCTInv_AAC_32s16s", 3, fb, [=](const Args& a, Arena& m) {
                    const Akl32s* x = m.Get<Akl32s>(1024, 3);
                    Akl16s* y = m.Get<Akl16s>(1024, 6);
                    Akl32s* ov = m.Get<Akl32s>(1024, 4);
                    m.Seal();
                    return aklsMDCTInv_AAC_32s16s(a.P(0, x), a.P(1, y), a.P(2, ov), seq(a), a.B(2, 0, 2),
                                                  a.B(3, 1, 2), spec(a));
                  }});
  rows.push_back({"aklsMDCTInv_AAC_32s_I", 2, fb, [=](const Args& a, Arena& m) {
                    Akl32s* x = m.Get<Akl32s>(1024, 3);
                    Akl32s* ov = m.Get<Akl32s>(1024, 4);
                    m.Seal();
                    return aklsMDCTInv_AAC_32s_I(a.P(0, x), a.P(1, ov), seq(a), a.B(2, 1, 2), a.B(3, 0, 2), spec(a));
                  }});
  rows.push_back({"aklsMDCTFwd_AAC_32s", 2, fb, [=](const Args& a, Arena& m) {
                    const Akl32s* x = m.Get<Akl32s>(2048, 3);
                    Akl32s* y = m.Get<Akl32s>(1024, 9);
                    m.Seal();
                    return aklsMDCTFwd_AAC_32s(a.P(0, x), a.P(1, y), seq(a), a.B(2, 0, 2), a.B(3, 0, 2), spec(a));
                  }});
  rows.push_back({"aklsMDCTFwd_AAC_32s_I", 1, fb, [=](const Args& a, Arena& m) {
                    Akl32s* x = m.Get<Akl32s>(2048, 3);
                    m.Seal();
                    return aklsMDCTFwd_AAC_32s_I(a.P(0, x), seq(a), a.B(2, 1, 2), a.B(3, 1, 2), spec(a));
                  }});
  // Long-term prediction: short windows are not predicted; the lag reaches
  // back at most 2047 samples.
  rows.push_back({"aklsLongTermPredict_AAC_32s", 3,
                  {kStsAacWinSeqErr, kStsAacWinSeqErr, kStsBadArgErr, kStsBadArgErr, kStsBadArgErr,
                   kStsContextMismatch},
                  [](const Args& a, Arena& m) {
                    const Akl32s* hist = m.Get<Akl32s>(3072, 1000);
                    Akl32s* est = m.Get<Akl32s>(1024, 9);
                    AklAACLtpData ltp{};
                    ltp.ltpLag = a.B(4, 2047, 2048);
                    ltp.ltpCoef = 9352;
                    const AklAACLtpData* pl = m.Obj(ltp);
                    m.Seal();
                    return aklsLongTermPredict_AAC_32s(a.P(0, hist), a.P(1, est), a.P(2, pl), a.V(3, {{0, 4}, {1, 2}}),
                                                       a.B(2, 1, 2), a.B(3, 0, -1),
                                                       a.B(5, AacMdct(), static_cast<const AklsMDCTSpec_AAC_32s*>(Foreign())));
                  }});
  rows.push_back({"aklsLongTermReconstruct_AAC_32s", 3, {kStsAacMaxSfbErr, kStsAacSmpRateIdxErr, kStsAacMaxSfbErr},
                  [](const Args& a, Arena& m) {
                    const Akl32s* est = m.Get<Akl32s>(1024, 5);
                    Akl32s* x = m.Get<Akl32s>(1024, 7);
                    const Akl32s* used = m.Get<Akl32s>(41, 1);
                    m.Seal();
                    return aklsLongTermReconstruct_AAC_32s(a.P(0, est), a.P(1, x), a.P(2, used),
                                                           a.V(49, {{0, 52}, {2, 50}}), a.B(1, kSfi44, 12));
                  }});
  rows.push_back({"aklsLtpUpdate_AAC_32s", 3, {}, [](const Args& a, Arena& m) {
                    Akl32s* hist = m.Get<Akl32s>(3072, 1);
                    const Akl32s* frame = m.Get<Akl32s>(1024, 2);
                    const Akl32s* ov = m.Get<Akl32s>(1024, 3);
                    m.Seal();
                    return aklsLtpUpdate_AAC_32s(a.P(0, hist), a.P(1, frame), a.P(2, ov));
                  }});
  return rows;
}

// ---------------------------------------------------------------------------
// Layer III signal path.

std::vector<Row> Mp3SignalRows() {
  std::vector<Row> rows;
  rows.push_back({"aklsMDCTInv_MP3_32s", 4,
                  {kStsBadArgErr, kStsBadArgErr, kStsBadArgErr, kStsBadArgErr, kStsBadArgErr, kStsBadArgErr,
                   kStsBadArgErr},
                  [](const Args& a, Arena& m) {
                    Akl32s* spec = m.Get<Akl32s>(576, 7);
                    Akl32s* out = m.Get<Akl32s>(576, -3);
                    Akl32s* ov = m.Get<Akl32s>(576, 5);
                    int* prev = m.Obj(a.V(4, {{5, 33}, {6, -1}}));
                    m.Seal();
                    return aklsMDCTInv_MP3_32s(a.P(0, spec), a.P(1, out), a.P(2, ov), a.V(10, {{0, 577}, {1, -1}}),
                                               a.P(3, prev), a.V(2, {{2, 4}, {3, -1}}), a.B(4, 0, 2));
                  }});
  rows.push_back({"aklsSynthPQMF_MP3_32s16s", 4,
                  {kStsBadArgErr, kStsBadArgErr, kStsBadArgErr, kStsBadArgErr, kStsBadArgErr, kStsBadArgErr},
                  [](const Args& a, Arena& m) {
                    const Akl32s* s = m.Get<Akl32s>(32, 1 << 20);
                    Akl16s* pcm = m.Get<Akl16s>(64, 77);
                    Akl32s* v = m.Get<Akl32s>(512, 9);
                    int* pos = m.Obj(a.V(3, {{3, -1}, {4, 16}, {5, 100}}));
                    m.Seal();
                    return aklsSynthPQMF_MP3_32s16s(a.P(0, s), a.P(1, pcm), a.P(2, v), a.P(3, pos),
                                                    a.V(2, {{0, -1}, {1, 0}, {2, 3}}));
                  }});
  return rows;
}

// ---------------------------------------------------------------------------
// Transforms: the context pointer, its tag, then the data pointers.

template <class T>
T* Built(Status (*alloc)(T**, int), int n) {
  T* p = nullptr;
  EXPECT_EQ(alloc(&p, n), kStsOk);
  return p;
}

std::vector<Row> TransformRows() {
  static MDCTFwdSpec_32f* fwd = Built(aklsMDCTFwdInitAlloc_32f, 12);
  static MDCTInvSpec_32f* inv = Built(aklsMDCTInvInitAlloc_32f, 36);
  static MDCTFwdSpec_16s* f16 = Built(aklsMDCTFwdInitAlloc_16s, 32);
  static FIRBlockState_32f* fir = [] {
    FIRBlockState_32f* st = nullptr;
    EXPECT_EQ(aklsFIRBlockInitAlloc_32f(&st, 3, 4), kStsOk);
    return st;
  }();
  auto foreign = [](auto* p) { return static_cast<decltype(p)>(Foreign()); };
  std::vector<Row> rows;
  const std::vector<Status> tag_then_data = {kStsContextMismatch, kStsNullPtr, kStsNullPtr};
  rows.push_back({"aklsMDCTFwd_32f", 1, tag_then_data, [=](const Args& a, Arena& m) {
                    const Akl32f* x = m.Get<Akl32f>(12, 1.0f);
                    Akl32f* y = m.Get<Akl32f>(6, 9.0f);
                    m.Seal();
                    return aklsMDCTFwd_32f(a.B(1, x, nullptr), a.B(2, y, nullptr), a.P(0, a.B(0, fwd, foreign(fwd))),
                                           nullptr);
                  }});
  rows.push_back({"aklsMDCTInv_32f", 1, tag_then_data, [=](const Args& a, Arena& m) {
                    const Akl32f* x = m.Get<Akl32f>(18, 1.0f);
                    Akl32f* y = m.Get<Akl32f>(36, 9.0f);
                    m.Seal();
                    return aklsMDCTInv_32f(a.B(1, x, nullptr), a.B(2, y, nullptr), a.P(0, a.B(0, inv, foreign(inv))),
                                           nullptr);
                  }});
  rows.push_back({"aklsMDCTFwd_32f_I", 1, {kStsContextMismatch, kStsNullPtr}, [=](const Args& a, Arena& m) {
                    Akl32f* x = m.Get<Akl32f>(12, 1.0f);
                    m.Seal();
                    return aklsMDCTFwd_32f_I(a.B(1, x, nullptr), a.P(0, a.B(0, fwd, foreign(fwd))), nullptr);
                  }});
  rows.push_back({"aklsMDCTInv_32f_I", 1, {kStsContextMismatch, kStsNullPtr}, [=](const Args& a, Arena& m) {
                    Akl32f* x = m.Get<Akl32f>(36, 1.0f);
                    m.Seal();
                    return aklsMDCTInv_32f_I(a.B(1, x, nullptr), a.P(0, a.B(0, inv, foreign(inv))), nullptr);
                  }});
  rows.push_back({"aklsMDCTFwd_16s_Sfs", 1, tag_then_data, [=](const Args& a, Arena& m) {
                    const Akl16s* x = m.Get<Akl16s>(32, 100);
                    Akl16s* y = m.Get<Akl16s>(16, 9);
                    m.Seal();
                    return aklsMDCTFwd_16s_Sfs(a.B(1, x, nullptr), a.B(2, y, nullptr),
                                               a.P(0, a.B(0, f16, foreign(f16))), 0, nullptr);
                  }});
  rows.push_back({"aklsMDCTFwdGetBufSize_32f", 2, {kStsContextMismatch}, [=](const Args& a, Arena& m) {
                    int* size = m.Obj(-1);
                    m.Seal();
                    return aklsMDCTFwdGetBufSize_32f(a.P(0, a.B(0, fwd, foreign(fwd))), a.P(1, size));
                  }});
  rows.push_back({"aklsFIRBlockOne_32f", 4, {kStsContextMismatch}, [=](const Args& a, Arena& m) {
                    const Akl32f* x = m.Get<Akl32f>(4, 1.0f);
                    Akl32f* y = m.Get<Akl32f>(4, 9.0f);
                    const Akl32f* taps = m.Get<Akl32f>(3, 0.5f);
                    m.Seal();
                    return aklsFIRBlockOne_32f(a.P(0, x), a.P(1, y), a.P(2, a.B(0, fir, foreign(fir))), a.P(3, taps));
                  }});
  return rows;
}

// ---------------------------------------------------------------------------
// Layer III encoding: the cursor, the header, the side information, the data.

AklMP3FrameHeader Mpeg1Header() {
  AklMP3FrameHeader h{};
  h.id = 1;
  h.layer = 1;
  h.protectionBit = 1;
  h.bitrateIndex = 9;
  return h;
}

std::vector<Row> Mp3EncodeRows() {
  std::vector<Row> rows;
  // Fields of the header record by position, each value out of its range.
  static const std::pair<int, Akl32s> kBadField[] = {{0, 2}, {1, 2}, {1, 3}, {2, 2}, {3, 15},
                                                     {4, 3}, {5, -1}, {7, 4}, {8, 4}, {11, 4}};
  rows.push_back({"aklsPackFrameHeader_MP3", 3, std::vector<Status>(std::size(kBadField) + 1, kStsMP3FrameHeaderErr),
                  [](const Args& a, Arena& m) {
                    AklMP3FrameHeader h = Mpeg1Header();
                    for (std::size_t i = 0; i < std::size(kBadField); ++i)
                      if (a.B(static_cast<int>(i), false, true))
                        reinterpret_cast<Akl32s*>(&h)[kBadField[i].first] = kBadField[i].second;
                    if (a.B(static_cast<int>(std::size(kBadField)), false, true)) h.protectionBit = 0, h.crcWord = 0x10000;
                    const AklMP3FrameHeader* ph = m.Obj(h);
                    Akl8u** pp = m.Obj<Akl8u*>(a.P(2, m.Get<Akl8u>(8)));
                    m.Seal();
                    return aklsPackFrameHeader_MP3(a.P(0, ph), a.P(1, pp));
                  }});
  // Scale factors: cursor offset, granule, header, compression, values.
  rows.push_back({"aklsPackScaleFactors_MP3_8s1u", 6,
                  {kStsBadArgErr, kStsBadArgErr, kStsMP3FrameHeaderErr, kStsMP3SideInfoErr, kStsBadArgErr,
                   kStsBadArgErr},
                  [](const Args& a, Arena& m) {
                    Akl8s* sf = m.Get<Akl8s>(40, 0);
                    sf[20] = a.V(Akl8s{0}, {{4, Akl8s{2}}, {5, Akl8s{-1}}});  // 1 bit: 2 does not fit; -1 never
                    Akl8u** pp = m.Obj<Akl8u*>(m.Get<Akl8u>(16));
                    Akl32s* off = m.Obj(a.B(0, 0, 8));
                    AklMP3SideInfo si{};
                    si.scalefacCompress = a.B(3, 5, 16);  // slen1 = slen2 = 1
                    const AklMP3SideInfo* psi = m.Obj(si);
                    const Akl32s* scfsi = m.Get<Akl32s>(4, 0);
                    AklMP3FrameHeader h = Mpeg1Header();
                    h.id = a.B(2, 1, 2);
                    const AklMP3FrameHeader* ph = m.Obj(h);
                    m.Seal();
                    return aklsPackScaleFactors_MP3_8s1u(a.P(0, sf), a.P(1, pp), a.P(2, off), a.P(3, psi), a.P(4, scfsi),
                                                         a.P(5, ph), a.B(1, 0, 2), 0);
                  }});
  // Huffman coding: cursor offset, header, side information, then values.
  rows.push_back({"aklsHuffmanEncode_MP3_32s1u", 5,
                  {kStsBadArgErr, kStsMP3FrameHeaderErr, kStsMP3SideInfoErr, kStsMP3SideInfoErr, kStsMP3SideInfoErr,
                   kStsErr},
                  [](const Args& a, Arena& m) {
                    Akl32s* ix = m.Get<Akl32s>(576, 0);
                    ix[10] = a.B(5, 0, 2);  // after the big values (none): not a count1 value
                    Akl8u** pp = m.Obj<Akl8u*>(m.Get<Akl8u>(8));
                    Akl32s* off = m.Obj(a.B(0, 0, 8));
                    AklMP3SideInfo si{};
                    si.bigValues = a.B(2, 0, 289);
                    si.region0Count = a.B(3, 0, 15), si.region1Count = a.B(3, 0, 6);
                    si.windowSwitchingFlag = a.B(4, 0, 1);  // with block type 0
                    const AklMP3SideInfo* psi = m.Obj(si);
                    AklMP3FrameHeader h = Mpeg1Header();
                    h.layer = a.B(1, 1, 2);
                    const AklMP3FrameHeader* ph = m.Obj(h);
                    m.Seal();
                    return aklsHuffmanEncode_MP3_32s1u(a.P(0, ix), a.P(1, pp), a.P(2, off), a.P(3, psi), a.P(4, ph));
                  }});
  rows.push_back({"aklsHuffmanTableSelect_MP3_32s", 4, {kStsMP3FrameHeaderErr, kStsMP3SideInfoErr, kStsBadArgErr},
                  [](const Args& a, Arena& m) {
                    Akl32s* ix = m.Get<Akl32s>(576, 0);
                    ix[10] = a.B(2, 1, 8207);
                    AklMP3SideInfo* si = m.Obj(AklMP3SideInfo{});
                    si->windowSwitchingFlag = a.B(1, 0, 1);
                    AklMP3FrameHeader h = Mpeg1Header();
                    h.layer = a.B(0, 1, 2);
                    const AklMP3FrameHeader* ph = m.Obj(h);
                    Akl32s* bits = m.Obj(0);
                    m.Seal();
                    return aklsHuffmanTableSelect_MP3_32s(a.P(0, ix), a.P(1, si), a.P(2, ph), a.P(3, bits));
                  }});
  return rows;
}

std::vector<Row> AllRows() {
  std::vector<Row> all;
  for (auto family : {VectorRows, TransformRows, AacSpectralRows, AacPredictionRows, Mp3SignalRows, Mp3EncodeRows})
    for (Row& r : family()) all.push_back(std::move(r));
  return all;
}

TEST(Contract, NullPointersAndCheckOrderWriteNothing) {
  for (const Row& r : AllRows()) Check(r);
}

}  // namespace
