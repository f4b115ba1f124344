// Bit readers of the AAC family.
//
// HeaderReader serves the transport-header parsers: every field read fetches
// the four bytes starting at the byte that holds the field's first bit, so it
// touches nothing before the byte pointer and at most three bytes past the
// last field.
//
// FastReader serves the syntax elements and the noiseless decoders.  It keeps
// a 64-bit accumulator, left-aligned, and refills it one aligned big-endian
// 32-bit word at a time whenever fewer than 32 bits are left (rather than 8,
// 16 or 24 bits from the byte pointer: whole aligned words need no byte
// assembly, and the cursor is folded back exactly on exit all the same).  A word is only
// loaded when its first bit lies within 32 bits of the read position, so every
// word touched is either the aligned word holding a bit that is used or the
// aligned word after the last bit used, as the bitstream contract allows.
// After a Refill at least 32 bits are available, enough for any single field
// or code word with its sign bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "aklac.h"
#include "core/bitstream.hpp"

namespace akl::aac {

class HeaderReader {
 public:
  HeaderReader(const Akl8u* byte_ptr, int bit_offset) : p_(byte_ptr), pos_(static_cast<unsigned>(bit_offset)) {}

  // Reads n bits (1..25).
  std::uint32_t Read(int n) {
    std::uint32_t w;
    std::memcpy(&w, p_ + (pos_ >> 3), 4);
    w = __builtin_bswap32(w);
    const std::uint32_t v = (w << (pos_ & 7u)) >> (32 - n);
    pos_ += static_cast<unsigned>(n);
    return v;
  }
  void AlignToByte() { pos_ = (pos_ + 7u) & ~7u; }
  const Akl8u* BytePtr() const { return p_ + (pos_ >> 3); }
  int BitOffset() const { return static_cast<int>(pos_ & 7u); }

 private:
  const Akl8u* p_;
  unsigned pos_;
};

class FastReader {
 public:
  FastReader(const Akl8u* byte_ptr, int bit_offset) {
    const auto mis = reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u;
    base_ = byte_ptr - mis;
    acc_ = static_cast<std::uint64_t>(LoadBE32(base_)) << 32;
    next_ = base_ + 4;
    avail_ = 32;
    Skip(static_cast<int>(mis * 8u) + bit_offset);
  }

  // Ensures at least 32 bits are in hand.  Branch-free, because whether a
  // refill is due is close to random in Huffman decoding: when none is due it
  // reloads the last word already fetched (a legal address) and adds nothing.
  void Refill() {
    const bool need = avail_ < 32;
    const Akl8u* src = need ? next_ : next_ - 4;
    const std::uint64_t w = LoadBE32(src) & (need ? ~std::uint64_t{0} : 0);
    const int shift = need ? 32 - avail_ : 0;
    acc_ |= w << shift;
    next_ += need ? 4 : 0;
    avail_ += need ? 32 : 0;
  }
  // The next n bits (1..32), without refilling: the caller has made sure they are in hand.
  std::uint32_t PeekInHand(int n) const { return static_cast<std::uint32_t>(acc_ >> (64 - n)); }
  void SkipInHand(int n) {
    acc_ <<= n;
    avail_ -= n;
  }
  std::uint32_t ReadInHand(int n) {
    const std::uint32_t v = PeekInHand(n);
    SkipInHand(n);
    return v;
  }
  // Reads n bits (1..32).
  std::uint32_t Read(int n) {
    Refill();
    return ReadInHand(n);
  }
  void Skip(int n) {
    while (n > 32) {
      Read(32);
      n -= 32;
    }
    if (n > 0) Read(n);
  }
  std::uint64_t Accumulator() const { return acc_; }

  // Bits from the aligned base to the read position.
  std::size_t Position() const { return static_cast<std::size_t>(next_ - base_) * 8u - static_cast<std::size_t>(avail_); }
  void AlignToByte() {
    const int r = static_cast<int>(Position() & 7u);
    if (r != 0) Skip(8 - r);
  }
  const Akl8u* BytePtr() const { return base_ + (Position() >> 3); }
  int BitOffset() const { return static_cast<int>(Position() & 7u); }
  void WriteBack(Akl8u** pp_bit_stream, Akl32s* p_bit_offset) const {
    *pp_bit_stream = const_cast<Akl8u*>(BytePtr());
    *p_bit_offset = BitOffset();
  }

 private:
  const Akl8u* base_;
  const Akl8u* next_;
  std::uint64_t acc_;
  int avail_;
};

}  // namespace akl::aac
