// The internal complex FFT of power-of-two length: a float kernel
// (FFTSpec_C_32fc, tag 4) and a 16-bit kernel with a scale factor
// (FFTSpec_C_16sc, tag 1).  No exports of its own; the MDCT builds on it.
//
// Forward transform: Z[k] = sum_n z[n] e^(-2 pi i n k / M), M = 2^order, times
// the normalisation chosen at init (flag 8 none, 4 1/sqrt(M) both ways, 1 1/M
// forward, 2 1/M inverse).
//
// Float kernel: radix-4 decimation in time over binary bit-reversed input
// (odd orders start with one radix-2 pass), two complex values per SSE2
// register.  Stage twiddles depend only on the stage, so the stages of every
// order form a prefix of one of two sequences (first radix-4 stage of size 4L
// with L = 4, 16, 64, ... for even orders, L = 2, 8, 32, ... for odd ones).
#pragma once

#include <cstdint>

#include "aklac.h"
#include "core/context.hpp"

namespace akl::transform {

inline constexpr ContextTag kTagFft32fc = 4;
inline constexpr ContextTag kTagFft16sc = 1;
inline constexpr int kFftMaxOrder32fc = 27;
inline constexpr int kFftMaxOrder16sc = 30;
// Integer 16-bit kernel below this order (hint 0/1); the float path above.
inline constexpr int kFftIntegerOrderLimit = 9;

struct FFTSpec_C_32fc {
  ContextTag tag;          // 4
  Akl32s order;
  Akl32s fwdDivide;        // 0/1
  Akl32s invDivide;        // 0/1
  Akl32f normFactor;       // 1/M or 1/sqrt(M); 1 with flag 8
  Akl32s hint;             // stored as passed
  Akl32s workSize;         // bytes; 0: the kernel runs in the destination
  Akl32s reserved;         // 0
  const Akl32f* twiddles;  // stage twiddles, see StageTwiddleOffset
  const Akl32s* bitRev;    // unused: the permutation is computed while walking
};

struct FFTSpec_C_16sc {
  ContextTag tag;          // 1
  Akl32s order;
  Akl32s fwdShift;
  Akl32s invShift;
  Akl32s halfSqrt2;        // 1: one extra 1/sqrt(2) step (flag 4, odd order)
  Akl32s hint;
  Akl32s workSize;         // bytes, including 64 of alignment slack
  Akl32s floatKernel;      // 1: convert and run the embedded float context
  Akl32s ownedByLibrary;
  Akl32s reserved;
  const Akl32s* twiddles;  // radix-2 twiddles in Q30, (cos, -sin) pairs
  const Akl32s* bitRev;    // unused
  const FFTSpec_C_32fc* floatSpec;  // raw pointer of the embedded float context
};

// Float kernel.
Status fftGetSize_C_32fc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize);
Status fftInit_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit);
Status fftInitAlloc_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint);
Status fftFree_C_32fc(FFTSpec_C_32fc* pSpec);
Status fftGetBufSize_C_32fc(const FFTSpec_C_32fc* pSpec, int* pSize);
Status fftFwd_CToC_32fc(const Akl32fc* pSrc, Akl32fc* pDst, const FFTSpec_C_32fc* pSpec, Akl8u* pBuffer);

// 16-bit kernel.
Status fftGetSize_C_16sc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize);
Status fftInit_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit);
Status fftInitAlloc_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint);
Status fftFree_C_16sc(FFTSpec_C_16sc* pSpec);
Status fftGetBufSize_C_16sc(const FFTSpec_C_16sc* pSpec, int* pSize);
Status fftFwd_CToC_16sc_Sfs(const Akl16sc* pSrc, Akl16sc* pDst, const FFTSpec_C_16sc* pSpec, int scaleFactor,
                            Akl8u* pBuffer);

// Kernels for callers that have checked their arguments (the MDCT).

// Forward transform of data already in binary bit-reversed order, in place,
// unnormalised.  `spec` is the aligned context.
void FftBitReversedInPlace(const FFTSpec_C_32fc& spec, Akl32fc* data);
// The full float transform (permutation, passes, normalisation); src may equal dst.
void FftForward(const FFTSpec_C_32fc& spec, const Akl32fc* src, Akl32fc* dst);
// Plain radix-2 reference of FftForward: float arithmetic, twiddles from
// std::cos/std::sin in double, natural order in and out, unnormalised.
void FftRef(const Akl32fc* src, Akl32fc* dst, int order);
// 16-bit transform on an aligned context; `work` holds the work size.
void Fft16Forward(const FFTSpec_C_16sc& spec, const Akl16sc* src, Akl16sc* dst, int scale_factor, Akl8u* work);

// Reverses the low `bits` bits of v.
inline std::uint32_t ReverseBits(std::uint32_t v, int bits) {
  v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
  v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
  v = ((v >> 4) & 0x0F0F0F0Fu) | ((v & 0x0F0F0F0Fu) << 4);
  v = ((v >> 8) & 0x00FF00FFu) | ((v & 0x00FF00FFu) << 8);
  v = (v >> 16) | (v << 16);
  return bits == 0 ? 0 : v >> (32 - bits);
}

// int32 to int16 with shift f: f > 0 (capped at 31) rounds half to even,
// f < 0 (floored at -15) shifts left, both saturate.
inline Akl16s ShiftToS16(Akl32s v, int f) {
  if (f > 0) {
    if (f > 31) f = 31;
    const std::int64_t w = v;
    const std::int64_t r = (w + (std::int64_t{1} << (f - 1)) - 1 + ((w >> f) & 1)) >> f;
    return static_cast<Akl16s>(r > 32767 ? 32767 : (r < -32768 ? -32768 : r));
  }
  if (f < 0) {
    if (f < -15) f = -15;
    const int l = -f;
    if (v < (-32768 >> l)) return -32768;
    if (v > (32767 >> l)) return 32767;
    return static_cast<Akl16s>(v * (1 << l));
  }
  return static_cast<Akl16s>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

}  // namespace akl::transform
