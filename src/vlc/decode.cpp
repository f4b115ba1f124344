// VLC decoders: one code, a block, the AAC and Layer III escape blocks, and
// their tuple forms with sign bits after the code.
//
// Every decoder keeps at least 32 stream bits in a 64-bit accumulator
// (WordReader) before a lookup, so a code of up to 32 bits is resolved from
// the accumulator's top bits without touching memory; the common case is one
// root-table load, one test of the leaf flag, a shift and a store.
//
// The block kernels run at the latency of the chain from one code to the
// next (index shift, entry load, length mask, accumulator shift): about 3 ns
// a code on the development machine even for a perfectly predicted stream of
// one-bit codes.  Going below that would need more than one code per lookup,
// which the context's table layout does not offer.
#include <bit>
#include <cstdint>
#include <type_traits>

#include "core/exports.hpp"
#include "vlc/decode_ref.hpp"
#include "vlc/vlc.hpp"
#include "vlc/walker.hpp"

namespace akl::vlc {
namespace {

// ---------------------------------------------------------------------------
// Tuned block kernels.
//
// A block decode is bound by one serial chain per code: the root index is a
// shift of the accumulator, the entry load depends on it, the code length
// comes out of the entry and the accumulator shift that exposes the next code
// depends on that.  The kernels below keep that chain to shift, load, mask,
// shift (the walk below the root sits in a cold out-of-line function so the
// loop keeps its registers), take K codes per refill where K codes of the
// longest length fit in the 32 bits a refill guarantees, and fold the sign
// bits of tuple codes into the same accumulator shift as the code itself.

// The table walk below the root for an entry `e` that is not a leaf; returns
// the leaf in the low half and the code's whole length in the high half.
template <class Entry>
AKL_VLC_INLINE std::uint64_t WalkDeep(const Entry* t, int root_bits, std::uint32_t num,
                                                       unsigned length_mask, std::uint64_t acc, std::uint32_t e) {
  using Raw = std::make_unsigned_t<Entry>;
  int before = 0;
  int s = root_bits;
  int depth = root_bits;
  while ((e & 1u) == 0) {
    const std::uint32_t h = e >> 1;
    if (h >= num) {
      e = (static_cast<std::uint32_t>(s) << 1) | 1u;  // empty slot: consume this level
      break;
    }
    before += s;
    s = static_cast<int>(static_cast<Raw>(t[h]));
    depth += s;
    e = static_cast<Raw>(t[h + 1 + ((acc >> (64 - depth)) & LowMask(s))]);
  }
  const auto len = static_cast<std::uint32_t>(before) + ((e >> 1) & length_mask);
  return (std::uint64_t{len} << 32) | e;
}

// The walk's invariants, loaded once from the context into registers.
template <class Entry>
struct FastTable {
  using Raw = std::make_unsigned_t<Entry>;

  explicit FastTable(const DecodeSpec& s)
      : t(static_cast<const Entry*>(s.table)),
        root_bits(static_cast<int>(static_cast<Raw>(t[0]))),
        root_shift(static_cast<unsigned>(64 - root_bits)),
        length_mask(LowMask(s.lengthFieldBits)),
        value_shift(static_cast<unsigned>(s.lengthFieldBits + 1)),
        num(static_cast<std::uint32_t>(s.numEntries)) {}

  // The leaf for the code at the top of acc; *len gets the code's length.
  AKL_VLC_INLINE std::uint32_t Lookup(std::uint64_t acc, unsigned* len) const {
    const std::uint32_t e = static_cast<Raw>(t[1 + (acc >> root_shift)]);
    if (__builtin_expect((e & 1u) != 0, 1)) {
      *len = (e >> 1) & length_mask;
      return e;
    }
    const std::uint64_t r = WalkDeep(t, root_bits, num, length_mask, acc, e);
    *len = static_cast<unsigned>(r >> 32);
    return static_cast<std::uint32_t>(r);
  }
  AKL_VLC_INLINE int Value(std::uint32_t e) const {
    if constexpr (std::is_same_v<Entry, std::uint8_t>) {
      return static_cast<int>(e >> value_shift);
    } else {
      return static_cast<int>(static_cast<Entry>(e)) >> value_shift;
    }
  }

  const Entry* t;
  int root_bits;
  unsigned root_shift;
  unsigned length_mask;
  unsigned value_shift;
  std::uint32_t num;
};

template <class F>
auto WithFastTable(const DecodeSpec& s, F&& f) {
  switch (s.entryWidth) {
    case 8:
      return f(FastTable<std::uint8_t>(s));
    case 16:
      return f(FastTable<std::int16_t>(s));
    default:
      return f(FastTable<std::int32_t>(s));
  }
}

// K codes per refill (K x longest code <= 32), the tail one refill per code.
template <int K, class T>
void FastBlockLoop(const T& tab, WordReader& reader, Akl16s* out, int len) {
  WordReader r = reader;
  int i = 0;
  for (; i + K <= len; i += K) {
    r.Refill();
    std::uint64_t acc = r.Acc();
    unsigned used = 0;
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
      unsigned n;
      const std::uint32_t e = tab.Lookup(acc, &n);
      acc <<= n;
      used += n;
      out[i + k] = static_cast<Akl16s>(tab.Value(e));
    }
    r.Skip(static_cast<int>(used));
  }
  for (; i < len; ++i) {
    r.Refill();
    unsigned n;
    const std::uint32_t e = tab.Lookup(r.Acc(), &n);
    r.Skip(static_cast<int>(n));
    out[i] = static_cast<Akl16s>(tab.Value(e));
  }
  reader = r;
}

// Byte-stepping reader for the body of a long block: a 64-bit big-endian load
// at a byte pointer tops the buffer up to at least 56 bits without a branch,
// and the pointer for the next load is known a whole group ahead, so neither
// a mispredicted refill branch nor the load's latency sits on the codes'
// chain.  The load starts where the buffered bits end (up to 63 bits ahead)
// and spans 64 bits, so it reaches at most 126 bits past the current
// position.  It is used only while at least kLookaheadCodes codes remain,
// each taking one bit or more: the last bit the block uses is then at least
// 95 bits ahead, and the aligned word after it covers 31 more, so the load
// stays inside the read contract.
constexpr int kLookaheadCodes = 96;

AKL_VLC_INLINE std::uint64_t LoadBE64(const Akl8u* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return __builtin_bswap64(v);
}

// Runs `code(buf, index)` for whole groups of K codes while enough codes
// remain for the look-ahead; `code` decodes the code at the top of buf (at
// least 56 / K bits valid) and returns the bits it used.  Returns how many
// codes were decoded and leaves `reader` after them.
template <int K, class Code>
AKL_VLC_INLINE int BodyLoop(WordReader& reader, int len, Code&& code) {
  if (len < K + kLookaheadCodes) return 0;
  const Akl8u* base = reader.Base();
  const std::size_t start = reader.Position();
  const Akl8u* ptr = base + start / 8;
  std::uint64_t buf = 0;
  unsigned count = 0;  // valid bits at the top of buf; 8 * ptr = position + count
  auto refill = [&]() __attribute__((always_inline)) {
    buf |= LoadBE64(ptr) >> count;
    ptr += (63 - count) >> 3;
    count |= 56;
  };
  refill();
  buf <<= start % 8;
  count -= static_cast<unsigned>(start % 8);
  int i = 0;
  for (; i + K + kLookaheadCodes <= len; i += K) {
    refill();
#pragma GCC unroll 8
    for (int k = 0; k < K; ++k) {
      const unsigned n = code(buf, i + k);
      buf <<= n;
      count -= n;
    }
  }
  const auto pos = static_cast<std::size_t>(ptr - base) * 8 - count;
  reader = WordReader::AtPosition(base, pos);
  return i;
}

template <int K, class T>
int BlockBody(const T& tab, WordReader& reader, Akl16s* out, int len) {
  return BodyLoop<K>(reader, len, [&](std::uint64_t buf, int i) __attribute__((always_inline)) {
    unsigned n;
    out[i] = static_cast<Akl16s>(tab.Value(tab.Lookup(buf, &n)));
    return n;
  });
}

template <class T>
void FastBlock(const T& tab, WordReader& r, Akl16s* out, int len, int max_length) {
  // K codes per 56-bit top-up in the body.
  int done;
  if (max_length <= 7) {
    done = BlockBody<8>(tab, r, out, len);
  } else if (max_length <= 9) {
    done = BlockBody<6>(tab, r, out, len);
  } else if (max_length <= 11) {
    done = BlockBody<5>(tab, r, out, len);
  } else if (max_length <= 14) {
    done = BlockBody<4>(tab, r, out, len);
  } else if (max_length <= 18) {
    done = BlockBody<3>(tab, r, out, len);
  } else if (max_length <= 28) {
    done = BlockBody<2>(tab, r, out, len);
  } else {
    done = BlockBody<1>(tab, r, out, len);
  }
  out += done;
  len -= done;

  if (max_length <= 8) {
    FastBlockLoop<4>(tab, r, out, len);
  } else if (max_length <= 10) {
    FastBlockLoop<3>(tab, r, out, len);
  } else if (max_length <= 16) {
    FastBlockLoop<2>(tab, r, out, len);
  } else {
    FastBlockLoop<1>(tab, r, out, len);
  }
}

// Applies a sign bit s (0 or 1) to a magnitude without a branch.
AKL_VLC_INLINE Akl16s WithSign(std::uint32_t mag, std::uint32_t s) {
  return static_cast<Akl16s>((mag ^ (0u - s)) + s);
}

// Pairs of magnitudes (first, second) with a sign bit after the code for each
// non-zero one: the signs are read from the accumulator after the code and
// consumed with it in one shift.  Requires the code plus two bits in hand.
AKL_VLC_INLINE unsigned PairSigns(std::uint64_t acc_after_code, std::uint32_t first, std::uint32_t second,
                                  Akl16s* out) {
  const unsigned nz0 = first != 0;
  const unsigned nz1 = second != 0;
  const auto s0 = static_cast<std::uint32_t>(acc_after_code >> 63) & nz0;
  const auto s1 = static_cast<std::uint32_t>(acc_after_code >> (63 - nz0)) & 1u & nz1;
  out[0] = WithSign(first, s0);
  out[1] = WithSign(second, s1);
  return nz0 + nz1;
}

// Tuple block for pairs (numElements 2), K codes per refill.
template <int K, class T>
void FastPairLoop(const T& tab, WordReader& reader, Akl16s* out, int tuples, int bits) {
  WordReader r = reader;
  const std::uint32_t mask = LowMask(bits);
  const auto ubits = static_cast<unsigned>(bits);
  int i = 0;
  for (; i + K <= tuples; i += K) {
    r.Refill();
    std::uint64_t acc = r.Acc();
    unsigned used = 0;
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
      unsigned n;
      const auto v = static_cast<std::uint32_t>(tab.Value(tab.Lookup(acc, &n)));
      const unsigned signs = PairSigns(acc << n, (v >> ubits) & mask, v & mask, out + 2 * (i + k));
      n += signs;
      acc <<= n;
      used += n;
    }
    r.Skip(static_cast<int>(used));
  }
  for (; i < tuples; ++i) {
    r.Refill();
    unsigned n;
    const auto v = static_cast<std::uint32_t>(tab.Value(tab.Lookup(r.Acc(), &n)));
    n += PairSigns(r.Acc() << n, (v >> ubits) & mask, v & mask, out + 2 * i);
    r.Skip(static_cast<int>(n));
  }
  reader = r;
}

// The body of a long pair-tuple block: K codes with their sign bits per
// 56-bit top-up.
template <int K, class T>
int PairBody(const T& tab, WordReader& reader, Akl16s* out, int tuples, int bits) {
  const std::uint32_t mask = LowMask(bits);
  const auto ubits = static_cast<unsigned>(bits);
  return BodyLoop<K>(reader, tuples, [&](std::uint64_t buf, int i) __attribute__((always_inline)) {
    unsigned n;
    const auto v = static_cast<std::uint32_t>(tab.Value(tab.Lookup(buf, &n)));
    return n + PairSigns(buf << n, (v >> ubits) & mask, v & mask, out + 2 * i);
  });
}

template <class T>
int PairBodyFor(const T& tab, WordReader& r, Akl16s* out, int tuples, int bits, int max_length) {
  switch (56 / (max_length + 2)) {
    case 0: return 0;
    case 1: return PairBody<1>(tab, r, out, tuples, bits);
    case 2: return PairBody<2>(tab, r, out, tuples, bits);
    case 3: return PairBody<3>(tab, r, out, tuples, bits);
    case 4: return PairBody<4>(tab, r, out, tuples, bits);
    case 5: return PairBody<5>(tab, r, out, tuples, bits);
    default: return PairBody<6>(tab, r, out, tuples, bits);
  }
}

// Tuple block for quadruples (numElements 4): signs of the non-zero elements
// in order after the code, consumed with it.  Requires the code plus four bits
// in hand.
template <class T>
void FastQuadLoop(const T& tab, WordReader& reader, Akl16s* out, int tuples, int bits) {
  WordReader r = reader;
  const std::uint32_t mask = LowMask(bits);
  const auto ubits = static_cast<unsigned>(bits);
  for (int i = 0; i < tuples; ++i) {
    r.Refill();
    unsigned n;
    const auto v = static_cast<std::uint32_t>(tab.Value(tab.Lookup(r.Acc(), &n)));
    std::uint64_t a = r.Acc() << n;
    unsigned pos = 0;
#pragma GCC unroll 4
    for (unsigned k = 0; k < 4; ++k) {
      const std::uint32_t mag = (v >> ((3 - k) * ubits)) & mask;
      const unsigned nz = mag != 0;
      const auto sgn = static_cast<std::uint32_t>(a >> (63 - pos)) & 1u & nz;
      out[4 * i + static_cast<int>(k)] = WithSign(mag, sgn);
      pos += nz;
    }
    r.Skip(static_cast<int>(n + pos));
  }
  reader = r;
}

// AAC escape word read inline (the escape path is common in the escape book's
// realistic statistics); false for nine leading ones.
AKL_VLC_INLINE bool AacEscapeInline(WordReader& r, std::uint32_t* magnitude) {
  r.Refill();
  const std::uint32_t bits = r.Peek(21);
  const int ones = std::countl_one(bits << 11);
  if (__builtin_expect(ones > 8, 0)) return false;
  const int total = 2 * ones + 5;
  *magnitude = (1u << (ones + 4)) + ((bits >> (21 - total)) & LowMask(ones + 4));
  r.Skip(total);
  return true;
}

AKL_VLC_INLINE bool AacEscapeElement(WordReader& r, int* x) {
  if (*x != 16 && *x != -16) return true;
  std::uint32_t mag;
  if (!AacEscapeInline(r, &mag)) return false;
  *x = *x < 0 ? -static_cast<int>(mag) : static_cast<int>(mag);
  return true;
}

// AAC escape pairs (signed book, first * 256 + second + 128), one refill per
// pair: escapes make the bits a pair takes unbounded, so grouping pairs per
// refill gains nothing (measured).
template <class T>
Status FastEscAacLoop(const T& tab, WordReader& reader, Akl16s* out, int pairs) {
  WordReader r = reader;
  for (int i = 0; i < pairs; ++i) {
    r.Refill();
    unsigned n;
    const int v = tab.Value(tab.Lookup(r.Acc(), &n));
    r.Skip(static_cast<int>(n));
    int first = v >> 8;
    int second = (v & 0xFF) - 128;
    // +-16 are the only elements with bit 4 set and nothing above it.
    const bool esc = ((first + 16) & ~32) == 0 || ((second + 16) & ~32) == 0;
    if (esc && (!AacEscapeElement(r, &first) || !AacEscapeElement(r, &second))) return kStsVLCDataErr;
    out[2 * i] = static_cast<Akl16s>(first);
    out[2 * i + 1] = static_cast<Akl16s>(second);
  }
  reader = r;
  return kStsOk;
}

// Layer III escaped element from bits in hand: linbits bits, then the sign.
AKL_VLC_INLINE Akl16s TakeLinbits(WordReader& r, int linbits) {
  const std::uint32_t b = r.Peek(linbits + 1);
  r.Skip(linbits + 1);
  return Signed(15u + (b >> 1), (b & 1u) != 0);
}

// Layer III escape pairs (signed book, signs inside the codes).  Pairs
// without a 15 take the straight path; an escaped pair refills once after its
// Huffman part, which leaves 32 bits for two linbits fields of up to 14 bits
// and their signs (linbits above 14 read each field with its own refill).
template <class T>
void FastEscMp3Loop(const T& tab, WordReader& reader, int linbits, Akl16s* out, int pairs) {
  WordReader r = reader;
  const bool in_hand = linbits <= 14;
  for (int i = 0; i < pairs; ++i) {
    r.Refill();
    unsigned n;
    const int v = tab.Value(tab.Lookup(r.Acc(), &n));
    const int x = v >> 8;
    const int y = (v & 0xFF) - 128;
    const bool x_esc = x == 15 || x == -15;
    const bool y_esc = y == 15 || y == -15;
    if (!x_esc && !y_esc) {
      r.Skip(static_cast<int>(n));
      out[2 * i] = static_cast<Akl16s>(x);
      out[2 * i + 1] = static_cast<Akl16s>(y);
      continue;
    }
    // The code's length counts x's sign bit and y's (only y's when x is not
    // escaped); they come after the linbits fields, so only the Huffman part
    // is consumed here.
    const int signs = x_esc ? (y != 0 ? 2 : 1) : 1;
    const int code_bits = static_cast<int>(n);
    r.Skip(code_bits > signs ? code_bits - signs : 0);
    Akl16s xs = static_cast<Akl16s>(x);
    Akl16s ys = static_cast<Akl16s>(y);
    if (in_hand) {
      r.Refill();
      if (x_esc) {
        xs = TakeLinbits(r, linbits);
        if (y_esc) {
          ys = TakeLinbits(r, linbits);
        } else if (y != 0) {
          ys = Signed(static_cast<std::uint32_t>(y < 0 ? -y : y), r.TakeBit());
        }
      } else {
        ys = TakeLinbits(r, linbits);
      }
    } else if (x_esc) {
      xs = ReadLinbits(r, linbits);
      if (y_esc) {
        ys = ReadLinbits(r, linbits);
      } else if (y != 0) {
        ys = Signed(static_cast<std::uint32_t>(y < 0 ? -y : y), r.ReadBit());
      }
    } else {
      ys = ReadLinbits(r, linbits);
    }
    out[2 * i] = xs;
    out[2 * i + 1] = ys;
  }
  reader = r;
}

// The body of a long Layer III escape block: one top-up per K pairs, K pairs
// of the worst case (the longest code and two linbits fields with signs)
// fitting in 56 bits.
template <int K, class T>
int EscMp3Body(const T& tab, WordReader& reader, int linbits, Akl16s* out, int pairs) {
  const auto field = static_cast<unsigned>(linbits + 1);
  return BodyLoop<K>(reader, pairs, [&](std::uint64_t buf, int i) __attribute__((always_inline)) {
    unsigned n;
    const int v = tab.Value(tab.Lookup(buf, &n));
    const int x = v >> 8;
    const int y = (v & 0xFF) - 128;
    const bool x_esc = x == 15 || x == -15;
    const bool y_esc = y == 15 || y == -15;
    if (!x_esc && !y_esc) {
      out[2 * i] = static_cast<Akl16s>(x);
      out[2 * i + 1] = static_cast<Akl16s>(y);
      return n;
    }
    // As in FastEscMp3Loop: only the Huffman part of the code is consumed
    // before the linbits fields.
    const unsigned signs = x_esc ? (y != 0 ? 2u : 1u) : 1u;
    unsigned used = n > signs ? n - signs : 0;
    auto take_field = [&]() __attribute__((always_inline)) {
      const auto b = static_cast<std::uint32_t>((buf << used) >> (64 - field));
      used += field;
      return Signed(15u + (b >> 1), (b & 1u) != 0);
    };
    Akl16s xs = static_cast<Akl16s>(x);
    Akl16s ys = static_cast<Akl16s>(y);
    if (x_esc) {
      xs = take_field();
      if (y_esc) {
        ys = take_field();
      } else if (y != 0) {
        ys = Signed(static_cast<std::uint32_t>(y < 0 ? -y : y), (((buf << used) >> 63) & 1u) != 0);
        ++used;
      }
    } else {
      ys = take_field();
    }
    out[2 * i] = xs;
    out[2 * i + 1] = ys;
    return used;
  });
}

template <class T>
int EscMp3BodyFor(const T& tab, WordReader& r, int linbits, Akl16s* out, int pairs, int max_length) {
  switch (56 / (max_length + 2 * linbits + 2)) {
    case 0: return 0;
    case 1: return EscMp3Body<1>(tab, r, linbits, out, pairs);
    case 2: return EscMp3Body<2>(tab, r, linbits, out, pairs);
    default: return EscMp3Body<3>(tab, r, linbits, out, pairs);
  }
}

// Tuple escape pairs, AAC: unsigned magnitudes, signs after the code, then
// the escape words of elements equal to 16.
template <int K, class T>
Status FastTupleEscAacLoop(const T& tab, WordReader& reader, Akl16s* out, int pairs, int bits) {
  WordReader r = reader;
  const std::uint32_t mask = LowMask(bits);
  const auto ubits = static_cast<unsigned>(bits);
  int i = 0;
  while (i < pairs) {
    r.Refill();
    const int k_end = pairs - i < K ? pairs - i : K;
    for (int k = 0; k < k_end; ++k, ++i) {
      unsigned n;
      const auto v = static_cast<std::uint32_t>(tab.Value(tab.Lookup(r.Acc(), &n)));
      std::uint32_t first = static_cast<std::uint32_t>(std::uint64_t{v} >> ubits) & mask;  // ubits may be 32
      std::uint32_t second = v & mask;
      Akl16s pair[2];
      const unsigned signs = PairSigns(r.Acc() << n, first, second, pair);
      r.Skip(static_cast<int>(n + signs));
      if (__builtin_expect(first != 16 && second != 16, 1)) {
        out[2 * i] = pair[0];
        out[2 * i + 1] = pair[1];
        continue;
      }
      // A failing escape leaves its pair unwritten.
      const bool neg_first = pair[0] < 0;
      const bool neg_second = pair[1] < 0;
      if (first == 16 && !ReadAacEscape(r, &first)) return kStsVLCDataErr;
      if (second == 16 && !ReadAacEscape(r, &second)) return kStsVLCDataErr;
      out[2 * i] = Signed(first, neg_first);
      out[2 * i + 1] = Signed(second, neg_second);
      ++i;
      break;  // the escape used bits of the group: refill
    }
  }
  reader = r;
  return kStsOk;
}

// Tuple escape pairs, Layer III: unsigned magnitudes; a pair holding 15 reads
// x's linbits, x's sign, y's linbits, y's sign.
template <int K, class T>
void FastTupleEscMp3Loop(const T& tab, WordReader& reader, int linbits, Akl16s* out, int pairs, int bits) {
  WordReader r = reader;
  const std::uint32_t mask = LowMask(bits);
  const auto ubits = static_cast<unsigned>(bits);
  int i = 0;
  while (i < pairs) {
    r.Refill();
    const int k_end = pairs - i < K ? pairs - i : K;
    for (int k = 0; k < k_end; ++k, ++i) {
      unsigned n;
      const auto v = static_cast<std::uint32_t>(tab.Value(tab.Lookup(r.Acc(), &n)));
      const std::uint32_t x = static_cast<std::uint32_t>(std::uint64_t{v} >> ubits) & mask;  // ubits may be 32
      const std::uint32_t y = v & mask;
      if (__builtin_expect(x != 15 && y != 15, 1)) {
        const unsigned signs = PairSigns(r.Acc() << n, x, y, out + 2 * i);
        r.Skip(static_cast<int>(n + signs));
        continue;
      }
      r.Skip(static_cast<int>(n));
      for (int e = 0; e < 2; ++e) {
        std::uint32_t mag = e == 0 ? x : y;
        if (mag == 15) mag += r.Read(linbits);
        out[2 * i + e] = mag != 0 ? Signed(mag, r.ReadBit()) : Akl16s{0};
      }
      ++i;
      break;  // linbits used bits of the group: refill
    }
  }
  reader = r;
}

// Codes per refill when each code may take `extra` bits beyond its length.
constexpr int PerRefill(int max_length, int extra) {
  const int per = max_length + extra;
  return per <= 8 ? 4 : per <= 10 ? 3 : per <= 16 ? 2 : per <= 32 ? 1 : 0;
}

}  // namespace

Status aklsVLCDecodeOne_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData,
                              const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kPlain, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  WordReader r = WordReader::AtAlignedWord(*ppBitStream, *pBitOffset);
  WithWalker(s, [&](const auto& w) { *pData = static_cast<Akl16s>(DecodeValue(w, r)); });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCDecodeBlock_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kPlain, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  if (len < 1) return kStsOk;
  WordReader r = WordReader::AtAlignedWord(*ppBitStream, *pBitOffset);
  WithFastTable(s, [&](const auto& t) { FastBlock(t, r, pData, len, s.maxLength); });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCDecodeEscBlock_AAC_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                       const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  const Status st = WithFastTable(s, [&](const auto& t) {
    return FastEscAacLoop(t, r, pData, pairs);
  });
  if (st != kStsOk) return st;
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCDecodeEscBlock_MP3_1u16s(Akl8u** ppBitStream, int* pBitOffset, int linbits, Akl16s* pData, int len,
                                       const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  const int lb = ClampLinbits(linbits);
  WithFastTable(s, [&](const auto& t) {
    const int done = EscMp3BodyFor(t, r, lb, pData, pairs, s.maxLength);
    FastEscMp3Loop(t, r, lb, pData + 2 * done, pairs - done);
  });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCDecodeUTupleOne_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData,
                                    const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kPlain, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  WordReader r = WordReader::AtAlignedWord(*ppBitStream, *pBitOffset);
  WithWalker(s, [&](const auto& w) { TupleKernel(w, r, pData, 1, s.numElements, s.numValueBits, s.maxLength); });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCDecodeUTupleBlock_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                      const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kPlain, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int tuples = len / s.numElements;
  if (tuples < 1) return kStsOk;
  const int per = PerRefill(s.maxLength, s.numElements);
  if ((s.numElements != 2 && s.numElements != 4) || per == 0) {
    return ref::DecodeUTupleBlock_1u16sRef(ppBitStream, pBitOffset, pData, len, pSpec);
  }
  WordReader r = WordReader::AtAlignedWord(*ppBitStream, *pBitOffset);
  WithFastTable(s, [&](const auto& t) {
    if (s.numElements == 4) return FastQuadLoop(t, r, pData, tuples, s.numValueBits);
    const int done = PairBodyFor(t, r, pData, tuples, s.numValueBits, s.maxLength);
    Akl16s* rest = pData + 2 * done;
    const int left = tuples - done;
    switch (per) {
      case 4: return FastPairLoop<4>(t, r, rest, left, s.numValueBits);
      case 3: return FastPairLoop<3>(t, r, rest, left, s.numValueBits);
      case 2: return FastPairLoop<2>(t, r, rest, left, s.numValueBits);
      default: return FastPairLoop<1>(t, r, rest, left, s.numValueBits);
    }
  });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCDecodeUTupleEscBlock_AAC_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                             const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  const int per = PerRefill(s.maxLength, 2);
  if (per == 0) return ref::DecodeUTupleEscBlock_AAC_1u16sRef(ppBitStream, pBitOffset, pData, len, pSpec);
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  const Status st = WithFastTable(s, [&](const auto& t) {
    switch (per) {
      case 4: return FastTupleEscAacLoop<4>(t, r, pData, pairs, s.numValueBits);
      case 3: return FastTupleEscAacLoop<3>(t, r, pData, pairs, s.numValueBits);
      case 2: return FastTupleEscAacLoop<2>(t, r, pData, pairs, s.numValueBits);
      default: return FastTupleEscAacLoop<1>(t, r, pData, pairs, s.numValueBits);
    }
  });
  if (st != kStsOk) return st;
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCDecodeUTupleEscBlock_MP3_1u16s(Akl8u** ppBitStream, int* pBitOffset, int linbits, Akl16s* pData,
                                             int len, const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  const int per = PerRefill(s.maxLength, 2);
  if (per == 0) {
    return ref::DecodeUTupleEscBlock_MP3_1u16sRef(ppBitStream, pBitOffset, linbits, pData, len, pSpec);
  }
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  const int lb = ClampLinbits(linbits);
  WithFastTable(s, [&](const auto& t) {
    switch (per) {
      case 4: return FastTupleEscMp3Loop<4>(t, r, lb, pData, pairs, s.numValueBits);
      case 3: return FastTupleEscMp3Loop<3>(t, r, lb, pData, pairs, s.numValueBits);
      case 2: return FastTupleEscMp3Loop<2>(t, r, lb, pData, pairs, s.numValueBits);
      default: return FastTupleEscMp3Loop<1>(t, r, lb, pData, pairs, s.numValueBits);
    }
  });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

}  // namespace akl::vlc
