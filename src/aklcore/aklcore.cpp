// The companion core library: 64-byte aligned allocation and the processor
// feature query.
#include "aklcore.h"

#include <cpuid.h>
#include <cstdlib>

namespace {

constexpr int kAlignment = 64;

// Bit 0 of XCR0 is x87 state, bit 1 SSE state, bit 2 AVX state: the OS must
// save both SSE and AVX registers before AVX can be reported as enabled.
bool OsSavesAvxState() {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  __cpuid(1, eax, ebx, ecx, edx);
  if (!(ecx & (1u << 27))) return false;  // OSXSAVE
  unsigned lo = 0, hi = 0;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  return (lo & 6u) == 6u;
}

}  // namespace

extern "C" void* aklMalloc(int len) {
  if (len < 1) return nullptr;
  // aligned_alloc wants a size that is a multiple of the alignment.
  size_t size = (static_cast<size_t>(len) + kAlignment - 1) & ~static_cast<size_t>(kAlignment - 1);
  return std::aligned_alloc(kAlignment, size);
}

extern "C" void aklFree(void* ptr) { std::free(ptr); }

extern "C" unsigned long long aklGetEnabledCpuFeatures(void) {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  unsigned long long mask = 0;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return 0;
  if (edx & (1u << 23)) mask |= AKL_CPU_MMX;
  if (edx & (1u << 25)) mask |= AKL_CPU_SSE;
  if (edx & (1u << 26)) mask |= AKL_CPU_SSE2;
  if (ecx & (1u << 0)) mask |= AKL_CPU_SSE3;
  if (ecx & (1u << 9)) mask |= AKL_CPU_SSSE3;
  if (ecx & (1u << 22)) mask |= AKL_CPU_MOVBE;
  if (ecx & (1u << 19)) mask |= AKL_CPU_SSE41;
  if (ecx & (1u << 20)) mask |= AKL_CPU_SSE42;
  if (ecx & (1u << 23)) mask |= AKL_CPU_POPCNT;
  if (ecx & (1u << 25)) mask |= AKL_CPU_AES;
  if (ecx & (1u << 1)) mask |= AKL_CPU_CLMUL;
  const bool avx_ok = (ecx & (1u << 28)) && OsSavesAvxState();
  if (avx_ok) {
    mask |= AKL_CPU_AVX;
    if (ecx & (1u << 12)) mask |= AKL_CPU_FMA;
    unsigned a7 = 0, b7 = 0, c7 = 0, d7 = 0;
    if (__get_cpuid_count(7, 0, &a7, &b7, &c7, &d7) && (b7 & (1u << 5))) mask |= AKL_CPU_AVX2;
  }
  return mask;
}
