// The library's one bit reader and one bit writer over a bitstream cursor
// (byte pointer + bit offset 0..7, most significant bit first).
//
// Reader: BitAccumulator, a 64-bit accumulator holding the next bits at its
// top.  Its policies are the memory rules the operations promise:
//
//   where it starts     AtAlignedWord: the first load is the aligned 32-bit
//                       word holding the first bit (up to 3 bytes before the
//                       byte pointer).  AtBytePointer: the first partial word
//                       is assembled byte by byte from the byte pointer on;
//                       nothing before it is touched.
//   how it refills      kBranchy / kBranchFree: one aligned big-endian word
//                       whenever fewer than 32 bits are in hand, so at least
//                       32 are in hand after a Refill.  Every refill is
//                       followed by consuming at least one bit, so the word
//                       loaded is at most the aligned word after the one
//                       holding the last bit consumed.  The branch-free form
//                       reloads the last word when none is due (for decoding
//                       loops where whether one is due is close to random).
//                       kOnDemand: bytes, only when a read needs them, so it
//                       touches exactly the bytes holding the bits it reads
//                       (the header and side-information parsers).
//   where it stops      kBounded: words after the aligned word that follows
//                       a bound (a count of bits from the start) are never
//                       loaded; the reader supplies zero bits there.
//
// Writer: BitWriter, with the two store rules of the library: kBytes (the
// packers: a byte begun at offset 0 is stored whole, its bits after the
// written ones 0; a partly written byte is completed by OR) and kWords (the
// VLC encoders: whole aligned words, the rest of the word after the last
// piece set to ones).
//
// Neither writes the caller's cursor until WriteBack / Finish, so an
// operation that fails part-way leaves the cursor as it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "aklac.h"

// The per-code helpers of the hot loops must inline into them, whatever the
// compiler's size heuristics say, so the reader's state stays in registers.
#define AKL_BITS_INLINE inline __attribute__((always_inline))

namespace akl {

inline std::uint32_t LoadBE32(const Akl8u* p) {
  std::uint32_t w;
  std::memcpy(&w, p, 4);
  return __builtin_bswap32(w);
}

inline void StoreBE32(Akl8u* p, std::uint32_t v) {
  v = __builtin_bswap32(v);
  std::memcpy(p, &v, 4);
}

enum class RefillRule { kBranchy, kBranchFree, kOnDemand };

template <RefillRule kRefill, bool kBounded = false>
class BitAccumulator {
  static_assert(!(kBounded && kRefill != RefillRule::kBranchy), "a bound is kept by the branchy refill only");

 public:
  // The starting rule of the refill policy: the aligned word for the word
  // refills, the byte pointer for kOnDemand.
  BitAccumulator(const Akl8u* byte_ptr, int bit_offset) {
    if constexpr (kRefill == RefillRule::kOnDemand) {
      StartAtBytePointer(byte_ptr, bit_offset, false);
    } else {
      StartAtAlignedWord(byte_ptr, bit_offset);
    }
  }
  // A bounded reader over bits_available bits from the cursor.
  BitAccumulator(const Akl8u* byte_ptr, int bit_offset, std::int64_t bits_available)
    requires kBounded
  {
    const auto rem = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u);
    const std::size_t start = rem * 8u + static_cast<unsigned>(bit_offset);
    base_ = byte_ptr - rem;
    end_ = start + static_cast<std::size_t>(bits_available);
    limit_ = base_ + 4 * (bits_available > 0 ? (end_ - 1) / 32 + 1 : start / 32);
    next_ = base_;
    acc_ = 0;
    avail_ = 0;
    Refill();
    Skip(static_cast<int>(start));
  }

  static BitAccumulator AtAlignedWord(const Akl8u* byte_ptr, int bit_offset) {
    static_assert(kRefill != RefillRule::kOnDemand);
    return BitAccumulator(byte_ptr, bit_offset);
  }
  static BitAccumulator AtBytePointer(const Akl8u* byte_ptr, int bit_offset) {
    static_assert(kRefill == RefillRule::kBranchy || kRefill == RefillRule::kOnDemand);
    BitAccumulator r;
    r.StartAtBytePointer(byte_ptr, bit_offset, true);
    return r;
  }
  // A reader at bit `pos` after the aligned `base`: loads the word holding it.
  static BitAccumulator AtPosition(const Akl8u* base, std::size_t pos) {
    static_assert(kRefill == RefillRule::kBranchy && !kBounded);
    BitAccumulator r;
    r.base_ = base;
    r.next_ = base + 4 * (pos / 32 + 1);
    r.acc_ = (static_cast<std::uint64_t>(LoadBE32(base + 4 * (pos / 32))) << 32) << (pos % 32);
    r.avail_ = 32 - static_cast<int>(pos % 32);
    return r;
  }

  // Word refills: at least 32 bits in hand afterwards.
  AKL_BITS_INLINE void Refill() {
    if constexpr (kRefill == RefillRule::kBranchFree) {
      const bool need = avail_ < 32;
      const Akl8u* src = need ? next_ : next_ - 4;
      const std::uint64_t w = LoadBE32(src) & (need ? ~std::uint64_t{0} : 0);
      acc_ |= w << (need ? 32 - avail_ : 0);
      next_ += need ? 4 : 0;
      avail_ += need ? 32 : 0;
    } else if constexpr (kRefill == RefillRule::kBranchy) {
      if (avail_ < 32) {
        std::uint64_t w;
        if constexpr (kBounded) {
          w = next_ <= limit_ ? LoadBE32(next_) : 0u;
        } else {
          w = LoadBE32(next_);
        }
        acc_ |= w << (32 - avail_);
        next_ += 4;
        avail_ += 32;
      }
    }
  }

  // In hand (after a Refill, or bits known to be loaded): the accumulator,
  // the next n bits (1..32), skipping and taking them.
  AKL_BITS_INLINE std::uint64_t Acc() const { return acc_; }
  AKL_BITS_INLINE std::uint32_t Peek(int n) const { return static_cast<std::uint32_t>(acc_ >> (64 - n)); }
  AKL_BITS_INLINE void Skip(int n) {
    acc_ <<= n;
    avail_ -= n;
  }
  AKL_BITS_INLINE std::uint32_t ReadInHand(int n) {
    const std::uint32_t v = Peek(n);
    Skip(n);
    return v;
  }
  AKL_BITS_INLINE bool TakeBit() {
    const bool b = (acc_ >> 63) != 0;
    Skip(1);
    return b;
  }
  // The sign bit that follows a non-zero magnitude, applied without a branch
  // (whether a sign bit follows is data and predicts badly); a zero
  // magnitude takes no bit.
  AKL_BITS_INLINE Akl32s TakeSign(std::uint32_t magnitude) {
    const std::uint32_t has = magnitude != 0;
    const auto neg = static_cast<std::uint32_t>(acc_ >> 63) & has;
    acc_ <<= has;
    avail_ -= static_cast<int>(has);
    return static_cast<Akl32s>((magnitude ^ (0u - neg)) + neg);
  }

  // Refill (or fetch the bytes needed), then read n bits (0..32).
  AKL_BITS_INLINE std::uint32_t Read(int n) {
    if constexpr (kRefill == RefillRule::kOnDemand) {
      while (avail_ < n) {
        acc_ |= static_cast<std::uint64_t>(*next_++) << (56 - avail_);
        avail_ += 8;
      }
    } else {
      Refill();
    }
    const auto v = static_cast<std::uint32_t>((acc_ >> 1) >> (63 - n));  // 0 for n = 0
    Skip(n);
    return v;
  }
  AKL_BITS_INLINE bool ReadBit() { return Read(1) != 0; }
  // Skips any number of bits.
  void SkipBits(std::size_t n) {
    for (; n > 32; n -= 32) Read(32);
    Read(static_cast<int>(n));
  }
  // To offset 0 of the next byte (nothing when already there).
  void AlignToByte() { SkipBits((8 - (Position() & 7u)) & 7u); }

  // Bit position from the aligned base.
  std::size_t Position() const {
    return static_cast<std::size_t>(next_ - base_) * 8u - static_cast<std::size_t>(avail_);
  }
  const Akl8u* Base() const { return base_; }
  const Akl8u* BytePtr() const { return base_ + (Position() >> 3); }
  int BitOffset() const { return static_cast<int>(Position() & 7u); }
  void WriteBack(Akl8u** pp_bit_stream, int* p_bit_offset) const {
    const std::size_t pos = Position();
    *pp_bit_stream = const_cast<Akl8u*>(base_ + (pos >> 3));
    *p_bit_offset = static_cast<int>(pos & 7u);
  }

  // Bounded readers: the bound's position and the bits left before it
  // (negative after an overrun).
  std::size_t End() const
    requires kBounded
  {
    return end_;
  }
  std::int64_t Remaining() const
    requires kBounded
  {
    return static_cast<std::int64_t>(end_) - static_cast<std::int64_t>(Position());
  }

 private:
  BitAccumulator() = default;

  void StartAtAlignedWord(const Akl8u* byte_ptr, int bit_offset) {
    const auto rem = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u);
    const unsigned start = rem * 8u + static_cast<unsigned>(bit_offset);
    base_ = byte_ptr - rem;
    next_ = base_ + 4;
    acc_ = (static_cast<std::uint64_t>(LoadBE32(base_)) << 32) << start;
    avail_ = 32 - static_cast<int>(start);
  }
  // Word refills assemble the rest of the first aligned word from the byte
  // pointer on; kOnDemand loads nothing until a read needs it.
  void StartAtBytePointer(const Akl8u* byte_ptr, int bit_offset, bool whole_word) {
    const auto rem = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u);
    base_ = byte_ptr - rem;
    if (kRefill != RefillRule::kOnDemand && whole_word) {
      std::uint32_t w = 0;
      for (unsigned i = rem; i < 4; ++i) w |= static_cast<std::uint32_t>(byte_ptr[i - rem]) << (24 - 8 * i);
      const unsigned start = rem * 8u + static_cast<unsigned>(bit_offset);
      next_ = base_ + 4;
      acc_ = (static_cast<std::uint64_t>(w) << 32) << start;
      avail_ = 32 - static_cast<int>(start);
    } else {
      next_ = byte_ptr;
      acc_ = 0;
      avail_ = 0;
      Read(bit_offset);
    }
  }

  const Akl8u* base_;
  const Akl8u* next_;
  std::uint64_t acc_;
  int avail_;
  [[no_unique_address]] std::conditional_t<kBounded, std::size_t, char> end_{};
  [[no_unique_address]] std::conditional_t<kBounded, const Akl8u*, char> limit_{};
};

// The readers of the library, by memory rule.
using ByteReader = BitAccumulator<RefillRule::kOnDemand>;            // header and side-information parsers
using WordReader = BitAccumulator<RefillRule::kBranchy>;             // the VLC engine
using BranchFreeReader = BitAccumulator<RefillRule::kBranchFree>;    // AAC syntax elements and noiseless decoding
using BoundedReader = BitAccumulator<RefillRule::kBranchy, true>;    // Layer III Huffman data

enum class Store { kBytes, kWords };

template <Store kStore>
class BitWriterT;

// Byte stores: each Write settles its bytes at once.
template <>
class BitWriterT<Store::kBytes> {
 public:
  BitWriterT(Akl8u* byte_ptr, int bit_offset) : p_(byte_ptr), offset_(bit_offset) {}

  // Writes the n low bits of value (n 0..32), most significant first.
  template <class Int>
  void Write(Int field, int n) {
    if (n <= 0) return;
    const auto value = static_cast<std::uint32_t>(field);
    int remaining = n;
    const std::uint64_t v = value & (n == 32 ? 0xFFFFFFFFull : ((1ull << n) - 1));
    if (offset_ != 0) {
      const int room = 8 - offset_;
      const int take = remaining < room ? remaining : room;
      const auto bits = static_cast<unsigned>((v >> (remaining - take)) & ((1u << take) - 1));
      *p_ = static_cast<Akl8u>(*p_ | (bits << (room - take)));
      remaining -= take;
      offset_ += take;
      if (offset_ == 8) {
        ++p_;
        offset_ = 0;
      }
    }
    while (remaining >= 8) {
      *p_++ = static_cast<Akl8u>(v >> (remaining - 8));
      remaining -= 8;
    }
    if (remaining > 0) {
      *p_ = static_cast<Akl8u>((v & ((1u << remaining) - 1)) << (8 - remaining));
      offset_ = remaining;
    }
  }

  Akl8u* BytePtr() const { return p_; }
  int BitOffset() const { return offset_; }
  void WriteBack(Akl8u** pp_bit_stream, int* p_bit_offset) const {
    *pp_bit_stream = p_;
    *p_bit_offset = offset_;
  }
  void Finish(Akl8u** pp_bit_stream, int* p_bit_offset) const { WriteBack(pp_bit_stream, p_bit_offset); }

 private:
  Akl8u* p_;
  int offset_;
};

// Word stores: every piece is merged into the aligned word that holds the
// cursor, keeping the bits before it.  A piece that ends inside a word leaves
// the rest of that word set to ones; a piece that runs into the next word
// puts its remaining bits at the top of that word and keeps the word's other
// bits.  Only the last piece decides what follows the cursor, so the writer
// keeps the current word in hand and settles it in Finish.
template <>
class BitWriterT<Store::kWords> {
 public:
  BitWriterT(Akl8u* byte_ptr, int bit_offset) {
    const auto rem = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u);
    base_ = byte_ptr - rem;
    fill_ = static_cast<int>(rem * 8u) + bit_offset;
    cur_ = fill_ == 0 ? 0u : LoadBE32(base_) & ~(0xFFFFFFFFu >> fill_);  // the bits before the cursor
  }

  // Appends the n low bits of code (n 0..32; code already fits in n bits).
  // An empty piece at a word boundary starts no word: the bits written so far
  // end exactly where the count of them says, and nothing is stored beyond.
  AKL_BITS_INLINE void Write(std::uint32_t code, int n) {
    if (n == 0 && fill_ == 0) return;
    const int end = fill_ + n;
    if (end < 32) {
      cur_ |= static_cast<std::uint32_t>(static_cast<std::uint64_t>(code) << (32 - end));
      fill_ = end;
      started_here_ = true;
    } else if (end == 32) {
      StoreBE32(base_ + 4 * word_, cur_ | code);
      ++word_;
      cur_ = 0;
      fill_ = 0;
      started_here_ = false;
    } else {
      const int rest = end - 32;
      StoreBE32(base_ + 4 * word_, cur_ | static_cast<std::uint32_t>(code >> rest));
      ++word_;
      cur_ = static_cast<std::uint32_t>(static_cast<std::uint64_t>(code) << (32 - rest));
      fill_ = rest;
      started_here_ = false;
    }
  }

  // Settles the word holding the cursor and writes the cursor back.
  void Finish(Akl8u** pp_bit_stream, int* p_bit_offset) {
    Akl8u* word = base_ + 4 * word_;
    if (started_here_) {
      StoreBE32(word, cur_ | (0xFFFFFFFFu >> fill_));
    } else if (fill_ > 0) {
      StoreBE32(word, cur_ | (LoadBE32(word) & (0xFFFFFFFFu >> fill_)));
    }
    const std::size_t pos = word_ * 32 + static_cast<std::size_t>(fill_);
    *pp_bit_stream = base_ + (pos >> 3);
    *p_bit_offset = static_cast<int>(pos & 7u);
  }

 private:
  Akl8u* base_;
  std::size_t word_ = 0;
  std::uint32_t cur_;
  int fill_;
  bool started_here_ = false;
};

using BitWriter = BitWriterT<Store::kBytes>;   // the packers
using WordWriter = BitWriterT<Store::kWords>;  // the VLC encoders

}  // namespace akl
