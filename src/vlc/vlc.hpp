// Internal layout of the VLC contexts.
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

#define AKL_VLC_INLINE AKL_BITS_INLINE

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

// The VLC engine reads through the library's word reader (aligned-word or
// byte-pointer start, branchy refill) and writes through its word writer.
using akl::WordReader;
using akl::WordWriter;

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
