// Small helpers for the VLC contract tests: code books written as 0/1 text,
// contexts built in heap blocks of exact size, and bit strings.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "aklac.h"
#include "vlc/vlc.hpp"

namespace vlc_test {

struct TextCode {
  int value;
  const char* bits;
};

inline std::vector<VlcCodeEntry> Entries(std::initializer_list<TextCode> codes) {
  std::vector<VlcCodeEntry> out;
  for (const auto& c : codes) {
    std::uint32_t code = 0;
    int len = 0;
    for (const char* p = c.bits; *p; ++p, ++len) code = (code << 1) | static_cast<std::uint32_t>(*p == '1');
    out.push_back({c.value, static_cast<Akl32s>(code), len});
  }
  return out;
}

struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};

// A context in a 64-aligned heap block of exactly `offset + size` bytes, the
// raw pointer `offset` bytes in.
struct RawBlock {
  std::unique_ptr<unsigned char, FreeDeleter> block;
  unsigned char* raw = nullptr;
  RawBlock(size_t offset, size_t size) {
    void* p = nullptr;
    EXPECT_EQ(posix_memalign(&p, 64, offset + size), 0);
    block.reset(static_cast<unsigned char*>(p));
    raw = block.get() + offset;
  }
  aklsVLCDecodeSpec_32s* dec() { return reinterpret_cast<aklsVLCDecodeSpec_32s*>(raw); }
  aklsVLCEncodeSpec_32s* enc() { return reinterpret_cast<aklsVLCEncodeSpec_32s*>(raw); }
};

inline RawBlock DecodeContext(const std::vector<VlcCodeEntry>& e, std::vector<int> sizes, size_t offset = 0) {
  int size = 0;
  EXPECT_EQ(aklsVLCDecodeGetSize_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                     static_cast<int>(sizes.size()), &size), kStsOk);
  RawBlock b(offset, static_cast<size_t>(size));
  EXPECT_EQ(aklsVLCDecodeInit_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                  static_cast<int>(sizes.size()), b.dec()), kStsOk);
  return b;
}

inline RawBlock TupleContext(const std::vector<VlcCodeEntry>& e, std::vector<int> sizes, int elements, int bits) {
  int size = 0;
  EXPECT_EQ(aklsVLCDecodeUTupleGetSize_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                           static_cast<int>(sizes.size()), elements, bits, &size), kStsOk);
  RawBlock b(0, static_cast<size_t>(size));
  EXPECT_EQ(aklsVLCDecodeUTupleInit_32s(e.data(), static_cast<int>(e.size()), sizes.data(),
                                        static_cast<int>(sizes.size()), elements, bits, b.dec()), kStsOk);
  return b;
}

inline RawBlock EncodeContext(const std::vector<VlcCodeEntry>& e) {
  int size = 0;
  EXPECT_EQ(aklsVLCEncodeGetSize_32s(e.data(), static_cast<int>(e.size()), &size), kStsOk);
  RawBlock b(3, static_cast<size_t>(size));
  EXPECT_EQ(aklsVLCEncodeInit_32s(e.data(), static_cast<int>(e.size()), b.enc()), kStsOk);
  return b;
}

// Bytes holding a 0/1 string, most significant bit first, starting `lead`
// bits into the first byte (those and the trailing bits are `fill`), padded
// with fill bytes to `total` bytes.
inline std::vector<Akl8u> Bits(const std::string& bits, int lead = 0, size_t total = 16, bool fill = false) {
  std::vector<Akl8u> out(total, fill ? 0xFF : 0x00);
  for (size_t i = 0; i < bits.size(); ++i) {
    const size_t pos = static_cast<size_t>(lead) + i;
    const auto mask = static_cast<Akl8u>(0x80u >> (pos % 8));
    if (bits[i] == '1') {
      out[pos / 8] = static_cast<Akl8u>(out[pos / 8] | mask);
    } else {
      out[pos / 8] = static_cast<Akl8u>(out[pos / 8] & ~mask);
    }
  }
  return out;
}

inline std::string BitString(const Akl8u* p, size_t first_bit, size_t n) {
  std::string s;
  for (size_t i = first_bit; i < first_bit + n; ++i) s += ((p[i / 8] >> (7 - i % 8)) & 1) ? '1' : '0';
  return s;
}

inline const akl::vlc::DecodeSpec& DecodeFields(const aklsVLCDecodeSpec_32s* raw) { return *akl::vlc::DecodeSpecAt(raw); }
inline const akl::vlc::EncodeSpec& EncodeFields(const aklsVLCEncodeSpec_32s* raw) { return *akl::vlc::EncodeSpecAt(raw); }

}  // namespace vlc_test
