// One read-only context shared by four threads that decode or transform at
// the same time: every thread's results must equal the single-threaded ones.
// Under the tsan preset (ctest --preset tsan) ThreadSanitizer also checks
// that no call writes the shared context or any other shared memory.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <thread>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"
#include "transform/fft.hpp"
#include "../vlc/books.hpp"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 40;

// Runs work(thread) on kThreads threads at once and once more before them on
// this thread; every result must equal the first.
template <class R, class F>
void ExpectSameOnAllThreads(F work) {
  const R want = work(-1);
  std::vector<R> got(kThreads);
  std::vector<std::thread> pool;
  for (int t = 0; t < kThreads; ++t) {
    pool.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) got[static_cast<size_t>(t)] = work(t);
    });
  }
  for (auto& th : pool) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(got[static_cast<size_t>(t)], want) << "thread " << t;
}

TEST(SharedContext, VlcDecodeTableServesFourDecoders) {
  // The largest AAC spectral book (signs folded into the codes), two levels.
  std::vector<vlc_test::Book> books = vlc_test::LoadBooks();
  ASSERT_FALSE(books.empty());
  const vlc_test::Book* book = &books[0];
  for (const auto& b : books) {
    if (b.codes.size() > book->codes.size()) book = &b;
  }
  const std::vector<VlcCodeEntry> entries = vlc_test::SignedEntries(*book);
  const int n = static_cast<int>(entries.size());
  const int sizes[] = {8, 8, 8, 8};
  aklsVLCDecodeSpec_32s* dec = nullptr;
  ASSERT_EQ(aklsVLCDecodeInitAlloc_32s(entries.data(), n, sizes, 4, &dec), kStsOk);
  aklsVLCEncodeSpec_32s* enc = nullptr;
  ASSERT_EQ(aklsVLCEncodeInitAlloc_32s(entries.data(), n, &enc), kStsOk);

  // A stream of 4000 codes chosen at random from the book.
  std::mt19937 rng(akl::test::TestSeed());
  const int count = 4000;
  std::vector<Akl16s> values(count);
  for (auto& v : values) v = static_cast<Akl16s>(entries[rng() % entries.size()].value);
  std::vector<Akl8u> stream(static_cast<size_t>(count) * 4 + 64, 0);
  Akl8u* wp = stream.data();
  int woff = 0;
  ASSERT_EQ(aklsVLCEncodeBlock_16s1u(values.data(), count, &wp, &woff, enc), kStsOk);

  ExpectSameOnAllThreads<std::vector<Akl16s>>([&](int t) {
    std::vector<Akl16s> out(count);
    Akl8u* p = stream.data();
    int off = 0;
    // Alternate the block and single-code decoders between threads.
    if (t % 2 == 0) {
      EXPECT_EQ(aklsVLCDecodeBlock_1u16s(&p, &off, out.data(), count, dec), kStsOk);
    } else {
      for (int i = 0; i < count; ++i) EXPECT_EQ(aklsVLCDecodeOne_1u16s(&p, &off, &out[size_t(i)], dec), kStsOk);
    }
    return out;
  });
  aklsVLCEncodeFree_32s(enc);
  aklsVLCDecodeFree_32s(dec);
}

std::vector<float> RandomFloats(size_t n, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (auto& x : v) x = d(rng);
  return v;
}

TEST(SharedContext, MdctSpecsServeFourTransforms) {
  for (int len : {36, 256, 2048}) {
    SCOPED_TRACE(len);
    MDCTFwdSpec_32f* fwd = nullptr;
    MDCTInvSpec_32f* inv = nullptr;
    ASSERT_EQ(aklsMDCTFwdInitAlloc_32f(&fwd, len), kStsOk);
    ASSERT_EQ(aklsMDCTInvInitAlloc_32f(&inv, len), kStsOk);
    int work = 0;
    ASSERT_EQ(aklsMDCTFwdGetBufSize_32f(fwd, &work), kStsOk);
    const std::vector<float> x = RandomFloats(static_cast<size_t>(len), 7u + static_cast<unsigned>(len));
    ExpectSameOnAllThreads<std::vector<float>>([&](int t) {
      // Each call has its own work buffer, or none (the call allocates).
      std::vector<Akl8u> buf(static_cast<size_t>(work) + 64);
      Akl8u* b = t % 2 == 0 ? buf.data() : nullptr;
      std::vector<float> y(static_cast<size_t>(len) / 2), z(static_cast<size_t>(len));
      EXPECT_EQ(aklsMDCTFwd_32f(x.data(), y.data(), fwd, b), kStsOk);
      EXPECT_EQ(aklsMDCTInv_32f(y.data(), z.data(), inv, b), kStsOk);
      y.insert(y.end(), z.begin(), z.end());
      return y;
    });
    EXPECT_EQ(aklsMDCTFwdFree_32f(fwd), kStsOk);
    EXPECT_EQ(aklsMDCTInvFree_32f(inv), kStsOk);
  }
}

TEST(SharedContext, Mdct16sSpecServesFourTransforms) {
  const int len = 512;
  MDCTFwdSpec_16s* spec = nullptr;
  ASSERT_EQ(aklsMDCTFwdInitAlloc_16s(&spec, len), kStsOk);
  std::mt19937 rng(akl::test::TestSeed());
  std::vector<Akl16s> x(len);
  for (auto& v : x) v = static_cast<Akl16s>(static_cast<int>(rng() % 60000) - 30000);
  ExpectSameOnAllThreads<std::vector<Akl16s>>([&](int) {
    std::vector<Akl16s> y(len / 2);
    EXPECT_EQ(aklsMDCTFwd_16s_Sfs(x.data(), y.data(), spec, 3, nullptr), kStsOk);
    return y;
  });
  EXPECT_EQ(aklsMDCTFwdFree_16s(spec), kStsOk);
}

TEST(SharedContext, FftSpecsServeFourTransforms) {
  using namespace akl::transform;
  for (int order : {3, 9, 12}) {
    SCOPED_TRACE(order);
    FFTSpec_C_32fc* spec = nullptr;
    ASSERT_EQ(fftInitAlloc_C_32fc(&spec, order, 8, 0), kStsOk);
    int work = 0;
    ASSERT_EQ(fftGetBufSize_C_32fc(spec, &work), kStsOk);
    const size_t m = size_t{1} << order;
    const std::vector<float> flat = RandomFloats(2 * m, 11u + static_cast<unsigned>(order));
    std::vector<Akl32fc> x(m);
    for (size_t i = 0; i < m; ++i) x[i] = {flat[2 * i], flat[2 * i + 1]};
    ExpectSameOnAllThreads<std::vector<float>>([&](int t) {
      std::vector<Akl8u> buf(static_cast<size_t>(work) + 64);
      std::vector<Akl32fc> y(m);
      EXPECT_EQ(fftFwd_CToC_32fc(x.data(), y.data(), spec, t % 2 == 0 ? buf.data() : nullptr), kStsOk);
      std::vector<float> out;
      for (const auto& c : y) out.insert(out.end(), {c.re, c.im});
      return out;
    });
    EXPECT_EQ(fftFree_C_32fc(spec), kStsOk);

    FFTSpec_C_16sc* s16 = nullptr;
    ASSERT_EQ(fftInitAlloc_C_16sc(&s16, order, 8, 0), kStsOk);
    std::vector<Akl16sc> x16(m);
    for (size_t i = 0; i < m; ++i) {
      x16[i] = {static_cast<Akl16s>(flat[2 * i] * 20000), static_cast<Akl16s>(flat[2 * i + 1] * 20000)};
    }
    ExpectSameOnAllThreads<std::vector<int>>([&](int) {
      std::vector<Akl16sc> y(m);
      EXPECT_EQ(fftFwd_CToC_16sc_Sfs(x16.data(), y.data(), s16, order, nullptr), kStsOk);
      std::vector<int> out;
      for (const auto& c : y) out.insert(out.end(), {c.re, c.im});
      return out;
    });
    EXPECT_EQ(fftFree_C_16sc(s16), kStsOk);
  }
}

}  // namespace
