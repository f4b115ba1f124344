// Bit fields that the library's exports leave to their caller (element ids,
// tags, coupling fields, the first noise energy), read on the same cursor
// the exports take: a byte pointer and a bit offset 0..7 counted from the
// most significant bit.  A program reads a field here, hands c.p and c.off
// to an export, and reads on from where the export left them.
//
// Reads touch only the bytes that hold the bits read (no word loads ahead or
// behind), so they are safe wherever the bits are.
#pragma once

#include <cstdint>

#include "aklac.h"

namespace aklkit {

struct BitCursor {
  Akl8u* p;
  Akl32s off;
};

// The next n bits (0..32), most significant first.
inline std::uint32_t ReadBits(BitCursor& c, int n) {
  std::uint32_t v = 0;
  while (n > 0) {
    const int avail = 8 - c.off;
    const int take = avail < n ? avail : n;
    const std::uint32_t bits = (static_cast<std::uint32_t>(*c.p) >> (avail - take)) & ((1u << take) - 1u);
    v = (v << take) | bits;
    c.off += take;
    n -= take;
    if (c.off == 8) {
      c.off = 0;
      ++c.p;
    }
  }
  return v;
}

// To the next byte boundary (nothing if already there).
inline void ByteAlign(BitCursor& c) {
  if (c.off != 0) {
    c.off = 0;
    ++c.p;
  }
}

// Bits from `base` (bit 0) to the cursor.
inline long BitPosition(const BitCursor& c, const Akl8u* base) { return static_cast<long>(c.p - base) * 8 + c.off; }

// A cursor `bit` bits after the most significant bit of base[0].
inline BitCursor CursorAt(Akl8u* base, long bit) { return BitCursor{base + (bit >> 3), static_cast<Akl32s>(bit & 7)}; }

// Appends bit fields to a zero-filled buffer.
class BitWriter {
 public:
  explicit BitWriter(Akl8u* base) : base_(base) {}
  // The n low bits of v (n 0..32), most significant first.
  void Put(std::uint32_t v, int n) {
    for (int i = n - 1; i >= 0; --i, ++bit_)
      if ((v >> i) & 1u) base_[bit_ >> 3] = static_cast<Akl8u>(base_[bit_ >> 3] | (0x80u >> (bit_ & 7)));
  }
  // Copies the bits [from, to) of src.
  void Copy(Akl8u* src, long from, long to) {
    BitCursor r = CursorAt(src, from);
    for (long left = to - from; left > 0;) {
      const int n = left < 16 ? static_cast<int>(left) : 16;
      Put(ReadBits(r, n), n);
      left -= n;
    }
  }
  long bits() const { return bit_; }

 private:
  Akl8u* base_;
  long bit_ = 0;
};

}  // namespace aklkit
