// The internal complex FFT of power-of-two length: a float kernel
// (FFTSpec_C_32fc, tag 4) and a 16-bit kernel with a scale factor
// (FFTSpec_C_16sc, tag 1).  No exports of its own; the MDCT builds on it.
//
// Forward transform: Z[k] = sum_n z[n] e^(-2 pi i n k / M), M = 2^order, times
// the normalisation chosen at init (flag 8 none, 4 1/sqrt(M) both ways, 1 1/M
// forward, 2 1/M inverse).
//
// Float kernel (fft_member.inc, one member per instruction set): decimation
// in time over binary bit-reversed input on split real/imaginary arrays, four
// complex values per SSE2 register pair (eight per AVX2 pair in the AVX2
// member's radix-8 stages).  The
// first pass reads the input (interleaved complex, or the MDCT's
// pre-twiddled values) and stores its results at their bit-reversed places:
// radix 8 (an 8-point DFT per lane, two transposes) for orders 5..10 and odd
// orders above, radix 4 for order 4 and even orders above 10.  Orders 4..10
// then run as fixed-order code with constant sizes: radix-8 stages where
// three levels remain to fill, radix 4 otherwise (64 points: 8x8, 128:
// 8x4x4, 256: 8x8x4, 512: 8x8x8, 1024: 8x8x4x4), the last stage writing
// the interleaved result and the normalisation, so the public transform makes
// two to four passes over L1-resident scratch on the stack.  Orders 0..3 are
// straight-line.  Orders above 10 use radix-4 stages with twiddles planned
// into the context and split scratch in the work buffer.  Radix-4 stage
// twiddles depend only on the block size L, so every order's stages are a
// prefix of one of two sequences (L = 4, 16, 64, ... or 8, 32, 128, ...);
// radix-8 stage twiddles are one constant table for L = 4 .. 128.  The
// plain radix-2 FftRef is the reference the tests compare with.
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
  Akl32s workSize;         // bytes of split scratch (orders above 10), else 0
  Akl32s reserved;         // 0
  const Akl32f* twiddles;  // radix-4 stage twiddles, stage after stage (fft.cpp, FillStages)
  const std::uint16_t* bitRev;  // reversal of 10-bit indices (orders <= 10, shifted down); null above
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
  const std::uint16_t* bitRev;  // as in FFTSpec_C_32fc
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

// Bit-reversed position of i among 2^order values.
std::uint32_t BitReverseIndex(std::uint32_t i, int order);
// Forward transform of split data (real and imaginary parts in two 16-byte
// aligned arrays of max(M, 4) floats) given in bit-reversed order, in place,
// natural order out, unnormalised.  `spec` is the aligned context.  Always
// the SSE2 member (the MDCT's plain reference runs on it).
void FftSplitBitReversed(const FFTSpec_C_32fc& spec, float* re, float* im);
// The full float transform (permutation, passes, normalisation) of the bound
// kernel member; src may equal dst.  `work` holds the context's work size
// (orders above 10 only).
void FftForward(const FFTSpec_C_32fc& spec, const Akl32fc* src, Akl32fc* dst, Akl8u* work);
// Plain radix-2 reference of FftForward: float arithmetic, twiddles from
// std::cos/std::sin in double, natural order in and out, unnormalised.
void FftRef(const Akl32fc* src, Akl32fc* dst, int order);
// 16-bit transform on an aligned context; `work` holds the work size.
void Fft16Forward(const FFTSpec_C_16sc& spec, const Akl16sc* src, Akl16sc* dst, int scale_factor, Akl8u* work);

inline constexpr float kFftSqrtHalf = 0.70710678118654752f;

// Reverses the low `bits` bits of v.
inline constexpr std::uint32_t ReverseBits(std::uint32_t v, int bits) {
  v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
  v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
  v = ((v >> 4) & 0x0F0F0F0Fu) | ((v & 0x0F0F0F0Fu) << 4);
  v = ((v >> 8) & 0x00FF00FFu) | ((v & 0x00FF00FFu) << 8);
  v = (v >> 16) | (v << 16);
  return bits == 0 ? 0 : v >> (32 - bits);
}

// int32 to int16 with shift f: f > 0 (capped at 31) rounds half to even,
// f < 0 (floored at -15) shifts left, both saturate.
// A shift formed from a caller's scale factor, in 64 bits, brought to the
// range ShiftToS16 distinguishes (-15..31); nothing beyond it changes a result.
inline int ClampShift(std::int64_t f) { return static_cast<int>(f < -15 ? -15 : (f > 31 ? 31 : f)); }

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
