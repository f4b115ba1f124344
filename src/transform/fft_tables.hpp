// Constant tables of the float FFT: the quarter-wave sine from which every
// twiddle of orders 0..10 derives, the radix-4 and radix-8 stage twiddles and
// the bit reversal of 10-bit indices.  Shared by the context code and every
// kernel member (one copy in the library).
#pragma once

#include <array>
#include <cstdint>

#include "transform/fft.hpp"

namespace akl::transform::fft_tables {

inline constexpr double kPi = 3.14159265358979323846;

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
inline constexpr int kSinPeriod = 1024;
constexpr std::array<float, kSinPeriod / 4 + 1> MakeSin1024() {
  std::array<float, kSinPeriod / 4 + 1> t{};
  for (int k = 0; k <= kSinPeriod / 4; ++k) t[static_cast<std::size_t>(k)] = static_cast<float>(SinTaylor(2.0 * kPi * k / kSinPeriod));
  return t;
}
alignas(64) inline constexpr std::array<float, kSinPeriod / 4 + 1> kSin1024 = MakeSin1024();

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

inline constexpr int kTableMaxOrder = 10;
template <int Parity>
constexpr std::array<float, static_cast<std::size_t>(StageTwiddleFloats(kTableMaxOrder - 1 + Parity))> MakeStageTable() {
  std::array<float, static_cast<std::size_t>(StageTwiddleFloats(kTableMaxOrder - 1 + Parity))> t{};
  FillStages(t.data(), kTableMaxOrder - 1 + Parity, kSin1024.data(), kSinPeriod);
  return t;
}
// Stage twiddles of order 9 (odd orders) and 10 (even orders); a smaller
// order of the same parity uses a prefix.
alignas(64) inline constexpr auto kStagesOdd = MakeStageTable<0>();
alignas(64) inline constexpr auto kStagesEven = MakeStageTable<1>();

inline const float* ConstantStages(int order) { return (order & 1) ? kStagesOdd.data() : kStagesEven.data(); }

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
inline constexpr int kRadix8MaxL = 128;
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
alignas(64) inline constexpr auto kRadix8 = MakeRadix8Table();
constexpr const float* Radix8Twiddles(int l) { return kRadix8.data() + 14 * (l - 4); }

// Bit reversal of 10-bit indices; shorter orders shift the result down.
constexpr std::array<std::uint16_t, 1u << kTableMaxOrder> MakeRev10() {
  std::array<std::uint16_t, 1u << kTableMaxOrder> t{};
  for (std::uint32_t i = 0; i < t.size(); ++i) t[i] = static_cast<std::uint16_t>(ReverseBits(i, kTableMaxOrder));
  return t;
}
alignas(64) inline constexpr auto kRev10 = MakeRev10();

}  // namespace akl::transform::fft_tables
