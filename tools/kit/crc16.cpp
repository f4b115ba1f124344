// See crc16.hpp.
#include "kit/crc16.hpp"

#include <array>

namespace aklkit {
namespace {

constexpr std::uint32_t kPoly = 0x8005;

constexpr std::array<std::uint16_t, 256> MakeTable() {
  std::array<std::uint16_t, 256> t{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t r = i << 8;
    for (int b = 0; b < 8; ++b) r = (r & 0x8000) ? ((r << 1) ^ kPoly) & 0xFFFF : (r << 1) & 0xFFFF;
    t[i] = static_cast<std::uint16_t>(r);
  }
  return t;
}
constexpr std::array<std::uint16_t, 256> kTable = MakeTable();

}  // namespace

void Crc16::Bits(std::uint32_t v, int n) {
  for (int b = n - 1; b >= 0; --b) {
    const std::uint32_t in = (v >> b) & 1u;
    const std::uint32_t top = (reg_ >> 15) & 1u;
    reg_ = (reg_ << 1) & 0xFFFF;
    if (top ^ in) reg_ ^= kPoly;
  }
}

void Crc16::Bytes(const std::uint8_t* p, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) reg_ = ((reg_ << 8) & 0xFFFF) ^ kTable[((reg_ >> 8) ^ p[i]) & 0xFF];
}

void Crc16::BitRange(const std::uint8_t* base, std::uint64_t from, std::uint64_t count) {
  // Leading bits up to a byte boundary, whole bytes, trailing bits.
  const std::uint8_t* p = base + from / 8;
  const int lead_off = static_cast<int>(from % 8);
  if (lead_off != 0) {
    const int n = static_cast<int>(count < static_cast<std::uint64_t>(8 - lead_off) ? count : 8 - lead_off);
    Bits(static_cast<std::uint32_t>(*p >> (8 - lead_off - n)), n);
    count -= static_cast<std::uint64_t>(n);
    ++p;
  }
  Bytes(p, static_cast<std::size_t>(count / 8));
  p += count / 8;
  if (count % 8) Bits(static_cast<std::uint32_t>(*p >> (8 - count % 8)), static_cast<int>(count % 8));
}

}  // namespace aklkit
