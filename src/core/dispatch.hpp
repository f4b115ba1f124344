// Kernel binding: the tuned kernels that exist in more than one member (one
// per instruction set) are called through one table of pointers, bound once
// at process attach to the best member the processor supports.  Nothing is
// chosen per call.  A build with AKLAC_KERNEL_DISPATCH off has only the SSE2
// members and never rebinds.
#pragma once

#include <cstdint>

#include "aklac.h"

namespace akl {

namespace transform {
struct FFTSpec_C_32fc;
struct MdctSpec;
}  // namespace transform

// The instruction sets that kernel members are built for.
enum class KernelSet : int {
  kSse2 = 0,     // the baseline: x86-64 with SSE2, every build
  kAvx2Fma = 1,  // AVX2 and FMA (aklcore's AKL_CPU_AVX2 and AKL_CPU_FMA, with the OS saving ymm state)
};

struct KernelTable {
  KernelSet set;
  void (*fft_forward)(const transform::FFTSpec_C_32fc& spec, const Akl32fc* src, Akl32fc* dst, Akl8u* work);
  void (*mdct_fwd)(const transform::MdctSpec& s, const float* x, float* y, Akl32fc* z);
  void (*mdct_inv)(const transform::MdctSpec& s, const float* x, float* y, Akl32fc* z);
  void (*synth_window_sum)(const std::int32_t* history_q25, int slot0, std::int16_t* pcm, int stride);
};

// The bound table.  Written only at process attach (and by the test hook
// BindKernelSet); read by every call of a dispatched kernel.
extern KernelTable g_kernels;
inline const KernelTable& Kernels() { return g_kernels; }

// The member table of a set, or null when this build does not contain it.
const KernelTable* KernelMembers(KernelSet set);
// True when the processor-feature mask (aklGetEnabledCpuFeatures) allows the set.
bool ProcessorSupports(KernelSet set, unsigned long long features);
// The best set that both this build and the processor support.
KernelSet BestKernelSet(unsigned long long features);
// Binds the members of `set`.  Process attach calls it with the best set; tests
// call it to run the library on another member (not while other threads call
// the library).  Returns false, binding nothing, when the set is not built in
// or the processor lacks it.
bool BindKernelSet(KernelSet set);

}  // namespace akl
