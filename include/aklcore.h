/*
 * aklcore.h - the companion core library of aklac: aligned memory and the
 * processor-feature query.  Valid C99 and C++.
 */
#ifndef AKLCORE_H
#define AKLCORE_H

#if defined(_WIN32)
#define AKLCORE_API __declspec(dllimport)
#elif defined(__GNUC__)
#define AKLCORE_API __attribute__((visibility("default")))
#else
#define AKLCORE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Processor feature bits reported by aklGetEnabledCpuFeatures.  Each is set
 * when CPUID reports the feature; AKL_CPU_AVX, AKL_CPU_AVX2 and AKL_CPU_FMA
 * (the 256-bit register features) are set only when, in addition, the
 * operating system saves the SSE and AVX register state across context
 * switches (OSXSAVE set and XCR0 bits 1 and 2 both enabled).  AKL_CPU_AVX2 is
 * CPUID leaf 7 EBX bit 5, AKL_CPU_FMA leaf 1 ECX bit 12.
 *
 * libaklac reads this mask once, when it is loaded: where both AKL_CPU_AVX2
 * and AKL_CPU_FMA are set it binds the AVX2/FMA members of its tuned kernels,
 * otherwise the SSE2 members (a library built with AKLAC_KERNEL_DISPATCH=OFF
 * has only those).
 */
#define AKL_CPU_MMX    0x0001ULL
#define AKL_CPU_SSE    0x0002ULL
#define AKL_CPU_SSE2   0x0004ULL
#define AKL_CPU_SSE3   0x0008ULL
#define AKL_CPU_SSSE3  0x0010ULL
#define AKL_CPU_MOVBE  0x0020ULL
#define AKL_CPU_SSE41  0x0040ULL
#define AKL_CPU_SSE42  0x0080ULL
#define AKL_CPU_AVX    0x0100ULL
#define AKL_CPU_AES    0x0200ULL
#define AKL_CPU_CLMUL  0x0400ULL
#define AKL_CPU_AVX2   0x8000ULL
#define AKL_CPU_FMA    0x10000ULL
#define AKL_CPU_POPCNT 0x20000ULL

/*
 * Allocates len bytes aligned to 64 bytes.  Returns null if len is below 1
 * or the memory cannot be had.  Release with aklFree.
 */
AKLCORE_API void* aklMalloc(int len);

/* Releases memory from aklMalloc.  A null pointer is ignored. */
AKLCORE_API void aklFree(void* ptr);

/*
 * Returns the mask of processor features (AKL_CPU_*) that the processor
 * reports and the operating system has enabled.
 */
AKLCORE_API unsigned long long aklGetEnabledCpuFeatures(void);

#ifdef __cplusplus
}
#endif

#endif /* AKLCORE_H */
