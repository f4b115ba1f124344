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

// A decodable table.  `lut` is a multi-level lookup of 16-bit entries:
//   leaf:      bit 15 = 0; bits 8..12 = code bits left to consume at this
//              level; bits 0..7 = the value as in HuffmanCode.
//   sub-table: bit 15 = 1; bits 11..14 = width of the next level; bits
//              0..10 = index of its first entry in the same array.
// The first level is indexed by the next `primary_bits` bits of the stream.
struct HuffmanTable {
  const std::uint16_t* lut;  // null for tables 0, 4 and 14
  const HuffmanCode* codes;  // the code book (shared by tables 16-23 and 24-31)
  int count;
  int primary_bits;
  int linbits;
  int xmax;
};

inline constexpr std::uint16_t kLutSubTable = 0x8000;

extern const HuffmanTable kHuffmanTables[32];
extern const HuffmanTable kCount1Tables[2];  // A, B

}  // namespace akl::mp3
