// The SSE2 member of the float FFT and MDCT kernels (the baseline of every
// build; compiled with the default x86-64 flags).
#define AKL_KERNEL_MEMBER sse2
#include "transform/kernel_members.hpp"
#include "transform/fft_member.inc"
#include "transform/mdct_member.inc"
