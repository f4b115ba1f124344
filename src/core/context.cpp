// Memory helpers and the process-attach routine (allocator entry points, the
// processor flag, the binding of kernel members).
#include "core/context.hpp"

#include <climits>
#include <cstring>

#include "aklcore.h"
#include "core/dispatch.hpp"

namespace akl {

namespace {

int g_processor_flag = 0;

// The allocator entry points the library uses; recorded at attach.
void* (*g_malloc)(int) = nullptr;
void (*g_free)(void*) = nullptr;

__attribute__((constructor)) void AttachProcess() {
  g_malloc = &aklMalloc;
  g_free = &aklFree;
  const unsigned long long features = aklGetEnabledCpuFeatures();
  g_processor_flag = ((features & 0x20) && (features & 0x10)) ? 1 : 0;
  // The tuned kernels' members are bound here, once (core/dispatch.hpp).
  BindKernelSet(BestKernelSet(features));
}

}  // namespace

int ProcessorFeatureFlag() { return g_processor_flag; }

void* AllocBytes(int n) {
  if (n < 1) return nullptr;
  return g_malloc ? g_malloc(n) : aklMalloc(n);
}

void* AllocContextBytes(int n) {
  if (n < 1 || n > INT_MAX - kContextTail) return nullptr;
  void* p = AllocBytes(n + kContextTail);
  if (p) std::memset(p, 0, static_cast<std::size_t>(n) + kContextTail);
  return p;
}

Akl32s* AllocWords(int n) {
  if (n < 1 || n > (1 << 29)) return nullptr;
  return static_cast<Akl32s*>(AllocBytes(n * 4));
}

void Release(void* p) {
  if (!p) return;
  if (g_free) {
    g_free(p);
  } else {
    aklFree(p);
  }
}

Status ZeroWords(Akl32s* p, int n) {
  if (!p) return kStsNullPtr;
  if (n < 1) return kStsSizeErr;
  std::memset(p, 0, static_cast<std::size_t>(n) * 4);
  return kStsOk;
}

}  // namespace akl
