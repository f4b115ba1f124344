// Allocation failure everywhere the library allocates: every InitAlloc and
// every operation that takes scratch from the allocator when the caller gives
// no work buffer.  For each, the n-th allocation fails for n = 0, 1, ... until
// the call succeeds: each failing run must return kStsMemAllocErr, leave the
// output pointer unwritten and nothing live (LeakSanitizer checks the rest at
// exit), and the final, successful run must give the same result as an
// undisturbed call.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "aklac.h"
#include "../support/alloc_hook.hpp"
#include "transform/fft.hpp"

namespace {

using akl::test::LiveAllocations;
using akl::test::SweepAllocationFailures;

// A small book: lengths 1..4 plus two 5-bit codes; the value 1000 makes the
// table 16-bit, so negative values come back negative.
const std::vector<VlcCodeEntry> kBook = {
    {0, 0x0, 1}, {1, 0x2, 2}, {-1, 0x6, 3}, {2, 0xE, 4}, {-2, 0x1E, 5}, {1000, 0x1F, 5}};
const int kSizes[] = {2, 2, 2};

// Sweeps an InitAlloc-style call: `make` writes its context through the
// pointer it is given; the pointer must stay at the sentinel while the
// allocation fails.  Returns the built context.
template <class T>
T* SweepInitAlloc(const std::function<Status(T**)>& make, const std::function<void(T*)>& destroy) {
  T* const sentinel = reinterpret_cast<T*>(alignof(std::max_align_t) * 3);
  T* ctx = sentinel;
  const Status st = SweepAllocationFailures(
      [&] {
        ctx = sentinel;
        const Status s = make(&ctx);
        if (s == kStsMemAllocErr) {
          EXPECT_EQ(ctx, sentinel) << "output written on allocation failure";
        }
        return s;
      },
      [&] {
        if (ctx != sentinel) destroy(ctx);
      });
  EXPECT_EQ(st, kStsOk);
  return st == kStsOk ? ctx : nullptr;
}

TEST(AllocationFailure, VlcDecodeInitAlloc) {
  const int live = LiveAllocations();
  auto* spec = SweepInitAlloc<aklsVLCDecodeSpec_32s>(
      [](aklsVLCDecodeSpec_32s** pp) { return aklsVLCDecodeInitAlloc_32s(kBook.data(), 6, kSizes, 3, pp); },
      aklsVLCDecodeFree_32s);
  ASSERT_NE(spec, nullptr);
  // The context built after the failures decodes: 0 | 10 | 110 | 11111 -> 0, 1, -1, 1000.
  Akl8u bits[8] = {0x5B, 0xF0, 0, 0, 0, 0, 0, 0};
  Akl8u* p = bits;
  int off = 0;
  Akl16s out[4];
  EXPECT_EQ(aklsVLCDecodeBlock_1u16s(&p, &off, out, 4, spec), kStsOk);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[1], 1);
  EXPECT_EQ(out[2], -1);
  EXPECT_EQ(out[3], 1000);
  aklsVLCDecodeFree_32s(spec);
  EXPECT_EQ(LiveAllocations(), live);
}

TEST(AllocationFailure, VlcTupleAndEncodeInitAlloc) {
  const int live = LiveAllocations();
  const std::vector<VlcCodeEntry> tuples = {{0x0, 0x0, 1}, {0x1, 0x2, 2}, {0x4, 0x6, 3}, {0x5, 0x7, 3}};
  auto* spec = SweepInitAlloc<aklsVLCDecodeSpec_32s>(
      [&](aklsVLCDecodeSpec_32s** pp) {
        return aklsVLCDecodeUTupleInitAlloc_32s(tuples.data(), 4, kSizes, 3, 2, 2, pp);
      },
      aklsVLCDecodeUTupleFree_32s);
  ASSERT_NE(spec, nullptr);
  // 111 then signs 1, 0: (-1, 1).
  Akl8u bits[8] = {0xF0, 0, 0, 0, 0, 0, 0, 0};
  Akl8u* p = bits;
  int off = 0;
  Akl16s out[2];
  EXPECT_EQ(aklsVLCDecodeUTupleOne_1u16s(&p, &off, out, spec), kStsOk);
  EXPECT_EQ(out[0], -1);
  EXPECT_EQ(out[1], 1);
  aklsVLCDecodeUTupleFree_32s(spec);

  auto* enc = SweepInitAlloc<aklsVLCEncodeSpec_32s>(
      [](aklsVLCEncodeSpec_32s** pp) { return aklsVLCEncodeInitAlloc_32s(kBook.data(), 6, pp); },
      aklsVLCEncodeFree_32s);
  ASSERT_NE(enc, nullptr);
  int bits_count = 0;
  const Akl16s values[] = {0, 1, -1, 1000};
  EXPECT_EQ(aklsVLCCountBits_16s32s(values, 4, &bits_count, enc), kStsOk);
  EXPECT_EQ(bits_count, 1 + 2 + 3 + 5);
  aklsVLCEncodeFree_32s(enc);
  EXPECT_EQ(LiveAllocations(), live);
}

// The transforms with a null work buffer allocate and release scratch per
// call: every call's allocations must fail cleanly, and the successful call
// must equal one given a caller buffer.
TEST(AllocationFailure, MdctScratchMatchesCallerBuffer) {
  for (int len : {12, 36, 64, 1024}) {
    SCOPED_TRACE(len);
    const int live = LiveAllocations();
    auto* fwd = SweepInitAlloc<MDCTFwdSpec_32f>(
        [len](MDCTFwdSpec_32f** pp) { return aklsMDCTFwdInitAlloc_32f(pp, len); },
        [](MDCTFwdSpec_32f* s) { aklsMDCTFwdFree_32f(s); });
    auto* inv = SweepInitAlloc<MDCTInvSpec_32f>(
        [len](MDCTInvSpec_32f** pp) { return aklsMDCTInvInitAlloc_32f(pp, len); },
        [](MDCTInvSpec_32f* s) { aklsMDCTInvFree_32f(s); });
    ASSERT_NE(fwd, nullptr);
    ASSERT_NE(inv, nullptr);
    int work = 0;
    ASSERT_EQ(aklsMDCTFwdGetBufSize_32f(fwd, &work), kStsOk);
    std::vector<Akl8u> buf(static_cast<size_t>(work));
    std::vector<float> x(static_cast<size_t>(len));
    for (int i = 0; i < len; ++i) x[static_cast<size_t>(i)] = static_cast<float>((i * 37) % 11) - 5.0f;
    std::vector<float> want(static_cast<size_t>(len / 2)), got(want.size());
    ASSERT_EQ(aklsMDCTFwd_32f(x.data(), want.data(), fwd, buf.data()), kStsOk);
    EXPECT_EQ(SweepAllocationFailures([&] { return aklsMDCTFwd_32f(x.data(), got.data(), fwd, nullptr); }, [] {}),
              kStsOk);
    EXPECT_EQ(got, want);
    std::vector<float> want_t(static_cast<size_t>(len)), got_t(want_t.size());
    ASSERT_EQ(aklsMDCTInvGetBufSize_32f(inv, &work), kStsOk);
    buf.assign(static_cast<size_t>(work), 0);
    ASSERT_EQ(aklsMDCTInv_32f(want.data(), want_t.data(), inv, buf.data()), kStsOk);
    EXPECT_EQ(SweepAllocationFailures([&] { return aklsMDCTInv_32f(want.data(), got_t.data(), inv, nullptr); },
                                      [] {}),
              kStsOk);
    EXPECT_EQ(got_t, want_t);
    EXPECT_EQ(aklsMDCTFwdFree_32f(fwd), kStsOk);
    EXPECT_EQ(aklsMDCTInvFree_32f(inv), kStsOk);
    EXPECT_EQ(LiveAllocations(), live);
  }
}

TEST(AllocationFailure, Mdct16sScratchMatchesCallerBuffer) {
  for (int len : {32, 512, 4096}) {
    SCOPED_TRACE(len);
    const int live = LiveAllocations();
    auto* spec = SweepInitAlloc<MDCTFwdSpec_16s>(
        [len](MDCTFwdSpec_16s** pp) { return aklsMDCTFwdInitAlloc_16s(pp, len); },
        [](MDCTFwdSpec_16s* s) { aklsMDCTFwdFree_16s(s); });
    ASSERT_NE(spec, nullptr);
    int work = 0;
    ASSERT_EQ(aklsMDCTFwdGetBufSize_16s(spec, &work), kStsOk);
    std::vector<Akl8u> buf(static_cast<size_t>(work));
    std::vector<Akl16s> x(static_cast<size_t>(len));
    for (int i = 0; i < len; ++i) x[static_cast<size_t>(i)] = static_cast<Akl16s>((i * 7919) % 20001 - 10000);
    std::vector<Akl16s> want(static_cast<size_t>(len / 2)), got(want.size());
    ASSERT_EQ(aklsMDCTFwd_16s_Sfs(x.data(), want.data(), spec, 2, buf.data()), kStsOk);
    EXPECT_EQ(
        SweepAllocationFailures([&] { return aklsMDCTFwd_16s_Sfs(x.data(), got.data(), spec, 2, nullptr); }, [] {}),
        kStsOk);
    EXPECT_EQ(got, want);
    EXPECT_EQ(aklsMDCTFwdFree_16s(spec), kStsOk);
    EXPECT_EQ(LiveAllocations(), live);
  }
}

TEST(AllocationFailure, FftScratchMatchesCallerBuffer) {
  using namespace akl::transform;
  for (int order : {0, 5, 8, 11, 13}) {
    SCOPED_TRACE(order);
    const int live = LiveAllocations();
    const size_t m = size_t{1} << order;
    auto* spec = SweepInitAlloc<FFTSpec_C_32fc>(
        [order](FFTSpec_C_32fc** pp) { return fftInitAlloc_C_32fc(pp, order, 4, 0); },
        [](FFTSpec_C_32fc* s) { fftFree_C_32fc(s); });
    ASSERT_NE(spec, nullptr);
    int work = 0;
    ASSERT_EQ(fftGetBufSize_C_32fc(spec, &work), kStsOk);
    std::vector<Akl8u> buf(static_cast<size_t>(work) + 1);
    std::vector<Akl32fc> x(m), want(m), got(m);
    for (size_t i = 0; i < m; ++i) x[i] = {static_cast<float>(i % 5), static_cast<float>(i % 3) - 1.0f};
    ASSERT_EQ(fftFwd_CToC_32fc(x.data(), want.data(), spec, buf.data()), kStsOk);
    EXPECT_EQ(SweepAllocationFailures([&] { return fftFwd_CToC_32fc(x.data(), got.data(), spec, nullptr); }, [] {}),
              kStsOk);
    EXPECT_EQ(std::memcmp(got.data(), want.data(), m * sizeof(Akl32fc)), 0);
    EXPECT_EQ(fftFree_C_32fc(spec), kStsOk);

    for (int hint : {0, 2}) {  // integer kernel, embedded float kernel
      auto* s16 = SweepInitAlloc<FFTSpec_C_16sc>(
          [order, hint](FFTSpec_C_16sc** pp) { return fftInitAlloc_C_16sc(pp, order, 8, hint); },
          [](FFTSpec_C_16sc* s) { fftFree_C_16sc(s); });
      ASSERT_NE(s16, nullptr);
      ASSERT_EQ(fftGetBufSize_C_16sc(s16, &work), kStsOk);
      buf.assign(static_cast<size_t>(work) + 1, 0);
      std::vector<Akl16sc> y(m), w16(m), g16(m);
      for (size_t i = 0; i < m; ++i) y[i] = {static_cast<Akl16s>(i * 31 % 2000), static_cast<Akl16s>(i % 7)};
      ASSERT_EQ(fftFwd_CToC_16sc_Sfs(y.data(), w16.data(), s16, order, buf.data()), kStsOk);
      EXPECT_EQ(SweepAllocationFailures(
                    [&] { return fftFwd_CToC_16sc_Sfs(y.data(), g16.data(), s16, order, nullptr); }, [] {}),
                kStsOk);
      EXPECT_EQ(std::memcmp(g16.data(), w16.data(), m * sizeof(Akl16sc)), 0);
      EXPECT_EQ(fftFree_C_16sc(s16), kStsOk);
    }
    EXPECT_EQ(LiveAllocations(), live);
  }
}

TEST(AllocationFailure, FirBlockInitAlloc) {
  const int live = LiveAllocations();
  auto* st = SweepInitAlloc<FIRBlockState_32f>(
      [](FIRBlockState_32f** pp) { return aklsFIRBlockInitAlloc_32f(pp, 3, 17); },
      [](FIRBlockState_32f* s) { aklsFIRBlockFree_32f(s); });
  ASSERT_NE(st, nullptr);
  alignas(16) float in[20] = {}, out[20] = {};
  alignas(16) const float taps[4] = {0.5f, 0.25f, 0.125f, 0};
  for (int i = 0; i < 17; ++i) in[i] = static_cast<float>(i);
  EXPECT_EQ(aklsFIRBlockOne_32f(in, out, st, taps), kStsOk);
  EXPECT_EQ(out[4], 2.0f);  // only the newest block so far
  EXPECT_EQ(aklsFIRBlockFree_32f(st), kStsOk);
  EXPECT_EQ(LiveAllocations(), live);
}

TEST(AllocationFailure, Mp3SynthesisFilterInitAlloc) {
  const int live = LiveAllocations();
  auto* st = SweepInitAlloc<AklsFilterState_PQMF_MP3_32f>(
      [](AklsFilterState_PQMF_MP3_32f** pp) { return aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(pp); },
      [](AklsFilterState_PQMF_MP3_32f* s) { aklsSynthesisFilterFree_PQMF_MP3_32f(s); });
  ASSERT_NE(st, nullptr);
  // The allocated context filters like one built in caller memory.
  int size = 0;
  ASSERT_EQ(aklsSynthesisFilterGetSize_PQMF_MP3_32f(&size), kStsOk);
  std::vector<Akl8u> mem(static_cast<size_t>(size));
  auto* own = reinterpret_cast<AklsFilterState_PQMF_MP3_32f*>(mem.data());
  ASSERT_EQ(aklsSynthesisFilterInit_PQMF_MP3_32f(own), kStsOk);
  std::vector<float> x(64), a(64), b(64);
  for (int i = 0; i < 64; ++i) x[static_cast<size_t>(i)] = static_cast<float>(i % 9) * 0.01f;
  EXPECT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(x.data(), a.data(), st, 2), kStsOk);
  EXPECT_EQ(aklsSynthesisFilter_PQMF_MP3_32f(x.data(), b.data(), own, 2), kStsOk);
  EXPECT_EQ(a, b);
  EXPECT_EQ(aklsSynthesisFilterFree_PQMF_MP3_32f(st), kStsOk);
  EXPECT_EQ(LiveAllocations(), live);
}

}  // namespace
