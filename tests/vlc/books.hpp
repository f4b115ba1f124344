// The real code books of tests/data/vlc (AAC spectral 1..11 and scale factors,
// Layer III big-value tables and count1 tables), parsed and turned into the
// forms the VLC engine takes, plus small helpers for exact-size streams.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "aklac.h"

namespace vlc_test {

// One code of a book: element values (magnitudes for unsigned books), the
// code word as 0/1 text.
struct RawCode {
  std::vector<int> values;
  std::string bits;
};

enum class Kind {
  kScaleFactor,   // value = index - 60
  kAacSigned,     // AAC signed book: values carry their signs
  kAacUnsigned,   // AAC unsigned book: a sign bit per non-zero magnitude
  kMp3Pairs,      // Layer III big-value table (unsigned, signs follow)
  kMp3Quads,      // Layer III count1 table
};

struct Book {
  Book() = default;
  Book(std::string n, Kind k) : name(std::move(n)), kind(k) {}
  std::string name;
  Kind kind = Kind::kScaleFactor;
  int dim = 1;
  int lav = 0;       // largest magnitude in the book
  int linbits = 0;   // Layer III tables with escapes
  bool escape = false;  // AAC book 11, or a Layer III table whose 15 is an escape
  std::vector<RawCode> codes;
};

inline std::vector<std::string> Lines(const std::string& file) {
  // Shared by the tests and the benchmarks, so no test framework here; a
  // missing file shows as an empty book list.
  std::ifstream in(std::string(AKLAC_TEST_DATA_DIR) + "/vlc/" + file);
  std::vector<std::string> out;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line[0] != '#') out.push_back(line);
  }
  return out;
}

inline std::vector<Book> LoadBooks() {
  std::vector<Book> books;
  {
    Book b{"aac_sf", Kind::kScaleFactor};
    for (const auto& line : Lines("aac_huffman_scalefactor.txt")) {
      std::istringstream in(line);
      int index, length;
      std::string bits;
      in >> index >> length >> bits;
      b.codes.push_back({{index - 60}, bits});
    }
    b.lav = 60;
    books.push_back(b);
  }
  {
    Book* cur = nullptr;
    for (const auto& line : Lines("aac_huffman_spectral.txt")) {
      std::istringstream in(line);
      if (line.rfind("book", 0) == 0) {
        std::string w, sign;
        int n, dim, lav, entries;
        in >> w >> n >> w >> dim >> sign >> w >> lav >> w >> entries;
        Book b{"aac_book" + std::to_string(n), sign == "signed" ? Kind::kAacSigned : Kind::kAacUnsigned};
        b.dim = dim;
        b.lav = lav;
        b.escape = n == 11;
        books.push_back(b);
        cur = &books.back();
        continue;
      }
      int index;
      in >> index;
      RawCode c;
      for (int k = 0; k < cur->dim; ++k) {
        int v;
        in >> v;
        c.values.push_back(v);
      }
      int length;
      in >> length >> c.bits;
      cur->codes.push_back(c);
    }
  }
  {
    std::map<int, std::vector<RawCode>> own;
    Book* cur = nullptr;
    for (const auto& line : Lines("mp3_huffman.txt")) {
      std::istringstream in(line);
      if (line.rfind("table", 0) == 0) {
        std::string w, id;
        in >> w >> id;
        cur = nullptr;
        if (id == "A" || id == "B") {
          Book b{"mp3_count1_" + id, Kind::kMp3Quads};
          b.dim = 4;
          b.lav = 1;
          books.push_back(b);
          cur = &books.back();
          continue;
        }
        int linbits, xmax, codes, ref = -1;
        in >> w >> linbits >> w >> xmax >> w >> codes;
        std::string extra;
        while (in >> extra) {
          if (extra == "ref") in >> ref;
          if (extra == "empty" || extra == "unused") xmax = -1;
        }
        if (xmax < 0) continue;
        Book b{"mp3_table" + id, Kind::kMp3Pairs};
        b.dim = 2;
        b.lav = xmax == 15 ? 15 + (1 << linbits) - 1 : xmax;
        b.linbits = linbits;
        b.escape = xmax == 15;
        if (ref >= 0) b.codes = own[ref];
        books.push_back(b);
        cur = ref >= 0 ? nullptr : &books.back();
        if (cur) own[std::stoi(id)];
        continue;
      }
      if (!cur) continue;
      RawCode c;
      for (int k = 0; k < cur->dim; ++k) {
        int v;
        in >> v;
        c.values.push_back(v);
      }
      int length;
      in >> length >> c.bits;
      cur->codes.push_back(c);
      if (cur->kind == Kind::kMp3Pairs) own[std::stoi(cur->name.substr(9))].push_back(c);
    }
  }
  return books;
}

inline std::uint32_t CodeOf(const std::string& bits) {
  std::uint32_t c = 0;
  for (char ch : bits) c = (c << 1) | static_cast<std::uint32_t>(ch == '1');
  return c;
}

// Bits per magnitude in the tuple form of a book.
inline int ValueBits(const Book& b) {
  switch (b.kind) {
    case Kind::kMp3Quads: return 1;
    case Kind::kMp3Pairs: return 4;
    default: {
      int bits = 1;
      while ((1 << bits) <= (b.escape ? 16 : b.lav)) ++bits;
      return bits;
    }
  }
}

// Signed packing of a tuple, used as the value in signed books: pairs as
// first * 256 + second + 128 (the escape decoders' form), quadruples as base-5
// digits of value + 2, single values as they are.
inline int PackSigned(const std::vector<int>& v) {
  if (v.size() == 1) return v[0];
  if (v.size() == 2) return v[0] * 256 + v[1] + 128;
  int p = 0;
  for (int x : v) p = p * 5 + (x + 2);
  return p;
}

inline bool HasSignBits(const Book& b) {
  return b.kind == Kind::kAacUnsigned || b.kind == Kind::kMp3Pairs || b.kind == Kind::kMp3Quads;
}

// The book as the plain decoders and the encoders take it: for books with
// sign bits after the code, one entry per sign combination, the signs
// appended to the code (first element's sign first).
inline std::vector<VlcCodeEntry> SignedEntries(const Book& b) {
  std::vector<VlcCodeEntry> out;
  for (const auto& c : b.codes) {
    const auto code = CodeOf(c.bits);
    const int len = static_cast<int>(c.bits.size());
    if (!HasSignBits(b)) {
      out.push_back({PackSigned(c.values), static_cast<Akl32s>(code), len});
      continue;
    }
    std::vector<int> nz;
    for (size_t k = 0; k < c.values.size(); ++k) {
      if (c.values[k] != 0) nz.push_back(static_cast<int>(k));
    }
    const int n = static_cast<int>(nz.size());
    for (int signs = 0; signs < (1 << n); ++signs) {
      std::vector<int> v = c.values;
      for (int j = 0; j < n; ++j) {
        if ((signs >> (n - 1 - j)) & 1) v[static_cast<size_t>(nz[static_cast<size_t>(j)])] *= -1;
      }
      const auto full = (static_cast<std::uint64_t>(code) << n) | static_cast<std::uint64_t>(signs);
      out.push_back({PackSigned(v), static_cast<Akl32s>(full), len + n});
    }
  }
  return out;
}

// The book as the tuple decoders take it: magnitudes packed ValueBits(b) bits
// each, first element most significant.
inline std::vector<VlcCodeEntry> TupleEntries(const Book& b) {
  std::vector<VlcCodeEntry> out;
  const int bits = ValueBits(b);
  for (const auto& c : b.codes) {
    int v = 0;
    for (int x : c.values) v = (v << bits) | x;
    out.push_back({v, static_cast<Akl32s>(CodeOf(c.bits)), static_cast<int>(c.bits.size())});
  }
  return out;
}

inline int MaxLength(const std::vector<VlcCodeEntry>& e) {
  int m = 0;
  for (const auto& x : e) m = std::max(m, x.length);
  return m;
}

// A stream buffer whose bytes start at the aligned word of the cursor and
// end exactly at the aligned word after the last bit used, so any read past
// the reading contract hits the end of a heap block.
struct ExactStream {
  std::vector<Akl8u> bytes;
  Akl8u* Start(int align) { return bytes.data() + align; }
};

inline ExactStream ExactCopy(const std::vector<Akl8u>& src, size_t start_bit, size_t nbits) {
  const size_t last = start_bit + (nbits ? nbits - 1 : 0);
  const size_t words = last / 32 + 2;
  ExactStream s;
  s.bytes.assign(words * 4, 0xA5);  // the word after the stream holds filler
  std::copy(src.begin(), src.begin() + static_cast<std::ptrdiff_t>(std::min(src.size(), words * 4)), s.bytes.begin());
  return s;
}

}  // namespace vlc_test
