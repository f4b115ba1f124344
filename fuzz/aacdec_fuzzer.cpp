// akl-aacdec's frame loop over arbitrary input: ADTS and ADIF parsing, every
// element, coupling, the spectral tools and synthesis.  The decoder copies
// each frame into its own padded buffer, so the input is handed over as is.
#include <cstdint>
#include <string>

#include "aacdec/aac_decoder.hpp"

namespace {
class NullSink : public aacdec::PcmSink {
 public:
  bool Format(const aacdec::StreamFormat& f) override { return f.channels > 0; }
  bool Frame(const std::int16_t* pcm, int frames) override { return pcm != nullptr && (frames == 1024 || frames == 2048); }
  void Warn(const std::string&) override {}
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  NullSink sink;
  aacdec::DecodeStats stats;
  std::string message;
  aacdec::DecodeAacBuffer(data, size, &sink, &stats, &message);
  return 0;
}
