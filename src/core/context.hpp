// Context objects: tags, alignment, the GetSize/Init/InitAlloc/Free pattern
// and the memory helpers every family uses.
//
// A context lives at the first 16- or 64-byte boundary inside the memory that
// holds it; the caller always passes the raw pointer and every operation
// aligns it the same way before it reads the tag.  A family's context struct
// names its fields `tag` and `ownedByLibrary`, wherever they sit in its layout.
#pragma once

#include <cstddef>
#include <cstdint>

#include "aklac.h"

namespace akl {

using ContextTag = Akl32u;

// Tags: 0x434D4100 ("CMA" in the top three bytes) plus the type number.
inline constexpr ContextTag kTagAnalysisSbrRToC32f32fc = 0x434D4156;
inline constexpr ContextTag kTagAnalysisSbrRToC32f = 0x434D4157;
inline constexpr ContextTag kTagAnalysisSbrRToR32f = 0x434D4158;
inline constexpr ContextTag kTagSynthesisSbrCToR32fc32f = 0x434D4159;
inline constexpr ContextTag kTagSynthesisSbrCToR32f = 0x434D415A;
inline constexpr ContextTag kTagSynthesisSbrRToR32f = 0x434D415B;
inline constexpr ContextTag kTagSynthesisDownSbrCToR32fc32f = 0x434D415C;
inline constexpr ContextTag kTagSynthesisDownSbrCToR32f = 0x434D415D;
inline constexpr ContextTag kTagSynthesisDownSbrRToR32f = 0x434D415E;
inline constexpr ContextTag kTagVlcEncode = 0x434D415F;
inline constexpr ContextTag kTagVlcDecode = 0x434D4160;  // plain and tuple decoders alike
inline constexpr ContextTag kTagAnalysisSbrHq32s = 0x434D4161;
inline constexpr ContextTag kTagAnalysisSbrLp32s = 0x434D4162;
inline constexpr ContextTag kTagSynthesisSbrHq32s = 0x434D4163;
inline constexpr ContextTag kTagSynthesisSbrLp32s = 0x434D4164;
inline constexpr ContextTag kTagSynthesisDownSbrHq32s = 0x434D4165;
inline constexpr ContextTag kTagSynthesisDownSbrLp32s = 0x434D4166;
inline constexpr ContextTag kTagSynthesisPqmfMp3 = 0x434D4167;
inline constexpr ContextTag kTagAnalysisPqmfMp3 = 0x434D4168;
// 0x434D4169 is not used.
inline constexpr ContextTag kTagAnalysisEncSbr = 0x434D416A;
inline constexpr ContextTag kTagSynthesisDts = 0x434D416B;
inline constexpr ContextTag kTagHybridPs32fc = 0x434D416C;  // parametric-stereo hybrid analysis

inline constexpr std::size_t kVlcContextAlign = 64;
inline constexpr std::size_t kContextAlign = 16;
inline constexpr std::size_t kTransformContextAlign = 64;

// p + ((A - (p mod A)) mod A): unchanged if already aligned.
template <class T>
inline T* AlignUp(T* p, std::size_t a) {
  const auto addr = reinterpret_cast<std::uintptr_t>(p);
  return reinterpret_cast<T*>(addr + ((a - addr % a) % a));
}

// The context of type Ctx that a caller's raw pointer stands for.
template <class Ctx>
inline Ctx* ContextAt(void* raw, std::size_t align) {
  return reinterpret_cast<Ctx*>(AlignUp(static_cast<char*>(raw), align));
}
template <class Ctx>
inline const Ctx* ContextAt(const void* raw, std::size_t align) {
  return reinterpret_cast<const Ctx*>(AlignUp(static_cast<const char*>(raw), align));
}

// The context behind raw if it carries `tag`, else null.
template <class Ctx>
inline const Ctx* TaggedContext(const void* raw, std::size_t align, ContextTag tag) {
  const Ctx* ctx = ContextAt<Ctx>(raw, align);
  return ctx->tag == tag ? ctx : nullptr;
}
template <class Ctx>
inline Ctx* TaggedContext(void* raw, std::size_t align, ContextTag tag) {
  Ctx* ctx = ContextAt<Ctx>(raw, align);
  return ctx->tag == tag ? ctx : nullptr;
}

// Memory helpers.  All allocation of the library goes through these.
void* AllocBytes(int n);       // null for n < 1 (allocator not called) or on failure
// Memory for a context that InitAlloc hands out: n bytes followed by
// kContextTail more, all zeroed.  A caller who passes the pointer on at +1..63
// makes an operation align to a boundary up to 64 bytes further and read a
// header of up to 64 bytes there (or, unaligned, a tag at most 83 bytes in):
// that stays inside the block, and the zeros never form a tag.
inline constexpr int kContextTail = 128;
void* AllocContextBytes(int n);  // null for n < 1, n too large, or on failure
Akl32s* AllocWords(int n);     // n 32-bit words; null for n < 1 or on failure
void Release(void* p);         // aklFree; null ignored
Status ZeroWords(Akl32s* p, int n);  // -8 for null, -6 for n < 1

// InitAlloc: allocate `size` bytes, store the raw pointer in *pp_raw and build
// the context there with ownedByLibrary = 1.  `build(raw)` returns the Init
// status; a failure found only while building (a VLC prefix conflict) is
// reported with *pp_raw already written, the caller then frees it.
template <class Raw, class Build>
inline Status InitAllocWith(int size, Raw** pp_raw, Build build) {
  void* raw = AllocContextBytes(size);
  if (!raw) return kStsMemAllocErr;
  *pp_raw = static_cast<Raw*>(raw);
  return build(static_cast<Raw*>(raw));
}

// Free of the VLC contexts: returns nothing, ignores null, clears the tag so
// that later use of a stale context fails, and releases what InitAlloc got.
// Memory that `is_context` does not recognise (a context freed before, a
// pointer passed on at another offset, foreign memory) is left alone: its
// owner field means nothing, and releasing by it would free a wrong block.
template <class Ctx, class IsContext>
inline void FreeClearingTag(void* raw, std::size_t align, IsContext is_context) {
  if (!raw) return;
  Ctx* ctx = ContextAt<Ctx>(raw, align);
  if (!is_context(*ctx)) return;
  ctx->tag = 0;
  if (ctx->ownedByLibrary == 1) Release(raw);
}

// Free of the filter-bank contexts: -8 for null, -17 for a wrong tag (nothing
// released), otherwise releases what InitAlloc got and leaves the tag as it was.
template <class Ctx>
inline Status FreeKeepingTag(void* raw, std::size_t align, ContextTag tag) {
  if (!raw) return kStsNullPtr;
  Ctx* ctx = ContextAt<Ctx>(raw, align);
  if (ctx->tag != tag) return kStsContextMismatch;
  if (ctx->ownedByLibrary == 1) Release(raw);
  return kStsOk;
}

// Process-attach state: 1 if the processor reports both feature bits 0x20 and
// 0x10.  No operation reads it; kernel members are chosen by the AVX2 and FMA
// bits instead (core/dispatch.hpp).
int ProcessorFeatureFlag();

}  // namespace akl
