// The members of the tuned transform kernels: the same source (fft_member.inc,
// mdct_member.inc) compiled once per instruction set into its own namespace.
// core/dispatch.hpp binds one member at process attach; the tests run every
// member the processor has against the plain references.
#pragma once

#include "aklac.h"
#include "transform/fft.hpp"
#include "transform/mdct.hpp"

#define AKL_DECLARE_TRANSFORM_MEMBER(set)                                                        \
  namespace akl::transform::set {                                                               \
  void FftForward(const FFTSpec_C_32fc& spec, const Akl32fc* src, Akl32fc* dst, Akl8u* work);  \
  void FftSplitBitReversed(const FFTSpec_C_32fc& spec, float* re, float* im);                 \
  void MdctFwd(const MdctSpec& s, const float* x, float* y, Akl32fc* z);                       \
  void MdctInv(const MdctSpec& s, const float* x, float* y, Akl32fc* z);                       \
  }

// SSE2: the baseline, built in every configuration.
AKL_DECLARE_TRANSFORM_MEMBER(sse2)
// AVX2 and FMA: built unless AKLAC_KERNEL_DISPATCH is off.
AKL_DECLARE_TRANSFORM_MEMBER(avx2)

#undef AKL_DECLARE_TRANSFORM_MEMBER
