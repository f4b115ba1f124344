// VLC decoder and encoder speed, in ns per decoded code (items = codes).
//
// Symbols follow the statistics each code book was designed for: a code of
// length n is drawn with probability 2^-n, which is the distribution under
// which a Huffman code is optimal, so short codes dominate as in real
// spectra.  Escape magnitudes fall off geometrically.  A pool of 64 frames of
// 1024 codes is encoded once and the timed loop rotates through it, so the
// table walk's branches are not perfectly predicted.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "aklac.h"
#include "vlc/books.hpp"

namespace {

using vlc_test::Book;

constexpr int kFrames = 64;
constexpr int kCodesPerFrame = 1024;

const Book& FindBook(const std::string& name) {
  static const std::vector<Book> books = vlc_test::LoadBooks();
  for (const auto& b : books) {
    if (b.name == name) return b;
  }
  static const Book none{};
  return none;
}

// Index of a code drawn with probability 2^-length.
class CodeSampler {
 public:
  explicit CodeSampler(const Book& b) {
    for (const auto& c : b.codes) weights_.push_back(std::ldexp(1.0, -static_cast<int>(c.bits.size())));
    dist_ = std::discrete_distribution<size_t>(weights_.begin(), weights_.end());
  }
  size_t operator()(std::mt19937& rng) { return dist_(rng); }

 private:
  std::vector<double> weights_;
  std::discrete_distribution<size_t> dist_;
};

// One frame of element tuples with signs and escape magnitudes filled in.
std::vector<std::vector<int>> Frame(const Book& b, CodeSampler& sampler, std::mt19937& rng) {
  std::geometric_distribution<int> tail(0.08);
  std::vector<std::vector<int>> out;
  for (int i = 0; i < kCodesPerFrame; ++i) {
    std::vector<int> v = b.codes[sampler(rng)].values;
    for (int& x : v) {
      if (b.escape && b.kind == vlc_test::Kind::kAacUnsigned && x == 16) x = std::min(16 + tail(rng), 8191);
      if (b.escape && b.kind == vlc_test::Kind::kMp3Pairs && x == 15) {
        x = 15 + std::min(tail(rng), (1 << b.linbits) - 1);
      }
      if (vlc_test::HasSignBits(b) && x != 0 && (rng() & 1)) x = -x;
    }
    out.push_back(v);
  }
  return out;
}

enum class Mode { kPlain, kEscAac, kEscMp3, kTuple, kTupleEscAac, kTupleEscMp3 };

struct Setup {
  std::vector<std::vector<Akl8u>> streams;
  std::vector<std::vector<Akl16s>> values;  // encoder input (packed or flat)
  aklsVLCDecodeSpec_32s* dec = nullptr;
  aklsVLCEncodeSpec_32s* enc = nullptr;
  int out_len = 0;
  int linbits = 0;
  ~Setup() {
    aklsVLCDecodeFree_32s(dec);
    aklsVLCEncodeFree_32s(enc);
  }
};

bool IsTuple(Mode m) { return m == Mode::kTuple || m == Mode::kTupleEscAac || m == Mode::kTupleEscMp3; }

void Prepare(Setup& s, const Book& b, Mode mode, const std::vector<int>& sizes) {
  const auto signed_book = vlc_test::SignedEntries(b);
  const auto tuple_book = vlc_test::TupleEntries(b);
  s.linbits = b.linbits;
  aklsVLCEncodeInitAlloc_32s(signed_book.data(), static_cast<int>(signed_book.size()), &s.enc);
  if (IsTuple(mode)) {
    aklsVLCDecodeUTupleInitAlloc_32s(tuple_book.data(), static_cast<int>(tuple_book.size()), sizes.data(),
                                     static_cast<int>(sizes.size()), b.dim, vlc_test::ValueBits(b), &s.dec);
  } else {
    aklsVLCDecodeInitAlloc_32s(signed_book.data(), static_cast<int>(signed_book.size()), sizes.data(),
                               static_cast<int>(sizes.size()), &s.dec);
  }
  std::mt19937 rng(20261122u);
  CodeSampler sampler(b);
  for (int f = 0; f < kFrames; ++f) {
    const auto syms = Frame(b, sampler, rng);
    std::vector<Akl16s> packed, flat;
    for (const auto& sym : syms) {
      packed.push_back(static_cast<Akl16s>(vlc_test::PackSigned(sym)));
      for (int x : sym) flat.push_back(static_cast<Akl16s>(x));
    }
    std::vector<Akl8u> stream(static_cast<size_t>(kCodesPerFrame) * 16 + 64);
    Akl8u* p = stream.data();
    int off = 0;
    if (mode == Mode::kEscAac || mode == Mode::kTupleEscAac) {
      aklsVLCEncodeEscBlock_AAC_16s1u(flat.data(), static_cast<int>(flat.size()), &p, &off, s.enc);
    } else if (mode == Mode::kEscMp3 || mode == Mode::kTupleEscMp3) {
      aklsVLCEncodeEscBlock_MP3_16s1u(flat.data(), static_cast<int>(flat.size()), b.linbits, &p, &off, s.enc);
    } else {
      aklsVLCEncodeBlock_16s1u(packed.data(), static_cast<int>(packed.size()), &p, &off, s.enc);
    }
    s.streams.push_back(stream);
    const bool flat_values = mode != Mode::kPlain;
    s.values.push_back(flat_values ? flat : packed);
    s.out_len = static_cast<int>(flat_values ? flat.size() : packed.size());
  }
}

void BM_Decode(benchmark::State& state, const char* book_name, Mode mode, std::vector<int> sizes) {
  const Book& b = FindBook(book_name);
  if (b.codes.empty()) {
    state.SkipWithError("code book data not found");
    return;
  }
  Setup s;
  Prepare(s, b, mode, sizes);
  std::vector<Akl16s> out(static_cast<size_t>(s.out_len));
  size_t frame = 0;
  for (auto _ : state) {
    Akl8u* p = s.streams[frame].data();
    int off = 0;
    Status st = kStsOk;
    switch (mode) {
      case Mode::kPlain: st = aklsVLCDecodeBlock_1u16s(&p, &off, out.data(), s.out_len, s.dec); break;
      case Mode::kEscAac: st = aklsVLCDecodeEscBlock_AAC_1u16s(&p, &off, out.data(), s.out_len, s.dec); break;
      case Mode::kEscMp3: st = aklsVLCDecodeEscBlock_MP3_1u16s(&p, &off, s.linbits, out.data(), s.out_len, s.dec); break;
      case Mode::kTuple: st = aklsVLCDecodeUTupleBlock_1u16s(&p, &off, out.data(), s.out_len, s.dec); break;
      case Mode::kTupleEscAac: st = aklsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, &off, out.data(), s.out_len, s.dec); break;
      case Mode::kTupleEscMp3:
        st = aklsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &off, s.linbits, out.data(), s.out_len, s.dec);
        break;
    }
    benchmark::DoNotOptimize(st);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
    frame = (frame + 1) % kFrames;
  }
  // Verify once that the pool decodes back to what was encoded.
  for (int f = 0; f < 2; ++f) {
    Akl8u* p = s.streams[static_cast<size_t>(f)].data();
    int off = 0;
    if (mode == Mode::kPlain) aklsVLCDecodeBlock_1u16s(&p, &off, out.data(), s.out_len, s.dec);
    if (mode == Mode::kPlain && out != s.values[static_cast<size_t>(f)]) state.SkipWithError("decode mismatch");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kCodesPerFrame);
}

void BM_Encode(benchmark::State& state, const char* book_name, Mode mode) {
  const Book& b = FindBook(book_name);
  if (b.codes.empty()) {
    state.SkipWithError("code book data not found");
    return;
  }
  Setup s;
  Prepare(s, b, mode, {10, 10, 10});
  std::vector<Akl8u> out(static_cast<size_t>(kCodesPerFrame) * 16 + 64);
  size_t frame = 0;
  for (auto _ : state) {
    Akl8u* p = out.data();
    int off = 0;
    const auto& v = s.values[frame];
    Status st = mode == Mode::kEscAac
                    ? aklsVLCEncodeEscBlock_AAC_16s1u(v.data(), static_cast<int>(v.size()), &p, &off, s.enc)
                : mode == Mode::kEscMp3
                    ? aklsVLCEncodeEscBlock_MP3_16s1u(v.data(), static_cast<int>(v.size()), s.linbits, &p, &off, s.enc)
                    : aklsVLCEncodeBlock_16s1u(v.data(), static_cast<int>(v.size()), &p, &off, s.enc);
    benchmark::DoNotOptimize(st);
    benchmark::ClobberMemory();
    frame = (frame + 1) % kFrames;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kCodesPerFrame);
}

// Plain block decoder: AAC scale factors (codes up to 19 bits), an AAC signed
// pair book, and a Layer III pair book with its sign bits in the codes.
BENCHMARK_CAPTURE(BM_Decode, Block_aac_sf_9_10, "aac_sf", Mode::kPlain, {9, 10});
BENCHMARK_CAPTURE(BM_Decode, Block_aac_sf_19, "aac_sf", Mode::kPlain, {19});
BENCHMARK_CAPTURE(BM_Decode, Block_aac_book5_8_8, "aac_book5", Mode::kPlain, {8, 8});
BENCHMARK_CAPTURE(BM_Decode, Block_mp3_table15_10_10, "mp3_table15", Mode::kPlain, {10, 10});
// Escape decoders on their books.
BENCHMARK_CAPTURE(BM_Decode, EscAac_book11_10_10, "aac_book11", Mode::kEscAac, {10, 10});
BENCHMARK_CAPTURE(BM_Decode, EscMp3_table24_10_10, "mp3_table24", Mode::kEscMp3, {10, 10});
BENCHMARK_CAPTURE(BM_Decode, EscMp3_table31_10_10, "mp3_table31", Mode::kEscMp3, {10, 10});
// Tuple forms (unsigned books, sign bits read separately).
BENCHMARK_CAPTURE(BM_Decode, UTupleBlock_aac_book7_8_8, "aac_book7", Mode::kTuple, {8, 8});
BENCHMARK_CAPTURE(BM_Decode, UTupleEscAac_book11_8_8, "aac_book11", Mode::kTupleEscAac, {8, 8});
BENCHMARK_CAPTURE(BM_Decode, UTupleEscMp3_table24_8_8, "mp3_table24", Mode::kTupleEscMp3, {8, 8});
// Encoders.
BENCHMARK_CAPTURE(BM_Encode, Block_aac_sf, "aac_sf", Mode::kPlain);
BENCHMARK_CAPTURE(BM_Encode, EscAac_book11, "aac_book11", Mode::kEscAac);
BENCHMARK_CAPTURE(BM_Encode, EscMp3_table24, "mp3_table24", Mode::kEscMp3);

}  // namespace
