// akl-mp3dec's whole frame loop on arbitrary bytes, read from memory in two
// passes (aklmp3::DecodeBuffer) and as a pipe in one (aklmp3::DecodeStream).
// The input is copied into a heap block of exactly its size (the frame loop
// promises never to read outside the buffer, and pads the library's reads
// itself).  The sink checks what the loop promises: the format is announced
// once before any PCM and never changes, and the sample count agrees with the
// statistics.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "mp3dec/mp3_stream.hpp"

namespace {

void Trap(bool ok) {
  if (!ok) __builtin_trap();
}

class CheckingSink : public aklmp3::PcmSink {
 public:
  void Format(int sample_rate, int channels) override {
    Trap(!formatted_);
    Trap(channels == 1 || channels == 2);
    Trap(sample_rate >= 8000 && sample_rate <= 48000);
    formatted_ = true;
    channels_ = channels;
  }
  void Write(const std::int16_t* samples, std::size_t frames) override {
    Trap(formatted_);
    // Touch every sample so ASan/MSan-style tools see the whole block.
    std::int32_t acc = 0;
    for (std::size_t i = 0; i < frames * static_cast<std::size_t>(channels_); ++i) acc += samples[i];
    sink_ = sink_ + acc;
    frames_ += frames;
  }
  std::uint64_t frames_ = 0;
  int channels_ = 0;
  bool formatted_ = false;
  volatile std::int32_t sink_ = 0;
};

// The input as a pipe: pieces of 1 to 4096 bytes, no second pass.
class PipeSource : public aklmp3::ByteSource {
 public:
  PipeSource(const std::uint8_t* d, std::size_t n) : d_(d), n_(n) {}
  std::size_t Read(std::uint8_t* dst, std::size_t want) override {
    const std::size_t piece = 1 + (pos_ * 2654435761u >> 7) % 4096;
    const std::size_t n = std::min({want, n_ - pos_, piece});
    if (n) std::memcpy(dst, d_ + pos_, n);
    pos_ += n;
    return n;
  }
  bool Rewind() override { return false; }

 private:
  const std::uint8_t* d_;
  std::size_t n_, pos_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto* block = static_cast<std::uint8_t*>(std::malloc(size ? size : 1));
  if (size) std::memcpy(block, data, size);
  aklmp3::DecodeOptions opt;
  opt.gapless = size > 0 && (data[size - 1] & 1);
  CheckingSink sink;
  const aklmp3::DecodeStats st = aklmp3::DecodeBuffer(block, size, opt, &sink);
  Trap(st.frames >= 0 && st.damaged >= 0);
  Trap(st.samples_out == sink.frames_);
  if (st.frames > 0) Trap(st.channels == sink.channels_);
  // Decoded in one pass as it arrives: the same promises.
  CheckingSink piped;
  PipeSource pipe(block, size);
  const aklmp3::DecodeStats one = aklmp3::DecodeStream(&pipe, opt, &piped);
  Trap(one.frames >= 0 && one.damaged >= 0);
  Trap(one.samples_out == piped.frames_);
  if (one.frames > 0) Trap(one.channels == piped.channels_);
  std::free(block);
  return 0;
}
