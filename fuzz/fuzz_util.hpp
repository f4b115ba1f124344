// Helpers shared by the fuzz targets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace akl::fuzz {

// The payload copied into a heap block of exactly the size the reading
// contract allows: it starts at a 4-byte aligned address (malloc gives 16)
// and ends with the aligned 32-bit word after the last payload byte, so any
// read beyond that is an AddressSanitizer report.
class ExactBuffer {
 public:
  ExactBuffer(const std::uint8_t* data, std::size_t size) : size_(size) {
    const std::size_t padded = ((size + 3) & ~std::size_t{3}) + 4;
    block_ = static_cast<std::uint8_t*>(std::malloc(padded));
    if (size) std::memcpy(block_, data, size);
    std::memset(block_ + size, 0, padded - size);
  }
  ~ExactBuffer() { std::free(block_); }
  ExactBuffer(const ExactBuffer&) = delete;
  ExactBuffer& operator=(const ExactBuffer&) = delete;

  std::uint8_t* data() { return block_; }
  std::size_t size() const { return size_; }

 private:
  std::uint8_t* block_;
  std::size_t size_;
};

// A bit cursor over a copy of `src` (which the caller pads with zero bytes
// past the real data) from the aligned word holding bit `pos` to the end of
// the byte holding bit `end_bits - 1`, in an ExactBuffer: a reader that keeps
// to the contract (the aligned word after its last bit) stays inside.
class BitWindow {
 public:
  BitWindow(const std::uint8_t* src, std::size_t pos, std::size_t end_bits)
      : first_((pos / 8) & ~std::size_t{3}),
        buf_(src + first_, (end_bits + 7) / 8 > first_ ? (end_bits + 7) / 8 - first_ : 1) {
    ptr = buf_.data() + (pos / 8 - first_);
    off = static_cast<std::int32_t>(pos % 8);
  }
  // Bit position of the cursor in `src` terms.
  std::size_t Position() {
    return first_ * 8 + static_cast<std::size_t>(ptr - buf_.data()) * 8 + static_cast<std::size_t>(off);
  }
  std::uint8_t* ptr;
  std::int32_t off;

 private:
  std::size_t first_;
  ExactBuffer buf_;
};

// Takes leading parameter bytes off the input.
class Params {
 public:
  Params(const std::uint8_t*& data, std::size_t& size) : data_(data), size_(size) {}
  std::uint8_t Byte() {
    if (size_ == 0) return 0;
    const std::uint8_t b = *data_;
    ++data_;
    --size_;
    return b;
  }
  int Int(int lo, int hi) {  // lo..hi inclusive
    const unsigned span = static_cast<unsigned>(hi - lo) + 1u;
    const unsigned v = static_cast<unsigned>(Byte()) | (static_cast<unsigned>(Byte()) << 8);
    return lo + static_cast<int>(v % span);
  }

 private:
  const std::uint8_t*& data_;
  std::size_t& size_;
};

}  // namespace akl::fuzz
