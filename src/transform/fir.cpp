// Block FIR filter: each call takes one block of floats and returns the
// tap-weighted sum of it and the blocks of the previous calls.
#include <cstdint>
#include <cstring>

#include "core/context.hpp"
#include "core/exports.hpp"

struct FIRBlockState_32f {
  Akl32f* history;  // order rows of stride floats; row `position` is the newest block
  Akl16s order;     // taps; only the low 16 bits of the argument are kept
  Akl16s len;       // block length, low 16 bits
  Akl16s stride;    // len rounded up to a multiple of 4
  Akl16s position;
  Akl32s tag;       // 58
};

namespace akl::transform {

namespace {

constexpr Akl32s kTagFirBlock = 58;

bool Aligned16(const void* p) { return (reinterpret_cast<std::uintptr_t>(p) & 15u) == 0; }

// A state is where InitAlloc put it, on the allocator's boundary; a pointer
// off the struct's alignment (one passed on at an offset) cannot be one and
// is refused like a wrong tag, without reading it as a state.  A pointer on
// the alignment but inside another block reads zeros or other fields there
// (the block has a zeroed tail), never the tag.
bool IsFirState(const FIRBlockState_32f* p) {
  if (reinterpret_cast<std::uintptr_t>(p) % alignof(FIRBlockState_32f) != 0) return false;
  return p->tag == kTagFirBlock;
}

}  // namespace

Status aklsFIRBlockInitAlloc_32f(FIRBlockState_32f** ppState, int order, int len) {
  if (!ppState) return kStsNullPtr;
  if (order <= 0 || len <= 0) return kStsFIRLenErr;
  auto* st = static_cast<FIRBlockState_32f*>(AllocContextBytes(static_cast<int>(sizeof(FIRBlockState_32f))));
  if (!st) return kStsMemAllocErr;
  // Only the low 16 bits of order and len are kept; the stride is rounded up
  // from the kept length, so no argument value can overflow the arithmetic.
  st->order = static_cast<Akl16s>(order);
  st->len = static_cast<Akl16s>(len);
  st->stride = static_cast<Akl16s>((static_cast<int>(st->len) + 3) & ~3);
  st->tag = kTagFirBlock;
  st->position = 0;
  // The history is sized from the stored 16-bit fields, which the filter uses.
  const int rows = st->order > 0 ? st->order : 0;
  const int stride = st->stride > 0 ? st->stride : 0;
  const int words = rows * stride;
  st->history = words > 0 ? reinterpret_cast<Akl32f*>(AllocWords(words)) : nullptr;
  if (words > 0 && !st->history) {
    Release(st);
    return kStsMemAllocErr;
  }
  if (words > 0) std::memset(st->history, 0, sizeof(Akl32f) * static_cast<std::size_t>(words));
  *ppState = st;
  return kStsOk;
}

Status aklsFIRBlockOne_32f(const Akl32f* pSrc, Akl32f* pDst, FIRBlockState_32f* pState, const Akl32f* pTaps) {
  if (!pSrc || !pDst || !pState || !pTaps) return kStsNullPtr;
  if (!IsFirState(pState)) return kStsContextMismatch;
  const int len = pState->len, order = pState->order, stride = pState->stride;
  if (len <= 0 || order <= 0 || pState->position < 0 || pState->position >= order) return kStsFIRLenErr;
  // A length of 32765..32767 rounds to a stride of 32768, which int16 cannot
  // hold; such a state has no history and is refused as inconsistent too.
  if (stride < len || !pState->history) return kStsFIRLenErr;

  const int pos = (pState->position + 1) % order;
  pState->position = static_cast<Akl16s>(pos);
  Akl32f* newest = pState->history + static_cast<std::ptrdiff_t>(pos) * stride;
  std::memmove(newest, pSrc, sizeof(Akl32f) * static_cast<std::size_t>(len));
  const Akl32f t0 = pTaps[0];
  for (int i = 0; i < len; ++i) pDst[i] = t0 * newest[i];
  // Oldest block first, newest but one last, one element at a time in float.
  for (int m = order - 1; m >= 1; --m) {
    const Akl32f* row = pState->history + static_cast<std::ptrdiff_t>((pos + 1 + (order - 1 - m)) % order) * stride;
    const Akl32f tm = pTaps[m];
    for (int i = 0; i < len; ++i) pDst[i] += tm * row[i];
  }
  return Aligned16(pSrc) && Aligned16(pDst) && Aligned16(pTaps) ? kStsOk : kStsMisalignedWarn;
}

Status aklsFIRBlockFree_32f(FIRBlockState_32f* pState) {
  if (!pState) return kStsNullPtr;
  if (!IsFirState(pState)) return kStsContextMismatch;
  Release(pState->history);
  Release(pState);
  return kStsOk;
}

}  // namespace akl::transform
