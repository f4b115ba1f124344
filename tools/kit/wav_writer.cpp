// See wav_writer.hpp.
#include "kit/wav_writer.hpp"

#include <bit>

namespace aklkit {
namespace {

void PutLe(std::vector<std::uint8_t>& b, std::uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
void PutTag(std::vector<std::uint8_t>& b, const char* tag) {
  for (const char* c = tag; *c; ++c) b.push_back(static_cast<std::uint8_t>(*c));
}

bool Extensible(const WavFormat& f) {
  return f.channels > 2 || (f.channel_mask != 0 && f.channel_mask != 0x4 && f.channel_mask != 0x3);
}

constexpr std::uint64_t kMaxRiff = 0xFFFFFFFFu;

}  // namespace

std::vector<std::uint8_t> WavHeader(const WavFormat& f, std::uint64_t data_bytes) {
  const bool ext = Extensible(f);
  const std::uint32_t fmt_size = ext ? 40 : 16;
  const std::uint32_t block = 2 * static_cast<std::uint32_t>(f.channels);
  const std::uint64_t overhead = 4 + (8 + fmt_size) + 8;  // RIFF size = overhead + data
  if (data_bytes > kMaxRiff - overhead) {
    data_bytes = kMaxRiff - overhead;
    if (block) data_bytes -= data_bytes % block;
  }
  std::vector<std::uint8_t> b;
  b.reserve(8 + overhead);
  PutTag(b, "RIFF");
  PutLe(b, overhead + data_bytes, 4);
  PutTag(b, "WAVEfmt ");
  PutLe(b, fmt_size, 4);
  PutLe(b, ext ? 0xFFFE : 1, 2);
  PutLe(b, static_cast<std::uint32_t>(f.channels), 2);
  PutLe(b, static_cast<std::uint32_t>(f.sample_rate), 4);
  PutLe(b, static_cast<std::uint32_t>(f.sample_rate) * block, 4);
  PutLe(b, block, 2);
  PutLe(b, 16, 2);
  if (ext) {
    PutLe(b, 22, 2);  // extension size
    PutLe(b, 16, 2);  // valid bits
    PutLe(b, f.channel_mask, 4);
    // The PCM sub-format GUID.
    static constexpr std::uint8_t kPcm[16] = {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                              0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    b.insert(b.end(), kPcm, kPcm + 16);
  }
  PutTag(b, "data");
  PutLe(b, data_bytes, 4);
  return b;
}

bool WavWriter::Start(const WavFormat& format) {
  format_ = format;
  started_ = true;
  if (raw_) return !failed_;
  at_start_ = std::ftell(f_) == 0;
  const auto h = WavHeader(format_, ~std::uint64_t{0});
  Put(h.data(), h.size());
  return !failed_;
}

bool WavWriter::Write(const std::int16_t* s, std::size_t frames) {
  const std::size_t n = frames * static_cast<std::size_t>(format_.channels);
  if constexpr (std::endian::native == std::endian::little) {
    Put(s, n * 2);  // already little-endian 16-bit samples
  } else {
    bytes_.resize(n * 2);
    for (std::size_t i = 0; i < n; ++i) {
      const auto v = static_cast<std::uint16_t>(s[i]);
      bytes_[2 * i] = static_cast<std::uint8_t>(v & 0xFF);
      bytes_[2 * i + 1] = static_cast<std::uint8_t>(v >> 8);
    }
    Put(bytes_.data(), bytes_.size());
  }
  data_bytes_ += n * 2;
  return !failed_;
}

bool WavWriter::oversize() const {
  return !raw_ && started_ && WavHeader(format_, ~std::uint64_t{0}).size() - 8 + data_bytes_ > kMaxRiff;
}

bool WavWriter::Finish() {
  if (!raw_ && started_ && at_start_ && !failed_ && std::fseek(f_, 0, SEEK_SET) == 0) {
    const auto h = WavHeader(format_, data_bytes_);
    Put(h.data(), h.size());
  }
  return std::fflush(f_) == 0 && !failed_ && !std::ferror(f_);
}

void WavWriter::Put(const void* p, std::size_t n) {
  if (!failed_ && std::fwrite(p, 1, n, f_) != n) failed_ = true;
}

}  // namespace aklkit
