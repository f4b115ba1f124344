// WAV output of the decoder programs: 16-bit PCM in a RIFF/WAVE file (a
// WAVE_FORMAT_EXTENSIBLE header with a channel mask when the layout needs
// one), or the bare samples.
//
// Sizes: the header goes out first with the largest size it can state (what
// readers take as "to the end of the file" on a pipe) and is rewritten with
// the real sizes at the end when the output can seek.  A RIFF file cannot
// state more than 4 GiB: a longer output keeps the largest whole number of
// sample frames that fits in its header (oversize() tells the program), the
// samples themselves are all written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace aklkit {

struct WavFormat {
  int sample_rate = 0;
  int channels = 0;
  std::uint32_t channel_mask = 0;  // speaker bits; 0 for the default of the channel count
};

// The header bytes (44, or 68 for an extensible header) for `data_bytes` of
// samples, clamped as described above.
std::vector<std::uint8_t> WavHeader(const WavFormat& format, std::uint64_t data_bytes);

class WavWriter {
 public:
  // raw: samples only, no header.
  WavWriter(std::FILE* f, bool raw) : f_(f), raw_(raw) {}
  // Writes the header (unless raw); call once, before any samples.
  bool Start(const WavFormat& format);
  // `frames` interleaved sample frames of format.channels samples each.
  bool Write(const std::int16_t* samples, std::size_t frames);
  // Puts the real sizes into the header if the output can seek and flushes.
  // False if any write failed.
  bool Finish();
  bool started() const { return started_; }
  bool oversize() const;
  const WavFormat& format() const { return format_; }

 private:
  void Put(const void* p, std::size_t n);
  std::FILE* f_;
  bool raw_;
  bool started_ = false;
  bool at_start_ = false;  // the header went to offset 0, so it can be rewritten there
  bool failed_ = false;
  WavFormat format_;
  std::uint64_t data_bytes_ = 0;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace aklkit
