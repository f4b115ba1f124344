// The tuned block decoders against their reference forms (decode_ref.cpp):
// every real code book, several level splits, every byte alignment with a
// random bit offset, short and long blocks, on encoded realistic symbols and
// on random bytes (streams that hit empty slots, escapes and deep levels at
// random).  Values, status and cursor must agree exactly; the tuned decoder
// runs in a buffer that ends at the reading limit of the reference's result,
// so an overread is caught under AddressSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "aklac.h"
#include "../support/test_util.hpp"
#include "books.hpp"
#include "vlc/decode_ref.hpp"
#include "vlc_test_util.hpp"

namespace {

using vlc_test::Book;
using vlc_test::Kind;
namespace ref = akl::vlc::ref;

enum class Op { kBlock, kEscAac, kEscMp3, kTuple, kTupleEscAac, kTupleEscMp3 };

struct Result {
  Status status;
  std::ptrdiff_t advanced;
  int offset;
  std::vector<Akl16s> out;
};

Result Run(bool tuned, Op op, const aklsVLCDecodeSpec_32s* spec, Akl8u* start, int offset, int len, int linbits) {
  Result r{kStsOk, 0, offset, std::vector<Akl16s>(static_cast<size_t>(len) + 4, 0x5A5A)};
  Akl8u* p = start;
  int* o = &r.offset;
  Akl16s* d = r.out.data();
  switch (op) {
    case Op::kBlock:
      r.status = tuned ? aklsVLCDecodeBlock_1u16s(&p, o, d, len, spec) : ref::DecodeBlock_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kEscAac:
      r.status = tuned ? aklsVLCDecodeEscBlock_AAC_1u16s(&p, o, d, len, spec)
                       : ref::DecodeEscBlock_AAC_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kEscMp3:
      r.status = tuned ? aklsVLCDecodeEscBlock_MP3_1u16s(&p, o, linbits, d, len, spec)
                       : ref::DecodeEscBlock_MP3_1u16sRef(&p, o, linbits, d, len, spec);
      break;
    case Op::kTuple:
      r.status = tuned ? aklsVLCDecodeUTupleBlock_1u16s(&p, o, d, len, spec)
                       : ref::DecodeUTupleBlock_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kTupleEscAac:
      r.status = tuned ? aklsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, o, d, len, spec)
                       : ref::DecodeUTupleEscBlock_AAC_1u16sRef(&p, o, d, len, spec);
      break;
    case Op::kTupleEscMp3:
      r.status = tuned ? aklsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, o, linbits, d, len, spec)
                       : ref::DecodeUTupleEscBlock_MP3_1u16sRef(&p, o, linbits, d, len, spec);
      break;
  }
  r.advanced = p - start;
  return r;
}

struct Ctx {
  std::vector<unsigned char> mem;
  aklsVLCDecodeSpec_32s* spec() { return reinterpret_cast<aklsVLCDecodeSpec_32s*>(mem.data() + 3); }
};

Ctx Build(const std::vector<VlcCodeEntry>& e, const std::vector<int>& sizes, int elements, int bits) {
  Ctx c;
  int size = 0;
  const int n = static_cast<int>(e.size());
  const int ns = static_cast<int>(sizes.size());
  if (elements == 0) {
    EXPECT_EQ(aklsVLCDecodeGetSize_32s(e.data(), n, sizes.data(), ns, &size), kStsOk);
    c.mem.assign(static_cast<size_t>(size) + 3, 0);
    EXPECT_EQ(aklsVLCDecodeInit_32s(e.data(), n, sizes.data(), ns, c.spec()), kStsOk);
  } else {
    EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(e.data(), n, sizes.data(), ns, elements, bits, &size), kStsOk);
    c.mem.assign(static_cast<size_t>(size) + 3, 0);
    EXPECT_EQ(aklsVLCDecodeUTupleInit_32s(e.data(), n, sizes.data(), ns, elements, bits, c.spec()), kStsOk);
  }
  return c;
}

// The decoders that take a book, with the element count for tuple contexts.
std::vector<std::pair<Op, int>> OpsFor(const Book& b) {
  std::vector<std::pair<Op, int>> ops = {{Op::kBlock, 0}};
  if (b.dim == 2 && b.kind != Kind::kMp3Pairs) ops.push_back({Op::kEscAac, 0});
  if (b.kind == Kind::kMp3Pairs) ops.push_back({Op::kEscMp3, 0});
  if (vlc_test::HasSignBits(b)) {
    ops.push_back({Op::kTuple, b.dim});
    if (b.dim == 2 && b.kind == Kind::kAacUnsigned) ops.push_back({Op::kTupleEscAac, 2});
    if (b.kind == Kind::kMp3Pairs) ops.push_back({Op::kTupleEscMp3, 2});
  }
  return ops;
}

// Symbols with short codes favoured (probability 2^-length), signs and
// escapes, encoded with the library's encoders in the form each decoder reads.
std::vector<Akl8u> Encoded(const Book& b, Op op, std::mt19937& rng, int count, int align, int offset) {
  const auto entries = vlc_test::SignedEntries(b);
  aklsVLCEncodeSpec_32s* enc = nullptr;
  EXPECT_EQ(aklsVLCEncodeInitAlloc_32s(entries.data(), static_cast<int>(entries.size()), &enc), kStsOk);
  std::vector<double> w;
  for (const auto& c : b.codes) w.push_back(std::ldexp(1.0, -static_cast<int>(c.bits.size())));
  std::discrete_distribution<size_t> pick(w.begin(), w.end());
  std::geometric_distribution<int> tail(0.05);
  std::vector<Akl16s> flat, packed;
  for (int i = 0; i < count; ++i) {
    std::vector<int> v = b.codes[pick(rng)].values;
    for (int& x : v) {
      if (b.escape && b.kind == Kind::kAacUnsigned && x == 16) x = std::min(16 + tail(rng), 8191);
      if (b.escape && b.kind == Kind::kMp3Pairs && x == 15) x = 15 + std::min(tail(rng), (1 << b.linbits) - 1);
      if (vlc_test::HasSignBits(b) && x != 0 && (rng() & 1)) x = -x;
    }
    packed.push_back(static_cast<Akl16s>(vlc_test::PackSigned(v)));
    for (int x : v) flat.push_back(static_cast<Akl16s>(x));
  }
  std::vector<Akl8u> stream(static_cast<size_t>(count) * 12 + 64, 0);
  Akl8u* p = stream.data() + align;
  int off = offset;
  const bool esc_aac = op == Op::kEscAac || op == Op::kTupleEscAac;
  const bool esc_mp3 = op == Op::kEscMp3 || op == Op::kTupleEscMp3;
  const int n_flat = static_cast<int>(flat.size());
  if (esc_aac && b.escape) {
    EXPECT_EQ(aklsVLCEncodeEscBlock_AAC_16s1u(flat.data(), n_flat, &p, &off, enc), kStsOk);
  } else if (esc_mp3 && b.escape) {
    EXPECT_EQ(aklsVLCEncodeEscBlock_MP3_16s1u(flat.data(), n_flat, b.linbits, &p, &off, enc), kStsOk);
  } else {
    EXPECT_EQ(aklsVLCEncodeBlock_16s1u(packed.data(), count, &p, &off, enc), kStsOk);
  }
  aklsVLCEncodeFree_32s(enc);
  return stream;
}

// Runs both forms over the same stream bytes, each in its own copy cut to the
// reference's reading limit, and compares everything they report.
void Compare(Op op, const aklsVLCDecodeSpec_32s* spec, const std::vector<Akl8u>& stream, int align, int offset,
             int len, int linbits, const std::string& what) {
  std::vector<Akl8u> a(stream), b(stream);
  const Result r = Run(false, op, spec, a.data() + align, offset, len, linbits);
  const size_t end_bit = (static_cast<size_t>(align) + static_cast<size_t>(r.advanced)) * 8 +
                         static_cast<size_t>(r.offset);
  const size_t last_bit = end_bit > 0 ? end_bit - 1 : 0;
  // The tuned decoder reads at most up to the aligned word after the last
  // bit the reference consumed (statuses other than Ok stop early: keep all).
  const size_t words = r.status == kStsOk ? last_bit / 32 + 2 : stream.size() / 4;
  std::vector<Akl8u> cut(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(std::min(stream.size(), words * 4)));
  const Result t = Run(true, op, spec, cut.data() + align, offset, len, linbits);
  ASSERT_EQ(t.status, r.status) << what;
  ASSERT_EQ(t.advanced, r.advanced) << what;
  ASSERT_EQ(t.offset, r.offset) << what;
  ASSERT_EQ(t.out, r.out) << what;  // a failing pair is left unwritten by both
}

TEST(VlcTunedVsRef, RealBooksEncodedAndRandomStreams) {
  const auto books = vlc_test::LoadBooks();
  ASSERT_FALSE(books.empty());
  std::mt19937 rng(akl::test::TestSeed());
  for (const Book& b : books) {
    const int max_len = vlc_test::MaxLength(vlc_test::SignedEntries(b)) + 2;
    const std::vector<std::vector<int>> splits = {{max_len}, {8, 8, 8, 8}, {10, 10, 10}, {4, 3, 5, 6, 6, 6, 6}};
    for (const auto& [op, elements] : OpsFor(b)) {
      const auto entries = elements ? vlc_test::TupleEntries(b) : vlc_test::SignedEntries(b);
      for (const auto& sizes : splits) {
        Ctx c = Build(entries, sizes, elements, vlc_test::ValueBits(b));
        for (int align = 0; align < 4; ++align) {
          {
            const int offset = static_cast<int>(rng() % 8);
            const int count = 37 + static_cast<int>(rng() % 300);  // short blocks and long ones
            const int len = count * (elements ? elements : (op == Op::kBlock ? 1 : b.dim)) - static_cast<int>(rng() % 2);
            const std::string what = b.name + " op " + std::to_string(static_cast<int>(op)) + " levels " +
                                     std::to_string(sizes.size()) + " at " + std::to_string(align) + "/" +
                                     std::to_string(offset);
            Compare(op, c.spec(), Encoded(b, op, rng, count, align, offset), align, offset, len, b.linbits, what);
            std::vector<Akl8u> noise(static_cast<size_t>(count) * 12 + 64);
            for (auto& x : noise) x = static_cast<Akl8u>(rng());
            Compare(op, c.spec(), noise, align, offset, len / 2, b.linbits, what + " noise");
          }
        }
      }
    }
  }
}

// One-bit codes are the worst case for the block decoder's look-ahead loads:
// the stream ends closest to them.  Every block length around the switch from
// the body loop to the tail, in buffers that end at the reading limit.
TEST(VlcTunedVsRef, OneBitCodesEndingAtTheReadingLimit) {
  const auto book = vlc_test::Entries({{5, "0"}, {6, "10"}, {7, "11"}});
  auto ctx = vlc_test::DecodeContext(book, {2});
  for (int len = 90; len <= 140; ++len) {
    for (int offset = 0; offset < 8; ++offset) {
      for (const Akl8u fill : {Akl8u{0x00}, Akl8u{0x24}}) {
        // 0x24 = 00100100: codes 0 0 10 0 10 0 ..., mostly one bit.
        std::vector<Akl8u> roomy(static_cast<size_t>(len) + 64, fill);
        std::vector<Akl16s> want(static_cast<size_t>(len)), got(want.size());
        Akl8u* p = roomy.data();
        int off = offset;
        ASSERT_EQ(ref::DecodeBlock_1u16sRef(&p, &off, want.data(), len, ctx.dec()), kStsOk);
        const size_t end = static_cast<size_t>(p - roomy.data()) * 8 + static_cast<size_t>(off);
        auto exact = vlc_test::ExactCopy(roomy, static_cast<size_t>(offset), end - static_cast<size_t>(offset));
        Akl8u* q = exact.Start(0);
        int qoff = offset;
        ASSERT_EQ(aklsVLCDecodeBlock_1u16s(&q, &qoff, got.data(), len, ctx.dec()), kStsOk);
        EXPECT_EQ(got, want) << len;
        EXPECT_EQ(static_cast<size_t>(q - exact.bytes.data()) * 8 + static_cast<size_t>(qoff), end) << len;
      }
    }
  }
}

}  // namespace

namespace {

// Tuple contexts of every extreme shape the tuple Init accepts (one element
// of 32 bits, 32 elements of one bit, ...): the escape decoders split values
// into pairs whatever the shape, so a 32-bit element shift must stay defined.
// Tuned and reference forms agree on random streams.
TEST(VlcTunedVsRef, ExtremeTupleShapes) {
  struct Shape {
    int elements, bits;
  };
  const Shape shapes[] = {{1, 32}, {32, 1}, {2, 16}, {4, 8}, {1, 1}, {16, 2}};
  std::mt19937 rng(akl::test::TestSeed());
  for (const Shape& sh : shapes) {
    // Eight codes of three bits with values that fill the tuple's bits.
    std::vector<VlcCodeEntry> book;
    for (int i = 0; i < 8; ++i) {
      const std::uint32_t v = i == 0 ? 0u : i == 1 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(rng());
      const std::uint32_t mask = sh.elements * sh.bits == 32 ? 0xFFFFFFFFu : (1u << (sh.elements * sh.bits)) - 1u;
      book.push_back({static_cast<Akl32s>(v & mask), i, 3});
    }
    Ctx c = Build(book, {3}, sh.elements, sh.bits);
    for (Op op : {Op::kTuple, Op::kTupleEscAac, Op::kTupleEscMp3}) {
      std::vector<Akl8u> noise(512);
      for (auto& x : noise) x = static_cast<Akl8u>(rng());
      const std::string what = std::to_string(sh.elements) + "x" + std::to_string(sh.bits) + " op " +
                               std::to_string(static_cast<int>(op));
      Compare(op, c.spec(), noise, 1, 3, 64, 13, what);
    }
  }
}

}  // namespace
