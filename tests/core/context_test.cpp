#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/context.hpp"
#include "../support/alloc_hook.hpp"

namespace {

// A small context of each alignment class, built with the shared helpers the
// way a family builds its own.
struct TestSpec {
  akl::ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s payload[6];
};
constexpr akl::ContextTag kTestTag = akl::kTagSynthesisDts;

bool IsTestSpec(const TestSpec& s) { return s.tag == kTestTag; }

void Build(void* raw, std::size_t align, int owned) {
  TestSpec* s = akl::ContextAt<TestSpec>(raw, align);
  s->tag = kTestTag;
  s->ownedByLibrary = owned;
  for (int i = 0; i < 6; ++i) s->payload[i] = i;
}

TEST(Context, AlignUpFormula) {
  for (std::size_t align : {16u, 64u}) {
    for (std::uintptr_t p = 4096; p < 4096 + 2 * align; ++p) {
      const auto q = reinterpret_cast<std::uintptr_t>(akl::AlignUp(reinterpret_cast<char*>(p), align));
      EXPECT_EQ(q % align, 0u);
      EXPECT_GE(q, p);
      EXPECT_LT(q - p, align);
    }
  }
}

TEST(Context, BuildsAtEveryOffsetWithinSlack) {
  for (std::size_t align : {16u, 64u}) {
    const std::size_t size = sizeof(TestSpec) + align;
    std::vector<unsigned char> mem(size + 128, 0xAA);
    const std::uintptr_t base = (reinterpret_cast<std::uintptr_t>(mem.data()) + 63) & ~std::uintptr_t{63};
    for (std::size_t off = 0; off < 64; ++off) {
      SCOPED_TRACE(off);
      auto* raw = reinterpret_cast<unsigned char*>(base + off);
      Build(raw, align, 0);
      const auto* s = akl::TaggedContext<TestSpec>(static_cast<const void*>(raw), align, kTestTag);
      ASSERT_NE(s, nullptr);
      const auto pos = reinterpret_cast<const unsigned char*>(s);
      EXPECT_EQ(static_cast<std::size_t>(pos - raw), (align - off % align) % align);
      EXPECT_LE(static_cast<std::size_t>(pos - raw) + sizeof(TestSpec), size);
    }
  }
}

TEST(Context, FreeClearingTagOnCallerMemory) {
  alignas(64) unsigned char mem[256];
  void* raw = mem + 1;
  Build(raw, 64, 0);
  const int live = akl::test::LiveAllocations();
  akl::FreeClearingTag<TestSpec>(raw, 64, IsTestSpec);
  EXPECT_EQ(akl::test::LiveAllocations(), live);
  EXPECT_EQ(akl::TaggedContext<TestSpec>(static_cast<const void*>(raw), 64, kTestTag), nullptr);
  akl::FreeClearingTag<TestSpec>(nullptr, 64, IsTestSpec);  // harmless
  // Memory it does not recognise (here the context freed above, whose owner
  // field says 1) is neither written nor released.
  akl::ContextAt<TestSpec>(raw, 64)->ownedByLibrary = 1;
  akl::FreeClearingTag<TestSpec>(raw, 64, IsTestSpec);
  EXPECT_EQ(akl::test::LiveAllocations(), live);
}

TEST(Context, FreeKeepingTagForms) {
  alignas(64) unsigned char mem[256];
  void* raw = mem + 3;
  EXPECT_EQ(akl::FreeKeepingTag<TestSpec>(nullptr, 16, kTestTag), kStsNullPtr);
  Build(raw, 16, 0);
  EXPECT_EQ(akl::FreeKeepingTag<TestSpec>(raw, 16, kTestTag + 1), kStsContextMismatch);
  EXPECT_EQ(akl::FreeKeepingTag<TestSpec>(raw, 16, kTestTag), kStsOk);
  // The tag is left as it was.
  EXPECT_NE(akl::TaggedContext<TestSpec>(static_cast<const void*>(raw), 16, kTestTag), nullptr);
}

TEST(Context, InitAllocOwnsAndFrees) {
  for (std::size_t align : {16u, 64u}) {
    const int live = akl::test::LiveAllocations();
    void* raw = nullptr;
    const int size = static_cast<int>(sizeof(TestSpec) + align);
    ASSERT_EQ(akl::InitAllocWith(size, &raw, [&](void* r) {
                Build(r, align, 1);
                return kStsOk;
              }),
              kStsOk);
    EXPECT_EQ(akl::test::LiveAllocations(), live + 1);
    if (align == 64) {
      akl::FreeClearingTag<TestSpec>(raw, align, IsTestSpec);
    } else {
      EXPECT_EQ(akl::FreeKeepingTag<TestSpec>(raw, align, kTestTag), kStsOk);
    }
    EXPECT_EQ(akl::test::LiveAllocations(), live);
  }
}

// A context from InitAlloc passed on at +1..63: the operation aligns up to 64
// bytes further and reads a header there; the block's zeroed tail holds it.
TEST(Context, InitAllocBlockHasAZeroTailForMisplacedPointers) {
  for (int size : {24, 40, 64, 200}) {
    void* raw = nullptr;
    ASSERT_EQ(akl::InitAllocWith(size, &raw, [&](void* r) {
                std::memset(r, 0xAB, static_cast<std::size_t>(size));
                return kStsOk;
              }),
              kStsOk);
    const auto* bytes = static_cast<const unsigned char*>(raw);
    for (int i = size; i < size + akl::kContextTail; ++i) ASSERT_EQ(bytes[i], 0) << size << " " << i;
    for (std::size_t off = 1; off < 64; ++off) {
      for (std::size_t align : {16u, 64u}) {
        const auto* at = akl::ContextAt<TestSpec>(static_cast<const void*>(bytes + off), align);
        EXPECT_LE(reinterpret_cast<const unsigned char*>(at) + 64, bytes + size + akl::kContextTail);
      }
    }
    akl::Release(raw);
  }
  EXPECT_EQ(akl::AllocContextBytes(0), nullptr);
  EXPECT_EQ(akl::AllocContextBytes(INT_MAX - akl::kContextTail + 1), nullptr);
}

TEST(Context, InitAllocFailureLeavesPointerUnwritten) {
  void* sentinel = reinterpret_cast<void*>(0x1234);
  void* raw = sentinel;
  akl::test::FailAllocationsAfter(0);
  const Status st = akl::InitAllocWith(64, &raw, [](void*) { return kStsOk; });
  akl::test::FailAllocationsAfter(-1);
  EXPECT_EQ(st, kStsMemAllocErr);
  EXPECT_EQ(raw, sentinel);
}

TEST(Memory, Helpers) {
  const int calls = akl::test::AllocationCalls();
  EXPECT_EQ(akl::AllocBytes(0), nullptr);
  EXPECT_EQ(akl::AllocBytes(-5), nullptr);
  EXPECT_EQ(akl::AllocWords(0), nullptr);
  EXPECT_EQ(akl::test::AllocationCalls(), calls);  // the allocator is not asked

  Akl32s* w = akl::AllocWords(5);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(w) % 64, 0u);
  for (int i = 0; i < 5; ++i) w[i] = -1;
  EXPECT_EQ(akl::ZeroWords(nullptr, 5), kStsNullPtr);
  EXPECT_EQ(akl::ZeroWords(w, 0), kStsSizeErr);
  EXPECT_EQ(w[0], -1);
  EXPECT_EQ(akl::ZeroWords(w, 5), kStsOk);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(w[i], 0);
  akl::Release(w);
  akl::Release(nullptr);
}

TEST(Memory, ProcessFeatureFlagIsBinary) {
  const int flag = akl::ProcessorFeatureFlag();
  EXPECT_TRUE(flag == 0 || flag == 1);
}

}  // namespace
