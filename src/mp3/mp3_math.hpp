// Compile-time elementary functions and fixed-point helpers shared by the
// Layer III signal stages (requantization, inverse MDCT, synthesis).
//
// The constexpr functions below build the stages' constant tables at compile
// time in double precision; they are accurate to a few units in the last
// place of a double over the arguments used here (angles of a few turns,
// cube roots of 1..2^14), far below the Q31 rounding that follows.
#pragma once

#include <cstdint>

namespace akl::mp3 {

inline constexpr double kPi = 3.14159265358979323846264338327950288;

// sin(x) for |x| up to a few hundred radians: reduce to [-pi, pi], fold to
// [-pi/2, pi/2] and sum the Taylor series to convergence.
constexpr double ConstSin(double x) {
  const double two_pi = 2.0 * kPi;
  const auto turns = static_cast<long long>(x / two_pi);
  x -= static_cast<double>(turns) * two_pi;
  if (x > kPi) x -= two_pi;
  if (x < -kPi) x += two_pi;
  if (x > kPi / 2) x = kPi - x;
  if (x < -kPi / 2) x = -kPi - x;
  double term = x, sum = x;
  for (int n = 1; n < 30; ++n) {
    term *= -x * x / static_cast<double>((2 * n) * (2 * n + 1));
    sum += term;
  }
  return sum;
}
constexpr double ConstCos(double x) { return ConstSin(x + kPi / 2); }

// Cube root of a positive x by Newton's iteration from a power-of-two guess.
constexpr double ConstCbrt(double x) {
  double g = 1.0;
  while (g * g * g < x) g *= 2.0;
  for (int i = 0; i < 100; ++i) {
    const double next = g - (g * g * g - x) / (3.0 * g * g);
    if (next == g) break;
    g = next;
  }
  return g;
}

// x^(4/3) for x >= 0.
constexpr double ConstPow43(double x) { return x <= 0.0 ? 0.0 : x * ConstCbrt(x); }

// 2^e for a (small) rational exponent given as num/den, through repeated
// square roots of 2 is not constexpr-friendly; 2^(k/12) covers every use
// here (quarter and third octaves), as a 12th-root power.
constexpr double ConstSqrt(double x) {
  if (x <= 0.0) return 0.0;
  double g = x > 1.0 ? x : 1.0;
  for (int i = 0; i < 200; ++i) {
    const double next = 0.5 * (g + x / g);
    if (next == g) break;
    g = next;
  }
  return g;
}
// 2^(k/12) for any integer k.
constexpr double ConstPow2Twelfths(int k) {
  // 2^(1/12) = sqrt(sqrt(cbrt(2))).
  const double root = ConstSqrt(ConstSqrt(ConstCbrt(2.0)));
  double r = 1.0;
  const int whole = k >= 0 ? k / 12 : -((-k + 11) / 12);
  const int frac = k - 12 * whole;
  for (int i = 0; i < frac; ++i) r *= root;
  for (int i = 0; i < whole; ++i) r *= 2.0;
  for (int i = 0; i > whole; --i) r *= 0.5;
  return r;
}

// Nearest integer (halves away from zero) of v * 2^q, clamped to int32.
constexpr std::int32_t ConstQ(double v, int q) {
  double s = v;
  for (int i = 0; i < q; ++i) s *= 2.0;
  const double r = s >= 0.0 ? s + 0.5 : s - 0.5;
  if (r >= 2147483647.0) return 2147483647;
  if (r <= -2147483648.0) return -2147483647 - 1;
  return static_cast<std::int32_t>(r);
}

// Upper 32 bits of the 64-bit product a*b (a Q31 multiply that halves the
// scale: Qm * Qn -> Q(m+n-32)).
inline std::int32_t MulHi(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>((static_cast<std::int64_t>(a) * b) >> 32);
}

// Saturates a 64-bit value to the signed 32-bit range.
inline std::int32_t SatS32(std::int64_t v) {
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<std::int32_t>(v);
}

// Saturates to the signed 16-bit range.
inline std::int16_t SatS16(std::int64_t v) {
  if (v > 32767) return 32767;
  if (v < -32768) return -32768;
  return static_cast<std::int16_t>(v);
}

// Rounds v / 2^s to nearest (halves up), s in 1..62.
inline std::int64_t RoundShr(std::int64_t v, int s) { return (v + (std::int64_t{1} << (s - 1))) >> s; }

}  // namespace akl::mp3
