// The AVX2/FMA member of the float FFT and MDCT kernels: the same source as
// the SSE2 member, compiled with -mavx2 -mfma (CMakeLists.txt gives every
// *_avx2.cpp those flags).  Bound at process attach only where the processor
// and the operating system support both (core/dispatch.cpp).  Its results
// differ from the SSE2 member's only by rounding: fused multiply-adds round
// once where the SSE2 member rounds twice.
#define AKL_KERNEL_MEMBER avx2
#include "transform/kernel_members.hpp"
#include "transform/fft_member.inc"
#include "transform/mdct_member.inc"
