// Round trips over every real code book: random symbols are encoded at every
// byte alignment 0..3 and bit offset 0..7, counted, and decoded back with
// every decoder that takes the book, over several splits into lookup levels.
// Streams are copied into heap blocks that end exactly at the aligned word
// after the last bit, so a read past the contract fails under AddressSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"
#include "books.hpp"

namespace {

using vlc_test::Book;
using vlc_test::Kind;

constexpr int kSymbols = 97;  // odd, so pair decoders also see a trailing element count

struct Ctx {
  std::vector<unsigned char> mem;
  aklsVLCDecodeSpec_32s* context() { return reinterpret_cast<aklsVLCDecodeSpec_32s*>(mem.data() + 5); }
};

Ctx BuildDecode(const std::vector<VlcCodeEntry>& e, const std::vector<int>& sizes, int elements, int bits) {
  int size = 0;
  Ctx c;
  if (elements == 0) {
    EXPECT_EQ(aklsVLCDecodeGetSize_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                       static_cast<int>(sizes.size()), &size), kStsOk);
    c.mem.assign(static_cast<size_t>(size) + 5, 0);
    EXPECT_EQ(aklsVLCDecodeInit_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                    static_cast<int>(sizes.size()), c.context()), kStsOk);
  } else {
    EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                             static_cast<int>(sizes.size()), elements, bits, &size), kStsOk);
    c.mem.assign(static_cast<size_t>(size) + 5, 0);
    EXPECT_EQ(aklsVLCDecodeUTupleInit_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                          static_cast<int>(sizes.size()), elements, bits, c.context()), kStsOk);
  }
  return c;
}

// Level splits: one level, levels of 6 bits, levels of 2 and 3 bits alternating.
std::vector<std::vector<int>> Splits(int max_len) {
  return {{max_len}, std::vector<int>(6, 6), {2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3}};
}

// Random symbols: a uniformly chosen code, random signs for unsigned books,
// and escape magnitudes spread over every escape length.
std::vector<std::vector<int>> RandomSymbols(const Book& b, std::mt19937& rng) {
  std::vector<std::vector<int>> out;
  std::uniform_int_distribution<size_t> pick(0, b.codes.size() - 1);
  for (int i = 0; i < kSymbols; ++i) {
    std::vector<int> v = b.codes[pick(rng)].values;
    for (int& x : v) {
      if (b.escape && b.kind == Kind::kAacUnsigned && x == 16) {
        const int n = static_cast<int>(rng() % 9);  // escape prefix 0..8
        x = (1 << (n + 4)) + static_cast<int>(rng() % (1u << (n + 4)));
      } else if (b.escape && b.kind == Kind::kMp3Pairs && x == 15) {
        x = 15 + static_cast<int>(rng() % (1u << b.linbits));
      }
      if (vlc_test::HasSignBits(b) && x != 0 && (rng() & 1)) x = -x;
    }
    out.push_back(v);
  }
  return out;
}

std::vector<Akl16s> Packed(const std::vector<std::vector<int>>& syms) {
  std::vector<Akl16s> out;
  for (const auto& s : syms) out.push_back(static_cast<Akl16s>(vlc_test::PackSigned(s)));
  return out;
}

std::vector<Akl16s> Flat(const std::vector<std::vector<int>>& syms) {
  std::vector<Akl16s> out;
  for (const auto& s : syms) {
    for (int x : s) out.push_back(static_cast<Akl16s>(x));
  }
  return out;
}

enum class Coder { kPlain, kEscAac, kEscMp3 };

Coder CoderFor(const Book& b) {
  if (b.kind == Kind::kMp3Pairs) return Coder::kEscMp3;
  if (b.escape) return Coder::kEscAac;
  return Coder::kPlain;
}

TEST(VlcRoundTrip, EveryBookEveryOffsetAndAlignment) {
  const auto books = vlc_test::LoadBooks();
  ASSERT_EQ(books.size(), 1u + 11u + 29u + 2u);  // sf, AAC 1..11, Layer III 1..31 but 0/4/14, count1 A/B
  std::mt19937 rng(akl::test::TestSeed());
  for (const Book& b : books) {
    SCOPED_TRACE(b.name);
    const auto signed_book = vlc_test::SignedEntries(b);
    const auto tuple_book = vlc_test::TupleEntries(b);
    aklsVLCEncodeSpec_32s* enc = nullptr;
    ASSERT_EQ(aklsVLCEncodeInitAlloc_32s(signed_book.data(), static_cast<int>(signed_book.size()), &enc), kStsOk);
    const Coder coder = CoderFor(b);

    for (const auto& split : Splits(vlc_test::MaxLength(signed_book))) {
      Ctx plain = BuildDecode(signed_book, split, 0, 0);
      const bool tuple_form = vlc_test::HasSignBits(b);
      Ctx tuple = tuple_form ? BuildDecode(tuple_book, split, b.dim, vlc_test::ValueBits(b)) : Ctx{};

      for (int align = 0; align < 4; ++align) {
        for (int offset = 0; offset < 8; ++offset) {
          SCOPED_TRACE(testing::Message() << "split " << split[0] << " align " << align << " offset " << offset);
          const auto syms = RandomSymbols(b, rng);
          const auto packed = Packed(syms);
          const auto flat = Flat(syms);
          const int n = static_cast<int>(syms.size());
          const int nflat = static_cast<int>(flat.size());

          // Count, then encode into a block that ends with the last word written.
          int bits = -1;
          switch (coder) {
            case Coder::kPlain: ASSERT_EQ(aklsVLCCountBits_16s32s(packed.data(), n, &bits, enc), kStsOk); break;
            case Coder::kEscAac: ASSERT_EQ(aklsVLCCountEscBits_AAC_16s32s(flat.data(), nflat, &bits, enc), kStsOk); break;
            case Coder::kEscMp3:
              ASSERT_EQ(aklsVLCCountEscBits_MP3_16s32s(flat.data(), nflat, b.linbits, &bits, enc), kStsOk);
              break;
          }
          const size_t start = static_cast<size_t>(align * 8 + offset);
          std::vector<Akl8u> out((start + static_cast<size_t>(bits) - 1) / 32 * 4 + 4);
          for (auto& byte : out) byte = static_cast<Akl8u>(rng());
          const std::vector<Akl8u> before = out;
          Akl8u* p = out.data() + align;
          int o = offset;
          switch (coder) {
            case Coder::kPlain: ASSERT_EQ(aklsVLCEncodeBlock_16s1u(packed.data(), n, &p, &o, enc), kStsOk); break;
            case Coder::kEscAac:
              ASSERT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(flat.data(), nflat, &p, &o, enc), kStsOk);
              break;
            case Coder::kEscMp3:
              ASSERT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(flat.data(), nflat, b.linbits, &p, &o, enc), kStsOk);
              break;
          }
          const size_t end = start + static_cast<size_t>(bits);
          ASSERT_EQ(static_cast<size_t>(p - out.data()) * 8 + static_cast<size_t>(o), end);
          // The bits before the cursor are kept.
          for (int i = 0; i < align; ++i) EXPECT_EQ(out[static_cast<size_t>(i)], before[static_cast<size_t>(i)]);
          EXPECT_EQ(out[static_cast<size_t>(align)] >> (8 - offset), before[static_cast<size_t>(align)] >> (8 - offset));

          auto decode_check = [&](auto&& call, const std::vector<Akl16s>& want, const char* what) {
            SCOPED_TRACE(what);
            auto stream = vlc_test::ExactCopy(out, start, static_cast<size_t>(bits));
            Akl8u* dp = stream.Start(align);
            int doff = offset;
            std::vector<Akl16s> got(want.size() + 1, 0x5A5A);
            ASSERT_EQ(call(&dp, &doff, got.data()), kStsOk);
            EXPECT_EQ(static_cast<size_t>(dp - stream.bytes.data()) * 8 + static_cast<size_t>(doff), end);
            EXPECT_EQ(std::vector<Akl16s>(got.begin(), got.end() - 1), want);
            EXPECT_EQ(got.back(), 0x5A5A);  // nothing written past the output
          };

          if (coder == Coder::kPlain) {
            decode_check([&](Akl8u** pp, int* po, Akl16s* d) { return aklsVLCDecodeBlock_1u16s(pp, po, d, n, plain.context()); },
                         packed, "Block");
            decode_check(
                [&](Akl8u** pp, int* po, Akl16s* d) -> Status {
                  for (int i = 0; i < n; ++i) {
                    if (Status st = aklsVLCDecodeOne_1u16s(pp, po, d + i, plain.context()); st != kStsOk) return st;
                  }
                  return kStsOk;
                },
                packed, "One");
            if (tuple_form) {
              decode_check([&](Akl8u** pp, int* po, Akl16s* d) -> Status {
                return aklsVLCDecodeUTupleBlock_1u16s(pp, po, d, nflat, tuple.context());
              }, flat, "UTupleBlock");
              decode_check(
                  [&](Akl8u** pp, int* po, Akl16s* d) -> Status {
                    for (int i = 0; i < n; ++i) {
                      if (Status st = aklsVLCDecodeUTupleOne_1u16s(pp, po, d + i * b.dim, tuple.context()); st != kStsOk) {
                        return st;
                      }
                    }
                    return kStsOk;
                  },
                  flat, "UTupleOne");
            }
          } else if (coder == Coder::kEscAac) {
            decode_check([&](Akl8u** pp, int* po, Akl16s* d) -> Status {
              return aklsVLCDecodeEscBlock_AAC_1u16s(pp, po, d, nflat, plain.context());
            }, flat, "EscBlock_AAC");
            decode_check([&](Akl8u** pp, int* po, Akl16s* d) -> Status {
              return aklsVLCDecodeUTupleEscBlock_AAC_1u16s(pp, po, d, nflat, tuple.context());
            }, flat, "UTupleEscBlock_AAC");
          } else {
            decode_check([&](Akl8u** pp, int* po, Akl16s* d) -> Status {
              return aklsVLCDecodeEscBlock_MP3_1u16s(pp, po, b.linbits, d, nflat, plain.context());
            }, flat, "EscBlock_MP3");
            decode_check([&](Akl8u** pp, int* po, Akl16s* d) -> Status {
              return aklsVLCDecodeUTupleEscBlock_MP3_1u16s(pp, po, b.linbits, d, nflat, tuple.context());
            }, flat, "UTupleEscBlock_MP3");
          }
          if (HasFatalFailure() || testing::Test::HasFailure()) {
            aklsVLCEncodeFree_32s(enc);
            return;
          }
        }
      }
    }
    aklsVLCEncodeFree_32s(enc);
  }
}

// The parsed books are complete prefix codes: a broken parser or a packing
// slip in the test's own book forms would show here first.
TEST(VlcRoundTrip, BooksArePrefixFreeWithKraftSumOne) {
  for (const Book& b : vlc_test::LoadBooks()) {
    SCOPED_TRACE(b.name);
    std::vector<std::vector<VlcCodeEntry>> forms = {vlc_test::SignedEntries(b)};
    if (vlc_test::HasSignBits(b)) forms.push_back(vlc_test::TupleEntries(b));
    for (const auto& entries : forms) {
      long double kraft = 0;
      for (const auto& e : entries) kraft += std::ldexp(1.0L, -e.length);
      EXPECT_EQ(kraft, 1.0L);
      std::vector<std::pair<std::uint64_t, int>> left;  // left-aligned to 32 bits
      for (const auto& e : entries) {
        left.push_back({static_cast<std::uint64_t>(static_cast<std::uint32_t>(e.code)) << (32 - e.length), e.length});
      }
      std::sort(left.begin(), left.end());
      for (size_t i = 1; i < left.size(); ++i) {
        const auto [a, la] = left[i - 1];
        EXPECT_NE(a >> (32 - la), left[i].first >> (32 - la)) << "prefix at " << i;
      }
      std::vector<int> values;
      for (const auto& e : entries) values.push_back(e.value);
      std::sort(values.begin(), values.end());
      EXPECT_EQ(std::adjacent_find(values.begin(), values.end()), values.end()) << "values must be distinct";
    }
  }
}

}  // namespace

namespace {

// Random bits through every decoder and book: run once on a roomy buffer to
// find where the cursor ends, then again on a copy that ends at the aligned
// word after the last bit used; the second run must agree and stay inside.
TEST(VlcRoundTrip, GarbageStaysWithinTheReadContract) {
  std::mt19937 rng(akl::test::TestSeed() + 1);
  for (const Book& b : vlc_test::LoadBooks()) {
    SCOPED_TRACE(b.name);
    const auto signed_book = vlc_test::SignedEntries(b);
    const auto tuple_book = vlc_test::TupleEntries(b);
    Ctx plain = BuildDecode(signed_book, {7, 7, 7, 7}, 0, 0);
    Ctx tuple = BuildDecode(tuple_book, {7, 7, 7, 7}, b.dim, vlc_test::ValueBits(b));
    using Fn = std::function<Status(Akl8u**, int*, Akl16s*)>;
    const int n = 40;
    const std::vector<std::pair<const char*, Fn>> decoders = {
        {"Block", [&](Akl8u** pp, int* po, Akl16s* d) { return aklsVLCDecodeBlock_1u16s(pp, po, d, n, plain.context()); }},
        {"EscAAC", [&](Akl8u** pp, int* po, Akl16s* d) { return aklsVLCDecodeEscBlock_AAC_1u16s(pp, po, d, n, plain.context()); }},
        {"EscMP3", [&](Akl8u** pp, int* po, Akl16s* d) { return aklsVLCDecodeEscBlock_MP3_1u16s(pp, po, 13, d, n, plain.context()); }},
        {"UTupleBlock", [&](Akl8u** pp, int* po, Akl16s* d) { return aklsVLCDecodeUTupleBlock_1u16s(pp, po, d, n, tuple.context()); }},
        {"UTupleEscAAC", [&](Akl8u** pp, int* po, Akl16s* d) { return aklsVLCDecodeUTupleEscBlock_AAC_1u16s(pp, po, d, n, tuple.context()); }},
        {"UTupleEscMP3", [&](Akl8u** pp, int* po, Akl16s* d) { return aklsVLCDecodeUTupleEscBlock_MP3_1u16s(pp, po, 9, d, n, tuple.context()); }},
    };
    for (const auto& [name, fn] : decoders) {
      SCOPED_TRACE(name);
      for (int trial = 0; trial < 8; ++trial) {
        const int align = trial % 4;
        const int offset = static_cast<int>(rng() % 8);
        std::vector<Akl8u> roomy(n * 8 + 16);
        // Mostly ones, so escapes and long codes come up often.
        for (auto& x : roomy) x = static_cast<Akl8u>(rng() | rng());
        Akl8u* p = roomy.data() + align;
        int off = offset;
        std::vector<Akl16s> first(static_cast<size_t>(n) + 4), second(first.size());
        if (fn(&p, &off, first.data()) != kStsOk) continue;  // an undecodable escape leaves no end to check
        const size_t start = static_cast<size_t>(align * 8 + offset);
        const size_t end = static_cast<size_t>(p - roomy.data()) * 8 + static_cast<size_t>(off);
        ASSERT_GT(end, start);
        auto exact = vlc_test::ExactCopy(roomy, start, end - start);
        Akl8u* q = exact.Start(align);
        int qoff = offset;
        ASSERT_EQ(fn(&q, &qoff, second.data()), kStsOk);
        EXPECT_EQ(first, second);
        EXPECT_EQ(static_cast<size_t>(q - exact.bytes.data()) * 8 + static_cast<size_t>(qoff), end);
      }
    }
  }
}

}  // namespace
