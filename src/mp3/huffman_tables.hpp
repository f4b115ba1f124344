// Layer III Huffman code books and their lookup tables (generated into
// huffman_tables.cpp by gen_huffman_tables.py).
#pragma once

#include <cstdint>

namespace akl::mp3 {

// One code word: value (big values: x << 4 | y; count1: v << 3 | w << 2 |
// x << 1 | y), its length in bits and its bits right-aligned.
struct HuffmanCode {
  std::uint16_t value;
  std::uint8_t len;
  std::uint32_t code;
};

// A decodable table.  `lut` is a multi-level lookup of 32-bit entries; the
// first level is indexed by the next `primary_bits` bits of the stream.
//   sub-table: bit 31 = 1; bits 16..19 = width of the next level; bits 0..15
//              = index of its first entry in the same array.
//   pair leaf: bit 31 = 0; bits 24..28 = bits to consume at this level;
//              bit 23 = 0: the sign bits are folded in and bits 0..7 / 8..15
//              hold x / y as signed 8-bit values; bit 23 = 1: only the code
//              is consumed, bits 0..7 / 8..15 hold the magnitudes of x / y
//              and linbits escapes and sign bits follow in the stream.
//   count1 leaf: bits 24..28 = code and sign bits; v, w, x, y as 2-bit
//              two's-complement values in bits 0..1, 2..3, 4..5, 6..7.
struct HuffmanTable {
  const std::uint32_t* lut;  // null for tables 0, 4 and 14
  const HuffmanCode* codes;  // the code book (shared by tables 16-23 and 24-31)
  int count;
  int primary_bits;
  int linbits;
  int xmax;
};

inline constexpr std::uint32_t kLutSubTable = 0x80000000u;
inline constexpr std::uint32_t kLutSlow = 0x00800000u;

extern const HuffmanTable kHuffmanTables[32];
extern const HuffmanTable kCount1Tables[2];  // A, B

}  // namespace akl::mp3
