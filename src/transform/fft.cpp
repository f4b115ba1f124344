// The internal complex FFT: float and 16-bit kernels, their contexts and sizes.
#include "transform/fft.hpp"

#include <emmintrin.h>

#include <array>
#include <cmath>
#include <cstring>

namespace akl::transform {

namespace {

constexpr int kFlagNoDivide = 8;
constexpr int kFlagSqrtBoth = 4;
constexpr int kFlagDivFwd = 1;
constexpr int kFlagDivInv = 2;

constexpr bool ValidFlag(int flag) {
  return flag == kFlagNoDivide || flag == kFlagSqrtBoth || flag == kFlagDivFwd || flag == kFlagDivInv;
}

constexpr int RoundUp(int v, int a) { return (v + a - 1) / a * a; }

// ---------------------------------------------------------------------------
// Twiddle tables.

constexpr double kPi = 3.14159265358979323846;

// Taylor series of sin on [0, pi/2]; the 15 terms leave an error far below
// double rounding, so the float table below is correctly rounded.
constexpr double SinTaylor(double x) {
  double term = x;
  double sum = x;
  for (int n = 1; n < 15; ++n) {
    term *= -x * x / static_cast<double>((2 * n) * (2 * n + 1));
    sum += term;
  }
  return sum;
}

// sin(2 pi k / 1024) for k = 0 .. 256: the quarter wave from which every
// twiddle of orders 0..10 derives.
constexpr int kSinPeriod = 1024;
constexpr std::array<float, kSinPeriod / 4 + 1> MakeSin1024() {
  std::array<float, kSinPeriod / 4 + 1> t{};
  for (int k = 0; k <= kSinPeriod / 4; ++k) t[static_cast<std::size_t>(k)] = static_cast<float>(SinTaylor(2.0 * kPi * k / kSinPeriod));
  return t;
}
alignas(64) constexpr std::array<float, kSinPeriod / 4 + 1> kSin1024 = MakeSin1024();

// cos and sin of 2 pi k / period from a quarter-wave sine table qs[0 .. period/4].
constexpr void CosSin(const float* qs, int period, int k, float* c, float* s) {
  const int q = period / 4;
  k &= period - 1;
  if (k <= q) {
    *s = qs[k];
    *c = qs[q - k];
  } else if (k <= 2 * q) {
    *s = qs[2 * q - k];
    *c = -qs[k - q];
  } else if (k <= 3 * q) {
    *s = -qs[k - 2 * q];
    *c = -qs[3 * q - k];
  } else {
    *s = -qs[4 * q - k];
    *c = qs[k - 3 * q];
  }
}

// The radix-4 stages of an order.  The first pass combines blocks of 4, for
// odd orders a radix-2 pass joins them into blocks of 8 (both with constant
// factors); each later stage combines four blocks of L into one of 4L, from
// L = 4 (even) or L = 8 (odd) up to L = M/4.
constexpr int FirstStageL(int order) { return (order & 1) ? 8 : 4; }

// Floats of stage twiddles for an order: 6 per j of every stage.
constexpr int StageTwiddleFloats(int order) {
  int n = 0;
  for (int l = FirstStageL(order); 4 * l <= (1 << order); l *= 4) n += 6 * l;
  return n;
}

// Stage of size 4L, for j = 0, 4, 8, .. L-4: 24 floats, the real parts of
// four factors then their imaginary parts, for W^2j, W^j and W^3j in turn
// (W = e^(-2 pi i/4L)): the factors of the blocks at j+L, j+2L and j+3L, as
// binary bit reversal puts the residue-2 subsequence before the residue-1 one.
constexpr void FillStages(float* out, int order, const float* qs, int period) {
  for (int l = FirstStageL(order); 4 * l <= (1 << order); l *= 4) {
    const int step = period / (4 * l);
    for (int j = 0; j < l; j += 4) {
      const int mult[3] = {2, 1, 3};
      for (int t = 0; t < 3; ++t) {
        for (int h = 0; h < 4; ++h) {
          float c = 0, s = 0;
          CosSin(qs, period, mult[t] * (j + h) * step, &c, &s);
          out[8 * t + h] = c;
          out[8 * t + 4 + h] = -s;
        }
      }
      out += 24;
    }
  }
}

constexpr int kTableMaxOrder = 10;
template <int Parity>
constexpr std::array<float, static_cast<std::size_t>(StageTwiddleFloats(kTableMaxOrder - 1 + Parity))> MakeStageTable() {
  std::array<float, static_cast<std::size_t>(StageTwiddleFloats(kTableMaxOrder - 1 + Parity))> t{};
  FillStages(t.data(), kTableMaxOrder - 1 + Parity, kSin1024.data(), kSinPeriod);
  return t;
}
// Stage twiddles of order 9 (odd orders) and 10 (even orders); a smaller
// order of the same parity uses a prefix.
alignas(64) constexpr auto kStagesOdd = MakeStageTable<0>();
alignas(64) constexpr auto kStagesEven = MakeStageTable<1>();

const float* ConstantStages(int order) { return (order & 1) ? kStagesOdd.data() : kStagesEven.data(); }

// Radix-4 twiddles of the stage that combines blocks of L (both sequences
// hold 6 L' floats for each of their stages L' < L).
constexpr const float* Radix4Twiddles(const float* stages, int first_l, int l) {
  int offset = 0;
  for (int k = first_l; k < l; k *= 4) offset += 6 * k;
  return stages + offset;
}

// Radix-8 stage twiddles for every block size L = 4, 8, .., 128 (stages of
// size 8L up to 1024), L after L: for j = 0, 4, .. L-4, 56 floats, the four
// real parts then the four imaginary parts of W^(s j) for s = 1 .. 7
// (W = e^(-2 pi i/8L)), so the stage of L starts at 14 (L - 4).
constexpr int kRadix8MaxL = 128;
constexpr int Radix8TwiddleFloats() { return 14 * (2 * kRadix8MaxL - 4); }
constexpr std::array<float, Radix8TwiddleFloats()> MakeRadix8Table() {
  std::array<float, Radix8TwiddleFloats()> t{};
  std::size_t o = 0;
  for (int l = 4; l <= kRadix8MaxL; l *= 2) {
    const int step = kSinPeriod / (8 * l);
    for (int j = 0; j < l; j += 4) {
      for (int s = 1; s < 8; ++s) {
        for (int h = 0; h < 4; ++h) {
          float c = 0, sn = 0;
          CosSin(kSin1024.data(), kSinPeriod, s * (j + h) * step, &c, &sn);
          t[o + static_cast<std::size_t>(h)] = c;
          t[o + 4 + static_cast<std::size_t>(h)] = -sn;
        }
        o += 8;
      }
    }
  }
  return t;
}
alignas(64) constexpr auto kRadix8 = MakeRadix8Table();
constexpr const float* Radix8Twiddles(int l) { return kRadix8.data() + 14 * (l - 4); }

// Bit reversal of 10-bit indices; shorter orders shift the result down.
constexpr std::array<std::uint16_t, 1u << kTableMaxOrder> MakeRev10() {
  std::array<std::uint16_t, 1u << kTableMaxOrder> t{};
  for (std::uint32_t i = 0; i < t.size(); ++i) t[i] = static_cast<std::uint16_t>(ReverseBits(i, kTableMaxOrder));
  return t;
}
alignas(64) constexpr auto kRev10 = MakeRev10();

// ---------------------------------------------------------------------------
// Float passes over split data (real parts in one array, imaginary parts in
// another), four complex values per SSE2 register pair.  The arrays are
// 16-byte aligned and hold M >= 16 values.

constexpr float kSqrtHalf = kFftSqrtHalf;

void FirstPass4(float* re, float* im, int m) {
  for (int i = 0; i < m; i += 16) {
    __m128 r0 = _mm_load_ps(re + i), r1 = _mm_load_ps(re + i + 4), r2 = _mm_load_ps(re + i + 8),
           r3 = _mm_load_ps(re + i + 12);
    __m128 i0 = _mm_load_ps(im + i), i1 = _mm_load_ps(im + i + 4), i2 = _mm_load_ps(im + i + 8),
           i3 = _mm_load_ps(im + i + 12);
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    _MM_TRANSPOSE4_PS(i0, i1, i2, i3);
    Butterfly4(r0, i0, r1, i1, r2, i2, r3, i3);
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    _MM_TRANSPOSE4_PS(i0, i1, i2, i3);
    _mm_store_ps(re + i, r0);
    _mm_store_ps(re + i + 4, r1);
    _mm_store_ps(re + i + 8, r2);
    _mm_store_ps(re + i + 12, r3);
    _mm_store_ps(im + i, i0);
    _mm_store_ps(im + i + 4, i1);
    _mm_store_ps(im + i + 8, i2);
    _mm_store_ps(im + i + 12, i3);
  }
}

// Radix-2 stage joining blocks of 4 into blocks of 8 (odd orders, after the
// first pass): X[j] = S0[j] + W8^j S1[j], X[j+4] = S0[j] - W8^j S1[j].
void Radix2Stage4(float* re, float* im, int m) {
  const __m128 wr = _mm_setr_ps(1.0f, kSqrtHalf, 0.0f, -kSqrtHalf);
  const __m128 wi = _mm_setr_ps(0.0f, -kSqrtHalf, -1.0f, -kSqrtHalf);
  for (int i = 0; i < m; i += 8) {
    const __m128 ar = _mm_load_ps(re + i), ai = _mm_load_ps(im + i);
    const __m128 xr = _mm_load_ps(re + i + 4), xi = _mm_load_ps(im + i + 4);
    const __m128 br = _mm_sub_ps(_mm_mul_ps(xr, wr), _mm_mul_ps(xi, wi));
    const __m128 bi = _mm_add_ps(_mm_mul_ps(xr, wi), _mm_mul_ps(xi, wr));
    _mm_store_ps(re + i, _mm_add_ps(ar, br));
    _mm_store_ps(im + i, _mm_add_ps(ai, bi));
    _mm_store_ps(re + i + 4, _mm_sub_ps(ar, br));
    _mm_store_ps(im + i + 4, _mm_sub_ps(ai, bi));
  }
}

// The twiddled radix-4 butterfly of a stage of size 4L for four values of j:
// a = x[j], c = W^2j x[j+L], b = W^j x[j+2L], d = W^3j x[j+3L] (the factors
// at w as FillStages lays them out), then y[j] = a + c + (b + d),
// y[j+2L] = a + c - (b + d), y[j+L] = a - c - i (b - d), y[j+3L] = a - c + i (b - d).
// Reads r0/i0 + j + {0, L, 2L, 3L}; results in yr[0..3], yi[0..3] for those places.
inline void TwiddledButterfly4(const float* r0, const float* i0, int j, int l, const float* w, __m128* yr,
                               __m128* yi) {
  const __m128 ar = _mm_load_ps(r0 + j), ai = _mm_load_ps(i0 + j);
  __m128 xr = _mm_load_ps(r0 + j + l), xi = _mm_load_ps(i0 + j + l);
  __m128 wr = _mm_load_ps(w), wi = _mm_load_ps(w + 4);
  const __m128 cr = _mm_sub_ps(_mm_mul_ps(xr, wr), _mm_mul_ps(xi, wi));
  const __m128 ci = _mm_add_ps(_mm_mul_ps(xr, wi), _mm_mul_ps(xi, wr));
  xr = _mm_load_ps(r0 + j + 2 * l);
  xi = _mm_load_ps(i0 + j + 2 * l);
  wr = _mm_load_ps(w + 8);
  wi = _mm_load_ps(w + 12);
  const __m128 br = _mm_sub_ps(_mm_mul_ps(xr, wr), _mm_mul_ps(xi, wi));
  const __m128 bi = _mm_add_ps(_mm_mul_ps(xr, wi), _mm_mul_ps(xi, wr));
  xr = _mm_load_ps(r0 + j + 3 * l);
  xi = _mm_load_ps(i0 + j + 3 * l);
  wr = _mm_load_ps(w + 16);
  wi = _mm_load_ps(w + 20);
  const __m128 dr = _mm_sub_ps(_mm_mul_ps(xr, wr), _mm_mul_ps(xi, wi));
  const __m128 di = _mm_add_ps(_mm_mul_ps(xr, wi), _mm_mul_ps(xi, wr));
  const __m128 t0r = _mm_add_ps(ar, cr), t0i = _mm_add_ps(ai, ci);
  const __m128 t1r = _mm_sub_ps(ar, cr), t1i = _mm_sub_ps(ai, ci);
  const __m128 t2r = _mm_add_ps(br, dr), t2i = _mm_add_ps(bi, di);
  const __m128 t3r = _mm_sub_ps(br, dr), t3i = _mm_sub_ps(bi, di);
  yr[0] = _mm_add_ps(t0r, t2r);
  yi[0] = _mm_add_ps(t0i, t2i);
  yr[2] = _mm_sub_ps(t0r, t2r);
  yi[2] = _mm_sub_ps(t0i, t2i);
  yr[1] = _mm_add_ps(t1r, t3i);
  yi[1] = _mm_sub_ps(t1i, t3r);
  yr[3] = _mm_sub_ps(t1r, t3i);
  yi[3] = _mm_add_ps(t1i, t3r);
}

// The stage functions are inlined into the fixed-order transforms below, where
// the sizes become constants (addresses fold into the instructions and the
// short loops unroll).
#define AKL_FFT_INLINE [[gnu::always_inline]] inline

// One radix-4 stage of size 4L (L >= 4), four values of j at a time, in place.
AKL_FFT_INLINE void Radix4Stage(float* re, float* im, int m, int l, const float* tw) {
  for (int base = 0; base < m; base += 4 * l) {
    float* r0 = re + base;
    float* i0 = im + base;
    const float* w = tw;
    for (int j = 0; j < l; j += 4, w += 24) {
      __m128 yr[4], yi[4];
      TwiddledButterfly4(r0, i0, j, l, w, yr, yi);
      for (int g = 0; g < 4; ++g) {
        _mm_store_ps(r0 + j + g * l, yr[g]);
        _mm_store_ps(i0 + j + g * l, yi[g]);
      }
    }
  }
}

// Four complex values at p as a vector of real parts and one of imaginary parts.
inline void LoadComplex4(const Akl32fc* p, __m128* r, __m128* i) {
  const __m128 a = _mm_loadu_ps(&p->re), b = _mm_loadu_ps(&p->re + 4);
  *r = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
  *i = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
}

// Stores four complex values, interleaving real and imaginary parts.
inline void StoreComplex4(Akl32fc* p, __m128 r, __m128 i) {
  _mm_storeu_ps(&p->re, _mm_unpacklo_ps(r, i));
  _mm_storeu_ps(&p->re + 4, _mm_unpackhi_ps(r, i));
}

// The last radix-4 stage (4L = M) reading split scratch and writing the
// interleaved result, times f when kScale: this saves the separate pass that
// converted the split result.
template <bool kScale>
AKL_FFT_INLINE void LastStageInterleaved(const float* re, const float* im, Akl32fc* dst, int m, const float* tw, float f) {
  const int l = m / 4;
  const __m128 vf = _mm_set1_ps(f);
  const float* w = tw;
  for (int j = 0; j < l; j += 4, w += 24) {
    __m128 yr[4], yi[4];
    TwiddledButterfly4(re, im, j, l, w, yr, yi);
    for (int g = 0; g < 4; ++g) {
      if (kScale) {
        yr[g] = _mm_mul_ps(yr[g], vf);
        yi[g] = _mm_mul_ps(yi[g], vf);
      }
      StoreComplex4(dst + j + g * l, yr[g], yi[g]);
    }
  }
}

// Where a stage puts its results: back into the split arrays, or (the last
// stage) interleaved into the destination, optionally times a factor.
enum class StageOut { kSplit, kInterleaved, kInterleavedScaled };

// One radix-8 stage of size 8L (L >= 4) over bit-reversed blocks: the block
// at place rev3(s) holds the transform of residue s, so
// X[j + v L] = sum_s e^(-2 pi i s v/8) W^(s j) B_s[j], four values of j at a time.
template <StageOut kOut>
AKL_FFT_INLINE void Radix8Stage(float* re, float* im, Akl32fc* dst, int m, int l, const float* tw, float f) {
  constexpr int kRev3[8] = {0, 4, 2, 6, 1, 5, 3, 7};
  const __m128 vf = _mm_set1_ps(f);
  for (int base = 0; base < m; base += 8 * l) {
    float* r0 = re + base;
    float* i0 = im + base;
    const float* w = tw;
    for (int j = 0; j < l; j += 4, w += 56) {
      __m128 xr[8], xi[8];
      xr[0] = _mm_load_ps(r0 + j);
      xi[0] = _mm_load_ps(i0 + j);
      for (int s = 1; s < 8; ++s) {
        const __m128 ar = _mm_load_ps(r0 + j + kRev3[s] * l), ai = _mm_load_ps(i0 + j + kRev3[s] * l);
        const __m128 wr = _mm_load_ps(w + 8 * (s - 1)), wi = _mm_load_ps(w + 8 * (s - 1) + 4);
        xr[s] = _mm_sub_ps(_mm_mul_ps(ar, wr), _mm_mul_ps(ai, wi));
        xi[s] = _mm_add_ps(_mm_mul_ps(ar, wi), _mm_mul_ps(ai, wr));
      }
      Dft8Natural(xr, xi);
      for (int v = 0; v < 8; ++v) {
        if (kOut == StageOut::kSplit) {
          _mm_store_ps(r0 + j + v * l, xr[v]);
          _mm_store_ps(i0 + j + v * l, xi[v]);
        } else if (kOut == StageOut::kInterleaved) {
          StoreComplex4(dst + base + j + v * l, xr[v], xi[v]);
        } else {
          StoreComplex4(dst + base + j + v * l, _mm_mul_ps(xr[v], vf), _mm_mul_ps(xi[v], vf));
        }
      }
    }
  }
}

// First pass of odd orders >= 5 straight from interleaved input: an 8-point
// DFT over x[r + t M/8] (t = 0..7) for four residues r = i0 .. i0+3 at once,
// one per lane.  The block of eight at 8 rev(r) (bit reversal over order - 3
// bits) receives that DFT in natural order, which is what the radix-4 stages
// from L = 8 expect; for the four lanes the blocks lie at rev(i0) plus 0,
// M/2, M/4 and 3M/4, so two transposes per part make aligned stores.  This
// replaces the radix-4 pass and the radix-2 pass of the split kernel by one
// pass with fewer operations.
AKL_FFT_INLINE void FirstPass8Interleaved(const Akl32fc* src, float* re, float* im, int order) {
  const int e = (1 << order) / 8;
  for (int i0 = 0; i0 < e; i0 += 4) {
    __m128 xr[8], xi[8];
    for (int g = 0; g < 8; ++g) LoadComplex4(src + i0 + g * e, &xr[g], &xi[g]);
    StoreFirstPass8(re, im, order, static_cast<std::uint32_t>(i0), xr, xi);
  }
}

// First radix-4 pass straight from interleaved input (StoreFirstPass4 places
// the results).
AKL_FFT_INLINE void FirstPass4Interleaved(const Akl32fc* src, float* re, float* im, int order) {
  const int m = 1 << order;
  for (int i0 = 0; i0 < m / 4; i0 += 4) {
    __m128 vr[4], vi[4];
    for (int g = 0; g < 4; ++g) LoadComplex4(src + i0 + g * (m / 4), &vr[g], &vi[g]);
    StoreFirstPass4(re, im, BitReverseIndex(static_cast<std::uint32_t>(i0), order), m, vr, vi);
  }
}

// The stages after the first pass for orders up to 10, blocks of L so far
// and kLeft levels to go: radix 8 where it fits, radix 4 when 2 or 4 levels
// remain (so 8x8, 8x4x4, 8x8x4, 8x8x8, 8x8x4x4 for orders 6..10); the last
// stage writes the interleaved result.
template <int kOrder, int L, int kLeft, StageOut kLastOut>
AKL_FFT_INLINE void FixedStages(float* re, float* im, Akl32fc* dst, float f) {
  constexpr int m = 1 << kOrder;
  if constexpr (kLeft == 2 || kLeft == 4) {
    const float* tw = (L & 0x55555555) ? Radix4Twiddles(kStagesEven.data(), 4, L)
                                       : Radix4Twiddles(kStagesOdd.data(), 8, L);
    if constexpr (kLeft == 4 || kLastOut == StageOut::kSplit) Radix4Stage(re, im, m, L, tw);
    if constexpr (kLeft == 4) {
      FixedStages<kOrder, 4 * L, kLeft - 2, kLastOut>(re, im, dst, f);
    } else if constexpr (kLastOut != StageOut::kSplit) {
      LastStageInterleaved<kLastOut == StageOut::kInterleavedScaled>(re, im, dst, m, tw, f);
    }
  } else {
    const float* tw = Radix8Twiddles(L);
    if constexpr (kLeft == 3) {
      Radix8Stage<kLastOut>(re, im, dst, m, L, tw, f);
    } else {
      Radix8Stage<StageOut::kSplit>(re, im, dst, m, L, tw, f);
      FixedStages<kOrder, 8 * L, kLeft - 3, kLastOut>(re, im, dst, f);
    }
  }
}

// The whole transform of one order 4..10 with its sizes as constants.  All
// of src is read before dst is written, so src may equal dst.
template <int kOrder, bool kScale>
void FixedOrder(const Akl32fc* src, Akl32fc* dst, float f) {
  constexpr StageOut kOut = kScale ? StageOut::kInterleavedScaled : StageOut::kInterleaved;
  constexpr std::size_t kLen = std::size_t{1} << kOrder;
  alignas(64) float re[kLen];
  alignas(64) float im[kLen];
  if constexpr (kOrder == 4) {
    FirstPass4Interleaved(src, re, im, kOrder);
    FixedStages<kOrder, 4, 2, kOut>(re, im, dst, f);
  } else {
    FirstPass8Interleaved(src, re, im, kOrder);
    FixedStages<kOrder, 8, kOrder - 3, kOut>(re, im, dst, f);
  }
}

// The stages after StoreFirstPass8, in place on split data (the MDCT).
template <int kOrder>
void FixedSplitStages(float* re, float* im) {
  FixedStages<kOrder, 8, kOrder - 3, StageOut::kSplit>(re, im, nullptr, 1.0f);
}

using FixedFn = void (*)(const Akl32fc*, Akl32fc*, float);
template <bool kScale>
constexpr std::array<FixedFn, 7> kFixedOrders = {FixedOrder<4, kScale>, FixedOrder<5, kScale>, FixedOrder<6, kScale>,
                                                 FixedOrder<7, kScale>, FixedOrder<8, kScale>, FixedOrder<9, kScale>,
                                                 FixedOrder<10, kScale>};


// Orders 1..3: plain radix 2 with the factors of the 8-point transform.
template <int kOrder>
AKL_FFT_INLINE void SmallSplitT(float* re, float* im) {
  constexpr float kW8[4][2] = {{1.0f, 0.0f}, {kSqrtHalf, -kSqrtHalf}, {0.0f, -1.0f}, {-kSqrtHalf, -kSqrtHalf}};
  constexpr int m = 1 << kOrder;
  for (int h = 1; h < m; h *= 2) {
    for (int base = 0; base < m; base += 2 * h) {
      for (int j = 0; j < h; ++j) {
        const float wr = kW8[j * 4 / h][0], wi = kW8[j * 4 / h][1];
        const int a = base + j, b = a + h;
        const float tr = re[b] * wr - im[b] * wi;
        const float ti = re[b] * wi + im[b] * wr;
        re[b] = re[a] - tr;
        im[b] = im[a] - ti;
        re[a] += tr;
        im[a] += ti;
      }
    }
  }
}
void SmallSplit(float* re, float* im, int order) {
  switch (order) {
    case 1: SmallSplitT<1>(re, im); break;
    case 2: SmallSplitT<2>(re, im); break;
    case 3: SmallSplitT<3>(re, im); break;
    default: break;
  }
}

// Orders 0..3 straight from natural order: the 4- and 8-point transforms
// with the radix-4 and radix-8 butterflies in one lane (no permutation).
template <int kOrder>
void SmallOrder(const Akl32fc* src, Akl32fc* dst, float f) {
  constexpr int m = 1 << kOrder;
  if constexpr (kOrder == 0) {
    dst[0].re = src[0].re * f;
    dst[0].im = src[0].im * f;
  } else if constexpr (kOrder == 1) {
    const float ar = src[0].re, ai = src[0].im, br = src[1].re, bi = src[1].im;
    dst[0].re = (ar + br) * f;
    dst[0].im = (ai + bi) * f;
    dst[1].re = (ar - br) * f;
    dst[1].im = (ai - bi) * f;
  } else {
    __m128 r[8], i[8];
    for (int g = 0; g < m; ++g) {
      r[g] = _mm_set_ss(src[g].re);
      i[g] = _mm_set_ss(src[g].im);
    }
    if constexpr (kOrder == 2) {
      Dft4Natural(r, i);
    } else {
      Dft8Natural(r, i);
    }
    for (int v = 0; v < m; ++v) {
      dst[v].re = _mm_cvtss_f32(r[v]) * f;
      dst[v].im = _mm_cvtss_f32(i[v]) * f;
    }
  }
}
constexpr std::array<FixedFn, 4> kSmallOrders = {SmallOrder<0>, SmallOrder<1>, SmallOrder<2>, SmallOrder<3>};

// ---------------------------------------------------------------------------
// 16-bit kernel helpers.

constexpr std::int64_t kQ30One = std::int64_t{1} << 30;
constexpr std::int64_t kHalfSqrt2Q30 = 759250125;  // round(2^30 / sqrt(2))

inline Akl32s MulQ30(std::int64_t a, std::int64_t w) {
  return static_cast<Akl32s>((a * w + (kQ30One >> 1)) >> 30);
}

// Radix-2 twiddles, stage of half size h at pair offset h - 1.
void FillQ30Twiddles(Akl32s* tw, int order) {
  for (int h = 1; h < (1 << order); h *= 2) {
    for (int j = 0; j < h; ++j) {
      const double a = kPi * j / h;
      tw[2 * (h - 1 + j)] = static_cast<Akl32s>(std::llround(std::cos(a) * static_cast<double>(kQ30One)));
      tw[2 * (h - 1 + j) + 1] = static_cast<Akl32s>(std::llround(-std::sin(a) * static_cast<double>(kQ30One)));
    }
  }
}

Akl16s SatRoundFloat(double v) {
  if (!(v == v)) return 0;
  const double r = std::nearbyint(v);
  if (r >= 32767.0) return 32767;
  if (r <= -32768.0) return -32768;
  return static_cast<Akl16s>(r);
}

int SpecSize32fc(int order) {
  const int m = 1 << order;
  if (order <= 5) return 208;
  if (order <= kTableMaxOrder) return RoundUp(8 * m + 8, 64) + RoundUp(m + 4, 64) + 256;
  return 8 * m + 256;  // planner: the stage twiddles take less than 8M bytes
}
// Large orders run through split scratch of M complex floats in the work buffer.
int WorkSize32fc(int order) { return order <= kTableMaxOrder ? 0 : 8 * (1 << order); }
int InitSize32fc(int order) {
  // Large orders compute a quarter-wave sine of their own period first.
  return order <= kTableMaxOrder ? 0 : RoundUp((1 << order) + 4, 64) + 64;
}

}  // namespace

// ---------------------------------------------------------------------------
// Float kernel.

std::uint32_t BitReverseIndex(std::uint32_t i, int order) {
  return order <= kTableMaxOrder ? static_cast<std::uint32_t>(kRev10[i] >> (kTableMaxOrder - order))
                                 : ReverseBits(i, order);
}

namespace {

// The radix-4 stages after the first pass (and, for odd orders, the blocks of 8).
void RadixStages(const FFTSpec_C_32fc& spec, float* re, float* im) {
  const int m = 1 << spec.order;
  const float* tw = spec.twiddles;
  for (int l = FirstStageL(spec.order); 4 * l <= m; l *= 4) {
    Radix4Stage(re, im, m, l, tw);
    tw += 6 * l;
  }
}

}  // namespace

void FftSplitBitReversed(const FFTSpec_C_32fc& spec, float* re, float* im) {
  const int order = spec.order;
  const int m = 1 << order;
  if (order <= 3) {
    SmallSplit(re, im, order);
    return;
  }
  FirstPass4(re, im, m);
  if (order & 1) Radix2Stage4(re, im, m);
  RadixStages(spec, re, im);
}

void FftSplitAfterFirstPass8(const FFTSpec_C_32fc& spec, float* re, float* im) {
  using SplitFn = void (*)(float*, float*);
  static constexpr SplitFn kStages[6] = {FixedSplitStages<5>, FixedSplitStages<6>, FixedSplitStages<7>,
                                         FixedSplitStages<8>, FixedSplitStages<9>, FixedSplitStages<10>};
  kStages[spec.order - 5](re, im);
}

void FftSplitAfterFirstPass(const FFTSpec_C_32fc& spec, float* re, float* im) {
  if (spec.order & 1) Radix2Stage4(re, im, 1 << spec.order);
  RadixStages(spec, re, im);
}

void FftForward(const FFTSpec_C_32fc& spec, const Akl32fc* src, Akl32fc* dst, Akl8u* work) {
  const int order = spec.order;
  const float f = spec.fwdDivide ? spec.normFactor : 1.0f;
  const bool scale = f != 1.0f;
  if (order < 4) {
    kSmallOrders[static_cast<std::size_t>(order)](src, dst, f);
    return;
  }
  if (order <= kTableMaxOrder) {
    (scale ? kFixedOrders<true> : kFixedOrders<false>)[static_cast<std::size_t>(order - 4)](src, dst, f);
    return;
  }
  // Larger orders: split scratch in the work buffer, the first pass (radix 8
  // for odd orders, 4 for even ones), radix-4 stages with the context's
  // twiddles, the last one writing dst.
  const int m = 1 << order;
  float* re = AlignUp(reinterpret_cast<float*>(work), 64);
  float* im = re + m;
  if (order & 1) {
    FirstPass8Interleaved(src, re, im, order);
  } else {
    FirstPass4Interleaved(src, re, im, order);
  }
  const float* tw = spec.twiddles;
  int l = FirstStageL(order);
  for (; 4 * l < m; l *= 4) {
    Radix4Stage(re, im, m, l, tw);
    tw += 6 * l;
  }
  if (scale) {
    LastStageInterleaved<true>(re, im, dst, m, tw, f);
  } else {
    LastStageInterleaved<false>(re, im, dst, m, tw, f);
  }
}

void FftRef(const Akl32fc* src, Akl32fc* dst, int order) {
  const int m = 1 << order;
  for (int i = 0; i < m; ++i) {
    const int r = static_cast<int>(ReverseBits(static_cast<std::uint32_t>(i), order));
    if (src != dst) {
      dst[r] = src[i];
    } else if (i < r) {
      const Akl32fc t = dst[i];
      dst[i] = dst[r];
      dst[r] = t;
    }
  }
  for (int h = 1; h < m; h *= 2) {
    for (int base = 0; base < m; base += 2 * h) {
      for (int j = 0; j < h; ++j) {
        const double a = kPi * j / h;
        const float wr = static_cast<float>(std::cos(a));
        const float wi = static_cast<float>(-std::sin(a));
        Akl32fc& x = dst[base + j];
        Akl32fc& y = dst[base + j + h];
        const float tr = y.re * wr - y.im * wi;
        const float ti = y.re * wi + y.im * wr;
        y.re = x.re - tr;
        y.im = x.im - ti;
        x.re += tr;
        x.im += ti;
      }
    }
  }
}

Status fftGetSize_C_32fc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize) {
  (void)hint;
  if (order > kFftMaxOrder32fc || order < 0) return kStsFftOrderErr;
  if (!pSpecSize || !pInitBufSize || !pWorkSize) return kStsNullPtr;
  if (!ValidFlag(flag)) return kStsFftFlagErr;
  *pSpecSize = SpecSize32fc(order);
  *pInitBufSize = InitSize32fc(order);
  *pWorkSize = WorkSize32fc(order) > 0 ? WorkSize32fc(order) + 64 : 0;
  return kStsOk;
}

Status fftInit_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit) {
  if (!ppSpec || !pMemSpec) return kStsNullPtr;
  if (order > kFftMaxOrder32fc || order < 0) return kStsFftOrderErr;
  FFTSpec_C_32fc* s = ContextAt<FFTSpec_C_32fc>(pMemSpec, kTransformContextAlign);
  if (!ValidFlag(flag)) {
    s->tag = 0;
    return kStsFftFlagErr;
  }
  if (order > kTableMaxOrder && !pMemInit) return kStsNullPtr;

  std::memset(s, 0, sizeof(*s));
  const int m = 1 << order;
  s->order = order;
  s->hint = hint;
  s->workSize = WorkSize32fc(order);
  s->normFactor = 1.0f;
  if (flag == kFlagSqrtBoth) {
    s->fwdDivide = s->invDivide = 1;
    s->normFactor = static_cast<float>(1.0 / std::sqrt(static_cast<double>(m)));
  } else if (flag == kFlagDivFwd) {
    s->fwdDivide = 1;
    s->normFactor = static_cast<float>(1.0 / m);
  } else if (flag == kFlagDivInv) {
    s->invDivide = 1;
    s->normFactor = static_cast<float>(1.0 / m);
  }
  float* tables = AlignUp(reinterpret_cast<float*>(reinterpret_cast<Akl8u*>(s) + sizeof(*s)), 64);
  if (order <= 5) {
    s->twiddles = ConstantStages(order);
  } else if (order <= kTableMaxOrder) {
    std::memcpy(tables, ConstantStages(order), sizeof(float) * static_cast<std::size_t>(StageTwiddleFloats(order)));
    s->twiddles = tables;
  } else {
    float* qs = AlignUp(reinterpret_cast<float*>(pMemInit), 64);
    for (int k = 0; k <= m / 4; ++k) qs[k] = static_cast<float>(std::sin(2.0 * kPi * k / m));
    FillStages(tables, order, qs, m);
    s->twiddles = tables;
  }
  s->bitRev = order <= kTableMaxOrder ? kRev10.data() : nullptr;
  s->tag = kTagFft32fc;
  *ppSpec = s;
  return kStsOk;
}

Status fftInitAlloc_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint) {
  if (!ppSpec) return kStsNullPtr;
  int spec_size = 0, init_size = 0, work_size = 0;
  const Status st = fftGetSize_C_32fc(order, flag, hint, &spec_size, &init_size, &work_size);
  if (st != kStsOk) return st;
  Akl8u* mem = static_cast<Akl8u*>(AllocBytes(spec_size));
  if (!mem) return kStsMemAllocErr;
  Akl8u* init = nullptr;
  if (init_size > 0) {
    init = static_cast<Akl8u*>(AllocBytes(init_size));
    if (!init) {
      Release(mem);
      return kStsMemAllocErr;
    }
  }
  FFTSpec_C_32fc* s = nullptr;
  fftInit_C_32fc(&s, order, flag, hint, mem, init);
  Release(init);
  *ppSpec = reinterpret_cast<FFTSpec_C_32fc*>(mem);
  return kStsOk;
}

// Releases a context that fftInitAlloc_C_32fc allocated.
Status fftFree_C_32fc(FFTSpec_C_32fc* pSpec) {
  if (!pSpec) return kStsNullPtr;
  if (ContextAt<FFTSpec_C_32fc>(pSpec, kTransformContextAlign)->tag != kTagFft32fc) return kStsContextMismatch;
  Release(pSpec);
  return kStsOk;
}

Status fftGetBufSize_C_32fc(const FFTSpec_C_32fc* pSpec, int* pSize) {
  if (!pSpec || !pSize) return kStsNullPtr;
  const FFTSpec_C_32fc* s = TaggedContext<FFTSpec_C_32fc>(pSpec, kTransformContextAlign, kTagFft32fc);
  if (!s) return kStsContextMismatch;
  *pSize = s->workSize > 0 ? s->workSize + 64 : 0;
  return kStsOk;
}

Status fftFwd_CToC_32fc(const Akl32fc* pSrc, Akl32fc* pDst, const FFTSpec_C_32fc* pSpec, Akl8u* pBuffer) {
  if (!pSpec) return kStsNullPtr;
  const FFTSpec_C_32fc* s = TaggedContext<FFTSpec_C_32fc>(pSpec, kTransformContextAlign, kTagFft32fc);
  if (!s) return kStsContextMismatch;
  if (!pSrc || !pDst) return kStsNullPtr;
  Akl8u* work = pBuffer;
  if (!work && s->workSize > 0) {
    work = static_cast<Akl8u*>(AllocBytes(s->workSize + 64));
    if (!work) return kStsMemAllocErr;
  }
  FftForward(*s, pSrc, pDst, work);
  if (work != pBuffer) Release(work);
  return kStsOk;
}

// ---------------------------------------------------------------------------
// 16-bit kernel.

namespace {

bool IntegerKernel(int order, int hint) { return (hint == 0 || hint == 1) && order < kFftIntegerOrderLimit; }

}  // namespace

Status fftGetSize_C_16sc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize) {
  if (order > kFftMaxOrder16sc || order < 0) return kStsFftOrderErr;
  if (!pSpecSize || !pInitBufSize || !pWorkSize) return kStsNullPtr;
  if (!ValidFlag(flag)) return kStsFftFlagErr;
  const int m = 1 << order;
  if (order == 0) {
    *pSpecSize = 136;
    *pInitBufSize = 0;
    *pWorkSize = 0;
  } else if (IntegerKernel(order, hint)) {
    *pSpecSize = RoundUp(8 * m, 64) + RoundUp(m + 4, 64) + 192;
    *pInitBufSize = RoundUp(m / 2 + 2, 64) + 64;
    *pWorkSize = 8 * m + 64;
  } else {
    int fs = 0, fi = 0, fw = 0;
    const Status st = fftGetSize_C_32fc(order, flag, hint, &fs, &fi, &fw);
    if (st != kStsOk) return st;
    // The float data (M complex floats, 64 bytes to align them) before the
    // float kernel's own work.
    *pSpecSize = fs + 192;
    *pInitBufSize = fi;
    *pWorkSize = fw + 8 * m + 64;
  }
  return kStsOk;
}

Status fftInit_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit) {
  if (!ppSpec || !pMemSpec) return kStsNullPtr;
  if (order > kFftMaxOrder16sc || order < 0) return kStsFftOrderErr;
  FFTSpec_C_16sc* s = ContextAt<FFTSpec_C_16sc>(pMemSpec, kTransformContextAlign);
  if (!ValidFlag(flag)) {
    s->tag = 0;
    return kStsFftFlagErr;
  }
  int spec_size = 0, init_size = 0, work_size = 0;
  const Status st = fftGetSize_C_16sc(order, flag, hint, &spec_size, &init_size, &work_size);
  if (st != kStsOk) return st;
  if (init_size > 0 && !pMemInit && !IntegerKernel(order, hint)) return kStsNullPtr;

  std::memset(s, 0, sizeof(*s));
  s->order = order;
  s->hint = hint;
  s->workSize = work_size;
  if (flag == kFlagSqrtBoth) {
    s->fwdShift = s->invShift = order >> 1;
    s->halfSqrt2 = order & 1;
  } else if (flag == kFlagDivFwd) {
    s->fwdShift = order;
  } else if (flag == kFlagDivInv) {
    s->invShift = order;
  }
  Akl8u* after_header = AlignUp(reinterpret_cast<Akl8u*>(s) + sizeof(*s), 64);
  if (order > 0 && IntegerKernel(order, hint)) {
    Akl32s* tw = reinterpret_cast<Akl32s*>(after_header);
    FillQ30Twiddles(tw, order);
    s->twiddles = tw;
    s->bitRev = kRev10.data();
  } else if (order > 0) {
    FFTSpec_C_32fc* fs = nullptr;
    const Status fst = fftInit_C_32fc(&fs, order, flag, hint, after_header, pMemInit);
    if (fst != kStsOk) return fst;
    s->floatKernel = 1;
    s->floatSpec = fs;
  }
  s->tag = kTagFft16sc;
  *ppSpec = s;
  return kStsOk;
}

Status fftInitAlloc_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint) {
  if (!ppSpec) return kStsNullPtr;
  int spec_size = 0, init_size = 0, work_size = 0;
  const Status st = fftGetSize_C_16sc(order, flag, hint, &spec_size, &init_size, &work_size);
  if (st != kStsOk) return st;
  Akl8u* mem = static_cast<Akl8u*>(AllocBytes(spec_size));
  if (!mem) return kStsMemAllocErr;
  Akl8u* init = nullptr;
  if (init_size > 0) {
    init = static_cast<Akl8u*>(AllocBytes(init_size));
    if (!init) {
      Release(mem);
      return kStsMemAllocErr;
    }
  }
  FFTSpec_C_16sc* s = nullptr;
  const Status ist = fftInit_C_16sc(&s, order, flag, hint, mem, init);
  Release(init);
  if (ist != kStsOk) {
    Release(mem);
    return ist;
  }
  s->ownedByLibrary = 1;
  *ppSpec = reinterpret_cast<FFTSpec_C_16sc*>(mem);
  return kStsOk;
}

Status fftFree_C_16sc(FFTSpec_C_16sc* pSpec) {
  return FreeKeepingTag<FFTSpec_C_16sc>(pSpec, kTransformContextAlign, kTagFft16sc);
}

Status fftGetBufSize_C_16sc(const FFTSpec_C_16sc* pSpec, int* pSize) {
  if (!pSpec || !pSize) return kStsNullPtr;
  const FFTSpec_C_16sc* s = TaggedContext<FFTSpec_C_16sc>(pSpec, kTransformContextAlign, kTagFft16sc);
  if (!s) return kStsContextMismatch;
  *pSize = s->workSize;
  return kStsOk;
}

void Fft16Forward(const FFTSpec_C_16sc& spec, const Akl16sc* src, Akl16sc* dst, int scale_factor, Akl8u* work) {
  const int order = spec.order;
  const int m = 1 << order;
  if (order == 0) {
    const Akl16sc v = src[0];
    dst[0].re = ShiftToS16(v.re, scale_factor);
    dst[0].im = ShiftToS16(v.im, scale_factor);
    return;
  }
  if (spec.floatKernel) {
    Akl32fc* f = AlignUp(reinterpret_cast<Akl32fc*>(work), 64);
    for (int i = 0; i < m; ++i) {
      f[i].re = static_cast<float>(src[i].re);
      f[i].im = static_cast<float>(src[i].im);
    }
    const FFTSpec_C_32fc* fs = ContextAt<FFTSpec_C_32fc>(spec.floatSpec, kTransformContextAlign);
    FftForward(*fs, f, f, reinterpret_cast<Akl8u*>(f + m));
    // 2^-scale_factor; beyond +-200 every float result is 0 or saturated alike (and -INT_MIN is no int).
    const std::int64_t e = -std::int64_t{scale_factor};
    const double scale = std::ldexp(1.0, static_cast<int>(e < -200 ? -200 : (e > 200 ? 200 : e)));
    for (int i = 0; i < m; ++i) {
      dst[i].re = SatRoundFloat(static_cast<double>(f[i].re) * scale);
      dst[i].im = SatRoundFloat(static_cast<double>(f[i].im) * scale);
    }
    return;
  }
  // Integer kernel: inputs widened by 15 - order bits, so that the growth of
  // at most M through the passes stays below 2^31.
  Akl32s* w = AlignUp(reinterpret_cast<Akl32s*>(work), 64);
  const int up = 15 - order;
  for (int i = 0; i < m; ++i) {
    const std::uint32_t r = ReverseBits(static_cast<std::uint32_t>(i), order);
    Akl32s re = src[i].re * (1 << up);
    Akl32s im = src[i].im * (1 << up);
    if (spec.halfSqrt2) {
      re = MulQ30(re, kHalfSqrt2Q30);
      im = MulQ30(im, kHalfSqrt2Q30);
    }
    w[2 * r] = re;
    w[2 * r + 1] = im;
  }
  const Akl32s* tw_all = spec.twiddles;
  for (int h = 1; h < m; h *= 2) {
    const Akl32s* tw = tw_all + 2 * (h - 1);
    for (int base = 0; base < m; base += 2 * h) {
      for (int j = 0; j < h; ++j) {
        Akl32s* x = w + 2 * (base + j);
        Akl32s* y = x + 2 * h;
        const std::int64_t wr = tw[2 * j], wi = tw[2 * j + 1];
        const std::int64_t yr = y[0], yi = y[1];
        const std::int64_t tr = (yr * wr - yi * wi + (kQ30One >> 1)) >> 30;
        const std::int64_t ti = (yr * wi + yi * wr + (kQ30One >> 1)) >> 30;
        y[0] = static_cast<Akl32s>(x[0] - tr);
        y[1] = static_cast<Akl32s>(x[1] - ti);
        x[0] = static_cast<Akl32s>(x[0] + tr);
        x[1] = static_cast<Akl32s>(x[1] + ti);
      }
    }
  }
  // Any scale factor: the sum is formed wide and clamped to the shifts ShiftToS16 uses.
  const int down = ClampShift(std::int64_t{up} + spec.fwdShift + scale_factor);
  for (int i = 0; i < m; ++i) {
    dst[i].re = ShiftToS16(w[2 * i], down);
    dst[i].im = ShiftToS16(w[2 * i + 1], down);
  }
}

Status fftFwd_CToC_16sc_Sfs(const Akl16sc* pSrc, Akl16sc* pDst, const FFTSpec_C_16sc* pSpec, int scaleFactor,
                            Akl8u* pBuffer) {
  if (!pSpec) return kStsNullPtr;
  const FFTSpec_C_16sc* s = TaggedContext<FFTSpec_C_16sc>(pSpec, kTransformContextAlign, kTagFft16sc);
  if (!s) return kStsContextMismatch;
  if (!pSrc || !pDst) return kStsNullPtr;
  Akl8u* work = pBuffer;
  if (!work && s->workSize > 0) {
    work = static_cast<Akl8u*>(AllocBytes(s->workSize));
    if (!work) return kStsMemAllocErr;
  }
  Fft16Forward(*s, pSrc, pDst, scaleFactor, work);
  if (work != pBuffer) Release(work);
  return kStsOk;
}

}  // namespace akl::transform
