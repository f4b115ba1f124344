// The 16-bit CRC of MPEG audio streams (Layer III frames and ADTS): generator
// x^16 + x^15 + x^2 + 1, register preset to all ones, bits fed most
// significant first, no final inversion.  Bits may be fed from any bit
// position, since the ranges an ADTS CRC covers need not be byte-aligned.
#pragma once

#include <cstddef>
#include <cstdint>

namespace aklkit {

class Crc16 {
 public:
  // The n low bits of v (n 0..32), most significant first.
  void Bits(std::uint32_t v, int n);
  void Bytes(const std::uint8_t* p, std::size_t n);
  // `count` bits of `base` starting `from` bits after the most significant
  // bit of base[0].
  void BitRange(const std::uint8_t* base, std::uint64_t from, std::uint64_t count);
  std::uint16_t value() const { return static_cast<std::uint16_t>(reg_); }

 private:
  std::uint32_t reg_ = 0xFFFF;
};

}  // namespace aklkit
