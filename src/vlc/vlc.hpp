// Internal layout of the VLC contexts and the word-at-a-time bit reader and
// writer that the decoders and encoders share.
//
// Decoding context (64-byte aligned):
//   offset  0  tag              0x434D4160, shared by the plain and the tuple decoders
//           4  ownedByLibrary
//           8  maxLength        L, the longest code length
//          16  table            lookup table, 64 bytes after the context's start
//          24  entryWidth       8, 16 or 32
//          28  lengthFieldBits  B, bits of a leaf's consumed-bits field
//          32  numElements, numValueBits, tupleBits (tuple contexts)
//          44  numEntries       N, entries in the table (used to keep the walk inside it)
// Lookup table: sub-tables one after another; a sub-table at index h holds its
// index-bit count s at h and 2^s slots at h+1..h+2^s.  A slot is
//   empty    all ones but bit 0            (never reached by a valid stream)
//   pointer  bit 0 clear: 2 x index of the deeper sub-table's header
//   leaf     bit 0 set:   value << (B+1) | bits-used-at-this-level << 1 | 1
//
// Encoding context (64-byte aligned):
//   offset  0  table   2^k lengths (32-bit) then 2^k codes, 64 bytes after the start
//           8  valueOffset  minus the smallest value
//          12  indexBits    k
//          16  ownedByLibrary
//          20  tag          0x434D415F
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "aklac.h"
#include "core/bitstream.hpp"
#include "core/context.hpp"

// The per-code helpers of the hot loops must inline into them, whatever the
// compiler's size heuristics say, so the reader's state stays in registers.
#define AKL_VLC_INLINE inline __attribute__((always_inline))

namespace akl::vlc {

struct DecodeSpec {
  ContextTag tag;
  Akl32s ownedByLibrary;
  Akl32s maxLength;
  Akl32s reserved;
  void* table;
  Akl32s entryWidth;
  Akl32s lengthFieldBits;
  Akl32s numElements;
  Akl32s numValueBits;
  Akl32s tupleBits;
  Akl32s numEntries;
};
static_assert(offsetof(DecodeSpec, table) == 16);
static_assert(offsetof(DecodeSpec, entryWidth) == 24);
static_assert(offsetof(DecodeSpec, numElements) == 32);
static_assert(sizeof(DecodeSpec) <= 64);

inline constexpr std::size_t kDecodeTableOffset = 64;
// 64 for aligning the context, 32 for its header, 64 for aligning the table.
inline constexpr int kDecodeSizeSlack = 160;

struct EncodeSpec {
  std::uint32_t* table;
  Akl32s valueOffset;
  Akl32s indexBits;
  Akl32s ownedByLibrary;
  ContextTag tag;
};
static_assert(offsetof(EncodeSpec, valueOffset) == 8);
static_assert(offsetof(EncodeSpec, tag) == 20);

inline constexpr std::size_t kEncodeTableOffset = 64;

// ---------------------------------------------------------------------------
// Word reader: a 64-bit accumulator, most significant bit next, refilled one
// aligned big-endian word at a time whenever fewer than 32 bits are in hand.
//
// Read contract: a refill happens only with fewer than 32 bits in hand, and
// every refill is followed by consuming at least one bit, so the word loaded
// is at most the aligned word after the one holding the last bit consumed.
class WordReader {
 public:
  // Plain decoders: the first word is the aligned word holding the first bit,
  // bytes before the byte pointer included.
  static WordReader AtAlignedWord(const Akl8u* byte_ptr, int bit_offset) {
    const auto rem = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u);
    const Akl8u* base = byte_ptr - rem;
    return WordReader(base, LoadBE32(base), rem * 8u + static_cast<unsigned>(bit_offset));
  }
  // Escape decoders: the first partial word is assembled byte by byte from the
  // byte pointer on; the bytes before it are not touched.
  static WordReader FromBytePointer(const Akl8u* byte_ptr, int bit_offset) {
    const auto rem = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u);
    const Akl8u* base = byte_ptr - rem;
    std::uint32_t w = 0;
    for (unsigned i = rem; i < 4; ++i) w |= static_cast<std::uint32_t>(byte_ptr[i - rem]) << (24 - 8 * i);
    return WordReader(base, w, rem * 8u + static_cast<unsigned>(bit_offset));
  }

  AKL_VLC_INLINE void Refill() {
    if (avail_ < 32) {
      acc_ |= static_cast<std::uint64_t>(LoadBE32(base_ + 4 * next_)) << (32 - avail_);
      ++next_;
      avail_ += 32;
    }
  }
  // The top bits of the accumulator; valid for n <= bits in hand (>= 32 after Refill).
  AKL_VLC_INLINE std::uint64_t Acc() const { return acc_; }
  // The next n bits (1..32) after a Refill.
  AKL_VLC_INLINE std::uint32_t Peek(int n) const { return static_cast<std::uint32_t>(acc_ >> (64 - n)); }
  AKL_VLC_INLINE void Skip(int n) {
    acc_ <<= n;
    avail_ -= n;
  }
  // Refill, then read n bits (0..32).
  AKL_VLC_INLINE std::uint32_t Read(int n) {
    Refill();
    if (n == 0) return 0;
    const std::uint32_t v = Peek(n);
    Skip(n);
    return v;
  }
  // The next bit, when the caller knows one is in hand.
  AKL_VLC_INLINE bool TakeBit() {
    const bool b = (acc_ >> 63) != 0;
    Skip(1);
    return b;
  }
  AKL_VLC_INLINE bool ReadBit() {
    Refill();
    const bool b = (acc_ >> 63) != 0;
    Skip(1);
    return b;
  }

  std::size_t Position() const { return next_ * 32 - static_cast<std::size_t>(avail_); }
  const Akl8u* Base() const { return base_; }
  // A reader at bit `pos` after `base` (aligned): loads the word holding it.
  static WordReader AtPosition(const Akl8u* base, std::size_t pos) {
    WordReader r(base + 4 * (pos / 32), LoadBE32(base + 4 * (pos / 32)), static_cast<unsigned>(pos % 32));
    r.base_ = base;
    r.next_ = pos / 32 + 1;
    return r;
  }
  void WriteBack(Akl8u** pp_bit_stream, int* p_bit_offset) const {
    const std::size_t pos = Position();
    *pp_bit_stream = const_cast<Akl8u*>(base_ + (pos >> 3));
    *p_bit_offset = static_cast<int>(pos & 7u);
  }

 private:
  WordReader(const Akl8u* base, std::uint32_t first_word, unsigned start_bit)
      : base_(base),
        next_(1),
        acc_((static_cast<std::uint64_t>(first_word) << 32) << start_bit),
        avail_(32 - static_cast<int>(start_bit)) {}

  const Akl8u* base_;
  std::size_t next_;
  std::uint64_t acc_;
  int avail_;
};

// ---------------------------------------------------------------------------
// Word writer with the encoders' rules: every piece is merged into the aligned
// word that holds the cursor, keeping the bits before it.  A piece that ends
// inside a word leaves the rest of that word set to ones; a piece that runs
// into the next word puts its remaining bits at the top of that word and keeps
// the word's other bits.  Only the last piece decides what follows the cursor,
// so the writer keeps the current word in hand and settles it in Finish.
inline void StoreBE32(Akl8u* p, std::uint32_t v) {
  v = __builtin_bswap32(v);
  std::memcpy(p, &v, 4);
}

class WordWriter {
 public:
  WordWriter(Akl8u* byte_ptr, int bit_offset) {
    const auto rem = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(byte_ptr) & 3u);
    base_ = byte_ptr - rem;
    fill_ = static_cast<int>(rem * 8u) + bit_offset;
    // Keep the bits before the cursor.
    cur_ = fill_ == 0 ? 0u : LoadBE32(base_) & ~(0xFFFFFFFFu >> fill_);
  }

  // Appends the n low bits of code (n 0..32; code already fits in n bits).
  // An empty piece at a word boundary starts no word: the bits written so far
  // end exactly where the count of them says, and nothing is stored beyond.
  AKL_VLC_INLINE void Put(std::uint32_t code, int n) {
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

// Low n bits set, n 0..32.
inline constexpr std::uint32_t LowMask(int n) {
  return static_cast<std::uint32_t>((std::uint64_t{1} << n) - 1);
}

// A context is recognised by its tag and by its table pointer, which Init and
// InitAlloc always set to 64 bytes after the context's own start: a pointer
// passed on at another offset, or memory that merely holds the tag's value,
// fails the test before any other field is trusted.
inline bool IsDecodeContext(const DecodeSpec& s) {
  return s.tag == kTagVlcDecode && s.table == reinterpret_cast<const char*>(&s) + kDecodeTableOffset;
}
inline bool IsEncodeContext(const EncodeSpec& s) {
  return s.tag == kTagVlcEncode &&
         reinterpret_cast<const char*>(s.table) == reinterpret_cast<const char*>(&s) + kEncodeTableOffset;
}

// The decoding context behind a caller's raw pointer.
inline const DecodeSpec* DecodeSpecAt(const aklsVLCDecodeSpec_32s* raw) {
  return ContextAt<DecodeSpec>(static_cast<const void*>(raw), kVlcContextAlign);
}
inline const EncodeSpec* EncodeSpecAt(const aklsVLCEncodeSpec_32s* raw) {
  return ContextAt<EncodeSpec>(static_cast<const void*>(raw), kVlcContextAlign);
}

}  // namespace akl::vlc
