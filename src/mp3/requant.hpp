// Layer III requantization: internal kernels, shared with the tests.
#pragma once

#include <cstdint>

namespace akl::mp3 {

// Largest quantized magnitude: 15 plus a 13-bit linbits extension.
inline constexpr std::uint32_t kMaxQuantMagnitude = 8206;

// |x|^(4/3) * 2^(-a/4) in Q26 for 1 <= m <= 8206 and any attenuation a
// (quarter octaves), saturated to 2147483647, right shifts truncating.
std::int32_t RequantMagnitude(std::uint32_t m, int a);

// Requantizes n raw quantized values in place at attenuation a (the sign
// kept); false at the first magnitude above 8206, the values before it
// converted.  RequantRun is the tuned form, RequantRunRef the plain loop over
// RequantMagnitude; the two agree bit for bit.
bool RequantRun(std::int32_t* x, int n, int a);
bool RequantRunRef(std::int32_t* x, int n, int a);

// The polynomial path's |x|^(4/3) alone, as a Q27 mantissa in [0.25, 1.6)
// and a power of two: |x|^(4/3) = mant * 2^(exp - 27), for 129 <= m <= 8206.
void Pow43Poly(std::uint32_t m, std::int32_t* mant_q27, int* exp);

}  // namespace akl::mp3
