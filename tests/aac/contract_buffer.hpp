// Heap memory holding exactly what a bit reader may touch: the aligned 32-bit
// word holding the first bit through the aligned word after the one holding
// the last bit used.  Under AddressSanitizer any read outside it fails.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "aklac.h"

namespace aactest {

class ContractBuffer {
 public:
  // Bits [first_bit, end_bit) of src, counted from src[0]; src is 4-aligned
  // and readable for the whole region.
  ContractBuffer(const Akl8u* src, std::size_t first_bit, std::size_t end_bit) {
    const std::size_t first_word = first_bit / 32;
    const std::size_t last_word = (end_bit > first_bit ? end_bit - 1 : first_bit) / 32 + 1;
    size_ = (last_word - first_word + 1) * 4;
    origin_ = first_word * 4;
    mem_ = new (std::align_val_t{16}) Akl8u[size_];
    std::memcpy(mem_, src + origin_, size_);
  }
  ContractBuffer(const ContractBuffer&) = delete;
  ContractBuffer& operator=(const ContractBuffer&) = delete;
  ~ContractBuffer() { ::operator delete[](mem_, std::align_val_t{16}); }

  // The copy of src[byte].
  Akl8u* At(std::size_t byte) { return mem_ + (byte - origin_); }
  // A cursor inside the copy as a bit position of src.
  std::size_t BitPosition(const Akl8u* p, Akl32s off) const {
    return (static_cast<std::size_t>(p - mem_) + origin_) * 8u + static_cast<std::size_t>(off);
  }

 private:
  Akl8u* mem_;
  std::size_t size_;
  std::size_t origin_;
};

}  // namespace aactest
