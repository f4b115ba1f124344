// Kernels of the SBR predictor estimation, for the exports, tests and benchmarks.
#pragma once

#include "aklac.h"

namespace akl::sbr {

// r = 1 - 2^-20, the float with bits 0x3F7FFFF0 (one unit in the last place
// above the float nearest 1/(1 + 1e-6)); det = D*C - r*A^2.
inline constexpr Akl32f kDetR = 0.99999904632568359375f;

// Float members, numBands >= 1 and len >= 1.  Four subbands per SSE2 step;
// each lane adds its terms in slot order, exactly as the scalar tail does, so
// every subband gets the same bits whichever path it takes.
void PredictReal(const Akl32f* const* src, Akl32f* alpha0, Akl32f* alpha1, int num_bands, int len);
void PredictComplexSplit(const Akl32f* const* re, const Akl32f* const* im, Akl32f* a0_re, Akl32f* a0_im,
                         Akl32f* a1_re, Akl32f* a1_im, int num_bands, int len);
void PredictComplex(const Akl32fc* const* src, Akl32fc* alpha0, Akl32fc* alpha1, int num_bands, int len);

// The plain one-subband form of the real member (reference for the vector path).
void PredictRealOneRef(const Akl32f* const* src, int k, int len, Akl32f* alpha0, Akl32f* alpha1);

// Fixed-point members, one subband k >= 0, len >= 1, coefficients in Q29.
void PredictOneLowPower(const Akl32s* const* src, int k, int len, Akl32s* alpha0, Akl32s* alpha1);
void PredictOneHighQuality(const Akl32sc* const* src, int k, int len, Akl32sc* alpha0, Akl32sc* alpha1);

}  // namespace akl::sbr
