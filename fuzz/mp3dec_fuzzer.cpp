// akl-mp3dec's whole frame loop (aklmp3::DecodeBuffer) on arbitrary bytes.
// The input is copied into a heap block of exactly its size (the frame loop
// promises never to read outside the buffer, and pads the library's reads
// itself).  The sink checks what the loop promises: the format is announced
// once before any PCM and never changes, and the sample count agrees with the
// statistics.
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
  std::free(block);
  return 0;
}
