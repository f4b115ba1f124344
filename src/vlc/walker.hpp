// The table walk shared by the tuned and the reference VLC decoders: a
// lookup of the code at the top of a 64-bit accumulator, the leaf's value
// (unsigned from 8-bit entries, signed from wider ones), dispatch on the
// context's entry width, the decoders' argument checks and the escape fields.
#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>

#include "vlc/vlc.hpp"

namespace akl::vlc {

// Table walk over entries of type Entry (uint8_t, int16_t or int32_t).
template <class Entry>
class Walker {
 public:
  using Raw = std::make_unsigned_t<Entry>;

  explicit Walker(const DecodeSpec& s)
      : t_(static_cast<const Entry*>(s.table)),
        root_bits_(static_cast<int>(static_cast<Raw>(t_[0]))),
        leaf_shift_(s.lengthFieldBits + 1),
        length_mask_(LowMask(s.lengthFieldBits + 1)),
        num_(static_cast<std::uint32_t>(s.numEntries)) {}

  // The leaf for the code at the top of `acc` (at least maxLength valid
  // bits); *len receives the code's length.
  AKL_VLC_INLINE std::uint32_t Lookup(std::uint64_t acc, int* len) const {
    const std::uint32_t e = static_cast<Raw>(t_[1 + (acc >> (64 - root_bits_))]);
    if (__builtin_expect((e & 1u) != 0, 1)) {
      *len = static_cast<int>((e & length_mask_) >> 1);
      return e;
    }
    return LookupDeep(acc, e, len);
  }

  // The value of a leaf: unsigned from 8-bit entries, signed from wider ones.
  AKL_VLC_INLINE int Value(std::uint32_t e) const {
    if constexpr (std::is_same_v<Entry, std::uint8_t>) {
      return static_cast<int>(e >> leaf_shift_);
    } else {
      return static_cast<int>(static_cast<Entry>(e)) >> leaf_shift_;
    }
  }

 private:
  // Codes longer than the root level: rarer; the branch into here is marked
  // unlikely so the root-leaf path stays straight-line.
  AKL_VLC_INLINE std::uint32_t LookupDeep(std::uint64_t acc, std::uint32_t e, int* len) const {
    int before = 0;
    int s = root_bits_;
    int depth = root_bits_;
    while ((e & 1u) == 0) {
      const std::uint32_t h = e >> 1;
      if (h >= num_) {
        // An empty slot: no code of the book reaches it.  Stop inside the
        // table and consume this level's bits.
        e = (static_cast<std::uint32_t>(s) << 1) | 1u;
        break;
      }
      before += s;
      s = static_cast<int>(static_cast<Raw>(t_[h]));
      depth += s;
      e = static_cast<Raw>(t_[h + 1 + ((acc >> (64 - depth)) & LowMask(s))]);
    }
    *len = before + static_cast<int>((e & length_mask_) >> 1);
    return e;
  }

  const Entry* t_;
  int root_bits_;
  int leaf_shift_;
  std::uint32_t length_mask_;
  std::uint32_t num_;
};

// Calls f(Walker<Entry>) for the context's entry width.
template <class F>
auto WithWalker(const DecodeSpec& s, F&& f) {
  switch (s.entryWidth) {
    case 8:
      return f(Walker<std::uint8_t>(s));
    case 16:
      return f(Walker<std::int16_t>(s));
    default:
      return f(Walker<std::int32_t>(s));
  }
}

template <class W>
AKL_VLC_INLINE int DecodeValue(const W& w, WordReader& r) {
  r.Refill();
  int n;
  const std::uint32_t e = w.Lookup(r.Acc(), &n);
  r.Skip(n);
  return w.Value(e);
}

// Argument checks of the decoders, in their documented order: the pointers
// (-8), the bit offset, the context's tag.  The plain and tuple decoders
// report a bad offset or tag as kStsVLCDataErr, the escape decoders as
// kStsBitOffsetErr and kStsContextMismatch.  *spec receives the aligned
// context on success.
enum class ArgForm { kPlain, kEscape };
inline Status CheckDecodeArgs(Akl8u** ppBitStream, const int* pBitOffset, const Akl16s* pData,
                              const aklsVLCDecodeSpec_32s* pSpec, ArgForm form, const DecodeSpec** spec) {
  if (!ppBitStream || !*ppBitStream || !pBitOffset || !pData || !pSpec) return kStsNullPtr;
  const bool plain = form == ArgForm::kPlain;
  if (static_cast<unsigned>(*pBitOffset) > 7u) return plain ? kStsVLCDataErr : kStsBitOffsetErr;
  const DecodeSpec* s = DecodeSpecAt(pSpec);
  if (!IsDecodeContext(*s)) return plain ? kStsVLCDataErr : kStsContextMismatch;
  *spec = s;
  return kStsOk;
}

// AAC escape after an element of magnitude 16: N ones (N 0..8), a zero and
// N + 4 bits w give 2^(N+4) + w.  False for nine leading ones.
inline bool ReadAacEscape(WordReader& r, std::uint32_t* magnitude) {
  r.Refill();
  const std::uint32_t bits = r.Peek(21);
  const int ones = std::countl_one(bits << 11);
  if (ones > 8) return false;
  const int total = 2 * ones + 5;
  *magnitude = (1u << (ones + 4)) + ((bits >> (21 - total)) & LowMask(ones + 4));
  r.Skip(total);
  return true;
}

inline Akl16s Signed(std::uint32_t magnitude, bool negative) {
  return static_cast<Akl16s>(negative ? 0u - magnitude : magnitude);
}

// Layer III escaped element: linbits bits then the sign, read as one field.
inline Akl16s ReadLinbits(WordReader& r, int linbits) {
  const std::uint32_t b = r.Read(linbits + 1);
  return Signed(15u + (b >> 1), (b & 1u) != 0);
}

inline int ClampLinbits(int linbits) { return linbits < 0 ? 0 : linbits > 31 ? 31 : linbits; }

// Tuple decoding: magnitudes of `bits` bits, first element most significant,
// each non-zero one followed by its sign bit.  The pair decoders split the
// value into two elements whatever numElements says.
//
// When the longest code plus all its sign bits fit in the 32 bits that the
// refill before the code guarantees, sign bits are taken without refilling
// (InHand); otherwise each is read with a refill.
template <bool InHand>
AKL_VLC_INLINE bool SignBit(WordReader& r) {
  return InHand ? r.TakeBit() : r.ReadBit();
}

template <bool InHand, class W>
void TupleLoop(const W& w, WordReader& r, Akl16s* out, int tuples, int elements, int bits) {
  const std::uint32_t mask = LowMask(bits);
  for (int i = 0; i < tuples; ++i) {
    const auto v = static_cast<std::uint32_t>(DecodeValue(w, r));
    for (int k = 0; k < elements; ++k) {
      const std::uint32_t mag = (v >> ((elements - 1 - k) * bits)) & mask;
      out[k] = mag != 0 ? Signed(mag, SignBit<InHand>(r)) : Akl16s{0};
    }
    out += elements;
  }
}

template <class W>
void TupleKernel(const W& w, WordReader& reader, Akl16s* out, int tuples, int elements, int bits, int max_length) {
  WordReader r = reader;
  if (max_length + elements <= 32) {
    TupleLoop<true>(w, r, out, tuples, elements, bits);
  } else {
    TupleLoop<false>(w, r, out, tuples, elements, bits);
  }
  reader = r;
}

}  // namespace akl::vlc
