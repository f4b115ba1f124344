// Kernel binding at process attach (see dispatch.hpp).
#include "core/dispatch.hpp"

#include "aklcore.h"
#include "mp3/synthesis.hpp"
#include "transform/kernel_members.hpp"

namespace akl {

namespace {

constexpr KernelTable kSse2Members = {
    KernelSet::kSse2,
    &transform::sse2::FftForward,
    &transform::sse2::MdctFwd,
    &transform::sse2::MdctInv,
    &mp3::SynthWindowSum,
};

#if AKLAC_KERNEL_DISPATCH
constexpr KernelTable kAvx2Members = {
    KernelSet::kAvx2Fma,
    &transform::avx2::FftForward,
    &transform::avx2::MdctFwd,
    &transform::avx2::MdctInv,
    &mp3::avx2::SynthWindowSum,
};
#endif

}  // namespace

// Statically bound to the SSE2 members, so a call before attach (or in a build
// without dispatch) runs the baseline.
constinit KernelTable g_kernels = kSse2Members;

const KernelTable* KernelMembers(KernelSet set) {
  switch (set) {
    case KernelSet::kSse2:
      return &kSse2Members;
    case KernelSet::kAvx2Fma:
#if AKLAC_KERNEL_DISPATCH
      return &kAvx2Members;
#else
      return nullptr;
#endif
  }
  return nullptr;
}

bool ProcessorSupports(KernelSet set, unsigned long long features) {
  switch (set) {
    case KernelSet::kSse2:
      return true;
    case KernelSet::kAvx2Fma:
      return (features & AKL_CPU_AVX2) && (features & AKL_CPU_FMA);
  }
  return false;
}

KernelSet BestKernelSet(unsigned long long features) {
  if (KernelMembers(KernelSet::kAvx2Fma) && ProcessorSupports(KernelSet::kAvx2Fma, features)) {
    return KernelSet::kAvx2Fma;
  }
  return KernelSet::kSse2;
}

bool BindKernelSet(KernelSet set) {
  const KernelTable* members = KernelMembers(set);
  if (!members || !ProcessorSupports(set, aklGetEnabledCpuFeatures())) return false;
  g_kernels = *members;
  return true;
}

}  // namespace akl
