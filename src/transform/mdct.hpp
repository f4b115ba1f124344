// The general MDCT's context layout and kernels, shared with the tests.
#pragma once

#include "aklac.h"
#include "core/context.hpp"

namespace akl::transform {

inline constexpr ContextTag kTagMdctFwd32f = 55;
inline constexpr ContextTag kTagMdctInv32f = 56;
inline constexpr ContextTag kTagMdctFwd16s = 57;

// The 40-byte header shared by the three MDCT contexts.
struct MdctSpec {
  ContextTag tag;        // 55, 56 or 57; 0 after Free
  Akl32s len;            // N
  Akl32s bufSize;        // work bytes a transform allocates when given no buffer
  Akl32s order;          // log2(N/4); 0 for N = 12 and 36
  Akl32s ownedByLibrary; // 1 after InitAlloc
  Akl32s reserved;
  void* table;           // N/4 pairs (s_j, c_j): float, or int16 Q14 for tag 57
  void* fft;             // raw pointer of the FFT context; null for N = 12 and 36
};
static_assert(sizeof(MdctSpec) == 40);

// Kernels on valid arguments.  `z` (float) and `work` (16-bit) are 64-byte
// aligned work buffers of the context's size.
// MdctXxxKernel picks the SSE2 form for powers of two from 64 and the plain
// reference (the algorithm step by step, scalar) otherwise.  Out of place or
// in place: every input is read before the first output is written.
void MdctFwdKernel(const MdctSpec& s, const float* x, float* y, Akl32fc* z);
void MdctInvKernel(const MdctSpec& s, const float* x, float* y, Akl32fc* z);
void MdctFwdRef(const MdctSpec& s, const float* x, float* y, Akl32fc* z);
void MdctInvRef(const MdctSpec& s, const float* x, float* y, Akl32fc* z);
void MdctFwdSse2(const MdctSpec& s, const float* x, float* y, Akl32fc* z);
void MdctInvSse2(const MdctSpec& s, const float* x, float* y, Akl32fc* z);
void MdctFwd16Kernel(const MdctSpec& spec, const Akl16s* x, Akl16s* y, int scale_factor, Akl8u* work);

}  // namespace akl::transform
