// AAC Main and LTP profile tools: the backward-adaptive predictor of each
// spectral line (float state in a shortened mantissa), the fixed-point AAC
// filter bank (windows, sequences, overlap) and the long-term predictor that
// runs its forward transform.  Context layouts and kernels, shared with the
// tests.
#pragma once

#include <cstdint>
#include <cstring>

#include "aklac.h"
#include "core/context.hpp"
#include "transform/mdct.hpp"

namespace akl::aac::predict {

inline constexpr ContextTag kTagFdpState = 0x434D4170;
inline constexpr ContextTag kTagMdctAac = 0x434D4171;

// ---- frequency-domain prediction ----

inline constexpr int kMaxPredictors = 672;  // band offset of the prediction limit at 32..48 kHz
inline constexpr int kResetGroups = 30;
extern const std::uint8_t kPredSfbMax[12];

// One line's predictor: lattice registers, correlations and energies.
struct Predictor {
  float r0, r1, cor0, cor1, var0, var1;
};

struct FdpState {
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s sfIndex;
  Akl32s numPredictors;  // band offset of kPredSfbMax[sfIndex]
  Akl32s predSfbMax;
  Akl32s reserved[3];
  Predictor pred[kMaxPredictors];
};

// The 16-bit float format of the predictor: sign, exponent and the 7 upper
// mantissa bits of an IEEE single.
inline float Trunc16(float v) {
  std::uint32_t u;
  std::memcpy(&u, &v, 4);
  u &= 0xFFFF0000u;
  std::memcpy(&v, &u, 4);
  return v;
}
// Nearest 16-bit value, halves away from zero (the carry may reach the exponent).
inline float Round16(float v) {
  std::uint32_t u;
  std::memcpy(&u, &v, 4);
  u = (u + 0x00008000u) & 0xFFFF0000u;
  std::memcpy(&v, &u, 4);
  return v;
}

inline void ResetPredictor(Predictor& p) { p = Predictor{0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 1.0f}; }

// One line: returns the reconstructed value (x plus the estimate when
// `use`), and advances the predictor with it.
float PredictLine(Predictor& p, float x, bool use);

// ---- AAC filter bank ----

struct MdctAacSpec {
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s reserved[2];
  // Raw pointers of the embedded general MDCT contexts (lengths 2048, 256).
  const MDCTFwdSpec_32f* fwdLong;
  const MDCTFwdSpec_32f* fwdShort;
  const MDCTInvSpec_32f* invLong;
  const MDCTInvSpec_32f* invShort;
  // Rising halves: [shape][n], shape 0 sine, 1 KBD; long 1024, short 128.
  const float* riseLong[2];
  const float* riseShort[2];
};

// Work bytes the kernels keep on the stack for the general transforms.
inline constexpr int kMdctWorkBytes = 16384;

// The rising half of a window of full length n (2048 or 256).
void SineRise(float* w, int n);
void KbdRise(float* w, int n, double alpha);

// Kernels on checked arguments: spectra and time signals in one fixed-point
// format (Q3 in the decoders), computed in float.
// Inverse: `src` 1024 coefficients (long) or 8 x 128; writes the 1024
// output samples as float (the caller rounds) and updates `overlap`.
void MdctInvAac(const MdctAacSpec& s, const Akl32s* src, float* out, Akl32s* overlap, int seq, int shape,
                int prev_shape);
// Forward: 2048 time samples to 1024 coefficients (long) or 8 x 128, rounded.
void MdctFwdAac(const MdctAacSpec& s, const Akl32s* src, Akl32s* dst, int seq, int shape, int prev_shape);
// The same on float samples (the long-term estimate before any rounding).
void MdctFwdAacFloat(const MdctAacSpec& s, const float* src, Akl32s* dst, int seq, int shape, int prev_shape);

// To a 32-bit integer: nearest, halves away from zero, saturated.
inline Akl32s SatRound(double v) {
  if (v != v) return 0;
  const double r = v < 0.0 ? v - 0.5 : v + 0.5;  // halves away from zero
  if (r <= -2147483648.0) return INT32_MIN;
  if (r >= 2147483647.0) return INT32_MAX;
  return static_cast<Akl32s>(r);
}

// ---- long-term prediction ----
inline constexpr int kLtpHistory = 3072;
inline constexpr int kLtpMaxLag = 2047;
inline constexpr int kLtpMaxBands = 40;

}  // namespace akl::aac::predict
