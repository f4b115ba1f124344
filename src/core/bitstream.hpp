// Bit reader and bit writer over a bitstream cursor (byte pointer + bit
// offset 0..7, most significant bit first).
//
// The reader addresses the stream as aligned big-endian 32-bit words from the
// word that holds the first bit.  A peek of n bits loads only the words that
// hold those bits, so a reader touches at most the aligned word holding the
// first bit through the aligned word after the last bit used: up to 3 bytes
// before the byte pointer and never more than one word of look-ahead past the
// position, for peeks of up to 32 bits.
//
// Neither class writes the caller's cursor until WriteBack, so an operation
// that fails part-way leaves the cursor as it was.
#pragma once

#include <cstdint>
#include <cstring>

#include "aklac.h"

namespace akl {

inline std::uint32_t LoadBE32(const Akl8u* p) {
  std::uint32_t w;
  std::memcpy(&w, p, 4);
  return __builtin_bswap32(w);
}

class BitReader {
 public:
  BitReader(const Akl8u* byte_ptr, int bit_offset)
      : base_(byte_ptr - (reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u)),
        start_((reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u) * 8u + static_cast<unsigned>(bit_offset)),
        pos_(start_) {}

  // The next n bits (0..32) as an unsigned number, without consuming them.
  std::uint32_t Peek(int n) const {
    if (n == 0) return 0;
    const std::size_t word = pos_ >> 5;
    const unsigned bit = static_cast<unsigned>(pos_ & 31u);
    std::uint64_t v = static_cast<std::uint64_t>(LoadBE32(base_ + word * 4)) << 32;
    if (bit + static_cast<unsigned>(n) > 32) v |= LoadBE32(base_ + word * 4 + 4);
    return static_cast<std::uint32_t>((v << bit) >> (64 - n));
  }
  void Skip(int n) { pos_ += static_cast<std::size_t>(n); }
  // Steps back n bits; the caller guarantees they were consumed before.
  void Rewind(int n) { pos_ -= static_cast<std::size_t>(n); }
  std::uint32_t Read(int n) {
    const std::uint32_t v = Peek(n);
    pos_ += static_cast<std::size_t>(n);
    return v;
  }
  bool ReadBit() { return Read(1) != 0; }

  // Bits consumed since construction.
  std::size_t Consumed() const { return pos_ - start_; }
  // Absolute bit position from the aligned base (for alignment arithmetic).
  std::size_t Position() const { return pos_; }

  // Byte alignment relative to the stream's bytes (offset 0 of a byte).
  void AlignToByte() { pos_ = (pos_ + 7) & ~static_cast<std::size_t>(7); }

  const Akl8u* BytePtr() const { return base_ + (pos_ >> 3); }
  int BitOffset() const { return static_cast<int>(pos_ & 7u); }

  void WriteBack(Akl8u** pp_bit_stream, int* p_bit_offset) const {
    *pp_bit_stream = const_cast<Akl8u*>(BytePtr());
    *p_bit_offset = BitOffset();
  }

 private:
  const Akl8u* base_;
  std::size_t start_;
  std::size_t pos_;
};

class BitWriter {
 public:
  BitWriter(Akl8u* byte_ptr, int bit_offset) : p_(byte_ptr), offset_(bit_offset) {}

  // Writes the n low bits of value (n 0..32), most significant first.  A byte
  // begun at offset 0 is stored whole, its bits after the written ones zero;
  // a partly written byte is completed by OR.
  void Write(std::uint32_t value, int n) {
    if (n <= 0) return;
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

 private:
  Akl8u* p_;
  int offset_;
};

}  // namespace akl
